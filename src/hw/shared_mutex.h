#ifndef IVRA_HW_SHARED_MUTEX_H
#define IVRA_HW_SHARED_MUTEX_H

#include <ivra/hw.h>

#include <memory>
#include <string>
#include <system_error>

namespace ivra::hw {
inline namespace v5 {

/// A mutex that every process of this host shares by its name. The system releases it when its holder dies.
class shared_mutex
{
public:
    explicit shared_mutex(const std::string& name); ///< Throws std::system_error.

    /// Waits; says so on a terminal when that takes long. Throws std::system_error.
    void lock();
    std::error_code try_lock(); ///< EBUSY: held elsewhere; 0: locked.
    void unlock();              ///< Throws std::system_error.

private:
    std::shared_ptr<ivra_hw_shared_mutex> handle_;
};

} // namespace v5
} // namespace ivra::hw

#endif
