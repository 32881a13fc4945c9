#include "support.h"

using namespace argos;
using testing::IsEmpty;

namespace {

constexpr auto all_styles = {OptionStyle::STANDARD, OptionStyle::SLASH, OptionStyle::DASH};

std::string prefix(OptionStyle style)
{
    return style == OptionStyle::SLASH ? "/" : "-";
}

/// A flag of several letters in a style.
std::string long_flag(OptionStyle style, const std::string& name)
{
    return (style == OptionStyle::STANDARD ? "--" : prefix(style)) + name;
}

std::string error_of(Console& console, std::vector<std::string_view> words)
{
    const auto args = console.parser.parse(std::move(words));
    EXPECT_EQ(args.result_code(), ResultCode::ERROR);
    return console.error();
}

} // namespace

// Operations, in every style.

TEST(operations, assign_keeps_the_last_value)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "level");
        console.parser.add(Option{flag}.argument("n").operation(OptionOperation::ASSIGN));
        const auto args = console.parser.parse({flag, "1", flag, "2"});
        EXPECT_EQ(args.result_code(), ResultCode::SUCCESS);
        EXPECT_EQ(args.values(flag).as_strings(), (words_t{"2"}));
    }
}

TEST(operations, append_keeps_all_values_in_order)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "level");
        const std::string with_value = flag + "=2";
        console.parser.add(Option{flag}.argument("n").operation(OptionOperation::APPEND));
        const auto args = console.parser.parse({flag, "1", with_value, flag, "1"});
        EXPECT_EQ(args.values(flag).as_strings(), (words_t{"1", "2", "1"}));
    }
}

TEST(operations, clear_removes_every_value_of_its_value_id)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string add = long_flag(style, "add");
        const std::string none = long_flag(style, "none");
        console.parser.add(Option{add}.argument("n").operation(OptionOperation::APPEND).value("list"))
            .add(Option{none}.operation(OptionOperation::CLEAR).value("list"))
            .add(Argument{"list"}.count(0, 9));
        const auto args = console.parser.parse({add, "1", "word", none, add, "3"});
        EXPECT_EQ(args.values("list").as_strings(), (words_t{"3"}));
    }
}

TEST(operations, none_records_nothing)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "quiet");
        console.parser.add(Option{flag}.operation(OptionOperation::NONE));
        const auto args = console.parser.parse({flag});
        EXPECT_EQ(args.result_code(), ResultCode::SUCCESS);
        EXPECT_FALSE(args.has(flag));
    }
}

TEST(operations, constants_are_assigned_and_appended)
{
    Console console;
    console.parser.add(Option{"-j"})
        .add(Option{"-q"}.constant("quiet").value("mode"))
        .add(Option{"-v"}.constant("v").operation(OptionOperation::APPEND));
    const auto args = console.parser.parse({"-j", "-q", "-v", "-v"});
    EXPECT_EQ(args.value("-j").as_string(), "1");
    EXPECT_EQ(args.value("mode").as_string(), "quiet");
    EXPECT_EQ(args.values("-v").as_strings(), (words_t{"v", "v"}));
}

TEST(operations, clear_never_takes_the_argument_it_has)
{
    Console console;
    console.parser.add(Option{"-r", "--reset"}.argument("x").operation(OptionOperation::CLEAR).value("list"))
        .add(Argument{"list"}.count(0, 9));
    const auto args = console.parser.parse({"a", "--reset", "b"});
    EXPECT_EQ(args.values("list").as_strings(), (words_t{"b"}));
}

TEST(operations, clear_drops_what_follows_its_equals_sign)
{
    Console console;
    console.parser.add(Option{"--reset="}.argument("x").operation(OptionOperation::CLEAR).value("list"))
        .add(Argument{"list"}.count(0, 9))
        .add(Option{"-n"}.argument("x"));
    const auto args = console.parser.parse({"a", "--reset=dropped", "b", "--reset=dropped", "-n", "c"});
    EXPECT_FALSE(args.has("list"));
    EXPECT_EQ(args.value("-n").as_string(), "c");
}

TEST(operations, none_takes_its_argument_for_the_callback_only)
{
    Console console;
    std::string seen;
    console.parser
        .add(Option{"-n"}
                 .argument("x")
                 .operation(OptionOperation::NONE)
                 .callback([&](const OptionView&, const ArgumentValue& value, ParsedArgumentsBuilder&) {
                     seen = value.as_string();
                 }))
        .add(Argument{"word"});
    const auto args = console.parser.parse({"-n", "one", "two"});
    EXPECT_EQ(seen, "one");
    EXPECT_FALSE(args.has("-n"));
    EXPECT_EQ(args.value("word").as_string(), "two");
}

