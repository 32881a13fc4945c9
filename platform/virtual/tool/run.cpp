#include "commands.h"
#include "output.h"

#include "rack/rack.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

namespace fs = std::filesystem;

constexpr int cannot_run = 126;
constexpr int not_found = 127;

std::string variable(const char* name)
{
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// The folder's path before those of a variable. An empty element would be the current directory: none is added.
void prepend(const char* name, const fs::path& folder, const std::string& others)
{
    ::setenv(name, (folder.string() + (others.empty() ? "" : ":") + others).c_str(), 1);
}

/// The folder of the virtual platform's libraries. Throws std::runtime_error when the loader would pass it over: it
/// would go on to the libraries of the real boards.
fs::path libraries_beside(const fs::path& own_folder)
{
    fs::path folder = (own_folder / IVRA_VIRTUAL_LIBRARIES).lexically_normal();
    if (folder.string().find_first_of(":;$") != std::string::npos)
        throw std::runtime_error{"the loader cannot be pointed to a path with ':', ';' or '$': " + folder.string()};
    for (const char* name : {"libivra-log.so.1", "libivra-hw-c.so.1", "libivra-cores-c.so.1", "ivra-virtual.so"})
        if (::access((folder / name).c_str(), R_OK) != 0)
            throw std::system_error{errno, std::generic_category(),
                                    "the virtual platform's " + (folder / name).string()};
    return folder;
}

/// The file that a word stands for, as a shell looks for it; empty, with errno set, when there is none.
std::string file_of(const std::string& word)
{
    if (word.find('/') != std::string::npos)
        return word;
    int error = ENOENT;
    const std::string folders = variable("PATH");
    for (std::size_t at = 0, end = 0; at <= folders.size(); at = end + 1) {
        end = std::min(folders.find(':', at), folders.size());
        const fs::path file = fs::path{end == at ? "." : folders.substr(at, end - at)} / word;
        std::error_code ignored;
        if (!fs::is_regular_file(file, ignored))
            continue;
        if (::access(file.c_str(), X_OK) == 0)
            return file;
        error = EACCES;
    }
    errno = error;
    return "";
}

/// Throws usage_error for what would start without the variables set here, and so find the real boards.
void refuse_what_forgets(const std::string& word, const std::string& file)
{
    constexpr std::array<std::string_view, 4> forgetful{"sudo", "su", "doas", "pkexec"};
    struct stat status = {};
    std::string why;
    if (std::ranges::find(forgetful, fs::path{word}.filename().string()) != forgetful.end())
        why = "";
    else if (::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
             (status.st_mode & (S_ISUID | S_ISGID)) != 0)
        why = " has set-id bits,";
    else if (::getxattr(file.c_str(), "security.capability", nullptr, 0) >= 0)
        why = " has capabilities,";
    else
        return;
    throw usage_error{'"' + word + '"' + why +
                      " forgets the environment and would find the real boards; "
                      "put it in front: sudo ivra-virtual run ..."};
}

} // namespace

int run_on_rack(const std::optional<fs::path>& rack_file, std::vector<std::string> command)
{
    if (command.empty()) {
        const std::string shell = variable("SHELL");
        command.push_back(shell.empty() ? "/bin/sh" : shell);
    }
    const std::string& word = command.front();
    const auto failed = [&](int error) {
        print_error("run: cannot run \"" + word + "\": " + std::generic_category().message(error));
        return error == ENOENT ? not_found : cannot_run;
    };

    const fs::path own_folder = fs::read_symlink("/proc/self/exe").parent_path();
    const std::string path = variable("PATH");
    prepend("PATH", own_folder, path.empty() ? "/bin:/usr/bin" : path);
    const std::string file = file_of(word);
    const int error = errno;
    refuse_what_forgets(word, file);

    prepend("LD_LIBRARY_PATH", libraries_beside(own_folder), variable("LD_LIBRARY_PATH"));
    const fs::path rack = load_rack(rack_file.value_or(racks_folder() / "showcase.json")).file;
    ::setenv("IVRA_VIRTUAL_RACK", rack.c_str(), 1);
    if (file.empty())
        return failed(error);
    if (::isatty(STDERR_FILENO) != 0)
        print_note("Simulated boards: " + rack.string() + " (not under sudo)");

    std::vector<char*> arguments;
    std::ranges::transform(command, std::back_inserter(arguments), [](std::string& text) { return text.data(); });
    arguments.push_back(nullptr);
    restore_output();
    ::execvp(file.c_str(), arguments.data());
    return failed(errno);
}

} // namespace ivra::virtual_platform
