#include "telemetry/ipmi_sensor.h"

#include "bmc/bittware/sdr.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ivra::bsp::telemetry {

namespace {

using board::quantity_t;
using bytes_t = std::span<const std::uint8_t>;
namespace field = bmc::bittware::sensor_record_field;

// clang-format off
constexpr std::uint8_t threshold_sensor   = 0x01;

/// A threshold: its bit in every mask of thresholds and in the comparison, where its raw value is in the record.
struct threshold_row_t
{
    limit_t limit;
    unsigned bit;
    std::size_t offset;
    health_t when_reached;
    const char* name;
};
constexpr threshold_row_t thresholds[] = {
    {limit_t::lower_non_recoverable, 2, 39, health_t::critical, "lower non-recoverable"},
    {limit_t::lower_critical,        1, 40, health_t::critical, "lower critical"},
    {limit_t::lower_non_critical,    0, 41, health_t::warning,  "lower non-critical"},
    {limit_t::upper_non_critical,    3, 38, health_t::warning,  "upper non-critical"},
    {limit_t::upper_critical,        4, 37, health_t::critical, "upper critical"},
    {limit_t::upper_non_recoverable, 5, 36, health_t::critical, "upper non-recoverable"},
};
static_assert(std::size(thresholds) == limit_count);

// Answer to Get Sensor Reading (table 35-15).
constexpr std::size_t  reading_raw         = 0;
constexpr std::size_t  reading_status      = 1;
constexpr std::size_t  reading_comparison  = 2; // 5..0; need not be there
constexpr std::uint8_t reading_unavailable = 1U << 5;
constexpr std::uint8_t scanning_enabled    = 1U << 6;

// Completion codes with which a BMC says that a sensor has no reading now (table 5-2).
constexpr std::uint8_t not_present       = 0xCB;
constexpr std::uint8_t cannot_be_provided = 0xCE;

/// Table 43-15, by code.
constexpr std::array unit_names{
    "unspecified", "degrees C", "degrees F", "degrees K", "Volts", "Amps", "Watts", "Joules", "Coulombs", "VA",
    "Nits", "lumen", "lux", "Candela", "kPa", "PSI", "Newton", "CFM", "RPM", "Hz",
    "microsecond", "millisecond", "second", "minute", "hour", "day", "week", "mil", "inches", "feet",
    "cu in", "cu feet", "mm", "cm", "m", "cu cm", "cu m", "liters", "fluid ounce", "radians",
    "steradians", "revolutions", "cycles", "gravities", "ounce", "pound", "ft-lb", "oz-in", "gauss", "gilberts",
    "henry", "millihenry", "farad", "microfarad", "ohms", "siemens", "mole", "becquerel", "PPM", "reserved",
    "decibels", "dBA", "dBC", "gray", "sievert", "color temp deg K", "bit", "kilobit", "megabit", "gigabit",
    "byte", "kilobyte", "megabyte", "gigabyte", "word", "dword", "qword", "line", "hit", "miss",
    "retry", "reset", "overflow", "underrun", "collision", "packets", "messages", "characters", "error",
    "correctable error", "uncorrectable error", "fatal error", "grams",
};
static_assert(unit_names.size() == 93);
constexpr std::uint8_t unspecified_unit = 0;
constexpr std::uint8_t reserved_unit    = 59;

/// Units that are a quantity of ours: what makes base units of them.
struct quantity_row_t
{
    std::uint8_t unit;
    quantity_t quantity;
    double (*to_base_unit)(double);
};
constexpr auto as_it_is = +[](double value) { return value; };
constexpr quantity_row_t quantities[] = {
    { 1, quantity_t::temperature, as_it_is},
    { 2, quantity_t::temperature, +[](double fahrenheit) { return (fahrenheit - 32) * 5 / 9; }},
    { 3, quantity_t::temperature, +[](double kelvin) { return (kelvin * 100 - 27315) / 100; }},
    { 4, quantity_t::voltage,     as_it_is},
    { 5, quantity_t::current,     as_it_is},
    { 6, quantity_t::power,       as_it_is},
    {18, quantity_t::fan_speed,   as_it_is},
};

/// By code; what follows is reserved.
constexpr std::array rate_names{
    "", "per microsecond", "per millisecond", "per second", "per minute", "per hour", "per day",
};
/// By code: what stands between base unit and modifier unit; what follows is reserved.
constexpr std::array modifier_signs{"", "/", "*"};

/// Raw readings by format; what follows gives no numbers.
constexpr std::array formats{
    +[](std::uint8_t raw) -> int { return raw; },
    +[](std::uint8_t raw) -> int { return raw < 0x80 ? raw : raw - 255; },
    +[](std::uint8_t raw) -> int { return raw < 0x80 ? raw : raw - 256; },
};

/// By code; what follows is reserved, or takes factors of its own for each reading (70h), or is the maker's.
constexpr std::array linearisations{
    +[](double y) { return y; },
    +[](double y) { return std::log(y); },
    +[](double y) { return std::log10(y); },
    +[](double y) { return std::log2(y); },
    +[](double y) { return std::exp(y); },
    +[](double y) { return std::pow(10.0, y); },
    +[](double y) { return std::exp2(y); },
    +[](double y) { return 1.0 / y; },
    +[](double y) { return y * y; },
    +[](double y) { return y * y * y; },
    +[](double y) { return std::sqrt(y); },
    +[](double y) { return std::cbrt(y); },
};
// clang-format on

/// A number of `bits` bits in two's complement.
constexpr int to_signed(unsigned value, unsigned bits)
{
    const unsigned sign = 1U << (bits - 1);
    return static_cast<int>(value & (sign - 1)) - static_cast<int>(value & sign);
}

/// Exact up to 10^22.
constexpr double power_of_ten(int exponent)
{
    double power = 1;
    for (; exponent > 0; --exponent)
        power *= 10;
    return power;
}

/// (m * x + b * 10^b_exponent) * 10^r_exponent with one rounding: the sum is a whole number of less than 2^53.
double scaled(const ipmi_formula_t& formula, int x)
{
    const double sum = formula.m * x * power_of_ten(-formula.b_exponent) + formula.b * power_of_ten(formula.b_exponent);
    const int exponent = formula.r_exponent + std::min(formula.b_exponent, 0);
    return exponent < 0 ? sum / power_of_ten(-exponent) : sum * power_of_ten(exponent);
}

/// Nothing where the formula has no number, or none that a double can hold.
std::optional<double> convert(const ipmi_formula_t& formula, std::uint8_t raw)
{
    const double y = scaled(formula, formats.at(formula.format)(raw));
    const double value = formula.to_base_unit(linearisations.at(formula.linearisation)(y));
    return std::isfinite(value) ? std::optional{value} : std::nullopt;
}

std::string text_of(double value)
{
    std::array<char, 32> text{}; // the shortest text of a double has at most 24 characters
    const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), result.ptr};
}

