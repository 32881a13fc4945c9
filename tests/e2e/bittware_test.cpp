#include "screens.h"
#include "support/rack.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

// The first sensor has a factor (0.063 V a step), the second none, the third a name longer than a record holds.
const std::string three_sensors = R"("sensors": {"only": true, "list": [
    {"name": "12V0", "unit": "V", "value": 12.03, "m": 63, "r_exp": -3},
    {"name": "Board temp", "unit": "degrees C", "value": 38},
    {"name": "Fan inlet air temperature", "unit": "degrees C", "available": false}]})";

const std::string remains = "recv_data: Data remains after end of IPMI transaction.\n";

std::string times(int count, const std::string& text)
{
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

const std::string not_initialized = "Could not set/get boot image as Bittware BMC subsustem is not initialized.";

/// What was written to the UART, request by request.
std::vector<std::string> written(const rack_t& rack)
{
    const std::string call = "ivra_uart_write_all(0000:00:00.0, [";
    std::vector<std::string> requests = traced(rack, call);
    for (std::string& request : requests)
        request = request.substr(call.size(), request.find(']') - call.size());
    return requests;
}

TEST(bittware, boards_list_their_serials)
{
    for (const std::string model : {"bittware_xupp3r", "bittware_xupvv8", "ivra_fpb2"}) {
        rack_t rack;
        rack.plug(model, bmc_of(R"("fru": {"manufacturer": "VM", "product": "P", "serial": "VRT0001"})"));
        EXPECT_EQ(rack.run("list"),
                  says(times(3, remains) + listed("card-0", "0", model, "02:00:00:00:00:00", "VRT0001")));
    }
}

TEST(bittware, show_info_describes_the_board_after_what_the_log_says)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(R"("fru": {"manufacturer": "VM", "product": "XP", "serial": "VRT0001",
                                                "part_number": null})"));
    const run_t run = rack.run("show info");
    EXPECT_EQ(run.out, times(3, remains) + info("bittware_xupp3r", "VRT0001"));
    EXPECT_EQ(run.status, 0);
    // Header, first 6 bytes of the board area at 8, and the rest of its 24.
    EXPECT_EQ(written(rack), (std::vector<std::string>{"a0 28 00 11 00 00 00 08 a5 00 00 00 00 00 00 00",
                                                       "a0 28 00 11 00 08 00 06 a5 00 00 00 00 00 00 00",
                                                       "a0 28 00 11 00 0e 00 12 a5 00 00 00 00 00 00 00"}));
}

TEST(bittware, log_lines_are_held_back_by_the_log_library)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(three_sensors)).environment("IVRA_LOG_LEVEL=0");
    EXPECT_TRUE(rack.run("show sensors").out.starts_with("Retrieving sensor data... done\nSensors\n"));
}

const std::string three_rows = "Sensors\n"
                               "\t┌───────────────────────────┬─────────────┐\n"
                               "\t│ Sensor                    │ Value       │\n"
                               "\t├───────────────────────────┼─────────────┤\n"
                               "\t│ 12V0                      │     12.03 V │\n"
                               "\t│ Board temp                │    38.00 °C │\n"
                               "\t│ Fan inlet air temperature │ Unavailable │\n"
                               "\t└───────────────────────────┴─────────────┘\n";

TEST(bittware_sensors, are_those_of_the_record_repository_on_every_model)
{
    for (const std::string model : {"bittware_xupp3r", "bittware_xupvv8", "ivra_fpb2"}) {
        rack_t rack;
        rack.plug(model, bmc_of(three_sensors));
        const run_t run = rack.run("show sensors");
        // Deliberate: the first line of the log completes the line that was begun; "done" comes alone.
        EXPECT_EQ(run.out, "Retrieving sensor data... " + times(7, remains) + "done\n" + three_rows);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(bittware_sensors, are_one_json_object)
{
    rack_t rack;
    rack.plug("bittware_xupvv8", bmc_of(three_sensors));
    const run_t run = rack.run("show sensors --json");
    const std::string message =
        R"({"type":"info","message":"recv_data: Data remains after end of IPMI transaction."},)";
    EXPECT_EQ(run.out,
              R"({"data":{"Sensors":{"Sensor":[{"sensors":"12V0","Value":"12.03 V"},)"
              R"({"sensors":"Board temp","Value":"38.00 °C"},)"
              R"({"sensors":"Fan inlet air temperature","Value":"Unavailable"}]}},"status":{"success":true},"log":[)"
              R"({"type":"info","message":"Retrieving sensor data... recv_data: )"
              R"(Data remains after end of IPMI transaction."},)" +
                  times(6, message) + R"({"type":"info","message":"done"}]})" + "\n");
    EXPECT_EQ(run.err, "Retrieving sensor data... " + times(7, remains) + "done\n");
    EXPECT_EQ(run.status, 0);
}

