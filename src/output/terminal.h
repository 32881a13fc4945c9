#ifndef IVRA_OUTPUT_TERMINAL_H
#define IVRA_OUTPUT_TERMINAL_H

#include "output/section.h"

#include <array>
#include <map>
#include <string>
#include <vector>

namespace ivra::bsp {

/// Escape sequence of every colour; all empty where colour is off.
using color_map = std::map<color, const char*>;

/// The palette of this terminal, by COLORTERM ("truecolor") and TERM ("256color").
color_map get_color_map(bool enabled);

/// A border line of a table: `pieces` are its left end, its junctions and its right end; `widths` are the columns'.
std::string get_table_sep(const std::vector<unsigned short>& widths, const std::array<std::string, 3>& pieces);

} // namespace ivra::bsp

#endif
