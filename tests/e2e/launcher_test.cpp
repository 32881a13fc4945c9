#include "support/process.h"
#include "support/rack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

namespace ivra::tests {
namespace {

namespace fs = std::filesystem;

/// The launcher in a folder of its own, beside made-up commands.
class folder_t
{
public:
    folder_t()
    {
        std::string name = (fs::temp_directory_path() / "ivra-launcher-XXXXXX").string();
        path_ = ::mkdtemp(name.data());
        fs::copy(IVRA_BSP, path_ / "ivra-bsp");
        add("one", "echo \"one: $# $1 $2\"; exit 7");
        add("two", "kill -TERM $$");
    }
    ~folder_t() { fs::remove_all(path_); }
    folder_t(const folder_t&) = delete;
    folder_t& operator=(const folder_t&) = delete;

    void add(const std::string& word, const std::string& script)
    {
        const fs::path file = path_ / ("ivra-bsp-" + word);
        std::ofstream{file} << "#!/bin/sh\n" << script << '\n';
        fs::permissions(file, fs::perms::owner_all);
    }
    const fs::path& path() const { return path_; }
    run_t run(const std::vector<std::string>& words, streams_t streams = {}) const
    {
        return run_program((path_ / "ivra-bsp").string(), words, {}, streams);
    }

private:
    fs::path path_;
};

/// With lines of its own for these commands.
std::string usage_of(const std::string& commands)
{
    return "Usage: ivra-bsp <command> [arguments]\n"
           "       ivra-bsp help [command]\n"
           "       ivra-bsp -h | --help | -V | --version\n"
           "\n"
           "Commands:\n" +
           commands +
           "\n"
           "The manual of a command: ivra-bsp help <command>. In short: ivra-bsp <command> --help\n";
}

const std::string usage = usage_of("  one\n"
                                   "  two\n");

TEST(launcher, becomes_the_command_that_its_first_word_names)
{
    const folder_t folder;
    const run_t run = folder.run({"one", "a b", "--help"});
    EXPECT_EQ(run.out, "one: 2 a b --help\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 7);
    EXPECT_EQ(folder.run({"two"}).status, 128 + SIGTERM);
}

TEST(launcher, starts_the_command_under_the_name_of_its_file)
{
    const folder_t folder;
    fs::copy("/bin/cat", folder.path() / "ivra-bsp-look");
    EXPECT_EQ(folder.run({"look", "/proc/self/cmdline"}),
              says(std::string{"ivra-bsp-look"} + '\0' + "/proc/self/cmdline" + '\0'));
}

TEST(launcher, finds_its_folder_through_a_symbolic_link)
{
    const folder_t folder;
    const fs::path link = folder.path() / "link";
    fs::create_symlink(folder.path() / "ivra-bsp", link);
    EXPECT_EQ(run_program(link.string(), {"one"}).out, "one: 0  \n");
}

TEST(launcher, lists_the_commands_for_a_word_that_is_none)
{
    folder_t folder;
    folder.add("not-executable", "");
    fs::permissions(folder.path() / "ivra-bsp-not-executable", fs::perms::owner_read);
    fs::create_directory(folder.path() / "ivra-bsp-folder");
    folder.add("", "exit 3");

    for (const std::string word : {"three", "../one", "./one", "--verbose", "folder", "not-executable"}) {
        const run_t run = folder.run({word});
        EXPECT_EQ(run.out, "") << word;
        EXPECT_EQ(run.err, "ivra-bsp: Unknown command: " + word + "\n" + usage);
        EXPECT_EQ(run.status, 64) << word;
    }
    for (const std::vector<std::string>& words : {std::vector<std::string>{}, std::vector<std::string>{""}}) {
        const run_t run = folder.run(words);
        EXPECT_EQ(run.err, "ivra-bsp: No command given\n" + usage);
        EXPECT_EQ(run.status, 64);
    }
}

TEST(launcher, takes_no_program_for_a_command_that_an_editor_or_a_package_manager_left)
{
    folder_t folder;
    const std::vector<std::string> left{"one~",       "one.orig", "one.dpkg-old", "One",
                                        "on\xc3\xa9", "one two",  "one_2",        "one\n"};
    for (const std::string& word : left)
        folder.add(word, "exit 3");
    folder.add("2-b", "exit 4");
    const std::string commands = usage_of("  2-b\n  one\n  two\n");
    EXPECT_EQ(folder.run({"--help"}), says(commands));
    for (const std::string& word : left)
        EXPECT_EQ(folder.run({word}).status, 64) << word;
    EXPECT_EQ(folder.run({"2-b"}).status, 4);
}

TEST(launcher, asks_whether_a_command_was_meant_that_is_near)
{
    folder_t folder;
    folder.add("board", "");
    folder.add("readings", "");
    const std::vector<std::pair<std::string, std::string>> rows{
        {"borad", "\"board\""},     // two letters exchanged
        {"bard", "\"board\""},      // one is missing
        {"boards", "\"board\""},    // one too many
        {"noard", "\"board\""},     // a wrong one
        {"BOARD", "\"board\""},     // in capitals
        {"reding", "\"readings\""}, // two slips in a long word
        {"re", "\"readings\""},     // a beginning
        {"t", "\"two\""},           // as short as can be
        {"onw", "\"one\""},         // one slip in a short word
        {"hlep", "\"help\""},       // what is no program
        {"owo", "\"two\""},
    };
    const std::string commands = usage_of("  board     show and manage the boards of this host\n"
                                          "  one\n"
                                          "  readings  read all boards: for scripts, monitoring, and a glance\n"
                                          "  two\n");
    for (const auto& [word, meant] : rows) {
        const std::string complaint =
            "ivra-bsp: Unknown command: " + word + "\nDid you mean " + meant + "?\n" + commands;
        EXPECT_EQ(folder.run({word}), (run_t{"", complaint, 64}));
        EXPECT_EQ(folder.run({"help", word}), (run_t{"", complaint, 64}));
    }
    for (const std::string& word : {std::string{"bxxrd"}, std::string{"wot"} + "x", std::string(100'000, 'b')})
        EXPECT_EQ(folder.run({word}), (run_t{"", "ivra-bsp: Unknown command: " + word + "\n" + commands, 64}));

    folder.add("ready", "");
    folder.add("reach", "");
    EXPECT_THAT(folder.run({"rea"}).err,
                ::testing::HasSubstr("\nDid you mean \"reach\", \"readings\" or \"ready\"?\n"));
}

TEST(launcher, repeats_a_word_without_its_control_characters)
{
    const folder_t folder;
    EXPECT_EQ(folder.run({"\033[2Jthree\a\u009b\u00e9"}).err, "ivra-bsp: Unknown command: ?[2Jthree??\u00e9\n" + usage);

    const fs::path odd = folder.path() / "o\add";
    fs::create_directory(odd);
    fs::copy(IVRA_BSP, odd / "ivra-bsp");
    const fs::path broken = odd / "ivra-bsp-broken";
    std::ofstream{broken} << "#!/no/such/interpreter\n";
    fs::permissions(broken, fs::perms::owner_all);
    EXPECT_EQ(run_program(odd / "ivra-bsp", {"broken"}).err, "ivra-bsp: Cannot run " +
                                                                 (folder.path() / "o?dd/ivra-bsp-broken").string() +
                                                                 ": No such file or directory\n");
}

TEST(launcher, tells_its_version_and_its_commands_on_standard_output)
{
    const folder_t folder;
    for (const std::string word : {"--version", "-V"})
        EXPECT_EQ(folder.run({word}), says("ivra-bsp " IVRA_BSP_VERSION "\n"));
    for (const std::string word : {"--help", "-h"})
        EXPECT_EQ(folder.run({word}), says(usage));
}

/// The launcher in a folder "bin" of an installation, beside a command "one"; manual pages as an installation has them,
/// and a man that says what it is to show.
class installation_t
{
public:
    installation_t()
    {
        fs::create_directories(bin());
        fs::create_directory(tools());
        fs::copy(IVRA_BSP, bin() / "ivra-bsp");
        add(bin() / "ivra-bsp-one", "echo \"one: $# $1\"; exit 7");
        add(tools() / "man", "echo \"man: $# $1\"; exit 5");
    }
    fs::path bin() const { return folder_.path() / "bin"; }
    fs::path tools() const { return folder_.path() / "tools"; }
    fs::path page(const std::string& section, const std::string& program) const
    {
        return folder_.path() / "share/man" / ("man" + section) / (program + "." + section + ".gz");
    }
    void add_page(const fs::path& page) const
    {
        fs::create_directories(page.parent_path());
        std::ofstream{page} << "a page";
    }
    run_t run(const std::vector<std::string>& words, streams_t streams = {}) const
    {
        return run_program(bin() / "ivra-bsp", words, {"PATH=" + tools().string()}, streams);
    }

private:
    static void add(const fs::path& file, const std::string& script)
    {
        std::ofstream{file} << "#!/bin/sh\n" << script << '\n';
        fs::permissions(file, fs::perms::owner_all);
    }

    folder_t folder_;
};

TEST(launcher, shows_the_manual_that_was_installed_with_it)
{
    const installation_t there;
    there.add_page(there.page("1", "ivra-bsp"));
    there.add_page(there.page("8", "ivra-bsp-one"));
    const run_t own{"man: 1 " + there.page("1", "ivra-bsp").string() + "\n", "", 5};
    EXPECT_EQ(there.run({"help"}), own);
    EXPECT_EQ(there.run({"help", ""}), own);
    EXPECT_EQ(there.run({"help", "help"}), own);
    const run_t of_one{"man: 1 " + there.page("8", "ivra-bsp-one").string() + "\n", "", 5};
    EXPECT_EQ(there.run({"help", "one"}), of_one);
    // Which pager a terminal has is man's business.
    EXPECT_EQ(there.run({"help", "one"}, {stream_t::terminal, stream_t::file}), of_one);
}

TEST(launcher, shows_what_a_command_says_of_itself_where_there_is_no_page_or_no_man)
{
    const installation_t there;
    const run_t short_help{"one: 1 --help\n", "", 7};
    EXPECT_EQ(there.run({"help", "one"}), short_help);
    EXPECT_EQ(there.run({"help"}), says(usage_of("  one\n")));
    for (const std::string program : {"ivra-bsp", "ivra-bsp-one"})
        there.add_page(there.page("1", program));
    fs::remove(there.tools() / "man");
    EXPECT_EQ(there.run({"help", "one"}), short_help);
    EXPECT_EQ(there.run({"help"}), says(usage_of("  one\n")));
}

TEST(launcher, refuses_help_on_what_is_no_command)
{
    const installation_t there;
    there.add_page(there.page("1", "ivra-bsp-absent"));
    const std::string commands = usage_of("  one\n");
    EXPECT_EQ(there.run({"help", "absent"}), (run_t{"", "ivra-bsp: Unknown command: absent\n" + commands, 64}));
    EXPECT_EQ(there.run({"help", "../one"}), (run_t{"", "ivra-bsp: Unknown command: ../one\n" + commands, 64}));
    EXPECT_EQ(there.run({"help", "one", "more"}),
              (run_t{"", "ivra-bsp: Help is on one command at a time\n" + commands, 64}));
    EXPECT_EQ(there.run({"help", "--one"}), (run_t{"", "ivra-bsp: Unknown command: --one\n" + commands, 64}));
    EXPECT_EQ(there.run({"help", "--help"}), says(commands));
    EXPECT_EQ(there.run({"help", "-h"}), says(commands));
}

TEST(launcher, fails_when_standard_output_cannot_be_written)
{
    const folder_t folder;
    for (const std::string word : {"--version", "--help"}) {
        const run_t run = folder.run({word}, {stream_t::full_disk, stream_t::file});
        EXPECT_EQ(run.err, "ivra-bsp: Cannot write to standard output: No space left on device\n");
        EXPECT_EQ(run.status, 1);
    }
}

TEST(launcher, says_why_a_command_cannot_be_run)
{
    folder_t folder;
    const fs::path broken = folder.path() / "ivra-bsp-broken";
    std::ofstream{broken} << "#!/no/such/interpreter\n";
    fs::permissions(broken, fs::perms::owner_all);
    const run_t run = folder.run({"broken"});
    EXPECT_EQ(run.err, "ivra-bsp: Cannot run " + broken.string() + ": No such file or directory\n");
    EXPECT_EQ(run.status, 1);
}

/// A copy of a program in which these names of libraries are others of the same length.
void copy_with(const fs::path& program, const fs::path& copy, const std::map<std::string, std::string>& names)
{
    std::ifstream from{program, std::ios::binary};
    std::string bytes{std::istreambuf_iterator<char>{from}, {}};
    for (const auto& [name, other] : names)
        for (std::size_t at = bytes.find(name + '\0'); at != std::string::npos; at = bytes.find(name + '\0', at))
            bytes.replace(at, name.size(), other);
    std::ofstream{copy, std::ios::binary} << bytes;
    fs::permissions(copy, fs::perms::owner_all);
}

const fs::path board_command = fs::path{IVRA_BSP}.parent_path() / "ivra-bsp-board";

TEST(launcher, says_which_libraries_are_missing_and_how_to_try_the_command_without_boards)
{
    const folder_t folder;
    const std::map<std::string, std::string> others{{"libivra-log.so.1", "libivra-own.so.1"},
                                                    {"libivra-hw-c.so.1", "libivra-hw-x.so.1"}};
    copy_with(board_command, folder.path() / "ivra-bsp-board", others);
    const std::string found = "libraries not found: libivra-hw-x.so.1, libivra-own.so.1\n";
    const std::string advice =
        "The loader looks for them in the folders of LD_LIBRARY_PATH, and in those that ldconfig "
        "lists.\nThey come with the boards. To try the command on simulated boards: ";

    const run_t run = folder.run({"board", "list"});
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "ivra-bsp: Cannot run ivra-bsp-board: " + found + advice + folder.path().string() +
                           "/ivra-virtual run -- ivra-bsp board ...\n");
    EXPECT_EQ(run.status, 127);

    const run_t by_name = run_program("/bin/sh", {"-c", "PATH=$0; ivra-bsp board list", folder.path()});
    EXPECT_THAT(by_name.err, ::testing::EndsWith(": ivra-virtual run -- ivra-bsp board ...\n"));
    EXPECT_EQ(by_name.status, 127);

    EXPECT_EQ(folder.run({"one"}).status, 7);
}

TEST(launcher, leaves_other_programs_to_the_loader)
{
    const folder_t folder;
    copy_with("/bin/cat", folder.path() / "ivra-bsp-look", {{"libc.so.6", "libx.so.6"}});
    const run_t run = folder.run({"look"});
    EXPECT_EQ(run.err,
              "ivra-bsp-look: error while loading shared libraries: libx.so.6: cannot open shared object file: No "
              "such file or directory\n");
    EXPECT_EQ(run.status, 127);
}

TEST(launcher, names_the_platform_libraries_that_its_commands_load)
{
    const folder_t folder;
    copy_with(board_command, folder.path() / "ivra-bsp-board", {{"libivra-log.so.1", "libivra-own.so.1"}});
    fs::copy(folder.path() / "ivra-bsp-board", folder.path() / "ivra-bsp-twin");
    const fs::path libraries = folder.path() / "odd => place (0x1)";
    fs::create_directory(libraries);
    for (const std::string name : {"libivra-hw-c.so.1", "libivra-cores-c.so.1", "libivra-log.so.1"})
        fs::copy(fs::path{IVRA_VIRTUAL_LIBRARIES} / name, libraries / name);
    const run_t run = run_program(folder.path() / "ivra-bsp", {"--version"}, {"LD_LIBRARY_PATH=" + libraries.string()});
    const std::string found = ": " + libraries.string();
    EXPECT_EQ(run.out, "ivra-bsp " IVRA_BSP_VERSION "\n"
                       "libivra-cores-c.so.1" +
                           found +
                           "/libivra-cores-c.so.1 (simulated)\n"
                           "libivra-hw-c.so.1" +
                           found +
                           "/libivra-hw-c.so.1 (simulated)\n"
                           "libivra-log.so.1" +
                           found +
                           "/libivra-log.so.1 (simulated)\n"
                           "libivra-own.so.1: not found\n");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(launcher, leaves_no_process_and_no_descriptor_of_its_own_to_the_command)
{
    folder_t folder;
    folder.add("look", "read children </proc/$$/task/$$/children; echo \"$children\"; ls /proc/$$/fd");
    EXPECT_EQ(folder.run({"look"}).out, run_program(folder.path() / "ivra-bsp-look", {}).out);
}

TEST(launcher, asks_the_loader_whatever_it_was_started_with)
{
    const folder_t folder;
    EXPECT_EQ(folder.run({"one"}, {stream_t::closed, stream_t::closed, false}).status, 7);
#if IVRA_SWEEP_STEP == 1 // sanitizers look at memory through pipes
    const run_t without_pipes = run_in_child([&] {
        forbid({SYS_pipe2}, EMFILE);
        exec_program(folder.path() / "ivra-bsp", {"one", "a", "b"}, {});
    });
    EXPECT_EQ(without_pipes, (run_t{"one: 2 a b\n", "", 7})) << "then it does not ask";
#endif
    const run_t run =
        run_program("/bin/sh", {"-c", "trap '' CHLD; exec \"$0\" board --help", IVRA_BSP}, {"LD_VERBOSE=1"});
    EXPECT_EQ(run.out, run_program(board_command, {"--help"}).out);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(launcher, runs_the_board_command)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"open", "\"EACCES\""}});
    rack.run("list"); // writes the rack
    const run_t run = run_program(IVRA_BSP, {"board", "show", "info"},
                                  {"IVRA_VIRTUAL_RACK=" + (rack.folder() / "rack.json").string(),
                                   "IVRA_VIRTUAL_STATE=" + (rack.folder() / "state").string()});
    EXPECT_EQ(run.err, "Permission denied\n");
    EXPECT_EQ(run.status, 1);
}

} // namespace
} // namespace ivra::tests
