#include "hw/signal_hold.h"

namespace ivra::hw {
inline namespace v5 {

blocked_signals::blocked_signals(std::initializer_list<int> signals)
{
    sigset_t held;
    ::sigemptyset(&held);
    for (const int signal : signals)
        ::sigaddset(&held, signal);
    ::pthread_sigmask(SIG_BLOCK, &held, &before_); // which fails only for what it cannot be told here
}

blocked_signals::~blocked_signals()
{
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

} // namespace v5
} // namespace ivra::hw
