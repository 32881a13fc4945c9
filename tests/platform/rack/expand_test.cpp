#include "bad_racks.h"

#include "rack/rack.h"
#include "json/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace ivra::tests {

namespace {

using namespace ivra::virtual_platform;
using namespace std::string_literals;

/// The accelerators, without how the rack file spells them.
std::vector<accelerator_t> contents(rack_t rack)
{
    for (accelerator_t& accelerator : rack.accelerators)
        accelerator.text.clear();
    return rack.accelerators;
}

void expect_to_expand_to_itself(const rack_t& rack)
{
    const std::string text = expand(rack);
    const rack_t again = parse_rack(text, "expanded.json");
    EXPECT_EQ(contents(again), contents(rack));
    EXPECT_EQ(expand(again), text);
}

} // namespace

TEST(expand, every_rack_that_comes_with_it_expands_to_itself)
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator{IVRA_RACKS}) {
        if (entry.path().extension() != ".json" || entry.path().stem().extension() == ".schema")
            continue;
        SCOPED_TRACE(entry.path());
        expect_to_expand_to_itself(load_rack(entry.path()));
        ++count;
    }
    EXPECT_GE(count, 6U);
}

TEST(expand, a_rack_with_everything_unusual_expands_to_itself)
{
    const std::string rows[] = {
        R"("name": null, "open": "ETIMEDOUT", "mmios": 0)",
        R"("name": "\u0000\u001b\u007f\u0085\"\\é")",
        R"("name": {"hex": "ff00"}, "uid": {"hex": "fe"}, "fpga": {"device": {"hex": "c0"}})",
        R"("name": "", "fpga": {"device": ""})",
        R"("mac_addresses": [])",
        R"("mac_addresses": ["02:00:00:00:00:01", "02:00:00:00:00:00"])",
        R"("mac_addresses": ["ff:ff:ff:ff:ff:ff", "00:00:00:00:00:00"])",
        R"("mac_addresses": ["02:00:00:00:00:01", "02:00:00:00:00:01"])",
        R"("fpga": {"temperature": 0.1})",
        R"("fpga": {"temperature": -1.7976931348623157e308})",
        R"("fpga": {"temperature": 5e-324})",
        R"("fpga": {"temperature": 9007199254740993})",
        R"("flash": {"size": 1023, "sector": 1, "sections": [{"start": 0, "size": 1023}]})",
        R"("flash": {"sections": [{"name": "", "start": 0, "size": 1, "protected": true}]})",
        R"("cores": [])",
        R"("xmc": null)",
        R"("xmc": [])",
        R"("xmc": [{}])",
        R"("xmc": [{"dead_link": true}, {"power_good": false, "error": "0xffffffff"}, {}])",
        R"("xmc": {}, "cores": [{"hardware_id": 475, "address": 0, "size": 8}, {"hardware_id": 475, "address": 8, "size": "0x2a010"}])",
        R"("cores": [{"hardware_id": 475, "address": 0, "size": "192 KiB"}, {"hardware_id": 475, "address": "1 MiB", "size": "192 KiB"}])",
        R"("xmc": {"ready_after": ["never", "999999999.999999999 s"], "answer_after": "0.001 us"})",
        R"("xmc": {"ready_after": ["0 us", "1.000000001 s"], "answer_after": "12.345678 ms"})",
        R"("xmc": {"card": {"name": null, "revision": null, "serial": null, "macs": null, "fan": null, "configuration_mode": null, "maximum_power": null, "firmware": null}})",
        R"("xmc": {"card": {"legacy_macs": ["", null, {"hex": "ff"}, "x\u0000"], "macs": {"first": "02:00:00:00:20:00", "count": 0}}})",
        R"("xmc": {"card": {"legacy_macs": []}})",
        R"("xmc": {"card": {"extra": [{"key": 0, "value": ""}, {"key": 255, "value": {"hex": "80"}}]}})",
        R"("xmc": {"card": {"raw": ""}})",
        R"("xmc": {"card": {"raw": "00FF"}})",
        R"("xmc": {"sensors": {"12V_PEX": [0, 0, 0], "HBM_1V2_I": [1, 2, 3], "PEX_3V_POWER": [4, 5, 6]}})",
        R"("i2c": null)",
        R"("i2c": {"pins": 0, "mac_eeprom": null, "cages": [], "buses": []})",
        R"("i2c": {"pins": 32, "mac_eeprom": {"hex": "ff"}, "cages": ["silent", "empty"]})",
        R"("i2c": {"mac_eeprom": ""}, "model": "bittware_xupp3r")",
        R"("i2c": {"cages": ["empty", "empty", "empty", "silent", "empty"]}, "model": "bittware_xupp3r")",
        R"("i2c": {}, "model": "bittware_xupvv8")",
        R"("i2c": {"cages": ["empty"], "buses": [{"index": 255, "devices": [
            {"device": "multiplexer", "address": 0, "pin": 31}, {"device": "clock_generator", "address": 127},
            {"device": "multiplexer", "address": 1, "behind": [0, 255], "pin": null},
            {"device": "cage", "number": 0, "behind": [1, 1]}, {"device": "cage", "number": 0, "behind": null}]}]})",
        R"("i2c": {"cages": ["sfp-10g-sr", "qsfpdd-flat"]})",
        R"("i2c": {"cages": ["sfp-no-diagnostics", {"module": "qsfp-lr4", "low_power_pin": true}]})",
        R"("i2c": {"cages": [{"map": "cmis", "memory": {}}, {"map": "sfp", "memory": {"A2": "00"}}]})",
        R"("i2c": {"cages": [{"map": "qsfp", "memory": {"lower": "ff00", "ff": "0001"}}, "silent"]})",
        R"("bmc": {})",
        R"("bmc": {"latency": "never", "silent": true, "boot_image": "backup", "configured_from": "none", "depth": 1, "pieces": [1, 1]})",
        R"("bmc": {"boot_image": 9, "configured_from": "0xFF", "depth": 64, "pieces": null})",
        R"("bmc": {"fru": {"manufacturer": null, "product": "", "serial": {"hex": "ff"}, "part_number": "x\u0000", "extra": ["", "A"]}})",
        R"("bmc": {"fru": {"raw": ""}})",
        R"("bmc": {"fru": {"raw": "00FF"}, "sensors": []})",
        R"("bmc": {"sensors": [{"name": "", "value": -1.25e-3}, {"name": {"hex": "ff"}, "unit": 18, "modifier": "times", "modifier_unit": 200}]})",
        R"("bmc": {"sensors": [{"name": "a", "raw": "0xff", "format": "none", "rate": "reserved", "linearisation": 255, "percent": true, "available": false}]})",
        R"("bmc": {"sensors": [{"record": "", "response": ""}, {"record": "0001", "raw": 3, "available": false, "next": 65535}]})",
        R"("model": "bittware_xupp3r", "bmc": {"sensors": [{"name": "12V0", "raw": 3}, {"name": "3V3", "response": "00"}, {"name": "Board temp", "m": 2}, {"name": "DIMM temp", "value": 30, "id": 77}]})",
        R"("bmc": {"sensors": [{"name": "a", "limits": {}}, {"name": "b", "limits": null}, {"name": "c", "limits": {"lower_critical": null}},
            {"name": "d", "m": -3, "limits": {"lower_non_recoverable": -765, "lower_non_critical": -0.1, "upper_critical": 0, "positive_hysteresis": 0, "negative_hysteresis": 1}},
            {"name": "e", "limits": {"upper_critical": 9007199254740993e-15}}]})",
        R"("model": "bittware_xupp3r", "bmc": {"sensors": {"only": false, "list": [{"name": "12V0", "available": false}]}})",
        R"("bmc": {"answers": [{"to": ""}, {"to": "0A11", "nth": 4294967295, "latency": "never", "code": 0, "data": "", "noise": "00", "lose": [0, 4095], "pieces": []}]})",
        R"("bmc": {"answers": [{"to": "0601", "frame": "a0", "latency": "1 ms", "pieces": [16]}]})",
        R"("cores": [{"hardware_id": 48, "address": "0x7ffffffffffffff8", "size": 8, "registers": {"0x4": 0}}])",
        R"("cores": [{"hardware_id": 4294967295, "address": 0, "size": "16 MiB", "registers": {"0xfffffc": 4294967295}}])",
    };
    for (const std::string& row : rows) {
        SCOPED_TRACE(row);
        expect_to_expand_to_itself(parse_rack(
            row.find("\"model\"") == std::string::npos ? rack_with(row) : R"({"accelerators": [{)" + row + "}]}",
            "my.json"));
    }
}

