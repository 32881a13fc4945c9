#ifndef IVRA_VIRTUAL_CLOCK_H
#define IVRA_VIRTUAL_CLOCK_H

#include <chrono>

namespace ivra::virtual_platform {

/// Time of devices: since this host was started, or since the start of the test's clock. It means the same in every
/// process.
using device_time = std::chrono::nanoseconds;

device_time device_now() noexcept;

/// The clock of a test: a file of 8 bytes, shared by processes, with nanoseconds as a signed number in this machine's
/// byte order. It stands still but for what is slept. These functions can be called at any time, also before the
/// library is initialised, and leave errno alone.
namespace stepped_clock {

/// Whether IVRA_VIRTUAL_CLOCK names one that can be used. The first one that it names is kept.
bool is_in_use() noexcept;
/// errno with which the file that IVRA_VIRTUAL_CLOCK names could not be used; 0 when all is well.
int error() noexcept;

/// The rest is for a clock that is in use.
device_time now() noexcept;
/// Moves the clock on by this much.
void advance(device_time duration) noexcept;
/// Moves the clock on to this time, never back.
void advance_to(device_time time) noexcept;

} // namespace stepped_clock

} // namespace ivra::virtual_platform

#endif
