#include "exporter/reader_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

namespace ivra::bsp::exporter {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// A script of the shell that stands in for what reads the boards.
class script_t
{
public:
    explicit script_t(const std::string& script) : process{{"/bin/sh", "-c", script}} {}

    /// Its lines up to its end.
    std::string read_all()
    {
        std::string text;
        while (!process.end()) {
            ::pollfd descriptors[] = {{process.output(), POLLIN, 0}, {process.errors(), POLLIN, 0}};
            ::poll(descriptors, 2, 1);
            process.read([&text](const std::string& line) { text += line + '|'; });
        }
        return text;
    }

    reader_process process;
};

TEST(exporter_reader_process, has_nothing_of_the_one_that_starts_it)
{
    ::sigset_t blocked;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, SIGTERM);
    ASSERT_EQ(::sigprocmask(SIG_BLOCK, &blocked, nullptr), 0);
    std::signal(SIGPIPE, SIG_IGN);
    const script_t other{"exit 0"};
    script_t script{"readlink /proc/$$/fd/0; sed -n 's/^Sig[BI].*\\(.......\\)$/\\1/p' /proc/self/status;"
                    "read -r process name state parent group rest </proc/$$/stat; [ $group = $$ ] && echo alone;"
                    "readlink /proc/$$/fd/* >&2; exit 0"};
    EXPECT_EQ(script.read_all(), "/dev/null|0000000|0000000|alone|") << "no signal up to 28 is blocked or ignored";
    const auto pipe = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(other.process.output()));
    EXPECT_THAT(script.process.complaint(), HasSubstr("\npipe:["));
    EXPECT_THAT(script.process.complaint(), Not(HasSubstr(pipe.string())));
    EXPECT_EQ(script.process.status(), 0);
}

TEST(exporter_reader_process, ends_when_all_that_it_said_was_read)
{
    script_t script{"echo a; printf b >&2; echo c; printf d; exit 7"};
    ::siginfo_t info{};
    ASSERT_EQ(::waitid(P_ALL, 0, &info, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(script.process.end(), std::nullopt);
    EXPECT_EQ(script.read_all(), "a|c|") << "what is no line is none";
    EXPECT_EQ(script.process.end(), "what reads the boards ended with status 7");
    EXPECT_EQ(script.process.status(), 7);
    EXPECT_EQ(script.process.complaint(), "b");
}

TEST(exporter_reader_process, is_not_listened_to_without_end)
{
    script_t loud{"head -c 1000000 /dev/zero | tr '\\0' x >&2; echo a"};
    EXPECT_EQ(loud.read_all(), "a|");
    EXPECT_EQ(loud.process.complaint(), std::string(4096, 'x'));
    script_t endless{"exec cat /dev/zero"};
    EXPECT_EQ(endless.read_all(), "");
    EXPECT_EQ(endless.process.end(), "what reads the boards writes a line without end");
    EXPECT_EQ(endless.process.status(), std::nullopt) << "it found nobody to listen";
}

} // namespace
} // namespace ivra::bsp::exporter
