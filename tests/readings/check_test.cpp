#include "readings.h"

#include <gtest/gtest.h>

#include <string>

namespace ivra::tests {
namespace {

TEST(readings_check, lets_no_name_be_taken_for_anything_else)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p", {{"name", R"("a|b='c\n\u001b[2Jé")"}}).host(plain_host);
    EXPECT_EQ(rack.run("--check"), says("OK - 1 board | 'a_b__c??[2Jé FPGA'=45.5C\n"));
    rack.faults(R"({"call": "ivra_hw_top_get_temperature", "errno": "EIO"})");
    const run_t run = rack.run("--check");
    EXPECT_EQ(run.out,
              "UNKNOWN - 1 board, 1 unknown; a_b='c??[2Jé: FPGA temperature could not be read: Input/output error\n");
    EXPECT_EQ(run.status, 3);
}

TEST(readings_check, tells_boards_of_one_name_and_sensors_of_one_name_apart)
{
    readings_rack_t rack;
    for (const char* uid : {R"("a")", R"("b")"})
        rack.plug("m48l_xcvu7p", {{"name", R"("twin")"}, {"uid", uid}});
    rack.host(plain_host);
    EXPECT_EQ(rack.run("--check"), says("OK - 2 boards | 'twin (a) FPGA'=45.5C 'twin (b) FPGA'=45.5C\n"));
    rack.faults(R"({"call": "ivra_hw_top_get_temperature", "accelerator": "b", "errno": "EIO"})");
    const std::string finding = "twin (b): FPGA temperature could not be read: Input/output error";
    EXPECT_EQ(rack.run("--check").out, "UNKNOWN - 2 boards, 1 unknown; " + finding + " | 'twin (a) FPGA'=45.5C\n");
    const std::string screen = rack.run("--text").out;
    EXPECT_NE(screen.find("\nunknown: " + finding + '\n'), std::string::npos) << screen;

    readings_rack_t other;
    other.plug("bittware_xupvv8", {{"bmc", R"({"sensors": {"only": true, "list": [
        {"name": "TEMP", "unit": "degrees C", "value": 40}, {"name": "FPGA", "unit": "degrees C", "value": 41},
        {"name": "TEMP", "unit": "degrees C", "available": false}]}})"}});
    EXPECT_EQ(other.run("--check --parts identity,sensors"),
              says("OK - 1 board | 'card-0 TEMP (1)'=40C 'card-0 FPGA (2)'=41C 'card-0 FPGA'=45.5C\n"));
}

TEST(readings_check, cuts_a_long_finding_between_characters)
{
    readings_rack_t rack;
    std::string name;
    for (int count = 0; count < 100; ++count)
        name += "é°";
    rack.plug("m48l_xcvu7p", {{"name", '"' + name + '"'}}).host(plain_host);
    rack.faults(R"({"call": "ivra_hw_top_get_temperature", "errno": "EIO"})");
    std::string shown = name.substr(0, 79 * 4) + "é…";
    EXPECT_EQ(rack.run("--check").out, "UNKNOWN - 1 board, 1 unknown; " + shown + '\n');
}

TEST(readings_check, gives_every_digit_of_a_value)
{
    readings_rack_t rack;
    rack.plug("bittware_xupvv8", {{"bmc", R"({"sensors": {"only": true, "list": [
        {"name": "PERIOD", "linearisation": "1/x", "raw": 6}]}})"}});
    EXPECT_EQ(rack.run("--check --parts sensors"), says("OK - 1 board | 'card-0 PERIOD'=0.16666666666666666\n"));
}

} // namespace
} // namespace ivra::tests
