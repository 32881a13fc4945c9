#include "hw/signal_hold.h"

#include <system_error>

namespace ivra::hw {
inline namespace v5 {

blocked_signals::blocked_signals(std::initializer_list<int> signals)
{
    sigset_t held;
    ::sigemptyset(&held);
    for (const int signal : signals)
        ::sigaddset(&held, signal);
    if (const int error = ::pthread_sigmask(SIG_BLOCK, &held, &before_); error != 0)
        throw std::system_error{error, std::generic_category(), "Error holding signals back"};
}

blocked_signals::~blocked_signals()
{
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

} // namespace v5
} // namespace ivra::hw
