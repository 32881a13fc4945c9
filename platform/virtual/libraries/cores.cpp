#include "libraries/handles.h"

#include "devices/xmc/xmc.h"

#include <algorithm>
#include <iterator>

using namespace ivra::virtual_platform;

namespace {

/// Where a field lies: its first word, and its bits counted from there.
struct field_t
{
    std::uint64_t offset; // of the first word that holds a bit of it
    std::uint32_t shift;  // of its lowest bit in that word, 0 to 31
    std::uint32_t width;  // 1 to 64

    std::uint32_t words() const { return (shift + width + 31) / 32; }
    /// Bits of the field in its `n`th word.
    std::uint32_t mask(std::uint32_t n) const { return static_cast<std::uint32_t>(moved_up(all(), n)); }
    /// Part of a field's value that belongs into its `n`th word.
    std::uint32_t part(std::uint64_t value, std::uint32_t n) const
    {
        return static_cast<std::uint32_t>(moved_up(value, n));
    }
    std::uint64_t all() const { return ~std::uint64_t{0} >> (64 - width); }

private:
    std::uint64_t moved_up(std::uint64_t value, std::uint32_t n) const
    {
        return n == 0 ? value << shift : value >> (32 * n - shift);
    }
};

/// Throws failure: EINVAL for what is no field, ERANGE for one that is not in the core's space.
field_t field_of(const ivra_hw_core* core, const ivra_hw_register_description* description)
{
    require(core != nullptr && description != nullptr);
    const auto& [offset, bit_offset, width, name] = *description;
    require(width >= 1 && width <= 64 && offset % 4 == 0);
    const std::uint64_t space = core->description == nullptr ? 0 : core->description->size;
    const std::uint64_t end = (std::uint64_t{bit_offset} + width + 31) / 32 * 4;
    require(offset <= space && end <= space - offset, ERANGE);
    return {offset + std::uint64_t{bit_offset} / 32 * 4, bit_offset % 32, width};
}

/// The words of a core's space: those of the device behind it, or else those that the board remembers.
class words
{
public:
    explicit words(const ivra_hw_core& core) : core_{*core.description}, registers_{core.tree->state().registers()}
    {
        if (!has_room_for_xmc(core_))
            return; // registers only, whatever changes
        if (const xmc_t* config = xmc_behind(core.tree->state().board(), core_))
            device_ = std::make_unique<xmc>(*config, core_, registers_);
    }

    std::uint32_t read(std::uint64_t offset) const
    {
        return device_ ? device_->read(offset, device_now()) : registers_.read(core_, offset);
    }

    void write(std::uint64_t offset, std::uint32_t value) const
    {
        if (device_)
            device_->write(offset, value, device_now());
        else
            registers_.write(core_, offset, value);
    }

private:
    const core_t& core_;
    register_file& registers_;
    std::unique_ptr<ivra::virtual_platform::device> device_;
};

} // namespace

namespace ivra::virtual_platform {

std::string describe(const ivra_hw_core* core)
{
    if (core == nullptr)
        return "NULL";
    if (core->description == nullptr)
        return "root";
    return "core " + std::to_string(core->description->hardware_id) + "@" +
           describe(hexadecimal_t{core->description->address});
}

std::string describe(const ivra_hw_register_description* field)
{
    if (field == nullptr)
        return "NULL";
    return describe(hexadecimal_t{field->offset}) + "[" +
           std::to_string(std::uint64_t{field->bit_offset} + field->width - 1) + ":" +
           std::to_string(field->bit_offset) + "]" + (field->name == nullptr ? "" : " " + escaped(field->name));
}

} // namespace ivra::virtual_platform

ivra_hw_core_tree* ivra_hw_enumerate_cores(ivra_hw_mmio* mmio)
{
    call c{__func__, device_of(mmio)};
    return c.handle([&] {
        require(mmio != nullptr);
        auto tree = std::make_shared<ivra_hw_core_tree>(mmio->shared_from_this());
        if (mmio->descriptor->properties.index == 0) { // the others are empty
            for (const core_t& core : mmio->device()->cores)
                tree->cores.push_back({tree.get(), &core});
        }
        return ivra_hw_core_tree::give(std::move(tree));
    });
}

void ivra_hw_destroy_tree(ivra_hw_core_tree* tree)
{
    call c{__func__, device_of(tree)};
    c.nothing([&] { ivra_hw_core_tree::take_back(tree); });
}

ivra_hw_core* ivra_hw_core_tree_get_root(ivra_hw_core_tree* tree)
{
    call c{__func__, device_of(tree)};
    return c.handle([&] {
        require(tree != nullptr);
        return &tree->root;
    });
}

int ivra_hw_core_enumerate(ivra_hw_core* parent, std::uint32_t hardware_id, ivra_hw_core** cores, std::size_t capacity)
{
    call c{__func__, device_of(parent)};
    return c.with(parent, hardware_id, capacity).count([&] {
        require(parent != nullptr && (cores != nullptr || capacity == 0));
        const std::vector<ivra_hw_core*> found = cores_below(*parent, hardware_id);
        const std::size_t count = std::min(found.size(), c.at_most(capacity));
        std::copy_n(found.begin(), count, cores);
        return count;
    });
}

int ivra_hw_read(ivra_hw_core* core, const ivra_hw_register_description* description, std::uint64_t* value)
{
    call c{__func__, device_of(core)};
    return c.with(core, description).status([&] {
        const field_t field = field_of(core, description);
        require(value != nullptr);
        const words space{*core};
        std::uint64_t bits = 0;
        for (std::uint32_t n = 0; n < field.words(); ++n) {
            const std::uint64_t word = space.read(field.offset + std::uint64_t{4} * n);
            bits |= n == 0 ? word >> field.shift : word << (32 * n - field.shift);
        }
        c.store(value, bits & field.all());
    });
}

int ivra_hw_write(ivra_hw_core* core, const ivra_hw_register_description* description, std::uint64_t value)
{
    call c{__func__, device_of(core)};
    return c.with(core, description, hexadecimal_t{value}).status([&] {
        const field_t field = field_of(core, description);
        require(value <= field.all(), ERANGE);
        const words space{*core};
        for (std::uint32_t n = 0; n < field.words(); ++n) {
            const std::uint64_t offset = field.offset + std::uint64_t{4} * n;
            const std::uint32_t mask = field.mask(n);
            // Deliberate: a whole word is written without being read, as reading may do something.
            const std::uint32_t kept = mask == ~0U ? 0 : space.read(offset) & ~mask;
            space.write(offset, kept | field.part(value, n));
        }
    });
}
