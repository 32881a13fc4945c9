#ifndef IVRA_TESTS_SWEEP_CASES_H
#define IVRA_TESTS_SWEEP_CASES_H

#include "support/process.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ivra::tests {

/// A board, and what an operator types.
struct story_t
{
    std::string model;
    std::string words; ///< the first one is "board" or "readings"

    bool is_json() const { return words.find("--json") != std::string::npos; }
    bool is_readings() const { return words.starts_with("readings "); }
    bool is_help() const { return words.ends_with("--help"); }
    /// Whether it is to change the board.
    bool is_change() const { return words.find(" set") != std::string::npos && !is_help(); }
};

/// Every canonical command line on every model.
std::vector<story_t> make_stories();

/// What went on in a run.
struct record_t
{
    run_t run;
    std::vector<std::string> trace;   ///< lines without time and process
    std::vector<std::size_t> process; ///< of each of these lines: 0 is the first one that made a call
    std::chrono::nanoseconds time{};  ///< that passed by the clock of the boards
    std::vector<std::pair<std::uint64_t, std::uint8_t>> flash; ///< programmed bytes in address order: where, and what
    std::string board; ///< what the board remembers of what can be set, where that was asked for

    bool is_killed() const { return run.status == 128 + 9; }
    /// How many lines of the trace begin so and have this in them.
    std::size_t count(std::string_view beginning, std::string_view piece = "") const;
};

/// Plays stories, each on a new board, in a folder of its own that goes with it. A run is a fork: nobody who makes one
/// calls the platform.
class stage
{
public:
    stage();
    ~stage();
    stage(const stage&) = delete;
    stage& operator=(const stage&) = delete;

    /// `rule` is one of a fault plan; empty: nothing goes wrong.
    record_t play(const story_t& story, const std::string& rule);

private:
    std::vector<std::string> environment(const std::string& rule) const;

    std::filesystem::path folder_;
};

/// For each platform call of a run that can fail: rules by which it fails, moves less than it should, is slow, and is
/// the last one of its process. On one model of each family it fails with every error that the platform's headers name.
std::vector<std::string> make_rules(const story_t& story, const record_t& whole);

} // namespace ivra::tests

#endif
