#ifndef IVRA_VIRTUAL_DEVICES_DEVICE_H
#define IVRA_VIRTUAL_DEVICES_DEVICE_H

#include "memory/clock.h"

#include <cstdint>

namespace ivra::virtual_platform {

/// What stands behind the registers of a core. What it answers follows from what the rack says of it, from what the
/// board remembers and from the time that it is given: the object itself has no state.
class device
{
public:
    virtual ~device() = default;

    /// `offset` is a multiple of 4 and lies in the core's space. Each throws std::system_error.
    virtual std::uint32_t read(std::uint64_t offset, device_time now) = 0;
    virtual void write(std::uint64_t offset, std::uint32_t value, device_time now) = 0;
};

} // namespace ivra::virtual_platform

#endif