bool is_known_unit(std::uint8_t unit)
{
    return unit < unit_names.size() && unit != reserved_unit;
}

void take_unit(ipmi_sensor_t& sensor, bytes_t record)
{
    const std::uint8_t base = record[field::base_unit];
    const std::uint8_t modifier = record[field::modifier_unit];
    const unsigned rate = record[field::units] >> 3 & 7U;
    const unsigned use = record[field::units] >> 1 & 3U;
    const bool is_percentage = (record[field::units] & 1U) != 0;

    reading_t& reading = sensor.reading;
    sensor.formula.to_base_unit = as_it_is;
    if (rate == 0 && use == 0 && !is_percentage) {
        const auto* const row = std::ranges::find(quantities, base, &quantity_row_t::unit);
        if (row != std::end(quantities)) {
            reading.quantity = row->quantity;
            sensor.formula.to_base_unit = row->to_base_unit;
            return;
        }
    }
    if (!is_known_unit(base) || use >= modifier_signs.size() || (use != 0 && !is_known_unit(modifier)) ||
        rate >= rate_names.size()) {
        reading.findings.emplace_back("Its record gives a unit that the standard does not know");
        return;
    }

    std::string unit;
    if (base != unspecified_unit || use != 0)
        unit = unit_names[base];
    if (use != 0)
        unit += std::string{modifier_signs[use]} + unit_names[modifier];
    if (is_percentage)
        unit = unit.empty() ? "percent" : "% " + unit;
    if (rate != 0)
        unit += std::string{unit.empty() ? "" : " "} + rate_names[rate];
    reading.unit = unit;
}

