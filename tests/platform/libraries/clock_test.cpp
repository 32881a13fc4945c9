#include "story.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <limits>
#include <thread>

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

namespace ivra::platform_tests {

namespace {

using namespace std::chrono_literals;

/// A host whose processes go by the clock of this test.
class stepped_clock : public host
{
protected:
    stepped_clock() { ::setenv("IVRA_VIRTUAL_CLOCK", file().c_str(), 1); }

    std::filesystem::path file() const { return folder / "clock"; }

    void set(std::int64_t nanoseconds) const
    {
        std::ofstream{file(), std::ios::binary}.write(reinterpret_cast<const char*>(&nanoseconds), sizeof nanoseconds);
    }

    std::int64_t value() const
    {
        std::int64_t nanoseconds = -1;
        std::ifstream{file(), std::ios::binary}.read(reinterpret_cast<char*>(&nanoseconds), sizeof nanoseconds);
        return nanoseconds;
    }
};

std::int64_t nanoseconds(::clockid_t clock)
{
    ::timespec time = {};
    EXPECT_EQ(::clock_gettime(clock, &time), 0);
    return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

/// Runs a story that would take hours; the system's alarm, which goes by no clock of ours, kills the process if it
/// does.
void at_once(tests::function_ref<void()> story)
{
    ::alarm(10);
    story();
    ::alarm(0);
}

TEST_F(stepped_clock, moves_on_by_what_every_sleep_asks_for)
{
    run([] {
        at_once([] {
            const ::timespec hour{3600, 5};
            EXPECT_EQ(::nanosleep(&hour, nullptr), 0);
            EXPECT_EQ(::clock_nanosleep(CLOCK_MONOTONIC, 0, &hour, nullptr), 0);
            EXPECT_EQ(::usleep(7), 0);
            EXPECT_EQ(::sleep(100), 0U);
            std::this_thread::sleep_for(50s);
        });
        EXPECT_EQ(nanoseconds(CLOCK_MONOTONIC), 7'350'000'007'010);
    });
    EXPECT_EQ(value(), 7'350'000'007'010) << "the file shows it";
}

TEST_F(stepped_clock, stands_still_for_all_clocks_but_those_of_processor_time)
{
    set(1'700'000'000'123'456'789);
    run([] {
        for (const ::clockid_t clock : {CLOCK_REALTIME, CLOCK_MONOTONIC, CLOCK_BOOTTIME, CLOCK_TAI, CLOCK_MONOTONIC_RAW,
                                        CLOCK_MONOTONIC_COARSE, CLOCK_REALTIME_COARSE})
            EXPECT_EQ(nanoseconds(clock), 1'700'000'000'123'456'789) << clock;
        EXPECT_LT(nanoseconds(CLOCK_PROCESS_CPUTIME_ID), 1'000'000'000'000);
        EXPECT_EQ(std::chrono::steady_clock::now().time_since_epoch(), 1'700'000'000'123'456'789ns);
        EXPECT_EQ(std::chrono::system_clock::now().time_since_epoch(), 1'700'000'000'123'456'789ns);
        ::timeval time = {};
        EXPECT_EQ(::gettimeofday(&time, nullptr), 0);
        EXPECT_EQ(time.tv_sec, 1'700'000'000);
        EXPECT_EQ(time.tv_usec, 123'456);
        std::time_t seconds = 0;
        EXPECT_EQ(std::time(&seconds), 1'700'000'000);
        EXPECT_EQ(seconds, 1'700'000'000);
        EXPECT_EQ(std::time(nullptr), 1'700'000'000);
    });
    EXPECT_EQ(value(), 1'700'000'000'123'456'789);
}

TEST_F(stepped_clock, a_sleep_until_a_time_moves_it_there_and_never_back)
{
    set(5'000'000'000);
    run([] {
        const ::timespec later{7, 500};
        EXPECT_EQ(::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &later, nullptr), 0);
        EXPECT_EQ(nanoseconds(CLOCK_MONOTONIC), 7'000'000'500);
        const ::timespec earlier{6, 0};
        EXPECT_EQ(::clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &earlier, nullptr), 0);
        EXPECT_EQ(nanoseconds(CLOCK_MONOTONIC), 7'000'000'500);
    });
}

TEST_F(stepped_clock, what_is_no_time_is_refused_as_libc_does)
{
    run([] {
        for (const ::timespec& bad : {::timespec{0, -1}, ::timespec{0, 1'000'000'000}, ::timespec{-1, 0}}) {
            EXPECT_FAILS(-1, EINVAL, ::nanosleep(&bad, nullptr));
            errno = 99;
            EXPECT_EQ(::clock_nanosleep(CLOCK_MONOTONIC, 0, &bad, nullptr), EINVAL);
            EXPECT_EQ(errno, 99) << "the result is the error";
        }
        const ::timespec zero{0, 0};
        EXPECT_EQ(::clock_nanosleep(12345, 0, &zero, nullptr), EINVAL);
        ::timespec time = {};
        EXPECT_FAILS(-1, EINVAL, ::clock_gettime(12345, &time));
    });
    EXPECT_EQ(value(), 0);
}

TEST_F(stepped_clock, ends_at_its_largest_value_and_does_not_turn_over)
{
    run([] {
        const ::timespec eternity{std::numeric_limits<std::time_t>::max(), 999'999'999};
        EXPECT_EQ(::nanosleep(&eternity, nullptr), 0);
        EXPECT_EQ(::nanosleep(&eternity, nullptr), 0);
        EXPECT_EQ(nanoseconds(CLOCK_MONOTONIC), std::numeric_limits<std::int64_t>::max());
    });
}

TEST_F(stepped_clock, is_shared_by_processes_and_what_they_sleep_adds_up)
{
    std::vector<::pid_t> processes;
    for (int n = 0; n < 8; ++n)
        processes.push_back(start([] {
            for (int sleeps = 0; sleeps < 1000; ++sleeps)
                std::this_thread::sleep_for(1us);
        }));
    for (const ::pid_t process : processes)
        EXPECT_EQ(end_of(process).status, 0);
    EXPECT_EQ(value(), 8'000'000);
    run([] {
        const ::pid_t child = start([] { std::this_thread::sleep_for(1s); });
        EXPECT_EQ(end_of(child).status, 0);
        EXPECT_EQ(nanoseconds(CLOCK_MONOTONIC), 1'008'000'000) << "also of a child whose parent uses it already";
    });
}

TEST_F(stepped_clock, the_delay_of_a_fault_plan_moves_it_on)
{
    plan(R"([{"call": "ivra_hw_count_accelerators", "delay": "20 s"}])");
    run([] { at_once([] { EXPECT_EQ(ivra_hw_count_accelerators(), 1U); }); });
    EXPECT_EQ(value(), 20'000'000'000);
}

TEST_F(stepped_clock, reading_it_leaves_no_descriptor_open)
{
    run([] {
        const int before = ::dup(0);
        ::close(before);
        EXPECT_EQ(nanoseconds(CLOCK_MONOTONIC), 0);
        const int after = ::dup(0);
        ::close(after);
        EXPECT_EQ(after, before);
    });
}

TEST_F(stepped_clock, that_cannot_be_used_is_said_in_the_log_and_time_passes_by_itself)
{
    ::setenv("IVRA_VIRTUAL_CLOCK", folder.c_str(), 1);
    run([&] {
        const log_t log;
        errno = 99;
        EXPECT_GT(nanoseconds(CLOCK_REALTIME), 1'000'000'000'000'000'000) << "it is later than 2001";
        EXPECT_EQ(errno, 99);
        EXPECT_EQ(ivra_hw_count_accelerators(), 1U);
        EXPECT_THAT(log.lines(), ::testing::ElementsAre("0 ivra_virtual_clock: Cannot use " + folder.string() +
                                                        " as a clock: Is a directory"));
    });
}

class real_time : public host
{
};

TEST_F(real_time, passes_without_a_clock_of_a_test)
{
    run([] {
        const std::int64_t before = nanoseconds(CLOCK_MONOTONIC);
        const ::timespec a_little{0, 20'000'000};
        EXPECT_EQ(::nanosleep(&a_little, nullptr), 0);
        EXPECT_EQ(::clock_nanosleep(CLOCK_MONOTONIC, 0, &a_little, nullptr), 0);
        EXPECT_EQ(::usleep(20'000), 0);
        EXPECT_EQ(::sleep(0), 0U);
        EXPECT_GE(nanoseconds(CLOCK_MONOTONIC), before + 60'000'000);
        EXPECT_GT(nanoseconds(CLOCK_REALTIME), 1'000'000'000'000'000'000);
        ::timeval time = {};
        EXPECT_EQ(::gettimeofday(&time, nullptr), 0);
        EXPECT_LE(std::abs(std::time(nullptr) - time.tv_sec), 1);
    });
    EXPECT_FALSE(std::filesystem::exists(folder / "clock"));
}

TEST_F(real_time, a_signal_interrupts_a_sleep_which_says_what_remains)
{
    run([] {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        ::sigaction(SIGALRM, &action, nullptr);
        const ::itimerval soon{{0, 0}, {0, 50'000}};
        const ::timespec minute{60, 0};
        ::timespec remaining{};
        ::setitimer(ITIMER_REAL, &soon, nullptr);
        EXPECT_FAILS(-1, EINTR, ::nanosleep(&minute, &remaining));
        EXPECT_EQ(remaining.tv_sec, 59);
        remaining = {};
        ::setitimer(ITIMER_REAL, &soon, nullptr);
        EXPECT_EQ(::clock_nanosleep(CLOCK_MONOTONIC, 0, &minute, &remaining), EINTR);
        EXPECT_EQ(remaining.tv_sec, 59);
        ::setitimer(ITIMER_REAL, &soon, nullptr);
        EXPECT_GE(::sleep(60), 59U);
        const ::timespec bad{0, -1};
        EXPECT_FAILS(-1, EINVAL, ::nanosleep(&bad, nullptr));
    });
}

} // namespace

} // namespace ivra::platform_tests
