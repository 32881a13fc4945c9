#ifndef IVRA_READINGS_DOCUMENT_H
#define IVRA_READINGS_DOCUMENT_H

#include "telemetry/board_readings.h"

#include <optional>
#include <string>
#include <vector>

/// The documents of ivra-bsp-readings, as share/ivra/schema/readings-1.json describes them.
namespace ivra::bsp::readings {

/// A board as a JSON object on one line. `findings` are those that do not come of the readings alone.
std::string make_board_document(const telemetry::accelerator_identity_t& identity,
                                const telemetry::board_readings_t& readings,
                                const std::vector<telemetry::finding_t>& findings);

/// The boards that will be read.
std::string make_announcement(const std::vector<telemetry::accelerator_identity_t>& boards);

/// What is said of the host: `findings` are its own, `boards` the objects of its boards, or nothing where each has a
/// line of its own.
std::string make_host_document(telemetry::health_t health, const std::vector<telemetry::finding_t>& findings,
                               std::size_t board_count, const std::optional<std::vector<std::string>>& boards);

} // namespace ivra::bsp::readings

#endif
