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

/// The escape sequences of this terminal.
const char* palette_row_t::*get_palette()
{
    if (environment_contains("COLORTERM", "truecolor"))
        return &palette_row_t::truecolor;
    return environment_contains("TERM", "256color") ? &palette_row_t::color256 : &palette_row_t::plain;
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

/// Bytes of the text as it is shown.
std::size_t get_size(const std::string& text)
{
    return is_plain(text) ? text.size() : printable(text).size();
}

/// Code points of the text as it is shown.
std::size_t get_length(const std::string& text)
{
    return is_plain(text) ? text.size() : strlen_utf8(printable(text));
}

/// How much room the name of a row and each of its values take. Deliberate: names are plain ASCII and measured in
/// bytes, values in code points.
std::vector<std::size_t> measure(const section::array_entry_t& row)
{
    std::vector<std::size_t> lengths(1 + row.values.size(), get_size(row.name));
    std::transform(row.values.begin(), row.values.end(), lengths.begin() + 1, get_length);
    return lengths;
}

} // namespace

color_map get_color_map(bool enabled)
{
    const auto escape = enabled ? get_palette() : nullptr;
    color_map map;
    for (const palette_row_t& row : palette)
        map.emplace_hint(map.end(), row.color, enabled ? row.*escape : ""); // in order
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

terminal::terminal(std::ostream& stream) : stream_{stream} {}

void terminal::set_colors(const color_map& colors)
{
    for (const auto& [key, text] : colors)
        escapes_.at(static_cast<std::size_t>(key)) = text;
}

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
    stream_ << escape(color::normal) << text << escape(color::normal);
    flush();
}

void terminal::print_line(const std::string& text, color c, unsigned short indent)
{
    begin_line(c, indent);
    line_ += text;
    end_line();
}

void terminal::begin_line(color c, unsigned short indent)
{
    line_.assign(indent, '\t');
    line_ += escape(c);
}

void terminal::end_line()
{
    line_.append(escape(color::normal)).push_back('\n');
    print_text(line_);
}

void terminal::print_stat(const section::stat_t& stat, unsigned short pad, unsigned short indent)
{
    begin_line(color::normal, indent);
    append_printable(line_, stat.name);
    line_.append(pad, ' ').append(": ").append(escape(stat.color));
    append_printable(line_, stat.value);
    line_ += escape(color::normal);
    end_line();
}

void terminal::print_out_content(const std::list<section::entry>& entries, unsigned short indent)
{
    std::vector<std::size_t> label_sizes;
    label_sizes.reserve(entries.size());
    for (const section::entry& e : entries)
        if (const auto* stat = std::get_if<section::stat_t>(&e))
            label_sizes.push_back(get_size(stat->name));
    const auto width = std::max_element(label_sizes.begin(), label_sizes.end());

    auto size = label_sizes.begin();
    for (const section::entry& e : entries) {
        std::visit(
            [&](const auto& node) {
                using node_t = std::decay_t<decltype(node)>;
                if constexpr (std::is_same_v<node_t, section::stat_t>) {
                    print_stat(node, to_width(*width - *size++), static_cast<unsigned short>(indent + 1));
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

void terminal::print_out_array(const section::array& table)
{
    const section::array_entry_t head{table.first_header, table.headers, color::bold};
    std::vector<std::vector<std::size_t>> lengths(table.rows.size());
    std::transform(table.rows.begin(), table.rows.end(), lengths.begin(), measure);

    std::vector<unsigned short> widths{to_width(get_size(head.name))};
    for (const std::string& header : head.values)
        widths.push_back(to_width(get_size(header)));
    for (const std::vector<std::size_t>& row : lengths)
        for (std::size_t j = 0; j < std::min(widths.size(), row.size()); ++j)
            widths[j] = std::max(widths[j], to_width(row[j]));

    print_line(get_table_sep(widths, {"┌", "┬", "┐"}), color::normal, table.level);
    print_table_row(head, widths, alignment_t::left, table.level);
    print_line(get_table_sep(widths, {"├", "┼", "┤"}), color::normal, table.level);
    for (std::size_t i = 0; i < table.rows.size(); ++i)
        print_measured_row(table.rows[i], lengths[i], widths, alignment_t::right, table.level);
    print_line(get_table_sep(widths, {"└", "┴", "┘"}), color::normal, table.level);
}

void terminal::print_table_row(const section::array_entry_t& row, const std::vector<unsigned short>& widths,
                               alignment_t align, unsigned short indent)
{
    print_measured_row(row, measure(row), widths, align, indent);
}

void terminal::print_measured_row(const section::array_entry_t& row, const std::vector<std::size_t>& lengths,
                                  const std::vector<unsigned short>& widths, alignment_t align, unsigned short indent)
{
    const std::string_view c = escape(row.color);
    const std::string_view r = escape(color::normal);

    begin_line(color::normal, indent);
    line_.append("│ ").append(c);
    append_printable(line_, row.name);
    line_.append(r).append(missing(widths.at(0), lengths.at(0)), ' ').append(" │");
    for (std::size_t j = 1; j < widths.size(); ++j) {
        const bool is_there = j < lengths.size();
        const std::size_t padding = missing(widths[j], is_there ? lengths[j] : 0);
        line_.append(align == alignment_t::right ? padding + 1 : 1, ' ').append(c);
        if (is_there)
            append_printable(line_, row.values[j - 1]);
        line_.append(r).append(align == alignment_t::left ? padding : 0, ' ').append(" │");
    }
    end_line();
}

} // namespace ivra::bsp
