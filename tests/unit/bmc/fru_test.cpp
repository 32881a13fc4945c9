#include "bmc/bittware/fru.h"

#include "support/outcome.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::bsp::bmc::bittware {
namespace {

using tests::said_by;
using bytes_t = std::vector<std::uint8_t>;

bytes_t operator+(bytes_t left, const bytes_t& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// Makes the bytes add up to 0 by their last one.
bytes_t with_checksum(bytes_t bytes)
{
    bytes.back() = 0;
    bytes.back() = static_cast<std::uint8_t>(-std::accumulate(bytes.begin(), bytes.end(), 0));
    return bytes;
}

/// A field of a board area: its type in bits 7..6 and its length, then its bytes.
bytes_t field(const std::string& text, unsigned type = 3)
{
    return bytes_t{static_cast<std::uint8_t>(type << 6 | text.size())} + bytes_t(text.begin(), text.end());
}

const bytes_t end_of_fields{0xC1};
const bytes_t three_fields = field("VIRTUAL") + field("XUPP3R") + field("VRTP3R0001");

/// A board area of `units` times 8 bytes with its checksum; the fields fill it up with zeros.
bytes_t board_area(const bytes_t& fields, std::uint8_t units)
{
    bytes_t area = bytes_t{0x01, units, 0x19, 0x12, 0x34, 0x56} + fields;
    EXPECT_LT(area.size(), units * 8U);
    area.resize(units * 8U);
    return with_checksum(area);
}

/// A FRU with a board area at 8 times `unit`.
bytes_t fru(const bytes_t& area, std::uint8_t unit = 1)
{
    bytes_t image = with_checksum({0x01, 0, 0, unit, 0, 0, 0, 0});
    image.resize(unit * 8U, 0xEE);
    return image + area;
}

/// Reads the serial number of a FRU as the three reads are planned, or says how that fails. Notes each read.
struct reader_t
{
    bytes_t image;
    std::string reads;

    bytes_t read(fru_range_t range)
    {
        reads += std::to_string(range.offset) + "+" + std::to_string(range.count) + " ";
        bytes_t reply{range.count};
        for (std::size_t i = range.offset; i < image.size() && reply.size() < range.count + 1U; ++i)
            reply.push_back(image[i]);
        const auto bytes = decode_fru_data(0, reply, range.count);
        return {bytes.begin(), bytes.end()};
    }

    std::string serial()
    {
        return said_by([&] {
            const fru_range_t place = find_board_area_start(read(fru_common_header));
            const bytes_t start = read(place);
            const bytes_t rest = read(find_board_area_rest(place, start));
            return "serial " + decode_board_serial(start, rest);
        });
    }
};

std::string serial(const bytes_t& image)
{
    return reader_t{image, {}}.serial();
}

TEST(fru_request, is_device_0_offset_least_significant_byte_first_and_count)
{
    using request_t = std::array<std::uint8_t, 4>;
    EXPECT_EQ(encode_read_fru_data(fru_common_header), (request_t{0, 0, 0, 8}));
    EXPECT_EQ(encode_read_fru_data({.offset = 0x07F8, .count = 6}), (request_t{0, 0xF8, 0x07, 6}));
    EXPECT_EQ(encode_read_fru_data({.offset = 0xFFFE, .count = 255}), (request_t{0, 0xFE, 0xFF, 255}));
    EXPECT_EQ(read_fru_data_netfn, 0x0A);
    EXPECT_EQ(read_fru_data_command, 0x11);
}

/// The bytes of a reply, or how it fails.
std::string fru_data(std::uint8_t code, const bytes_t& reply, std::uint8_t count)
{
    return said_by([&] {
        std::string text = "bytes";
        for (const std::uint8_t byte : decode_fru_data(code, reply, count))
            text += ' ' + std::to_string(byte);
        return text;
    });
}

TEST(fru_data, is_what_follows_the_count_byte)
{
    EXPECT_EQ(fru_data(0, {3, 10, 20, 30}, 3), "bytes 10 20 30");
    EXPECT_EQ(fru_data(0, {0}, 0), "bytes");
    EXPECT_EQ(fru_data(0, bytes_t{255} + bytes_t(255, 1), 255).size(), std::string{"bytes"}.size() + 255 * 2);
}

TEST(fru_data, may_be_more_than_was_asked_for)
{
    EXPECT_EQ(fru_data(0, {4, 10, 20, 30, 40}, 2), "bytes 10 20 30 40");
    EXPECT_EQ(fru_data(0, {2, 10, 20, 30}, 2), "bytes 10 20 30") << "or announced";
    EXPECT_EQ(fru_data(0, {255, 10, 20}, 2), "bytes 10 20") << "the count byte alone promises more";
}

TEST(fru_data, that_is_less_than_asked_for_fails)
{
    const std::string less = "Read less FRU data than expected";
    EXPECT_EQ(fru_data(0, {2, 10, 20, 30}, 3), less) << "by its count byte";
    EXPECT_EQ(fru_data(0, {0, 10, 20, 30}, 3), less);
    EXPECT_EQ(fru_data(0, {3, 10, 20}, 3), less) << "by its bytes";
    EXPECT_EQ(fru_data(0, {255}, 255), less);
    EXPECT_EQ(fru_data(0, {}, 3), less) << "no data at all";
    EXPECT_EQ(fru_data(0, {}, 0), less);
}

TEST(fru_data, with_a_completion_code_fails_with_the_code_in_decimal)
{
    EXPECT_EQ(fru_data(0xC9, {}, 8), "Error reading FRU data. Response code: 201");
    EXPECT_EQ(fru_data(1, {2, 10, 20}, 2), "Error reading FRU data. Response code: 1") << "whatever else it says";
}

TEST(fru, serial_number_is_the_third_field_of_the_board_area_in_three_reads)
{
    reader_t reader{fru(board_area(three_fields + end_of_fields, 6)), {}};
    EXPECT_EQ(reader.serial(), "serial VRTP3R0001");
    EXPECT_EQ(reader.reads, "0+8 8+6 14+42 ");

    reader_t last{fru(board_area(three_fields + field("part number") + field("file") + end_of_fields, 8), 255), {}};
    EXPECT_EQ(last.serial(), "serial VRTP3R0001") << "at the highest offset";
    EXPECT_EQ(last.reads, "0+8 2040+6 2046+58 ");
}

TEST(fru, serial_number_is_its_bytes)
{
    const std::string bytes{"\0A\xFF ", 4};
    EXPECT_EQ(serial(fru(board_area(field("") + field("") + field(bytes) + end_of_fields, 3))), "serial " + bytes);
    EXPECT_EQ(serial(fru(board_area(field("") + field("") + field("") + end_of_fields, 2))), "serial ");
    const std::string longest(63, 'S');
    EXPECT_EQ(serial(fru(board_area(field("") + field("") + field(longest, 2) + end_of_fields, 10))),
              "serial " + longest);
}

TEST(fru, the_type_of_a_field_is_not_looked_at)
{
    for (unsigned type = 0; type < 4; ++type) {
        const bytes_t fields = field("AB", type) + field("", type) + field("\x29\xDC\xA6", type) + end_of_fields;
        EXPECT_EQ(serial(fru(board_area(fields, 3))), "serial \x29\xDC\xA6") << "type " << type;
    }
}

TEST(fru, header_adds_up_to_0)
{
    bytes_t image = fru(board_area(three_fields + end_of_fields, 6));
    for (std::size_t i = 0; i < 8; ++i) {
        bytes_t wrong = image;
        ++wrong[i];
        EXPECT_EQ(serial(wrong), "FRU common header checksum failed") << "byte " << i;
    }
    EXPECT_EQ(serial(bytes_t(8, 0xFF)), "FRU common header checksum failed") << "an erased EEPROM";
}

TEST(fru, without_a_board_area_fails)
{
    EXPECT_EQ(serial(with_checksum({1, 1, 2, 0, 3, 4, 0, 0})), "FRU board info area is not present");
    EXPECT_EQ(serial(bytes_t(8, 0)), "FRU board info area is not present");
}

TEST(fru, board_area_of_33_units_is_too_big_and_of_32_is_read_as_6_and_250_bytes)
{
    for (const std::uint8_t units : bytes_t{33, 34, 128, 255}) {
        reader_t reader{fru(board_area(three_fields + end_of_fields, units)), {}};
        EXPECT_EQ(reader.serial(), "BMC FRU board info area size too big") << unsigned{units};
        EXPECT_EQ(reader.reads, "0+8 8+6 ") << "before the rest is asked for";
    }
    reader_t reader{fru(board_area(three_fields + end_of_fields, 32)), {}};
    EXPECT_EQ(reader.serial(), "serial VRTP3R0001");
    EXPECT_EQ(reader.reads, "0+8 8+6 14+250 ");
}

TEST(fru, board_area_of_length_0_is_incomplete)
{
    bytes_t area = board_area(three_fields + end_of_fields, 6);
    area[1] = 0;
    reader_t reader{fru(area), {}};
    EXPECT_EQ(reader.serial(), "BMC FRU board info area incomplete");
    EXPECT_EQ(reader.reads, "0+8 8+6 ");
    EXPECT_EQ(said_by([&] { decode_board_serial(area, area); }), "BMC FRU board info area incomplete");
}

TEST(fru, board_area_of_one_unit_has_room_for_one_field_at_most)
{
    reader_t reader{fru(board_area(end_of_fields, 1)), {}};
    EXPECT_EQ(reader.serial(), "BMC FRU board info area incomplete");
    EXPECT_EQ(reader.reads, "0+8 8+6 14+2 ");
}

TEST(fru, every_byte_of_the_board_area_counts_in_its_sum)
{
    const bytes_t area = board_area(three_fields + end_of_fields, 6);
    for (std::size_t i = 0; i < area.size(); ++i) {
        if (i == 1)
            continue; // its length
        bytes_t wrong = area;
        ++wrong[i];
        EXPECT_EQ(serial(fru(wrong)), "FRU board area info checksum failed") << "byte " << i;
    }
}

TEST(fru, sum_is_judged_before_the_fields)
{
    bytes_t area = board_area(bytes_t{0xFF} + end_of_fields, 2);
    EXPECT_EQ(serial(fru(area)), "Error parsing FRU variable length field");
    ++area.back();
    EXPECT_EQ(serial(fru(area)), "FRU board area info checksum failed");
}

TEST(fru, field_that_runs_past_the_area_fails)
{
    // 32 bytes: 6 at the start, 7 + 7 + 1 + 10 of fields, the checksum.
    const bytes_t two = field("VIRTUA") + field("XUPP3R");
    const bytes_t filled = board_area(two + bytes_t{0xCB}, 4);
    EXPECT_EQ(serial(fru(filled)), "serial " + std::string(10, '\0') + static_cast<char>(filled.back()))
        << "up to the last byte, its checksum, a field is within the area";
    EXPECT_EQ(serial(fru(board_area(two + bytes_t{0xCC}, 4))), "Error parsing FRU variable length field")
        << "by one byte";
    EXPECT_EQ(serial(fru(board_area(three_fields + field("") + bytes_t{0x3F} + end_of_fields, 6))),
              "Error parsing FRU variable length field")
        << "also behind the serial number";
}

TEST(fru, field_list_that_ends_after_two_fields_is_incomplete)
{
    const std::string incomplete = "BMC FRU board info area incomplete";
    EXPECT_EQ(serial(fru(board_area(field("VIRTUAL") + field("XUPP3R") + end_of_fields + field("S"), 4))), incomplete);
    EXPECT_EQ(serial(fru(board_area(field("VIRTUAL") + end_of_fields, 3))), incomplete);
    EXPECT_EQ(serial(fru(board_area(end_of_fields + three_fields, 6))), incomplete);
}

TEST(fru, field_list_without_an_end_ends_with_the_area)
{
    // 6 + 1 + 1 + 1 + 6 = 15 bytes, and the checksum is the 16th: a field without bytes, by its low 6 bits.
    bytes_t area = board_area(field("") + field("") + field("SER01") + bytes_t{0x00}, 2);
    const std::uint8_t checksum = area.back();
    area[3] = static_cast<std::uint8_t>(area[3] + checksum); // in the date, so that the checksum is 0
    area = with_checksum(area);
    ASSERT_EQ(area.back(), 0);
    EXPECT_EQ(serial(fru(area)), "serial SER01");
}

TEST(fru, field_list_without_an_end_and_with_less_than_three_fields_is_incomplete)
{
    bytes_t area = board_area(field("ABCDEFG"), 2); // 6 + 8 bytes, one zero, the checksum
    area[3] = static_cast<std::uint8_t>(area[3] + area.back() - 0xC1);
    area = with_checksum(area);
    ASSERT_EQ(area.back(), 0xC1);
    EXPECT_EQ(serial(fru(area)), "BMC FRU board info area incomplete") << "the checksum can look like an end";
    bytes_t filled = board_area(field("ABCDEFGH"), 2);
    filled[6] = 0xC9; // one more byte, so that the field ends with the area
    EXPECT_EQ(serial(fru(with_checksum(filled))), "BMC FRU board info area incomplete");
}

TEST(fru, only_the_bytes_asked_for_are_summed_and_parsed)
{
    const bytes_t area = board_area(three_fields + end_of_fields, 6);
    const bytes_t more{0x55, 0xAA, 0x77};
    const bytes_t header = with_checksum({1, 0, 0, 1, 0, 0, 0, 0});
    const bytes_t start(area.begin(), area.begin() + 6);
    const bytes_t rest(area.begin() + 6, area.end());
    const fru_range_t place = find_board_area_start(header + more);
    EXPECT_EQ(place.offset, 8);
    EXPECT_EQ(find_board_area_rest(place, start + more).count, 42);
    EXPECT_EQ(decode_board_serial(start + more, rest + more), "VRTP3R0001");

    const bytes_t two = board_area(field("VIRTUA") + field("XUPP3R") + bytes_t{0xCC}, 4);
    EXPECT_EQ(said_by([&] {
                  decode_board_serial(bytes_t(two.begin(), two.begin() + 6),
                                      bytes_t(two.begin() + 6, two.end()) + more);
              }),
              "Error parsing FRU variable length field")
        << "the area ends where its length says";
}

TEST(fru, bytes_that_were_not_read_are_never_looked_at)
{
    const std::string less = "Read less FRU data than expected";
    const bytes_t area = board_area(three_fields + end_of_fields, 6);
    const bytes_t start(area.begin(), area.begin() + 6);
    for (std::size_t size = 0; size < 8; ++size)
        EXPECT_EQ(said_by([&] { find_board_area_start(bytes_t(size)); }), less) << size;
    for (std::size_t size = 0; size < 6; ++size)
        EXPECT_EQ(said_by([&] { find_board_area_rest({8, 6}, bytes_t(size)); }), less) << size;
    for (std::size_t size = 0; size < 42; ++size)
        EXPECT_EQ(said_by([&] { decode_board_serial(start, bytes_t(size)); }), less) << size;
}

} // namespace
} // namespace ivra::bsp::bmc::bittware
