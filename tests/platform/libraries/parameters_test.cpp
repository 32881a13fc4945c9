#include "story.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <utility>

namespace ivra::platform_tests {

namespace {

using bytes_t = std::vector<std::uint8_t>;
using texts_t = std::vector<std::string>;
using ::testing::HasSubstr;

constexpr std::size_t first_section = 0, second_section = 1;

std::string section(const std::string& name, const std::string& start, const std::string& size)
{
    return R"(, {"name": ")" + name + R"(", "start": ")" + start + R"(", "size": )" + size + "}";
}

/// A board with three addresses of its own, and these sections behind 0x20000 in its flash.
std::string board_with(const std::string& sections, const std::string& uid = "0000:01:00.0")
{
    return R"({"model": "m48l_xcvu7p", "uid": ")" + uid + R"(",
               "mac_addresses": {"first": "02:00:00:00:10:fe", "count": 3},
               "flash": {"size": "1 MiB", "sector": "4 KiB", "sections": [
                   {"name": "PGM", "start": 0, "size": "0x10000"})" +
           sections + "]}}";
}

const std::string two_sections = section("PARAMS", "0x20000", "4096") + section("PARAMS", "0x21000", "4096");
const texts_t old_addresses{"02:00:00:00:10:fe", "02:00:00:00:10:ff", "02:00:00:00:11:00"};

/// The record of the first address, least significant byte first, and the number of addresses.
bytes_t record(const std::array<std::uint8_t, 7>& first_and_count)
{
    bytes_t bytes{0x5a, 0x5a, 0xa5, 0xa5, 1};
    bytes.resize(24);
    std::ranges::copy(first_and_count, bytes.begin() + 16);
    return bytes;
}

// 00:11:22:33:44:fe and the next one.
const bytes_t two_addresses = record({0xfe, 0x44, 0x33, 0x22, 0x11, 0x00, 2});
const texts_t new_addresses{"00:11:22:33:44:fe", "00:11:22:33:44:ff"};

/// The top-level core of a board, and its flash.
class design_t
{
public:
    explicit design_t(std::size_t index = 0)
        : board{index}, top{ivra_hw_top_create(board.root)}, flash{ivra_flash_create(board.root)}
    {
        EXPECT_NE(top, nullptr);
        EXPECT_NE(flash, nullptr);
    }
    ~design_t()
    {
        ivra_flash_destroy(flash);
        ivra_hw_top_destroy(top);
    }
    design_t(const design_t&) = delete;
    design_t& operator=(const design_t&) = delete;

    /// Writes into the nth section for parameters.
    void write(std::size_t nth, std::uint64_t offset, const bytes_t& bytes) const
    {
        std::array<const char*, 4> sections{};
        EXPECT_GT(ivra_flash_get_sections(flash, IVRA_FLASH_SECTION_PARAMS, sections.data(), sections.size()),
                  static_cast<int>(nth));
        EXPECT_EQ(ivra_flash_write_section(flash, sections.at(nth), offset, bytes.data(), bytes.size()), 0);
    }

    void reload() const { EXPECT_EQ(ivra_hw_top_update_params(top), 0); }

    texts_t addresses() const
    {
        std::vector<ivra_mac_address> found(256);
        const int count = ivra_hw_top_get_mac_addresses(top, found.data(), found.size());
        EXPECT_GE(count, 0);
        texts_t texts;
        for (int i = 0; i < count; ++i) {
            std::array<char, 18> text{};
            ivra_print_mac_address(&found.at(static_cast<std::size_t>(i)), text.data(), text.size());
            texts.emplace_back(text.data());
        }
        return texts;
    }

    opened board;
    ivra_hw_top* top;
    ivra_flash* flash;
};

class design_parameters : public host
{
protected:
    design_parameters() { plug({board_with(two_sections)}); }

    /// Expects a new process to find these addresses.
    static void expect_addresses(const texts_t& addresses)
    {
        run([&] { EXPECT_EQ(design_t{}.addresses(), addresses); });
    }
};

TEST_F(design_parameters, are_in_use_only_after_they_were_read_again)
{
    run([] {
        const design_t design;
        design.write(second_section, 0, two_addresses);
        EXPECT_EQ(design.addresses(), old_addresses);
        design.reload();
        EXPECT_EQ(design.addresses(), new_addresses);
    });
}

TEST_F(design_parameters, live_on_for_other_processes_and_for_whoever_looks_at_the_rack)
{
    EXPECT_THAT(shown(), HasSubstr("MAC addresses  02:00:00:00:10:fe - 02:00:00:00:11:00\n"));
    run([] {
        const design_t design;
        design.write(second_section, 0, two_addresses);
        design.reload();
    });
    expect_addresses(new_addresses);
    EXPECT_THAT(shown(), HasSubstr("MAC addresses  00:11:22:33:44:fe - 00:11:22:33:44:ff\n"));
}

TEST_F(design_parameters, that_one_process_has_read_again_another_sees_at_once)
{
    run([] {
        const design_t design;
        run([] {
            const design_t other;
            other.write(second_section, 0, two_addresses);
            other.reload();
        });
        EXPECT_EQ(design.addresses(), new_addresses);
    });
}

TEST_F(design_parameters, written_by_a_process_that_was_killed_are_read_by_the_next_one)
{
    const end_t end = end_of(start([] {
        const design_t design;
        design.write(second_section, 0, two_addresses);
        ::raise(SIGKILL);
    }));
    EXPECT_EQ(end.signal, SIGKILL);
    run([] {
        const design_t design;
        EXPECT_EQ(design.addresses(), old_addresses);
        design.reload();
        EXPECT_EQ(design.addresses(), new_addresses);
    });
}

TEST_F(design_parameters, in_erased_flash_leave_the_addresses_as_they_are)
{
    run([] {
        const design_t design;
        design.reload();
        EXPECT_EQ(design.addresses(), old_addresses);
        design.write(second_section, 0, two_addresses);
        design.reload();
        design.write(second_section, 0, bytes_t(24, 0xff));
        design.reload();
        EXPECT_EQ(design.addresses(), new_addresses) << "read before, and still in use";
    });
    expect_addresses(new_addresses);
}

TEST_F(design_parameters, with_another_magic_leave_the_addresses_as_they_are)
{
    run([] {
        const design_t design;
        for (std::size_t byte = 0; byte < 4; ++byte) {
            bytes_t other = two_addresses;
            other[byte] ^= 0x01;
            design.write(second_section, 0, other);
            design.reload();
            EXPECT_EQ(design.addresses(), old_addresses) << byte;
        }
        bytes_t most_significant_first = two_addresses;
        std::swap(most_significant_first[0], most_significant_first[3]);
        std::swap(most_significant_first[1], most_significant_first[2]);
        design.write(second_section, 0, most_significant_first);
        design.reload();
        EXPECT_EQ(design.addresses(), old_addresses);
    });
}

TEST_F(design_parameters, are_looked_for_at_the_beginning_of_the_second_section_and_nowhere_else)
{
    plug({board_with(two_sections + section("PARAMS", "0x22000", "4096"))});
    run([] {
        const design_t design;
        design.write(first_section, 0, two_addresses);
        design.write(second_section, 4, two_addresses);
        design.write(2, 0, two_addresses);
        design.reload();
        EXPECT_EQ(design.addresses(), old_addresses);
    });
}

TEST_F(design_parameters, of_a_flash_with_one_section_for_them_are_never_read)
{
    plug({board_with(section("PARAMS", "0x20000", "4096") + section("params", "0x21000", "4096"))});
    run([] {
        const design_t design;
        design.write(first_section, 0, two_addresses);
        design.reload();
        EXPECT_EQ(design.addresses(), old_addresses);
    });
}

TEST_F(design_parameters, do_not_fit_into_a_section_of_23_bytes_but_into_one_of_24)
{
    for (const std::string size : {"23", "24"}) {
        plug({board_with(section("PARAMS", "0x20000", "4096") + section("PARAMS", "0x21000", size))});
        run([&] {
            const design_t design;
            design.write(second_section, 0, bytes_t{two_addresses.begin(), two_addresses.begin() + std::stoi(size)});
            design.reload();
            EXPECT_EQ(design.addresses(), size == "24" ? new_addresses : old_addresses);
        });
    }
}

TEST_F(design_parameters, count_their_addresses)
{
    run([] {
        const design_t design;
        for (const unsigned count : {1U, 8U, 128U, 255U}) {
            design.write(second_section, 0,
                         record({0x80, 0x44, 0x33, 0x22, 0x11, 0x02, static_cast<std::uint8_t>(count)}));
            design.reload();
            const texts_t addresses = design.addresses();
            ASSERT_EQ(addresses.size(), count);
            for (unsigned i = 0; i < count; ++i) {
                std::array<char, 32> expected{};
                std::snprintf(expected.data(), expected.size(), "02:11:22:33:%02x:%02x", 0x44 + (0x80 + i) / 256,
                              (0x80 + i) % 256);
                EXPECT_EQ(addresses[i], expected.data());
            }
        }
        design.write(second_section, 0, record({0x80, 0x44, 0x33, 0x22, 0x11, 0x02, 0}));
        design.reload();
        EXPECT_EQ(design.addresses(), texts_t{});
    });
    EXPECT_THAT(shown(), HasSubstr("MAC addresses  none\n"));
}

TEST_F(design_parameters, are_of_one_board)
{
    plug({board_with(two_sections), board_with(two_sections, "0000:02:00.0")});
    run([] {
        const design_t design{1};
        design.write(second_section, 0, two_addresses);
        design.reload();
        EXPECT_EQ(design.addresses(), new_addresses);
    });
    expect_addresses(old_addresses);
}

TEST_F(design_parameters, are_forgotten_with_the_state_of_the_board)
{
    run([] {
        const design_t design;
        design.write(second_section, 0, two_addresses);
        design.reload();
    });
    std::filesystem::remove_all(state);
    expect_addresses(old_addresses);
}

TEST_F(design_parameters, that_cannot_be_read_leave_the_addresses_as_they_are)
{
    plan(R"([{"call": "ivra_hw_top_update_params", "nth": 1, "errno": "EIO"}])");
    run([] {
        const design_t design;
        design.write(second_section, 0, two_addresses);
        EXPECT_FAILS(-1, EIO, ivra_hw_top_update_params(design.top));
        EXPECT_EQ(design.addresses(), old_addresses);
        design.reload();
        EXPECT_EQ(design.addresses(), new_addresses);
    });
}

} // namespace

} // namespace ivra::platform_tests
