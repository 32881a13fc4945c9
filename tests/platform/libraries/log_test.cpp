#include "story.h"

#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace ivra::platform_tests {

namespace {

class platform_log : public host
{
protected:
    static std::vector<std::string> levels_that_arrive()
    {
        const log_t log;
        for (int level = 0; level <= 4; ++level)
            ivra_log_log(level, "file", 1, "f", "%s", "m");
        return log.lines();
    }
};

TEST_F(platform_log, hands_every_message_to_the_handler_with_all_it_was_given)
{
    run([] {
        static std::string seen;
        ivra_log_set_handler(
            [](int level, const char* file, int line, const char* function, const char* format, va_list args) {
                char text[64];
                std::vsnprintf(text, sizeof text, format, args);
                seen = std::to_string(level) + "|" + file + "|" + std::to_string(line) + "|" + function + "|" + format +
                       "|" + text;
            });
        ivra_log_log(IVRA_LOG_WARNING, "a.cpp", 18, "get_xmc", "%d and %s", 5, "text");
        EXPECT_EQ(seen, "1|a.cpp|18|get_xmc|%d and %s|5 and text");
    });
}

TEST_F(platform_log, holds_back_messages_above_the_level)
{
    using ::testing::ElementsAre;
    using ::testing::SizeIs;
    run([] { EXPECT_THAT(levels_that_arrive(), SizeIs(4)) << "3 is everything, and the default"; });
    ::setenv("IVRA_LOG_LEVEL", "0", 1);
    run([] { EXPECT_THAT(levels_that_arrive(), ElementsAre("0 f: m")); });
    ::setenv("IVRA_LOG_LEVEL", "2", 1);
    run([] { EXPECT_THAT(levels_that_arrive(), ElementsAre("0 f: m", "1 f: m", "2 f: m")); });
    for (const char* nonsense : {"", "4", "-1", "two", "10"}) {
        ::setenv("IVRA_LOG_LEVEL", nonsense, 1);
        run([] { EXPECT_THAT(levels_that_arrive(), SizeIs(4)); });
    }
}

TEST_F(platform_log, without_a_handler_writes_function_and_message_to_standard_error)
{
    run([this] {
        const int file = ::open((folder / "stderr").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_EQ(::dup2(file, 2), 2);
        ivra_log_log(IVRA_LOG_INFO, "a.cpp", 1, "get_i2c", "%s: %d", "number", 7);
        ivra_log_set_handler([](int, const char*, int, const char*, const char*, va_list) {});
        ivra_log_log(IVRA_LOG_INFO, "a.cpp", 1, "get_i2c", "to the handler");
        ivra_log_set_handler(nullptr);
        ivra_log_log(IVRA_LOG_INFO, "a.cpp", 1, "again", "its own");
    });
    EXPECT_EQ(read(folder / "stderr"), "get_i2c: number: 7\nagain: its own\n");
}

TEST_F(platform_log, leaves_errno_alone)
{
    run([] {
        ivra_log_set_handler([](int, const char*, int, const char*, const char*, va_list) { errno = EIO; });
        errno = ENOENT;
        ivra_log_log(IVRA_LOG_INFO, "a.cpp", 1, "f", "m");
        EXPECT_EQ(errno, ENOENT);
    });
}

} // namespace

} // namespace ivra::platform_tests
