#include "hw/sleep.h"

#include <cerrno>
#include <ctime>

namespace ivra::hw {
inline namespace v5 {

void sleep(std::chrono::nanoseconds duration)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
    timespec remaining{.tv_sec = seconds.count(), .tv_nsec = (duration - seconds).count()};
    while (::nanosleep(&remaining, &remaining) != 0 && errno == EINTR) {
    }
}

} // namespace v5
} // namespace ivra::hw
