#include "accelerator_info.h"

#include "hw/properties.h"

namespace ivra::bsp {

accelerator_info::accelerator_info(const hw::accelerator_descriptor& descriptor)
    : accelerator_{descriptor}, mmio_{accelerator_.enumerate_mmios().at(0)}, tree_{hw::enumerate_cores(mmio_)},
      top_{tree_.root()}
{
}

std::string accelerator_info::name() const
{
    const hw::properties properties = accelerator_.properties();
    if (const auto name = properties.name(); name.has_value())
        return name.value();
    if (const auto index = properties.index(); index.has_value())
        return "board-" + std::to_string(index.value());
    return "(Unknown)";
}

std::uint32_t accelerator_info::id() const
{
    return accelerator_.properties().index().access_value_or_throw("Could not get accelerator ID");
}

std::string accelerator_info::board_model() const
{
    return top_.get_board_name().access_value_or_throw("Could not get accelerator model");
}

} // namespace ivra::bsp
