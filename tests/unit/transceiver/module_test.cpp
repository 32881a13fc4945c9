// Modules in the first cage of a board of the virtual platform; each story is a process of its own.

#include "hw/i2c.h"
#include "support/i2c_trace.h"
#include "support/outcome.h"
#include "support/rack.h"
#include "support/root_core.h"
#include "transceiver/module.h"

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <variant>
#include <vector>

namespace ivra::bsp::transceiver {
namespace {

using tests::read_registers;
using tests::write_register;
using v6::i2c::bus;
using calls_t = std::vector<std::string>;

// Every number is a raw value away from every other one.
const std::string sfp_module = R"({"map": "sfp", "vendor_name": "SAMPLE CO", "vendor_pn": "S-1",
    "calibration": "internal", "temperature": 25.5, "vcc": 3.3055, "tx_bias": 6, "tx_power": 0.5, "rx_power": 0.0001})";
const std::string sfp_without_diagnostics = R"({"map": "sfp", "vendor_name": "SAMPLE CO", "vendor_pn": "S-0",
    "calibration": "none"})";
const std::string qsfp_module = R"({"map": "qsfp", "identifier": "0x11", "vendor_name": "SAMPLE CO",
    "vendor_pn": "Q-1", "temperature": -9.75, "vcc": 3.3, "rx_power": [0.1, 0.2, 0.3, 0.4], "tx_power": 0.9,
    "tx_bias": [2, 4, 6, 8], "bytes": {"24": "eeee"}})";
const std::string qsfp_dd_module = R"({"map": "cmis", "identifier": "0x18", "vendor_name": "SAMPLE CO",
    "vendor_pn": "D-1", "temperature": -0.5, "vcc": 3.3, "bias_multiplier": 4,
    "bytes": {"11:154": "00010002000300040005000600070008", "11:170": "00110012001300140015001600170018",
              "11:186": "03e80002000300040005000600070008"}})";
const std::string bare_qsfp_dd_module = R"({"map": "cmis", "identifier": "0x18", "vendor_name": "SAMPLE CO",
    "vendor_pn": "D-0", "advertises": []})";

/// A board with this in its first cage.
class cage
{
public:
    explicit cage(const std::string& content, const std::string& faults = "")
    {
        rack_.plug("bittware_xupp3r", {{"i2c", R"({"cages": [)" + content + "]}"}});
        if (!faults.empty())
            rack_.faults(faults);
    }

    /// What an action on the cage's bus says.
    std::string run(const std::function<std::string(bus&)>& action)
    {
        return tests::printed(rack_, [&](const hw::core& root) {
            bus cage_bus = v6::i2c::i2c{root}.get_bus(1).value();
            std::cout << action(cage_bus);
        });
    }

    /// What the last action did on the bus.
    calls_t calls() const
    {
        calls_t all = tests::i2c_calls(rack_);
        EXPECT_EQ(all.at(0), tests::get_bus(1));
        all.erase(all.begin());
        return all;
    }

private:
    tests::rack_t rack_;
};

std::string number(double value)
{
    std::ostringstream text;
    text.precision(std::numeric_limits<double>::max_digits10);
    text << value;
    return text.str();
}

std::string number(std::optional<double> value)
{
    return value ? number(*value) : "-";
}

struct describe_t
{
    std::string operator()(const sfp::stats_t& stats) const
    {
        return "SFP " + number(stats.temperature) + " " + number(stats.vcc) + " " + number(stats.rx_power) + " " +
               number(stats.tx_power) + " " + number(stats.tx_bias);
    }
    std::string operator()(const qsfp::stats_t& stats) const
    {
        std::string text = "QSFP " + number(stats.temperature) + " " + number(stats.vcc);
        for (const qsfp::channel_t& channel : stats.channels)
            text += "\n" + number(channel.rx_power) + " " + number(channel.tx_bias);
        return text;
    }
    std::string operator()(const qsfp_dd::stats_t& stats) const
    {
        std::string text = "QSFP-DD " + number(stats.temperature) + " " + number(stats.vcc);
        for (const qsfp_dd::lane_t& lane : stats.lanes)
            text += "\n" + number(lane.rx_power) + " " + number(lane.tx_power) + " " + number(lane.tx_bias);
        return text;
    }
};

