#ifndef IVRA_TELEMETRY_CONTROLLERS_H
#define IVRA_TELEMETRY_CONTROLLERS_H

#include "board/board.h"
#include "records/boot_image.h"
#include "records/mac_addresses.h"
#include "telemetry/reading.h"

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {

/// What can be left out of the readings of a board. Its identity as far as the host knows it, and its model, never are.
enum class part_t
{
    identity,   ///< serial number, MAC addresses, FPGA
    flash,      ///< layout
    boot_image, ///< current and next
    sensors,    ///< of the board's controller, and whether power is good
    modules,
};
using parts_t = std::set<part_t>;

/// Tells that the time for a board is over. It is asked between exchanges with a controller, never inside one; what has
/// not been read then failed with the error "deadline".
using is_over_t = std::function<bool()>;
inline constexpr auto deadline_error = "deadline";

/// What a controller is asked for once: its value, or why it could not be read, or neither: the board has no such
/// thing.
template <class T>
struct item_t
{
    std::optional<T> value;
    std::string error;
};

/// What a board's management controller says. A board without one has nothing of it.
struct controller_readings_t
{
    item_t<std::string> serial;
    item_t<board::mac_addresses_t> vendor_macs;     ///< from an XMC
    item_t<bool> power_good;                        ///< from an XMC
    item_t<board::boot_image_t> current_boot_image; ///< from a BMC, as is the next one
    item_t<board::boot_image_t> next_boot_image;
    std::vector<reading_t> sensors;    ///< of an XMC all that the board has; of a BMC those that it told of
    std::vector<std::string> findings; ///< what was odd about the controller, a sentence each
    std::string error;                 ///< why it could not be asked, or not to the end
};

/// Reads what belongs to these parts; a controller of which they want nothing is not asked. What fails costs itself and
/// nothing else. Throws nothing but what a lack of memory throws.
controller_readings_t read_controller(board::board& board, const parts_t& parts, const is_over_t& is_over);

} // namespace ivra::bsp::telemetry

#endif
