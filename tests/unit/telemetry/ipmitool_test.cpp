// A program that knows IPMI and not us reads the same sensors.
//
// What it cannot be asked: it shows 16 characters of a name, no rates of units, no record IDs, and of values three
// decimals. It shows a sensor whose formula has no number for the raw reading as "inf" or "nan", and with a status. Of
// one that does not scan it shows no unit. Its thresholds are those of raw readings: of a formula that falls it calls
// the lower limits upper ones. Records that are malformed, or have limits that contradict each other, it believes.

#include "hw/accelerator.h"
#include "support/bmc_server.h"
#include "support/rack.h"
#include "telemetry/controllers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

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
    {"name": "square", "unit": "W", "linearisation": "sqr", "value": 36, "limits": {"upper_critical": 30}},
    {"name": "natural", "unit": "W", "linearisation": "ln", "value": 3, "limits": {"upper_critical": 5}},
    {"name": "binary", "unit": "W", "linearisation": "log2", "value": 3, "limits": {"upper_critical": 3}},
    {"name": "power of ten", "unit": "W", "linearisation": "exp10", "value": 100, "r_exp": -1,
     "limits": {"upper_critical": 1000}},
    {"name": "power of two", "unit": "W", "linearisation": "exp2", "value": 8, "limits": {"upper_critical": 16}},
    {"name": "cube", "unit": "W", "linearisation": "cube", "value": 27, "format": "twos complement",
     "limits": {"lower_critical": -8, "upper_critical": 64}},
    {"name": "no logarithm", "unit": "W", "linearisation": "ln", "raw": 0},
    {"name": "no root", "unit": "W", "linearisation": "sqrt", "raw": 251, "format": "twos complement"},
    {"name": "no inverse", "unit": "W", "linearisation": "1/x", "raw": 0},
    {"name": "Fahrenheit", "unit": "degrees F", "value": 98,
     "limits": {"lower_critical": 32, "upper_non_critical": 95, "upper_critical": 104}},
    {"name": "Kelvin", "unit": "K", "value": 300, "m": 2,
     "limits": {"lower_non_critical": 274, "upper_critical": 298}},
    {"name": "falls: fan", "unit": "RPM", "value": 4000, "linearisation": "1/x", "r_exp": -6,
     "limits": {"lower_critical": 4000, "lower_non_critical": 5000, "upper_non_critical": 20000}},
    {"name": "falls", "unit": "V", "value": 11, "m": -1, "b": 30,
     "limits": {"lower_critical": 10, "lower_non_critical": 11, "upper_critical": 25}},
    {"name": "falls: high", "unit": "V", "value": 26, "m": -1, "b": 30,
     "limits": {"lower_critical": 10, "upper_critical": 25, "upper_non_recoverable": 28}},
    {"name": "falls: Kelvin", "unit": "K", "value": 280, "m": -2, "b": 40, "b_exp": 1,
     "limits": {"lower_critical": 280, "upper_critical": 300}},
    {"name": "rises", "unit": "V", "value": -0.05, "m": -1, "linearisation": "1/x",
     "limits": {"lower_critical": -0.1, "upper_critical": -0.02}},
    {"name": "not scanning", "unit": "unspecified", "response": "0480c0"},
    {"name": "not yet", "unit": "V", "response": "04e0c0", "limits": {"upper_critical": 5}},
    {"name": "percent", "unit": 0, "percent": true, "value": 40, "limits": {"upper_critical": 90}},
    {"name": "percent of volts", "unit": "V", "percent": true, "value": 40},
    {"name": "resistance", "unit": "V", "modifier": "per", "modifier_unit": "A", "value": 40},
    {"name": "flux", "unit": "V", "modifier": "times", "modifier_unit": 22, "value": 40})";

