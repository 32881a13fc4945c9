#include "changes.h"

#include "screens.h"
#include "support/rack.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace ivra::tests {
namespace {

void plug_one(rack_t& rack)
{
    rack.plug("m48l_xcvu7p").host({.serial = "S1", .address = {}});
}

const std::vector<std::string> commands{"list",   "list --json", "show info", "show flash", "show flash --json",
                                        "--help", "show --help"};

TEST(standard_output, that_is_full_makes_every_command_fail_and_says_why)
{
    for (const std::string& words : commands) {
        rack_t rack;
        plug_one(rack);
        const run_t run = rack.run(words, {stream_t::full_disk, stream_t::file});
        EXPECT_EQ(run.err, "Cannot write to standard output: No space left on device\n") << words;
        EXPECT_EQ(run.status, 1) << words;
    }
}

TEST(standard_output, that_is_closed_makes_every_command_fail_and_says_why)
{
    for (const std::string& words : commands) {
        rack_t rack;
        plug_one(rack);
        const run_t run = rack.run(words, {stream_t::closed, stream_t::file});
        EXPECT_EQ(run.err, "Cannot write to standard output: Bad file descriptor\n") << words;
        EXPECT_EQ(run.status, 1) << words;
    }
}

TEST(standard_output, whose_reader_went_away_makes_every_command_fail_in_silence)
{
    for (const std::string& words : commands) {
        rack_t rack;
        plug_one(rack);
        const run_t run = rack.run(words, {stream_t::broken_pipe, stream_t::file});
        EXPECT_EQ(run.err, "") << words;
        EXPECT_EQ(run.status, 1) << words;
    }
}

TEST(standard_error, that_cannot_be_written_changes_nothing_else)
{
    for (const stream_t stream : {stream_t::full_disk, stream_t::closed, stream_t::broken_pipe}) {
        rack_t rack;
        plug_one(rack);
        const run_t run = rack.run("show info", {stream_t::file, stream});
        EXPECT_TRUE(run.out.starts_with("Accelerator\n\tName         : card-0\n"));
        EXPECT_EQ(run.status, 0);
        const run_t failing = rack.run("show info -a none", {stream_t::file, stream});
        EXPECT_EQ(failing.out, "");
        EXPECT_EQ(failing.status, 1);
    }
}

TEST(standard_descriptors, that_are_closed_are_never_lent_to_files_of_the_platform)
{
    rack_t rack;
    plug_one(rack);
    rack.run("show info");
    const std::string before = rack.trace();
    const run_t run = rack.run("show info -a none", {stream_t::closed, stream_t::closed});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(rack.trace().find("No such accelerator"), std::string::npos) << rack.trace();
    EXPECT_NE(before, "");
}

TEST(standard_descriptors, that_are_closed_are_the_null_device_all_three)
{
    rack_t rack;
    plug_one(rack);
    rack.faults(R"({"call": "ivra_hw_accelerator_get", "delay": "5 s"})"); // in which they are looked at
    const auto are_null = [](::pid_t process) {
        for (const char* descriptor : {"0", "1", "2"}) {
            std::error_code error;
            const auto link = "/proc/" + std::to_string(process) + "/fd/" + descriptor;
            if (std::filesystem::read_symlink(link, error) != "/dev/null")
                return false;
        }
        return true;
    };
    const run_t run = run_and_signal(rack, "show info", SIGTERM, are_null,
                                     {.out = stream_t::closed, .err = stream_t::closed, .has_input = false});
    EXPECT_EQ(run.status, 128 + SIGTERM);
}

TEST(progress, is_there_when_the_process_is_killed_right_after_it)
{
    struct row_t
    {
        const char* words;
        const char* killed; ///< at this call, before it does anything
        std::string out;
    };
    const std::string chosen = "Auto-selected first accelerator\n";
    const row_t rows[] = {
        {"show info", R"("call": "ivra_hw_accelerator_get")", chosen},
        {"set boot-image backup", R"("call": "ivra_uart_write_all")", chosen + "Setting boot image to backup... "},
        {"show sensors", R"("call": "ivra_uart_write_all")", chosen + "Retrieving sensor data... "},
        {"show all", R"("call": "ivra_uart_write_all", "nth": 4)",
         chosen + info("bittware_xupp3r", "VRTP3R0001") + "\n"}, // behind three for the serial
    };
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("bittware_xupp3r", {{"bmc", R"({"fru": {"serial": "VRTP3R0001"}})"}}).plug("m48l_xcvu7p");
        rack.environment("IVRA_LOG_LEVEL=0").faults(std::string{"{"} + row.killed + R"(, "kill": "before"})");
        const run_t run = rack.run(row.words);
        EXPECT_EQ(run.out, row.out);
        EXPECT_EQ(run.status, 128 + SIGKILL);
    }
}

TEST(terminal_size, is_asked_for_once_more_by_the_colour_mode_and_no_more_once_the_format_is_json)
{
    const std::string failed = "Error getting terminal size: Operation not permitted\n";
    for (const auto& [words, times] : {std::pair{"list", 3}, {"list --json", 2}}) {
        rack_t rack;
        plug_one(rack);
        std::vector<std::string> arguments = split(words);
        arguments.insert(arguments.begin(), "board");
        const run_t run = rack.in_child(
            [&] {
                forbid_terminal_size();
                exec_program(IVRA_BSP, arguments, {});
            },
            {.out = stream_t::terminal, .err = stream_t::file});
        std::string expected;
        for (int i = 0; i < times; ++i) // when the object is made, with the colour mode, with the format
            expected += failed;
        EXPECT_EQ(run.err, expected) << words;
        EXPECT_EQ(run.status, 0);
    }
}

} // namespace
} // namespace ivra::tests
