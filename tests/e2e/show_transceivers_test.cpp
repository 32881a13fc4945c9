#include "screens.h"
#include "support/i2c_trace.h"
#include "support/rack.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

/// A text once for each of these numbers, in place of its "#".
std::string each(int first, int last, const std::string& text)
{
    std::string all;
    for (int number = first; number <= last; ++number)
        all += std::string{text}.replace(text.find('#'), 1, std::to_string(number));
    return all;
}

/// What is in a cage: as a rack has it, and below "Port n" on a screen.
struct content_t
{
    std::string cage;
    std::string screen;
};

// QSFP-DD modules keep transmit power, bias and received power in this order; they are shown as received power,
// transmit power and bias all the same.
// clang-format off
const std::vector<content_t> modules{
    {"prototype",
     R"(		Type : Unknown
		Error: Unsupported transceiver found with identifier 0x7a
)"},
    {"qsfp-lr4",
     R"(		Type       : QSFP+ or later
		Vendor name: BLUE FJORD
		Vendor PN  : BF-40LR4-10
		Temperature: 36.500 °C
		VCC        : 3.277 V
		Channel 0
			RX power: 0.708 mW (-1.500 dBm)
			TX bias : 36.200 mA
		Channel 1
			RX power: 0.692 mW (-1.600 dBm)
			TX bias : 35.800 mA
		Channel 2
			RX power: 0.741 mW (-1.300 dBm)
			TX bias : 37.100 mA
		Channel 3
			RX power: 0.676 mW (-1.700 dBm)
			TX bias : 36.600 mA
)"},
    {"qsfp-plus-cmis",
     R"(		Type : QSFP+ or later with Common Management Interface Specification (CMIS)
		Error: Unsupported transceiver found with identifier 0x1e)"
     " (QSFP+ or later with Common Management Interface Specification (CMIS))\n"},
    {"qsfp28-copper",
     R"(		Type       : QSFP28 or later
		Vendor name: CABLEWRIGHT
		Vendor PN  : CW-Q28-DA2
		Temperature: 0.000 °C
		VCC        : 0.000 V
)" +
     each(0, 3, R"(		Channel #
			RX power: 0.000 mW
			TX bias : 0.000 mA
)")},
    {"qsfp28-sr4",
     R"(		Type       : QSFP28 or later
		Vendor name: NORTHLIGHT
		Vendor PN  : NL-Q28-SR4
		Temperature: 33.000 °C
		VCC        : 3.305 V
		Channel 0
			RX power: 0.832 mW (-0.800 dBm)
			TX bias : 6.500 mA
		Channel 1
			RX power: 0.851 mW (-0.700 dBm)
			TX bias : 6.468 mA
		Channel 2
			RX power: 0.794 mW (-1.000 dBm)
			TX bias : 6.532 mA
		Channel 3
			RX power: 0.822 mW (-0.850 dBm)
			TX bias : 6.490 mA
)"},
    {"qsfpdd-copper",
     R"(		Type       : QSFP-DD Double Density 8X pluggable transceiver
		Vendor name: CABLEWRIGHT
		Vendor PN  : CW-QDD-DA1
		Temperature: unavailable
		VCC        : unavailable
)" +
     each(0, 7, R"(		Channel #
			RX power: unavailable
			TX power: unavailable
			TX bias : unavailable
)")},
    {"qsfpdd-dr4",
     R"(		Type       : QSFP-DD Double Density 8X pluggable transceiver
		Vendor name: AURORA PHOTONIX
		Vendor PN  : AP-QDD-DR4
		Temperature: 47.500 °C
		VCC        : 3.301 V
		Channel 0
			RX power: 1.259 mW (1.000 dBm)
			TX power: 3.910 mW (5.922 dBm)
			TX bias : 22.440 mA
		Channel 1
			RX power: 1.230 mW (0.900 dBm)
			TX power: 3.880 mW (5.888 dBm)
			TX bias : 21.930 mA
		Channel 2
			RX power: 1.288 mW (1.100 dBm)
			TX power: 3.950 mW (5.966 dBm)
			TX bias : 22.964 mA
		Channel 3
			RX power: 1.244 mW (0.950 dBm)
			TX power: 3.920 mW (5.933 dBm)
			TX bias : 21.430 mA
)" +
     each(4, 7, R"(		Channel #
			RX power: 0.000 mW
			TX power: 0.000 mW
			TX bias : 0.000 mA
)")},
    {"qsfpdd-flat",
     R"(		Type       : QSFP-DD Double Density 8X pluggable transceiver
		Vendor name: COPPERMOOR
		Vendor PN  : CM-QDD-PC05
		Temperature: unavailable
		VCC        : unavailable
)" +
     each(0, 7, R"(		Channel #
			RX power: unavailable
			TX power: unavailable
			TX bias : unavailable
)")},
    {"qsfpdd-zr",
     R"(		Type       : QSFP-DD Double Density 8X pluggable transceiver
		Vendor name: AURORA PHOTONIX
		Vendor PN  : AP-QDD-ZR-C
		Temperature: 56.250 °C
		VCC        : 3.289 V
		Channel 0
			RX power: 0.100 mW (-10.000 dBm)
			TX power: 2.660 mW (4.249 dBm)
			TX bias : 10.072 mA
)" +
     each(1, 7, R"(		Channel #
			RX power: 0.000 mW
			TX power: 0.000 mW
			TX bias : 0.000 mA
)")},
    {"sfp-10g-lr",
     R"(		Type       : SFP/SFP+/SFP28 or later
		Vendor name: BLUE FJORD
		Vendor PN  : BF-10LR-10
		Temperature: 41.25 °C
		VCC        : 3.287 V
		Channel info
			RX power: 0.219 mW (-6.600 dBm)
			TX power: 0.631 mW (-2.000 dBm)
			TX bias : 31.400 mA
)"},
    {"sfp-10g-sr",
     R"(		Type       : SFP/SFP+/SFP28 or later
		Vendor name: NORTHLIGHT
		Vendor PN  : NL-S10-SR85
		Temperature: 34.50 °C
		VCC        : 3.305 V
		Channel info
			RX power: 0.501 mW (-3.000 dBm)
			TX power: 0.575 mW (-2.400 dBm)
			TX bias : 6.818 mA
)"},
    {"sfp-dark-receiver",
     R"(		Type       : SFP/SFP+/SFP28 or later
		Vendor name: NORTHLIGHT
		Vendor PN  : NL-S10-SR85
		Temperature: 33.00 °C
		VCC        : 3.310 V
		Channel info
			RX power: 0.000 mW
			TX power: 0.562 mW (-2.500 dBm)
			TX bias : 6.742 mA
)"},
    {"sfp-external-calibration",
     R"(		Type       : SFP/SFP+/SFP28 or later
		Vendor name: OLD HARBOUR
		Vendor PN  : OH-1G-LX
		Sensors    : Not available
)"},
    {"sfp-no-diagnostics",
     R"(		Type       : SFP/SFP+/SFP28 or later
		Vendor name: CABLEWRIGHT
		Vendor PN  : CW-SFP-DA3
		Sensors    : Not available
)"},
};
// clang-format on

