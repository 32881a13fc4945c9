#include "telemetry/controllers.h"

#include "bmc/bittware/ipmi_serial.h"
#include "hw/accelerator.h"
#include "hw/uart.h"
#include "support/rack.h"
#include "support/root_core.h"
#include "support/sensor_reply.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

using tests::printed;
using tests::rack_t;
using tests::sensor_reply_t;
using tests::to_hex;

void say(const std::string& what, const item_t<std::string>& item)
{
    if (item.value)
        std::cout << what << ": " << *item.value << '\n';
    if (!item.error.empty())
        std::cout << what << " failed: " << item.error << '\n';
}

template <class T, class Text>
item_t<std::string> with_text(const item_t<T>& item, Text text)
{
    if (!item.value)
        return {{}, item.error};
    return {text(*item.value), item.error};
}

void say(const reading_t& reading)
{
    if (reading.record)
        std::cout << *reading.record << ' ';
    std::cout << reading.name << ": ";
    switch (reading.state) {
    case state_t::ok:
        break;
    case state_t::unavailable:
        std::cout << "unavailable";
        break;
    case state_t::unsupported:
        std::cout << "unsupported";
        break;
    case state_t::failed:
        std::cout << "failed: " << reading.error;
        break;
    }
    if (reading.value)
        std::cout << *reading.value << ' ' << get_base_unit(reading.quantity) << reading.unit;
    if (reading.peak)
        std::cout << ", peak " << *reading.peak;
    if (reading.limits.values != limits_t{}.values)
        std::cout << ", limits";
    for (const std::optional<double>& limit : reading.limits.values)
        if (limit)
            std::cout << ' ' << *limit;
    if (reading.compared)
        std::cout << ", compared " << static_cast<int>(*reading.compared);
    std::cout << '\n';
    for (const std::string& finding : reading.findings)
        std::cout << "  " << finding << '\n';
}

/// Says everything but what is not there.
void say(const controller_readings_t& readings)
{
    const auto image = [](board::boot_image_t value) { return std::to_string(static_cast<int>(value)); };
    const auto block = [](const board::mac_addresses_t& value) {
        std::ostringstream text;
        text << value.first << " x " << value.count;
        return text.str();
    };
    say("serial", readings.serial);
    say("vendor MACs", with_text(readings.vendor_macs, block));
    say("power", with_text(readings.power_good, [](bool is_good) { return is_good ? "good" : "bad"; }));
    say("current image", with_text(readings.current_boot_image, image));
    say("next image", with_text(readings.next_boot_image, image));
    for (const reading_t& reading : readings.sensors)
        say(reading);
    for (const std::string& finding : readings.findings)
        std::cout << "found: " << finding << '\n';
    if (!readings.error.empty())
        std::cout << "error: " << readings.error << '\n';
}

const parts_t all_parts{part_t::identity, part_t::boot_image, part_t::sensors};
const is_over_t never = [] { return false; };

/// What the controller of the rack's first board says.
std::string controller(rack_t& rack, const is_over_t& is_over = never)
{
    rack.environment("IVRA_LOG_LEVEL=0");
    return printed(rack, [&] {
        board::board b{hw::enumerate_accelerators().at(0)};
        say(read_controller(b, all_parts, is_over));
    });
}

/// The lines that begin with a text.
std::vector<std::string> lines(const std::string& text, const std::string& beginning)
{
    std::vector<std::string> found;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with(beginning))
            found.push_back(line);
    return found;
}

using lines_t = std::vector<std::string>;

// BMCs.

/// A board whose BMC has three sensors, and whatever else is said.
class bmc_rack_t : public rack_t
{
public:
    explicit bmc_rack_t(
        const std::string& answers = "",
        const std::string& sensors = R"({"name": "12V0", "unit": "V", "value": 12.03, "m": 63, "r_exp": -3},
                                                        {"name": "Board temp", "unit": "K", "value": 305, "b": 200},
                                                        {"name": "Fan", "unit": "RPM", "available": false})",
        const std::string& more = "")
    {
        plug("bittware_xupp3r",
             {{"bmc", R"({"fru": {"serial": "S1"}, "configured_from": "backup", "answers": [)" + answers +
                          R"(], "sensors": {"only": true, "list": [)" + sensors + "]}" + more + "}"}});
    }
};

