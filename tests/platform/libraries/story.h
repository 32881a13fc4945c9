#ifndef IVRA_TESTS_PLATFORM_STORY_H
#define IVRA_TESTS_PLATFORM_STORY_H

#include "support/function_ref.h"

#include <ivra/flash.h>
#include <ivra/hw.h>
#include <ivra/hw_top.h>
#include <ivra/i2c.h>
#include <ivra/log.h>
#include <ivra/mac_address.h>
#include <ivra/uart.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ivra::platform_tests {

/// A board with a flash of 1 MiB (sectors of 4 KiB), an I2C controller, a UART and two cores 475 with registers.
extern const std::string board_text;

/// What a call returned and set errno to.
template <class Result>
struct called_t
{
    Result result;
    int error;
};
template <class Result>
called_t(Result, int) -> called_t<Result>;

/// Compares what a call returned and set errno to.
template <class Result, class Seen>
::testing::AssertionResult fails(Result result, int error, const called_t<Seen>& seen, const char* text)
{
    const bool as_expected = seen.result == result;
    if (as_expected && seen.error == error)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << text << (as_expected ? " failed" : " returned something else") << ", errno "
                                         << seen.error << " (expected " << error << ")";
}

#define EXPECT_FAILS(result, error, expression)                                                                        \
    EXPECT_TRUE(::ivra::platform_tests::fails(                                                                         \
        result, error, ::ivra::platform_tests::called_t{(errno = 0, expression), errno}, #expression))

/// How a process ended.
struct end_t
{
    int status = -1; ///< exit status; -1 when it was killed
    int signal = 0;  ///< that killed it
};

/// A host with its own rack, state and settings. The platform is only ever used in child processes, as the libraries
/// read their environment once.
class host : public ::testing::Test
{
protected:
    host();
    ~host() override;

    /// Writes the rack with these accelerators, as JSON objects.
    void plug(const std::vector<std::string>& accelerators);
    /// Writes the fault plan and makes it count.
    void plan(const std::string& json);

    /// Starts a process that runs the story; failed expectations in it make its exit status 1.
    static ::pid_t start(tests::function_ref<void()> story);
    static end_t end_of(::pid_t process);
    /// Both, and expects the process to end well.
    static void run(tests::function_ref<void()> story);

    /// Lines of the trace without the seconds and the process; EXPECTs that each begins with them.
    std::vector<std::string> trace() const;
    std::string read(const std::filesystem::path& file) const;
    /// What ivra-virtual shows of the rack.
    std::string shown() const;

    std::filesystem::path folder; ///< all files of the test
    std::filesystem::path rack;
    std::filesystem::path state;
};

/// Messages that the platform logged since it was made, as "level function: message".
class log_t
{
public:
    log_t();
    ~log_t();
    log_t(const log_t&) = delete;
    log_t& operator=(const log_t&) = delete;
    const std::vector<std::string>& lines() const;
};

/// An accelerator opened down to its core tree.
class opened
{
public:
    explicit opened(std::size_t index = 0);
    ~opened();
    opened(const opened&) = delete;
    opened& operator=(const opened&) = delete;

    ivra_hw_core* core(std::uint32_t hardware_id, std::size_t n = 0) const;

    const ivra_hw_accelerator_descriptor* descriptor = nullptr;
    ivra_hw_accelerator* accelerator = nullptr;
    const ivra_hw_mmio_descriptor* mmio_descriptor = nullptr;
    ivra_hw_mmio* mmio = nullptr;
    ivra_hw_core_tree* tree = nullptr;
    ivra_hw_core* root = nullptr;
};

/// Descriptors of all accelerators, released at the end.
class descriptors_t
{
public:
    explicit descriptors_t(std::size_t capacity = 16);
    ~descriptors_t();
    descriptors_t(const descriptors_t&) = delete;
    descriptors_t& operator=(const descriptors_t&) = delete;
    const ivra_hw_accelerator_descriptor* operator[](std::size_t index) const { return handles.at(index); }

    std::vector<const ivra_hw_accelerator_descriptor*> handles;
};

/// Names of all functions that the platform's headers declare.
std::set<std::string> declared_functions();

std::uint64_t read_word(ivra_hw_core* core, std::uint64_t offset);
void write_word(ivra_hw_core* core, std::uint64_t offset, std::uint64_t value);

} // namespace ivra::platform_tests

#endif
