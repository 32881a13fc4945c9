#include "commands.h"
#include "output.h"

#include "devices/bmc/bmc.h"
#include "state/state.h"
#include "json/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

[[noreturn]] void fail(const char* what)
{
    throw std::system_error{errno, std::generic_category(), what};
}

/// Both sides of a pseudo-terminal that hands on bytes as they are. This side holds the other one open, too: it stays
/// when a program leaves it.
struct terminal_t
{
    unique_fd own{-1};
    unique_fd other{-1};
    std::string name;
};

terminal_t open_terminal()
{
    terminal_t terminal;
    terminal.own = unique_fd{::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)};
    std::array<char, 256> name{};
    if (!terminal.own || ::grantpt(terminal.own.get()) != 0 || ::unlockpt(terminal.own.get()) != 0 ||
        ::ptsname_r(terminal.own.get(), name.data(), name.size()) != 0)
        fail("cannot make a pseudo-terminal");
    terminal.name = name.data();
    terminal.other = unique_fd{::open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC)};
    termios settings = {};
    if (!terminal.other || ::tcgetattr(terminal.other.get(), &settings) != 0)
        fail("cannot use a pseudo-terminal");
    ::cfmakeraw(&settings);
    if (::tcsetattr(terminal.other.get(), TCSANOW, &settings) != 0)
        fail("cannot use a pseudo-terminal");
    return terminal;
}

/// SIGINT and SIGTERM as something to be read, from now on.
unique_fd open_signals()
{
    sigset_t signals;
    ::sigemptyset(&signals);
    ::sigaddset(&signals, SIGINT);
    ::sigaddset(&signals, SIGTERM);
    if (::sigprocmask(SIG_BLOCK, &signals, nullptr) != 0)
        fail("cannot block signals");
    unique_fd fd{::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK)};
    if (!fd)
        fail("cannot wait for signals");
    return fd;
}

/// Waits until something happens on the terminal, or until the time is over, -1: without end. False when a signal says
/// that it is time to end.
bool wait(const terminal_t& terminal, const unique_fd& signals, short events, int milliseconds)
{
    std::array<pollfd, 2> watched{pollfd{signals.get(), POLLIN, 0}, pollfd{terminal.own.get(), events, 0}};
    int count = 0;
    do {
        count = ::poll(watched.data(), events == 0 ? 1 : 2, milliseconds);
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        fail("cannot wait");
    return watched[0].revents == 0;
}

/// The bytes of a line such as "18 00 01"; nothing when it is none.
std::optional<std::string> bytes_in(std::string_view line)
{
    std::string digits;
    std::ranges::copy_if(line, std::back_inserter(digits), [](char c) { return c != ' '; });
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        std::uint8_t value = 0;
        const char* const begin = digits.data() + at;
        const char* const end = digits.data() + std::min(at + 2, digits.size());
        const auto [stop, error] = std::from_chars(begin, end, value, 16);
        if (error != std::errc{} || stop != begin + 2)
            return std::nullopt;
        bytes += static_cast<char>(value);
    }
    return bytes;
}

/// Collects what comes over the terminal into lines "[18 00 01]"; anything outside the brackets is dropped.
class line_reader
{
public:
    /// The inside of a line that this character ends.
    std::optional<std::string> add(char c)
    {
        constexpr std::size_t longest = 2048;
        if (c == '[') {
            line_.emplace();
        } else if (c == ']' && line_) {
            return std::exchange(line_, std::nullopt);
        } else if (line_) {
            *line_ += c;
            if (line_->size() > longest)
                line_.reset();
        }
        return std::nullopt;
    }

private:
    std::optional<std::string> line_;
};

} // namespace

void serve_bmc(const rack_t& rack, const std::string& name)
{
    const accelerator_t& accelerator = accelerator_called(rack, name);
    if (!accelerator.bmc)
        throw std::runtime_error{"the accelerator \"" + name + "\" has no BMC"};
    board_state state = board_state::open(rack, accelerator);
    const unique_fd signals = open_signals();
    const terminal_t terminal = open_terminal();
    if (!print(terminal.name + '\n'))
        return; // nobody would know where to look for it

    // What it says to a request, and when; nothing when it says nothing.
    const auto ask = [&](const std::string& request) {
        const file_lock lock = state.bmc().lock();
        bmc_memory_t memory = state.bmc().read();
        auto answer = bmc{state.board().bmc.value(), memory}.take(request);
        state.bmc().write(memory);
        return answer;
    };
    line_reader lines;
    while (wait(terminal, signals, POLLIN, -1)) {
        std::array<char, 256> piece{};
        const ::ssize_t count = ::read(terminal.own.get(), piece.data(), piece.size());
        if (count < 0 && errno != EAGAIN && errno != EINTR)
            fail("cannot read from the pseudo-terminal");
        for (const char c : std::string_view{piece.data(), static_cast<std::size_t>(std::max<::ssize_t>(count, 0))}) {
            const auto line = lines.add(c);
            const auto request = line ? bytes_in(*line) : std::nullopt;
            const auto answer = request ? ask(*request) : std::nullopt;
            if (!answer)
                continue;
            constexpr std::int64_t longest_wait = 1'000'000'000; // ms, as poll() takes them
            const auto latency = std::chrono::ceil<std::chrono::milliseconds>(answer->latency).count();
            if (!wait(terminal, signals, 0, static_cast<int>(std::min<std::int64_t>(latency, longest_wait))))
                return;
            std::string text = "[";
            for (const char byte : answer->message)
                text += hex_pair(static_cast<std::uint8_t>(byte));
            text += "]\r\n";
            for (std::string_view rest = text; !rest.empty();) {
                const ::ssize_t written = ::write(terminal.own.get(), rest.data(), rest.size());
                if (written < 0 && errno != EAGAIN && errno != EINTR)
                    fail("cannot write to the pseudo-terminal");
                rest.remove_prefix(static_cast<std::size_t>(std::max<::ssize_t>(written, 0)));
                if (!rest.empty() && !wait(terminal, signals, POLLOUT, -1))
                    return;
            }
        }
    }
}

} // namespace ivra::virtual_platform
