#include "document.h"

#include "json/document.h"

#include "rack.h"
#include "json/text.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/pointer.h>
#include <rapidjson/reader.h>
#include <rapidjson/schema.h>
#include <rapidjson/stringbuffer.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <string>
#include <system_error>
#include <unordered_set>
#include <vector>

namespace ivra::virtual_platform {

using rapidjson::SizeType;
using rapidjson::Value;

namespace {

constexpr std::size_t deepest_nesting = 32; // several times what a rack needs; walking a document recurses

std::string to_text(const rapidjson::Pointer& pointer)
{
    rapidjson::StringBuffer buffer;
    pointer.Stringify(buffer);
    return {buffer.GetString(), buffer.GetSize()};
}

/// What a schema cannot see, found while the document is built: nesting that is too deep, members that come twice.
class document_builder
{
public:
    explicit document_builder(rapidjson::Document& document) : document_{document} {}

    const std::optional<std::string>& mistake_found() const { return mistake_; }

    bool Null() { return value() && document_.Null(); }
    bool Bool(bool b) { return value() && document_.Bool(b); }
    /// Every number. Deliberate: RapidJSON's own exact conversion has undefined behaviour for some zeros ("0E19").
    bool RawNumber(const char* text, SizeType length, bool)
    {
        value();
        const char* const end = text + length;
        if (const auto number = parsed<std::int64_t>(text, end))
            return document_.Int64(*number);
        if (const auto number = parsed<std::uint64_t>(text, end))
            return document_.Uint64(*number);
        if (const auto number = parsed<double>(text, end))
            return document_.Double(*number);
        mistake_ = pointer() + ": expected a number that a double can hold";
        return false;
    }
    // Numbers come as texts.
    bool Int(int) { return false; }
    bool Uint(unsigned) { return false; }
    bool Int64(std::int64_t) { return false; }
    bool Uint64(std::uint64_t) { return false; }
    bool Double(double) { return false; }
    bool String(const char* text, SizeType length, bool copy)
    {
        return value() && document_.String(text, length, copy);
    }
    bool StartObject() { return value() && enter() && document_.StartObject(); }
    bool StartArray() { return value() && enter() && document_.StartArray(); }
    bool EndObject(SizeType count) { return leave() && document_.EndObject(count); }
    bool EndArray(SizeType count) { return leave() && document_.EndArray(count); }

    bool Key(const char* text, SizeType length, bool copy)
    {
        level_t& level = levels_.back();
        level.key.assign(text, length);
        level.is_object = true;
        if (!level.keys.insert(level.key).second) {
            mistake_ = pointer() + ": expected this member once, but it comes again";
            return false;
        }
        return document_.Key(text, length, copy);
    }

private:
    /// The whole text as a number of this type; nothing when it is none.
    template <class T>
    static std::optional<T> parsed(const char* begin, const char* end)
    {
        T number{};
        const auto [last, error] = std::from_chars(begin, end, number);
        return error == std::errc{} && last == end ? std::optional{number} : std::nullopt;
    }

    struct level_t
    {
        bool is_object = false;
        std::size_t count = 0; ///< of elements begun, in an array
        std::string key;       ///< of the member at hand, in an object
        std::unordered_set<std::string> keys;
    };

    bool value()
    {
        if (!levels_.empty())
            ++levels_.back().count;
        return true;
    }

    bool enter()
    {
        if (levels_.size() == deepest_nesting) {
            mistake_ = pointer() + ": expected no more than " + std::to_string(deepest_nesting) + " levels of nesting";
            return false;
        }
        levels_.emplace_back();
        return true;
    }

    bool leave()
    {
        levels_.pop_back();
        return true;
    }

    std::string pointer() const
    {
        rapidjson::Pointer pointer;
        for (const level_t& level : levels_) {
            if (level.is_object)
                pointer = pointer.Append(level.key.c_str(), static_cast<SizeType>(level.key.size()));
            else
                pointer = pointer.Append(static_cast<SizeType>(level.count - 1));
        }
        return to_text(pointer);
    }

