// The sleep and clock calls of libc. The loader finds the ones of this library first: a program's sleeps move the
// test's clock on when there is one. Without it each call is handed on to libc.
#include "memory/clock.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>

#include <dlfcn.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using namespace ivra::virtual_platform;

/// A function of libc, looked up when it is first needed, which can be before this library is initialised.
template <class Function>
class libc_function
{
public:
    constexpr explicit libc_function(const char* name) : name_{name} {}

    template <class... Arguments>
    auto operator()(Arguments... arguments)
    {
        return found()(arguments...);
    }

    Function* found()
    {
        Function* function = found_;
        if (function == nullptr) {
            function = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name_));
            found_ = function;
        }
        return function;
    }

private:
    const char* name_;
    std::atomic<Function*> found_{nullptr};
};

constinit libc_function<int(::clockid_t, ::timespec*)> libc_clock_gettime{"clock_gettime"};
constinit libc_function<int(::timeval*, void*)> libc_gettimeofday{"gettimeofday"};
constinit libc_function<std::time_t(std::time_t*)> libc_time{"time"};
constinit libc_function<int(const ::timespec*, ::timespec*)> libc_nanosleep{"nanosleep"};
constinit libc_function<int(::clockid_t, int, const ::timespec*, ::timespec*)> libc_clock_nanosleep{"clock_nanosleep"};
constinit libc_function<int(::useconds_t)> libc_usleep{"usleep"};
constinit libc_function<unsigned(unsigned)> libc_sleep{"sleep"};

/// Looked up early: a signal handler may read a clock, and the loader's lock is not for it.
[[gnu::constructor]] void find_all()
{
    libc_clock_gettime.found();
    libc_gettimeofday.found();
    libc_time.found();
    libc_nanosleep.found();
    libc_clock_nanosleep.found();
    libc_usleep.found();
    libc_sleep.found();
}

/// Whether a clock tells the time of day or of the host: the test's clock stands for all of these.
bool tells_time(::clockid_t clock)
{
    switch (clock) {
    case CLOCK_REALTIME:
    case CLOCK_REALTIME_ALARM:
    case CLOCK_REALTIME_COARSE:
    case CLOCK_TAI:
    case CLOCK_MONOTONIC:
    case CLOCK_MONOTONIC_COARSE:
    case CLOCK_MONOTONIC_RAW:
    case CLOCK_BOOTTIME:
    case CLOCK_BOOTTIME_ALARM:
        return true;
    default: // processor time
        return false;
    }
}

struct split_t
{
    std::time_t seconds;
    long nanoseconds; // 0 to 999999999
};

split_t test_time()
{
    const device_time now = stepped_clock::now();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    return {seconds.count(), (now - seconds).count()};
}

bool is_valid(const ::timespec& time)
{
    return time.tv_sec >= 0 && time.tv_nsec >= 0 && time.tv_nsec < 1'000'000'000;
}

/// What is longer than the clock can tell is as long as it can.
device_time duration_of(const ::timespec& time)
{
    constexpr std::int64_t longest = std::numeric_limits<std::int64_t>::max() / 1'000'000'000 - 1;
    if (time.tv_sec > longest)
        return device_time::max();
    return std::chrono::seconds{time.tv_sec} + std::chrono::nanoseconds{time.tv_nsec};
}

} // namespace

#define IVRA_VIRTUAL_EXPORTED extern "C" __attribute__((visibility("default")))

IVRA_VIRTUAL_EXPORTED int clock_gettime(::clockid_t clock, ::timespec* time) noexcept
{
    if (!tells_time(clock) || !stepped_clock::is_in_use())
        return libc_clock_gettime(clock, time);
    const split_t now = test_time();
    *time = {.tv_sec = now.seconds, .tv_nsec = now.nanoseconds};
    return 0;
}

IVRA_VIRTUAL_EXPORTED int gettimeofday(::timeval* time, void* zone) noexcept
{
    if (!stepped_clock::is_in_use())
        return libc_gettimeofday(time, zone);
    const split_t now = test_time();
    *time = {.tv_sec = now.seconds, .tv_usec = now.nanoseconds / 1000};
    return 0;
}

IVRA_VIRTUAL_EXPORTED std::time_t time(std::time_t* seconds) noexcept
{
    if (!stepped_clock::is_in_use())
        return libc_time(seconds);
    const std::time_t now = test_time().seconds;
    if (seconds != nullptr)
        *seconds = now;
    return now;
}

IVRA_VIRTUAL_EXPORTED int nanosleep(const ::timespec* duration, ::timespec* remaining)
{
    if (!stepped_clock::is_in_use())
        return libc_nanosleep(duration, remaining);
    if (!is_valid(*duration)) {
        errno = EINVAL;
        return -1;
    }
    stepped_clock::advance(duration_of(*duration));
    return 0;
}

IVRA_VIRTUAL_EXPORTED int clock_nanosleep(::clockid_t clock, int flags, const ::timespec* time, ::timespec* remaining)
{
    if (!tells_time(clock) || !stepped_clock::is_in_use())
        return libc_clock_nanosleep(clock, flags, time, remaining);
    if (!is_valid(*time))
        return EINVAL;
    if ((flags & TIMER_ABSTIME) != 0)
        stepped_clock::advance_to(duration_of(*time));
    else
        stepped_clock::advance(duration_of(*time));
    return 0;
}

IVRA_VIRTUAL_EXPORTED int usleep(::useconds_t microseconds)
{
    if (!stepped_clock::is_in_use())
        return libc_usleep(microseconds);
    stepped_clock::advance(std::chrono::microseconds{microseconds});
    return 0;
}

IVRA_VIRTUAL_EXPORTED unsigned sleep(unsigned seconds)
{
    if (!stepped_clock::is_in_use())
        return libc_sleep(seconds);
    stepped_clock::advance(std::chrono::seconds{seconds});
    return 0;
}