/// A text that was not read is "-".
std::string describe(const std::optional<transceiver_info_t>& info)
{
    if (!info)
        return "empty";
    return info->type.value_or("-") + "\n" + info->vendor_name.value_or("-") + "\n" + info->vendor_pn.value_or("-") +
           "\n" + (info->stats ? std::visit(describe_t{}, *info->stats) : "no stats") +
           (info->error ? "\nerror: " + *info->error : "");
}

std::string stats(bus& b)
{
    return describe(get_module_stats(b));
}

std::string report(bus& b)
{
    return describe(get_module_report(b));
}

calls_t operator+(calls_t some, const calls_t& more)
{
    some.insert(some.end(), more.begin(), more.end());
    return some;
}

std::string read_main(int reg, int size)
{
    return read_registers(0x50, reg, size);
}

std::string select_page(const std::string& page)
{
    return write_register(0x50, 127, page);
}

const std::string read_identifier = read_main(0, 1);

const std::string failed_at(const std::string& call, int nth, const std::string& effect = R"("errno": "EIO")")
{
    return R"({"call": "ivra_i2c_bus_)" + call + R"(_register", "nth": )" + std::to_string(nth) + ", " + effect + "}";
}

TEST(module, type_is_one_byte_read)
{
    struct row_t
    {
        std::string content;
        std::string type;
    };
    const row_t rows[] = {{R"("empty")", "0"},
                          {sfp_module, "1"},
                          {qsfp_module, "2"},
                          {R"({"map": "qsfp", "identifier": "0x0c"})", "2"},
                          {R"({"map": "qsfp", "identifier": "0x0d"})", "2"},
                          {qsfp_dd_module, "3"},
                          {R"("prototype")", "error: Unsupported transceiver found with identifier 0x7a"},
                          {R"("silent")", "system error: Cannot read transceived identifier: No such device or "
                                          "address"}};
    for (const row_t& row : rows) {
        cage c{row.content};
        EXPECT_EQ(c.run([](bus& b) { return std::to_string(static_cast<int>(get_module_type(b))); }), row.type);
        EXPECT_EQ(c.calls(), calls_t{read_identifier});
    }
}

TEST(module, type_has_a_name_even_where_the_type_is_unsupported)
{
    struct row_t
    {
        std::string content;
        std::string name;
    };
    const row_t rows[] = {{R"("empty")", "no transceiver detected"},
                          {sfp_module, "SFP/SFP+/SFP28 or later"},
                          {R"("qsfp-plus-cmis")", "QSFP+ or later with Common Management Interface Specification "
                                                  "(CMIS)"},
                          {R"("prototype")", "Unknown"},
                          {R"("silent")", "system error: Cannot read transceived identifier: No such device or "
                                          "address"}};
    for (const row_t& row : rows) {
        cage c{row.content};
        EXPECT_EQ(c.run(&get_module_type_str), row.name);
        EXPECT_EQ(c.calls(), calls_t{read_identifier});
    }
}

/// A text field of these 16 bytes.
std::string text_of(const std::string& hex, const std::string& faults = "")
{
    cage c{R"({"map": "sfp", "bytes": {"A0:20": ")" + hex + R"("}})", faults};
    const std::string text = c.run([](bus& b) { return read_string(b, 20); });
    EXPECT_EQ(c.calls(), calls_t{read_main(20, 16)});
    return text;
}

TEST(module, text_ends_at_a_nul_or_before_the_spaces_at_its_end)
{
    EXPECT_EQ(text_of("53414d504c4520434f20202020202020"), "SAMPLE CO");
    EXPECT_EQ(text_of("4142434400464748494a4b4c4d4e4f50"), "ABCD");
    EXPECT_EQ(text_of("4142434445464748494a4b4c4d4e4f50"), "ABCDEFGHIJKLMNOP");
    EXPECT_EQ(text_of("20204142092020202020202020202020"), "  AB\t");
    EXPECT_EQ(text_of("20202020202020202020202020202020"), "");
}

TEST(module, text_that_cannot_be_read_whole_is_an_error_without_a_text_of_its_own)
{
    const std::string sample = "53414d504c4520434f20202020202020";
    EXPECT_EQ(text_of(sample, failed_at("read", 1)), "system error: Input/output error");
    EXPECT_EQ(text_of(sample, failed_at("read", 1, R"("errno": "ETIMEDOUT")")), "system error: Connection timed out");
    EXPECT_EQ(text_of(sample, failed_at("read", 1, R"("short": 15)")), "system error: Input/output error");
}

// ---- what modules are and measure ----

