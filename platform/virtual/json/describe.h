#ifndef IVRA_VIRTUAL_JSON_DESCRIBE_H
#define IVRA_VIRTUAL_JSON_DESCRIBE_H

#include "json/codec.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

/// A record is described once, by a function `describe(visit, record)` beside it. It names each member with its codec:
///   visit("error", xmc.error, codec::word);          may be left out, and then the record keeps what it has
///   visit.required("to", answer.to, codec::hex{16});
///   visit.other_way("file", fru.raw, file);        the same thing said in another way, which is not written
///   visit.check({"sector"}, holds, "a sector size that ...");     a rule over several members
///   visit.check({"size"}, holds, [&] { return "at most " + ...; });    the same, in words that are only made when told
///   visit.remark({"value"}, [&] { return "reads as ..."s; });     what is no mistake, but hardly meant; "" is no
///   remark
/// Reader, writer and schema are visitors of that function. `visit(...)` and `visit.said(name)` tell whether the
/// document that is read has the member.
namespace ivra::virtual_platform::json {

class reader
{
public:
    explicit reader(const node_t& node) : node_{node}, members_{*node.as<object_t>()}, is_known_(members_.size()) {}

    template <class T, class Codec>
    bool operator()(const char* name, T& value, const Codec& codec, bool = true)
    {
        const member_t* member = next(name);
        if (member != nullptr && !node_.reading().is_beyond_mistake(member->value.place))
            codec.read(node_.below(*member), value);
        return member != nullptr;
    }

    template <class T, class Codec>
    void required(const char* name, T& value, const Codec& codec)
    {
        if (!(*this)(name, value, codec))
            node_.note(node_.value().end, "expected a member \"" + std::string{name} + '"');
    }

    template <class T, class Codec>
    void other_way(const char* name, T& value, const Codec& codec)
    {
        (*this)(name, value, codec);
    }

    bool said(const char* name) const { return find(node_.value(), name) != nullptr; }
    bool gives(std::initializer_list<step_t> path) const { return !node_.value_at(path).is_null(); }
    bool gives(const char* name) const { return gives(std::initializer_list<step_t>{step_t{name}}); }

    /// Of these members none goes with `name`.
    void excludes(const char* name, std::initializer_list<const char*> others)
    {
        if (!gives(name))
            return;
        for (const char* other : others)
            check({other}, !gives(other), [&] { return "no such member beside \"" + std::string{name} + '"'; });
    }

    /// Counts only when no member is wrong by itself: checks come behind all visits.
    template <class Text>
    void check(std::initializer_list<step_t> path, bool holds, const Text& expectation)
    {
        if (holds || !are_members_good())
            return;
        if constexpr (std::is_invocable_v<Text>)
            node_.expected_at(path, expectation());
        else
            node_.expected_at(path, expectation);
    }

    /// As a check; the text is only made for somebody who wants remarks.
    template <class Text>
    void remark(std::initializer_list<step_t> path, Text make_text)
    {
        if (node_.reading().wanted() == remarks_t::unwanted || !are_members_good())
            return;
        if (const std::string text = make_text(); !text.empty())
            node_.remark_at(path, text);
    }

    const node_t& node() const { return node_; }

    /// Notes a member that no visit was about; `known` are those that there are.
    template <class Known>
    void finish(Known known) const
    {
        for (std::size_t at = 0; at < members_.size(); ++at)
            if (!is_known_[at] && !node_.reading().is_beyond_mistake(members_[at].place))
                node_.below(members_[at]).note(members_[at].place, known());
    }

private:
    bool are_members_good()
    {
        if (!are_members_good_)
            are_members_good_ = !node_.reading().is_beyond_mistake(node_.value().end) &&
                                std::ranges::find(is_known_, false) == is_known_.end();
        return *are_members_good_;
    }

    /// Members mostly come in the order of their description.
    const member_t* next(std::string_view name)
    {
        for (std::size_t count = 0; count < members_.size(); ++count) {
            const std::size_t at = (next_ + count) % members_.size();
            if (members_[at].name == name) {
                is_known_[at] = true;
                next_ = at + 1;
                return &members_[at];
            }
        }
        return nullptr;
    }

