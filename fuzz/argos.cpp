// Words of a command line, separated by NUL, go to parsers of every style. No words may do more than give a result:
// no exception, no undefined behaviour, and nothing among the unprocessed words that was not given.
#include "Argos/argument_parser.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

std::vector<std::string_view> split(std::string_view text)
{
    std::vector<std::string_view> words;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\0'), text.size());
        words.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return words;
}

/// A parser with an option of every kind; the bits of `settings` switch its settings.
argos::ArgumentParser make_parser(argos::OptionStyle style, unsigned settings, std::ostream& out)
{
    const std::string brief = style == argos::OptionStyle::SLASH ? "/" : "-";
    const std::string full = style == argos::OptionStyle::STANDARD ? "--" : brief;
    argos::ArgumentParser parser{"fuzz", false};
    parser.option_style(style)
        .version("1")
        .allow_abbreviated_options((settings & 1U) != 0)
        .ignore_undefined_options((settings & 2U) != 0)
        .ignore_undefined_arguments((settings & 4U) != 0)
        .ignore_case((settings & 8U) != 0)
        .auto_help((settings & 16U) != 0)
        .line_width((settings & 32U) != 0 ? 32 : 80)
        .help_stream(out)
        .error_stream(out);
    using argos::Option, argos::OptionOperation, argos::OptionType;
    parser.add(Option{brief + "j", full + "json"})
        .add(Option{brief + "c", full + "color"}.argument("color"))
        .add(Option{brief + "i", full + "include="}.argument("path").operation(OptionOperation::APPEND).value("word"))
        .add(Option{full + "none"}.operation(OptionOperation::CLEAR).argument("x").value("word"))
        .add(Option{brief + "q"}.operation(OptionOperation::NONE))
        .add(Option{brief + "s", full + "stop"}.type(OptionType::STOP))
        .add(Option{brief + "e"}.type(OptionType::EXIT))
        .add(Option{brief + "l", full + "last"}.type(OptionType::LAST_ARGUMENT))
        .add(Option{brief + brief}.type(OptionType::LAST_OPTION))
        .add(argos::Argument{"command"}.optional())
        .add(argos::Argument{"word"}.count(0, 2));
    return parser;
}

void read_values(const argos::ParsedArguments& args, argos::OptionStyle style)
{
    const auto color = args.value(style == argos::OptionStyle::SLASH ? "/c" : "-c");
    require(color.has_value() == args.has("color"));
    require(args.value("command").has_value() == args.has("command"));
    for (std::size_t i = 0; i < args.values("word").size(); ++i) {
        const auto value = args.values("word")[i];
        require(value.has_value() && value.argument_id() != 0);
        try {
            value.as_double();
            value.as_int();
        } catch (const argos::ArgosException&) {
            // Not a number.
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const unsigned settings = data[0];
    const std::string text(data + 1, data + size);
    const auto words = split(text);
    for (const auto style : {argos::OptionStyle::STANDARD, argos::OptionStyle::SLASH, argos::OptionStyle::DASH}) {
        std::ostringstream out;
        const auto args = make_parser(style, settings, out).parse(words);
        require(args.result_code() != argos::ResultCode::NONE);
        require(args.stop_option().has_value() == (args.result_code() == argos::ResultCode::SPECIAL_OPTION));
        if (args.result_code() == argos::ResultCode::ERROR)
            require(out.str().starts_with("fuzz: "));
        else
            read_values(args, style);

        // Unprocessed words are given words, in their order.
        auto from = words.begin();
        for (const auto& word : args.unprocessed_arguments()) {
            from = std::find(from, words.end(), word);
            require(from != words.end());
            ++from;
        }
    }
    return 0;
}
