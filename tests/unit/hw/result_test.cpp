#include "hw/result.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace ivra::hw {
namespace {

TEST(result, of_a_success_has_its_value_and_error_0_of_the_system_category)
{
    result<std::string> r{std::string{"text"}};
    EXPECT_TRUE(r.has_value());
    EXPECT_EQ(r.value(), "text");
    EXPECT_EQ(r.access_value_or_throw(), "text");
    EXPECT_EQ(r.access_value_or_throw("unused"), "text");
    EXPECT_EQ(r.error(), std::error_code(0, std::system_category()));
    r.value() = "other";
    EXPECT_EQ(r.access_value_or_throw(), "other") << "value() is a reference";
}

TEST(result, of_a_failure_throws_its_error)
{
    result<int> r{std::error_code{EIO, std::generic_category()}};
    EXPECT_FALSE(r.has_value());
    EXPECT_EQ(r.error(), std::errc::io_error);
    EXPECT_THROW(r.value(), std::bad_optional_access);
    try {
        r.access_value_or_throw();
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::error_code(EIO, std::generic_category()));
        EXPECT_STREQ(error.what(), "Input/output error");
    }
    try {
        r.access_value_or_throw("Cannot read");
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_STREQ(error.what(), "Cannot read: Input/output error");
    }
}

TEST(result, of_the_last_failed_call_has_its_errno)
{
    errno = ENODEV;
    EXPECT_EQ(last_error(), std::error_code(ENODEV, std::generic_category()));
    errno = 0;
    EXPECT_EQ(last_error(), std::error_code(EIO, std::generic_category())) << "a failure that does not say why is one";
}

} // namespace
} // namespace ivra::hw