TEST(bittware_sensors, are_asked_for_record_by_record)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(three_sensors));
    rack.run("show sensors");
    const std::vector<std::string> requests = written(rack);
    const std::string nine_zeros = times(9, " 00");
    ASSERT_EQ(requests.size(), 7U);
    EXPECT_EQ(requests[0], "a0 10 00 21 00 00 00 00 00 40 a5" + nine_zeros);
    EXPECT_EQ(requests[1], "a0 10 00 2d 01 a5 00 00 00 00");
    EXPECT_EQ(requests[2], "a0 10 00 21 00 00 02 00 00 40 a5" + nine_zeros);
    EXPECT_EQ(requests[4], "a0 10 00 21 00 00 03 00 00 40 a5" + nine_zeros);
    EXPECT_EQ(requests[5], "a0 10 00 21 00 00 03 00 30 19 a5" + nine_zeros) << "the whole of a name of 25 bytes";
}

TEST(bittware_sensors, with_special_bytes_in_their_requests_are_escaped)
{
    rack_t rack;
    rack.plug("bittware_xupp3r",
              bmc_of(R"("sensors": {"only": true, "list": [{"name": "A", "number": 165, "unit": "V", "value": 1}]})"));
    EXPECT_NE(rack.run("show sensors").out.find("│ A      │ 1.00 V │"), std::string::npos);
    EXPECT_EQ(written(rack).at(1), "a0 10 00 2d aa b5 a5 00 00 00") << "2 x 4 + 2 bytes all the same";
}

TEST(bittware_sensors, of_an_empty_repository_are_an_error)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(R"("sensors": {"only": true, "list": []})"));
    const run_t run = rack.run("show sensors");
    EXPECT_EQ(run.err, "IPMI transaction error. Response code: 203\n");
    EXPECT_EQ(run.status, 1);
}

TEST(bittware_sensors, that_fail_end_the_command_and_show_nothing)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"({"to": "0421", "nth": 2, "code": "0xce"})",     "IPMI transaction error. Response code: 206"},
        {R"({"to": "042d", "nth": 2, "code": "0xc0"})",     "IPMI transaction error. Response code: 192"},
        {R"({"to": "0421", "nth": 2, "data": "ffff00"})",   "Size mismatch in IPMI response: expected 0x42, got 0x3"},
        {R"({"to": "042d", "data": "0c40"})",               "Size mismatch in IPMI response: expected 0x3, got 0x2"},
        {R"({"to": "04210000030030", "code": "0xc9"})",     "IPMI transaction error. Response code: 201"},
        {R"({"to": "04210000030030", "data": "ffff4162"})", "Size mismatch in IPMI response: expected 0x1b, got 0x4"},
        {R"({"to": "042d", "frame": "a01400a5"})",          "Invalid data read from BMC"},
        {R"({"to": "042d", "frame": "a010002d00a5"})",      "Invalid IPMI response net function"},
        {R"({"to": "042d", "frame": "a014002e00a5"})",      "Invalid IPMI response command"},
        {R"({"to": "042d", "frame": "a014002d000c4000"})",  "Cannot find IPMI transaction in response"},
        {R"({"to": "042d", "latency": "never"})",           "Cannot find IPMI transaction in response"},
        {R"({"to": "042d", "latency": "110 ms"})",          "Cannot find IPMI transaction in response"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r", bmc_of(three_sensors + R"(, "answers": [)" + row.fault + "]"));
        const run_t run = rack.run("show sensors");
        EXPECT_EQ(run.err, row.text + std::string{"\n"}) << row.fault;
        EXPECT_EQ(run.out.find("Sensors\n"), std::string::npos) << row.fault;
        EXPECT_EQ(run.out.find("done"), std::string::npos) << row.fault;
        EXPECT_EQ(run.status, 1) << row.fault;
    }
}

