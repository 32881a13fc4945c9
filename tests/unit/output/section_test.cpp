#include "output/section.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace ivra::bsp {
namespace {

const stat_t& stat_of(const section::entry& entry)
{
    return std::get<stat_t>(entry);
}

TEST(section_model, references_outlive_further_additions)
{
    section report{"report", std::nullopt, 0};
    section::list& first = report.add_list("first");
    section& item = first.add_section("item", "key", 1);
    for (int i = 0; i < 1000; ++i) {
        report.add_list("more");
        first.add_section("more", "key", 1);
    }
    item.name = "renamed";
    first.name = "renamed too";
    EXPECT_EQ(std::get<section>(first.entries.front()).name, "renamed");
    EXPECT_EQ(std::get<section::list>(report.entries.front()).name, "renamed too");
}

TEST(section_model, a_list_is_one_level_deeper_and_its_sections_have_the_level_they_were_given)
{
    section report{"report", std::nullopt, 3};
    section::list& list = report.add_list("list");
    EXPECT_EQ(list.level, 4);
    const section& item = list.add_section("item", "Port", 1);
    EXPECT_EQ(item.level, 1);
    EXPECT_EQ(item.key, "Port");
    EXPECT_EQ(item.name, "item");
    EXPECT_TRUE(item.entries.empty());
}

TEST(section_model, a_null_text_is_an_empty_value)
{
    section report{"report", std::nullopt, 0};
    report.add_stat<const char*>("name", nullptr, color::red);
    EXPECT_EQ(stat_of(report.entries.front()).name, "name");
    EXPECT_EQ(stat_of(report.entries.front()).value, "");
    EXPECT_EQ(stat_of(report.entries.front()).color, color::red);
}

TEST(section_model, entries_keep_the_order_in_which_they_were_added)
{
    section report{"report", std::nullopt, 0};
    report.add_stat({"one", "1", color::normal}).add_stat<const char*>("two", "2", color::blue);
    report.add_list("three");
    report.add_stat<std::string>("four", "4", color::green);
    std::vector<std::size_t> kinds;
    for (const section::entry& entry : report.entries)
        kinds.push_back(entry.index());
    EXPECT_EQ(kinds, (std::vector<std::size_t>{0, 0, 2, 0}));
    EXPECT_EQ(stat_of(report.entries.back()).name, "four");
}

TEST(section_model, the_alternatives_of_an_entry_have_their_order)
{
    EXPECT_EQ(section::entry{stat_t{}}.index(), 0U);
    EXPECT_EQ((section::entry{section{"", std::nullopt, 0}}.index()), 1U);
    EXPECT_EQ(section::entry{section::list{}}.index(), 2U);
    EXPECT_EQ(section::entry{section::caption_list{}}.index(), 3U);
    EXPECT_EQ(section::entry{section::array{}}.index(), 4U);
}

TEST(section_model, a_copy_is_deep)
{
    section report{"report", std::nullopt, 0};
    report.add_list("list").add_section("item", "key", 1);
    section copy = report;
    std::get<section>(std::get<section::list>(copy.entries.front()).entries.front()).name = "changed";
    EXPECT_EQ(std::get<section>(std::get<section::list>(report.entries.front()).entries.front()).name, "item");
}

TEST(stat, set_value_replaces_the_value_and_keeps_the_rest)
{
    stat_t stat{"Name", "old", color::blue};
    EXPECT_EQ(&stat.set_value<std::string>("new"), &stat);
    EXPECT_EQ(stat.name, "Name");
    EXPECT_EQ(stat.value, "new");
    EXPECT_EQ(stat.color, color::blue);
}

TEST(stat_str, gives_fixed_decimals_a_space_and_the_unit)
{
    EXPECT_EQ(stat_str(12.3456, "V", 2), "12.35 V");
    EXPECT_EQ(stat_str(0.0, "W", 3), "0.000 W");
    EXPECT_EQ(stat_str(1.5, "", 1), "1.5 ") << "the space is written before an empty unit, too";
    EXPECT_EQ(stat_str(-0.001, "A", 2), "-0.00 A");
    EXPECT_EQ(stat_str(1e21, "V", 0), "1000000000000000000000 V");
}

TEST(stat_str, has_no_sign_of_what_is_no_number)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(stat_str(nan, "V", 3), "nan V");
    EXPECT_EQ(stat_str(std::copysign(nan, -1.0), "V", 3), "nan V");
    EXPECT_EQ(stat_str(-std::numeric_limits<double>::infinity(), "V", 3), "-inf V") << "this has one everywhere";
}

TEST(boot_image_stat, has_a_word_and_a_colour_for_each_image)
{
    struct row_t
    {
        unsigned value;
        const char* text;
        bsp::color color;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {0, "none",    color::red},
        {1, "primary", color::green},
        {2, "backup",  color::yellow},
        {3, "",        color::normal},
    };
    // clang-format on
    for (const row_t& row : rows) {
        section report{"report", std::nullopt, 0};
        add_boot_image_stat(report, "Next reload", static_cast<board::boot_image_t>(row.value));
        EXPECT_EQ(stat_of(report.entries.front()).name, "Next reload");
        EXPECT_EQ(stat_of(report.entries.front()).value, row.text);
        EXPECT_EQ(stat_of(report.entries.front()).color, row.color);
    }
}

} // namespace
} // namespace ivra::bsp
