#ifndef IVRA_ARGOS_HELP_TEXT_H
#define IVRA_ARGOS_HELP_TEXT_H

#include "Argos/parser_data.h"

#include <string>
#include <string_view>

namespace argos {

/// About text, usage, arguments, options. Lines are at most as wide as the parser's line width, and texts never wider
/// than is comfortable to read; only a single word that is longer than that stands out.
std::string help_text(const ParserData& data);

/// What follows an error message: the usage in short, and how to get help.
std::string brief_usage(const ParserData& data);

/// Writes the help text to the help stream.
void write_help_text(const ParserData& data);

/// Writes an error of the user's to the error stream, with the brief usage or the text set instead. With automatic
/// exit, ends the process with the error exit code.
void report_error(const ParserData& data, std::string_view message);

} // namespace argos

#endif
