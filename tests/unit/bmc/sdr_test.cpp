#include "bmc/bittware/sdr.h"

#include "support/outcome.h"
#include "support/sensor_reply.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ivra::bsp::bmc::bittware {
namespace {

using tests::bytes_t;
using tests::said_by;
using tests::sensor_reply_t;

/// What the report shows for a raw reading, or how it fails.
std::string value(const sensor_reply_t& reply, std::optional<std::uint8_t> reading)
{
    return said_by([&] {
        const board::sensor_t sensor = make_sensor(decode_sensor_record(0, reply.bytes()), reading);
        EXPECT_EQ(sensor.values.size(), 1U);
        return sensor.values.at(0);
    });
}

TEST(sdr_request, for_a_record_is_no_reservation_its_id_and_64_bytes_from_its_start)
{
    EXPECT_EQ(encode_get_sensor_record(first_record_id), (get_sdr_request_t{0, 0, 0, 0, 0, 64}));
    EXPECT_EQ(encode_get_sensor_record(0x1234), (get_sdr_request_t{0, 0, 0x34, 0x12, 0, 64}));
    EXPECT_EQ(encode_get_sensor_record(0xFFFE), (get_sdr_request_t{0, 0, 0xFE, 0xFF, 0, 64}));
    EXPECT_EQ(sensor_netfn, 0x04);
    EXPECT_EQ(get_sdr_command, 0x21);
}

TEST(sdr_request, for_a_name_is_as_many_bytes_as_it_has_from_offset_48_and_still_no_reservation)
{
    for (const std::uint8_t length : bytes_t{17, 63}) {
        const auto record = decode_sensor_record(0, sensor_reply_t{}.set(47, length).bytes());
        EXPECT_EQ(encode_get_sensor_name(0xABCD, record), (get_sdr_request_t{0, 0, 0xCD, 0xAB, 0x30, length}));
    }
}

TEST(sdr_request, for_a_reading_is_the_sensor_number)
{
    const auto record = decode_sensor_record(0, sensor_reply_t{}.set(7, 0xA5).bytes());
    EXPECT_EQ(encode_get_sensor_reading(record), (std::array<std::uint8_t, 1>{0xA5}));
    EXPECT_EQ(get_sensor_reading_command, 0x2D);
}

TEST(sdr, fields_are_at_their_offsets_and_no_other_byte_counts)
{
    for (const std::uint8_t other : bytes_t{0x00, 0xFF}) {
        bytes_t reply(66, other);
        const auto set = [&](std::size_t offset, std::uint8_t byte) { reply[2 + offset] = byte; };
        reply[0] = 0x34; // the next record
        reply[1] = 0x12;
        set(3, 0x01);
        set(7, 0x42);
        set(20, 0x9D);
        set(21, 4);
        set(22, 5);
        set(23, static_cast<std::uint8_t>((other & 0x80U) | 0x0BU));
        set(24, 0x9C);
        set(25, static_cast<std::uint8_t>(0x40U | (other & 0x3FU)));
        set(26, 0x38);
        set(27, static_cast<std::uint8_t>(0xC0U | (other & 0x3FU)));
        set(29, 0xD2);
        set(47, static_cast<std::uint8_t>((other & 0xC0U) | 3U));
        set(48, 'V');
        set(49, 'I');
        set(50, 'N');

        const sensor_record_t record = decode_sensor_record(0, reply);
        EXPECT_EQ(record.next_record_id, 0x1234);
        EXPECT_EQ(record.sensor_number, 0x42);
        EXPECT_EQ(record.units, 0x9D);
        EXPECT_EQ(record.base_unit, 4);
        EXPECT_EQ(record.modifier_unit, 5);
        EXPECT_EQ(record.linearisation, 11);
        EXPECT_EQ(record.m, 0x19C);
        EXPECT_EQ(record.b, -200);
        EXPECT_EQ(record.r_exponent, -3);
        EXPECT_EQ(record.b_exponent, 2);
        EXPECT_EQ(record.name_length, 3);
        EXPECT_EQ(record.name, "VIN");
    }
}

TEST(sdr, next_record_is_the_end_of_the_repository_when_it_is_FFFF)
{
    const auto next = [](std::uint8_t low, std::uint8_t high) {
        bytes_t reply = sensor_reply_t{}.bytes();
        reply[0] = low;
        reply[1] = high;
        return decode_sensor_record(0, reply).next_record_id;
    };
    EXPECT_EQ(next(0xFF, 0xFF), no_more_records);
    EXPECT_EQ(next(0xFE, 0xFF), 65534);
    EXPECT_EQ(next(0x01, 0x00), 1);
}

TEST(sdr, m_and_b_are_10_bit_and_exponents_4_bit_twos_complement)
{
    struct row_t
    {
        std::uint8_t low, high;
        int value;
    };
    const row_t rows[] = {
        {0x00, 0x00, 0},    {0x01, 0x00, 1},    {0xFF, 0x00, 255}, {0x00, 0x40, 256},  {0xFF, 0x40, 511},
        {0x00, 0x80, -512}, {0x01, 0x80, -511}, {0xFF, 0xC0, -1},  {0x00, 0xC0, -256}, {0x00, 0x3F, 0},
    };
    for (const row_t& row : rows) {
        const auto m = decode_sensor_record(0, sensor_reply_t{}.set(24, row.low).set(25, row.high).bytes());
        EXPECT_EQ(m.m, row.value);
        const auto b = decode_sensor_record(0, sensor_reply_t{}.set(26, row.low).set(27, row.high).bytes());
        EXPECT_EQ(b.b, row.value);
    }
    const int nibbles[] = {0, 1, 2, 3, 4, 5, 6, 7, -8, -7, -6, -5, -4, -3, -2, -1};
    for (unsigned r = 0; r < 16; ++r)
        for (unsigned b = 0; b < 16; ++b) {
            const auto record =
                decode_sensor_record(0, sensor_reply_t{}.set(29, static_cast<std::uint8_t>(r << 4 | b)).bytes());
            EXPECT_EQ(record.r_exponent, nibbles[r]);
            EXPECT_EQ(record.b_exponent, nibbles[b]);
        }
}

TEST(sdr, reply_that_does_not_hold_66_bytes_fails_with_both_sizes_in_hexadecimal)
{
    const auto of_size = [](std::size_t size) { return said_by([&] { decode_sensor_record(0, bytes_t(size, 1)); }); };
    EXPECT_EQ(of_size(66), "no failure");
    EXPECT_EQ(of_size(65), "Size mismatch in IPMI response: expected 0x42, got 0x41");
    EXPECT_EQ(of_size(67), "Size mismatch in IPMI response: expected 0x42, got 0x43");
    EXPECT_EQ(of_size(0), "Size mismatch in IPMI response: expected 0x42, got 0x0");
    EXPECT_EQ(of_size(2), "Size mismatch in IPMI response: expected 0x42, got 0x2");
    EXPECT_EQ(of_size(0x1AB), "Size mismatch in IPMI response: expected 0x42, got 0x1ab");
}

TEST(sdr, completion_code_fails_in_decimal_whatever_came_with_it)
{
    const std::string text = "IPMI transaction error. Response code: ";
    const bytes_t reply = sensor_reply_t{}.bytes();
    const auto record = decode_sensor_record(0, reply);
    EXPECT_EQ(said_by([&] { decode_sensor_record(0xCB, {}); }), text + "203");
    EXPECT_EQ(said_by([&] { decode_sensor_record(1, reply); }), text + "1");
    EXPECT_EQ(said_by([&] { decode_sensor_name(0xC5, {}, record); }), text + "197");
    EXPECT_EQ(said_by([&] { decode_sensor_reading(0xCE, {}); }), text + "206");
    EXPECT_EQ(said_by([&] { decode_sensor_reading(255, bytes_t{1, 0, 0}); }), text + "255");
}

TEST(sdr, only_full_sensor_records_are_supported)
{
    for (unsigned type = 0; type < 256; ++type) {
        const bytes_t reply = sensor_reply_t{}.set(3, static_cast<std::uint8_t>(type)).bytes();
        EXPECT_EQ(said_by([&] { decode_sensor_record(0, reply); }),
                  type == 1 ? "no failure" : "Only full sensor records are supported")
            << type;
    }
}

/// The name as far as the first reply has it, and how long it is.
std::pair<std::string, int> name(const sensor_reply_t& reply)
{
    const auto record = decode_sensor_record(0, reply.bytes());
    return {record.name, record.name_length};
}

TEST(sdr, name_of_up_to_16_bytes_is_in_the_record)
{
    const auto named = sensor_reply_t{}.name("0123456789ABCDEF");
    EXPECT_EQ(name(sensor_reply_t{named}.set(47, 16)), (std::pair<std::string, int>{"0123456789ABCDEF", 16}));
    EXPECT_EQ(name(sensor_reply_t{named}.set(47, 15)), (std::pair<std::string, int>{"0123456789ABCDE", 15}));
    EXPECT_EQ(name(sensor_reply_t{named}.set(47, 1)), (std::pair<std::string, int>{"0", 1}));
    EXPECT_EQ(name(sensor_reply_t{named}.set(47, 0)), (std::pair<std::string, int>{"", 0}));
    const std::string bytes{"A\0\xFF", 3};
    EXPECT_EQ(name(sensor_reply_t{}.name(bytes)), (std::pair<std::string, int>{bytes, 3})) << "every byte of it";
}

TEST(sdr, name_has_6_bits_of_length)
{
    const auto named = sensor_reply_t{}.name("0123456789ABCDEF");
    for (unsigned code = 0; code < 256; ++code) {
        const auto [text, length] = name(sensor_reply_t{named}.set(47, static_cast<std::uint8_t>(code)));
        EXPECT_EQ(length, static_cast<int>(code & 0x3FU));
        EXPECT_EQ(text, std::string{"0123456789ABCDEF"}.substr(0, code & 0x3FU));
    }
}

TEST(sdr, name_of_more_than_16_bytes_is_what_follows_the_next_record_id_in_the_second_reply)
{
    const auto record = decode_sensor_record(0, sensor_reply_t{}.set(47, 0xC0 | 20).bytes());
    const std::string whole = "ABCDEFGHIJKLMNOPQRST";
    const auto reply = [&](const std::string& text) {
        bytes_t bytes{0x77, 0x66}; // the next record
        bytes.insert(bytes.end(), text.begin(), text.end());
        return bytes;
    };
    EXPECT_EQ(decode_sensor_name(0, reply(whole), record), whole);
    EXPECT_EQ(decode_sensor_name(0, reply(whole + "more"), record), whole) << "at most its length";
    EXPECT_EQ(said_by([&] { decode_sensor_name(0, reply(whole.substr(1)), record); }),
              "Size mismatch in IPMI response: expected 0x16, got 0x15");
    EXPECT_EQ(said_by([&] { decode_sensor_name(0, {}, record); }),
              "Size mismatch in IPMI response: expected 0x16, got 0x0");
    EXPECT_EQ(said_by([&] { decode_sensor_name(0, bytes_t{1}, record); }),
              "Size mismatch in IPMI response: expected 0x16, got 0x1");

    const auto longest = decode_sensor_record(0, sensor_reply_t{}.set(47, 63).bytes());
    EXPECT_EQ(decode_sensor_name(0, reply(std::string(63, 'X')), longest), std::string(63, 'X'));
    EXPECT_EQ(said_by([&] { decode_sensor_name(0, reply(std::string(62, 'X')), longest); }),
              "Size mismatch in IPMI response: expected 0x41, got 0x40");
}

TEST(sdr_reading, is_the_first_byte_unless_status_bit_5_is_set)
{
    for (unsigned status = 0; status < 256; ++status) {
        const auto reading = decode_sensor_reading(0, bytes_t{0x9A, static_cast<std::uint8_t>(status), 0xFF});
        const bool unavailable = status / 32 % 2 == 1;
        EXPECT_EQ(reading, unavailable ? std::nullopt : std::optional<std::uint8_t>{0x9A}) << status;
    }
    EXPECT_EQ(decode_sensor_reading(0, bytes_t{0, 0, 0xE0}), std::optional<std::uint8_t>{0})
        << "the third byte does not count";
}

TEST(sdr_reading, is_exactly_3_bytes)
{
    EXPECT_EQ(said_by([] { decode_sensor_reading(0, {}); }), "Size mismatch in IPMI response: expected 0x3, got 0x0");
    EXPECT_EQ(said_by([] {
                  decode_sensor_reading(0, bytes_t{1, 0});
              }),
              "Size mismatch in IPMI response: expected 0x3, got 0x2");
    EXPECT_EQ(said_by([] {
                  decode_sensor_reading(0, bytes_t{1, 0x20, 0, 0});
              }),
              "Size mismatch in IPMI response: expected 0x3, got 0x4");
}

TEST(sensor, is_the_records_name_and_one_value)
{
    const auto reply = sensor_reply_t{}.name("12V").set(21, 4);
    const board::sensor_t sensor = make_sensor(decode_sensor_record(0, reply.bytes()), 12);
    EXPECT_EQ(sensor.name, "12V");
    EXPECT_EQ(sensor.values, std::vector<std::string>{"12.00 V"});
}

TEST(sensor, without_a_reading_is_unavailable_regardless_of_units)
{
    EXPECT_EQ(value(sensor_reply_t{}.set(21, 4), std::nullopt), "Unavailable");
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0xFF), std::nullopt), "Unavailable") << "units that make no sense";
    EXPECT_EQ(value(sensor_reply_t{}.set(23, 0x70), std::nullopt), "Unavailable");
}

