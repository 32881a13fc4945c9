#ifndef IVRA_TESTS_SUPPORT_PROCESS_H
#define IVRA_TESTS_SUPPORT_PROCESS_H

#include "support/function_ref.h"

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ivra::tests {

/// Where a process's standard output or error goes.
enum class stream_t
{
    file,        ///< not a terminal; what was written is returned
    terminal,    ///< a pseudo-terminal of 80 columns in raw mode; what was written is returned
    closed,      ///< no descriptor at all
    full_disk,   ///< every write fails with ENOSPC
    broken_pipe, ///< a pipe whose reader went away
    full_pipe,   ///< a pipe that nobody reads and that has room for no byte
    held,        ///< a terminal whose user has pressed Ctrl-S
};

struct streams_t
{
    stream_t out = stream_t::file;
    stream_t err = stream_t::file;
    bool has_input = true; ///< otherwise there is no descriptor of standard input, else it is the caller's
};

/// What a process said and how it ended.
struct run_t
{
    std::string out;
    std::string err;
    int status = -1; ///< exit status, or 128 + the signal that killed it

    bool operator==(const run_t&) const = default;
};

/// A run that said this on standard output, nothing on standard error, and succeeded.
run_t says(const std::string& out);
/// A run that said this on standard error, nothing on standard output, and failed.
run_t fails(const std::string& err);
/// Shows a run in a test's complaint.
void PrintTo(const run_t& run, std::ostream* stream);

/// A process that runs `body` while the test goes on, in a process group of its own, as a shell's job is. It ends with
/// `body` (status 0) or by what that does, and with this object at the latest.
class running_t
{
public:
    /// What `program` prints there, if it has a name, is kept when it is JSON; see keep_documents().
    explicit running_t(function_ref<void()> body, streams_t streams = {}, std::string program = {});
    running_t(running_t&&) noexcept;
    ~running_t();

    ::pid_t process() const;
    void signal(int number) const;

    /// Waits until it is stopped (true) or has ended (false).
    bool stops();
    /// Waits until it has ended or waits for a lock that a process holds; true when it waits.
    bool waits_for_a_lock();
    /// Waits until it has ended or waits to write to a pipe or a terminal; true when it waits.
    bool waits_to_write();

    /// Waits until it has ended or has written to a terminal; true when it has written.
    bool speaks();

    /// Waits until it has ended, some seconds at most; false when it still runs.
    bool ends();
    /// Waits for its end. What was written is there up to now.
    run_t end();

private:
    struct state_t;
    std::unique_ptr<state_t> state_;
};

/// Runs `body` in a process of its own, which ends with it (status 0) or by what it does.
run_t run_in_child(function_ref<void()> body, streams_t streams = {});

/// Runs a program. An entry of `environment` is "NAME=value", or "NAME" to remove the variable.
run_t run_program(const std::string& program, const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment = {}, streams_t streams = {});

/// Makes these system calls fail with an error, in the calling process and in what it runs.
void forbid(const std::vector<int>& calls, int error);
/// Makes every query of a terminal's size fail with EPERM, in the calling process and in what it runs.
void forbid_terminal_size();

/// Changes the environment of the calling process, entry by entry as in run_program().
void set_environment(const std::vector<std::string>& environment);

/// The body of run_program(): replaces the calling process.
[[noreturn]] void exec_program(const std::string& program, const std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment);

} // namespace ivra::tests

#endif
