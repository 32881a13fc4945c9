#include "board/helpers.h"

#include <ivra/log.h>

#include <stdexcept>
#include <system_error>

namespace ivra::bsp::board {

std::optional<v6::i2c::i2c> get_i2c(const hw::core& core)
{
    try {
        return v6::i2c::i2c{core};
    } catch (const std::system_error& error) {
        ivra_log_log(IVRA_LOG_WARNING, __FILE__, __LINE__, __func__, "Could not create I2C subsystem: %s",
                     error.what());
        return std::nullopt;
    }
}

void not_available_yet()
{
    throw std::runtime_error{"Not available yet"};
}

} // namespace ivra::bsp::board
