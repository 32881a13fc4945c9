#ifndef IVRA_TELEMETRY_READING_H
#define IVRA_TELEMETRY_READING_H

#include "records/units.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What boards measure, as numbers in base units with their limits.
namespace ivra::bsp::telemetry {

/// What became of a reading. Only `ok` has a value; a value of zero is a value.
enum class state_t
{
    ok,
    unavailable, ///< the device says that it has none now
    unsupported, ///< the device says that it never has one, or in a form that no standard gives a meaning
    failed,      ///< it was not to be had: reading_t::error says why
};

/// From best to worst. A host's is the worst of its boards', a board's the worst of its readings'.
enum class health_t
{
    ok,
    unknown,
    warning,
    critical,
};

/// Limits, from the lowest to the highest: bit n of a BMC's masks of thresholds is not limit n.
enum class limit_t : std::uint8_t
{
    lower_non_recoverable,
    lower_critical,
    lower_non_critical,
    upper_non_critical,
    upper_critical,
    upper_non_recoverable,
};
inline constexpr std::size_t limit_count = 6;
inline constexpr std::array<limit_t, limit_count> all_limits{
    limit_t::lower_non_recoverable, limit_t::lower_critical, limit_t::lower_non_critical,
    limit_t::upper_non_critical,    limit_t::upper_critical, limit_t::upper_non_recoverable};

/// "lower_non_recoverable" and so on.
const char* get_name(limit_t limit);

/// Who set limits.
enum class authority_t
{
    bmc,    ///< a sensor's record: a value that is equal to a limit has reached it
    module, ///< a module's memory: a value has to be beyond it. Alarms are critical, warnings non-critical.
    file,   ///< an operator: as of a module
};

struct limits_t
{
    authority_t authority = authority_t::bmc;
    std::array<std::optional<double>, limit_count> values{}; ///< in the unit of the reading, by limit_t

    std::optional<double>& operator[](limit_t limit) { return values[static_cast<std::size_t>(limit)]; }
    const std::optional<double>& operator[](limit_t limit) const { return values[static_cast<std::size_t>(limit)]; }
};

/// "volts", "amperes", "celsius", "watts" or "rpm"; empty for another quantity.
std::string_view get_base_unit(board::quantity_t quantity);

struct reading_t
{
    std::string name;                    ///< any bytes
    std::optional<std::uint16_t> record; ///< of a BMC's sensor: its ID in the repository. Names may repeat, IDs do not.
    board::quantity_t quantity = board::quantity_t::other;
    std::string unit; ///< of another quantity, as its standard calls it; may be empty
    state_t state = state_t::unavailable;
    std::optional<double> value; ///< there if and only if the state is ok; finite
    std::optional<double> peak;  ///< the highest value that the controller remembers; finite
    std::string error;           ///< of a failed reading
    limits_t limits;
    std::optional<health_t> compared;  ///< what the device's own comparison with its limits says, where it tells
    std::vector<std::string> findings; ///< what was odd about it, a sentence each, such as a limit that makes no sense
};

} // namespace ivra::bsp::telemetry

#endif
