#include "libraries/handles.h"

#include "devices/i2c/i2c.h"

#include <algorithm>
#include <span>
#include <vector>

using namespace ivra::virtual_platform;

struct ivra_i2c : device_base<ivra_i2c, handle_kind::i2c>
{
    explicit ivra_i2c(const ivra_hw_core& core) : device_base{core, hardware_ids::i2c} {}
};

struct ivra_i2c_bus : handle_base<ivra_i2c_bus, handle_kind::bus>
{
    ivra_i2c_bus(std::shared_ptr<ivra_i2c> c, const i2c_bus_t& d) : controller{std::move(c)}, description{&d} {}
    const accelerator_t* device() const { return controller->device(); }

    std::shared_ptr<ivra_i2c> controller;
    const i2c_bus_t* description;
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
        const i2c_t& config = i2c->device()->i2c;
        if (config.pins != 0)
            c.store(pins, control_pins(config, i2c->state().i2c()));
        return config.pins;
    });
}

int ivra_i2c_write_control_pins(ivra_i2c* i2c, std::uint32_t pins)
{
    call c{__func__, device_of(i2c)};
    return c.with(hexadecimal_t{pins}).status([&] {
        require(i2c != nullptr);
        set_control_pins(i2c->device()->i2c, i2c->state().i2c(), pins);
    });
}

ivra_i2c_bus* ivra_i2c_get_bus(ivra_i2c* i2c, std::uint8_t index)
{
    call c{__func__, device_of(i2c)};
    return c.with(index).handle([&] {
        require(i2c != nullptr);
        const std::vector<i2c_bus_t>& buses = i2c->device()->i2c.buses;
        const auto found = std::ranges::find(buses, index, &i2c_bus_t::index);
        require(found != buses.end(), ENODEV);
        return ivra_i2c_bus::give(std::make_shared<ivra_i2c_bus>(i2c->shared_from_this(), *found));
    });
}

void ivra_i2c_bus_destroy(ivra_i2c_bus* bus)
{
    call c{__func__, device_of(bus)};
    c.nothing([&] { ivra_i2c_bus::take_back(bus); });
}

namespace {

/// One transfer on the bus of a call: `written`, and then `read`. Throws failure{ENXIO} when nothing answers.
void transfer(call& c, const ivra_i2c_bus& bus, std::uint8_t device, std::span<const std::uint8_t> written,
              std::span<std::uint8_t> read)
{
    mapped_file& file = bus.controller->state().i2c();
    const file_lock lock{file};
    const i2c_t& i2c = bus.controller->board().i2c; // as it is now that nobody else uses it
    const std::size_t answers = i2c_bus{i2c, *bus.description, file}.transfer(device, written, read, device_now());
    require(answers != 0, ENXIO);
    if (answers > 1)
        c.remark("warning: several devices answered at once");
    c.stored(read);
}

void check(const ivra_i2c_bus* bus, std::uint8_t device, const std::uint8_t* buffer, std::size_t size)
{
    constexpr std::uint8_t highest_address = 0x7F;
    require(bus != nullptr && (buffer != nullptr || size == 0) && device <= highest_address);
}

} // namespace

int ivra_i2c_bus_read(ivra_i2c_bus* bus, std::uint8_t device, std::uint8_t* buffer, std::size_t size)
{
    call c{__func__, device_of(bus)};
    return c.with(hexadecimal_t{device}, size).count([&] {
        check(bus, device, buffer, size);
        const std::span bytes{buffer, c.at_most(size)};
        transfer(c, *bus, device, {}, bytes);
        return bytes.size();
    });
}

int ivra_i2c_bus_write(ivra_i2c_bus* bus, std::uint8_t device, const std::uint8_t* buffer, std::size_t size)
{
    call c{__func__, device_of(bus)};
    return c.with(hexadecimal_t{device}, bytes_of(buffer, size)).count([&] {
        check(bus, device, buffer, size);
        const std::span bytes{buffer, c.at_most(size)};
        transfer(c, *bus, device, bytes, {});
        return bytes.size();
    });
}

int ivra_i2c_bus_read_register(ivra_i2c_bus* bus, std::uint8_t device, std::uint8_t reg, std::uint8_t* buffer,
                               std::size_t size)
{
    call c{__func__, device_of(bus)};
    return c.with(hexadecimal_t{device}, hexadecimal_t{reg}, size).count([&] {
        check(bus, device, buffer, size);
        const std::span bytes{buffer, c.at_most(size)};
        transfer(c, *bus, device, std::span{&reg, 1}, bytes);
        return bytes.size();
    });
}

int ivra_i2c_bus_write_register(ivra_i2c_bus* bus, std::uint8_t device, std::uint8_t reg, const std::uint8_t* buffer,
                                std::size_t size)
{
    call c{__func__, device_of(bus)};
    return c.with(hexadecimal_t{device}, hexadecimal_t{reg}, bytes_of(buffer, size)).count([&] {
        check(bus, device, buffer, size);
        const std::span bytes{buffer, c.at_most(size)};
        std::vector<std::uint8_t> written{reg};
        written.insert(written.end(), bytes.begin(), bytes.end());
        transfer(c, *bus, device, written, {});
        return bytes.size();
    });
}
