#ifndef IVRA_HW_MUTEX_H
#define IVRA_HW_MUTEX_H

#include "hw/core.h"
#include "hw/shared_mutex.h"
#include "hw/signal_hold.h"

#include <optional>
#include <string>
#include <type_traits>

namespace ivra::bsp {

/// Lock that serialises what all processes of this host do with one controller of one board. Take it by held_lock or by
/// locked() and locked_whole().
class mutex
{
public:
    /// `name` is the controller's, such as "bmc-alveo" or "i2c"; the board is the one that `core` belongs to.
    /// Throws std::system_error.
    mutex(const std::string& name, const hw::core& core);

    /// Waits for the lock, unless it was told to fail. Throws std::system_error, or std::runtime_error with the message
    /// given to fail_when_busy() when another process holds it.
    void lock();
    void unlock(); ///< Throws std::system_error.

    /// From now on lock() fails with this message instead of waiting.
    void fail_when_busy(std::string message);

private:
    hw::shared_mutex handle_;
    bool fail_when_busy_ = false;
    std::string message_;
};

/// What is called when this process has got a lock, and when it has released one (or was not given it) and holds no
/// signal back any more: for what must wait until no lock is held.
struct lock_watcher_t
{
    void (*held)() noexcept;
    void (*released)() noexcept;
};
void watch_locks(const lock_watcher_t& watcher);

/// A lock that is held for as long as this lives, or until unlock(). Nobody is stopped with it: Ctrl-Z waits from
/// before the lock is asked for until it is free again. What ends the process works also while it waits for the lock.
class held_lock
{
public:
    /// Waits. Throws as mutex::lock().
    explicit held_lock(mutex& m);
    ~held_lock();
    held_lock(const held_lock&) = delete;
    held_lock& operator=(const held_lock&) = delete;

    /// From now on until the lock is free, nothing that a terminal or a shell sends ends the process either: for what
    /// must not be left half-way. Throws std::system_error.
    void hold_signals() { hold_.emplace(); }

    void unlock(); ///< Once. Throws std::system_error.

private:
    struct tells_release
    {
        ~tells_release();
    };

    tells_release tells_release_; // when all others are gone
    hw::stop_hold no_stop_;
    mutex& mutex_;
    bool is_locked_ = true;
    std::optional<hw::signal_hold> hold_;
};

namespace mutex_p {

template <class Action>
auto run_and_unlock(held_lock& lock, Action action)
{
    if constexpr (std::is_void_v<std::invoke_result_t<Action>>) {
        action();
        lock.unlock();
    } else {
        auto value = action();
        lock.unlock();
        return value;
    }
}

} // namespace mutex_p

/// Runs `action` under the lock. Its error wins over that of the unlock; an unlock that fails after success propagates.
template <class Action>
auto locked(mutex& m, Action action)
{
    held_lock lock{m};
    return mutex_p::run_and_unlock(lock, action);
}

/// The same for an action that must not be left half-way: signals take effect when the lock is free again.
template <class Action>
auto locked_whole(mutex& m, Action action)
{
    held_lock lock{m};
    lock.hold_signals();
    return mutex_p::run_and_unlock(lock, action);
}

} // namespace ivra::bsp

#endif
