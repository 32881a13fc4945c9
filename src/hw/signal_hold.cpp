#include "hw/signal_hold.h"

#include <system_error>

namespace ivra::hw {
inline namespace v5 {

signal_hold::signal_hold()
{
    sigset_t held;
    ::sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        ::sigaddset(&held, signal);
    if (const int error = ::pthread_sigmask(SIG_BLOCK, &held, &before_); error != 0)
        throw std::system_error{error, std::generic_category(), "Error holding signals back"};
}

signal_hold::~signal_hold()
{
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

} // namespace v5
} // namespace ivra::hw
