// Mailbox payloads of an XMC: header, words and the card information in them.

#include "bmc/alveo/card_info.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

using namespace ivra::bsp::bmc::alveo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<std::uint8_t> bytes(data, data + size);
    try {
        std::uint32_t header = 0;
        for (std::size_t i = 0; i < 4 && i < size; ++i)
            header |= static_cast<std::uint32_t>(bytes[i]) << (8 * i);
        const std::size_t payload_size = decode_payload_size(header);
        std::vector<std::uint32_t> words((payload_size + 3) / 4);
        for (std::size_t i = 4; i < size && i / 4 - 1 < words.size(); ++i)
            words[i / 4 - 1] |= static_cast<std::uint32_t>(bytes[i]) << (i % 4 * 8);
        const std::vector<std::uint8_t> payload = decode_payload(words, payload_size);
        if (payload.size() != payload_size)
            std::abort();
        const card_info_t card_info = decode_card_info(payload);
        std::size_t total = 0;
        for (const auto& [key, value] : card_info)
            total += 2 + value.size();
        if (total > payload_size)
            std::abort();
        try {
            find_board_serial(card_info);
        } catch (const std::runtime_error&) {
        }
        find_vendor_macs(card_info);
    } catch (const std::runtime_error&) {
        // What a decoder does with bytes that make no sense.
    }
    return 0;
}