using names_t = std::vector<std::string>;

/// What is below "Port n" on a screen.
std::string port_of(const std::string& name)
{
    if (name == "empty")
        return "\t\tType: no transceiver detected\n";
    if (name == "silent")
        return "\t\tError: Cannot read transceived identifier: No such device or address\n";
    for (const content_t& row : modules)
        if (row.cage == name)
            return row.screen;
    throw std::invalid_argument{name};
}

std::vector<std::string> ports_of(const names_t& cages)
{
    std::vector<std::string> ports;
    for (const std::string& name : cages)
        ports.push_back(port_of(name));
    return ports;
}

std::string screen(const std::vector<std::string>& ports)
{
    std::string text = "Transceivers\n";
    for (std::size_t i = 0; i < ports.size(); ++i)
        text += "\tPort " + std::to_string(i + 1) + "\n" + ports[i];
    return text;
}

/// The members of a document for what is below "Port n" on a screen.
std::string members_of(const std::string& port)
{
    std::string text;
    std::string end;
    std::istringstream lines{port};
    for (std::string line; std::getline(lines, line);) {
        line.erase(0, line.find_first_not_of('\t'));
        const std::size_t colon = line.find(": ");
        if (line == "Channel info") {
            text += R"(,"Channel info":{)";
            end = "}";
        } else if (colon == std::string::npos) {
            text += std::string{end.empty() ? R"(,"Channels":[)" : "},"} + R"({"Channel":")" + line + "\"";
            end = "}]";
        } else {
            const std::string label = line.substr(0, line.find_last_not_of(' ', colon - 1) + 1);
            text += text.empty() || text.back() == '{' ? "\"" : ",\"";
            text += label + R"(":")" + line.substr(colon + 2) + "\"";
        }
    }
    return text + end;
}

std::string document(const std::vector<std::string>& ports)
{
    std::string text;
    for (std::size_t i = 0; i < ports.size(); ++i)
        text += (text.empty() ? R"({"Port":"Port )" : R"(,{"Port":"Port )") + std::to_string(i + 1) + R"(",)" +
                members_of(ports[i]) + "}";
    return R"({"data":{"Transceivers":[)" + text + R"(]},"status":{"success":true},"log":[]})" + "\n";
}