const calls_t walk_of_sfp = {read_identifier,   read_identifier,  read_main(20, 16),
                             read_main(40, 16), read_main(92, 1), read_registers(0x51, 96, 10)};
const calls_t walk_of_qsfp = {read_identifier,    read_identifier,   select_page("00"),
                              read_main(148, 16), select_page("00"), read_main(168, 16),
                              select_page("00"),  read_main(22, 6),  read_main(34, 16)};
const calls_t start_of_qsfp_dd = {read_identifier,   read_identifier,    select_page("00"), read_main(129, 16),
                                  select_page("00"), read_main(148, 16), select_page("01"), read_main(159, 2)};
const calls_t walk_of_qsfp_dd = start_of_qsfp_dd + calls_t{read_main(14, 4),   read_main(16, 4),   select_page("11"),
                                                           read_main(154, 16), read_main(170, 16), read_main(186, 16)};

TEST(module_stats, of_an_empty_cage_are_nothing_after_one_read)
{
    cage c{R"("empty")"};
    EXPECT_EQ(c.run(&stats), "empty");
    EXPECT_EQ(c.calls(), calls_t{read_identifier});
}

TEST(module_stats, of_an_sfp_take_six_reads)
{
    cage c{sfp_module};
    // 33055, 1 and 5000 x 0.0001f; 3000 x 0.002f
    EXPECT_EQ(c.run(&stats),
              "SFP/SFP+/SFP28 or later\nSAMPLE CO\nS-1\n"
              "SFP 25.5 3.3054999164960464 9.9999997473787516e-05 0.49999998736893758 6.0000002849847078");
    EXPECT_EQ(c.calls(), walk_of_sfp);
}

TEST(module_stats, of_an_sfp_that_is_not_internally_calibrated_are_absent_and_not_read)
{
    for (const std::string calibration : {"external", "none"}) {
        cage c{R"({"map": "sfp", "vendor_name": "SAMPLE CO", "vendor_pn": "S-0", "calibration": ")" + calibration +
               "\"}"};
        EXPECT_EQ(c.run(&stats), "SFP/SFP+/SFP28 or later\nSAMPLE CO\nS-0\nno stats");
        EXPECT_EQ(c.calls(), calls_t(walk_of_sfp.begin(), walk_of_sfp.end() - 1));
    }
}

TEST(module_stats, of_an_sfp_depend_on_bit_5_alone)
{
    struct row_t
    {
        const char* byte;
        bool shown;
    };
    for (const row_t& row : {row_t{"20", true}, row_t{"ff", true}, row_t{"df", false}, row_t{"00", false}}) {
        cage c{R"({"map": "sfp", "calibration": "internal", "bytes": {"A0:92": ")" + std::string{row.byte} + R"("}})"};
        EXPECT_EQ(c.run(&stats).find("no stats") == std::string::npos, row.shown) << row.byte;
    }
}

TEST(module_stats, of_a_qsfp_select_page_0_three_times)
{
    cage c{qsfp_module};
    EXPECT_EQ(c.run(&stats), "QSFP28 or later\nSAMPLE CO\nQ-1\n"
                             "QSFP -9.75 3.299999916634988\n"
                             "0.099999997473787516 2.0000000949949026\n"
                             "0.19999999494757503 4.0000001899898052\n"
                             "0.29999999242136255 6.0000002849847078\n"
                             "0.39999998989515007 8.0000003799796104");
    EXPECT_EQ(c.calls(), walk_of_qsfp);
}

TEST(module_stats, of_a_qsfp_dd_that_advertises_everything_take_every_block_from_its_place)
{
    cage c{qsfp_dd_module};
    // Received powers of 1 to 8, transmitted ones of 0x11 to 0x18, and biases of 1000 and 2 to 8 of 8 microamperes
    EXPECT_EQ(c.run(&stats), "QSFP-DD Double Density 8X pluggable transceiver\nSAMPLE CO\nD-1\n"
                             "QSFP-DD -0.5 3.299999916634988\n"
                             "9.9999997473787516e-05 0.0016999999570543878 8.0000003799796104\n"
                             "0.00019999999494757503 0.0017999999545281753 0.016000000759959221\n"
                             "0.00029999999242136255 0.0018999999520019628 0.024000001139938831\n"
                             "0.00039999998989515007 0.0019999999494757503 0.032000001519918442\n"
                             "0.00049999998736893758 0.0020999999469495378 0.040000001899898052\n"
                             "0.0005999999848427251 0.0021999999444233254 0.048000002279877663\n"
                             "0.00069999998231651261 0.0022999999418971129 0.056000002659857273\n"
                             "0.00079999997979030013 0.0023999999393709004 0.064000003039836884");
    EXPECT_EQ(c.calls(), walk_of_qsfp_dd);
}

