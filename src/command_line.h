#ifndef IVRA_COMMAND_LINE_H
#define IVRA_COMMAND_LINE_H

#include "Argos/parsed_arguments.h"
#include "output/output.h"

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ivra::bsp {

/// A word of the command line that names nothing: a command, an info, a parameter, a value or a colour.
class ParserError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A help text has been written and nothing is left to do.
class StopParsing : public std::exception
{
};

namespace board_monitor_p {

/// What a command line says; every name is canonical.
struct Args
{
    argos::ParsedArguments args;
    std::string command; ///< "list", "show", "set" or "setup"
    color_mode_t color;
    output_format_t format;
    std::string info;                                           ///< of show, else empty
    std::pair<std::string, std::vector<std::string>> parameter; ///< of set and its values, else empty
};

/// Deliberate: a word stands for every keyword that contains it, case-sensitively. An empty word matches all of them;
/// where several match, the first in the order in which they are tried wins.
bool matches(std::string_view keyword, std::string_view word);

/// Interprets the words after the program's name, and the environment. Ends the process with status 64 on a usage
/// error. Throws ParserError, and StopParsing after a help text.
Args parse_command_line(const std::vector<std::string_view>& words);

} // namespace board_monitor_p

} // namespace ivra::bsp

#endif
