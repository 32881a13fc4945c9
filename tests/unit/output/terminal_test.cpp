#include "output/terminal.h"

#include "output/output.h"
#include "support/process.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace ivra::bsp {
namespace {

std::vector<std::string> palette(bool enabled, const char* colorterm, const char* term)
{
    const auto set = [](const char* name, const char* value) {
        if (value == nullptr)
            ::unsetenv(name);
        else
            ::setenv(name, value, 1);
    };
    set("COLORTERM", colorterm);
    set("TERM", term);
    std::vector<std::string> escapes;
    for (unsigned c = 0; c < 8; ++c)
        escapes.emplace_back(get_color_map(enabled).at(static_cast<color>(c)));
    EXPECT_EQ(get_color_map(enabled).size(), 8U);
    return escapes;
}

const std::vector<std::string> truecolor{
    "\033[0m",
    "\033[1m",
    "\033[38;2;204;121;167m",
    "\033[38;2;0;158;115m",
    "\033[38;2;240;228;66m",
    "\033[38;2;86;180;233m",
    "\033[38;2;230;159;0m",
    "\033[38;2;213;94;0m",
};
const std::vector<std::string> color256{
    "\033[0m",        "\033[1m",       "\033[38;5;175m", "\033[38;5;36m",
    "\033[38;5;227m", "\033[38;5;74m", "\033[38;5;172m", "\033[38;5;166m",
};
const std::vector<std::string> plain{
    "\033[0m", "\033[1m", "\033[31m", "\033[32m", "\033[33m", "\033[36m", "\033[35m", "\033[31m",
};

TEST(color_map, has_three_palettes_and_none_when_colour_is_off)
{
    EXPECT_EQ(palette(true, "truecolor", "xterm"), truecolor);
    EXPECT_EQ(palette(true, nullptr, "xterm-256color"), color256);
    EXPECT_EQ(palette(true, nullptr, "xterm"), plain);
    EXPECT_EQ(palette(true, nullptr, nullptr), plain);
    EXPECT_EQ(palette(true, "24bit", "dumb"), plain) << "only the word truecolor counts";
    EXPECT_EQ(palette(false, "truecolor", "xterm-256color"), std::vector<std::string>(8, ""));
}

TEST(color_map, truecolor_takes_precedence_over_256color)
{
    EXPECT_EQ(palette(true, "xtruecolorx", "xterm-256color"), truecolor);
}

TEST(table_sep, repeats_a_line_two_wider_than_each_column)
{
    EXPECT_EQ(get_table_sep({4, 11}, {"┌", "┬", "┐"}), "┌──────┬─────────────┐");
    EXPECT_EQ(get_table_sep({0}, {"<", "|", ">"}), "<──>");
}

std::string printed(tests::function_ref<void(output&)> body, color_mode_t mode = color_mode_t::never)
{
    const tests::run_t run = tests::run_in_child([&] {
        ::unsetenv("COLORTERM");
        ::setenv("TERM", "xterm", 1);
        output::get().set_color_mode(mode);
        body(output::get());
    });
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
    return run.out;
}

std::string printed(const section& report, color_mode_t mode = color_mode_t::never)
{
    return printed(
        [&](output& out) {
            out.print_line(report.name, color::bold, report.level);
            out.print_out_content(report.entries, report.level);
        },
        mode);
}

std::string printed(const section::array& table, color_mode_t mode = color_mode_t::never)
{
    return printed([&](output& out) { out.print_out_array(table); }, mode);
}

const section::array small_table{"port", "Port", {"Vendor name"}, {{"0", {"ABCD"}, color::green}}, 0};

TEST(print_line, writes_tabs_the_colour_the_text_and_the_reset)
{
    EXPECT_EQ(printed([](output& out) { out.print_line("text", color::blue, 2); }), "\t\ttext\n");
    EXPECT_EQ(printed([](output& out) { out.print_line("text", color::blue, 2); }, color_mode_t::always),
              "\t\t\033[36mtext\033[0m\n");
}

TEST(print_stat, colours_only_the_value)
{
    const auto print = [](output& out) { out.print_stat({"Name", "value", color::green}, 3, 1); };
    EXPECT_EQ(printed(print), "\tName   : value\n");
    EXPECT_EQ(printed(print, color_mode_t::always), "\t\033[0mName   : \033[32mvalue\033[0m\033[0m\n");
}

TEST(report, stats_of_one_list_are_padded_so_that_the_colons_line_up)
{
    section report{"Report", std::nullopt, 0};
    report.add_stat({"A", "1", color::normal}).add_stat({"Long label", "2", color::normal});
    section inner{"Inner", std::nullopt, 1};
    inner.add_stat({"abc", "3", color::normal}).add_stat({"a", "4", color::normal});
    report.entries.emplace_back(inner);
    report.add_stat({"Later", "5", color::normal});
    EXPECT_EQ(printed(report), "Report\n"
                               "\tA         : 1\n"
                               "\tLong label: 2\n"
                               "\tInner\n"
                               "\t\tabc: 3\n"
                               "\t\ta  : 4\n"
                               "\tLater     : 5\n");
}

TEST(report, a_list_has_no_heading_and_a_captioned_list_has_one)
{
    section report{"Report", std::nullopt, 0};
    report.add_list("invisible").add_section("Item", "key", 1).add_stat({"a", "1", color::normal});
    section::caption_list captioned{{"Sections", 1, {}}};
    captioned.entries.emplace_back(stat_t{"b", "2", color::normal});
    report.entries.emplace_back(captioned);
    EXPECT_EQ(printed(report), "Report\n"
                               "\tItem\n"
                               "\t\ta: 1\n"
                               "\tSections\n"
                               "\t\tb: 2\n");
    EXPECT_EQ(printed(report, color_mode_t::always), "\033[1mReport\033[0m\n"
                                                     "\t\033[1mItem\033[0m\n"
                                                     "\t\t\033[0ma: \033[0m1\033[0m\033[0m\n"
                                                     "\t\033[1mSections\033[0m\n"
                                                     "\t\t\033[0mb: \033[0m2\033[0m\033[0m\n");
}

TEST(report, control_characters_of_names_and_values_are_question_marks)
{
    section report{"Report", std::nullopt, 0};
    report.add_stat({"na\tme", "\033[2Jvalue\n", color::normal}).add_stat({"\u0085", "x", color::normal});
    report.add_list("list").add_section("it\rem", "key", 0);
    report.entries.emplace_back(section::array{"k", "h\033", {"v\a"}, {{"r\b", {"\u009b"}, color::normal}}, 0});
    EXPECT_EQ(printed(report), "Report\n"
                               "\tna?me: ?[2Jvalue?\n"
                               "\t?    : x\n"
                               "it?em\n"
                               "┌────┬────┐\n"
                               "│ h? │ v? │\n"
                               "├────┼────┤\n"
                               "│ r? │  ? │\n"
                               "└────┴────┘\n");
}

TEST(report, labels_and_cells_line_up_also_when_their_texts_hold_what_is_not_shown)
{
    section report{"Report", std::nullopt, 0};
    report.add_stat({"a\u200bb", "1\u202e2", color::normal}).add_stat({"long\x85", "\ufeff", color::normal});
    report.entries.emplace_back(
        section::array{"k", "S", {"V\u2066"}, {{"r\u200fw\x9b", {"1 \u2060mV"}, {}}, {"b", {"10 mV"}, {}}}, 0});
    EXPECT_EQ(printed(report), "Report\n"
                               "\ta?b  : 1?2\n"
                               "\tlong?: ?\n"
                               "┌──────┬───────┐\n"
                               "│ S    │ V?    │\n"
                               "├──────┼───────┤\n"
                               "│ r?w? │ 1 ?mV │\n"
                               "│ b    │ 10 mV │\n"
                               "└──────┴───────┘\n");
}

TEST(report, nul_and_bytes_that_are_not_utf8_pass)
{
    section report{"Report", std::nullopt, 0};
    report.add_stat({"a", std::string{"x\0\xffy", 4}, color::normal});
    EXPECT_EQ(printed(report), (std::string{"Report\n\ta: x\0\xffy\n", 16}));
}

TEST(table, has_borders_a_left_aligned_header_and_right_aligned_values)
{
    EXPECT_EQ(printed(small_table), "┌──────┬─────────────┐\n"
                                    "│ Port │ Vendor name │\n"
                                    "├──────┼─────────────┤\n"
                                    "│ 0    │        ABCD │\n"
                                    "└──────┴─────────────┘\n");
}

TEST(table, a_row_takes_its_colour_and_the_header_is_bold)
{
    EXPECT_EQ(printed(small_table, color_mode_t::always),
              "\033[0m┌──────┬─────────────┐\033[0m\n"
              "\033[0m│ \033[1mPort\033[0m │ \033[1mVendor name\033[0m │\033[0m\n"
              "\033[0m├──────┼─────────────┤\033[0m\n"
              "\033[0m│ \033[32m0\033[0m    │        \033[32mABCD\033[0m │\033[0m\n"
              "\033[0m└──────┴─────────────┘\033[0m\n");
}

TEST(table, missing_cells_are_empty_and_of_full_width)
{
    const section::array table{"k", "S", {"Current", "Max"}, {{"a", {"1"}, {}}, {"b", {}, {}}}, 1};
    EXPECT_EQ(printed(table), "\t┌───┬─────────┬─────┐\n"
                              "\t│ S │ Current │ Max │\n"
                              "\t├───┼─────────┼─────┤\n"
                              "\t│ a │       1 │     │\n"
                              "\t│ b │         │     │\n"
                              "\t└───┴─────────┴─────┘\n");
}

TEST(table, values_are_measured_in_code_points)
{
    const section::array table{"k", "S", {"V"}, {{"a", {"45 \u00b0C"}, {}}, {"b", {"1200 mV"}, {}}}, 0};
    EXPECT_EQ(printed(table), "┌───┬─────────┐\n"
                              "│ S │ V       │\n"
                              "├───┼─────────┤\n"
                              "│ a │   45 \u00b0C │\n"
                              "│ b │ 1200 mV │\n"
                              "└───┴─────────┘\n");
}

TEST(table, is_as_wide_as_its_widest_value_has_code_points)
{
    const section::array table{"k", "S", {"V", "T"}, {{"a", {"45.25 \u00b0C", "1"}, {}}, {"b", {"1 mV", "2"}, {}}}, 0};
    EXPECT_EQ(printed(table), "┌───┬──────────┬───┐\n"
                              "│ S │ V        │ T │\n"
                              "├───┼──────────┼───┤\n"
                              "│ a │ 45.25 \u00b0C │ 1 │\n"
                              "│ b │     1 mV │ 2 │\n"
                              "└───┴──────────┴───┘\n");
}

TEST(table, names_and_headers_are_measured_in_bytes)
{
    const section::array table{"k", "S", {"\u00b0\u00b0"}, {{"\u00e9", {"1"}, {}}}, 0};
    EXPECT_EQ(printed(table), "┌────┬──────┐\n"
                              "│ S  │ \u00b0\u00b0   │\n"
                              "├────┼──────┤\n"
                              "│ \u00e9 │    1 │\n"
                              "└────┴──────┘\n");
}

TEST(table, without_value_columns_it_prints_only_the_names)
{
    const section::array table{"k", "Name", {}, {{"a", {}, {}}, {"longer", {}, {}}}, 0};
    EXPECT_EQ(printed(table), "┌────────┐\n"
                              "│ Name   │\n"
                              "├────────┤\n"
                              "│ a      │\n"
                              "│ longer │\n"
                              "└────────┘\n");
}

TEST(table, a_text_longer_than_any_screen_does_not_wrap_the_width_around)
{
    const std::string huge(70000, 'x');
    const section::array table{"k", "S", {"V"}, {{"a", {huge}, {}}, {huge, {"1"}, {}}}, 0};
    const std::string text = printed(table);
    EXPECT_NE(text.find("│ a" + std::string(65533 - 1, ' ') + " │ " + huge + " │\n"), std::string::npos);
}

TEST(colour, switched_off_it_writes_no_escape_and_changes_no_alignment)
{
    section report{"Report", std::nullopt, 0};
    report.add_stat({"A", "1", color::red}).add_stat({"Long", "2", color::orange});
    report.entries.emplace_back(small_table);
    const std::string without = printed(report, color_mode_t::never);
    std::string with = printed(report, color_mode_t::always);
    EXPECT_EQ(without.find('\033'), std::string::npos);
    EXPECT_NE(with.find('\033'), std::string::npos);
    for (std::size_t escape = with.find('\033'); escape != std::string::npos; escape = with.find('\033'))
        with.erase(escape, with.find('m', escape) - escape + 1);
    EXPECT_EQ(with, without);
}

} // namespace
} // namespace ivra::bsp