// Types, in every style.

TEST(types, help_writes_the_help_text_and_stops)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "explain");
        console.parser.about("Explains itself.").add(Option{flag}.type(OptionType::HELP)).add(Argument{"must"});
        const auto args = console.parser.parse({flag, "rest"});
        EXPECT_EQ(args.result_code(), ResultCode::SPECIAL_OPTION);
        EXPECT_EQ(args.stop_option()->flags(), (words_t{flag}));
        EXPECT_TRUE(console.help.str().starts_with("Explains itself.\n")) << console.help.str();
        EXPECT_EQ(args.unprocessed_arguments(), (words_t{"rest"}));
        EXPECT_EQ(console.errors.str(), "");
    }
}

TEST(types, stop_keeps_the_remaining_words_and_checks_nothing)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "stop");
        console.parser.add(Option{flag}.type(OptionType::STOP)).add(Argument{"must"});
        const auto args = console.parser.parse({flag, "--odd=1", "-", "", flag});
        EXPECT_EQ(args.result_code(), ResultCode::SPECIAL_OPTION);
        EXPECT_EQ(args.stop_option()->flags(), (words_t{flag}));
        EXPECT_TRUE(args.has(flag));
        EXPECT_FALSE(args.has("must"));
        EXPECT_EQ(args.unprocessed_arguments(), (words_t{"--odd=1", "-", "", flag}));
        EXPECT_EQ(console.help.str() + console.errors.str(), "");
    }
}

TEST(types, exit_without_automatic_exit_is_a_stop)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "exit");
        console.parser.add(Option{flag}.type(OptionType::EXIT)).add(Argument{"must"});
        const auto args = console.parser.parse({flag, "rest"});
        EXPECT_EQ(args.result_code(), ResultCode::SPECIAL_OPTION);
        EXPECT_EQ(args.stop_option()->type(), OptionType::EXIT);
        EXPECT_EQ(args.unprocessed_arguments(), (words_t{"rest"}));
        EXPECT_EQ(console.help.str() + console.errors.str(), "");
    }
}

TEST(types, last_argument_checks_the_counts_and_keeps_the_remaining_words)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "end");
        console.parser.add(Option{flag}.type(OptionType::LAST_ARGUMENT)).add(Argument{"must"});
        const auto args = console.parser.parse({"word", flag, "--odd", "more"});
        EXPECT_EQ(args.result_code(), ResultCode::SUCCESS);
        EXPECT_FALSE(args.stop_option().has_value());
        EXPECT_EQ(args.unprocessed_arguments(), (words_t{"--odd", "more"}));
    }
}

TEST(types, last_argument_reports_what_is_missing)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "end");
        console.parser.add(Option{flag}.type(OptionType::LAST_ARGUMENT)).add(Argument{"must"});
        EXPECT_EQ(error_of(console, {flag, "word"}), "prog: Too few arguments. Expected 1, received 0.");
    }
}

TEST(types, last_option_makes_every_later_word_an_argument)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string end = long_flag(style, "args");
        const std::string flag = prefix(style) + "x";
        const std::string cluster = prefix(style) + "xx";
        const std::string with_value = long_flag(style, "x=y");
        console.parser.add(Option{end}.type(OptionType::LAST_OPTION))
            .add(Option{flag})
            .add(Argument{"word"}.count(0, 9));
        const auto args = console.parser.parse({end, flag, cluster, with_value, end, "-"});
        EXPECT_FALSE(args.has(flag));
        EXPECT_EQ(args.values("word").as_strings(), (words_t{flag, cluster, with_value, end, "-"}));
    }
}

TEST(types, last_option_leaves_the_flags_of_its_own_cluster_alone)
{
    Console console;
    console.parser.add(Option{"-l"}.type(OptionType::LAST_OPTION)).add(Option{"-x"}).add(Argument{"word"}.optional());
    const auto args = console.parser.parse({"-lx", "-x"});
    EXPECT_TRUE(args.has("-x"));
    EXPECT_EQ(args.value("word").as_string(), "-x");
}

TEST(types, a_stop_inside_a_cluster_drops_the_rest_of_the_cluster)
{
    Console console;
    console.parser.add(Option{"-s"}.type(OptionType::STOP)).add(Option{"-x"});
    const auto args = console.parser.parse({"-sx", "rest"});
    EXPECT_FALSE(args.has("-x"));
    EXPECT_EQ(args.unprocessed_arguments(), (words_t{"rest"}));
}

