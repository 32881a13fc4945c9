#ifndef IVRA_HW_SIGNAL_HOLD_H
#define IVRA_HW_SIGNAL_HOLD_H

#include <csignal>

namespace ivra::hw {
inline namespace v5 {

/// Holds SIGINT, SIGTERM and SIGHUP back from the calling thread for as long as it lives, so that none of them stops a
/// change half-way. One that came meanwhile takes effect at its end. Wait for no lock and no user while one lives.
class signal_hold
{
public:
    /// Throws std::system_error.
    signal_hold();
    ~signal_hold();
    signal_hold(const signal_hold&) = delete;
    signal_hold& operator=(const signal_hold&) = delete;

private:
    sigset_t before_;
};

} // namespace v5
} // namespace ivra::hw

#endif
