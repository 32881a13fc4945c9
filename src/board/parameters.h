#ifndef IVRA_BOARD_PARAMETERS_H
#define IVRA_BOARD_PARAMETERS_H

#include "records/mac_addresses.h"

#include <array>
#include <cstdint>

namespace ivra::bsp::board {

/// The record in the parameter section from which a design takes its MAC addresses, least significant bytes first:
/// magic (4 bytes), 1 (4 bytes), 0 (8 bytes), first address (6 bytes), low bits of the number of addresses (1 byte), 0.
std::array<std::uint8_t, 24> encode_parameters(const mac_addresses_t& addresses);

} // namespace ivra::bsp::board

#endif