const std::string identity = "serial: S1\ncurrent image: 2\nnext image: 1\n";
const std::string first_sensor = "1 12V0: 12.033 volts\n";
const std::string second_sensor = "2 Board temp: 31.85 celsius\n";
const std::string third_sensor = "3 Fan: unavailable\n";
const std::string silence = "Cannot find IPMI transaction in response";

TEST(bmc_walk, reads_serial_number_boot_images_and_sensors)
{
    bmc_rack_t rack;
    EXPECT_EQ(controller(rack), identity + first_sensor + second_sensor + third_sensor);
    EXPECT_EQ(tests::calls(rack, "ivra_hw_shared_mutex_lock"), 1U) << "in one stretch";
    EXPECT_EQ(tests::calls(rack, "ivra_uart_write_all"), 3 + 2 + 3 * 2U);
}

TEST(bmc_walk, of_no_records_finds_no_sensors)
{
    bmc_rack_t rack{"", ""};
    EXPECT_EQ(controller(rack), identity);
    bmc_rack_t refusing{R"({"to": "0421", "code": "0xc1"})"};
    EXPECT_EQ(controller(refusing), identity + "0 : failed: Error reading sensor record. Response code: 193\n"
                                               "found: The BMC's sensor records are not known beyond record 0\n");
}

TEST(bmc_walk, says_how_many_bytes_it_dropped)
{
    bmc_rack_t rack;
    printed(rack, [](const hw::core& root) {
        v6::uart::uart line{root};
        const auto get_device_id = bmc::bittware::encode_frame(bmc::bittware::encode_request(0x06, 0x01, {}));
        if (const std::error_code error = line.write_all(get_device_id, std::chrono::milliseconds{100}))
            throw std::system_error{error};
    });
    EXPECT_EQ(controller(rack), identity + first_sensor + second_sensor + third_sensor +
                                    "found: 17 bytes that answered nothing were dropped from the BMC's line\n");
}

TEST(bmc_walk, heals_what_a_walk_left_that_was_killed)
{
    for (int request = 1; request <= 3 + 2 + 3 * 2; ++request) {
        bmc_rack_t rack;
        rack.faults(R"({"call": "ivra_uart_write_all", "kill": "after", "nth": )" + std::to_string(request) + "}");
        const tests::run_t killed = rack.in_child([] {
            board::board b{hw::enumerate_accelerators().at(0)};
            read_controller(b, all_parts, never);
        });
        EXPECT_EQ(killed.status, 128 + SIGKILL);
        rack.environment("IVRA_VIRTUAL_FAULTS");
        const std::string said = controller(rack);
        EXPECT_TRUE(said.starts_with(identity + first_sensor + second_sensor + third_sensor + "found: ")) << said;
    }
}

TEST(bmc_walk, loses_one_item_to_one_failure)
{
    const std::string all = first_sensor + second_sensor + third_sensor;
    bmc_rack_t no_serial{R"({"to": "0a11", "code": "0xc1"})"};
    EXPECT_EQ(controller(no_serial), "serial failed: Error reading FRU data. Response code: 193\n"
                                     "current image: 2\nnext image: 1\n" +
                                         all);
    bmc_rack_t no_image{R"({"to": "2e08187b0007", "data": "187b0003"})"};
    EXPECT_EQ(controller(no_image), "serial: S1\ncurrent image: 2\n"
                                    "next image failed: Unknown boot image value received from BMC\n" +
                                        all);
    bmc_rack_t no_reading{R"({"to": "042d01", "frame": ""})"};
    EXPECT_EQ(controller(no_reading), identity + "1 12V0: failed: " + silence + '\n' + second_sensor + third_sensor);
    bmc_rack_t refused_reading{R"({"to": "042d01", "code": "0xc0"})"};
    EXPECT_EQ(controller(refused_reading), identity +
                                               "1 12V0: failed: Error getting sensor reading. Response code: 192\n" +
                                               second_sensor + third_sensor);
    bmc_rack_t late_reading{R"({"to": "042d02", "latency": "150 ms"})"};
    EXPECT_EQ(controller(late_reading), identity + first_sensor + "2 Board temp: failed: " + silence + '\n' +
                                            third_sensor +
                                            "found: 9 bytes that answered nothing were dropped from the BMC's line\n");
}

