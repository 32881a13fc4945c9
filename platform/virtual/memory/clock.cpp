#include "memory/clock.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <limits>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

// Constant-initialised: a clock can be read before the constructors of this library have run.
constinit std::atomic<bool> decided{false};
constinit std::atomic<std::int64_t*> ticks{nullptr}; // nanoseconds; mapped for as long as the process lives
constinit std::atomic<int> open_error{0};

/// Maps the file, which is made when there is none. Null with errno.
std::int64_t* map(const char* file) noexcept
{
    const int fd = ::open(file, O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
    if (fd < 0)
        return nullptr;
    struct stat status = {};
    void* memory = MAP_FAILED;
    constexpr auto size = static_cast<::off_t>(sizeof(std::int64_t));
    if (::fstat(fd, &status) == 0 && (status.st_size >= size || ::ftruncate(fd, size) == 0))
        memory = ::mmap(nullptr, sizeof(std::int64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    const int error = errno;
    ::close(fd);
    errno = error;
    return memory == MAP_FAILED ? nullptr : static_cast<std::int64_t*>(memory);
}

/// Opens the clock as soon as the variable names one. Until then there is none, whoever asks: an allocator can do that
/// in a forked child before the child has set the variable.
void decide() noexcept
{
    const char* const file = std::getenv("IVRA_VIRTUAL_CLOCK");
    if (file == nullptr || *file == '\0')
        return;
    const int saved_errno = errno;
    std::int64_t* const mapped = map(file);
    open_error = mapped == nullptr ? errno : 0;
    ticks = mapped;
    decided = true;
    errno = saved_errno;
}

/// The clock's value, or null.
std::int64_t* clock() noexcept
{
    if (!decided)
        decide();
    return ticks;
}

std::int64_t sum(std::int64_t a, std::int64_t b)
{
    std::int64_t result = 0;
    return __builtin_add_overflow(a, b, &result) ? std::numeric_limits<std::int64_t>::max() : result;
}

/// Moves the clock on to what `target` makes of its value.
template <class Target>
void move(Target target) noexcept
{
    const std::atomic_ref<std::int64_t> cell{*clock()};
    std::int64_t value = cell.load();
    while (!cell.compare_exchange_weak(value, target(value)))
        continue;
    ::sched_yield(); // as a sleep does: what the sleeper waits for may be another process's to do
}

} // namespace

bool stepped_clock::is_in_use() noexcept
{
    return clock() != nullptr;
}

int stepped_clock::error() noexcept
{
    clock();
    return open_error;
}

device_time stepped_clock::now() noexcept
{
    return device_time{std::atomic_ref<std::int64_t>{*clock()}.load()};
}

void stepped_clock::advance(device_time duration) noexcept
{
    move([&](std::int64_t value) { return sum(value, duration.count()); });
}

void stepped_clock::advance_to(device_time time) noexcept
{
    move([&](std::int64_t value) { return value < time.count() ? time.count() : value; });
}

device_time device_now() noexcept
{
    if (stepped_clock::is_in_use())
        return stepped_clock::now();
    ::timespec time = {};
    ::clock_gettime(CLOCK_BOOTTIME, &time);
    return std::chrono::seconds{time.tv_sec} + std::chrono::nanoseconds{time.tv_nsec};
}

} // namespace ivra::virtual_platform
