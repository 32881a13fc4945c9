#include "support/bmc_server.h"
#include "support/rack.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// A program that knows IPMI and not us reads the same boards as our reports.

namespace ivra::tests {
namespace {

const std::filesystem::path showcase = IVRA_RACKS "/showcase.json";

const std::vector<std::string> bittware_boards{"virtual-xupp3r", "virtual-xupvv8", "virtual-fpb2"};

rack_t& plug_showcase(rack_t& rack)
{
    std::ostringstream text;
    text << std::ifstream{showcase}.rdbuf();
    return rack.file(text.str()).environment("IVRA_LOG_LEVEL=0");
}

/// The rows of a text with this in their first column.
std::vector<std::string> row_of(const std::vector<std::vector<std::string>>& rows, const std::string& first)
{
    for (const std::vector<std::string>& row : rows)
        if (!row.empty() && row.front() == first)
            return row;
    return {};
}

TEST(ipmitool, agrees_with_our_report_on_every_sensor)
{
    rack_t rack;
    plug_showcase(rack);
    std::size_t compared = 0;
    for (const std::string& board : bittware_boards) {
        std::vector<std::vector<std::string>> ours;
        for (std::vector<std::string> row : table(rack.run("show sensors -a " + board).out, "│"))
            if (row.size() == 3 && row[1] != "Sensor")
                ours.push_back({row[1], row[2]});
        const bmc_server bmc{showcase, board, rack.folder() / "state of the server"};
        const auto theirs = table(bmc.ipmitool({"sensor"}), "|");
        ASSERT_EQ(ours.size(), theirs.size()) << board;
        for (std::size_t i = 0; i < ours.size(); ++i) {
            EXPECT_EQ(theirs[i].at(0), ours[i][0].substr(0, 16)) << "it shows no more";
            if (theirs[i].at(3) == "na") {
                EXPECT_EQ(ours[i][1], "Unavailable");
            } else {
                char text[40];
                std::snprintf(text, sizeof text, "%.2f", std::strtod(theirs[i].at(1).c_str(), nullptr));
                EXPECT_EQ(ours[i][1].substr(0, ours[i][1].find(' ')), text) << board << ' ' << ours[i][0];
            }
            ++compared;
        }
    }
    EXPECT_GE(compared, 30U);
}

TEST(ipmitool, agrees_with_our_report_on_serial_and_boot_image)
{
    rack_t rack;
    plug_showcase(rack);
    for (const std::string& board : bittware_boards) {
        const bmc_server bmc{showcase, board, rack.folder() / "state of the server"};
        const std::vector<std::string> theirs = row_of(table(bmc.ipmitool({"fru", "print", "0"}), ":"), "Board Serial");
        ASSERT_EQ(theirs.size(), 2U);
        EXPECT_NE(rack.run("show info -a " + board).out.find("\tBoard serial : " + theirs[1] + "\n"),
                  std::string::npos);
        EXPECT_EQ(bmc.ipmitool({"raw", "0x2e", "0x08", "0x18", "0x7b", "0x00", "0x07"}), " 18 7b 00 00\n");
        EXPECT_NE(rack.run("show boot-image -a " + board).out.find("\tNext reload : primary\n"), std::string::npos);
    }
}

} // namespace
} // namespace ivra::tests