// Every operation with every type: the value is recorded before the type takes effect.

TEST(operations_and_types, the_operation_always_comes_first)
{
    for (const auto style : all_styles)
        for (const auto operation :
             {OptionOperation::NONE, OptionOperation::ASSIGN, OptionOperation::APPEND, OptionOperation::CLEAR})
            for (const auto type : {OptionType::NORMAL, OptionType::HELP, OptionType::STOP, OptionType::EXIT,
                                    OptionType::LAST_ARGUMENT, OptionType::LAST_OPTION}) {
                SCOPED_TRACE(testing::Message() << "style " << static_cast<int>(style) << " operation "
                                                << static_cast<int>(operation) << " type " << static_cast<int>(type));
                Console console{style};
                const std::string first = long_flag(style, "first");
                const std::string flag = long_flag(style, "tested");
                Option tested{flag};
                tested.operation(operation).type(type);
                if (operation == OptionOperation::ASSIGN || operation == OptionOperation::APPEND)
                    tested.constant("new");
                if (operation != OptionOperation::NONE)
                    tested.value("list");
                console.parser.add(Option{first}.constant("old").value("list")).add(tested);
                const auto args = console.parser.parse({first, flag});

                words_t expected{"old"};
                if (operation == OptionOperation::ASSIGN)
                    expected = {"new"};
                else if (operation == OptionOperation::APPEND)
                    expected = {"old", "new"};
                else if (operation == OptionOperation::CLEAR)
                    expected = {};
                EXPECT_EQ(args.values("list").as_strings(), expected);
                const bool stops = type == OptionType::HELP || type == OptionType::STOP || type == OptionType::EXIT;
                EXPECT_EQ(args.result_code(), stops ? ResultCode::SPECIAL_OPTION : ResultCode::SUCCESS);
                EXPECT_EQ(args.stop_option().has_value(), stops);
                EXPECT_EQ(console.help.str().empty(), type != OptionType::HELP);
            }
}

// Words, flags and values.

TEST(option_words, a_lone_dash_is_a_value)
{
    Console console;
    console.parser.add(Argument{"file"});
    EXPECT_EQ(console.parser.parse({"-"}).value("file").as_string(), "-");
}

TEST(option_words, an_empty_word_is_a_value)
{
    Console console;
    console.parser.add(Argument{"file"}.count(2));
    EXPECT_EQ(console.parser.parse({"", ""}).values("file").as_strings(), (words_t{"", ""}));
}

TEST(option_words, two_dashes_are_an_option_word)
{
    Console console;
    console.parser.add(Argument{"file"}.optional());
    EXPECT_EQ(error_of(console, {"--"}), "prog: Unknown option: --");
}

TEST(option_words, two_dashes_can_be_defined)
{
    Console console;
    console.parser.add(Option{"--"}.type(OptionType::LAST_OPTION)).add(Argument{"file"}.count(0, 9));
    EXPECT_EQ(console.parser.parse({"a", "--", "-h", "--"}).values("file").as_strings(), (words_t{"a", "-h", "--"}));
}

TEST(option_words, in_the_slash_style_dashes_are_values_and_in_the_others_slashes)
{
    Console slash{OptionStyle::SLASH};
    slash.parser.add(Argument{"word"}.count(0, 9));
    EXPECT_EQ(slash.parser.parse({"-x", "--long", "/"}).values("word").as_strings(), (words_t{"-x", "--long", "/"}));
    Console dash{OptionStyle::DASH};
    dash.parser.add(Argument{"word"}.count(0, 9));
    EXPECT_EQ(dash.parser.parse({"/x", "-"}).values("word").as_strings(), (words_t{"/x", "-"}));
}

TEST(option_words, options_may_stand_anywhere)
{
    Console console;
    console.parser.add(Option{"-a"}).add(Option{"-b"}.argument("x")).add(Argument{"word"}.count(2));
    const auto args = console.parser.parse({"one", "-a", "two", "-b", "three"});
    EXPECT_EQ(args.values("word").as_strings(), (words_t{"one", "two"}));
    EXPECT_EQ(args.value("-b").as_string(), "three");
}

TEST(option_words, bytes_that_are_not_text_are_words_like_any_other)
{
    Console console;
    console.parser.add(Argument{"word"}.count(0, 9)).add(Option{"--x"}.argument("x"));
    const auto args = console.parser.parse({"\xFF\xFE", "--x=\xC3", "\x80"});
    EXPECT_EQ(args.values("word").as_strings(), (words_t{"\xFF\xFE", "\x80"}));
    EXPECT_EQ(args.value("--x").as_string(), "\xC3");
}

