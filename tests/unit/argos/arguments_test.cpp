#include "Argos/argument_iterator.h"
#include "support.h"

using namespace argos;
using testing::IsEmpty;

TEST(arguments, are_filled_in_order_each_up_to_its_maximum)
{
    Console console;
    console.parser.add(Argument{"one"}).add(Argument{"some"}.count(1, 2)).add(Argument{"rest"}.count(0, 9));
    const auto args = console.parser.parse({"a", "b", "c", "d", "e"});
    EXPECT_EQ(args.value("one").as_string(), "a");
    EXPECT_EQ(args.values("some").as_strings(), (words_t{"b", "c"}));
    EXPECT_EQ(args.values("rest").as_strings(), (words_t{"d", "e"}));
}

TEST(arguments, that_can_take_no_value_are_passed_over)
{
    Console console;
    console.parser.add(Argument{"nothing"}.count(0)).add(Argument{"one"});
    EXPECT_EQ(console.parser.parse({"a"}).value("one").as_string(), "a");
}

TEST(arguments, beyond_the_last_are_too_many)
{
    Console console;
    console.parser.add(Argument{"one"});
    EXPECT_EQ(console.parser.parse({"a", "b c", "d"}).result_code(), ResultCode::ERROR);
    EXPECT_EQ(console.error(), "prog: Too many arguments, starting with \"b c\".");
}

TEST(arguments, are_too_many_when_none_is_defined)
{
    Console console;
    EXPECT_EQ(console.parser.parse({"-"}).result_code(), ResultCode::ERROR);
    EXPECT_EQ(console.error(), "prog: Too many arguments, starting with \"-\".");
}

TEST(arguments, beyond_the_last_can_be_collected)
{
    Console console;
    console.parser.ignore_undefined_arguments(true).add(Argument{"one"}).add(Option{"-x"});
    const auto args = console.parser.parse({"a", "b", "-x", "", "c"});
    EXPECT_EQ(args.result_code(), ResultCode::SUCCESS);
    EXPECT_TRUE(args.has("-x"));
    EXPECT_EQ(args.unprocessed_arguments(), (words_t{"b", "", "c"}));
}

TEST(arguments, and_options_that_are_collected_keep_the_order_of_the_command_line)
{
    Console console;
    console.parser.ignore_undefined_arguments(true)
        .ignore_undefined_options(true)
        .add(Argument{"command"})
        .add(Option{"-j", "--json"});
    const auto args = console.parser.parse({"--odd=1", "set", "-j", "speed", "-x", "1", "--json", "10"});
    EXPECT_EQ(args.value("command").as_string(), "set");
    EXPECT_EQ(args.unprocessed_arguments(), (words_t{"--odd=1", "speed", "-x", "1", "10"}));
}

TEST(arguments, collected_words_come_before_those_that_a_stop_leaves)
{
    Console console;
    console.parser.ignore_undefined_arguments(true).add(Option{"-s"}.type(OptionType::STOP));
    EXPECT_EQ(console.parser.parse({"a", "-s", "b"}).unprocessed_arguments(), (words_t{"a", "b"}));
}

TEST(argument_counts, too_few_of_a_fixed_number)
{
    Console console;
    console.parser.add(Argument{"one"}).add(Argument{"two"}.count(2));
    console.parser.parse({"a"});
    EXPECT_EQ(console.error(), "prog: Too few arguments. Expected 3, received 1.");
}

TEST(argument_counts, too_few_of_a_range)
{
    Console console;
    console.parser.add(Argument{"parameter"}).add(Argument{"value"}.count(1, 65535));
    console.parser.parse({"speed"});
    EXPECT_EQ(console.error(), "prog: Too few arguments. Expected at least 2, received 1.");
}

TEST(argument_counts, collected_words_do_not_count)
{
    Console console;
    console.parser.ignore_undefined_options(true).add(Argument{"command"});
    console.parser.parse({"--odd"});
    EXPECT_EQ(console.error(), "prog: Too few arguments. Expected 1, received 0.");
}

