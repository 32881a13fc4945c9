#ifndef IVRA_READINGS_BOARD_VIEW_H
#define IVRA_READINGS_BOARD_VIEW_H

#include "telemetry/health.h"
#include "text/json.h"

#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::readings {

/// A reading in a board's document, and where it is: "FPGA", "cage 1", "cage 1 lane 2" or nothing.
struct located_reading_t
{
    std::string where;
    const json_t& reading;
};

/// Nothing for a thing without health.
std::optional<telemetry::health_t> get_health(const json_t& object);

/// Every reading of a board.
std::vector<located_reading_t> get_readings(const json_t& board);

/// Whether the board, or anything of it, could not be read.
bool has_failure(const json_t& board);

/// What people call each of the boards: its name, else its uid, else its index; those of one name by uid or index, too.
std::vector<std::string> get_names(const std::vector<rapidjson::Document>& boards);

} // namespace ivra::bsp::readings

#endif