TEST(clusters, flags_without_value_are_options_of_their_own)
{
    Console console;
    console.parser.add(Option{"-a"}).add(Option{"-b"}).add(Option{"-c"});
    const auto args = console.parser.parse({"-abc"});
    EXPECT_TRUE(args.has("-a") && args.has("-b") && args.has("-c"));
}

TEST(clusters, a_flag_with_value_takes_the_rest_of_the_word)
{
    Console console;
    console.parser.add(Option{"-a"}.argument("x")).add(Option{"-b"}).add(Option{"-c"});
    const auto args = console.parser.parse({"-abc"});
    EXPECT_EQ(args.value("-a").as_string(), "bc");
    EXPECT_FALSE(args.has("-b") || args.has("-c"));
}

TEST(clusters, the_rest_of_the_word_begins_after_the_flag_wherever_that_stands)
{
    Console console;
    console.parser.add(Option{"-v"}).add(Option{"-o"}.argument("file"));
    const auto args = console.parser.parse({"-vofile"});
    EXPECT_TRUE(args.has("-v"));
    EXPECT_EQ(args.value("-o").as_string(), "file");
}

TEST(clusters, an_equals_sign_belongs_to_the_value)
{
    Console console;
    console.parser.add(Option{"-o"}.argument("file"));
    EXPECT_EQ(console.parser.parse({"-o=file"}).value("-o").as_string(), "=file");
}

TEST(clusters, a_flag_with_value_at_the_end_takes_the_whole_next_word)
{
    Console console;
    console.parser.add(Option{"-v"}).add(Option{"-o"}.argument("file"));
    const auto args = console.parser.parse({"-vo", "-v"});
    EXPECT_EQ(args.value("-o").as_string(), "-v");
}

TEST(clusters, dashes_inside_are_flags)
{
    Console console;
    console.parser.add(Option{"-a"}).add(Option{"--"});
    EXPECT_TRUE(console.parser.parse({"-a-"}).has("--"));
}

TEST(clusters, an_unknown_flag_is_reported_with_the_whole_word)
{
    for (const std::string_view word : {"-abc", "-xyz"}) {
        Console console;
        console.parser.add(Option{"-a"}).add(Option{"-b"});
        EXPECT_EQ(error_of(console, {word}), "prog: Unknown option: " + std::string{word});
    }
}

TEST(clusters, do_not_exist_in_the_other_styles)
{
    for (const auto style : {OptionStyle::SLASH, OptionStyle::DASH}) {
        Console console{style};
        const std::string a = prefix(style) + "a";
        const std::string b = prefix(style) + "b";
        const std::string word = prefix(style) + "ab";
        console.parser.add(Option{a}).add(Option{b});
        EXPECT_EQ(error_of(console, {word}), "prog: Unknown option: " + word);
    }
}

TEST(values, may_follow_an_equals_sign_in_every_style)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "name");
        const std::string word = flag + "=a=b";
        console.parser.add(Option{flag}.argument("x"));
        EXPECT_EQ(console.parser.parse({word}).value(flag).as_string(), "a=b");
    }
}

TEST(values, may_be_empty_after_the_equals_sign)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "name");
        const std::string word = flag + "=";
        console.parser.add(Option{flag}.argument("x")).add(Argument{"other"}.optional());
        const auto args = console.parser.parse({word, "next"});
        EXPECT_TRUE(args.has(flag));
        EXPECT_EQ(args.value(flag).as_string("absent"), "");
        EXPECT_EQ(args.value("other").as_string(), "next");
    }
}

TEST(values, a_value_in_the_next_word_may_look_like_anything)
{
    for (const std::string_view value : {"-x", "--name", "--other=1", "-", "--", ""}) {
        Console console;
        console.parser.add(Option{"-n", "--name"}.argument("x")).add(Option{"-x"});
        const auto args = console.parser.parse({"--name", value});
        EXPECT_EQ(args.value("--name").as_string("absent"), value);
        EXPECT_FALSE(args.has("-x"));
    }
}

