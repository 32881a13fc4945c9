#include "changes.h"
#include "screens.h"

#include "support/rack.h"

#include <ivra/i2c.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace ivra::tests {
namespace {

const std::string other_models[] = {"xilinx_u200", "xilinx_u250", "xilinx_u50", "xilinx_u55c"};
const std::string arista_models[] = {"m48e_emu_xcvu9p", "m48l_xcvu7p", "m48lb_xcvu9p"};

// ---- set boot-image ----

const std::string backup_part = "Setting boot image to backup... ";
const std::string boot_prefix = "Boot image setting failure: ";
const std::string only_bittware = boot_prefix + "Setting boot image is only supported on Bittware boards";

TEST(set_boot_image, is_the_next_reload_for_every_process_after_it)
{
    for (const std::string& model : bittware_models) {
        rack_t rack;
        rack.plug(model, bmc_of(R"("configured_from": "primary", "boot_image": "primary")"));
        for (const std::string image : {"backup", "backup", "primary"}) {
            const run_t run = rack.run("set boot-image " + image);
            // Deliberate: what the BMC's line says completes the line that was begun; the outcome comes alone.
            EXPECT_EQ(run.out, "Setting boot image to " + image + "... " + remains + "success\n") << model;
            EXPECT_EQ(run.err, "");
            EXPECT_EQ(run.status, 0);
            EXPECT_EQ(rack.run("show boot-image").out, remains + remains +
                                                           "Boot image\n"
                                                           "\tCurrent boot: primary\n"
                                                           "\tNext reload : " +
                                                           image + "\n");
            EXPECT_TRUE(shown(rack, "BMC").starts_with("boot image " + image + ", configured from primary\n"));
        }
    }
}

TEST(set_boot_image, changes_the_board_that_was_chosen_and_no_other)
{
    rack_t rack;
    for (int i = 0; i < 2; ++i)
        rack.plug("bittware_xupp3r", bmc_of(R"("configured_from": "primary", "boot_image": "primary")"));
    EXPECT_EQ(rack.run("-a 1 set boot-image backup").status, 0);
    EXPECT_NE(rack.run("-a 0 show boot-image").out.find("\tNext reload : primary\n"), std::string::npos);
    EXPECT_NE(rack.run("-a card-1 show boot-image").out.find("\tNext reload : backup\n"), std::string::npos);
}

TEST(set_boot_image, is_one_request)
{
    rack_t rack;
    rack.plug("bittware_xupvv8");
    const std::string padding = " a5 00 00 00 00 00 00 00 00], ";
    for (const auto& [image, code] : {std::pair{"primary", "00"}, std::pair{"backup", "01"}}) {
        rack.run(std::string{"set boot-image "} + image);
        const std::vector<std::string> written = traced(rack, "ivra_uart_write_all(0000:00:00.0, [");
        ASSERT_EQ(written.size(), 1U);
        EXPECT_NE(written[0].find("[a0 b8 00 09 18 7b 00 07 " + (code + padding)), std::string::npos) << written[0];
    }
}

TEST(set_boot_image, tells_its_story_in_the_log_of_a_json_document)
{
    rack_t rack;
    rack.plug("ivra_fpb2");
    const run_t run = rack.run("--json set boot-image backup");
    EXPECT_EQ(run.out,
              json(true, "", {backup_part + "recv_data: Data remains after end of IPMI transaction.", "success"}));
    EXPECT_EQ(run.err, backup_part + remains + "success\n");
    EXPECT_EQ(run.status, 0);
}

TEST(set_boot_image, has_its_colours_on_a_terminal)
{
    rack_t rack;
    rack.plug("bittware_xupp3r");
    const run_t run = rack.run("set boot-image backup", terminals);
    EXPECT_EQ(run.out, reset + backup_part + reset + reset + remains.substr(0, remains.size() - 1) + reset + "\n" +
                           green + "success" + reset + "\n");
    EXPECT_EQ(run.err, "");
    const run_t json_run = rack.run("set boot-image backup --json --color always");
    EXPECT_EQ(json_run.out.find('\033'), std::string::npos);
    EXPECT_EQ(json_run.err, run.out);
}

TEST(set_boot_image, of_other_boards_is_refused)
{
    for (const std::string& model : other_models) {
        rack_t rack;
        rack.plug(model);
        expect_failure(rack.run("set boot-image backup"), "", backup_part, only_bittware);
    }
    for (const std::string& model : arista_models) {
        rack_t rack;
        rack.plug(model);
        expect_failure(rack.run("set boot-image primary"), "", "Setting boot image to primary... ", only_bittware);
    }
}

TEST(set_boot_image, that_is_refused_tells_so_in_colour_and_in_json)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    const run_t coloured = rack.run("set boot-image backup", terminals);
    EXPECT_EQ(coloured.out, reset + backup_part + reset + red + "fail" + reset + "\n");
    EXPECT_EQ(coloured.err, red + only_bittware + reset + "\n");
    const run_t run = rack.run("set boot-image backup --json");
    EXPECT_EQ(run.out, json(false, only_bittware, {backup_part + "fail"}));
    EXPECT_EQ(run.err, backup_part + "fail\n" + only_bittware + "\n");
    EXPECT_EQ(run.status, 1);
}

TEST(set_boot_image, without_a_bmc_fails)
{
    const std::string text = boot_prefix + "Could not set/get boot image as Bittware BMC subsustem is not initialized.";
    for (const std::string& model : bittware_models) {
        rack_t rack;
        rack.plug(model, {{"bmc", "null"}});
        expect_failure(rack.run("set boot-image backup"),
                       "get_bmc: Could not initialize Bittware BMC subsystem: "
                       "Failed to create UART subsystem: No such device\n",
                       backup_part, text);
    }
}

