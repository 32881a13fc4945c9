#ifndef IVRA_BMC_ALVEO_CARD_INFO_H
#define IVRA_BMC_ALVEO_CARD_INFO_H

#include "records/mac_addresses.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace ivra::bsp::bmc::alveo {

// A mailbox packet is a header word, with the opcode in bits 31..24 and the payload's size in bytes in bits 11..0, and
// the payload, four bytes a word, least significant byte first.

/// Asks for the card information: opcode 4, no payload.
inline constexpr std::uint32_t card_info_request = 0x04000000;

/// Bytes of payload that a response header announces, 1 to 4091. Throws std::runtime_error for any other size.
std::size_t decode_payload_size(std::uint32_t header);

/// The first `size` bytes of payload words; there are no more of them than needed and no fewer.
std::vector<std::uint8_t> decode_payload(std::span<const std::uint32_t> words, std::size_t size);

/// Value of each key; of a repeated key the first.
using card_info_t = std::map<std::uint8_t, std::vector<std::uint8_t>>;

/// Decodes a card-information payload: fields of one byte key, one byte length, value. Throws std::runtime_error.
card_info_t decode_card_info(std::span<const std::uint8_t> payload);

/// Serial number of the board, every byte of it. Throws std::runtime_error when there is none.
std::string find_board_serial(const card_info_t& card_info);

/// The block of MAC addresses in the slots of cards that send them one by one: the first address, and how many of the
/// slots are neither empty nor erased. Throws as find_vendor_macs() does.
board::mac_addresses_t get_legacy_mac_addresses(const card_info_t& card_info);

/// The block of MAC addresses that the vendor gave to the board. Throws std::runtime_error when there is none, or
/// std::system_error when its first address cannot be parsed.
board::mac_addresses_t find_vendor_macs(const card_info_t& card_info);

} // namespace ivra::bsp::bmc::alveo

#endif
