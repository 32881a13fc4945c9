#include "devices/bmc/sensor.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

namespace ivra::virtual_platform {

namespace {

// Where things are in a record, IPMI 2.0 tables 43-1 (full), 43-2 (compact) and 43-3 (event-only).
constexpr std::size_t header_size = 5;
constexpr std::size_t version_at = 2;
constexpr std::size_t type_at = 3;
constexpr std::size_t length_at = 4; // of what follows it
constexpr std::size_t number_at = 7;
constexpr std::size_t capabilities_at = 11; // of a full record, as all from here on
constexpr std::size_t event_type_at = 13;
constexpr std::size_t lower_compared_at = 15; // non-critical, critical and non-recoverable in bits 4 to 6
constexpr std::size_t upper_compared_at = 17;
constexpr std::size_t readable_at = 18; // a bit for each threshold
constexpr std::size_t units_at = 20;
constexpr std::size_t m_at = 24;
constexpr std::size_t b_at = 26;
constexpr std::size_t exponents_at = 29;
constexpr std::size_t characteristics_at = 30;
constexpr std::size_t nominal_at = 31;
constexpr std::size_t largest_at = 34;
constexpr std::size_t hysteresis_at = 42; // positive, then negative
constexpr std::size_t full_name_at = 47;  // type and length; the name follows

constexpr std::uint8_t full_type = 0x01;
constexpr std::uint8_t threshold_event = 0x01;
constexpr unsigned thresholds_readable = 0x04; // of the capabilities, in two bits: 1 readable, 2 settable as well
constexpr unsigned hysteresis_readable = 0x10;

/// A threshold in the order of limit_members: its bit in masks, and its place in a record.
struct threshold_t
{
    unsigned bit;
    std::size_t at;
    bool is_lower;
};
constexpr std::array<threshold_t, limit_members.size()> thresholds{{
    {2, 39, true},
    {1, 40, true},
    {0, 41, true},
    {3, 38, false},
    {4, 37, false},
    {5, 36, false},
}};

/// A record that is of a sensor, and where the type/length byte of the sensor's name is in it.
struct sensor_type_t
{
    std::uint8_t type;
    std::size_t name_at;
};
constexpr sensor_type_t sensor_types[] = {{full_type, full_name_at}, {0x02, 31}, {0x03, 16}};

std::uint8_t at(std::string_view bytes, std::size_t place)
{
    return static_cast<std::uint8_t>(bytes.at(place));
}

/// A number of `bits` bits in two's complement.
int signed_bits(unsigned value, unsigned bits)
{
    const unsigned sign = 1U << (bits - 1);
    return static_cast<int>(value & (sign - 1)) - static_cast<int>(value & sign);
}

/// M or B: eight bits, and two more at the top of the next byte.
int factor_at(std::string_view record, std::size_t place)
{
    return signed_bits(at(record, place) | (at(record, place + 1) & 0xc0U) << 2U, 10);
}

/// IPMI 2.0 table 42-3.
std::uint8_t kind_of(std::uint8_t unit)
{
    switch (unit) {
    case 1:
    case 2:
    case 3:
        return 0x01; // temperature
    case 4:
        return 0x02; // voltage
    case 5:
        return 0x03; // current
    case 18:
        return 0x04; // fan
    default:
        return 0x0b; // units-based
    }
}

/// 10 to the power of -8 to 7, as std::pow has it.
double power_of_ten(int exponent)
{
    static constexpr double powers[] = {1e-8, 1e-7, 1e-6, 1e-5, 1e-4, 1e-3, 1e-2, 1e-1,
                                        1,    1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7};
    return powers[std::clamp(exponent + 8, 0, 15)];
}

/// A raw reading as a number.
double signed_raw(std::uint8_t format, std::uint8_t raw)
{
    if (format == 1 && raw >= 0x80)
        return raw - 255.0;
    if (format == 2 && raw >= 0x80)
        return raw - 256.0;
    return raw;
}

/// Whether each step of the raw reading is as large as any other.
bool is_linear(const bmc_sensor_t& sensor)
{
    constexpr unsigned last_function = 11;
    const unsigned function = sensor.linearisation & 0x7fU;
    return function == 0 || function > last_function;
}

/// The ID of its record, unless that follows from the others.
std::optional<std::uint16_t> own_id(const bmc_sensor_t& sensor)
{
    if (sensor.id || !sensor.record || sensor.record->size() < 2)
        return sensor.id;
    return static_cast<std::uint16_t>(at(*sensor.record, 0) | at(*sensor.record, 1) << 8U);
}

std::uint8_t type_of(std::string_view record)
{
    return record.size() > number_at ? at(record, type_at) : 0;
}

/// Whether two bits of the capabilities say that something can be read.
bool is_readable(std::string_view record, unsigned lower_bit)
{
    const unsigned said = at(record, capabilities_at) / lower_bit & 3U;
    return said == 1 || said == 2;
}

/// Puts the limits into a record. Where a value falls when the raw reading rises, its lower limits are the upper
/// thresholds: those are about raw readings.
void put_limits(const bmc_sensor_t& sensor, const bmc_limits_t& limits, const auto& put)
{
    const sensor_span_t span = sensor_span(sensor);
    const bool is_turned = span.falls && !span.rises;
    unsigned mask = 0;
    for (std::size_t limit = 0; limit < thresholds.size(); ++limit) {
        const threshold_t& threshold = thresholds.at(is_turned ? thresholds.size() - 1 - limit : limit);
        if (!limits.values.at(limit))
            continue;
        mask |= 1U << threshold.bit;
        put(threshold.at, nearest_raw(sensor, *limits.values.at(limit)));
    }
    const auto& first = is_turned ? limits.negative_hysteresis : limits.positive_hysteresis;
    const auto& second = is_turned ? limits.positive_hysteresis : limits.negative_hysteresis;
    const auto counts = [&](const std::optional<double>& hysteresis) {
        return static_cast<unsigned>(std::lround(hysteresis.value_or(0) / hysteresis_step(sensor).value_or(1)));
    };
    put(capabilities_at, 0x40U | (mask != 0 ? thresholds_readable : 0U) | (first || second ? hysteresis_readable : 0U));
    put(lower_compared_at, (mask & 7U) << 4U);
    put(upper_compared_at, mask >> 3U << 4U);
    put(readable_at, mask);
    put(hysteresis_at, counts(first));
    put(hysteresis_at + 1, counts(second));
}

/// The thresholds of a full record that can be read.
unsigned readable_thresholds(std::string_view record)
{
    const bool has_thresholds = at(record, event_type_at) == threshold_event;
    return has_thresholds && is_readable(record, thresholds_readable) ? at(record, readable_at) & 0x3fU : 0;
}

/// Bits of the thresholds that a raw reading has reached, of those that are compared.
unsigned comparison(const bmc_sensor_t& sensor, std::uint8_t raw)
{
    if (!is_full(sensor))
        return 0;
    const std::string record = sensor_record(sensor, 0);
    const unsigned compared =
        (at(record, lower_compared_at) >> 4U & 7U) | (at(record, upper_compared_at) >> 1U & 0x38U);
    const double reading = signed_raw(sensor.format, raw);
    unsigned reached = 0;
    for (const threshold_t& threshold : thresholds) {
        const double limit = signed_raw(sensor.format, at(record, threshold.at));
        if (threshold.is_lower ? reading <= limit : reading >= limit)
            reached |= 1U << threshold.bit;
    }
    return reached & compared & readable_thresholds(record);
}

} // namespace

bool is_full(const bmc_sensor_t& sensor)
{
    return !sensor.record || (type_of(*sensor.record) == full_type && sensor.record->size() > full_name_at);
}

bool is_sensor(const bmc_sensor_t& sensor)
{
    return !sensor.record || std::ranges::count(sensor_types, type_of(*sensor.record), &sensor_type_t::type) != 0;
}

bmc_sensor_t sensor_of(std::string bytes)
{
    bmc_sensor_t sensor;
    sensor.available = false;
    sensor.record = std::move(bytes);
    const std::string& record = *sensor.record;
    if (!is_sensor(sensor))
        return sensor;
    sensor.number = at(record, number_at);
    const std::size_t name_at = std::ranges::find(sensor_types, type_of(record), &sensor_type_t::type)->name_at;
    if (record.size() > name_at)
        sensor.name = record.substr(name_at + 1, at(record, name_at) & 0x3fU);
    sensor.name.resize(sensor.name.find_last_not_of(std::string_view{" \0", 2}) + 1); // what it was filled up with
    if (!is_full(sensor))
        return sensor;
    const unsigned units = at(record, units_at);
    sensor.format = static_cast<std::uint8_t>(units >> 6U);
    sensor.rate = static_cast<std::uint8_t>(units >> 3U & 7U);
    sensor.modifier = static_cast<std::uint8_t>(units >> 1U & 3U);
    sensor.percent = (units & 1U) != 0;
    sensor.unit = at(record, units_at + 1);
    sensor.modifier_unit = at(record, units_at + 2);
    sensor.linearisation = at(record, units_at + 3);
    sensor.m = factor_at(record, m_at);
    sensor.b = factor_at(record, b_at);
    sensor.r_exp = signed_bits(at(record, exponents_at) >> 4U, 4);
    sensor.b_exp = signed_bits(at(record, exponents_at) & 0xfU, 4);
    sensor.available = (at(record, characteristics_at) & 1U) != 0;
    if (sensor.available)
        sensor.raw = at(record, nominal_at);
    return sensor;
}

std::vector<std::uint16_t> record_ids(const std::vector<bmc_sensor_t>& sensors)
{
    std::bitset<last_record_id + std::size_t{1}> taken;
    taken.set(0).set(last_record_id);
    for (const bmc_sensor_t& sensor : sensors)
        if (const auto id = own_id(sensor))
            taken.set(*id);
    std::vector<std::uint16_t> ids;
    for (const bmc_sensor_t& sensor : sensors) {
        const std::size_t place = ids.size() + 1;
        auto id = static_cast<std::uint16_t>(ids.empty() ? place : std::max<std::size_t>(place, ids.back() + 1U));
        while (taken[id] && !taken.all())
            ++id;
        ids.push_back(own_id(sensor).value_or(id));
        taken.set(ids.back());
    }
    return ids;
}

std::string sensor_record(const bmc_sensor_t& sensor, std::uint16_t id)
{
    if (sensor.record)
        return *sensor.record;
    constexpr std::size_t smallest = 64; // with a name of up to 16 bytes: a host reads so much at once
    std::string record(std::max(smallest, full_name_at + 1 + sensor.name.size()), '\0');
    const auto put = [&](std::size_t place, unsigned value) { record.at(place) = static_cast<char>(value & 0xffU); };
    const auto m = static_cast<unsigned>(sensor.m);
    const auto b = static_cast<unsigned>(sensor.b);
    put(0, id);
    put(1, id >> 8U);
    put(version_at, 0x51);
    put(type_at, full_type);
    put(length_at, static_cast<unsigned>(record.size() - header_size));
    put(5, 0x20); // its owner is the BMC
    put(number_at, sensor.number);
    put(8, 0x07); // of the system board
    put(9, 0x01);
    put(10, 0x7f);              // it is ready when it is powered
    put(capabilities_at, 0x40); // scanned by itself, without thresholds
    put(12, kind_of(sensor.unit));
    put(event_type_at, threshold_event);
    put(units_at, unsigned{sensor.format} << 6U | unsigned{sensor.rate} << 3U | unsigned{sensor.modifier} << 1U |
                      (sensor.percent ? 1U : 0U));
    put(units_at + 1, sensor.unit);
    put(units_at + 2, sensor.modifier_unit);
    put(units_at + 3, sensor.linearisation);
    put(m_at, m);
    put(m_at + 1, m >> 2U & 0xc0U);
    put(b_at, b);
    put(b_at + 1, b >> 2U & 0xc0U);
    put(exponents_at, static_cast<unsigned>(sensor.r_exp) << 4U | (static_cast<unsigned>(sensor.b_exp) & 0xfU));
    put(largest_at, 0xff); // reading; the smallest is 0
    if (sensor.limits)
        put_limits(sensor, *sensor.limits, put);
    put(full_name_at, 0xc0U | static_cast<unsigned>(sensor.name.size()));
    std::ranges::copy(sensor.name, record.begin() + full_name_at + 1);
    return record;
}

std::string sensor_response(const bmc_sensor_t& sensor)
{
    if (sensor.response)
        return *sensor.response;
    constexpr char scanning = '\xc0';   // events and scanning are enabled
    constexpr char no_reading = '\xe0'; // nor is there one
    if (!sensor.available)
        return {'\0', no_reading, '\0'};
    const std::uint8_t raw = raw_reading(sensor);
    return {static_cast<char>(raw), scanning, static_cast<char>(0xc0U | comparison(sensor, raw))};
}

std::optional<std::string> sensor_thresholds(const bmc_sensor_t& sensor)
{
    if (!is_full(sensor))
        return std::nullopt;
    const std::string record = sensor_record(sensor, 0);
    const unsigned mask = readable_thresholds(record);
    if (mask == 0)
        return std::nullopt;
    std::string data(1 + thresholds.size(), static_cast<char>(mask));
    for (const threshold_t& threshold : thresholds)
        data.at(1 + threshold.bit) = record.at(threshold.at);
    return data;
}

std::optional<std::string> sensor_hysteresis(const bmc_sensor_t& sensor)
{
    if (!is_full(sensor))
        return std::nullopt;
    const std::string record = sensor_record(sensor, 0);
    if (at(record, event_type_at) != threshold_event || !is_readable(record, hysteresis_readable))
        return std::nullopt;
    return record.substr(hysteresis_at, 2);
}

double sensor_value(const bmc_sensor_t& sensor, std::uint8_t raw)
{
    const double y = (sensor.m * signed_raw(sensor.format, raw) + sensor.b * power_of_ten(sensor.b_exp)) *
                     power_of_ten(sensor.r_exp);
    switch (sensor.linearisation & 0x7fU) {
    case 1:
        return std::log(y);
    case 2:
        return std::log10(y);
    case 3:
        return std::log2(y);
    case 4:
        return std::exp(y);
    case 5:
        return std::pow(10.0, y);
    case 6:
        return std::exp2(y);
    case 7:
        return y == 0 ? std::numeric_limits<double>::infinity() : 1 / y;
    case 8:
        return y * y;
    case 9:
        return y * y * y;
    case 10:
        return std::sqrt(y);
    case 11:
        return std::cbrt(y);
    default:
        return y;
    }
}

std::uint8_t raw_reading(const bmc_sensor_t& sensor)
{
    return sensor.value ? nearest_raw(sensor, *sensor.value) : sensor.raw;
}

sensor_span_t sensor_span(const bmc_sensor_t& sensor)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    sensor_span_t span{infinity, -infinity, true, true};
    std::optional<double> before;
    // From the lowest raw reading as a number to the highest; on a line these two say all.
    const unsigned lowest = sensor.format == 1 || sensor.format == 2 ? 0x80 : 0;
    for (unsigned raw = 0; raw <= 0xff; raw += is_linear(sensor) ? 0xff : 1) {
        const double value = sensor_value(sensor, static_cast<std::uint8_t>(lowest + raw));
        if (!std::isfinite(value))
            continue;
        span.lowest = std::min(span.lowest, value);
        span.highest = std::max(span.highest, value);
        span.rises = span.rises && !(before && value < *before);
        span.falls = span.falls && !(before && value > *before);
        before = value;
    }
    return span;
}

