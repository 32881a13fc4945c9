#include "bad_racks.h"

#include "devices/i2c/i2c.h"
#include "devices/xmc/xmc.h"
#include "rack/model.h"
#include "rack/rack.h"
#include "state/state.h"
#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace ivra::tests {

namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
namespace fs = std::filesystem;
namespace vp = ivra::virtual_platform;

/// Racks and a state folder that go with the test.
class tool : public ::testing::Test
{
protected:
    tool()
    {
        std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
        folder = fs::canonical(::mkdtemp(name.data()));
        state = folder / "state";
    }
    ~tool() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    fs::path file(const std::string& name, const std::string& text) const
    {
        std::ofstream{folder / name, std::ios::binary} << text;
        return folder / name;
    }

    run_t run(const std::vector<std::string>& words, streams_t streams = {}) const
    {
        return run_program(IVRA_VIRTUAL_COMMAND, words, {"IVRA_VIRTUAL_STATE=" + state.string()}, streams);
    }

    /// Does something to a board of the rack, as the platform libraries would.
    template <class Use>
    void use_board(const fs::path& rack_file, std::size_t index, Use use) const
    {
        const run_t child = run_in_child([&] {
            ::setenv("IVRA_VIRTUAL_STATE", state.c_str(), 1);
            const vp::rack_t rack = vp::load_rack(rack_file);
            vp::board_state board = vp::board_state::open(rack, rack.accelerators.at(index));
            use(board);
        });
        ASSERT_EQ(child.status, 0) << child.err;
    }

    void use_board(const fs::path& rack_file, std::size_t index) const
    {
        use_board(rack_file, index, [](vp::board_state&) {});
    }

    fs::path folder;
    fs::path state;
};

const std::string two_boards = R"({"accelerators": [
    {"name": "virtual-a", "model": "xilinx_u200", "uid": "0000:01:00.0",
     "fpga": {"device": "xcu200-fsgd2104-2-e", "serial": "4002000001285c0f1a104285", "temperature": 45.5},
     "mac_addresses": {"first": "02:00:00:00:10:00", "count": 4}},
    {"name": null, "model": "odd\u001b[2J", "uid": "0000:02:00.0", "open": "EACCES", "mmios": 0, "cores": [],
     "fpga": {"device": "xc", "serial": "000000000000000000000001", "temperature": -3},
     "mac_addresses": ["02:00:00:00:10:00", "02:00:00:00:30:00"],
     "flash": {"size": "1 MiB", "sector": "4 KiB", "sections": [{"start": "0x0", "size": "64 KiB"}]}}]})";

std::string shown_boards(const std::string& first_flash_line_end, const std::string& first_state)
{
    return R"(
0  virtual-a
   Model          xilinx_u200
   UID            0000:01:00.0
   FPGA           xcu200-fsgd2104-2-e, 45.5 °C
   FPGA serial    0x4002000001285c0f1a104285
   MAC addresses  02:00:00:00:10:00 - 02:00:00:00:10:03
   Flash          128 MiB in sectors of 64 KiB
                  PGM     0x0000000 - 0x1001fff
                  USR     0x1002000 - 0x6001fff
                  PARAMS  0x7fc0000 - 0x7fcffff  protected
                  PARAMS  0x7fd0000 - 0x7fdffff)" +
           first_flash_line_end + R"(
                  OTP     0x7ff0000 - 0x7ff0fff
   Cores          0x000000 - 0x000fff  1    top-level core
                  0x010000 - 0x010fff  16   flash controller
                  0x020000 - 0x020fff  32   I2C controller
                  0x100000 - 0x12ffff  475  card management controller
   I2C            1 bus, 8 pins: 0x0
   Cages          0  empty
                  1  empty
   XMC            in reset
                  VIRTUAL U200, serial VRT0200A0001
   State          )" +
           first_state + R"(

1  (no name)
   Model          odd\x1b[2J
   UID            0000:02:00.0
   Opening        fails with EACCES
   FPGA           xc, -3 °C
   FPGA serial    0x000000000000000000000001
   MAC addresses  02:00:00:00:10:00
                  02:00:00:00:30:00
   Flash          1 MiB in sectors of 4 KiB
                  (no name)  0x00000 - 0x0ffff
   MMIO spaces    0
   Cores          none below the root
   State          not used yet
)";
}

} // namespace

// ---- check ----

TEST_F(tool, check_says_that_a_rack_is_good_and_how_many_accelerators_it_has)
{
    const fs::path none = file("none.json", R"({"accelerators": []})");
    const fs::path one = file("one.json", R"({"accelerators": [{"model": "a"}]})");
    const fs::path two = file("two.json", two_boards);
    const run_t result = run({"check", none, one, two});
    EXPECT_EQ(result.out, none.string() + ": good, no accelerators\n" + one.string() + ": good, 1 accelerator\n" +
                              two.string() + ": good, 2 accelerators\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(tool, check_takes_a_list_for_a_fault_plan)
{
    const fs::path none = file("none.json", "[]");
    const fs::path one = file("one.json", R"([{"call": "ivra_hw_read", "delay": "20ms"}])");
    const fs::path bad = file("bad.json", R"([{"call": "ivra_hw_raed", "errno": "EIO"}])");
    const run_t result = run({"check", none, one, bad});
    EXPECT_EQ(result.out, none.string() + ": good, no rules\n" + one.string() + ": good, 1 rule\n");
    EXPECT_EQ(result.err, "ivra-virtual: " + bad.string() + ": /0/call: expected the name of a platform call\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(tool, check_remarks_a_sensor_that_cannot_show_its_value)
{
    const fs::path rack = file("a.json", R"({"accelerators": [{"model": "x"}, {"model": "x", "bmc": {"sensors": [
        {"name": "a", "value": 12.03, "m": 63, "r_exp": -3}, {"name": "b", "value": 12.4},
        {"name": "c", "value": -1, "raw": null}, {"name": "d", "value": 12.404, "m": 62, "r_exp": -3}]}}]})");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, rack.string() + ": good, 2 accelerators\n");
    const std::string place = "ivra-virtual: " + rack.string() + ": /accelerators/1/bmc/sensors/";
    EXPECT_EQ(result.err, place + "1/value: 12.40 reads as 12.00, the nearest that the sensor can say\n" + place +
                              "2/value: -1.00 reads as 0.00, the nearest that the sensor can say\n");
}