TEST(set_boot_image, that_the_bmc_does_not_confirm_has_failed)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"({"to": "2e09187b0007", "code": "0xc1", "data": "187b00"})", "Error setting boot image. Response code: 193"},
        {R"({"to": "2e09187b0007", "code": "0xd5", "data": "187b0000"})",
         "Error setting boot image. Response code: 213"},
        {R"({"to": "2e09187b0007", "code": "0xc1"})",   "Incomplete IPMI OEM command response received from BMC"},
        {R"({"to": "2e09187b0007", "data": "187b"})",   "Incomplete IPMI OEM command response received from BMC"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r", bmc_of(std::string{R"("answers": [)"} + row.fault + "]"));
        const run_t run = rack.run("set boot-image backup");
        EXPECT_EQ(run.out, backup_part + remains + "fail\n") << row.fault;
        EXPECT_EQ(run.err, boot_prefix + row.text + "\n") << row.fault;
        EXPECT_EQ(run.status, 1);
        const run_t json_run = rack.run("set boot-image backup --json");
        EXPECT_EQ(json_run.out, json(false, boot_prefix + row.text,
                                     {backup_part + "recv_data: Data remains after end of IPMI transaction.", "fail"}));
    }
}

TEST(set_boot_image, at_a_bmc_that_does_not_answer_fails)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(R"("silent": true, "boot_image": "primary")"));
    expect_failure(rack.run("set boot-image backup"), "", backup_part,
                   boot_prefix + "Cannot find IPMI transaction in response");
    EXPECT_TRUE(shown(rack, "BMC").starts_with("silent, boot image primary, "));
}

TEST(set_boot_image, over_a_line_that_fails_fails)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"("call": "ivra_hw_shared_mutex_lock")", "Input/output error"},
        {R"("call": "ivra_uart_write_all")",       "Error sending IPMI data: Input/output error"},
        {R"("call": "ivra_uart_read")",            "Cannot read IPMI response: Input/output error"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r");
        rack.faults(std::string{"{"} + row.fault + R"(, "errno": "EIO"})");
        expect_failure(rack.run("set boot-image backup"), "", backup_part, boot_prefix + row.text);
    }
}

TEST(set_boot_image, killed_after_any_call_is_chosen_or_not_and_leaves_no_lock)
{
    expect_killing_leaves_a_beginning({
        .plug = [](rack_t& rack) { rack.plug("bittware_xupp3r", bmc_of(R"("boot_image": "primary")")); },
        .words = "set boot-image backup",
        .changes = {"ivra_uart_write_all("},
        .check =
            [](rack_t& rack, std::size_t done) {
                const std::string image = done == 0 ? "primary" : "backup";
                EXPECT_TRUE(shown(rack, "BMC").starts_with("boot image " + image + ",")) << shown(rack, "BMC");
            },
    });
}

// ---- set transceiver-speed ----

/// Of a card whose XMC is ready at once.
const members_t::value_type xmc_at_once{"xmc", R"({"ready_after": ["0 s", "0 s"]})"};

const std::string speed_part = "Updating transceiver speed... ";
const std::string speed_prefix = "Transceiver speed update failure: ";
const std::string only_u5x = speed_prefix + "Setting transceiver speeds is only supported on Alveo U5x boards";
const std::string write_failed = speed_prefix + "Error writing clock I2C register: Input/output error";

const std::map<std::string, std::string> megahertz{{"1G", "125"}, {"10G", "161.1328125"}};

std::string running(const std::array<std::string, 4>& outputs)
{
    std::string lines = "running\n";
    for (std::size_t i = 0; i < outputs.size(); ++i)
        lines += "OUT" + std::to_string(i) + "  " + outputs.at(i) + " MHz\n";
    return lines;
}

std::string u50_clock(const std::string& speed)
{
    return running({megahertz.at(speed), "322.265625", "322.265625", "100"});
}

std::string u55c_clock(const std::string& first, const std::string& second)
{
    return running({megahertz.at(first), megahertz.at(second), "100", "100"});
}

void expect_speed_set(const run_t& run)
{
    EXPECT_EQ(run.out, speed_part + "success\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(set_transceiver_speed, of_a_u50_is_the_frequency_of_its_first_output)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    rack.run("list");
    EXPECT_EQ(shown(rack, "Clock"), "not loaded, its outputs are off\n");
    for (const std::string speed : {"1G", "10G", "10G", "1G"}) {
        expect_speed_set(rack.run("set transceiver-speed " + speed));
        EXPECT_EQ(shown(rack, "Clock"), u50_clock(speed));
    }
}

TEST(set_transceiver_speed, of_a_u55c_are_the_frequencies_of_its_first_two_outputs_in_their_order)
{
    rack_t rack;
    rack.plug("xilinx_u55c");
    for (const std::string first : {"1G", "10G"})
        for (const std::string second : {"1G", "10G"}) {
            expect_speed_set(rack.run("set transceiver-speed " + first + " " + second));
            EXPECT_EQ(shown(rack, "Clock"), u55c_clock(first, second));
        }
}

TEST(set_transceiver_speed, takes_parts_of_words_for_the_first_speed_that_has_them)
{
    // Each begins with another speed than the words stand for.
    rack_t u50;
    u50.plug("xilinx_u50");
    for (const auto& [words, before, after] : {std::tuple{"transceiver-speed 0", "1G", "10G"},
                                               {"transceiver-speed 0G", "1G", "10G"},
                                               {"speed 10", "1G", "10G"},
                                               {"speed 1", "10G", "1G"},
                                               {"transceiver-speed G", "10G", "1G"}}) {
        expect_speed_set(u50.run(std::string{"set transceiver-speed "} + before));
        expect_speed_set(u50.run(std::string{"set "} + words));
        EXPECT_EQ(shown(u50, "Clock"), u50_clock(after)) << words;
    }
    rack_t u55c;
    u55c.plug("xilinx_u55c");
    for (const auto& [words, first, second] :
         {std::tuple{"speed 1 10", "1G", "10G"}, {"speed 0 G", "10G", "1G"}, {"speed 10 0", "10G", "10G"}}) {
        expect_speed_set(u55c.run(std::string{"set "} + words));
        EXPECT_EQ(shown(u55c, "Clock"), u55c_clock(first, second)) << words;
    }
}

TEST(set_transceiver_speed, tells_its_story_in_json_and_on_a_terminal)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    const run_t run = rack.run("set transceiver-speed 10G --json");
    EXPECT_EQ(run.out, json(true, "", {speed_part + "success"}));
    EXPECT_EQ(run.err, speed_part + "success\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(rack.run("set transceiver-speed 10G", terminals).out,
              reset + speed_part + reset + green + "success" + reset + "\n");
}

