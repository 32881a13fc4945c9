#include "story.h"

#include "state/state.h"

#include <array>
#include <cstdlib>
#include <fstream>
#include <numeric>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ivra::platform_tests {

namespace {

using bytes_t = std::vector<std::uint8_t>;

/// A flash handle on the first board, with its sections in address order.
class opened_flash
{
public:
    opened_flash() : handle{ivra_flash_create(board.root)}
    {
        EXPECT_NE(handle, nullptr);
        sections.resize(static_cast<std::size_t>(ivra_flash_get_sections(handle, nullptr, nullptr, 0)));
        EXPECT_EQ(ivra_flash_get_sections(handle, nullptr, sections.data(), sections.size()), 6);
    }
    ~opened_flash() { ivra_flash_destroy(handle); }
    opened_flash(const opened_flash&) = delete;
    opened_flash& operator=(const opened_flash&) = delete;

    int write(std::size_t section, std::uint64_t offset, const bytes_t& data) const
    {
        return ivra_flash_write_section(handle, sections.at(section), offset, data.data(), data.size());
    }

    opened board;
    ivra_flash* handle;
    std::vector<const char*> sections;
};

constexpr std::size_t pgm = 0, usr = 1, protected_params = 2, params = 3, unnamed = 4, otp = 5;

class flash : public host
{
protected:
    /// What the cells hold, as whoever looks at the board's state sees them.
    bytes_t cells(std::uint64_t address, std::size_t count) const
    {
        namespace vp = virtual_platform;
        const vp::rack_t loaded = vp::load_rack(rack);
        const auto remembered = vp::board_state::open_existing(loaded, loaded.accelerators.at(0));
        bytes_t bytes(count);
        if (remembered)
            remembered->flash().read(address, bytes);
        else
            ADD_FAILURE() << "no state";
        return bytes;
    }

    std::filesystem::path flash_file() const
    {
        namespace vp = virtual_platform;
        const vp::rack_t loaded = vp::load_rack(rack);
        return vp::board_state_folder(loaded, loaded.accelerators.at(0)) / "flash";
    }
};

TEST_F(flash, tells_its_size_and_its_sector_size)
{
    run([] {
        const opened_flash f;
        std::uint64_t bytes = 0;
        EXPECT_EQ(ivra_flash_get_memory_size(f.handle, &bytes), 0);
        EXPECT_EQ(bytes, 0x100000U);
        EXPECT_EQ(ivra_flash_get_sector_size(f.handle, &bytes), 0);
        EXPECT_EQ(bytes, 0x1000U);
    });
}

TEST_F(flash, sections_come_in_address_order_and_are_told_apart_by_address_not_by_text)
{
    run([] {
        const opened_flash f;
        std::vector<std::uint64_t> starts, sizes;
        for (const char* section : f.sections) {
            EXPECT_EQ(ivra_flash_get_section_start_address(f.handle, section, &starts.emplace_back()), 0);
            EXPECT_EQ(ivra_flash_get_section_size(f.handle, section, &sizes.emplace_back()), 0);
        }
        EXPECT_THAT(starts, ::testing::ElementsAre(0x0, 0x10000, 0x20000, 0x21000, 0x22800, 0x23000));
        EXPECT_THAT(sizes, ::testing::ElementsAre(0x10000, 0x10000, 0x1000, 0x1800, 0x800, 0x1000));
        EXPECT_NE(f.sections[protected_params], f.sections[params]) << "both are called PARAMS";
        EXPECT_STREQ(ivra_flash_get_section_name(f.handle, f.sections[params]), "PARAMS");
        const std::string same_text = "PARAMS";
        std::uint64_t value = 0;
        EXPECT_FAILS(nullptr, EINVAL, ivra_flash_get_section_name(f.handle, same_text.c_str()));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_section_start_address(f.handle, same_text.c_str(), &value));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_section_size(f.handle, same_text.c_str(), &value));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_write_section(f.handle, same_text.c_str(), 0, "x", 1));
    });
}

TEST_F(flash, a_section_without_a_name_has_a_null_name_and_errno_stays)
{
    run([] {
        const opened_flash f;
        EXPECT_FAILS(nullptr, 0, ivra_flash_get_section_name(f.handle, f.sections[unnamed]));
    });
}