TEST_F(tool, check_remarks_a_limit_that_its_sensor_cannot_show)
{
    fs::create_directory(folder / "models");
    file("models/mine.json", R"({"bmc": {"sensors": [{"name": "a", "limits": {"upper_critical": 13}}]}})");
    const fs::path rack = file("a.json", R"({"accelerators": [
        {"model": "x", "bmc": {"sensors": [{"name": "a", "m": 63, "r_exp": -3, "limits": {"lower_critical": 10.8,
            "upper_critical": 13.23, "positive_hysteresis": 0.1, "negative_hysteresis": 0.126}}]}},
        {"model": "mine", "bmc": {"sensors": [{"name": "a", "m": 2, "limits": {"lower_critical": 5}}]}}]})");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.status, 0);
    const std::string place = "ivra-virtual: " + rack.string() + ": /accelerators/";
    const std::string remark = ", the nearest that the sensor can say\n";
    EXPECT_EQ(result.err, place + "0/bmc/sensors/0/limits/lower_critical: 10.80 reads as 10.77" + remark + place +
                              "0/bmc/sensors/0/limits/positive_hysteresis: 0.10 reads as 0.13" + remark + place +
                              "1/bmc/sensors/0/limits/lower_critical: 5.00 reads as 4.00" + remark);
}

TEST_F(tool, check_remarks_a_new_sensor_of_a_BMC_beside_others)
{
    const fs::path rack = file("a.json", R"({"accelerators": [
        {"model": "bittware_xupp3r", "bmc": {"sensors": [{"name": "12V0"}, {"name": "12V"}]}},
        {"model": "bittware_xupp3r", "bmc": {"sensors": {"only": true, "list": [{"name": "12V"}]}}},
        {"model": "bittware_xupp3r", "bmc": {"sensors": [{"record": "0d0051c003000000"}]}},
        {"model": "bittware_xupp3r", "bmc": {"sensors": [{"name": "3V3"}, {"name": "3V3"}]}},
        {"model": "x", "bmc": {"sensors": [{"name": "12V"}]}}]})");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.status, 0);
    const std::string place = "ivra-virtual: " + rack.string() + ": /accelerators/";
    const std::string remark = "/bmc/sensors/1/name: a new sensor, as there is none of this name to change\n";
    EXPECT_EQ(result.err, place + "0" + remark + place + "3" + remark);
}

TEST_F(tool, check_remarks_a_field_beside_the_bytes_of_the_whole_FRU)
{
    file("fru.bin", "FRU");
    const std::string text = R"({"accelerators": [
        {"model": "x", "bmc": {"fru": {"serial": "mine", "file": "fru.bin"}}},
        {"model": "x", "bmc": {"fru": {"serial": null, "extra": [], "raw": "00"}}},
        {"model": "x", "bmc": {"fru": {"serial": "mine"}}}]})";
    const fs::path rack = file("a.json", text);
    EXPECT_EQ(run({"check", rack}).err,
              "ivra-virtual: " + rack.string() +
                  ": /accelerators/0/bmc/fru/serial: it is not served, as the whole FRU is given as bytes\n");
    const fs::path expanded = file("b.json", run({"expand", rack}).out);
    EXPECT_EQ(run({"check", expanded}).err, "");
    EXPECT_EQ(run({"expand", expanded}).out, run({"expand", rack}).out);
}

TEST_F(tool, check_remarks_what_a_model_beside_the_rack_says_once)
{
    fs::create_directory(folder / "models");
    const fs::path model =
        file("models/mine.json", R"({"bmc": {"sensors": [{"name": "b", "value": 12.4}, {"name": "a", "value": 3}]}})");
    const fs::path rack = file("a.json", R"({"accelerators": [{"model": "x"}, {"model": "mine"}, {"model": "mine"}]})");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, rack.string() + ": good, 3 accelerators\n");
    EXPECT_EQ(result.err, "ivra-virtual: " + rack.string() + ": /accelerators/1/model: " + model.string() +
                              ": /bmc/sensors/0/value: 12.40 reads as 12.00, the nearest that the sensor can say\n");
}

TEST_F(tool, check_takes_a_file_in_a_folder_of_models_for_a_model)
{
    fs::create_directory(folder / "models");
    const fs::path good = file("models/good.json", R"({"bmc": {"sensors": [{"name": "b", "value": 12.4}]}})");
    const fs::path bad = file("models/bad.json", R"({"mac_count": 4, "device": 7})");
    const fs::path dumped = file("models/dumped.json", R"({"i2c": {"cages": [{"dump": "no.hex"}]}})");
    const run_t result = run({"check", good, bad, dumped});
    EXPECT_EQ(result.out, good.string() + ": good, a model\n");
    EXPECT_EQ(result.err,
              "ivra-virtual: " + good.string() +
                  ": /bmc/sensors/0/value: 12.40 reads as 12.00, the nearest that the sensor can say\n"
                  "ivra-virtual: " +
                  bad.string() +
                  ": /device: expected a text of at most 4096 bytes, or { \"hex\": \"ff41\" } for any bytes\n" +
                  "ivra-virtual: " + dumped.string() + ": /i2c/cages/0/dump: " + (folder / "no.hex").string() +
                  ": cannot be read: No such file or directory\n");
    EXPECT_EQ(result.status, 1);
    const fs::path rack = file("models/rack.json", R"({"accelerators": []})");
    EXPECT_EQ(run({"check", rack}).out, rack.string() + ": good, no accelerators\n");
    for (const std::string& model : vp::known_models()) {
        const std::string path = IVRA_RACKS "/models/" + model + ".json";
        EXPECT_EQ(run({"check", path}).out, path + ": good, a model\n");
    }
}

