#ifndef IVRA_BOARD_CLOCKS_LOAD_H
#define IVRA_BOARD_CLOCKS_LOAD_H

#include "board/clocks/tables.h"
#include "hw/i2c.h"

#include <cstdint>
#include <optional>

namespace ivra::bsp::clocks {

/// Writes one register, and pauses as the clock generator needs it after each write. Throws std::system_error.
void i2c_write(v6::i2c::bus& bus, std::uint8_t device, std::uint8_t reg, std::uint8_t value);

/// Loads the clock generator with a table, which takes more than a second and restarts all its outputs. Throws
/// std::system_error; the generator then stays partly programmed.
void load(v6::i2c::bus& bus, table_t& table);

/// The same, over the controller of the board and under its lock; signals that end the process take effect when it is
/// through. Throws std::system_error also when the lock cannot be had, std::runtime_error without a controller.
void load(const std::optional<v6::i2c::i2c>& controller, table_t& table);

} // namespace ivra::bsp::clocks

#endif