/// The first `count` characters, two a byte, the upper half first; there may be fewer.
std::string decode_bcd_plus(bytes_t bytes, std::size_t count)
{
    constexpr std::string_view characters = "0123456789 -.:,_";
    std::string text;
    for (std::size_t i = 0; i < count && i / 2 < bytes.size(); ++i)
        text += characters[bytes[i / 2] >> (i % 2 == 0 ? 4 : 0) & 0xFU];
    return text;
}

/// The first `count` characters, four in three bytes, the least significant bits first; there may be fewer.
std::string decode_6_bit_ascii(bytes_t bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count && (i * 6 + 5) / 8 < bytes.size(); ++i) {
        const std::size_t at = i * 6 / 8;
        const unsigned two = bytes[at] | (at + 1 < bytes.size() ? bytes[at + 1] : 0U) << 8;
        text += static_cast<char>(' ' + (two >> (i * 6 % 8) & 0x3FU));
    }
    return text;
}

/// The name, without the NULs and spaces that fill it up.
void take_name(ipmi_sensor_t& sensor, bytes_t record)
{
    const unsigned type = record[field::name_type_length] >> 6;
    const std::size_t length = record[field::name_type_length] & 0x1FU;
    const bytes_t bytes = record.subspan(field::name);
    std::string& name = sensor.reading.name;
    if (type == 1)
        name = decode_bcd_plus(bytes, length);
    else if (type == 2)
        name = decode_6_bit_ascii(bytes, length);
    else
        name.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(length, bytes.size())));
    if (name.size() < length)
        sensor.reading.findings.emplace_back("Its record ends within its name");
    name.resize(name.find_last_not_of(std::string_view{" \0", 2}) + 1);
}

enum class slope_t
{
    rising,
    falling,
    neither,
};

/// What becomes of the order of raw readings.
slope_t get_slope(const ipmi_formula_t& formula)
{
    bool rises = false;
    bool falls = false;
    std::optional<double> before;
    const unsigned smallest = formula.format == 0 ? 0x00 : 0x80; // the raw reading of the smallest number
    for (unsigned i = 0; i <= 0xFF; ++i) {
        const auto value = convert(formula, static_cast<std::uint8_t>(i ^ smallest));
        if (!value)
            continue;
        rises = rises || (before && *value > *before);
        falls = falls || (before && *value < *before);
        before = value;
    }
    return !falls ? slope_t::rising : !rises ? slope_t::falling : slope_t::neither;
}

/// Drops every two limits that are in the wrong order, and every lower and upper one with nothing between them.
void drop_contradicting(reading_t& reading)
{
    const auto& values = reading.limits.values;
    constexpr std::size_t first_upper = limit_count / 2;
    std::array<bool, limit_count> contradicts{};
    for (std::size_t low = 0; low < limit_count; ++low)
        for (std::size_t high = low + 1; high < limit_count; ++high) {
            if (!values[low] || !values[high])
                continue;
            const bool are_opposite = low < first_upper && high >= first_upper;
            if (*values[low] > *values[high] || (are_opposite && *values[low] == *values[high]))
                contradicts[low] = contradicts[high] = true;
        }
    std::string dropped;
    for (const threshold_row_t& row : thresholds) {
        std::optional<double>& value = reading.limits[row.limit];
        if (!contradicts[static_cast<std::size_t>(row.limit)])
            continue;
        dropped += (dropped.empty() ? "" : ", ") + std::string{row.name} + ' ' + text_of(*value);
        value.reset();
    }
    if (!dropped.empty())
        reading.findings.push_back("Limits in its record contradict each other and are not used: " + dropped);
}

