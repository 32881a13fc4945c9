#include "telemetry/ipmi_sensor.h"

#include "support/outcome.h"
#include "support/sensor_reply.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

using board::quantity_t;
using tests::bytes_t;
using tests::said_by;
using tests::sensor_reply_t;

/// A sensor with limits as the standard's: unsigned, linear, volts, M 1.
sensor_reply_t threshold_sensor()
{
    return sensor_reply_t{}.name("12V").set(13, 1).set(21, 4);
}

ipmi_sensor_t decode(const sensor_reply_t& reply)
{
    return decode_full_sensor_record(reply.record());
}

/// What is read of a sensor that answers with these bytes.
reading_t read(const sensor_reply_t& reply, const bytes_t& answer, std::uint8_t code = 0)
{
    return decode_sensor_reading(decode(reply), code, answer);
}

/// Of one that works and has reached no limit.
reading_t read(const sensor_reply_t& reply, std::uint8_t raw)
{
    return read(reply, {raw, 0xC0, 0xC0});
}

using findings_t = std::vector<std::string>;

TEST(ipmi_sensor, has_name_record_number_and_value)
{
    const auto reply = threshold_sensor().set(0, 0x34).set(1, 0x12).set(7, 9).scale(63, 0, -3, 0);
    EXPECT_EQ(decode(reply).number, 9);
    const reading_t reading = read(reply, 191);
    EXPECT_EQ(reading.name, "12V");
    EXPECT_EQ(reading.record, 0x1234);
    EXPECT_EQ(reading.quantity, quantity_t::voltage);
    EXPECT_EQ(reading.unit, "");
    EXPECT_EQ(reading.state, state_t::ok);
    EXPECT_EQ(reading.value, 12.033) << "the double that is nearest to it";
    EXPECT_EQ(reading.peak, std::nullopt);
    EXPECT_EQ(reading.error, "");
    EXPECT_EQ(reading.limits.values, limits_t{}.values);
    EXPECT_EQ(reading.limits.authority, authority_t::bmc);
    EXPECT_EQ(reading.compared, std::nullopt);
    EXPECT_EQ(reading.findings, findings_t{});
}

TEST(ipmi_sensor, has_raw_readings_in_three_formats)
{
    struct row_t
    {
        unsigned format;
        std::uint8_t raw;
        double value;
    };
    constexpr row_t rows[] = {
        {0, 0x00, 0}, {0, 0x7F, 127}, {0, 0x80, 128},  {0, 0xFE, 254}, {0, 0xFF, 255},
        {1, 0x00, 0}, {1, 0x7F, 127}, {1, 0x80, -127}, {1, 0xFE, -1},  {1, 0xFF, 0},
        {2, 0x00, 0}, {2, 0x7F, 127}, {2, 0x80, -128}, {2, 0xFE, -2},  {2, 0xFF, -1},
    };
    for (const row_t& row : rows) {
        const reading_t reading = read(threshold_sensor().set(20, row.format << 6), row.raw);
        EXPECT_EQ(reading.value, row.value) << row.format << ' ' << unsigned{row.raw};
        EXPECT_FALSE(std::signbit(*reading.value) && *reading.value == 0) << row.format << ' ' << unsigned{row.raw};
    }
}

TEST(ipmi_sensor, has_a_negative_zero_shown_as_zero)
{
    const reading_t reading = read(threshold_sensor().scale(-1, 0, 0, 0), 0);
    EXPECT_EQ(reading.value, 0);
    EXPECT_FALSE(std::signbit(*reading.value));
}

TEST(ipmi_sensor, scales_with_signed_factors_and_exponents)
{
    struct row_t
    {
        int m, b, r_exponent, b_exponent;
        std::uint8_t raw;
        double value;
    };
    constexpr row_t rows[] = {
        {64, 0, -3, 0, 0x33, 3.264}, {5, -5, -1, 1, 183, 86.5},    {44, 125, -4, 1, 165, 0.851},
        {511, 0, 0, 0, 2, 1022},     {-512, 0, 0, 0, 2, -1024},    {0, 511, 0, 0, 9, 511},
        {0, -512, 0, 0, 9, -512},    {1, 0, 7, 0, 3, 30'000'000},  {1, 0, -8, 0, 3, 0.00000003},
        {0, 3, 0, 7, 9, 30'000'000}, {0, 3, 0, -8, 9, 0.00000003}, {1, 1, -8, -8, 1, 0.0000000100000001},
    };
    for (const row_t& row : rows)
        EXPECT_EQ(read(threshold_sensor().scale(row.m, row.b, row.r_exponent, row.b_exponent), row.raw).value,
                  row.value);
}

