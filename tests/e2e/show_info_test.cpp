#include "screens.h"
#include "support/rack.h"

#include <gtest/gtest.h>

namespace ivra::tests {
namespace {

const host_t whole_switch{.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"};
const std::string addresses = "02:00:00:00:00:00 - 02:00:00:00:00:03";

TEST(show_info, describes_accelerator_board_and_fpga)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host(whole_switch);
    EXPECT_EQ(rack.run("show info"), says("Accelerator\n"
                                          "\tName         : card-0\n"
                                          "\tID           : 0\n"
                                          "\tBoard model  : m48l_xcvu7p\n"
                                          "\tBoard serial : SSJ17200123\n"
                                          "\tFPGA device  : xcvu7p-flva2104-2-e\n"
                                          "\tFPGA serial  : 0x4002000001285c0f1a104280\n"
                                          "\tMAC addresses: 02:00:00:00:00:00 - 02:00:00:00:00:03\n"
                                          "\tTemperature  : 45.5°C\n"));
}

TEST(show_info, is_what_show_without_a_word_shows)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host(whole_switch);
    EXPECT_EQ(rack.run("show").out, rack.run("show info").out);
}

TEST(show_info, is_one_json_object)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host(whole_switch);
    EXPECT_EQ(rack.run("-j show info"),
              says(R"({"data":{"Accelerator":{"Name":"card-0","ID":"0","Board model":"m48l_xcvu7p",)"
                   R"("Board serial":"SSJ17200123","FPGA device":"xcvu7p-flva2104-2-e",)"
                   R"("FPGA serial":"0x4002000001285c0f1a104280",)"
                   R"("MAC addresses":"02:00:00:00:00:00 - 02:00:00:00:00:03","Temperature":"45.5°C"}},)"
                   R"("status":{"success":true},"log":[]})"
                   "\n"));
}

TEST(show_info, has_its_colours_in_each_palette)
{
    struct row_t
    {
        std::vector<std::string> environment;
        std::string green, orange, blue, vermilion;
    };
    const std::vector<row_t> rows{
        {{"TERM=xterm"}, "\033[32m", "\033[35m", "\033[36m", "\033[31m"},
        {{"TERM=xterm-256color"}, "\033[38;5;36m", "\033[38;5;172m", "\033[38;5;74m", "\033[38;5;166m"},
        {{"TERM=xterm-256color", "COLORTERM=truecolor"},
         "\033[38;2;0;158;115m",
         "\033[38;2;230;159;0m",
         "\033[38;2;86;180;233m",
         "\033[38;2;213;94;0m"},
    };
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("m48l_xcvu7p").host(whole_switch);
        for (const std::string& entry : row.environment)
            rack.environment(entry);
        const std::string reset = "\033[0m";
        const std::string end = reset + reset + "\n";
        const std::string expected =
            "\033[1mAccelerator" + reset +
            "\n"
            "\t" +
            reset + "Name         : " + reset + "card-0" + end + "\t" + reset + "ID           : " + reset + "0" + end +
            "\t" + reset + "Board model  : " + reset + "m48l_xcvu7p" + end + "\t" + reset + "Board serial : " + reset +
            "SSJ17200123" + end + "\t" + reset + "FPGA device  : " + row.green + "xcvu7p-flva2104-2-e" + end + "\t" +
            reset + "FPGA serial  : " + row.orange + "0x4002000001285c0f1a104280" + end + "\t" + reset +
            "MAC addresses: " + row.blue + "02:00:00:00:00:00 - 02:00:00:00:00:03" + end + "\t" + reset +
            "Temperature  : " + row.vermilion + "45.5°C" + end;
        EXPECT_EQ(rack.run("show info", {stream_t::terminal, stream_t::terminal}).out, expected);
        EXPECT_EQ(rack.run("show info --color always").out, expected) << "also into a file when colour is forced";
        const run_t never = rack.run("show info --color=never", {stream_t::terminal, stream_t::terminal});
        EXPECT_EQ(never.out.find('\033'), std::string::npos);
    }
}