TEST(values, of_a_flag_that_is_an_equals_sign_follow_it_like_those_of_any_other)
{
    const auto parsed = [](const words_t& words) {
        Console console;
        console.parser.add(Option{"-="}.argument("x")).add(Option{"-v"}).add(Argument{"word"}.optional());
        const auto args = console.parser.parse({words.begin(), words.end()});
        return console.errors.str() + args.value("-=").as_string("absent") + (args.has("-v") ? " -v" : "") +
               (args.has("word") ? " word" : "");
    };
    EXPECT_EQ(parsed({"-=", "next"}), "next");
    EXPECT_EQ(parsed({"-=", "-v"}), "-v") << "whatever it looks like";
    EXPECT_EQ(parsed({"-=rest", "next"}), "rest word");
    EXPECT_EQ(parsed({"-v=rest"}), "rest -v") << "in a cluster";
    EXPECT_EQ(parsed({"-=="}), "=");
}

TEST(values, a_missing_value_is_an_error)
{
    for (const std::string_view flag : {"-n", "--name"}) {
        Console console;
        console.parser.add(Option{"-n", "--name"}.argument("x")).add(Option{"-v"});
        EXPECT_EQ(error_of(console, {flag}), "prog: " + std::string{flag} + ": no value given.");
    }
}

TEST(values, a_missing_value_at_the_end_of_a_cluster_names_the_flag)
{
    Console console;
    console.parser.add(Option{"-n"}.argument("x")).add(Option{"-v"});
    EXPECT_EQ(error_of(console, {"-vn"}), "prog: -n: no value given.");
}

TEST(values, a_flag_without_argument_takes_none_after_an_equals_sign)
{
    Console console;
    console.parser.add(Option{"-j", "--json"});
    EXPECT_EQ(error_of(console, {"--json=yes"}), "prog: Unknown option: --json=yes");
}

TEST(values, a_flag_that_ends_in_an_equals_sign_is_found_only_with_it)
{
    Console good;
    good.parser.add(Option{"--name="}.argument("x"));
    EXPECT_EQ(good.parser.parse({"--name=y"}).value("--name=").as_string(), "y");
    Console bad;
    bad.parser.add(Option{"--name="}.argument("x"));
    EXPECT_EQ(error_of(bad, {"--name", "y"}), "prog: Unknown option: --name");
}

TEST(values, flags_with_and_without_equals_sign_can_be_two_options)
{
    Console console;
    console.parser.add(Option{"--color"}.constant("always")).add(Option{"--color="}.argument("when"));
    const auto args = console.parser.parse({"--color", "--color=never"});
    EXPECT_EQ(args.value("--color").as_string(), "always");
    EXPECT_EQ(args.value("--color=").as_string(), "never");
}

// Lookup.

TEST(abbreviations, are_not_allowed_unless_asked_for)
{
    Console console;
    console.parser.add(Option{"--verbose"});
    EXPECT_EQ(error_of(console, {"--verb"}), "prog: Unknown option: --verb");
}

TEST(abbreviations, stand_for_the_only_flag_that_begins_so)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "verbose");
        const std::string word = long_flag(style, "verb");
        console.parser.allow_abbreviated_options(true).add(Option{flag}).add(Option{long_flag(style, "vast")});
        EXPECT_TRUE(console.parser.parse({word}).has(flag));
    }
}

TEST(abbreviations, are_refused_when_two_flags_begin_so)
{
    Console console;
    console.parser.allow_abbreviated_options(true).add(Option{"--verbose"}).add(Option{"--version"});
    EXPECT_EQ(error_of(console, {"--ver"}), "prog: Unknown option: --ver");
}

TEST(abbreviations, are_refused_even_when_both_flags_are_of_one_option)
{
    Console console;
    console.parser.allow_abbreviated_options(true).add(Option{"--color", "--colour"});
    EXPECT_EQ(error_of(console, {"--col"}), "prog: Unknown option: --col");
}

TEST(abbreviations, yield_to_an_exact_match)
{
    Console console;
    console.parser.allow_abbreviated_options(true).add(Option{"--ver"}).add(Option{"--version"});
    const auto args = console.parser.parse({"--ver"});
    EXPECT_TRUE(args.has("--ver"));
    EXPECT_FALSE(args.has("--version"));
}

TEST(abbreviations, can_be_followed_by_a_value)
{
    Console console;
    console.parser.allow_abbreviated_options(true)
        .add(Option{"--name"}.argument("x"))
        .add(Option{"--file="}.argument("x"));
    const auto args = console.parser.parse({"--na=1", "--fi=2"});
    EXPECT_EQ(args.value("--name").as_string(), "1");
    EXPECT_EQ(args.value("--file=").as_string(), "2");
}

TEST(abbreviations, two_dashes_alone_abbreviate_nothing)
{
    Console console;
    console.parser.auto_help(false).allow_abbreviated_options(true).add(Option{"--only"});
    EXPECT_EQ(error_of(console, {"--"}), "prog: Unknown option: --");
}

