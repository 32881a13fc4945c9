#include "hw/accelerator.h"

#include "hw/mmio.h"
#include "hw/own.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

namespace ivra::hw {
inline namespace v5 {

namespace {

/// Handles of an enumeration that nobody owns yet.
template <class T, class Release>
class unowned
{
public:
    unowned(std::size_t count, Release release) : pointers(count, nullptr), release_{release} {}
    ~unowned()
    {
        for (T* handle : pointers)
            if (handle != nullptr)
                release_(handle);
    }
    unowned(const unowned&) = delete;
    unowned& operator=(const unowned&) = delete;

    /// Gives each an owner, and that to `take`. Throws std::system_error with EINVAL when there is a null among them.
    template <class Take>
    void own_all(Take take)
    {
        for (T*& handle : pointers) {
            if (handle == nullptr)
                throw std::system_error{EINVAL, std::generic_category()};
            take(std::shared_ptr<T>{std::exchange(handle, nullptr), release_});
        }
    }

    std::vector<T*> pointers;

private:
    Release release_;
};

struct unowned_descriptors
    : unowned<const ivra_hw_accelerator_descriptor, decltype(&ivra_hw_accelerator_put_descriptor)>
{
    /// Room for all accelerators of this host.
    unowned_descriptors() : unowned{ivra_hw_count_accelerators(), &ivra_hw_accelerator_put_descriptor} {}

    std::vector<accelerator_descriptor> describe()
    {
        std::vector<accelerator_descriptor> descriptors;
        descriptors.reserve(pointers.size());
        own_all([&](auto owned) { descriptors.emplace_back(std::move(owned)); });
        return descriptors;
    }
};

void throw_if_failed(int platform_result)
{
    if (platform_result < 0)
        throw std::system_error{last_error()};
}

} // namespace

hw::properties accelerator_descriptor::properties() const
{
    return hw::properties{ivra_hw_accelerator_get_properties(get())};
}

accelerator::accelerator(const accelerator_descriptor& descriptor)
    : descriptor_{descriptor}, handle_{own(ivra_hw_accelerator_get(descriptor.get()), &ivra_hw_accelerator_put)}
{
}

std::vector<mmio_descriptor> accelerator::enumerate_mmios() const
{
    unowned<const ivra_hw_mmio_descriptor, decltype(&ivra_hw_mmio_put_descriptor)> found{
        ivra_hw_accelerator_count_mmios(get()), &ivra_hw_mmio_put_descriptor};
    throw_if_failed(ivra_hw_accelerator_enumerate_all_mmios(
        get(), found.pointers.empty() ? nullptr : found.pointers.data(), found.pointers.size()));
    std::vector<mmio_descriptor> descriptors;
    descriptors.reserve(found.pointers.size());
    found.own_all([&](auto owned) { descriptors.emplace_back(*this, std::move(owned)); });
    return descriptors;
}

accelerator_filter::accelerator_filter() : handle_{own(ivra_hw_filter_create(), &ivra_hw_filter_destroy)} {}

void accelerator_filter::set_index(std::uint32_t index)
{
    throw_if_failed(ivra_hw_filter_set_index(handle_.get(), index));
}

void accelerator_filter::set_name(const std::string& name)
{
    throw_if_failed(ivra_hw_filter_set_name(handle_.get(), name.c_str()));
}

std::size_t count_accelerators()
{
    return ivra_hw_count_accelerators();
}

std::vector<accelerator_descriptor> enumerate_accelerators()
{
    unowned_descriptors found;
    if (ivra_hw_enumerate_all_accelerators(found.pointers.data(), found.pointers.size()) < 0)
        return {};
    return found.describe();
}

std::vector<accelerator_descriptor> enumerate_accelerators(const accelerator_filter& filter)
{
    unowned_descriptors found;
    const int stored = ivra_hw_enumerate_accelerators(filter.get(), found.pointers.data(), found.pointers.size());
    found.pointers.resize(std::min(found.pointers.size(), static_cast<std::size_t>(std::max(stored, 0))));
    return found.describe();
}

} // namespace v5
} // namespace ivra::hw
