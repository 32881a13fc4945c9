// Conversations with a BMC of which each byte is given. The UART is this program's own: its functions here come before
// those of the platform library. Everything else is a plain board of the virtual platform.

#include "bmc/bittware/bmc.h"
#include "hw/accelerator.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <ivra/log.h>
#include <ivra/uart.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <deque>
#include <functional>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using bytes_t = std::vector<std::uint8_t>;

/// What successive reads give; afterwards there is nothing to read.
std::deque<bytes_t> to_read;
int read_error = 0;
int write_error = 0;

std::string hex(const std::uint8_t* bytes, std::size_t size)
{
    std::ostringstream text;
    for (std::size_t i = 0; i < size; ++i)
        text << std::hex << std::setw(2) << std::setfill('0') << unsigned{bytes[i]};
    return text.str();
}

} // namespace

extern "C" {

ivra_uart* ivra_uart_create(ivra_hw_core* core)
{
    return reinterpret_cast<ivra_uart*>(core); // never looked into
}

void ivra_uart_destroy(ivra_uart*) {}

int ivra_uart_read(ivra_uart*, uint8_t* buffer, size_t size)
{
    if (read_error != 0) {
        errno = read_error;
        return -1;
    }
    if (to_read.empty())
        return 0;
    const bytes_t piece = to_read.front();
    to_read.pop_front();
    std::copy_n(piece.begin(), std::min(piece.size(), size), buffer);
    return static_cast<int>(std::min(piece.size(), size));
}

int ivra_uart_write_all(ivra_uart*, const uint8_t* buffer, size_t size, unsigned timeout_ms)
{
    std::cout << "> " << hex(buffer, size) << (timeout_ms == 100 ? "" : " with another timeout") << '\n';
    if (write_error != 0) {
        errno = write_error;
        return -1;
    }
    return 0;
}

} // extern "C"

