#include "libraries/api.h"
#include "libraries/log_observer.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

/// Messages above this level are held back: IVRA_LOG_LEVEL, 0 to 3; anything else is as if it were not set.
int highest_level()
{
    const char* value = std::getenv("IVRA_LOG_LEVEL");
    const std::string_view text = value == nullptr ? "" : value;
    return text.size() == 1 && text[0] >= '0' && text[0] <= '3' ? text[0] - '0' : IVRA_LOG_DEBUG;
}

void write_to_standard_error(int, const char*, int, const char* function, const char* format, va_list args)
{
    ::flockfile(stderr);
    std::fputs(function == nullptr ? "?" : function, stderr);
    std::fputs(": ", stderr);
    std::vfprintf(stderr, format, args);
    std::fputc('\n', stderr);
    ::funlockfile(stderr);
}

std::atomic<ivra_log_handler> handler_in_use = &write_to_standard_error;
std::atomic<ivra::virtual_platform::log_observer> observer_in_use = nullptr;

} // namespace

void ivra::virtual_platform::observe_log(log_observer observer)
{
    observer_in_use = observer;
}

void ivra_log_set_handler(ivra_log_handler handler)
{
    handler_in_use = handler == nullptr ? &write_to_standard_error : handler;
}

void ivra_log_log(int level, const char* file, int line, const char* function, const char* format, ...)
{
    if (const auto observer = observer_in_use.load(); observer != nullptr)
        observer(level, file, line, function, format);
    static const int highest = highest_level();
    if (level > highest || format == nullptr)
        return;
    const int error = errno; // the message is often about it, and the caller not done with it
    va_list args;
    va_start(args, format);
    handler_in_use.load()(level, file, line, function, format, args);
    va_end(args);
    errno = error;
}
