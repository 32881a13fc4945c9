#include "story.h"

#include <array>
#include <fstream>

namespace ivra::platform_tests {

namespace {

constexpr const char* nameless = R"({"name": null, "model": "xilinx_u50", "uid": "0000:02:00.0"})";

class accelerators : public host
{
};

TEST_F(accelerators, are_enumerated_in_index_order_with_their_properties)
{
    plug({board_text, nameless});
    run([] {
        EXPECT_EQ(ivra_hw_count_accelerators(), 2U);
        const descriptors_t all;
        ASSERT_EQ(all.handles.size(), 2U);
        for (std::uint32_t i = 0; i < 2; ++i) {
            std::uint32_t index = 99;
            EXPECT_EQ(ivra_hw_prop_get_index(ivra_hw_accelerator_get_properties(all[i]), &index), 0);
            EXPECT_EQ(index, i);
        }
        std::array<char, 32> text{};
        const ivra_hw_properties* first = ivra_hw_accelerator_get_properties(all[0]);
        EXPECT_EQ(ivra_hw_prop_get_name(first, text.data(), text.size()), 5);
        EXPECT_STREQ(text.data(), "board");
        EXPECT_EQ(ivra_hw_prop_get_uid(first, text.data(), text.size()), 12);
        EXPECT_STREQ(text.data(), "0000:01:00.0");
    });
}

TEST_F(accelerators, without_a_name_say_ENOENT)
{
    plug({nameless});
    run([] {
        const descriptors_t all;
        char name[16];
        EXPECT_FAILS(-1, ENOENT, ivra_hw_prop_get_name(ivra_hw_accelerator_get_properties(all[0]), name, sizeof name));
    });
}

TEST_F(accelerators, a_text_needs_room_for_its_NUL_or_it_is_ERANGE)
{
    run([] {
        const descriptors_t all;
        const ivra_hw_properties* properties = ivra_hw_accelerator_get_properties(all[0]);
        char name[6];
        EXPECT_EQ(ivra_hw_prop_get_name(properties, name, 6), 5);
        EXPECT_FAILS(-1, ERANGE, ivra_hw_prop_get_name(properties, name, 5));
        EXPECT_FAILS(-1, ERANGE, ivra_hw_prop_get_name(properties, name, 0));
    });
}

TEST_F(accelerators, more_than_fit_are_left_out_and_fewer_leave_the_rest_of_the_array_untouched)
{
    plug({board_text, nameless});
    run([] {
        int something = 0;
        const auto* mark = reinterpret_cast<const ivra_hw_accelerator_descriptor*>(&something);
        std::array<const ivra_hw_accelerator_descriptor*, 3> handles{mark, mark, mark};
        EXPECT_EQ(ivra_hw_enumerate_all_accelerators(handles.data(), 1), 1);
        EXPECT_EQ(handles[1], mark);
        ivra_hw_accelerator_put_descriptor(handles[0]);
        EXPECT_EQ(ivra_hw_enumerate_all_accelerators(handles.data(), 3), 2);
        EXPECT_EQ(handles[2], mark);
        ivra_hw_accelerator_put_descriptor(handles[0]);
        ivra_hw_accelerator_put_descriptor(handles[1]);
        EXPECT_EQ(ivra_hw_enumerate_all_accelerators(nullptr, 0), 0);
    });
}

TEST_F(accelerators, a_filter_selects_those_that_meet_every_criterion)
{
    plug({board_text, nameless, R"({"name": "Board", "model": "xilinx_u50", "uid": "c"})",
          R"({"name": "board", "model": "xilinx_u50", "uid": "d"})"});
    run([] {
        const auto selected = [](const ivra_hw_filter* filter) {
            std::array<const ivra_hw_accelerator_descriptor*, 8> handles{};
            const int count = ivra_hw_enumerate_accelerators(filter, handles.data(), handles.size());
            std::vector<std::uint32_t> indexes;
            for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
                EXPECT_EQ(
                    ivra_hw_prop_get_index(ivra_hw_accelerator_get_properties(handles[i]), &indexes.emplace_back()), 0);
                ivra_hw_accelerator_put_descriptor(handles[i]);
            }
            return indexes;
        };
        using ::testing::ElementsAre;
        using ::testing::IsEmpty;
        ivra_hw_filter* filter = ivra_hw_filter_create();
        ASSERT_NE(filter, nullptr);
        EXPECT_THAT(selected(filter), ElementsAre(0, 1, 2, 3)) << "without criteria";
        EXPECT_EQ(ivra_hw_filter_set_name(filter, "board"), 0);
        EXPECT_THAT(selected(filter), ElementsAre(0, 3)) << "whole name, case-sensitive";
        EXPECT_EQ(ivra_hw_filter_set_index(filter, 3), 0);
        EXPECT_THAT(selected(filter), ElementsAre(3));
        EXPECT_EQ(ivra_hw_filter_set_index(filter, 1), 0);
        EXPECT_THAT(selected(filter), IsEmpty()) << "no name is not this name";
        EXPECT_EQ(ivra_hw_filter_set_name(filter, "boar"), 0);
        EXPECT_THAT(selected(filter), IsEmpty()) << "a part of a name";
        ivra_hw_filter_destroy(filter);
    });
}

TEST_F(accelerators, that_refuse_to_open_say_why_and_touch_no_state)
{
    plug({R"({"model": "xilinx_u50", "uid": "a", "open": "EACCES"})",
          R"({"model": "xilinx_u50", "uid": "b", "open": "ENODEV"})"});
    run([] {
        const descriptors_t all;
        EXPECT_FAILS(nullptr, EACCES, ivra_hw_accelerator_get(all[0]));
        EXPECT_FAILS(nullptr, ENODEV, ivra_hw_accelerator_get(all[1]));
    });
    EXPECT_FALSE(std::filesystem::exists(state));
}

TEST_F(accelerators, a_rack_that_cannot_be_used_counts_none_and_says_why_once)
{
    std::ofstream{rack} << "{\"accelerators\": 1}";
    run([this] {
        const log_t log;
        EXPECT_FAILS(0U, EIO, ivra_hw_count_accelerators());
        EXPECT_FAILS(0U, EIO, ivra_hw_count_accelerators());
        EXPECT_FAILS(-1, EIO, ivra_hw_enumerate_all_accelerators(nullptr, 0));
        ASSERT_EQ(log.lines().size(), 1U);
        EXPECT_THAT(log.lines()[0], ::testing::StartsWith("0 "));
        EXPECT_THAT(log.lines()[0], ::testing::HasSubstr(rack.string()));
        EXPECT_THAT(log.lines()[0], ::testing::HasSubstr("/accelerators"));
    });
}

TEST_F(accelerators, the_platform_opens_and_creates_nothing_before_the_first_call)
{
    run([this] {
        EXPECT_FALSE(std::filesystem::exists(folder / "trace"));
        const std::filesystem::path descriptors = "/proc/self/fd";
        const auto open_files = [&] {
            std::vector<std::string> files;
            for (const auto& entry : std::filesystem::directory_iterator{descriptors}) {
                std::error_code ignored;
                files.push_back(std::filesystem::read_symlink(entry.path(), ignored).string());
            }
            return files;
        };
        EXPECT_THAT(open_files(), ::testing::Not(::testing::Contains(::testing::HasSubstr(folder.string()))));
        EXPECT_EQ(ivra_hw_count_accelerators(), 1U);
        EXPECT_THAT(open_files(), ::testing::Contains((folder / "trace").string()));
    });
}

TEST_F(accelerators, every_descriptor_of_the_platform_is_closed_on_exec)
{
    run([this] {
        const opened board;
        ivra_hw_shared_mutex* mutex = ivra_hw_shared_mutex_create("m");
        std::size_t seen = 0;
        for (const auto& entry : std::filesystem::directory_iterator{"/proc/self/fdinfo"}) {
            std::error_code ignored;
            const auto target =
                std::filesystem::read_symlink("/proc/self/fd" / entry.path().filename(), ignored).string();
            if (target.find(folder.string()) != 0)
                continue;
            ++seen;
            const std::string info = read(entry.path());
            const std::size_t flags = info.find("flags:\t");
            ASSERT_NE(flags, std::string::npos);
            EXPECT_NE(std::stoul(info.substr(flags + 7), nullptr, 8) & 02000000UL, 0UL) << target;
        }
        EXPECT_EQ(seen, 7U) << "trace, flash, registers, BMC, I2C, parameters, mutex";
        ivra_hw_shared_mutex_destroy(mutex);
    });
}

class mmio_spaces : public host
{
};

TEST_F(mmio_spaces, there_may_be_none)
{
    plug({R"({"model": "xilinx_u50", "uid": "a", "mmios": 0})"});
    run([] {
        const descriptors_t all;
        ivra_hw_accelerator* accelerator = ivra_hw_accelerator_get(all[0]);
        EXPECT_EQ(ivra_hw_accelerator_count_mmios(accelerator), 0U);
        EXPECT_EQ(ivra_hw_accelerator_enumerate_all_mmios(accelerator, nullptr, 0), 0);
        ivra_hw_accelerator_put(accelerator);
    });
}

TEST_F(mmio_spaces, each_has_an_index_no_name_and_a_uid_of_its_own_that_is_always_the_same)
{
    plug({R"({"model": "xilinx_u50", "uid": "a", "mmios": 2})", R"({"model": "xilinx_u50", "uid": "b", "mmios": 2})"});
    for (int process = 0; process < 2; ++process) {
        run([] {
            const descriptors_t all;
            std::vector<std::string> uids;
            for (const auto* descriptor : all.handles) {
                ivra_hw_accelerator* accelerator = ivra_hw_accelerator_get(descriptor);
                EXPECT_EQ(ivra_hw_accelerator_count_mmios(accelerator), 2U);
                std::array<const ivra_hw_mmio_descriptor*, 4> spaces{};
                EXPECT_EQ(ivra_hw_accelerator_enumerate_all_mmios(accelerator, spaces.data(), spaces.size()), 2);
                EXPECT_EQ(spaces[2], nullptr);
                for (std::uint32_t i = 0; i < 2; ++i) {
                    const ivra_hw_properties* properties = ivra_hw_mmio_descriptor_get_properties(spaces[i]);
                    std::uint32_t index = 99;
                    char text[64] = "";
                    EXPECT_EQ(ivra_hw_prop_get_index(properties, &index), 0);
                    EXPECT_EQ(index, i);
                    EXPECT_FAILS(-1, ENOENT, ivra_hw_prop_get_name(properties, text, sizeof text));
                    EXPECT_GT(ivra_hw_prop_get_uid(properties, text, sizeof text), 0);
                    uids.emplace_back(text);
                    ivra_hw_mmio_put_descriptor(spaces[i]);
                }
                ivra_hw_accelerator_put(accelerator);
            }
            EXPECT_THAT(uids, ::testing::ElementsAre("a/mmio0", "a/mmio1", "b/mmio0", "b/mmio1"));
        });
    }
}

TEST_F(mmio_spaces, an_open_one_gives_back_its_descriptor)
{
    run([] {
        const opened board;
        EXPECT_EQ(ivra_hw_mmio_get_descriptor(board.mmio), board.mmio_descriptor);
    });
}

TEST_F(mmio_spaces, the_second_one_has_no_cores)
{
    plug({R"({"model": "xilinx_u50", "uid": "a", "mmios": 2})"});
    run([] {
        const descriptors_t all;
        ivra_hw_accelerator* accelerator = ivra_hw_accelerator_get(all[0]);
        std::array<const ivra_hw_mmio_descriptor*, 2> spaces{};
        ASSERT_EQ(ivra_hw_accelerator_enumerate_all_mmios(accelerator, spaces.data(), 2), 2);
        ivra_hw_mmio* mmio = ivra_hw_mmio_create(spaces[1]);
        ivra_hw_core_tree* tree = ivra_hw_enumerate_cores(mmio);
        ivra_hw_core* root = ivra_hw_core_tree_get_root(tree);
        ASSERT_NE(root, nullptr) << "the root always exists";
        ivra_hw_core* core = nullptr;
        EXPECT_EQ(ivra_hw_core_enumerate(root, 1, &core, 1), 0);
        EXPECT_FAILS(nullptr, ENODEV, ivra_hw_top_create(root));
        EXPECT_FAILS(nullptr, ENODEV, ivra_flash_create(root));
        ivra_hw_destroy_tree(tree);
        ivra_hw_mmio_destroy(mmio);
        for (const auto* space : spaces)
            ivra_hw_mmio_put_descriptor(space);
        ivra_hw_accelerator_put(accelerator);
    });
}

TEST_F(mmio_spaces, releasing_parents_first_does_no_harm)
{
    run([] {
        descriptors_t all;
        ivra_hw_accelerator* accelerator = ivra_hw_accelerator_get(all[0]);
        const ivra_hw_mmio_descriptor* space = nullptr;
        ASSERT_EQ(ivra_hw_accelerator_enumerate_all_mmios(accelerator, &space, 1), 1);
        ivra_hw_accelerator_put(accelerator);
        ivra_hw_accelerator_put_descriptor(std::exchange(all.handles[0], nullptr));
        ivra_hw_mmio* mmio = ivra_hw_mmio_create(space);
        ivra_hw_mmio_put_descriptor(space);
        EXPECT_EQ(ivra_hw_mmio_get_descriptor(mmio), space);
        ivra_hw_core_tree* tree = ivra_hw_enumerate_cores(mmio);
        ivra_hw_mmio_destroy(mmio);
        ivra_hw_core* root = ivra_hw_core_tree_get_root(tree);
        ivra_hw_top* top = ivra_hw_top_create(root);
        ivra_flash* flash = ivra_flash_create(root);
        ivra_hw_destroy_tree(tree);
        char name[64];
        EXPECT_EQ(ivra_hw_top_get_board_name(top, name, sizeof name), 11);
        EXPECT_EQ(ivra_flash_write_section(flash, ivra_flash_get_section_usr(flash), 0, "x", 1), 0);
        ivra_flash_destroy(flash);
        ivra_hw_top_destroy(top);
    });
    EXPECT_EQ(trace().back(), "exit: 0 handles not released");
}

TEST_F(accelerators, opened_one_after_the_other_leave_nothing_open)
{
    std::vector<std::string> boards;
    for (int i = 0; i < 200; ++i)
        boards.push_back(R"({"model": "xilinx_u50", "uid": "board-)" + std::to_string(i) + "\"}");
    plug(boards);
    run([] {
        const descriptors_t all{200};
        ASSERT_EQ(all.handles.size(), 200U);
        for (const auto* descriptor : all.handles) {
            ivra_hw_accelerator* accelerator = ivra_hw_accelerator_get(descriptor);
            ASSERT_NE(accelerator, nullptr);
            ivra_hw_accelerator_put(accelerator);
        }
        std::size_t open_files = 0;
        for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator{"/proc/self/fd"})
            ++open_files;
        EXPECT_LT(open_files, 20U);
    });
}

} // namespace

} // namespace ivra::platform_tests
