#ifndef IVRA_RECORDS_BOOT_IMAGE_H
#define IVRA_RECORDS_BOOT_IMAGE_H

#include <cstdint>

namespace ivra::bsp::board {

/// Flash image from which an FPGA is configured.
enum class boot_image_t : std::uint32_t
{
    none = 0,
    primary = 1,
    backup = 2,
};

} // namespace ivra::bsp::board

#endif