TEST_F(tool, remarks_come_in_the_order_of_the_file_and_not_with_a_mistake)
{
    const std::string text = R"({"accelerators": [
        {"bmc": {"sensors": [{"name": "a", "value": 1.5}, {"value": 2.5, "name": "b"}]}, "model": "x"},
        {"model": "x", "bmc": {"sensors": [{"name": "c", "value": 3.5}]}, "mmios": 1}]})";
    const fs::path good = file("good.json", text);
    std::string mistaken = text;
    const fs::path bad = file("bad.json", mistaken.replace(text.rfind("1}"), 1, "99"));
    const run_t result = run({"check", good, bad});
    const std::string place = "ivra-virtual: " + good.string() + ": /accelerators/";
    EXPECT_EQ(result.out, good.string() + ": good, 2 accelerators\n");
    EXPECT_EQ(result.err,
              place + "0/bmc/sensors/0/value: 1.50 reads as 1.00, the nearest that the sensor can say\n" + place +
                  "0/bmc/sensors/1/value: 2.50 reads as 2.00, the nearest that the sensor can say\n" + place +
                  "1/bmc/sensors/0/value: 3.50 reads as 3.00, the nearest that the sensor can say\n"
                  "ivra-virtual: " +
                  bad.string() + ": /accelerators/1/mmios: expected a number of MMIO spaces, 0 to 16\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(tool, check_remarks_what_the_model_of_a_board_does_not_have)
{
    const fs::path rack = file("a.json", R"({"accelerators": [
        {"model": "bittware_xupp3r", "xmc": {"dead_link": true}, "bmc": {}},
        {"model": "m48l_xcvu7p", "xmc": null, "i2c": {}},
        {"model": "xilinx_u50", "bmc": {"silent": true}, "xmc": [{"sensors": {"VCCINT": [1, 2, 3]}},
            {"sensors": {"FAN_SPEED": [0, 0, 0], "HBM_TEMP1": [4, 5, 6], "DIMM_TEMP0": [7, 8, 9]}}]},
        {"model": "xilinx_u50", "xmc": {"sensors": {"12V_AUX": [1, 2, 3]}}},
        {"model": "xilinx_u50", "cores": [{"hardware_id": 48, "address": 0, "size": 4}], "bmc": {}},
        {"model": "nobodys", "bmc": {}, "i2c": {}, "xmc": {"sensors": {"FAN_SPEED": [0, 0, 0]}}}]})");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.out, rack.string() + ": good, 6 accelerators\n");
    const std::string place = "ivra-virtual: " + rack.string() + ": /accelerators/";
    EXPECT_EQ(result.err, place + "0/xmc: the model bittware_xupp3r has none\n" + place +
                              "1/i2c: the model m48l_xcvu7p has none\n" + place +
                              "2/bmc: the model xilinx_u50 has none\n" + place +
                              "2/xmc/1/sensors/FAN_SPEED: the model xilinx_u50 has no such sensor\n" + place +
                              "2/xmc/1/sensors/DIMM_TEMP0: the model xilinx_u50 has no such sensor\n" + place +
                              "3/xmc/sensors/12V_AUX: the model xilinx_u50 has no such sensor\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(tool, check_remarks_a_device_that_nobody_can_reach)
{
    const fs::path rack = file("a.json", R"({"accelerators": [
        {"model": "xilinx_u200", "i2c": {"mac_eeprom": "MAC", "cages": ["empty", "qsfp28-sr4"]}},
        {"model": "bittware_xupvv8", "i2c": {"pins": 2, "mac_eeprom": "MAC", "cages": ["sfp-10g-sr", "empty", "qsfp28-sr4"],
            "buses": [{"index": 0, "devices": [
                {"device": "multiplexer", "address": "0x70"},
                {"device": "multiplexer", "address": "0x72", "pin": 1},
                {"device": "mac_eeprom", "address": "0x50", "pin": 2},
                {"device": "cage", "number": 0, "behind": ["0x72", "0x00"]},
                {"device": "cage", "number": 1, "behind": ["0x72", 255]}]}]}},
        {"model": "bittware_xupvv8", "i2c": {"buses": []}},
        {"model": "bittware_xupvv8", "i2c": {"mac_eeprom": null, "buses": []}},
        {"model": "bittware_xupp3r", "i2c": {"cages": [], "pins": 0}},
        {"model": "bittware_xupp3r", "i2c": {"pins": 1}}]})");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.out, rack.string() + ": good, 6 accelerators\n");
    const std::string place = "ivra-virtual: " + rack.string() + ": /accelerators/";
    EXPECT_EQ(result.err, place + "0/i2c/mac_eeprom: no bus has a mac_eeprom, so nobody can read it\n" + place +
                              "1/i2c/cages/2: no bus has cage 2, so nobody can read its module\n" + place +
                              "1/i2c/buses/0/devices/2/pin: it never answers, as there is no such pin: there are 2\n" +
                              place + "1/i2c/buses/0/devices/3/behind/1: it never answers, as this is no channel\n" +
                              place + "4/i2c/pins: a device of the model never answers, as there is no pin 0\n");
    EXPECT_EQ(result.status, 0);
}

