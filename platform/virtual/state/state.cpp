#include "state/state.h"

#include "json/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t longest_exact_name = 200; // file systems allow 255 bytes

// Files of a board's folder.
constexpr const char* origin_file = "origin"; // what the state was made from, see origin_text()
constexpr const char* flash_file = "flash";
constexpr const char* register_file_name = "registers";
constexpr const char* bmc_file_name = "bmc";
constexpr const char* changes_file_name = "changes";
constexpr const char* i2c_file = "i2c";
constexpr const char* parameters_file = "parameters";

// Names beside the folders of boards and racks; file_name() makes none that begins with a point.
constexpr const char* new_folder = ".new"; // being built; left over from a process that was killed meanwhile
constexpr const char* old_folder = ".old"; // being thrown away
constexpr const char* lock_file = ".lock";
constexpr const char* mutexes = ".mutexes";

[[noreturn]] void fail(int error, const char* what, const fs::path& path)
{
    throw std::system_error{error, std::generic_category(), std::string{what} + " " + path.string()};
}

const char* variable(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string hexadecimal(std::uint64_t value, int digits, const char* alphabet)
{
    std::string text;
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4)
        text += alphabet[value >> shift & 0xF];
    return text;
}

bool is_plain(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           (character >= '0' && character <= '9') ||
           std::string_view{"-_.:="}.find(character) != std::string_view::npos;
}

/// The whole text of a board's origin file. The number in the first line changes whenever the files do.
std::string origin_text(const rack_t& rack, const accelerator_t& accelerator)
{
    return "ivra-virtual board state 6\n" + rack.file.string() + "\n" + accelerator.uid + "\n" + accelerator.text +
           "\n";
}

/// Serialises building and removing; the system releases it when its holder dies.
unique_fd lock_state()
{
    const fs::path root = state_root();
    create_private_folder(root);
    const fs::path path = root / lock_file;
    unique_fd fd = open_own_file(AT_FDCWD, path.c_str(), path, O_RDWR | O_CREAT);
    while (::flock(fd.get(), LOCK_EX) < 0) {
        if (errno != EINTR)
            fail(errno, "Cannot lock", path);
    }
    return fd;
}

mapped_file open_mapped(int folder, const fs::path& folder_path, const char* name, file_access access)
{
    const fs::path path = folder_path / name;
    return {open_own_file(folder, name, path, access == file_access::read_only ? O_RDONLY : O_RDWR), path, access};
}

/// Reads a file, at most one byte more than `limit`.
std::string read_text(int folder, const fs::path& folder_path, const char* name, std::size_t limit)
{
    const unique_fd fd = open_own_file(folder, name, folder_path / name, O_RDONLY);
    std::string text(limit + 1, '\0');
    std::size_t length = 0;
    while (length < text.size()) {
        const ::ssize_t count = ::read(fd.get(), text.data() + length, text.size() - length);
        if (count < 0 && errno != EINTR)
            fail(errno, "Cannot read", folder_path / name);
        if (count == 0)
            break;
        length += static_cast<std::size_t>(std::max<::ssize_t>(count, 0));
    }
    text.resize(length);
    return text;
}

unique_fd create_file(const fs::path& path, std::uint64_t size)
{
    unique_fd fd{::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600)};
    if (!fd)
        fail(errno, "Cannot create", path);
    if (::ftruncate(fd.get(), static_cast<::off_t>(size)) < 0)
        fail(errno, "Cannot create", path);
    return fd;
}

void write_text(const fs::path& path, std::string_view text)
{
    const unique_fd fd = create_file(path, 0);
    while (!text.empty()) {
        const ::ssize_t count = ::write(fd.get(), text.data(), text.size());
        if (count < 0 && errno != EINTR)
            fail(errno, "Cannot write", path);
        text.remove_prefix(static_cast<std::size_t>(std::max<::ssize_t>(count, 0)));
    }
}

void write_start_values(const fs::path& path, const std::vector<core_t>& cores)
{
    unique_fd fd = create_file(path, register_file::file_size(cores));
    register_file registers{mapped_file{std::move(fd), path, file_access::read_write}, cores};
    for (const core_t& core : cores) {
        for (const auto& [offset, value] : core.registers)
            registers.write(core, offset, value);
    }
}

/// Builds a board's folder beside its place and moves it there in one step; the lock is held.
void build(const rack_t& rack, const accelerator_t& accelerator)
{
    const fs::path folder = board_state_folder(rack, accelerator);
    const fs::path fresh = folder.parent_path() / new_folder;
    const fs::path old = folder.parent_path() / old_folder;
    fs::remove_all(fresh);
    fs::remove_all(old);
    create_private_folder(fresh);
    try {
        write_text(fresh / origin_file, origin_text(rack, accelerator));
        create_file(fresh / flash_file, accelerator.flash.size);
        write_start_values(fresh / register_file_name, accelerator.cores);
        create_file(fresh / bmc_file_name, bmc_file::file_size);
        const fs::path changes = fresh / changes_file_name;
        changes_file::prepare({create_file(changes, changes_file::file_size), changes, file_access::read_write});
        create_file(fresh / i2c_file, places_of(accelerator.i2c).size);
        create_file(fresh / parameters_file, board_state::parameters_size);
        if (::rename(folder.c_str(), old.c_str()) < 0 && errno != ENOENT)
            fail(errno, "Cannot replace", folder);
        fs::rename(fresh, folder);
    } catch (...) {
        std::error_code ignored; // what went wrong first says more
        fs::remove_all(fresh, ignored);
        throw;
    }
    fs::remove_all(old);
}

