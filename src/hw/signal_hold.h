#ifndef IVRA_HW_SIGNAL_HOLD_H
#define IVRA_HW_SIGNAL_HOLD_H

#include <csignal>
#include <initializer_list>

namespace ivra::hw {
inline namespace v5 {

/// Holds signals back from the calling thread for as long as it lives. One that came meanwhile takes effect at its end.
class blocked_signals
{
public:
    blocked_signals(const blocked_signals&) = delete;
    blocked_signals& operator=(const blocked_signals&) = delete;

protected:
    /// Throws std::system_error.
    explicit blocked_signals(std::initializer_list<int> signals);
    ~blocked_signals();

private:
    sigset_t before_;
};

/// Holds SIGINT, SIGTERM, SIGHUP and SIGQUIT back, so that none of them ends the process half-way through what has to
/// be whole. Wait for no lock and no user while one lives.
class signal_hold : blocked_signals
{
public:
    signal_hold() : blocked_signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT} {}
};

/// Holds SIGTSTP, SIGTTIN and SIGTTOU back, so that no terminal stops a process that others wait for.
class stop_hold : blocked_signals
{
public:
    stop_hold() : blocked_signals{SIGTSTP, SIGTTIN, SIGTTOU} {}
};

} // namespace v5
} // namespace ivra::hw

#endif