TEST(expand, says_everything_in_operators_units)
{
    const rack_t rack =
        parse_rack(R"({"accelerators": [{"model": "m48l_xcvu7p", "uid": "0000:3b:00.0", "name": "virtual-x",
        "fpga": {"device": "xcvu7p", "serial": "4002000001285C0F1A104285", "temperature": 45.5},
        "mac_addresses": ["02:00:00:00:10:00", "02:00:00:00:10:01"],
        "flash": {"sections": [{"start": 4096, "size": 16785408}]},
        "cores": [{"hardware_id": 475, "address": 1048576, "size": 196608, "registers": {"0x10": 26}}],
        "xmc": {"ready_after": ["0.5s", "never"], "answer_after": "1500 ms", "error": 26,
            "card": {"name": null, "serial": {"hex": "FF"}, "legacy_macs": [null, "02:00:00:00:20:00", null],
                     "firmware": {"hex": "312e30"}, "extra": [{"key": 33, "value": "B"}]},
            "sensors": {"VCCINT": [1, "0x1a", 4294967295]}}}]})",
                   "my.json");
    EXPECT_EQ(expand(rack), R"({
  "accelerators": [
    {
      "name": "virtual-x",
      "model": "m48l_xcvu7p",
      "uid": "0000:3b:00.0",
      "open": null,
      "fpga": { "device": "xcvu7p", "serial": "4002000001285c0f1a104285", "temperature": 45.5 },
      "mac_addresses": { "first": "02:00:00:00:10:00", "count": 2 },
      "flash": {
        "size": "128 MiB",
        "sector": "64 KiB",
        "sections": [{ "name": null, "start": "0x1000", "size": "0x1002000", "protected": false }]
      },
      "mmios": 1,
      "cores": [{ "hardware_id": 475, "address": "0x100000", "size": "192 KiB", "registers": { "0x10": "0x1a" } }],
      "i2c": null,
      "bmc": null,
      "xmc": {
        "ready_after": ["500 ms", "never"],
        "answer_after": "1.5 s",
        "error": "0x1a",
        "dead_link": false,
        "power_good": true,
        "card": {
          "name": null,
          "revision": "A",
          "serial": { "hex": "ff" },
          "macs": null,
          "legacy_macs": [null, "02:00:00:00:20:00"],
          "fan": false,
          "configuration_mode": 7,
          "maximum_power": 75,
          "firmware": "1.0",
          "extra": [{ "key": "0x21", "value": "B" }],
          "raw": null
        },
        "sensors": { "VCCINT": [1, 26, 4294967295] }
      }
    }
  ]
}
)");
}

