#include "output/terminal.h"

#include "text/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <ostream>
#include <string_view>
#include <type_traits>

namespace ivra::bsp {

namespace {

// The colours of terminals with 24 bits and with 256 colours can be told apart by colour-blind readers; plain terminals
// fall back to the nearest of their eight, so red and vermilion are the same there.
// clang-format off
struct palette_row_t { bsp::color color; const char* truecolor; const char* color256; const char* plain; };
constexpr palette_row_t palette[] = {
    {color::normal,    "\033[0m",                  "\033[0m",        "\033[0m"},
    {color::bold,      "\033[1m",                  "\033[1m",        "\033[1m"},
    {color::red,       "\033[38;2;204;121;167m",   "\033[38;5;175m", "\033[31m"},
    {color::green,     "\033[38;2;0;158;115m",     "\033[38;5;36m",  "\033[32m"},
    {color::yellow,    "\033[38;2;240;228;66m",    "\033[38;5;227m", "\033[33m"},
    {color::blue,      "\033[38;2;86;180;233m",    "\033[38;5;74m",  "\033[36m"},
    {color::orange,    "\033[38;2;230;159;0m",     "\033[38;5;172m", "\033[35m"},
    {color::vermilion, "\033[38;2;213;94;0m",      "\033[38;5;166m", "\033[31m"},
};
// clang-format on

bool environment_contains(const char* variable, std::string_view word)
{
    const char* value = std::getenv(variable);
    return value != nullptr && std::string_view{value}.find(word) != std::string_view::npos;
}

/// Widths are 16 bits wide; a text that is longer than any screen shall not wrap around to a narrow column.
unsigned short to_width(std::size_t length)
{
    return static_cast<unsigned short>(
        std::min<std::size_t>(length, std::numeric_limits<unsigned short>::max() - std::size_t{2}));
}

std::size_t missing(std::size_t width, std::size_t used)
{
    return width > used ? width - used : 0;
}

section::array printable(section::array table)
{
    const auto make_printable = [](std::string& text) { text = bsp::printable(text); };
    make_printable(table.first_header);
    std::for_each(table.headers.begin(), table.headers.end(), make_printable);
    for (section::array_entry_t& row : table.rows) {
        make_printable(row.name);
        std::for_each(row.values.begin(), row.values.end(), make_printable);
    }
    return table;
}

} // namespace

color_map get_color_map(bool enabled)
{
    auto column = &palette_row_t::plain;
    if (environment_contains("COLORTERM", "truecolor"))
        column = &palette_row_t::truecolor;
    else if (environment_contains("TERM", "256color"))
        column = &palette_row_t::color256;

    color_map map;
    for (const palette_row_t& row : palette)
        map.emplace(row.color, enabled ? row.*column : "");
    return map;
}

std::string get_table_sep(const std::vector<unsigned short>& widths, const std::array<std::string, 3>& pieces)
{
    std::string line = pieces[0];
    for (std::size_t i = 0; i < widths.size(); ++i) {
        for (int n = widths[i] + 2; n > 0; --n)
            line += "─";
        line += i + 1 < widths.size() ? pieces[1] : pieces[2];
    }
    return line;
}

terminal::terminal(std::ostream& stream) : stream_{stream}, colors_{get_color_map(false)} {}

void terminal::flush()
{
    stream_.flush();
    if (!stream_ && error_ == 0)
        error_ = errno;
}

void terminal::print_text(std::string_view text)
{
    stream_ << text;
    flush();
}

void terminal::print_part(const std::string& text)
{
    stream_ << colors_.at(color::normal) << text << colors_.at(color::normal);
    flush();
}

void terminal::print_line(const std::string& text, color c, unsigned short indent)
{
    std::string line(indent, '\t');
    line.append(colors_.at(c)).append(text).append(colors_.at(color::normal)).append("\n");
    print_text(line);
}

void terminal::print_stat(const section::stat_t& stat, unsigned short pad, unsigned short indent)
{
    std::string line = bsp::printable(stat.name);
    line.append(pad, ' ').append(": ").append(colors_.at(stat.color));
    line.append(bsp::printable(stat.value)).append(colors_.at(color::normal));
    print_line(line, color::normal, indent);
}

void terminal::print_out_content(const std::list<section::entry>& entries, unsigned short indent)
{
    std::vector<std::size_t> label_lengths;
    for (const section::entry& e : entries)
        if (const auto* stat = std::get_if<section::stat_t>(&e))
            label_lengths.push_back(bsp::printable(stat->name).size());
    const auto width = std::max_element(label_lengths.begin(), label_lengths.end());

    auto length = label_lengths.begin();
    for (const section::entry& e : entries) {
        std::visit(
            [&](const auto& node) {
                using node_t = std::decay_t<decltype(node)>;
                if constexpr (std::is_same_v<node_t, section::stat_t>) {
                    print_stat(node, to_width(*width - *length++), static_cast<unsigned short>(indent + 1));
                } else if constexpr (std::is_same_v<node_t, section::array>) {
                    print_out_array(node);
                } else {
                    if constexpr (!std::is_same_v<node_t, section::list>)
                        print_line(bsp::printable(node.name), color::bold, node.level);
                    print_out_content(node.entries, node.level);
                }
            },
            e);
    }
}

void terminal::print_out_array(const section::array& array)
{
    const section::array table = printable(array);

    // Deliberate: names and headers are plain ASCII and measured in bytes, values in code points.
    std::size_t name_width = table.first_header.size();
    for (const section::array_entry_t& row : table.rows)
        name_width = std::max(name_width, row.name.size());
    std::vector<unsigned short> widths{to_width(name_width)};
    for (std::size_t j = 0; j < table.headers.size(); ++j) {
        std::size_t width = table.headers[j].size();
        for (const section::array_entry_t& row : table.rows)
            if (j < row.values.size())
                width = std::max(width, strlen_utf8(row.values[j]));
        widths.push_back(to_width(width));
    }

    print_line(get_table_sep(widths, {"┌", "┬", "┐"}), color::normal, table.level);
    print_table_row({table.first_header, table.headers, color::bold}, widths, alignment_t::left, table.level);
    print_line(get_table_sep(widths, {"├", "┼", "┤"}), color::normal, table.level);
    for (const section::array_entry_t& row : table.rows)
        print_table_row(row, widths, alignment_t::right, table.level);
    print_line(get_table_sep(widths, {"└", "┴", "┘"}), color::normal, table.level);
}

void terminal::print_table_row(const section::array_entry_t& row, const std::vector<unsigned short>& widths,
                               alignment_t align, unsigned short indent)
{
    const char* const c = colors_.at(row.color);
    const char* const r = colors_.at(color::normal);

    std::string line = "│ ";
    line.append(c).append(row.name).append(r).append(missing(widths.at(0), row.name.size()), ' ').append(" │");
    for (std::size_t j = 1; j < widths.size(); ++j) {
        const std::string_view value = j <= row.values.size() ? std::string_view{row.values[j - 1]} : "";
        const std::size_t padding = missing(widths[j], strlen_utf8(value));
        if (align == alignment_t::right)
            line.append(padding, ' ');
        line.append(" ").append(c).append(value).append(r);
        if (align == alignment_t::left)
            line.append(padding, ' ');
        line.append(" │");
    }
    print_line(line, color::normal, indent);
}

} // namespace ivra::bsp
