#include "story.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include <unistd.h>

namespace ivra::platform_tests {

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class platform_trace : public host
{
};

TEST_F(platform_trace, shows_each_call_with_device_arguments_and_result)
{
    run([] {
        EXPECT_EQ(ivra_hw_count_accelerators(), 1U);
        const opened board;
        ivra_hw_filter* filter = ivra_hw_filter_create();
        EXPECT_EQ(ivra_hw_filter_set_name(filter, "a\n\"b\""), 0);
        ivra_hw_filter_destroy(filter);
        EXPECT_EQ(read_word(board.core(475), 0x10), 0x89abcdefU);
        write_word(board.core(475), 0x20, 0x1f);
        ivra_flash* flash = ivra_flash_create(board.root);
        EXPECT_EQ(ivra_flash_write_section(flash, ivra_flash_get_section_usr(flash), 0x10, "abc", 3), 0);
        EXPECT_FAILS(-1, EFBIG, ivra_flash_write_section(flash, ivra_flash_get_section_usr(flash), 0x10000, "abc", 3));
        ivra_flash_destroy(flash);
        ivra_hw_top* top = ivra_hw_top_create(board.root);
        char text[64];
        EXPECT_EQ(ivra_hw_top_get_board_name(top, text, sizeof text), 11);
        ivra_mac_address address{};
        EXPECT_EQ(ivra_hw_top_get_mac_addresses(top, &address, 1), 3);
        double celsius = 0;
        EXPECT_EQ(ivra_hw_top_get_temperature(top, &celsius), 0);
        ivra_hw_top_destroy(top);
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_accelerator_get(nullptr));
    });
    EXPECT_THAT(
        trace(),
        ElementsAre(
            // clang-format off
            "ivra_hw_count_accelerators() = 1",
            "ivra_hw_enumerate_all_accelerators(16) = 1",
            "ivra_hw_accelerator_get(0000:01:00.0) = handle",
            "ivra_hw_accelerator_enumerate_all_mmios(0000:01:00.0, 1) = 1",
            "ivra_hw_mmio_create(0000:01:00.0) = handle",
            "ivra_hw_enumerate_cores(0000:01:00.0) = handle",
            "ivra_hw_core_tree_get_root(0000:01:00.0) = handle",
            "ivra_hw_accelerator_put_descriptor(NULL) = void",
            "ivra_hw_filter_create() = handle",
            "ivra_hw_filter_set_name(\"a\\x0a\\x22b\\x22\") = 0",
            "ivra_hw_filter_destroy() = void",
            "ivra_hw_core_enumerate(0000:01:00.0, root, 475, 8) = 2",
            "ivra_hw_read(0000:01:00.0, core 475@0x10000, 0x10[31:0] word) = 0: 0x89abcdef",
            "ivra_hw_core_enumerate(0000:01:00.0, root, 475, 8) = 2",
            "ivra_hw_write(0000:01:00.0, core 475@0x10000, 0x20[31:0] word, 0x1f) = 0",
            "ivra_flash_create(0000:01:00.0) = handle",
            "ivra_flash_get_section_usr(0000:01:00.0) = handle",
            "ivra_flash_write_section(0000:01:00.0, \"USR\"@0x10000, 0x10, [61 62 63], 3) = 0",
            "ivra_flash_get_section_usr(0000:01:00.0) = handle",
            "ivra_flash_write_section(0000:01:00.0, \"USR\"@0x10000, 0x10000, [61 62 63], 3) = -1 EFBIG (File too large)",
            "ivra_flash_destroy(0000:01:00.0) = void",
            "ivra_hw_top_create(0000:01:00.0) = handle",
            "ivra_hw_top_get_board_name(0000:01:00.0, 64) = 11: \"xilinx_u200\"",
            "ivra_hw_top_get_mac_addresses(0000:01:00.0, 1) = 3: [02 00 00 00 10 fe]",
            "ivra_hw_top_get_temperature(0000:01:00.0) = 0: 45.500000",
            "ivra_hw_top_destroy(0000:01:00.0) = void",
            "ivra_hw_accelerator_get(NULL) = NULL EINVAL (Invalid argument)",
            "ivra_hw_destroy_tree(0000:01:00.0) = void",
            "ivra_hw_mmio_destroy(0000:01:00.0) = void",
            "ivra_hw_mmio_put_descriptor(0000:01:00.0) = void",
            "ivra_hw_accelerator_put(0000:01:00.0) = void",
            "ivra_hw_accelerator_put_descriptor(0000:01:00.0) = void",
            "exit: 0 handles not released"));
    // clang-format on
}

