#ifndef IVRA_ARGOS_DEFINITIONS_H
#define IVRA_ARGOS_DEFINITIONS_H

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace argos {

/// A mistake of the program that uses the parser: a wrong definition, or a wrong use of a parser or a result.
class ArgosException : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What an option does with its value.
enum class OptionOperation
{
    NONE,   ///< records nothing
    ASSIGN, ///< the value replaces earlier ones
    APPEND, ///< the value is added to earlier ones
    CLEAR,  ///< all values stored under the option's value id are removed
};

/// What an option does to the parsing, after its operation and its callback.
enum class OptionType
{
    NORMAL,        ///< parsing goes on
    HELP,          ///< writes the help text and stops
    STOP,          ///< stops successfully; the remaining words are kept
    EXIT,          ///< stops; with automatic exit ends the process with the normal exit code
    LAST_ARGUMENT, ///< stops after checking that everything mandatory was given; the remaining words are kept
    LAST_OPTION,   ///< every later word is taken as an argument, even if it looks like an option
};

/// How flags look, for a whole parser.
enum class OptionStyle
{
    STANDARD, ///< "-x" and "--word"; "-xyz" is "-x -y -z"; "--word=value"
    SLASH,    ///< "/x" and "/word"; "/word=value"
    DASH,     ///< "-x" and "-word"; "-word=value"
};

/// Whether the help text shows a definition. A hidden one works like any other.
enum class Visibility
{
    NORMAL,
    HIDDEN
};

class OptionView;
class ArgumentValue;
class ParsedArgumentsBuilder;

/// Called for every occurrence of an option, after its operation and before its type takes effect, with the value
/// stored or taken (absent when there is none) and the result so far.
using OptionCallback = std::function<void(const OptionView&, const ArgumentValue&, ParsedArgumentsBuilder&)>;

/// What arguments and options have in common.
struct DefinitionData
{
    std::string help;
    std::string section; ///< heading in the help text; empty: the usual one
    std::string value;   ///< name under which values are stored; definitions of the same name share them
    Visibility visibility = Visibility::NORMAL;
    int id = 0;               ///< the program's own number for it
    unsigned argument_id = 0; ///< given when added: 1, 2, 3... over arguments and options together
    unsigned value_id = 0;    ///< given when added: the key of its values
};

struct ArgumentData : DefinitionData
{
    std::string name;
    unsigned min_count = 1;
    unsigned max_count = 1;
};

struct OptionData : DefinitionData
{
    std::vector<std::string> flags;
    std::string argument;                ///< name of the argument in the help text; empty: takes none
    std::optional<std::string> constant; ///< what is stored when no argument is taken
    OptionOperation operation = OptionOperation::ASSIGN;
    OptionType type = OptionType::NORMAL;
    bool optional = true;
    OptionCallback callback;
};

/// The setters that arguments and options have in common, chainable. Every use after release() throws ArgosException.
template <class Derived, class Data>
class Definition
{
public:
    /// Help text; "\n" starts a new line and "\n\n" a new paragraph.
    Derived& help(std::string text) { return set(&Data::help, std::move(text)); }
    /// Heading under which the help text shows this definition.
    Derived& section(std::string heading) { return set(&Data::section, std::move(heading)); }
    /// Name under which the values are stored.
    Derived& value(std::string name) { return set(&Data::value, std::move(name)); }
    Derived& visibility(Visibility visibility) { return set(&Data::visibility, visibility); }
    /// A number of the program's own choice, to be found again in the view.
    Derived& id(int id) { return set(&Data::id, id); }

    /// Hands the definition over. This object cannot be used afterwards.
    std::unique_ptr<Data> release()
    {
        data();
        return std::move(data_);
    }

protected:
    Data& data()
    {
        if (data_ == nullptr)
            throw ArgosException{"Cannot use " + std::string{Derived::class_name} +
                                 " instance after release() has been called."};
        return *data_;
    }

    template <class Base, class Member, class Value>
    Derived& set(Member Base::*member, Value&& value)
    {
        data().*member = std::forward<Value>(value);
        return static_cast<Derived&>(*this);
    }

private:
    std::unique_ptr<Data> data_ = std::make_unique<Data>();
};

/// A positional argument under construction: mandatory with one value unless said otherwise.
class Argument : public Definition<Argument, ArgumentData>
{
public:
    static constexpr std::string_view class_name = "Argument";

    explicit Argument(std::string name) { set(&ArgumentData::name, std::move(name)); }

    /// Exactly `count` values.
    Argument& count(unsigned count) { return this->count(count, count); }
    /// From `min` to `max` values.
    Argument& count(unsigned min, unsigned max)
    {
        set(&ArgumentData::min_count, min);
        return set(&ArgumentData::max_count, max);
    }
    /// Makes the minimum 0.
    Argument& optional() { return set(&ArgumentData::min_count, 0U); }
};

/// An option under construction. With an argument() its value is the text that follows its flag, otherwise its
/// constant(). Unless said otherwise the operation is ASSIGN, the type NORMAL, and the option optional.
class Option : public Definition<Option, OptionData>
{
public:
    static constexpr std::string_view class_name = "Option";

    explicit Option(std::initializer_list<std::string_view> flags)
    {
        set(&OptionData::flags, std::vector<std::string>(flags.begin(), flags.end()));
    }

    /// Makes the option take a value, which the help text calls `name`.
    Option& argument(std::string name) { return set(&OptionData::argument, std::move(name)); }
    Option& constant(std::string value) { return set(&OptionData::constant, std::move(value)); }
    Option& operation(OptionOperation operation) { return set(&OptionData::operation, operation); }
    Option& type(OptionType type) { return set(&OptionData::type, type); }
    /// An option that is not optional must leave a value in the result.
    Option& optional(bool optional = true) { return set(&OptionData::optional, optional); }
    Option& callback(OptionCallback callback) { return set(&OptionData::callback, std::move(callback)); }
};

/// A definition of a parser, read-only. It stays valid on its own.
template <class Data>
class DefinitionView
{
public:
    explicit DefinitionView(std::shared_ptr<const Data> data) : data_{std::move(data)} {}

    const std::string& help() const { return data_->help; }
    const std::string& section() const { return data_->section; }
    const std::string& value() const { return data_->value; }
    Visibility visibility() const { return data_->visibility; }
    int id() const { return data_->id; }
    unsigned value_id() const { return data_->value_id; }
    unsigned argument_id() const { return data_->argument_id; }

protected:
    const Data& data() const { return *data_; }

private:
    std::shared_ptr<const Data> data_;
};

class ArgumentView : public DefinitionView<ArgumentData>
{
public:
    using DefinitionView::DefinitionView;

    const std::string& name() const { return data().name; }
    unsigned min_count() const { return data().min_count; }
    unsigned max_count() const { return data().max_count; }
};

class OptionView : public DefinitionView<OptionData>
{
public:
    using DefinitionView::DefinitionView;

    const std::vector<std::string>& flags() const { return data().flags; }
    const std::string& argument() const { return data().argument; }
    const std::optional<std::string>& constant() const { return data().constant; }
    OptionOperation operation() const { return data().operation; }
    OptionType type() const { return data().type; }
    bool optional() const { return data().optional; }
};

} // namespace argos

#endif
