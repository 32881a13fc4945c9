#include "support/rack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace ivra::tests {

namespace {

const char* const two_cages = R"({
  "board": "xilinx_u250",
  "short_name": "two",
  "number": "2222",
  "device": "xcu250-two",
  "temperature": 31.5,
  "mac_count": 2,
  "i2c": {
    "pins": 8,
    "cages": ["qsfp28-sr4", "silent"],
    "buses": [{ "index": 0, "devices": [
      { "device": "multiplexer", "address": "0x74", "pin": 0 },
      { "device": "cage", "number": 0, "behind": ["0x74", "0x01"] },
      { "device": "cage", "number": 1, "behind": ["0x74", "0x02"] }] }]
  },
  "xmc": { "card": { "fan": true, "maximum_power": 200 }, "sensors": { "VCCINT": [850, 849, 851] } }
})";

/// The same board as a U250 of which a rack says everything.
std::string spelt_out()
{
    std::string sensors = R"("VCCINT": [850, 849, 851])";
    for (const char* name : {"3V3_AUX",      "3V3_PEX",    "12V_AUX",    "12V_AUX_I_IN", "12V_PEX",      "12V_SW",
                             "12V_PEX_I_IN", "CAGE_TEMP0", "CAGE_TEMP1", "DDR4_VPP_BTM", "DDR4_VPP_TOP", "DIMM_TEMP0",
                             "DIMM_TEMP1",   "DIMM_TEMP2", "DIMM_TEMP3", "FAN_SPEED",    "FAN_TEMP",     "FPGA_TEMP",
                             "MGT0V9AVCC",   "MGTAVTT",    "SE98_TEMP0", "SE98_TEMP1",   "SE98_TEMP2",   "SYS_5V5",
                             "VCC0V85",      "VCC1V2_BTM", "VCC1V2_TOP", "VCC1V8",       "VCCINT_I",     "VCCINT_TEMP"})
        sensors += std::string{R"(, ")"} + name + R"(": [0, 0, 0])";
    return R"({"accelerators": [{"model": "xilinx_u250", "name": "virtual-two-0",
        "fpga": {"device": "xcu250-two", "temperature": 31.5},
        "mac_addresses": {"first": "02:00:00:00:00:00", "count": 2},
        "i2c": {"cages": ["qsfp28-sr4", "silent"]},
        "xmc": {"card": {"name": "VIRTUAL TWO", "serial": "VRT2222A0001", "fan": true, "maximum_power": 200,
                         "macs": {"first": "02:00:01:00:00:00", "count": 2}}, "sensors": {)" +
           sensors + "}}}]}";
}

void add_model(const rack_t& rack, const std::string& name, const std::string& text)
{
    std::filesystem::create_directories(rack.folder() / "models");
    std::ofstream{rack.folder() / "models" / (name + ".json")} << text;
}

} // namespace

TEST(models, a_file_beside_the_rack_is_a_new_one_and_says_which_board_it_is)
{
    rack_t rack;
    rack.file(R"({"accelerators": [{"model": "u250-two-cages"}]})");
    add_model(rack, "u250-two-cages", two_cages);
    rack_t same;
    same.file(spelt_out());
    for (const std::string format : {"", "--json "})
        for (const char* command :
             {"list", "show info", "show flash", "show sensors", "show transceivers", "show boot-image", "show all"}) {
            SCOPED_TRACE(format + command);
            const run_t run = rack.run(format + command);
            const run_t expected = same.run(format + command);
            EXPECT_EQ(run.out, expected.out);
            EXPECT_EQ(run.err, expected.err);
            EXPECT_EQ(run.status, expected.status);
        }
    const run_t sensors = rack.run("show sensors");
    EXPECT_EQ(sensors.status, 0);
    EXPECT_THAT(sensors.out, ::testing::HasSubstr("VCCINT"));
    EXPECT_THAT(rack.run("show transceivers").out, ::testing::HasSubstr("NORTHLIGHT"));
}

TEST(models, a_file_beside_the_rack_counts_more_than_the_platforms_of_that_name)
{
    rack_t rack;
    rack.file(R"({"accelerators": [{"model": "xilinx_u50"}, {"model": "xilinx_u200"}]})");
    add_model(rack, "xilinx_u50", R"({"short_name": "mine", "device": "xcmine"})");
    const run_t run = rack.run("--json list");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.out, ::testing::HasSubstr("virtual-mine-0"));
    EXPECT_THAT(run.out, ::testing::HasSubstr("virtual-u200-1"));
}

TEST(models, a_mistake_in_the_file_is_said_at_the_accelerator_that_names_it)
{
    rack_t rack;
    rack.file(R"({"accelerators": [{"model": "a"}, {"model": "mine"}]})");
    add_model(rack, "mine", R"({"device": "x", "optional_cages": 3})");
    const run_t run = rack.run("list");
    EXPECT_EQ(run.status, 0) << "a host without accelerators";
    EXPECT_THAT(run.err, ::testing::HasSubstr("/accelerators/1/model: "));
    EXPECT_THAT(run.err,
                ::testing::HasSubstr("models/mine.json: /optional_cages: expected at most 0, the number of cages"));
}

TEST(models, what_goes_with_no_board_is_a_mistake_of_the_model)
{
    std::string fields;
    for (int at = 0; at < 64; ++at)
        fields += (at == 0 ? "\"" : ", \"") + std::string(63, 'x') + '"';
    rack_t rack;
    rack.file(R"({"accelerators": [{"model": "mine"}]})");
    add_model(rack, "mine", R"({"bmc": {"fru": {"extra": [)" + fields + "]}}}");
    EXPECT_THAT(rack.run("list").err,
                ::testing::HasSubstr("mine.json: /bmc/fru: expected fields that fit into a board area of 2040 bytes"));
}

TEST(models, null_in_a_model_is_what_it_is_in_a_rack)
{
    rack_t rack;
    rack.file(R"({"accelerators": [{"model": "mine"}]})");
    add_model(rack, "mine", R"({"board": "xilinx_u200", "xmc": {"card": {"serial": null}}})");
    EXPECT_THAT(rack.run("list").out, ::testing::Not(::testing::HasSubstr("VRT")));
}

} // namespace ivra::tests
