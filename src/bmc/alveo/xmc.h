#ifndef IVRA_BMC_ALVEO_XMC_H
#define IVRA_BMC_ALVEO_XMC_H

#include "bmc/alveo/card_info.h"
#include "bmc/alveo/registers.h"
#include "hw/core.h"
#include "hw/mutex.h"
#include "records/mac_addresses.h"
#include "records/sensors.h"

#include <cstdint>
#include <string>

namespace ivra::bsp::bmc::alveo {

/// Releases an XMC from reset and waits until it is ready, 15 seconds at most. Throws std::system_error.
void bring_up(const hw::core& core);

/// The management controller of an Alveo card, brought up.
class xmc
{
public:
    /// `guard` serialises every use of the mailbox among the processes of this host.
    xmc(const hw::core& core, const mutex& guard) : core_{core}, mutex_{guard} {}

    /// The first word of the mailbox. Throws std::system_error.
    ivra_hw_register_description mailbox_get_register();

    /// Returns when the XMC has taken the posted packet and has no error to report. Throws std::system_error.
    void mailbox_wait();

    /// Fetches the card information. Throws std::system_error, or std::runtime_error when it is malformed.
    card_info_t read_card_info();

    std::string get_board_serial();           ///< Throws as read_card_info() and find_board_serial() do.
    board::mac_addresses_t get_vendor_macs(); ///< Throws as read_card_info() and find_vendor_macs() do.

    /// What a sensor's words hold, in its unit. Throws std::system_error.
    struct sensor_values_t
    {
        std::uint32_t current, average, maximum;
    };
    sensor_values_t read_sensor(const registers::sensor_reg_t& sensor);

    /// The power-good register, and what it says. Throw std::system_error.
    std::uint32_t read_power_good();
    bool is_power_good();

    /// Current, average and maximum value of each sensor as the registers hold them, then whether power is good. Needs
    /// no lock: the mailbox is not used. Throws std::system_error.
    board::sensors_t get_sensors(registers::sensor_list sensors);

private:
    card_info_t exchange_card_info();

    hw::core core_;
    mutex mutex_;
};

} // namespace ivra::bsp::bmc::alveo

#endif
