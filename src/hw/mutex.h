#ifndef IVRA_HW_MUTEX_H
#define IVRA_HW_MUTEX_H

#include "hw/core.h"
#include "hw/shared_mutex.h"

#include <string>
#include <system_error>
#include <type_traits>

namespace ivra::bsp {

/// Lock that serialises the traffic of all processes of this host to one management controller of one board.
class mutex
{
public:
    /// `name` is the controller's, such as "bmc-alveo"; the board is the one that `core` belongs to.
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

/// Locks and runs `action`. The lock is still held afterwards, unless the action failed; its error wins over that of
/// the unlock.
template <class Action>
auto run_and_keep_locked(mutex& m, Action action)
{
    m.lock();
    try {
        return action();
    } catch (...) {
        try {
            m.unlock();
        } catch (const std::system_error&) {
            // The first error says more; the system releases the lock with the process.
        }
        throw;
    }
}

/// Runs `action` under the lock. An unlock that fails after success propagates.
template <class Action>
auto locked(mutex& m, Action action)
{
    if constexpr (std::is_void_v<std::invoke_result_t<Action>>) {
        run_and_keep_locked(m, action);
        m.unlock();
    } else {
        auto value = run_and_keep_locked(m, action);
        m.unlock();
        return value;
    }
}

} // namespace ivra::bsp

#endif