TEST_F(platform_trace, says_what_the_fault_plan_did)
{
    plan(
        R"([{"call": "ivra_hw_count_accelerators", "nth": 1, "errno": "EIO"}, {"call": "ivra_hw_count_accelerators", "nth": 2, "count": 7},
             {"call": "ivra_hw_count_accelerators", "nth": 3, "kill": "before"}])");
    end_of(start([] {
        for (int i = 0; i < 3; ++i)
            ivra_hw_count_accelerators();
    }));
    EXPECT_THAT(trace(), ElementsAre("ivra_hw_count_accelerators() = 0 EIO (Input/output error) (fault plan)",
                                     "ivra_hw_count_accelerators() = 7 (fault plan)",
                                     "ivra_hw_count_accelerators() = killed (fault plan)"));
}

TEST_F(platform_trace, cuts_long_data_short_and_says_how_long_it_was)
{
    run([] {
        const opened board;
        ivra_flash* flash = ivra_flash_create(board.root);
        const std::string data(1000, 'a');
        for (const std::size_t size : {1000U, 64U})
            EXPECT_EQ(ivra_flash_write_section(flash, ivra_flash_get_section_usr(flash), 0, data.data(), size), 0);
        ivra_flash_destroy(flash);
    });
    std::string bytes = "61";
    for (int i = 1; i < 64; ++i)
        bytes += " 61";
    EXPECT_THAT(trace(), Contains("ivra_flash_write_section(0000:01:00.0, \"USR\"@0x10000, 0x0, [" + bytes +
                                  " ... 1000 bytes], 1000) = 0"));
    EXPECT_THAT(trace(),
                Contains("ivra_flash_write_section(0000:01:00.0, \"USR\"@0x10000, 0x0, [" + bytes + "], 64) = 0"));
}

TEST_F(platform_trace, counts_the_handles_that_were_not_released_by_kind)
{
    run([] {
        static const void* kept[16]; // still known at the end: no leak in the eyes of a leak checker
        auto* board = static_cast<const opened*>(kept[0] = std::make_unique<opened>().release());
        kept[1] = ivra_hw_filter_create();
        kept[2] = ivra_hw_shared_mutex_create("m");
        kept[3] = ivra_hw_shared_mutex_create("n");
        kept[4] = ivra_hw_top_create(board->root);
        kept[5] = ivra_flash_create(board->root);
        kept[6] = ivra_i2c_create(board->root);
        kept[7] = ivra_uart_create(board->root);
    });
    EXPECT_EQ(trace().back(), "exit: 12 handles not released (1 accelerator descriptor, 1 accelerator, 1 mmio "
                              "descriptor, 1 mmio, 1 core tree, 1 filter, 2 mutex, 1 hw_top, 1 flash, 1 i2c, 1 uart)");
}

TEST_F(platform_trace, counts_after_the_programs_own_destructors)
{
    run([] {
        struct owner_t
        {
            ivra_hw_filter* filter = nullptr;
            ~owner_t() { ivra_hw_filter_destroy(filter); }
        };
        static owner_t owner; // is destroyed by exit()
        owner.filter = ivra_hw_filter_create();
    });
    EXPECT_THAT(trace(), ElementsAre("ivra_hw_filter_create() = handle", "ivra_hw_filter_destroy() = void",
                                     "exit: 0 handles not released"));
}

TEST_F(platform_trace, is_not_begun_by_a_process_that_makes_no_call)
{
    run([] {});
    EXPECT_FALSE(std::filesystem::exists(folder / "trace"));
}

TEST_F(platform_trace, is_shared_by_processes_in_whole_lines)
{
    std::vector<::pid_t> processes;
    for (int i = 0; i < 4; ++i) {
        processes.push_back(start([] {
            for (int n = 0; n < 500; ++n)
                ivra_hw_filter_destroy(ivra_hw_filter_create());
        }));
    }
    for (const ::pid_t process : processes)
        EXPECT_EQ(end_of(process).status, 0);
    EXPECT_EQ(trace().size(), 4U * 1001U);
    std::ifstream stream{folder / "trace"};
    std::set<int> seen;
    double seconds = 0;
    int process = 0;
    for (std::string line; std::getline(stream, line);) {
        std::istringstream{line} >> seconds >> process;
        seen.insert(process);
    }
    EXPECT_EQ(seen, std::set<int>(processes.begin(), processes.end()));
}

TEST_F(platform_trace, that_cannot_be_written_is_said_once_and_stops_nothing)
{
    ::setenv("IVRA_VIRTUAL_TRACE", "/nowhere/trace", 1);
    run([] {
        const log_t log;
        EXPECT_EQ(ivra_hw_count_accelerators(), 1U);
        EXPECT_EQ(ivra_hw_count_accelerators(), 1U);
        EXPECT_THAT(log.lines(), ElementsAre("0 ivra_virtual_trace: Cannot write the trace to /nowhere/trace: "
                                             "No such file or directory"));
    });
}

TEST_F(platform_trace, is_not_written_when_nobody_asks)
{
    ::unsetenv("IVRA_VIRTUAL_TRACE");
    run([] { EXPECT_EQ(ivra_hw_count_accelerators(), 1U); });
    EXPECT_THAT(trace(), IsEmpty());
}

} // namespace

} // namespace ivra::platform_tests
