#include "hw/accelerator.h"
#include "hw/core.h"
#include "hw/flash.h"
#include "hw/hw_top.h"
#include "hw/i2c.h"
#include "hw/mmio.h"
#include "hw/shared_mutex.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace ivra::hw {
namespace {

/// Names of the calls in a trace whose names end in this way, in order.
std::vector<std::string> calls_among(const tests::rack_t& rack, const std::vector<std::string>& names)
{
    std::vector<std::string> found;
    std::istringstream trace{rack.trace()};
    for (std::string line; std::getline(trace, line);)
        for (const std::string& name : names)
            if (line.find(" " + name + "(") != std::string::npos)
                found.push_back(name);
    return found;
}

const std::vector<std::string> releases{
    "ivra_hw_accelerator_put_descriptor",
    "ivra_hw_accelerator_put",
    "ivra_hw_mmio_put_descriptor",
    "ivra_hw_mmio_destroy",
    "ivra_hw_destroy_tree",
    "ivra_hw_top_destroy",
    "ivra_flash_destroy",
    "ivra_i2c_destroy",
    "ivra_hw_shared_mutex_destroy",
    "ivra_hw_filter_destroy",
};

using tests::printed;
using tests::root_core;

const std::vector<std::string> chain_of_a_core{
    "ivra_hw_destroy_tree",
    "ivra_hw_mmio_destroy",
    "ivra_hw_mmio_put_descriptor",
    "ivra_hw_accelerator_put",
    "ivra_hw_accelerator_put_descriptor",
};

std::vector<std::string> with(const std::string& first, std::vector<std::string> rest)
{
    rest.insert(rest.begin(), first);
    return rest;
}

TEST(handles, a_core_keeps_tree_space_and_accelerator_open_and_releases_them_in_that_order)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p");
    EXPECT_EQ(printed(rack,
                      [] {
                          const core root = root_core();
                          std::cout << v6::hw_top::hw_top{root}.get_board_name().value();
                      }),
              "m48l_xcvu7p");
    EXPECT_EQ(calls_among(rack, releases), with("ivra_hw_top_destroy", chain_of_a_core));
}

TEST(handles, what_is_built_on_a_core_outlives_the_core_it_was_given)
{
    tests::rack_t rack;
    rack.plug("xilinx_u50");
    printed(rack, [] {
        std::optional<v6::flash::flash> flash{root_core()};
        EXPECT_TRUE(flash->get_memory_size().has_value());
    });
    EXPECT_EQ(calls_among(rack, releases), with("ivra_flash_destroy", chain_of_a_core));
    printed(rack, [] { v6::i2c::i2c{root_core()}; });
    EXPECT_EQ(calls_among(rack, releases), with("ivra_i2c_destroy", chain_of_a_core));
}

TEST(handles, a_copy_shares_the_handle_which_goes_with_the_last_one)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p");
    EXPECT_EQ(printed(rack,
                      [] {
                          std::optional<v6::hw_top::hw_top> first{root_core()};
                          const v6::hw_top::hw_top second = *first;
                          first.reset();
                          std::cout << second.get_board_name().value();
                      }),
              "m48l_xcvu7p");
    EXPECT_EQ(calls_among(rack, {"ivra_hw_top_create", "ivra_hw_top_get_board_name", "ivra_hw_top_destroy"}),
              (std::vector<std::string>{"ivra_hw_top_create", "ivra_hw_top_get_board_name", "ivra_hw_top_destroy"}));
}

TEST(handles, each_step_that_fails_releases_what_was_acquired_before)
{
    struct row_t
    {
        const char* call;
        const char* text;
        std::size_t released; ///< links of the chain, counted from its end
    };
    // clang-format off
    constexpr row_t rows[] = {
        {"ivra_hw_accelerator_get",                 "system error: Permission denied", 1},
        {"ivra_hw_accelerator_enumerate_all_mmios", "system error: Permission denied", 2},
        {"ivra_hw_mmio_create",                     "system error: Permission denied", 3},
        {"ivra_hw_enumerate_cores",                 "system error: Permission denied", 4},
        {"ivra_flash_create", "system error: Failed to create flash management subsystem: Permission denied", 5},
    };
    // clang-format on
    for (const row_t& row : rows) {
        tests::rack_t rack;
        rack.plug("m48l_xcvu7p").faults(std::string{R"({"call": ")"} + row.call + R"(", "errno": "EACCES"})");
        EXPECT_EQ(printed(rack, [] { v6::flash::flash{root_core()}; }), row.text);
        EXPECT_EQ(calls_among(rack, releases),
                  (std::vector<std::string>(chain_of_a_core.end() - static_cast<std::ptrdiff_t>(row.released),
                                            chain_of_a_core.end())))
            << row.call;
    }
}

TEST(handles, a_flash_without_one_of_its_sections_is_destroyed_before_its_core)
{
    for (const std::string section : {"pgm", "usr", "prm", "otp"}) {
        tests::rack_t rack;
        rack.plug("m48l_xcvu7p").faults(R"({"call": "ivra_flash_get_section_)" + section + R"(", "errno": "EIO"})");
        EXPECT_EQ(printed(rack, [] { v6::flash::flash{root_core()}; }),
                  "system error: Failed to create section object: Input/output error");
        EXPECT_EQ(calls_among(rack, releases), with("ivra_flash_destroy", chain_of_a_core));
    }
}

TEST(handles, sections_of_a_flash_are_asked_for_in_their_order)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p");
    printed(rack, [] { v6::flash::flash{root_core()}; });
    const std::vector<std::string> order{"ivra_flash_create", "ivra_flash_get_section_pgm",
                                         "ivra_flash_get_section_usr", "ivra_flash_get_section_prm",
                                         "ivra_flash_get_section_otp"};
    EXPECT_EQ(calls_among(rack, order), order);
}