TEST(abbreviations, a_prefix_with_nothing_but_an_equals_sign_abbreviates_nothing)
{
    Console console{OptionStyle::SLASH};
    console.parser.auto_help(false).allow_abbreviated_options(true).add(Option{"/name"}.argument("x"));
    EXPECT_EQ(error_of(console, {"/=y"}), "prog: Unknown option: /=y");
}

TEST(abbreviations, that_are_ambiguous_can_be_ignored_like_unknown_options)
{
    Console console;
    console.parser.allow_abbreviated_options(true)
        .ignore_undefined_options(true)
        .add(Option{"--aa"})
        .add(Option{"--ab"});
    EXPECT_EQ(console.parser.parse({"--a"}).unprocessed_arguments(), (words_t{"--a"}));
}

TEST(letter_case, matters_unless_it_is_ignored)
{
    Console console;
    console.parser.add(Option{"--name"});
    EXPECT_EQ(error_of(console, {"--Name"}), "prog: Unknown option: --Name");
}

TEST(letter_case, can_be_ignored_in_every_style)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string flag = long_flag(style, "Name");
        const std::string first = long_flag(style, "nAME");
        const std::string second = long_flag(style, "NAME=2");
        console.parser.ignore_case(true).add(Option{flag}.argument("x").operation(OptionOperation::APPEND));
        EXPECT_EQ(console.parser.parse({first, "One", second}).values(flag).as_strings(), (words_t{"One", "2"}));
    }
}

TEST(letter_case, can_be_ignored_in_clusters_and_abbreviations)
{
    Console console;
    console.parser.ignore_case(true)
        .allow_abbreviated_options(true)
        .add(Option{"-a"})
        .add(Option{"-B"})
        .add(Option{"--Verbose"});
    const auto args = console.parser.parse({"-Ab", "--vErB"});
    EXPECT_TRUE(args.has("-a") && args.has("-B") && args.has("--Verbose"));
}

TEST(letter_case, can_be_ignored_from_a_to_z)
{
    for (char c = 'a'; c <= 'z'; ++c) {
        const std::string small{'-', c};
        const std::string large{'-', static_cast<char>(c - 'a' + 'A')};
        for (const auto& [flag, word] : {std::pair{small, large}, {large, small}}) {
            Console console;
            console.parser.auto_help(false).ignore_case(true).add(Option{flag});
            EXPECT_TRUE(console.parser.parse({word}).has(flag)) << word;
        }
    }
}

TEST(letter_case, is_ignored_for_ascii_letters_only)
{
    Console before_a;
    before_a.parser.ignore_case(true).add(Option{"-@"});
    EXPECT_EQ(error_of(before_a, {"-`"}), "prog: Unknown option: -`");
    Console latin;
    latin.parser.ignore_case(true).add(Option{"--\xE5"});
    EXPECT_EQ(error_of(latin, {"--\xC5"}), "prog: Unknown option: --\xC5");
    Console signs;
    signs.parser.ignore_case(true).add(Option{"-["});
    EXPECT_EQ(error_of(signs, {"-{"}), "prog: Unknown option: -{");
}

// Unknown words.

TEST(unknown_options, are_an_error)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string word = long_flag(style, "odd=1");
        EXPECT_EQ(error_of(console, {word, "rest"}), "prog: Unknown option: " + word);
    }
}

TEST(unknown_options, can_be_collected_whole_and_unchanged)
{
    for (const auto style : all_styles) {
        Console console{style};
        const std::string plain = long_flag(style, "odd");
        const std::string with_value = long_flag(style, "odd=--help");
        const std::string with_nothing = long_flag(style, "odd=");
        const std::string brief = prefix(style) + "o";
        console.parser.ignore_undefined_options(true).add(Argument{"word"}.count(0, 9));
        const auto args = console.parser.parse({plain, "a", with_value, brief, "b", with_nothing});
        EXPECT_EQ(args.result_code(), ResultCode::SUCCESS);
        EXPECT_EQ(args.unprocessed_arguments(), (words_t{plain, with_value, brief, with_nothing}));
        EXPECT_EQ(args.values("word").as_strings(), (words_t{"a", "b"}));
    }
}

TEST(unknown_options, inside_a_cluster_are_an_error_even_when_ignored)
{
    for (const std::string_view word : {"-xyz", "-axz", "-ax"}) {
        Console console;
        console.parser.ignore_undefined_options(true).add(Option{"-a"});
        EXPECT_EQ(error_of(console, {word}), "prog: Unknown option: " + std::string{word});
    }
}

