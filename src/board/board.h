#ifndef IVRA_BOARD_BOARD_H
#define IVRA_BOARD_BOARD_H

#include "bmc/alveo/registers.h"
#include "bmc/alveo/xmc.h"
#include "bmc/bittware/bmc.h"
#include "board/arista.h"
#include "board/bittware.h"
#include "board/cages.h"
#include "board/helpers.h"
#include "board/transceiver_speed.h"
#include "board/u200.h"
#include "board/u50.h"
#include "board/u55c.h"
#include "hw/accelerator.h"
#include "hw/core.h"
#include "hw/flash.h"
#include "hw/hw_top.h"
#include "hw/mmio.h"
#include "records/boot_image.h"
#include "records/mac_addresses.h"
#include "records/sensors.h"
#include "records/transceiver_info.h"
#include "transceiver/power_mode.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace ivra::bsp::board {

/// A feature that boards of this kind do not have; the text names both.
class unsupported_feature : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The XMC of a board, and those of its sensors that the board has.
struct xmc_access_t
{
    brought_up_t<bmc::alveo::xmc>& xmc;
    bmc::alveo::registers::sensor_list sensors;
};

/// The BMC of a board.
struct bmc_access_t
{
    brought_up_t<bmc::bittware::bmc>& bmc;
};

/// A board's management controller, which lives as long as the board; std::monostate: boards of this kind have none.
using controller_access_t = std::variant<std::monostate, xmc_access_t, bmc_access_t>;

using board_variant = std::variant<arista, xupp3r, u50, u55c, u200, xupvv8>;

/// The board kind for the model that the design reports, exactly. Throws std::runtime_error for a model that is not
/// known, std::system_error when the design does not tell.
board_variant get_board_variant(const hw::core& root);

/// The one way to a board's management features, whatever its kind. A kind that lacks a feature throws
/// unsupported_feature; failures are std::system_error or std::runtime_error.
class board
{
public:
    /// Opens the first MMIO space of an accelerator; throws std::out_of_range when it has none.
    explicit board(const hw::accelerator_descriptor& descriptor);

    /// The addresses that the design uses, in its order.
    std::vector<v6::mac_address> get_mac_addresses();
    /// The block that the board's vendor gave it; nothing when there is none.
    std::optional<mac_addresses_t> get_vendor_mac_addresses();

    std::optional<std::string> get_serial(); ///< nothing when the board has none
    sensors_t get_sensors();

    /// One element a cage, in the board's order; an empty one stands for an empty cage.
    std::vector<std::optional<transceiver::transceiver_info_t>> get_transceivers();
    void set_transceiver_speeds(const std::vector<transceiver_speed_t>& speeds);
    void set_qsfp_power_mode(transceiver::qsfp_power_mode_t mode); ///< of every cage
    /// See board::visit_cages() of cages.h.
    void visit_cages(const cage_visitor_t& visitor);

    boot_image_t get_boot_image();         ///< the one that the next reload takes
    boot_image_t get_current_boot_image(); ///< the one that was taken
    void set_boot_image(boot_image_t image);

    /// For who asks it more than the reports show.
    controller_access_t get_controller();

    const hw::core& get_root() const { return root_; }
    v6::flash::flash& get_flash() { return flash_; }
    v6::hw_top::hw_top& get_top() { return top_; }

private:
    hw::accelerator accelerator_;
    hw::mmio mmio_;
    hw::core_tree tree_;
    hw::core root_;
    v6::flash::flash flash_;
    v6::hw_top::hw_top top_;
    board_variant variant_;
};

} // namespace ivra::bsp::board

#endif