TEST(bittware_line, brings_answers_that_take_95_ms)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(R"("latency": "95 ms")"));
    EXPECT_EQ(rack.run("show boot-image").status, 0);
}

TEST(bittware_line, noise_before_an_answer_is_ignored)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(three_sensors + R"(, "answers": [{"to": "04", "noise": "00a5aa12ff"}])"));
    EXPECT_EQ(rack.run("show sensors").out, "Retrieving sensor data... " + times(7, remains) + "done\n" + three_rows);
}

TEST(bittware_line, pieces_of_any_size_make_the_same_report)
{
    for (const std::string depth : {"1", "2", "3", "7", "16", "63", "64"}) {
        rack_t rack;
        rack.plug("bittware_xupp3r", bmc_of(three_sensors + R"(, "depth": )" + depth));
        EXPECT_TRUE(rack.run("show sensors").out.ends_with("done\n" + three_rows)) << depth;
    }
}

TEST(bittware_line, a_pair_that_is_split_is_logged_and_dropped)
{
    // A reading of 0xa5, sent as 0xaa 0xb5; the first read ends between them, in a buffer that held nothing there.
    rack_t rack;
    rack.plug(
        "bittware_xupp3r",
        bmc_of(
            R"("sensors": {"only": true, "list": [{"name": "A", "unit": "V", "raw": 165}]}, "answers": [{"to": "042d", "pieces": [6]}])"));
    const run_t run = rack.run("show sensors");
    EXPECT_EQ(run.out, "Retrieving sensor data... " + remains + "recv_data: Invalid IPMI escaped byte: 0x00\n" +
                           remains +
                           "done\nSensors\n"
                           "\t┌────────┬──────────┐\n"
                           "\t│ Sensor │ Value    │\n"
                           "\t├────────┼──────────┤\n"
                           "\t│ A      │ 181.00 V │\n" // 0xb5 as it is
                           "\t└────────┴──────────┘\n");
    EXPECT_EQ(traced(rack, "ivra_log_log(").at(1),
              R"(ivra_log_log(1, "src/bmc/bittware/ipmi_serial", 143, "recv_data", "%s"))");
    EXPECT_EQ(traced(rack, "ivra_log_log(").at(2),
              R"(ivra_log_log(1, "src/bmc/bittware/ipmi_serial", 154, "recv_data", "%s"))");
}

TEST(bittware_line, an_answer_that_came_too_late_is_taken_by_the_next_request)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(R"("boot_image": "primary", "configured_from": "primary",
                                        "answers": [{"to": "2e08187b0001", "nth": 1, "latency": "110 ms"}])"));
    EXPECT_EQ(rack.run("show boot-image").err, "Cannot find IPMI transaction in response\n");
    // The configuration status that came late, and then the one that was asked for, taken as a boot image.
    EXPECT_EQ(rack.run("show boot-image").out, times(2, remains) + "Boot image\n"
                                                                   "\tCurrent boot: primary\n"
                                                                   "\tNext reload : backup\n");
}

