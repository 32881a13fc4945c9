#ifndef IVRA_HW_PROPERTIES_H
#define IVRA_HW_PROPERTIES_H

#include "hw/result.h"

#include <ivra/hw.h>

#include <cstdint>
#include <string>

namespace ivra::hw {
inline namespace v5 {

/// Identity of a device of the host. Borrowed from the descriptor that it came from.
class properties
{
public:
    explicit properties(const ivra_hw_properties* borrowed) : handle_{borrowed} {}

    /// Position of the device, from 0.
    result<std::uint32_t> index() const;
    result<std::string> name() const;
    /// Text that no other device of this host has.
    result<std::string> uid() const;

private:
    const ivra_hw_properties* handle_;
};

} // namespace v5
} // namespace ivra::hw

#endif
