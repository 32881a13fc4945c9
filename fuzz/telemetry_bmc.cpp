// The walk over all that a BMC says, with the fuzzer as the BMC. Everything but UART and time is a plain board of the
// virtual platform.

#include "board.h"
#include "telemetry/controllers.h"
#include "telemetry_reading.h"
#include "uart.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <set>

#include <sys/syscall.h>
#include <unistd.h>

using namespace ivra::bsp;

namespace {

timespec now{};

} // namespace

extern "C" {

// Nobody waits, and the steady clock tells what was slept. The fuzzer looks at another clock.
int nanosleep(const timespec* duration, timespec*)
{
    constexpr long second = 1'000'000'000;
    now.tv_nsec += duration->tv_nsec;
    now.tv_sec += duration->tv_sec + now.tv_nsec / second;
    now.tv_nsec %= second;
    return 0;
}

int clock_gettime(clockid_t clock, timespec* time)
{
    if (clock != CLOCK_MONOTONIC)
        return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    *time = now;
    return 0;
}

} // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const board_t rack{"bittware_xupp3r"};
    static board::board board{ivra::hw::enumerate_accelerators().at(0)};
    input = {data, size};
    waiting.clear();
    using telemetry::part_t;
    const telemetry::parts_t parts{part_t::identity, part_t::boot_image, part_t::sensors};
    const auto readings = telemetry::read_controller(board, parts, [] { return false; });
    std::set<std::uint16_t> records;
    for (const telemetry::reading_t& reading : readings.sensors) {
        check(reading);
        require(reading.record && records.insert(*reading.record).second);
    }
    require(readings.serial.value.has_value() == readings.serial.error.empty());
    require(readings.next_boot_image.value.has_value() == readings.next_boot_image.error.empty());
    require(readings.current_boot_image.value.has_value() == readings.current_boot_image.error.empty());
    return 0;
}