members_t cages(const names_t& names)
{
    std::string list;
    for (const std::string& name : names)
        list += (list.empty() ? "\"" : ", \"") + name + "\"";
    return cages_of(list);
}

void expect_ports(rack_t& rack, const std::vector<std::string>& ports)
{
    EXPECT_EQ(rack.run("show transceivers"), says(screen(ports)));
    EXPECT_EQ(rack.run("show transceivers --json"), says(document(ports)));
}

void expect_report(rack_t& rack, const names_t& expected)
{
    expect_ports(rack, ports_of(expected));
}

void expect_failure(rack_t& rack, const std::string& text)
{
    EXPECT_EQ(rack.run("show transceivers"), fails(text + "\n"));
    EXPECT_EQ(rack.run("show transceivers --json").out, R"({"data":{},"status":{"success":false,"message":")" + text +
                                                            R"("},"log":[{"type":"error","message":")" + text +
                                                            R"("}]})" + "\n");
}

std::string rule(const std::string& call, int nth, const std::string& effect)
{
    return R"({"call": ")" + call + R"(", "nth": )" + std::to_string(nth) + ", " + effect + "}";
}

const std::string eio = R"("errno": "EIO")";

TEST(show_transceivers, of_every_module_that_comes_with_the_platform)
{
    std::set<std::string> shown;
    for (const content_t& row : modules) {
        SCOPED_TRACE(row.cage);
        rack_t rack;
        rack.plug("xilinx_u200", cages({row.cage, "empty"}));
        expect_report(rack, {row.cage, "empty"});
        shown.insert(row.cage + ".json");
    }
    std::set<std::string> files;
    for (const auto& file : std::filesystem::directory_iterator{std::string{IVRA_RACKS} + "/modules"})
        files.insert(file.path().filename().string());
    EXPECT_EQ(shown, files) << "a new module has a row above, too";
}

TEST(show_transceivers, of_full_boards_with_good_bad_and_empty_cages)
{
    struct row_t
    {
        const char* model;
        names_t cages;
    };
    const row_t rows[] = {
        {"xilinx_u200", {"sfp-10g-sr", "qsfpdd-dr4"}},
        {"xilinx_u250", {"silent", "qsfp28-sr4"}},
        {"bittware_xupp3r", {"qsfp28-sr4", "empty", "prototype", "sfp-10g-lr"}},
        {"bittware_xupp3r",
         {"empty", "qsfp-lr4", "qsfp-plus-cmis", "sfp-dark-receiver", "silent", "qsfpdd-zr", "empty",
          "sfp-no-diagnostics"}},
        {"ivra_fpb2", {"silent", "sfp-external-calibration", "empty", "qsfp28-copper"}},
        {"ivra_fpb2",
         {"qsfpdd-flat", "qsfpdd-flat", "silent", "empty", "prototype", "empty", "sfp-10g-sr", "qsfp28-sr4"}},
        {"bittware_xupvv8", {"empty", "qsfp28-copper", "silent", "qsfpdd-copper"}},
    };
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.model);
        rack_t rack;
        rack.plug(row.model, cages(row.cages));
        expect_report(rack, row.cages);
    }
}

TEST(show_transceivers, of_boards_without_a_module)
{
    for (const std::string model : {"xilinx_u200", "xilinx_u250"}) {
        rack_t rack;
        rack.plug(model);
        expect_report(rack, {"empty", "empty"});
    }
    for (const std::string model : {"bittware_xupp3r", "ivra_fpb2", "bittware_xupvv8"}) {
        rack_t rack;
        rack.plug(model);
        expect_report(rack, {"empty", "empty", "empty", "empty"});
    }
}

// ---- colours ----

enum paint_t : int
{
    normal = 0,
    bold = 1,
    red = 31, // vermilion, too
    green = 32,
    yellow = 33,
    blue = 36,
};

std::string escape(paint_t paint)
{
    return "\033[" + std::to_string(paint) + "m";
}

std::string heading(int tabs, const std::string& text)
{
    return std::string(static_cast<std::size_t>(tabs), '\t') + escape(bold) + text + escape(normal) + "\n";
}

std::string line(int tabs, const std::string& label, paint_t paint, const std::string& value)
{
    return std::string(static_cast<std::size_t>(tabs), '\t') + escape(normal) + label + ": " + escape(paint) + value +
           escape(normal) + escape(normal) + "\n";
}

