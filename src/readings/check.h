#ifndef IVRA_READINGS_CHECK_H
#define IVRA_READINGS_CHECK_H

#include "telemetry/health.h"

#include <rapidjson/document.h>

#include <string>
#include <vector>

namespace ivra::bsp::readings {

/// What a monitoring plugin prints: one line, without its end. `findings` are those of the host.
std::string make_check_line(telemetry::health_t host, const std::vector<telemetry::finding_t>& findings,
                            const std::vector<rapidjson::Document>& boards);

/// The line of one that could not check anything.
std::string make_failure_line(const std::string& error);

/// The status of a plugin, 0 to 3.
int get_check_status(telemetry::health_t host);

} // namespace ivra::bsp::readings

#endif
