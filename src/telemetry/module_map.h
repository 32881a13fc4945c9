#ifndef IVRA_TELEMETRY_MODULE_MAP_H
#define IVRA_TELEMETRY_MODULE_MAP_H

#include "telemetry/module.h"
#include "telemetry/module_memory.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// How the memory of modules is read and decoded, by the standard that describes it.
namespace ivra::bsp::telemetry {

/// A standard for the memory of modules.
struct module_map_t
{
    /// Whether upper bytes have to be selected by byte 127.
    bool (*has_pages)(const memory_t& memory);
    /// What to read, as far as it can be told from what was read already.
    std::vector<place_t> (*get_places)(const memory_t& memory);
    void (*decode)(const memory_t& memory, module_t& module);
};

extern const module_map_t sff_8472;
extern const module_map_t sff_8636;
extern const module_map_t cmis;

/// The one for an identifier (SFF-8024, table 4-1); null for a module with another map, or none that is known.
const module_map_t* find_module_map(std::uint8_t identifier);

// ---- what the standards have in common ----

/// What a number counts.
struct scale_t
{
    board::quantity_t quantity;
    double steps; ///< that make one base unit
    bool is_signed = false;
};

namespace scales {
inline constexpr scale_t temperature{board::quantity_t::temperature, 256, true};
inline constexpr scale_t voltage{board::quantity_t::voltage, 10'000};                 // 100 uV
inline constexpr scale_t optical_power{board::quantity_t::optical_power, 10'000'000}; // 0.1 uW
inline constexpr scale_t bias{board::quantity_t::current, 500'000};                   // 2 uA
} // namespace scales

/// What a module measures, of itself or of each lane.
struct monitor_t
{
    const char* name;
    scale_t scale;
    place_t values;
    place_t limits; ///< high alarm, low alarm, high warning, low warning
};

/// Number of steps = c0 + c1 x + c2 x^2 + ... of a raw number x.
using polynomial_t = std::array<double, 5>;
inline constexpr polynomial_t identity{0, 1};

/// A reading with its limits. `where` is the number of the value among several.
reading_t decode_monitor(const memory_t& memory, const monitor_t& monitor, std::size_t where = 0,
                         const polynomial_t& calibration = identity);
/// One with nothing but its name.
reading_t without_value(const monitor_t& monitor, state_t state, const std::string& error = {});

/// For a module that says it has nothing to tell yet.
void make_unavailable(reading_t& reading);
/// Where temperature and voltage are both a raw zero they are not measured, or not yet.
void check_measured(const memory_t& memory, const monitor_t& temperature, const monitor_t& voltage, module_t& module);

/// The readings of a lane.
inline std::array<reading_t*, 3> readings_of(lane_t& lane)
{
    return {&lane.rx_power, &lane.tx_power, &lane.tx_bias};
}

void drop_limits(reading_t& reading);
void drop_low_limits(reading_t& reading);

/// A text without the blanks or NULs that fill it up; nothing where it is empty or erased.
std::optional<std::string> decode_text(const memory_t& memory, const place_t& place);
/// "02-00-11"; nothing for zeros, or where it is erased.
std::optional<std::string> decode_oui(const memory_t& memory, const place_t& place);
/// The date that a date code begins with, as YYYY-MM-DD; nothing for what is no date.
std::optional<std::string> decode_date(const std::string& date_code);

/// Where the texts of a module lie.
struct identity_t
{
    place_t vendor, oui, part_number, revision, serial_number, date_code;
};
void decode_identity(const memory_t& memory, const identity_t& places, module_t& module);

} // namespace ivra::bsp::telemetry

#endif
