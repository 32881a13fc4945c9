#ifndef IVRA_RECORDS_MAC_ADDRESSES_H
#define IVRA_RECORDS_MAC_ADDRESSES_H

#include "hw/mac_address.h"

namespace ivra::bsp::board {

/// A block of consecutive MAC addresses that a vendor gave to a board.
struct mac_addresses_t
{
    v6::mac_address first;
    unsigned count;
};

} // namespace ivra::bsp::board

#endif