TEST_F(tool, check_remarks_limits_that_hosts_do_not_look_for)
{
    const std::string limits =
        R"("limits": {"rx_power": {"high_alarm": 2, "low_alarm": 0.1, "high_warning": 1, "low_warning": 0.2}})";
    const fs::path rack = file("a.json", R"({"accelerators": [{"model": "bittware_xupp3r", "i2c": {"cages": [
        {"map": "qsfp", "flat": true, )" + limits +
                                             R"(}, {"map": "cmis", "flat": true, )" + limits +
                                             R"(}, {"map": "sfp", "calibration": "none", )" + limits +
                                             R"(}, {"map": "cmis", "advertises": ["tx_power"], )" + limits +
                                             R"(}, {"map": "cmis", "advertises": ["rx_power"], )" + limits +
                                             R"(}, {"map": "sfp", )" + limits + R"(}, {"map": "qsfp", )" + limits +
                                             R"(}, {"module": "sfp-no-diagnostics", )" + limits + "}]}}]}");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.out, rack.string() + ": good, 1 accelerator\n");
    const std::string place = "ivra-virtual: " + rack.string() + ": /accelerators/0/i2c/cages/";
    const std::string remark =
        "/limits/rx_power: hosts do not look for them, as the module does not say that it has them\n";
    EXPECT_EQ(result.err, place + "0" + remark + place + "1" + remark + place + "2" + remark + place + "3" + remark +
                              place + "7" + remark);
}

TEST_F(tool, check_asks_whether_a_known_model_is_meant)
{
    fs::create_directory(folder / "models");
    file("models/nl-9.json", "{}");
    std::string accelerators;
    const char* const names[] = {"xilinx_u200", "xilinx_u20",   "Xilinx_U200", "xilinx-u55", "u200", "bitware_xup3r",
                                 "nl-9",        "NL_9",         "nl9",         "nl",         "acme", "xilinx_u280",
                                 "xilinx_u20",  "xilinx_u200x", "unknown",     "xilinx",     "u",    ""};
    for (const char* name : names)
        accelerators += (accelerators.empty() ? "" : ", ") + std::string{R"({"model": ")"} + name + "\"}";
    const fs::path rack = file("a.json", R"({"accelerators": [)" + accelerators + "]}");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.out, rack.string() + ": good, 18 accelerators\n");
    std::string expected;
    const std::pair<int, const char*> meant[] = {
        {1, "xilinx_u200, xilinx_u250 or xilinx_u50"},
        {2, "xilinx_u200"},
        {3, "xilinx_u50 or xilinx_u55c"},
        {4, "xilinx_u200"},
        {5, "bittware_xupp3r"},
        {7, "nl-9"},
        {8, "nl-9"},
        {11, "xilinx_u200 or xilinx_u250"},
        {13, "xilinx_u200"},
    };
    for (const auto& [index, names_meant] : meant)
        expected += "ivra-virtual: " + rack.string() + ": /accelerators/" + std::to_string(index) +
                    "/model: no model of this name; is " + names_meant + " meant?\n";
    EXPECT_EQ(result.err, expected);
    EXPECT_EQ(result.status, 0);
}

TEST_F(tool, check_lists_the_modules_that_there_are_where_one_is_not_found)
{
    fs::create_directory(folder / "modules");
    file("modules/mine.json", "{}");
    file("modules/qsfp-lr4.json", "{}");
    file("modules/notes.txt", "");
    const fs::path rack =
        file("a.json", R"({"accelerators": [{"model": "xilinx_u200", "i2c": {"cages": ["empty", "qsfp28-sr"]}}]})");
    const run_t result = run({"check", rack});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(
        result.err,
        "ivra-virtual: " + rack.string() +
            ": /accelerators/0/i2c/cages/1: expected a module: there is no modules/qsfp28-sr.json beside the rack, "
            "nor among the racks that come with the platform; there are qsfp28-sr4, mine, prototype, qsfp-lr4, "
            "qsfp-plus-cmis, qsfp28-copper, qsfpdd-copper, qsfpdd-dr4, qsfpdd-flat, qsfpdd-zr, sfp-10g-lr, "
            "sfp-10g-sr, sfp-dark-receiver, sfp-external-calibration, sfp-no-diagnostics\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(tool, check_finds_nothing_to_remark_in_the_racks_that_come_with_it)
{
    std::size_t count = 0;
    for (const auto& entry : fs::directory_iterator{IVRA_RACKS}) {
        if (entry.path().extension() != ".json" || entry.path().stem().extension() == ".schema")
            continue;
        const run_t result = run({"check", entry.path()});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        ++count;
    }
    EXPECT_GE(count, 20U);
}

TEST_F(tool, check_says_the_place_of_a_mistake_and_still_checks_the_other_racks)
{
    const fs::path bad = file("bad.json", R"({"accelerators": [{"model": "a", "mmios": -1}]})");
    const fs::path good = file("good.json", R"({"accelerators": []})");
    const run_t result = run({"check", bad, folder / "missing.json", good});
    EXPECT_EQ(result.out, good.string() + ": good, no accelerators\n");
    EXPECT_EQ(result.err, "ivra-virtual: " + bad.string() +
                              ": /accelerators/0/mmios: expected a number of MMIO spaces, 0 to 16\n"
                              "ivra-virtual: " +
                              (folder / "missing.json").string() + ": cannot be read: No such file or directory\n");
    EXPECT_EQ(result.status, 1);
}

// ---- show ----

TEST_F(tool, show_tells_what_is_plugged_where_and_that_it_was_not_used)
{
    const fs::path rack = file("rack.json", two_boards);
    const run_t result = run({"show", rack});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, StartsWith("Rack   " + rack.string() + "\nState  " + state.string() + "/"));
    EXPECT_EQ(result.out.substr(result.out.find("\n\n") + 1), shown_boards("", "not used yet"));
    EXPECT_FALSE(fs::exists(state)); // looking leaves no trace
}

TEST_F(tool, show_tells_what_a_used_board_remembers)
{
    const fs::path rack = file("rack.json", two_boards);
    use_board(rack, 0);
    EXPECT_THAT(run({"show", rack}).out, HasSubstr(shown_boards("", "used, flash erased")));
    use_board(rack, 0, [](vp::board_state& board) {
        const std::uint8_t bytes[] = {1, 2, 3};
        board.flash().write(0x7fd0000, bytes);
    });
    EXPECT_THAT(run({"show", rack}).out,
                HasSubstr(shown_boards("  holds data in 1 sector", "used, flash holds data in 1 sector")));
}

TEST_F(tool, show_tells_of_each_section_in_how_many_sectors_it_holds_data)
{
    const fs::path rack = file("rack.json", R"({"accelerators": [{"model": "xilinx_u200", "flash": {
        "size": "64 KiB", "sector": "4 KiB", "sections": [
            {"name": "A", "start": "0x0", "size": "0x1000"}, {"name": "B", "start": "0x1000", "size": "0x1800"},
            {"name": "C", "start": "0x2800", "size": "0x800"}, {"name": "D", "start": "0x3000", "size": "0x1000"}]}}]})");
    use_board(rack, 0, [](vp::board_state& board) {
        const std::uint8_t bytes[] = {1, 2, 3};
        board.flash().write(0x1ffe, bytes); // the end of one sector, and the beginning of one that B and C share
    });
    EXPECT_THAT(run({"show", rack}).out, HasSubstr("   Flash          64 KiB in sectors of 4 KiB\n"
                                                   "                  A  0x0000 - 0x0fff\n"
                                                   "                  B  0x1000 - 0x27ff  holds data in 2 sectors\n"
                                                   "                  C  0x2800 - 0x2fff  holds data in 1 sector\n"
                                                   "                  D  0x3000 - 0x3fff\n"
                                                   "   Cores"));
}