TEST(show_transceivers, on_a_terminal_has_the_colours_of_each_family)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", cages({"sfp-dark-receiver", "qsfp28-sr4", "qsfpdd-zr", "qsfpdd-copper",
                                        "sfp-no-diagnostics", "prototype", "empty", "empty"}));
    std::string expected = heading(0, "Transceivers");
    const auto identity = [&](int port, const std::string& type, const std::string& name, const std::string& pn) {
        expected += heading(1, "Port " + std::to_string(port)) + line(2, "Type       ", normal, type) +
                    line(2, "Vendor name", normal, name) + line(2, "Vendor PN  ", normal, pn);
    };
    identity(1, "SFP/SFP+/SFP28 or later", "NORTHLIGHT", "NL-S10-SR85");
    expected += line(2, "Temperature", red, "33.00 °C") + line(2, "VCC        ", yellow, "3.310 V") +
                heading(2, "Channel info") + line(3, "RX power", green, "0.000 mW") +
                line(3, "TX power", blue, "0.562 mW (-2.500 dBm)") + line(3, "TX bias ", red, "6.742 mA");
    identity(2, "QSFP28 or later", "NORTHLIGHT", "NL-Q28-SR4");
    expected += line(2, "Temperature", red, "33.000 °C") + line(2, "VCC        ", yellow, "3.305 V");
    const char* const rx_power[] = {"0.832 mW (-0.800 dBm)", "0.851 mW (-0.700 dBm)", "0.794 mW (-1.000 dBm)",
                                    "0.822 mW (-0.850 dBm)"};
    const char* const bias[] = {"6.500 mA", "6.468 mA", "6.532 mA", "6.490 mA"};
    for (std::size_t i = 0; i < 4; ++i)
        expected += heading(2, "Channel " + std::to_string(i)) + line(3, "RX power", green, rx_power[i]) +
                    line(3, "TX bias ", red, bias[i]);
    identity(3, "QSFP-DD Double Density 8X pluggable transceiver", "AURORA PHOTONIX", "AP-QDD-ZR-C");
    expected += line(2, "Temperature", red, "56.250 °C") + line(2, "VCC        ", yellow, "3.289 V");
    expected += heading(2, "Channel 0") + line(3, "RX power", green, "0.100 mW (-10.000 dBm)") +
                line(3, "TX power", blue, "2.660 mW (4.249 dBm)") + line(3, "TX bias ", red, "10.072 mA");
    expected += each(1, 7,
                     heading(2, "Channel #") + line(3, "RX power", green, "0.000 mW") +
                         line(3, "TX power", blue, "0.000 mW") + line(3, "TX bias ", red, "0.000 mA"));
    identity(4, "QSFP-DD Double Density 8X pluggable transceiver", "CABLEWRIGHT", "CW-QDD-DA1");
    expected += line(2, "Temperature", red, "unavailable") + line(2, "VCC        ", red, "unavailable");
    expected += each(0, 7,
                     heading(2, "Channel #") + line(3, "RX power", red, "unavailable") +
                         line(3, "TX power", red, "unavailable") + line(3, "TX bias ", red, "unavailable"));
    identity(5, "SFP/SFP+/SFP28 or later", "CABLEWRIGHT", "CW-SFP-DA3");
    expected += line(2, "Sensors    ", red, "Not available");
    expected += heading(1, "Port 6") + line(2, "Type ", normal, "Unknown") +
                line(2, "Error", red, "Unsupported transceiver found with identifier 0x7a");
    for (const std::string port : {"Port 7", "Port 8"})
        expected += heading(1, port) + line(2, "Type", normal, "no transceiver detected");
    const run_t run = rack.run("show transceivers", {stream_t::terminal, stream_t::terminal});
    EXPECT_EQ(run.out, expected);
    EXPECT_EQ(run.status, 0);
}

TEST(show_transceivers, tells_vermilion_from_red_where_there_are_more_colours)
{
    rack_t rack;
    rack.plug("xilinx_u200", cages({"qsfpdd-dr4", "silent"})).environment("TERM=xterm-256color");
    const std::string out = rack.run("show transceivers --color always").out;
    EXPECT_NE(out.find("Temperature: \033[38;5;166m47.500 °C\033[0m"), std::string::npos);
    EXPECT_NE(out.find("TX bias : \033[38;5;166m22.440 mA\033[0m"), std::string::npos);
    EXPECT_NE(out.find("Error: \033[38;5;175mCannot read"), std::string::npos);
}

// ---- values at the edges ----