TEST(argument_counts, values_of_options_do_not_count)
{
    Console console;
    console.parser.add(Option{"-f"}.argument("file").value("file")).add(Argument{"file"});
    console.parser.parse({"-fx"});
    EXPECT_EQ(console.error(), "prog: Too few arguments. Expected 1, received 0.");
}

TEST(argument_counts, very_large_ranges_do_not_overflow)
{
    Console console;
    console.parser.add(Argument{"a"}.count(4294967295)).add(Argument{"b"}.count(4294967295));
    console.parser.parse({"x"});
    EXPECT_EQ(console.error(), "prog: Too few arguments. Expected 8589934590, received 1.");
}

TEST(argument_counts, come_after_mandatory_options)
{
    Console console;
    console.parser.add(Argument{"word"}).add(Option{"-k"}.argument("key").optional(false));
    console.parser.parse({});
    EXPECT_EQ(console.error(), "prog: Mandatory option \"-k\" is missing.");
}

TEST(parse_errors, keep_the_remaining_words)
{
    Console console;
    console.parser.ignore_undefined_arguments(true);
    const auto args = console.parser.parse({"ignored", "--odd", "b", "-x"});
    EXPECT_EQ(args.result_code(), ResultCode::ERROR);
    EXPECT_EQ(args.unprocessed_arguments(), (words_t{"ignored", "b", "-x"}));
    EXPECT_FALSE(args.stop_option().has_value());
}

TEST(parse_errors, are_reported_once)
{
    Console console;
    console.parser.parse({"--odd", "--odd"});
    EXPECT_EQ(console.errors.str(), "prog: Unknown option: --odd\n"
                                    "Usage: prog [OPTIONS]\n"
                                    "Help is available with prog --help\n");
    EXPECT_EQ(console.help.str(), "");
}

namespace {

/// The parser's walk over the words, one step at a time.
ArgumentIterator walk(std::vector<std::string_view> words, std::ostream& errors)
{
    ParserData data;
    data.program_name = "prog";
    data.auto_exit = false;
    data.error_stream = &errors;
    data.add(Option{"-a"}.release());
    data.add(Option{"-s"}.type(OptionType::STOP).release());
    return {std::move(words), std::make_shared<const ParserData>(std::move(data))};
}

} // namespace

TEST(argument_iterator, throws_when_it_is_used_after_an_error)
{
    std::ostringstream errors;
    auto iterator = walk({"-a", "--odd", "-a"}, errors);
    EXPECT_TRUE(iterator.next());
    EXPECT_FALSE(iterator.next());
    EXPECT_EQ(iterator.result().code, ResultCode::ERROR);
    EXPECT_EQ(thrown_by([&] { iterator.next(); }), "next() called after error.");
    EXPECT_EQ(thrown_by([&] { iterator.next(); }), "next() called after error.");
}

TEST(argument_iterator, stays_at_its_end)
{
    std::ostringstream errors;
    auto whole = walk({"-aa"}, errors);
    EXPECT_TRUE(whole.next());
    EXPECT_TRUE(whole.next());
    EXPECT_EQ(whole.result().code, ResultCode::NONE);
    EXPECT_FALSE(whole.next());
    EXPECT_EQ(whole.result().code, ResultCode::SUCCESS);
    EXPECT_FALSE(whole.next());

    auto stopped = walk({"-s", "-a"}, errors);
    EXPECT_FALSE(stopped.next());
    EXPECT_FALSE(stopped.next());
    EXPECT_EQ(stopped.result().code, ResultCode::SPECIAL_OPTION);
    EXPECT_EQ(stopped.result().unprocessed, (words_t{"-a"}));
    EXPECT_EQ(errors.str(), "");
}

TEST(argument_iterator, no_words_are_no_error)
{
    std::ostringstream errors;
    auto iterator = walk({}, errors);
    EXPECT_FALSE(iterator.next());
    EXPECT_EQ(iterator.result().code, ResultCode::SUCCESS);
    EXPECT_THAT(iterator.result().unprocessed, IsEmpty());
}