/// Microseconds of the clock in each line of the last run's trace that contains a piece.
std::vector<long long> times(const rack_t& rack, const std::string& piece)
{
    std::vector<long long> found;
    std::istringstream trace{rack.trace()};
    for (std::string line; std::getline(trace, line);)
        if (line.find(piece) != std::string::npos) {
            const std::size_t point = line.find('.');
            found.push_back(std::stoll(line.substr(0, point)) * 1'000'000 + std::stoll(line.substr(point + 1, 6)));
        }
    return found;
}

TEST(set_transceiver_speed, pauses_1_ms_after_each_write_and_500_ms_after_the_preamble)
{
    for (const auto& [model, words, writes] :
         {std::tuple{"xilinx_u50", "10G", 530U}, std::tuple{"xilinx_u55c", "1G 10G", 527U}}) {
        rack_t rack;
        rack.plug(model);
        rack.run(std::string{"set transceiver-speed "} + words);
        std::vector<long long> at = times(rack, " ivra_i2c_bus_write_register(");
        ASSERT_EQ(at.size(), writes);
        at.push_back(times(rack, " ivra_i2c_bus_destroy(").at(0));
        // Preamble: page 0x0b, two registers, page 0x05, one register.
        for (std::size_t i = 0; i < writes; ++i)
            EXPECT_EQ(at[i + 1] - at[i], i == 4 ? 501'000 : 1'000) << i;
    }
}

TEST(set_transceiver_speed, with_a_wrong_number_of_speeds_is_refused_before_any_access_to_a_bus)
{
    struct row_t
    {
        const char* model;
        const char* speeds;
        const char* text;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {"xilinx_u50",  "10G 1G",     "U50 board needs one transceiver speed"},
        {"xilinx_u50",  "1G 1G 1G",   "U50 board needs one transceiver speed"},
        {"xilinx_u55c", "10G",        "U55c board needs two transceiver speeds"},
        {"xilinx_u55c", "1G 10G 1G",  "U55c board needs two transceiver speeds"},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug(row.model);
        const std::string words = std::string{"set transceiver-speed "} + row.speeds;
        expect_failure(rack.run(words), "", speed_part, speed_prefix + row.text);
        EXPECT_EQ(rack.trace().find(" ivra_i2c_get_bus("), std::string::npos);
        EXPECT_EQ(rack.trace().find(" ivra_i2c_bus_"), std::string::npos);
        EXPECT_EQ(rack.run(words + " --json").out, json(false, speed_prefix + row.text, {speed_part + "fail"}));
        EXPECT_EQ(shown(rack, "Clock"), "not loaded, its outputs are off\n");
    }
}

TEST(set_transceiver_speed, of_other_boards_is_refused)
{
    std::vector<std::string> models{"xilinx_u200", "xilinx_u250"};
    models.insert(models.end(), std::begin(bittware_models), std::end(bittware_models));
    models.insert(models.end(), std::begin(arista_models), std::end(arista_models));
    for (const std::string& model : models) {
        rack_t rack;
        rack.plug(model);
        expect_failure(rack.run("set transceiver-speed 10G 10G"), "", speed_part, only_u5x);
        EXPECT_EQ(calls(rack, "ivra_i2c_get_bus"), 0U);
    }
}

TEST(set_transceiver_speed, without_an_i2c_controller_fails)
{
    const std::string text = speed_prefix + "Could not apply speed configuration as no I2C MM bridge core are detected";
    for (const auto& [model, words] : {std::pair{"xilinx_u50", "1G"}, std::pair{"xilinx_u55c", "1G 1G"}}) {
        rack_t rack;
        rack.plug(model, {{"i2c", "null"}});
        expect_failure(rack.run(std::string{"set transceiver-speed "} + words), no_i2c, speed_part, text);
    }
}

TEST(set_transceiver_speed, counts_the_speeds_before_it_looks_for_a_controller)
{
    rack_t rack;
    rack.plug("xilinx_u50", {{"i2c", "null"}});
    expect_failure(rack.run("set transceiver-speed 1G 1G"), no_i2c, speed_part,
                   speed_prefix + "U50 board needs one transceiver speed");
}

