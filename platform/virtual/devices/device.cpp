#include "devices/device.h"

#include "devices/xmc.h"

namespace ivra::virtual_platform {

std::unique_ptr<device> device_behind(const accelerator_t& accelerator, const core_t& core, register_file& registers)
{
    if (const xmc_t* config = xmc_behind(accelerator, core))
        return std::make_unique<xmc>(*config, core, registers);
    return nullptr;
}

} // namespace ivra::virtual_platform
