#ifndef IVRA_BOARD_U200_H
#define IVRA_BOARD_U200_H

#include "bmc/alveo/registers.h"
#include "board/alveo.h"
#include "board/cages.h"
#include "board/helpers.h"
#include "records/mac_addresses.h"
#include "records/sensors.h"
#include "records/transceiver_info.h"
#include "transceiver/power_mode.h"

#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::board {

/// Xilinx Alveo U200 and U250.
struct u200
{
    static constexpr bmc::alveo::registers::sensor_list sensors = bmc::alveo::registers::ddr_sensors;

    explicit u200(const hw::core& root) : i2c{get_i2c(root)}, management{root} {}

    std::optional<std::string> get_serial() { return management.get_serial(); }
    sensors_t get_sensors() { return management.get_sensors(sensors); }
    std::optional<mac_addresses_t> get_vendor_mac_addresses() { return management.get_vendor_mac_addresses(); }
    std::vector<std::optional<transceiver::transceiver_info_t>> get_transceivers_stats()
    {
        return board::get_transceivers_stats(i2c, u200_cages);
    }
    void set_qsfp_power_mode(transceiver::qsfp_power_mode_t mode) { board::set_qsfp_power_mode(i2c, u200_cages, mode); }
    void visit_cages(const cage_visitor_t& visitor) { board::visit_cages(i2c, u200_cages, visitor); }

    std::optional<v6::i2c::i2c> i2c;
    alveo management;
};

} // namespace ivra::bsp::board

#endif
