#ifndef IVRA_ARGOS_PARSER_DATA_H
#define IVRA_ARGOS_PARSER_DATA_H

#include "Argos/definitions.h"

#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace argos {

/// The texts of help and errors that a program can replace. An empty text leaves that piece out.
enum class TextId
{
    USAGE_HEADING,     ///< instead of "USAGE"
    USAGE,             ///< instead of the generated usage line
    ARGUMENTS_HEADING, ///< instead of "ARGUMENTS"
    OPTIONS_HEADING,   ///< instead of "OPTIONS"
    HELP_END,          ///< written last in the help text
    ERROR,             ///< written after an error message instead of the brief usage
};

/// How the flags of a style begin, and what its automatic options are called.
struct StyleFlags
{
    char prefix;
    std::string_view short_help;
    std::string_view long_help; ///< empty: there is none
    std::string_view version;
};

constexpr StyleFlags style_flags(OptionStyle style)
{
    switch (style) {
    case OptionStyle::SLASH:
        return {'/', "/?", "", "/VERSION"};
    case OptionStyle::DASH:
        return {'-', "-h", "-help", "-version"};
    case OptionStyle::STANDARD:
        break;
    }
    return {'-', "-h", "--help", "--version"};
}

/// Everything that a parser was told: shared, and no longer changed, once parsing begins.
struct ParserData
{
    std::string program_name;
    std::string about;
    std::string version;
    OptionStyle option_style = OptionStyle::STANDARD;
    bool auto_exit = true;
    bool allow_abbreviated_options = false;
    bool ignore_undefined_options = false;
    bool ignore_undefined_arguments = false;
    bool ignore_case = false;
    bool auto_help = true;
    int normal_exit_code = 0;
    int error_exit_code = 64;
    std::optional<unsigned> line_width; ///< columns; empty: those of the terminal on standard output
    std::ostream* help_stream = &std::cout;
    std::ostream* error_stream = &std::cerr;
    std::function<std::string(std::string_view)> error_filter; ///< what an error message becomes; empty: itself
    std::map<TextId, std::string> texts;
    std::string section; ///< given to every definition that is added without one

    std::vector<std::shared_ptr<const ArgumentData>> arguments;
    std::vector<std::shared_ptr<const OptionData>> options;
    std::map<std::string, unsigned, std::less<>> value_ids; ///< by value name and by flag

    /// Checks and adds a definition, and gives it its ids. Throws ArgosException.
    void add(std::unique_ptr<ArgumentData> argument);
    void add(std::unique_ptr<OptionData> option);

    /// Adds the help option and the version option that the settings ask for, with those flags that are free.
    void add_automatic_options();

    /// The value id of a value name, a flag, or the argument name of an option if it belongs to one value only.
    /// Throws ArgosException "Unknown value: ...".
    unsigned value_id(std::string_view name) const;

    /// The form in which two flags are compared: with ignore_case, ASCII letters are made small.
    std::string folded(std::string_view flag) const;

private:
    unsigned next_argument_id() const;
    unsigned value_id_for(const std::string& name);
};

/// Flags as messages and help show them: "-h, --help".
std::string joined_flags(const OptionData& option);

} // namespace argos

#endif
