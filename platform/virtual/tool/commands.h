#ifndef IVRA_VIRTUAL_TOOL_COMMANDS_H
#define IVRA_VIRTUAL_TOOL_COMMANDS_H

#include "rack/rack.h"

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::virtual_platform {

/// A command line that nobody could have meant.
class usage_error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Prints what is plugged into a rack and what its boards remember. Throws std::system_error.
void show(const rack_t& rack);

/// Lets other programs talk to a board's BMC, in the terminal mode of IPMI, over a pseudo-terminal whose name it
/// prints; `name` is the accelerator's name, uid or index. Returns after SIGINT or SIGTERM, which stay blocked. Throws
/// std::runtime_error and std::system_error.
void serve_bmc(const rack_t& rack, const std::string& name);

/// Changes a board for every process that has it open, as the words say; "reset" undoes all that was changed. Throws
/// usage_error for words that say no change, std::runtime_error and std::system_error.
void change_board(const rack_t& rack, const std::string& name, const std::vector<std::string>& words);

/// Sets changes of boards that come at the times that a file says, counted from now. All of them, or when it throws
/// file_error none. Throws std::system_error.
void play(const rack_t& rack, const std::filesystem::path& file);

/// Each makes boards forget, those of a rack file (which need not exist any more) or all, and says which. Nothing is
/// removed when the folder holds anything but states of boards. Throws std::runtime_error.
void reset_rack(const std::filesystem::path& rack_file);
void reset_all();

/// Becomes a command, of which the first word says the program, with the boards of a rack; without words a shell, and
/// without a rack those of the showcase. Returns the exit status that says why it cannot be run. Throws
/// usage_error for a program that would not have these boards, file_error and std::runtime_error.
int run_on_rack(const std::optional<std::filesystem::path>& rack_file, std::vector<std::string> command);

} // namespace ivra::virtual_platform

#endif