TEST(bmc_walk, asks_twice_for_a_record)
{
    bmc_rack_t rack{R"({"to": "042100000200", "nth": 1, "frame": ""})"};
    EXPECT_EQ(controller(rack), identity + first_sensor + second_sensor + third_sensor);
    bmc_rack_t busy{R"({"to": "042100000200", "nth": 1, "code": "0xc0"})"};
    EXPECT_EQ(controller(busy), identity + first_sensor + second_sensor + third_sensor);
}

TEST(bmc_walk, ends_at_a_record_that_cannot_be_read)
{
    const std::string unknown = "found: The BMC's sensor records are not known beyond record 2\n";
    bmc_rack_t rack{R"({"to": "042100000200", "frame": ""})"};
    EXPECT_EQ(controller(rack), identity + first_sensor + "2 : failed: " + silence + '\n' + unknown);
    bmc_rack_t refused{R"({"to": "042100000200", "code": "0xcb"})"};
    EXPECT_EQ(controller(refused),
              identity + first_sensor + "2 : failed: Error reading sensor record. Response code: 203\n" + unknown);
    bmc_rack_t too_short{R"({"to": "042100000200", "data": "03"})"};
    EXPECT_EQ(controller(too_short),
              identity + first_sensor + "2 : failed: Incomplete sensor record received from BMC\n" + unknown);
}

TEST(bmc_walk, goes_on_after_a_record_whose_successor_is_known)
{
    bmc_rack_t nothing{R"({"to": "042100000200", "data": "0300"})"};
    EXPECT_EQ(controller(nothing),
              identity + first_sensor + "2 : failed: Incomplete sensor record received from BMC\n" + third_sensor);
    bmc_rack_t no_header{R"({"to": "04210000020000", "data": "030002005101"},
                            {"to": "04210000020004", "code": "0xc9"})"};
    EXPECT_EQ(controller(no_header),
              identity + first_sensor + "2 : failed: Incomplete sensor record received from BMC\n" + third_sensor);
    bmc_rack_t short_one{R"({"to": "042100000200", "data": "0300020051010320000c"})"};
    EXPECT_EQ(controller(short_one),
              identity + first_sensor + "2 : failed: Sensor record of 8 bytes, which takes 48\n" + third_sensor);
    bmc_rack_t cut{R"({"to": "04210000020000", "data": "03000200510103"}, {"to": "04210000020005", "code": "0xff"})"};
    EXPECT_EQ(controller(cut),
              identity + first_sensor + "2 : failed: Error reading sensor record. Response code: 255\n" + third_sensor);
}

TEST(bmc_walk, takes_a_record_that_is_shorter_than_it_says)
{
    tests::bytes_t record = sensor_reply_t{}.name("A").set(0, 1).set(4, 59).set(7, 1).set(13, 1).record();
    record.resize(49);
    bmc_rack_t rack{"", R"({"response": "07c0", "record": ")" + to_hex(record) + R"("}, {"name": "B", "raw": 2})"};
    EXPECT_EQ(controller(rack), identity + "1 A: 7 \n2 B: 2 \n");
}

TEST(bmc_walk, ends_where_records_begin_again)
{
    const auto walk = [](const std::string& sensors) {
        bmc_rack_t rack{"", sensors};
        return controller(rack);
    };
    EXPECT_EQ(walk(R"({"name": "A", "raw": 1}, {"name": "B", "raw": 2, "next": 1})"),
              identity + "1 A: 1 \n2 B: 2 \nfound: The BMC's sensor records do not end: record 1 comes again\n");
    EXPECT_EQ(walk(R"({"name": "A", "raw": 1}, {"name": "B", "raw": 2, "next": 0})"),
              identity + "1 A: 1 \n2 B: 2 \nfound: The BMC's sensor records do not end: record 0 comes again\n");
    EXPECT_EQ(walk(R"({"name": "A", "raw": 1, "id": 7, "next": 7})"),
              identity + "7 A: 1 \nfound: The BMC's sensor records do not end: record 7 comes again\n");
}

