#ifndef IVRA_RECORDS_UNITS_H
#define IVRA_RECORDS_UNITS_H

namespace ivra::bsp::board {

/// What a sensor measures. Base units are volts, amperes, degrees Celsius, watts and revolutions per minute.
enum class quantity_t
{
    voltage,
    current,
    temperature,
    power,
    fan_speed,
    optical_power, ///< watts
    other,
};

/// In which unit a device gives a quantity.
struct unit_t
{
    const char* text; ///< UTF-8
    quantity_t quantity;
    unsigned per_base_unit; ///< so many make one base unit
};

inline constexpr unit_t millivolts{"mV", quantity_t::voltage, 1000};
inline constexpr unit_t milliamperes{"mA", quantity_t::current, 1000};
inline constexpr unit_t degrees_celsius{"°C", quantity_t::temperature, 1};
inline constexpr unit_t milliwatts{"mW", quantity_t::power, 1000};
inline constexpr unit_t revolutions_per_minute{"RPM", quantity_t::fan_speed, 1};

} // namespace ivra::bsp::board

#endif
