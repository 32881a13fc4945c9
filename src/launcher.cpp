// ivra-bsp: runs the command ivra-bsp-<word> that lies in its own folder.

#include "text/text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr std::string_view prefix = "ivra-bsp-";
constexpr int usage_error = 64;

/// Words for which there is a program, in alphabetical order.
std::vector<std::string> find_commands(const fs::path& folder)
{
    std::vector<std::string> commands;
    std::error_code error;
    for (const fs::directory_entry& file : fs::directory_iterator{folder, error}) {
        const std::string name = file.path().filename();
        if (name.starts_with(prefix) && name.size() > prefix.size() && file.is_regular_file(error) &&
            ::access(file.path().c_str(), X_OK) == 0)
            commands.push_back(name.substr(prefix.size()));
    }
    std::sort(commands.begin(), commands.end());
    return commands;
}

void write_usage(std::ostream& stream, const std::vector<std::string>& commands)
{
    stream << "Usage: ivra-bsp <command> [arguments]\n"
              "       ivra-bsp --help | --version\n\n"
              "Commands:\n";
    for (const std::string& command : commands)
        stream << "  " << command << '\n';
    stream << "\nHelp on a command: ivra-bsp <command> --help\n";
}

int finish_stdout()
{
    std::cout.flush();
    if (std::cout)
        return EXIT_SUCCESS;
    std::cerr << "ivra-bsp: Cannot write to standard output: " << std::strerror(errno) << '\n';
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    std::error_code error;
    const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
    const std::vector<std::string> commands = find_commands(folder);
    const std::string word = argc > 1 ? argv[1] : "";

    if (word == "--version") {
        std::cout << "ivra-bsp " IVRA_BSP_VERSION "\n";
        return finish_stdout();
    }
    if (word == "--help" || word == "-h") {
        write_usage(std::cout, commands);
        return finish_stdout();
    }
    if (std::find(commands.begin(), commands.end(), word) == commands.end()) {
        if (word.empty())
            std::cerr << "ivra-bsp: No command given\n";
        else
            std::cerr << "ivra-bsp: Unknown command: " << ivra::bsp::printable(word) << '\n';
        write_usage(std::cerr, commands);
        return usage_error;
    }

    std::string name = std::string{prefix} + word;
    const fs::path program = folder / name;
    argv[1] = name.data(); // what ps shows: the program's name, not the word
    ::execv(program.c_str(), argv + 1);
    const int reason = errno;
    std::cerr << "ivra-bsp: Cannot run " << ivra::bsp::printable(program.string()) << ": " << std::strerror(reason)
              << '\n';
    return EXIT_FAILURE;
}
