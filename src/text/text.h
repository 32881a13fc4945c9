#ifndef IVRA_TEXT_TEXT_H
#define IVRA_TEXT_TEXT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ivra::bsp {

/// Number of code points. Throws std::range_error when `s` is not UTF-8.
std::size_t strlen_utf8(std::string_view s);

/// `s` as a screen may show it: each control character (U+0001 to U+001F, U+007F to U+009F) and each one that is
/// invisible or turns text around (U+200B to U+200F, U+2028 to U+202E, U+2060 to U+2069, U+FEFF) is a "?", so that no
/// device can send escape sequences to a terminal or show what it does not say. So is a byte 0x80 to 0x9F that is not
/// part of UTF-8; others of these pass unchanged, as does NUL.
std::string printable(std::string_view s);
/// Appends the same to `text`.
void append_printable(std::string& text, std::string_view s);
/// Whether each byte is a character of ASCII that is seen, or a space: such a text is shown as it is.
bool is_plain(std::string_view s);

/// `s` as a JSON document may hold it: each byte that is not part of valid UTF-8 is U+FFFD.
std::string valid_utf8(std::string_view s);

/// The index that a selector of a board spells in decimal, hexadecimal ("0x") or octal ("0"), cut to 32 bits; nothing
/// when it is a name.
std::optional<std::uint32_t> to_index(const std::string& selector);

/// The number with so many decimals behind a point, whatever the locale; "nan" of what is no number.
std::string fixed(double value, std::size_t decimals);

/// The number; of what is no number, the one without a sign ("nan" when written): the sign differs between machines.
double without_nan_sign(double value);

} // namespace ivra::bsp

#endif
