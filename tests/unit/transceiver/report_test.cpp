#include "transceiver/report/report.h"

#include <gtest/gtest.h>

#include <string>
#include <variant>

namespace ivra::bsp {
namespace {

/// The statistics of a port, a line each.
std::string shown(const transceiver::transceiver_info_t& info)
{
    section port{"Port 1", "Port", 1};
    add_transceiver(info, port);
    std::string text;
    for (const section::entry& e : port.entries)
        if (const auto* stat = std::get_if<stat_t>(&e))
            text += stat->name + ": " + stat->value + "\n";
    return text;
}

TEST(transceiver, that_failed_shows_what_was_read_before_also_when_it_is_blank)
{
    EXPECT_EQ(shown({.type = "SFP", .vendor_name = "", .vendor_pn = "", .stats = {}, .error = "lost"}),
              "Type: SFP\nVendor name: \nVendor PN: \nError: lost\n");
    EXPECT_EQ(shown({.type = "SFP", .vendor_name = "", .vendor_pn = {}, .stats = {}, .error = "lost"}),
              "Type: SFP\nVendor name: \nError: lost\n");
    EXPECT_EQ(shown({.type = {}, .vendor_name = {}, .vendor_pn = {}, .stats = {}, .error = "lost"}), "Error: lost\n");
}

TEST(transceiver, that_measures_nothing_shows_blank_texts_too)
{
    EXPECT_EQ(shown({.type = "SFP", .vendor_name = "", .vendor_pn = "", .stats = {}, .error = {}}),
              "Type: SFP\nVendor name: \nVendor PN: \nSensors: Not available\n");
}

} // namespace
} // namespace ivra::bsp
