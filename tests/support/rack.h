#ifndef IVRA_TESTS_SUPPORT_RACK_H
#define IVRA_TESTS_SUPPORT_RACK_H

#include "support/process.h"

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ivra::tests {

/// Members of an accelerator in a rack file: name and JSON text.
using members_t = std::map<std::string, std::string>;

/// The files of a switch's host, in a private mount namespace; a file without content does not exist.
struct host_t
{
    std::optional<std::string> serial;  ///< of /sys/devices/platform/sid.0/serial
    std::optional<std::string> address; ///< of /sys/class/net/ma1/address
};

/// Gives the calling process, which has one thread, such a namespace with these files.
void enter_host(const host_t& host);

/// A rack of simulated boards in a folder of its own, which goes with it.
///
/// Boards are plain unless told otherwise. The one at position N (below 10) is called "card-N" and has uid
/// "0000:0N:00.0"; the FPGA is a xcvu7p-flva2104-2-e of serial 4002000001285c0f1a10428N at 45.5 degrees; the four MAC
/// addresses begin with 02:00:00:00:0N:00; the flash has 128 MiB in sectors of 64 KiB and the sections
///     PGM     0x0000000 - 0x1001fff        PARAMS  0x7fc0000 - 0x7fcffff (protected)        OTP  0x7ff0000 - 0x7ff0fff
///     USR     0x1002000 - 0x6001fff        PARAMS  0x7fd0000 - 0x7fdffff
class rack_t
{
public:
    rack_t();
    ~rack_t();
    rack_t(const rack_t&) = delete;
    rack_t& operator=(const rack_t&) = delete;

    /// Adds a board; `members` replace those of a plain one.
    rack_t& plug(const std::string& model, const members_t& members = {});
    /// Uses this text as the rack file.
    rack_t& file(const std::string& text);
    /// Uses this fault plan: the rules, as JSON objects separated by commas.
    rack_t& faults(const std::string& rules);
    /// Runs in a private mount namespace with these host files. A rack with an Arista switch has one without files.
    rack_t& host(const host_t& files);
    /// Adds an entry to the environment: "NAME=value", or "NAME" to remove a variable.
    rack_t& environment(const std::string& entry);

    /// Makes these system calls of the program, and of what it starts, fail with an error.
    rack_t& forbid(const std::vector<int>& calls, int error);

    /// Runs another program than ivra-bsp-board.
    rack_t& program(const std::string& file);

    /// Runs the program with these words, separated by spaces. A program that ended by itself must have released
    /// every handle; the calling test fails otherwise.
    run_t run(const std::string& words, streams_t streams = {});
    run_t run(const std::vector<std::string>& words, streams_t streams = {});

    /// Runs the program while the test goes on.
    running_t start(const std::string& words, streams_t streams = {});
    /// The same beside one that was started. It meets no faults and leaves no trace.
    running_t start_neighbour(const std::string& words, streams_t streams = {}) const;

    /// Runs `body`, which calls the platform itself, in a child process with this rack.
    run_t in_child(function_ref<void()> body, streams_t streams = {});

    /// What the platform was asked in the last run, and what it answered.
    std::string trace() const;

    const std::filesystem::path& folder() const { return folder_; }

private:
    std::vector<std::string> prepare();
    std::vector<std::string> variables() const;
    running_t start(const std::vector<std::string>& words, const std::vector<std::string>& environment,
                    streams_t streams) const;
    void expect_everything_released(const run_t& run) const;

    std::filesystem::path folder_;
    std::vector<std::string> accelerators_;
    std::optional<std::string> text_;
    std::optional<host_t> host_;
    std::vector<std::string> environment_;
    std::vector<int> forbidden_; ///< system calls
    int forbidden_error_ = 0;
    std::string program_;
};

/// A row of a table of failures: what is wrong, as JSON, and the text with which a command says so.
struct failure_row_t
{
    const char* fault;
    const char* text;
};

/// What `body` prints, which calls the platform itself, and then how it failed, as outcome() tells it. It says nothing
/// on standard error; the calling test fails otherwise.
std::string printed(rack_t& rack, function_ref<void()> body);

/// Lines of the last run's trace that contain a piece, from the piece on.
std::vector<std::string> traced(const rack_t& rack, const std::string& piece);
/// How many calls of a function the last run made.
std::size_t calls(const rack_t& rack, const std::string& function);

/// The words of a line, which single spaces separate.
std::vector<std::string> split(const std::string& line);

} // namespace ivra::tests

#endif
