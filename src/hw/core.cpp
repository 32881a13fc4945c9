#include "hw/core.h"

#include "hw/own.h"

#include <algorithm>
#include <utility>

namespace ivra::hw {
inline namespace v5 {

core_tree::core_tree(const hw::mmio& mmio, std::shared_ptr<ivra_hw_core_tree> handle)
    : mmio_{mmio}, handle_{std::move(handle)}
{
}

core core_tree::root() const
{
    return {*this, ivra_hw_core_tree_get_root(handle_.get())};
}

core_tree enumerate_cores(const hw::mmio& mmio)
{
    return {mmio, own(ivra_hw_enumerate_cores(mmio.get()), &ivra_hw_destroy_tree)};
}

result<std::vector<core>> core::enumerate(std::uint32_t hardware_id, std::size_t capacity) const
{
    std::vector<ivra_hw_core*> nodes(capacity, nullptr);
    const int stored = ivra_hw_core_enumerate(node_, hardware_id, nodes.data(), nodes.size());
    if (stored < 0)
        return last_error();
    nodes.resize(std::min(capacity, static_cast<std::size_t>(stored)));
    std::vector<core> cores;
    cores.reserve(nodes.size());
    for (ivra_hw_core* node : nodes) {
        if (node == nullptr)
            return std::make_error_code(std::errc::invalid_argument);
        cores.emplace_back(tree_, node);
    }
    return cores;
}

result<std::uint64_t> read(const core& core, const ivra_hw_register_description& description)
{
    std::uint64_t value = 0;
    if (ivra_hw_read(core.get(), &description, &value) != 0)
        return last_error();
    return value;
}

std::error_code write(const core& core, const ivra_hw_register_description& description, std::uint64_t value)
{
    if (ivra_hw_write(core.get(), &description, value) != 0)
        return last_error();
    return {};
}

} // namespace v5
} // namespace ivra::hw