TEST(expand, says_everything_of_a_BMC)
{
    const rack_t rack = parse_rack(R"({"accelerators": [{"model": "ivra_fpb2", "bmc": {"boot_image": 9,
        "fru": {"part_number": null}, "answers": [{"to": "0421", "code": 192}],
        "sensors": {"only": true, "list": [
            {"name": "12V0", "unit": 4, "value": 12.03, "m": 63, "r_exp": -3, "next": 1,
             "limits": {"lower_critical": 10.8, "positive_hysteresis": 0.06}}, {"record": "0A", "id": 9}]}}}]})",
                                   "my.json");
    EXPECT_THAT(expand(rack), ::testing::HasSubstr(R"(
      "bmc": {
        "latency": "5 ms",
        "silent": false,
        "boot_image": "0x09",
        "configured_from": "primary",
        "depth": 16,
        "pieces": [],
        "fru": {
          "manufacturer": "VIRTUAL",
          "product": "FPB2",
          "serial": "VRTFB20001",
          "part_number": null,
          "file_id": "",
          "extra": [],
          "raw": null
        },
        "sensors": {
          "only": true,
          "list": [
            {
              "name": "12V0",
              "number": 1,
              "unit": "V",
              "value": 12.03,
              "available": true,
              "m": 63,
              "b": 0,
              "r_exp": -3,
              "b_exp": 0,
              "format": "unsigned",
              "linearisation": "linear",
              "modifier": "none",
              "modifier_unit": "unspecified",
              "rate": "none",
              "percent": false,
              "limits": {
                "lower_non_recoverable": null,
                "lower_critical": 10.8,
                "lower_non_critical": null,
                "upper_non_critical": null,
                "upper_critical": null,
                "upper_non_recoverable": null,
                "positive_hysteresis": 0.06,
                "negative_hysteresis": null
              },
              "next": "0x1"
            },
            { "record": "0a", "raw": 0, "available": false, "id": "0x9", "next": null }
          ]
        },
        "answers": [
          {
            "to": "0421",
            "nth": null,
            "latency": null,
            "code": "0xc0",
            "data": null,
            "noise": "",
            "frame": null,
            "lose": [],
            "pieces": null
          }
        ]
      },)"));
}

