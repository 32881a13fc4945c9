#include "hw/i2c.h"

#include "hw/own.h"

#include <cerrno>
#include <utility>

namespace ivra::v6::i2c {

namespace {

hw::result<std::size_t> transferred(int platform_result)
{
    if (platform_result < 0)
        return hw::last_error();
    return static_cast<std::size_t>(platform_result);
}

} // namespace

i2c::i2c(const hw::core& core)
    : core_{core}, handle_{hw::own(ivra_i2c_create(core_.get()), &ivra_i2c_destroy, "Failed to create i2c object.")}
{
}

hw::result<std::optional<std::uint32_t>> i2c::read_control_pins() const
{
    std::uint32_t pins = 0;
    const int count = ivra_i2c_read_control_pins(get(), &pins);
    if (count < 0)
        return hw::last_error();
    return count == 0 ? std::nullopt : std::optional{pins};
}

std::error_code i2c::write_control_pins(std::uint32_t pins)
{
    if (ivra_i2c_write_control_pins(get(), pins) < 0)
        return hw::last_error();
    return {};
}

hw::result<bus> i2c::get_bus(std::uint8_t index) const
{
    ivra_i2c_bus* handle = ivra_i2c_get_bus(get(), index);
    if (handle == nullptr)
        return hw::last_error();
    return bus{*this, {handle, &ivra_i2c_bus_destroy}};
}

bus::bus(const i2c& controller, std::shared_ptr<ivra_i2c_bus> handle)
    : controller_{controller}, handle_{std::move(handle)}
{
}

hw::result<std::size_t> bus::read(std::uint8_t device, std::uint8_t* buffer, std::size_t size)
{
    return transferred(ivra_i2c_bus_read(handle_.get(), device, buffer, size));
}

hw::result<std::size_t> bus::write(std::uint8_t device, const std::uint8_t* buffer, std::size_t size)
{
    return transferred(ivra_i2c_bus_write(handle_.get(), device, buffer, size));
}

hw::result<std::size_t> bus::read_register(std::uint8_t device, std::uint8_t reg, std::uint8_t* buffer,
                                           std::size_t size)
{
    return transferred(ivra_i2c_bus_read_register(handle_.get(), device, reg, buffer, size));
}

hw::result<std::size_t> bus::write_register(std::uint8_t device, std::uint8_t reg, const std::uint8_t* buffer,
                                            std::size_t size)
{
    return transferred(ivra_i2c_bus_write_register(handle_.get(), device, reg, buffer, size));
}

bool is_no_answer(const std::error_code& error)
{
    // The platform says ENXIO; a driver below it may say EREMOTEIO.
    return error == std::error_code{ENXIO, std::generic_category()} ||
           error == std::error_code{EREMOTEIO, std::generic_category()};
}

} // namespace ivra::v6::i2c
