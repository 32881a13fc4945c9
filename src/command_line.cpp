#include "command_line.h"

#include "Argos/argument_parser.h"
#include "text/text.h"
#include "text/text_stream.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <optional>

namespace ivra::bsp::board_monitor_p {

namespace {

using argos::Argument;
using argos::ArgumentParser;
using argos::Option;

/// What parsers write here, the output prints.
text_stream& help_text()
{
    static text_stream instance;
    return instance;
}

ArgumentParser make_parser(std::string program_name)
{
    ArgumentParser parser{std::move(program_name)};
    parser.error_filter(printable).help_stream(help_text());
    return parser;
}

ArgumentParser& top_parser()
{
    static ArgumentParser instance = [] {
        ArgumentParser parser = make_parser("ivra-bsp board");
        parser.about("Display and manage board hardware.");
        parser.ignore_undefined_options(true).ignore_undefined_arguments(true);
        parser.add(Option{"-h", "--help"}.help("Show help text").type(argos::OptionType::STOP));
        parser.add(Option{"-c", "--color"}.argument("color").help(
            "Enable/disable color output. Can be `always` `never` `auto` (default)."));
        parser.add(Option{"-j", "--json"}.help("Output as json"));
        parser.add(Option{"-a", "--accelerator"}.argument("accelerator").help("The accelerator to use"));
        parser.add(
            Argument{"command"}.help("The command to run. Available commands are `list`, `show`, `set` and `setup`."
                                     "\n\nHelp is available with <command> --help"));
        return parser;
    }();
    return instance;
}

ArgumentParser& show_parser()
{
    static ArgumentParser instance = [] {
        ArgumentParser parser = make_parser("ivra-bsp board show");
        parser.about("Display information about board hardware.");
        parser.add(Argument{"info"}
                       .help("The information to show. Available info is `info` (default), `boot-image`, `flash`, "
                             "`sensors`, `transceiver` and `all`.")
                       .count(0, 1));
        return parser;
    }();
    return instance;
}

ArgumentParser& set_parser()
{
    static ArgumentParser instance = [] {
        ArgumentParser parser = make_parser("ivra-bsp board set");
        parser.about("Configure board hardware parameter.");
        // Deliberate: the help text names one of three parameters.
        parser.add(Argument{"parameter"}.help("The parameter to set. Available parameter is `boot-image`."));
        parser.add(Argument{"value"}.help("The value to set.").count(1, 65535));
        return parser;
    }();
    return instance;
}

/// Takes no word at all: a misspelt option must never let `setup` write the first board's flash.
ArgumentParser& setup_parser()
{
    static ArgumentParser instance = make_parser("ivra-bsp board setup");
    return instance;
}

/// The first keyword that the word stands for. Throws ParserError: `complaint` and the word in quotes.
std::string canonical(std::string_view word, std::initializer_list<const char*> keywords, const std::string& complaint)
{
    for (const char* keyword : keywords)
        if (matches(keyword, word))
            return keyword;
    throw ParserError{complaint + ": '" + std::string{word} + "'"};
}

bool is_one(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr && std::strcmp(value, "1") == 0;
}

/// Parses with the parser of a command what the top-level parser left over.
argos::ParsedArguments parse_rest(ArgumentParser& parser, const argos::ParsedArguments& args)
{
    const std::vector<std::string>& rest = args.unprocessed_arguments();
    return parser.parse({rest.begin(), rest.end()});
}

bool _help_env()
{
    return is_one("IVRA_BSP_HELP");
}

[[noreturn]] void write_help(const auto& parser)
{
    parser.write_help_text();
    output::get().print_text(help_text().str());
    throw StopParsing{};
}

std::string interpret_show(const argos::ParsedArguments& args)
{
    const argos::ParsedArguments show = parse_rest(show_parser(), args);
    const std::string word = show.value("info").as_string("");
    if (word.empty())
        return "info";
    return canonical(word, {"info", "boot-image", "flash", "sensors", "transceivers", "all"}, "Invalid info to show");
}

std::pair<std::string, std::vector<std::string>> interpret_set(const argos::ParsedArguments& args)
{
    const argos::ParsedArguments set = parse_rest(set_parser(), args);
    const std::string parameter =
        canonical(set.value("parameter").as_string(""), {"boot-image", "transceiver-speed", "qsfp-power-mode"},
                  "Invalid parameter to set");
    const std::vector<std::string> words = set.values("value").as_strings();
    const std::string complaint = "Invalid value for " + parameter;

    if (parameter == "boot-image") // further values are ignored
        return {parameter, {canonical(words.at(0), {"primary", "backup"}, complaint)}};
    if (parameter == "qsfp-power-mode") // here too
        return {parameter, {canonical(words.at(0), {"high", "low"}, complaint)}};
    std::vector<std::string> speeds;
    for (const std::string& word : words)
        speeds.push_back(canonical(word, {"1G", "10G"}, complaint));
    return {parameter, speeds};
}

color_mode_t interpret_color(const argos::ParsedArguments& args)
{
    std::string word;
    if (args.has("--color"))
        word = args.value("--color").as_string("");
    else if (const char* variable = std::getenv("IVRA_BSP_COLOR"); variable != nullptr)
        word = variable;

    if (word.empty() || word == "auto")
        return color_mode_t::automatic;
    if (word == "never")
        return color_mode_t::never;
    if (word == "always")
        return color_mode_t::always;
    throw ParserError{"Invalid color value"};
}

} // namespace

bool matches(std::string_view keyword, std::string_view word)
{
    return keyword.find(word) != std::string_view::npos;
}

Args parse_command_line(const std::vector<std::string_view>& words)
{
    if (_help_env() && words.empty())
        write_help(top_parser());

    const argos::ParsedArguments args = top_parser().parse(words);
    const bool help = args.has("--help") || _help_env();
    if (help && !args.has("command"))
        write_help(args);

    Args result{.args = args, .command = {}, .color = {}, .format = {}, .info = {}, .parameter = {}};
    result.command =
        canonical(args.value("command").as_string(""), {"show", "list", "set", "setup"}, "Invalid command");
    if (help && result.command == "show")
        write_help(show_parser());
    if (help && result.command == "set")
        write_help(set_parser());
    if (help)
        write_help(args);

    if (result.command == "show")
        result.info = interpret_show(args);
    else if (result.command == "set")
        result.parameter = interpret_set(args);
    else if (result.command == "setup")
        parse_rest(setup_parser(), args);

    result.color = interpret_color(args);
    result.format = args.has("--json") || is_one("IVRA_BSP_JSON") ? output_format_t::json : output_format_t::text;
    return result;
}

} // namespace ivra::bsp::board_monitor_p
