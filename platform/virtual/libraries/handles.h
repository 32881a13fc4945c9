#ifndef IVRA_VIRTUAL_HANDLES_H
#define IVRA_VIRTUAL_HANDLES_H

#include "libraries/api.h"
#include "libraries/call.h"
#include "rack/rack.h"
#include "state/state.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ivra::virtual_platform {

enum class handle_kind
{
    accelerator_descriptor,
    accelerator,
    mmio_descriptor,
    mmio,
    core_tree,
    filter,
    mutex,
    hw_top,
    flash,
    i2c,
    bus,
    uart,
};

/// Counts the handles that the program has not released.
void count_handle(handle_kind kind, int change);

/// Base of what a program gets a pointer to and releases. While the program has it, the object owns itself; what was
/// made from it owns it too, so that releasing in a wrong order does no harm.
template <class T, handle_kind kind>
class handle_base : public std::enable_shared_from_this<T>
{
public:
    static T* give(std::shared_ptr<T> object)
    {
        T* handle = object.get();
        handle->self_ = std::move(object);
        count_handle(kind, +1);
        return handle;
    }

    /// Takes the handle back from the program; a null pointer is none.
    static void take_back(const T* handle)
    {
        if (handle == nullptr || handle->self_ == nullptr)
            return;
        count_handle(kind, -1);
        const std::shared_ptr<T> last = std::move(handle->self_);
    }

private:
    mutable std::shared_ptr<T> self_; // mutable: descriptors are handed out as const
};

} // namespace ivra::virtual_platform

struct ivra_hw_properties
{
    const ivra::virtual_platform::accelerator_t* accelerator;
    std::uint32_t index;
    std::optional<std::string> name;
    std::string uid;

    const ivra::virtual_platform::accelerator_t* device() const { return accelerator; }
};

struct ivra_hw_accelerator_descriptor
    : ivra::virtual_platform::handle_base<ivra_hw_accelerator_descriptor,
                                          ivra::virtual_platform::handle_kind::accelerator_descriptor>
{
    explicit ivra_hw_accelerator_descriptor(ivra_hw_properties p) : properties{std::move(p)} {}
    const ivra::virtual_platform::accelerator_t* device() const { return properties.accelerator; }

    ivra_hw_properties properties;
};

struct ivra_hw_accelerator
    : ivra::virtual_platform::handle_base<ivra_hw_accelerator, ivra::virtual_platform::handle_kind::accelerator>
{
    ivra_hw_accelerator(const ivra::virtual_platform::accelerator_t& d, ivra::virtual_platform::board_state s)
        : description{&d}, state{std::move(s)}
    {
    }
    const ivra::virtual_platform::accelerator_t* device() const { return description; }

    const ivra::virtual_platform::accelerator_t* description;
    ivra::virtual_platform::board_state state;
};

struct ivra_hw_mmio_descriptor
    : ivra::virtual_platform::handle_base<ivra_hw_mmio_descriptor, ivra::virtual_platform::handle_kind::mmio_descriptor>
{
    ivra_hw_mmio_descriptor(std::shared_ptr<ivra_hw_accelerator> a, ivra_hw_properties p)
        : accelerator{std::move(a)}, properties{std::move(p)}
    {
    }
    const ivra::virtual_platform::accelerator_t* device() const { return properties.accelerator; }

    std::shared_ptr<ivra_hw_accelerator> accelerator;
    ivra_hw_properties properties;
};

struct ivra_hw_mmio : ivra::virtual_platform::handle_base<ivra_hw_mmio, ivra::virtual_platform::handle_kind::mmio>
{
    explicit ivra_hw_mmio(std::shared_ptr<const ivra_hw_mmio_descriptor> d) : descriptor{std::move(d)} {}
    const ivra::virtual_platform::accelerator_t* device() const { return descriptor->device(); }

    std::shared_ptr<const ivra_hw_mmio_descriptor> descriptor;
};

/// A node of a core tree; the root has no description.
struct ivra_hw_core
{
    ivra_hw_core_tree* tree;
    const ivra::virtual_platform::core_t* description;

    const ivra::virtual_platform::accelerator_t* device() const;
};

struct ivra_hw_core_tree
    : ivra::virtual_platform::handle_base<ivra_hw_core_tree, ivra::virtual_platform::handle_kind::core_tree>
{
    explicit ivra_hw_core_tree(std::shared_ptr<ivra_hw_mmio> m) : mmio{std::move(m)} {}
    const ivra::virtual_platform::accelerator_t* device() const { return mmio->device(); }
    ivra::virtual_platform::board_state& state() const { return mmio->descriptor->accelerator->state; }

    std::shared_ptr<ivra_hw_mmio> mmio;
    ivra_hw_core root{this, nullptr};
    std::vector<ivra_hw_core> cores; ///< below the root, in address order
};

inline const ivra::virtual_platform::accelerator_t* ivra_hw_core::device() const
{
    return tree->device();
}

namespace ivra::virtual_platform {

/// Cores below a node that have this hardware identifier, in address order.
inline std::vector<ivra_hw_core*> cores_below(const ivra_hw_core& parent, std::uint32_t hardware_id)
{
    std::vector<ivra_hw_core*> found;
    if (&parent != &parent.tree->root)
        return found; // only the root has cores below it
    for (ivra_hw_core& core : parent.tree->cores) {
        if (core.description->hardware_id == hardware_id)
            found.push_back(&core);
    }
    return found;
}

/// Part of a design that is looked up by its hardware identifier and used through a handle of its own.
template <class T, handle_kind kind>
class device_base : public handle_base<T, kind>
{
public:
    /// Finds the core at or below `node`. Throws failure{ENODEV}.
    device_base(const ivra_hw_core& node, std::uint32_t hardware_id) : tree_{node.tree->shared_from_this()}
    {
        core_ = node.description;
        if (core_ != nullptr && core_->hardware_id == hardware_id)
            return;
        const std::vector<ivra_hw_core*> found = cores_below(node, hardware_id);
        require(!found.empty(), ENODEV);
        core_ = found.front()->description;
    }

    const accelerator_t* device() const { return tree_->device(); }
    /// The board as it is now, until it is asked for again.
    const accelerator_t& board() const { return state().board(); }
    board_state& state() const { return tree_->state(); }
    const core_t& core() const { return *core_; }

private:
    std::shared_ptr<ivra_hw_core_tree> tree_; // keeps the board open
    const core_t* core_;
};

} // namespace ivra::virtual_platform

#endif