TEST(sensor, value_is_m_times_reading_plus_b_scaled_both_scaled_together)
{
    struct row_t
    {
        int m, b, r_exponent, b_exponent;
        std::uint8_t raw;
        std::string text, why;
    };
    const row_t rows[] = {
        {1, 0, 0, 0, 12, "12.00", "as it is"},
        {63, 0, -3, 0, 193, "12.16", "12 V of 63 mV a step: 12.159"},
        {2, 3, -1, 2, 10, "32.00", "R scales B too: (20 + 300) / 10"},
        {2, 3, 1, -1, 10, "203.00", "(20 + 0.3) * 10"},
        {1, -50, 0, 0, 75, "25.00", "a temperature with an offset"},
        {-1, 100, 0, 0, 255, "-155.00", "falling"},
        {-512, 0, 0, 0, 255, "-130560.00", "the least M"},
        {511, 511, 7, 7, 255, "51101303050000000.00", "the highest: (130305 + 5110000000) * 10^7"},
        {0, -512, -8, -8, 255, "-0.00", "the smallest of all"},
        {0, 0, 0, 0, 255, "0.00", "M and B of 0"},
        {-1, 0, -3, 0, 1, "-0.00", "a thousandth below 0"},
        {1, 0, -3, 0, 255, "0.26", "0.255 in binary is a little above"},
    };
    for (const row_t& row : rows)
        EXPECT_EQ(value(sensor_reply_t{}.scale(row.m, row.b, row.r_exponent, row.b_exponent), row.raw), row.text)
            << row.why;
}

