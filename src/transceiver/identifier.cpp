#include "transceiver/identifier.h"

#include "text/text_stream.h"

#include <ios>
#include <stdexcept>

namespace ivra::bsp::transceiver {

namespace {

struct identifier_t
{
    std::uint8_t value;
    std::string_view name;
};

// clang-format off
constexpr identifier_t identifiers[] = {
    {0x00, "Unknown"},
    {0x01, "GBIC"},
    {0x02, "Soldered module/connector"},
    {0x03, "SFP/SFP+/SFP28 or later"},
    {0x04, "300 pin XBI"},
    {0x05, "XENPACK"},
    {0x06, "XFP"},
    {0x07, "XFF"},
    {0x08, "XFP-E"},
    {0x09, "XPAK"},
    {0x0A, "X2"},
    {0x0B, "DWDM-SFP/SFP+"},
    {0x0C, "QSFP"},
    {0x0D, "QSFP+ or later"},
    {0x0E, "CXP or later"},
    {0x0F, "Shielded mini multilane HD 4X"},
    {0x10, "Shielded mini multilane HD 8X"},
    {0x11, "QSFP28 or later"},
    {0x12, "CXP2 (aka CXP28) or later"},
    {0x13, "CDFP (Style 1/Style 2)"},
    {0x14, "Shielded mini multilane HD 4X fanout cable"},
    {0x15, "Shielded mini multilane HD 4X fanout cable"}, // Deliberate: the same text as that of 0x14
    {0x16, "CDFP (Style 3)"},
    {0x17, "microQSFP"},
    {0x18, "QSFP-DD Double Density 8X pluggable transceiver"},
    {0x19, "QSFP 8X pluggable transceiver"},
    {0x1A, "SFP-DD Double Density 2X pluggable transceiver"},
    {0x1B, "DSFP Dual Small From Factor Pluggable transceiver"}, // Deliberate: spelt like this
    {0x1C, "x4 MiniLink/Oculink"},
    {0x1D, "x8 MiniLink"},
    {0x1E, "QSFP+ or later with Common Management Interface Specification (CMIS)"},
    {0xFF, "no transceiver detected"},
};
// clang-format on

} // namespace

std::optional<std::string_view> find_identifier_name(std::uint8_t identifier)
{
    for (const identifier_t& row : identifiers)
        if (row.value == identifier)
            return row.name;
    return std::nullopt;
}

std::string_view get_identifier_name(std::uint8_t identifier)
{
    return find_identifier_name(identifier).value_or("Unknown");
}

module_type_t get_module_type(std::uint8_t identifier)
{
    switch (identifier) {
    case 0x03:
        return module_type_t::sfp;
    case 0x0C:
    case 0x0D:
    case 0x11:
        return module_type_t::qsfp;
    case 0x18:
        return module_type_t::qsfp_dd;
    case 0xFF: // nothing drives the lines
        return module_type_t::none;
    default:
        break;
    }
    text_stream text;
    text << "Unsupported transceiver found with identifier 0x" << std::hex << unsigned{identifier};
    if (const auto name = find_identifier_name(identifier))
        text << " (" << *name << ")";
    throw std::runtime_error{text.str()};
}

} // namespace ivra::bsp::transceiver
