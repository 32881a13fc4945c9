#include "devices/module/module.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace ivra::virtual_platform {

namespace {

// clang-format off
constexpr text_field_t sfp_texts[] = { // SFF-8472, table 4-1
    {"vendor_name", 20, 16}, {"vendor_pn", 40, 16}, {"vendor_rev", 56, 4}, {"vendor_sn", 68, 16}, {"date_code", 84, 8},
};
constexpr text_field_t qsfp_texts[] = { // SFF-8636, table 6-14
    {"vendor_name", 148, 16}, {"vendor_pn", 168, 16}, {"vendor_rev", 184, 2}, {"vendor_sn", 196, 16}, {"date_code", 212, 8},
};
constexpr text_field_t cmis_texts[] = { // CMIS, page 00h
    {"vendor_name", 129, 16}, {"vendor_pn", 148, 16}, {"vendor_rev", 164, 2}, {"vendor_sn", 166, 16}, {"date_code", 182, 8},
};
// clang-format on

constexpr std::size_t page_select = 127;

/// Places that a host can write.
struct range_t
{
    memory_map_t map;
    std::size_t first, last;
};

// clang-format off
constexpr range_t writable[] = {
    {memory_map_t::sfp,  a2(110), a2(110)},                 // optional control
    {memory_map_t::sfp,  a2(128), a2(247)},                 // the user's EEPROM
    {memory_map_t::qsfp, 86, 106},                          // control, and masks of interrupts
    {memory_map_t::qsfp, 119, page_select},                 // passwords and page
    {memory_map_t::qsfp, upper(0x02, 128), upper(0x02, 255)}, // the user's EEPROM
    {memory_map_t::qsfp, upper(0x03, 226), upper(0x03, 251)}, // control of channels
    {memory_map_t::cmis, 26, 26},                           // control of the module
    {memory_map_t::cmis, 31, 36},                           // masks of interrupts
    {memory_map_t::cmis, 118, page_select},                 // passwords, bank and page
    {memory_map_t::cmis, upper(0x03, 128), upper(0x03, 255)}, // the user's EEPROM
    {memory_map_t::cmis, upper(0x10, 128), upper(0x10, 255)}, // control of lanes
};
// clang-format on

constexpr std::size_t writable_size(memory_map_t map)
{
    std::size_t size = 0;
    for (const range_t& range : writable)
        size += range.map == map ? range.last - range.first + 1 : 0;
    return size;
}

static_assert(writable_size(memory_map_t::sfp) <= most_writable && writable_size(memory_map_t::qsfp) <= most_writable &&
              writable_size(memory_map_t::cmis) == most_writable);

// SFF-8636, byte 93.
constexpr std::size_t qsfp_power_control = 93;
constexpr std::uint8_t qsfp_override = 0x01;
constexpr std::uint8_t qsfp_low_power = 0x02;
constexpr std::size_t qsfp_extended_identifier = 129; // power class 1 in bits 7 and 6: 0
constexpr std::uint8_t qsfp_power_class = 0xc0;

// CMIS, bytes 3 and 26.
constexpr std::size_t cmis_state = 3;
constexpr std::uint8_t cmis_state_mask = 0x0e;
constexpr std::uint8_t cmis_state_low_power = 1U << 1U;
constexpr std::uint8_t cmis_state_ready = 3U << 1U;
constexpr std::size_t cmis_control = 26;
constexpr std::uint8_t cmis_low_power_by_software = 0x10;
constexpr std::uint8_t cmis_low_power_by_pin = 0x40;
constexpr std::uint8_t cmis_data_path_deactivated = 0x11; // of two lanes
constexpr std::uint8_t cmis_data_path_activated = 0x44;

bool is_flat(const module_t& module)
{
    constexpr std::uint8_t qsfp_flat = 0x04;
    constexpr std::uint8_t cmis_flat = 0x80;
    return (module.byte(2) & (module.map == memory_map_t::cmis ? cmis_flat : qsfp_flat)) != 0;
}

bool is_within(std::size_t place, std::size_t first, std::size_t last)
{
    return place >= first && place <= last;
}

/// Whether a place measures the transmitters.
bool is_of_transmitter(const module_t& module, std::size_t place)
{
    if (module.map == memory_map_t::qsfp)
        return is_within(place, 42, 57);                                   // bias and power
    return is_within(place, upper(lane_page, 154), upper(lane_page, 185)); // power and bias
}

bool saves_power(const module_t& module)
{
    return power_mode_of(module) == power_mode_t::low;
}

/// A module of power class 1 need not switch anything off.
bool transmitters_are_off(const module_t& module)
{
    return saves_power(module) &&
           (module.map == memory_map_t::cmis || (module.byte(qsfp_extended_identifier) & qsfp_power_class) != 0);
}

} // namespace

