#ifndef IVRA_READINGS_COMMAND_LINE_H
#define IVRA_READINGS_COMMAND_LINE_H

#include "telemetry/board_readings.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::bsp::readings {

enum class format_t
{
    json,
    lines, ///< JSON Lines
    text,
    check, ///< a monitoring plugin's line
};

struct arguments_t
{
    std::vector<std::string> selectors; ///< of boards; none: all of them
    std::vector<std::string> skipped;   ///< uids
    telemetry::parts_t parts;
    std::size_t jobs;
    std::chrono::milliseconds timeout; ///< of a board; 0: none
    format_t format;
    std::optional<std::string> limits_file;
    bool announces; ///< the boards, before they are read
    bool is_verbose;
    bool colored;
};

/// Interprets the words after the program's name, and the environment. Ends the process after help, version or schema,
/// and on a wrong command line: with status 64, or as a plugin does (UNKNOWN, 3) where `--check` is among the words.
arguments_t parse_command_line(const std::vector<std::string_view>& words);

/// Writes what standard output still holds. The exit status: the given one, or when not all could be written, which is
/// said, that of a failure.
int finish_output(int status, bool is_check);

} // namespace ivra::bsp::readings

#endif