TEST(module_stats, of_a_qsfp_dd_that_advertises_nothing_are_absent_and_page_11_is_selected)
{
    cage c{bare_qsfp_dd_module};
    EXPECT_EQ(c.run(&stats), "QSFP-DD Double Density 8X pluggable transceiver\nSAMPLE CO\nD-0\nQSFP-DD - -\n"
                             "- - -\n- - -\n- - -\n- - -\n- - -\n- - -\n- - -\n- - -");
    EXPECT_EQ(c.calls(), start_of_qsfp_dd + calls_t{select_page("11")});
}

TEST(module_stats, of_a_qsfp_dd_read_each_advertised_monitor_alone)
{
    struct row_t
    {
        const char* monitor;
        calls_t lower;
        calls_t lanes;
        const char* first_lines; ///< of the values: the module, then lane 0
    };
    const row_t rows[] = {
        {"temperature", {read_main(14, 4)}, {}, "QSFP-DD 25.5 -\n- - -\n"},
        {"vcc", {read_main(16, 4)}, {}, "QSFP-DD - 3.299999916634988\n- - -\n"},
        {"rx_power", {}, {read_main(154, 16)}, "QSFP-DD - -\n9.9999997473787516e-05 - -\n"},
        {"tx_power", {}, {read_main(170, 16)}, "QSFP-DD - -\n- 0.00019999999494757503 -\n"},
        {"tx_bias", {}, {read_main(186, 16)}, "QSFP-DD - -\n- - 2.0000000949949026\n"},
    };
    for (const row_t& row : rows) {
        cage c{R"({"map": "cmis", "identifier": "0x18", "temperature": 25.5, "vcc": 3.3, "advertises": [")" +
               std::string{row.monitor} + R"("], "bytes": {"11:154": "0001", "11:170": "0002", "11:186": "03e8"}})"};
        EXPECT_NE(c.run(&stats).find(row.first_lines), std::string::npos) << row.monitor;
        EXPECT_EQ(c.calls(), start_of_qsfp_dd + row.lower + calls_t{select_page("11")} + row.lanes) << row.monitor;
    }
}

TEST(module_stats, of_a_qsfp_dd_have_a_bias_multiplier_of_1_2_4_or_again_1)
{
    // All monitors, the transmit bias among them, and the code in bits 3 and 4; raw 1000 everywhere
    const std::map<std::string, std::string> biases{{"0307", "2.0000000949949026"},
                                                    {"030f", "4.0000001899898052"},
                                                    {"0317", "8.0000003799796104"},
                                                    {"031f", "2.0000000949949026"}};
    for (const auto& [code, bias] : biases) {
        cage c{R"({"map": "cmis", "identifier": "0x18", "bytes": {"01:159": ")" + code +
               R"(", "11:154": "03e8", "11:170": "03e8", "11:186": "03e8"}})"};
        EXPECT_NE(c.run(&stats).find("\n0.099999997473787516 0.099999997473787516 " + bias + "\n"), std::string::npos)
            << code;
    }
}

TEST(module_stats, leave_the_page_that_was_selected_last)
{
    cage c{qsfp_dd_module};
    EXPECT_EQ(c.run([](bus& b) {
        get_module_stats(b);
        std::uint8_t page = 0;
        b.read_register(0x50, 127, &page, 1).access_value_or_throw();
        return std::to_string(page);
    }),
              "17");
    cage failing{qsfp_dd_module, failed_at("read", 5)}; // the supported monitors
    EXPECT_EQ(failing.run([](bus& b) {
        get_module_report(b);
        std::uint8_t page = 0;
        b.read_register(0x50, 127, &page, 1).access_value_or_throw();
        return std::to_string(page);
    }),
              "1");
}

// ---- every transaction failed in turn ----

struct failure_t
{
    const char* call; ///< read or write
    int nth;          ///< of these calls
    int shown;        ///< how many of type, vendor name and vendor PN were read before
    const char* text;
};

