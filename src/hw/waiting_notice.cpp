#include "hw/waiting_notice.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace ivra::hw {
inline namespace v5 {

namespace {

// Begins a line of its own: what was written before may be the beginning of one.
constexpr std::string_view notice = "\nWaiting for another process that uses this board...\n";

volatile std::sig_atomic_t given = 0;

void give_notice(int)
{
    const int error = errno;
    pollfd terminal{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    if (::poll(&terminal, 1, 0) == 1 && terminal.revents == POLLOUT) { // the lock may have been taken meanwhile
        [[maybe_unused]] const ::ssize_t written = ::write(STDERR_FILENO, notice.data(), notice.size());
    }
    given = 1;
    errno = error;
}

} // namespace

waiting_notice::waiting_notice(std::chrono::milliseconds patience)
{
    given = 0;
    if (::isatty(STDERR_FILENO) != 1)
        return;
    sigevent event{};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGURG;
    if (::timer_create(CLOCK_MONOTONIC, &event, &timer_) != 0)
        return; // then nobody is told
    is_set_ = true;

    struct sigaction action
    {
    };
    action.sa_handler = &give_notice;
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGURG, &action, &action_before_);
    sigset_t urgent;
    ::sigemptyset(&urgent);
    ::sigaddset(&urgent, SIGURG);
    ::pthread_sigmask(SIG_UNBLOCK, &urgent, &mask_before_);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(patience);
    const std::chrono::nanoseconds rest = patience - seconds;
    const itimerspec once{.it_interval = {}, .it_value = {.tv_sec = seconds.count(), .tv_nsec = rest.count()}};
    ::timer_settime(timer_, 0, &once, nullptr);
}

waiting_notice::~waiting_notice()
{
    if (!is_set_)
        return;
    ::timer_delete(timer_); // a signal of it that is on its way arrives before this call returns
    ::pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
    ::sigaction(SIGURG, &action_before_, nullptr);
}

bool waiting_notice::was_given() const
{
    return given != 0;
}

} // namespace v5
} // namespace ivra::hw