std::optional<double> hysteresis_step(const bmc_sensor_t& sensor)
{
    if (!is_linear(sensor))
        return std::nullopt;
    return std::abs(sensor.m) * power_of_ten(sensor.r_exp);
}

std::uint8_t nearest_raw(const bmc_sensor_t& sensor, double value)
{
    std::uint8_t nearest = 0;
    double smallest = std::numeric_limits<double>::infinity();
    for (unsigned raw = 0; raw <= 0xff; ++raw) {
        const double distance = std::fabs(sensor_value(sensor, static_cast<std::uint8_t>(raw)) - value);
        if (distance < smallest) { // never for what is no number
            smallest = distance;
            nearest = static_cast<std::uint8_t>(raw);
        }
    }
    return nearest;
}

std::string two_decimals(double value)
{
    std::string text(400, '\0'); // the largest double has 309 digits before the point
    text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%.2f", value)));
    return text;
}

std::vector<std::string> split_records(std::string_view repository)
{
    constexpr std::array<std::uint8_t, 3> versions{0x51, 0x01, 0x02}; // of IPMI 1.5 and later, 1.0 and 2.0
    std::vector<std::string> records;
    for (std::size_t begin = 0; begin < repository.size();) {
        const std::string_view rest = repository.substr(begin);
        const auto fail = [&](const std::string& what) {
            throw std::runtime_error{"record " + std::to_string(records.size() + 1) + ", at byte " +
                                     std::to_string(begin) + ": " + what};
        };
        if (rest.size() > version_at && std::ranges::count(versions, at(rest, version_at)) == 0)
            fail("no sensor data record: its version is " + std::to_string(at(rest, version_at)) + ", not 81 (51h)");
        const std::size_t size = rest.size() < header_size ? header_size : header_size + at(rest, length_at);
        if (rest.size() < size)
            fail("the file ends within it");
        records.emplace_back(rest.substr(0, size));
        begin += size;
    }
    return records;
}

} // namespace ivra::virtual_platform
