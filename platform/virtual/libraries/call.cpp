#include "libraries/call.h"

#include "libraries/session.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>
#include <new>
#include <system_error>
#include <thread>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

/// Returns when the signal has taken effect, or is held back.
void signal_this_process(int signal)
{
    ::kill(::getpid(), signal);
    while (signal == SIGKILL)
        ::pause();
}

/// Stops this process as SIGSTOP does. A child waits for so long and then continues it; no signal that a terminal sends
/// to both ends the child before, and it does not outlive this process.
void stop_this_process(std::chrono::nanoseconds duration)
{
    const ::pid_t process = ::getpid();
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const ::pid_t child = ::fork();
    if (child != 0)
        ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::kill(process, SIGSTOP);
        std::this_thread::sleep_for(duration);
        ::kill(process, SIGCONT);
        ::_exit(0);
    }
    while (child > 0 && ::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

template <class Number>
Number number_in(std::span<const std::byte> bytes)
{
    Number number{};
    std::memcpy(&number, bytes.data(), std::min(bytes.size(), sizeof number));
    return number;
}

} // namespace

call::call(const char* name) noexcept : name_{name}, has_device_{false}, device_{nullptr}, saved_errno_{errno}
{
    start();
}

call::call(const char* name, const accelerator_t* accelerator) noexcept
    : name_{name}, has_device_{true}, device_{accelerator}, saved_errno_{errno}
{
    start();
}

void call::start() noexcept
{
    try {
        tracing_ = session::instance().tracing() != nullptr;
        if (tracing_ && has_device_)
            add_argument(device_ == nullptr ? "NULL" : escaped(device_->uid));
    } catch (...) { // begin() meets it again
    }
}

void call::begin()
{
    try {
        fault_ = session::instance().next_fault(name_, device_);
    } catch (const failure&) {
        if (can_fail_)
            throw;
    }
    if (fault_ == nullptr)
        return;
    if (fault_->delay.count() > 0)
        std::this_thread::sleep_for(fault_->delay);
    if (fault_->stop.count() > 0)
        stop_this_process(fault_->stop);
    if (fault_->log)
        log_message(IVRA_LOG_WARNING, name_, *fault_->log);
    if (fault_->signal != 0 && fault_->when == fault_moment_t::before) {
        if (tracing_ && fault_->signal == SIGKILL)
            trace_result("killed");
        signal_this_process(fault_->signal);
    }
    if (!fault_->transferred && fault_->error)
        throw failure{*fault_->error};
}

void call::finish_output()
{
    if (fault_ == nullptr)
        return;
    if (fault_->transferred && fault_->error)
        throw failure{*fault_->error};
    for (std::size_t i = 0; i < std::min(output_.size(), fault_->garble.size()); ++i)
        output_[i] ^= std::byte{fault_->garble[i]};
}

void call::leave()
{
    if (fault_ != nullptr && fault_->signal != 0 && fault_->when == fault_moment_t::after)
        signal_this_process(fault_->signal);
    errno = saved_errno_;
}

void call::fail(const char* shown_failure) noexcept
{
    int error = EIO;
    try {
        try {
            throw;
        } catch (const failure& reason) {
            error = reason.error();
        } catch (const std::bad_alloc&) {
            error = ENOMEM;
        } catch (const std::system_error& reason) {
            error = reason.code().value();
            log_message(IVRA_LOG_ERROR, name_, reason.what());
        } catch (const std::exception& reason) {
            log_message(IVRA_LOG_ERROR, name_, reason.what());
        }
        output_ = {};
        if (tracing_)
            trace_result(std::string{shown_failure} + " " + describe_error(error));
    } catch (...) { // no memory for the trace; the call fails all the same
    }
    if (fault_ != nullptr && fault_->signal != 0 && fault_->when == fault_moment_t::after)
        signal_this_process(fault_->signal);
    errno = error;
}

void call::add_argument(const std::string& argument)
{
    arguments_ += (arguments_.empty() ? "" : ", ") + argument;
}

void call::trace_result(const std::string& result) const
{
    std::string line = std::string{name_} + "(" + arguments_ + ") = " + result;
    if (!output_.empty())
        line += ": " + describe_output();
    if (remark_ != nullptr)
        line += std::string{" ("} + remark_ + ")";
    if (fault_ != nullptr)
        line += " (fault plan)";
    session::instance().tracing()->write(line);
}

std::string call::describe_output() const
{
    switch (output_kind_) {
    case output_kind::number:
        return describe(hexadecimal_t{number_in<std::uint64_t>(output_)});
    case output_kind::real:
        return std::to_string(number_in<double>(output_));
    case output_kind::text: {
        std::string text;
        for (const std::byte byte : output_)
            text += static_cast<char>(byte);
        return describe(std::string_view{text});
    }
    case output_kind::bytes:
        break;
    }
    return describe(std::span<const std::byte>{output_});
}

std::size_t call::at_most(std::size_t wanted) const
{
    return fault_ != nullptr && fault_->transferred ? std::min(wanted, *fault_->transferred) : wanted;
}

int call::replaced_count(int count) const
{
    return fault_ != nullptr && fault_->count ? *fault_->count : count;
}

const char* call::replaced_text(const char* text) const
{
    return fault_ != nullptr && fault_->text ? fault_->text->c_str() : text;
}

int call::checked_count(std::size_t count)
{
    require(count <= INT_MAX, EOVERFLOW);
    return static_cast<int>(count);
}

std::size_t call::store_text(std::string_view text, char* buffer, std::size_t size)
{
    require(buffer != nullptr);
    const std::string_view shown = fault_ != nullptr && fault_->text ? std::string_view{*fault_->text} : text;
    require(shown.size() < size, ERANGE);
    return print_text(text, buffer, size);
}

std::size_t call::print_text(std::string_view text, char* buffer, std::size_t size)
{
    require(buffer != nullptr || size == 0);
    const std::string_view shown = fault_ != nullptr && fault_->text ? std::string_view{*fault_->text} : text;
    if (size == 0)
        return shown.size();
    const std::span fitting{buffer, std::min(shown.size(), size - 1)};
    std::copy_n(shown.begin(), fitting.size(), buffer);
    buffer[fitting.size()] = '\0';
    stored(fitting);
    output_kind_ = output_kind::text;
    return shown.size();
}

} // namespace ivra::virtual_platform
