#ifndef IVRA_VIRTUAL_READ_XMC_H
#define IVRA_VIRTUAL_READ_XMC_H

#include "node.h"
#include "xmc.h"

namespace ivra::virtual_platform {

/// Reads what a rack says of an XMC over its defaults. Throws file_error.
void read_xmc(const node_t& node, xmc_t& xmc);

} // namespace ivra::virtual_platform

#endif