TEST(bittware_boot_image, is_the_one_that_was_taken_and_the_one_that_is_next)
{
    for (const std::string model : {"bittware_xupp3r", "bittware_xupvv8", "ivra_fpb2"})
        for (const std::string current : {"none", "primary", "backup"})
            for (const std::string next : {"none", "primary", "backup"}) {
                rack_t rack;
                rack.plug(model, bmc_of(R"("configured_from": ")" + current + R"(", "boot_image": ")" + next + '"'));
                EXPECT_EQ(rack.run("show boot-image"), says(times(2, remains) +
                                                            "Boot image\n"
                                                            "\tCurrent boot: " +
                                                            current +
                                                            "\n"
                                                            "\tNext reload : " +
                                                            next + "\n"));
            }
}

TEST(bittware_boot_image, is_one_json_object)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(R"("configured_from": "none", "boot_image": "backup")"))
        .environment("IVRA_LOG_LEVEL=0");
    EXPECT_EQ(rack.run("show boot-image --json").out,
              R"({"data":{"Boot image":{"Current boot":"none","Next reload":"backup"}},)"
              R"("status":{"success":true},"log":[]})"
              "\n");
}

TEST(bittware_boot_image, has_its_colours)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(R"("configured_from": "none", "boot_image": "backup")"))
        .environment("IVRA_LOG_LEVEL=0");
    const std::string reset = "\033[0m";
    EXPECT_EQ(rack.run("show boot-image --color always").out, "\033[1mBoot image" + reset +
                                                                  "\n"
                                                                  "\t" +
                                                                  reset + "Current boot: \033[31mnone" + reset + reset +
                                                                  "\n"
                                                                  "\t" +
                                                                  reset + "Next reload : \033[33mbackup" + reset +
                                                                  reset + "\n");
}

TEST(bittware_boot_image, takes_the_configuration_status_first)
{
    rack_t rack;
    rack.plug("bittware_xupp3r");
    rack.run("show boot-image");
    EXPECT_EQ(written(rack), (std::vector<std::string>{"a0 b8 00 08 18 7b 00 01 a5 00 00 00 00 00 00 00",
                                                       "a0 b8 00 08 18 7b 00 07 a5 00 00 00 00 00 00 00"}));
}

TEST(bittware_boot_image, that_the_bmc_does_not_tell_ends_the_command)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"({"to": "2e08187b0001", "code": "0xc1", "data": "187b00"})", "Error requesting FPGA configuration status. Response code: 193"},
        {R"({"to": "2e08187b0001", "data": "187b0003"})",   "Unknown FPGA configuration status value received from BMC"},
        {R"({"to": "2e08187b0001", "data": "187b00"})",     "Unknown FPGA configuration status value received from BMC"},
        {R"({"to": "2e08187b0001", "data": "187b"})",       "Incomplete IPMI OEM command response received from BMC"},
        {R"({"to": "2e08187b0001", "code": "0xc1"})",       "Incomplete IPMI OEM command response received from BMC"},
        {R"({"to": "2e08187b0007", "code": "0xd5", "data": "187b00"})", "Error requesting boot image. Response code: 213"},
        {R"({"to": "2e08187b0007", "data": "187b0002"})",   "Unknown boot image value received from BMC"},
        {R"({"to": "2e08187b0007", "data": "187b00"})",     "Unknown boot image value received from BMC"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r", bmc_of(std::string{R"("answers": [)"} + row.fault + "]"));
        const run_t run = rack.run("show boot-image");
        EXPECT_EQ(run.err, row.text + std::string{"\n"}) << row.fault;
        EXPECT_EQ(run.out.find("Boot image"), std::string::npos) << row.fault;
        EXPECT_EQ(run.status, 1);
    }
}

TEST(bittware_boot_image, of_other_boards_is_unsupported)
{
    for (const std::string model : {"xilinx_u200", "xilinx_u250", "xilinx_u50", "xilinx_u55c", "m48l_xcvu7p"}) {
        rack_t rack;
        rack.plug(model);
        EXPECT_EQ(rack.run("show boot-image"),
                  fails("Getting current boot image is only supported on Bittware boards\n"));
    }
}

