#ifndef IVRA_OUTPUT_TERMINAL_H
#define IVRA_OUTPUT_TERMINAL_H

#include "output/section.h"

#include <array>
#include <cstddef>
#include <iosfwd>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::bsp {

/// Escape sequence of every colour; all empty where colour is off.
using color_map = std::map<color, const char*>;

/// The palette of this terminal, by COLORTERM ("truecolor") and TERM ("256color").
color_map get_color_map(bool enabled);

/// A border line of a table: `pieces` are its left end, its junctions and its right end; `widths` are the columns'.
std::string get_table_sep(const std::vector<unsigned short>& widths, const std::array<std::string, 3>& pieces);

enum class alignment_t
{
    left = 0,
    right = 1,
};

/// Writes text and reports to a stream. Each of these is flushed at once, a report line by line: progress is visible in
/// a pipe, too.
class terminal
{
public:
    /// Without colours.
    explicit terminal(std::ostream& stream);

    void set_colors(const color_map& colors);

    /// A text as it is, without colours.
    void print_text(std::string_view text);
    /// The beginning of a line.
    void print_part(const std::string& text);
    void print_line(const std::string& text, color c, unsigned short indent);
    void print_stat(const section::stat_t& stat, unsigned short pad, unsigned short indent);
    void print_out_content(const std::list<section::entry>& entries, unsigned short indent);
    void print_out_array(const section::array& table);
    void print_table_row(const section::array_entry_t& row, const std::vector<unsigned short>& widths,
                         alignment_t align, unsigned short indent);

    /// Why the stream could not be written, the first time that it could not: an errno; 0 until then.
    int error() const { return error_; }

private:
    void begin_line(color c, unsigned short indent);
    void end_line();
    /// `lengths` are those of the row's name and of its values.
    void print_measured_row(const section::array_entry_t& row, const std::vector<std::size_t>& lengths,
                            const std::vector<unsigned short>& widths, alignment_t align, unsigned short indent);
    void flush();

    std::string_view escape(color c) const { return escapes_.at(static_cast<std::size_t>(c)); }

    std::ostream& stream_;
    std::array<std::string_view, 8> escapes_; ///< of each colour
    std::string line_;                        ///< the one that is being made
    int error_ = 0;
};

} // namespace ivra::bsp

#endif
