#ifndef IVRA_BOARD_BITTWARE_H
#define IVRA_BOARD_BITTWARE_H

#include "bmc/bittware/bmc.h"
#include "board/cages.h"
#include "board/helpers.h"
#include "records/boot_image.h"
#include "records/mac_addresses.h"
#include "records/sensors.h"
#include "records/transceiver_info.h"
#include "transceiver/power_mode.h"

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::bsp::board {

/// A MAC EEPROM holds something else. Its bytes may be NUL, where what() ends; message() tells all of them.
class unexpected_field : public std::runtime_error
{
public:
    explicit unexpected_field(const std::string& message) : std::runtime_error{message}, message_{message} {}

    const std::string& message() const { return message_; }

private:
    std::string message_;
};

/// The address in a MAC EEPROM: "MAC=" and the address as text, 21 bytes from register 0 on. Throws std::runtime_error
/// when that is not what was read (unexpected_field for another field), std::system_error when the text is no address.
v6::mac_address decode_eeprom_mac(std::span<const std::uint8_t> record);

/// The image that a BMC's board takes at the next reload, and the one that it took. Throw as `commands` does, and
/// std::out_of_range.
boot_image_t get_boot_image(bmc::bittware::ipmi_commands& commands);
boot_image_t get_current_boot_image(bmc::bittware::ipmi_commands& commands);

/// What both Bittware board kinds have: an I2C bus, and a BMC that answers for the board. A board whose BMC could not
/// be brought up has none, and whatever needs it then throws std::runtime_error; otherwise it throws as the BMC does.
class bittware
{
public:
    /// `eeprom_channel` is the mask of the multiplexer channel on bus 0 that the MAC EEPROM is behind, if it is.
    bittware(const hw::core& root, const cage_walk_t& cages, std::optional<std::uint8_t> eeprom_channel)
        : i2c{board::get_i2c(root)}, cages_{cages}, eeprom_channel_{eeprom_channel}, bmc_{get_bmc(root)}
    {
    }

    /// Opens the BMC behind the UART below `uart_core`. A failure is only logged: the board works for everything that
    /// needs no BMC.
    static brought_up_t<bmc::bittware::bmc> get_bmc(const hw::core& uart_core);

    brought_up_t<bmc::bittware::bmc>& get_bmc() { return bmc_; }

    /// The board's base address, from the EEPROM at address 0x50 of this bus. Throws as decode_eeprom_mac() does, and
    /// std::system_error when the EEPROM cannot be read.
    static v6::mac_address read_eeprom_mac(v6::i2c::bus& bus);

    std::optional<std::string> get_serial() { return get_bmc_or_throw().get_board_serial(); }
    sensors_t get_sensors() { return get_bmc_or_throw().get_sensors(); }
    boot_image_t get_boot_image() { return board::get_boot_image(get_bmc_or_throw()); }
    boot_image_t get_current_boot_image() { return board::get_current_boot_image(get_bmc_or_throw()); }
    void set_boot_image(boot_image_t image);
    /// Nothing without an I2C controller. Throws as read_eeprom_mac(), and std::system_error.
    std::optional<mac_addresses_t> get_vendor_mac_addresses();
    std::vector<std::optional<transceiver::transceiver_info_t>> get_transceivers_stats()
    {
        return board::get_transceivers_stats(i2c, cages_);
    }
    void set_qsfp_power_mode(transceiver::qsfp_power_mode_t mode) { board::set_qsfp_power_mode(i2c, cages_, mode); }
    void visit_cages(const cage_visitor_t& visitor) { board::visit_cages(i2c, cages_, visitor); }

    std::optional<v6::i2c::i2c> i2c;

private:
    bmc::bittware::bmc& get_bmc_or_throw();

    cage_walk_t cages_;
    std::optional<std::uint8_t> eeprom_channel_;
    brought_up_t<bmc::bittware::bmc> bmc_;
};

/// Bittware XUPP3R, and the maker's own ivra_fpb2.
struct xupp3r : bittware
{
    explicit xupp3r(const hw::core& root) : bittware{root, xupp3r_cages, std::nullopt} {}
};

/// Bittware XUPVV8.
struct xupvv8 : bittware
{
    explicit xupvv8(const hw::core& root) : bittware{root, xupvv8_cages, 0x01} {}
};

} // namespace ivra::bsp::board

#endif