TEST(show_transceivers, shows_values_with_the_last_digit_of_single_precision_factors)
{
    struct row_t
    {
        const char* bytes; ///< from 96 on: temperature, voltage, bias, transmitted and received power
        const char* text;
    };
    constexpr row_t rows[] = {
        {"ff80811f000000012710", // -0.5 degrees, 33055, 0, 1 and 10000
         "\t\tTemperature: -0.50 °C\n"
         "\t\tVCC        : 3.305 V\n"
         "\t\tChannel info\n"
         "\t\t\tRX power: 1.000 mW (-0.000 dBm)\n"
         "\t\t\tTX power: 0.000 mW (-40.000 dBm)\n"
         "\t\t\tTX bias : 0.000 mA\n"},
        {"8000ffffffffffff0000", // everything at its end
         "\t\tTemperature: -128.00 °C\n"
         "\t\tVCC        : 6.553 V\n"
         "\t\tChannel info\n"
         "\t\t\tRX power: 0.000 mW\n"
         "\t\t\tTX power: 6.553 mW (8.165 dBm)\n"
         "\t\t\tTX bias : 131.070 mA\n"},
    };
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("xilinx_u200",
                  cages_of(R"({"module": "sfp-10g-sr", "bytes": {"A2:96": ")" + std::string{row.bytes} + R"("}})"));
        expect_ports(rack, {"\t\tType       : SFP/SFP+/SFP28 or later\n"
                            "\t\tVendor name: NORTHLIGHT\n"
                            "\t\tVendor PN  : NL-S10-SR85\n" +
                                std::string{row.text},
                            port_of("empty")});
    }
}

TEST(show_transceivers, shows_vendor_texts_as_they_are_but_fit_for_screens_and_documents)
{
    // Escape and quote in the name, a byte that is not UTF-8 in the part number; a name of nothing but spaces
    rack_t rack;
    rack.plug("xilinx_u200", cages_of(R"({"module": "sfp-no-diagnostics", "bytes":
        {"A0:20": "411b5b326d2242202020202020202020", "A0:40": "43ff4420202020202020202020202020"}},
        {"module": "sfp-no-diagnostics", "vendor_name": "", "vendor_pn": "  PN"})"));
    EXPECT_EQ(rack.run("show transceivers").out, "Transceivers\n"
                                                 "\tPort 1\n"
                                                 "\t\tType       : SFP/SFP+/SFP28 or later\n"
                                                 "\t\tVendor name: A?[2m\"B\n"
                                                 "\t\tVendor PN  : C\xff"
                                                 "D\n"
                                                 "\t\tSensors    : Not available\n"
                                                 "\tPort 2\n"
                                                 "\t\tType       : SFP/SFP+/SFP28 or later\n"
                                                 "\t\tVendor name: \n"
                                                 "\t\tVendor PN  :   PN\n"
                                                 "\t\tSensors    : Not available\n");
    EXPECT_EQ(rack.run("show transceivers -j").out,
              R"({"data":{"Transceivers":[{"Port":"Port 1","Type":"SFP/SFP+/SFP28 or later",)"
              R"("Vendor name":"A\u001B[2m\"B","Vendor PN":"C)"
              "\xef\xbf\xbd"
              R"(D","Sensors":"Not available"},{"Port":"Port 2","Type":"SFP/SFP+/SFP28 or later",)"
              R"("Vendor name":"","Vendor PN":"  PN","Sensors":"Not available"}]},)"
              R"("status":{"success":true},"log":[]})"
              "\n");
}

// ---- what ends the command ----

TEST(show_transceivers, of_other_boards_is_unsupported)
{
    struct row_t
    {
        const char* model;
        const char* text;
    };
    constexpr row_t rows[] = {
        {"xilinx_u50", "Transceiver stats are unsupported for Xilinx Alveo U50 boards"},
        {"xilinx_u55c", "Transceiver stats are unsupported for Xilinx Alveo U55c boards"},
        {"m48e_emu_xcvu9p", "Transceiver stats are unsupported for Arista switches"},
        {"m48l_xcvu7p", "Transceiver stats are unsupported for Arista switches"},
        {"m48lb_xcvu9p", "Transceiver stats are unsupported for Arista switches"},
    };
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.model);
        rack_t rack;
        rack.plug(row.model);
        expect_failure(rack, row.text);
        EXPECT_EQ(i2c_calls(rack), names_t{});
    }
}

TEST(show_transceivers, of_a_board_without_an_i2c_controller_is_an_error)
{
    const std::string logged = "get_i2c: Could not create I2C subsystem: Failed to create i2c object.: No such device";
    const std::string text = "Could not get transceiver statistics as no I2C MM bridge core are detected";
    for (const std::string model : {"xilinx_u200", "xilinx_u250", "bittware_xupp3r", "ivra_fpb2", "bittware_xupvv8"}) {
        SCOPED_TRACE(model);
        rack_t rack;
        rack.plug(model, {{"i2c", "null"}});
        const run_t run = rack.run("show transceivers");
        EXPECT_EQ(run.out, logged + "\n");
        EXPECT_EQ(run.err, text + "\n");
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(rack.run("show transceivers --json").out,
                  R"({"data":{},"status":{"success":false,"message":")" + text + R"("},"log":[)" +
                      R"({"type":"info","message":")" + logged + R"("},{"type":"error","message":")" + text +
                      R"("}]})" + "\n");
    }
}