TEST_F(tool, show_tells_how_far_an_xmc_is)
{
    const fs::path rack = file("rack.json", R"({"accelerators": [{"model": "xilinx_u50", "xmc": [
        {"ready_after": ["0 s", "0 s"], "card": {"name": "FIRST", "serial": null}},
        {"ready_after": ["0 s", "never"], "card": {"raw": "2100"}}, {"dead_link": true}]}]})");
    const auto shown = [](const std::string& first, const std::string& second) {
        return "   XMC            " + first +
               "\n                  FIRST, serial (none)\n"
               "                  " +
               second +
               "\n                  card of 2 raw bytes\n"
               "                  dead link\n                  VIRTUAL U50, serial VRT0050C0001\n";
    };
    EXPECT_THAT(run({"show", rack}).out, HasSubstr(shown("in reset", "in reset")));
    const run_t host = run_in_child([&] {
        ::setenv("IVRA_VIRTUAL_STATE", state.c_str(), 1);
        const vp::rack_t loaded = vp::load_rack(rack);
        const vp::accelerator_t& accelerator = loaded.accelerators.at(0);
        vp::board_state board = vp::board_state::open(loaded, accelerator);
        for (const vp::core_t& core : accelerator.cores) // their resets are released
            if (const vp::xmc_t* config = vp::xmc_behind(accelerator, core))
                vp::xmc{*config, core, board.registers()}.write(0x20010, 1, vp::device_now());
    });
    ASSERT_EQ(host.status, 0) << host.err;
    EXPECT_THAT(run({"show", rack}).out, HasSubstr(shown("ready", "starting")));
}

TEST_F(tool, show_tells_which_boot_image_a_bmc_has_now)
{
    const fs::path rack = file("rack.json", R"({"accelerators": [
        {"model": "ivra_fpb2", "bmc": {"fru": {"serial": "S\u001b1"}, "sensors": {"only": true, "list": [
            {"name": "a"}, {"record": "090051110b0000000000000000000000"}]}}},
        {"model": "x", "bmc": {"silent": true, "boot_image": 9, "configured_from": "backup", "fru": {"raw": "00"}}}]})");
    const auto shown = [](const std::string& image) {
        return "   BMC            boot image " + image +
               ", configured from primary\n                  VIRTUAL FPB2, serial S\\x1b1\n"
               "                  1 sensor\n";
    };
    const std::string before = run({"show", rack}).out;
    EXPECT_THAT(before, HasSubstr(shown("primary")));
    EXPECT_THAT(before, HasSubstr("   BMC            silent, boot image 0x09, configured from backup\n"
                                  "                  FRU of 1 raw byte\n                  0 sensors\n"));
    use_board(rack, 0, [](vp::board_state& board) {
        vp::bmc_memory_t memory = board.bmc().read();
        memory.boot_image_chosen = 1;
        memory.boot_image = 1;
        board.bmc().write(memory);
    });
    EXPECT_THAT(run({"show", rack}).out, HasSubstr(shown("backup")));
}

