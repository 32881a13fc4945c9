#include "hw/mmio.h"

#include "hw/own.h"

namespace ivra::hw {
inline namespace v5 {

hw::properties mmio_descriptor::properties() const
{
    return hw::properties{ivra_hw_mmio_descriptor_get_properties(get())};
}

mmio::mmio(const mmio_descriptor& descriptor)
    : descriptor_{descriptor}, handle_{own(ivra_hw_mmio_create(descriptor.get()), &ivra_hw_mmio_destroy)}
{
}

hw::properties mmio::properties() const
{
    return hw::properties{ivra_hw_mmio_descriptor_get_properties(ivra_hw_mmio_get_descriptor(get()))};
}

} // namespace v5
} // namespace ivra::hw
