#include "Argos/parsed_arguments.h"

#include "Argos/help_text.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>
#include <type_traits>
#include <utility>

namespace argos {

namespace {

/// What the user calls a definition.
std::string label_of(const ParserData& data, unsigned argument_id)
{
    for (const auto& option : data.options)
        if (option->argument_id == argument_id)
            return joined_flags(*option);
    for (const auto& argument : data.arguments)
        if (argument->argument_id == argument_id)
            return argument->name;
    return {};
}

template <class Number>
std::string integer_range()
{
    using Limits = std::numeric_limits<Number>;
    return "an integer from " + std::to_string(Limits::min()) + " to " + std::to_string(Limits::max());
}

} // namespace

ArgumentValue::ArgumentValue(std::shared_ptr<const ParserData> data, std::optional<StoredValue> value)
    : data_{std::move(data)}, value_{std::move(value)}
{
}

std::string ArgumentValue::as_string(const std::string& default_value) const
{
    return value_ ? value_->text : default_value;
}

template <class Number>
Number ArgumentValue::as_number(Number default_value, std::string_view expected) const
{
    if (!value_)
        return default_value;
    const std::string& text = value_->text;
    Number number{};
    const auto [end, error_code] = std::from_chars(text.data(), text.data() + text.size(), number);
    bool good = error_code == std::errc{} && end == text.data() + text.size();
    if constexpr (std::is_floating_point_v<Number>)
        good = good && std::isfinite(number);
    if (good)
        return number;

    const std::string message =
        label_of(*data_, value_->argument_id) + ": \"" + text + "\" is not " + std::string{expected} + ".";
    error(message);
    throw ArgosException{message};
}

int ArgumentValue::as_int(int default_value) const
{
    return as_number(default_value, integer_range<int>());
}

unsigned ArgumentValue::as_uint(unsigned default_value) const
{
    return as_number(default_value, integer_range<unsigned>());
}

long ArgumentValue::as_long(long default_value) const
{
    return as_number(default_value, integer_range<long>());
}

unsigned long ArgumentValue::as_ulong(unsigned long default_value) const
{
    return as_number(default_value, integer_range<unsigned long>());
}

double ArgumentValue::as_double(double default_value) const
{
    return as_number(default_value, "a number");
}

void ArgumentValue::error(std::string_view message) const
{
    report_error(*data_, message);
}

ArgumentValues::ArgumentValues(std::shared_ptr<const ParserData> data, std::vector<StoredValue> values)
    : data_{std::move(data)}, values_{std::move(values)}
{
}

ArgumentValue ArgumentValues::operator[](std::size_t index) const
{
    return {data_, index < values_.size() ? std::optional{values_[index]} : std::nullopt};
}

std::vector<std::string> ArgumentValues::as_strings(const std::vector<std::string>& default_value) const
{
    if (values_.empty())
        return default_value;
    std::vector<std::string> texts;
    for (const auto& value : values_)
        texts.push_back(value.text);
    return texts;
}

void ArgumentValues::error(std::string_view message) const
{
    report_error(*data_, message);
}

ParsedArgumentsBuilder::ParsedArgumentsBuilder(const ParserData& data, ParseResult& result, unsigned argument_id)
    : data_{data}, result_{result}, argument_id_{argument_id}
{
}

bool ParsedArgumentsBuilder::has(std::string_view name) const
{
    return result_.has(data_.value_id(name));
}

void ParsedArgumentsBuilder::assign(std::string_view name, std::string value)
{
    result_.assign(data_.value_id(name), {std::move(value), argument_id_});
}

void ParsedArgumentsBuilder::append(std::string_view name, std::string value)
{
    result_.append(data_.value_id(name), {std::move(value), argument_id_});
}

void ParsedArgumentsBuilder::clear(std::string_view name)
{
    result_.clear(data_.value_id(name));
}

ParsedArguments::ParsedArguments(std::shared_ptr<const ParserData> data, ParseResult result)
    : data_{std::move(data)}, result_{std::move(result)}
{
}

bool ParsedArguments::has(std::string_view name) const
{
    return !stored(name).empty();
}

ArgumentValue ParsedArguments::value(std::string_view name) const
{
    const auto values = stored(name);
    if (values.size() > 1)
        throw ArgosException{"Attempt to read multiple values as a single value."};
    return {data_, values.empty() ? std::nullopt : std::optional{values.front()}};
}

ArgumentValues ParsedArguments::values(std::string_view name) const
{
    return {data_, stored(name)};
}

std::optional<OptionView> ParsedArguments::stop_option() const
{
    return result_.stop_option ? std::optional{OptionView{result_.stop_option}} : std::nullopt;
}

std::vector<ArgumentView> ParsedArguments::arguments() const
{
    return {data_->arguments.begin(), data_->arguments.end()};
}

std::vector<OptionView> ParsedArguments::options() const
{
    return {data_->options.begin(), data_->options.end()};
}

void ParsedArguments::write_help_text() const
{
    argos::write_help_text(*data_);
}

std::vector<StoredValue> ParsedArguments::stored(std::string_view name) const
{
    if (result_.code == ResultCode::ERROR)
        throw ArgosException{"Error while parsing arguments."};
    const auto found = result_.values.find(data_->value_id(name));
    return found != result_.values.end() ? found->second : std::vector<StoredValue>{};
}

} // namespace argos
