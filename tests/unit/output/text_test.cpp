#include "output/text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
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

TEST(strlen_utf8, counts_code_points)
{
    EXPECT_EQ(strlen_utf8(""), 0U);
    EXPECT_EQ(strlen_utf8("12 mV"), 5U);
    EXPECT_EQ(strlen_utf8("45 \u00b0C"), 5U);
    EXPECT_EQ(strlen_utf8("\u2502\U0001F600"), 2U);
}

TEST(strlen_utf8, invalid_utf8_is_a_range_error)
{
    EXPECT_THROW(strlen_utf8("\xff"), std::range_error);
    EXPECT_THROW(strlen_utf8("\xc2"), std::range_error);
}

TEST(table_sep, repeats_a_line_two_wider_than_each_column)
{
    EXPECT_EQ(get_table_sep({4, 11}, {"┌", "┬", "┐"}), "┌──────┬─────────────┐");
    EXPECT_EQ(get_table_sep({0}, {"<", "|", ">"}), "<──>");
}

TEST(printable, shows_control_characters_as_question_marks)
{
    std::string all_controls;
    for (char c = 0x01; c <= 0x1F; ++c)
        all_controls += c;
    EXPECT_EQ(printable(all_controls), std::string(31, '?'));
    EXPECT_EQ(printable("\x7f"), "?");
    EXPECT_EQ(printable("a\033[31mb"), "a?[31mb");
    EXPECT_EQ(printable("\u0080\u009b\u009f"), "???") << "the C1 controls, one question mark each";
}

TEST(printable, shows_what_is_invisible_or_turns_text_around_as_question_marks)
{
    // clang-format off
    struct row_t { const char* before; const char* hidden; const char* after; };
    const row_t rows[] = {
        {"\u200a", "\u200b\u200c\u200d\u200e\u200f",                                                "\u2010"},
        {"\u2027", "\u2028\u2029\u202a\u202b\u202c\u202d\u202e",                                    "\u202f"},
        {"\u205f", "\u2060\u2061\u2062\u2063\u2064\u2065\u2066\u2067\u2068\u2069",                  "\u206a"},
        {"\ufefe", "\ufeff",                                                                          "\uff00"},
    };
    // clang-format on
    for (const row_t& row : rows) {
        const std::string marks(strlen_utf8(row.hidden), '?');
        EXPECT_EQ(printable(std::string{row.before} + row.hidden + row.after), row.before + marks + row.after);
    }
    EXPECT_EQ(printable("\U0001200b\U0001feff"), "\U0001200b\U0001feff") << "other characters of the same last bits";
}

TEST(printable, shows_a_control_byte_that_is_not_utf8_as_a_question_mark)
{
    for (unsigned byte = 0x80; byte <= 0xff; ++byte) {
        const std::string alone(1, static_cast<char>(byte));
        EXPECT_EQ(printable("a" + alone + "b"), "a" + (byte <= 0x9f ? "?" : alone) + "b") << byte;
    }
    EXPECT_EQ(printable("\xe2\x80"), "\xe2?") << "cut off by the end";
    EXPECT_EQ(printable("\xe2\x80z"), "\xe2?z") << "cut off by another character";
    EXPECT_EQ(printable("\xc0\x9b"), "\xc0?") << "overlong";
}

TEST(printable, passes_everything_else_unchanged)
{
    EXPECT_EQ(printable(" ~\u00a0\u00b0C│\U0001F600"), " ~\u00a0\u00b0C│\U0001F600");
    const std::string with_nul{"a\0b", 3};
    EXPECT_EQ(printable(with_nul), with_nul);
    EXPECT_EQ(printable("\xa0\xff\xc2"), "\xa0\xff\xc2") << "bytes that are not UTF-8 pass";
    EXPECT_EQ(printable("\xc2\x1b"), "\xc2?") << "a broken sequence hides no escape";
    EXPECT_EQ(printable(""), "");
}

TEST(valid_utf8, replaces_each_byte_that_is_not_utf8)
{
    const std::string r = "\uFFFD";
    // clang-format off
    struct row_t { std::string bytes; std::string text; const char* why; };
    const std::vector<row_t> rows{
        {"",                         "",                    "nothing"},
        {"a\u00b0\u2502\U0001F600",  "a\u00b0\u2502\U0001F600", "sequences of one to four bytes"},
        {"\x80",                     r,                     "a continuation byte alone"},
        {"\xff\xfe",                 r + r,                 "bytes that never occur"},
        {"\xc0\x80",                 r + r,                 "overlong in two bytes"},
        {"\xc1\xbf",                 r + r,                 "overlong in two bytes"},
        {"\xe0\x9f\xbf",             r + r + r,             "overlong in three bytes"},
        {"\xe0\xa0\x80",             "\u0800",              "the first of three bytes"},
        {"\xed\x9f\xbf",             "\ud7ff",              "the last before the surrogates"},
        {"\xed\xa0\x80",             r + r + r,             "a surrogate"},
        {"\xee\x80\x80",             "\ue000",              "the first after the surrogates"},
        {"\xf0\x8f\xbf\xbf",         r + r + r + r,         "overlong in four bytes"},
        {"\xf0\x90\x80\x80",         "\U00010000",          "the first of four bytes"},
        {"\xf4\x8f\xbf\xbf",         "\U0010FFFF",          "the last code point"},
        {"\xf4\x90\x80\x80",         r + r + r + r,         "beyond Unicode"},
        {"\xf5\x80\x80\x80",         r + r + r + r,         "beyond Unicode"},
        {"\xe2\x94",                 r + r,                 "cut off at the end"},
        {"\xe2\x94" "a",             r + r + "a",           "cut off by another character"},
        {"x\xffy",                   "x" + r + "y",         "the neighbours stay"},
    };
    // clang-format on
    for (const row_t& row : rows)
        EXPECT_EQ(valid_utf8(row.bytes), row.text) << row.why;
    const std::string with_nul{"a\0b", 3};
    EXPECT_EQ(valid_utf8(with_nul), with_nul);
}

} // namespace
} // namespace ivra::bsp
