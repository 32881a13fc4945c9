#ifndef IVRA_VIRTUAL_JSON_CODEC_H
#define IVRA_VIRTUAL_JSON_CODEC_H

#include "json/node.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

/// How a value of C++ stands in a document. A codec has
///   sentence()         what is expected, for people: "a number of MMIO spaces, 0 to 16"
///   read(node, value)  sets the value, or notes a mistake
///   write(value)       the other way
///   schema()           the rule as JSON Schema (draft 4), with the sentence as its description
namespace ivra::virtual_platform::json::codec {

/// A schema that says what is expected and of which type it is, and what else it says.
value_t schema_of(const std::string& sentence, std::initializer_list<const char*> types, object_t rest = {});

/// "a, b or c"
std::string enumeration(const std::vector<std::string_view>& words);

/// The bytes that pairs of hexadecimal digits stand for; nothing when there is anything else.
std::optional<std::string> hex_bytes(std::string_view digits);

// ---- numbers ----

struct flag_t
{
    static std::string sentence() { return "true or false"; }
    static void read(const node_t& node, bool& value);
    static value_t write(bool value) { return {value}; }
    static value_t schema() { return schema_of(sentence(), {"boolean"}); }
};
inline constexpr flag_t flag;

/// A whole number within bounds, both included.
struct whole
{
    const char* what;
    std::int64_t lowest;
    std::uint64_t highest;

    std::string sentence() const;
    bool read_wide(const node_t& node, std::int64_t& value) const; ///< the bits of the number
    template <class T>
    void read(const node_t& node, T& value) const
    {
        std::int64_t number = 0;
        if (read_wide(node, number))
            value = static_cast<T>(number);
    }
    template <class T>
    static value_t write(T value)
    {
        if (value < T{})
            return {static_cast<std::int64_t>(value)};
        return {static_cast<std::uint64_t>(value)};
    }
    value_t schema() const;
};

/// Any number; `what` is "a number of degrees Celsius".
struct real
{
    const char* what;

    std::string sentence() const { return what; }
    void read(const node_t& node, double& value) const;
    static value_t write(double value) { return {value}; }
    value_t schema() const { return schema_of(sentence(), {"number"}); }
};

/// A whole number of so many bits, also in hexadecimal: 33 or "0x21". Written with so many digits, 0: as a number.
struct code
{
    const char* what;
    unsigned bits;
    unsigned written_digits = 1;

    std::string sentence() const { return what; }
    bool read_wide(const node_t& node, std::uint64_t& value) const;
    template <class T>
    void read(const node_t& node, T& value) const
    {
        std::uint64_t number = 0;
        if (read_wide(node, number))
            value = static_cast<T>(number);
    }
    value_t write(std::uint64_t value) const;
    value_t schema() const;
};
inline constexpr code byte{"a number from 0 to 255, such as 33 or \"0x21\"", 8, 2};
inline constexpr code word{"a 32-bit number such as 475 or \"0x1db\"", 32};

/// A number of bytes, at most 2^63 - 1 in a number and 2^64 - 1 in a text.
struct size_t_
{
    static std::string sentence() { return R"(a number of bytes such as 4096, "0x1000", "64 KiB" or "128 MiB")"; }
    static void read(const node_t& node, std::uint64_t& value);
    static value_t write(std::uint64_t value);
    static value_t schema();
};
inline constexpr size_t_ size;
/// The same, written as an address.
struct address_t : size_t_
{
    static value_t write(std::uint64_t value);
};
inline constexpr address_t address;

using duration_t = std::optional<std::chrono::nanoseconds>; ///< nothing: never

/// A time, or "never". What is finer than a nanosecond is dropped.
struct duration_codec
{
    static std::string sentence() { return R"(a time such as "1.5 s", "30 ms" or "50 us", or "never")"; }
    static void read(const node_t& node, duration_t& value);
    static value_t write(const duration_t& value);
    static value_t schema();
};
inline constexpr duration_codec duration;

// ---- texts ----

/// A text of at most so many bytes; any bytes as { "hex": "ff41" }.
struct text
{
    std::size_t most;

    std::string sentence() const;
    void read(const node_t& node, std::string& value) const;
    static value_t write(const std::string& value);
    value_t schema() const;
};
inline constexpr text long_text{4096};

/// A text of any length that stands for nothing here.
struct plain_text
{
    const char* what;

