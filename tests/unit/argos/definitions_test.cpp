#include "support.h"

#include <stdexcept>
#include <type_traits>

using namespace argos;
using testing::ElementsAre;

namespace {

std::string add_error(Option& option, OptionStyle style = OptionStyle::STANDARD)
{
    Console console{style};
    return thrown_by([&] { console.parser.add(option); });
}

std::string add_error(Option&& option, OptionStyle style = OptionStyle::STANDARD)
{
    return add_error(option, style);
}

const std::string accepted = "nothing thrown";

/// The option of a parser without others, as it was added.
OptionView added(Option& option)
{
    Console console;
    return console.parser.auto_help(false).add(option).parse({}).options().at(0);
}

} // namespace

TEST(option_definition, is_checked_with_an_exception_that_is_a_runtime_error)
{
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, ArgosException>));
}

TEST(option_definition, needs_a_flag)
{
    EXPECT_EQ(add_error(Option{}), "Option must have one or more flags.");
}

TEST(option_definition, flags_follow_the_style)
{
    struct Row
    {
        OptionStyle style;
        std::string flag;
        bool good;
        std::string why;
    };
    constexpr auto standard = OptionStyle::STANDARD;
    constexpr auto slash = OptionStyle::SLASH;
    constexpr auto dash = OptionStyle::DASH;
    const std::vector<Row> rows{
        {standard, "-x", true, "two characters"},
        {standard, "--", true, "two characters, whatever the second is"},
        {standard, "-=", true, "two characters, whatever the second is"},
        {standard, "--x", true, "two dashes"},
        {standard, "---", true, "two dashes"},
        {standard, "--long-name", true, "two dashes"},
        {standard, "", false, "empty"},
        {standard, "-", false, "too short"},
        {standard, "x", false, "no dash"},
        {standard, "xy", false, "no dash"},
        {standard, "/x", false, "prefix of another style"},
        {standard, "-xy", false, "three characters need two dashes"},
        {standard, "- ", false, "space"},
        {standard, "--a b", false, "space"},
        {standard, "--a\tb", false, "tab"},
        {standard, "--a\nb", false, "newline"},
        {standard, "--a\rb", false, "carriage return"},
        {standard, "--a=b", false, "equals sign inside"},
        {standard, "--a==", false, "equals sign before the last character"},
        {slash, "/x", true, "two characters"},
        {slash, "/=", true, "two characters, whatever the second is"},
        {slash, "/word", true, "no limit of length"},
        {slash, "/", false, "too short"},
        {slash, "", false, "empty"},
        {slash, "-x", false, "prefix of another style"},
        {slash, "/a b", false, "space"},
        {slash, "/a=b", false, "equals sign inside"},
        {dash, "-x", true, "two characters"},
        {dash, "-word", true, "no limit of length"},
        {dash, "--word", true, "its second character is a dash"},
        {dash, "-", false, "too short"},
        {dash, "/x", false, "prefix of another style"},
        {dash, "-a\tb", false, "tab"},
        {dash, "-a=b", false, "equals sign inside"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(add_error(Option{row.flag}, row.style), row.good ? accepted : "Invalid flag: '" + row.flag + "'.")
            << row.why;
}

TEST(option_definition, every_flag_is_checked)
{
    EXPECT_EQ((add_error(Option{"-a", "--bad flag"})), "Invalid flag: '--bad flag'.");
}

TEST(option_definition, a_flag_ending_in_an_equals_sign_must_take_an_argument)
{
    EXPECT_EQ(add_error(Option{"--x="}), "Options ending with '=' must take an argument: --x=");
    EXPECT_EQ(add_error(Option{"--x="}.constant("1")), "Options ending with '=' must take an argument: --x=");
    EXPECT_EQ(add_error(Option{"/x="}, OptionStyle::SLASH), "Options ending with '=' must take an argument: /x=");
    EXPECT_EQ(add_error(Option{"-x="}, OptionStyle::DASH), "Options ending with '=' must take an argument: -x=");
    EXPECT_EQ(add_error(Option{"--x="}.argument("x")), accepted);
    EXPECT_EQ(add_error(Option{"/x="}.argument("x"), OptionStyle::SLASH), accepted);
    EXPECT_EQ(add_error(Option{"-x="}.argument("x"), OptionStyle::DASH), accepted);
}

TEST(option_definition, cannot_have_both_argument_and_constant)
{
    for (const auto operation :
         {OptionOperation::NONE, OptionOperation::ASSIGN, OptionOperation::APPEND, OptionOperation::CLEAR})
        EXPECT_EQ(add_error(Option{"-x"}.argument("x").constant("1").operation(operation)),
                  "Option cannot have both argument and constant.");
}

TEST(option_definition, none_has_no_constant_and_no_alias)
{
    EXPECT_EQ(add_error(Option{"-x"}.operation(OptionOperation::NONE).constant("1")),
              "NONE-options cannot have a constant.");
    EXPECT_EQ(add_error(Option{"-x"}.operation(OptionOperation::NONE).value("x")),
              "NONE-options cannot have an alias.");
    EXPECT_EQ(add_error(Option{"-x"}.operation(OptionOperation::NONE)), accepted);
}

TEST(option_definition, append_needs_a_constant_or_an_argument)
{
    EXPECT_EQ(add_error(Option{"-x"}.operation(OptionOperation::APPEND)),
              "Options that appends must have either constant or argument.");
    EXPECT_EQ(add_error(Option{"-x"}.operation(OptionOperation::APPEND).constant("1")), accepted);
    EXPECT_EQ(add_error(Option{"-x"}.operation(OptionOperation::APPEND).argument("x")), accepted);
}

TEST(option_definition, clear_must_be_optional)
{
    EXPECT_EQ(add_error(Option{"-x"}.operation(OptionOperation::CLEAR).optional(false)),
              "CLEAR-options must be optional.");
    EXPECT_EQ(add_error(Option{"-x"}.operation(OptionOperation::CLEAR)), accepted);
}

TEST(option_definition, assign_without_argument_and_constant_gets_the_constant_1)
{
    EXPECT_EQ(added(Option{"-x"}.operation(OptionOperation::ASSIGN)).constant(), "1");
    EXPECT_EQ(added(Option{"-x"}.constant("on")).constant(), "on");
    EXPECT_EQ(added(Option{"-x"}.constant("")).constant(), "");
    EXPECT_EQ(added(Option{"-x"}.argument("x")).constant(), std::nullopt);
}

TEST(option_definition, clear_gets_the_constant_1_in_place_of_its_constant_or_argument)
{
    EXPECT_EQ(added(Option{"-x"}.operation(OptionOperation::CLEAR).constant("on")).constant(), "1");
    EXPECT_EQ(added(Option{"-x"}.operation(OptionOperation::CLEAR).argument("x")).constant(), "1");
    EXPECT_EQ(added(Option{"-x"}.operation(OptionOperation::CLEAR).value("x")).constant(), std::nullopt);
}

TEST(option_definition, the_style_cannot_change_once_there_are_options)
{
    Console console;
    console.parser.add(Option{"-x"});
    EXPECT_EQ(thrown_by([&] { console.parser.option_style(OptionStyle::DASH); }),
              "The option style must be set before options are added.");
}

TEST(argument_definition, needs_a_name)
{
    Console console;
    EXPECT_EQ(thrown_by([&] { console.parser.add(Argument{""}); }), "Argument must have a name.");
}

TEST(argument_definition, needs_a_range_that_is_not_empty)
{
    Console console;
    EXPECT_EQ(thrown_by([&] { console.parser.add(Argument{"file"}.count(2, 1)); }),
              "Argument's minimum count must not exceed its maximum count: file");
}

TEST(argument_definition, takes_one_value_unless_said_otherwise)
{
    Console console;
    console.parser.ignore_undefined_arguments(true)
        .add(Argument{"one"})
        .add(Argument{"maybe"}.optional())
        .add(Argument{"three"}.count(3))
        .add(Argument{"some"}.count(0, 65535));
    const auto arguments = console.parser.parse({}).arguments();
    const std::vector<std::pair<unsigned, unsigned>> expected{{1, 1}, {0, 1}, {3, 3}, {0, 65535}};
    ASSERT_EQ(arguments.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(std::pair(arguments[i].min_count(), arguments[i].max_count()), expected[i]) << arguments[i].name();
}

TEST(release, an_argument_cannot_be_used_afterwards)
{
    const std::string message = "Cannot use Argument instance after release() has been called.";
    Argument argument{"file"};
    EXPECT_EQ(argument.release()->name, "file");
    EXPECT_EQ(thrown_by([&] { argument.release(); }), message);
    EXPECT_EQ(thrown_by([&] { argument.help(""); }), message);
    EXPECT_EQ(thrown_by([&] { argument.section(""); }), message);
    EXPECT_EQ(thrown_by([&] { argument.value(""); }), message);
    EXPECT_EQ(thrown_by([&] { argument.visibility(Visibility::HIDDEN); }), message);
    EXPECT_EQ(thrown_by([&] { argument.id(1); }), message);
    EXPECT_EQ(thrown_by([&] { argument.count(1); }), message);
    EXPECT_EQ(thrown_by([&] { argument.optional(); }), message);
}

TEST(release, an_option_cannot_be_used_afterwards)
{
    const std::string message = "Cannot use Option instance after release() has been called.";
    Option option{"-x"};
    EXPECT_THAT(option.release()->flags, ElementsAre("-x"));
    EXPECT_EQ(thrown_by([&] { option.release(); }), message);
    EXPECT_EQ(thrown_by([&] { option.help(""); }), message);
    EXPECT_EQ(thrown_by([&] { option.section(""); }), message);
    EXPECT_EQ(thrown_by([&] { option.value(""); }), message);
    EXPECT_EQ(thrown_by([&] { option.visibility(Visibility::HIDDEN); }), message);
    EXPECT_EQ(thrown_by([&] { option.id(1); }), message);
    EXPECT_EQ(thrown_by([&] { option.argument(""); }), message);
    EXPECT_EQ(thrown_by([&] { option.constant(""); }), message);
    EXPECT_EQ(thrown_by([&] { option.operation(OptionOperation::NONE); }), message);
    EXPECT_EQ(thrown_by([&] { option.type(OptionType::HELP); }), message);
    EXPECT_EQ(thrown_by([&] { option.optional(); }), message);
    EXPECT_EQ(thrown_by([&] { option.callback({}); }), message);
}

TEST(release, adding_releases)
{
    Console console;
    Argument argument{"file"};
    Option option{"-x"};
    console.parser.add(argument).add(option);
    EXPECT_EQ(thrown_by([&] { console.parser.add(argument); }),
              "Cannot use Argument instance after release() has been called.");
    EXPECT_EQ(thrown_by([&] { console.parser.add(option); }),
              "Cannot use Option instance after release() has been called.");
}

TEST(release, a_definition_that_was_moved_away_cannot_be_used_either)
{
    Option option{"-x"};
    const Option other = std::move(option);
    EXPECT_EQ(thrown_by([&] { option.help(""); }), "Cannot use Option instance after release() has been called.");
}

TEST(parser, cannot_be_used_after_parse)
{
    const std::string message = "This instance of ArgumentParser can no longer be used.";
    Console console;
    ArgumentParser& parser = console.parser;
    parser.parse({});
    EXPECT_EQ(thrown_by([&] { parser.parse({}); }), message);
    EXPECT_EQ(thrown_by([&] { parser.write_help_text(); }), message);
    EXPECT_EQ(thrown_by([&] { parser.add(Argument{"file"}); }), message);
    EXPECT_EQ(thrown_by([&] { parser.add(Option{"-x"}); }), message);
    EXPECT_EQ(thrown_by([&] { parser.about(""); }), message);
    EXPECT_EQ(thrown_by([&] { parser.version(""); }), message);
    EXPECT_EQ(thrown_by([&] { parser.option_style(OptionStyle::DASH); }), message);
    EXPECT_EQ(thrown_by([&] { parser.auto_exit(true); }), message);
    EXPECT_EQ(thrown_by([&] { parser.allow_abbreviated_options(true); }), message);
    EXPECT_EQ(thrown_by([&] { parser.ignore_undefined_options(true); }), message);
    EXPECT_EQ(thrown_by([&] { parser.ignore_undefined_arguments(true); }), message);
    EXPECT_EQ(thrown_by([&] { parser.ignore_case(true); }), message);
    EXPECT_EQ(thrown_by([&] { parser.auto_help(true); }), message);
    EXPECT_EQ(thrown_by([&] { parser.normal_exit_code(0); }), message);
    EXPECT_EQ(thrown_by([&] { parser.error_exit_code(0); }), message);
    EXPECT_EQ(thrown_by([&] { parser.line_width(0); }), message);
    EXPECT_EQ(thrown_by([&] { parser.help_stream(console.help); }), message);
    EXPECT_EQ(thrown_by([&] { parser.error_stream(console.help); }), message);
    EXPECT_EQ(thrown_by([&] { parser.error_filter({}); }), message);
    EXPECT_EQ(thrown_by([&] { parser.text(TextId::ERROR, ""); }), message);
    EXPECT_EQ(thrown_by([&] { parser.section(""); }), message);
}

TEST(flags, that_are_defined_twice_are_refused_when_parsing_begins)
{
    Console console;
    console.parser.add(Option{"-a", "--same"}).add(Option{"-b", "--same"});
    EXPECT_EQ(thrown_by([&] { console.parser.parse({}); }), "Multiple definitions of flag --same");
}

TEST(flags, that_one_option_has_twice_are_refused_too)
{
    Console console;
    console.parser.add(Option{"-a", "-a"});
    EXPECT_EQ(thrown_by([&] { console.parser.parse({}); }), "Multiple definitions of flag -a");
}

TEST(flags, that_differ_only_in_case_conflict_when_case_is_ignored)
{
    Console console;
    console.parser.ignore_case(true).add(Option{"-x", "--same"}).add(Option{"--SAME"});
    EXPECT_EQ(thrown_by([&] { console.parser.parse({}); }), "Conflicting flags: --same and --SAME");
}

TEST(flags, that_differ_only_in_case_are_two_flags_otherwise)
{
    Console console;
    console.parser.add(Option{"-v"}).add(Option{"-V"});
    const auto args = console.parser.parse({"-V"});
    EXPECT_FALSE(args.has("-v"));
    EXPECT_TRUE(args.has("-V"));
}

TEST(ids, argument_ids_count_arguments_and_options_together_from_1)
{
    Console console;
    console.parser.add(Option{"-a"}).add(Argument{"file"}).add(Option{"-b"}).add(Argument{"other"}.optional());
    const auto args = console.parser.parse({"x"});
    ASSERT_EQ(args.options().size(), 3U);
    EXPECT_EQ(args.options()[0].argument_id(), 1U);
    EXPECT_EQ(args.arguments()[0].argument_id(), 2U);
    EXPECT_EQ(args.options()[1].argument_id(), 3U);
    EXPECT_EQ(args.arguments()[1].argument_id(), 4U);
    EXPECT_EQ(args.options()[2].argument_id(), 5U) << "the automatic help option";
}

TEST(ids, definitions_that_share_a_value_name_share_a_value_id)
{
    Console console;
    console.parser.add(Option{"-f"}.argument("name").value("file"))
        .add(Argument{"file"}.count(0, 9))
        .add(Option{"-g"}.argument("name").value("other"))
        .add(Argument{"rest"}.value("other").optional());
    const auto args = console.parser.parse({});
    const auto options = args.options();
    const auto arguments = args.arguments();
    EXPECT_EQ(options[0].value_id(), arguments[0].value_id());
    EXPECT_EQ(options[1].value_id(), arguments[1].value_id());
    EXPECT_NE(options[0].value_id(), options[1].value_id());
}

TEST(ids, options_without_a_value_name_have_values_of_their_own)
{
    Console console;
    console.parser.add(Option{"--in"}.argument("file")).add(Option{"--out"}.argument("file"));
    const auto args = console.parser.parse({"--in", "a"});
    EXPECT_TRUE(args.has("--in"));
    EXPECT_FALSE(args.has("--out"));
}

TEST(ids, a_flag_can_be_the_value_name_of_another_option_in_any_order)
{
    for (const bool flag_first : {true, false}) {
        Console console;
        Option color{"-c", "--color"};
        color.argument("color");
        Option never{"--no-color"};
        never.constant("never").value("--color");
        console.parser.add(flag_first ? color : never).add(flag_first ? never : color);
        const auto args = console.parser.parse({"--no-color"});
        EXPECT_EQ(args.value("-c").as_string(), "never");
    }
}

TEST(views, show_an_argument_as_it_was_defined)
{
    Console console;
    console.parser.section("FILES").add(
        Argument{"file"}.help("What to read").value("input").id(7).count(2, 3).visibility(Visibility::HIDDEN));
    console.parser.ignore_undefined_options(true);
    const ArgumentView view = console.parser.parse({"a", "b"}).arguments().at(0);
    EXPECT_EQ(view.name(), "file");
    EXPECT_EQ(view.help(), "What to read");
    EXPECT_EQ(view.section(), "FILES");
    EXPECT_EQ(view.value(), "input");
    EXPECT_EQ(view.id(), 7);
    EXPECT_EQ(view.argument_id(), 1U);
    EXPECT_EQ(view.value_id(), 1U);
    EXPECT_EQ(view.visibility(), Visibility::HIDDEN);
    EXPECT_EQ(view.min_count(), 2U);
    EXPECT_EQ(view.max_count(), 3U);
}

TEST(views, show_an_option_as_it_was_defined)
{
    Option option{"-l", "--level"};
    option.help("How much").section("DETAILS").value("depth").argument("level").operation(OptionOperation::APPEND);
    option.type(OptionType::LAST_OPTION).id(3).optional();
    const OptionView view = added(option);
    EXPECT_THAT(view.flags(), ElementsAre("-l", "--level"));
    EXPECT_EQ(view.help(), "How much");
    EXPECT_EQ(view.section(), "DETAILS");
    EXPECT_EQ(view.value(), "depth");
    EXPECT_EQ(view.argument(), "level");
    EXPECT_EQ(view.constant(), std::nullopt);
    EXPECT_EQ(view.operation(), OptionOperation::APPEND);
    EXPECT_EQ(view.type(), OptionType::LAST_OPTION);
    EXPECT_EQ(view.id(), 3);
    EXPECT_EQ(view.argument_id(), 1U);
    EXPECT_EQ(view.value_id(), 1U);
    EXPECT_EQ(view.visibility(), Visibility::NORMAL);
    EXPECT_TRUE(view.optional());
}

TEST(sections, the_current_one_is_given_to_what_has_none)
{
    Console console;
    console.parser.auto_help(false)
        .add(Option{"-a"})
        .section("NETWORK")
        .add(Option{"-b"})
        .add(Option{"-c"}.section("OWN"))
        .add(Argument{"host"}.optional())
        .section("")
        .add(Option{"-d"});
    const auto args = console.parser.parse({});
    words_t sections;
    for (const auto& option : args.options())
        sections.push_back(option.section());
    EXPECT_THAT(sections, ElementsAre("", "NETWORK", "OWN", ""));
    EXPECT_EQ(args.arguments().at(0).section(), "NETWORK");
}