TEST(unknown_options, after_a_cluster_can_be_collected)
{
    Console console;
    console.parser.ignore_undefined_options(true).add(Option{"-a"}).add(Option{"-b"});
    EXPECT_EQ(console.parser.parse({"-ab", "--odd", "-ba", "-x"}).unprocessed_arguments(), (words_t{"--odd", "-x"}));
}

TEST(unknown_options, a_value_for_a_flag_that_takes_none_is_collected_with_it)
{
    Console console;
    console.parser.ignore_undefined_options(true).add(Option{"-j", "--json"});
    const auto args = console.parser.parse({"--json=1"});
    EXPECT_FALSE(args.has("--json"));
    EXPECT_EQ(args.unprocessed_arguments(), (words_t{"--json=1"}));
}

TEST(mandatory_options, are_reported_with_all_their_flags)
{
    Console console;
    console.parser.add(Option{"-k", "--key"}.argument("key").optional(false)).add(Argument{"word"});
    EXPECT_EQ(error_of(console, {}), "prog: Mandatory option \"-k, --key\" is missing.");
}

TEST(mandatory_options, are_satisfied_by_any_value_of_their_value_id)
{
    Console console;
    console.parser.add(Option{"-k"}.argument("key").value("key").optional(false))
        .add(Option{"-d"}.constant("default").value("key"));
    EXPECT_EQ(console.parser.parse({"-d"}).result_code(), ResultCode::SUCCESS);
}

TEST(mandatory_options, are_missing_again_once_cleared)
{
    Console console;
    console.parser.add(Option{"-k"}.argument("key").value("key").optional(false))
        .add(Option{"-n"}.operation(OptionOperation::CLEAR).value("key"));
    EXPECT_EQ(error_of(console, {"-kx", "-n"}), "prog: Mandatory option \"-k\" is missing.");
}

// Automatic options.

TEST(automatic_help, is_added_with_the_flags_of_the_style_that_are_free)
{
    struct Row
    {
        OptionStyle style;
        words_t taken;
        words_t expected;
    };
    const std::vector<Row> rows{
        {OptionStyle::STANDARD, {}, {"-h", "--help"}},
        {OptionStyle::STANDARD, {"-h"}, {"--help"}},
        {OptionStyle::STANDARD, {"--help"}, {"-h"}},
        {OptionStyle::STANDARD, {"-h", "--help"}, {}},
        {OptionStyle::SLASH, {}, {"/?"}},
        {OptionStyle::SLASH, {"/?"}, {}},
        {OptionStyle::DASH, {}, {"-h"}},
        {OptionStyle::DASH, {"-h"}, {"-help"}},
        {OptionStyle::DASH, {"-help"}, {"-h"}},
        {OptionStyle::DASH, {"-h", "-help"}, {}},
    };
    for (const auto& row : rows) {
        Console console{row.style};
        for (const auto& flag : row.taken)
            console.parser.add(Option{flag});
        const auto options = console.parser.parse({}).options();
        ASSERT_EQ(options.size(), row.taken.size() + (row.expected.empty() ? 0 : 1));
        if (row.expected.empty())
            continue;
        EXPECT_EQ(options.back().flags(), row.expected);
        EXPECT_EQ(options.back().type(), OptionType::HELP);
        EXPECT_EQ(options.back().help(), "Display the help text.");
    }
}

TEST(automatic_help, is_not_added_when_there_is_a_help_option_or_it_is_switched_off)
{
    Console own;
    own.parser.add(Option{"-i"}.type(OptionType::HELP));
    EXPECT_EQ(own.parser.parse({}).options().size(), 1U);
    Console off;
    off.parser.auto_help(false);
    EXPECT_THAT(off.parser.parse({}).options(), IsEmpty());
}

TEST(automatic_help, takes_no_flag_that_differs_from_another_only_in_ignored_case)
{
    Console console;
    console.parser.ignore_case(true).add(Option{"-H"});
    EXPECT_EQ(console.parser.parse({}).options().back().flags(), (words_t{"--help"}));
}

TEST(automatic_help, can_be_asked_for_like_any_flag)
{
    Console console;
    const auto args = console.parser.parse({"--help"});
    EXPECT_EQ(args.result_code(), ResultCode::SPECIAL_OPTION);
    EXPECT_TRUE(args.has("-h"));
    EXPECT_NE(console.help.str(), "");
}

