#ifndef IVRA_HW_MMIO_H
#define IVRA_HW_MMIO_H

#include "hw/accelerator.h"

#include <ivra/hw.h>

#include <memory>
#include <utility>

namespace ivra::hw {
inline namespace v5 {

/// An MMIO space of an opened accelerator, not opened yet.
class mmio_descriptor
{
public:
    using handle_t = std::shared_ptr<const ivra_hw_mmio_descriptor>;

    mmio_descriptor(hw::accelerator owner, handle_t handle) : accelerator_{std::move(owner)}, handle_{std::move(handle)}
    {
    }

    hw::properties properties() const;
    const ivra_hw_mmio_descriptor* get() const { return handle_.get(); }

private:
    hw::accelerator accelerator_;
    handle_t handle_;
};

/// An opened MMIO space.
class mmio
{
public:
    /// Throws std::system_error.
    explicit mmio(const mmio_descriptor& descriptor);

    /// Of the descriptor that the space was opened from.
    hw::properties properties() const;
    ivra_hw_mmio* get() const { return handle_.get(); }

private:
    mmio_descriptor descriptor_;
    std::shared_ptr<ivra_hw_mmio> handle_;
};

} // namespace v5
} // namespace ivra::hw

#endif
