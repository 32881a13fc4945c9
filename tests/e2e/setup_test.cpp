#include "changes.h"

#include "support/rack.h"

#include <ivra/flash.h>
#include <ivra/i2c.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

const std::string part = "Setting up board card-0...";
const std::string setup_prefix = "Board setup failure: ";

// A small flash, which can be compared as a whole. The second PARAMS section begins within it.
constexpr std::size_t flash_size = 0x40000;
constexpr std::size_t params = 0x21000;
const std::string small_flash = R"({"size": "256 KiB", "sector": "4 KiB", "sections": [
    {"name": "PGM", "start": "0x0", "size": "0x10000"},
    {"name": "USR", "start": "0x10000", "size": "0x10000"},
    {"name": "PARAMS", "start": "0x20000", "size": "0x1000"},
    {"name": "PARAMS", "start": "0x21000", "size": "0x2000"},
    {"name": "PARAMS", "start": "0x23000", "size": "0x1000"},
    {"name": "OTP", "start": "0x24000", "size": "0x1000"}]})";

/// A board whose vendor gave it addresses, and what they have to become in the flash.
struct family_t
{
    std::string model;
    members_t members;
    std::optional<host_t> host;
    std::vector<unsigned> record_end; ///< its last 8 bytes, from offset 16 on
    std::string first;
    std::string last;
};

members_t eeprom(const std::string& text)
{
    return {{"i2c", R"({"mac_eeprom": ")" + text + "\"}"}};
}

members_t macs(const std::string& first, unsigned count)
{
    return {{"xmc", R"({"card": {"macs": {"first": ")" + first + R"(", "count": )" + std::to_string(count) + "}}}"}};
}

const host_t addressed_host{.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"};

const members_t bittware_eeprom = eeprom("MAC=00:11:22:33:44:55");
const std::vector<unsigned> bittware_end{0x55, 0x44, 0x33, 0x22, 0x11, 0x00, 0x08, 0x00};
const members_t legacy_macs{{"xmc", R"({"card": {"macs": null, "legacy_macs":
               ["FF:FF:FF:FF:FF:FF", "00:0A:35:06:10:1E", "00:0A:35:06:10:1F", "00:0A:35:06:10:20"]}})"}};

const family_t families[] = {
    {"xilinx_u200",
     macs("00:0a:35:01:02:03", 4),
     {},
     {0x03, 0x02, 0x01, 0x35, 0x0a, 0x00, 4, 0},
     "00:0a:35:01:02:03",
     "00:0a:35:01:02:06"},
    {"xilinx_u250",
     macs("00:0a:35:01:02:03", 4),
     {},
     {0x03, 0x02, 0x01, 0x35, 0x0a, 0x00, 4, 0},
     "00:0a:35:01:02:03",
     "00:0a:35:01:02:06"},
    {"xilinx_u50",
     macs("00:0a:35:ff:fe:10", 200),
     {},
     {0x10, 0xfe, 0xff, 0x35, 0x0a, 0x00, 200, 0},
     "00:0a:35:ff:fe:10",
     "00:0a:35:ff:fe:d7"},
    {"xilinx_u55c",
     legacy_macs,
     {},
     {0x1e, 0x10, 0x06, 0x35, 0x0a, 0x00, 3, 0},
     "00:0a:35:06:10:1e",
     "00:0a:35:06:10:20"},
    {"bittware_xupp3r", bittware_eeprom, {}, bittware_end, "00:11:22:33:44:55", "00:11:22:33:44:5c"},
    {"ivra_fpb2", bittware_eeprom, {}, bittware_end, "00:11:22:33:44:55", "00:11:22:33:44:5c"},
    {"bittware_xupvv8", bittware_eeprom, {}, bittware_end, "00:11:22:33:44:55", "00:11:22:33:44:5c"},
    {"m48e_emu_xcvu9p",
     {},
     addressed_host,
     {0x80, 0xbb, 0xaa, 0x73, 0x1c, 0x00, 128, 0},
     "00:1c:73:aa:bb:80",
     "00:1c:73:aa:bb:ff"},
    {"m48l_xcvu7p",
     {},
     addressed_host,
     {0x80, 0xbb, 0xaa, 0x73, 0x1c, 0x00, 128, 0},
     "00:1c:73:aa:bb:80",
     "00:1c:73:aa:bb:ff"},
    {"m48lb_xcvu9p",
     {},
     addressed_host,
     {0x80, 0xbb, 0xaa, 0x73, 0x1c, 0x00, 128, 0},
     "00:1c:73:aa:bb:80",
     "00:1c:73:aa:bb:ff"},
};