TEST(sensor, analog_formats_1_and_2_are_decoded_each_with_the_others_rule)
{
    struct row_t
    {
        std::uint8_t raw;
        std::string format_0, format_1, format_2;
    };
    const row_t rows[] = {
        {0x00, "0.00", "0.00", "0.00"},         {0x01, "1.00", "1.00", "1.00"},
        {0x40, "64.00", "64.00", "64.00"},      {0x7E, "126.00", "126.00", "126.00"},
        {0x7F, "127.00", "127.00", "127.00"},   {0x80, "128.00", "-128.00", "-127.00"},
        {0x81, "129.00", "-127.00", "-126.00"}, {0xC0, "192.00", "-64.00", "-63.00"},
        {0xFE, "254.00", "-2.00", "-1.00"},     {0xFF, "255.00", "-1.00", "0.00"},
    };
    for (const row_t& row : rows) {
        EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x00), row.raw), row.format_0);
        EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x40), row.raw), row.format_1);
        EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x80), row.raw), row.format_2);
    }
}

TEST(sensor, analog_format_3_is_not_supported)
{
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0xC0), 1), "Unsupported non-analog sensor");
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0xFF).set(23, 0x70), 1), "Unsupported non-analog sensor")
        << "whatever else is wrong";
}

TEST(sensor, linearisations_by_code)
{
    struct row_t
    {
        std::uint8_t code, raw;
        std::string text;
    };
    const row_t rows[] = {
        {0, 100, "100.00"}, {0, 0, "0.00"},       {1, 100, "4.61"}, {1, 1, "0.00"},          {1, 255, "5.54"},
        {2, 100, "2.00"},   {2, 50, "1.70"},      {2, 1, "0.00"},   {3, 100, "6.64"},        {3, 128, "7.00"},
        {3, 1, "0.00"},     {5, 3, "1000.00"},    {5, 0, "1.00"},   {5, 1, "10.00"},         {6, 10, "1024.00"},
        {6, 0, "1.00"},     {6, 1, "2.00"},       {7, 4, "0.25"},   {7, 3, "0.33"},          {7, 1, "1.00"},
        {8, 12, "144.00"},  {8, 255, "65025.00"}, {9, 5, "125.00"}, {9, 255, "16581375.00"}, {10, 144, "12.00"},
        {10, 2, "1.41"},    {10, 0, "0.00"},      {11, 27, "3.00"}, {11, 100, "4.64"},       {11, 0, "0.00"},
    };
    for (const row_t& row : rows)
        EXPECT_EQ(value(sensor_reply_t{}.set(23, row.code), row.raw), row.text) << unsigned{row.code};
}