TEST(ipmi_sensor, has_twelve_linearisations)
{
    struct row_t
    {
        unsigned code;
        double value; // of 8
    };
    constexpr row_t rows[] = {
        {0, 8},
        {1, 2.0794415416798357},
        {2, 0.9030899869919435},
        {3, 3},
        {4, 2980.9579870417283},
        {5, 1e8},
        {6, 256},
        {7, 0.125},
        {8, 64},
        {9, 512},
        {10, 2.8284271247461903},
        {11, 2},
    };
    for (const row_t& row : rows) {
        EXPECT_DOUBLE_EQ(read(threshold_sensor().set(23, row.code), 8).value.value(), row.value) << row.code;
        EXPECT_DOUBLE_EQ(read(threshold_sensor().set(23, 0x80 | row.code), 8).value.value(), row.value)
            << "bit 7 is reserved";
    }
    EXPECT_DOUBLE_EQ(read(threshold_sensor().set(23, 11).scale(-1, 0, 0, 0), 27).value.value(), -3)
        << "a negative number has a cube root";
}

TEST(ipmi_sensor, that_has_no_number_for_a_raw_reading_failed)
{
    struct row_t
    {
        unsigned linearisation;
        int m;
        std::uint8_t raw;
    };
    constexpr row_t rows[] = {{1, 1, 0}, {2, 1, 0}, {3, 1, 0}, {7, 1, 0}, {1, -1, 1}, {10, -1, 1}};
    for (const row_t& row : rows) {
        const reading_t reading = read(threshold_sensor().set(23, row.linearisation).scale(row.m, 0, 0, 0), row.raw);
        EXPECT_EQ(reading.state, state_t::failed) << row.linearisation;
        EXPECT_EQ(reading.error, "The sensor's formula has no number for its raw reading " + std::to_string(row.raw));
        EXPECT_EQ(reading.value, std::nullopt);
    }
    EXPECT_EQ(read(threshold_sensor().set(23, 5).scale(2, 0, 0, 0), 200).state, state_t::failed)
        << "10 to the power of 400 is larger than any double";
}

TEST(ipmi_sensor, that_gives_no_number_by_the_standard_is_unsupported)
{
    const auto state = [](const sensor_reply_t& reply) { return decode(reply).reading.state; };
    EXPECT_EQ(state(threshold_sensor()), state_t::unavailable) << "until it is read";
    for (const unsigned reading_type : {0x00U, 0x02U, 0x03U, 0x6FU, 0xFFU})
        EXPECT_EQ(state(threshold_sensor().set(13, reading_type)), state_t::unsupported) << reading_type;
    EXPECT_EQ(state(threshold_sensor().set(20, 0xC0)), state_t::unsupported) << "format 3";
    for (const unsigned linearisation : {12U, 0x6FU, 0x70U, 0x71U, 0x7FU, 0xF0U})
        EXPECT_EQ(state(threshold_sensor().set(23, linearisation)), state_t::unsupported) << linearisation;
    EXPECT_EQ(state(threshold_sensor().set(6, 0x01)), state_t::unsupported) << "it is at another LUN";
    EXPECT_EQ(state(threshold_sensor().set(6, 0xF0)), state_t::unavailable) << "a channel, and LUN 0";
}

struct unit_row_t
{
    unsigned use, base, modifier;
    quantity_t quantity;
    const char* unit;
    double value; // of 50
};

