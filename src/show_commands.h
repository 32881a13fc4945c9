#ifndef IVRA_SHOW_COMMANDS_H
#define IVRA_SHOW_COMMANDS_H

#include "board_monitor.h"

namespace ivra::bsp {

// What `show` prints. A failure propagates and ends the command; what was printed before stays.

void show_board_info(board_monitor& monitor);
void show_boot_image(board_monitor& monitor);
void show_flash_info(board_monitor& monitor);
void show_transceivers_info(board_monitor& monitor);
void show_sensors(board_monitor& monitor);

/// All of these, in the order above.
void show_all_info(board_monitor& monitor);

} // namespace ivra::bsp

#endif
