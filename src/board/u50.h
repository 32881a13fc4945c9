#ifndef IVRA_BOARD_U50_H
#define IVRA_BOARD_U50_H

#include "bmc/alveo/registers.h"
#include "board/alveo.h"
#include "board/clocks/load.h"
#include "board/helpers.h"
#include "board/transceiver_speed.h"
#include "records/mac_addresses.h"
#include "records/sensors.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::bsp::board {

/// Xilinx Alveo U50.
struct u50
{
    static constexpr const char* family = "Xilinx Alveo U50 boards";

    static constexpr bmc::alveo::registers::sensor_list sensors = bmc::alveo::registers::hbm_sensors;

    explicit u50(const hw::core& root) : management{root}, i2c{get_i2c(root)} {}

    std::optional<std::string> get_serial() { return management.get_serial(); }
    sensors_t get_sensors() { return management.get_sensors(sensors); }
    std::optional<mac_addresses_t> get_vendor_mac_addresses() { return management.get_vendor_mac_addresses(); }

    /// The speed of the cage.
    void set_transceiver_speeds(const std::vector<transceiver_speed_t>& speeds)
    {
        if (speeds.size() != 1)
            throw std::runtime_error{"U50 board needs one transceiver speed"};
        clocks::load(i2c, clocks::u50_table(speeds[0]));
    }

    alveo management;
    std::optional<v6::i2c::i2c> i2c;
};

} // namespace ivra::bsp::board

#endif
