#ifndef IVRA_VIRTUAL_DEVICES_BMC_SENSOR_H
#define IVRA_VIRTUAL_DEVICES_BMC_SENSOR_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// What a rack calls the limits of a sensor, from the lowest to the highest.
inline constexpr std::array<const char*, 6> limit_members{"lower_non_recoverable", "lower_critical",
                                                          "lower_non_critical",    "upper_non_critical",
                                                          "upper_critical",        "upper_non_recoverable"};

/// The limits of a sensor's value, in its unit.
struct bmc_limits_t
{
    std::array<std::optional<double>, limit_members.size()> values; ///< in the order of their names
    std::optional<double> positive_hysteresis;
    std::optional<double> negative_hysteresis;

    bool operator==(const bmc_limits_t&) const = default;
};

/// A sensor data record (SDR), mostly that of a sensor, and the sensor's reading.
struct bmc_sensor_t
{
    std::string name;
    std::uint8_t number = 0;
    std::uint8_t unit = 0;
    std::uint8_t modifier = 0;
    std::uint8_t modifier_unit = 0;
    std::uint8_t rate = 0;
    bool percent = false;
    std::uint8_t format = 0;
    std::uint8_t linearisation = 0;
    int m = 1;
    int b = 0;
    int r_exp = 0;
    int b_exp = 0;
    bool available = true;
    std::optional<double> value; ///< that it reads as nearly as it can
    std::uint8_t raw = 0;        ///< reading, unless there is a value
    std::optional<bmc_limits_t> limits;
    std::optional<std::uint16_t> id;     ///< of its record, instead of what record_ids() finds
    std::optional<std::uint16_t> next;   ///< record ID that is said to follow, instead of the true one
    std::optional<std::string> record;   ///< sent as it is; the members above are what it says, as far as it goes
    std::optional<std::string> response; ///< data of the response to Get Sensor Reading, instead of the true one

    bool operator==(const bmc_sensor_t&) const = default;
};

/// The lowest 8 bits, as a byte of a message.
inline char byte(std::size_t value)
{
    return static_cast<char>(value & 0xffU);
}

/// What a record says, as a sensor of this record. Its reading is the nominal one of the record, if that has one.
bmc_sensor_t sensor_of(std::string record);

/// Whether its record says all that a reading means: it is a whole full sensor record, IPMI 2.0 table 43-1.
bool is_full(const bmc_sensor_t& sensor);
/// Whether it is a sensor at all: other records are of the board's FRU or controllers, or the maker's own.
bool is_sensor(const bmc_sensor_t& sensor);

inline constexpr std::uint16_t last_record_id = 0xffff; ///< asks for the last record, whatever its ID

/// The IDs of all their records: a sensor's own, or that in the record's first two bytes, or else the next one that
/// none of these is, from its place counted from 1 or from the record before it, whichever is more.
std::vector<std::uint16_t> record_ids(const std::vector<bmc_sensor_t>& sensors);

/// The bytes of its record, padded to 64 unless they are the rack's; `id` is its record ID.
std::string sensor_record(const bmc_sensor_t& sensor, std::uint16_t id);

/// The data of the response to Get Sensor Reading. The limits that it compares with are those of the record.
std::string sensor_response(const bmc_sensor_t& sensor);

/// The data of the responses to Get Sensor Thresholds and Get Sensor Hysteresis, as the record has them; nothing when
/// that says that they cannot be read.
std::optional<std::string> sensor_thresholds(const bmc_sensor_t& sensor);
std::optional<std::string> sensor_hysteresis(const bmc_sensor_t& sensor);

/// What a raw reading means by IPMI 2.0, chapter 36.3; may be infinite or no number.
double sensor_value(const bmc_sensor_t& sensor, std::uint8_t raw);

/// The raw reading: the one whose meaning is nearest to the sensor's value, if it has one.
std::uint8_t raw_reading(const bmc_sensor_t& sensor);

/// The raw reading whose meaning is nearest to a value.
std::uint8_t nearest_raw(const bmc_sensor_t& sensor, double value);

/// What all raw readings of a sensor mean.
struct sensor_span_t
{
    double lowest, highest; ///< of those that are numbers
    bool rises, falls; ///< with the raw reading; both when all mean the same, neither when it does now this, now that
};
sensor_span_t sensor_span(const bmc_sensor_t& sensor);

/// What one count of a hysteresis means; nothing when that depends on the reading.
std::optional<double> hysteresis_step(const bmc_sensor_t& sensor);

/// "12.03", as reports have it.
std::string two_decimals(double value);

/// Takes a repository apart that a program has stored record by record, as `ipmitool sdr dump` does. Throws
/// std::runtime_error when it ends within a record, or has one of an unknown version.
std::vector<std::string> split_records(std::string_view repository);

} // namespace ivra::virtual_platform

#endif
