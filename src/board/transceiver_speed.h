#ifndef IVRA_BOARD_TRANSCEIVER_SPEED_H
#define IVRA_BOARD_TRANSCEIVER_SPEED_H

#include <cstdint>

namespace ivra::bsp::board {

/// Line rate of a network transceiver.
enum class transceiver_speed_t : std::uint32_t
{
    speed_1g = 0,
    speed_10g = 1,
};

} // namespace ivra::bsp::board

#endif