void take_limits(ipmi_sensor_t& sensor, bytes_t record)
{
    const unsigned access = record[field::capabilities] >> 2 & 3U;
    const bool are_readable = access == 1 || access == 2;
    const unsigned readable = are_readable ? record[field::readable] & 0x3FU : 0;
    if (readable == 0)
        return;

    reading_t& reading = sensor.reading;
    const slope_t slope = get_slope(sensor.formula);
    if (slope == slope_t::neither) {
        reading.findings.emplace_back("Limits in its record are not used: its formula both rises and falls");
        return;
    }
    for (const threshold_row_t& row : thresholds) {
        if ((readable >> row.bit & 1U) == 0)
            continue;
        const std::uint8_t raw = record[row.offset];
        const auto opposite = static_cast<limit_t>(limit_count - 1 - static_cast<std::size_t>(row.limit));
        const auto value = convert(sensor.formula, raw);
        if (!value)
            reading.findings.push_back(std::string{"The "} + row.name +
                                       " limit in its record is not used: the formula has no number for " +
                                       std::to_string(raw));
        reading.limits[slope == slope_t::falling ? opposite : row.limit] = value;
    }
    drop_contradicting(reading);
}

/// The BMC's own comparison; nothing when it has compared with no limit.
std::optional<health_t> get_compared(const ipmi_sensor_t& sensor, std::uint8_t comparison)
{
    if (sensor.compared == 0)
        return std::nullopt;
    health_t worst = health_t::ok;
    for (const threshold_row_t& row : thresholds)
        if ((comparison & sensor.compared) >> row.bit & 1U)
            worst = std::max(worst, row.when_reached);
    return worst;
}

} // namespace

bool is_full_sensor_record(std::span<const std::uint8_t> record)
{
    return record.size() > field::type && record[field::type] == bmc::bittware::full_sensor_record;
}

ipmi_sensor_t decode_full_sensor_record(std::span<const std::uint8_t> record)
{
    if (!is_full_sensor_record(record))
        throw std::runtime_error{"Not a full sensor record"};
    if (record.size() < field::name)
        throw std::runtime_error{"Sensor record of " + std::to_string(record.size()) + " bytes, which takes " +
                                 std::to_string(field::name)};
    const auto signed_10 = [&](std::size_t low, std::size_t high) {
        return to_signed(record[low] | (record[high] & 0xC0U) << 2, 10);
    };
    ipmi_sensor_t sensor{
        .number = record[field::sensor_number],
        .formula = {.format = unsigned{record[field::units]} >> 6,
                    .linearisation = record[field::linearisation] & 0x7FU,
                    .m = signed_10(field::m_low, field::m_high),
                    .b = signed_10(field::b_low, field::b_high),
                    .r_exponent = to_signed(record[field::exponents] >> 4U, 4),
                    .b_exponent = to_signed(record[field::exponents] & 0xFU, 4),
                    .to_base_unit = as_it_is},
        .compared = (record[field::lower_compared] >> 4 & 7U) | (record[field::upper_compared] >> 4 & 7U) << 3,
        .reading = {},
    };
    sensor.reading.record = static_cast<std::uint16_t>(record[field::id] | record[field::id + 1] << 8);
    take_name(sensor, record);
    if (record[field::reading_type] != threshold_sensor || (record[field::lun] & 3U) != 0 ||
        sensor.formula.format >= formats.size() || sensor.formula.linearisation >= linearisations.size()) {
        sensor.reading.state = state_t::unsupported;
        return sensor;
    }
    take_unit(sensor, record);
    take_limits(sensor, record);
    return sensor;
}

reading_t decode_sensor_reading(const ipmi_sensor_t& sensor, std::uint8_t completion_code,
                                std::span<const std::uint8_t> data)
{
    reading_t reading = sensor.reading;
    reading.state = state_t::unavailable;
    if (completion_code == not_present || completion_code == cannot_be_provided)
        return reading;

    const auto fail = [&](const std::string& error) {
        reading.state = state_t::failed;
        reading.error = error;
        return reading;
    };
    if (completion_code != 0)
        return fail("Error getting sensor reading. Response code: " + std::to_string(completion_code));
    if (data.size() <= reading_status)
        return fail("Incomplete sensor reading received from BMC");
    if ((data[reading_status] & reading_unavailable) != 0 || (data[reading_status] & scanning_enabled) == 0)
        return reading;

    if (data.size() > reading_comparison)
        reading.compared = get_compared(sensor, data[reading_comparison]);
    const auto value = convert(sensor.formula, data[reading_raw]);
    if (!value)
        return fail("The sensor's formula has no number for its raw reading " + std::to_string(data[reading_raw]));
    reading.state = state_t::ok;
    reading.value = value;
    return reading;
}

} // namespace ivra::bsp::telemetry
