#ifndef IVRA_VIRTUAL_NODE_H
#define IVRA_VIRTUAL_NODE_H

#include "document.h"
#include "json/document.h"

#include <rapidjson/document.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace ivra::virtual_platform {

/// A value of the document together with where it stands, so that what is wrong with it can be said. The schema has
/// been checked: a value is of a type that the schema allows in its place.
struct node_t
{
    const rapidjson::Value& value;
    std::string pointer;
    const std::filesystem::path& file;

    std::optional<node_t> member(const char* name) const
    {
        const rapidjson::Value* found = find(value, name);
        return found == nullptr ? std::nullopt : std::optional<node_t>{{*found, pointer + '/' + name, file}};
    }

    node_t required(const char* name) const { return *member(name); }

    node_t element(std::size_t index) const
    {
        return {value[static_cast<rapidjson::SizeType>(index)], pointer + '/' + std::to_string(index), file};
    }

    std::size_t size() const { return value.Size(); }
    std::string_view text() const { return {value.GetString(), value.GetStringLength()}; }

    /// A text that the schema has a pattern for. Deliberate: to RapidJSON's patterns a text ends at NUL.
    std::string_view patterned_text() const
    {
        if (text().find('\0') != std::string_view::npos)
            expected("a text without NUL");
        return text();
    }

    [[noreturn]] void expected(const std::string& what) const { mistake(file, pointer, "expected " + what); }
};

/// Consecutive MAC addresses, none beyond ff:ff:ff:ff:ff:ff.
struct mac_range_t
{
    std::array<std::uint8_t, 6> first;
    unsigned count;
};

// Values of the schema's definitions. Each throws file_error for what the schema cannot see.

std::uint64_t read_number(const node_t& node);
/// "1.5 s"; nothing for "never". What is finer than a nanosecond is dropped.
std::optional<std::chrono::nanoseconds> read_duration(const node_t& node);
std::string read_text(const node_t& node);
std::string read_hex(const node_t& node);
std::optional<std::string> read_name(const node_t& node);
std::array<std::uint8_t, 6> read_mac_address(const node_t& node);
/// The members "first" and "count".
mac_range_t read_mac_range(const node_t& node);

} // namespace ivra::virtual_platform

#endif