TEST(ipmi_sensor, has_a_quantity_or_the_unit_as_the_standard_calls_it)
{
    constexpr unsigned percent = 1, per = 1 << 1, times = 2 << 1, rate = 1 << 3;
    constexpr unit_row_t rows[] = {
        {0, 0, 0, quantity_t::other, "", 50},
        {0, 1, 0, quantity_t::temperature, "", 50},
        {0, 2, 0, quantity_t::temperature, "", 10},
        {0, 3, 0, quantity_t::temperature, "", -223.15},
        {0, 4, 0, quantity_t::voltage, "", 50},
        {0, 5, 0, quantity_t::current, "", 50},
        {0, 6, 0, quantity_t::power, "", 50},
        {0, 7, 0, quantity_t::other, "Joules", 50},
        {0, 18, 0, quantity_t::fan_speed, "", 50},
        {0, 19, 0, quantity_t::other, "Hz", 50},
        {0, 37, 0, quantity_t::other, "liters", 50},
        {0, 65, 0, quantity_t::other, "color temp deg K", 50},
        {0, 92, 0, quantity_t::other, "grams", 50},
        {percent, 0, 0, quantity_t::other, "percent", 50},
        {percent, 4, 0, quantity_t::other, "% Volts", 50},
        {percent, 3, 0, quantity_t::other, "% degrees K", 50},
        {per, 4, 5, quantity_t::other, "Volts/Amps", 50},
        {times, 6, 24, quantity_t::other, "Watts*hour", 50},
        {per, 0, 22, quantity_t::other, "unspecified/second", 50},
        {0, 4, 5, quantity_t::voltage, "", 50}, // a modifier unit that is not used
        {1 * rate, 70, 0, quantity_t::other, "byte per microsecond", 50},
        {2 * rate, 70, 0, quantity_t::other, "byte per millisecond", 50},
        {3 * rate, 70, 0, quantity_t::other, "byte per second", 50},
        {4 * rate, 0, 0, quantity_t::other, "per minute", 50},
        {5 * rate, 4, 0, quantity_t::other, "Volts per hour", 50},
        {6 * rate | per | percent, 4, 5, quantity_t::other, "% Volts/Amps per day", 50},
    };
    for (const unit_row_t& row : rows) {
        const auto reply = threshold_sensor().set(20, row.use).set(21, row.base).set(22, row.modifier);
        const reading_t reading = read(reply, 50);
        EXPECT_EQ(reading.quantity, row.quantity) << row.base << ' ' << row.unit;
        EXPECT_EQ(reading.unit, row.unit) << row.base;
        EXPECT_EQ(reading.value, row.value) << row.base << ' ' << row.unit;
        EXPECT_EQ(reading.findings, findings_t{}) << row.base << ' ' << row.unit;
    }
}

TEST(ipmi_sensor, has_a_number_without_a_unit_where_the_standard_knows_none)
{
    constexpr std::pair<unsigned, unsigned> rows[] = {{0, 59}, {0, 93}, {0, 255}, {7 << 3, 4}, {3 << 1, 4}};
    for (const auto& [use, base] : rows) {
        const reading_t reading = read(threshold_sensor().set(20, use).set(21, base), 50);
        EXPECT_EQ(reading.quantity, quantity_t::other) << base;
        EXPECT_EQ(reading.unit, "") << base;
        EXPECT_EQ(reading.value, 50) << base;
        EXPECT_EQ(reading.findings, findings_t{"Its record gives a unit that the standard does not know"}) << base;
    }
    EXPECT_EQ(read(threshold_sensor().set(20, 2).set(22, 93), 50).findings.size(), 1U) << "a modifier unit";
}

