#ifndef IVRA_BOARD_MONITOR_H
#define IVRA_BOARD_MONITOR_H

#include "accelerator_info.h"
#include "board/board.h"
#include "hw/accelerator.h"
#include "output/section.h"

namespace ivra::bsp {

/// One selected accelerator and its board, and the reports that describe them.
class board_monitor
{
public:
    /// Throws as accelerator_info and board::board do.
    explicit board_monitor(const hw::accelerator_descriptor& descriptor);

    /// Identity of accelerator, board and FPGA. Throws std::system_error, std::runtime_error.
    section get_board_info();

    /// Size of the configuration flash and address range of each of its sections. Throws std::system_error.
    section get_flash_info();

    /// What is in each cage, one section a port. Throws as board::board::get_transceivers().
    section::list get_transceivers_info();

    const accelerator_info& get_info() const { return info_; }
    board::board& get_board() { return board_; }

private:
    accelerator_info info_;
    board::board board_;
};

} // namespace ivra::bsp

#endif
