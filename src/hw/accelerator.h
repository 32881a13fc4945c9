#ifndef IVRA_HW_ACCELERATOR_H
#define IVRA_HW_ACCELERATOR_H

#include "hw/properties.h"

#include <ivra/hw.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace ivra::hw {
inline namespace v5 {

/// An accelerator of this host, not opened yet.
class accelerator_descriptor
{
public:
    using handle_t = std::shared_ptr<const ivra_hw_accelerator_descriptor>;

    explicit accelerator_descriptor(handle_t handle) : handle_{std::move(handle)} {}

    hw::properties properties() const;
    const ivra_hw_accelerator_descriptor* get() const { return handle_.get(); }

private:
    handle_t handle_;
};

class mmio_descriptor;

/// An opened accelerator.
class accelerator
{
public:
    /// Throws std::system_error.
    explicit accelerator(const accelerator_descriptor& descriptor);

    /// Its MMIO spaces, in the platform's order. Throws std::system_error, with EINVAL when the platform described
    /// fewer than it counted.
    std::vector<mmio_descriptor> enumerate_mmios() const;

    hw::properties properties() const { return descriptor_.properties(); }
    ivra_hw_accelerator* get() const { return handle_.get(); }

private:
    accelerator_descriptor descriptor_;
    std::shared_ptr<ivra_hw_accelerator> handle_;
};

/// Criterion by which accelerators are selected.
class accelerator_filter
{
public:
    /// Selects every accelerator. Throws std::system_error.
    accelerator_filter();

    void set_index(std::uint32_t index);    ///< Throws std::system_error.
    void set_name(const std::string& name); ///< The whole name. Throws std::system_error.

    const ivra_hw_filter* get() const { return handle_.get(); }

private:
    std::shared_ptr<ivra_hw_filter> handle_;
};

/// How many accelerators this host has; 0 also when they cannot be counted.
std::size_t count_accelerators();

/// The accelerators of this host, in index order; none when the platform cannot tell. Throws std::system_error with
/// EINVAL when the platform described fewer than it counted.
std::vector<accelerator_descriptor> enumerate_accelerators();

/// Those that the filter selects; none when the platform cannot tell.
std::vector<accelerator_descriptor> enumerate_accelerators(const accelerator_filter& filter);

} // namespace v5
} // namespace ivra::hw

#endif
