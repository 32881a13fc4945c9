#include "readings/worker.h"

#include "hw/accelerator.h"
#include "readings/document.h"
#include "readings/limits_file.h"

#include <ivra/log.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <vector>

namespace ivra::bsp::readings {

namespace {

using telemetry::accelerator_identity_t;

struct log_line_t
{
    answer_t kind;
    std::string text;
};
std::vector<log_line_t> log_lines; // since the last board
std::size_t sent_log_lines = 0;    // of these

/// False when not all of it can be sent: nobody listens any more, or, with MSG_DONTWAIT, not yet.
bool send_line(answer_t kind, std::string text, int flags)
{
    text.insert(text.begin(), static_cast<char>(kind));
    text += '\n';
    for (std::size_t sent = 0; sent < text.size();) {
        const ::ssize_t count =
            ::send(worker_socket, text.data() + sent, text.size() - sent, MSG_NOSIGNAL | (sent == 0 ? flags : 0));
        if (count > 0)
            sent += static_cast<std::size_t>(count);
        else if (count == 0 || errno != EINTR)
            return false;
    }
    return true;
}

/// Sends what was not sent yet.
bool send_log_lines(int flags)
{
    while (sent_log_lines < log_lines.size() &&
           send_line(log_lines[sent_log_lines].kind, log_lines[sent_log_lines].text, flags))
        ++sent_log_lines;
    return sent_log_lines == log_lines.size();
}

// Nothing may be thrown through the library that calls it, nor its errno be changed. Who calls may be in the middle of
// an exchange: a line that the socket has no room for waits until the board has been read.
void collect_log(int level, const char* /*file*/, int /*line*/, const char* function, const char* format,
                 std::va_list args) noexcept
{
    const int error = errno;
    try {
        log_lines.push_back(
            {level == IVRA_LOG_ERROR ? answer_t::error : answer_t::log, format_message(function, format, args)});
        send_log_lines(MSG_DONTWAIT);
    } catch (const std::exception&) { // no memory: the message is lost
    }
    errno = error;
}

/// The next line; nothing when the socket was closed.
std::optional<std::string> receive_line()
{
    static std::string received;
    std::array<char, 65536> piece{};
    for (std::size_t searched = 0;;) {
        if (const std::size_t end = received.find('\n', searched); end != std::string::npos) {
            const std::string line = received.substr(0, end);
            received.erase(0, end + 1);
            return line;
        }
        searched = received.size();
        const ::ssize_t count = ::recv(worker_socket, piece.data(), piece.size(), 0);
        if (count > 0)
            received.append(piece.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            return std::nullopt;
    }
}

bool is_same(const accelerator_identity_t& one, const accelerator_identity_t& other)
{
    return one.uid || other.uid ? one.uid == other.uid : one.index == other.index && one.name == other.name;
}

/// The board, wherever it is by now.
std::optional<hw::accelerator_descriptor> find_board(const accelerator_identity_t& board)
{
    const auto find_among = [&board](const std::vector<hw::accelerator_descriptor>& descriptors) {
        const auto found = std::ranges::find_if(descriptors, [&board](const hw::accelerator_descriptor& descriptor) {
            return is_same(telemetry::get_identity(descriptor), board);
        });
        return found == descriptors.end() ? std::nullopt : std::optional{*found};
    };
    if (board.index) {
        hw::accelerator_filter filter;
        filter.set_index(*board.index);
        if (auto found = find_among(hw::enumerate_accelerators(filter)))
            return found;
    }
    return find_among(hw::enumerate_accelerators(hw::accelerator_filter{}));
}

/// A text without spaces and line ends, and back; "-" for nothing.
std::string to_hex(const std::optional<std::string>& text)
{
    if (!text)
        return "-";
    constexpr const char* digits = "0123456789abcdef";
    std::string hex = "=";
    for (const char letter : *text)
        (hex += digits[static_cast<std::uint8_t>(letter) >> 4U]) += digits[static_cast<std::uint8_t>(letter) & 15U];
    return hex;
}

std::optional<std::string> from_hex(const std::string& hex)
{
    if (!hex.starts_with('='))
        return std::nullopt;
    std::string text;
    for (std::size_t at = 1; at + 1 < hex.size(); at += 2)
        text += static_cast<char>(std::stoi(hex.substr(at, 2), nullptr, 16));
    return text;
}

request_t decode_request(const std::string& line)
{
    std::istringstream stream{line};
    std::string index, name, uid;
    long long milliseconds = 0;
    stream >> index >> name >> uid >> milliseconds;
    request_t request{.board = {.index = std::nullopt, .name = from_hex(name), .uid = from_hex(uid)},
                      .parts = {},
                      .time = std::chrono::milliseconds{milliseconds}};
    if (index != "-")
        request.board.index = static_cast<std::uint32_t>(std::stoul(index));
    for (int part = 0; stream >> part;)
        request.parts.insert(static_cast<telemetry::part_t>(part));
    return request;
}

std::string read_board(const request_t& request, const std::vector<limits_entry_t>& limits)
{
    using clock = std::chrono::steady_clock;
    const clock::time_point end = clock::now() + request.time;
    const telemetry::is_over_t is_over = [&] { return request.time.count() != 0 && clock::now() >= end; };
    telemetry::board_readings_t readings;
    try {
        if (const auto descriptor = find_board(request.board))
            readings = telemetry::read_board(*descriptor, request.parts, is_over);
        else
            readings.error = "the board is gone";
    } catch (const std::exception& error) {
        readings = {};
        readings.error = error.what();
    }
    std::vector<telemetry::finding_t> findings = apply_limits(limits, request.board, request.parts, readings);
    for (const log_line_t& line : log_lines)
        if (line.kind == answer_t::error)
            findings.push_back(make_log_finding(line.text));
    return make_board_document(request.board, readings, findings);
}

} // namespace

std::string format_message(const char* function, const char* format, std::va_list args)
{
    std::array<char, 1024> text{};
    if (format != nullptr)
        std::vsnprintf(text.data(), text.size(), format, args);
    std::string line = function == nullptr ? std::string{} : std::string{function} + ": ";
    line += text.data();
    std::ranges::replace(line, '\n', ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

telemetry::finding_t make_log_finding(const std::string& message)
{
    return {.health = std::nullopt, .text = "The platform's log: " + message};
}

std::string encode_request(const request_t& request)
{
    std::string line = request.board.index ? std::to_string(*request.board.index) : "-";
    line +=
        ' ' + to_hex(request.board.name) + ' ' + to_hex(request.board.uid) + ' ' + std::to_string(request.time.count());
    for (const telemetry::part_t part : request.parts)
        line += ' ' + std::to_string(static_cast<int>(part));
    return line + '\n';
}

int run_worker()
{
    ivra_log_set_handler(&collect_log);
    std::vector<limits_entry_t> limits;
    if (const std::string text = receive_line().value_or(""); !text.empty())
        limits = parse_limits(text, "the limits file");
    while (const std::optional<std::string> line = receive_line()) {
        log_lines.clear();
        sent_log_lines = 0;
        const std::string document = read_board(decode_request(*line), limits);
        if (!send_log_lines(0) || !send_line(answer_t::board, document, 0))
            break;
    }
    ivra_log_set_handler(nullptr);
    return EXIT_SUCCESS;
}

} // namespace ivra::bsp::readings
