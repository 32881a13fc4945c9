#include "module.h"

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

std::uint8_t module_t::byte(std::size_t place) const
{
    const auto block = blocks.find(static_cast<unsigned>(place / block_size));
    return block == blocks.end() ? std::uint8_t{0} : block->second.at(place % block_size);
}

void module_t::set_byte(std::size_t place, std::uint8_t value)
{
    blocks[static_cast<unsigned>(place / block_size)].at(place % block_size) = value;
}

} // namespace ivra::virtual_platform