TEST(version_option, writes_program_name_and_version_and_stops)
{
    for (const auto& [style, flag] : {std::pair{OptionStyle::STANDARD, "--version"},
                                      {OptionStyle::SLASH, "/VERSION"},
                                      {OptionStyle::DASH, "-version"}}) {
        Console console{style};
        console.parser.version("1.2.3").add(Argument{"must"});
        const auto args = console.parser.parse({flag, "rest"});
        EXPECT_EQ(console.help.str(), "prog 1.2.3\n");
        EXPECT_EQ(args.result_code(), ResultCode::SPECIAL_OPTION);
        EXPECT_EQ(args.stop_option()->type(), OptionType::STOP);
        EXPECT_EQ(args.stop_option()->help(), "Display the program version.");
        EXPECT_EQ(args.unprocessed_arguments(), (words_t{"rest"}));
    }
}

TEST(version_option, is_not_added_without_a_version_text_or_a_free_flag)
{
    Console none;
    EXPECT_EQ(error_of(none, {"--version"}), "prog: Unknown option: --version");
    Console taken;
    taken.parser.version("1").add(Option{"--version"}.constant("own"));
    const auto args = taken.parser.parse({"--version"});
    EXPECT_EQ(args.value("--version").as_string(), "own");
    EXPECT_EQ(taken.help.str(), "");
}

// Callbacks.

TEST(callbacks, get_the_view_and_the_value_of_every_occurrence)
{
    Console console;
    words_t calls;
    const OptionCallback record = [&](const OptionView& option, const ArgumentValue& value, ParsedArgumentsBuilder&) {
        calls.push_back(option.flags().front() + " " + value.as_string("none"));
        EXPECT_EQ(value.argument_id(), value.has_value() ? option.argument_id() : 0);
    };
    console.parser.add(Option{"-a"}.argument("x").callback(record))
        .add(Option{"-b"}.constant("c").callback(record))
        .add(Option{"-c"}.operation(OptionOperation::NONE).callback(record));
    console.parser.parse({"-a", "1", "-cb", "-a2"});
    EXPECT_EQ(calls, (words_t{"-a 1", "-c none", "-b c", "-a 2"}));
}

TEST(callbacks, see_the_result_with_their_own_value_and_can_change_it)
{
    Console console;
    console.parser
        .add(Option{"-f", "--fast"}.callback(
            [](const OptionView& option, const ArgumentValue&, ParsedArgumentsBuilder& builder) {
                EXPECT_TRUE(builder.has("--fast"));
                EXPECT_FALSE(builder.has("speed"));
                builder.assign("speed", "8");
                builder.assign("speed", "9");
                builder.append("log", std::to_string(option.argument_id()));
                builder.append("log", "fast");
                builder.clear("word");
            }))
        .add(Option{"-s"}.argument("speed").value("speed"))
        .add(Option{"-l"}.argument("x").value("log"))
        .add(Argument{"word"}.count(0, 9));
    const auto args = console.parser.parse({"one", "-f", "two"});
    EXPECT_EQ(args.value("speed").as_string(), "9");
    EXPECT_EQ(args.value("speed").argument_id(), 1U) << "ascribed to the option whose callback it was";
    EXPECT_EQ(args.values("log").as_strings(), (words_t{"1", "fast"}));
    EXPECT_EQ(args.values("word").as_strings(), (words_t{"two"}));
}

TEST(callbacks, cannot_touch_values_that_are_not_defined)
{
    Console console;
    console.parser.add(Option{"-f"}.callback(
        [](const OptionView&, const ArgumentValue&, ParsedArgumentsBuilder& builder) { builder.assign("odd", "1"); }));
    EXPECT_EQ(thrown_by([&] { console.parser.parse({"-f"}); }), "Unknown value: odd");
}

TEST(callbacks, come_before_the_type_takes_effect)
{
    Console console;
    console.parser.add(Option{"-i"}
                           .type(OptionType::HELP)
                           .callback([&](const OptionView&, const ArgumentValue&, ParsedArgumentsBuilder&) {
                               console.help << "first\n";
                           }));
    console.parser.parse({"-i"});
    EXPECT_TRUE(console.help.str().starts_with("first\nUSAGE\n")) << console.help.str();
}

TEST(callbacks, are_not_called_when_the_value_is_missing)
{
    Console console;
    console.parser.add(Option{"-n"}.argument("x").callback(
        [](const OptionView&, const ArgumentValue&, ParsedArgumentsBuilder&) { FAIL(); }));
    EXPECT_EQ(error_of(console, {"-n"}), "prog: -n: no value given.");
}
