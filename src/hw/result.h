#ifndef IVRA_HW_RESULT_H
#define IVRA_HW_RESULT_H

#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

namespace ivra::hw {
inline namespace v5 {

/// What errno says of the platform call that failed just now: EIO of one that does not say why, for a failure is never
/// a success.
inline std::error_code last_error()
{
    return {errno != 0 ? errno : EIO, std::generic_category()};
}

/// What a platform query gave: a value, or the error code of its failure. A successful one carries error value 0 of the
/// system category.
template <class T>
class result
{
public:
    result(T value) : value_{std::move(value)} {}
    result(std::error_code error) : error_{error} {}

    bool has_value() const { return value_.has_value(); }
    std::error_code error() const { return error_; }

    /// Throws std::bad_optional_access when there is none.
    T& value() { return value_.value(); }
    const T& value() const { return value_.value(); }

    /// The value, or the error as a std::system_error.
    T& access_value_or_throw()
    {
        if (!value_)
            throw std::system_error{error_};
        return *value_;
    }

    /// The same; the error's text begins with `failure`.
    T& access_value_or_throw(const char* failure)
    {
        if (!value_)
            throw std::system_error{error_, failure};
        return *value_;
    }

private:
    std::error_code error_;
    std::optional<T> value_;
};

} // namespace v5
} // namespace ivra::hw

#endif
