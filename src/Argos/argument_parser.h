#ifndef IVRA_ARGOS_ARGUMENT_PARSER_H
#define IVRA_ARGOS_ARGUMENT_PARSER_H

#include "Argos/definitions.h"
#include "Argos/parsed_arguments.h"
#include "Argos/parser_data.h"

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace argos {

/// A command-line parser: define, then parse once.
///
///     argos::ArgumentParser parser{"lift"};
///     parser.about("Move a lift.")
///         .add(argos::Option{"-s", "--speed"}.argument("speed").help("How fast."))
///         .add(argos::Argument{"floor"}.help("Where to."));
///     const argos::ParsedArguments args = parser.parse(words);
///     const int speed = args.value("--speed").as_int(1);
///
/// By default a wrong command line ends the process with a message, and so does a request for help with the help text.
/// All setters can be chained; once parse() has been called, every further use throws ArgosException.
class ArgumentParser
{
public:
    /// `auto_exit`: whether parsing ends the process on errors, on help and on options of type EXIT.
    explicit ArgumentParser(std::string program_name, bool auto_exit = true);

    /// Text that begins the help text.
    ArgumentParser& about(std::string text);
    /// Adds a version option when parsing begins.
    ArgumentParser& version(std::string text);
    /// Throws ArgosException when there are options already: they were checked by another style.
    ArgumentParser& option_style(OptionStyle style);
    ArgumentParser& auto_exit(bool enable);
    /// Whether the beginning of a flag stands for it, if no other flag begins so.
    ArgumentParser& allow_abbreviated_options(bool enable);
    /// Whether unknown options are collected among the unprocessed words instead of being an error.
    ArgumentParser& ignore_undefined_options(bool enable);
    /// Whether values that no argument can take are collected likewise.
    ArgumentParser& ignore_undefined_arguments(bool enable);
    /// Whether ASCII letters of flags may be large or small.
    ArgumentParser& ignore_case(bool enable);
    /// Whether a help option is added when parsing begins, unless there is one.
    ArgumentParser& auto_help(bool enable);
    ArgumentParser& normal_exit_code(int code);
    ArgumentParser& error_exit_code(int code);
    /// Columns for help and usage: 0 means 80, less than 32 means 32. Unset, the terminal is asked when they are
    /// written.
    ArgumentParser& line_width(unsigned columns);
    /// The streams must outlive the parser and its result.
    ArgumentParser& help_stream(std::ostream& stream);
    ArgumentParser& error_stream(std::ostream& stream);
    /// Makes of each error message, which repeats words of the user's, what may be written.
    ArgumentParser& error_filter(std::function<std::string(std::string_view)> filter);
    ArgumentParser& text(TextId id, std::string text);
    /// Heading for everything that is added from here on without a section of its own; empty: the usual ones.
    ArgumentParser& section(std::string heading);

    /// Adds a definition, which is released by that. Throws ArgosException when it is wrong.
    ///
    /// Values go to the arguments in the order in which these were added, to each up to its maximum. Arguments that
    /// are optional or repeated are therefore best added last.
    ArgumentParser& add(Argument& argument);
    ArgumentParser& add(Argument&& argument) { return add(argument); }
    ArgumentParser& add(Option& option);
    ArgumentParser& add(Option&& option) { return add(option); }

    /// Parses the words of a command line, without the program's own name. Throws ArgosException when the definitions
    /// contradict each other; what the user did wrong is written and in the result.
    ParsedArguments parse(std::vector<std::string_view> words);

    void write_help_text() const;

private:
    ParserData& data() const;

    std::unique_ptr<ParserData> data_;
};

} // namespace argos

#endif
