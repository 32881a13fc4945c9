#include "json/text.h"

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <system_error>

namespace ivra::virtual_platform {

namespace {

/// One way to begin a character: first bytes from...to, bytes in all, and the range of the second one.
struct utf8_row_t
{
    std::uint8_t first, last, length, second_first, second_last;
};

// clang-format off
constexpr utf8_row_t utf8_rows[] = {
    {0x00, 0x7f, 1, 0x00, 0x00},
    {0xc2, 0xdf, 2, 0x80, 0xbf},
    {0xe0, 0xe0, 3, 0xa0, 0xbf}, // shorter forms exist below
    {0xe1, 0xec, 3, 0x80, 0xbf},
    {0xed, 0xed, 3, 0x80, 0x9f}, // surrogates above
    {0xee, 0xef, 3, 0x80, 0xbf},
    {0xf0, 0xf0, 4, 0x90, 0xbf},
    {0xf1, 0xf3, 4, 0x80, 0xbf},
    {0xf4, 0xf4, 4, 0x80, 0x8f}, // nothing beyond U+10FFFF
};
// clang-format on

/// Bytes of the character at the start of `text`, which is not empty; 0 when there is none.
std::size_t character_length(std::string_view text)
{
    const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(text[at]); };
    for (const auto& row : utf8_rows) {
        if (byte(0) < row.first || byte(0) > row.last)
            continue;
        if (text.size() < row.length)
            return 0;
        if (row.length > 1 && (byte(1) < row.second_first || byte(1) > row.second_last))
            return 0;
        for (std::size_t at = 2; at < row.length; ++at)
            if (byte(at) < 0x80 || byte(at) > 0xbf)
                return 0;
        return row.length;
    }
    return 0;
}

bool is_control(std::string_view character)
{
    const auto first = static_cast<std::uint8_t>(character[0]);
    return first < 0x20 || first == 0x7f || (first == 0xc2 && static_cast<std::uint8_t>(character[1]) < 0xa0);
}

} // namespace

std::string hex_pair(std::uint8_t byte)
{
    constexpr std::string_view digits = "0123456789abcdef";
    return {digits[byte >> 4U], digits[byte & 0xfU]};
}

std::string printable(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        const std::string_view character = text.substr(0, length == 0 ? 1 : length);
        if (length != 0 && !is_control(character)) {
            result += character;
        } else {
            for (const char byte : character)
                result += "\\x" + hex_pair(static_cast<std::uint8_t>(byte));
        }
        text.remove_prefix(character.size());
    }
    return result;
}

bool is_utf8(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::uint64_t parse_digits(std::string_view digits, int base)
{
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    return error == std::errc{} ? value : UINT64_MAX;
}

std::string pointer_token(std::string_view name)
{
    std::string token;
    for (const char c : name)
        token += c == '~' ? "~0" : c == '/' ? "~1" : std::string{c};
    return token;
}

std::string hex_text(std::uint64_t value)
{
    char digits[16];
    return "0x" + std::string{digits, std::to_chars(std::begin(digits), std::end(digits), value, 16).ptr};
}

std::uint64_t hash(std::string_view text)
{
    std::uint64_t value = 0xcbf29ce484222325;
    for (const char character : text)
        value = (value ^ static_cast<unsigned char>(character)) * 0x100000001b3;
    return value;
}

std::string size_text(std::uint64_t bytes)
{
    struct unit_t
    {
        const char* name;
        unsigned shift;
    };
    static constexpr unit_t units[] = {{" GiB", 30}, {" MiB", 20}, {" KiB", 10}};
    for (const unit_t& unit : units)
        if (bytes != 0 && (bytes >> unit.shift) << unit.shift == bytes && bytes >> unit.shift < 10000)
            return std::to_string(bytes >> unit.shift) + unit.name;
    return hex_text(bytes);
}

std::string short_number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

std::string duration_text(std::chrono::nanoseconds duration)
{
    struct unit_t
    {
        const char* name;
        std::int64_t nanoseconds;
    };
    static constexpr unit_t units[] = {{" s", 1'000'000'000}, {" ms", 1'000'000}, {" us", 1'000}};
    const std::int64_t count = duration.count();
    const unit_t* unit = std::begin(units);
    while (count != 0 && count < unit->nanoseconds && unit + 1 != std::end(units))
        ++unit;
    std::string text = std::to_string(count / unit->nanoseconds);
    std::string fraction = std::to_string(unit->nanoseconds + count % unit->nanoseconds).substr(1);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return text + (fraction.empty() ? "" : "." + fraction) + unit->name;
}

std::string mac_address_text(const std::array<std::uint8_t, 6>& address)
{
    std::string text;
    for (const std::uint8_t byte : address)
        text += (text.empty() ? "" : ":") + hex_pair(byte);
    return text;
}

std::string serial_text(const std::array<std::uint32_t, 3>& serial)
{
    char digits[25];
    std::snprintf(digits, sizeof digits, "%08x%08x%08x", serial[2], serial[1], serial[0]);
    return digits;
}

} // namespace ivra::virtual_platform
