#ifndef IVRA_VIRTUAL_DEVICES_MODULE_H
#define IVRA_VIRTUAL_DEVICES_MODULE_H

#include "rack/i2c.h"
#include "state/mapped_file.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace ivra::virtual_platform {

/// The module in a cage, with the memory that the board remembers. Throws std::system_error.
module_t remembered(const i2c_t& i2c, std::size_t cage, const mapped_file& file);

enum class power_mode_t
{
    none, ///< an SFP, or a CMIS module of flat memory: it knows no such thing
    high,
    low
};

/// The host decides whether a module saves power, or leaves it to the pin of its cage.
power_mode_t power_mode_of(const module_t& module);

/// The place that a host reaches at a byte of device 0x50, or of 0x51, which is the other half of an SFP.
std::size_t place_of(const module_t& module, bool is_second_device, std::uint8_t at);

/// A byte as its host reads it, of a module that was `start` when it was plugged in.
std::uint8_t visible_byte(const module_t& module, const module_t& start, std::size_t place);

/// What becomes of a byte that its host writes; nothing: it stays as it is.
std::optional<std::uint8_t> written_byte(const module_t& module, std::size_t place, std::uint8_t value);

} // namespace ivra::virtual_platform

#endif
