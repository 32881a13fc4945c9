// ivra-virtual change: the words that say what changes, and how what is wrong with them is told.

#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace ivra::tests {

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class change : public ::testing::Test
{
protected:
    change()
    {
        std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
        folder = fs::canonical(::mkdtemp(name.data()));
        std::ofstream{folder / "rack.json"} << R"({"accelerators": [
            {"name": "alveo", "model": "xilinx_u200", "xmc": {"sensors": {"FPGA_TEMP": [45, 44, 51]}}},
            {"name": "bitt", "model": "bittware_xupp3r", "i2c": {"cages": ["empty", "qsfp28-sr4"]}, "bmc": {"sensors": {"only": true, "list": [
                {"name": "12V0", "unit": "V", "value": 12, "m": 1, "r_exp": -1},
                {"name": "twin", "unit": "degrees C", "value": 20},
                {"name": "twin", "unit": "degrees C", "value": 21, "id": "0x1f"},
                {"name": "flow", "unit": "RPM", "rate": "s", "value": 3},
                {"name": "load", "percent": true, "value": 50}]}}},
            {"name": "bare", "model": "something"}]})";
    }
    ~change() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    run_t run(const std::vector<std::string>& words) const
    {
        return run_program(IVRA_VIRTUAL_COMMAND, words, {"IVRA_VIRTUAL_STATE=" + (folder / "state").string()});
    }

    /// A board's name and what is to be changed of it, separated by spaces.
    run_t make(const std::string& words) const
    {
        std::vector<std::string> arguments{"change", folder / "rack.json"};
        std::istringstream stream{words};
        for (std::string word; stream >> word;)
            arguments.push_back(word);
        return run(arguments);
    }

    /// What is shown of the rack, from the label on.
    std::string shown(const std::string& label) const
    {
        const std::string all = run({"show", folder / "rack.json"}).out;
        const std::size_t at = all.find("   " + label);
        return at == std::string::npos ? "" : all.substr(at, all.find("   State", at) - at);
    }

    fs::path folder;
};

TEST_F(change, says_values_as_people_do_and_shows_what_differs_from_the_rack)
{
    struct row_t
    {
        const char* words;
        const char* shown;
    };
    const row_t rows[] = {
        {"alveo sensor FPGA_TEMP 85 C", "sensor FPGA_TEMP 85 C, not 45 C"},
        {"alveo sensor FPGA_TEMP 86C", "sensor FPGA_TEMP 86 C, not 45 C"},
        {"alveo sensor FPGA_TEMP 87 °C", "sensor FPGA_TEMP 87 C, not 45 C"},
        {"alveo sensor FPGA_TEMP 88 degrees C", "sensor FPGA_TEMP 88 C, not 45 C"},
        {"alveo sensor VCCINT 0.9 V", "sensor VCCINT 0.9 V, not 0.851 V"},
        {"alveo sensor VCCINT 901 mV", "sensor VCCINT 0.901 V, not 0.851 V"},
        {"alveo sensor VCCINT_I 12 A", "sensor VCCINT_I 12 A, not 5.618 A"},
        {"alveo sensor FAN_SPEED 1200 rpm", "sensor FAN_SPEED 1200 rpm, not 1120 rpm"},
        {"0 sensor FAN_SPEED 0 RPM", "sensor FAN_SPEED 0 rpm, not 1120 rpm"},
        {"bitt sensor 12V0 13.2 V", "sensor 12V0 13.2 V, not 12 V"},
        {"1 sensor 12V0 unavailable", "sensor 12V0 unavailable, not 12 V"},
        {"bitt sensor 0x1f 30 C", "sensor twin 30 C, not 21 C"},
        {"bitt sensor flow 4", "sensor flow 4, not 3"},
        {"bitt sensor load 60", "sensor load 60, not 50"},
        {"alveo power-good bad", "power-good bad"},
        {"alveo ready after 3 s", "ready after 3 s"},
        {"alveo ready after never", "ready after never"},
        {"alveo fpga-temperature 99 C", "fpga-temperature 99 C, not 45.5 C"},
        {"alveo plug 0 sfp-10g-lr", "plug 0 with another module"},
        {"bitt unplug 1", "unplug 1"},
        {"bitt module 1 temperature 70", "module 1 with other values"},
        {"bitt module 1 tx_bias 7 7 7 6.5 mA", "module 1 with other values"},
        {"bitt module 1 vcc 3200 mV", "module 1 with other values"},
        {"bitt module 1 temperature high_warning 60 C", "module 1 with other values"},
        {"bitt silent on", "silent on"},
        {"bitt boot-image backup", "boot-image backup"},
        {"bitt boot-image 0x07", "boot-image 0x07"},
        {"bitt configured-from backup", "configured-from backup, not primary"},
    };
    for (const row_t& row : rows) {
        EXPECT_EQ(make(row.words), says("")) << row.words;
        EXPECT_EQ(shown("Changed"), "   Changed        " + std::string{row.shown} + '\n') << row.words;
        const std::string name{row.words, std::string{row.words}.find(' ')};
        EXPECT_EQ(make(name + " reset"), says("Undid all changes of " + name + '\n'));
        EXPECT_EQ(make(name + " reset"), says("Nothing to undo: " + name + " is as its rack says\n"));
    }
}

TEST_F(change, back_to_what_the_rack_says_is_none)
{
    EXPECT_EQ(make("bitt sensor 12V0 13.2 V"), says(""));
    EXPECT_EQ(make("bitt sensor 12V0 unavailable"), says(""));
    EXPECT_EQ(make("bitt sensor 12V0 12 V"), says(""));
    EXPECT_EQ(shown("Changed"), "");
    EXPECT_EQ(make("bitt reset"), says("Nothing to undo: bitt is as its rack says\n"));
}

