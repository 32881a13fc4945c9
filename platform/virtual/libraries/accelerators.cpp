#include "libraries/handles.h"
#include "libraries/session.h"

#include <algorithm>

using namespace ivra::virtual_platform;

struct ivra_hw_filter : handle_base<ivra_hw_filter, handle_kind::filter>
{
    std::optional<std::uint32_t> index;
    std::optional<std::string> name;

    bool selects(const ivra_hw_properties& properties) const
    {
        return (!index || *index == properties.index) && (!name || name == properties.name);
    }
};

namespace {

/// Gives out handles, as many as fit; returns how many. Nothing can fail any more.
template <class T>
std::size_t give_all(std::vector<std::shared_ptr<T>> objects, std::size_t capacity, const T** handles)
{
    const std::size_t count = std::min(objects.size(), capacity);
    for (std::size_t i = 0; i < count; ++i)
        handles[i] = T::give(std::move(objects[i]));
    return count;
}

std::size_t enumerate(const ivra_hw_filter& filter, const ivra_hw_accelerator_descriptor** descriptors,
                      std::size_t capacity)
{
    require(descriptors != nullptr || capacity == 0);
    std::vector<std::shared_ptr<ivra_hw_accelerator_descriptor>> found;
    std::uint32_t index = 0;
    for (const accelerator_t& accelerator : session::instance().rack().accelerators) {
        ivra_hw_properties properties{&accelerator, index++, accelerator.name, accelerator.uid};
        if (found.size() < capacity && filter.selects(properties))
            found.push_back(std::make_shared<ivra_hw_accelerator_descriptor>(std::move(properties)));
    }
    return give_all(std::move(found), capacity, descriptors);
}

} // namespace

// ---- properties

int ivra_hw_prop_get_index(const ivra_hw_properties* properties, std::uint32_t* index)
{
    call c{__func__, device_of(properties)};
    return c.status([&] {
        require(properties != nullptr && index != nullptr);
        c.store(index, properties->index);
    });
}

int ivra_hw_prop_get_name(const ivra_hw_properties* properties, char* buffer, std::size_t size)
{
    call c{__func__, device_of(properties)};
    return c.with(size).count([&] {
        require(properties != nullptr && buffer != nullptr);
        require(properties->name.has_value(), ENOENT);
        return c.store_text(*properties->name, buffer, size);
    });
}

int ivra_hw_prop_get_uid(const ivra_hw_properties* properties, char* buffer, std::size_t size)
{
    call c{__func__, device_of(properties)};
    return c.with(size).count([&] {
        require(properties != nullptr);
        return c.store_text(properties->uid, buffer, size);
    });
}

// ---- accelerators

std::size_t ivra_hw_count_accelerators(void)
{
    call c{__func__};
    return c.size([] { return session::instance().rack().accelerators.size(); });
}

int ivra_hw_enumerate_all_accelerators(const ivra_hw_accelerator_descriptor** descriptors, std::size_t capacity)
{
    call c{__func__};
    return c.with(capacity).count([&] { return enumerate(ivra_hw_filter{}, descriptors, c.at_most(capacity)); });
}

int ivra_hw_enumerate_accelerators(const ivra_hw_filter* filter, const ivra_hw_accelerator_descriptor** descriptors,
                                   std::size_t capacity)
{
    call c{__func__};
    return c.with(capacity).count([&] {
        require(filter != nullptr);
        return enumerate(*filter, descriptors, c.at_most(capacity));
    });
}

void ivra_hw_accelerator_put_descriptor(const ivra_hw_accelerator_descriptor* descriptor)
{
    call c{__func__, device_of(descriptor)};
    c.nothing([&] { ivra_hw_accelerator_descriptor::take_back(descriptor); });
}

const ivra_hw_properties* ivra_hw_accelerator_get_properties(const ivra_hw_accelerator_descriptor* descriptor)
{
    call c{__func__, device_of(descriptor)};
    return c.handle([&] {
        require(descriptor != nullptr);
        return &descriptor->properties;
    });
}

ivra_hw_filter* ivra_hw_filter_create(void)
{
    call c{__func__};
    return c.handle([] { return ivra_hw_filter::give(std::make_shared<ivra_hw_filter>()); });
}

