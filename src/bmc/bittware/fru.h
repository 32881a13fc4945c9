#ifndef IVRA_BMC_BITTWARE_FRU_H
#define IVRA_BMC_BITTWARE_FRU_H

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace ivra::bsp::bmc::bittware {

// The board's serial number stands in the board information area of its FRU inventory (IPMI Platform Management FRU
// Information Storage Definition 1.0, sections 8 and 11). It takes three reads, each planned by the one before:
//
//     header = read(fru_common_header)
//     place  = find_board_area_start(header)         start = read(place)
//     place  = find_board_area_rest(place, start)    rest  = read(place)
//     serial = decode_board_serial(start, rest)
//
// where read() is an exchange of encode_read_fru_data() and decode_fru_data().

/// Read FRU Data (IPMI 2.0, table 34-3): storage net function.
inline constexpr std::uint8_t read_fru_data_netfn = 0x0A;
inline constexpr std::uint8_t read_fru_data_command = 0x11;

/// A piece of the FRU that one request can ask for, in bytes.
struct fru_range_t
{
    std::uint16_t offset;
    std::uint8_t count;
};

/// What to read first.
inline constexpr fru_range_t fru_common_header{.offset = 0, .count = 8};

/// Data of a Read FRU Data request to FRU device 0.
std::array<std::uint8_t, 4> encode_read_fru_data(fru_range_t range);

/// The bytes in the reply to a request for `count` bytes: that many or more, part of `data`. Throws std::runtime_error
/// when the completion code is not 0, or there are fewer bytes or fewer announced than were asked for.
std::span<const std::uint8_t> decode_fru_data(std::uint8_t completion_code, std::span<const std::uint8_t> data,
                                              std::uint8_t count);

// Each of these takes what was read from a planned range, uses as many of its bytes as were asked for, and throws
// std::runtime_error when there are fewer.

/// Finds the first 6 bytes of the board area. Throws when the header's sum is wrong or there is no such area.
fru_range_t find_board_area_start(std::span<const std::uint8_t> common_header);

/// Finds what follows the first 6 bytes, at most 250 bytes. `place` is where they were read. Throws when the area is
/// longer than its first 6 bytes and one more read, or empty.
fru_range_t find_board_area_rest(fru_range_t place, std::span<const std::uint8_t> start);

/// Serial number in a board area, every byte of it. Throws when the area's sum is wrong, a field of it runs past its
/// end, or it has no serial number.
std::string decode_board_serial(std::span<const std::uint8_t> start, std::span<const std::uint8_t> rest);

} // namespace ivra::bsp::bmc::bittware

#endif
