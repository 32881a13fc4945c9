#include "bmc/alveo/card_info.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

namespace ivra::bsp::bmc::alveo {

namespace {

// clang-format off
constexpr std::uint8_t key_serial      = 0x21;
constexpr std::uint8_t key_macs        = 0x4B; // count, one byte that is not used, the six bytes of the first address
constexpr std::array<std::uint8_t, 4> keys_legacy_mac{0x22, 0x23, 0x24, 0x25}; // one address each, as text
// clang-format on

constexpr std::size_t max_payload_size = 4091;
constexpr std::size_t macs_size = 8;
constexpr auto erased_slot = "FF:FF:FF:FF:FF:FF";

} // namespace

std::size_t decode_payload_size(std::uint32_t header)
{
    const std::size_t size = header & 0xFFFU;
    if (size == 0 || size > max_payload_size)
        throw std::runtime_error{"Invalid XMC mailbox packet payload size: " + std::to_string(size)};
    return size;
}

std::vector<std::uint8_t> decode_payload(std::span<const std::uint32_t> words, std::size_t size)
{
    std::vector<std::uint8_t> payload(size);
    for (std::size_t i = 0; i < size; ++i)
        payload[i] = static_cast<std::uint8_t>(words[i / 4] >> (i % 4 * 8));
    return payload;
}

card_info_t decode_card_info(std::span<const std::uint8_t> payload)
{
    card_info_t card_info;
    while (!payload.empty()) {
        if (payload.size() < 2)
            throw std::runtime_error{"Invalid XMC card info received"};
        const std::uint8_t key = payload[0];
        const std::size_t length = payload[1];
        payload = payload.subspan(2);
        if (length > payload.size())
            throw std::runtime_error{"Invalid XMC card info field size received"};
        const auto value = payload.first(length);
        card_info.try_emplace(key, value.begin(), value.end()); // Deliberate: a repeated key keeps its first value
        payload = payload.subspan(length);
    }
    return card_info;
}

std::string find_board_serial(const card_info_t& card_info)
{
    const auto field = card_info.find(key_serial);
    if (field == card_info.end())
        throw std::runtime_error{"Cannot find board serial in XMC card info"};
    return {field->second.begin(), field->second.end()};
}

board::mac_addresses_t get_legacy_mac_addresses(const card_info_t& card_info)
{
    std::optional<std::string> first;
    unsigned count = 0;
    for (const std::uint8_t key : keys_legacy_mac) {
        const auto field = card_info.find(key);
        if (field == card_info.end())
            continue;
        // Deliberate: the value as it stands, zero bytes at its end included, is compared with the marker.
        const std::string text(field->second.begin(), field->second.end());
        if (text.empty() || text == erased_slot)
            continue;
        ++count;
        if (!first)
            first = text;
    }
    if (!first)
        throw std::runtime_error{"No MAC address found"};
    return {.first = v6::mac_address{*first}, .count = count};
}

board::mac_addresses_t find_vendor_macs(const card_info_t& card_info)
{
    const auto field = card_info.find(key_macs);
    if (field == card_info.end())
        return get_legacy_mac_addresses(card_info);
    const std::vector<std::uint8_t>& value = field->second;
    if (value.size() != macs_size)
        throw std::runtime_error{"Invalid new MAC scheme packet read"};
    ivra_mac_address first{};
    std::copy_n(value.begin() + 2, std::size(first.bytes), std::begin(first.bytes));
    return {.first = v6::mac_address{first}, .count = value[0]};
}

} // namespace ivra::bsp::bmc::alveo
