#ifndef IVRA_BOARD_BITTWARE_H
#define IVRA_BOARD_BITTWARE_H

#include "board/boot_image.h"
#include "board/helpers.h"
#include "board/mac_addresses.h"
#include "board/sensors.h"
#include "transceiver/power_mode.h"
#include "transceiver/transceiver_info.h"

#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::board {

/// What both Bittware board kinds have: an I2C bus, and a BMC that answers for the board. A board whose BMC could not
/// be brought up has none, and whatever needs it then throws std::runtime_error.
struct bittware
{
    explicit bittware(const hw::core& root) : i2c{get_i2c(root)} {}

    std::optional<std::string> get_serial();
    sensors_t get_sensors();
    boot_image_t get_boot_image();
    boot_image_t get_current_boot_image();
    void set_boot_image(boot_image_t image);
    std::optional<mac_addresses_t> get_vendor_mac_addresses() { not_available_yet(); }
    std::vector<std::optional<transceiver::transceiver_info_t>> get_transceivers_stats() { not_available_yet(); }
    void set_qsfp_power_mode(transceiver::qsfp_power_mode_t) { not_available_yet(); }

    std::optional<v6::i2c::i2c> i2c;
};

/// Bittware XUPP3R, and the maker's own ivra_fpb2.
struct xupp3r : bittware
{
    using bittware::bittware;
};

/// Bittware XUPVV8.
struct xupvv8 : bittware
{
    using bittware::bittware;
};

} // namespace ivra::bsp::board

#endif
