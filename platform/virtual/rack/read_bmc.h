#ifndef IVRA_VIRTUAL_READ_BMC_H
#define IVRA_VIRTUAL_READ_BMC_H

#include "bmc.h"
#include "node.h"

namespace ivra::virtual_platform {

/// Changes what the rack says of a board's BMC. Throws file_error.
void read_bmc(const node_t& node, bmc_t& bmc);

} // namespace ivra::virtual_platform

#endif
