#ifndef IVRA_SET_COMMANDS_H
#define IVRA_SET_COMMANDS_H

#include "command_line.h"

namespace ivra::bsp {

// What `set` and `setup` do. Each says in one line what it is about to do and how it went; a failure then ends the
// process with status 1. The values of `args` are canonical.

void set_boot_part(const board_monitor_p::Args& args);
void set_transceiver_speed(const board_monitor_p::Args& args);
void set_qsfp_low_power_mode(const board_monitor_p::Args& args);

/// Writes the board's MAC addresses into the parameter section of its flash and makes the design read them.
void setup_board(const board_monitor_p::Args& args);

} // namespace ivra::bsp

#endif
