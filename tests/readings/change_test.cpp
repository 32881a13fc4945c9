// Boards that change between two readings, and within one.

#include "readings.h"

#include "support/rack.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

void run_virtual(const rack_t& rack, const std::vector<std::string>& words)
{
    const run_t run = run_program(IVRA_VIRTUAL_COMMAND, words,
                                  {"IVRA_VIRTUAL_STATE=" + (rack.folder() / "state").string(),
                                   "IVRA_VIRTUAL_CLOCK=" + (rack.folder() / "clock").string()});
    EXPECT_EQ(run.status, 0) << run.err;
}

/// What --check says before the values.
std::string verdict(rack_t& rack)
{
    const std::string out = rack.run("--check").out;
    return out.substr(0, out.find(" | "));
}

TEST(changed_boards, are_judged_as_they_are_at_each_reading)
{
    readings_rack_t rack;
    rack.plug("xilinx_u200", {{"i2c", R"({"cages": ["qsfp28-sr4", "empty"]})"}});
    const std::string file = rack.folder() / "rack.json";
    EXPECT_EQ(verdict(rack), "OK - 1 board");
    run_virtual(rack, {"change", file, "card-0", "module", "0", "temperature", "78", "C"}); // its high alarm is 75
    EXPECT_EQ(verdict(rack),
              "CRITICAL - 1 board, 1 critical; card-0: Cage 1 temperature: 78 °C is above the upper critical "
              "limit of 75 °C set by the module");
    run_virtual(rack, {"change", file, "card-0", "unplug", "0"});
    EXPECT_EQ(verdict(rack), "OK - 1 board");
    run_virtual(rack, {"change", file, "card-0", "power-good", "bad"});
    EXPECT_EQ(verdict(rack), "CRITICAL - 1 board, 1 critical; card-0: Power is bad");
    run_virtual(rack, {"change", file, "card-0", "reset"});
    EXPECT_EQ(verdict(rack), "OK - 1 board");
}

TEST(changed_boards, change_while_a_reading_waits)
{
    readings_rack_t rack;
    rack.plug("xilinx_u200",
              {{"xmc", R"({"ready_after": ["0.5 s", "1.5 s"], "sensors": {"FPGA_TEMP": [45, 44, 51]}})"}});
    EXPECT_NE(
        rack.run("--json").out.find(R"("name":"FPGA_TEMP","quantity":"temperature","unit":"celsius","state":"ok",)"
                                    R"("value":45.0,"peak":51.0)"),
        std::string::npos);
    // It starts again, and the sensor changes before it is ready: the clock moves only while the reading sleeps.
    std::ofstream{rack.folder() / "file.play"} << "0 s card-0 ready after 1 s\n0.9 s card-0 sensor FPGA_TEMP 90 C\n";
    run_virtual(rack, {"play", rack.folder() / "rack.json", rack.folder() / "file.play"});
    EXPECT_NE(
        rack.run("--json").out.find(R"("name":"FPGA_TEMP","quantity":"temperature","unit":"celsius","state":"ok",)"
                                    R"("value":90.0,"peak":90.0)"),
        std::string::npos);
}

} // namespace
} // namespace ivra::tests
