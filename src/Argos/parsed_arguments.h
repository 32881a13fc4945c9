#ifndef IVRA_ARGOS_PARSED_ARGUMENTS_H
#define IVRA_ARGOS_PARSED_ARGUMENTS_H

#include "Argos/definitions.h"
#include "Argos/parser_data.h"

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace argos {

/// How parsing ended.
enum class ResultCode
{
    NONE,           ///< it has not
    SUCCESS,        ///< all words were read, or an option of type LAST_ARGUMENT was met; nothing mandatory is missing
    SPECIAL_OPTION, ///< an option of type HELP, STOP or EXIT was met
    ERROR,          ///< the words were wrong
};

/// A value and the argument id of the definition that produced it.
struct StoredValue
{
    std::string text;
    unsigned argument_id;
};

/// What parsing found, by value id.
struct ParseResult
{
    std::map<unsigned, std::vector<StoredValue>> values;
    ResultCode code = ResultCode::NONE;
    std::shared_ptr<const OptionData> stop_option;
    std::vector<std::string> unprocessed;

    bool has(unsigned value_id) const { return values.contains(value_id); }
    void assign(unsigned value_id, StoredValue value) { values[value_id] = {std::move(value)}; }
    void append(unsigned value_id, StoredValue value) { values[value_id].push_back(std::move(value)); }
    void clear(unsigned value_id) { values.erase(value_id); }
};

/// One value, possibly absent.
///
/// The numbers are decimal. A value that is not such a number, or out of range, is reported like a parse error, see
/// error(); if the process goes on, ArgosException with the same message is thrown.
class ArgumentValue
{
public:
    ArgumentValue(std::shared_ptr<const ParserData> data, std::optional<StoredValue> value);

    bool has_value() const { return value_.has_value(); }
    /// The definition that produced the value; 0 when it is absent.
    unsigned argument_id() const { return value_ ? value_->argument_id : 0; }

    std::string as_string(const std::string& default_value = {}) const;
    int as_int(int default_value = 0) const;
    unsigned as_uint(unsigned default_value = 0) const;
    long as_long(long default_value = 0) const;
    unsigned long as_ulong(unsigned long default_value = 0) const;
    double as_double(double default_value = 0) const; ///< finite numbers only

    /// Writes the program name, the message and the brief usage to the error stream; with automatic exit ends the
    /// process with the error exit code.
    void error(std::string_view message) const;

private:
    template <class Number>
    Number as_number(Number default_value, std::string_view expected) const;

    std::shared_ptr<const ParserData> data_;
    std::optional<StoredValue> value_;
};

/// The values stored under one name, in the order of the command line.
class ArgumentValues
{
public:
    ArgumentValues(std::shared_ptr<const ParserData> data, std::vector<StoredValue> values);

    bool empty() const { return values_.empty(); }
    std::size_t size() const { return values_.size(); }
    /// The value at an index; absent beyond the last.
    ArgumentValue operator[](std::size_t index) const;

    std::vector<std::string> as_strings(const std::vector<std::string>& default_value = {}) const;

    /// As ArgumentValue::error.
    void error(std::string_view message) const;

private:
    std::shared_ptr<const ParserData> data_;
    std::vector<StoredValue> values_;
};

/// Changes the result while it is being made; given to callbacks. Names as in ParsedArguments.
class ParsedArgumentsBuilder
{
public:
    /// `argument_id`: the definition to which new values are ascribed.
    ParsedArgumentsBuilder(const ParserData& data, ParseResult& result, unsigned argument_id);

    bool has(std::string_view name) const;
    void assign(std::string_view name, std::string value);
    void append(std::string_view name, std::string value);
    void clear(std::string_view name);

private:
    const ParserData& data_;
    ParseResult& result_;
    unsigned argument_id_;
};

/// The result of parsing.
///
/// Values are read by value name or by any flag of the option ("color", "-c", "--color"); an option without a value
/// name also by the name of its argument if no other option's has that name. Reading throws ArgosException:
/// "Unknown value: ..." for a name that is not defined, "Error while parsing arguments." if the result is ERROR.
class ParsedArguments
{
public:
    ParsedArguments(std::shared_ptr<const ParserData> data, ParseResult result);

    /// Whether there is a value of that name.
    bool has(std::string_view name) const;
    /// The only value of that name, or an absent one. Throws ArgosException if there are several.
    ArgumentValue value(std::string_view name) const;
    ArgumentValues values(std::string_view name) const;

    ResultCode result_code() const { return result_.code; }
    /// The option that ended parsing; empty unless the result is SPECIAL_OPTION.
    std::optional<OptionView> stop_option() const;
    /// The words that were ignored, as they were given, then those after the word at which parsing stopped.
    const std::vector<std::string>& unprocessed_arguments() const { return result_.unprocessed; }

    /// The definitions, in the order in which they were added.
    std::vector<ArgumentView> arguments() const;
    std::vector<OptionView> options() const;

    /// Writes the same text as ArgumentParser::write_help_text.
    void write_help_text() const;

private:
    std::vector<StoredValue> stored(std::string_view name) const;

    std::shared_ptr<const ParserData> data_;
    ParseResult result_;
};

} // namespace argos

#endif
