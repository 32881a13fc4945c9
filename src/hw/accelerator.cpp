#include "hw/accelerator.h"

#include "hw/mmio.h"
#include "hw/own.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace ivra::hw {
inline namespace v5 {

namespace {

/// Owns every handle of an enumeration before anything can fail, so that a null among them (EINVAL) leaks none.
template <class T, class Release>
std::vector<std::shared_ptr<T>> own_all(const std::vector<T*>& handles, Release release)
{
    std::vector<std::shared_ptr<T>> owned;
    owned.reserve(handles.size());
    for (T* handle : handles)
        if (handle != nullptr)
            owned.emplace_back(handle, release);
    if (owned.size() != handles.size())
        throw std::system_error{EINVAL, std::generic_category()};
    return owned;
}

using descriptor_pointers = std::vector<const ivra_hw_accelerator_descriptor*>;

std::vector<accelerator_descriptor> describe(const descriptor_pointers& pointers)
{
    std::vector<accelerator_descriptor> descriptors;
    descriptors.reserve(pointers.size());
    for (auto& handle : own_all(pointers, &ivra_hw_accelerator_put_descriptor))
        descriptors.emplace_back(std::move(handle));
    return descriptors;
}

void throw_if_failed(int platform_result)
{
    if (platform_result < 0)
        throw std::system_error{errno, std::generic_category()};
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
    std::vector<const ivra_hw_mmio_descriptor*> pointers(ivra_hw_accelerator_count_mmios(get()), nullptr);
    throw_if_failed(
        ivra_hw_accelerator_enumerate_all_mmios(get(), pointers.empty() ? nullptr : pointers.data(), pointers.size()));
    std::vector<mmio_descriptor> descriptors;
    descriptors.reserve(pointers.size());
    for (auto& handle : own_all(pointers, &ivra_hw_mmio_put_descriptor))
        descriptors.emplace_back(*this, std::move(handle));
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

std::vector<accelerator_descriptor> enumerate_accelerators()
{
    descriptor_pointers pointers(ivra_hw_count_accelerators(), nullptr);
    if (ivra_hw_enumerate_all_accelerators(pointers.data(), pointers.size()) < 0)
        return {};
    return describe(pointers);
}

std::vector<accelerator_descriptor> enumerate_accelerators(const accelerator_filter& filter)
{
    descriptor_pointers pointers(ivra_hw_count_accelerators(), nullptr);
    const int stored = ivra_hw_enumerate_accelerators(filter.get(), pointers.data(), pointers.size());
    pointers.resize(std::min(pointers.size(), static_cast<std::size_t>(std::max(stored, 0))));
    return describe(pointers);
}

} // namespace v5
} // namespace ivra::hw
