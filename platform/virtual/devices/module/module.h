#ifndef IVRA_VIRTUAL_DEVICES_MODULE_MODULE_H
#define IVRA_VIRTUAL_DEVICES_MODULE_MODULE_H

#include "devices/module/memory.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace ivra::virtual_platform {

/// A transceiver as it is plugged in. Its memory is counted in bytes from the start of block 0:
/// block 0 is the lower half of A0h or the lower page, block 1 the upper half of A0h or page 00h, and then come the
/// halves of A2h, or block n is page n - 1.
struct module_t
{
    memory_map_t map = memory_map_t::qsfp;
    std::map<unsigned, block_t> blocks; ///< 0 and 1 are always there
    bool low_power_pin = false;         ///< whether its cage's pin asks it to save power
    bool captured = false; ///< the memory is that of a real one: it tells its state until the host sets the power mode

    std::uint8_t byte(std::size_t place) const;
    void set_byte(std::size_t place, std::uint8_t value); ///< makes the block when there is none
    bool has_block(std::size_t block) const { return blocks.contains(static_cast<unsigned>(block)); }

    bool operator==(const module_t&) const = default;
};

inline constexpr std::size_t last_block = 256; ///< page FFh

/// Adds the halves that are always there.
void complete(module_t& module);

/// Where a text lies in a module, and what a rack calls it. It is filled with spaces.
struct text_field_t
{
    const char* member;
    std::size_t place, size;
};

/// The texts of a module: first the vendor's name, then its part number.
std::span<const text_field_t> text_fields(memory_map_t map);

/// A text without what fills it at its end.
std::string text_of(const module_t& module, const text_field_t& field);

/// The place of byte `offset`, 128 to 255, of an upper page.
constexpr std::size_t upper(std::size_t page, std::size_t offset)
{
    return block_size * page + offset;
}

/// The place of a byte of A2h.
constexpr std::size_t a2(std::size_t offset)
{
    return 2 * block_size + offset;
}

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

/// How many bytes of a module a host can write, at most.
inline constexpr std::size_t most_writable = 273;
/// Those that the host can write, one after the other, and the same put back; bytes behind them are not looked at.
std::vector<std::uint8_t> writable_bytes(const module_t& module);
void set_writable_bytes(module_t& module, std::span<const std::uint8_t> bytes);
/// Where a place that can be written is among them.
std::size_t writable_index(const module_t& module, std::size_t place);

} // namespace ivra::virtual_platform

#endif
