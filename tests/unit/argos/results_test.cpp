#include "support.h"

#include <algorithm>
#include <limits>

using namespace argos;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A result with a value `text` of an option "-n, --number".
ParsedArguments with_number(Console& console, std::string_view text)
{
    console.parser.add(Option{"-n", "--number"}.argument("n"));
    return console.parser.parse({"-n", text});
}

} // namespace

TEST(reading, by_any_flag_by_value_name_and_by_argument_name)
{
    Console console;
    console.parser.add(Option{"-c", "--color"}.argument("color"))
        .add(Option{"-a"}.argument("word").value("alias"))
        .add(Option{"-j", "--json"});
    const auto args = console.parser.parse({"-c", "red", "-ax", "-j"});
    for (const auto* name : {"-c", "--color", "color"})
        EXPECT_EQ(args.value(name).as_string(), "red") << name;
    for (const auto* name : {"-a", "alias"})
        EXPECT_EQ(args.value(name).as_string(), "x") << name;
    EXPECT_EQ(thrown_by([&] { args.has("word"); }), "Unknown value: word") << "it has a value name";
    EXPECT_TRUE(args.has("-j"));
    EXPECT_TRUE(args.has("--json"));
}

TEST(reading, an_argument_name_that_two_options_have_is_unknown)
{
    Console console;
    console.parser.add(Option{"-i"}.argument("file")).add(Option{"-o"}.argument("file"));
    const auto args = console.parser.parse({"-ix"});
    EXPECT_EQ(thrown_by([&] { args.has("file"); }), "Unknown value: file");
}

TEST(reading, a_value_name_wins_over_an_argument_name)
{
    Console console;
    console.parser.add(Option{"-i"}.argument("file")).add(Argument{"file"});
    EXPECT_EQ(console.parser.parse({"-ix", "y"}).value("file").as_string(), "y");
}

TEST(reading, a_value_name_wins_over_a_flag)
{
    Console console;
    console.parser.add(Option{"-a"}.argument("x").value("-b")).add(Option{"-b"}.argument("x").value("other"));
    const auto args = console.parser.parse({"-a1", "-b2"});
    EXPECT_EQ(args.value("-b").as_string(), "1");
    EXPECT_EQ(args.value("other").as_string(), "2");
}

TEST(reading, what_was_defined_but_not_given_is_absent)
{
    Console console;
    console.parser.add(Option{"-j"}).add(Argument{"info"}.optional());
    const auto args = console.parser.parse({});
    EXPECT_FALSE(args.has("-j"));
    EXPECT_FALSE(args.has("info"));
    EXPECT_FALSE(args.value("info").has_value());
    EXPECT_EQ(args.value("info").argument_id(), 0U);
    EXPECT_EQ(args.value("info").as_string(), "");
    EXPECT_EQ(args.value("info").as_string("default"), "default");
    EXPECT_TRUE(args.values("info").empty());
    EXPECT_THAT(args.values("info").as_strings(), IsEmpty());
    EXPECT_THAT(args.values("info").as_strings({"a", "b"}), ElementsAre("a", "b"));
}

TEST(reading, an_unknown_name_throws)
{
    Console console;
    console.parser.add(Option{"-j"});
    const auto args = console.parser.parse({});
    EXPECT_EQ(thrown_by([&] { args.has("odd"); }), "Unknown value: odd");
    EXPECT_EQ(thrown_by([&] { args.value("--j"); }), "Unknown value: --j");
    EXPECT_EQ(thrown_by([&] { args.values(""); }), "Unknown value: ");
}

TEST(reading, several_values_as_one_throws)
{
    Console console;
    console.parser.add(Argument{"word"}.count(0, 9));
    const auto args = console.parser.parse({"a", "b"});
    EXPECT_TRUE(args.has("word"));
    EXPECT_EQ(thrown_by([&] { args.value("word"); }), "Attempt to read multiple values as a single value.");
}

TEST(reading, from_a_result_that_is_an_error_throws)
{
    Console console;
    console.parser.add(Argument{"word"});
    const auto args = console.parser.parse({"a", "b"});
    const std::string message = "Error while parsing arguments.";
    EXPECT_EQ(thrown_by([&] { args.has("word"); }), message);
    EXPECT_EQ(thrown_by([&] { args.value("word"); }), message);
    EXPECT_EQ(thrown_by([&] { args.values("word"); }), message);
}

TEST(reading, several_values_one_by_one)
{
    Console console;
    console.parser.add(Argument{"first"}.value("all"))
        .add(Argument{"rest"}.value("all").count(0, 9))
        .add(Option{"-x"}.argument("x").operation(OptionOperation::APPEND).value("all"));
    const auto values = console.parser.parse({"1", "-x2", "3"}).values("all");
    ASSERT_EQ(values.size(), 3U);
    EXPECT_EQ(values[0].as_int(), 1);
    EXPECT_EQ(values[1].as_int(), 2);
    EXPECT_EQ(values[2].as_int(), 3);
    EXPECT_EQ(values[0].argument_id(), 1U);
    EXPECT_EQ(values[1].argument_id(), 3U);
    EXPECT_EQ(values[2].argument_id(), 2U);
    EXPECT_FALSE(values[3].has_value());
}