TEST(show_info, of_a_board_with_one_mac_address_says_so)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"mac_addresses", R"(["02:00:00:0a:0B:ff"])"}}).host(whole_switch);
    EXPECT_EQ(rack.run("show info").out, "Accelerator\n"
                                         "\tName        : card-0\n"
                                         "\tID          : 0\n"
                                         "\tBoard model : m48l_xcvu7p\n"
                                         "\tBoard serial: SSJ17200123\n"
                                         "\tFPGA device : xcvu7p-flva2104-2-e\n"
                                         "\tFPGA serial : 0x4002000001285c0f1a104280\n"
                                         "\tMAC address : 02:00:00:0a:0b:ff\n"
                                         "\tTemperature : 45.5°C\n");
    EXPECT_EQ(rack.run("show info --json"),
              says(R"({"data":{"Accelerator":{"Name":"card-0","ID":"0","Board model":"m48l_xcvu7p",)"
                   R"("Board serial":"SSJ17200123","FPGA device":"xcvu7p-flva2104-2-e",)"
                   R"("FPGA serial":"0x4002000001285c0f1a104280","MAC address":"02:00:00:0a:0b:ff",)"
                   R"("Temperature":"45.5°C"}},"status":{"success":true},"log":[]})"
                   "\n"));
}

TEST(show_info, of_a_board_with_eight_mac_addresses_shows_the_first_and_the_last)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"mac_addresses", R"({"first": "02:00:00:00:00:fc", "count": 8})"}}).host(whole_switch);
    EXPECT_EQ(rack.run("show info"), says(info("m48l_xcvu7p", "SSJ17200123", "02:00:00:00:00:fc - 02:00:00:00:01:03")));
}

TEST(show_info, of_a_board_without_mac_addresses_has_no_such_line)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"mac_addresses", "[]"}}).host(whole_switch);
    const run_t run = rack.run("show info");
    EXPECT_EQ(run.out, "Accelerator\n"
                       "\tName        : card-0\n"
                       "\tID          : 0\n"
                       "\tBoard model : m48l_xcvu7p\n"
                       "\tBoard serial: SSJ17200123\n"
                       "\tFPGA device : xcvu7p-flva2104-2-e\n"
                       "\tFPGA serial : 0x4002000001285c0f1a104280\n"
                       "\tTemperature : 45.5°C\n");
    EXPECT_EQ(run.status, 0);
}

TEST(show_info, prints_a_temperature_with_up_to_six_significant_digits)
{
    struct row_t
    {
        const char* temperature;
        const char* text;
    };
    constexpr row_t rows[] = {
        {"45.5", "45.5°C"},      {"45", "45°C"}, {"-7.25", "-7.25°C"},   {"45.1234567", "45.1235°C"},
        {"100.000001", "100°C"}, {"0", "0°C"},   {"0.00001", "1e-05°C"},
    };
    for (const row_t& row : rows) {
        rack_t rack;
        const std::string fpga = R"({"device": "xcvu7p-flva2104-2-e", "serial": "4002000001285c0f1a104280", )";
        rack.plug("m48l_xcvu7p", {{"fpga", fpga + R"("temperature": )" + row.temperature + "}"}}).host(whole_switch);
        EXPECT_EQ(rack.run("show info"), says(info("m48l_xcvu7p", "SSJ17200123", addresses, row.text)));
    }
}

TEST(show_info, of_a_temperature_that_is_no_number_has_no_sign)
{
    // 45.5 is 0x4046c00000000000, and no number is 0xfff8000000000000, least significant byte first.
    rack_t rack;
    rack.plug("m48l_xcvu7p").host(whole_switch);
    rack.faults(R"({"call": "ivra_hw_top_get_temperature", "garble": "0000000000c0bebf"})");
    EXPECT_EQ(rack.run("show info"), says(info("m48l_xcvu7p", "SSJ17200123", addresses, "nan°C")));
}

