#ifndef IVRA_BMC_BITTWARE_SDR_H
#define IVRA_BMC_BITTWARE_SDR_H

#include "records/sensors.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ivra::bsp::bmc::bittware {

// A sensor is what its full sensor record says (IPMI 2.0, table 43-1) and its reading. It takes two or three exchanges:
//
//     record  = decode_sensor_record(get_sdr(encode_get_sensor_record(id)))
//     if (record.name.size() < record.name_length)
//         record.name = decode_sensor_name(get_sdr(encode_get_sensor_name(id, record)), record)
//     reading = decode_sensor_reading(get_sensor_reading(encode_get_sensor_reading(record)))
//     sensor  = make_sensor(record, reading)
//
// then the same with record.next_record_id. Each decoder gets the completion code and the data of the reply.

/// Get Device SDR (IPMI 2.0, table 35-3) and Get Sensor Reading (table 35-15): sensor net function.
inline constexpr std::uint8_t sensor_netfn = 0x04;
inline constexpr std::uint8_t get_sdr_command = 0x21;
inline constexpr std::uint8_t get_sensor_reading_command = 0x2D;

inline constexpr std::uint16_t first_record_id = 0x0000;
inline constexpr std::uint16_t no_more_records = 0xFFFF; ///< follows the last record

// clang-format off
/// Offsets in a full sensor record (table 43-1).
namespace sensor_record_field {
inline constexpr std::uint8_t id               =  0; // 2 bytes, least significant first
inline constexpr std::uint8_t type             =  3;
inline constexpr std::uint8_t lun              =  6; // 1..0
inline constexpr std::uint8_t sensor_number    =  7;
inline constexpr std::uint8_t capabilities     = 11; // 3..2 access to the thresholds
inline constexpr std::uint8_t reading_type     = 13;
inline constexpr std::uint8_t lower_compared   = 15; // 6..4 compared: lower non-recoverable, critical, non-critical
inline constexpr std::uint8_t upper_compared   = 17; // 6..4 compared: upper non-recoverable, critical, non-critical
inline constexpr std::uint8_t readable         = 18; // thresholds
inline constexpr std::uint8_t units            = 20; // 7..6 format, 5..3 rate, 2..1 use of the modifier unit, 0 percentage
inline constexpr std::uint8_t base_unit        = 21;
inline constexpr std::uint8_t modifier_unit    = 22;
inline constexpr std::uint8_t linearisation    = 23; // 6..0
inline constexpr std::uint8_t m_low            = 24;
inline constexpr std::uint8_t m_high           = 25; // 7..6
inline constexpr std::uint8_t b_low            = 26;
inline constexpr std::uint8_t b_high           = 27; // 7..6
inline constexpr std::uint8_t exponents        = 29; // 7..4 R, 3..0 B
inline constexpr std::uint8_t name_type_length = 47; // 7..6 type, 4..0 length in characters
inline constexpr std::uint8_t name             = 48;
} // namespace sensor_record_field
// clang-format on

inline constexpr std::uint8_t full_sensor_record = 0x01; ///< type of a record

/// Reservation ID, record ID, offset, count.
using get_sdr_request_t = std::array<std::uint8_t, 6>;

/// What a full sensor record says, as it says it: whether it makes sense is known when a reading is converted.
struct sensor_record_t
{
    std::uint16_t next_record_id;
    std::uint8_t sensor_number;
    std::uint8_t units; ///< format of the reading, rate, use of the modifier unit, percentage
    std::uint8_t base_unit;
    std::uint8_t modifier_unit;
    std::uint8_t linearisation;
    int m; ///< a 10-bit number with a sign, as is b
    int b;
    int r_exponent; ///< a 4-bit number with a sign, as is b_exponent
    int b_exponent;
    std::uint8_t name_length; ///< 0 to 63
    std::string name;         ///< at most the first 16 bytes of it
};

/// Asks for a record: its first 64 bytes, or all if it has less.
get_sdr_request_t encode_get_sensor_record(std::uint16_t record_id);

/// Decodes the reply. Throws std::runtime_error when the completion code is not 0, the reply does not hold 64 bytes of
/// a record, or it is not a full sensor record.
sensor_record_t decode_sensor_record(std::uint8_t completion_code, std::span<const std::uint8_t> data);

/// Asks for the whole name of a record.
get_sdr_request_t encode_get_sensor_name(std::uint16_t record_id, const sensor_record_t& record);

/// Decodes the reply. Throws std::runtime_error when the completion code is not 0, or the name is not all there.
std::string decode_sensor_name(std::uint8_t completion_code, std::span<const std::uint8_t> data,
                               const sensor_record_t& record);

/// Asks for the reading of a record's sensor.
std::array<std::uint8_t, 1> encode_get_sensor_reading(const sensor_record_t& record);

/// Decodes the reply: the raw reading, or nothing when the sensor has none. Throws std::runtime_error when the
/// completion code is not 0, or the reply does not hold 3 bytes.
std::optional<std::uint8_t> decode_sensor_reading(std::uint8_t completion_code, std::span<const std::uint8_t> data);

/// A raw reading in the record's units. Throws std::runtime_error for a sensor that is not analog or not linearised by
/// a known formula.
double convert_reading(const sensor_record_t& record, std::uint8_t raw);

/// The row of the report: the name, and the value with its units or "Unavailable". Throws std::runtime_error as
/// convert_reading() does, or when the units make no sense.
board::sensor_t make_sensor(const sensor_record_t& record, std::optional<std::uint8_t> reading);

} // namespace ivra::bsp::bmc::bittware

#endif
