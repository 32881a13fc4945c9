#include "readings/progress_line.h"

#include "readings/text_screen.h"
#include "text/text.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string_view>

namespace ivra::bsp::readings {

namespace {

constexpr std::chrono::milliseconds patience{500};
constexpr std::string_view wiping = "\r\033[K";

/// From before the line is written until it has been wiped.
std::atomic<bool> is_shown{false};
static_assert(std::atomic<bool>::is_always_lock_free);

std::size_t get_columns()
{
    ::winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

void write_to_terminal(std::string_view text)
{
    [[maybe_unused]] const ::ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
}

} // namespace

progress_line::progress_line() : is_terminal_{::isatty(STDERR_FILENO) == 1} {}

void progress_line::show(std::size_t done, std::size_t count, const std::string& name,
                         std::chrono::milliseconds time) const
{
    if (!is_terminal_ || time < patience)
        return;
    const std::string line = std::to_string(done) + " of " + std::to_string(count) + " boards, waiting for " +
                             shortened(name, 24) + " (" + fixed(static_cast<double>(time.count()) / 1000, 1) + " s)";
    is_shown = true;
    // A line that the terminal would break could not be wiped.
    write_to_terminal(std::string{wiping} + shortened(line, std::max<std::size_t>(get_columns(), 2) - 1));
}

void progress_line::wipe()
{
    if (is_shown)
        write_to_terminal(wiping);
    is_shown = false;
}

void progress_line::wipe_at_end() noexcept
{
    ::pollfd terminal{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    if (is_shown && ::poll(&terminal, 1, 0) == 1 && (terminal.revents & POLLOUT) != 0)
        write_to_terminal(wiping);
}

} // namespace ivra::bsp::readings
