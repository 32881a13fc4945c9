#ifndef IVRA_READINGS_LIMITS_FILE_H
#define IVRA_READINGS_LIMITS_FILE_H

#include "telemetry/board_readings.h"
#include "telemetry/health.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// The limits that an operator sets, for sensors whose device sets none: share/ivra/schema/limits-1.json.
namespace ivra::bsp::readings {

/// A limits file that cannot be used: "FILE: PLACE: found WHAT, expected WHAT". The place is a JSON pointer, or line
/// and column.
class limits_error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct limits_entry_t
{
    std::optional<std::string> model; ///< nothing: any
    std::optional<std::string> board; ///< its name or uid; nothing: any
    std::string sensor;               ///< its name; "FPGA" is the FPGA's temperature
    std::string unit;                 ///< of the limits; it has to be that of the reading
    telemetry::limits_t limits;       ///< at least one; they rise from the lowest to the highest
};

/// The text of a regular file of at most 1 MiB. Never waits for what is none. Throws limits_error.
std::string read_limits_file(const std::string& file);

/// What the text of a limits file says. `file` is named in errors. Throws limits_error.
std::vector<limits_entry_t> parse_limits(std::string_view text, const std::string& file);

/// Gives the sensors of a board that was read, and its FPGA's temperature, the limits of the first entry that is for
/// them. Those that the device itself limits keep the device's limits. Returns what an operator should know: limits
/// that are in another unit than their sensor, so that nothing guards it (unknown), that do not count, or that are for
/// a sensor that the board they are for does not have.
std::vector<telemetry::finding_t> apply_limits(const std::vector<limits_entry_t>& entries,
                                               const telemetry::accelerator_identity_t& identity,
                                               const telemetry::parts_t& parts, telemetry::board_readings_t& readings);

} // namespace ivra::bsp::readings

#endif
