#include "Argos/parser_data.h"

#include <algorithm>

namespace argos {

namespace {

void check_flag(const std::string& flag, const OptionData& option, OptionStyle style)
{
    const bool plain = flag.size() >= 2 && flag.front() == style_flags(style).prefix &&
                       flag.find_first_of(" \t\n\r") == std::string::npos &&
                       (flag.size() == 2 || style != OptionStyle::STANDARD || flag.starts_with("--"));
    const std::size_t equals = flag.find('=');
    // A flag of two characters may be any character, "=" as well.
    const bool has_equals = plain && flag.size() > 2 && equals != std::string::npos;
    if (!plain || (has_equals && equals != flag.size() - 1))
        throw ArgosException{"Invalid flag: '" + flag + "'."};
    if (has_equals && option.argument.empty())
        throw ArgosException{"Options ending with '=' must take an argument: " + flag};
}

/// Checks an option and gives it the constant that its operation implies.
void complete(OptionData& option, OptionStyle style)
{
    if (option.flags.empty())
        throw ArgosException{"Option must have one or more flags."};
    for (const auto& flag : option.flags)
        check_flag(flag, option, style);
    if (!option.argument.empty() && option.constant)
        throw ArgosException{"Option cannot have both argument and constant."};

    const bool has_value = !option.argument.empty() || option.constant;
    switch (option.operation) {
    case OptionOperation::NONE:
        if (option.constant)
            throw ArgosException{"NONE-options cannot have a constant."};
        if (!option.value.empty())
            throw ArgosException{"NONE-options cannot have an alias."};
        break;
    case OptionOperation::ASSIGN:
        if (!has_value)
            option.constant = "1";
        break;
    case OptionOperation::APPEND:
        if (!has_value)
            throw ArgosException{"Options that appends must have either constant or argument."};
        break;
    case OptionOperation::CLEAR:
        // Deliberate: the constant of the definition is lost, and an argument is never taken.
        if (has_value)
            option.constant = "1";
        if (!option.optional)
            throw ArgosException{"CLEAR-options must be optional."};
        break;
    }
}

} // namespace

void ParserData::add(std::unique_ptr<ArgumentData> argument)
{
    if (argument->name.empty())
        throw ArgosException{"Argument must have a name."};
    if (argument->min_count > argument->max_count)
        throw ArgosException{"Argument's minimum count must not exceed its maximum count: " + argument->name};
    if (argument->value.empty())
        argument->value = argument->name;
    if (argument->section.empty())
        argument->section = section;
    argument->argument_id = next_argument_id();
    argument->value_id = value_id_for(argument->value);
    arguments.push_back(std::move(argument));
}

void ParserData::add(std::unique_ptr<OptionData> option)
{
    complete(*option, option_style);
    if (option->section.empty())
        option->section = section;
    option->argument_id = next_argument_id();

    // An option without a value name goes by its flags. One of these may already be the value name of another
    // definition, and then both share their values.
    const auto known = std::find_if(option->flags.begin(), option->flags.end(),
                                    [this](const auto& flag) { return value_ids.contains(flag); });
    const std::string& own_name = known != option->flags.end() ? *known : option->flags.front();
    option->value_id = value_id_for(option->value.empty() ? own_name : option->value);
    for (const auto& flag : option->flags)
        value_ids.try_emplace(flag, option->value_id);
    options.push_back(std::move(option));
}

void ParserData::add_automatic_options()
{
    const auto is_free = [this](std::string_view flag) {
        return std::none_of(options.begin(), options.end(), [&](const auto& option) {
            return std::any_of(option->flags.begin(), option->flags.end(),
                               [&](const auto& taken) { return folded(taken) == folded(flag); });
        });
    };
    const auto add_automatic = [this](OptionData option) {
        section.clear(); // they belong to no part of the program
        add(std::make_unique<OptionData>(std::move(option)));
    };

    const StyleFlags names = style_flags(option_style);
    const bool has_help = std::any_of(options.begin(), options.end(),
                                      [](const auto& option) { return option->type == OptionType::HELP; });
    if (auto_help && !has_help) {
        OptionData help;
        help.help = "Display the help text.";
        help.type = OptionType::HELP;
        if (is_free(names.short_help))
            help.flags.emplace_back(names.short_help);
        // The DASH style uses its long flag only in place of the short one.
        const bool want_long =
            !names.long_help.empty() && (option_style == OptionStyle::STANDARD || help.flags.empty());
        if (want_long && is_free(names.long_help))
            help.flags.emplace_back(names.long_help);
        if (!help.flags.empty())
            add_automatic(std::move(help));
    }
    if (!version.empty() && is_free(names.version)) {
        OptionData show_version;
        show_version.help = "Display the program version.";
        show_version.type = OptionType::STOP;
        show_version.flags.emplace_back(names.version);
        show_version.callback = [stream = help_stream, line = program_name + " " + version + "\n"](
                                    const OptionView&, const ArgumentValue&, ParsedArgumentsBuilder&) {
            *stream << line << std::flush;
        };
        add_automatic(std::move(show_version));
    }
}

unsigned ParserData::value_id(std::string_view name) const
{
    if (const auto found = value_ids.find(name); found != value_ids.end())
        return found->second;

    const auto goes_by_argument = [name](const auto& option) {
        return !name.empty() && option->value.empty() && option->argument == name;
    };
    if (std::count_if(options.begin(), options.end(), goes_by_argument) != 1)
        throw ArgosException{"Unknown value: " + std::string{name}};
    return (*std::find_if(options.begin(), options.end(), goes_by_argument))->value_id;
}

std::string ParserData::folded(std::string_view flag) const
{
    std::string key{flag};
    if (ignore_case)
        // Not std::tolower: it depends on the locale.
        std::transform(key.begin(), key.end(), key.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return key;
}

unsigned ParserData::next_argument_id() const
{
    return static_cast<unsigned>(arguments.size() + options.size() + 1);
}

unsigned ParserData::value_id_for(const std::string& name)
{
    if (const auto found = value_ids.find(name); found != value_ids.end())
        return found->second;
    unsigned highest = 0;
    for (const auto& [known_name, id] : value_ids)
        highest = std::max(highest, id);
    return value_ids[name] = highest + 1;
}

std::string joined_flags(const OptionData& option)
{
    std::string joined;
    for (const auto& flag : option.flags)
        joined += (joined.empty() ? "" : ", ") + flag;
    return joined;
}

} // namespace argos