TEST(sensor, linearisation_4_is_the_base_2_logarithm_as_3_is)
{
    struct row_t
    {
        std::uint8_t raw;
        std::string text;
    };
    const row_t rows[] = {
        {0, "-inf"}, {1, "0.00"},  {2, "1.00"},  {3, "1.58"},   {4, "2.00"},   {5, "2.32"},
        {7, "2.81"}, {10, "3.32"}, {64, "6.00"}, {100, "6.64"}, {128, "7.00"}, {255, "7.99"},
    };
    for (const row_t& row : rows)
        EXPECT_EQ(value(sensor_reply_t{}.set(23, 4), row.raw), row.text);
    for (unsigned raw = 0; raw < 256; ++raw)
        EXPECT_EQ(value(sensor_reply_t{}.set(23, 4), static_cast<std::uint8_t>(raw)),
                  value(sensor_reply_t{}.set(23, 3), static_cast<std::uint8_t>(raw)));
}

TEST(sensor, linearisation_comes_after_scaling)
{
    EXPECT_EQ(value(sensor_reply_t{}.scale(2, 5, 1, 0).set(23, 8), 3), "12100.00") << "((2 * 3 + 5) * 10) squared";
    EXPECT_EQ(value(sensor_reply_t{}.scale(1, 0, -1, 0).set(23, 7), 5), "2.00") << "1 / 0.5";
}

