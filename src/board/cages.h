#ifndef IVRA_BOARD_CAGES_H
#define IVRA_BOARD_CAGES_H

#include "hw/i2c.h"
#include "records/transceiver_info.h"
#include "transceiver/power_mode.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <system_error>
#include <vector>

namespace ivra::bsp::board {

/// The cages on a bus of a board: one that is connected to it directly, or one behind each of these channels of a
/// multiplexer.
struct cage_bus_t
{
    std::uint8_t bus;
    std::uint8_t multiplexer = 0;             ///< its 7-bit address; unused without channels
    std::span<const std::uint8_t> channels{}; ///< masks, one bit each
    bool optional = false;                    ///< a board without this bus or its multiplexer is complete
};

/// How the cages of a board are reached, in their order.
struct cage_walk_t
{
    bool enable_i2c; ///< before the first bus
    std::span<const cage_bus_t> buses;
};

/// A cage that a walk has come to.
struct cage_t
{
    unsigned number = 0;                      ///< from 1, in the board's order
    v6::i2c::bus* bus = nullptr;              ///< on which its module answers; null if it is out of reach
    std::optional<std::system_error> failure; ///< why it is out of reach
};

/// Whether to go on.
using cage_visitor_t = std::function<bool(const cage_t& cage)>;

extern const cage_walk_t u200_cages;
extern const cage_walk_t xupp3r_cages;
extern const cage_walk_t xupvv8_cages;

/// Makes a multiplexer connect the channels of a mask. Throws std::system_error.
void select_channels(v6::i2c::bus& bus, std::uint8_t multiplexer, std::uint8_t mask);

/// What is in each cage; an empty element is an empty cage. A bad module does not stop the walk. Throws
/// std::runtime_error without an I2C controller, std::system_error when its lock cannot be had or a bus or a
/// multiplexer does not work.
std::vector<std::optional<transceiver::transceiver_info_t>> get_transceivers_stats(std::optional<v6::i2c::i2c>& i2c,
                                                                                   const cage_walk_t& walk);

/// Sets the power mode of the module in each cage. Throws as get_transceivers_stats(), and at the first module whose
/// mode cannot be set or cage without a module; the modules before it keep the new mode.
void set_qsfp_power_mode(std::optional<v6::i2c::i2c>& i2c, const cage_walk_t& walk,
                         transceiver::qsfp_power_mode_t mode);

/// Visits each cage under one lock, until the visitor says to stop. A bus or a channel of a multiplexer that does not
/// work costs the cages behind it only, also where it cannot be found out whether they are there. Signals are held back
/// during each visit, and take effect between two of them. Throws std::runtime_error without an I2C controller,
/// std::system_error when its lock cannot be had or the board's I2C cannot be enabled, and what the visitor throws.
void visit_cages(std::optional<v6::i2c::i2c>& i2c, const cage_walk_t& walk, const cage_visitor_t& visitor);

} // namespace ivra::bsp::board

#endif