TEST(show_transceivers, needs_its_buses)
{
    struct row_t
    {
        const char* model;
        int nth;
    };
    constexpr row_t rows[] = {{"xilinx_u200", 1},     {"xilinx_u250", 1},     {"bittware_xupvv8", 1},
                              {"bittware_xupp3r", 1}, {"bittware_xupp3r", 2}, {"bittware_xupp3r", 3},
                              {"bittware_xupp3r", 4}, {"ivra_fpb2", 4}};
    for (const row_t& row : rows) {
        SCOPED_TRACE(std::string{row.model} + " " + std::to_string(row.nth));
        rack_t rack;
        rack.plug(row.model).faults(rule("ivra_i2c_get_bus", row.nth, R"("errno": "ENODEV")"));
        expect_failure(rack, "Cannot get I2C bus: No such device");
    }
}

TEST(show_transceivers, needs_every_write_to_a_multiplexer)
{
    struct row_t
    {
        const char* model;
        names_t cages;
        int writes;
    };
    const row_t rows[] = {{"xilinx_u200", {}, 2},
                          {"bittware_xupvv8", {}, 4},
                          // Five cages bring the multiplexer of bus 5, whose probe is good.
                          {"bittware_xupp3r", {"empty", "empty", "empty", "empty", "sfp-10g-sr"}, 4}};
    for (const row_t& row : rows)
        for (int nth = 1; nth <= row.writes; ++nth) {
            SCOPED_TRACE(std::string{row.model} + " " + std::to_string(nth));
            for (const std::string& effect : {eio, std::string{R"("short": 0)"}, std::string{R"("count": 2)"}}) {
                rack_t rack;
                rack.plug(row.model, cages(row.cages)).faults(rule("ivra_i2c_bus_write", nth, effect));
                expect_failure(rack, "Cannot select I2C multiplexer channel: Input/output error");
            }
        }
}

TEST(show_transceivers, of_a_u200_enables_its_i2c_first)
{
    for (const std::string call : {"ivra_i2c_read_control_pins", "ivra_i2c_write_control_pins"}) {
        rack_t rack;
        rack.plug("xilinx_u200").faults(rule(call, 1, eio));
        expect_failure(rack, "Could not not set enable I2C pin: Input/output error");
    }
    rack_t rack;
    rack.plug("xilinx_u250", {{"i2c", R"({"pins": 0, "buses": []})"}});
    expect_failure(rack, "Could not not set enable I2C pin: Numerical result out of range");
}

// ---- the four further cages of an XUPP3R ----

TEST(show_transceivers, of_an_xupp3r_ends_with_four_cages_where_bus_5_or_its_multiplexer_is_missing)
{
    const names_t first{"sfp-10g-sr", "empty", "silent", "prototype"};
    names_t all = first;
    all.insert(all.end(), {"qsfp28-sr4", "empty", "empty", "empty"});
    struct row_t
    {
        const char* call;
        int nth;
        std::string effect;
    };
    const row_t rows[] = {{"ivra_i2c_get_bus", 5, R"("errno": "ENODEV")"},
                          {"ivra_i2c_get_bus", 5, eio},
                          {"ivra_i2c_bus_read", 1, eio},
                          {"ivra_i2c_bus_read", 1, R"("errno": "ENXIO")"},
                          {"ivra_i2c_bus_read", 1, R"("short": 0)"}};
    for (const row_t& row : rows)
        for (const std::string model : {"bittware_xupp3r", "ivra_fpb2"}) {
            SCOPED_TRACE(row.call + row.effect);
            rack_t rack;
            rack.plug(model, cages(all)).faults(rule(row.call, row.nth, row.effect));
            expect_report(rack, first);
        }
    rack_t rack;
    rack.plug("bittware_xupp3r", cages(all));
    expect_report(rack, all);
}

TEST(show_transceivers, of_an_xupp3r_whose_design_has_no_bus_5_ends_with_four_cages)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", {{"i2c", R"({"cages": ["empty", "sfp-10g-lr", "empty", "empty"], "buses": [
        {"index": 1, "devices": [{"device": "cage", "number": 0}]},
        {"index": 2, "devices": [{"device": "cage", "number": 1}]},
        {"index": 3, "devices": [{"device": "cage", "number": 2}]},
        {"index": 4, "devices": [{"device": "cage", "number": 3}]}]})"}});
    expect_report(rack, {"empty", "sfp-10g-lr", "empty", "empty"});
}

