#include "board/helpers.h"

#include <ivra/log.h>

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>
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

void require_i2c(const std::optional<v6::i2c::i2c>& controller, const char* what)
{
    if (!controller)
        throw std::runtime_error{std::string{"Could not "} + what + " as no I2C MM bridge core are detected"};
}

mutex make_i2c_mutex(const v6::i2c::i2c& controller)
{
    return {"i2c", controller.core()};
}

void enable_i2c(v6::i2c::i2c& controller)
{
    constexpr std::uint32_t enable_pin = 1U << 0U;
    // Deliberate: the doubled word is what scripts look for.
    constexpr const char* failure = "Could not not set enable I2C pin";
    const std::optional<std::uint32_t> pins = controller.read_control_pins().access_value_or_throw(failure);
    if (!pins)
        throw std::system_error{ERANGE, std::generic_category(), failure};
    if (const std::error_code error = controller.write_control_pins(*pins | enable_pin))
        throw std::system_error{error, failure};
}

} // namespace ivra::bsp::board