TEST(ipmi_sensor, has_a_name_of_one_of_four_types)
{
    struct row_t
    {
        unsigned type_length;
        bytes_t bytes;
        std::string name;
        const char* why;
    };
    const std::vector<row_t> rows{
        {0xC3, {'1', '2', 'V'}, "12V", "8 bits"},
        {0xC0, {'1'}, "", "none"},
        {0xC4, {'1', 0xB0, 0, 'x'}, std::string{"1\xB0\0x", 4}, "any bytes"},
        {0xC5, {'1', ' ', 0, ' ', 0}, "1", "filled up"},
        {0xC2, {0, 0}, "", "filled up from the start"},
        {0xE2, {'a', 'b', 'c'}, "ab", "bit 5 is no part of the length"},
        {0x04,
         {0x31, 0, 0x32, 0x33},
         std::string{"1\0"
                     "23",
                     4},
         "unicode, as bytes"},
        {0x4C, {0x01, 0x23, 0x45, 0x67, 0x89, 0xBC}, "0123456789-.", "BCD plus, two characters a byte"},
        {0x44, {0xA1, 0xDE}, " 1:,", "BCD plus"},
        {0x43, {0xF1, 0x2F}, "_12", "BCD plus, half a byte over"},
        {0x84, {0x29, 0xDC, 0xA6}, "IPMI", "the standard's example of 6-bit ASCII"},
        {0x81, {0x29}, "I", "one character of it"},
        {0x83, {0x29, 0xDC, 0x06}, "IPM", "the third one ends in the third byte"},
        {0x88, {0x29, 0xDC, 0xA6, 0xFF, 0x0F, 0x00}, "IPMI__", "followed by two spaces"},
    };
    for (const row_t& row : rows) {
        auto reply = threshold_sensor().set(47, row.type_length);
        for (std::size_t i = 0; i < row.bytes.size(); ++i)
            reply.set(48 + i, row.bytes[i]);
        const reading_t reading = decode(reply).reading;
        EXPECT_EQ(reading.name, row.name) << row.why;
        EXPECT_EQ(reading.findings, findings_t{}) << row.why;
    }
}

TEST(ipmi_sensor, whose_record_ends_within_the_name_has_what_is_there_of_it)
{
    const findings_t cut{"Its record ends within its name"};
    const auto decode_first = [](unsigned type_length, const bytes_t& name) {
        bytes_t record = threshold_sensor().set(47, type_length).record();
        record.resize(48);
        record.insert(record.end(), name.begin(), name.end());
        return decode_full_sensor_record(record).reading;
    };
    EXPECT_EQ(decode_first(0xC4, {'a', 'b'}).name, "ab");
    EXPECT_EQ(decode_first(0xC4, {'a', 'b'}).findings, cut);
    EXPECT_EQ(decode_first(0xDF, {}).name, "");
    EXPECT_EQ(decode_first(0xDF, {}).findings, cut);
    EXPECT_EQ(decode_first(0x45, {0x12, 0x34}).name, "1234");
    EXPECT_EQ(decode_first(0x45, {0x12, 0x34}).findings, cut);
    EXPECT_EQ(decode_first(0x84, {0x29, 0xDC}).name, "IP") << "the third character has two bits in a third byte";
    EXPECT_EQ(decode_first(0x84, {0x29, 0xDC}).findings, cut);
    EXPECT_EQ(decode_first(0xC0, {}).findings, findings_t{});
}

TEST(ipmi_sensor, takes_a_full_record_of_48_bytes)
{
    const bytes_t record = threshold_sensor().record();
    for (std::size_t size = 4; size < 48; ++size)
        EXPECT_EQ(said_by([&] { decode_full_sensor_record(std::span{record}.first(size)); }),
                  "Sensor record of " + std::to_string(size) + " bytes, which takes 48");
    EXPECT_EQ(said_by([&] { decode_full_sensor_record(std::span{record}.first(48)); }), "no failure");
    EXPECT_FALSE(is_full_sensor_record(std::span{record}.first(3)));
    for (unsigned type = 0; type <= 0xFF; ++type) {
        const bytes_t other = threshold_sensor().set(3, type).record();
        EXPECT_EQ(is_full_sensor_record(other), type == 1) << type;
        EXPECT_EQ(said_by([&] { decode_full_sensor_record(other); }),
                  type == 1 ? "no failure" : "Not a full sensor record");
    }
}

// Limits.

/// Raw limits of a record, in its order: from upper non-recoverable to lower non-critical.
sensor_reply_t with_limits(const bytes_t& raw, unsigned readable = 0x3F)
{
    auto reply = threshold_sensor().set(11, 1 << 2).set(18, readable);
    for (std::size_t i = 0; i < raw.size(); ++i)
        reply.set(36 + i, raw[i]);
    return reply;
}

const bytes_t usual_limits{230, 220, 210, 70, 80, 90};

/// From the lowest to the highest; -1 stands for none.
std::vector<double> limits(const sensor_reply_t& reply)
{
    std::vector<double> values;
    for (const std::optional<double>& value : decode(reply).reading.limits.values)
        values.push_back(value.value_or(-1));
    return values;
}

