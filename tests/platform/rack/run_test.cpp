#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <sys/xattr.h>
#include <unistd.h>

namespace ivra::tests {

namespace {

using ::testing::EndsWith;
namespace fs = std::filesystem;

const fs::path tool = IVRA_VIRTUAL_COMMAND;
const std::string libraries = (tool.parent_path().parent_path() / IVRA_VIRTUAL_LIBDIR).string();

/// A rack and programs in a folder that goes with the test.
class run_command : public ::testing::Test
{
protected:
    run_command()
    {
        std::string name = fs::temp_directory_path() / "run-tests-XXXXXX";
        folder = fs::canonical(::mkdtemp(name.data()));
        std::ofstream{folder / "rack.json"} << R"({"accelerators": [{"model": "xilinx_u50"}]})";
    }
    ~run_command() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    fs::path program(const std::string& name, const std::string& script, fs::perms mode = fs::perms::owner_all) const
    {
        std::ofstream{folder / name} << "#!/bin/sh\n" << script << '\n';
        fs::permissions(folder / name, mode);
        return folder / name;
    }

    /// Runs ivra-virtual run with these words.
    run_t run(std::vector<std::string> words, std::vector<std::string> environment = {}, streams_t streams = {}) const
    {
        words.insert(words.begin(), "run");
        return run_program(tool, words, environment, streams);
    }