TEST(reading, a_result_can_be_copied_and_outlives_its_parser)
{
    std::ostringstream help;
    std::optional<ParsedArguments> copy;
    {
        ArgumentParser parser{"prog", false};
        parser.help_stream(help).add(Option{"-s"}.type(OptionType::STOP).help("Stop"));
        const auto args = parser.parse({"-s"});
        copy = args;
    }
    EXPECT_TRUE(copy->has("-s"));
    EXPECT_EQ(copy->stop_option()->help(), "Stop");
    copy->write_help_text();
    EXPECT_NE(help.str(), "");
}

TEST(numbers, of_every_kind)
{
    using IntLimits = std::numeric_limits<int>;
    const auto value = [](const std::string& text) {
        Console console;
        return with_number(console, text).value("-n");
    };
    EXPECT_EQ(value("-2147483648").as_int(), IntLimits::min());
    EXPECT_EQ(value("2147483647").as_int(), IntLimits::max());
    EXPECT_EQ(value("0012").as_int(), 12);
    EXPECT_EQ(value("4294967295").as_uint(), 4294967295U);
    EXPECT_EQ(value("-9223372036854775808").as_long(), std::numeric_limits<long>::min());
    EXPECT_EQ(value("18446744073709551615").as_ulong(), 18446744073709551615UL);
    EXPECT_EQ(value("-2.5e3").as_double(), -2500.0);
    EXPECT_EQ(value("7").as_double(), 7.0);
}

TEST(numbers, that_are_absent_have_the_default)
{
    Console console;
    console.parser.add(Option{"-n"}.argument("n"));
    const auto value = console.parser.parse({}).value("-n");
    EXPECT_EQ(value.as_int(), 0);
    EXPECT_EQ(value.as_int(-3), -3);
    EXPECT_EQ(value.as_uint(3), 3U);
    EXPECT_EQ(value.as_long(-4), -4);
    EXPECT_EQ(value.as_ulong(4), 4U);
    EXPECT_EQ(value.as_double(0.5), 0.5);
}

TEST(numbers, that_are_none_are_reported_and_thrown)
{
    for (const std::string text : {"", "x", "1x", " 1", "1 ", "+1", "0x10", "1.5", "2147483648", "-2147483649"}) {
        Console console;
        const auto args = with_number(console, text);
        const std::string message = "-n, --number: \"" + text + "\" is not an integer from -2147483648 to 2147483647.";
        EXPECT_EQ(thrown_by([&] { args.value("-n").as_int(); }), message);
        EXPECT_EQ(console.errors.str(), "prog: " + message +
                                            "\n"
                                            "Usage: prog [OPTIONS]\n"
                                            "Help is available with prog --help\n");
    }
}

TEST(numbers, are_reported_with_what_was_expected)
{
    Console console;
    console.parser.add(Argument{"count"});
    const auto value = console.parser.parse({"many"}).value("count");
    EXPECT_EQ(thrown_by([&] { value.as_uint(); }), "count: \"many\" is not an integer from 0 to 4294967295.");
    EXPECT_EQ(thrown_by([&] { value.as_long(); }),
              "count: \"many\" is not an integer from -9223372036854775808 to 9223372036854775807.");
    EXPECT_EQ(thrown_by([&] { value.as_ulong(); }),
              "count: \"many\" is not an integer from 0 to 18446744073709551615.");
    EXPECT_EQ(thrown_by([&] { value.as_double(); }), "count: \"many\" is not a number.");
}

TEST(numbers, negative_ones_are_not_unsigned)
{
    Console console;
    const auto value = with_number(console, "-1").value("-n");
    EXPECT_EQ(thrown_by([&] { value.as_uint(); }), "-n, --number: \"-1\" is not an integer from 0 to 4294967295.");
}

TEST(numbers, must_be_finite)
{
    for (const std::string text : {"nan", "inf", "-infinity", "1e999", "1.5.", ""}) {
        Console console;
        const auto value = with_number(console, text).value("-n");
        EXPECT_EQ(thrown_by([&] { value.as_double(); }), "-n, --number: \"" + text + "\" is not a number.");
    }
}

TEST(error_messages, are_what_the_filter_makes_of_them)
{
    const auto without_bells = [](std::string_view text) {
        std::string filtered{text};
        std::replace(filtered.begin(), filtered.end(), '\a', '!');
        return filtered;
    };
    Console parsing;
    parsing.parser.error_filter(without_bells).add(Argument{"wo\ard"});
    parsing.parser.parse({"one", "tw\ao"});
    EXPECT_EQ(parsing.error(), "prog: Too many arguments, starting with \"tw!o\".");
    EXPECT_NE(parsing.errors.str().find("wo\ard"), std::string::npos) << "the program's own texts pass";

    Console reading;
    reading.parser.error_filter(without_bells).add(Argument{"number"});
    const ParsedArguments args = reading.parser.parse({"\a"});
    EXPECT_THROW(args.value("number").as_int(0), ArgosException);
    EXPECT_EQ(reading.error().substr(0, 29), "prog: number: \"!\" is not an i");
}

TEST(value_errors, are_written_with_the_brief_usage)
{
    Console console;
    console.parser.add(Argument{"word"}.count(1, 2));
    const auto args = console.parser.parse({"a", "b"});
    args.values("word").error("these words do not fit");
    const std::string expected = "prog: these words do not fit\n"
                                 "Usage: prog [OPTIONS] <word>...\n"
                                 "Help is available with prog --help\n";
    EXPECT_EQ(console.errors.str(), expected);
    args.values("word")[0].error("these words do not fit");
    EXPECT_EQ(console.errors.str(), expected + expected);
}
