#ifndef IVRA_VIRTUAL_DEVICES_I2C_H
#define IVRA_VIRTUAL_DEVICES_I2C_H

#include "state/clock.h"
#include "state/state.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace ivra::virtual_platform {

/// The word of the pins beside an I2C controller; those that it does not drive are 0. Each throws std::system_error.
std::uint32_t control_pins(const i2c_t& i2c, const board_state& state);
void set_control_pins(const i2c_t& i2c, board_state& state, std::uint32_t pins);

/// One bus of an I2C controller as its master sees it. Arguments outlive it.
class i2c_bus
{
public:
    i2c_bus(const i2c_t& i2c, const i2c_bus_t& bus, board_state& state) : i2c_{i2c}, bus_{bus}, state_{state} {}

    /// One transfer with whatever answers at a 7-bit address: bytes that are written, and then, after a repeated start,
    /// bytes that are read. Returns how many devices answered, and does nothing when none did. Bytes of several are
    /// those that all of them let be ones. Throws std::system_error.
    std::size_t transfer(std::uint8_t address, std::span<const std::uint8_t> written, std::span<std::uint8_t> read,
                         device_time now);

private:
    bool is_reachable(const i2c_device_t& device) const;

    const i2c_t& i2c_;
    const i2c_bus_t& bus_;
    board_state& state_;
};

} // namespace ivra::virtual_platform

#endif