const family_t& family(const std::string& model)
{
    return *std::ranges::find(families, model, &family_t::model);
}

void plug(rack_t& rack, const family_t& board, const members_t& more = {})
{
    members_t members = board.members;
    members.insert({"flash", small_flash});
    for (const auto& [name, text] : more)
        members[name] = text;
    rack.plug(board.model, members);
    if (board.host)
        rack.host(*board.host);
}

using bytes_t = std::vector<std::uint8_t>;

/// The whole flash of the first board as it is. The file that keeps it holds its bytes inverted.
bytes_t flash(const rack_t& rack)
{
    for (const auto& entry : std::filesystem::recursive_directory_iterator(rack.folder() / "state"))
        if (entry.path().filename() == "flash" && entry.path().parent_path().filename() == "0000:00:00.0") {
            std::string inverted(entry.file_size(), '\0');
            std::ifstream{entry.path(), std::ios::binary}.read(inverted.data(), std::ssize(inverted));
            bytes_t bytes(inverted.size());
            std::ranges::transform(inverted, bytes.begin(), [](char byte) { return static_cast<std::uint8_t>(~byte); });
            return bytes;
        }
    ADD_FAILURE() << "no flash";
    return {};
}

/// The record of a board's parameters.
bytes_t record(const family_t& board)
{
    bytes_t bytes{0x5a, 0x5a, 0xa5, 0xa5, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (const unsigned byte : board.record_end)
        bytes.push_back(static_cast<std::uint8_t>(byte));
    return bytes;
}

bytes_t with_record(bytes_t bytes, const family_t& board)
{
    std::ranges::copy(record(board), bytes.begin() + params);
    return bytes;
}

const bytes_t erased_flash(flash_size, 0xff);

std::string block(const family_t& board)
{
    return board.first + " - " + board.last;
}

const std::string old_block = "02:00:00:00:00:00 - 02:00:00:00:00:03";

void expect_set_up(const run_t& run)
{
    EXPECT_EQ(run.out, part + "success\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(setup, writes_24_bytes_and_the_board_has_its_vendors_addresses)
{
    for (const family_t& board : families) {
        SCOPED_TRACE(board.model);
        rack_t rack;
        plug(rack, board);
        EXPECT_NE(rack.run("show info").out.find("\tMAC addresses: " + old_block + "\n"), std::string::npos);
        EXPECT_EQ(flash(rack), erased_flash);
        expect_set_up(rack.run("setup"));
        EXPECT_EQ(record(board).size(), 24U);
        EXPECT_EQ(flash(rack), with_record(erased_flash, board)) << "at offset 0 of the second of three sections";
        EXPECT_NE(rack.run("show info").out.find("\tMAC addresses: " + block(board) + "\n"), std::string::npos);
        EXPECT_NE(rack.run("list").out.find("\tBoard base MAC: " + board.first + "\n"), std::string::npos);
        EXPECT_EQ(shown(rack, "MAC addresses"), block(board) + "\n");
    }
}

TEST(setup, writes_once_and_then_has_the_design_read_it)
{
    rack_t rack;
    rack.plug("xilinx_u200", macs("00:0a:35:01:02:03", 4));
    expect_set_up(rack.run("setup"));
    const std::vector<std::string> writes = traced(rack, "ivra_flash_write_section(");
    EXPECT_EQ(writes, std::vector<std::string>{
                          "ivra_flash_write_section(0000:00:00.0, \"PARAMS\"@0x7fd0000, 0x0, "
                          "[5a 5a a5 a5 01 00 00 00 00 00 00 00 00 00 00 00 03 02 01 35 0a 00 04 00], 24) = 0"});
    EXPECT_EQ(calls(rack, "ivra_hw_top_update_params"), 1U);
    EXPECT_LT(rack.trace().find("ivra_flash_write_section("), rack.trace().find("ivra_hw_top_update_params("));
    EXPECT_EQ(shown(rack, "Flash"), "128 MiB in sectors of 64 KiB\n"
                                    "PGM     0x0000000 - 0x1001fff\n"
                                    "USR     0x1002000 - 0x6001fff\n"
                                    "PARAMS  0x7fc0000 - 0x7fcffff  protected\n"
                                    "PARAMS  0x7fd0000 - 0x7fdffff  holds data in 1 sector\n"
                                    "OTP     0x7ff0000 - 0x7ff0fff\n");
}

TEST(setup, changes_nothing_else_of_a_flash_that_is_full)
{
    const family_t& board = family("m48l_xcvu7p");
    rack_t rack;
    plug(rack, board);
    const run_t filled = rack.in_child([] {
        const first_board_t opened;
        ivra_flash* handle = ivra_flash_create(opened.root());
        std::array<const char*, 6> sections{};
        EXPECT_EQ(ivra_flash_get_sections(handle, nullptr, sections.data(), sections.size()), 6);
        for (std::size_t i = 0; i < 5; ++i) { // but for the one-time-programmable one
            std::uint64_t size = 0;
            EXPECT_EQ(ivra_flash_get_section_size(handle, sections.at(i), &size), 0);
            bytes_t bytes(size);
            for (std::size_t at = 0; at < bytes.size(); ++at)
                bytes[at] = static_cast<std::uint8_t>(at * 7 + i);
            EXPECT_EQ(ivra_flash_write_section(handle, sections.at(i), 0, bytes.data(), bytes.size()), 0);
        }
        ivra_flash_destroy(handle);
    });
    EXPECT_EQ(filled.out, "");
    const bytes_t before = flash(rack);
    ASSERT_EQ(before.size(), flash_size);
    ASSERT_EQ(before.at(params + 1), 10);
    expect_set_up(rack.run("setup"));
    EXPECT_EQ(flash(rack), with_record(before, board));
    expect_set_up(rack.run("setup"));
    EXPECT_EQ(flash(rack), with_record(before, board)) << "nor does doing it again";
}

TEST(setup, again_with_other_addresses_replaces_the_first_ones)
{
    const family_t& board = family("m48l_xcvu7p");
    rack_t rack;
    plug(rack, board);
    rack.host({.serial = std::nullopt, .address = "44:4c:a8:12:34:f6\n"});
    expect_set_up(rack.run("setup"));
    EXPECT_EQ(shown(rack, "MAC addresses"), "44:4c:a8:12:34:80 - 44:4c:a8:12:34:ff\n");
    rack.host(addressed_host);
    expect_set_up(rack.run("setup"));
    EXPECT_EQ(shown(rack, "MAC addresses"), block(board) + "\n");
    EXPECT_EQ(flash(rack), with_record(erased_flash, board));
}

TEST(setup, is_of_the_chosen_board_and_names_it)
{
    rack_t rack;
    rack.plug("xilinx_u50").plug("xilinx_u200", macs("00:0a:35:01:02:03", 4));
    EXPECT_EQ(rack.run("-a 1 setup").out, "Setting up board card-1...success\n");
    const std::string listed = rack.run("list").out;
    EXPECT_NE(listed.find("\tBoard base MAC: 02:00:00:00:00:00\n"), std::string::npos);
    EXPECT_NE(listed.find("\tBoard base MAC: 00:0a:35:01:02:03\n"), std::string::npos);
}

TEST(setup, tells_its_story_in_json_and_on_a_terminal)
{
    rack_t rack;
    plug(rack, family("xilinx_u250"));
    const run_t run = rack.run("setup --json");
    EXPECT_EQ(run.out, json(true, "", {part + "success"}));
    EXPECT_EQ(run.err, part + "success\n");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(rack.run("setup", terminals).out, reset + part + reset + green + "success" + reset + "\n");
    rack.faults(R"({"call": "ivra_hw_top_update_params", "errno": "EIO"})");
    const run_t failed = rack.run("setup", terminals);
    EXPECT_EQ(failed.out, reset + part + reset + red + "fail" + reset + "\n");
    EXPECT_EQ(failed.err, red + setup_prefix + "Failed to reload board MACs: Input/output error" + reset + "\n");
}

/// Expects that `setup` fails like this, in text and in JSON, and that it leaves the flash and the addresses alone.
void expect_refused(rack_t& rack, const std::string& logged, const std::string& text)
{
    for (const std::string words : {"setup", "setup --json"}) {
        const run_t run = rack.run(words);
        if (words == "setup")
            expect_failure(run, logged, part, setup_prefix + text);
        else
            EXPECT_TRUE(run.out.ends_with(R"({"type":"info","message":")" + part +
                                          R"(fail"},{"type":"error","message":")" + setup_prefix + text + "\"}]}\n"))
                << run.out;
        EXPECT_EQ(calls(rack, "ivra_flash_write_section"), 0U);
        EXPECT_EQ(calls(rack, "ivra_hw_top_update_params"), 0U);
    }
    EXPECT_EQ(shown(rack, "MAC addresses"), old_block + "\n");
}

/// A flash of 256 KiB with only these sections for parameters.
members_t flash_with(const std::string& parameter_sections)
{
    return {{"flash", R"({"size": "256 KiB", "sector": "4 KiB", "sections": [
        {"name": "PGM", "start": "0x0", "size": "0x10000"},
        {"name": "USR", "start": "0x10000", "size": "0x10000"},)" +
                          parameter_sections + R"(,
        {"name": "OTP", "start": "0x24000", "size": "0x1000"}]})"}};
}