    std::string sentence() const { return what; }
    void read(const node_t& node, std::string& value) const;
    static value_t write(const std::string& value) { return {value}; }
    value_t schema() const { return schema_of(what, {"string"}); }
};

/// At most so many bytes as pairs of hexadecimal digits.
struct hex
{
    std::size_t most;
    const char* purpose = "";

    std::string sentence() const;
    void read(const node_t& node, std::string& value) const;
    static value_t write(const std::string& value);
    value_t schema() const;
};

/// So many hexadecimal digits that stand for something, or a MAC address.
struct serial_codec
{
    static std::string sentence() { return "24 hexadecimal digits, most significant first"; }
    static void read(const node_t& node, std::array<std::uint32_t, 3>& value);
    static value_t write(const std::array<std::uint32_t, 3>& value);
    static value_t schema();
};
inline constexpr serial_codec fpga_serial;

using mac_t = std::array<std::uint8_t, 6>;
struct mac_codec
{
    static std::string sentence() { return "a MAC address such as 02:00:00:00:10:00"; }
    static void read(const node_t& node, mac_t& value);
    static value_t write(const mac_t& value);
    static value_t schema();
};
inline constexpr mac_codec mac_address;

/// How many addresses there are from this one on: they end at ff:ff:ff:ff:ff:ff.
std::uint64_t addresses_from(const mac_t& first);
/// What is expected of a count that is larger.
std::string too_many_addresses(std::uint64_t room);

/// A name and what it stands for.
template <class T>
struct name_t
{
    std::string_view name;
    T value;
};

/// One of some names; with bits also a number of so many, in hexadecimal if it is written so.
template <class T>
struct names
{
    std::span<const name_t<T>> rows;
    const char* what = ""; ///< "a unit"; when it is empty, the names alone are what is expected
    unsigned bits = 0;
    bool hexadecimal = false;

    std::string sentence() const
    {
        std::vector<std::string_view> words;
        for (const auto& row : rows)
            words.push_back(row.name);
        const std::string list = enumeration(words);
        std::string known = *what == '\0' ? list : std::string{what} + " (" + list + ")";
        if (bits == 0)
            return known;
        return hexadecimal ? known + ", or the byte that it says, such as \"0x04\"" : known + ", or its code, 0 to 255";
    }
    void read(const node_t& node, T& value) const
    {
        if (const auto* text = node.as<std::string>()) {
            const auto row = std::ranges::find(rows, std::string_view{*text}, &name_t<T>::name);
            if (row != rows.end()) {
                value = row->value;
                return;
            }
        }
        const bool may_be_number = bits != 0 && (hexadecimal || node.as<std::string>() == nullptr);
        std::uint64_t number = 0;
        if (!may_be_number)
            return node.expected(sentence());
        if constexpr (std::is_integral_v<T>) {
            const std::string expectation = sentence();
            if (code{expectation.c_str(), bits}.read_wide(node, number))
                value = static_cast<T>(number);
        }
    }
    value_t write(const T& value) const
    {
        for (const auto& row : rows)
            if (row.value == value)
                return {std::string{row.name}};
        if constexpr (std::is_convertible_v<T, std::uint64_t>)
            return code{"", bits, hexadecimal ? 2U : 0U}.write(static_cast<std::uint64_t>(value));
        return {};
    }
    value_t schema() const
    {
        if (bits == 0) {
            list_t list;
            for (const auto& row : rows)
                list.push_back({std::string{row.name}});
            return {object_t{{"description", {sentence()}}, {"enum", {list}}}};
        }
        std::string pattern;
        for (const auto& row : rows)
            pattern += (pattern.empty() ? "^(" : "|") + std::string{row.name};
        pattern += hexadecimal ? "|0x[0-9a-fA-F]{1,2})$" : ")$";
        return schema_of(
            sentence(), {"string", "integer"},
            {{"minimum", {std::uint64_t{0}}}, {"maximum", {(std::uint64_t{1} << bits) - 1}}, {"pattern", {pattern}}});
    }
};

// ---- what is made of others ----

/// The schema with one more type, and another sentence.
value_t widened(value_t schema, const std::string& sentence, const char* type);
/// A schema of what `schema` or a schema of lists allows.
value_t or_list(value_t schema, const std::string& sentence, const value_t& list);

/// null, or what `codec` says. Into an optional null is nothing; any other value stays as it is.
template <class Codec>
struct or_null
{
    Codec codec;
    const char* meaning = ""; ///< "no name"