TEST(handles, creations_that_fail_have_their_sentences)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p");
    EXPECT_EQ(printed(rack, [] { v6::i2c::i2c{root_core()}; }),
              "system error: Failed to create i2c object.: No such device");
    rack.faults(R"({"call": "ivra_hw_top_create", "errno": "EIO"})");
    EXPECT_EQ(printed(rack, [] { v6::hw_top::hw_top{root_core()}; }),
              "system error: Failed to create hw_top subsystem: Input/output error");
    rack.faults(R"({"call": "ivra_hw_shared_mutex_create", "errno": "EIO"})");
    EXPECT_EQ(printed(rack, [] { shared_mutex{"name"}; }), "system error: Input/output error");
}

TEST(enumeration, of_fewer_accelerators_than_counted_is_EINVAL_and_releases_those_described)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p").faults(R"({"call": "ivra_hw_count_accelerators", "count": 3})");
    EXPECT_EQ(printed(rack, [] { enumerate_accelerators(); }), "system error: Invalid argument");
    EXPECT_EQ(calls_among(rack, releases), std::vector<std::string>(2, "ivra_hw_accelerator_put_descriptor"))
        << "the null is not released";
}

TEST(enumeration, that_fails_is_empty)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p").faults(R"({"call": "ivra_hw_enumerate_all_accelerators", "errno": "EIO"})");
    EXPECT_EQ(printed(rack, [] { std::cout << enumerate_accelerators().size(); }), "0");
}

TEST(enumeration, of_mmio_spaces_gives_all_of_them)
{
    for (const std::string count : {"0", "1", "3"}) {
        tests::rack_t rack;
        rack.plug("m48l_xcvu7p", {{"mmios", count}});
        EXPECT_EQ(printed(rack,
                          [] {
                              const accelerator opened{enumerate_accelerators().at(0)};
                              const auto spaces = opened.enumerate_mmios();
                              std::cout << spaces.size();
                              for (std::size_t i = 0; i < spaces.size(); ++i)
                                  EXPECT_EQ(spaces[i].properties().index().value(), i);
                              if (testing::Test::HasFailure())
                                  std::exit(1);
                          }),
                  count);
    }
}

TEST(enumeration, of_fewer_mmio_spaces_than_counted_is_EINVAL_and_releases_those_described)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p").faults(R"({"call": "ivra_hw_accelerator_count_mmios", "count": 2})");
    EXPECT_EQ(printed(rack, [] { root_core(); }), "system error: Invalid argument");
    EXPECT_EQ(calls(rack, "ivra_hw_mmio_put_descriptor"), 1U);
}

TEST(enumeration, with_a_filter_gives_what_the_filter_selects)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p");
    EXPECT_EQ(printed(rack,
                      [] {
                          accelerator_filter by_index;
                          by_index.set_index(1);
                          std::cout << enumerate_accelerators(by_index).at(0).properties().name().value() << ' ';
                          accelerator_filter by_name;
                          by_name.set_name("card-0");
                          std::cout << enumerate_accelerators(by_name).at(0).properties().index().value() << ' ';
                          std::cout << enumerate_accelerators(accelerator_filter{}).size() << ' ';
                          by_name.set_index(1);
                          std::cout << enumerate_accelerators(by_name).size();
                      }),
              "card-1 0 2 0");
}

TEST(properties, of_an_accelerator_are_its_index_name_and_uid)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p");
    EXPECT_EQ(printed(rack,
                      [] {
                          const auto all = enumerate_accelerators();
                          const hw::properties p = all.at(0).properties();
                          std::cout << p.index().value() << ' ' << p.name().value() << ' ' << p.uid().value();
                      }),
              "0 card-0 0000:00:00.0");
    rack.plug("m48l_xcvu7p", {{"name", "null"}});
    EXPECT_EQ(printed(rack,
                      [] {
                          const auto all = enumerate_accelerators();
                          std::cout << all.at(1).properties().name().error().message();
                      }),
              "No such file or directory");
}

TEST(properties, of_an_open_mmio_space_are_those_of_its_descriptor)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p");
    EXPECT_EQ(printed(rack,
                      [] {
                          const accelerator opened{enumerate_accelerators().at(0)};
                          const mmio_descriptor descriptor = opened.enumerate_mmios().at(0);
                          const mmio space{descriptor};
                          std::cout << (space.properties().uid().value() == descriptor.properties().uid().value());
                      }),
              "1");
}

} // namespace
} // namespace ivra::hw