TEST(setup, of_a_flash_without_a_second_section_for_parameters_is_refused)
{
    for (const std::string model : {"xilinx_u200", "bittware_xupp3r", "m48l_xcvu7p"}) {
        rack_t one;
        plug(one, family(model), flash_with(R"({"name": "PARAMS", "start": "0x20000", "size": "0x1000"},
                                                {"name": "params", "start": "0x21000", "size": "0x1000"})"));
        expect_refused(one, "", "Expected at least 2 PARAMS flash sections, got 1");
    }
    rack_t none;
    plug(none, family("xilinx_u200"));
    none.faults(R"({"call": "ivra_flash_get_sections", "count": 0})");
    expect_refused(none, "", "Expected at least 2 PARAMS flash sections, got 0");
    rack_t fewer;
    plug(fewer, family("xilinx_u200"));
    fewer.faults(R"({"call": "ivra_flash_get_sections", "nth": 2, "count": 1})");
    expect_refused(fewer, "", "Expected at least 2 PARAMS flash sections, got 1");
}

TEST(setup, that_cannot_look_up_the_sections_fails)
{
    for (const std::string nth : {"1", "2"}) { // how many there are, and which
        rack_t rack;
        plug(rack, family("xilinx_u50"));
        rack.faults(R"({"call": "ivra_flash_get_sections", "errno": "EIO", "nth": )" + nth + "}");
        expect_refused(rack, "", "Could not get PARAMS sections from flash: Input/output error");
    }
}

TEST(setup, that_cannot_write_the_flash_fails_and_does_not_reload)
{
    struct row_t
    {
        const char* section;
        const char* fault;
        const char* text;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {R"("size": "4 KiB")", R"({"call": "ivra_flash_write_section", "errno": "EIO"})", "Input/output error"},
        {R"("size": "4 KiB", "protected": true)", "", "Read-only file system"},
        {R"("size": 23)",                         "", "File too large"},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        plug(rack, family("m48lb_xcvu9p"),
             flash_with(std::string{R"({"name": "PARAMS", "start": "0x20000", "size": "0x1000"},
                                       {"name": "PARAMS", "start": "0x21000", )"} +
                        row.section + "}"));
        rack.faults(row.fault);
        expect_failure(rack.run("setup"), "", part, setup_prefix + "Failed to setup board flash: " + row.text);
        EXPECT_EQ(calls(rack, "ivra_flash_write_section"), 1U);
        EXPECT_EQ(calls(rack, "ivra_hw_top_update_params"), 0U);
        EXPECT_EQ(shown(rack, "MAC addresses"), old_block + "\n");
        EXPECT_EQ(flash(rack), erased_flash);
    }
}

TEST(setup, whose_reload_fails_has_written_the_flash_and_can_be_repeated)
{
    const family_t& board = family("xilinx_u200");
    rack_t rack;
    plug(rack, board);
    rack.faults(R"({"call": "ivra_hw_top_update_params", "errno": "EIO"})");
    const std::string text = setup_prefix + "Failed to reload board MACs: Input/output error";
    expect_failure(rack.run("setup"), "", part, text);
    EXPECT_EQ(rack.run("setup --json").out, json(false, text, {part + "fail"}));
    EXPECT_EQ(flash(rack), with_record(erased_flash, board));
    EXPECT_EQ(shown(rack, "MAC addresses"), old_block + "\n");
    rack.environment("IVRA_VIRTUAL_FAULTS");
    expect_set_up(rack.run("setup"));
    EXPECT_EQ(shown(rack, "MAC addresses"), block(board) + "\n");
}

// ---- where the addresses come from ----

TEST(setup, of_an_alveo_card_that_does_not_tell_its_addresses_is_refused)
{
    struct row_t
    {
        const char* xmc;
        const char* text;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {R"({"card": {"raw": "2103414243"}})",                   "No MAC address found"},
        {R"({"card": {"raw": "4b070400000a3501022203414243"}})", "Invalid new MAC scheme packet read"},
        {R"({"card": {"raw": "4b090400000a3501020304"}})",       "Invalid new MAC scheme packet read"},
        {R"({"card": {"raw": "2203414243"}})",                   "mac_address::mac_address(): Invalid argument"},
    };
    // clang-format on
    for (const row_t& row : rows)
        for (const std::string model : {"xilinx_u200", "xilinx_u250", "xilinx_u50", "xilinx_u55c"}) {
            rack_t rack;
            plug(rack, family(model), {{"xmc", row.xmc}});
            expect_refused(rack, "", row.text);
        }
}

TEST(setup, of_an_alveo_card_without_a_management_controller_is_refused)
{
    for (const std::string model : {"xilinx_u200", "xilinx_u250", "xilinx_u50", "xilinx_u55c"}) {
        rack_t rack;
        plug(rack, family(model), {{"xmc", "null"}});
        const run_t run = rack.run("setup");
        EXPECT_TRUE(run.out.starts_with("get_xmc: Could not initialize Alveo XMC subsystem: ")) << run.out;
        EXPECT_TRUE(run.out.ends_with("\n" + part + "fail\n")) << run.out;
        EXPECT_EQ(run.err, setup_prefix + "Could not get vendor MAC as Alveo XMC subsystem is not initialized.\n");
        EXPECT_EQ(run.status, 1);
        EXPECT_EQ(calls(rack, "ivra_flash_write_section"), 0U);
    }
}

TEST(setup, of_a_switch_whose_host_does_not_tell_an_address_is_refused)
{
    struct row_t
    {
        std::optional<std::string> address;
        const char* text;
    };
    const row_t rows[] = {
        {std::nullopt, "Could not get MAC address from system"},
        {"", "mac_address::mac_address(): Invalid argument"},
        {"00:1c:73:aa:bb\n", "mac_address::mac_address(): Invalid argument"},
    };
    for (const std::string model : {"m48e_emu_xcvu9p", "m48l_xcvu7p", "m48lb_xcvu9p"})
        for (const row_t& row : rows) {
            rack_t rack;
            plug(rack, family(model));
            rack.host({.serial = "S\n", .address = row.address});
            expect_refused(rack, "", row.text);
        }
}

TEST(setup, of_a_bittware_board_without_an_i2c_controller_has_no_vendor_addresses)
{
    for (const std::string model : {"bittware_xupp3r", "ivra_fpb2", "bittware_xupvv8"}) {
        rack_t rack;
        plug(rack, family(model), {{"i2c", "null"}});
        expect_refused(rack, no_i2c, "No vendor MAC available for this board");
    }
}

TEST(setup, of_a_bittware_board_whose_eeprom_makes_no_sense_is_refused)
{
    struct row_t
    {
        const char* contents;
        const char* text;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {R"("mac=00:11:22:33:44:55")", "Unexpected field read from MAC EEPROM: mac=00:11:22:33:44:55"},
        {R"("SER=00:11:22:33:44:55")", "Unexpected field read from MAC EEPROM: SER=00:11:22:33:44:55"},
        {R"("MAC=00:11:22:33:44:5g")", "mac_address::mac_address(): Invalid argument"},
        {R"("MAC=00-11-22-33-44-55")", "mac_address::mac_address(): Invalid argument"},
        {"null",                       "Cannot read MAC EEPROM: No such device or address"},
    };
    // clang-format on
    for (const row_t& row : rows)
        for (const std::string model : {"bittware_xupp3r", "ivra_fpb2", "bittware_xupvv8"}) {
            rack_t rack;
            plug(rack, family(model), {{"i2c", std::string{R"({"mac_eeprom": )"} + row.contents + "}"}});
            expect_refused(rack, "", row.text);
        }
}

TEST(setup, tells_every_byte_of_another_field_in_the_eeprom_nul_too)
{
    for (const std::string model : {"bittware_xupp3r", "bittware_xupvv8"}) {
        rack_t rack;
        plug(rack, family(model), eeprom(R"(\u0000SN=17200123\u0000\u0000ABCDEFG)"));
        const std::string failed = setup_prefix + "Unexpected field read from MAC EEPROM: ";
        const std::string field("\0SN=17200123\0\0ABCDEFG", 21);
        expect_failure(rack.run("setup"), "", part, failed + field);
        const run_t run = rack.run("setup --json");
        EXPECT_EQ(run.out, json(false, failed + R"(\u0000SN=17200123\u0000\u0000ABCDEFG)", {part + "fail"}));
        EXPECT_EQ(run.err, part + "fail\n" + failed + field + "\n");
        EXPECT_EQ(run.status, 1);
    }
}

TEST(setup, of_a_bittware_board_that_cannot_reach_its_eeprom_is_refused)
{
    struct row_t
    {
        const char* model;
        const char* fault;
        const char* text;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {"bittware_xupp3r", R"("call": "ivra_i2c_read_control_pins", "errno": "EIO")",
         "Could not not set enable I2C pin: Input/output error"},
        {"bittware_xupp3r", R"("call": "ivra_i2c_read_control_pins", "count": 0)",
         "Could not not set enable I2C pin: Numerical result out of range"},
        {"bittware_xupvv8", R"("call": "ivra_i2c_write_control_pins", "errno": "EIO")",
         "Could not not set enable I2C pin: Input/output error"},
        {"ivra_fpb2", R"("call": "ivra_i2c_get_bus", "errno": "EIO")", "Cannot get I2C bus: Input/output error"},
        {"bittware_xupvv8", R"("call": "ivra_i2c_get_bus", "errno": "EIO")", "Cannot get I2C bus: Input/output error"},
        {"bittware_xupvv8", R"("call": "ivra_i2c_bus_write", "errno": "EIO")",
         "Cannot select I2C multiplexer channel: Input/output error"},
        {"bittware_xupvv8", R"("call": "ivra_i2c_bus_write", "short": 0)",
         "Cannot select I2C multiplexer channel: Input/output error"},
        {"bittware_xupvv8", R"("call": "ivra_i2c_bus_read_register", "errno": "EIO")",
         "Cannot read MAC EEPROM: Input/output error"},
        {"bittware_xupp3r", R"("call": "ivra_i2c_bus_read_register", "short": 20)",
         "Not enough byte read from MAC EEPROM"},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        plug(rack, family(row.model));
        rack.faults(std::string{"{"} + row.fault + "}");
        expect_refused(rack, "", row.text);
    }
}

TEST(setup, of_a_bittware_board_enables_its_bus_keeping_other_pins_and_selects_the_eeprom_of_an_xupvv8)
{
    for (const std::string model : {"bittware_xupp3r", "ivra_fpb2", "bittware_xupvv8"}) {
        rack_t rack;
        plug(rack, family(model));
        rack.in_child([] {
            const first_board_t opened;
            ivra_i2c* i2c = ivra_i2c_create(opened.root());
            EXPECT_EQ(ivra_i2c_write_control_pins(i2c, 0xa0), 0);
            ivra_i2c_destroy(i2c);
        });
        expect_set_up(rack.run("setup"));
        std::vector<std::string> expected{
            "ivra_i2c_read_control_pins(0000:00:00.0) = 8: 0xa0",
            "ivra_i2c_write_control_pins(0000:00:00.0, 0xa1) = 0",
            "ivra_i2c_get_bus(0000:00:00.0, 0) = handle",
            "ivra_i2c_bus_write(0000:00:00.0, 0x72, [01]) = 1",
            "ivra_i2c_bus_read_register(0000:00:00.0, 0x50, 0x0, 21) = 21: "
            "[4d 41 43 3d 30 30 3a 31 31 3a 32 32 3a 33 33 3a 34 34 3a 35 35]",
        };
        if (model != "bittware_xupvv8")
            expected.erase(expected.begin() + 3);
        std::vector<std::string> seen = traced(rack, "ivra_i2c_");
        std::erase_if(seen, [](const std::string& line) {
            return line.find("create(") != std::string::npos || line.find("destroy(") != std::string::npos;
        });
        EXPECT_EQ(seen, expected) << model;
        EXPECT_EQ(calls(rack, "ivra_uart_write_all"), 0U) << "no BMC is asked";
    }
}

// ---- ended from outside ----

/// A `setup` that makes so many changes on its way to the address, and then writes the flash and reloads.
victim_t setup_of(const std::string& model, std::size_t before_flash, const members_t& more = {})
{
    const family_t& board = family(model);
    return {
        .plug = [&board, more](rack_t& rack) { plug(rack, board, more); },
        .words = "setup",
        .changes = {"ivra_i2c_write_control_pins(", "ivra_i2c_bus_write(", "ivra_flash_write_section(",
                    "ivra_hw_top_update_params("},
        .check =
            [&board, before_flash](rack_t& rack, std::size_t done) {
                const bool is_written = done > before_flash;
                const bool is_reloaded = done > before_flash + 1;
                EXPECT_EQ(shown(rack, "MAC addresses"), (is_reloaded ? block(board) : old_block) + "\n");
                if (is_written)
                    EXPECT_EQ(flash(rack), with_record(erased_flash, board));
                else
                    EXPECT_EQ(shown(rack, "Flash").find("holds data"), std::string::npos);
            },
    };
}

TEST(setup, killed_after_any_call_leaves_the_old_addresses_or_the_new_ones)
{
    expect_killing_leaves_a_beginning(setup_of("m48l_xcvu7p", 0));
}

// As the U200's of the families, but ready at once.
const members_t xmc_with_macs{{"xmc", R"({"ready_after": ["0 s", "0 s"],
                                     "card": {"macs": {"first": "00:0a:35:01:02:03", "count": 4}}})"}};

TEST(setup, killed_after_any_call_of_a_talk_with_the_xmc_can_be_repeated)
{
    expect_killing_leaves_a_beginning(setup_of("xilinx_u200", 0, xmc_with_macs));
}

TEST(setup, killed_after_any_call_on_the_way_to_an_eeprom_can_be_repeated)
{
    expect_killing_leaves_a_beginning(setup_of("bittware_xupp3r", 1));
}

TEST(setup, killed_after_any_call_on_the_way_to_an_eeprom_behind_a_multiplexer_can_be_repeated)
{
    expect_killing_leaves_a_beginning(setup_of("bittware_xupvv8", 2));
}

TEST(setup, holds_a_signal_back_until_flash_and_addresses_agree)
{
    const family_t& board = family("m48l_xcvu7p");
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
        for (const std::string call : {"ivra_flash_write_section", "ivra_hw_top_update_params"}) {
            rack_t rack;
            plug(rack, board);
            rack.faults(R"({"call": ")" + call + R"(", "delay": "300 ms"})"); // in which the signal comes
            const bool is_reload = call == "ivra_hw_top_update_params";
            const run_t run = run_and_signal(rack, "setup", signal, [&](::pid_t process) {
                return holds_signals(process) && (!is_reload || calls(rack, "ivra_flash_write_section") == 1);
            });
            EXPECT_EQ(run.status, 128 + signal);
            EXPECT_EQ(run.out, part) << "the signal takes effect before anything else";
            EXPECT_EQ(flash(rack), with_record(erased_flash, board));
            EXPECT_EQ(shown(rack, "MAC addresses"), block(board) + "\n");
        }
}

TEST(setup, that_waits_for_a_lock_ends_with_a_signal_at_once)
{
    using namespace std::chrono_literals;
    rack_t rack;
    plug(rack, family("xilinx_u200"), xmc_with_macs);
    rack.faults(R"({"call": "ivra_hw_shared_mutex_lock", "nth": 2, "delay": "60 s"})"); // as if another one held it
    const auto begin = std::chrono::steady_clock::now();
    const run_t run = run_and_signal(rack, "setup", SIGTERM,
                                     [&](::pid_t) { return calls(rack, "ivra_hw_shared_mutex_unlock") == 1; });
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s);
    EXPECT_EQ(run.status, 128 + SIGTERM);
    EXPECT_EQ(calls(rack, "ivra_flash_write_section"), 0U);
}

} // namespace
} // namespace ivra::tests
