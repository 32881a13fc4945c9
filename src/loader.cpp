#include "loader.h"

#include <fcntl.h>
#include <link.h>
#include <spawn.h>
#include <sys/auxv.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <string_view>

namespace ivra::bsp {

namespace {

/// For dl_iterate_phdr(): stores the file when the object is the dynamic loader.
int find_loader(dl_phdr_info* object, std::size_t /*size*/, void* file)
{
    if (object->dlpi_addr != ::getauxval(AT_BASE))
        return 0;
    *static_cast<std::string*>(file) = object->dlpi_name;
    return 1;
}

/// The file of the dynamic loader that started this program; empty when it was told to by its own name.
std::string own_loader()
{
    std::string file;
    ::dl_iterate_phdr(&find_loader, &file);
    return file;
}

/// What a program writes to standard output; empty when it cannot be run.
std::string output_of(std::vector<std::string> words, std::vector<std::string> environment)
{
    const auto pointers = [](std::vector<std::string>& texts) {
        std::vector<char*> result;
        std::ranges::transform(texts, std::back_inserter(result), [](std::string& text) { return text.data(); });
        result.push_back(nullptr);
        return result;
    };
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return "";
    posix_spawn_file_actions_t streams;
    ::posix_spawn_file_actions_init(&streams);
    ::posix_spawn_file_actions_adddup2(&streams, ends[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&streams, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    ::pid_t process = -1;
    const int error = ::posix_spawn(&process, words.front().c_str(), &streams, nullptr, pointers(words).data(),
                                    pointers(environment).data());
    ::posix_spawn_file_actions_destroy(&streams);
    ::close(ends[1]);
    std::string text;
    std::array<char, 4096> piece{};
    for (::ssize_t count = 1; count != 0 && (count > 0 || errno == EINTR);) {
        count = ::read(ends[0], piece.data(), piece.size());
        text.append(piece.data(), static_cast<std::size_t>(std::max<::ssize_t>(count, 0)));
    }
    ::close(ends[0]);
    while (error == 0 && ::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
    return text;
}

/// What the loader lists: a library a line, "NAME => FILE (ADDRESS)" or "NAME => not found".
std::vector<library_t> parse_libraries(std::string_view list)
{
    constexpr std::string_view arrow = " => ";
    std::vector<library_t> libraries;
    while (!list.empty()) {
        std::string_view line = list.substr(0, list.find('\n'));
        list.remove_prefix(std::min(line.size() + 1, list.size()));
        line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
        const std::size_t middle = line.find(arrow);
        if (middle == std::string_view::npos)
            continue;
        const std::string_view found = line.substr(middle + arrow.size());
        const std::size_t address = found.rfind(" (0x");
        if (address != std::string_view::npos)
            libraries.push_back({std::string{line.substr(0, middle)}, std::string{found.substr(0, address)}});
        else if (found == "not found")
            libraries.push_back({std::string{line.substr(0, middle)}, ""});
    }
    return libraries;
}

} // namespace

std::vector<library_t> libraries_of(const std::filesystem::path& program)
{
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        environment.emplace_back(*entry);
    environment.emplace_back("LD_TRACE_LOADED_OBJECTS=1"); // then it lists them, and starts nothing
    return parse_libraries(output_of({own_loader(), program}, environment));
}

bool is_simulated(const std::filesystem::path& library)
{
    using namespace std::string_literals;
    std::ifstream stream{library, std::ios::binary};
    const std::string bytes{std::istreambuf_iterator<char>{stream}, {}};
    return bytes.find("\0ivra_virtual_platform\0"s) != std::string::npos; // the name of a symbol
}

} // namespace ivra::bsp
