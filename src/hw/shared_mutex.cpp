#include "hw/shared_mutex.h"

#include "hw/own.h"
#include "hw/result.h"
#include "hw/waiting_notice.h"

#include <cerrno>
#include <chrono>

namespace ivra::hw {
inline namespace v5 {

namespace {

using namespace std::chrono_literals;

/// Longer than what is done under a lock takes, but for a controller that does not come up.
constexpr auto wait_without_a_word = 2s;

} // namespace

shared_mutex::shared_mutex(const std::string& name)
    : handle_{own(ivra_hw_shared_mutex_create(name.c_str()), &ivra_hw_shared_mutex_destroy)}
{
}

void shared_mutex::lock()
{
    const waiting_notice notice{wait_without_a_word};
    errno = 0; // the notice may have left something
    int result = ivra_hw_shared_mutex_lock(handle_.get());
    if (result < 0 && errno == EINTR && notice.was_given()) // it was the notice that interrupted the call
        result = ivra_hw_shared_mutex_lock(handle_.get());
    if (result < 0)
        throw std::system_error{last_error()};
}

std::error_code shared_mutex::try_lock()
{
    if (ivra_hw_shared_mutex_trylock(handle_.get()) < 0)
        return last_error();
    return {};
}

void shared_mutex::unlock()
{
    if (ivra_hw_shared_mutex_unlock(handle_.get()) < 0)
        throw std::system_error{last_error()};
}

} // namespace v5
} // namespace ivra::hw