std::span<const text_field_t> text_fields(memory_map_t map)
{
    switch (map) {
    case memory_map_t::sfp:
        return sfp_texts;
    case memory_map_t::qsfp:
        return qsfp_texts;
    case memory_map_t::cmis:
        break;
    }
    return cmis_texts;
}

std::string text_of(const module_t& module, const text_field_t& field)
{
    std::string text;
    for (std::size_t at = 0; at < field.size; ++at)
        text += static_cast<char>(module.byte(field.place + at));
    constexpr std::string_view filling{" \0", 2};
    text.erase(text.find_last_not_of(filling) + 1);
    return text;
}

void complete(module_t& module)
{
    module.blocks[0];
    module.blocks[1];
    if (module.map == memory_map_t::sfp && (module.has_block(2) || module.has_block(3))) {
        module.blocks[2];
        module.blocks[3];
    }
}

std::uint8_t module_t::byte(std::size_t place) const
{
    const auto block = blocks.find(static_cast<unsigned>(place / block_size));
    return block == blocks.end() ? std::uint8_t{0} : block->second.at(place % block_size);
}

void module_t::set_byte(std::size_t place, std::uint8_t value)
{
    blocks[static_cast<unsigned>(place / block_size)].at(place % block_size) = value;
}

power_mode_t power_mode_of(const module_t& module)
{
    if (module.map == memory_map_t::sfp || (module.map == memory_map_t::cmis && is_flat(module)))
        return power_mode_t::none;
    bool is_low = false;
    if (module.map == memory_map_t::qsfp) {
        const std::uint8_t control = module.byte(qsfp_power_control);
        is_low = (control & qsfp_override) != 0 ? (control & qsfp_low_power) != 0 : module.low_power_pin;
    } else {
        const std::uint8_t control = module.byte(cmis_control);
        is_low = (control & cmis_low_power_by_software) != 0 ||
                 ((control & cmis_low_power_by_pin) != 0 && module.low_power_pin);
    }
    return is_low ? power_mode_t::low : power_mode_t::high;
}

std::size_t place_of(const module_t& module, bool is_second_device, std::uint8_t at)
{
    if (is_second_device)
        return a2(at);
    if (module.map == memory_map_t::sfp || at < block_size || is_flat(module))
        return at;
    const std::uint8_t page = module.byte(page_select);
    return upper(module.has_block(page + std::size_t{1}) ? page : std::size_t{0}, at);
}

std::uint8_t visible_byte(const module_t& module, const module_t& start, std::size_t place)
{
    if (module.captured && power_mode_of(module) == power_mode_of(start))
        return module.byte(place); // it was read in this mode
    if (module.map == memory_map_t::cmis && place == cmis_state) {
        const std::uint8_t state = saves_power(module) ? cmis_state_low_power : cmis_state_ready;
        return static_cast<std::uint8_t>((module.byte(place) & ~cmis_state_mask) | state);
    }
    if (module.map == memory_map_t::cmis && is_within(place, upper(lane_page, 128), upper(lane_page, 131)) &&
        module.has_block(place / block_size))
        return saves_power(module) ? cmis_data_path_deactivated : cmis_data_path_activated;
    if (module.map != memory_map_t::sfp && is_of_transmitter(module, place) && transmitters_are_off(module))
        return 0;
    return module.byte(place);
}

std::optional<std::uint8_t> written_byte(const module_t& module, std::size_t place, std::uint8_t value)
{
    const bool is_writable = std::ranges::any_of(writable, [&](const range_t& range) {
        return range.map == module.map && is_within(place, range.first, range.last);
    });
    if (!is_writable || !module.has_block(place / block_size))
        return std::nullopt;
    if (module.map != memory_map_t::sfp && place == page_select &&
        (is_flat(module) || !module.has_block(value + std::size_t{1})))
        return std::uint8_t{0};
    return value;
}

std::vector<std::uint8_t> writable_bytes(const module_t& module)
{
    std::vector<std::uint8_t> bytes;
    for (const range_t& range : writable)
        for (std::size_t place = range.first; range.map == module.map && place <= range.last; ++place)
            bytes.push_back(module.byte(place));
    return bytes;
}

void set_writable_bytes(module_t& module, std::span<const std::uint8_t> bytes)
{
    std::size_t index = 0;
    for (const range_t& range : writable) { // each lies in one block
        if (range.map != module.map)
            continue;
        const std::size_t size = range.last - range.first + 1;
        const auto block = module.blocks.find(static_cast<unsigned>(range.first / block_size));
        if (block != module.blocks.end())
            std::ranges::copy(bytes.subspan(index, size), block->second.begin() + range.first % block_size);
        index += size;
    }
}

std::size_t writable_index(const module_t& module, std::size_t place)
{
    std::size_t index = 0;
    for (const range_t& range : writable) {
        if (range.map != module.map)
            continue;
        if (is_within(place, range.first, range.last))
            return index + (place - range.first);
        index += range.last - range.first + 1;
    }
    return index;
}

} // namespace ivra::virtual_platform
