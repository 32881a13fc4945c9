#include "hw/signal_hold.h"

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <stdexcept>
#include <utility>

namespace ivra::hw {
namespace {

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
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1})
            std::signal(signal, &note);
    }
    ~signals() override
    {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1})
            std::signal(signal, SIG_DFL);
    }
};

TEST_F(signals, that_are_held_back_take_effect_at_the_end)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        came = 0;
        std::optional<signal_hold> hold{std::in_place};
        std::raise(signal);
        EXPECT_EQ(came, 0);
        hold.reset();
        EXPECT_EQ(came, signal);
    }
}

TEST_F(signals, of_other_kinds_take_effect_at_once)
{
    const signal_hold hold;
    std::raise(SIGUSR1);
    EXPECT_EQ(came, SIGUSR1);
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
