#include "libraries/handles.h"

using namespace ivra::virtual_platform;

struct ivra_i2c : device_base<ivra_i2c, handle_kind::i2c>
{
    explicit ivra_i2c(const ivra_hw_core& core) : device_base{core, hardware_ids::i2c} {}
};

/// No controller has a bus yet, so there are no objects of it.
struct ivra_i2c_bus : handle_base<ivra_i2c_bus, handle_kind::bus>
{
    explicit ivra_i2c_bus(std::shared_ptr<ivra_i2c> c) : controller{std::move(c)} {}
    const accelerator_t* device() const { return controller->device(); }

    std::shared_ptr<ivra_i2c> controller;
};

ivra_i2c* ivra_i2c_create(ivra_hw_core* core)
{
    call c{__func__, device_of(core)};
    return c.with(core).handle([&] {
        require(core != nullptr);
        return ivra_i2c::give(std::make_shared<ivra_i2c>(*core));
    });
}

void ivra_i2c_destroy(ivra_i2c* i2c)
{
    call c{__func__, device_of(i2c)};
    c.nothing([&] { ivra_i2c::take_back(i2c); });
}

int ivra_i2c_read_control_pins(ivra_i2c* i2c, std::uint32_t* pins)
{
    call c{__func__, device_of(i2c)};
    return c.count([&] {
        require(i2c != nullptr && pins != nullptr);
        return 0; // drives no pins
    });
}

int ivra_i2c_write_control_pins(ivra_i2c* i2c, std::uint32_t pins)
{
    call c{__func__, device_of(i2c)};
    return c.with(hexadecimal_t{pins}).status([&] { require(i2c != nullptr); });
}

ivra_i2c_bus* ivra_i2c_get_bus(ivra_i2c* i2c, std::uint8_t index)
{
    call c{__func__, device_of(i2c)};
    return c.with(index).handle([&]() -> ivra_i2c_bus* {
        require(i2c != nullptr);
        throw failure{ENODEV};
    });
}

void ivra_i2c_bus_destroy(ivra_i2c_bus* bus)
{
    call c{__func__, device_of(bus)};
    c.nothing([&] { ivra_i2c_bus::take_back(bus); });
}

namespace {

/// What every transfer checks first; nothing is on any bus.
std::size_t transfer(const ivra_i2c_bus* bus, std::uint8_t device, const std::uint8_t* buffer, std::size_t size)
{
    constexpr std::uint8_t highest_address = 0x7F;
    require(bus != nullptr && (buffer != nullptr || size == 0) && device <= highest_address);
    throw failure{ENXIO};
}

} // namespace

int ivra_i2c_bus_read(ivra_i2c_bus* bus, std::uint8_t device, std::uint8_t* buffer, std::size_t size)
{
    call c{__func__, device_of(bus)};
    return c.with(hexadecimal_t{device}, size).count([&] { return transfer(bus, device, buffer, c.at_most(size)); });
}

int ivra_i2c_bus_write(ivra_i2c_bus* bus, std::uint8_t device, const std::uint8_t* buffer, std::size_t size)
{
    call c{__func__, device_of(bus)};
    return c.with(hexadecimal_t{device}, bytes_of(buffer, size)).count([&] {
        return transfer(bus, device, buffer, c.at_most(size));
    });
}

int ivra_i2c_bus_read_register(ivra_i2c_bus* bus, std::uint8_t device, std::uint8_t reg, std::uint8_t* buffer,
                               std::size_t size)
{
    call c{__func__, device_of(bus)};
    return c.with(hexadecimal_t{device}, hexadecimal_t{reg}, size).count([&] {
        return transfer(bus, device, buffer, c.at_most(size));
    });
}

int ivra_i2c_bus_write_register(ivra_i2c_bus* bus, std::uint8_t device, std::uint8_t reg, const std::uint8_t* buffer,
                                std::size_t size)
{
    call c{__func__, device_of(bus)};
    return c.with(hexadecimal_t{device}, hexadecimal_t{reg}, bytes_of(buffer, size)).count([&] {
        return transfer(bus, device, buffer, c.at_most(size));
    });
}