TEST_F(flash, sections_of_one_name_are_counted_even_when_they_do_not_fit)
{
    run([] {
        const opened_flash f;
        EXPECT_EQ(ivra_flash_get_sections(f.handle, IVRA_FLASH_SECTION_PARAMS, nullptr, 0), 2);
        std::array<const char*, 3> found{};
        EXPECT_EQ(ivra_flash_get_sections(f.handle, "PARAMS", found.data(), 1), 2);
        EXPECT_EQ(found[0], f.sections[protected_params]);
        EXPECT_EQ(found[1], nullptr);
        EXPECT_EQ(ivra_flash_get_sections(f.handle, "PARAMS", found.data(), 3), 2);
        EXPECT_EQ(found[1], f.sections[params]);
        EXPECT_EQ(found[2], nullptr);
        EXPECT_EQ(ivra_flash_get_sections(f.handle, "params", found.data(), 3), 0);
        EXPECT_EQ(ivra_flash_get_sections(f.handle, "", found.data(), 3), 0) << "no name is not an empty name";
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_sections(f.handle, nullptr, nullptr, 1));
    });
}

TEST_F(flash, the_four_getters_give_the_first_section_of_their_name)
{
    run([] {
        const opened_flash f;
        EXPECT_EQ(ivra_flash_get_section_pgm(f.handle), f.sections[pgm]);
        EXPECT_EQ(ivra_flash_get_section_usr(f.handle), f.sections[usr]);
        EXPECT_EQ(ivra_flash_get_section_prm(f.handle), f.sections[protected_params]);
        EXPECT_EQ(ivra_flash_get_section_otp(f.handle), f.sections[otp]);
    });
}

TEST_F(flash, a_getter_of_a_section_that_is_not_there_says_ENOENT)
{
    plug({R"({"model": "xilinx_u200", "uid": "a", "flash": {"size": "1 MiB", "sector": "4 KiB", "sections": []}})"});
    run([] {
        const opened board;
        ivra_flash* handle = ivra_flash_create(board.root);
        EXPECT_EQ(ivra_flash_get_sections(handle, nullptr, nullptr, 0), 0);
        EXPECT_FAILS(nullptr, ENOENT, ivra_flash_get_section_pgm(handle));
        EXPECT_FAILS(nullptr, ENOENT, ivra_flash_get_section_usr(handle));
        EXPECT_FAILS(nullptr, ENOENT, ivra_flash_get_section_prm(handle));
        EXPECT_FAILS(nullptr, ENOENT, ivra_flash_get_section_otp(handle));
        ivra_flash_destroy(handle);
    });
}

TEST_F(flash, that_was_never_written_is_erased)
{
    run([] { const opened_flash f; });
    EXPECT_EQ(cells(0, 0x100000), bytes_t(0x100000, 0xFF));
}

TEST_F(flash, a_write_replaces_its_bytes_and_keeps_the_rest_whichever_bits_have_to_be_set)
{
    run([] {
        const opened_flash f;
        // PARAMS: 0x21000 to 0x22800, one and a half sectors; the unnamed section has the other half
        EXPECT_EQ(f.write(params, 0, bytes_t(0x1800, 0x0F)), 0);
        EXPECT_EQ(f.write(unnamed, 0, bytes_t(0x800, 0x55)), 0);
        EXPECT_EQ(f.write(params, 0xFFE, {0xF0, 0xF1, 0xF2, 0xF3}), 0) << "over the border of two sectors";
    });
    bytes_t expected(0x1800, 0x0F);
    const bytes_t change{0xF0, 0xF1, 0xF2, 0xF3};
    std::copy(change.begin(), change.end(), expected.begin() + 0xFFE);
    EXPECT_EQ(cells(0x21000, 0x1800), expected);
    EXPECT_EQ(cells(0x22800, 0x800), bytes_t(0x800, 0x55)) << "in the sector that was erased";
    EXPECT_EQ(cells(0x20000, 0x1000), bytes_t(0x1000, 0xFF));
    EXPECT_EQ(cells(0x23000, 0x1000), bytes_t(0x1000, 0xFF));
}