using values_t = std::vector<double>;
const values_t none(limit_count, -1);

TEST(ipmi_limits, stand_in_the_record_from_upper_non_recoverable_to_lower_non_critical)
{
    const reading_t reading = decode(with_limits(usual_limits)).reading;
    EXPECT_EQ(reading.limits[limit_t::lower_non_recoverable], 70);
    EXPECT_EQ(reading.limits[limit_t::lower_critical], 80);
    EXPECT_EQ(reading.limits[limit_t::lower_non_critical], 90);
    EXPECT_EQ(reading.limits[limit_t::upper_non_critical], 210);
    EXPECT_EQ(reading.limits[limit_t::upper_critical], 220);
    EXPECT_EQ(reading.limits[limit_t::upper_non_recoverable], 230);
    EXPECT_EQ(reading.findings, findings_t{});
    EXPECT_EQ(read(with_limits(usual_limits), 150).limits.values, reading.limits.values);
}

TEST(ipmi_limits, are_there_where_their_bit_says_that_they_can_be_read)
{
    EXPECT_EQ(limits(with_limits(usual_limits, 1 << 0)), (values_t{-1, -1, 90, -1, -1, -1}));
    EXPECT_EQ(limits(with_limits(usual_limits, 1 << 1)), (values_t{-1, 80, -1, -1, -1, -1}));
    EXPECT_EQ(limits(with_limits(usual_limits, 1 << 2)), (values_t{70, -1, -1, -1, -1, -1}));
    EXPECT_EQ(limits(with_limits(usual_limits, 1 << 3)), (values_t{-1, -1, -1, 210, -1, -1}));
    EXPECT_EQ(limits(with_limits(usual_limits, 1 << 4)), (values_t{-1, -1, -1, -1, 220, -1}));
    EXPECT_EQ(limits(with_limits(usual_limits, 1 << 5)), (values_t{-1, -1, -1, -1, -1, 230}));
    EXPECT_EQ(limits(with_limits(usual_limits, 0xC0)), none);
}

TEST(ipmi_limits, are_there_where_access_to_them_is)
{
    const values_t all{70, 80, 90, 210, 220, 230};
    const values_t expected[] = {none, all, all, none};
    for (unsigned access = 0; access < 4; ++access)
        EXPECT_EQ(limits(with_limits(usual_limits).set(11, access << 2)), expected[access]) << access;
    EXPECT_EQ(limits(with_limits(usual_limits).set(11, 0xF3)), none) << "the bits around it";
    EXPECT_EQ(limits(with_limits(usual_limits).set(13, 0x6F)), none) << "no thresholds at all";
}

TEST(ipmi_limits, are_converted_as_readings_are)
{
    const bytes_t raw{0x03, 0x02, 0x01, 0xFD, 0xFE, 0xFF};
    EXPECT_EQ(decode(with_limits(raw).set(20, 0x80).scale(5, 0, -1, 0)).reading.limits.values,
              (std::array<std::optional<double>, 6>{-1.5, -1, -0.5, 0.5, 1, 1.5}))
        << "two's complement";
    EXPECT_EQ(decode(with_limits(raw).set(20, 0x40)).reading.limits.values,
              (std::array<std::optional<double>, 6>{-2, -1, 0, 1, 2, 3}))
        << "one's complement";
    EXPECT_EQ(limits(with_limits({212, 140, 122, 50, 68, 86}).set(21, 2)), (values_t{10, 20, 30, 50, 60, 100}))
        << "degrees Fahrenheit";
}

TEST(ipmi_limits, change_places_where_the_formula_falls)
{
    EXPECT_EQ(limits(with_limits(usual_limits).scale(-1, 256, 0, 0)), (values_t{26, 36, 46, 166, 176, 186}));
    EXPECT_EQ(limits(with_limits({0, 0, 250, 0, 0, 2}, 0x09).set(23, 7)), (values_t{-1, -1, 0.004, 0.5, -1, -1}))
        << "1/x";
    EXPECT_EQ(limits(with_limits({0, 0, 250, 0, 0, 2}, 0x08).set(23, 7).scale(-1, 0, 0, 0)),
              (values_t{-1, -1, -1, -0.004, -1, -1}))
        << "-1/x rises";
}

