#ifndef IVRA_TESTS_SUPPORT_SENSOR_REPLY_H
#define IVRA_TESTS_SUPPORT_SENSOR_REPLY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

namespace ivra::tests {

using bytes_t = std::vector<std::uint8_t>;

/// Reply to Get Device SDR: the record that follows, and 64 bytes of a full sensor record, with offsets as the standard
/// counts them. As it begins it is unsigned, linear, M 1, all else 0, and has no name.
class sensor_reply_t
{
public:
    sensor_reply_t() : bytes_(66)
    {
        set(3, 0x01);
        scale(1, 0, 0, 0);
    }

    sensor_reply_t& set(std::size_t offset, unsigned byte)
    {
        bytes_.at(2 + offset) = static_cast<std::uint8_t>(byte);
        return *this;
    }

    sensor_reply_t& scale(int m, int b, int r_exponent, int b_exponent)
    {
        const auto bits = [](int value, unsigned mask) { return static_cast<unsigned>(value) & mask; };
        set(24, bits(m, 0xFF));
        set(25, bits(m, 0x300) >> 2);
        set(26, bits(b, 0xFF));
        set(27, bits(b, 0x300) >> 2);
        return set(29, bits(r_exponent, 0xF) << 4 | bits(b_exponent, 0xF));
    }

    /// At most 16 bytes.
    sensor_reply_t& name(const std::string& text)
    {
        for (std::size_t i = 0; i < text.size(); ++i)
            set(48 + i, static_cast<std::uint8_t>(text[i]));
        return set(47, 0xC0U | static_cast<unsigned>(text.size()));
    }

    const bytes_t& bytes() const { return bytes_; }

    /// The record alone.
    bytes_t record() const { return {bytes_.begin() + 2, bytes_.end()}; }

private:
    bytes_t bytes_;
};

/// Two digits a byte.
inline std::string to_hex(const bytes_t& bytes)
{
    std::ostringstream text;
    text << std::hex << std::setfill('0');
    for (const std::uint8_t byte : bytes)
        text << std::setw(2) << unsigned{byte};
    return text.str();
}

} // namespace ivra::tests

#endif