TEST_F(flash, programming_can_only_clear_bits_and_erasing_sets_those_of_one_sector)
{
    namespace vp = virtual_platform;
    run([] { const opened_flash f; });
    const vp::rack_t loaded = vp::load_rack(rack);
    vp::board_state remembered = vp::board_state::open(loaded, loaded.accelerators.at(0));
    vp::flash_memory& memory = remembered.flash();
    memory.program(0x0FFF, bytes_t{0x3C, 0x3C});
    memory.program(0x0FFF, bytes_t{0xF0, 0xFF});
    EXPECT_EQ(cells(0x0FFE, 4), (bytes_t{0xFF, 0x30, 0x3C, 0xFF}));
    EXPECT_THAT(memory.programmed_sectors(), ::testing::ElementsAre(0x0000, 0x1000));
    memory.erase_sector(0x0123);
    EXPECT_EQ(cells(0x0FFE, 4), (bytes_t{0xFF, 0xFF, 0x3C, 0xFF}));
    EXPECT_THAT(memory.programmed_sectors(), ::testing::ElementsAre(0x1000));
}

TEST_F(flash, a_write_past_the_end_of_a_section_is_EFBIG_and_writes_nothing)
{
    run([] {
        const opened_flash f;
        EXPECT_FAILS(-1, EFBIG, f.write(params, 0x17FF, {1, 2}));
        EXPECT_FAILS(-1, EFBIG, f.write(params, 0x1801, {}));
        EXPECT_FAILS(-1, EFBIG, f.write(params, ~std::uint64_t{0}, {1, 2})) << "no sum that wraps";
        EXPECT_FAILS(-1, EFBIG, ivra_flash_write_section(f.handle, f.sections[params], 1, "", ~std::size_t{0}));
        EXPECT_EQ(f.write(params, 0x1800, {}), 0) << "nothing at the very end";
        EXPECT_EQ(f.write(params, 0x17FF, {1}), 0) << "the last byte";
    });
    EXPECT_EQ(cells(0x227FE, 3), (bytes_t{0xFF, 1, 0xFF}));
}

TEST_F(flash, a_write_to_a_protected_section_is_EROFS_and_writes_nothing)
{
    run([] {
        const opened_flash f;
        EXPECT_FAILS(-1, EROFS, f.write(protected_params, 0, {1}));
    });
    EXPECT_EQ(cells(0x20000, 0x1000), bytes_t(0x1000, 0xFF));
}

TEST_F(flash, of_128_MiB_takes_room_only_where_it_was_written)
{
    plug({R"({"model": "xilinx_u200", "uid": "a", "flash": {"size": "128 MiB", "sector": "64 KiB", "sections": [
        {"name": "PGM", "start": 0, "size": "0x1002000"}, {"name": "USR", "start": "0x1002000", "size": "0x5000000"},
        {"name": "PARAMS", "start": "0x7fd0000", "size": "0x10000"},
        {"name": "OTP", "start": "0x7ff0000", "size": "0x1000"}]}})"});
    run([] {
        const opened board;
        ivra_flash* handle = ivra_flash_create(board.root);
        EXPECT_EQ(ivra_flash_write_section(handle, ivra_flash_get_section_prm(handle), 0x100, "abc", 3), 0);
        EXPECT_EQ(ivra_flash_write_section(handle, ivra_flash_get_section_prm(handle), 0x100, "xyz", 3), 0);
        ivra_flash_destroy(handle);
    });
    struct ::stat status
    {
    };
    ASSERT_EQ(::stat(flash_file().c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 128 << 20);
    EXPECT_LE(status.st_blocks * 512, 64 << 10);
    EXPECT_EQ(cells(0x7fd00ff, 5), (bytes_t{0xFF, 'x', 'y', 'z', 0xFF}));
}