/// Sensors of units by code, two each. Of 59 to 62 one is reserved, and it calls the others "Decibels", "DbA" and
/// "DbC".
std::string sensors_of_units()
{
    std::string list;
    for (int code = 1; code < 92; code += code == 57 ? 6 : 2)
        list += R"(, {"name": "units )" + std::to_string(code) + R"(", "unit": )" + std::to_string(code) +
                R"(, "modifier": "per", "modifier_unit": )" + std::to_string(code + 1) + R"(, "value": 40})";
    return list;
}

/// What its units are as ours, and its numbers.
struct unit_row_t
{
    const char* theirs;
    const char* ours;
    double (*to_ours)(double);
};
constexpr auto as_it_is = +[](double value) { return value; };
const unit_row_t unit_rows[] = {
    {"degrees C", "celsius", as_it_is},
    {"degrees F", "celsius", [](double fahrenheit) { return (fahrenheit - 32) * 5 / 9; }},
    {"degrees K", "celsius", [](double kelvin) { return kelvin - 273.15; }},
    {"Volts", "volts", as_it_is},
    {"Amps", "amperes", as_it_is},
    {"Watts", "watts", as_it_is},
    {"RPM", "rpm", as_it_is},
};

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

using row_t = std::vector<std::string>;

/// Sensors of the rack's board, a row each: name, value, unit, status, limits from the lowest to the highest.
std::vector<row_t> our_rows(tests::rack_t& rack)
{
    const std::string text = tests::printed(rack, [] {
        board::board b{hw::enumerate_accelerators().at(0)};
        for (const reading_t& reading : read_controller(b, {part_t::sensors}, [] { return false; }).sensors) {
            const std::string_view base = get_base_unit(reading.quantity);
            std::cout << reading.name.substr(0, 16) << '|'
                      << (reading.state == state_t::failed ? "no number" : text_of(reading.value)) << '|'
                      << (base.empty() ? reading.unit : base) << '|' << status_of(reading);
            for (const std::optional<double>& limit : reading.limits.values)
                std::cout << '|' << text_of(limit);
            std::cout << '\n';
        }
    });
    return tests::table(text, "|");
}

/// A row of its own in our unit and words.
row_t translated(row_t row)
{
    if (row[1].ends_with("inf") || row[1].ends_with("nan"))
        row[1] = "no number", row[3] = "na";
    if (row[3] == "cr" || row[3] == "nr")
        row[3] = "cr or nr";
    const auto* const unit = std::ranges::find(unit_rows, row[2], &unit_row_t::theirs);
    if (unit != std::end(unit_rows)) {
        row[2] = unit->ours;
        for (const std::size_t at : {1U, 4U, 5U, 6U, 7U, 8U, 9U})
            if (row[at] != "na" && row[at] != "no number")
                row[at] = text_of(unit->to_ours(std::stod(row[at])));
    }
    if (row[0].starts_with("falls"))
        std::reverse(row.begin() + 4, row.end());
    return row;
}

TEST(ipmitool, agrees_with_our_readings_in_value_unit_status_and_limits)
{
    tests::rack_t rack;
    rack.environment("IVRA_LOG_LEVEL=0");
    rack.plug("bittware_xupp3r", {{"bmc", std::string{R"({"latency": "0 ms", "sensors": {"only": true, "list": [)"} +
                                              sensors + sensors_of_units() + "]}}"}});
    const std::vector<row_t> ours = our_rows(rack);
    ASSERT_EQ(ours.size(), 38U + 44U);

    const tests::bmc_server bmc{rack.folder() / "rack.json", "card-0", rack.folder() / "state of the server"};
    const std::vector<row_t> theirs = tests::table(bmc.ipmitool({"sensor"}), "|");
    ASSERT_EQ(ours.size(), theirs.size());
    for (std::size_t at = 0; at < ours.size(); ++at) {
        ASSERT_EQ(theirs[at].size(), 10U);
        EXPECT_EQ(ours[at], translated(theirs[at]));
    }
}

} // namespace
} // namespace ivra::bsp::telemetry