TEST_F(tool, show_tells_what_is_in_the_cages_and_how_much_power_it_takes)
{
    const fs::path rack = file("rack.json", R"({"accelerators": [{"model": "bittware_xupp3r", "i2c": {
        "pins": 3, "mac_eeprom": "MAC=02:00:00:00:30:00",
        "cages": ["qsfp28-sr4", "silent", {"module": "qsfpdd-dr4", "vendor_name": "A\u001b[2J", "low_power_pin": true},
                  "empty", "sfp-10g-sr", {"map": "sfp", "memory": {}}, "qsfpdd-flat"]}}]})");
    const auto shown = [](const std::string& pins, const std::string& first, const std::string& third) {
        return "   I2C            6 buses, 3 pins: " + pins +
               "\n                  EEPROM with MAC=02:00:00:00:30:00\n"
               "   Cages          0  NORTHLIGHT NL-Q28-SR4, " +
               first +
               " power\n                  1  empty, does not acknowledge\n"
               "                  2  A\\x1b[2J AP-QDD-DR4, " +
               third +
               " power\n                  3  empty\n                  4  NORTHLIGHT NL-S10-SR85\n"
               "                  5  (unnamed)\n                  6  COPPERMOOR CM-QDD-PC05\n"
               "                  7  empty\n";
    };
    EXPECT_THAT(run({"show", rack}).out, HasSubstr(shown("0x0", "high", "low")));
    const run_t host = run_in_child([&] {
        ::setenv("IVRA_VIRTUAL_STATE", state.c_str(), 1);
        const vp::rack_t loaded = vp::load_rack(rack);
        const vp::i2c_t& i2c = loaded.accelerators.at(0).i2c;
        vp::board_state board = vp::board_state::open(loaded, loaded.accelerators.at(0));
        vp::set_control_pins(i2c, board.i2c(), 5);
        const auto write = [&](std::size_t bus, std::vector<std::uint8_t> bytes) {
            vp::i2c_bus{i2c, i2c.buses.at(bus), board.i2c()}.transfer(0x50, bytes, {}, vp::device_now());
        };
        write(1, {93, 0x03});
        write(3, {26, 0x00});
    });
    ASSERT_EQ(host.status, 0) << host.err;
    EXPECT_THAT(run({"show", rack}).out, HasSubstr(shown("0x5", "low", "high")));
}

TEST_F(tool, show_tells_that_a_clock_generator_is_not_loaded)
{
    const fs::path rack = file("rack.json", R"({"accelerators": [{"model": "xilinx_u55c"}]})");
    const std::string shown = "   Clock          not loaded, its outputs are off\n";
    EXPECT_THAT(run({"show", rack}).out, HasSubstr(shown));
    use_board(rack, 0);
    EXPECT_THAT(run({"show", rack}).out, HasSubstr(shown));
}

TEST_F(tool, show_tells_that_a_changed_board_starts_anew)
{
    const fs::path rack = file("rack.json", two_boards);
    use_board(rack, 0);
    std::string changed = two_boards;
    changed.replace(changed.find("45.5"), 4, "45.0");
    file("rack.json", changed);
    EXPECT_THAT(run({"show", rack}).out, HasSubstr("   State          out of date, starts anew with the next use\n"));
}

TEST_F(tool, show_fits_80_columns_for_every_rack_of_ours)
{
    for (const auto& entry : fs::directory_iterator{IVRA_RACKS}) {
        if (entry.path().extension() != ".json" || entry.path().stem().extension() == ".schema")
            continue;
        const run_t result = run({"show", entry.path()});
        EXPECT_EQ(result.status, 0) << result.err;
        std::istringstream lines{result.out.substr(result.out.find("\n\n"))}; // paths may be of any length
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST_F(tool, show_of_an_empty_rack_says_so)
{
    const fs::path rack = file("none.json", R"({"accelerators": []})");
    EXPECT_THAT(run({"show", rack}).out, ::testing::EndsWith("\n\nNo accelerators\n"));
}

// ---- expand and new ----

TEST_F(tool, expand_prints_a_rack_that_expands_to_itself)
{
    const run_t first = run({"expand", file("rack.json", two_boards)});
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_THAT(first.out, HasSubstr(R"("i2c": {
        "pins": 8,
        "mac_eeprom": null,
        "cages": ["empty", "empty"],
        "buses": [)"));
    const run_t second = run({"expand", file("again.json", first.out)});
    EXPECT_EQ(second.out, first.out);
}

TEST_F(tool, new_prints_a_good_rack_for_every_model)
{
    const std::vector<std::string> models{"xilinx_u200",     "xilinx_u250",     "xilinx_u50", "xilinx_u55c",
                                          "bittware_xupp3r", "bittware_xupvv8", "ivra_fpb2",  "m48e_emu_xcvu9p",
                                          "m48l_xcvu7p",     "m48lb_xcvu9p"};
    for (const std::string& model : models) {
        const run_t result = run({"new", model});
        EXPECT_EQ(result.status, 0) << result.err;
        const vp::rack_t rack = vp::parse_rack(result.out, "new.json");
        ASSERT_EQ(rack.accelerators.size(), 1U);
        EXPECT_EQ(rack.accelerators.at(0).model, model);
    }
}

TEST_F(tool, new_makes_as_many_boards_as_it_is_told)
{
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"new", "--count=3", "xilinx_u50", "ivra_fpb2"},
          {"new", "xilinx_u50", "--count", "3", "ivra_fpb2"}}) {
        const vp::rack_t rack = vp::parse_rack(run(words).out, "new.json");
        ASSERT_EQ(rack.accelerators.size(), 3U);
        EXPECT_EQ(rack.accelerators.at(1).model, "ivra_fpb2");
        EXPECT_EQ(rack.accelerators.at(2).model, "xilinx_u50");
    }
    EXPECT_EQ(vp::parse_rack(run({"new", "xilinx_u50", "ivra_fpb2"}).out, "new.json").accelerators.size(), 2U);
    EXPECT_EQ(vp::parse_rack(run({"new", "--count=0", "ivra_fpb2"}).out, "new.json").accelerators.size(), 0U);
}

// ---- reset ----

TEST_F(tool, reset_of_a_rack_forgets_its_boards_and_no_others)
{
    const fs::path first = file("first.json", two_boards);
    const fs::path second = file("second.json", two_boards);
    use_board(first, 0);
    use_board(first, 1);
    use_board(second, 0);
    const run_t result = run({"reset", first});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, StartsWith("Forgot 2 boards: " + state.string() + "/"));
    EXPECT_THAT(result.out, HasSubstr("first.json\n"));
    EXPECT_THAT(run({"show", first}).out, ::testing::Not(HasSubstr("used,")));
    EXPECT_THAT(run({"show", second}).out, HasSubstr("used, flash erased"));
    EXPECT_EQ(run({"reset", first}).out, "Nothing to forget: no board of " + first.string() + " has been used\n");
}

