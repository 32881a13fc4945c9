// ivra-bsp: runs the command ivra-bsp-<word> that lies in its own folder, or shows its manual.

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

struct description_t
{
    std::string_view command;
    std::string_view text;
};

// clang-format off
constexpr description_t descriptions[] = {
    {"board",    "show and manage the boards of this host"},
    {"exporter", "serve the readings of all boards to Prometheus"},
    {"readings", "read all boards: for scripts, monitoring, and a glance"},
};
// clang-format on

/// Whether a program may be called so. What editors and package managers leave beside a program ("board~",
/// "board.orig") is no command.
bool is_command_name(std::string_view word)
{
    return !word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == std::string_view::npos;
}

/// Words for which there is a program, in alphabetical order.
std::vector<std::string> find_commands(const fs::path& folder)
{
    std::vector<std::string> commands;
    std::error_code error;
    for (const fs::directory_entry& file : fs::directory_iterator{folder, error}) {
        const std::string name = file.path().filename();
        if (name.starts_with(prefix) && is_command_name(std::string_view{name}.substr(prefix.size())) &&
            file.is_regular_file(error) && ::access(file.path().c_str(), X_OK) == 0)
            commands.push_back(name.substr(prefix.size()));
    }
    std::sort(commands.begin(), commands.end());
    return commands;
}

void write_usage(std::ostream& stream, const std::vector<std::string>& commands)
{
    stream << "Usage: ivra-bsp <command> [arguments]\n"
              "       ivra-bsp help [command]\n"
              "       ivra-bsp -h | --help | -V | --version\n\n"
              "Commands:\n";
    for (const std::string& command : commands) {
        const auto* row = std::ranges::find(descriptions, command, &description_t::command);
        stream << "  " << command;
        if (row != std::end(descriptions))
            stream << std::string(2 + std::string_view{"exporter"}.size() - command.size(), ' ') << row->text;
        stream << '\n';
    }
    stream << "\nThe manual of a command: ivra-bsp help <command>. In short: ivra-bsp <command> --help\n";
}

/// How many letters have to be added, taken away, replaced, or exchanged with their neighbour to get from one word to
/// the other.
std::size_t distance(std::string_view from, std::string_view to)
{
    std::vector<std::vector<std::size_t>> table(from.size() + 1, std::vector<std::size_t>(to.size() + 1));
    for (std::size_t i = 0; i <= from.size(); ++i)
        for (std::size_t j = 0; j <= to.size(); ++j) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            table[i][j] = std::min(
                {table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                table[i][j] = std::min(table[i][j], table[i - 2][j - 2] + 1);
        }
    return table[from.size()][to.size()];
}

/// Commands that may be meant by a word that is none: those that begin with it, and those that a slip or two make of
/// it.
std::vector<std::string> near(std::string_view word, const std::vector<std::string>& commands)
{
    std::vector<std::string> found;
    std::string small{word};
    for (char& letter : small)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    for (const std::string& command : commands)
        if (command.starts_with(small) || distance(small, command) <= std::min<std::size_t>(2, command.size() / 3))
            found.push_back(command);
    return found;
}

void write_unknown(std::ostream& stream, const std::string& word, std::vector<std::string> commands)
{
    stream << "ivra-bsp: Unknown command: " << ivra::bsp::printable(word) << '\n';
    commands.emplace_back("help");
    if (const std::vector<std::string> meant = near(word, commands); !meant.empty()) {
        stream << "Did you mean ";
        for (std::size_t i = 0; i < meant.size(); ++i)
            stream << (i == 0 ? "" : i + 1 < meant.size() ? ", " : " or ") << '"' << meant[i] << '"';
        stream << "?\n";
    }
}

/// The manual page of a program beside this one, as it is installed with it; "" without one.
std::string find_page(const fs::path& folder, const std::string& program)
{
    for (const std::string section : {"1", "8"}) {
        fs::path page = folder.parent_path() / "share/man" / ("man" + section) / (program + "." + section + ".gz");
        if (::access(page.c_str(), R_OK) == 0)
            return page;
    }
    return "";
}

/// Shows a manual page as man does: in the user's pager on a terminal, else as plain text. Returns where there is no
/// page, or no man.
void become_man(const fs::path& folder, const std::string& program)
{
    if (const std::string page = find_page(folder, program); !page.empty())
        ::execlp("man", "man", page.c_str(), nullptr);
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

/// Replaces this program by a command. `words` begin with the command's own, and end with a null pointer, as those of
/// main() do; `start` is the name by which this program was started. Returns the exit status when it cannot.
int run(const fs::path& folder, char** words, const std::string& start)
{
    const std::string word = words[0];
    std::string name = std::string{prefix} + word;
    const fs::path program = folder / name;
    // Asked before, as nobody could speak after: a program that the loader cannot start has taken this one's place.
    if (const std::string missing = missing_libraries(program); !missing.empty()) {
        write_missing(std::cerr, missing, word, start);
        return cannot_start;
    }
    words[0] = name.data(); // what ps shows: the program's name, not the word
    ::execv(program.c_str(), words);
    const int reason = errno;
    std::cerr << "ivra-bsp: Cannot run " << ivra::bsp::printable(program.string()) << ": " << std::strerror(reason)
              << '\n';
    return EXIT_FAILURE;
}

int show_usage(const std::vector<std::string>& commands)
{
    write_usage(std::cout, commands);
    return finish_stdout();
}

int refuse(const std::vector<std::string>& commands)
{
    write_usage(std::cerr, commands);
    return usage_error;
}

bool is_help_option(std::string_view word)
{
    return word == "--help" || word == "-h";
}

/// `ivra-bsp help [command]`: the manual, or without one what the command says of itself.
int help(const fs::path& folder, const std::vector<std::string>& commands, int argc, char** argv)
{
    std::string word = argc > 2 ? argv[2] : "";
    if (argc > 3) {
        std::cerr << "ivra-bsp: Help is on one command at a time\n";
        return refuse(commands);
    }
    if (word.empty() || word == "help") {
        become_man(folder, "ivra-bsp");
        return show_usage(commands);
    }
    if (is_help_option(word))
        return show_usage(commands);
    if (!std::ranges::binary_search(commands, word)) {
        write_unknown(std::cerr, word, commands);
        return refuse(commands);
    }
    become_man(folder, std::string{prefix} + word);
    std::string option = "--help";
    char* words[] = {word.data(), option.data(), nullptr};
    return run(folder, words, argv[0]);
}

} // namespace

int main(int argc, char** argv)
{
    std::error_code error;
    const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
    const std::vector<std::string> commands = find_commands(folder);
    const std::string word = argc > 1 ? argv[1] : "";

    if (word == "--version" || word == "-V") {
        std::cout << "ivra-bsp " IVRA_BSP_VERSION "\n";
        write_libraries(std::cout, folder, commands);
        return finish_stdout();
    }
    if (is_help_option(word))
        return show_usage(commands);
    if (word == "help")
        return help(folder, commands, argc, argv);
    if (word.empty()) {
        std::cerr << "ivra-bsp: No command given\n";
        return refuse(commands);
    }
    if (!std::ranges::binary_search(commands, word)) {
        write_unknown(std::cerr, word, commands);
        return refuse(commands);
    }
    return run(folder, argv + 1, argv[0]);
}
