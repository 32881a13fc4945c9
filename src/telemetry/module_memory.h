#ifndef IVRA_TELEMETRY_MODULE_MEMORY_H
#define IVRA_TELEMETRY_MODULE_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {

/// Bytes in the memory of a module. A table of places has the standard's table number in its last column.
struct place_t
{
    std::uint8_t device; ///< two-wire address, 7 bits
    std::uint8_t page;   ///< that byte 127 selects; means nothing below byte 128 and in modules without pages
    std::uint8_t byte;
    std::uint8_t length;

    bool operator==(const place_t&) const = default;
};

inline constexpr std::uint8_t main_memory = 0x50;
inline constexpr std::uint8_t diagnostics_memory = 0x51; // of SFP modules
inline constexpr std::uint8_t first_of_page = 128;

/// Two bytes of a place that holds several numbers.
constexpr place_t number_of(const place_t& place, std::size_t index)
{
    return {place.device, place.page, static_cast<std::uint8_t>(place.byte + 2 * index), 2};
}

/// What became of a transfer: bytes, an error, or neither where the module turned out not to have the page.
struct block_t
{
    place_t place;
    std::vector<std::uint8_t> bytes;
    std::string error;
};

/// What was read of a module, in any order.
using memory_t = std::vector<block_t>;

/// What a memory holds of a place: all of its bytes, or none and why.
struct found_t
{
    std::vector<std::uint8_t> bytes;
    std::string error; ///< empty where the module has no such bytes, or they were not asked for

    explicit operator bool() const { return !bytes.empty(); }
};

/// A transfer of nothing but ones comes from a dead bus, or a module that was pulled, and is an error.
found_t find(const memory_t& memory, const place_t& place);
/// The first byte of a place; nothing when it was not read.
std::optional<unsigned> find_byte(const memory_t& memory, const place_t& place);

/// Takes away pages that are page 00h once more: the module has not selected them, whatever its byte 127 said.
void drop_repeated_pages(memory_t& memory);

} // namespace ivra::bsp::telemetry

#endif
