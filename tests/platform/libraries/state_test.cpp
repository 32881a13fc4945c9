#include "story.h"

#include "state/state.h"
#include "support/process.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ivra::platform_tests {

namespace {

namespace fs = std::filesystem;
namespace vp = virtual_platform;

constexpr std::uint64_t some_register = 0x20;

class board_state : public host
{
protected:
    fs::path board_folder() const
    {
        const vp::rack_t loaded = vp::load_rack(rack);
        return vp::board_state_folder(loaded, loaded.accelerators.at(0));
    }

    static void write_value(std::uint64_t value)
    {
        run([=] {
            const opened board;
            write_word(board.core(475), some_register, value);
        });
    }

    static void expect_value(std::uint64_t value)
    {
        run([=] {
            const opened board;
            EXPECT_EQ(read_word(board.core(475), some_register), value);
        });
    }

    /// Expects that the board does not open, with this errno, and that one line of the log names the path and why.
    static void expect_no_board(int error, const std::string& path)
    {
        run([=] {
            const log_t log;
            const descriptors_t all;
            EXPECT_FAILS(nullptr, error, ivra_hw_accelerator_get(all[0]));
            ASSERT_EQ(log.lines().size(), 1U);
            EXPECT_THAT(log.lines()[0], ::testing::AllOf(::testing::StartsWith("0 ivra_hw_accelerator_get: "),
                                                         ::testing::HasSubstr(path),
                                                         ::testing::HasSubstr(std::generic_category().message(error))));
        });
    }
};

TEST_F(board_state, lives_on_from_one_process_to_the_next)
{
    write_value(0x1234);
    expect_value(0x1234);
}

TEST_F(board_state, one_process_sees_at_once_what_another_wrote)
{
    run([] {
        const opened board;
        EXPECT_EQ(read_word(board.core(475), some_register), 0U);
        write_value(7);
        EXPECT_EQ(read_word(board.core(475), some_register), 7U);
    });
}

TEST_F(board_state, a_killed_process_loses_nothing_that_had_reached_the_device)
{
    const end_t end = end_of(start([] {
        const opened board;
        write_word(board.core(475), some_register, 5);
        ::raise(SIGKILL);
    }));
    EXPECT_EQ(end.signal, SIGKILL);
    expect_value(5);
}

TEST_F(board_state, is_not_touched_by_looking_at_the_rack_alone)
{
    run([] {
        EXPECT_EQ(ivra_hw_count_accelerators(), 1U);
        const descriptors_t all;
        EXPECT_EQ(all.handles.size(), 1U);
    });
    EXPECT_FALSE(fs::exists(state));
}

TEST_F(board_state, lies_in_folders_for_this_user_alone_named_after_rack_and_uid)
{
    write_value(1);
    const fs::path folder_of_board = board_folder();
    EXPECT_EQ(folder_of_board.filename(), "0000:01:00.0");
    EXPECT_THAT(folder_of_board.parent_path().filename().string(), ::testing::EndsWith("+rack.json"));
    EXPECT_EQ(folder_of_board.parent_path().parent_path(), state);
    for (const fs::path& part : {state, folder_of_board.parent_path(), folder_of_board}) {
        struct ::stat status
        {
        };
        ASSERT_EQ(::stat(part.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0700U) << part;
    }
}

TEST_F(board_state, starts_anew_with_a_line_in_the_log_when_the_text_in_the_rack_has_changed)
{
    write_value(1);
    std::string changed = board_text;
    changed.replace(changed.find("45.5"), 4, "46.5");
    plug({changed});
    run([] {
        const log_t log;
        const opened board;
        EXPECT_THAT(log.lines(), ::testing::ElementsAre("2 ivra_hw_accelerator_get: Board 0000:01:00.0 starts anew: "
                                                        "its description in the rack has changed"));
        EXPECT_EQ(read_word(board.core(475), some_register), 0U);
        EXPECT_EQ(read_word(board.core(475), 0x10), 0x89abcdefU) << "as the rack says";
        write_word(board.core(475), some_register, 2);
    });
    run([] {
        const log_t log;
        const opened board;
        EXPECT_THAT(log.lines(), ::testing::IsEmpty());
        EXPECT_EQ(read_word(board.core(475), some_register), 2U);
    });
}

TEST_F(board_state, a_change_of_another_accelerator_or_of_the_layout_of_the_file_matters_to_no_board)
{
    write_value(1);
    std::string spread = board_text;
    spread.insert(1, "\n\n    ");
    plug({spread, R"({"model": "xilinx_u50", "uid": "another"})"});
    expect_value(1);
}

TEST_F(board_state, belongs_to_one_rack_file)
{
    write_value(1);
    fs::copy_file(rack, folder / "copy.json");
    ::setenv("IVRA_VIRTUAL_RACK", (folder / "copy.json").c_str(), 1);
    expect_value(0);
    ::setenv("IVRA_VIRTUAL_RACK", rack.c_str(), 1);
    expect_value(1);
}

TEST_F(board_state, what_a_device_reads_and_changes_in_one_go_waits_for_another_process_at_it)
{
    plug({R"({"model": "xilinx_u200", "uid": "0000:01:00.0", "bmc": {}, "i2c": {"cages": ["qsfp28-sr4"]}})"});
    run([] { const opened board; });
    const struct
    {
        const char* file;
        void (*use)(const opened& board);
    } rows[] = {
        {"registers", [](const opened& board) { write_word(board.core(475), 0x20010, 1); }},
        {"bmc",
         [](const opened& board) {
             ivra_uart* uart = ivra_uart_create(board.root);
             const std::uint8_t byte = 0xa0;
             EXPECT_EQ(ivra_uart_write_all(uart, &byte, 1, 100), 0);
             ivra_uart_destroy(uart);
         }},
        {"bmc",
         [](const opened& board) {
             ivra_uart* uart = ivra_uart_create(board.root);
             std::uint8_t byte = 0;
             EXPECT_EQ(ivra_uart_read(uart, &byte, 1), 0);
             ivra_uart_destroy(uart);
         }},
        {"i2c",
         [](const opened& board) {
             ivra_i2c* i2c = ivra_i2c_create(board.root);
             ivra_i2c_bus* bus = ivra_i2c_get_bus(i2c, 0);
             std::uint8_t byte = 0;
             EXPECT_FAILS(-1, ENXIO, ivra_i2c_bus_read(bus, 0x50, &byte, 1));
             ivra_i2c_bus_destroy(bus);
             ivra_i2c_destroy(i2c);
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.file);
        const fs::path path = board_folder() / row.file;
        const vp::mapped_file file{vp::open_own_file(AT_FDCWD, path.c_str(), path, O_RDWR), path,
                                   vp::file_access::read_write};
        std::optional<vp::file_lock> lock{file};
        tests::running_t user{[&row] {
            const opened board;
            row.use(board);
        }};
        EXPECT_TRUE(user.waits_for_a_lock());
        lock.reset();
        EXPECT_EQ(user.end(), tests::says(""));
    }
}

TEST_F(board_state, that_is_damaged_starts_anew_with_a_line_in_the_log)
{
    for (const char* file : {"origin", "flash", "registers", "bmc", "i2c", "parameters"}) {
        for (const bool removed : {true, false}) {
            write_value(1);
            if (removed)
                fs::remove(board_folder() / file);
            else
                fs::resize_file(board_folder() / file, 1);
            run([] {
                const log_t log;
                const opened board;
                ASSERT_EQ(log.lines().size(), 1U);
                EXPECT_THAT(log.lines()[0], ::testing::StartsWith("2 ivra_hw_accelerator_get: Board 0000:01:00.0 "));
                EXPECT_EQ(read_word(board.core(475), some_register), 0U);
            });
        }
    }
}

TEST_F(board_state, a_link_in_the_place_of_a_file_is_an_error_and_never_followed)
{
    for (const char* name : {"origin", "flash", "registers", "bmc", "i2c", "parameters"}) {
        write_value(1);
        const fs::path file = board_folder() / name;
        fs::rename(file, folder / "precious");
        fs::create_symlink(folder / "precious", file);
        const std::string before = read(folder / "precious");
        expect_no_board(ELOOP, file);
        EXPECT_EQ(read(folder / "precious"), before) << name;
        fs::remove_all(board_folder());
    }
}

TEST_F(board_state, a_fifo_in_the_place_of_a_file_is_an_error_and_never_waited_for)
{
    for (const char* name : {"origin", "flash"}) {
        write_value(1);
        const fs::path file = board_folder() / name;
        fs::remove(file);
        ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
        expect_no_board(EINVAL, file);
        fs::remove_all(board_folder());
    }
}

TEST_F(board_state, a_file_or_folder_of_another_user_is_an_error)
{
    if (::getuid() != 0)
        GTEST_SKIP() << "only root can give a file away";
    write_value(1);
    const fs::path file = board_folder() / "flash";
    ASSERT_EQ(::chown(file.c_str(), 65534, 65534), 0);
    expect_no_board(EPERM, file);
    ASSERT_EQ(::chown(file.c_str(), 0, 0), 0);
    expect_value(1);
    ASSERT_EQ(::chown(board_folder().c_str(), 65534, 65534), 0);
    expect_no_board(EPERM, board_folder());
    ASSERT_EQ(::chown(board_folder().c_str(), 0, 0), 0);
    expect_value(1);
}

TEST_F(board_state, a_link_in_the_place_of_its_folder_makes_way_and_what_it_leads_to_stays)
{
    write_value(1);
    fs::rename(board_folder(), folder / "precious");
    fs::create_symlink(folder / "precious", board_folder());
    const std::string before = read(folder / "precious" / "registers");
    expect_value(0);
    EXPECT_FALSE(fs::is_symlink(board_folder()));
    write_value(2);
    EXPECT_EQ(read(folder / "precious" / "registers"), before);
}

TEST_F(board_state, what_a_process_killed_while_building_left_over_is_in_nobodys_way)
{
    const fs::path beside = board_folder().parent_path();
    for (const char* name : {".new", ".old"}) {
        fs::create_directories(beside / name / "deep");
        std::ofstream{beside / name / "origin"} << "half";
    }
    write_value(1);
    expect_value(1);
    EXPECT_FALSE(fs::exists(beside / ".new"));
    EXPECT_FALSE(fs::exists(beside / ".old"));
}

TEST_F(board_state, processes_killed_at_any_moment_of_building_leave_a_folder_that_works)
{
    for (int round = 0; round < 60; ++round) {
        fs::remove_all(state);
        std::vector<::pid_t> processes;
        for (int i = 0; i < 3; ++i)
            processes.push_back(start([] { const opened board; }));
        ::usleep(static_cast<::useconds_t>(300 + round * 50));
        for (const ::pid_t process : processes)
            ::kill(process, SIGKILL);
        for (const ::pid_t process : processes)
            end_of(process);
        expect_value(0);
    }
}

TEST_F(board_state, ten_processes_that_start_at_once_on_an_empty_folder_all_work_on_one_state)
{
    for (int round = 0; round < 5; ++round) {
        fs::remove_all(state);
        std::vector<::pid_t> processes;
        for (std::uint64_t i = 0; i < 10; ++i) {
            processes.push_back(start([=] {
                const log_t log;
                const opened board;
                write_word(board.core(475), some_register + 4 * i, i + 1);
                EXPECT_THAT(log.lines(), ::testing::IsEmpty());
            }));
        }
        for (const ::pid_t process : processes)
            EXPECT_EQ(end_of(process).status, 0);
        run([] {
            const opened board;
            for (std::uint64_t i = 0; i < 10; ++i)
                EXPECT_EQ(read_word(board.core(475), some_register + 4 * i), i + 1);
        });
    }
}

TEST_F(board_state, a_state_folder_that_is_a_file_is_ENOTDIR_with_a_line_in_the_log)
{
    std::ofstream{state} << "a file";
    expect_no_board(ENOTDIR, state.string());
}

TEST_F(board_state, a_state_folder_that_cannot_be_made_fails_with_its_errno)
{
    ::setenv("IVRA_VIRTUAL_STATE", "/proc/nothing/here", 1);
    expect_no_board(ENOENT, "/proc/nothing");
}

TEST_F(board_state, a_state_folder_without_permission_is_EACCES_with_a_line_in_the_log)
{
    fs::create_directory(state);
    fs::permissions(state, fs::perms::owner_read | fs::perms::owner_exec);
    fs::permissions(folder, fs::perms::others_exec | fs::perms::others_read, fs::perm_options::add);
    fs::permissions(rack, fs::perms::others_read, fs::perm_options::add);
    ::unsetenv("IVRA_VIRTUAL_TRACE");
    run([this] {
        if (::getuid() == 0) { // root may do everything: be nobody
            ASSERT_EQ(::setgid(65534), 0);
            ASSERT_EQ(::setuid(65534), 0);
        }
        expect_no_board(EACCES, state.string());
    });
    fs::permissions(state, fs::perms::owner_all);
}

TEST_F(board_state, without_a_variable_lives_in_the_users_state_folder)
{
    ::unsetenv("IVRA_VIRTUAL_STATE");
    ::setenv("XDG_STATE_HOME", "/x/state", 1);
    ::setenv("HOME", "/home/me", 1);
    EXPECT_EQ(vp::state_root(), "/x/state/ivra-virtual");
    ::setenv("XDG_STATE_HOME", "relative", 1);
    EXPECT_EQ(vp::state_root(), "/home/me/.local/state/ivra-virtual") << "a relative one is to be ignored";
    ::unsetenv("XDG_STATE_HOME");
    EXPECT_EQ(vp::state_root(), "/home/me/.local/state/ivra-virtual");
    ::unsetenv("HOME");
    EXPECT_THROW(vp::state_root(), std::system_error);
}

TEST_F(board_state, makes_the_users_state_folder_when_it_is_not_there)
{
    ::unsetenv("IVRA_VIRTUAL_STATE");
    ::unsetenv("XDG_STATE_HOME");
    ::setenv("HOME", folder.c_str(), 1);
    write_value(3);
    EXPECT_TRUE(fs::is_directory(folder / ".local/state/ivra-virtual"));
    expect_value(3);
}

TEST_F(board_state, can_be_looked_at_without_making_one)
{
    const vp::rack_t loaded = vp::load_rack(rack);
    EXPECT_FALSE(vp::board_state::open_existing(loaded, loaded.accelerators.at(0)).has_value());
    EXPECT_FALSE(fs::exists(state));
    write_value(0x77);
    const auto remembered = vp::board_state::open_existing(loaded, loaded.accelerators.at(0));
    ASSERT_TRUE(remembered.has_value());
    EXPECT_EQ(remembered->registers().read(loaded.accelerators.at(0).cores.at(4), some_register), 0x77U);
    EXPECT_THAT(remembered->flash().programmed_sectors(), ::testing::IsEmpty());
    std::string changed = board_text;
    changed.replace(changed.find("45.5"), 4, "46.5");
    plug({changed});
    const vp::rack_t other = vp::load_rack(rack);
    EXPECT_FALSE(vp::board_state::open_existing(other, other.accelerators.at(0)).has_value()) << "of another text";
}

TEST_F(board_state, can_be_forgotten_by_board_by_rack_and_all)
{
    const vp::rack_t loaded = vp::load_rack(rack);
    EXPECT_FALSE(vp::forget_board(loaded, loaded.accelerators.at(0)));
    EXPECT_FALSE(vp::forget_rack(loaded.file));
    EXPECT_FALSE(vp::forget_all());
    EXPECT_FALSE(fs::exists(state)) << "nothing is made by forgetting";
    write_value(1);
    EXPECT_TRUE(vp::forget_board(loaded, loaded.accelerators.at(0)));
    expect_value(0);
    write_value(1);
    EXPECT_TRUE(vp::forget_rack(loaded.file));
    expect_value(0);
    write_value(1);
    run([] {
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        EXPECT_EQ(ivra_hw_shared_mutex_lock(mutex), 0);
        EXPECT_TRUE(vp::forget_all());
        run([] {
            ivra_hw_shared_mutex* same = ivra_hw_shared_mutex_create("m");
            EXPECT_FAILS(-1, EBUSY, ivra_hw_shared_mutex_trylock(same)) << "mutexes are not state";
            ivra_hw_shared_mutex_destroy(same);
        });
        ivra_hw_shared_mutex_destroy(mutex);
    });
    expect_value(0);
}

TEST(file_names, are_safe_readable_and_different_for_different_texts)
{
    const struct
    {
        std::string text, name;
    } rows[] = {
        {"0000:3b:00.0", "0000:3b:00.0"},
        {"/home/me/rack.json", "+home+me+rack.json"},
        {"", "%"},
        {".", "%2E"},
        {"..", "%2E."},
        {".lock", "%2Elock"},
        {"a+b", "a%2Bb"},
        {"a%b", "a%25b"},
        {std::string{"\0\n\xff", 3}, "%00%0A%FF"},
        {std::string(200, 'x'), std::string(200, 'x')},
    };
    for (const auto& row : rows)
        EXPECT_EQ(vp::file_name(row.text), row.name);
    const std::string one = vp::file_name("/a/" + std::string(5000, 'x') + "/rack.json");
    const std::string two = vp::file_name("/b/" + std::string(5000, 'x') + "/rack.json");
    EXPECT_NE(one, two);
    EXPECT_LE(one.size(), 255U);
    EXPECT_THAT(one, ::testing::EndsWith("+rack.json"));
    EXPECT_THAT(one, ::testing::StartsWith("%%"));
}

} // namespace

} // namespace ivra::platform_tests