TEST_F(tool, reset_of_a_rack_works_after_its_file_is_gone_and_through_another_name_of_it)
{
    const fs::path rack = file("rack.json", two_boards);
    use_board(rack, 0);
    fs::create_symlink("rack.json", folder / "link.json");
    EXPECT_THAT(run({"reset", folder / "link.json"}).out, StartsWith("Forgot 1 board: "));
    use_board(rack, 0);
    fs::remove(rack);
    EXPECT_THAT(run({"reset", rack}).out, StartsWith("Forgot 1 board: "));
}

TEST_F(tool, reset_knows_the_folder_of_a_rack_whose_path_is_too_long_for_a_name)
{
    fs::create_directories(folder / std::string(120, 'a') / std::string(120, 'b'));
    const fs::path rack = file(std::string(120, 'a') + '/' + std::string(120, 'b') + "/rack.json", two_boards);
    for (const std::vector<std::string>& words : {std::vector<std::string>{"reset", rack}, {"reset"}}) {
        use_board(rack, 0);
        const run_t result = run(words);
        EXPECT_EQ(result.err, "");
        EXPECT_THAT(result.out, MatchesRegex("Forgot 1 board: " + state.string() + "/%%.*rack.json\n"));
        EXPECT_THAT(run({"show", rack}).out, ::testing::Not(HasSubstr("used,")));
    }
}

TEST_F(tool, reset_without_a_rack_forgets_all)
{
    EXPECT_EQ(run({"reset"}).out, "Nothing to forget: no board has been used\n");
    const fs::path first = file("first.json", two_boards);
    const fs::path second = file("second.json", two_boards);
    use_board(first, 0);
    use_board(second, 0);
    const run_t result = run({"reset"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.out, HasSubstr("first.json\n"));
    EXPECT_THAT(result.out, HasSubstr("second.json\n"));
    EXPECT_THAT(run({"show", first}).out, ::testing::Not(HasSubstr("used,")));
    EXPECT_EQ(run({"reset"}).out, "Nothing to forget: no board has been used\n");
}

TEST_F(tool, reset_leaves_a_folder_alone_that_holds_something_else)
{
    const fs::path rack = file("rack.json", two_boards);
    use_board(rack, 0);
    fs::create_directory(state / "Documents");
    std::ofstream{state / "Documents/letter.txt"} << "dear";
    const run_t result = run({"reset"});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "ivra-virtual: reset: " + (state / "Documents").string() +
                              ": expected a folder with states of boards; nothing was removed\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(fs::exists(state / "Documents/letter.txt"));
    EXPECT_THAT(run({"show", rack}).out, HasSubstr("used, flash erased"));
}

TEST_F(tool, reset_leaves_a_racks_folder_alone_that_holds_something_else)
{
    const fs::path rack = file("rack.json", two_boards);
    use_board(rack, 0);
    fs::path rack_folder;
    for (const auto& entry : fs::directory_iterator{state})
        if (entry.path().filename().string()[0] != '.')
            rack_folder = entry.path();
    std::ofstream{rack_folder / "letter.txt"} << "dear";
    for (const std::vector<std::string>& words : {std::vector<std::string>{"reset"}, {"reset", rack.string()}}) {
        const run_t result = run(words);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "ivra-virtual: reset: " + (rack_folder / "letter.txt").string() +
                                  ": expected the state of a board; nothing was removed\n");
        EXPECT_EQ(result.status, 1);
    }
    EXPECT_TRUE(fs::exists(rack_folder / "letter.txt"));
    EXPECT_THAT(run({"show", rack}).out, HasSubstr("used, flash erased"));
}

TEST_F(tool, reset_never_follows_a_symbolic_link)
{
    const fs::path rack = file("rack.json", two_boards);
    use_board(rack, 0);
    const fs::path other = folder / "other";
    fs::rename(state, other); // states of boards indeed, but of another folder
    fs::create_directory(state);
    std::vector<fs::path> kept;
    for (const auto& entry : fs::directory_iterator{other})
        if (entry.path().filename().string()[0] != '.') {
            fs::create_symlink(entry.path(), state / entry.path().filename());
            kept.push_back(entry.path());
        }
    ASSERT_EQ(kept.size(), 1U);
    EXPECT_EQ(run({"reset"}).status, 1);
    EXPECT_EQ(run({"reset", rack}).status, 1);
    EXPECT_TRUE(fs::exists(kept[0] / "0000:01:00.0"));
}

// ---- the command line ----