namespace ivra::bsp::bmc::bittware {
namespace {

void print_log(int level, const char* file, int line, const char* function, const char* format, va_list args)
{
    char text[200];
    std::vsnprintf(text, sizeof text, format, args);
    std::cout << level << ' ' << file << ':' << line << ' ' << function << ": " << text << '\n';
}

using operation_t = std::function<void(bmc&)>;

/// What is written, logged and said when an operation is done while reads give these pieces.
std::string said(const std::vector<bytes_t>& pieces, const operation_t& operation)
{
    tests::rack_t rack;
    rack.plug("bittware_xupp3r");
    return rack
        .in_child([&] {
            bmc controller{tests::root_core()};
            ivra_log_set_handler(&print_log);
            to_read.assign(pieces.begin(), pieces.end());
            try {
                operation(controller);
            } catch (const std::exception& error) {
                std::cout << error.what() << '\n';
            }
        })
        .out;
}

const std::string remains =
    "1 src/bmc/bittware/ipmi_serial:154 recv_data: Data remains after end of IPMI transaction.\n";

/// The frame of a message.
bytes_t frame(const bytes_t& message)
{
    bytes_t bytes{0xA0};
    for (const std::uint8_t byte : message) {
        switch (byte) {
        case 0xA0:
        case 0xA5:
        case 0xA6:
        case 0xAA:
            bytes.push_back(0xAA);
            bytes.push_back(static_cast<std::uint8_t>(byte + 0x10));
            break;
        case 0x1B:
            bytes.push_back(0xAA);
            bytes.push_back(0x3B);
            break;
        default:
            bytes.push_back(byte);
        }
    }
    bytes.push_back(0xA5);
    return bytes;
}

/// The frame of an answer to a command of the maker.
bytes_t oem_answer(std::uint8_t command, std::uint8_t code, const bytes_t& data)
{
    bytes_t message{0xBC, 0x00, command, code};
    message.insert(message.end(), data.begin(), data.end());
    return frame(message);
}

const operation_t request = [](bmc& b) {
    const ipmi_response_t response = b.ipmi_request(0x04, 0x2D, bytes_t{0x1B});
    std::cout << unsigned{response.code} << ' ' << hex(response.data.data(), response.data.size()) << '\n';
};
const std::string request_written = "> a010002daa3ba5000000\n"; // 2 x 4 + 2 bytes

TEST(ipmi_exchange, sends_the_whole_frame_with_its_zeros_and_returns_the_answer)
{
    EXPECT_EQ(said({frame({0x14, 0, 0x2D, 0, 1, 2, 3})}, request), request_written + remains + "0 010203\n");
}

TEST(ipmi_exchange, says_that_data_remains_also_when_the_stop_byte_is_the_last_of_the_buffer)
{
    bytes_t message{0x14, 0, 0x2D, 0};
    message.resize(62, 0x11);
    EXPECT_EQ(frame(message).size(), 64U);
    EXPECT_EQ(said({frame(message)}, request),
              request_written + remains + "0 " + hex(message.data() + 4, message.size() - 4) + "\n");
}

TEST(ipmi_exchange, returns_a_completion_code)
{
    EXPECT_EQ(said({frame({0x14, 0, 0x2D, 0xC1})}, request), request_written + remains + "193 \n");
}

TEST(ipmi_exchange, logs_an_invalid_escape_and_goes_on)
{
    EXPECT_EQ(said({{0xA0, 0x14, 0, 0xAA, 0x00, 0x2D}, {0, 0xAA, 0xBC, 7, 0xA5}}, request),
              request_written +
                  "1 src/bmc/bittware/ipmi_serial:143 recv_data: Invalid IPMI escaped byte: 0x00\n"
                  "1 src/bmc/bittware/ipmi_serial:143 recv_data: Invalid IPMI escaped byte: 0xbc\n" +
                  remains + "0 07\n");
}

TEST(ipmi_exchange, decodes_a_split_escape_from_the_bytes_of_an_earlier_read)
{
    EXPECT_EQ(said({{0xA0, 0x14, 0xB5, 0x2D, 0}, {7, 0xAA}, {8, 0xA5}}, request),
              request_written + remains + "0 07a508\n");
}

TEST(ipmi_exchange, begins_each_request_with_an_empty_buffer)
{
    EXPECT_EQ(said({frame({0x14, 0, 0x2D, 0, 0xB5, 0xB5}), {0xA0, 0x14, 0, 0x2D, 0, 0xAA}, {7, 0xA5}},
                   [](bmc& b) {
                       request(b);
                       request(b);
                   }),
              request_written + remains + "0 b5b5\n" + request_written +
                  "1 src/bmc/bittware/ipmi_serial:143 recv_data: Invalid IPMI escaped byte: 0x00\n" + remains +
                  "0 07\n");
}

TEST(ipmi_exchange, takes_an_answer_that_came_too_late_for_the_request_before)
{
    EXPECT_EQ(said({frame({0x14, 0, 0x2D, 0, 1}), frame({0x14, 0, 0x2D, 0, 2})}, request),
              request_written + remains + "0 01\n")
        << "nothing is drained";
}

/// Reads that give one piece, after others that give nothing.
std::vector<bytes_t> after(std::size_t empty_reads, const bytes_t& piece)
{
    std::vector<bytes_t> pieces(empty_reads);
    pieces.push_back(piece);
    return pieces;
}

TEST(ipmi_exchange, gives_up_after_100_reads_a_millisecond_apart)
{
    const operation_t timed = [](bmc& b) {
        const auto begin = std::chrono::steady_clock::now();
        try {
            request(b);
        } catch (const std::runtime_error& error) {
            std::cout << error.what() << '\n';
        }
        const std::chrono::duration<double, std::milli> spent = std::chrono::steady_clock::now() - begin;
        std::cout << spent.count() << " ms\n";
    };
    const bytes_t answer = frame({0x14, 0, 0x2D, 0});
    EXPECT_EQ(said(after(99, answer), timed), request_written + remains + "0 \n99 ms\n");
    EXPECT_EQ(said(after(100, answer), timed), request_written + "Cannot find IPMI transaction in response\n100 ms\n");
    EXPECT_EQ(said({{0xA0, 0x14, 0, 0x2D, 0}}, timed),
              request_written + "Cannot find IPMI transaction in response\n100 ms\n")
        << "a frame that never ends";
}

TEST(ipmi_exchange, that_fails_says_where_and_releases_the_lock)
{
    const operation_t twice = [](bmc& b) {
        write_error = EPIPE;
        for (int i = 0; i < 2; ++i) {
            try {
                request(b);
            } catch (const std::system_error& error) {
                std::cout << error.what() << '\n';
            }
            write_error = 0;
            read_error = EIO;
        }
        read_error = 0;
        request(b);
    };
    EXPECT_EQ(said({frame({0x14, 0, 0x2D, 0})}, twice),
              request_written + "Error sending IPMI data: Broken pipe\n" + request_written +
                  "Cannot read IPMI response: Input/output error\n" + request_written + remains + "0 \n");
}

TEST(ipmi_exchange, refuses_the_answer_to_something_else)
{
    EXPECT_EQ(said({frame({0x14, 0, 0x2D})}, request), request_written + remains + "Invalid data read from BMC\n");
    EXPECT_EQ(said({frame({0x10, 0, 0x2D, 0})}, request),
              request_written + remains + "Invalid IPMI response net function\n");
    EXPECT_EQ(said({frame({0x14, 0, 0x2E, 0})}, request),
              request_written + remains + "Invalid IPMI response command\n");
}

// What the maker's commands look like on the wire; no byte of them is special.
const std::string get_boot_image_written = "> a0b8000818"
                                           "7b0007a500000000000000\n";
const std::string get_status_written = "> a0b8000818"
                                       "7b0001a500000000000000\n";

const operation_t get_boot_image = [](bmc& b) { std::cout << static_cast<int>(b.get_boot_image()) << '\n'; };
const operation_t get_status = [](bmc& b) { std::cout << unsigned{b.get_fpga_config_status()} << '\n'; };

TEST(oem_command, has_the_makers_identifier_which_nobody_compares_in_the_answer)
{
    const operation_t command = [](bmc& b) {
        const ipmi_response_t response = b.ipmi_request_bittware_oem(0x30, {0x12, 0x34});
        std::cout << unsigned{response.code} << ' ' << hex(response.data.data(), response.data.size()) << '\n';
    };
    const std::string written = "> a0b80030187b001234a50000000000000000\n";
    EXPECT_EQ(said({oem_answer(0x30, 0, {0x18, 0x7B, 0, 7, 8})}, command), written + remains + "0 0708\n");
    EXPECT_EQ(said({oem_answer(0x30, 0xC1, {1, 2, 3})}, command), written + remains + "193 \n")
        << "three bytes: no data";
    EXPECT_EQ(said({oem_answer(0x30, 0, {0x18, 0x7B})}, command),
              written + remains + "Incomplete IPMI OEM command response received from BMC\n");
}

TEST(boot_image, is_in_the_low_3_bits_of_the_answer)
{
    const auto answer = [](std::uint8_t value) {
        return said({oem_answer(0x08, 0, {0x18, 0x7B, 0, value})}, get_boot_image);
    };
    const std::string prefix = get_boot_image_written + remains;
    const std::string unknown = "Unknown boot image value received from BMC";
    const std::string values[] = {"1", "2", unknown, unknown, "0", unknown, unknown, unknown};
    for (std::uint8_t value = 0; value < 8; ++value)
        EXPECT_EQ(answer(value), prefix + values[value] + "\n");
    EXPECT_EQ(answer(0x09), prefix + "2\n");
    EXPECT_EQ(answer(0x0C), prefix + "0\n");
    EXPECT_EQ(answer(0xF8), prefix + "1\n");
}

TEST(boot_image, that_the_bmc_does_not_tell_is_an_error)
{
    EXPECT_EQ(said({oem_answer(0x08, 0xD5, {0x18, 0x7B, 0})}, get_boot_image),
              get_boot_image_written + remains + "Error requesting boot image. Response code: 213\n");
    EXPECT_EQ(said({oem_answer(0x08, 0, {0x18, 0x7B, 0})}, get_boot_image),
              get_boot_image_written + remains + "Unknown boot image value received from BMC\n");
}

TEST(boot_image, is_set_by_its_code)
{
    struct row_t
    {
        boot_image_t image;
        const char* code;
    };
    constexpr row_t rows[] = {{boot_image_t::none, "04"}, {boot_image_t::primary, "00"}, {boot_image_t::backup, "01"}};
    for (const row_t& row : rows) {
        const operation_t set = [&row](bmc& b) { b.set_boot_image(row.image); };
        const std::string written = std::string{"> a0b80009187b0007"} + row.code + "a50000000000000000\n";
        EXPECT_EQ(said({oem_answer(0x09, 0, {0x18, 0x7B, 0})}, set), written + remains);
        EXPECT_EQ(said({oem_answer(0x09, 0xCC, {0x18, 0x7B, 0})}, set),
                  written + remains + "Error setting boot image. Response code: 204\n");
    }
}

TEST(config_status, is_below_3)
{
    const auto answer = [](const bytes_t& data) { return said({oem_answer(0x08, 0, data)}, get_status); };
    const std::string prefix = get_status_written + remains;
    for (std::uint8_t value = 0; value < 3; ++value)
        EXPECT_EQ(answer({0x18, 0x7B, 0, value}), prefix + std::to_string(value) + "\n");
    EXPECT_EQ(answer({0x18, 0x7B, 0, 3}), prefix + "Unknown FPGA configuration status value received from BMC\n");
    EXPECT_EQ(answer({0x18, 0x7B, 0}), prefix + "Unknown FPGA configuration status value received from BMC\n");
    EXPECT_EQ(said({oem_answer(0x08, 0xC1, {0x18, 0x7B, 0})}, get_status),
              prefix + "Error requesting FPGA configuration status. Response code: 193\n");
}

/// Reads that give a frame, as many bytes at a time as there is room for.
std::vector<bytes_t> pieces_of(const std::vector<bytes_t>& frames)
{
    std::vector<bytes_t> pieces;
    for (const bytes_t& whole : frames)
        for (std::size_t at = 0; at < whole.size();) {
            std::size_t end = std::min(at + 64, whole.size());
            if (whole[end - 1] == 0xAA)
                --end; // an escape and its partner come together
            pieces.emplace_back(whole.begin() + static_cast<std::ptrdiff_t>(at),
                                whole.begin() + static_cast<std::ptrdiff_t>(end));
            at = end;
        }
    return pieces;
}

bytes_t fru_answer(std::uint8_t code, const bytes_t& data)
{
    bytes_t message{0x2C, 0x00, 0x11, code};
    message.insert(message.end(), data.begin(), data.end());
    return frame(message);
}

// A board area of 24 bytes at 8: manufacturer "VM", product "P", serial "S1".
const bytes_t fru_header{8, 1, 0, 0, 1, 0, 0, 0, 0xFE};
const bytes_t fru_start{6, 1, 3, 0x19, 0, 0, 0};
const bytes_t fru_rest{18, 0xC2, 'V', 'M', 0xC1 - 0x40, 'P', 0xC2, 'S', '1', 0xC1, 0, 0, 0, 0, 0, 0, 0, 0, 0};

/// The rest of the area with its checksum, which is its last byte.
bytes_t with_checksum(bytes_t rest)
{
    unsigned sum = 0;
    for (std::size_t i = 1; i < fru_start.size(); ++i)
        sum += fru_start[i];
    for (std::size_t i = 1; i < rest.size(); ++i)
        sum += rest[i];
    rest.back() = static_cast<std::uint8_t>(0x100 - sum % 0x100);
    return rest;
}

const operation_t get_serial = [](bmc& b) { std::cout << b.get_board_serial() << '\n'; };
const std::string read_header_written = "> a028001100000008a500000000000000\n";
const std::string read_start_written = "> a028001100080006a500000000000000\n";
const std::string read_rest_written = "> a0280011000e0012a500000000000000\n";

TEST(board_serial, takes_three_reads_of_the_inventory)
{
    EXPECT_EQ(
        said({fru_answer(0, fru_header), fru_answer(0, fru_start), fru_answer(0, with_checksum(fru_rest))}, get_serial),
        read_header_written + remains + read_start_written + remains + read_rest_written + remains + "S1\n");
}

TEST(board_serial, looks_at_no_more_bytes_than_it_asked_for)
{
    bytes_t longer_header = fru_header;
    longer_header.push_back(0x77);
    EXPECT_EQ(said({fru_answer(0, longer_header), fru_answer(0, fru_start), fru_answer(0, with_checksum(fru_rest))},
                   get_serial),
              read_header_written + remains + read_start_written + remains + read_rest_written + remains + "S1\n");
}

TEST(board_serial, of_an_inventory_that_cannot_be_read_is_an_error)
{
    const auto answer = [](const bytes_t& bytes) { return said({bytes}, get_serial); };
    const std::string prefix = read_header_written + remains;
    EXPECT_EQ(answer(fru_answer(0xCB, {})), prefix + "Error reading FRU data. Response code: 203\n");
    EXPECT_EQ(answer(fru_answer(0, {})), prefix + "Read less FRU data than expected\n");
    EXPECT_EQ(answer(fru_answer(0, {7, 1, 0, 0, 1, 0, 0, 0, 0xFE})), prefix + "Read less FRU data than expected\n")
        << "one byte fewer is announced";
    EXPECT_EQ(answer(fru_answer(0, {8, 1, 0, 0, 1, 0, 0, 0xFE})), prefix + "Read less FRU data than expected\n")
        << "one byte fewer has come";
}

/// A sensor record of which the next one has this identifier: a voltage, unsigned, M = 1, linear, of number 5.
bytes_t record(std::uint16_t next, const std::string& name, std::uint8_t name_length)
{
    bytes_t bytes(66);
    bytes[0] = static_cast<std::uint8_t>(next & 0xFF);
    bytes[1] = static_cast<std::uint8_t>(next >> 8);
    bytes[2 + 3] = 1;
    bytes[2 + 7] = 5;
    bytes[2 + 21] = 4;
    bytes[2 + 24] = 1;
    bytes[2 + 47] = static_cast<std::uint8_t>(0xC0 | name_length);
    std::copy_n(name.begin(), std::min<std::size_t>(name.size(), 16), bytes.begin() + 2 + 48);
    return bytes;
}

bytes_t sdr_answer(std::uint8_t code, const bytes_t& data)
{
    bytes_t message{0x14, 0x00, 0x21, code};
    message.insert(message.end(), data.begin(), data.end());
    return frame(message);
}

bytes_t reading_answer(const bytes_t& data, std::uint8_t code = 0)
{
    bytes_t message{0x14, 0x00, 0x2D, code};
    message.insert(message.end(), data.begin(), data.end());
    return frame(message);
}

const operation_t get_sensors = [](bmc& b) {
    const board::sensors_t report = b.get_sensors();
    for (const std::string& column : report.columns)
        std::cout << column << '\n';
    for (const board::sensor_t& sensor : report.sensors)
        std::cout << sensor.name << " = " << sensor.values.at(0) << " of " << sensor.values.size() << '\n';
};

std::string get_record_written(const std::string& id)
{
    return "> a01000210000" + id + "0040a5" + std::string(18, '0') + "\n";
}
const std::string get_reading_written = "> a010002d05a500000000\n";

TEST(sensors, of_a_repository_with_one_record_are_one_sensor)
{
    EXPECT_EQ(said(pieces_of({sdr_answer(0, record(0xFFFF, "12V", 3)), reading_answer({12, 0xC0, 0})}), get_sensors),
              get_record_written("0000") + remains + get_reading_written + remains + "Value\n12V = 12.00 V of 1\n");
}

TEST(sensors, are_read_in_the_order_of_the_records)
{
    EXPECT_EQ(said(pieces_of({sdr_answer(0, record(0x0107, "A", 1)), reading_answer({1, 0xC0, 0}),
                              sdr_answer(0, record(0xFFFE, "B", 1)), reading_answer({2, 0xE0, 0}),
                              sdr_answer(0, record(0xFFFF, "C", 1)), reading_answer({3, 0xC0, 0})}),
                   get_sensors),
              get_record_written("0000") + remains + get_reading_written + remains + get_record_written("0701") +
                  remains + get_reading_written + remains + get_record_written("feff") + remains + get_reading_written +
                  remains + "Value\nA = 1.00 V of 1\nB = Unavailable of 1\nC = 3.00 V of 1\n");
}

TEST(sensors, with_names_longer_than_16_bytes_take_one_more_read)
{
    const std::string name = "Fan inlet air temperature";
    bytes_t whole{0xFF, 0xFF};
    whole.insert(whole.end(), name.begin(), name.end());
    const std::string get_name_written = "> a010002100000000"
                                         "3019a5" +
                                         std::string(18, '0') + "\n";
    const bytes_t first = sdr_answer(0, record(0xFFFF, name, 25));
    EXPECT_EQ(said(pieces_of({first, sdr_answer(0, whole), reading_answer({7, 0xC0, 0})}), get_sensors),
              get_record_written("0000") + remains + get_name_written + remains + get_reading_written + remains +
                  "Value\nFan inlet air temperature = 7.00 V of 1\n");
    EXPECT_EQ(said(pieces_of({first, sdr_answer(0xC9, {})}), get_sensors),
              get_record_written("0000") + remains + get_name_written + remains +
                  "IPMI transaction error. Response code: 201\n");
    whole.pop_back();
    EXPECT_EQ(said(pieces_of({first, sdr_answer(0, whole)}), get_sensors),
              get_record_written("0000") + remains + get_name_written + remains +
                  "Size mismatch in IPMI response: expected 0x1b, got 0x1a\n");
}

TEST(sensors, that_cannot_be_read_end_the_walk)
{
    const std::string first_written = get_record_written("0000") + remains;
    EXPECT_EQ(said({sdr_answer(0xCB, {})}, get_sensors),
              first_written + "IPMI transaction error. Response code: 203\n");
    bytes_t short_record = record(0xFFFF, "12V", 3);
    short_record.pop_back();
    EXPECT_EQ(said(pieces_of({sdr_answer(0, short_record)}), get_sensors),
              first_written + "Size mismatch in IPMI response: expected 0x42, got 0x41\n");
    const bytes_t good = sdr_answer(0, record(1, "12V", 3));
    EXPECT_EQ(said(pieces_of({good, reading_answer({}, 0xCE)}), get_sensors),
              first_written + get_reading_written + remains + "IPMI transaction error. Response code: 206\n");
    EXPECT_EQ(said(pieces_of({good, reading_answer({1, 2})}), get_sensors),
              first_written + get_reading_written + remains +
                  "Size mismatch in IPMI response: expected 0x3, got 0x2\n");
    EXPECT_EQ(said(pieces_of({good, reading_answer({1, 0, 0}), sdr_answer(0xCB, {})}), get_sensors),
              first_written + get_reading_written + remains + get_record_written("0100") + remains +
                  "IPMI transaction error. Response code: 203\n")
        << "nothing is shown of what was read before";
}

TEST(sensors, of_a_repository_that_leads_back_to_a_record_are_an_error)
{
    EXPECT_EQ(said(pieces_of({sdr_answer(0, record(1, "A", 1)), reading_answer({1, 0, 0}),
                              sdr_answer(0, record(0, "B", 1)), reading_answer({1, 0, 0})}),
                   get_sensors),
              get_record_written("0000") + remains + get_reading_written + remains + get_record_written("0100") +
                  remains + get_reading_written + remains + "Sensor data record repository does not end\n");
}

/// A request in a stretch, how long the stretch took, and what it drained.
const operation_t request_in_stretch = [](bmc& b) {
    const auto begin = std::chrono::steady_clock::now();
    try {
        stretch requests = b.begin_stretch();
        try {
            const ipmi_response_t response = requests.ipmi_request(0x04, 0x2D, bytes_t{0x1B});
            std::cout << unsigned{response.code} << ' ' << hex(response.data.data(), response.data.size()) << '\n';
        } catch (const std::runtime_error& error) {
            std::cout << error.what() << (requests.failure().empty() ? "\n" : " (and has failed)\n");
        }
        std::cout << requests.drained() << " bytes drained\n";
    } catch (const std::runtime_error& error) {
        std::cout << error.what() << '\n';
    }
    const std::chrono::duration<double, std::milli> spent = std::chrono::steady_clock::now() - begin;
    std::cout << spent.count() << " ms\n";
};

/// Reads that give a byte, one each `period` reads, `count` times; then a pause of 110 ms; then the piece.
std::vector<bytes_t> noise(std::size_t count, std::size_t period, const bytes_t& piece)
{
    std::vector<bytes_t> pieces;
    for (std::size_t i = 0; i < count; ++i) {
        pieces.push_back({0x55});
        pieces.resize(i * period + (i + 1 < count ? period : 111));
    }
    pieces.push_back(piece);
    return pieces;
}

TEST(stretch, begins_when_nothing_has_come_for_110_ms)
{
    const bytes_t answer = frame({0x14, 0, 0x2D, 0, 7});
    EXPECT_EQ(said(after(111, answer), request_in_stretch), request_written + "0 07\n0 bytes drained\n110 ms\n")
        << "and says nothing in the log";
    EXPECT_EQ(said(after(109, answer), request_in_stretch),
              request_written + "Cannot find IPMI transaction in response\n7 bytes drained\n439 ms\n")
        << "what came after 109 ms is no answer; then 110 ms each of quiet, for an answer, and for a late one";
    EXPECT_EQ(said(noise(10, 1, answer), request_in_stretch), request_written + "0 07\n10 bytes drained\n119 ms\n");
    EXPECT_EQ(said(noise(10, 110, answer), request_in_stretch), request_written + "0 07\n10 bytes drained\n1100 ms\n")
        << "pauses that are too short";
}

TEST(stretch, does_not_begin_when_bytes_go_on_for_2_s)
{
    const bytes_t answer = frame({0x14, 0, 0x2D, 0, 7});
    EXPECT_EQ(said(noise(2000, 1, answer), request_in_stretch),
              request_written + "0 07\n2000 bytes drained\n2109 ms\n");
    EXPECT_EQ(said(noise(2001, 1, answer), request_in_stretch), "Bytes from the BMC do not end\n2000 ms\n");
}

TEST(stretch, has_failed_when_bytes_go_on_for_2_s_after_a_failure)
{
    const auto failed = [](std::size_t silent_reads) {
        std::vector<bytes_t> pieces(silent_reads);
        pieces.resize(silent_reads + 20000, bytes_t{0x55});
        return said(pieces, request_in_stretch);
    };
    EXPECT_EQ(failed(111), request_written + "Bytes from the BMC do not end (and has failed)\n"
                                             "0 bytes drained\n4110 ms\n")
        << "an answer that does not end, and then the drain";
    EXPECT_EQ(failed(111 + 441), request_written + "Cannot find IPMI transaction in response (and has failed)\n"
                                                   "0 bytes drained\n2220 ms\n")
        << "no answer, and then the drain";
}

TEST(stretch, takes_an_answer_that_comes_slowly)
{
    std::vector<bytes_t> pieces(111);
    for (const std::uint8_t byte : frame({0x14, 0, 0x2D, 0, 7})) {
        pieces.resize(pieces.size() + 200); // 50 ms
        pieces.push_back({byte});
    }
    EXPECT_EQ(said(pieces, request_in_stretch), request_written + "0 07\n0 bytes drained\n461.5 ms\n");
}

TEST(stretch, takes_no_frame_that_the_standard_does_not_have)
{
    const std::string failure = "Cannot find IPMI transaction in response\n0 bytes drained\n";
    EXPECT_EQ(said(after(111, {0xA0, 0x14, 0, 0x2D, 0, 0xAA, 0x00, 7, 0xA5}), request_in_stretch),
              request_written + failure + "330 ms\n");
    EXPECT_EQ(said(after(111, {0xA0, 0x14, 0, 0xA0, 0x14, 0, 0x2D, 0, 7, 0xA5}), request_in_stretch),
              request_written + "0 07\n0 bytes drained\n110 ms\n");
    EXPECT_EQ(said(after(111, frame({0x10, 0, 0x2D, 0})), request_in_stretch),
              request_written + "Invalid IPMI response net function\n0 bytes drained\n220 ms\n");
}

} // namespace
} // namespace ivra::bsp::bmc::bittware