TEST(ipmi_limits, are_not_used_where_the_formula_both_rises_and_falls)
{
    const reading_t reading = decode(with_limits(usual_limits).set(20, 0x80).set(23, 8)).reading;
    EXPECT_EQ(reading.limits.values, limits_t{}.values);
    EXPECT_EQ(reading.findings, findings_t{"Limits in its record are not used: its formula both rises and falls"});
    EXPECT_EQ(decode(with_limits(usual_limits, 0).set(20, 0x80).set(23, 8)).reading.findings, findings_t{})
        << "it has none";
    EXPECT_EQ(decode(with_limits(usual_limits, 0xC0).set(20, 0x80).set(23, 8)).reading.findings, findings_t{})
        << "these bits are reserved";
}

TEST(ipmi_limits, without_a_number_are_dropped)
{
    const reading_t reading = decode(with_limits({230, 0, 210, 70, 80, 90}).set(23, 3)).reading;
    EXPECT_EQ(reading.limits[limit_t::upper_critical], std::nullopt);
    EXPECT_EQ(reading.limits[limit_t::upper_non_critical], std::log2(210));
    EXPECT_EQ(reading.findings, findings_t{"The upper critical limit in its record is not used: the formula has no "
                                           "number for 0"});
}

TEST(ipmi_limits, that_contradict_each_other_are_dropped)
{
    struct row_t
    {
        bytes_t raw;
        unsigned readable;
        values_t limits;
        const char* finding;
    };
    const std::vector<row_t> rows{
        {{0, 0, 0, 0, 0, 0},
         0x3F,
         none,
         "lower non-recoverable 0, lower critical 0, lower non-critical 0, upper non-critical 0, upper critical 0, "
         "upper non-recoverable 0"},
        {{255, 255, 255, 255, 255, 255}, 0x18, {-1, -1, -1, 255, 255, -1}, ""}, // equal ones on one side
        {{0, 100, 0, 0, 101, 0}, 0x12, none, "lower critical 101, upper critical 100"},
        {{0, 100, 0, 0, 100, 0}, 0x12, none, "lower critical 100, upper critical 100"},
        {{0, 100, 0, 0, 99, 0}, 0x12, {-1, 99, -1, -1, 100, -1}, ""},
        {{0, 220, 210, 70, 80, 90},
         0x3F,
         none, // whatever an upper limit of 0 contradicts
         "lower non-recoverable 70, lower critical 80, lower non-critical 90, upper non-critical 210, upper critical "
         "220, upper non-recoverable 0"},
        {{0, 90, 95, 0, 10, 20}, 0x1B, {-1, 10, 20, -1, -1, -1}, "upper non-critical 95, upper critical 90"},
        {{0, 0, 0, 30, 20, 40}, 0x07, {-1, -1, 40, -1, -1, -1}, "lower non-recoverable 30, lower critical 20"},
    };
    for (const row_t& row : rows) {
        const auto reply = with_limits(row.raw, row.readable);
        EXPECT_EQ(limits(reply), row.limits) << row.finding;
        findings_t expected;
        if (*row.finding != '\0')
            expected.push_back(std::string{"Limits in its record contradict each other and are not used: "} +
                               row.finding);
        EXPECT_EQ(decode(reply).reading.findings, expected);
    }
}

// The answer to Get Sensor Reading.

TEST(ipmi_reading, is_unavailable_when_the_bmc_says_so)
{
    const auto reply = with_limits(usual_limits).set(15, 0x70).set(17, 0x70);
    const std::vector<std::pair<std::uint8_t, bytes_t>> rows{
        {0, {150, 0xE0, 0xFF}},
        {0, {150, 0x60, 0xFF}},
        {0, {150, 0x80, 0xFF}},
        {0, {150, 0x00, 0xFF}},
        {0, {150, 0x20}},
        {0xCB, {}},
        {0xCE, {}},
    };
    for (const auto& [code, answer] : rows) {
        const reading_t reading = read(reply, answer, code);
        EXPECT_EQ(reading.state, state_t::unavailable) << unsigned{code};
        EXPECT_EQ(reading.value, std::nullopt);
        EXPECT_EQ(reading.compared, std::nullopt) << "not looked at";
        EXPECT_EQ(reading.limits[limit_t::upper_critical], 220) << "the limits stay";
    }
    EXPECT_EQ(read(reply, {150, 0x40, 0}).state, state_t::ok) << "scanning alone";
}

