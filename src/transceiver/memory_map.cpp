#include "transceiver/memory_map.h"

#include <stdexcept>

namespace ivra::bsp::transceiver {

namespace {

/// The unit that voltages, powers and biases count. Deliberate: single precision, so that every digit printed is the
/// one that it has always been.
double unit_of(scale_t scale)
{
    return scale == scale_t::bias ? 0.002F : 0.0001F;
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
