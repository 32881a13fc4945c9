// ivra-bsp: runs the command ivra-bsp-<word> that lies in its own folder.

#include "loader.h"
#include "text/text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace {

namespace fs = std::filesystem;
using ivra::bsp::library_t;

constexpr std::string_view prefix = "ivra-bsp-";
constexpr int usage_error = 64;
constexpr int cannot_start = 127;

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

bool is_of_platform(const library_t& library)
{
    return library.name.starts_with("libivra-");
}

/// Names the platform's libraries that the commands load, with their files, in alphabetical order.
void write_libraries(std::ostream& stream, const fs::path& folder, const std::vector<std::string>& commands)
{
    std::map<std::string, std::string> files;
    for (const std::string& command : commands)
        for (const library_t& library : ivra::bsp::libraries_of(folder / (std::string{prefix} + command)))
            if (is_of_platform(library))
                files.emplace(library.name, library.file);
    for (const auto& [name, file] : files)
        stream << name << ": " << (file.empty() ? "not found" : ivra::bsp::printable(file))
               << (ivra::bsp::is_simulated(file) ? " (simulated)" : "") << '\n';
}

/// Names of the libraries without which a program that needs the platform's cannot start; empty when it can.
std::string missing_libraries(const fs::path& program)
{
    const std::vector<library_t> libraries = ivra::bsp::libraries_of(program);
    std::string names;
    if (std::ranges::any_of(libraries, &is_of_platform))
        for (const library_t& library : libraries)
            if (library.file.empty())
                names += (names.empty() ? "" : ", ") + library.name;
    return names;
}

/// Says it, and what can be done. `start` is the name by which this program was started.
void write_missing(std::ostream& stream, const std::string& missing, const std::string& word, const std::string& start)
{
    const std::string folder = start.substr(0, start.rfind('/') + 1);
    stream << "ivra-bsp: Cannot run ivra-bsp-" << word << ": libraries not found: " << missing
           << "\nThe loader looks for them in the folders of LD_LIBRARY_PATH, and in those that ldconfig lists.\n"
              "They come with the boards. To try the command on simulated boards: "
           << ivra::bsp::printable(folder) << "ivra-virtual run -- ivra-bsp " << word << " ...\n";
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
        write_libraries(std::cout, folder, commands);
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
    // Asked before, as nobody could speak after: a program that the loader cannot start has taken this one's place.
    if (const std::string missing = missing_libraries(program); !missing.empty()) {
        write_missing(std::cerr, missing, ivra::bsp::printable(word), argv[0]);
        return cannot_start;
    }
    argv[1] = name.data(); // what ps shows: the program's name, not the word
    ::execv(program.c_str(), argv + 1);
    const int reason = errno;
    std::cerr << "ivra-bsp: Cannot run " << ivra::bsp::printable(program.string()) << ": " << std::strerror(reason)
              << '\n';
    return EXIT_FAILURE;
}