TEST(bmc_walk, passes_over_records_of_other_things)
{
    // A compact sensor record, one of the maker, and one that has no more than a header.
    bmc_rack_t rack{"", R"({"name": "A", "raw": 1},
        {"record": "0200510218200002070103006f01000000000000000000000000000000c3414243"},
        {"record": "030051c003187b00"}, {"record": "0400511200"},
        {"name": "B", "raw": 2})"};
    EXPECT_EQ(controller(rack), identity + "1 A: 1 \n5 B: 2 \n");
    EXPECT_EQ(tests::calls(rack, "ivra_uart_write_all"), 3 + 2 + 5 + 2U) << "one request each, and no reading";
}

TEST(bmc_walk, tells_what_is_odd_about_a_sensor)
{
    const auto fourth = sensor_reply_t{}.name("D").set(0, 153).set(4, 59).set(7, 4).set(13, 1);
    bmc_rack_t rack{
        R"({"to": "042100000400", "data": "0500)" + to_hex(fourth.record()) + "\"}",
        R"({"name": "format", "format": "none", "raw": 1}, {"name": "maker's", "linearisation": 113, "raw": 1},
                       {"name": "root", "linearisation": "sqrt", "m": -1, "raw": 4},
                       {"name": "D", "raw": 1}, {"name": "unit", "unit": 200, "raw": 9})"};
    EXPECT_EQ(controller(rack), identity + "1 format: unsupported\n2 maker's: unsupported\n"
                                           "3 root: failed: The sensor's formula has no number for its raw reading 4\n"
                                           "4 D: 1 \n  Its record says that it is record 153\n"
                                           "5 unit: 9 \n  Its record gives a unit that the standard does not know\n");
    EXPECT_EQ(tests::calls(rack, "ivra_uart_write_all"), 3 + 2 + 5 + 3U) << "what is unsupported is not read";
}

TEST(bmc_walk, reads_limits_and_comparison)
{
    auto reply = sensor_reply_t{}.name("Abc").set(0, 1).set(7, 1).set(13, 1).set(21, 4);
    reply.set(11, 1 << 2).set(15, 0x70).set(17, 0x70).set(18, 0x3F);
    for (unsigned i = 0; i < 3; ++i)
        reply.set(36 + i, 210 - 10 * i).set(39 + i, 10 + 10 * i);
    bmc_rack_t rack{"", R"({"response": "c3c0c8", "record": ")" + to_hex(reply.record()) + "\"}"};
    EXPECT_EQ(controller(rack), identity + "1 Abc: 195 volts, limits 10 20 30 190 200 210, compared 2\n");
}

TEST(bmc_walk, reads_records_of_any_length)
{
    const std::string name = "A name of thirty-one characters";
    bmc_rack_t rack{"", R"({"name": ")" + name + R"(", "raw": 1}, {"name": "B", "raw": 2})"};
    EXPECT_EQ(controller(rack), identity + "1 " + name + ": 1 \n2 B: 2 \n");
    EXPECT_EQ(tests::calls(rack, "ivra_uart_write_all"), 3 + 2 + 3 + 2U) << "the first record takes two requests";
}

TEST(bmc_walk, asks_for_smaller_pieces)
{
    bmc_rack_t rack{R"({"to": "0421000000000040", "code": "0xca"}, {"to": "0421000000000020", "code": "0xc8"})"};
    EXPECT_EQ(controller(rack), identity + first_sensor + second_sensor + third_sensor);
    EXPECT_EQ(tests::traced(rack, "ivra_uart_write_all").size(), 3 + 2 + (2 + 4 + 1) + (4 + 1) + (4 + 1U))
        << "two refusals, and then 16 bytes at a time of all records";
    bmc_rack_t hopeless{R"({"to": "0421", "code": "0xca"})"};
    EXPECT_EQ(controller(hopeless), identity + "0 : failed: Error reading sensor record. Response code: 202\n"
                                               "found: The BMC's sensor records are not known beyond record 0\n");
}