TEST(show_info, of_a_switch_that_does_not_tell_its_serial_logs_it_as_information)
{
    const std::string before = info("m48l_xcvu7p", "Not available");
    rack_t rack;
    rack.plug("m48l_xcvu7p");
    EXPECT_EQ(rack.environment("IVRA_LOG_LEVEL=2").run("show info"), // information, and what is worse
              says("get_serial: Could not get serial of this switch\n" + before));
    EXPECT_EQ(rack.environment("IVRA_LOG_LEVEL=1").run("show info").out, before) << "it is no warning";
    const std::string unreadable = "mkdir -p /sys/devices/platform/sid.0/serial; exec " IVRA_BSP "-board show info";
    EXPECT_EQ(rack.program("/bin/sh").run(std::vector<std::string>{"-c", unreadable}), says(before));
}

TEST(show_info, of_a_name_that_fills_its_room_shows_it_and_a_longer_one_cannot_be_read)
{
    const std::string name(1023, 'n'); // and a NUL
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"name", "\"" + name + "\""}}).plug("m48l_xcvu7p", {{"name", "\"" + name + "n\""}});
    rack.host(whole_switch);
    const std::string first = rack.run("show info -a " + name).out;
    EXPECT_TRUE(first.starts_with("Accelerator\n\tName         : " + name + "\n\tID           : 0\n")) << first;
    const std::string second = rack.run("show info -a " + name + "n").out;
    EXPECT_TRUE(second.starts_with("Accelerator\n\tName         : board-1\n\tID           : 1\n")) << second;
}

TEST(show_info, of_an_alveo_board_without_its_controller_shows_the_serial_as_an_error)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    rack.faults(R"({"call": "ivra_hw_core_enumerate", "errno": "EIO"})");
    const run_t run = rack.run("show info");
    EXPECT_EQ(run.out, "get_xmc: Could not initialize Alveo XMC subsystem: XMC core not found: Invalid argument\n" +
                           info("xilinx_u50", "Error"));
    EXPECT_EQ(run.err, "get_board_serial_stat: Error retrieving serial for board card-0: "
                       "Could not get board serial as Alveo XMC subsystem is not initialized.\n");
    EXPECT_EQ(run.status, 0);
}

TEST(show_info, of_a_board_whose_i2c_cannot_be_created_logs_one_message_and_shows_the_rest)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", {{"i2c", "null"}, {"bmc", "null"}});
    const run_t run = rack.run("show info");
    EXPECT_EQ(run.out, "get_i2c: Could not create I2C subsystem: Failed to create i2c object.: No such device\n"
                       "get_bmc: Could not initialize Bittware BMC subsystem: Failed to create UART subsystem: "
                       "No such device\n" +
                           info("bittware_xupp3r", "Error"));
    EXPECT_EQ(run.err, "get_board_serial_stat: Error retrieving serial for board card-0: "
                       "Could not set/get boot image as Bittware BMC subsustem is not initialized.\n");
    EXPECT_EQ(run.status, 0);
    const std::string trace = rack.trace();
    const std::size_t log = trace.find(" ivra_log_log(");
    EXPECT_EQ(trace.substr(log, 17), " ivra_log_log(1, ") << "a warning";
}

