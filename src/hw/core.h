#ifndef IVRA_HW_CORE_H
#define IVRA_HW_CORE_H

#include "hw/mmio.h"
#include "hw/result.h"

#include <ivra/hw.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <system_error>
#include <vector>

namespace ivra::hw {
inline namespace v5 {

class core;

/// The cores found in an MMIO space, which it keeps open.
class core_tree
{
public:
    core root() const;
    const hw::mmio& mmio() const { return mmio_; }

private:
    friend core_tree enumerate_cores(const hw::mmio& mmio);
    core_tree(const hw::mmio& mmio, std::shared_ptr<ivra_hw_core_tree> handle);

    hw::mmio mmio_;
    std::shared_ptr<ivra_hw_core_tree> handle_;
};

/// Walks an MMIO space. Throws std::system_error.
core_tree enumerate_cores(const hw::mmio& mmio);

/// A node of a core tree. It keeps the tree, its MMIO space and the accelerator open.
class core
{
public:
    core(core_tree tree, ivra_hw_core* node) : tree_{std::move(tree)}, node_{node} {}

    /// The cores of this hardware identifier below this one, in address order, at most `capacity` of them. EINVAL when
    /// the platform stored fewer than it says.
    result<std::vector<core>> enumerate(std::uint32_t hardware_id, std::size_t capacity) const;

    const hw::mmio& mmio() const { return tree_.mmio(); }
    ivra_hw_core* get() const { return node_; }

private:
    core_tree tree_;
    ivra_hw_core* node_;
};

/// Reads a field of a core's address space.
result<std::uint64_t> read(const core& core, const ivra_hw_register_description& description);

/// Writes a field of a core's address space; an error value of 0 means success.
std::error_code write(const core& core, const ivra_hw_register_description& description, std::uint64_t value);

} // namespace v5
} // namespace ivra::hw

#endif
