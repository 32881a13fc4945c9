// Boards that change while a command is at work on them.

#include "support/rack.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

void change(const rack_t& rack, const std::string& words)
{
    std::vector<std::string> arguments{"change", rack.folder() / "rack.json", "card-0"};
    for (const std::string& word : split(words))
        arguments.push_back(word);
    EXPECT_EQ(run_program(IVRA_VIRTUAL_COMMAND, arguments,
                          {"IVRA_VIRTUAL_STATE=" + (rack.folder() / "state").string(),
                           "IVRA_VIRTUAL_CLOCK=" + (rack.folder() / "clock").string()}),
              says(""))
        << words;
}

/// The line of a report that holds a piece.
std::string line_of(const std::string& report, const std::string& piece)
{
    const std::size_t at = report.find(piece);
    if (at == std::string::npos)
        return "no " + piece;
    const std::size_t begin = report.rfind('\n', at) + 1;
    return report.substr(begin, report.find('\n', at) - begin);
}

TEST(changed_board, is_read_as_it_is_then_in_the_middle_of_a_command)
{
    rack_t rack;
    rack.plug("xilinx_u50", {{"xmc", R"({"ready_after": ["0 s", "0 s"]})"}});
    const std::string before = rack.run("show sensors").out;
    ASSERT_EQ(line_of(before, "3V3_PEX "), "\t│ 3V3_PEX       │  3300 mV │  3298 mV │  3306 mV │");
    ASSERT_EQ(line_of(before, "VPP2V5"), "\t│ VPP2V5        │  2512 mV │  2511 mV │  2516 mV │");
    const std::string middle = std::to_string(calls(rack, "ivra_hw_read") / 2);
    rack.faults(R"({"call": "ivra_hw_read", "nth": )" + middle + R"(, "when": "after", "signal": "SIGSTOP"})");
    running_t command = rack.start("show sensors");
    ASSERT_TRUE(command.stops());
    change(rack, "sensor 3V3_PEX 3.1 V");
    change(rack, "sensor VPP2V5 2.6 V");
    change(rack, "power-good bad");
    command.signal(SIGCONT);
    const run_t run = command.end();
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(line_of(run.out, "3V3_PEX "), line_of(before, "3V3_PEX ")) << "it was read before";
    EXPECT_EQ(line_of(run.out, "VPP2V5"), "\t│ VPP2V5        │  2600 mV │  2511 mV │  2600 mV │");
    EXPECT_EQ(line_of(run.out, "POWER_GOOD").find("Good"), std::string::npos);
    rack.environment("IVRA_VIRTUAL_FAULTS");
    EXPECT_EQ(line_of(rack.run("show sensors").out, "3V3_PEX "),
              "\t│ 3V3_PEX       │  3100 mV │  3298 mV │  3306 mV │");
}

TEST(changed_board, has_another_boot_image_whatever_the_host_has_chosen)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", {{"bmc", R"({"boot_image": "primary", "configured_from": "primary"})"}});
    rack.environment("IVRA_LOG_LEVEL=0");
    const auto shown = [&] { return rack.run("show boot-image").out; };
    EXPECT_EQ(rack.run("set boot-image backup").status, 0);
    EXPECT_EQ(line_of(shown(), "Next reload"), "\tNext reload : backup");
    change(rack, "boot-image primary");
    change(rack, "configured-from backup");
    EXPECT_EQ(line_of(shown(), "Next reload"), "\tNext reload : primary");
    EXPECT_EQ(line_of(shown(), "Current boot"), "\tCurrent boot: backup");
    EXPECT_EQ(rack.run("set boot-image backup").status, 0);
    EXPECT_EQ(line_of(shown(), "Next reload"), "\tNext reload : backup");
}

TEST(changed_board, has_a_bmc_that_falls_silent_between_two_commands)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", {{"bmc", R"({"sensors": {"only": true, "list": [
        {"name": "12V0", "unit": "V", "value": 12, "m": 1}]}})"}});
    rack.environment("IVRA_LOG_LEVEL=0");
    EXPECT_EQ(rack.run("show sensors").status, 0);
    change(rack, "silent on");
    EXPECT_EQ(rack.run("show sensors").status, 1);
    change(rack, "silent off");
    change(rack, "sensor 12V0 13 V");
    const run_t run = rack.run("show sensors");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(line_of(run.out, "12V0").find("13.00"), std::string::npos) << run.out;
}

} // namespace
} // namespace ivra::tests
