#include "board/parameters.h"

#include <cstddef>

namespace ivra::bsp::board {

std::array<std::uint8_t, 24> encode_parameters(const mac_addresses_t& addresses)
{
    std::array<std::uint8_t, 24> record{0x5A, 0x5A, 0xA5, 0xA5, 1};
    const std::uint64_t first = addresses.first.to_int();
    for (std::size_t i = 0; i < 6; ++i)
        record[16 + i] = static_cast<std::uint8_t>(first >> (8 * i) & 0xFFU);
    record[22] = static_cast<std::uint8_t>(addresses.count & 0xFFU);
    return record;
}

} // namespace ivra::bsp::board