TEST(show_info, ends_with_the_text_of_what_could_not_be_read)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"("call": "ivra_hw_accelerator_get")",          "Input/output error\n"},
        {R"("call": "ivra_hw_accelerator_enumerate_all_mmios")", "Input/output error\n"},
        {R"("call": "ivra_hw_mmio_create")",              "Input/output error\n"},
        {R"("call": "ivra_hw_enumerate_cores")",          "Input/output error\n"},
        {R"("call": "ivra_hw_top_create")",               "Failed to create hw_top subsystem: Input/output error\n"},
        {R"("call": "ivra_flash_create")",                "Failed to create flash management subsystem: Input/output error\n"},
        {R"("call": "ivra_flash_get_section_pgm")",       "Failed to create section object: Input/output error\n"},
        {R"("call": "ivra_flash_get_section_usr")",       "Failed to create section object: Input/output error\n"},
        {R"("call": "ivra_flash_get_section_prm")",       "Failed to create section object: Input/output error\n"},
        {R"("call": "ivra_flash_get_section_otp")",       "Failed to create section object: Input/output error\n"},
        {R"("call": "ivra_hw_top_get_device_id")",        "Could not get device ID: Input/output error\n"},
        {R"("call": "ivra_hw_top_get_fpga_serial_id")",   "Could not get FPGA serial: Input/output error\n"},
        {R"("call": "ivra_hw_top_print_fpga_serial_id")", "ivra_hw_top_print_fpga_serial_id: Input/output error\n"},
        {R"("call": "ivra_hw_top_get_temperature")",      "Could not get accelerator temperature: Input/output error\n"},
        {R"("call": "ivra_hw_prop_get_index")",           "Could not get accelerator ID: Input/output error\n"},
        {R"("call": "ivra_hw_top_get_mac_addresses")",    "Could not get available MAC addresses\n"},
        {R"("call": "ivra_hw_top_get_mac_addresses", "nth": 2)", "Could not get available MAC addresses\n"},
        {R"("call": "ivra_hw_top_get_board_name")",       "Input/output error\n"},
        {R"("call": "ivra_hw_top_get_board_name", "nth": 2)", "Could not get accelerator model: Input/output error\n"},
        {R"("call": "ivra_print_mac_address")",           "ivra_print_mac_address(): Input/output error\n"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("m48l_xcvu7p").host(whole_switch);
        rack.faults(std::string{"{"} + row.fault + R"(, "errno": "EIO"})");
        EXPECT_EQ(rack.run("show info"), fails(row.text)) << row.fault;
    }
}

TEST(show_info, fails_when_an_address_is_longer_than_addresses_are)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host(whole_switch);
    rack.faults(R"({"call": "ivra_print_mac_address", "text": "00:11:22:33:44:55:"})");
    const run_t run = rack.run("show info");
    EXPECT_EQ(run.err, "Buffer too small for ivra_print_mac_address()\n");
    EXPECT_EQ(run.status, 1);
}

TEST(show_info, of_an_accelerator_that_cannot_be_opened_says_why_in_text_and_json)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"open", "\"EACCES\""}});
    EXPECT_EQ(rack.run("show info"), fails("Permission denied\n"));
    const run_t json = rack.run("show info --json");
    EXPECT_EQ(json.out, R"({"data":{},"status":{"success":false,"message":"Permission denied"},)"
                        R"("log":[{"type":"error","message":"Permission denied"}]})"
                        "\n");
    EXPECT_EQ(json.status, 1);
}

TEST(show_info, of_an_unknown_model_fails)
{
    rack_t rack;
    rack.plug("unknown_model");
    const run_t run = rack.run("show info");
    EXPECT_EQ(run.err, "Unsupported board model: 'unknown_model'\n");
    EXPECT_EQ(run.status, 1);
}

TEST(show_info, of_a_switch_takes_the_first_word_of_the_serial_file)
{
    struct row_t
    {
        const char* content;
        const char* serial;
    };
    constexpr row_t rows[] = {
        {"SSJ17200123\n", "SSJ17200123"},
        {"SSJ17200123", "SSJ17200123"},
        {"  \n\tfirst second\nthird\n", "first"},
    };
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("m48e_emu_xcvu9p").host({.serial = row.content, .address = {}});
        EXPECT_EQ(rack.run("show info"), says(info("m48e_emu_xcvu9p", row.serial)));
    }
}

TEST(show_info, of_a_switch_without_a_serial_logs_that_and_shows_not_available)
{
    for (const std::optional<std::string>& serial :
         {std::optional<std::string>{}, std::optional<std::string>{""}, std::optional<std::string>{" \n"}}) {
        rack_t rack;
        rack.plug("m48lb_xcvu9p").host({.serial = serial, .address = {}});
        EXPECT_EQ(rack.run("show info"),
                  says("get_serial: Could not get serial of this switch\n" + info("m48lb_xcvu9p", "Not available")));
    }
}

} // namespace
} // namespace ivra::tests