TEST(set_transceiver_speed, without_its_bus_fails)
{
    rack_t none;
    none.plug("xilinx_u50", {{"i2c", R"({"buses": []})"}});
    expect_failure(none.run("set transceiver-speed 1G"), "", speed_part,
                   speed_prefix + "Cannot get I2C bus: No such device");
    rack_t broken;
    broken.plug("xilinx_u55c").faults(R"({"call": "ivra_i2c_get_bus", "errno": "EIO"})");
    expect_failure(broken.run("set transceiver-speed 1G 1G"), "", speed_part,
                   speed_prefix + "Cannot get I2C bus: Input/output error");
}

TEST(set_transceiver_speed, whose_generator_does_not_answer_fails_at_its_first_write)
{
    rack_t rack;
    rack.plug("xilinx_u50", {{"i2c", R"({"buses": [{"index": 0, "devices": []}]})"}});
    expect_failure(rack.run("set transceiver-speed 1G"), "", speed_part,
                   speed_prefix + "Error writing clock I2C register: No such device or address");
    EXPECT_EQ(calls(rack, "ivra_i2c_bus_write_register"), 1U);
}

TEST(set_transceiver_speed, that_breaks_off_leaves_the_outputs_off_until_the_next_one)
{
    // Writes of a load: 1 to 5 are the preamble, 522 to 530 the postamble; the first of each selects a page.
    for (const unsigned nth : {1U, 2U, 3U, 5U, 6U, 7U, 265U, 521U, 522U, 523U, 524U, 530U}) {
        rack_t rack;
        rack.plug("xilinx_u50");
        expect_speed_set(rack.run("set transceiver-speed 1G"));
        const std::string fault =
            R"({"call": "ivra_i2c_bus_write_register", "errno": "EIO", "nth": )" + std::to_string(nth) + "}";
        rack.faults(fault);
        expect_failure(rack.run("set transceiver-speed 10G"), "", speed_part, write_failed);
        EXPECT_EQ(calls(rack, "ivra_i2c_bus_write_register"), nth) << "nothing is tried again or put back";
        const std::string clock = shown(rack, "Clock");
        if (nth <= 2) // the first one only selects a page
            EXPECT_EQ(clock, u50_clock("1G")) << nth;
        else
            EXPECT_TRUE(clock.ends_with(" of a load, its outputs are off\n")) << nth << clock;
        rack.environment("IVRA_VIRTUAL_FAULTS");
        expect_speed_set(rack.run("set transceiver-speed 10G"));
        EXPECT_EQ(shown(rack, "Clock"), u50_clock("10G"));
    }
    rack_t rack;
    rack.plug("xilinx_u55c").faults(R"({"call": "ivra_i2c_bus_write_register", "errno": "EIO", "nth": 100})");
    EXPECT_EQ(rack.run("set transceiver-speed 1G 1G --json").out, json(false, write_failed, {speed_part + "fail"}));
}

using registers_t = std::map<unsigned, unsigned>;

constexpr std::uint8_t clock_address = 0x68;
constexpr std::uint8_t page_register = 0x01;

/// Every register of the clock generator that is not 0, by page and register, and its page at first. Selecting the
/// pages is noticed by a generator in a load, so nothing is said of its state after that.
registers_t clock_registers(rack_t& rack)
{
    const run_t run = rack.in_child([] {
        const first_board_t board;
        ivra_i2c* i2c = ivra_i2c_create(board.root());
        ivra_i2c_bus* bus = ivra_i2c_get_bus(i2c, 0);
        std::uint8_t selected = 0;
        EXPECT_EQ(ivra_i2c_bus_read_register(bus, clock_address, page_register, &selected, 1), 1);
        std::printf("%u %u\n", unsigned{page_register}, unsigned{selected});
        for (std::uint8_t page = 0; page < 16; ++page) {
            EXPECT_EQ(ivra_i2c_bus_write_register(bus, clock_address, page_register, &page, 1), 1);
            std::array<std::uint8_t, 256> values{};
            EXPECT_EQ(ivra_i2c_bus_read_register(bus, clock_address, 0, values.data(), values.size()), 256);
            for (unsigned at = 0; at < values.size(); ++at)
                if (at != page_register && values[at] != 0)
                    std::printf("%u %u\n", page * 256U + at, unsigned{values[at]});
        }
        ivra_i2c_bus_destroy(bus);
        ivra_i2c_destroy(i2c);
    });
    EXPECT_EQ(run.status, 0);
    registers_t registers;
    std::istringstream text{run.out};
    for (unsigned address = 0, value = 0; text >> address >> value;)
        registers[address] = value;
    return registers;
}

/// The same after writes as the trace has them, of a generator that was 0 everywhere.
registers_t after(const std::vector<std::string>& writes)
{
    registers_t registers{{page_register, 0}};
    for (const std::string& write : writes) {
        unsigned reg = 0;
        unsigned value = 0;
        const std::size_t at = write.find(", 0x68, ");
        EXPECT_EQ(std::sscanf(write.c_str() + at, ", 0x68, %x, [%x]", &reg, &value), 2) << write;
        const unsigned address = reg == page_register ? page_register : registers[page_register] * 256 + reg;
        registers[address] = value;
        // These two clear themselves. A register at 0 is as one never written.
        if (address != page_register && (value == 0 || address == 0x001c || address == 0x0514))
            registers.erase(address);
    }
    return registers;
}

/// What a generator that was off says of itself after so many writes of a load of 530.
std::string after_writes(std::size_t done)
{
    if (done < 2) // a page is selected
        return "not loaded, its outputs are off\n";
    if (done < 5)
        return "in the preamble of a load, its outputs are off\n";
    if (done < 523)
        return "in the middle of a load, its outputs are off\n";
    return done < 530 ? "in the postamble of a load, its outputs are off\n" : u50_clock("10G");
}

