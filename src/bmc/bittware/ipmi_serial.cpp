#include "bmc/bittware/ipmi_serial.h"

#include "hw/sleep.h"
#include "text/text_stream.h"

#include <ivra/log.h>

#include <algorithm>
#include <chrono>
#include <iomanip>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

namespace ivra::bsp::bmc::bittware {

namespace {

using namespace std::chrono_literals;

constexpr auto write_timeout = std::chrono::duration<unsigned, std::milli>{100};
constexpr auto read_pause = 1ms; // between two looks at the UART; a BMC takes some milliseconds
constexpr unsigned read_attempts = 100;

constexpr auto quiet = 110ms;        // longer than a BMC may take to answer
constexpr auto answer_pause = 250us; // as read_pause, where a walk over many sensors adds them up
constexpr auto longest_read = 2s;

constexpr auto no_answer = "Cannot find IPMI transaction in response";

constexpr std::uint8_t start_byte = 0xA0;
constexpr std::uint8_t stop_byte = 0xA5;
constexpr std::uint8_t escape_byte = 0xAA;

/// A byte of a message, and what follows the escape byte in its place (IPMI 2.0, table 14-5).
struct escape_row_t
{
    std::uint8_t raw;
    std::uint8_t escaped;
};
constexpr escape_row_t escapes[] = {{0xA0, 0xB0}, {0xA5, 0xB5}, {0xA6, 0xB6}, {0xAA, 0xBA}, {0x1B, 0x3B}};

/// The row whose `member` has this value; null when none has.
const escape_row_t* find_escape(std::uint8_t escape_row_t::*member, std::uint8_t value)
{
    const auto* const row = std::ranges::find(escapes, value, member);
    return row == std::end(escapes) ? nullptr : row;
}

constexpr std::uint8_t shifted_netfn(std::uint8_t netfn)
{
    return static_cast<std::uint8_t>(unsigned{netfn} << 2U); // LUN 0; 8 bits are kept
}

// Deliberate: file and lines of these remarks are fixed, so that they are the same in every version's log.
constexpr const char* source_file = "src/bmc/bittware/ipmi_serial";
constexpr int invalid_escape_line = 143;
constexpr int remains_line = 154;

std::string invalid_escape_text(std::uint8_t byte)
{
    text_stream text;
    text << "Invalid IPMI escaped byte: 0x" << std::hex << std::setw(2) << std::setfill('0') << unsigned{byte};
    return text.str();
}

void send(v6::uart::uart& uart, std::uint8_t netfn, std::uint8_t cmd, std::span<const std::uint8_t> data)
{
    if (const std::error_code error = uart.write_all(encode_frame(encode_request(netfn, cmd, data)), write_timeout))
        throw std::system_error{error, "Error sending IPMI data"};
}

std::vector<std::uint8_t> recv_data(v6::uart::uart& uart, remarks_t& remarks)
{
    frame_decoder::buffer_t buffer{}; // Deliberate: not cleared between reads, see frame_decoder::feed()
    frame_decoder decoder;
    std::size_t remarked = 0;
    unsigned attempts = 0;
    do {
        decoder.feed(buffer, uart.read(buffer).access_value_or_throw("Cannot read IPMI response"));
        for (; remarked < decoder.invalid_escapes().size(); ++remarked)
            remarks.push_back({invalid_escape_line, invalid_escape_text(decoder.invalid_escapes()[remarked])});
        if (decoder.complete()) {
            // Deliberate: asked is whether the buffer goes on after the stop byte, which it always does, not whether
            // more was read.
            remarks.push_back({remains_line, "Data remains after end of IPMI transaction."});
            return decoder.message();
        }
        hw::sleep(read_pause);
    } while (++attempts < read_attempts);
    throw std::runtime_error{no_answer};
}

/// Reads, with pauses, until `take`, which gets what was read, returns true, or until nothing has come for some time;
/// returns whether it did.
template <class Take>
bool read_until(v6::uart::uart& uart, std::chrono::nanoseconds pause, Take take)
{
    using clock = std::chrono::steady_clock;
    frame_decoder::buffer_t buffer{};
    auto last_byte = clock::now();
    std::chrono::nanoseconds reading{0};
    for (;;) {
        const auto now = clock::now();
        const std::size_t count = uart.read(buffer).access_value_or_throw("Cannot read IPMI response");
        if (take(std::span<const std::uint8_t>{buffer}.first(count)))
            return true;
        if (count > 0) {
            // Longer than that nobody looked: this process was held up, and what came meanwhile may have had pauses.
            const auto before = std::exchange(last_byte, clock::now());
            reading += std::min<std::chrono::nanoseconds>(last_byte - before, quiet);
        } else if (now - last_byte >= quiet) {
            return false;
        }
        if (reading >= longest_read)
            throw std::runtime_error{"Bytes from the BMC do not end"};
        hw::sleep(pause);
    }
}

} // namespace

std::vector<std::uint8_t> encode_request(std::uint8_t netfn, std::uint8_t cmd, std::span<const std::uint8_t> data)
{
    std::vector<std::uint8_t> message{shifted_netfn(netfn), 0, cmd};
    std::copy(data.begin(), data.end(), std::back_inserter(message));
    return message;
}

std::vector<std::uint8_t> encode_frame(std::span<const std::uint8_t> message)
{
    std::vector<std::uint8_t> frame{start_byte};
    frame.reserve(2 * message.size() + 2);
    for (const std::uint8_t byte : message) {
        if (const escape_row_t* escape = find_escape(&escape_row_t::raw, byte))
            frame.insert(frame.end(), {escape_byte, escape->escaped});
        else
            frame.push_back(byte);
    }
    frame.push_back(stop_byte);
    frame.resize(2 * message.size() + 2); // Deliberate: filled up with zeros, which are sent, too
    return frame;
}

void frame_decoder::take_escaped(std::uint8_t byte)
{
    if (const escape_row_t* escape = find_escape(&escape_row_t::escaped, byte))
        message_.push_back(escape->raw);
    else
        invalid_escapes_.push_back(byte);
}

void frame_decoder::feed(const buffer_t& buffer, std::size_t count)
{
    const std::span<const std::uint8_t> bytes = std::span{buffer}.first(std::min(count, buffer_size));
    for (std::size_t i = 0; i < bytes.size() && !complete(); ++i) {
        if (state_ == state_t::looking_for_start) {
            if (bytes[i] == start_byte)
                state_ = state_t::inside;
            continue;
        }
        const auto rest = bytes.subspan(i);
        const auto special =
            std::ranges::find_if(rest, [](auto byte) { return byte == stop_byte || byte == escape_byte; });
        message_.insert(message_.end(), rest.begin(), special); // Deliberate: a second start byte, too
        if (special == rest.end())
            return;
        i += static_cast<std::size_t>(special - rest.begin());
        if (*special == stop_byte) {
            state_ = state_t::complete;
        } else {
            // Deliberate: the next byte of the buffer, even if it is one of an earlier read. An escape byte at the end
            // of the buffer is followed by 0.
            ++i;
            take_escaped(i < buffer_size ? buffer[i] : 0);
        }
    }
}

bool strict_frame_decoder::feed(std::uint8_t byte)
{
    if (byte == start_byte) {
        message_.clear();
        state_ = state_t::inside;
    } else if (state_ == state_t::escaped) {
        const escape_row_t* const escape = find_escape(&escape_row_t::escaped, byte);
        if (escape != nullptr)
            message_.push_back(escape->raw);
        state_ = escape != nullptr ? state_t::inside : state_t::outside;
    } else if (state_ == state_t::inside) {
        if (byte == stop_byte) {
            state_ = state_t::outside;
            return true;
        }
        if (byte == escape_byte)
            state_ = state_t::escaped;
        else
            message_.push_back(byte);
    }
    return false;
}

ipmi_response_t decode_response(std::span<const std::uint8_t> message, std::uint8_t netfn, std::uint8_t cmd)
{
    if (message.size() < 4)
        throw std::runtime_error{"Invalid data read from BMC"};
    if (message[0] >> 2U != static_cast<std::uint8_t>(netfn + 1U))
        throw std::runtime_error{"Invalid IPMI response net function"};
    if (message[2] != cmd)
        throw std::runtime_error{"Invalid IPMI response command"};
    const std::span<const std::uint8_t> data = message.subspan(4);
    return {.code = message[3], .data = {data.begin(), data.end()}};
}

ipmi_response_t exchange(v6::uart::uart& uart, std::uint8_t netfn, std::uint8_t cmd, std::span<const std::uint8_t> data,
                         remarks_t& remarks)
{
    send(uart, netfn, cmd, data);
    return decode_response(recv_data(uart, remarks), netfn, cmd);
}

ipmi_response_t exchange_strictly(v6::uart::uart& uart, std::uint8_t netfn, std::uint8_t cmd,
                                  std::span<const std::uint8_t> data)
{
    send(uart, netfn, cmd, data);
    strict_frame_decoder decoder;
    const auto ends_in = [&](std::span<const std::uint8_t> bytes) {
        return std::any_of(bytes.begin(), bytes.end(), [&](std::uint8_t byte) { return decoder.feed(byte); });
    };
    if (!read_until(uart, answer_pause, ends_in))
        throw std::runtime_error{no_answer};
    return decode_response(decoder.message(), netfn, cmd);
}

std::size_t drain(v6::uart::uart& uart)
{
    std::size_t drained = 0;
    read_until(uart, read_pause, [&](std::span<const std::uint8_t> bytes) {
        drained += bytes.size();
        return false;
    });
    return drained;
}

void log(const remarks_t& remarks)
{
    for (const remark_t& remark : remarks)
        ivra_log_log(IVRA_LOG_WARNING, source_file, remark.line, "recv_data", "%s", remark.text.c_str());
}

} // namespace ivra::bsp::bmc::bittware