/// Fails each of these transactions in turn, and also makes it come up one byte short.
void expect_failures(const std::string& module, const std::vector<std::string>& identity, const calls_t& walk,
                     const std::vector<failure_t>& failures)
{
    ASSERT_EQ(failures.size(), walk.size());
    for (std::size_t i = 0; i < walk.size(); ++i) {
        const failure_t& failure = failures[i];
        SCOPED_TRACE(walk[i]);
        const bool is_write = failure.call == std::string{"write"};
        const int size = is_write ? 1 : std::stoi(walk[i].substr(walk[i].rfind(' ')));
        for (const std::string& effect : {std::string{R"("errno": "EIO")"}, R"("short": )" + std::to_string(size - 1),
                                          R"("count": )" + std::to_string(size + 1)}) {
            const std::string faults = failed_at(failure.call, failure.nth, effect);
            const std::string error =
                failure.text + std::string{*failure.text == '\0' ? "" : ": "} + "Input/output error";
            cage throwing{module, faults};
            EXPECT_EQ(throwing.run(&stats), "system error: " + error);
            EXPECT_EQ(throwing.calls(), calls_t(walk.begin(), walk.begin() + static_cast<std::ptrdiff_t>(i) + 1))
                << "nothing after it";

            std::string expected;
            for (int text = 0; text < 3; ++text)
                expected += (text < failure.shown ? identity.at(static_cast<std::size_t>(text)) : "-") + "\n";
            cage reporting{module, faults};
            EXPECT_EQ(reporting.run(&report), expected + "no stats\nerror: " + error);
            EXPECT_EQ(reporting.calls(), throwing.calls());
        }
        cage late{module, failed_at(failure.call, failure.nth, R"("errno": "ETIMEDOUT")")};
        EXPECT_TRUE(late.run(&stats).ends_with("Connection timed out")) << "the platform's own error";
    }
}

constexpr auto cannot_identify = "Cannot read transceived identifier";

TEST(module_failure, of_an_sfp_has_the_text_of_its_transaction)
{
    expect_failures(sfp_module, {"SFP/SFP+/SFP28 or later", "SAMPLE CO", "S-1"}, walk_of_sfp,
                    {{"read", 1, 0, cannot_identify},
                     {"read", 2, 1, cannot_identify},
                     {"read", 3, 1, ""},
                     {"read", 4, 2, ""},
                     {"read", 5, 3, "Cannot read SFP diagnostics monitoring type register"},
                     {"read", 6, 3, "Cannot read SFP diagnostics registers"}});
}

