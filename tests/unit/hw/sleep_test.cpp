#include "hw/sleep.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>

#include <sys/time.h>

namespace ivra::hw {
namespace {

volatile std::sig_atomic_t alarms = 0;

void count_signal(int)
{
    alarms = alarms + 1;
}

TEST(sleep, is_resumed_after_a_signal_for_the_time_that_remains)
{
    using namespace std::chrono_literals;
    struct sigaction action
    {
    };
    struct sigaction before
    {
    };
    action.sa_handler = &count_signal;
    ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
    const itimerval every_2_ms{.it_interval = {.tv_sec = 0, .tv_usec = 2000},
                               .it_value = {.tv_sec = 0, .tv_usec = 2000}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &every_2_ms, nullptr), 0);

    const auto begin = std::chrono::steady_clock::now();
    sleep(30ms);
    const auto slept = std::chrono::steady_clock::now() - begin;

    const itimerval never{};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
    ASSERT_EQ(::sigaction(SIGALRM, &before, nullptr), 0);
    EXPECT_GE(slept, 30ms);
    EXPECT_LT(slept, 10s) << "resumed, not begun anew";
    EXPECT_GT(alarms, 0);
}

} // namespace
} // namespace ivra::hw