/// Makes a private tmpfs of this size (and number of files) under `place` in a mount namespace of its own.
void mount_tiny_disk(const std::filesystem::path& place, const char* options)
{
    const auto user = ::getuid(), group = ::getgid();
    if (::unshare(CLONE_NEWNS) < 0) { // an ordinary user gets one with a user namespace
        ASSERT_EQ(::unshare(CLONE_NEWUSER | CLONE_NEWNS), 0);
        std::ofstream{"/proc/self/setgroups"} << "deny";
        std::ofstream{"/proc/self/uid_map"} << "0 " << user << " 1";
        std::ofstream{"/proc/self/gid_map"} << "0 " << group << " 1";
    }
    ASSERT_EQ(::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
    std::filesystem::create_directories(place);
    ASSERT_EQ(::mount("tiny", place.c_str(), "tmpfs", 0, options), 0);
}

void fill(const std::filesystem::path& file)
{
    std::ofstream stream{file, std::ios::binary};
    const std::string block(4096, 'x');
    while (stream.write(block.data(), static_cast<std::streamsize>(block.size())).flush())
        continue;
}

TEST_F(flash, a_full_disk_is_ENOSPC_and_leaves_everything_as_it_was)
{
    run([this] {
        mount_tiny_disk(state, "size=256k");
        const opened_flash f;
        EXPECT_EQ(f.write(params, 0, {1, 2, 3}), 0);
        write_word(f.board.core(475), 0x10, 7);
        fill(state / "filler");
        const log_t log;
        EXPECT_FAILS(-1, ENOSPC, f.write(usr, 0, bytes_t(0x10000, 0)));
        EXPECT_FAILS(-1, ENOSPC, f.write(params, 2, bytes_t(0x1700, 0xFF))) << "over a page that is not there";
        ASSERT_EQ(log.lines().size(), 2U);
        EXPECT_THAT(log.lines()[0], ::testing::AllOf(::testing::StartsWith("0 ivra_flash_write_section: "),
                                                     ::testing::HasSubstr(flash_file().string()),
                                                     ::testing::HasSubstr("No space left on device")));
        const ivra_hw_register_description word{0, 0, 32, "word"};
        EXPECT_EQ(read_word(f.board.core(475), 0x10), 7U);
        EXPECT_EQ(read_word(f.board.core(1), 0x800), 0U) << "what was never written can be read";
        EXPECT_EQ(ivra_hw_write(f.board.core(475), &word, 1), 0) << "its page is there";
        EXPECT_EQ(f.write(params, 1, {9}), 0) << "its page is there";
        EXPECT_EQ(cells(0x21000, 4), (bytes_t{1, 9, 3, 0xFF}));
        EXPECT_EQ(cells(0x10000, 0x10000), bytes_t(0x10000, 0xFF));
    });
}

TEST_F(flash, a_board_on_a_disk_that_is_full_from_the_start_does_not_open)
{
    run([this] {
        mount_tiny_disk(state, "size=64k");
        fill(state / "filler");
        const log_t log;
        const descriptors_t all;
        EXPECT_FAILS(nullptr, ENOSPC, ivra_hw_accelerator_get(all[0]));
        ASSERT_EQ(log.lines().size(), 1U);
        EXPECT_THAT(log.lines()[0], ::testing::AllOf(::testing::StartsWith("0 ivra_hw_accelerator_get: "),
                                                     ::testing::HasSubstr(state.string())));
        std::filesystem::remove(state / "filler");
        const opened board; // nothing half-made is in the way
    });
}

TEST_F(flash, two_processes_that_write_to_one_sector_both_keep_their_bytes)
{
    run([] { const opened_flash f; });
    const auto writer = [](std::size_t section, std::uint8_t value) {
        return start([=] {
            const opened_flash f;
            for (int round = 0; round < 50; ++round) {
                for (std::uint64_t offset = 0; offset < 16; ++offset)
                    EXPECT_EQ(f.write(section, section == params ? 0x1000 + offset : offset,
                                      {static_cast<std::uint8_t>(round % 2 == 0 ? ~value : value)}),
                              0);
            }
        });
    };
    const ::pid_t one = writer(params, 0x5A), two = writer(unnamed, 0xC3); // both in the sector at 0x22000
    EXPECT_EQ(end_of(one).status, 0);
    EXPECT_EQ(end_of(two).status, 0);
    EXPECT_EQ(cells(0x22000, 16), bytes_t(16, 0x5A));
    EXPECT_EQ(cells(0x22800, 16), bytes_t(16, 0xC3));
}

} // namespace

} // namespace ivra::platform_tests
