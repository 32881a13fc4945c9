#include "hw/mutex.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <stdexcept>

namespace ivra::bsp {
namespace {

using tests::printed;
using tests::root_core;

tests::rack_t& plugged(tests::rack_t& rack)
{
    return rack.plug("m48l_xcvu7p");
}

TEST(board_mutex, is_named_after_the_controller_and_the_mmio_space)
{
    tests::rack_t rack;
    plugged(rack);
    printed(rack, [] {
        std::cout << root_core().mmio().properties().uid().value();
        mutex{"bmc-alveo", root_core()};
    });
    const std::string uid = printed(rack, [] { std::cout << root_core().mmio().properties().uid().value(); });
    printed(rack, [] { mutex{"bmc-alveo", root_core()}; });
    EXPECT_NE(rack.trace().find("ivra_hw_shared_mutex_create(\"ivra-bsp-bmc-alveo-" + uid + "\")"), std::string::npos)
        << rack.trace();
}

TEST(board_mutex, cannot_be_made_without_the_uid_or_the_platforms_mutex)
{
    tests::rack_t rack;
    plugged(rack).faults(R"({"call": "ivra_hw_prop_get_uid", "errno": "EIO"})");
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex{"bmc-alveo", root_core()};
                      }),
              "system error: Error getting MMIO UID: Input/output error");
    rack.faults(R"({"call": "ivra_hw_shared_mutex_create", "errno": "EACCES"})");
    EXPECT_EQ(printed(rack, [] { mutex{"bmc-alveo", root_core()}; }), "system error: Permission denied");
}

TEST(board_mutex, that_cannot_be_locked_or_unlocked_is_a_system_error)
{
    tests::rack_t rack;
    plugged(rack).faults(R"({"call": "ivra_hw_shared_mutex_lock", "errno": "EIO"})");
    EXPECT_EQ(printed(rack, [] { mutex{"bmc-alveo", root_core()}.lock(); }), "system error: Input/output error");
    rack.faults(R"({"call": "ivra_hw_shared_mutex_unlock", "errno": "EIO"})");
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex m{"bmc-alveo", root_core()};
                          m.lock();
                          m.unlock();
                      }),
              "system error: Input/output error");
}

/// Runs `body` while another process holds the lock.
void while_held_elsewhere(tests::function_ref<void()> body)
{
    int ready[2];
    int done[2];
    if (::pipe(ready) != 0 || ::pipe(done) != 0)
        throw std::runtime_error{"pipe"};
    const pid_t holder = ::fork();
    char byte = 0;
    if (holder == 0) {
        ::close(done[1]);
        mutex m{"bmc-alveo", root_core()};
        m.lock();
        if (::write(ready[1], &byte, 1) == 1 && ::read(done[0], &byte, 1) == 0)
            ::_exit(0);
        ::_exit(1);
    }
    ::close(done[0]);
    if (::read(ready[0], &byte, 1) != 1)
        throw std::runtime_error{"the holder did not lock"};
    body();
    ::close(done[1]);
    ::waitpid(holder, nullptr, 0);
}

TEST(board_mutex, fails_with_its_message_instead_of_waiting_when_told_to)
{
    tests::rack_t rack;
    plugged(rack);
    EXPECT_EQ(printed(rack,
                      [] {
                          while_held_elsewhere([] {
                              mutex m{"bmc-alveo", root_core()};
                              m.fail_when_busy("The board is busy");
                              try {
                                  m.lock();
                              } catch (const std::system_error&) {
                                  std::cout << "wrong kind of error";
                              } catch (const std::runtime_error& error) {
                                  std::cout << error.what() << '\n';
                              }
                              mutex other{"bmc-bittware", root_core()};
                              other.fail_when_busy("The board is busy");
                              other.lock();
                              std::cout << "another controller's is free\n";
                          });
                          mutex m{"bmc-alveo", root_core()};
                          m.fail_when_busy("The board is busy");
                          m.lock();
                          std::cout << "free again\n";
                      }),
              "The board is busy\nanother controller's is free\nfree again\n");
}

TEST(board_mutex, told_to_fail_reports_other_failures_as_system_errors)
{
    tests::rack_t rack;
    plugged(rack).faults(R"({"call": "ivra_hw_shared_mutex_trylock", "errno": "EIO"})");
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex m{"bmc-alveo", root_core()};
                          m.fail_when_busy("The board is busy");
                          m.lock();
                      }),
              "system error: Input/output error");
}