/// At least `last`, and the one is odd where the other is even.
std::uint64_t next_generation(std::uint64_t before, std::uint64_t last)
{
    return last + ((last - before) % 2 == 0 ? 1 : 0);
}

bool forget(const fs::path& folder)
{
    if (!fs::exists(fs::symlink_status(folder)))
        return false;
    const unique_fd lock = lock_state();
    return fs::remove_all(folder) > 0;
}

} // namespace

std::string file_name(std::string_view text)
{
    constexpr const char* upper_case = "0123456789ABCDEF";
    constexpr const char* lower_case = "0123456789abcdef";
    std::string name;
    for (const char character : text) {
        if (character == '/')
            name += '+';
        else if (is_plain(character) && !(character == '.' && name.empty()))
            name += character;
        else
            name += '%' + hexadecimal(static_cast<unsigned char>(character), 2, upper_case);
    }
    if (name.empty())
        return "%";
    if (name.size() > longest_exact_name) // "%%" begins no exact name
        return "%%" + hexadecimal(hash(text), 16, lower_case) + "+" + name.substr(name.size() - 160);
    return name;
}

fs::path state_root()
{
    if (const fs::path chosen = variable("IVRA_VIRTUAL_STATE"); !chosen.empty())
        return fs::absolute(chosen).lexically_normal();
    if (const fs::path user = variable("XDG_STATE_HOME"); user.is_absolute()) // a relative one is to be ignored
        return user / "ivra-virtual";
    if (const fs::path home = variable("HOME"); !home.empty())
        return fs::absolute(home) / ".local/state/ivra-virtual";
    throw std::system_error{ENOENT, std::generic_category(),
                            "No folder for the state of boards: none of IVRA_VIRTUAL_STATE, XDG_STATE_HOME and HOME is "
                            "set"};
}

fs::path rack_state_folder(const fs::path& rack_file)
{
    return state_root() / file_name(rack_file.string());
}

fs::path board_state_folder(const rack_t& rack, const accelerator_t& accelerator)
{
    return rack_state_folder(rack.file) / file_name(accelerator.uid);
}

fs::path mutex_folder()
{
    return state_root() / mutexes;
}

void create_private_folder(const fs::path& folder)
{
    if (::mkdir(folder.c_str(), 0700) == 0)
        return;
    if (errno == ENOENT && folder.has_relative_path()) {
        create_private_folder(folder.parent_path());
        if (::mkdir(folder.c_str(), 0700) == 0)
            return;
    }
    if (errno != EEXIST)
        fail(errno, "Cannot create the folder", folder);
    if (!fs::is_directory(folder))
        fail(ENOTDIR, "Cannot create the folder", folder);
}

board_state::board_state(const rack_t& rack, const accelerator_t& accelerator, changes_file changes, flash_memory flash,
                         register_file registers, bmc_file bmc, mapped_file i2c, mapped_file parameters)
    : original_{&accelerator},
      rack_file_{rack.file}, changes_{std::move(changes)}, board_{&accelerator}, flash_{std::move(flash)},
      registers_{std::move(registers)}, bmc_{std::move(bmc)}, i2c_{std::move(i2c)}, parameters_{std::move(parameters)}
{
}

