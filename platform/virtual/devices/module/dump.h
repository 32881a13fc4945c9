#ifndef IVRA_VIRTUAL_DEVICES_MODULE_DUMP_H
#define IVRA_VIRTUAL_DEVICES_MODULE_DUMP_H

#include "memory.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>

namespace ivra::virtual_platform {

inline constexpr std::uint8_t module_device = 0x50;
inline constexpr std::uint8_t diagnostics_device = 0x51; ///< the other half of an SFP
inline constexpr unsigned window = 256;                  ///< bytes that a module shows at once

/// Where 128 bytes of a module lie.
struct dump_place_t
{
    std::uint8_t device = module_device;
    bool is_upper = false;
    std::uint8_t bank = 0, page = 0; ///< of an upper half

    bool operator==(const dump_place_t&) const = default;
    bool operator<(const dump_place_t& other) const
    {
        return std::tie(device, is_upper, bank, page) < std::tie(other.device, other.is_upper, other.bank, other.page);
    }
};

/// "the lower half of device 50h", "page 11h" or "page 11h of bank 2".
std::string text_of(const dump_place_t& place);

struct dump_page_t
{
    block_t bytes{};
    std::size_t line = 0; ///< of its first byte, from 1; 0 in a binary file

    bool operator==(const dump_page_t&) const = default;
};

/// The memory that a dump holds, as far as it goes: every page of it is whole.
struct dump_t
{
    std::map<dump_place_t, dump_page_t> pages;
    std::size_t last_line = 0; ///< with bytes; 0 of a binary file

    bool operator==(const dump_t&) const = default;
};

/// Which part of a module some bytes are, as far as anybody says.
struct dump_label_t
{
    std::optional<std::uint8_t> device;
    std::optional<bool> is_upper;
    std::optional<std::uint8_t> page;
    std::uint8_t bank = 0;
    std::optional<unsigned> start; ///< byte of the module at address 0; nothing: addresses are the module's

    bool operator==(const dump_label_t&) const = default;
};

/// What a dump does not say and somebody else knows.
struct dump_hint_t
{
    std::optional<memory_map_t> map;   ///< instead of the identifier's
    std::optional<dump_label_t> label; ///< of the one page that is to be taken from it
};

/// A dump that is not the memory of a module, or not surely.
class dump_error : public std::runtime_error
{
public:
    dump_error(std::size_t number, const std::string& what) : std::runtime_error{what}, line{number} {}

    std::size_t line; ///< from 1; 0: not of a line
};

/// Reads what a program has printed or stored of a module's memory: a binary file, or a text in one of the usual
/// layouts, with the headings or command lines that say which page it is. Throws dump_error.
dump_t read_dump(std::string_view file, const dump_hint_t& hint = {});

} // namespace ivra::virtual_platform

#endif