TEST(expand, no_control_character_reaches_the_screen)
{
    const std::string text = expand(parse_rack(rack_with("\"name\": \"\\u001b\\u0000\x7f\xc2\x9b\""), "my.json"));
    EXPECT_THAT(text, ::testing::HasSubstr(R"("\u001B\u0000\u007f\u009b")"));
}

TEST(starter, holds_the_models_in_turn_with_what_people_change)
{
    const rack_t rack = parse_rack(starter({"xilinx_u50", "m48l_xcvu7p"}, 3), "my.json");
    ASSERT_EQ(rack.accelerators.size(), 3U);
    EXPECT_EQ(rack.accelerators.at(0).model, "xilinx_u50");
    EXPECT_EQ(rack.accelerators.at(1).model, "m48l_xcvu7p");
    EXPECT_EQ(rack.accelerators.at(2).model, "xilinx_u50");
    const rack_t defaults = parse_rack(
        R"({"accelerators": [{"model": "xilinx_u50"}, {"model": "m48l_xcvu7p"}, {"model": "xilinx_u50"}]})", "my.json");
    EXPECT_EQ(contents(rack), contents(defaults)); // it writes down what would be so anyway
}

TEST(text, makes_everything_visible_that_a_screen_would_obey)
{
    const std::pair<std::string, std::string> rows[] = {
        {"plain \xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80", "plain \xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80"},
        {"\x1b[2J\n\x7f\0"s, R"(\x1b[2J\x0a\x7f\x00)"},
        {"\xc2\x9b", R"(\xc2\x9b)"}, // a control sequence introducer in one character
        {"\xc2\xa0", "\xc2\xa0"},
        {"\xff\xc3", R"(\xff\xc3)"},                 // a byte that is none of UTF-8, and half a character at the end
        {"\xc0\x80", R"(\xc0\x80)"},                 // a longer form of NUL
        {"\xe0\x9f\xbf", R"(\xe0\x9f\xbf)"},         // a longer form
        {"\xed\xa0\x80", R"(\xed\xa0\x80)"},         // a surrogate
        {"\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"}, // beyond U+10FFFF
        {"\xe2\x82"
         "a",
         R"(\xe2\x82a)"},
    };
    for (const auto& [text, shown] : rows) {
        EXPECT_EQ(printable(text), shown);
    }
}

TEST(text, sizes_have_the_largest_unit_that_says_them_exactly)
{
    EXPECT_EQ(size_text(0), "0x0");
    EXPECT_EQ(size_text(1), "0x1");
    EXPECT_EQ(size_text(1024), "1 KiB");
    EXPECT_EQ(size_text(65536), "64 KiB");
    EXPECT_EQ(size_text(0x1002000), "0x1002000");
    EXPECT_EQ(size_text(128U << 20U), "128 MiB");
    EXPECT_EQ(size_text(std::uint64_t{4} << 30U), "4 GiB");
    EXPECT_EQ(size_text(UINT64_MAX), "0xffffffffffffffff");
}

} // namespace ivra::tests
