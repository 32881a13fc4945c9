#include "text/text.h"

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cmath>
#include <codecvt>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <locale>
#include <new>
#include <stdexcept>

namespace ivra::bsp {

namespace {

/// Only makes the facet's destructor public, so that a converter can own it.
template <class Facet>
struct deletable_facet : Facet
{
    using Facet::Facet;
    ~deletable_facet() override = default;
};

constexpr bool is_continuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

/// Nearly every character of a report: a byte that needs no second look.
constexpr bool is_plain_character(char c)
{
    return c >= ' ' && c <= '~';
}

/// Whether the eight bytes there are such.
bool are_eight_plain(const char* bytes)
{
    constexpr std::uint64_t each = 0x0101'0101'0101'0101; // times a byte: eight of it
    std::uint64_t eight = 0;
    std::memcpy(&eight, bytes, sizeof eight);
    // The highest bit of a byte is set of what is less than a space when that is taken away, of what is more than a
    // tilde when 1 is added, and beyond ASCII of one of both. (Only a byte that is found itself carries into another
    // one.)
    return (((eight - each * ' ') | (eight + each)) & each * 0x80) == 0;
}

/// How many of these `s` begins with.
std::size_t plain_length(std::string_view s)
{
    std::size_t length = 0;
    while (s.size() - length >= 8 && are_eight_plain(s.data() + length))
        length += 8;
    while (length < s.size() && is_plain_character(s[length]))
        ++length;
    return length;
}

/// Length of the UTF-8 sequence with which `s`, not empty, begins (Unicode, table 3-7); 0 when it is not a valid one.
std::size_t sequence_length(std::string_view s)
{
    const auto first = static_cast<unsigned char>(s[0]);
    if (first < 0x80)
        return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || s.size() < length)
        return 0;
    for (std::size_t i = 1; i < length; ++i)
        if (!is_continuation(s[i]))
            return 0;
    const auto second = static_cast<unsigned char>(s[1]);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool surrogate = first == 0xED && second > 0x9F;
    const bool beyond_unicode = first == 0xF4 && second > 0x8F;
    return overlong || surrogate || beyond_unicode ? 0 : length;
}

/// What a valid sequence encodes; a byte that is none stands for itself, as on terminals without UTF-8.
char32_t code_point(std::string_view sequence)
{
    const std::size_t marker_bits = sequence.size() == 1 ? 0 : sequence.size() + 1; // of the first byte
    char32_t code = static_cast<unsigned char>(sequence[0]) & (0xFFU >> marker_bits);
    for (const char c : sequence.substr(1))
        code = code << 6U | (static_cast<unsigned char>(c) & 0x3FU);
    return code;
}

struct code_range_t
{
    char32_t first;
    char32_t last;
};

// What a screen acts on, or turns other text around with, or does not show at all.
// clang-format off
constexpr code_range_t hidden[] = {
    {0x0001, 0x001F}, {0x007F, 0x009F}, // control characters
    {0x200B, 0x200F},                   // zero width, marks of direction
    {0x2028, 0x202E},                   // separators of lines and paragraphs, embedding and override of direction
    {0x2060, 0x2069},                   // joiners and operators that are not seen, isolation of direction
    {0xFEFF, 0xFEFF},                   // byte order mark
};
// clang-format on

bool is_hidden(char32_t code)
{
    return std::any_of(std::begin(hidden), std::end(hidden),
                       [code](const code_range_t& range) { return code >= range.first && code <= range.last; });
}

} // namespace

std::size_t strlen_utf8(std::string_view s)
{
    if (is_plain(s))
        return s.size();
    using facet = deletable_facet<std::codecvt<char32_t, char, std::mbstate_t>>;
    std::wstring_convert<facet, char32_t> converter;
    const std::size_t length = converter.from_bytes(s.data(), s.data() + s.size()).size();
    if (converter.converted() != s.size()) // it stops silently at a sequence that the end cuts off
        throw std::range_error{"Incomplete UTF-8 sequence"};
    return length;
}

bool is_plain(std::string_view s)
{
    return plain_length(s) == s.size();
}

std::string printable(std::string_view s)
{
    std::string text;
    append_printable(text, s);
    return text;
}

void append_printable(std::string& text, std::string_view s)
{
    for (;;) {
        const std::size_t plain = plain_length(s);
        text.append(s.data(), plain);
        s.remove_prefix(plain);
        if (s.empty())
            return;
        const std::string_view sequence = s.substr(0, std::max<std::size_t>(sequence_length(s), 1));
        text += is_hidden(code_point(sequence)) ? "?" : sequence;
        s.remove_prefix(sequence.size());
    }
}

std::string valid_utf8(std::string_view s)
{
    std::string text;
    text.reserve(s.size());
    while (!s.empty()) {
        const std::size_t length = sequence_length(s);
        text += length == 0 ? std::string_view{"\uFFFD"} : s.substr(0, length);
        s.remove_prefix(length == 0 ? 1 : length);
    }
    return text;
}

std::optional<std::uint32_t> to_index(const std::string& selector)
{
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(selector.c_str(), &end, 0);
    const bool is_whole = end != selector.c_str() && end == selector.c_str() + selector.size();
    return is_whole && errno == 0 ? std::optional{static_cast<std::uint32_t>(number)} : std::nullopt;
}

std::string fixed(double value, std::size_t decimals)
{
    constexpr std::size_t most = std::numeric_limits<double>::max_exponent10 + 4; // sign, digits, point, end
    static const ::locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    std::string text(most + decimals, '\0');
    const ::locale_t before = ::uselocale(plain); // a platform library may have set one with a decimal comma
    const int length =
        std::snprintf(text.data(), text.size(), "%.*f", static_cast<int>(decimals), without_nan_sign(value));
    ::uselocale(before);
    if (length < 0)
        throw std::bad_alloc{};
    return text.substr(0, static_cast<std::size_t>(length));
}

double without_nan_sign(double value)
{
    return std::isnan(value) ? std::abs(value) : value;
}

} // namespace ivra::bsp