TEST(bmc_walk, reserves_the_records_where_that_is_needed)
{
    const std::string name = "A name of thirty-one characters";
    bmc_rack_t rack{R"({"to": "04210000000040", "code": "0xc5"})", R"({"name": ")" + name + R"(", "raw": 1})"};
    EXPECT_EQ(controller(rack), identity + "1 " + name + ": 1 \n");
}

TEST(bmc_walk, loses_a_record_for_which_none_can_be_reserved)
{
    const std::string canceled = R"({"to": "04210000000040", "code": "0xc5"}, )";
    const std::string records = R"({"name": "A name of thirty-one characters", "raw": 1}, {"name": "B", "raw": 2})";
    for (const auto& [reply, code] : {std::pair{R"("code": "0xc1")", "193"}, {R"("data": "01")", "0"}}) {
        bmc_rack_t rack{canceled + R"({"to": "0422", )" + reply + '}', records};
        EXPECT_EQ(controller(rack), identity + "1 : failed: Cannot reserve the BMC's sensor records. Response code: " +
                                        code + "\n2 B: 2 \n");
    }
}

TEST(bmc_walk, of_a_bmc_that_does_not_answer_fails)
{
    bmc_rack_t rack{"", "", R"(, "silent": true)"};
    EXPECT_EQ(controller(rack), "serial failed: " + silence + "\ncurrent image failed: " + silence +
                                    "\nnext image failed: " + silence + "\nerror: " + silence + '\n');
    EXPECT_EQ(tests::calls(rack, "ivra_uart_write_all"), 3U);
}

TEST(bmc_walk, of_a_bmc_that_stops_answering_keeps_what_it_had)
{
    bmc_rack_t rack{
        R"({"to": "042d02", "frame": ""}, {"to": "042d03", "frame": ""}, {"to": "042100000300", "frame": ""})"};
    EXPECT_EQ(controller(rack),
              identity + first_sensor + "2 Board temp: failed: " + silence + "\nerror: " + silence + '\n');
}

TEST(bmc_walk, of_a_bmc_that_fails_with_the_last_request_has_failed)
{
    const std::string sensor = R"({"name": "A", "raw": 1})";
    bmc_rack_t whole{"", sensor};
    EXPECT_EQ(controller(whole), identity + "1 A: 1 \n");
    const std::string trace = whole.trace();
    std::size_t reads = 0;
    for (std::size_t at = 0; (at = trace.find(" ivra_uart_read(", at)) < trace.rfind(" ivra_uart_write_all("); ++at)
        ++reads;

    bmc_rack_t rack{"", sensor};
    rack.faults(R"({"call": "ivra_uart_read", "errno": "EIO", "from": )" + std::to_string(reads + 1) + "}");
    const std::string error = "Cannot read IPMI response: Input/output error\n";
    EXPECT_EQ(controller(rack), identity + "1 A: failed: " + error + "error: " + error);
}

TEST(bmc_walk, that_cannot_begin_says_why_of_every_item)
{
    const auto said = [](const std::string& error) {
        return "serial failed: " + error + "\ncurrent image failed: " + error + "\nnext image failed: " + error +
               "\nerror: " + error + '\n';
    };
    bmc_rack_t no_uart;
    no_uart.faults(R"({"call": "ivra_uart_create", "errno": "EIO"})");
    EXPECT_EQ(controller(no_uart), said("Failed to create UART subsystem: Input/output error"));
    bmc_rack_t no_read;
    no_read.faults(R"({"call": "ivra_uart_read", "errno": "EIO"})");
    EXPECT_EQ(controller(no_read), said("Cannot read IPMI response: Input/output error"));
    bmc_rack_t over;
    EXPECT_EQ(controller(over, [] { return true; }), said("deadline"));
    EXPECT_EQ(tests::calls(over, "ivra_uart_read"), 0U);
}

/// Time is over after it was asked for so many times.
is_over_t after(int times)
{
    return [times]() mutable { return --times < 0; };
}

