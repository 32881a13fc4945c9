#include "bmc/bittware/sdr.h"

#include "text/text.h"
#include "text/text_stream.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <ios>
#include <stdexcept>

namespace ivra::bsp::bmc::bittware {

namespace {

namespace field = sensor_record_field;

// clang-format off
constexpr std::uint8_t record_size = 64; // bytes that are read of a record

// Offsets in the reply to Get Device SDR.
constexpr std::size_t  reply_next_id = 0; // record that follows, 2 bytes, least significant first
constexpr std::size_t  reply_record  = 2; // what was read of the record

// Reply to Get Sensor Reading.
constexpr std::size_t  reading_size        = 3; // raw reading, status, thresholds
constexpr std::size_t  reading_raw         = 0;
constexpr std::size_t  reading_status      = 1;
constexpr std::uint8_t reading_unavailable = 1U << 5;
// clang-format on

/// A number of `bits` bits as two's complement.
constexpr int to_signed(unsigned value, unsigned bits)
{
    const unsigned sign = 1U << (bits - 1);
    return static_cast<int>(value & (sign - 1)) - static_cast<int>(value & sign);
}

void check_completion_code(std::uint8_t code)
{
    if (code != 0)
        throw std::runtime_error{"IPMI transaction error. Response code: " + std::to_string(code)};
}

[[noreturn]] void throw_size_mismatch(std::size_t expected, std::size_t size)
{
    text_stream text;
    text << "Size mismatch in IPMI response: expected 0x" << std::hex << expected << ", got 0x" << size;
    throw std::runtime_error{text.str()};
}

get_sdr_request_t encode_get_sdr(std::uint16_t record_id, std::uint8_t offset, std::uint8_t count)
{
    const auto id_low = static_cast<std::uint8_t>(record_id & 0xFFU);
    const auto id_high = static_cast<std::uint8_t>(record_id >> 8);
    return {0, 0, id_low, id_high, offset, count}; // Deliberate: no reservation, 0, even for a part of a record
}

// Raw readings by analog data format. Deliberate: the formats 1 and 2, one's and two's complement, are each decoded
// with the other's rule.
// clang-format off
constexpr std::array formats{
    +[](std::uint8_t raw) -> int { return raw; },
    +[](std::uint8_t raw) -> int { return to_signed(raw, 8); },
    +[](std::uint8_t raw) -> int { return raw < 0x80 ? raw : raw - 255; },
};

// Linearisations by code. What is not a number in mathematics is what IEC 60559 makes of it: inf, -inf, nan.
constexpr std::array linearisations{
    +[](double y) { return y; },
    +[](double y) { return std::log(y); },
    +[](double y) { return std::log10(y); },
    +[](double y) { return std::log2(y); },
    +[](double y) { return std::log2(y); }, // Deliberate: not e to the power y
    +[](double y) { return std::pow(10.0, y); },
    +[](double y) { return std::pow(2.0, y); },
    +[](double y) { return 1.0 / y; },
    +[](double y) { return y * y; },
    +[](double y) { return std::pow(y, 3.0); },
    +[](double y) { return std::sqrt(y); },
    +[](double y) { return std::pow(y, 1.0 / 3.0); },
};
constexpr std::uint8_t oem_linearisation = 0x70;

// By code. Other units exist, but none that these boards use.
constexpr std::array unit_names{"", "°C", "°F", "K", "V", "A", "W"};
constexpr auto other_unit = "?";

// By code: what stands between base unit and modifier unit; without, there is no modifier unit.
constexpr std::array modifier_signs{"", "/", "*"};

// By code.
constexpr std::array rate_names{"", "/us", "/ms", "/s", "/min", "/h", "/day"};
// clang-format on

std::string unit_name(std::uint8_t code)
{
    return code < unit_names.size() ? unit_names[code] : other_unit;
}

/// Base and modifier unit, rate and percentage.
std::string units_text(const sensor_record_t& record)
{
    std::string text = unit_name(record.base_unit);
    const unsigned use = record.units >> 1 & 3U;
    if (use >= modifier_signs.size())
        throw std::runtime_error{"Invalid sensor unit format"};
    if (use != 0)
        text += modifier_signs[use] + unit_name(record.modifier_unit);
    const unsigned rate = record.units >> 3 & 7U;
    if (rate >= rate_names.size())
        throw std::runtime_error{"Invalid sensor rate unit"};
    text += rate_names[rate];
    if ((record.units & 1U) != 0)
        text += '%'; // Deliberate: after the units, not instead of them
    return text;
}

std::string value_text(const sensor_record_t& record, std::uint8_t raw)
{
    std::string text = fixed(convert_reading(record, raw), 2);
    // Deliberate: without a base unit there is no space, whatever else follows.
    if (!unit_name(record.base_unit).empty())
        text += ' ';
    return text + units_text(record);
}

} // namespace

get_sdr_request_t encode_get_sensor_record(std::uint16_t record_id)
{
    return encode_get_sdr(record_id, 0, record_size);
}

sensor_record_t decode_sensor_record(std::uint8_t completion_code, std::span<const std::uint8_t> data)
{
    check_completion_code(completion_code);
    if (data.size() != reply_record + record_size)
        throw_size_mismatch(reply_record + record_size, data.size());
    const auto bytes = data.subspan<reply_record, record_size>();
    if (bytes[field::type] != full_sensor_record)
        throw std::runtime_error{"Only full sensor records are supported"};
    // Deliberate: 6 bits of length, of which the standard uses 5.
    const std::uint8_t name_length = bytes[field::name_type_length] & 0x3FU;
    const auto name_bytes = bytes.subspan<field::name>();
    const auto name_size = std::min<std::size_t>(name_length, name_bytes.size());
    return {
        .next_record_id = static_cast<std::uint16_t>(data[reply_next_id] | data[reply_next_id + 1] << 8),
        .sensor_number = bytes[field::sensor_number],
        .units = bytes[field::units],
        .base_unit = bytes[field::base_unit],
        .modifier_unit = bytes[field::modifier_unit],
        .linearisation = static_cast<std::uint8_t>(bytes[field::linearisation] & 0x7FU),
        .m = to_signed(bytes[field::m_low] | (bytes[field::m_high] & 0xC0U) << 2, 10),
        .b = to_signed(bytes[field::b_low] | (bytes[field::b_high] & 0xC0U) << 2, 10),
        .r_exponent = to_signed(bytes[field::exponents] >> 4, 4),
        .b_exponent = to_signed(bytes[field::exponents] & 0xFU, 4),
        .name_length = name_length,
        .name = {name_bytes.begin(), name_bytes.begin() + static_cast<std::ptrdiff_t>(name_size)},
    };
}

get_sdr_request_t encode_get_sensor_name(std::uint16_t record_id, const sensor_record_t& record)
{
    return encode_get_sdr(record_id, field::name, record.name_length);
}

std::string decode_sensor_name(std::uint8_t completion_code, std::span<const std::uint8_t> data,
                               const sensor_record_t& record)
{
    check_completion_code(completion_code);
    if (data.size() < reply_record + record.name_length)
        throw_size_mismatch(reply_record + record.name_length, data.size());
    const auto bytes = data.subspan(reply_record, record.name_length);
    return {bytes.begin(), bytes.end()};
}

std::array<std::uint8_t, 1> encode_get_sensor_reading(const sensor_record_t& record)
{
    return {record.sensor_number};
}

std::optional<std::uint8_t> decode_sensor_reading(std::uint8_t completion_code, std::span<const std::uint8_t> data)
{
    check_completion_code(completion_code);
    // Deliberate: exactly 3; the standard leaves it to the BMC to send 2 to 4.
    if (data.size() != reading_size)
        throw_size_mismatch(reading_size, data.size());
    if ((data[reading_status] & reading_unavailable) != 0)
        return std::nullopt;
    return data[reading_raw];
}

double convert_reading(const sensor_record_t& record, std::uint8_t raw)
{
    const unsigned format = record.units >> 6;
    if (format >= formats.size())
        throw std::runtime_error{"Unsupported non-analog sensor"};
    const double x = formats[format](raw);
    const double y = (record.m * x + record.b * std::pow(10.0, record.b_exponent)) * std::pow(10.0, record.r_exponent);

    if (record.linearisation == oem_linearisation)
        throw std::runtime_error{"Unsupported OEM linearization function for sensor"};
    // Deliberate: every other code, the remaining OEM ones among them, leaves the value as it is.
    return record.linearisation < linearisations.size() ? linearisations[record.linearisation](y) : y;
}

board::sensor_t make_sensor(const sensor_record_t& record, std::optional<std::uint8_t> reading)
{
    return {.name = record.name, .values = {reading ? value_text(record, *reading) : "Unavailable"}};
}

} // namespace ivra::bsp::bmc::bittware
