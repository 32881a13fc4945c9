#include "bmc/bittware/fru.h"

#include <cstddef>
#include <numeric>
#include <stdexcept>
#include <vector>

namespace ivra::bsp::bmc::bittware {

namespace {

// clang-format off
constexpr std::uint8_t fru_device = 0;

constexpr std::size_t area_unit = 8; // offsets and lengths of areas are counted in it

constexpr std::size_t header_board_area = 3; // byte of the common header: offset of the board area, 0: there is none

constexpr std::uint8_t area_start_size = 6;  // format version, length, language, three bytes of date
constexpr std::size_t  area_length     = 1;  // byte of the board area: its length

constexpr std::size_t  max_area_length = area_start_size + 255; // the rest fits a single read

constexpr std::uint8_t end_of_fields     = 0xC1;
constexpr std::uint8_t field_length_mask = 0x3F;
constexpr std::size_t  serial_field      = 2; // after manufacturer and product name
// clang-format on

[[noreturn]] void throw_short()
{
    throw std::runtime_error{"Read less FRU data than expected"};
}

/// The `count` bytes that were asked for; there may be more of them.
std::span<const std::uint8_t> asked_for(std::span<const std::uint8_t> bytes, std::size_t count)
{
    if (bytes.size() < count)
        throw_short();
    return bytes.first(count);
}

/// Sum of bytes modulo 256. What has a checksum adds up to 0.
std::uint8_t sum(std::span<const std::uint8_t> bytes, std::uint8_t start = 0)
{
    return static_cast<std::uint8_t>(std::accumulate(bytes.begin(), bytes.end(), std::size_t{start}));
}

[[noreturn]] void throw_incomplete()
{
    throw std::runtime_error{"BMC FRU board info area incomplete"};
}

/// Length of the board area, at least `area_unit`.
std::size_t get_board_area_length(std::span<const std::uint8_t> start)
{
    const std::size_t length = area_unit * asked_for(start, area_start_size)[area_length];
    if (length > max_area_length)
        throw std::runtime_error{"BMC FRU board info area size too big"};
    if (length == 0)
        throw_incomplete();
    return length;
}

/// The fields of variable length. Their list ends with its mark, or with the area.
std::vector<std::span<const std::uint8_t>> decode_fields(std::span<const std::uint8_t> area)
{
    std::vector<std::span<const std::uint8_t>> fields;
    while (!area.empty() && area.front() != end_of_fields) {
        // Deliberate: the type of a field, bits 7..6, is not looked at; a packed text stays packed.
        const std::size_t length = area.front() & field_length_mask;
        area = area.subspan(1);
        if (length > area.size())
            throw std::runtime_error{"Error parsing FRU variable length field"};
        fields.push_back(area.first(length));
        area = area.subspan(length);
    }
    return fields;
}

} // namespace

std::array<std::uint8_t, 4> encode_read_fru_data(fru_range_t range)
{
    return {fru_device, static_cast<std::uint8_t>(range.offset & 0xFFU), static_cast<std::uint8_t>(range.offset >> 8),
            range.count};
}

std::span<const std::uint8_t> decode_fru_data(std::uint8_t completion_code, std::span<const std::uint8_t> data,
                                              std::uint8_t count)
{
    if (completion_code != 0)
        throw std::runtime_error{"Error reading FRU data. Response code: " + std::to_string(completion_code)};
    if (data.size() < std::size_t{1} + count || data.front() < count)
        throw_short();
    return data.subspan(1); // Deliberate: all that came, even if it is more than was asked for or announced
}

fru_range_t find_board_area_start(std::span<const std::uint8_t> common_header)
{
    common_header = asked_for(common_header, fru_common_header.count);
    if (sum(common_header) != 0)
        throw std::runtime_error{"FRU common header checksum failed"};
    if (common_header[header_board_area] == 0)
        throw std::runtime_error{"FRU board info area is not present"};
    return {.offset = static_cast<std::uint16_t>(area_unit * common_header[header_board_area]),
            .count = area_start_size};
}

fru_range_t find_board_area_rest(fru_range_t place, std::span<const std::uint8_t> start)
{
    return {.offset = static_cast<std::uint16_t>(place.offset + area_start_size),
            .count = static_cast<std::uint8_t>(get_board_area_length(start) - area_start_size)};
}

std::string decode_board_serial(std::span<const std::uint8_t> start, std::span<const std::uint8_t> rest)
{
    const std::size_t length = get_board_area_length(start);
    rest = asked_for(rest, length - area_start_size);
    if (sum(rest, sum(start.first(area_start_size))) != 0)
        throw std::runtime_error{"FRU board area info checksum failed"};
    const auto fields = decode_fields(rest);
    if (fields.size() <= serial_field)
        throw_incomplete();
    return {fields[serial_field].begin(), fields[serial_field].end()};
}

} // namespace ivra::bsp::bmc::bittware
