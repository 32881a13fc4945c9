#ifndef IVRA_VIRTUAL_JSON_TEXT_H
#define IVRA_VIRTUAL_JSON_TEXT_H

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace ivra::virtual_platform {

/// `text` for a screen, on one line: control characters and bytes that are not UTF-8 as "\x1b", anything else
/// unchanged.
std::string printable(std::string_view text);

/// Whether `text` is UTF-8, which JSON strings have to be.
bool is_utf8(std::string_view text);

/// A number that tells texts apart, in any process the same: FNV-1a, 64 bits.
std::uint64_t hash(std::string_view text);

/// A number of bytes as people write it: "64 KiB", or hexadecimal when no unit fits.
std::string size_text(std::uint64_t bytes);
/// "13.23", of at most six digits.
std::string short_number(double value);
/// "1.5 s"
std::string duration_text(std::chrono::nanoseconds duration);
/// "02:00:00:00:10:00"
std::string mac_address_text(const std::array<std::uint8_t, 6>& address);
/// 24 hexadecimal digits, most significant first.
std::string serial_text(const std::array<std::uint32_t, 3>& serial);
/// A number of digits of `base`, and nothing but; saturates.
std::uint64_t parse_digits(std::string_view digits, int base);
/// A member's name as a part of a JSON pointer.
std::string pointer_token(std::string_view name);
/// "0f"
std::string hex_pair(std::uint8_t byte);
/// "0x1002000"
std::string hex_text(std::uint64_t value);

} // namespace ivra::virtual_platform

#endif
