#include "Argos/argument_parser.h"

#include "Argos/argument_iterator.h"
#include "Argos/help_text.h"

#include <utility>

namespace argos {

ArgumentParser::ArgumentParser(std::string program_name, bool auto_exit) : data_{std::make_unique<ParserData>()}
{
    data_->program_name = std::move(program_name);
    data_->auto_exit = auto_exit;
}

ArgumentParser& ArgumentParser::about(std::string text)
{
    data().about = std::move(text);
    return *this;
}

ArgumentParser& ArgumentParser::version(std::string text)
{
    data().version = std::move(text);
    return *this;
}

ArgumentParser& ArgumentParser::option_style(OptionStyle style)
{
    if (!data().options.empty())
        throw ArgosException{"The option style must be set before options are added."};
    data().option_style = style;
    return *this;
}

ArgumentParser& ArgumentParser::auto_exit(bool enable)
{
    data().auto_exit = enable;
    return *this;
}

ArgumentParser& ArgumentParser::allow_abbreviated_options(bool enable)
{
    data().allow_abbreviated_options = enable;
    return *this;
}

ArgumentParser& ArgumentParser::ignore_undefined_options(bool enable)
{
    data().ignore_undefined_options = enable;
    return *this;
}

ArgumentParser& ArgumentParser::ignore_undefined_arguments(bool enable)
{
    data().ignore_undefined_arguments = enable;
    return *this;
}

ArgumentParser& ArgumentParser::ignore_case(bool enable)
{
    data().ignore_case = enable;
    return *this;
}

ArgumentParser& ArgumentParser::auto_help(bool enable)
{
    data().auto_help = enable;
    return *this;
}

ArgumentParser& ArgumentParser::normal_exit_code(int code)
{
    data().normal_exit_code = code;
    return *this;
}

ArgumentParser& ArgumentParser::error_exit_code(int code)
{
    data().error_exit_code = code;
    return *this;
}

ArgumentParser& ArgumentParser::line_width(unsigned columns)
{
    data().line_width = columns;
    return *this;
}

ArgumentParser& ArgumentParser::help_stream(std::ostream& stream)
{
    data().help_stream = &stream;
    return *this;
}

ArgumentParser& ArgumentParser::error_stream(std::ostream& stream)
{
    data().error_stream = &stream;
    return *this;
}

ArgumentParser& ArgumentParser::error_filter(std::function<std::string(std::string_view)> filter)
{
    data().error_filter = std::move(filter);
    return *this;
}

ArgumentParser& ArgumentParser::text(TextId id, std::string text)
{
    data().texts[id] = std::move(text);
    return *this;
}

ArgumentParser& ArgumentParser::section(std::string heading)
{
    data().section = std::move(heading);
    return *this;
}

ArgumentParser& ArgumentParser::add(Argument& argument)
{
    data().add(argument.release());
    return *this;
}

ArgumentParser& ArgumentParser::add(Option& option)
{
    data().add(option.release());
    return *this;
}

ParsedArguments ArgumentParser::parse(std::vector<std::string_view> words)
{
    data().add_automatic_options();
    const std::shared_ptr<const ParserData> shared = std::move(data_);
    ArgumentIterator iterator{std::move(words), shared};
    while (iterator.next()) {
    }
    return {shared, iterator.result()};
}

void ArgumentParser::write_help_text() const
{
    // A copy, because definitions can still follow.
    ParserData complete = data();
    complete.add_automatic_options();
    argos::write_help_text(complete);
}

ParserData& ArgumentParser::data() const
{
    if (data_ == nullptr)
        throw ArgosException{"This instance of ArgumentParser can no longer be used."};
    return *data_;
}

} // namespace argos
