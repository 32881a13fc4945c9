#include "Argos/argument_iterator.h"

#include "Argos/help_text.h"

#include <cstdlib>

namespace argos {

ArgumentIterator::ArgumentIterator(std::vector<std::string_view> words, std::shared_ptr<const ParserData> data)
    : data_{std::move(data)}, flags_{*data_}, words_{std::move(words), data_->option_style}
{
}

bool ArgumentIterator::next()
{
    if (result_.code == ResultCode::ERROR)
        throw ArgosException{"next() called after error."};
    if (result_.code != ResultCode::NONE)
        return false;

    const auto word = words_.next();
    if (!word)
        check_counts();
    else if (word->is_option)
        process_option(word->text);
    else
        process_argument(word->text);
    return result_.code == ResultCode::NONE;
}

void ArgumentIterator::process_option(const std::string& flag)
{
    const auto option = flags_.find(flag);
    if (option == nullptr) {
        if (data_->ignore_undefined_options && !words_.in_cluster())
            result_.unprocessed.emplace_back(words_.current());
        else
            fail("Unknown option: " + std::string{words_.current()});
        return;
    }

    // An option of operation NONE takes the argument it has, too: for its callback.
    std::optional<StoredValue> value;
    if (option->constant) {
        value = StoredValue{*option->constant, option->argument_id};
    } else if (!option->argument.empty()) {
        const auto text = words_.next_value();
        if (!text)
            return fail(flag + ": no value given.");
        value = StoredValue{*text, option->argument_id};
    }

    switch (option->operation) {
    case OptionOperation::NONE:
        break;
    case OptionOperation::ASSIGN:
        result_.assign(option->value_id, value.value());
        break;
    case OptionOperation::APPEND:
        result_.append(option->value_id, value.value());
        break;
    case OptionOperation::CLEAR:
        result_.clear(option->value_id);
        break;
    }
    if (option->callback) {
        ParsedArgumentsBuilder builder{*data_, result_, option->argument_id};
        option->callback(OptionView{option}, ArgumentValue{data_, value}, builder);
    }

    switch (option->type) {
    case OptionType::NORMAL:
        break;
    case OptionType::HELP:
    case OptionType::EXIT:
        if (option->type == OptionType::HELP)
            write_help_text(*data_);
        if (data_->auto_exit)
            std::exit(data_->normal_exit_code);
        [[fallthrough]];
    case OptionType::STOP:
        result_.stop_option = option;
        stop(ResultCode::SPECIAL_OPTION);
        break;
    case OptionType::LAST_ARGUMENT:
        check_counts();
        break;
    case OptionType::LAST_OPTION:
        words_.take_words_as_values();
        break;
    }
}

void ArgumentIterator::process_argument(const std::string& word)
{
    const auto& arguments = data_->arguments;
    while (argument_ < arguments.size() && argument_values_ >= arguments[argument_]->max_count) {
        ++argument_;
        argument_values_ = 0;
    }
    if (argument_ < arguments.size()) {
        const ArgumentData& argument = *arguments[argument_];
        result_.append(argument.value_id, {word, argument.argument_id});
        ++argument_values_;
        ++all_argument_values_;
    } else if (data_->ignore_undefined_arguments) {
        result_.unprocessed.push_back(word);
    } else {
        fail("Too many arguments, starting with \"" + word + "\".");
    }
}

void ArgumentIterator::check_counts()
{
    for (const auto& option : data_->options)
        if (!option->optional && !result_.has(option->value_id))
            return fail("Mandatory option \"" + joined_flags(*option) + "\" is missing.");

    std::size_t min = 0;
    std::size_t max = 0;
    for (const auto& argument : data_->arguments) {
        min += argument->min_count;
        max += argument->max_count;
    }
    if (all_argument_values_ < min)
        return fail("Too few arguments. Expected " + std::string{min != max ? "at least " : ""} + std::to_string(min) +
                    ", received " + std::to_string(all_argument_values_) + ".");
    stop(ResultCode::SUCCESS);
}

void ArgumentIterator::stop(ResultCode code)
{
    result_.code = code;
    for (auto& word : words_.remaining())
        result_.unprocessed.push_back(std::move(word));
}

void ArgumentIterator::fail(const std::string& message)
{
    stop(ResultCode::ERROR);
    report_error(*data_, message);
}

} // namespace argos