TEST_F(change, remarks_a_value_that_the_sensor_cannot_show)
{
    EXPECT_EQ(
        make("bitt sensor 12V0 13.26 V"),
        (run_t{"", "ivra-virtual: sensor 12V0 13.26 V: 13.26 reads as 13.30, the nearest that the sensor can say\n",
               0}));
    EXPECT_EQ(make("alveo sensor VCCINT 0.8504 V"),
              (run_t{"",
                     "ivra-virtual: sensor VCCINT 0.8504 V: 0.8504 V reads as 0.85 V, the nearest that its register "
                     "can say\n",
                     0}));
}

TEST_F(change, that_cannot_be_made_says_what_was_expected_and_changes_nothing)
{
    const std::string of_bitt = "expected a sensor of the board; there are ";
    const struct
    {
        const char* words;
        std::string what;
    } rows[] = {
        {"bitt sensor 12VO 12 V", of_bitt + "12V0, twin, flow, load"},
        {"bare sensor 12V0 12 V", of_bitt + "none"},
        {"bitt sensor 12V0 12", "expected a number and its unit, such as \"0.9 V\", or unavailable"},
        {"bitt sensor 12V0 12 A", "expected a number and its unit, such as \"0.9 V\", or unavailable"},
        {"bitt sensor 12V0 nan V", "expected a number and its unit, such as \"0.9 V\", or unavailable"},
        {"bitt sensor 12V0 V", "expected a number and its unit, such as \"0.9 V\", or unavailable"},
        {"bitt sensor 12V0 1e400 V", "expected a number and its unit, such as \"0.9 V\", or unavailable"},
        {"bitt sensor twin 12 C", "expected the record ID of one of the sensors of this name: 0x2, 0x1f"},
        {"bitt sensor load 12 W", "expected a number in the sensor's own unit, such as 1200, or unavailable"},
        {"alveo sensor FPGA_TEMP 85", "expected a number and its unit, such as \"85 C\""},
        {"alveo sensor FPGA_TEMP -5 C", "expected a value from 0 to 4.29497e+09 C, as its register has 32 bits"},
        {"alveo sensor VCCINT 4294968 V", "expected a value from 0 to 4.29497e+06 V, as its register has 32 bits"},
        {"alveo power-good maybe", "expected good or bad"},
        {"alveo silent on", "expected a board with a BMC"},
        {"bitt power-good bad", "expected a board with a card management controller"},
        {"alveo ready after 3", "expected a time such as \"1.5 s\", \"30 ms\" or \"50 us\", or \"never\""},
        {"alveo ready in 3 s", "expected ready after TIME"},
        {"bitt boot-image third", "expected none, primary or backup, or the byte that it says, such as \"0x04\""},
        {"bare unplug 0", "expected a board with cages"},
        {"bitt unplug 4", "expected the number of a cage, 0 to 3"},
        {"bitt unplug -1", "expected the number of a cage, 0 to 3"},
        {"bitt module 0 temperature 3", "expected a cage with a module, which 0 is not"},
        {"bitt module 1 temp 3", "expected a monitor; there are temperature, vcc, rx_power, tx_power, tx_bias"},
        {"bitt module 1 temperature hot", "expected numbers, with or without one of the units C, °C, degrees C"},
        {"bitt module 1 temperature 3 V", "expected numbers, with or without one of the units C, °C, degrees C"},
        {"bitt module 1 temperature 200", "expected a number from -128 to 127.996"},
        {"bitt module 1 vcc 3 3", "expected a number of volts"},
        {"bitt module 1 rx_power 1 2", "expected a number, or a list of 4, one for each lane"},
        {"bitt module 1 temperature high_alarm 1",
         "expected limits that rise in the order low_alarm, low_warning, high_warning, high_alarm"},
        {"bitt plug 0 {\"module\"}",
         "MODULE: line 1, column 10: not JSON: Missing a colon after a name of object member"},
        {"alveo sensor FPGA_TEMP unavailable",
         "expected a value, as a card management controller has one for every sensor"},
    };
    for (const auto& row : rows) {
        const std::string words{row.words};
        EXPECT_EQ(make(words),
                  fails("ivra-virtual: change: " + words.substr(words.find(' ') + 1) + ": " + row.what + '\n'));
    }
    EXPECT_EQ(shown("Changed"), "");
    EXPECT_EQ(make("nobody sensor 12V0 12 V"),
              fails("ivra-virtual: change: " + (folder / "rack.json").string() +
                    " has no accelerator of the name, uid or index \"nobody\"; there are alveo, bitt, bare\n"));
}

TEST_F(change, of_words_that_say_none_is_64)
{
    const struct
    {
        const char* words;
        const char* what;
    } rows[] = {
        {"bitt", "expected RACK ACCELERATOR WHAT..."},
        {"bitt sensr 12V0 12 V", "expected what to change; there are sensor, module, unplug, plug, power-good, "
                                 "ready, silent, boot-image, configured-from, fpga-temperature, reset"},
        {"bitt sensor", "expected sensor NAME VALUE"},
        {"bitt sensor 12V0", "expected sensor NAME VALUE"},
        {"bitt sensor 12V0 --help=me", "unknown option \"--help=me\""},
    };
    for (const auto& row : rows)
        EXPECT_EQ(make(row.words), (run_t{"",
                                          "ivra-virtual: change: " + std::string{row.what} +
                                              "\nivra-virtual: try \"ivra-virtual change --help\"\n",
                                          64}))
            << row.words;
}

} // namespace

} // namespace ivra::tests
