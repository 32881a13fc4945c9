#ifndef IVRA_VIRTUAL_DEVICES_MODULE_MEMORY_H
#define IVRA_VIRTUAL_DEVICES_MODULE_MEMORY_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace ivra::virtual_platform {

/// How the memory of a transceiver is laid out.
enum class memory_map_t
{
    sfp,  ///< SFF-8472: A0h at address 0x50, and A2h at 0x51
    qsfp, ///< SFF-8636: a lower page, and upper pages selected by byte 127
    cmis  ///< CMIS: the same, with other contents
};

inline constexpr std::size_t block_size = 128;
using block_t = std::array<std::uint8_t, block_size>;

inline constexpr std::size_t lane_page = 0x11; ///< of CMIS: lanes, their states and monitors

/// The map that modules of an identifier (SFF-8024, table 4-1) have; nothing when it has none that is known here.
std::optional<memory_map_t> map_of(std::uint8_t identifier);

} // namespace ivra::virtual_platform

#endif
