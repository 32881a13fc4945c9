#include "transceiver/identifier.h"

#include "records/transceiver_info.h"
#include "text/text_stream.h"

#include <ios>
#include <optional>
#include <stdexcept>

namespace ivra::bsp::transceiver {

namespace {

struct identifier_t
{
    std::uint8_t value;
    std::string_view name;
    std::optional<module_type_t> type = std::nullopt; ///< of the modules that can be read
};

// clang-format off
constexpr identifier_t identifiers[] = {
    {0x00, "Unknown"},
    {0x01, "GBIC"},
    {0x02, "Soldered module/connector"},
    {0x03, "SFP/SFP+/SFP28 or later", module_type_t::sfp},
    {0x04, "300 pin XBI"},
    {0x05, "XENPACK"},
    {0x06, "XFP"},
    {0x07, "XFF"},
    {0x08, "XFP-E"},
    {0x09, "XPAK"},
    {0x0A, "X2"},
    {0x0B, "DWDM-SFP/SFP+"},
    {0x0C, "QSFP", module_type_t::qsfp},
    {0x0D, "QSFP+ or later", module_type_t::qsfp},
    {0x0E, "CXP or later"},
    {0x0F, "Shielded mini multilane HD 4X"},
    {0x10, "Shielded mini multilane HD 8X"},
    {0x11, "QSFP28 or later", module_type_t::qsfp},
    {0x12, "CXP2 (aka CXP28) or later"},
    {0x13, "CDFP (Style 1/Style 2)"},
    {0x14, "Shielded mini multilane HD 4X fanout cable"},
    {0x15, "Shielded mini multilane HD 4X fanout cable"}, // Deliberate: the same text as that of 0x14
    {0x16, "CDFP (Style 3)"},
    {0x17, "microQSFP"},
    {0x18, "QSFP-DD Double Density 8X pluggable transceiver", module_type_t::qsfp_dd},
    {0x19, "QSFP 8X pluggable transceiver"},
    {0x1A, "SFP-DD Double Density 2X pluggable transceiver"},
    {0x1B, "DSFP Dual Small From Factor Pluggable transceiver"}, // Deliberate: spelt like this
    {0x1C, "x4 MiniLink/Oculink"},
    {0x1D, "x8 MiniLink"},
    {0x1E, "QSFP+ or later with Common Management Interface Specification (CMIS)"},
    {0xFF, no_transceiver, module_type_t::none}, // nothing drives the lines
};
// clang-format on

const identifier_t* find(std::uint8_t identifier)
{
    for (const identifier_t& row : identifiers)
        if (row.value == identifier)
            return &row;
    return nullptr;
}

} // namespace

std::string_view get_identifier_name(std::uint8_t identifier)
{
    const identifier_t* row = find(identifier);
    return row == nullptr ? "Unknown" : row->name;
}

module_type_t get_module_type(std::uint8_t identifier)
{
    const identifier_t* row = find(identifier);
    if (row != nullptr && row->type)
        return *row->type;
    text_stream text;
    text << "Unsupported transceiver found with identifier 0x" << std::hex << unsigned{identifier};
    if (row != nullptr)
        text << " (" << row->name << ")";
    throw std::runtime_error{text.str()};
}

} // namespace ivra::bsp::transceiver
