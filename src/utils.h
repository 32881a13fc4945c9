#ifndef IVRA_UTILS_H
#define IVRA_UTILS_H

#include "Argos/parsed_arguments.h"
#include "board/board.h"
#include "hw/accelerator.h"
#include "output/section.h"

#include <cstddef>
#include <optional>
#include <string>

namespace ivra::bsp {

/// Statistics that several reports show; each report copies them and sets the value.
namespace stats {
extern const stat_t name;
extern const stat_t id;
extern const stat_t board_model;
extern const stat_t board_base_mac;
extern const stat_t board_serial;
} // namespace stats

/// The accelerator to work on: the one that --accelerator, else IVRA_BSP_ACCELERATOR, selects by index or by name; else
/// the first. Nothing when there is none, which has been reported then. Throws std::system_error.
std::optional<hw::accelerator_descriptor> get_accelerator(const argos::ParsedArguments& args);

/// Prints every accelerator of the host. What cannot be read is logged and shown as "Error".
void list_boards();

/// Appends one accelerator, found at position `index`, to the list.
void list_add_board(section::list& list, const hw::accelerator_descriptor& descriptor, std::size_t index);

/// The board's serial as a statistic; "Not available" when it has none, "Error" (and a line in the log) when it cannot
/// be read. `name` is the board's in that line.
stat_t get_board_serial_stat(board::board& board, const std::string& name);

} // namespace ivra::bsp

#endif