TEST(set_transceiver_speed, killed_after_any_call_leaves_a_beginning_of_its_table)
{
    std::vector<std::string> prescribed;
    expect_killing_leaves_a_beginning({
        .plug = [](rack_t& rack) { rack.plug("xilinx_u50", {xmc_at_once}); },
        .words = "set transceiver-speed 10G",
        .changes = {"ivra_i2c_bus_write_register("},
        .check =
            [&](rack_t& rack, std::size_t done) {
                if (prescribed.empty())
                    prescribed = traced(rack, "ivra_i2c_bus_write_register(");
                ASSERT_EQ(prescribed.size(), 530U);
                ASSERT_EQ(shown(rack, "Clock"), after_writes(done));
                if (done == prescribed.size())
                    return; // what it shows depends on every divider
                ASSERT_EQ(clock_registers(rack),
                          after({prescribed.begin(), prescribed.begin() + static_cast<std::ptrdiff_t>(done)}));
            },
        .choose = [](const std::vector<traced_call_t>& calls) { return chosen_of_a_load(calls, 40); },
    });
}

TEST(set_transceiver_speed, holds_a_signal_back_until_the_generator_is_loaded)
{
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
        rack_t rack;
        rack.plug("xilinx_u50", {xmc_at_once});
        const run_t run = run_and_signal(rack, "set transceiver-speed 10G", signal, &holds_signals);
        EXPECT_EQ(run.status, 128 + signal);
        EXPECT_EQ(run.out, speed_part) << "the signal takes effect before anything else";
        EXPECT_EQ(calls(rack, "ivra_i2c_bus_write_register"), 530U);
        EXPECT_EQ(shown(rack, "Clock"), u50_clock("10G"));
    }
}

// ---- set qsfp-power-mode ----

const std::string low_part = "Setting all QSFP to low power mode... ";
const std::string high_part = "Setting all QSFP to high power mode... ";
const std::string power_prefix = "QSFP power mode setting failure: ";

const std::string sr4 = R"("qsfp28-sr4")";
const std::string four_modules = R"("qsfp28-sr4", "qsfpdd-dr4", "qsfp-lr4", "qsfpdd-zr")";

void expect_power_set(const run_t& run, const std::string& part)
{
    EXPECT_EQ(run.out, part + "success\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

/// Which cages' modules save power, as one letter for each cage: 'l'ow, 'h'igh, or '-'.
std::string powers(const rack_t& rack)
{
    std::string letters;
    std::istringstream text{shown(rack, "Cages")};
    for (std::string line; std::getline(text, line);)
        letters += line.ends_with(", low power") ? 'l' : line.ends_with(", high power") ? 'h' : '-';
    return letters;
}

/// What the last run did with the I2C controller and its buses, in order, with the results.
std::vector<std::string> transfers(const rack_t& rack)
{
    std::vector<std::string> lines;
    for (const std::string& line : traced(rack, "ivra_i2c_"))
        if (line.find("_create(") == std::string::npos && line.find("_destroy(") == std::string::npos)
            lines.push_back(line);
    return lines;
}

/// Where a cage is: its bus, and the channel of a multiplexer before it, where there is one.
struct cage_place_t
{
    std::uint8_t bus;
    std::uint8_t multiplexer = 0;
    std::uint8_t channel = 0;
};

/// A byte of the module in a cage, in its lower page.
unsigned module_byte(rack_t& rack, const cage_place_t& place, std::uint8_t at)
{
    const run_t run = rack.in_child([&] {
        const first_board_t board;
        ivra_i2c* i2c = ivra_i2c_create(board.root());
        EXPECT_EQ(ivra_i2c_write_control_pins(i2c, 1), 0);
        ivra_i2c_bus* bus = ivra_i2c_get_bus(i2c, place.bus);
        if (place.multiplexer != 0) {
            EXPECT_EQ(ivra_i2c_bus_write(bus, place.multiplexer, &place.channel, 1), 1);
        }
        std::uint8_t value = 0;
        EXPECT_EQ(ivra_i2c_bus_read_register(bus, 0x50, at, &value, 1), 1);
        std::printf("%u", unsigned{value});
        ivra_i2c_bus_destroy(bus);
        ivra_i2c_destroy(i2c);
    });
    EXPECT_EQ(run.status, 0);
    return static_cast<unsigned>(std::stoul(run.out));
}

constexpr std::uint8_t qsfp_power = 93;
constexpr std::uint8_t qsfp_dd_power = 26;

TEST(set_qsfp_power_mode, low_on_four_modules_is_in_their_memories_and_so_is_high_again)
{
    const std::map<std::string, std::vector<cage_place_t>> places{
        {"bittware_xupp3r", {{1}, {2}, {3}, {4}}},
        {"ivra_fpb2", {{1}, {2}, {3}, {4}}},
        {"bittware_xupvv8", {{0, 0x72, 0x10}, {0, 0x72, 0x20}, {0, 0x72, 0x40}, {0, 0x72, 0x80}}},
    };
    for (const auto& [model, at] : places) {
        rack_t rack;
        rack.plug(model, cages_of(four_modules));
        expect_power_set(rack.run("set qsfp-power-mode low"), low_part);
        EXPECT_EQ(powers(rack), "llll") << model;
        const std::uint8_t registers[] = {qsfp_power, qsfp_dd_power, qsfp_power, qsfp_dd_power};
        for (std::size_t cage = 0; cage < 4; ++cage) {
            const bool is_dd = registers[cage] == qsfp_dd_power;
            EXPECT_EQ(module_byte(rack, at[cage], registers[cage]) & (is_dd ? 0x50U : 0x03U), is_dd ? 0x10U : 0x03U)
                << model << cage;
        }
        expect_power_set(rack.run("set qsfp-power-mode high"), high_part);
        EXPECT_EQ(powers(rack), "hhhh") << model;
        for (std::size_t cage = 0; cage < 4; ++cage) {
            const bool is_dd = registers[cage] == qsfp_dd_power;
            EXPECT_EQ(module_byte(rack, at[cage], registers[cage]) & (is_dd ? 0x50U : 0x03U), is_dd ? 0x00U : 0x01U)
                << model << cage;
        }
    }
}

TEST(set_qsfp_power_mode, keeps_the_other_bits)
{
    struct row_t
    {
        const char* module;
        const char* place;
        unsigned before;
        unsigned low;
        unsigned high;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {"qsfp28-sr4", "93", 0x04, 0x07, 0x05},
        {"qsfp28-sr4", "93", 0x00, 0x03, 0x01},
        {"qsfp-lr4",   "93", 0xFE, 0xFF, 0xFD},
        {"qsfpdd-dr4", "26", 0x40, 0x10, 0x00},
        {"qsfpdd-dr4", "26", 0x00, 0x10, 0x00},
        {"qsfpdd-zr",  "26", 0xE7, 0xB7, 0xA7},
    };
    // clang-format on
    for (const row_t& row : rows)
        for (const bool is_low : {true, false}) {
            rack_t rack;
            std::array<char, 3> before{};
            std::snprintf(before.data(), before.size(), "%02x", row.before);
            rack.plug("xilinx_u200", cages_of(sr4 + R"(, {"module": ")" + row.module + R"(", "bytes": {")" + row.place +
                                              R"(": ")" + before.data() + R"("}})"));
            EXPECT_EQ(rack.run(is_low ? "set qsfp-power-mode low" : "set qsfp-power-mode high").status, 0);
            EXPECT_EQ(module_byte(rack, {0, 0x74, 0x02}, static_cast<std::uint8_t>(std::stoi(row.place))),
                      is_low ? row.low : row.high)
                << row.module << row.before;
        }
}