    rapidjson::Document& document_;
    std::vector<level_t> levels_;
    std::optional<std::string> mistake_;
};

/// "line 3, column 7" of a byte; both count from 1, columns in characters.
std::string line_and_column(std::string_view text, std::size_t offset)
{
    const std::string_view before = text.substr(0, offset);
    const auto line = std::ranges::count(before, '\n') + 1;
    const std::size_t start = before.rfind('\n') == std::string_view::npos ? 0 : before.rfind('\n') + 1;
    const auto column = std::ranges::count_if(before.substr(start),
                                              [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; });
    return "line " + std::to_string(line) + ", column " + std::to_string(column + 1);
}

std::string syntax_error(rapidjson::ParseErrorCode code, std::string_view text, std::size_t offset)
{
    // RapidJSON calls a control character a wrong escape.
    if (code == rapidjson::kParseErrorStringEscapeInvalid && offset < text.size() &&
        static_cast<std::uint8_t>(text[offset]) < 0x20)
        return "A control character in a string, expected \\u00" + hex_pair(static_cast<std::uint8_t>(text[offset]));
    std::string reason = rapidjson::GetParseError_En(code);
    if (reason.ends_with('.'))
        reason.pop_back();
    return reason;
}

const rapidjson::Document& schema_text()
{
    static const rapidjson::Document document = [] {
        rapidjson::Document result;
        result.Parse(rack_schema.data(), rack_schema.size());
        return result;
    }();
    return document;
}

/// The schema of module files: a definition of the racks' one, which it refers to.
const rapidjson::Document& module_schema_text()
{
    static const rapidjson::Document document = [] {
        rapidjson::Document result;
        const Value& definitions = *find(schema_text(), "definitions");
        result.CopyFrom(*find(definitions, "module"), result.GetAllocator());
        result.AddMember("definitions", Value{definitions, result.GetAllocator()}, result.GetAllocator());
        return result;
    }();
    return document;
}

const rapidjson::Document& schema_text(document_t kind)
{
    return kind == document_t::rack ? schema_text() : module_schema_text();
}

/// The schema of `schema`'s members called `token`, or elements; null when it knows none of the name.
const Value* schema_below(const Value& schema, const Value& value, const rapidjson::Pointer::Token& token)
{
    if (value.IsArray())
        return find(schema, "items");
    const Value* others = find(schema, "additionalProperties");
    if (const Value* properties = find(schema, "properties"))
        if (const auto member = properties->FindMember(Value{rapidjson::StringRef(token.name, token.length)});
            member != properties->MemberEnd())
            return &member->value;
    return others != nullptr && others->IsObject() ? others : nullptr;
}

const Value& resolved(const Value& schema)
{
    const Value* reference = find(schema, "$ref");
    return reference == nullptr ? schema : *rapidjson::Pointer{reference->GetString()}.Get(schema_text());
}

std::string expectation(const Value& schema)
{
    const Value* description = find(schema, "description");
    return std::string{"expected "} + (description == nullptr ? "something else" : description->GetString());
}

std::string unknown_member(const Value& schema)
{
    std::string known;
    for (const auto& property : find(schema, "properties")->GetObject())
        known += (known.empty() ? "" : ", ") + std::string{property.name.GetString()};
    return known.empty() ? "unknown member, expected none here" : "unknown member, expected one of " + known;
}

std::string missing_member(const Value& schema, const Value& object)
{
    for (const auto& name : find(schema, "required")->GetArray())
        if (!object.HasMember(name))
            return std::string{"expected a member \""} + name.GetString() + '"';
    return expectation(schema);
}

/// The schema's own words for the mistake that the validator found at `pointer`. The schema has no alternatives, so one
/// walk from both roots leads to the part of it that was broken.
[[noreturn]] void schema_mistake(const rapidjson::Document& document, const rapidjson::Pointer& pointer,
                                 std::string_view keyword, const std::filesystem::path& file, document_t kind)
{
    const Value* schema = &schema_text(kind);
    const Value* value = &document;
    for (std::size_t at = 0; at < pointer.GetTokenCount(); ++at) {
        const rapidjson::Pointer::Token& token = pointer.GetTokens()[at];
        const Value* below = schema_below(*schema, *value, token);
        if (below == nullptr)
            mistake(file, to_text(pointer), unknown_member(*schema));
        schema = &resolved(*below);
        value = rapidjson::Pointer{&token, 1}.Get(*value);
    }
    mistake(file, to_text(pointer),
            keyword == "required" && value->IsObject() ? missing_member(*schema, *value) : expectation(*schema));
}

void check_schema(const rapidjson::Document& document, const std::filesystem::path& file, document_t kind)
{
    static const rapidjson::SchemaDocument rack_rules{schema_text(document_t::rack)};
    static const rapidjson::SchemaDocument module_rules{schema_text(document_t::module)};
    rapidjson::SchemaValidator validator{kind == document_t::rack ? rack_rules : module_rules};
    if (!document.Accept(validator))
        schema_mistake(document, validator.GetInvalidDocumentPointer(), validator.GetInvalidSchemaKeyword(), file,
                       kind);
}

} // namespace

const Value* find(const Value& object, const char* name)
{
    const auto member = object.FindMember(name);
    return member == object.MemberEnd() ? nullptr : &member->value;
}

rapidjson::Document read_document(std::string_view text, const std::filesystem::path& file, document_t kind)
{
    constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
    if (text.starts_with(byte_order_mark))
        text.remove_prefix(byte_order_mark.size());
    if (text.empty())
        mistake(file, "", "empty, " + expectation(schema_text(kind)));
    // Deliberate: to the parser a NUL byte is the end of the text, whatever follows.
    if (const std::size_t nul = text.find('\0'); nul != std::string_view::npos)
        mistake(file, line_and_column(text, nul), "expected text, not a NUL byte");

    constexpr unsigned flags =
        rapidjson::kParseIterativeFlag | rapidjson::kParseNumbersAsStringsFlag | rapidjson::kParseValidateEncodingFlag;
    rapidjson::MemoryStream stream{text.data(), text.size()};
    rapidjson::Reader reader;
    rapidjson::Document document;
    document_builder builder{document};
    const auto parse = [&](rapidjson::Document&) { return !reader.Parse<flags>(stream, builder).IsError(); };
    document.Populate(parse);
    if (builder.mistake_found())
        mistake(file, "", *builder.mistake_found());
    if (reader.HasParseError()) {
        const std::size_t offset = reader.GetErrorOffset();
        mistake(file, line_and_column(text, offset),
                "not JSON: " + syntax_error(reader.GetParseErrorCode(), text, offset));
    }
    check_schema(document, file, kind);
    return document;
}

} // namespace ivra::virtual_platform