TEST(bmc_walk, ends_at_the_deadline_between_two_requests)
{
    const auto at = [](int times) {
        bmc_rack_t rack;
        return controller(rack, after(times));
    };
    const std::string over = "error: deadline\n";
    EXPECT_EQ(at(1), "serial failed: deadline\ncurrent image failed: deadline\nnext image failed: deadline\n" + over);
    EXPECT_EQ(at(3), "serial failed: deadline\ncurrent image failed: deadline\nnext image failed: deadline\n" + over);
    EXPECT_EQ(at(5), "serial: S1\ncurrent image: 2\nnext image failed: deadline\n" + over);
    EXPECT_EQ(at(6), identity + over);
    EXPECT_EQ(at(7), identity + "1 12V0: failed: deadline\n" + over);
    EXPECT_EQ(at(8), identity + first_sensor + over);
}

// XMCs.

/// A U50 with three sensors of its own values.
class xmc_rack_t : public rack_t
{
public:
    explicit xmc_rack_t(const std::string& more = "")
    {
        plug("xilinx_u50", {{"xmc", R"({"card": {"serial": "X1", "macs": {"first": "02:00:00:00:20:00", "count": 4}},
            "sensors": {"12V_PEX": [12170, 12168, 12201], "FPGA_TEMP": [0, 44, 51], "PEX_12V_POWER": [25001, 1, 2]})" +
                                        more + "}"}});
    }
};

const std::string card = "serial: X1\nvendor MACs: 02:00:00:00:20:00 x 4\n";

TEST(xmc_walk, reads_card_power_and_sensors)
{
    xmc_rack_t rack;
    const std::string said = controller(rack);
    EXPECT_TRUE(said.starts_with(card + "power: good\n3V3_PEX: ")) << said;
    EXPECT_EQ(lines(said, "12V_PEX:"), lines_t{"12V_PEX: 12.17 volts, peak 12.201"});
    EXPECT_EQ(lines(said, "FPGA_TEMP:"), lines_t{"FPGA_TEMP: 0 celsius, peak 51"});
    EXPECT_EQ(lines(said, "PEX_12V_POWER:"), lines_t{"PEX_12V_POWER: 25.001 watts, peak 0.002"});
    EXPECT_EQ(lines(said, "").size(), 3 + 24U) << "and nothing else";
    EXPECT_EQ(lines(said, "error"), lines_t{});

    xmc_rack_t bad{R"(, "power_good": false)"};
    EXPECT_EQ(lines(controller(bad), "power"), lines_t{"power: bad"});
}

TEST(xmc_walk, has_every_sensor_of_the_model)
{
    for (const auto& [model, count] : {std::pair{"xilinx_u200", 31}, {"xilinx_u250", 31}, {"xilinx_u55c", 26}}) {
        rack_t rack;
        rack.plug(model);
        EXPECT_EQ(lines(controller(rack), "").size(), 3U + static_cast<unsigned>(count)) << model;
    }
}

TEST(xmc_walk, loses_one_item_to_one_failure)
{
    // The first reads are of status and power, then three of each sensor.
    constexpr std::pair<int, const char*> rows[] = {{9, "inst"}, {10, "avg"}, {11, "max"}};
    for (const auto& [nth, name] : rows) {
        xmc_rack_t rack{R"(, "ready_after": ["0 s", "0 s"])"};
        rack.faults(R"({"call": "ivra_hw_read", "errno": "EIO", "nth": )" + std::to_string(nth) + "}");
        const std::string said = controller(rack);
        EXPECT_EQ(lines(said, "").size(), 3 + 24U);
        EXPECT_EQ(lines(said, "12V_PEX:"), lines_t{std::string{"12V_PEX: failed: Cannot read XMC sensor "} + name +
                                                   " register: Input/output error"});
        EXPECT_EQ(said.find("failed"), said.rfind("failed")) << said;
    }
    xmc_rack_t no_power{R"(, "ready_after": ["0 s", "0 s"])"};
    no_power.faults(R"({"call": "ivra_hw_read", "errno": "EIO", "nth": 2})");
    const std::string without_power = controller(no_power);
    EXPECT_TRUE(without_power.starts_with(
        card + "power failed: Cannot read XMC POWER GOOD register: Input/output error\n3V3_PEX: "))
        << without_power;

    xmc_rack_t mute{R"(, "answer_after": "never")"};
    const std::string without_card = controller(mute);
    EXPECT_TRUE(without_card.starts_with("serial failed: XMC mailbox packet error: Connection timed out\n"
                                         "vendor MACs failed: XMC mailbox packet error: Connection timed out\n"
                                         "power: good\n"))
        << without_card;
    EXPECT_EQ(lines(without_card, "12V_PEX:"), lines_t{"12V_PEX: 12.17 volts, peak 12.201"});
}

