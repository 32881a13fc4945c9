#ifndef IVRA_BOARD_HELPERS_H
#define IVRA_BOARD_HELPERS_H

#include "hw/core.h"
#include "hw/i2c.h"
#include "hw/mutex.h"

#include <optional>
#include <string>

namespace ivra::bsp::board {

/// A management controller that was to be brought up: itself, or why it could not be.
template <class Controller>
struct brought_up_t
{
    std::optional<Controller> controller;
    std::string failure;
};

/// The I2C controller below `core`. A board without one still works for everything else, so a failure is only logged.
std::optional<v6::i2c::i2c> get_i2c(const hw::core& core);

/// Throws std::runtime_error, which says that `what` cannot be done, for a board without an I2C controller.
void require_i2c(const std::optional<v6::i2c::i2c>& controller, const char* what);

/// Lock for what is behind a controller: whoever selects a channel or uses a device holds it from the first transfer or
/// pin access to the last one, so that no other process comes in between. Throws std::system_error.
mutex make_i2c_mutex(const v6::i2c::i2c& controller);

/// What went wrong when a bus of the controller is not there.
inline constexpr const char* cannot_get_i2c_bus = "Cannot get I2C bus";

/// Connects the I2C bus of a board to its devices: sets control pin 0 and leaves the others as they are. Throws
/// std::system_error, with ERANGE when the controller drives no pins.
void enable_i2c(v6::i2c::i2c& controller);

} // namespace ivra::bsp::board

#endif
