#include "output/output.h"

#include "text/text.h"

#include <ivra/log.h>

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <new>
#include <string_view>
#include <utility>

namespace ivra::bsp {

namespace {

/// The message's text; empty when it cannot be formatted. `args` may be used once only, so it is measured on a copy.
std::string format_message(const char* format, std::va_list args)
{
    if (format == nullptr)
        return {};
    std::va_list measured;
    va_copy(measured, args);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0)
        return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.pop_back();
    text.erase(text.find_last_not_of("\r\n") + 1); // some end their messages as lines
    return text;
}

} // namespace

// Nothing may be thrown through the library that calls it.
void output::handle_log(int level, const char* /*file*/, int /*line*/, const char* function, const char* format,
                        std::va_list args) noexcept
{
    output& out = get();
    try {
        std::string text;
        if (function != nullptr)
            text.append(function).append(": ");
        text += format_message(format, args);
        out.platform_messages_.push_back({level == IVRA_LOG_ERROR ? 1U : 0U, std::move(text)});
    } catch (const std::exception&) {
        out.has_lost_message_ = true;
    }
    if (!out.is_holding_log_)
        out.release_log();
}

void output::hold_log() noexcept
{
    is_holding_log_ = true;
}

void output::release_log() noexcept
{
    is_holding_log_ = false;
    try {
        for (const log_message& message : std::exchange(platform_messages_, {})) {
            if (message.kind == 1)
                error(message.text);
            else
                log(message.text, color::normal);
        }
    } catch (const std::exception&) {
        has_lost_message_ = true;
    }
}

output& output::get()
{
    static output instance;
    return instance;
}

output::output()
    : stdout_is_tty_{::isatty(STDOUT_FILENO) == 1},
      stderr_is_tty_{::isatty(STDERR_FILENO) == 1}, stdout_{std::cout}, stderr_{std::clog}
{
    reset();
    ivra_log_set_handler(&handle_log);
}

void output::set_color_mode(color_mode_t mode)
{
    color_mode_ = mode;
    reset();
}

void output::set_format(output_format_t format)
{
    format_ = format;
    reset();
}

void output::reset()
{
    const auto colored = [this](bool is_tty) {
        return color_mode_ == color_mode_t::always || (color_mode_ == color_mode_t::automatic && is_tty);
    };
    stdout_.set_colors(get_color_map(!is_json() && colored(stdout_is_tty_)));
    stderr_.set_colors(get_color_map(colored(stderr_is_tty_)));

    if (stdout_is_tty_ && !is_json()) {
        winsize size{};
        if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
            terminal_width_ = size.ws_col;
        else
            std::cerr << "Error getting terminal size: " << std::strerror(errno) << '\n';
    }
}

void output::log(const std::string& text, color c)
{
    log_terminal().print_line(printable(text), c, 0);
    pending_line_ << text;
    messages_.push_back({0, pending_line_.str()});
    pending_line_.str({});
}

void output::log_part(const std::string& text, color /*c*/)
{
    log_terminal().print_part(printable(text)); // Deliberate: only what completes the line has a colour.
    pending_line_ << text;
}

void output::error(const std::string& text)
{
    stderr_.print_line(printable(text), color::red, 0);
    messages_.push_back({1, text});
}

void output::exit(bool success, std::optional<std::string> message)
{
    success_ = success;
    final_message_ = std::move(message);
    exit();
}

void output::exit()
{
    release_log();
    if (has_lost_message_)
        throw std::bad_alloc{};
    if (final_message_ && success_)
        log(*final_message_, color::normal);
    else if (final_message_)
        error(*final_message_);

    if (is_json()) {
        if (std::string pending = pending_line_.str(); !pending.empty())
            messages_.push_back({0, std::move(pending)});
        stdout_.print_text(document_.complete(success_, final_message_, messages_) + "\n");
    }
    if (const int reason = stdout_.error(); reason != 0) {
        success_ = false;
        if (reason != EPIPE) // a reader that went away needs no telling
            error(std::string{"Cannot write to standard output: "} + std::strerror(reason));
    }
    ivra_log_set_handler(nullptr); // what the platform says from here on finds no output any more
    std::exit(success_ ? EXIT_SUCCESS : EXIT_FAILURE);
}

void output::exit_without_memory()
{
    constexpr std::string_view message = "Out of memory\n";
    [[maybe_unused]] const ::ssize_t written = ::write(STDERR_FILENO, message.data(), message.size());
    ivra_log_set_handler(nullptr);
    std::exit(EXIT_FAILURE);
}

} // namespace ivra::bsp
