#include "commands.h"
#include "output.h"

#include "state/state.h"
#include "json/text.h"

#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

namespace {

namespace fs = std::filesystem;

bool is_own_name(const fs::path& path)
{
    return path.filename().string().starts_with('.'); // locks, and boards that are being built or thrown away
}

bool is_folder(const fs::path& path)
{
    return fs::is_directory(fs::symlink_status(path)); // Deliberate: a symbolic link is no state
}

bool is_board(const fs::path& folder)
{
    constexpr std::string_view beginning = "ivra-virtual board state ";
    const fs::path origin = folder / "origin";
    if (!is_folder(folder) || !fs::is_regular_file(fs::symlink_status(origin)))
        return false;
    std::string text(beginning.size(), '\0');
    return std::ifstream{origin}.read(text.data(), static_cast<std::streamsize>(text.size())) && text == beginning;
}

/// Number of boards in a rack's folder. Throws std::runtime_error when it holds anything else.
std::size_t count_boards(const fs::path& folder)
{
    // Names of racks' folders begin as an absolute path does in file_name(), or say that they are a short form.
    const std::string name = folder.filename().string();
    if (!is_folder(folder) || !(name.starts_with('+') || name.starts_with("%%")))
        throw std::runtime_error{folder.string() + ": expected a folder with states of boards; nothing was removed"};
    std::size_t count = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator{folder}) {
        if (is_own_name(entry.path()))
            continue;
        if (!is_board(entry.path()))
            throw std::runtime_error{entry.path().string() + ": expected the state of a board; nothing was removed"};
        ++count;
    }
    return count;
}

std::string forgotten_text(const fs::path& folder, std::size_t count)
{
    return "Forgot " + std::to_string(count) + (count == 1 ? " board: " : " boards: ") + printable(folder.string()) +
           '\n';
}

} // namespace

void reset_rack(const fs::path& rack_file)
{
    const fs::path folder = rack_state_folder(fs::weakly_canonical(fs::absolute(rack_file)));
    const bool exists = fs::exists(fs::symlink_status(folder));
    const std::size_t count = exists ? count_boards(folder) : 0;
    if (!forget_rack(fs::weakly_canonical(fs::absolute(rack_file))))
        print("Nothing to forget: no board of " + printable(rack_file.string()) + " has been used\n");
    else
        print(forgotten_text(folder, count));
}

void reset_all()
{
    const fs::path root = state_root();
    std::string text;
    if (fs::exists(root))
        for (const fs::directory_entry& entry : fs::directory_iterator{root})
            if (!is_own_name(entry.path()))
                text += forgotten_text(entry.path(), count_boards(entry.path()));
    forget_all();
    print(text.empty() ? "Nothing to forget: no board has been used\n" : text);
}

} // namespace ivra::virtual_platform
