#include "support/rack.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <sstream>

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

} // namespace
} // namespace ivra::tests
