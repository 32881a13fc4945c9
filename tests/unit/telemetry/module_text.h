#ifndef IVRA_TESTS_TELEMETRY_MODULE_TEXT_H
#define IVRA_TESTS_TELEMETRY_MODULE_TEXT_H

#include "telemetry/module.h"

#include <charconv>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {

// A module as lines of text: what it is, a line a finding, a line a reading.

inline std::string number(double value)
{
    char digits[32];
    return {digits, std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general).ptr};
}

inline std::string lines(const std::vector<std::string>& findings)
{
    std::string text;
    for (const std::string& finding : findings)
        text += "! " + finding + '\n';
    return text;
}

/// "voltage 3.3 [2.97 3.135 3.465 3.63]": lower critical, lower non-critical, upper non-critical, upper critical.
inline std::string text_of(const reading_t& reading)
{
    std::string text = reading.name + ' ';
    switch (reading.state) {
    case state_t::ok:
        text += reading.value ? number(*reading.value) : "ok without a value";
        break;
    case state_t::unavailable:
        text += "unavailable";
        break;
    case state_t::unsupported:
        text += "unsupported";
        break;
    case state_t::failed:
        text += "failed: " + reading.error;
        break;
    }
    std::string limits;
    bool has_limits = false;
    for (const limit_t limit :
         {limit_t::lower_critical, limit_t::lower_non_critical, limit_t::upper_non_critical, limit_t::upper_critical}) {
        limits += limits.empty() ? "" : " ";
        limits += reading.limits[limit] ? number(*reading.limits[limit]) : "-";
        has_limits |= reading.limits[limit].has_value();
    }
    if (reading.state != state_t::ok && reading.value)
        text += " with a value";
    return text + (has_limits ? " [" + limits + ']' : "") + '\n' + lines(reading.findings);
}

inline std::string text_of(const lane_t& lane)
{
    return "lane " + std::to_string(lane.number) + (lane.is_transmitter_off ? " off" : "") + '\n' +
           text_of(lane.rx_power) + text_of(lane.tx_power) + text_of(lane.tx_bias);
}

/// Without the texts that say which module it is.
inline std::string measurements_of(const module_t& module)
{
    constexpr const char* states[] = {"", "empty\n", "unsupported\n", "failed: "};
    std::string text = states[static_cast<int>(module.state)];
    text += module.error + (module.error.empty() ? "" : "\n") + lines(module.findings);
    for (const reading_t& reading : module.monitors)
        text += text_of(reading);
    for (const lane_t& lane : module.lanes)
        text += text_of(lane);
    return text;
}

inline std::string identity_of(const module_t& module)
{
    std::string text;
    for (const auto& part : {module.vendor, module.vendor_oui, module.part_number, module.revision,
                             module.serial_number, module.date_code, module.date})
        text += (text.empty() ? "" : "|") + part.value_or("-");
    return text;
}

} // namespace ivra::bsp::telemetry

#endif