TEST(module_failure, of_a_qsfp_has_the_text_of_its_transaction)
{
    constexpr auto cannot_select = "Cannot select QSFP upper memory page";
    expect_failures(qsfp_module, {"QSFP28 or later", "SAMPLE CO", "Q-1"}, walk_of_qsfp,
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

TEST(module_failure, of_a_qsfp_dd_has_the_text_of_its_transaction_and_lanes_have_that_of_a_qsfp)
{
    constexpr auto cannot_read_lanes = "Cannot read QSFP channel monitors registers";
    expect_failures(qsfp_dd_module, {"QSFP-DD Double Density 8X pluggable transceiver", "SAMPLE CO", "D-1"},
                    walk_of_qsfp_dd,
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

TEST(module_failure, of_an_unsupported_identifier_has_its_type_from_the_one_read)
{
    cage c{R"("prototype")"};
    EXPECT_EQ(c.run(&stats), "error: Unsupported transceiver found with identifier 0x7a");
    EXPECT_EQ(c.run(&report), "Unknown\n-\n-\nno stats\nerror: Unsupported transceiver found with identifier 0x7a");
    EXPECT_EQ(c.calls(), calls_t{read_identifier});
}

TEST(module_failure, of_a_module_that_changes_between_the_two_reads_of_its_identifier_is_the_second_name)
{
    // The second read gives 0x03 XOR 0x12 = 0x11
    cage c{sfp_without_diagnostics, failed_at("read", 2, R"("garble": "12")")};
    EXPECT_EQ(c.run(&stats), "QSFP28 or later\nSAMPLE CO\nS-0\nno stats") << "classified by the first";
}

TEST(module_report, of_a_good_module_or_an_empty_cage_is_that_of_the_stats)
{
    for (const std::string& content :
         {std::string{R"("empty")"}, sfp_module, sfp_without_diagnostics, qsfp_module, qsfp_dd_module}) {
        cage one{content};
        cage other{content};
        EXPECT_EQ(one.run(&report), other.run(&stats));
        EXPECT_EQ(one.calls(), other.calls());
    }
}

// ---- power mode ----

/// Sets a mode, and says what it says and what the control byte `reg` is afterwards.
std::string after(cage& c, qsfp_power_mode_t mode, std::uint8_t reg)
{
    return c.run([=](bus& b) {
        const std::string said = tests::outcome([&] { set_qsfp_power_mode(b, mode); });
        std::uint8_t byte = 0;
        b.read_register(0x50, reg, &byte, 1).access_value_or_throw();
        return said + " " + tests::hexadecimal(byte);
    });
}

struct control_t
{
    const char* map;
    const char* identifier;
    std::uint8_t reg;
    const char* name; ///< in failures
    const char* old;
    qsfp_power_mode_t mode;
    const char* changed;
};

constexpr control_t controls[] = {
    {"qsfp", "0x0c", 93, "QSFP power control byte", "04", qsfp_power_mode_t::low, "07"},
    {"qsfp", "0x0d", 93, "QSFP power control byte", "04", qsfp_power_mode_t::high, "05"},
    {"qsfp", "0x11", 93, "QSFP power control byte", "ff", qsfp_power_mode_t::high, "fd"},
    {"cmis", "0x18", 26, "QSFP-DD module level controls", "40", qsfp_power_mode_t::low, "10"},
    {"cmis", "0x18", 26, "QSFP-DD module level controls", "40", qsfp_power_mode_t::high, "00"},
    {"cmis", "0x18", 26, "QSFP-DD module level controls", "f3", qsfp_power_mode_t::high, "a3"},
};

std::string module_with(const control_t& control)
{
    return R"({"map": ")" + std::string{control.map} + R"(", "identifier": ")" + control.identifier +
           R"(", "bytes": {")" + std::to_string(control.reg) + R"(": ")" + control.old + R"("}})";
}

std::string shown(const std::string& byte)
{
    return " " + tests::hexadecimal(std::stoi(byte, nullptr, 16));
}

TEST(power_mode_of_a_module, is_a_read_and_a_write_of_its_control_byte)
{
    for (const control_t& control : controls) {
        cage c{module_with(control)};
        EXPECT_EQ(after(c, control.mode, control.reg), "ok" + shown(control.changed));
        EXPECT_EQ(c.calls(), (calls_t{read_identifier, read_main(control.reg, 1),
                                      write_register(0x50, control.reg, control.changed), read_main(control.reg, 1)}))
            << "the last read is the test's; no page is selected, nothing is read back";
    }
}

TEST(power_mode_of_a_module, that_cannot_be_set_stays_as_it_was)
{
    for (const control_t& control : controls)
        for (const std::string effect : {R"("errno": "EIO")", R"("short": 0)"}) {
            cage no_read{module_with(control), failed_at("read", 2, effect)};
            EXPECT_EQ(after(no_read, control.mode, control.reg), "system error: Cannot read " +
                                                                     std::string{control.name} +
                                                                     ": Input/output error" + shown(control.old));
            EXPECT_EQ(no_read.calls(),
                      (calls_t{read_identifier, read_main(control.reg, 1), read_main(control.reg, 1)}));
            cage no_write{module_with(control), failed_at("write", 1, effect)};
            EXPECT_EQ(after(no_write, control.mode, control.reg), "system error: Cannot update " +
                                                                      std::string{control.name} +
                                                                      ": Input/output error" + shown(control.old));
            EXPECT_EQ(no_write.calls(),
                      (calls_t{read_identifier, read_main(control.reg, 1),
                               write_register(0x50, control.reg, control.changed), read_main(control.reg, 1)}))
                << "nothing is tried again";
        }
}

TEST(power_mode_of_a_module, is_none_of_an_sfp_and_an_error_in_an_empty_cage)
{
    struct row_t
    {
        std::string content;
        const char* said;
    };
    const row_t rows[] = {
        {sfp_module, "ok"},
        {R"("empty")", "error: Cannot set low power mode"},
        {R"("prototype")", "error: Unsupported transceiver found with identifier 0x7a"},
        {R"("silent")", "system error: Cannot read transceived identifier: No such device or address"},
    };
    for (const row_t& row : rows)
        for (const qsfp_power_mode_t mode : {qsfp_power_mode_t::low, qsfp_power_mode_t::high}) {
            cage c{row.content};
            EXPECT_EQ(c.run([mode](bus& b) {
                set_qsfp_power_mode(b, mode);
                return std::string{"ok"};
            }),
                      row.said);
            EXPECT_EQ(c.calls(), calls_t{read_identifier}) << "nothing else";
        }
}

} // namespace
} // namespace ivra::bsp::transceiver
