#ifndef IVRA_READINGS_WORKERS_H
#define IVRA_READINGS_WORKERS_H

#include "telemetry/board_readings.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace ivra::bsp::readings {

inline constexpr std::size_t most_jobs = 64;

struct reading_options_t
{
    telemetry::parts_t parts;
    std::size_t jobs = 1;                 ///< 1 to most_jobs
    std::chrono::milliseconds timeout{0}; ///< of a board; 0: none
    std::string limits;                   ///< the text of a limits file without mistakes; empty: none
};

struct listeners_t
{
    /// A board has been read, or has failed: which of the boards, and its document.
    std::function<void(std::size_t board, const std::string& document)> board;
    /// The platform's log said something while a board was read.
    std::function<void(std::size_t board, const std::string& text)> log;
    /// Called at least ten times a second; `waiting` are the boards that are being read, the longest first.
    std::function<void(std::size_t done, std::size_t waiting, std::chrono::milliseconds time)> progress;
};

/// Reads boards side by side, by `jobs` processes. A board that takes longer than the timeout fails; who reads it is
/// left to end by itself. So does one that crashes what reads it. From the call on SIGINT, SIGTERM and SIGHUP end this
/// process at once, after all workers were told to end, those that were left behind, too; they do so when a board is
/// not left half-way. Throws std::system_error.
void read_boards(const std::vector<telemetry::accelerator_identity_t>& boards, const reading_options_t& options,
                 const listeners_t& listeners);

} // namespace ivra::bsp::readings

#endif
