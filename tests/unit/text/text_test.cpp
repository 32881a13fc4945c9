#include "text/text.h"

#include "support/process.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <limits>
#include <stdexcept>
#include <string>

namespace ivra::bsp {
namespace {

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
    EXPECT_THROW(strlen_utf8("45 \xb0"
                             "C"),
                 std::range_error);
}

TEST(fixed, writes_a_number_with_so_many_decimals)
{
    EXPECT_EQ(fixed(12.3456, 2), "12.35");
    EXPECT_EQ(fixed(-0.0005, 3), "-0.001") << "the double is a little more than half";
    EXPECT_EQ(fixed(0.125, 2), "0.12") << "a half goes to the even digit";
    EXPECT_EQ(fixed(7, 0), "7");
    EXPECT_EQ(fixed(-std::numeric_limits<double>::max(), 3).size(), std::string{"-."}.size() + 309 + 3);
    EXPECT_EQ(fixed(-std::numeric_limits<double>::infinity(), 2), "-inf");
    EXPECT_EQ(fixed(-std::numeric_limits<double>::quiet_NaN(), 2), "nan");
}

/// A locale whose numbers have a comma, made in a folder of its own.
class comma_locale_t
{
public:
    comma_locale_t()
    {
        std::ofstream characters{folder_ / "characters"};
        characters << "<code_set_name> ASCII\nCHARMAP\n" << std::hex << std::setfill('0');
        for (int code = 0; code < 128; ++code)
            characters << "<U" << std::setw(4) << code << "> /x" << std::setw(2) << code << " character\n";
        characters << "END CHARMAP\n" << std::flush;
        std::ofstream{folder_ / "numbers"} << "escape_char /\nLC_NUMERIC\ndecimal_point \",\"\nthousands_sep \"\"\n"
                                              "grouping -1\nEND LC_NUMERIC\n";
        // It warns of the categories that are missing, with status 1.
        tests::run_program("/usr/bin/localedef",
                           {"-c", "-f", folder_ / "characters", "-i", folder_ / "numbers", folder_ / "comma"});
        ::setenv("LOCPATH", folder_.c_str(), 1);
        name_ = std::setlocale(LC_NUMERIC, "comma");
    }
    comma_locale_t(const comma_locale_t&) = delete;
    comma_locale_t& operator=(const comma_locale_t&) = delete;
    ~comma_locale_t() { std::filesystem::remove_all(folder_); }

    bool is_set() const { return name_ != nullptr; }

private:
    std::filesystem::path folder_ = [] {
        std::string name = (std::filesystem::temp_directory_path() / "ivra-locale-XXXXXX").string();
        return ::mkdtemp(name.data()) == nullptr ? "" : name;
    }();
    const char* name_ = nullptr;
};

TEST(fixed, writes_a_point_where_a_platform_library_has_set_the_users_locale)
{
    const comma_locale_t locale;
    ASSERT_TRUE(locale.is_set());
    ASSERT_EQ(std::strtod("1,5", nullptr), 1.5);
    EXPECT_EQ(fixed(12.3456, 2), "12.35");
    EXPECT_EQ(std::strtod("1,5", nullptr), 1.5) << "it leaves the library its own";
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

TEST(printable, looks_at_every_byte_of_a_longer_text)
{
    for (const char around : {'a', ' ', '~'})
        for (std::size_t at = 0; at < 20; ++at)
            for (int byte = 1; byte <= 0xff; ++byte) {
                std::string text(20, around);
                text[at] = static_cast<char>(byte);
                std::string shown = text;
                if (byte < ' ' || (byte > '~' && byte <= 0x9f)) // by itself no byte beyond ASCII is UTF-8
                    shown[at] = '?';
                EXPECT_EQ(printable(text), shown) << byte << " at " << at;
            }
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
