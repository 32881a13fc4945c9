#ifndef IVRA_HW_OWN_H
#define IVRA_HW_OWN_H

#include "hw/result.h"

#include <memory>
#include <system_error>

namespace ivra::hw {
inline namespace v5 {

/// Owns what a platform call returned; null means that it failed, with errno set. Throws std::system_error.
template <class T, class Release>
std::shared_ptr<T> own(T* handle, Release release)
{
    if (handle == nullptr)
        throw std::system_error{last_error()};
    return {handle, release};
}

/// The same, with a sentence that says what failed. It is a plain text, so that nothing runs between the failed call
/// and the reading of errno.
template <class T, class Release>
std::shared_ptr<T> own(T* handle, Release release, const char* failure)
{
    if (handle == nullptr)
        throw std::system_error{last_error(), failure};
    return {handle, release};
}

} // namespace v5
} // namespace ivra::hw

#endif
