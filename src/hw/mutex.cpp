#include "hw/mutex.h"

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ivra::bsp {

mutex::mutex(const std::string& name, const hw::core& core)
    : handle_{"ivra-bsp-" + name + "-" + core.mmio().properties().uid().access_value_or_throw("Error getting MMIO UID")}
{
}

void mutex::lock()
{
    if (!fail_when_busy_) {
        handle_.lock();
        return;
    }
    const std::error_code error = handle_.try_lock();
    if (error == std::errc::device_or_resource_busy)
        throw std::runtime_error{message_};
    if (error)
        throw std::system_error{error};
}

void mutex::unlock()
{
    handle_.unlock();
}

void mutex::fail_when_busy(std::string message)
{
    fail_when_busy_ = true;
    message_ = std::move(message);
}

namespace {

lock_watcher_t watcher{.held = []() noexcept {}, .released = []() noexcept {}};

} // namespace

void watch_locks(const lock_watcher_t& w)
{
    watcher = w;
}

held_lock::tells_release::~tells_release()
{
    watcher.released();
}

held_lock::held_lock(mutex& m) : mutex_{m}
{
    mutex_.lock();
    watcher.held();
}

held_lock::~held_lock()
{
    if (!is_locked_)
        return;
    try {
        mutex_.unlock();
    } catch (const std::exception&) {
        // What went wrong before says more; the system releases the lock with the process.
    }
}

void held_lock::unlock()
{
    is_locked_ = false;
    mutex_.unlock();
}

} // namespace ivra::bsp
