#include "transceiver/memory_map.h"

#include <stdexcept>

namespace ivra::bsp::transceiver {

namespace {

/// The unit that numbers of this scale count. Deliberate: single precision, so that every digit printed is the
/// one that it has always been.
double unit_of(scale_t scale)
{
    switch (scale) {
    case scale_t::voltage:
    case scale_t::power:
        return 0.0001F;
    case scale_t::bias:
        return 0.002F;
    default:
        throw std::invalid_argument{"not a number"};
    }
}

} // namespace

double decode(const field_t& field, const field_t& block, std::span<const std::uint8_t> bytes, std::size_t index)
{
    const std::size_t offset = std::size_t{field.byte} - block.byte + 2 * index;
    if (field.byte < block.byte || 2 * index + 2 > field.length || offset + 2 > bytes.size())
        throw std::out_of_range{"not read"};
    const std::uint8_t high = bytes[offset];
    const std::uint8_t low = bytes[offset + 1];
    if (field.scale == scale_t::temperature)
        return static_cast<std::int8_t>(high) + low / 256.0;
    return (high << 8 | low) * unit_of(field.scale);
}

} // namespace ivra::bsp::transceiver