TEST(sensor, value_that_is_no_number_is_nan_without_a_sign_whoever_calculates_it)
{
    for (const std::uint8_t logarithm : bytes_t{1, 2, 3, 4})
        EXPECT_EQ(value(sensor_reply_t{}.set(23, logarithm), 0), "-inf") << unsigned{logarithm};
    const auto minus = sensor_reply_t{}.scale(-1, 0, 0, 0);
    for (const std::uint8_t function : bytes_t{1, 2, 3, 4, 10, 11}) // of which some give a sign here, others not
        EXPECT_EQ(value(sensor_reply_t{minus}.set(23, function), 4), "nan") << unsigned{function};
    EXPECT_EQ(value(sensor_reply_t{}.set(23, 7), 0), "inf") << "1 / 0";
    EXPECT_EQ(value(sensor_reply_t{}.scale(1, 0, 2, 0).set(23, 5), 4), "inf") << "10 to the power 400";
    EXPECT_EQ(value(sensor_reply_t{}.scale(-1, 0, 2, 0).set(23, 5), 4), "0.00") << "10 to the power -400";
    EXPECT_EQ(value(sensor_reply_t{}.set(23, 7).set(21, 4), 0), "inf V") << "with its units";
}

TEST(sensor, linearisation_70h_fails_and_every_other_unknown_code_leaves_the_value)
{
    for (unsigned code = 12; code < 128; ++code) {
        const std::string expected = code == 0x70 ? "Unsupported OEM linearization function for sensor" : "100.00";
        EXPECT_EQ(value(sensor_reply_t{}.set(23, static_cast<std::uint8_t>(code)), 100), expected) << code;
        EXPECT_EQ(value(sensor_reply_t{}.set(23, static_cast<std::uint8_t>(code | 0x80U)), 100), expected)
            << "bit 7 does not count: " << code;
    }
    EXPECT_EQ(value(sensor_reply_t{}.set(23, 0x8A), 144), "12.00");
    EXPECT_EQ(value(sensor_reply_t{}.set(23, 0x70).set(20, 0x3E), 1),
              "Unsupported OEM linearization function for sensor")
        << "before the units are looked at";
}

