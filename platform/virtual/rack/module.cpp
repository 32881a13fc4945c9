#include "module.h"

namespace ivra::virtual_platform {

std::uint8_t module_t::byte(std::size_t place) const
{
    const auto block = blocks.find(static_cast<unsigned>(place / block_size));
    return block == blocks.end() ? std::uint8_t{0} : block->second.at(place % block_size);
}

void module_t::set_byte(std::size_t place, std::uint8_t value)
{
    blocks[static_cast<unsigned>(place / block_size)].at(place % block_size) = value;
}

} // namespace ivra::virtual_platform
