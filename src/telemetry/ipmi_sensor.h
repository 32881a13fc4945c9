#ifndef IVRA_TELEMETRY_IPMI_SENSOR_H
#define IVRA_TELEMETRY_IPMI_SENSOR_H

#include "telemetry/reading.h"

#include <cstdint>
#include <span>

namespace ivra::bsp::telemetry {

// Sensors of a BMC as the standard has them (IPMI 2.0). The reports of the BMC's own folder keep oddities on purpose;
// nothing of them is here.

/// Whether these are the bytes of a full sensor record: others tell of no sensor that gives numbers.
bool is_full_sensor_record(std::span<const std::uint8_t> record);

/// From a raw reading to a number in the sensor's unit.
struct ipmi_formula_t
{
    unsigned format;            ///< of raw readings: 0 unsigned, 1 one's complement, 2 two's complement
    unsigned linearisation;     ///< 0 to 11
    int m, b;                   ///< 10 bits and a sign
    int r_exponent, b_exponent; ///< 4 bits and a sign
    double (*to_base_unit)(double);
};

/// What a full sensor record says.
struct ipmi_sensor_t
{
    std::uint8_t number = 0;
    ipmi_formula_t formula{};
    unsigned compared = 0; ///< limits that Get Sensor Reading compares with, by their bits in its third byte
    /// All but what takes a reading. `unsupported` when the sensor gives no number by the standard, or not to those who
    /// ask for it without an address of its own.
    reading_t reading;
};

/// Decodes a full sensor record (table 43-1), however much longer than 48 bytes and a name it is. Limits that no number
/// stands for, or that contradict each other, are dropped with a finding. Throws std::runtime_error when it is shorter
/// than 48 bytes, or no full sensor record.
ipmi_sensor_t decode_full_sensor_record(std::span<const std::uint8_t> record);

/// The reading of a supported sensor, from completion code and data of Get Sensor Reading (table 35-15).
reading_t decode_sensor_reading(const ipmi_sensor_t& sensor, std::uint8_t completion_code,
                                std::span<const std::uint8_t> data);

} // namespace ivra::bsp::telemetry

#endif
