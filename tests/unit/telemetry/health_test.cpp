#include "telemetry/health.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

reading_t volts(double value)
{
    reading_t reading;
    reading.name = "12V";
    reading.quantity = board::quantity_t::voltage;
    reading.state = state_t::ok;
    reading.value = value;
    return reading;
}

/// With all six limits: 10, 11, 11.5, 12.5, 13 and 14.
reading_t limited(double value, authority_t authority)
{
    reading_t reading = volts(value);
    reading.limits = {.authority = authority, .values = {10, 11, 11.5, 12.5, 13, 14}};
    return reading;
}

using told_t = std::pair<std::optional<health_t>, std::vector<std::string>>;

told_t told(const reading_t& reading)
{
    const verdict_t verdict = judge(reading, "card 12V");
    std::vector<std::string> texts;
    for (const finding_t& finding : verdict.findings)
        texts.push_back((finding.health ? std::string{get_name(*finding.health)} + ": " : "") + finding.text);
    return {verdict.health, texts};
}

TEST(health, of_a_reading_is_that_of_the_worst_limit_that_it_is_beyond)
{
    const struct
    {
        double value;
        health_t health;
        std::string finding;
    } rows[] = {
        {9.5, health_t::critical,
         "critical: card 12V: 9.5 V is below the lower non-recoverable limit of 10 V set by the module"},
        {10.5, health_t::critical,
         "critical: card 12V: 10.5 V is below the lower critical limit of 11 V set by the module"},
        {11.25, health_t::warning,
         "warning: card 12V: 11.25 V is below the lower warning limit of 11.5 V set by the module"},
        {12, health_t::ok, ""},
        {12.75, health_t::warning,
         "warning: card 12V: 12.75 V is above the upper warning limit of 12.5 V set by the module"},
        {13.5, health_t::critical,
         "critical: card 12V: 13.5 V is above the upper critical limit of 13 V set by the module"},
        {14.5, health_t::critical,
         "critical: card 12V: 14.5 V is above the upper non-recoverable limit of 14 V set by the module"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(told(limited(row.value, authority_t::module)),
                  (told_t{row.health, row.finding.empty() ? std::vector<std::string>{} : std::vector{row.finding}}))
            << row.value;
}

TEST(health, of_a_reading_that_is_equal_to_a_limit_depends_on_who_set_it)
{
    EXPECT_EQ(told(limited(12.5, authority_t::bmc)),
              (told_t{health_t::warning,
                      {"warning: card 12V: 12.5 V has reached the upper warning limit of 12.5 V set by the BMC"}}));
    EXPECT_EQ(told(limited(11, authority_t::bmc)),
              (told_t{health_t::critical,
                      {"critical: card 12V: 11 V has reached the lower critical limit of 11 V set by the BMC"}}));
    EXPECT_EQ(told(limited(12.5, authority_t::module)), (told_t{health_t::ok, {}}));
    EXPECT_EQ(told(limited(12.5, authority_t::file)), (told_t{health_t::ok, {}}));
    EXPECT_EQ(
        told(limited(12.6, authority_t::file)),
        (told_t{health_t::warning,
                {"warning: card 12V: 12.6 V is above the upper warning limit of 12.5 V set by the limits file"}}));
}

TEST(health, is_nothing_where_there_is_nothing_to_judge_by)
{
    EXPECT_EQ(told(volts(12)), (told_t{std::nullopt, {}}));
    for (const state_t state : {state_t::unavailable, state_t::unsupported}) {
        reading_t reading = limited(20, authority_t::bmc);
        reading.state = state;
        reading.value.reset();
        EXPECT_EQ(told(reading), (told_t{std::nullopt, {}}));
    }
}

TEST(health, of_what_failed_is_unknown)
{
    reading_t reading = limited(20, authority_t::bmc);
    reading.state = state_t::failed;
    reading.value.reset();
    reading.error = "Input/output error";
    EXPECT_EQ(told(reading), (told_t{health_t::unknown, {"unknown: card 12V could not be read: Input/output error"}}));
}

TEST(health, is_the_worse_where_limits_and_comparison_disagree_and_says_so)
{
    reading_t reading = limited(12.75, authority_t::bmc);
    reading.compared = health_t::warning;
    EXPECT_EQ(told(reading).first, health_t::warning);
    EXPECT_EQ(told(reading).second.size(), 1) << "they agree";

    reading.compared = health_t::ok;
    EXPECT_EQ(told(reading),
              (told_t{health_t::warning,
                      {"warning: card 12V: 12.75 V is above the upper warning limit of 12.5 V set by the BMC",
                       "ok: card 12V: the BMC's own comparison says ok, its limits say warning"}}));
    reading.compared = health_t::critical;
    EXPECT_EQ(told(reading),
              (told_t{health_t::critical,
                      {"warning: card 12V: 12.75 V is above the upper warning limit of 12.5 V set by the BMC",
                       "critical: card 12V: the BMC's own comparison says critical, its limits say warning"}}));

    reading_t unlimited = volts(12);
    unlimited.compared = health_t::critical;
    EXPECT_EQ(told(unlimited),
              (told_t{health_t::critical, {"critical: card 12V: the BMC's own comparison says critical"}}));
    unlimited.compared = health_t::ok;
    EXPECT_EQ(told(unlimited), (told_t{health_t::ok, {}}));
}

TEST(health, is_told_in_the_units_of_people)
{
    reading_t reading = volts(0);
    reading.limits.authority = authority_t::module;
    reading.limits[limit_t::lower_critical] = 0.0001;
    const std::pair<board::quantity_t, std::string> rows[] = {
        {board::quantity_t::optical_power, "0 mW is below the lower critical limit of 0.1 mW"},
        {board::quantity_t::temperature, "0 °C is below the lower critical limit of 0.0001 °C"},
        {board::quantity_t::fan_speed, "0 RPM is below the lower critical limit of 0.0001 RPM"},
        {board::quantity_t::other, "0 is below the lower critical limit of 0.0001"},
    };
    for (const auto& [quantity, text] : rows) {
        reading.quantity = quantity;
        EXPECT_EQ(told(reading).second, std::vector{"critical: card 12V: " + text + " set by the module"});
    }
    reading.unit = "kPa";
    EXPECT_EQ(told(reading).second,
              std::vector<std::string>{
                  "critical: card 12V: 0 kPa is below the lower critical limit of 0.0001 kPa set by the module"});
}

TEST(health, keeps_what_was_odd_about_a_reading_as_a_remark)
{
    reading_t reading = volts(12);
    reading.findings = {"a limit makes no sense"};
    EXPECT_EQ(told(reading), (told_t{std::nullopt, {"card 12V: a limit makes no sense"}}));
}

} // namespace
} // namespace ivra::bsp::telemetry
