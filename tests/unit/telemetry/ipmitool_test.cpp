// A program that knows IPMI and not us reads the same sensors.

#include "hw/accelerator.h"
#include "support/bmc_server.h"
#include "support/rack.h"
#include "telemetry/controllers.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

// No degrees Fahrenheit or Kelvin, which we convert, and no formula that falls, where it leaves the limits in the
// places of the raw ones.
constexpr auto sensors = R"(
    {"name": "no limits", "unit": "V", "value": 12.03, "m": 63, "r_exp": -3},
    {"name": "absent", "unit": "V", "available": false, "limits": {"upper_critical": 200}},
    {"name": "fine", "unit": "V", "value": 12.03, "m": 63, "r_exp": -3, "limits": {"lower_non_recoverable": 9.954,
     "lower_critical": 10.773, "lower_non_critical": 11.025, "upper_non_critical": 12.6, "upper_critical": 13.23,
     "upper_non_recoverable": 14.994}},
    {"name": "low", "unit": "A", "value": 5, "limits": {"lower_non_critical": 5}},
    {"name": "too low", "unit": "A", "value": 4, "limits": {"lower_critical": 4, "lower_non_critical": 6}},
    {"name": "far too low", "unit": "A", "value": 1, "limits": {"lower_non_recoverable": 2, "lower_critical": 4}},
    {"name": "high", "unit": "degrees C", "value": 90, "limits": {"upper_non_critical": 85, "upper_critical": 95}},
    {"name": "too high", "unit": "degrees C", "value": 99, "limits": {"upper_non_critical": 85, "upper_critical": 95}},
    {"name": "far too high", "unit": "RPM", "value": 5000, "m": 25, "limits": {"upper_non_recoverable": 4500}},
    {"name": "below zero", "unit": "degrees C", "value": -5, "format": "twos complement",
     "limits": {"lower_critical": -10, "lower_non_critical": -5, "upper_critical": 100}},
    {"name": "complement", "unit": "degrees C", "value": -7, "format": "ones complement",
     "limits": {"lower_critical": -10, "upper_critical": 0}},
    {"name": "with b", "unit": "degrees C", "value": 41.5, "m": 5, "b": -5, "b_exp": 1, "r_exp": -1,
     "limits": {"lower_critical": -2, "upper_critical": 40}},
    {"name": "logarithm", "unit": "W", "linearisation": "log10", "value": 2, "limits": {"upper_critical": 2}},
    {"name": "root", "unit": "W", "linearisation": "sqrt", "value": 3, "limits": {"upper_critical": 4}},
    {"name": "cube root", "unit": "W", "linearisation": "cube root", "value": 3, "limits": {"upper_critical": 4}},
    {"name": "exponential", "unit": "W", "linearisation": "e", "r_exp": -1, "value": 20,
     "limits": {"lower_critical": 2, "upper_critical": 40}},
    {"name": "square", "unit": "W", "linearisation": "sqr", "value": 36, "limits": {"upper_critical": 30}})";

/// A number as it prints it.
std::string text_of(const std::optional<double>& value)
{
    if (!value)
        return "na";
    std::string text(400, '\0');
    text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%.3f", *value)));
    return text;
}

std::string status_of(const reading_t& reading)
{
    const std::map<health_t, std::string> names{
        {health_t::ok, "ok"}, {health_t::warning, "nc"}, {health_t::critical, "cr or nr"}};
    return reading.state == state_t::ok ? names.at(reading.compared.value_or(health_t::ok)) : "na";
}

/// Sensors of the rack's board, a row each: name, value, status, limits from the lowest to the highest.
std::vector<std::vector<std::string>> our_rows(tests::rack_t& rack)
{
    const std::string text = tests::printed(rack, [] {
        board::board b{hw::enumerate_accelerators().at(0)};
        for (const reading_t& reading : read_controller(b, {part_t::sensors}, [] { return false; }).sensors) {
            std::cout << reading.name << '|' << text_of(reading.value) << '|' << status_of(reading);
            for (const std::optional<double>& limit : reading.limits.values)
                std::cout << '|' << text_of(limit);
            std::cout << '\n';
        }
    });
    return tests::table(text, "|");
}

TEST(ipmitool, agrees_with_our_readings_in_value_status_and_limits)
{
    tests::rack_t rack;
    rack.environment("IVRA_LOG_LEVEL=0");
    rack.plug("bittware_xupp3r", {{"bmc", std::string{R"({"sensors": {"only": true, "list": [)"} + sensors + "]}}"}});
    const auto ours = our_rows(rack);
    ASSERT_EQ(ours.size(), 17U);

    const tests::bmc_server bmc{rack.folder() / "rack.json", "card-0", rack.folder() / "state of the server"};
    std::vector<std::vector<std::string>> theirs;
    for (const std::vector<std::string>& row : tests::table(bmc.ipmitool({"sensor"}), "|")) {
        ASSERT_EQ(row.size(), 10U);
        const std::string status = row[3] == "cr" || row[3] == "nr" ? "cr or nr" : row[3];
        theirs.push_back({row[0], row[1], status, row[4], row[5], row[6], row[7], row[8], row[9]});
    }
    ASSERT_EQ(ours.size(), theirs.size());
    for (std::size_t i = 0; i < ours.size(); ++i)
        EXPECT_EQ(ours[i], theirs[i]);
}

} // namespace
} // namespace ivra::bsp::telemetry