TEST(sensor, unit_codes_above_6_are_a_question_mark)
{
    const std::pair<std::uint8_t, std::string> rows[] = {
        {0, "12.00"}, {1, "12.00 °C"}, {2, "12.00 °F"}, {3, "12.00 K"}, {4, "12.00 V"}, {5, "12.00 A"}, {6, "12.00 W"},
    };
    for (const auto& [code, text] : rows)
        EXPECT_EQ(value(sensor_reply_t{}.set(21, code), 12), text);
    for (unsigned code = 7; code < 256; ++code) {
        EXPECT_EQ(value(sensor_reply_t{}.set(21, static_cast<std::uint8_t>(code)), 12), "12.00 ?");
        EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x02).set(21, 4).set(22, static_cast<std::uint8_t>(code)), 12),
                  "12.00 V/?");
    }
}

TEST(sensor, modifier_unit_divides_or_multiplies_the_base_unit)
{
    struct row_t
    {
        std::uint8_t units, base, modifier;
        std::string text;
    };
    const row_t rows[] = {
        {0x00, 4, 5, "12.00 V"},
        {0x02, 4, 5, "12.00 V/A"},
        {0x04, 4, 5, "12.00 V*A"},
        {0x02, 6, 1, "12.00 W/°C"},
        {0x04, 6, 2, "12.00 W*°F"},
        {0x02, 4, 3, "12.00 V/K"},
        {0x02, 4, 4, "12.00 V/V"},
        {0x04, 5, 6, "12.00 A*W"},
        {0x02, 4, 0, "12.00 V/"},
        {0x04, 4, 0, "12.00 V*"},
        {0x06, 4, 5, "Invalid sensor unit format"},
        {0x3E, 4, 5, "Invalid sensor unit format"}, // before the rate
    };
    for (const row_t& row : rows)
        EXPECT_EQ(value(sensor_reply_t{}.set(20, row.units).set(21, row.base).set(22, row.modifier), 12), row.text);
}

TEST(sensor, rates_by_code)
{
    const std::string rates[] = {"", "/us", "/ms", "/s", "/min", "/h", "/day"};
    for (unsigned code = 0; code < 7; ++code)
        EXPECT_EQ(value(sensor_reply_t{}.set(20, static_cast<std::uint8_t>(code << 3)).set(21, 4), 12),
                  "12.00 V" + rates[code]);
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x38).set(21, 4), 12), "Invalid sensor rate unit");
}

TEST(sensor, value_without_a_base_unit_is_followed_by_the_rest_without_a_space)
{
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x20), 12), "12.00/min");
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x02).set(22, 4), 12), "12.00/V");
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x04).set(22, 4), 12), "12.00*V");
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x01), 12), "12.00%");
}

TEST(sensor, percentage_follows_the_units)
{
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x01).set(21, 4), 12), "12.00 V%");
    EXPECT_EQ(value(sensor_reply_t{}.set(20, 0x23).set(21, 4).set(22, 5), 12), "12.00 V/A/min%") << "last of all";
}

} // namespace
} // namespace ivra::bsp::bmc::bittware
