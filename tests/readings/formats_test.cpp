#include "readings.h"

#include <gtest/gtest.h>

#include <string>

namespace ivra::tests {
namespace {

const std::string head = R"({"format":1,"program":"ivra-bsp-readings",...,"platform":"simulated")";

/// A plain switch, which has no controller and no cages.
const std::string switch_document =
    R"({"index":0,"name":"card-0","uid":"0000:00:00.0","state":"ok","model":"m48l_xcvu7p","serial":"SSJ17200123",)"
    R"("macs":{"first":"02:00:00:00:00:00","count":4},"vendor_macs":{"first":"00:1c:73:aa:bb:80","count":128},)"
    R"("fpga":{"device":"xcvu7p-flva2104-2-e","serial":"4002000001285c0f1a104280","temperature":)"
    R"({"name":"FPGA","quantity":"temperature","unit":"celsius","state":"ok","value":45.5}},)"
    R"("flash":{"size":134217728,"sector_size":65536,"sections":[{"name":"PGM","start":0,"size":16785408},)"
    R"({"name":"USR","start":16785408,"size":83886080},{"name":"PARAMS","start":133955584,"size":65536},)"
    R"({"name":"PARAMS","start":134021120,"size":65536},{"name":"OTP","start":134152192,"size":4096}]},)"
    R"("health":"ok","findings":[]})";

TEST(readings, are_one_document_where_standard_output_is_no_terminal)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host);
    for (const char* words : {"", "--json"}) {
        const run_t run = rack.run(words);
        EXPECT_EQ(without_moment(run.out), head + R"(,"health":"ok","findings":[],"board_count":1,"boards":[)" + "\n" +
                                               switch_document + "]}\n");
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(readings, are_lines_of_which_the_hosts_own_is_the_last)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host);
    EXPECT_EQ(without_moment(rack.run("--lines").out),
              switch_document + "\n" + head + R"(,"health":"ok","findings":[],"board_count":1})" + "\n");
}

TEST(readings, are_lines_after_one_that_announces_them)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p").host(plain_host);
    EXPECT_EQ(without_moment(rack.run("--lines --announce --skip 0000:01:00.0").out),
              head + R"(,"announced":[{"index":0,"name":"card-0","uid":"0000:00:00.0"}]})" + "\n" + switch_document +
                  "\n" + head + R"(,"health":"ok","findings":[],"board_count":1})" + "\n");
    EXPECT_EQ(without_moment(rack.run("--lines --announce --skip 0000:00:00.0 --skip 0000:01:00.0").out),
              head + R"(,"announced":[]})" + "\n" + head + R"(,"health":"ok","findings":[],"board_count":0})" + "\n");
}

TEST(readings, are_not_of_boards_that_are_skipped_by_what_tells_them)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p").host(plain_host);
    rack.faults(R"({"call": "ivra_hw_prop_get_uid", "errno": "EIO"})");
    EXPECT_TRUE(without_moment(rack.run("--lines --announce --skip card-0 --skip 1").out)
                    .starts_with(head + R"(,"announced":[{"index":1,"name":"card-1"}]})" + "\n" +
                                 R"({"index":1,"name":"card-1","state":"ok")"));
    rack.faults(
        R"({"call": "ivra_hw_prop_get_uid", "errno": "EIO"}, {"call": "ivra_hw_prop_get_name", "errno": "EIO"})");
    EXPECT_TRUE(without_moment(rack.run("--lines --announce --skip 1 --skip card-0").out)
                    .starts_with(head + R"(,"announced":[{"index":0}]})" + "\n" + R"({"index":0,"state":"ok")"));
}

TEST(readings, are_also_of_a_board_that_cannot_say_its_name_its_uid_and_its_index)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host);
    const std::string nameless =
        R"({"call": "ivra_hw_prop_get_uid", "errno": "EIO"}, {"call": "ivra_hw_prop_get_name", "errno": "EIO"})";
    rack.faults(nameless);
    EXPECT_EQ(rack.run("--check"), says("OK - 1 board | 'board-0 FPGA'=45.5C\n"));
    rack.faults(nameless + R"(, {"call": "ivra_hw_prop_get_index", "errno": "EIO"})");
    EXPECT_EQ(rack.run("--check"), says("OK - 1 board | '(unknown) FPGA'=45.5C\n"));
}

TEST(readings, are_of_a_module_that_no_document_here_describes_and_of_a_bmc_that_chose_no_image)
{
    readings_rack_t rack;
    rack.plug("bittware_xupp3r", {{"bmc", R"({"boot_image": "none", "configured_from": "none"})"},
                                  {"i2c", R"({"cages": [{"module": "qsfp28-sr4", "bytes": {"0": "7f"}}]})"}});
    EXPECT_EQ(without_moment(rack.run("--lines --parts boot-image,modules").out),
              R"({"index":0,"name":"card-0","uid":"0000:00:00.0","state":"ok","model":"bittware_xupp3r",)"
              R"("boot_image":{"current":"none","next":"none"},"health":"ok","findings":[],)"
              R"("modules":[{"cage":1,"state":"unsupported","identifier":127},{"cage":2,"state":"empty"},)"
              R"({"cage":3,"state":"empty"},{"cage":4,"state":"empty"}]})"
              "\n" +
                  head + R"(,"health":"ok","findings":[],"board_count":1})" + "\n");
}

