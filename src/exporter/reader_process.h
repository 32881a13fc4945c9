#ifndef IVRA_EXPORTER_READER_PROCESS_H
#define IVRA_EXPORTER_READER_PROCESS_H

#include "exporter/system.h"

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::exporter {

/// A program that was started to read boards, in a process group of its own: what signals this process leaves that one
/// alone. It is never killed. When this goes before the program has ended, the program finds nobody to listen, and ends
/// when it is through with what it does.
class reader_process
{
public:
    /// Starts it: words[0] is the program's file. Throws std::system_error.
    explicit reader_process(const std::vector<std::string>& words);

    /// What it writes can be read from these without waiting.
    int output() const { return output_.get(); }
    int errors() const { return errors_.get(); }

    /// Reads what there is, and gives each whole line to `take`.
    void read(const std::function<void(const std::string& line)>& take);

    /// How it ended, as a sentence for people; nothing while it runs, or while not all that it wrote was read.
    std::optional<std::string> end();

    /// The exit status when it ended by itself.
    std::optional<int> status() const { return status_; }
    /// What it wrote to standard error, up to a limit.
    const std::string& complaint() const { return complaint_; }

private:
    ::pid_t process_ = -1;
    descriptor_t output_, errors_;
    std::string received_, complaint_, how_;
    std::optional<int> status_;
};

} // namespace ivra::bsp::exporter

#endif
