#ifndef IVRA_VIRTUAL_PARAMETERS_H
#define IVRA_VIRTUAL_PARAMETERS_H

#include "rack/rack.h"
#include "state/state.h"

#include <array>
#include <cstdint>
#include <vector>

namespace ivra::virtual_platform {

// A design reads its parameters from the second PARAMS section of the flash when it is told to. Their record has 24
// bytes, least significant first: magic 0xa5a55a5a (4), 1 (4), 0 (8), first MAC address as a number (6), number of
// addresses (1), 0.

/// Reads them again. Without a second section, or with another magic in it, what was read before stays in use.
void update_parameters(const accelerator_t& accelerator, board_state& state);

/// The MAC addresses in use: those of the parameters that were read last, or those of the rack.
std::vector<std::array<std::uint8_t, 6>> mac_addresses(const accelerator_t& accelerator, const board_state& state);

} // namespace ivra::virtual_platform

#endif