TEST(xmc_walk, takes_all_ones_for_no_value)
{
    xmc_rack_t rack{R"(, "dead_link": true)"};
    const std::string dead = "All ones were read: there is no link to the XMC";
    const std::string said = controller(rack);
    EXPECT_TRUE(said.starts_with("serial failed: " + dead + "\nvendor MACs failed: " + dead +
                                 "\npower failed: " + dead + "\n3V3_PEX: failed: " + dead + '\n'))
        << said;
    EXPECT_EQ(lines(said, "").size(), 3 + 24 + 1U);
    EXPECT_EQ(lines(said, "error"), lines_t{"error: " + dead});
    EXPECT_EQ(said.find("4294967"), std::string::npos) << said;

    rack_t one;
    one.plug("xilinx_u50", {{"xmc", R"({"sensors": {"12V_PEX": [12170, 1, 4294967295],
                                                     "FPGA_TEMP": [4294967295, 44, 51]}})"}});
    const std::string others = controller(one);
    EXPECT_EQ(lines(others, "12V_PEX:"), lines_t{"12V_PEX: 12.17 volts"});
    EXPECT_EQ(lines(others, "  "), lines_t{"  The XMC gives all ones as its maximum"});
    EXPECT_EQ(lines(others, "FPGA_TEMP:"), lines_t{"FPGA_TEMP: failed: " + dead});
    EXPECT_EQ(lines(others, "power"), lines_t{"power: good"});
}

TEST(xmc_walk, of_an_xmc_that_did_not_come_up_says_why_of_every_item)
{
    rack_t rack;
    rack.plug("xilinx_u50", {{"xmc", "null"}});
    const std::string why = "XMC core not found: Invalid argument";
    const std::string said = controller(rack);
    EXPECT_TRUE(said.starts_with("serial failed: " + why + "\nvendor MACs failed: " + why + "\npower failed: " + why +
                                 "\n3V3_PEX: failed: " + why + '\n'))
        << said;
    EXPECT_EQ(lines(said, "").size(), 3 + 24 + 1U);
    EXPECT_EQ(lines(said, "error"), lines_t{"error: " + why});

    rack_t never_ready;
    never_ready.plug("xilinx_u50", {{"xmc", R"({"ready_after": ["0.5 s", "never"]})"}});
    EXPECT_EQ(lines(controller(never_ready), "power failed: XMC init timeout: status: 0x").size(), 1U);
}

TEST(xmc_walk, ends_at_the_deadline)
{
    xmc_rack_t rack;
    const std::string said = controller(rack, after(3)); // power, two sensors
    EXPECT_TRUE(said.starts_with("serial failed: deadline\nvendor MACs failed: deadline\npower: good\n3V3_PEX: "))
        << said;
    EXPECT_EQ(lines(said, "3V3_PEX_I_IN: failed"), lines_t{});
    EXPECT_EQ(lines(said, "12V_PEX:"), lines_t{"12V_PEX: failed: deadline"});
    EXPECT_EQ(lines(said, "VPP2V5:"), lines_t{"VPP2V5: failed: deadline"});
    EXPECT_EQ(lines(said, "error"), lines_t{"error: deadline"});
}

TEST(controller_walk, of_a_board_without_one_finds_nothing)
{
    for (const char* model : {"m48e_emu_xcvu9p", "m48l_xcvu7p", "m48lb_xcvu9p"}) {
        rack_t rack;
        rack.plug(model);
        EXPECT_EQ(controller(rack), "") << model;
    }
}

} // namespace
} // namespace ivra::bsp::telemetry
