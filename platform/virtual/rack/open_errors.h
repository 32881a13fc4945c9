#ifndef IVRA_VIRTUAL_OPEN_ERRORS_H
#define IVRA_VIRTUAL_OPEN_ERRORS_H

#include <cerrno>
#include <string_view>

namespace ivra::virtual_platform {

/// An error with which a rack can make the opening of an accelerator fail. The schema lists the same names.
struct open_error_t
{
    std::string_view name;
    int number;
};

inline constexpr open_error_t open_errors[] = {
    {"EACCES", EACCES}, {"EBUSY", EBUSY},   {"EINTR", EINTR},   {"EINVAL", EINVAL},
    {"EIO", EIO},       {"EMFILE", EMFILE}, {"ENODEV", ENODEV}, {"ENOENT", ENOENT},
    {"ENOMEM", ENOMEM}, {"ENXIO", ENXIO},   {"EPERM", EPERM},   {"ETIMEDOUT", ETIMEDOUT},
};

} // namespace ivra::virtual_platform

#endif