TEST(bittware_bmc, that_cannot_be_opened_is_one_line_in_the_log)
{
    struct row_t
    {
        const char* call;
        const char* text;
    };
    constexpr row_t rows[] = {
        {"ivra_uart_create", "Failed to create UART subsystem: Input/output error"},
        {"ivra_hw_prop_get_uid", "Error getting MMIO UID: Input/output error"},
        {"ivra_hw_shared_mutex_create", "Input/output error"},
    };
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r");
        rack.faults(std::string{R"({"call": ")"} + row.call + R"(", "errno": "EIO"})");
        const run_t run = rack.run("show flash");
        EXPECT_TRUE(run.out.starts_with(std::string{"get_bmc: Could not initialize Bittware BMC subsystem: "} +
                                        row.text + "\nFlash memory\n"))
            << run.out;
        EXPECT_EQ(run.status, 0) << "the board works for everything that needs no BMC";
        const std::vector<std::string> log = traced(rack, "ivra_log_log(");
        ASSERT_EQ(log.size(), 1U);
        EXPECT_TRUE(log.front().starts_with(R"(ivra_log_log(1, "src/board/bittware", 57, "get_bmc", )")) << log.front();
    }
}

TEST(bittware_bmc, that_is_missing_fails_everything_that_needs_it_with_one_sentence)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", {{"bmc", "null"}});
    EXPECT_EQ(rack.run("show info"), (run_t{"get_bmc: Could not initialize Bittware BMC subsystem: "
                                            "Failed to create UART subsystem: No such device\n" +
                                                info("bittware_xupp3r", "Error"),
                                            serial_failed(not_initialized), 0}));
    for (const std::string report : {"sensors", "boot-image"}) {
        const run_t run = rack.run("show " + report);
        EXPECT_EQ(run.err, not_initialized + "\n");
        EXPECT_EQ(run.status, 1);
    }
}

TEST(bittware_serial, that_cannot_be_read_is_an_error_in_the_report)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"({"to": "0a1100000008", "code": "0xcb"})",             "Error reading FRU data. Response code: 203"},
        {R"({"to": "0a1100000008", "data": "0701000001000000"})", "Read less FRU data than expected"},
        {R"({"to": "0a1100000008", "data": ""})",                 "Read less FRU data than expected"},
        {R"({"to": "0a11", "latency": "never"})",                 "Cannot find IPMI transaction in response"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r", bmc_of(std::string{R"("answers": [)"} + row.fault + "]"));
        const run_t run = rack.run("show info");
        EXPECT_TRUE(run.out.ends_with(info("bittware_xupp3r", "Error"))) << row.fault;
        EXPECT_EQ(run.err, serial_failed(row.text)) << row.fault;
        EXPECT_EQ(run.status, 0);
    }
}

/// What `show info` says of the serial of a board with this FRU image.
std::string serial_of(const std::string& image)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bmc_of(R"("fru": {"raw": ")" + image + R"("})"));
    const run_t run = rack.run("show info");
    if (!run.err.empty())
        return run.err;
    const std::size_t at = run.out.find("\tBoard serial : ") + 16;
    return run.out.substr(at, run.out.find('\n', at) - at);
}

TEST(bittware_serial, of_an_inventory_that_makes_no_sense_is_an_error)
{
    const std::string header = "01000001000000fe";
    EXPECT_EQ(serial_of("01000001000000ff"), serial_failed("FRU common header checksum failed"));
    EXPECT_EQ(serial_of("01000000000000ff"), serial_failed("FRU board info area is not present"));
    EXPECT_EQ(serial_of(header + "012119000000"), serial_failed("BMC FRU board info area size too big"));
    EXPECT_EQ(serial_of(header + "010019000000"), serial_failed("BMC FRU board info area incomplete"));
    // 16 bytes: manufacturer "A", product "B", serial "C", then the end and the checksum.
    EXPECT_EQ(serial_of(header + "010219000000c141"), serial_failed("Read less FRU data than expected"));
    EXPECT_EQ(serial_of(header + "0102190000004141414241430000"), serial_failed("Read less FRU data than expected"));
    EXPECT_EQ(serial_of(header + "010219000000414141424143c100000a"),
              serial_failed("FRU board area info checksum failed"));
    EXPECT_EQ(serial_of(header + "010219000000414141424143c100009a"), "C");
    EXPECT_EQ(serial_of(header + "01021900000041414142c1000000001e"),
              serial_failed("BMC FRU board info area incomplete"));
    EXPECT_EQ(serial_of(header + "01021900000041414142484300000054"),
              serial_failed("Error parsing FRU variable length field"));
}

