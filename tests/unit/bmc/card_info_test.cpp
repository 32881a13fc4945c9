#include "bmc/alveo/card_info.h"

#include "support/outcome.h"

#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace ivra::bsp::bmc::alveo {
namespace {

using tests::said_by;
using bytes_t = std::vector<std::uint8_t>;

bytes_t to_bytes(const std::string& text)
{
    return {text.begin(), text.end()};
}

TEST(payload_size, is_the_low_12_bits_of_the_header_from_1_to_4091)
{
    EXPECT_EQ(decode_payload_size(0x04000001), 1U);
    EXPECT_EQ(decode_payload_size(0x00000FFB), 4091U);
    EXPECT_EQ(decode_payload_size(0xFFFFF005), 5U) << "other bits do not count";
    EXPECT_EQ(said_by([] { decode_payload_size(0x04000000); }), "Invalid XMC mailbox packet payload size: 0");
    EXPECT_EQ(said_by([] { decode_payload_size(0x00000FFC); }), "Invalid XMC mailbox packet payload size: 4092");
    EXPECT_EQ(said_by([] { decode_payload_size(0x00000FFF); }), "Invalid XMC mailbox packet payload size: 4095");
}

TEST(payload, is_packed_least_significant_byte_first)
{
    const std::vector<std::uint32_t> words{0x04030201, 0xFFFFFF05};
    EXPECT_EQ(decode_payload(words, 5), (bytes_t{1, 2, 3, 4, 5})) << "5 bytes of two words";
    EXPECT_EQ(decode_payload(words, 8), (bytes_t{1, 2, 3, 4, 5, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(decode_payload(std::vector<std::uint32_t>{0xAABBCCDD}, 1), bytes_t{0xDD});
}

TEST(card_info, is_a_sequence_of_key_length_value)
{
    const card_info_t expected{{0x21, {'A', 'B'}}, {0x27, {}}, {0xFF, {0}}};
    EXPECT_EQ(decode_card_info(bytes_t{0x27, 0, 0x21, 2, 'A', 'B', 0xFF, 1, 0}), expected)
        << "a value of no bytes is a value";
    EXPECT_EQ(decode_card_info(bytes_t{}), card_info_t{});
}

TEST(card_info, keeps_the_first_value_of_a_repeated_key)
{
    const card_info_t expected{{0x21, {'A'}}};
    EXPECT_EQ(decode_card_info(bytes_t{0x21, 1, 'A', 0x21, 2, 'B', 'C'}), expected);
    const card_info_t empty_first{{0x21, {}}};
    EXPECT_EQ(decode_card_info(bytes_t{0x21, 0, 0x21, 1, 'B'}), empty_first);
}

TEST(card_info, with_one_byte_left_after_the_last_field_is_invalid)
{
    EXPECT_EQ(said_by([] { decode_card_info(bytes_t{0x21}); }), "Invalid XMC card info received");
    EXPECT_EQ(said_by([] { decode_card_info(bytes_t{0x21, 1, 'A', 0x22}); }), "Invalid XMC card info received");
}

TEST(card_info, with_a_field_that_runs_past_the_end_is_invalid)
{
    EXPECT_EQ(said_by([] { decode_card_info(bytes_t{0x21, 1}); }), "Invalid XMC card info field size received");
    EXPECT_EQ(said_by([] {
                  decode_card_info(bytes_t{0x21, 3, 'A', 'B'});
              }),
              "Invalid XMC card info field size received")
        << "by one byte";
    EXPECT_EQ(said_by([] {
                  decode_card_info(bytes_t{0x27, 0, 0x21, 255, 'A'});
              }),
              "Invalid XMC card info field size received");
}

TEST(board_serial, is_every_byte_of_its_field)
{
    EXPECT_EQ(find_board_serial({{0x21, to_bytes("2130048BA00J")}}), "2130048BA00J");
    EXPECT_EQ(find_board_serial({{0x21, {'A', 0}}}), (std::string{"A\0", 2}));
    EXPECT_EQ(find_board_serial({{0x21, {}}}), "");
    EXPECT_EQ(said_by([] { find_board_serial({{0x22, {'A'}}}); }), "Cannot find board serial in XMC card info");
}

/// "first x count", or how it fails.
std::string macs_text(board::mac_addresses_t (*find)(const card_info_t&), const card_info_t& card_info)
{
    return said_by([&] {
        const board::mac_addresses_t macs = find(card_info);
        std::ostringstream text;
        text << macs.first << " x " << macs.count;
        return text.str();
    });
}

std::string vendor_macs(const card_info_t& card_info)
{
    return macs_text(&find_vendor_macs, card_info);
}

std::string legacy_macs(const card_info_t& card_info)
{
    return macs_text(&get_legacy_mac_addresses, card_info);
}

const bytes_t first = to_bytes("00:0A:35:00:00:01");
const bytes_t second = to_bytes("00:0a:35:00:00:02");
const bytes_t erased = to_bytes("FF:FF:FF:FF:FF:FF");

TEST(vendor_macs, of_the_new_scheme_are_a_count_and_the_first_address)
{
    EXPECT_EQ(vendor_macs({{0x4B, {4, 0x99, 0x00, 0x0A, 0x35, 0x11, 0x22, 0x33}}}), "00:0a:35:11:22:33 x 4");
    EXPECT_EQ(vendor_macs({{0x4B, {255, 0, 0, 0, 0, 0, 0, 0}}}), "00:00:00:00:00:00 x 255");
    EXPECT_EQ(vendor_macs({{0x22, first}, {0x4B, {1, 0, 2, 3, 4, 5, 6, 7}}}), "02:03:04:05:06:07 x 1")
        << "the new scheme wins";
}

TEST(vendor_macs, of_the_new_scheme_are_exactly_8_bytes_even_if_legacy_ones_are_present)
{
    for (const std::size_t size : {0U, 7U, 9U})
        EXPECT_EQ(vendor_macs({{0x22, first}, {0x4B, bytes_t(size)}}), "Invalid new MAC scheme packet read") << size;
}

TEST(vendor_macs, of_the_legacy_scheme_are_counted_and_the_first_one_is_parsed)
{
    EXPECT_EQ(vendor_macs({{0x22, first}, {0x23, second}}), "00:0a:35:00:00:01 x 2");
    EXPECT_EQ(vendor_macs({{0x24, second}}), "00:0a:35:00:00:02 x 1") << "only the third slot";
    EXPECT_EQ(vendor_macs({{0x22, erased}, {0x23, second}, {0x24, first}}), "00:0a:35:00:00:02 x 2");
    EXPECT_EQ(vendor_macs({{0x22, {}}, {0x25, first}}), "00:0a:35:00:00:01 x 1") << "an empty slot does not count";
    EXPECT_EQ(vendor_macs({{0x22, first}, {0x23, first}, {0x24, first}, {0x25, first}, {0x26, first}}),
              "00:0a:35:00:00:01 x 4");
}

TEST(legacy_macs, are_those_of_four_slots_whatever_else_the_card_says)
{
    const bytes_t new_scheme{4, 0, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(legacy_macs({{0x22, first}, {0x25, second}, {0x4B, new_scheme}}), "00:0a:35:00:00:01 x 2");
    EXPECT_EQ(legacy_macs({{0x22, erased}, {0x23, {}}, {0x24, second}, {0x25, first}}), "00:0a:35:00:00:02 x 2");
    EXPECT_EQ(legacy_macs({{0x21, first}, {0x26, first}, {0x4B, new_scheme}}), "No MAC address found");
    EXPECT_EQ(legacy_macs({{0x23, to_bytes("garbage")}}), "mac_address::mac_address(): Invalid argument");
}

TEST(vendor_macs, of_cards_without_any_do_not_exist)
{
    EXPECT_EQ(vendor_macs({}), "No MAC address found");
    EXPECT_EQ(vendor_macs({{0x21, {'A'}}, {0x26, first}}), "No MAC address found");
    EXPECT_EQ(vendor_macs({{0x22, erased}, {0x23, erased}, {0x24, {}}, {0x25, erased}}), "No MAC address found");
}

TEST(vendor_macs, an_erased_slot_with_a_zero_byte_at_its_end_is_none)
{
    bytes_t with_nul = erased;
    with_nul.push_back(0);
    EXPECT_EQ(vendor_macs({{0x22, with_nul}, {0x23, first}}), "ff:ff:ff:ff:ff:ff x 2");
    bytes_t small = to_bytes("ff:ff:ff:ff:ff:ff");
    EXPECT_EQ(vendor_macs({{0x22, small}}), "ff:ff:ff:ff:ff:ff x 1") << "the marker has large letters";
}

TEST(vendor_macs, whose_first_address_cannot_be_parsed_are_a_system_error)
{
    EXPECT_EQ(vendor_macs({{0x22, to_bytes("garbage")}, {0x23, first}}),
              "mac_address::mac_address(): Invalid argument");
    EXPECT_EQ(vendor_macs({{0x22, first}, {0x23, to_bytes("garbage")}}), "00:0a:35:00:00:01 x 2")
        << "the others are only counted";
}

} // namespace
} // namespace ivra::bsp::bmc::alveo