TEST(locked, runs_the_action_and_gives_its_value)
{
    tests::rack_t rack;
    plugged(rack);
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex m{"bmc-alveo", root_core()};
                          std::cout << locked(m, [] { return std::string{"value"}; });
                          locked(m, [] { std::cout << " nothing"; });
                          m.fail_when_busy("still held");
                          m.lock();
                      }),
              "value nothing");
}

TEST(locked, unlocks_when_the_action_fails)
{
    tests::rack_t rack;
    plugged(rack);
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex m{"bmc-alveo", root_core()};
                          try {
                              locked(m, [] { throw std::runtime_error{"the action's"}; });
                          } catch (const std::runtime_error& error) {
                              std::cout << error.what();
                          }
                          m.fail_when_busy("still held");
                          m.lock();
                      }),
              "the action's");
}

TEST(locked, an_unlock_that_fails_after_success_propagates)
{
    tests::rack_t rack;
    plugged(rack).faults(R"({"call": "ivra_hw_shared_mutex_unlock", "errno": "EIO"})");
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex m{"bmc-alveo", root_core()};
                          locked(m, [] { return 1; });
                      }),
              "system error: Input/output error");
}

TEST(locked, the_actions_error_wins_over_a_failing_unlock)
{
    tests::rack_t rack;
    plugged(rack).faults(R"({"call": "ivra_hw_shared_mutex_unlock", "errno": "EIO"})");
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex m{"bmc-alveo", root_core()};
                          locked(m, []() -> int { throw std::runtime_error{"the action's"}; });
                      }),
              "error: the action's");
}

volatile std::sig_atomic_t came = 0;

/// Raises a signal; what it does, it notes only. Returns whether it has taken effect.
bool takes_effect(int signal)
{
    came = 0;
    std::signal(signal, [](int number) { came = number; });
    std::raise(signal);
    return came == signal;
}

TEST(locked, is_stopped_by_no_terminal_until_the_lock_is_free_but_ended_at_any_time)
{
    tests::rack_t rack;
    plugged(rack);
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex m{"i2c", root_core()};
                          locked(m, [] {
                              std::cout << takes_effect(SIGINT) << takes_effect(SIGTSTP) << takes_effect(SIGTTOU);
                              came = 0;
                          });
                          std::cout << (came == SIGTSTP || came == SIGTTOU) << takes_effect(SIGTSTP);
                      }),
              "10011");
}

TEST(locked_whole, holds_back_what_ends_the_process_as_long_as_the_lock)
{
    tests::rack_t rack;
    plugged(rack);
    EXPECT_EQ(printed(rack,
                      [] {
                          mutex m{"i2c", root_core()};
                          std::cout << locked_whole(m, [] { return takes_effect(SIGINT) ? "lost " : "held "; });
                          std::cout << (came == SIGINT ? "came " : "lost ");
                          try {
                              locked_whole(m, [] {
                                  takes_effect(SIGQUIT);
                                  throw std::runtime_error{"the action's"};
                              });
                          } catch (const std::runtime_error& error) {
                              std::cout << error.what() << (came == SIGQUIT ? " came" : " lost");
                          }
                      }),
              "held came the action's came");
}

TEST(locked_whole, dies_of_a_signal_that_came_before_the_lock_without_having_begun)
{
    tests::rack_t rack;
    plugged(rack).faults(R"({"call": "ivra_hw_shared_mutex_lock", "signal": "SIGTERM"})");
    const tests::run_t run = rack.in_child([] {
        mutex m{"i2c", root_core()};
        locked_whole(m, [] { std::cout << "begun" << std::flush; });
    });
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.status, 128 + SIGTERM);
}

TEST(locked_whole, dies_of_a_signal_that_came_meanwhile_when_the_lock_is_free)
{
    tests::rack_t rack;
    plugged(rack);
    const tests::run_t run = rack.in_child([] {
        mutex m{"i2c", root_core()};
        locked_whole(m, [] { std::raise(SIGHUP); });
        std::cout << "alive" << std::flush;
    });
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.status, 128 + SIGHUP);
    EXPECT_EQ(tests::calls(rack, "ivra_hw_shared_mutex_unlock"), 1U);
}

} // namespace
} // namespace ivra::bsp
