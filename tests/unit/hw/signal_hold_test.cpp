#include "hw/signal_hold.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <utility>

namespace ivra::hw {
namespace {

constexpr int ending[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr int stopping[] = {SIGTSTP, SIGTTIN, SIGTTOU};
constexpr int all[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGTTIN, SIGTTOU, SIGUSR1};

volatile std::sig_atomic_t came = 0;

void note(int signal)
{
    came = signal;
}

/// A test whose signals are noted only.
class signals : public testing::Test
{
protected:
    signals()
    {
        came = 0;
        for (const int signal : all)
            std::signal(signal, &note);
    }
    ~signals() override
    {
        for (const int signal : all)
            std::signal(signal, SIG_DFL);
    }
};

template <class Hold, class Signals>
void expect_held_back(const Signals& held)
{
    for (const int signal : all) {
        const bool is_held = std::ranges::find(held, signal) != std::end(held);
        came = 0;
        std::optional<Hold> hold{std::in_place};
        std::raise(signal);
        EXPECT_EQ(came, is_held ? 0 : signal);
        hold.reset();
        EXPECT_EQ(came, signal);
    }
}

TEST_F(signals, that_end_a_process_take_effect_at_the_end_of_their_hold_and_no_others)
{
    expect_held_back<signal_hold>(ending);
}

TEST_F(signals, with_which_terminals_stop_a_process_take_effect_at_the_end_of_their_hold_and_no_others)
{
    expect_held_back<stop_hold>(stopping);
}

TEST_F(signals, are_held_back_until_the_outermost_end)
{
    std::optional<signal_hold> outer{std::in_place};
    {
        const signal_hold inner;
        std::raise(SIGTERM);
    }
    EXPECT_EQ(came, 0);
    outer.reset();
    EXPECT_EQ(came, SIGTERM);
}

TEST_F(signals, take_effect_when_what_held_them_back_fails)
{
    try {
        const signal_hold hold;
        std::raise(SIGINT);
        EXPECT_EQ(came, 0);
        throw std::runtime_error{"failed"};
    } catch (const std::runtime_error&) {
        EXPECT_EQ(came, SIGINT);
    }
}

} // namespace
} // namespace ivra::hw
