#include "transceiver/report/report.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
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

TEST(optical_power, is_in_milliwatts_and_unless_it_is_0_in_dbm)
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    struct row_t
    {
        double milliwatts;
        const char* text;
    };
    // clang-format off
    const row_t rows[] = {
        {0.5,                      "0.500 mW (-3.010 dBm)"},
        {0,                        "0.000 mW"},
        {-0.0,                     "-0.000 mW"},
        {0.0001,                   "0.000 mW (-40.000 dBm)"},
        {-0.5,                     "-0.500 mW (nan dBm)"},
        {nan,                      "nan mW (nan dBm)"},
        {std::copysign(nan, -1.0), "nan mW (nan dBm)"},
        {infinity,                 "inf mW (inf dBm)"},
    };
    // clang-format on
    for (const row_t& row : rows)
        EXPECT_EQ(optical_power_str(row.milliwatts), row.text);
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