/// Nothing when there is no such state; `mismatch` then says what is wrong with the one that is there.
std::optional<board_state> board_state::open_matching(const rack_t& rack, const accelerator_t& accelerator,
                                                      file_access access, std::string& mismatch)
{
    const fs::path path = board_state_folder(rack, accelerator);
    // All files are opened below this one folder, whatever takes its place meanwhile.
    const unique_fd folder{::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    if (!folder && errno == ENOENT)
        return std::nullopt;
    if (!folder && errno != ENOTDIR)
        fail(errno, "Cannot open", path);
    mismatch = "what was remembered of it is damaged";
    if (!folder)
        return std::nullopt;
    struct stat status = {};
    if (::fstat(folder.get(), &status) != 0)
        fail(errno, "Cannot open", path);
    if (status.st_uid != ::geteuid())
        fail(EPERM, "Another user's folder:", path);
    try {
        const std::string origin = origin_text(rack, accelerator);
        if (read_text(folder.get(), path, origin_file, origin.size()) != origin) {
            mismatch = "its description in the rack has changed";
            return std::nullopt;
        }
        mapped_file all_changes = open_mapped(folder.get(), path, changes_file_name, access);
        const bool are_changes_whole = all_changes.size() == changes_file::file_size;
        changes_file changes{std::move(all_changes), path / changes_file_name}; // before others take descriptors
        mapped_file flash = open_mapped(folder.get(), path, flash_file, access);
        mapped_file registers = open_mapped(folder.get(), path, register_file_name, access);
        mapped_file bmc = open_mapped(folder.get(), path, bmc_file_name, access);
        mapped_file i2c = open_mapped(folder.get(), path, i2c_file, access);
        mapped_file parameters = open_mapped(folder.get(), path, parameters_file, access);
        if (flash.size() == accelerator.flash.size && registers.size() == register_file::file_size(accelerator.cores) &&
            bmc.size() == bmc_file::file_size && are_changes_whole && i2c.size() == places_of(accelerator.i2c).size &&
            parameters.size() == parameters_size)
            return board_state{rack,
                               accelerator,
                               std::move(changes),
                               flash_memory{std::move(flash), accelerator.flash.sector},
                               register_file{std::move(registers), accelerator.cores},
                               bmc_file{std::move(bmc)},
                               std::move(i2c),
                               std::move(parameters)};
    } catch (const std::system_error& error) {
        if (error.code() != std::errc::no_such_file_or_directory)
            throw;
    }
    return std::nullopt;
}

board_state board_state::open(const rack_t& rack, const accelerator_t& accelerator)
{
    std::string mismatch;
    if (auto state = open_matching(rack, accelerator, file_access::read_write, mismatch))
        return std::move(*state);
    const unique_fd lock = lock_state();
    create_private_folder(rack_state_folder(rack.file));
    mismatch.clear(); // another process may have built it meanwhile
    if (auto state = open_matching(rack, accelerator, file_access::read_write, mismatch))
        return std::move(*state);
    build(rack, accelerator);
    std::string still;
    auto state = open_matching(rack, accelerator, file_access::read_write, still);
    if (!state)
        fail(EIO, "Cannot use", board_state_folder(rack, accelerator));
    state->restart_reason_ = mismatch;
    return std::move(*state);
}

std::optional<board_state> board_state::open_existing(const rack_t& rack, const accelerator_t& accelerator)
{
    std::string mismatch;
    return open_matching(rack, accelerator, file_access::read_only, mismatch);
}

changes_t board_state::read_changes(const mapped_file& file) const
{
    for (;;) {
        const std::uint64_t generation = changes_.generation();
        try {
            const std::string text = changes_.read(file, generation);
            if (changes_.generation() == generation)
                return virtual_platform::read_changes(*original_, text, changes_.path(), device_now());
        } catch (const file_error& error) {
            if (changes_.generation() == generation)
                throw file_error{std::string{error.what()} + "; 'ivra-virtual change " +
                                 printable(rack_file_.string()) + ' ' + printable(original_->uid) +
                                 " reset' undoes all changes"};
        }
    }
}

const accelerator_t& board_state::read_board()
{
    // Deliberate: a generation that comes meanwhile is read the next time, once more at worst.
    const std::uint64_t generation = changes_.generation();
    changes_t now = changes();
    changed_ = std::make_unique<const accelerator_t>(std::move(now.board));
    board_ = changed_.get();
    generation_ = generation;
    next_change_ = now.to_come.empty() ? std::nullopt : std::optional{now.to_come.front().at};
    return *board_;
}

changes_t board_state::changes() const
{
    return read_changes(changes_.open(file_access::read_only));
}

void board_state::change(const std::function<std::uint64_t(changes_t& changes, std::uint64_t number)>& make)
{
    mapped_file file = changes_.open(file_access::read_write);
    const file_lock lock{file};
    const std::uint64_t before = changes_.generation();
    changes_t now = read_changes(file);
    const std::uint64_t last = make(now, before + 1);
    changes_.write(file, next_generation(before, last), changes_text(*original_, now, device_now()));
}

bool board_state::undo_changes()
{
    mapped_file file = changes_.open(file_access::read_write);
    const file_lock lock{file};
    const std::uint64_t number = changes_.generation() + 1;
    changes_t none{*original_, {}};
    bool is_changed = true;
    try {
        const changes_t now = read_changes(file);
        none.board = undone(*original_, now.board, number);
        is_changed = now.board != none.board || !now.to_come.empty();
    } catch (const file_error&) { // whatever it holds, as long as no module is taken for the one before it
        for (cage_t& cage : none.board.i2c.cages)
            cage.plugged = number;
    }
    if (is_changed)
        changes_.write(file, next_generation(number - 1, number), changes_text(*original_, none, device_now()));
    return is_changed;
}

bool forget_board(const rack_t& rack, const accelerator_t& accelerator)
{
    return forget(board_state_folder(rack, accelerator));
}

bool forget_rack(const fs::path& rack_file)
{
    return forget(rack_state_folder(rack_file));
}

bool forget_all()
{
    const fs::path root = state_root();
    if (!fs::exists(root))
        return false;
    bool forgotten = false;
    for (const fs::directory_entry& entry : fs::directory_iterator{root}) {
        if (!entry.path().filename().string().starts_with('.')) // the state's own: lock and mutexes
            forgotten = forget(entry.path()) || forgotten;
    }
    return forgotten;
}

} // namespace ivra::virtual_platform
