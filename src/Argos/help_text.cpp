#include "Argos/help_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace argos {

namespace {

constexpr std::size_t default_line_width = 80;
constexpr std::size_t min_line_width = 32;
constexpr std::size_t max_text_width = 80;    // longer lines are hard to read, however wide the terminal
constexpr std::size_t min_column_layout = 60; // on narrower terminals texts stand below what they explain
constexpr std::size_t label_indent = 2;
constexpr std::size_t text_indent = 6; // of texts below their label
constexpr std::size_t max_text_column = 40;
constexpr std::size_t column_gap = 2;

using Lines = std::vector<std::string>;

/// A line of the list of arguments and options.
struct Entry
{
    std::string label;
    std::string text;
};

struct Section
{
    std::string heading;
    std::vector<Entry> entries;
};

std::size_t line_width(const ParserData& data)
{
    std::size_t width = 0;
    winsize size{};
    if (data.line_width)
        width = *data.line_width;
    else if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
        width = size.ws_col;
    if (width == 0)
        width = default_line_width;
    return std::max(width, min_line_width);
}

/// The columns that a text may take which begins in column `indent`.
std::size_t text_width(std::size_t line_width, std::size_t indent)
{
    return std::min(line_width - indent, max_text_width);
}

/// The columns that a text takes: bytes that continue a UTF-8 sequence count nothing.
std::size_t columns(std::string_view text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

/// Joins words with spaces to lines of at most `width` columns; the second and all later ones begin with `hanging`
/// spaces. An empty word stands for one more space.
Lines fill(const std::vector<std::string>& words, std::size_t width, std::size_t hanging)
{
    Lines lines;
    std::string line;
    bool at_start = true;
    const auto flush = [&] {
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(std::exchange(line, std::string(hanging, ' ')));
        at_start = true;
    };
    for (const auto& word : words) {
        if (!at_start && columns(line) + 1 + columns(word) > width)
            flush();
        if (at_start && !lines.empty() && word.empty())
            continue;
        line += (at_start ? "" : " ") + word;
        at_start = false;
    }
    flush();
    return lines;
}

/// Wraps a text at its spaces. Line breaks, empty lines and the indentation of lines are kept.
Lines wrap(std::string_view text, std::size_t width)
{
    Lines wrapped;
    for (const auto& line : split(text, '\n')) {
        const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
        for (auto& part : fill(split(line, ' '), width, indent))
            wrapped.push_back(std::move(part));
    }
    return wrapped;
}

std::string indented(const Lines& lines, std::size_t indent)
{
    std::string text;
    for (const auto& line : lines)
        text += (line.empty() ? "" : std::string(indent, ' ') + line) + '\n';
    return text;
}

/// The text that replaces a generated one, if there is one.
std::optional<std::string> custom_text(const ParserData& data, TextId id)
{
    const auto found = data.texts.find(id);
    return found != data.texts.end() ? std::optional{found->second} : std::nullopt;
}

/// "<name>", "[name]" when optional, "..." when repeated.
std::string argument_label(const ArgumentData& argument)
{
    return (argument.min_count == 0 ? "[" + argument.name + "]" : "<" + argument.name + ">") +
           (argument.max_count > 1 ? "..." : "");
}

/// A flag, or several, with the argument that follows.
std::string with_argument(const std::string& flags, const OptionData& option)
{
    if (option.argument.empty() || option.constant)
        return flags;
    return flags + (flags.back() == '=' ? "<" : " <") + option.argument + ">";
}

std::string option_label(const OptionData& option, OptionStyle style)
{
    // Long flags stand in one column, whether a short one precedes them or not.
    const bool only_long = style == OptionStyle::STANDARD && option.flags.front().size() > 2;
    return (only_long ? "    " : "") + with_argument(joined_flags(option), option);
}

Lines usage(const ParserData& data, std::size_t width, std::size_t hanging)
{
    if (const auto text = custom_text(data, TextId::USAGE))
        return wrap(*text, width);

    const auto is_visible = [](const auto& definition) { return definition->visibility == Visibility::NORMAL; };
    std::vector<std::string> words{data.program_name};
    if (std::any_of(data.options.begin(), data.options.end(),
                    [&](const auto& option) { return is_visible(option) && option->optional; }))
        words.emplace_back("[OPTIONS]");
    for (const auto& option : data.options)
        if (is_visible(option) && !option->optional)
            words.push_back(with_argument(option->flags.front(), *option));
    for (const auto& argument : data.arguments)
        if (is_visible(argument))
            words.push_back(argument_label(*argument));
    return fill(words, width, hanging);
}

/// What is visible, under its headings, in the order of definition: arguments, then options.
std::vector<Section> sections(const ParserData& data)
{
    std::vector<Section> all;
    const auto add = [&](const DefinitionData& definition, const std::string& usual_heading, std::string label) {
        if (definition.visibility == Visibility::HIDDEN)
            return;
        const std::string& heading = definition.section.empty() ? usual_heading : definition.section;
        auto section =
            std::find_if(all.begin(), all.end(), [&](const Section& other) { return other.heading == heading; });
        if (section == all.end())
            section = all.insert(all.end(), {heading, {}});
        section->entries.push_back({std::move(label), definition.help});
    };
    const std::string arguments_heading = custom_text(data, TextId::ARGUMENTS_HEADING).value_or("ARGUMENTS");
    const std::string options_heading = custom_text(data, TextId::OPTIONS_HEADING).value_or("OPTIONS");
    for (const auto& argument : data.arguments)
        add(*argument, arguments_heading, argument_label(*argument));
    for (const auto& option : data.options)
        add(*option, options_heading, option_label(*option, data.option_style));
    return all;
}

/// The column in which all texts begin, wide enough for every label that leaves room for its text.
std::size_t text_column(const std::vector<Section>& all, std::size_t width)
{
    std::size_t column = 0;
    for (const auto& section : all)
        for (const auto& entry : section.entries) {
            const std::size_t end = label_indent + columns(entry.label) + column_gap;
            if (end <= std::min(width / 2, max_text_column))
                column = std::max(column, end);
        }
    return std::max(column, text_indent);
}

std::string with_heading(const std::string& heading, const std::string& body)
{
    return heading.empty() ? body : heading + '\n' + body;
}

std::string entry_text(const Entry& entry, std::size_t column, std::size_t width)
{
    const std::string label = std::string(label_indent, ' ') + entry.label;
    if (entry.text.empty())
        return label + '\n';
    const std::string text = indented(wrap(entry.text, text_width(width, column)), column);
    if (columns(label) + column_gap > column || text.front() == '\n')
        return label + '\n' + text;
    return label + text.substr(columns(label));
}

/// The longest flag of the help option; the program's own may be of any type. Empty if there is none.
std::string help_flag(const ParserData& data)
{
    const StyleFlags names = style_flags(data.option_style);
    const auto is_help = [](const auto& option) { return option->type == OptionType::HELP; };
    const auto looks_like_help = [&](const auto& option) {
        return std::any_of(option->flags.begin(), option->flags.end(),
                           [&](const auto& flag) { return flag == names.short_help || flag == names.long_help; });
    };
    auto option = std::find_if(data.options.begin(), data.options.end(), is_help);
    if (option == data.options.end())
        option = std::find_if(data.options.begin(), data.options.end(), looks_like_help);
    if (option == data.options.end())
        return {};
    return *std::max_element((*option)->flags.begin(), (*option)->flags.end(),
                             [](const auto& a, const auto& b) { return a.size() < b.size(); });
}

} // namespace

std::string help_text(const ParserData& data)
{
    const std::size_t width = line_width(data);
    std::vector<std::string> blocks;
    if (!data.about.empty())
        blocks.push_back(indented(wrap(data.about, text_width(width, 0)), 0));

    const Lines usage_lines = usage(data, text_width(width, label_indent), text_indent - label_indent);
    if (custom_text(data, TextId::USAGE) != "")
        blocks.push_back(with_heading(custom_text(data, TextId::USAGE_HEADING).value_or("USAGE"),
                                      indented(usage_lines, label_indent)));

    const auto all = sections(data);
    const std::size_t column = width < min_column_layout ? text_indent : text_column(all, width);
    for (const auto& section : all) {
        std::string body;
        for (const auto& entry : section.entries)
            body += entry_text(entry, column, width);
        blocks.push_back(with_heading(section.heading, body));
    }

    if (const auto text = custom_text(data, TextId::HELP_END); text && !text->empty())
        blocks.push_back(indented(wrap(*text, text_width(width, 0)), 0));

    std::string text;
    for (const auto& block : blocks)
        text += (text.empty() ? "" : "\n") + block;
    return text;
}

std::string brief_usage(const ParserData& data)
{
    const std::size_t width = line_width(data);
    const std::string title = "Usage: ";
    std::string text;
    if (custom_text(data, TextId::USAGE) != "") {
        const Lines lines = usage(data, text_width(width, title.size()), 0);
        text = title + lines.front() + '\n' + indented({lines.begin() + 1, lines.end()}, title.size());
    }
    if (const std::string flag = help_flag(data); !flag.empty())
        text += indented(
            fill({"Help", "is", "available", "with", data.program_name + " " + flag}, text_width(width, 0), 0), 0);
    return text;
}

void write_help_text(const ParserData& data)
{
    *data.help_stream << help_text(data) << std::flush;
}

void report_error(const ParserData& data, std::string_view message)
{
    *data.error_stream << data.program_name << ": "
                       << (data.error_filter ? data.error_filter(message) : std::string{message}) << '\n';
    const auto text = custom_text(data, TextId::ERROR);
    if (!text)
        *data.error_stream << brief_usage(data);
    else if (!text->empty())
        *data.error_stream << indented(wrap(*text, text_width(line_width(data), 0)), 0);
    *data.error_stream << std::flush;
    if (data.auto_exit)
        std::exit(data.error_exit_code);
}

} // namespace argos