TEST(bittware_lock, is_that_of_the_bittware_controller_and_held_for_each_request_and_not_between)
{
    rack_t rack;
    rack.plug("bittware_xupp3r");
    rack.run("show boot-image");
    EXPECT_EQ(traced(rack, " ivra_hw_shared_mutex_create(\"ivra-bsp-bmc-bittware-").size(), 1U);
    std::string steps;
    std::istringstream trace{rack.trace()};
    for (std::string line; std::getline(trace, line);) {
        if (line.find(" ivra_hw_shared_mutex_lock(") != std::string::npos)
            steps += "lock ";
        else if (line.find(" ivra_uart_write_all(") != std::string::npos)
            steps += "write ";
        else if (line.find(" ivra_uart_read(") != std::string::npos && !steps.ends_with("read "))
            steps += "read ";
        else if (line.find(" ivra_hw_shared_mutex_unlock(") != std::string::npos)
            steps += "unlock ";
    }
    EXPECT_EQ(steps, times(2, "lock write read unlock "));
}

TEST(bittware_lock, failures_release_it)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"("call": "ivra_uart_write_all", "nth": 2)",          "Error sending IPMI data: Input/output error"},
        {R"("call": "ivra_uart_read", "nth": 3)",               "Cannot read IPMI response: Input/output error"},
        {R"("call": "ivra_hw_shared_mutex_lock", "nth": 1)",    "Input/output error"},
        {R"("call": "ivra_hw_shared_mutex_unlock", "nth": 1)",  "Input/output error"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r");
        rack.faults(std::string{"{"} + row.fault + R"(, "errno": "EIO"})");
        const run_t run = rack.run("show info");
        EXPECT_EQ(run.err, serial_failed(row.text)) << row.fault;
        EXPECT_EQ(run.status, 0);
        const std::size_t locks = calls(rack, "ivra_hw_shared_mutex_lock");
        const bool lock_failed = std::string{row.fault}.find("mutex_lock") != std::string::npos;
        EXPECT_EQ(calls(rack, "ivra_hw_shared_mutex_unlock"), locks - (lock_failed ? 1 : 0)) << row.fault;
    }
}

TEST(bittware_lock, is_free_again_when_its_holder_was_killed_at_any_call)
{
    // An answer that nobody has begun to read is taken by the first request of the next run, whose second one then gets
    // the configuration status, 2, which is no boot image.
    const members_t members = bmc_of(R"("configured_from": "backup", "boot_image": "primary")");
    const std::string report = times(2, remains) + "Boot image\n\tCurrent boot: backup\n\tNext reload : primary\n";
    for (const std::string call : {"ivra_uart_create", "ivra_hw_shared_mutex_create", "ivra_hw_shared_mutex_lock",
                                   "ivra_uart_write_all", "ivra_uart_read", "ivra_hw_shared_mutex_unlock"}) {
        rack_t whole;
        whole.plug("bittware_xupp3r", members);
        EXPECT_EQ(whole.run("show boot-image").out, report);
        const std::size_t steps = calls(whole, call);
        ASSERT_GT(steps, 0U);
        for (std::size_t nth = 1; nth <= steps; ++nth) {
            rack_t rack;
            rack.plug("bittware_xupp3r", members);
            rack.faults(R"({"call": ")" + call + R"(", "kill": "after", "nth": )" + std::to_string(nth) + "}");
            EXPECT_EQ(rack.run("show boot-image").status, 128 + 9) << call << nth;
            const std::string trace = rack.trace();
            const std::size_t request = trace.rfind(" ivra_uart_write_all(");
            const bool unread = request != std::string::npos && trace.find(": [", request) == std::string::npos;
            rack.environment("IVRA_VIRTUAL_FAULTS");
            const run_t next = rack.run("show boot-image");
            EXPECT_EQ(next.out, unread ? times(2, remains) : report) << call << nth;
            EXPECT_EQ(next.err, unread ? "Unknown boot image value received from BMC\n" : "") << call << nth;
        }
    }
}

} // namespace
} // namespace ivra::tests