TEST(set_qsfp_power_mode, of_a_u200_enables_the_bus_and_goes_from_cage_to_cage)
{
    for (const std::string model : {"xilinx_u200", "xilinx_u250"}) {
        rack_t rack;
        rack.plug(model, cages_of(R"({"module": "qsfp28-sr4", "bytes": {"93": "04"}},
                                  {"module": "qsfpdd-dr4", "bytes": {"26": "40"}})"));
        expect_power_set(rack.run("set qsfp-power-mode low"), low_part);
        EXPECT_EQ(transfers(rack), (std::vector<std::string>{
                                       "ivra_i2c_read_control_pins(0000:00:00.0) = 8: 0x0",
                                       "ivra_i2c_write_control_pins(0000:00:00.0, 0x1) = 0",
                                       "ivra_i2c_get_bus(0000:00:00.0, 0) = handle",
                                       "ivra_i2c_bus_write(0000:00:00.0, 0x74, [01]) = 1",
                                       "ivra_i2c_bus_read_register(0000:00:00.0, 0x50, 0x0, 1) = 1: [11]",
                                       "ivra_i2c_bus_read_register(0000:00:00.0, 0x50, 0x5d, 1) = 1: [04]",
                                       "ivra_i2c_bus_write_register(0000:00:00.0, 0x50, 0x5d, [07]) = 1",
                                       "ivra_i2c_bus_write(0000:00:00.0, 0x74, [02]) = 1",
                                       "ivra_i2c_bus_read_register(0000:00:00.0, 0x50, 0x0, 1) = 1: [18]",
                                       "ivra_i2c_bus_read_register(0000:00:00.0, 0x50, 0x1a, 1) = 1: [40]",
                                       "ivra_i2c_bus_write_register(0000:00:00.0, 0x50, 0x1a, [10]) = 1",
                                   }));
        EXPECT_EQ(powers(rack), "ll");
        EXPECT_EQ(shown(rack, "I2C"), "1 bus, 8 pins: 0x1\n");
    }
}

TEST(set_qsfp_power_mode, of_an_xupp3r_looks_for_a_second_multiplexer_on_bus_5)
{
    const std::string five = four_modules + ", " + sr4;
    const std::string eight = four_modules + ", " + four_modules;
    struct row_t
    {
        std::string modules;
        std::string fault;
        std::string powers;
    };
    const row_t rows[] = {
        {four_modules, "", "llll"},
        {eight, "", "llllllll"},
        {eight, R"({"call": "ivra_i2c_get_bus", "nth": 5, "errno": "EIO"})", "llllhhhh"},
        {eight, R"({"call": "ivra_i2c_bus_read", "errno": "EIO"})", "llllhhhh"},
    };
    for (const std::string model : {"bittware_xupp3r", "ivra_fpb2"})
        for (const row_t& row : rows) {
            rack_t rack;
            rack.plug(model, cages_of(row.modules)).faults(row.fault);
            EXPECT_EQ(rack.run("set qsfp-power-mode high").status, 0);
            expect_power_set(rack.run("set qsfp-power-mode low"), low_part);
            EXPECT_EQ(powers(rack), row.powers) << row.fault;
            EXPECT_EQ(calls(rack, "ivra_i2c_write_control_pins"), 0U);
        }
    rack_t rack;
    rack.plug("bittware_xupp3r", cages_of(five));
    expect_failure(rack.run("set qsfp-power-mode low"), "", low_part, power_prefix + "Cannot set low power mode");
    EXPECT_EQ(powers(rack), "lllll---") << "cages 5 to 7 are empty";
}

TEST(set_qsfp_power_mode, passes_over_an_sfp)
{
    rack_t rack;
    rack.plug("xilinx_u200", cages_of(R"("sfp-10g-sr", "qsfp28-sr4")"));
    expect_power_set(rack.run("set qsfp-power-mode low"), low_part);
    EXPECT_EQ(powers(rack), "-l");
    const std::vector<std::string> all = transfers(rack);
    ASSERT_GE(all.size(), 6U);
    EXPECT_EQ(all[4], "ivra_i2c_bus_read_register(0000:00:00.0, 0x50, 0x0, 1) = 1: [03]");
    EXPECT_EQ(all[5], "ivra_i2c_bus_write(0000:00:00.0, 0x74, [02]) = 1") << "nothing of the SFP but its identifier";
}

TEST(set_qsfp_power_mode, ends_at_what_it_cannot_set_and_cages_before_it_stay_changed)
{
    struct row_t
    {
        const char* module;
        const char* text;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {R"("empty")",          "Cannot set low power mode"},
        {R"("silent")",         "Cannot read transceived identifier: No such device or address"},
        {R"("prototype")",      "Unsupported transceiver found with identifier 0x7a"},
        {R"("qsfp-plus-cmis")",
         "Unsupported transceiver found with identifier 0x1e "
         "(QSFP+ or later with Common Management Interface Specification (CMIS))"},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r", cages_of(sr4 + ", " + sr4 + ", " + row.module + ", " + sr4));
        expect_failure(rack.run("set qsfp-power-mode low"), "", low_part, power_prefix + row.text);
        const std::string after = powers(rack);
        EXPECT_EQ(after.substr(0, 2), "ll") << row.module;
        EXPECT_EQ(after.substr(3), "h") << row.module;
        EXPECT_EQ(rack.run("set qsfp-power-mode low --json").out,
                  json(false, power_prefix + row.text, {low_part + "fail"}));
        // Deliberate: the same text for either mode.
        EXPECT_EQ(rack.run("set qsfp-power-mode high").err, power_prefix + row.text + "\n");
    }
}

TEST(set_qsfp_power_mode, that_fails_on_the_bus_says_where)
{
    struct row_t
    {
        const char* call;
        int nth;
        const char* text;
        const char* powers;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {"ivra_i2c_read_control_pins",  1, "Could not not set enable I2C pin: Input/output error",          "hh"},
        {"ivra_i2c_write_control_pins", 1, "Could not not set enable I2C pin: Input/output error",          "hh"},
        {"ivra_i2c_get_bus",            1, "Cannot get I2C bus: Input/output error",                        "hh"},
        {"ivra_i2c_bus_write",          1, "Cannot select I2C multiplexer channel: Input/output error",     "hh"},
        {"ivra_i2c_bus_read_register",  1, "Cannot read transceived identifier: Input/output error",        "hh"},
        {"ivra_i2c_bus_read_register",  2, "Cannot read QSFP power control byte: Input/output error",       "hh"},
        {"ivra_i2c_bus_write_register", 1, "Cannot update QSFP power control byte: Input/output error",     "hh"},
        {"ivra_i2c_bus_write",          2, "Cannot select I2C multiplexer channel: Input/output error",     "lh"},
        {"ivra_i2c_bus_read_register",  3, "Cannot read transceived identifier: Input/output error",        "lh"},
        {"ivra_i2c_bus_read_register",  4, "Cannot read QSFP-DD module level controls: Input/output error", "lh"},
        {"ivra_i2c_bus_write_register", 2, "Cannot update QSFP-DD module level controls: Input/output error", "lh"},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("xilinx_u250", cages_of(R"("qsfp28-sr4", "qsfpdd-dr4")"));
        EXPECT_EQ(rack.run("set qsfp-power-mode high").status, 0);
        rack.faults(std::string{R"({"call": ")"} + row.call + R"(", "errno": "EIO", "nth": )" +
                    std::to_string(row.nth) + "}");
        expect_failure(rack.run("set qsfp-power-mode low"), "", low_part, power_prefix + row.text);
        EXPECT_EQ(powers(rack), row.powers) << row.call << row.nth;
    }
}

TEST(set_qsfp_power_mode, of_a_controller_without_control_pins_is_out_of_range)
{
    rack_t rack;
    rack.plug("xilinx_u200", cages_of(sr4 + ", " + sr4));
    rack.faults(R"({"call": "ivra_i2c_read_control_pins", "count": 0})");
    expect_failure(rack.run("set qsfp-power-mode low"), "", low_part,
                   power_prefix + "Could not not set enable I2C pin: Numerical result out of range");
    EXPECT_EQ(calls(rack, "ivra_i2c_write_control_pins"), 0U);
}

TEST(set_qsfp_power_mode, of_bittware_boards_that_fails_on_a_bus_says_so)
{
    struct row_t
    {
        const char* model;
        const char* call;
        int nth;
        const char* text;
        const char* powers;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {"bittware_xupp3r", "ivra_i2c_get_bus",   1, "Cannot get I2C bus: Input/output error", "hhhhhhhh"},
        {"bittware_xupp3r", "ivra_i2c_get_bus",   4, "Cannot get I2C bus: Input/output error", "lllhhhhh"},
        {"ivra_fpb2",       "ivra_i2c_bus_write", 1, "Cannot select I2C multiplexer channel: Input/output error", "llllhhhh"},
        {"ivra_fpb2",       "ivra_i2c_bus_write", 3, "Cannot select I2C multiplexer channel: Input/output error", "llllllhh"},
        {"bittware_xupvv8", "ivra_i2c_get_bus",   1, "Cannot get I2C bus: Input/output error", "hhhh"},
        {"bittware_xupvv8", "ivra_i2c_bus_write", 4, "Cannot select I2C multiplexer channel: Input/output error", "lllh"},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        const bool has_eight = std::string{row.powers}.size() == 8;
        rack.plug(row.model, cages_of(four_modules + (has_eight ? ", " + four_modules : "")));
        EXPECT_EQ(rack.run("set qsfp-power-mode high").status, 0);
        rack.faults(std::string{R"({"call": ")"} + row.call + R"(", "errno": "EIO", "nth": )" +
                    std::to_string(row.nth) + "}");
        expect_failure(rack.run("set qsfp-power-mode low"), "", low_part, power_prefix + row.text);
        EXPECT_EQ(powers(rack), row.powers) << row.call << row.nth;
    }
}

TEST(set_qsfp_power_mode, of_an_xupvv8_selects_the_upper_channels)
{
    rack_t rack;
    rack.plug("bittware_xupvv8", cages_of(four_modules));
    expect_power_set(rack.run("set qsfp-power-mode low"), low_part);
    EXPECT_EQ(traced(rack, "ivra_i2c_bus_write("), (std::vector<std::string>{
                                                       "ivra_i2c_bus_write(0000:00:00.0, 0x72, [10]) = 1",
                                                       "ivra_i2c_bus_write(0000:00:00.0, 0x72, [20]) = 1",
                                                       "ivra_i2c_bus_write(0000:00:00.0, 0x72, [40]) = 1",
                                                       "ivra_i2c_bus_write(0000:00:00.0, 0x72, [80]) = 1",
                                                   }));
    EXPECT_EQ(calls(rack, "ivra_i2c_write_control_pins"), 0U);
}

TEST(set_qsfp_power_mode, without_an_i2c_controller_fails)
{
    const std::string text = power_prefix + "Could not set QSFP power mode as no I2C MM bridge core are detected";
    for (const std::string model : {"xilinx_u200", "xilinx_u250", "bittware_xupp3r", "ivra_fpb2", "bittware_xupvv8"}) {
        rack_t rack;
        rack.plug(model, {{"i2c", "null"}});
        expect_failure(rack.run("set qsfp-power-mode low"), no_i2c, low_part, text);
        expect_failure(rack.run("set qsfp-power-mode high"), no_i2c, high_part, text);
    }
}

TEST(set_qsfp_power_mode, of_other_boards_is_refused)
{
    std::map<std::string, std::string> families{{"xilinx_u50", "Xilinx Alveo U50 boards"},
                                                {"xilinx_u55c", "Xilinx Alveo U55c boards"}};
    for (const std::string& model : arista_models)
        families[model] = "Arista switches";
    for (const auto& [model, family] : families) {
        rack_t rack;
        rack.plug(model);
        expect_failure(rack.run("set qsfp-power-mode low"), "", low_part,
                       power_prefix + "Setting QSFP power mode is unsupported for " + family);
        EXPECT_EQ(calls(rack, "ivra_i2c_get_bus"), 0U);
    }
}

TEST(set_qsfp_power_mode, tells_its_story_in_json_and_on_a_terminal)
{
    rack_t rack;
    rack.plug("bittware_xupvv8", cages_of(four_modules));
    const run_t run = rack.run("--json set qsfp-power-mode low");
    EXPECT_EQ(run.out, json(true, "", {low_part + "success"}));
    EXPECT_EQ(run.err, low_part + "success\n");
    EXPECT_EQ(rack.run("set qsfp-power-mode high", terminals).out,
              reset + high_part + reset + green + "success" + reset + "\n");
}

/// Modules that use all the power they want, so that saving it shows.
const std::string two_modules =
    R"({"module": "qsfp28-sr4", "bytes": {"93": "05"}}, {"module": "qsfpdd-dr4", "bytes": {"26": "00"}})";

const std::vector<std::string> i2c_changes{"ivra_i2c_write_control_pins(", "ivra_i2c_bus_write(",
                                           "ivra_i2c_bus_write_register("};

TEST(set_qsfp_power_mode, killed_after_any_call_has_changed_the_first_cages)
{
    expect_killing_leaves_a_beginning({
        .plug = [](rack_t& rack) { rack.plug("bittware_xupp3r", cages_of(two_modules + ", " + two_modules)); },
        .words = "set qsfp-power-mode low",
        .changes = i2c_changes, // the four modules
        .check = [](rack_t& rack,
                    std::size_t done) { EXPECT_EQ(powers(rack), std::string(done, 'l') + std::string(4 - done, 'h')); },
    });
}

TEST(set_qsfp_power_mode, killed_after_any_call_of_a_u200_has_enabled_the_bus_and_changed_the_first_cages)
{
    expect_killing_leaves_a_beginning({
        .plug =
            [](rack_t& rack) {
                members_t members = cages_of(two_modules);
                members.insert(xmc_at_once);
                rack.plug("xilinx_u200", members);
            },
        .words = "set qsfp-power-mode low",
        .changes = i2c_changes, // enable, channel, module, channel, module
        .check =
            [](rack_t& rack, std::size_t done) {
                EXPECT_EQ(shown(rack, "I2C"), done >= 1 ? "1 bus, 8 pins: 0x1\n" : "1 bus, 8 pins: 0x0\n");
                EXPECT_EQ(powers(rack), done >= 5 ? "ll" : done >= 3 ? "lh" : "hh");
            },
    });
}

} // namespace
} // namespace ivra::tests
