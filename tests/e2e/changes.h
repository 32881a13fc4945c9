#ifndef IVRA_TESTS_E2E_CHANGES_H
#define IVRA_TESTS_E2E_CHANGES_H

#include "support/rack.h"

#include <ivra/hw.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ivra::tests {

// For stories about commands that change a board.

/// One message of a BMC's line, which follows each of its answers.
inline const std::string remains = "recv_data: Data remains after end of IPMI transaction.\n";
/// What boards without an I2C controller log when they are opened.
inline const std::string no_i2c =
    "get_i2c: Could not create I2C subsystem: Failed to create i2c object.: No such device\n";

/// What ivra-virtual shows of the first board's field ("Clock"), each of its lines ending in '\n'.
std::string shown(const rack_t& rack, const std::string& field);

inline const std::string reset = "\033[0m";
inline const std::string red = "\033[31m";
inline const std::string green = "\033[32m";
inline constexpr streams_t terminals{.out = stream_t::terminal, .err = stream_t::terminal};

/// A platform call of a run.
struct traced_call_t
{
    std::string line; ///< without time, process and result
    std::string name;
    std::size_t nth; ///< of the calls of that name, from 1

    /// A rule of a fault plan: these members for this call.
    std::string fault(const std::string& members) const
    {
        return R"({"call": ")" + name + R"(", "nth": )" + std::to_string(nth) + ", " + members + "}";
    }
};

/// Every call of the last run, in order.
std::vector<traced_call_t> traced_calls(const rack_t& rack);

/// Of a load of a clock generator all calls but those among its 530 writes that are like their neighbours: of these the
/// first and last ones, each that selects a page, and one of `step`.
std::vector<std::size_t> chosen_of_a_load(const std::vector<traced_call_t>& calls, std::size_t step);

/// Expects a command to have failed: the outcome completes its line, and the reason stands on standard error. `before`
/// is what the log says before that line.
void expect_failure(const run_t& run, const std::string& before, const std::string& part, const std::string& text);

/// The output of a command that succeeded, or failed with this text, as JSON without data. `log` are the messages.
std::string json(bool succeeded, const std::string& text, const std::vector<std::string>& log);

/// A command that is killed.
struct victim_t
{
    std::function<void(rack_t&)> plug;
    std::string words;
    /// How the calls begin that change the board, without the space before them.
    std::vector<std::string> changes;
    /// Looks whether the board's state is the one after this many of the changes, and no other.
    std::function<void(rack_t&, std::size_t done)> check;
    /// Of the calls of a whole run those to be killed after. Nothing: all of them.
    std::function<std::vector<std::size_t>(const std::vector<traced_call_t>& calls)> choose = {};
};

/// Kills the command right after each of its platform calls, on a new board every time (what happens between two calls
/// happens in no board). Expects that it had made a beginning of the prescribed changes and nothing else, by the trace
/// and by the board's state, and that the same command then runs through: no lock stays, nothing is in its way.
void expect_killing_leaves_a_beginning(const victim_t& victim);

/// Whether a process holds SIGTERM back.
bool holds_signals(::pid_t process);

/// Runs a command by the real clock, and sends it a signal as soon as `is_time` for the process; expects that it comes
/// to that.
run_t run_and_signal(rack_t& rack, const std::string& words, int signal, const std::function<bool(::pid_t)>& is_time,
                     streams_t streams = {});

/// The platform's handles of the first board, for what a test does to it without the tool.
class first_board_t
{
public:
    first_board_t();
    ~first_board_t();
    first_board_t(const first_board_t&) = delete;
    first_board_t& operator=(const first_board_t&) = delete;

    ivra_hw_core* root() const { return ivra_hw_core_tree_get_root(tree_); }

private:
    const ivra_hw_accelerator_descriptor* descriptor_ = nullptr;
    ivra_hw_accelerator* accelerator_ = nullptr;
    const ivra_hw_mmio_descriptor* space_ = nullptr;
    ivra_hw_mmio* mmio_ = nullptr;
    ivra_hw_core_tree* tree_ = nullptr;
};

} // namespace ivra::tests

#endif