    const node_t& node_;
    const object_t& members_;
    std::vector<bool> is_known_;
    std::size_t next_ = 0;
    std::optional<bool> are_members_good_; ///< once it was asked
};

/// What the visitors have in common that read nothing.
struct no_document
{
    static bool said(const char*) { return false; }
    static bool gives(std::initializer_list<step_t>) { return false; }
    static bool gives(const char*) { return false; }
    static void excludes(const char*, std::initializer_list<const char*>) {}
    template <class Text>
    static void check(std::initializer_list<step_t>, bool, const Text&)
    {
    }
    template <class Text>
    static void remark(std::initializer_list<step_t>, Text)
    {
    }
};

/// Writes every member but those whose last argument is false.
class writer : public no_document
{
public:
    template <class T, class Codec>
    bool operator()(const char* name, const T& value, const Codec& codec, bool is_written = true)
    {
        if (is_written)
            members_.push_back({name, codec.write(value)});
        return false;
    }
    template <class T, class Codec>
    void required(const char* name, const T& value, const Codec& codec)
    {
        (*this)(name, value, codec);
    }

    template <class T, class Codec>
    static void other_way(const char*, const T&, const Codec&)
    {
    }

    object_t take() { return std::move(members_); }

private:
    object_t members_;
};

/// The schemas of all members.
class schema_writer : public no_document
{
public:
    template <class T, class Codec>
    bool operator()(const char* name, const T&, const Codec& codec, bool = true)
    {
        properties_.push_back({name, codec.schema()});
        return false;
    }
    template <class T, class Codec>
    void required(const char* name, const T& value, const Codec& codec)
    {
        required_.push_back({std::string{name}});
        (*this)(name, value, codec);
    }

    template <class T, class Codec>
    void other_way(const char* name, const T& value, const Codec& codec)
    {
        (*this)(name, value, codec);
    }

    /// The schema of an object with these members and no others.
    value_t take(const std::string& sentence)
    {
        object_t rest;
        if (!required_.empty())
            rest.push_back({"required", {std::move(required_)}});
        rest.push_back({"additionalProperties", {false}});
        rest.push_back({"properties", {std::move(properties_)}});
        return codec::schema_of(sentence, {"object"}, std::move(rest));
    }

private:
    list_t required_;
    object_t properties_;
};

/// The names of all members.
class member_names : public no_document
{
public:
    template <class T, class Codec>
    bool operator()(const char* name, const T&, const Codec&, bool = true)
    {
        names_ += (names_.empty() ? "unknown member, expected one of " : ", ") + std::string{name};
        return false;
    }
    template <class T, class Codec>
    void required(const char* name, const T& value, const Codec& codec)
    {
        (*this)(name, value, codec);
    }

    template <class T, class Codec>
    void other_way(const char* name, const T& value, const Codec& codec)
    {
        (*this)(name, value, codec);
    }

    const std::string& text() const { return names_; }

private:
    std::string names_;
};

namespace codec {

/// An object that is a record with a description. Where that is in one source only, the header beside the record has
/// an `extern template struct json::codec::record<...>` that it is instantiated for.
template <class T>
struct record
{
    const char* what;

    std::string sentence() const { return what; }
    void read(const node_t& node, T& value) const;
    value_t write(const T& value) const;
    value_t schema() const;
};

template <class T>
void record<T>::read(const node_t& node, T& value) const
{
    if (node.as<object_t>() == nullptr)
        return node.expected(what);
    reader visit{node};
    describe(visit, value);
    visit.finish([] {
        member_names names;
        T nothing{};
        describe(names, nothing);
        return names.text();
    });
}

template <class T>
value_t record<T>::write(const T& value) const
{
    writer visit;
    T copy{value};
    describe(visit, copy);
    return {visit.take()};
}

template <class T>
value_t record<T>::schema() const
{
    schema_writer visit;
    T nothing{};
    describe(visit, nothing);
    return visit.take(what);
}

} // namespace codec

/// A schema with the name of the standard that it is written by. What is long and stands twice becomes a definition.
value_t as_document(value_t schema);

/// Reads a whole document. Throws file_error for the first mistake in it.
template <class T, class Codec>
void read(const value_t& document, const std::filesystem::path& file, T& value, const Codec& codec)
{
    reading reading{file};
    codec.read(node_t{document, reading}, value);
    reading.finish();
}

} // namespace ivra::virtual_platform::json

#endif
