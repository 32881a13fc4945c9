#ifndef IVRA_HW_SLEEP_H
#define IVRA_HW_SLEEP_H

#include <chrono>

namespace ivra::hw {
inline namespace v5 {

/// Sleeps at least this long: a sleep that a signal interrupts is resumed for the time that remains.
void sleep(std::chrono::nanoseconds duration);

} // namespace v5
} // namespace ivra::hw

#endif
