#include "board/parameters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

namespace ivra::bsp::board {
namespace {

struct row_t
{
    const char* first;
    unsigned count;
    std::array<std::uint8_t, 8> end; ///< of the record; what is before it is always the same
    const char* why;
};

TEST(parameters, are_a_fixed_header_and_the_block_of_addresses)
{
    const row_t rows[] = {
        {"00:11:22:33:44:55", 8, {0x55, 0x44, 0x33, 0x22, 0x11, 0x00, 8, 0}, "the last octet comes first"},
        {"00:00:00:00:00:00", 0, {0, 0, 0, 0, 0, 0, 0, 0}, "nothing"},
        {"ff:fe:fd:fc:fb:fa", 1, {0xFA, 0xFB, 0xFC, 0xFD, 0xFE, 0xFF, 1, 0}, "every octet in full"},
        {"00:1c:73:aa:bb:80", 128, {0x80, 0xBB, 0xAA, 0x73, 0x1C, 0x00, 0x80, 0}, "a switch's block"},
        {"02:00:00:00:00:01", 255, {0x01, 0, 0, 0, 0, 0x02, 0xFF, 0}, "as many as the byte can say"},
        {"02:00:00:00:00:01", 256, {0x01, 0, 0, 0, 0, 0x02, 0, 0}, "one more: low bits only"},
        {"02:00:00:00:00:01", 0x12345, {0x01, 0, 0, 0, 0, 0x02, 0x45, 0}, "low bits of many"},
    };
    constexpr std::array<std::uint8_t, 16> header{0x5A, 0x5A, 0xA5, 0xA5, 1};
    for (const row_t& row : rows) {
        const auto record = encode_parameters({v6::mac_address{std::string{row.first}}, row.count});
        ASSERT_EQ(record.size(), header.size() + row.end.size());
        EXPECT_TRUE(std::equal(header.begin(), header.end(), record.begin())) << row.why;
        EXPECT_TRUE(std::equal(row.end.begin(), row.end.end(), record.begin() + header.size())) << row.why;
    }
}

} // namespace
} // namespace ivra::bsp::board