TEST(ipmi_reading, fails_with_what_the_bmc_says)
{
    const auto error = [](const bytes_t& answer, std::uint8_t code) {
        const reading_t reading = read(threshold_sensor(), answer, code);
        EXPECT_EQ(reading.state, state_t::failed);
        EXPECT_EQ(reading.value, std::nullopt);
        EXPECT_EQ(reading.name, "12V");
        return reading.error;
    };
    EXPECT_EQ(error({}, 0xC1), "Error getting sensor reading. Response code: 193");
    EXPECT_EQ(error({150, 0xC0, 0xC0}, 0xC0), "Error getting sensor reading. Response code: 192");
    EXPECT_EQ(error({}, 0), "Incomplete sensor reading received from BMC");
    EXPECT_EQ(error({150}, 0), "Incomplete sensor reading received from BMC");
}

TEST(ipmi_reading, may_have_2_to_4_bytes)
{
    EXPECT_EQ(read(threshold_sensor(), {150, 0xC0}).value, 150);
    EXPECT_EQ(read(threshold_sensor(), {150, 0xC0, 0xC0, 0x80}).value, 150);
    const auto compared = threshold_sensor().set(15, 0x70).set(17, 0x70);
    EXPECT_EQ(read(compared, {150, 0xC0}).compared, std::nullopt) << "there is no comparison";
}

TEST(ipmi_reading, is_compared_by_the_bmc_with_the_limits_that_its_record_names)
{
    struct row_t
    {
        unsigned lower, upper; // bits 15..8 of the event masks
        std::uint8_t comparison;
        std::optional<health_t> compared;
    };
    constexpr row_t rows[] = {
        {0x00, 0x00, 0x3F, std::nullopt},       {0x8F, 0x8F, 0x3F, std::nullopt},
        {0x70, 0x70, 0x00, health_t::ok},       {0x70, 0x70, 0xC0, health_t::ok},
        {0x70, 0x70, 0x01, health_t::warning},  {0x70, 0x70, 0x02, health_t::critical},
        {0x70, 0x70, 0x04, health_t::critical}, {0x70, 0x70, 0x08, health_t::warning},
        {0x70, 0x70, 0x10, health_t::critical}, {0x70, 0x70, 0x20, health_t::critical},
        {0x70, 0x70, 0x09, health_t::warning},  {0x70, 0x70, 0x0A, health_t::critical},
        {0x70, 0x70, 0x18, health_t::critical}, {0x10, 0x00, 0x01, health_t::warning},
        {0x10, 0x00, 0x3E, health_t::ok},       {0x20, 0x00, 0x02, health_t::critical},
        {0x20, 0x00, 0x3D, health_t::ok},       {0x40, 0x00, 0x04, health_t::critical},
        {0x40, 0x00, 0x3B, health_t::ok},       {0x00, 0x10, 0x08, health_t::warning},
        {0x00, 0x10, 0x37, health_t::ok},       {0x00, 0x20, 0x10, health_t::critical},
        {0x00, 0x20, 0x2F, health_t::ok},       {0x00, 0x40, 0x20, health_t::critical},
        {0x00, 0x40, 0x1F, health_t::ok},
    };
    for (const row_t& row : rows)
        EXPECT_EQ(read(threshold_sensor().set(15, row.lower).set(17, row.upper), {150, 0xC0, row.comparison}).compared,
                  row.compared)
            << row.lower << ' ' << row.upper << ' ' << unsigned{row.comparison};
}

TEST(ipmi_unit_names, are_those_of_93_codes)
{
    std::set<std::string> names;
    for (unsigned code = 0; code < 93; ++code)
        if (code != 59)
            names.insert(read(threshold_sensor().set(20, 1 << 1).set(21, code).set(22, 22), 1).unit);
    EXPECT_EQ(names.size(), 92U) << "no two are alike";
    EXPECT_FALSE(names.contains(""));
}

} // namespace
} // namespace ivra::bsp::telemetry
