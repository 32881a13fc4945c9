#include "hw/shared_mutex.h"

#include "hw/own.h"
#include "hw/result.h"

namespace ivra::hw {
inline namespace v5 {

shared_mutex::shared_mutex(const std::string& name)
    : handle_{own(ivra_hw_shared_mutex_create(name.c_str()), &ivra_hw_shared_mutex_destroy)}
{
}

void shared_mutex::lock()
{
    if (ivra_hw_shared_mutex_lock(handle_.get()) < 0)
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
