#ifndef IVRA_HW_I2C_H
#define IVRA_HW_I2C_H

#include "hw/core.h"
#include "hw/result.h"

#include <ivra/i2c.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>

namespace ivra::v6::i2c {

class bus;

/// The I2C controller of a design.
class i2c
{
public:
    /// Throws std::system_error.
    explicit i2c(const hw::core& core);

    /// Bit n is output pin n; nothing when the controller drives no pins.
    hw::result<std::optional<std::uint32_t>> read_control_pins() const;
    /// An error value of 0 means success.
    std::error_code write_control_pins(std::uint32_t pins);

    hw::result<bus> get_bus(std::uint8_t index) const;

    const hw::core& core() const { return core_; } ///< that it was made on
    ivra_i2c* get() const { return handle_.get(); }

private:
    hw::core core_;
    std::shared_ptr<ivra_i2c> handle_;
};

/// One bus of a controller. A transfer returns the bytes transferred, which may be fewer than asked for; `device` is a
/// 7-bit address.
class bus
{
public:
    hw::result<std::size_t> read(std::uint8_t device, std::uint8_t* buffer, std::size_t size);
    hw::result<std::size_t> write(std::uint8_t device, const std::uint8_t* buffer, std::size_t size);
    hw::result<std::size_t> read_register(std::uint8_t device, std::uint8_t reg, std::uint8_t* buffer,
                                          std::size_t size);
    hw::result<std::size_t> write_register(std::uint8_t device, std::uint8_t reg, const std::uint8_t* buffer,
                                           std::size_t size);

private:
    friend hw::result<bus> i2c::get_bus(std::uint8_t index) const;
    bus(const i2c& controller, std::shared_ptr<ivra_i2c_bus> handle);

    i2c controller_;
    std::shared_ptr<ivra_i2c_bus> handle_;
};

/// Whether a transfer failed because no device acknowledged its address, and not half-way.
bool is_no_answer(const std::error_code& error);

} // namespace ivra::v6::i2c

#endif
