#ifndef IVRA_BOARD_HELPERS_H
#define IVRA_BOARD_HELPERS_H

#include "hw/core.h"
#include "hw/i2c.h"

#include <optional>

namespace ivra::bsp::board {

/// The I2C controller below `core`. A board without one still works for everything else, so a failure is only logged.
std::optional<v6::i2c::i2c> get_i2c(const hw::core& core);

/// What an operation does whose code is still to come: throws std::runtime_error.
[[noreturn]] void not_available_yet();

} // namespace ivra::bsp::board

#endif
