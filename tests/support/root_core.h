#ifndef IVRA_TESTS_SUPPORT_ROOT_CORE_H
#define IVRA_TESTS_SUPPORT_ROOT_CORE_H

#include "hw/accelerator.h"
#include "hw/core.h"
#include "hw/mmio.h"
#include "support/rack.h"

#include <string>

namespace ivra::tests {

/// The root core of the first board, opened for it.
inline hw::core root_core()
{
    const hw::accelerator accelerator{hw::enumerate_accelerators().at(0)};
    const hw::mmio mmio{accelerator.enumerate_mmios().at(0)};
    return hw::enumerate_cores(mmio).root();
}

/// What `body` prints that is given the root core of a rack's first board; see printed().
inline std::string printed(rack_t& rack, function_ref<void(const hw::core&)> body)
{
    return printed(rack, [&] { body(root_core()); });
}

} // namespace ivra::tests

#endif