    fs::path folder;
};

/// What `env` prints: a variable in a line.
std::map<std::string, std::string> variables(const run_t& run)
{
    std::map<std::string, std::string> found;
    std::istringstream lines{run.out};
    for (std::string line; std::getline(lines, line);)
        found[line.substr(0, line.find('='))] = line.substr(line.find('=') + 1);
    return found;
}

TEST_F(run_command, sets_three_variables_and_nothing_else)
{
    const std::string own = tool.parent_path();
    struct row_t
    {
        std::vector<std::string> before;
        std::string libraries;
        std::string path;
    };
    const row_t rows[] = {
        {{"LD_LIBRARY_PATH", "PATH=/usr/bin:/bin", "IVRA_VIRTUAL_RACK"}, libraries, own + ":/usr/bin:/bin"},
        // An empty element would be the current directory.
        {{"LD_LIBRARY_PATH=", "PATH=", "IVRA_VIRTUAL_RACK="}, libraries, own + ":/bin:/usr/bin"},
        {{"LD_LIBRARY_PATH=/a:/b", "PATH", "IVRA_VIRTUAL_RACK=/no/rack"}, libraries + ":/a:/b", own + ":/bin:/usr/bin"},
    };
    for (const row_t& row : rows) {
        auto expected = variables(run_program("/usr/bin/env", {}, row.before));
        expected["LD_LIBRARY_PATH"] = row.libraries;
        expected["PATH"] = row.path;
        expected["IVRA_VIRTUAL_RACK"] = folder / "rack.json";
        EXPECT_EQ(variables(run({folder / "sub/../rack.json", "--", "env"}, row.before)).size(), 0U)
            << "no such folder";
        fs::create_directory(folder / "sub");
        EXPECT_EQ(variables(run({folder / "sub/../rack.json", "--", "env"}, row.before)), expected);
        fs::remove(folder / "sub");
    }
}

TEST_F(run_command, takes_the_showcase_when_no_rack_is_given)
{
    const run_t result = run({"--", "printenv", "IVRA_VIRTUAL_RACK"}, {"IVRA_VIRTUAL_RACK=/no/rack"});
    EXPECT_EQ(result.out, fs::canonical(IVRA_RACKS "/showcase.json").string() + "\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(run_command, hands_on_every_word_behind_the_dashes)
{
    const run_t result = run({"--", "printf", "%s|", "a b", "", "--help", "--", "-x"});
    EXPECT_EQ(result.out, "a b||--help|--|-x|");
    EXPECT_EQ(result.status, 0);
}

TEST_F(run_command, runs_a_script_that_names_no_interpreter_as_a_shell_does)
{
    const fs::path script = folder / "script";
    std::ofstream{script} << "echo \"ran $1\"\n";
    fs::permissions(script, fs::perms::owner_all);
    EXPECT_EQ(run({"--", script, "well"}).out, "ran well\n");
}

TEST_F(run_command, becomes_the_command)
{
    EXPECT_EQ(run({"--", "sh", "-c", "exit 7"}).status, 7);
    EXPECT_EQ(run({"--", "sh", "-c", "kill -TERM $$"}).status, 128 + SIGTERM);
    running_t started{[] { exec_program(tool, {"run", "--", "sh", "-c", "echo $$"}, {}); }};
    const std::string process = std::to_string(started.process());
    EXPECT_EQ(started.end().out, process + "\n");
}

TEST_F(run_command, leaves_signals_and_closed_streams_to_the_command)
{
    const std::string look = "grep SigIgn /proc/$$/status; for i in 0 1 2; do test -e /proc/$$/fd/$i && echo $i; done";
    const streams_t streams{.out = stream_t::file, .err = stream_t::closed, .has_input = false};
    const run_t direct = run_program("/bin/sh", {"-c", look}, {}, streams);
    EXPECT_THAT(direct.out, EndsWith("\n1\n"));
    EXPECT_EQ(run({"--", "/bin/sh", "-c", look}, {}, streams).out, direct.out);
}

TEST_F(run_command, is_a_shell_without_a_command)
{
    const fs::path shell = program("my-shell", "echo \"$0 $#\"");
    EXPECT_EQ(run({folder / "rack.json"}, {"SHELL=" + shell.string()}).out, shell.string() + " 0\n");
    EXPECT_EQ(run({"--"}, {"SHELL=" + shell.string()}).out, shell.string() + " 0\n");
    for (const std::string without : {"SHELL", "SHELL="})
        EXPECT_EQ(run_program("/bin/sh", {"-c", "echo 'echo $0' | \"$0\" run", tool}, {without}).out, "/bin/sh\n");
}

TEST_F(run_command, says_on_a_terminal_which_boards_these_are)
{
    const run_t result = run({folder / "rack.json", "--", "echo", "here"}, {}, {stream_t::file, stream_t::terminal});
    EXPECT_EQ(result.err, "Simulated boards: " + (folder / "rack.json").string() + " (not under sudo)\n");
    EXPECT_EQ(result.out, "here\n");
    EXPECT_EQ(run({folder / "rack.json", "--", "echo"}, {}, {stream_t::terminal, stream_t::file}).err, "");
}

TEST_F(run_command, tells_a_command_that_is_not_there_from_one_that_cannot_be_run)
{
    const fs::path plain = program("plain", "echo ran", fs::perms::owner_read);
    const fs::path hollow = folder / "hollow";
    std::ofstream{hollow} << "#!/no/such/interpreter\n";
    fs::permissions(hollow, fs::perms::owner_all);
    struct row_t
    {
        std::string word;
        int status;
        std::string reason;
    };
    const row_t rows[] = {
        {"no-such-program", 127, "No such file or directory"},
        {"/no/such/program", 127, "No such file or directory"},
        {"", 127, "No such file or directory"},
        {hollow, 127, "No such file or directory"},
        {"plain", 126, "Permission denied"},
        {plain, 126, "Permission denied"},
        {folder, 126, "Permission denied"},
    };
    for (const row_t& row : rows) {
        const run_t result = run({"--", row.word}, {"PATH=" + folder.string() + ":/bin"});
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "ivra-virtual: run: cannot run \"" + row.word + "\": " + row.reason + "\n");
        EXPECT_EQ(result.status, row.status) << row.word;
    }
    // What cannot be run is passed over when another folder has one that can.
    fs::create_directory(folder / "other");
    fs::copy(program("good", "echo ran"), folder / "other/plain");
    EXPECT_EQ(run({"--", "plain"}, {"PATH=" + folder.string() + ":" + (folder / "other").string()}).out, "ran\n");
}

std::string refused(const std::string& word, const std::string& why)
{
    return "ivra-virtual: run: \"" + word + "\"" + why +
           " forgets the environment and would find the real boards; put it in front: sudo ivra-virtual run ...\n"
           "ivra-virtual: try \"ivra-virtual run --help\"\n";
}

TEST_F(run_command, refuses_what_would_find_the_real_boards)
{
    const std::string path = "PATH=" + folder.string() + ":/bin";
    for (const std::string name : {"sudo", "su", "doas", "pkexec"}) {
        const fs::path file = program(name, "echo ran");
        for (const std::string& word : {name, file.string(), "/no/such/folder/" + name}) {
            const run_t result = run({"--", word, "ivra-bsp", "board", "list"}, {path});
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.err, refused(word, ""));
            EXPECT_EQ(result.status, 64) << word;
        }
        EXPECT_EQ(run({}, {"SHELL=" + file.string()}).status, 64) << name;
    }
    using fs::perms;
    for (const perms bit : {perms::set_uid, perms::set_gid}) {
        const fs::path file = program("tool", "echo ran", perms::owner_all | perms::group_exec | bit);
        fs::remove(folder / "link");
        fs::create_symlink(file, folder / "link");
        for (const std::string& word : {std::string{"tool"}, file.string(), std::string{"link"}}) {
            const run_t result = run({"--", word}, {path});
            EXPECT_EQ(result.out, "");
            EXPECT_EQ(result.err, refused(word, " has set-id bits,"));
            EXPECT_EQ(result.status, 64) << word;
        }
    }
}

TEST_F(run_command, refuses_a_file_with_capabilities)
{
    const fs::path file = program("capable", "echo ran");
    // Version 2 of the attribute: magic, and two pairs of permitted and inheritable; the first has CAP_NET_RAW.
    constexpr char net_raw[20] = {0, 0, 0, 2, 0, 0x20};
    if (::setxattr(file.c_str(), "security.capability", net_raw, sizeof net_raw, 0) != 0)
        GTEST_SKIP() << "only root may give capabilities to a file, where its file system has them";
    const run_t result = run({"--", file});
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, refused(file, " has capabilities,"));
    EXPECT_EQ(result.status, 64);
}

TEST_F(run_command, runs_nothing_with_a_rack_that_cannot_be_used)
{
    std::ofstream{folder / "bad.json"} << R"({"accelerators": [{"model": "a", "mmios": -1}]})";
    const run_t bad = run({folder / "bad.json", "--", "echo", "ran"});
    EXPECT_EQ(bad.out, "");
    EXPECT_EQ(bad.err, "ivra-virtual: " + (folder / "bad.json").string() +
                           ": /accelerators/0/mmios: expected a number of MMIO spaces, 0 to 16\n");
    EXPECT_EQ(bad.status, 1);
    EXPECT_EQ(run({"", "--", "echo", "ran"}).status, 1);
}

constexpr const char* virtual_libraries[] = {"libivra-log.so.1", "libivra-hw-c.so.1", "libivra-cores-c.so.1",
                                             "ivra-virtual.so"};

/// Installs the program and its libraries below a folder.
fs::path install(const fs::path& prefix)
{
    const fs::path own = prefix / "bin/ivra-virtual";
    fs::create_directories(own.parent_path());
    fs::copy(tool, own);
    fs::create_directories(prefix / IVRA_VIRTUAL_LIBDIR);
    for (const char* name : virtual_libraries)
        fs::copy(fs::path{libraries} / name, prefix / IVRA_VIRTUAL_LIBDIR / name);
    return own;
}

TEST_F(run_command, takes_the_showcase_of_its_own_installation)
{
    const fs::path own = install(folder / "usr/local");
    for (const std::string prefix : {"usr/local", "usr", "."}) {
        fs::create_directories(folder / prefix / "share/ivra/racks");
        fs::copy(folder / "rack.json", folder / prefix / "share/ivra/racks/showcase.json");
    }
    EXPECT_EQ(run_program(own, {"run", "--", "printenv", "IVRA_VIRTUAL_RACK"}).out,
              (folder / "usr/local/share/ivra/racks/showcase.json\n").string());
}

TEST_F(run_command, runs_nothing_when_the_loader_would_pass_over_the_virtual_libraries)
{
    for (const std::string prefix : {"with:colon", "with;semicolon", "with$ORIGIN"}) {
        const run_t result = run_program(install(folder / prefix), {"run", folder / "rack.json", "--", "echo", "ran"});
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "ivra-virtual: run: the loader cannot be pointed to a path with ':', ';' or '$': " +
                                  (folder / prefix / IVRA_VIRTUAL_LIBDIR).string() + "\n");
    }
}

TEST_F(run_command, runs_nothing_without_one_of_the_virtual_libraries)
{
    for (const std::string name : virtual_libraries) {
        const fs::path own = install(folder / name);
        const fs::path library = folder / name / IVRA_VIRTUAL_LIBDIR / name;
        fs::remove(library);
        const run_t result = run_program(own, {"run", folder / "rack.json", "--", "echo", "ran"});
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err,
                  "ivra-virtual: run: the virtual platform's " + library.string() + ": No such file or directory\n");
    }
}

TEST_F(run_command, says_where_a_command_stands)
{
    const run_t result = run({"rack.json", "ivra-bsp", "board", "list"});
    EXPECT_EQ(result.err, "ivra-virtual: run: unexpected argument \"ivra-bsp\", a command stands behind \"--\"\n"
                          "ivra-virtual: try \"ivra-virtual run --help\"\n");
    EXPECT_EQ(result.status, 64);
    EXPECT_EQ(run({"--quick", "--", "true"}).status, 64);
}

} // namespace

} // namespace ivra::tests
