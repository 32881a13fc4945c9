#include "bad_racks.h"

#include "rack/rack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace ivra::tests {

namespace {

using namespace ivra::virtual_platform;
using ::testing::MatchesRegex;
namespace fs = std::filesystem;

std::string error_of(const std::string& text)
{
    try {
        parse_rack(text, "my.json");
    } catch (const file_error& error) {
        return error.what();
    }
    return "no error";
}

std::string load_error_of(const fs::path& file)
{
    try {
        load_rack(file);
    } catch (const file_error& error) {
        return error.what();
    }
    return "no error";
}

/// A folder that goes with the test.
class bad_files : public ::testing::Test
{
protected:
    bad_files()
    {
        std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
        folder = ::mkdtemp(name.data());
    }
    ~bad_files() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    fs::path folder;
};

} // namespace

TEST(bad_racks, each_mistake_is_said_with_file_place_and_what_was_expected)
{
    for (const bad_rack_t& row : bad_racks())
        EXPECT_EQ(error_of(row.text), "my.json: " + row.error) << row.why;
}

TEST(bad_racks, every_truncation_of_a_good_rack_is_a_mistake_and_nothing_worse)
{
    const std::string text = rack_with(R"("fpga": {"serial": "4002000001285c0f1a104285", "temperature": 45.5},
        "mac_addresses": {"first": "02:00:00:00:10:00", "count": 4},
        "flash": {"sections": [{"name": {"hex": "ff"}, "start": "0x0", "size": "64 KiB"}]},
        "cores": [{"hardware_id": 475, "address": "0x100000", "size": "0x30000", "registers": {"0x0": "0x1"}}])");
    ASSERT_EQ(error_of(text), "no error");
    for (std::size_t length = 0; length < text.size(); ++length)
        EXPECT_NE(error_of(text.substr(0, length)), "no error") << length;
}

TEST(bad_racks, the_column_counts_characters_and_not_bytes)
{
    EXPECT_EQ(error_of("{\"accelerators\":\n [\"\xc3\xa4\xe2\x82\xac\" x"),
              "my.json: line 2, column 8: not JSON: Missing a comma or ']' after an array element");
}

TEST(bad_racks, a_file_name_cannot_send_control_characters_to_a_screen)
{
    try {
        parse_rack("{}", "a\x1b[2Jb");
        FAIL() << "no error";
    } catch (const file_error& error) {
        EXPECT_EQ(std::string{error.what()}, R"(a\x1b[2Jb: expected a member "accelerators")");
    }
}

TEST_F(bad_files, a_missing_file_is_said_with_the_systems_reason)
{
    const fs::path file = folder / "missing.json";
    EXPECT_EQ(load_error_of(file), file.string() + ": cannot be read: No such file or directory");
}

TEST_F(bad_files, a_folder_is_said_with_the_systems_reason)
{
    EXPECT_EQ(load_error_of(folder), folder.string() + ": cannot be read: Is a directory");
}

TEST_F(bad_files, a_path_through_a_file_is_said_with_the_systems_reason)
{
    std::ofstream{folder / "file"} << "{}";
    const fs::path file = folder / "file/rack.json";
    EXPECT_EQ(load_error_of(file), file.string() + ": cannot be read: Not a directory");
}

TEST_F(bad_files, a_symbolic_link_to_itself_is_said_with_the_systems_reason)
{
    const fs::path file = folder / "loop.json";
    fs::create_symlink("loop.json", file);
    EXPECT_EQ(load_error_of(file), file.string() + ": cannot be read: Too many levels of symbolic links");
}

TEST_F(bad_files, a_fifo_is_refused_and_never_waited_for)
{
    const fs::path file = folder / "fifo";
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(load_error_of(file), file.string() + ": expected a regular file");
}

TEST_F(bad_files, a_device_without_an_end_is_refused)
{
    EXPECT_EQ(load_error_of("/dev/zero"), "/dev/zero: expected a regular file");
}

TEST_F(bad_files, an_enormous_file_is_refused_before_it_is_parsed)
{
    const fs::path file = folder / "enormous.json";
    std::ofstream{file} << "{";
    fs::resize_file(file, (64U << 20U) + 1);
    EXPECT_EQ(load_error_of(file), file.string() + ": expected a file of at most 64 MiB");
}

TEST_F(bad_files, an_empty_file_is_said_to_be_empty)
{
    const fs::path file = folder / "empty.json";
    std::ofstream{file} << "";
    EXPECT_EQ(load_error_of(file), file.string() + R"(: empty, expected a rack: { "accelerators": [ ... ] })");
}

} // namespace ivra::tests