TEST_F(tool, a_command_line_that_nobody_could_have_meant_is_64_and_says_where_help_is)
{
    const std::string models = "bittware_xupp3r, bittware_xupvv8, ivra_fpb2, m48e_emu_xcvu9p, m48l_xcvu7p, "
                               "m48lb_xcvu9p, xilinx_u200, xilinx_u250, xilinx_u50, xilinx_u55c";
    struct row_t
    {
        std::vector<std::string> words;
        std::string message;
        std::string help;
    };
    const row_t rows[] = {
        {{}, "expected a command", "--help"},
        {{""}, "unknown command \"\"", "--help"},
        {{"chekc", "x"}, "unknown command \"chekc\"; is check meant?", "--help"},
        {{"Show"}, "unknown command \"Show\"; is show meant?", "--help"},
        {{"chance", "x"}, "unknown command \"chance\"; is change meant?", "--help"},
        {{"chage"}, "unknown command \"chage\"; is change meant?", "--help"},
        {{"--shwo"}, "unknown option \"--shwo\"", "--help"},
        {{"explain"}, "unknown command \"explain\"", "--help"},
        {{"help", "expnd"}, "help: unknown command \"expnd\"; is expand meant?", "help --help"},
        {{"help", "show", "x"}, "help: unexpected argument \"x\"", "help --help"},
        {{"--verbose"}, "unknown option \"--verbose\"", "--help"},
        {{"check"}, "check: expected FILE...", "check --help"},
        {{"show"}, "show: expected RACK", "show --help"},
        {{"show", "a", "b"}, "show: unexpected argument \"b\"", "show --help"},
        {{"expand", "a", "b"}, "expand: unexpected argument \"b\"", "expand --help"},
        {{"reset", "a", "\x1b[2J"}, "reset: unexpected argument \"\\x1b[2J\"", "reset --help"},
        {{"reset", "--all"}, "reset: unknown option \"--all\"", "reset --help"},
        {{"reset", "--count=3"}, "reset: unknown option \"--count=3\"", "reset --help"},
        {{"new"}, "new: expected [--count=N] [--dump=FILE] MODEL...", "new --help"},
        {{"new", "xilinx_u51"}, "new: unknown model \"xilinx_u51\", expected one of " + models, "new --help"},
        {{"new", "--count=", "ivra_fpb2"}, "new: --count is \"\", expected a number from 0 to 65536", "new --help"},
        {{"new", "--count=-1", "ivra_fpb2"}, "new: --count is \"-1\", expected a number from 0 to 65536", "new --help"},
        {{"new", "--count=65537", "ivra_fpb2"},
         "new: --count is \"65537\", expected a number from 0 to 65536",
         "new --help"},
        {{"new", "--count=65536", "xilinx_u51"},
         "new: unknown model \"xilinx_u51\", expected one of " + models,
         "new --help"}, // the number is good
        {{"new", "--count=9x", "ivra_fpb2"}, "new: --count is \"9x\", expected a number from 0 to 65536", "new --help"},
        {{"new", "ivra_fpb2", "--count"}, "new: --count: expected a number after it", "new --help"},
        {{"new", "ivra_fpb2", "--dump"}, "new: --dump: expected a file after it", "new --help"},
        {{"check", "--dump=a", "b"}, "check: unknown option \"--dump=a\"", "check --help"},
        {{"new", "--counter=1", "ivra_fpb2"}, "new: unknown option \"--counter=1\"", "new --help"},
    };
    for (const row_t& row : rows) {
        const run_t result = run(row.words);
        EXPECT_EQ(result.err,
                  "ivra-virtual: " + row.message + "\nivra-virtual: try \"ivra-virtual " + row.help + "\"\n");
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 64);
    }
}

TEST_F(tool, two_dashes_end_the_options)
{
    const run_t result = run({"check", "--", "--help"});
    EXPECT_EQ(result.err, "ivra-virtual: --help: cannot be read: No such file or directory\n");
    EXPECT_EQ(result.status, 1);
}

TEST_F(tool, help_names_every_command_and_fits_80_columns)
{
    const std::vector<std::vector<std::string>> lines_of{{"--help"},          {"-h"},
                                                         {"check", "--help"}, {"show", "--help"},
                                                         {"expand", "-h"},    {"reset", "x", "--help"},
                                                         {"new", "--help"},   {"run", "--help"},
                                                         {"change", "-h"}};
    for (const std::vector<std::string>& words : lines_of) {
        const run_t result = run(words);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_THAT(result.out, StartsWith("USAGE\n  ivra-virtual "));
        std::istringstream lines{result.out};
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 79U) << line;
    }
    for (const char* command : {"check", "show", "expand", "reset", "new", "run", "change", "help"})
        EXPECT_THAT(run({"--help"}).out, HasSubstr("\n  " + std::string{command} + " "));
    EXPECT_THAT(run({"--help"}).out,
                HasSubstr("\n"
                          "  new [--count=N] [--dump=FILE] MODEL...\n"
                          "                              Print a rack to start from\n"
                          "  run [RACK] [-- COMMAND...]  Run a command, or a shell, on simulated boards\n"));
}

TEST_F(tool, help_is_a_command_and_an_option)
{
    EXPECT_EQ(run({"help"}).out, run({"--help"}).out);
    EXPECT_EQ(run({"help", "new"}).out, run({"new", "--help"}).out);
    EXPECT_EQ(run({"help", "help"}).out, run({"help", "-h"}).out);
}

TEST_F(tool, version_is_one_line)
{
    const run_t result = run({"--version"});
    EXPECT_THAT(result.out, MatchesRegex("ivra-virtual [0-9]+\\.[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(run({"-V"}).out, result.out);
}

TEST_F(tool, an_output_that_cannot_be_written_is_a_failure_that_says_why)
{
    const run_t full = run({"new", "xilinx_u50"}, {.out = stream_t::full_disk});
    EXPECT_EQ(full.err, "ivra-virtual: cannot write to standard output: No space left on device\n");
    EXPECT_EQ(full.status, 1);
    const run_t closed = run({"--help"}, {.out = stream_t::closed});
    EXPECT_EQ(closed.err, "ivra-virtual: cannot write to standard output: Bad file descriptor\n");
    EXPECT_EQ(closed.status, 1);
}

TEST_F(tool, a_reader_that_went_away_is_a_failure_without_a_message)
{
    const run_t result = run({"--version"}, {.out = stream_t::broken_pipe});
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 1);
}

TEST_F(tool, a_failing_output_stops_no_reset_half_way)
{
    const fs::path rack = file("rack.json", two_boards);
    use_board(rack, 0);
    EXPECT_EQ(run({"reset", rack}, {.out = stream_t::full_disk}).status, 1);
    EXPECT_THAT(run({"show", rack}).out, ::testing::Not(HasSubstr("used,")));
}

} // namespace ivra::tests
