#include "transceiver/identifier.h"

#include "support/outcome.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

namespace ivra::bsp::transceiver {
namespace {

const std::map<int, std::string> names{
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
    {0x15, "Shielded mini multilane HD 4X fanout cable"},
    {0x16, "CDFP (Style 3)"},
    {0x17, "microQSFP"},
    {0x18, "QSFP-DD Double Density 8X pluggable transceiver"},
    {0x19, "QSFP 8X pluggable transceiver"},
    {0x1A, "SFP-DD Double Density 2X pluggable transceiver"},
    {0x1B, "DSFP Dual Small From Factor Pluggable transceiver"},
    {0x1C, "x4 MiniLink/Oculink"},
    {0x1D, "x8 MiniLink"},
    {0x1E, "QSFP+ or later with Common Management Interface Specification (CMIS)"},
    {0xFF, "no transceiver detected"},
};

TEST(identifier, names_are_those_of_the_table_and_unknown_elsewhere)
{
    for (int value = 0; value <= 0xFF; ++value) {
        const auto identifier = static_cast<std::uint8_t>(value);
        const auto row = names.find(value);
        EXPECT_EQ(get_identifier_name(identifier), row == names.end() ? "Unknown" : row->second) << value;
    }
}

TEST(identifier, of_0x14_and_0x15_have_the_same_text)
{
    EXPECT_EQ(get_identifier_name(0x15), get_identifier_name(0x14));
}

/// The family of an identifier, or why there is none.
std::string family(int identifier)
{
    return tests::said_by(
        [&] { return std::to_string(static_cast<int>(get_module_type(static_cast<std::uint8_t>(identifier)))); });
}

std::string hex(int value)
{
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
}

TEST(identifier, gives_the_family_of_six_identifiers_and_every_other_one_is_unsupported)
{
    const std::map<int, std::string> families{{0x03, "1"}, {0x0C, "2"}, {0x0D, "2"},
                                              {0x11, "2"}, {0x18, "3"}, {0xFF, "0"}};
    for (int value = 0; value <= 0xFF; ++value) {
        const auto row = families.find(value);
        if (row != families.end()) {
            EXPECT_EQ(family(value), row->second);
            continue;
        }
        const auto name = names.find(value);
        EXPECT_EQ(family(value), "Unsupported transceiver found with identifier 0x" + hex(value) +
                                     (name == names.end() ? "" : " (" + name->second + ")"));
    }
}

TEST(identifier, that_is_unsupported_is_named_when_it_has_a_name)
{
    EXPECT_EQ(family(0x00), "Unsupported transceiver found with identifier 0x0 (Unknown)");
    EXPECT_EQ(family(0x01), "Unsupported transceiver found with identifier 0x1 (GBIC)");
    EXPECT_EQ(family(0x7A), "Unsupported transceiver found with identifier 0x7a");
    EXPECT_EQ(family(0xFE), "Unsupported transceiver found with identifier 0xfe");
    EXPECT_EQ(family(0x1E), "Unsupported transceiver found with identifier 0x1e (QSFP+ or later with Common Management "
                            "Interface Specification (CMIS))");
}

} // namespace
} // namespace ivra::bsp::transceiver