// ---- one bad module among good ones ----

struct failure_t
{
    const char* call; ///< read or write
    int nth;          ///< of the module's own calls
    int shown;        ///< how many of type, vendor name and vendor PN
    const char* error;
};

/// Fails each transaction of the module in the second of four cages in turn.
void expect_failures(const std::string& name, const std::string& type, const std::string& vendor_name,
                     const std::string& vendor_pn, const std::vector<failure_t>& failures)
{
    constexpr int reads_of_the_first_cage = 5;
    for (const failure_t& failure : failures) {
        const bool is_read = failure.call == std::string{"read"};
        const int nth = failure.nth + (is_read ? reads_of_the_first_cage : 0);
        SCOPED_TRACE(name + ": " + failure.call + " " + std::to_string(failure.nth));
        rack_t rack;
        rack.plug("bittware_xupp3r", cages({"sfp-no-diagnostics", name, "sfp-no-diagnostics", "qsfp28-sr4"}))
            .faults(rule("ivra_i2c_bus_" + std::string{failure.call} + "_register", nth, eio));
        const std::vector<std::pair<std::string, std::string>> identity{
            {"Type", type}, {"Vendor name", vendor_name}, {"Vendor PN", vendor_pn}};
        const std::size_t width = failure.shown >= 2 ? 11 : 5; // of "Vendor name", or "Error"
        std::string port;
        const auto add = [&](const std::string& label, const std::string& value) {
            port += "\t\t" + label + std::string(width - label.size(), ' ') + ": " + value + "\n";
        };
        for (int i = 0; i < failure.shown; ++i)
            add(identity[static_cast<std::size_t>(i)].first, identity[static_cast<std::size_t>(i)].second);
        add("Error", failure.error + std::string{*failure.error == '\0' ? "" : ": "} + "Input/output error");
        const std::string good = port_of("sfp-no-diagnostics");
        expect_ports(rack, {good, port, good, port_of("qsfp28-sr4")});
    }
}

constexpr auto cannot_identify = "Cannot read transceived identifier";

TEST(show_transceivers, goes_on_behind_an_sfp_that_fails_anywhere)
{
    expect_failures("sfp-10g-sr", "SFP/SFP+/SFP28 or later", "NORTHLIGHT", "NL-S10-SR85",
                    {{"read", 1, 0, cannot_identify},
                     {"read", 2, 1, cannot_identify},
                     {"read", 3, 1, ""},
                     {"read", 4, 2, ""},
                     {"read", 5, 3, "Cannot read SFP diagnostics monitoring type register"},
                     {"read", 6, 3, "Cannot read SFP diagnostics registers"}});
}

TEST(show_transceivers, shows_blank_texts_that_were_read_before_a_failure)
{
    rack_t rack;
    rack.plug("xilinx_u200", cages_of(R"({"module": "sfp-10g-sr", "vendor_name": "", "vendor_pn": ""}, "empty")"));
    const std::string texts = "\t\tType       : SFP/SFP+/SFP28 or later\n\t\tVendor name: \n";

    rack.faults(rule("ivra_i2c_bus_read_register", 4, eio)); // behind two of the identifier: vendor name, part number
    expect_ports(rack, {texts + "\t\tError      : Input/output error\n", port_of("empty")});

    rack.faults(rule("ivra_i2c_bus_read_register", 5, eio));
    expect_ports(rack,
                 {texts + "\t\tVendor PN  : \n\t\tError      : Cannot read SFP diagnostics monitoring type register: "
                          "Input/output error\n",
                  port_of("empty")});
}

TEST(show_transceivers, goes_on_behind_a_qsfp_that_fails_anywhere)
{
    constexpr auto cannot_select = "Cannot select QSFP upper memory page";
    expect_failures("qsfp-lr4", "QSFP+ or later", "BLUE FJORD", "BF-40LR4-10",
                    {{"read", 1, 0, cannot_identify},
                     {"read", 2, 1, cannot_identify},
                     {"write", 1, 1, cannot_select},
                     {"read", 3, 1, ""},
                     {"write", 2, 2, cannot_select},
                     {"read", 4, 2, ""},
                     {"write", 3, 3, cannot_select},
                     {"read", 5, 3, "Cannot read QSFP module monitors registers"},
                     {"read", 6, 3, "Cannot read QSFP channel monitors registers"}});
}

