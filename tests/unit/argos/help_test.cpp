#include "support.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <iterator>
#include <pty.h>
#include <unistd.h>

using namespace argos;

namespace {

ArgumentParser board_parser(std::ostream& stream, unsigned width)
{
    ArgumentParser parser{"ivra-bsp board", false};
    parser.about("Display and manage board hardware.")
        .ignore_undefined_options(true)
        .ignore_undefined_arguments(true)
        .line_width(width)
        .help_stream(stream)
        .error_stream(stream)
        .add(Option{"-h", "--help"}.help("Show help text").type(OptionType::STOP))
        .add(Option{"-c", "--color"}.argument("color").help(
            "Enable/disable color output. Can be `always` `never` `auto` (default)."))
        .add(Option{"-j", "--json"}.help("Output as json"))
        .add(Option{"-a", "--accelerator"}.argument("accelerator").help("The accelerator to use"))
        .add(Argument{"command"}.help("The command to run. Available commands are `list`, `show`, `set` and "
                                      "`setup`.\n\nHelp is available with <command> --help"));
    return parser;
}

ArgumentParser show_parser(std::ostream& stream, unsigned width)
{
    ArgumentParser parser{"ivra-bsp board show", false};
    parser.about("Display information about board hardware.")
        .line_width(width)
        .help_stream(stream)
        .error_stream(stream)
        .add(Argument{"info"}.optional().help("The information to show. Available info is `info` (default), "
                                              "`boot-image`, `flash`, `sensors`, `transceiver` and `all`."));
    return parser;
}

ArgumentParser set_parser(std::ostream& stream, unsigned width)
{
    ArgumentParser parser{"ivra-bsp board set", false};
    parser.about("Configure board hardware parameter.")
        .line_width(width)
        .help_stream(stream)
        .error_stream(stream)
        .add(Argument{"parameter"}.help("The parameter to set. Available parameter is `boot-image`."))
        .add(Argument{"value"}.count(1, 65535).help("The value to set."));
    return parser;
}

using make_parser_t = ArgumentParser(std::ostream&, unsigned);

std::string help_of(make_parser_t* make_parser, unsigned width)
{
    std::ostringstream stream;
    make_parser(stream, width).write_help_text();
    return stream.str();
}

/// What the parser writes about too few arguments.
std::string error_of(make_parser_t* make_parser, unsigned width)
{
    std::ostringstream stream;
    make_parser(stream, width).parse({});
    return stream.str();
}

std::string help_of(Console& console)
{
    console.parser.write_help_text();
    return console.help.str();
}

/// Lets standard output be something else for a while.
class StandardOutput
{
public:
    /// Takes the descriptor over.
    explicit StandardOutput(int descriptor) : saved_{dup(STDOUT_FILENO)}
    {
        std::fflush(stdout);
        dup2(descriptor, STDOUT_FILENO);
        close(descriptor);
    }
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;
    ~StandardOutput()
    {
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }

private:
    int saved_;
};

/// The help text of a parser whose width is not set, on a terminal of so many columns.
std::string help_on_terminal(unsigned short columns)
{
    int master = -1;
    int terminal = -1;
    const winsize size{.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    if (openpty(&master, &terminal, nullptr, nullptr, &size) != 0)
        throw std::runtime_error{"no pseudo-terminal"};
    const StandardOutput redirected{terminal};
    std::ostringstream stream;
    ArgumentParser parser{"prog", false};
    parser.help_stream(stream)
        .about("aaaaaaaaa bbbbbbbbb ccccccccc ddddddddd eeeeeeeee fffffffff ggggggggg hhhhhhhhh iiiiiiiii")
        .write_help_text();
    close(master);
    return stream.str().substr(0, stream.str().find("USAGE"));
}

} // namespace

TEST(help_screen, board_at_40_columns)
{
    EXPECT_EQ(help_of(board_parser, 40), R"(Display and manage board hardware.

USAGE
  ivra-bsp board [OPTIONS] <command>

ARGUMENTS
  <command>
      The command to run. Available
      commands are `list`, `show`, `set`
      and `setup`.

      Help is available with <command>
      --help

OPTIONS
  -h, --help
      Show help text
  -c, --color <color>
      Enable/disable color output. Can
      be `always` `never` `auto`
      (default).
  -j, --json
      Output as json
  -a, --accelerator <accelerator>
      The accelerator to use
)");
}

TEST(help_screen, board_at_80_columns)
{
    EXPECT_EQ(help_of(board_parser, 80), R"(Display and manage board hardware.

USAGE
  ivra-bsp board [OPTIONS] <command>

ARGUMENTS
  <command>                        The command to run. Available commands are
                                   `list`, `show`, `set` and `setup`.

                                   Help is available with <command> --help

OPTIONS
  -h, --help                       Show help text
  -c, --color <color>              Enable/disable color output. Can be `always`
                                   `never` `auto` (default).
  -j, --json                       Output as json
  -a, --accelerator <accelerator>  The accelerator to use
)");
}

// clang-format off
TEST(help_screen, board_at_200_columns)
{
    EXPECT_EQ(help_of(board_parser, 200), R"(Display and manage board hardware.

USAGE
  ivra-bsp board [OPTIONS] <command>

ARGUMENTS
  <command>                        The command to run. Available commands are `list`, `show`, `set` and `setup`.

                                   Help is available with <command> --help

OPTIONS
  -h, --help                       Show help text
  -c, --color <color>              Enable/disable color output. Can be `always` `never` `auto` (default).
  -j, --json                       Output as json
  -a, --accelerator <accelerator>  The accelerator to use
)");
}
// clang-format on

TEST(help_screen, show_at_40_columns)
{
    EXPECT_EQ(help_of(show_parser, 40), R"(Display information about board
hardware.

USAGE
  ivra-bsp board show [OPTIONS] [info]

ARGUMENTS
  [info]
      The information to show. Available
      info is `info` (default),
      `boot-image`, `flash`, `sensors`,
      `transceiver` and `all`.

OPTIONS
  -h, --help
      Display the help text.
)");
}

TEST(help_screen, show_at_80_columns)
{
    EXPECT_EQ(help_of(show_parser, 80), R"(Display information about board hardware.

USAGE
  ivra-bsp board show [OPTIONS] [info]

ARGUMENTS
  [info]      The information to show. Available info is `info` (default),
              `boot-image`, `flash`, `sensors`, `transceiver` and `all`.

OPTIONS
  -h, --help  Display the help text.
)");
}

TEST(help_screen, show_at_200_columns)
{
    EXPECT_EQ(help_of(show_parser, 200), R"(Display information about board hardware.

USAGE
  ivra-bsp board show [OPTIONS] [info]

ARGUMENTS
  [info]      The information to show. Available info is `info` (default), `boot-image`,
              `flash`, `sensors`, `transceiver` and `all`.

OPTIONS
  -h, --help  Display the help text.
)");
}

TEST(help_screen, set_at_40_columns)
{
    EXPECT_EQ(help_of(set_parser, 40), R"(Configure board hardware parameter.

USAGE
  ivra-bsp board set [OPTIONS]
      <parameter> <value>...

ARGUMENTS
  <parameter>
      The parameter to set. Available
      parameter is `boot-image`.
  <value>...
      The value to set.

OPTIONS
  -h, --help
      Display the help text.
)");
}

TEST(help_screen, set_at_80_and_200_columns)
{
    for (const unsigned width : {80U, 200U})
        EXPECT_EQ(help_of(set_parser, width), R"(Configure board hardware parameter.

USAGE
  ivra-bsp board set [OPTIONS] <parameter> <value>...

ARGUMENTS
  <parameter>  The parameter to set. Available parameter is `boot-image`.
  <value>...   The value to set.

OPTIONS
  -h, --help   Display the help text.
)");
}

TEST(help_screen, fits_every_width_without_trailing_space_and_keeps_every_word)
{
    const auto words_of = [](const std::string& text) {
        std::istringstream stream{text};
        return words_t{std::istream_iterator<std::string>{stream}, {}};
    };
    for (const auto make_parser : {board_parser, show_parser, set_parser}) {
        const words_t words = words_of(help_of(make_parser, 80));
        for (unsigned width = 32; width <= 250; ++width) {
            const std::string text = help_of(make_parser, width);
            EXPECT_EQ(words_of(text), words) << width;
            std::istringstream lines{text};
            for (std::string line; std::getline(lines, line);) {
                // The longest label, "  -a, --accelerator <accelerator>", is not broken.
                EXPECT_LE(line.size(), std::max(width, 33U)) << line;
                EXPECT_FALSE(line.ends_with(' ')) << line;
            }
        }
    }
}

TEST(help_screen, is_the_same_before_and_after_parsing)
{
    std::ostringstream before;
    std::ostringstream after;
    show_parser(before, 80).write_help_text();
    show_parser(after, 80).parse({}).write_help_text();
    EXPECT_EQ(after.str(), before.str());
}

TEST(help_screen, can_be_written_while_definitions_still_follow)
{
    Console console;
    console.parser.version("1").write_help_text();
    console.parser.add(Option{"-h"}).add(Option{"--version"});
    EXPECT_TRUE(console.parser.parse({"-h"}).has("-h"));
}

TEST(help_screen, shows_how_everything_is_written)
{
    Console console;
    console.parser.version("1")
        .add(Argument{"one"}.help("exactly one"))
        .add(Argument{"two"}.count(2).help("exactly two"))
        .add(Argument{"maybe"}.optional().help("at most one"))
        .add(Argument{"any"}.count(0, 9).help("any number"))
        .add(Option{"-k", "--key"}.argument("key").optional(false).help("must be given"))
        .add(Option{"--only-long"}.help("no short flag"))
        .add(Option{"-f", "--file="}.argument("file").help("equals sign"))
        .add(Option{"-n", "--no-help-text"})
        .add(Option{"-r"}.argument("x").operation(OptionOperation::CLEAR).help("takes nothing"));
    EXPECT_EQ(help_of(console), R"(USAGE
  prog [OPTIONS] -k <key> <one> <two>... [maybe] [any]...

ARGUMENTS
  <one>               exactly one
  <two>...            exactly two
  [maybe]             at most one
  [any]...            any number

OPTIONS
  -k, --key <key>     must be given
      --only-long     no short flag
  -f, --file=<file>   equals sign
  -n, --no-help-text
  -r                  takes nothing
  -h, --help          Display the help text.
      --version       Display the program version.
)");
}

TEST(help_screen, hides_what_is_hidden_but_accepts_it)
{
    Console console;
    console.parser.auto_help(false)
        .add(Option{"-x"}.visibility(Visibility::HIDDEN).help("secret"))
        .add(Argument{"word"}.optional().visibility(Visibility::HIDDEN));
    EXPECT_EQ(help_of(console), "USAGE\n  prog\n");
    const auto args = console.parser.parse({"-x", "y"});
    EXPECT_TRUE(args.has("-x"));
    EXPECT_EQ(args.value("word").as_string(), "y");
}

TEST(help_screen, does_not_tell_of_a_hidden_option_that_is_mandatory_all_the_same)
{
    Console console;
    console.parser.auto_help(false)
        .add(Option{"-k", "--key"}.argument("key").optional(false).visibility(Visibility::HIDDEN).help("secret"))
        .add(Option{"-o"}.argument("out").optional(false).help("where to"));
    EXPECT_EQ(help_of(console), "USAGE\n  prog -o <out>\n\nOPTIONS\n  -o <out>  where to\n");
    EXPECT_EQ(console.parser.parse({"-o", "x"}).result_code(), ResultCode::ERROR);
    EXPECT_EQ(console.errors.str(), "prog: Mandatory option \"-k, --key\" is missing.\nUsage: prog -o <out>\n");
}

TEST(help_screen, shows_what_has_a_section_of_its_own_there_whatever_the_current_one_is)
{
    Console console;
    console.parser.auto_help(false)
        .add(Argument{"before"}.section("PLACES").help("no current one yet"))
        .section("NETWORK")
        .add(Argument{"host"}.help("in the current one"))
        .add(Argument{"port"}.section("PLACES").help("beside the first"))
        .add(Option{"-t"}.section("TIME").help("alone"))
        .add(Option{"-n"}.help("beside the host"));
    EXPECT_EQ(help_of(console), R"(USAGE
  prog [OPTIONS] <before> <host> <port>

PLACES
  <before>  no current one yet
  <port>    beside the first

NETWORK
  <host>    in the current one
  -n        beside the host

TIME
  -t        alone
)");
}

TEST(help_screen, shows_sections_under_their_own_headings)
{
    Console console;
    console.parser.add(Option{"-v"}.help("chatty"))
        .section("NETWORK")
        .add(Option{"-p"}.argument("port").help("where"))
        .add(Argument{"host"}.optional().help("who"))
        .add(Option{"-q"}.section("OPTIONS").help("quiet"));
    EXPECT_EQ(help_of(console), R"(USAGE
  prog [OPTIONS] [host]

NETWORK
  [host]      who
  -p <port>   where

OPTIONS
  -v          chatty
  -q          quiet
  -h, --help  Display the help text.
)");
}

TEST(help_screen, uses_the_flags_of_its_style)
{
    Console slash{OptionStyle::SLASH};
    slash.parser.version("1").add(Option{"/OUT"}.argument("file").help("where to"));
    EXPECT_EQ(help_of(slash), R"(USAGE
  prog [OPTIONS]

OPTIONS
  /OUT <file>  where to
  /?           Display the help text.
  /VERSION     Display the program version.
)");
    Console dash{OptionStyle::DASH};
    dash.parser.add(Option{"-out"}.argument("file").help("where to"));
    EXPECT_EQ(help_of(dash), R"(USAGE
  prog [OPTIONS]

OPTIONS
  -out <file>  where to
  -h           Display the help text.
)");
}

TEST(help_screen, puts_the_text_below_a_label_that_is_too_long)
{
    Console console;
    console.parser.add(Option{"-e", "--extraordinarily-long-name"}.argument("argument").help("stands below"))
        .add(Option{"-s"}.help("stands beside"));
    EXPECT_EQ(help_of(console), R"(USAGE
  prog [OPTIONS]

OPTIONS
  -e, --extraordinarily-long-name <argument>
              stands below
  -s          stands beside
  -h, --help  Display the help text.
)");
}

TEST(help_screen, counts_code_points)
{
    Console console;
    console.parser.auto_help(false).line_width(32);
    console.parser.about(
        "\u00e5\u00e4\u00f6\u00e5\u00e4\u00f6\u00e5\u00e4\u00f6\u00e5\u00e4\u00f6\u00e5\u00e4\u00f6"
        " \u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac\u20ac"
        " x");
    // 15 + 1 + 16 columns fill the line exactly.
    EXPECT_TRUE(help_of(console).ends_with("\nUSAGE\n  prog\n"));
    EXPECT_EQ(console.help.str().find('x'), console.help.str().find('\n') + 1);
}

TEST(help_screen, aligns_labels_that_are_not_ascii)
{
    Console console;
    console.parser.auto_help(false)
        .add(Option{"--\u00e5\u00e4\u00f6"}.help("three letters"))
        .add(Option{"--abc"}.help("three letters"));
    EXPECT_TRUE(help_of(console).ends_with("      --\u00e5\u00e4\u00f6  three letters\n"
                                           "      --abc  three letters\n"));
}

TEST(help_screen, keeps_line_breaks_indentation_and_double_spaces)
{
    Console console;
    console.parser.auto_help(false).line_width(32).about(
        "Examples:\n  prog one  two\n\n  prog three four five six seven eight\n");
    EXPECT_EQ(help_of(console), R"(Examples:
  prog one  two

  prog three four five six seven
  eight


USAGE
  prog
)");
}

TEST(help_screen, drops_spaces_at_the_end_of_lines)
{
    Console console;
    console.parser.auto_help(false).line_width(32).about("twelve chars twelve chars same   next \nend  \n  ");
    EXPECT_EQ(help_of(console), "twelve chars twelve chars same\nnext\nend\n\n\nUSAGE\n  prog\n");
}

TEST(help_screen, leaves_long_words_whole)
{
    Console console;
    const std::string word(50, 'x');
    console.parser.auto_help(false).line_width(32).about("a " + word + " b");
    EXPECT_EQ(help_of(console), "a\n" + word + "\nb\n\nUSAGE\n  prog\n");
}

TEST(line_width, below_32_is_32_and_0_is_80)
{
    // "xx x x x ...": full lines of every even width.
    std::string ruler = "xx";
    for (int i = 0; i < 100; ++i)
        ruler += " x";
    for (const auto& [width, expected] : {std::pair{0U, 80U}, {1U, 32U}, {31U, 32U}, {32U, 32U}, {34U, 34U}}) {
        Console console;
        console.parser.line_width(width).about(ruler);
        EXPECT_EQ(help_of(console).find('\n'), expected);
    }
}

TEST(line_width, is_that_of_the_terminal_unless_it_is_set)
{
    // Words of nine letters and a space each.
    EXPECT_EQ(help_on_terminal(49), "aaaaaaaaa bbbbbbbbb ccccccccc ddddddddd eeeeeeeee\n"
                                    "fffffffff ggggggggg hhhhhhhhh iiiiiiiii\n\n");
    EXPECT_EQ(help_on_terminal(48), "aaaaaaaaa bbbbbbbbb ccccccccc ddddddddd\n"
                                    "eeeeeeeee fffffffff ggggggggg hhhhhhhhh\niiiiiiiii\n\n");
    EXPECT_EQ(help_on_terminal(5), "aaaaaaaaa bbbbbbbbb ccccccccc\n"
                                   "ddddddddd eeeeeeeee fffffffff\nggggggggg hhhhhhhhh iiiiiiiii\n\n");
    EXPECT_EQ(help_on_terminal(0), "aaaaaaaaa bbbbbbbbb ccccccccc ddddddddd eeeeeeeee fffffffff ggggggggg hhhhhhhhh\n"
                                   "iiiiiiiii\n\n");
}

TEST(line_width, is_80_when_there_is_no_terminal)
{
    const StandardOutput redirected{open("/dev/null", O_WRONLY)};
    std::ostringstream stream;
    ArgumentParser parser{"prog", false};
    parser.help_stream(stream)
        .about("aaaaaaaaa bbbbbbbbb ccccccccc ddddddddd eeeeeeeee fffffffff ggggggggg hhhhhhhhh iiiiiiiii")
        .write_help_text();
    EXPECT_TRUE(stream.str().starts_with(
        "aaaaaaaaa bbbbbbbbb ccccccccc ddddddddd eeeeeeeee fffffffff ggggggggg hhhhhhhhh\niiiiiiiii\n"));
}

TEST(brief_usage, names_the_program_its_arguments_and_the_way_to_help)
{
    EXPECT_EQ(error_of(board_parser, 80), "ivra-bsp board: Too few arguments. Expected 1, received 0.\n"
                                          "Usage: ivra-bsp board [OPTIONS] <command>\n"
                                          "Help is available with ivra-bsp board --help\n");
    EXPECT_EQ(error_of(set_parser, 200), "ivra-bsp board set: Too few arguments. Expected at least 2, received 0.\n"
                                         "Usage: ivra-bsp board set [OPTIONS] <parameter> <value>...\n"
                                         "Help is available with ivra-bsp board set --help\n");
}

TEST(brief_usage, is_wrapped_too)
{
    EXPECT_EQ(error_of(set_parser, 40), "ivra-bsp board set: Too few arguments. Expected at least 2, received 0.\n"
                                        "Usage: ivra-bsp board set [OPTIONS]\n"
                                        "       <parameter> <value>...\n"
                                        "Help is available with\n"
                                        "ivra-bsp board set --help\n");
}

TEST(brief_usage, says_nothing_about_help_when_there_is_none)
{
    Console console;
    console.parser.auto_help(false).parse({"x"});
    EXPECT_EQ(console.errors.str(), "prog: Too many arguments, starting with \"x\".\nUsage: prog\n");
}

TEST(brief_usage, names_the_help_flag_of_the_style)
{
    Console console{OptionStyle::SLASH};
    console.parser.parse({"x"});
    EXPECT_TRUE(console.errors.str().ends_with("Help is available with prog /?\n"));
}

TEST(custom_texts, replace_headings_and_usage)
{
    Console console;
    console.parser.text(TextId::USAGE_HEADING, "Usage:")
        .text(TextId::USAGE, "prog this\nprog that")
        .text(TextId::ARGUMENTS_HEADING, "Words:")
        .text(TextId::OPTIONS_HEADING, "Flags:")
        .text(TextId::HELP_END, "Have fun.")
        .add(Argument{"word"}.help("a word"));
    EXPECT_EQ(help_of(console), R"(Usage:
  prog this
  prog that

Words:
  <word>      a word

Flags:
  -h, --help  Display the help text.

Have fun.
)");
    console.parser.parse({});
    EXPECT_EQ(console.errors.str(), "prog: Too few arguments. Expected 1, received 0.\n"
                                    "Usage: prog this\n"
                                    "       prog that\n"
                                    "Help is available with prog --help\n");
}

TEST(custom_texts, replace_the_brief_usage_after_an_error)
{
    Console console;
    console.parser.text(TextId::ERROR, "Ask somebody.").parse({"x"});
    EXPECT_EQ(console.errors.str(), "prog: Too many arguments, starting with \"x\".\nAsk somebody.\n");
}

TEST(custom_texts, leave_out_what_they_replace_when_empty)
{
    Console console;
    console.parser.text(TextId::USAGE, "")
        .text(TextId::OPTIONS_HEADING, "")
        .text(TextId::HELP_END, "")
        .text(TextId::ERROR, "");
    EXPECT_EQ(help_of(console), "  -h, --help  Display the help text.\n");
    console.parser.parse({"x"});
    EXPECT_EQ(console.errors.str(), "prog: Too many arguments, starting with \"x\".\n");
}

TEST(custom_texts, an_empty_usage_leaves_the_way_to_help)
{
    Console console;
    console.parser.text(TextId::USAGE, "").parse({"x"});
    EXPECT_EQ(console.errors.str(),
              "prog: Too many arguments, starting with \"x\".\nHelp is available with prog --help\n");
}

TEST(custom_texts, may_be_odd)
{
    for (const auto* text :
         {"\n", " ", "\n\nx", "                                                                   x"}) {
        Console console;
        console.parser.line_width(32).text(TextId::USAGE, text).text(TextId::HELP_END, text).about(text);
        console.parser.add(Option{"-x"}.help(text));
        console.parser.write_help_text();
        EXPECT_EQ(console.parser.parse({"y"}).result_code(), ResultCode::ERROR);
        EXPECT_EQ(console.error(), "prog: Too many arguments, starting with \"y\".");
    }
}

// The end of the process, of which a test sees the exit status and standard error.

TEST(automatic_exit, ends_the_process_with_64_on_errors)
{
    ArgumentParser parser{"prog"};
    parser.line_width(80);
    EXPECT_EXIT(parser.parse({"--odd"}), testing::ExitedWithCode(64),
                "^prog: Unknown option: --odd\nUsage: prog \\[OPTIONS\\]\nHelp is available with prog --help\n$");
}

TEST(automatic_exit, ends_the_process_with_0_after_help)
{
    ArgumentParser parser{"prog"};
    parser.line_width(80).help_stream(std::cerr);
    EXPECT_EXIT(parser.parse({"--help", "--odd"}), testing::ExitedWithCode(0),
                "^USAGE\n  prog \\[OPTIONS\\]\n\nOPTIONS\n  -h, --help  Display the help text.\n$");
}

TEST(automatic_exit, ends_the_process_with_0_silently_for_exit_options)
{
    ArgumentParser parser{"prog"};
    parser.help_stream(std::cerr).add(Option{"-x"}.type(OptionType::EXIT));
    EXPECT_EXIT(parser.parse({"-x", "--odd"}), testing::ExitedWithCode(0), "^$");
}

TEST(automatic_exit, uses_the_exit_codes_that_are_set)
{
    ArgumentParser wrong{"prog", false};
    wrong.auto_exit(true).error_exit_code(3);
    EXPECT_EXIT(wrong.parse({"x"}), testing::ExitedWithCode(3), "Too many arguments");
    ArgumentParser right{"prog", true};
    right.normal_exit_code(4).help_stream(std::cerr);
    EXPECT_EXIT(right.parse({"-h"}), testing::ExitedWithCode(4), "USAGE");
}

TEST(automatic_exit, follows_errors_in_values)
{
    ArgumentParser parser{"prog"};
    parser.add(Argument{"count"});
    const auto args = parser.parse({"many"});
    EXPECT_EXIT(args.values("count").error("no such count"), testing::ExitedWithCode(64),
                "^prog: no such count\nUsage: ");
    EXPECT_EXIT(args.value("count").as_int(), testing::ExitedWithCode(64),
                "^prog: count: \"many\" is not an integer from -2147483648 to 2147483647.\n");
}

TEST(automatic_exit, does_not_follow_stop_options)
{
    ArgumentParser parser{"prog"};
    parser.add(Option{"-s"}.type(OptionType::STOP));
    EXPECT_EQ(parser.parse({"-s"}).result_code(), ResultCode::SPECIAL_OPTION);
}

TEST(streams, are_standard_output_for_help_and_standard_error_for_errors)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    ArgumentParser parser{"prog", false};
    parser.line_width(80).auto_help(false).write_help_text();
    const auto args = parser.parse({"x"});
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(out, "USAGE\n  prog\n");
    EXPECT_EQ(err, "prog: Too many arguments, starting with \"x\".\nUsage: prog\n");
    EXPECT_EQ(args.result_code(), ResultCode::ERROR);
}
