#ifndef IVRA_VIRTUAL_DEVICES_I2C_I2C_H
#define IVRA_VIRTUAL_DEVICES_I2C_I2C_H

#include "devices/i2c/config.h"
#include "memory/clock.h"
#include "memory/mapped_file.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace ivra::virtual_platform {

/// The module in a cage, with the memory that the board remembers in its file. Throws std::system_error.
module_t remembered(const i2c_t& i2c, std::size_t cage, const mapped_file& file);

/// The word of the pins beside an I2C controller; those that it does not drive are 0. Each throws std::system_error.
std::uint32_t control_pins(const i2c_t& i2c, const mapped_file& file);
void set_control_pins(const i2c_t& i2c, mapped_file& file, std::uint32_t pins);

/// One bus of an I2C controller as its master sees it. Arguments outlive it.
class i2c_bus
{
public:
    i2c_bus(const i2c_t& i2c, const i2c_bus_t& bus, mapped_file& file) : i2c_{i2c}, bus_{bus}, file_{file} {}

    /// One transfer with whatever answers at a 7-bit address: bytes that are written, and then, after a repeated start,
    /// bytes that are read. Returns how many devices answered, and does nothing when none did. Bytes of several are
    /// those that all of them let be ones. The file is locked. Throws std::system_error.
    std::size_t transfer(std::uint8_t address, std::span<const std::uint8_t> written, std::span<std::uint8_t> read,
                         device_time now);

private:
    bool is_reachable(const i2c_device_t& device) const;

    const i2c_t& i2c_;
    const i2c_bus_t& bus_;
    mapped_file& file_;
};

} // namespace ivra::virtual_platform

#endif
