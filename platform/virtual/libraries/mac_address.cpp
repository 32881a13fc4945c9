#include "libraries/call.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

using namespace ivra::virtual_platform;

namespace {

constexpr std::size_t text_length = 17; // 00:11:22:aa:bb:cc

std::uint8_t digit_of(char character)
{
    if (character >= '0' && character <= '9')
        return static_cast<std::uint8_t>(character - '0');
    if (character >= 'a' && character <= 'f')
        return static_cast<std::uint8_t>(character - 'a' + 10);
    if (character >= 'A' && character <= 'F')
        return static_cast<std::uint8_t>(character - 'A' + 10);
    throw failure{EINVAL};
}

std::span<const std::byte> shown(const ivra_mac_address* address)
{
    return address == nullptr ? std::span<const std::byte>{} : bytes_of(address->bytes, sizeof address->bytes);
}

} // namespace

int ivra_parse_mac_address(const char* text, ivra_mac_address* address)
{
    call c{__func__};
    return c.with(text).status([&] {
        require(text != nullptr && address != nullptr);
        const std::string_view digits = text;
        require(digits.size() == text_length);
        ivra_mac_address parsed{};
        for (std::size_t i = 0; i < std::size(parsed.bytes); ++i) {
            require(i == 0 || digits[3 * i - 1] == ':');
            parsed.bytes[i] = static_cast<std::uint8_t>(digit_of(digits[3 * i]) << 4 | digit_of(digits[3 * i + 1]));
        }
        c.store(address, parsed);
    });
}

int ivra_print_mac_address(const ivra_mac_address* address, char* buffer, std::size_t size)
{
    call c{__func__};
    return c.with(shown(address), size).count([&] {
        require(address != nullptr);
        const auto& b = address->bytes;
        std::array<char, text_length + 1> text{};
        std::snprintf(text.data(), text.size(), "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3], b[4], b[5]);
        return c.print_text(text.data(), buffer, size);
    });
}

std::uint64_t ivra_mac_address_to_int(const ivra_mac_address* address)
{
    call c{__func__};
    return c.with(shown(address)).number([&] {
        require(address != nullptr);
        std::uint64_t value = 0;
        for (const std::uint8_t byte : address->bytes)
            value = value << 8 | byte;
        return value;
    });
}

int ivra_mac_address_from_int(std::uint64_t value, ivra_mac_address* address)
{
    call c{__func__};
    return c.with(hexadecimal_t{value}).status([&] {
        require(address != nullptr);
        require(value >> 48 == 0, ERANGE);
        ivra_mac_address result{};
        for (std::size_t i = 0; i < std::size(result.bytes); ++i)
            result.bytes[i] = static_cast<std::uint8_t>(value >> (40 - 8 * i) & 0xFF);
        c.store(address, result);
    });
}