TEST(show_transceivers, goes_on_behind_a_qsfp_dd_that_fails_anywhere)
{
    constexpr auto cannot_read_lanes = "Cannot read QSFP channel monitors registers";
    expect_failures("qsfpdd-dr4", "QSFP-DD Double Density 8X pluggable transceiver", "AURORA PHOTONIX", "AP-QDD-DR4",
                    {{"read", 1, 0, cannot_identify},
                     {"read", 2, 1, cannot_identify},
                     {"write", 1, 1, "Cannot select QSFP-DD information memory page"},
                     {"read", 3, 1, ""},
                     {"write", 2, 2, "Cannot select QSFP-DD information page"},
                     {"read", 4, 2, ""},
                     {"write", 3, 3, "Cannot select QSFP-DD advertising page"},
                     {"read", 5, 3, "Cannot read QSFP-DD supported monitors registers"},
                     {"read", 6, 3, "Cannot read QSFP-DD temperature register"},
                     {"read", 7, 3, "Cannot read QSFP-DD VCC register"},
                     {"write", 4, 3, "Cannot select QSFP-DD lane status page"},
                     {"read", 8, 3, cannot_read_lanes},
                     {"read", 9, 3, cannot_read_lanes},
                     {"read", 10, 3, cannot_read_lanes}});
}

// ---- the transactions of a whole report ----

std::string read_main(int reg, int size)
{
    return read_registers(0x50, reg, size);
}

std::string select_page(const std::string& page)
{
    return write_register(0x50, 127, page);
}

TEST(show_transceivers, of_a_u200_makes_these_calls_and_no_more)
{
    rack_t rack;
    rack.plug("xilinx_u200", cages({"empty", "qsfpdd-copper"}));
    const names_t expected{"read_control_pins()", "write_control_pins(0x1)", get_bus(0),        write_raw(0x74, "01"),
                           read_main(0, 1),       write_raw(0x74, "02"),     read_main(0, 1),   read_main(0, 1),
                           select_page("00"),     read_main(129, 16),        select_page("00"), read_main(148, 16),
                           select_page("01"),     read_main(159, 2),         select_page("11")};
    rack.run("show transceivers");
    EXPECT_EQ(i2c_calls(rack), expected);
    rack.run("show transceivers"); // the pin is on now, and is written all the same
    EXPECT_EQ(i2c_calls(rack), expected);
}

TEST(show_transceivers, of_an_xupp3r_with_eight_cages_makes_these_calls_and_no_more)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", cages({"qsfp28-sr4", "empty", "silent", "prototype", "sfp-10g-sr", "qsfpdd-dr4",
                                        "empty", "sfp-no-diagnostics"}));
    rack.run("show transceivers");
    EXPECT_EQ(i2c_calls(rack), (names_t{get_bus(1),
                                        read_main(0, 1),
                                        read_main(0, 1),
                                        select_page("00"),
                                        read_main(148, 16),
                                        select_page("00"),
                                        read_main(168, 16),
                                        select_page("00"),
                                        read_main(22, 6),
                                        read_main(34, 16),
                                        get_bus(2),
                                        read_main(0, 1),
                                        get_bus(3),
                                        read_main(0, 1),
                                        get_bus(4),
                                        read_main(0, 1),
                                        get_bus(5),
                                        read_raw(0x72, 1),
                                        write_raw(0x72, "01"),
                                        read_main(0, 1),
                                        read_main(0, 1),
                                        read_main(20, 16),
                                        read_main(40, 16),
                                        read_main(92, 1),
                                        read_registers(0x51, 96, 10),
                                        write_raw(0x72, "02"),
                                        read_main(0, 1),
                                        read_main(0, 1),
                                        select_page("00"),
                                        read_main(129, 16),
                                        select_page("00"),
                                        read_main(148, 16),
                                        select_page("01"),
                                        read_main(159, 2),
                                        read_main(14, 4),
                                        read_main(16, 4),
                                        select_page("11"),
                                        read_main(154, 16),
                                        read_main(170, 16),
                                        read_main(186, 16),
                                        write_raw(0x72, "04"),
                                        read_main(0, 1),
                                        write_raw(0x72, "08"),
                                        read_main(0, 1),
                                        read_main(0, 1),
                                        read_main(20, 16),
                                        read_main(40, 16),
                                        read_main(92, 1)}));
}

TEST(show_transceivers, of_an_xupvv8_makes_these_calls_and_no_more)
{
    rack_t rack;
    rack.plug("bittware_xupvv8");
    rack.run("show transceivers");
    EXPECT_EQ(i2c_calls(rack),
              (names_t{get_bus(0), write_raw(0x72, "10"), read_main(0, 1), write_raw(0x72, "20"), read_main(0, 1),
                       write_raw(0x72, "40"), read_main(0, 1), write_raw(0x72, "80"), read_main(0, 1)}));
}

} // namespace
} // namespace ivra::tests
