#include "hw/shared_mutex.h"
#include "hw/waiting_notice.h"
#include "support/outcome.h"
#include "support/rack.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <iostream>
#include <string>
#include <system_error>

#include <sys/syscall.h>
#include <unistd.h>

namespace ivra::hw {
namespace {

using namespace std::chrono_literals;

const std::string text = "\nWaiting for another process that uses this board...\n";
constexpr tests::streams_t on_a_terminal{.out = tests::stream_t::file, .err = tests::stream_t::terminal};

TEST(waiting_notice, is_given_once_on_a_terminal)
{
    const tests::run_t run = tests::run_in_child(
        [] {
            const waiting_notice notice{1ms};
            while (!notice.was_given())
                ::usleep(1000);
            ::usleep(5000);
        },
        on_a_terminal);
    EXPECT_EQ(run.err, text);
    EXPECT_EQ(run.status, 0);
}

TEST(waiting_notice, is_given_nowhere_else)
{
    const tests::run_t run = tests::run_in_child([] {
        std::signal(SIGURG, [](int) { ::_exit(2); });
        const waiting_notice notice{1ms};
        ::usleep(20000);
        std::cout << notice.was_given();
    });
    EXPECT_EQ(run.out, "0");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(waiting_notice, is_given_to_nobody_where_there_is_no_timer)
{
    const tests::run_t run = tests::run_in_child(
        [] {
            tests::forbid({SYS_timer_create}, EAGAIN);
            static volatile std::sig_atomic_t heard = 0;
            std::signal(SIGURG, [](int) { heard = 1; });
            const waiting_notice notice{1ms};
            ::usleep(20000);
            std::cout << notice.was_given() << heard;
            std::raise(SIGURG);
            std::cout << notice.was_given() << heard;
        },
        on_a_terminal);
    EXPECT_EQ(run, tests::says("0001")) << "the signal is what it was";
}

TEST(waiting_notice, does_not_wait_for_a_terminal_whose_user_has_pressed_ctrl_s)
{
    const tests::run_t run = tests::run_in_child(
        [] {
            const waiting_notice notice{1ms};
            while (!notice.was_given())
                ::usleep(1000);
        },
        {.out = tests::stream_t::file, .err = tests::stream_t::held});
    EXPECT_EQ(run.status, 0);
}

TEST(waiting_notice, leaves_alarms_what_they_are)
{
    const tests::run_t run = tests::run_in_child(
        [] {
            const waiting_notice notice{1h};
            std::raise(SIGALRM);
        },
        on_a_terminal);
    EXPECT_EQ(run.status, 128 + SIGALRM);
    EXPECT_EQ(run.err, "");
}

TEST(waiting_notice, is_not_given_before_its_time)
{
    const tests::run_t run = tests::run_in_child(
        [] {
            const waiting_notice notice{1h};
            ::usleep(20000);
            std::cout << notice.was_given();
        },
        on_a_terminal);
    EXPECT_EQ(run.out, "0");
    EXPECT_EQ(run.err, "");
}

volatile std::sig_atomic_t urgent_signals = 0;

TEST(waiting_notice, leaves_nothing_behind)
{
    const tests::run_t run = tests::run_in_child(
        [] {
            std::signal(SIGURG, [](int) { urgent_signals = urgent_signals + 1; });
            sigset_t urgent;
            sigset_t after;
            ::sigemptyset(&urgent);
            ::sigaddset(&urgent, SIGURG);
            ::sigprocmask(SIG_BLOCK, &urgent, nullptr);
            {
                const waiting_notice notice{1ms};
                while (!notice.was_given())
                    ::usleep(1000);
            }
            ::sigprocmask(SIG_UNBLOCK, &urgent, &after);
            std::cout << "held as before: " << ::sigismember(&after, SIGURG) << '\n';
            {
                const waiting_notice notice{10ms};
            }
            ::usleep(30000); // its timer would have come now
            std::cout << "signals: " << urgent_signals;
            std::raise(SIGURG);
            std::cout << ", then " << urgent_signals;
        },
        on_a_terminal);
    EXPECT_EQ(run.out, "held as before: 1\nsignals: 0, then 1");
    EXPECT_EQ(run.err, text) << "in spite of the hold";
}

/// What comes of a lock, of which the first call fails with EINTR as these members of a fault say.
std::string locked_after(const std::string& members, tests::streams_t streams, std::string& err)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p")
        .faults(R"({"call": "ivra_hw_shared_mutex_lock", "nth": 1, "errno": "EINTR")" + members + "}");
    const tests::run_t run = rack.in_child(
        [] {
            std::cout << tests::said_by([] {
                shared_mutex m{"m"};
                m.lock();
                m.unlock();
                return "locked";
            });
        },
        streams);
    err = run.err;
    return run.out;
}

TEST(waiting_notice, that_interrupts_a_lock_does_not_fail_it)
{
    std::string err;
    EXPECT_EQ(locked_after(R"(, "signal": "SIGURG")", on_a_terminal, err), "locked");
    EXPECT_EQ(err, text);
}

TEST(waiting_notice, does_not_hide_another_interruption_of_a_lock)
{
    std::string err;
    EXPECT_EQ(locked_after("", on_a_terminal, err), "Interrupted system call");
    EXPECT_EQ(err, "");
    EXPECT_EQ(locked_after("", {}, err), "Interrupted system call");
}

} // namespace
} // namespace ivra::hw