TEST(readings, are_a_screen_on_a_terminal)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host);
    const std::string screen = "Health  ID  Name    Model        Serial       Hottest\n"
                               "ok      0   card-0  m48l_xcvu7p  SSJ17200123  45.5°C\n";
    EXPECT_EQ(rack.run("--text"), says(screen));
    EXPECT_EQ(rack.run("-c never", {.out = stream_t::terminal}), says(screen));
}

TEST(readings, are_a_screen_of_80_columns_into_which_names_fit)
{
    readings_rack_t rack;
    rack.plug("bittware_xupp3r", {{"name", R"("a name of twenty-two l")"},
                                  {"bmc", R"({"fru": {"serial": "0123456789ABCDEF"}})"},
                                  {"i2c", R"({"cages": ["sfp-10g-sr"]})"}});
    EXPECT_EQ(rack.run("--text"),
              says("Health  ID  Name              Model            Serial            Hottest  Rx dBm\n"
                   "ok      0   a name of twent…  bittware_xupp3r  0123456789ABCDEF  45.5°C   -3.0\n"));
}

TEST(readings, are_a_line_for_monitoring)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host);
    EXPECT_EQ(rack.run("--check"), says("OK - 1 board | 'card-0 FPGA'=45.5C\n"));
}

TEST(readings, of_a_host_whose_boards_cannot_be_listed_say_why)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p").host(plain_host);
    rack.faults(R"({"call": "ivra_hw_enumerate_accelerators", "errno": "EIO"})");
    const std::string why = "The platform counts 2 boards, and lists none";
    const std::string host = head + R"(,"health":"unknown","findings":[{"health":"unknown","text":")" + why + "\"}]";
    for (const char* words : {"--json", "--json -a 0", "--json -a card-1 --skip 0000:00:00.0"}) {
        const run_t run = rack.run(words);
        EXPECT_EQ(without_moment(run.out), host + R"(,"board_count":0,"boards":[]})" + "\n");
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 1);
    }
    const run_t lines = rack.run("--lines");
    EXPECT_EQ(without_moment(lines.out), host + R"(,"board_count":0})" + "\n");
    EXPECT_EQ(lines.status, 1);
    EXPECT_EQ(rack.run("--text"), (run_t{"unknown: " + why + "\n", "", 1}));
    EXPECT_EQ(rack.run("--check"), (run_t{"UNKNOWN - " + why + "\n", "", 3}));
}

TEST(readings, of_a_host_that_lists_fewer_boards_than_it_counts_are_those_and_a_finding)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p").host(plain_host);
    rack.faults(R"({"call": "ivra_hw_enumerate_accelerators", "short": 1})");
    const std::string why = "The platform counts 2 boards, and lists 1";
    const std::string host =
        head + R"(,"health":"unknown","findings":[{"health":"unknown","text":")" + why + R"("}],"board_count":1)";
    const run_t run = rack.run("--json");
    EXPECT_EQ(without_moment(run.out), host + ",\"boards\":[\n" + switch_document + "]}\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 2);
    const run_t lines = rack.run("--lines -a 0");
    EXPECT_EQ(without_moment(lines.out), switch_document + "\n" + host + "}\n");
    EXPECT_EQ(lines.status, 2);
    EXPECT_EQ(rack.run("--text"), (run_t{"Health  ID  Name    Model        Serial       Hottest\n"
                                         "ok      0   card-0  m48l_xcvu7p  SSJ17200123  45.5°C\n"
                                         "\n"
                                         "unknown: " +
                                             why + "\n",
                                         "", 2}));
    EXPECT_EQ(rack.run("--check"), (run_t{"UNKNOWN - 1 board; " + why + " | 'card-0 FPGA'=45.5C\n", "", 3}));
    EXPECT_EQ(rack.run("--json -a 1"), fails("ivra-bsp readings: No such accelerator: 1\n"));

    rack.faults(R"({"call": "ivra_hw_enumerate_accelerators", "short": 1},
                   {"call": "ivra_hw_accelerator_get", "errno": "EACCES"})");
    EXPECT_EQ(rack.run("--json").status, 1) << "nothing could be read";
}

TEST(readings, of_a_host_without_boards_are_ok)
{
    readings_rack_t rack;
    EXPECT_EQ(without_moment(rack.run("--json").out),
              head + R"(,"health":"ok","findings":[],"board_count":0,"boards":[]})" + "\n");
    EXPECT_EQ(rack.run("--text"), says("No accelerator found\n"));
    EXPECT_EQ(rack.run("--check"), says("OK - no boards\n"));
}

} // namespace
} // namespace ivra::tests