    std::string sentence() const
    {
        return codec.sentence() + ", or null" + (*meaning == '\0' ? "" : " for " + std::string{meaning});
    }
    template <class T>
    void read(const node_t& node, std::optional<T>& value) const
    {
        if (node.value().is_null()) {
            value.reset();
        } else {
            T read_value = value.value_or(T{});
            read_other(node, read_value);
            value = std::move(read_value);
        }
    }
    template <class T>
    void read(const node_t& node, T& value) const
    {
        if (!node.value().is_null())
            read_other(node, value);
    }
    template <class T>
    value_t write(const std::optional<T>& value) const
    {
        return value ? codec.write(*value) : value_t{};
    }
    template <class T>
    value_t write(const T& value) const
    {
        return codec.write(value);
    }
    value_t schema() const { return widened(codec.schema(), sentence(), "null"); }

private:
    template <class T>
    void read_other(const node_t& node, T& value) const
    {
        codec.read(node, value);
        if (node.reading().has_mistake())
            node.reading().reword(node.value().place, "expected " + codec.sentence(), "expected " + sentence());
    }
};
template <class Codec>
or_null(Codec) -> or_null<Codec>;
template <class Codec>
or_null(Codec, const char*) -> or_null<Codec>;

/// What `codec` says, into an optional, which is only written when there is something in it.
template <class Codec>
struct given
{
    Codec codec;

    std::string sentence() const { return codec.sentence(); }
    template <class T>
    void read(const node_t& node, std::optional<T>& value) const
    {
        codec.read(node, value.emplace());
    }
    template <class T>
    value_t write(const std::optional<T>& value) const
    {
        return codec.write(*value);
    }
    value_t schema() const { return codec.schema(); }
};

template <class Codec>
given(Codec) -> given<Codec>;

/// A list of `what`, of bounded length.
template <class Codec>
struct list
{
    const char* what; ///< "a list of at most 64 cages, in the board's order"
    Codec codec;
    std::size_t most;
    std::size_t fewest = 0;

    std::string sentence() const { return what; }
    /// A vector becomes the list. Elements that are no number or text begin as `T{}`.
    template <class T>
    void read(const node_t& node, std::vector<T>& values) const
    {
        const auto* elements = checked(node);
        if (elements == nullptr)
            return;
        values.clear();
        values.reserve(elements->size());
        for (std::size_t at = 0; at < elements->size() && !node.reading().is_beyond_mistake((*elements)[at].place);
             ++at)
            codec.read(node.below(*elements, at), values.emplace_back());
    }
    /// Of an array the first elements change.
    template <class T, std::size_t size>
    void read(const node_t& node, std::array<T, size>& values) const
    {
        const auto* elements = checked(node);
        if (elements == nullptr)
            return;
        for (std::size_t at = 0; at < std::min(elements->size(), size); ++at)
            codec.read(node.below(*elements, at), values.at(at));
    }
    template <class Values>
    value_t write(const Values& values) const
    {
        list_t elements;
        for (const auto& value : values)
            elements.push_back(codec.write(value));
        return {std::move(elements)};
    }
    value_t schema() const
    {
        object_t rest{{"maxItems", {std::uint64_t{most}}}, {"items", codec.schema()}};
        if (fewest != 0)
            rest.insert(rest.begin(), {"minItems", {std::uint64_t{fewest}}});
        return schema_of(sentence(), {"array"}, std::move(rest));
    }

private:
    const list_t* checked(const node_t& node) const
    {
        const auto* elements = node.as<list_t>();
        if (elements != nullptr && elements->size() >= fewest && elements->size() <= most)
            return elements;
        node.expected(what);
        return nullptr;
    }
};
template <class Codec>
list(const char*, Codec, std::size_t) -> list<Codec>;
template <class Codec>
list(const char*, Codec, std::size_t, std::size_t) -> list<Codec>;

} // namespace ivra::virtual_platform::json::codec

#endif