int ivra_hw_filter_set_index(ivra_hw_filter* filter, std::uint32_t index)
{
    call c{__func__};
    return c.with(index).status([&] {
        require(filter != nullptr);
        filter->index = index;
    });
}

int ivra_hw_filter_set_name(ivra_hw_filter* filter, const char* name)
{
    call c{__func__};
    return c.with(name).status([&] {
        require(filter != nullptr && name != nullptr);
        filter->name = name;
    });
}

void ivra_hw_filter_destroy(ivra_hw_filter* filter)
{
    call c{__func__};
    c.nothing([&] { ivra_hw_filter::take_back(filter); });
}

ivra_hw_accelerator* ivra_hw_accelerator_get(const ivra_hw_accelerator_descriptor* descriptor)
{
    call c{__func__, device_of(descriptor)};
    return c.handle([&] {
        require(descriptor != nullptr);
        const accelerator_t& accelerator = *descriptor->device();
        require(accelerator.open_error == 0, accelerator.open_error);
        board_state state = board_state::open(session::instance().rack(), accelerator);
        if (!state.restart_reason().empty())
            log_message(IVRA_LOG_INFO, "ivra_hw_accelerator_get",
                        "Board " + accelerator.uid + " starts anew: " + state.restart_reason());
        return ivra_hw_accelerator::give(std::make_shared<ivra_hw_accelerator>(accelerator, std::move(state)));
    });
}

void ivra_hw_accelerator_put(ivra_hw_accelerator* accelerator)
{
    call c{__func__, device_of(accelerator)};
    c.nothing([&] { ivra_hw_accelerator::take_back(accelerator); });
}

// ---- MMIO spaces

std::size_t ivra_hw_accelerator_count_mmios(const ivra_hw_accelerator* accelerator)
{
    call c{__func__, device_of(accelerator)};
    return c.size([&] {
        require(accelerator != nullptr);
        return std::size_t{accelerator->description->mmios};
    });
}

int ivra_hw_accelerator_enumerate_all_mmios(ivra_hw_accelerator* accelerator,
                                            const ivra_hw_mmio_descriptor** descriptors, std::size_t capacity)
{
    call c{__func__, device_of(accelerator)};
    return c.with(capacity).count([&] {
        require(accelerator != nullptr && (descriptors != nullptr || capacity == 0));
        const accelerator_t* description = accelerator->description;
        const std::size_t limit = c.at_most(capacity);
        std::vector<std::shared_ptr<ivra_hw_mmio_descriptor>> found;
        for (std::uint32_t index = 0; index < description->mmios && found.size() < limit; ++index) {
            ivra_hw_properties properties{description, index, std::nullopt,
                                          description->uid + "/mmio" + std::to_string(index)};
            found.push_back(
                std::make_shared<ivra_hw_mmio_descriptor>(accelerator->shared_from_this(), std::move(properties)));
        }
        return give_all(std::move(found), limit, descriptors);
    });
}

void ivra_hw_mmio_put_descriptor(const ivra_hw_mmio_descriptor* descriptor)
{
    call c{__func__, device_of(descriptor)};
    c.nothing([&] { ivra_hw_mmio_descriptor::take_back(descriptor); });
}

const ivra_hw_properties* ivra_hw_mmio_descriptor_get_properties(const ivra_hw_mmio_descriptor* descriptor)
{
    call c{__func__, device_of(descriptor)};
    return c.handle([&] {
        require(descriptor != nullptr);
        return &descriptor->properties;
    });
}

ivra_hw_mmio* ivra_hw_mmio_create(const ivra_hw_mmio_descriptor* descriptor)
{
    call c{__func__, device_of(descriptor)};
    return c.handle([&] {
        require(descriptor != nullptr);
        return ivra_hw_mmio::give(std::make_shared<ivra_hw_mmio>(descriptor->shared_from_this()));
    });
}

const ivra_hw_mmio_descriptor* ivra_hw_mmio_get_descriptor(const ivra_hw_mmio* mmio)
{
    call c{__func__, device_of(mmio)};
    return c.handle([&] {
        require(mmio != nullptr);
        return mmio->descriptor.get();
    });
}

void ivra_hw_mmio_destroy(ivra_hw_mmio* mmio)
{
    call c{__func__, device_of(mmio)};
    c.nothing([&] { ivra_hw_mmio::take_back(mmio); });
}
