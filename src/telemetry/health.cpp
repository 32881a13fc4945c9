#include "telemetry/health.h"

#include "text/text_stream.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

namespace ivra::bsp::telemetry {

namespace {

struct limit_row_t
{
    limit_t limit;
    bool is_upper;
    health_t health; ///< of a value beyond it
    const char* name;
};

// From the worst to the least: the first one that a value is beyond is the one to tell.
constexpr limit_row_t limit_rows[] = {
    {limit_t::lower_non_recoverable, false, health_t::critical, "lower non-recoverable"},
    {limit_t::upper_non_recoverable, true, health_t::critical, "upper non-recoverable"},
    {limit_t::lower_critical, false, health_t::critical, "lower critical"},
    {limit_t::upper_critical, true, health_t::critical, "upper critical"},
    {limit_t::lower_non_critical, false, health_t::warning, "lower warning"},
    {limit_t::upper_non_critical, true, health_t::warning, "upper warning"},
};

const char* get_name(authority_t authority)
{
    switch (authority) {
    case authority_t::bmc:
        return "the BMC";
    case authority_t::module:
        return "the module";
    case authority_t::file:
        break;
    }
    return "the limits file";
}

/// How people write a quantity.
struct unit_row_t
{
    board::quantity_t quantity;
    const char* symbol;
    double per_base_unit = 1; ///< so many make one base unit
};
constexpr unit_row_t unit_rows[] = {
    {board::quantity_t::voltage, "V"},      {board::quantity_t::current, "A"},
    {board::quantity_t::temperature, "°C"}, {board::quantity_t::power, "W"},
    {board::quantity_t::fan_speed, "RPM"},  {board::quantity_t::optical_power, "mW", 1000},
};

std::string to_text(double value, const reading_t& reading, int digits)
{
    const auto* const row = std::ranges::find(unit_rows, reading.quantity, &unit_row_t::quantity);
    const bool is_known = row != std::end(unit_rows);
    const std::string unit = is_known ? row->symbol : reading.unit;
    text_stream stream;
    stream.precision(digits);
    stream << value * (is_known ? row->per_base_unit : 1);
    if (!unit.empty())
        stream << ' ' << unit;
    return stream.str();
}

bool is_beyond(double value, double limit, bool is_upper, authority_t authority)
{
    if (value == limit)
        return authority == authority_t::bmc;
    return is_upper ? value > limit : value < limit;
}

/// As many digits as tell a value from a limit; six where they do not matter.
int get_digits(double value, double limit, const reading_t& reading)
{
    int digits = 6;
    while (digits < std::numeric_limits<double>::max_digits10 && value != limit &&
           to_text(value, reading, digits) == to_text(limit, reading, digits))
        ++digits;
    return digits;
}

void judge_by_limits(const reading_t& reading, const std::string& what, verdict_t& verdict)
{
    if (std::ranges::none_of(reading.limits.values, &std::optional<double>::has_value))
        return;
    verdict.add(health_t::ok);
    for (const limit_row_t& row : limit_rows)
        if (const std::optional<double>& limit = reading.limits[row.limit];
            limit && is_beyond(*reading.value, *limit, row.is_upper, reading.limits.authority)) {
            const char* relation = *reading.value == *limit ? " has reached the "
                                   : row.is_upper           ? " is above the "
                                                            : " is below the ";
            const int digits = get_digits(*reading.value, *limit, reading);
            verdict.add(row.health, what + ": " + to_text(*reading.value, reading, digits) + relation + row.name +
                                        " limit of " + to_text(*limit, reading, digits) + " set by " +
                                        get_name(reading.limits.authority));
            return;
        }
}

} // namespace

std::string_view get_name(health_t health)
{
    switch (health) {
    case health_t::ok:
        return "ok";
    case health_t::warning:
        return "warning";
    case health_t::critical:
        return "critical";
    case health_t::unknown:
        break;
    }
    return "unknown";
}

void verdict_t::add(health_t other)
{
    health = std::max(health.value_or(other), other);
}

void verdict_t::add(health_t other, std::string finding)
{
    add(other);
    findings.push_back({.health = other, .text = std::move(finding)});
}

void verdict_t::add(const verdict_t& part)
{
    if (part.health)
        add(*part.health);
    findings.insert(findings.end(), part.findings.begin(), part.findings.end());
}

void verdict_t::remark(std::string finding)
{
    findings.push_back({.health = std::nullopt, .text = std::move(finding)});
}

verdict_t judge(const reading_t& reading, const std::string& what)
{
    verdict_t verdict;
    if (reading.state == state_t::failed)
        verdict.add(health_t::unknown, what + " could not be read: " + reading.error);
    if (reading.state == state_t::ok) {
        judge_by_limits(reading, what, verdict);
        if (reading.compared) {
            const std::optional<health_t> by_limits = verdict.health;
            const std::string comparison =
                what + ": the BMC's own comparison says " + std::string{get_name(*reading.compared)};
            if (!by_limits && *reading.compared != health_t::ok)
                verdict.add(*reading.compared, comparison);
            else if (by_limits && *by_limits != *reading.compared)
                verdict.add(*reading.compared, comparison + ", its limits say " + std::string{get_name(*by_limits)});
            else
                verdict.add(*reading.compared);
        }
    }
    for (const std::string& finding : reading.findings)
        verdict.remark(what + ": " + finding);
    return verdict;
}

} // namespace ivra::bsp::telemetry
