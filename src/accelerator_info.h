#ifndef IVRA_ACCELERATOR_INFO_H
#define IVRA_ACCELERATOR_INFO_H

#include "hw/accelerator.h"
#include "hw/core.h"
#include "hw/hw_top.h"
#include "hw/mmio.h"

#include <cstdint>
#include <string>

namespace ivra::bsp {

/// An opened accelerator and what identifies it.
class accelerator_info
{
public:
    /// Opens the first MMIO space of an accelerator; throws std::out_of_range when it has none, std::system_error when
    /// the platform fails.
    explicit accelerator_info(const hw::accelerator_descriptor& descriptor);

    /// The accelerator's name; "board-" and its index when it has none; "(Unknown)" when it has neither.
    std::string name() const;
    /// Its index. Throws std::system_error.
    std::uint32_t id() const;
    /// The board name that the design reports. Throws std::system_error.
    std::string board_model() const;

    const v6::hw_top::hw_top& top() const { return top_; }

private:
    hw::accelerator accelerator_;
    hw::mmio mmio_;
    hw::core_tree tree_;
    v6::hw_top::hw_top top_;
};

} // namespace ivra::bsp

#endif
