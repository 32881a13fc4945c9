#ifndef IVRA_BOARD_ALVEO_H
#define IVRA_BOARD_ALVEO_H

#include "bmc/alveo/xmc.h"
#include "board/helpers.h"
#include "hw/core.h"
#include "records/mac_addresses.h"
#include "records/sensors.h"

#include <optional>
#include <string>

namespace ivra::bsp::board {

/// What every Alveo board kind answers through its XMC. A board whose XMC could not be brought up has none, and each of
/// these then throws std::runtime_error; otherwise they throw as the XMC does.
class alveo
{
public:
    explicit alveo(const hw::core& root) : core_{root}, xmc_{get_xmc(core_)} {}

    /// Brings up the first XMC below `top`. A failure is only logged: the board works for everything that needs no XMC.
    /// Throws std::system_error when the lock cannot be released after success.
    static brought_up_t<bmc::alveo::xmc> get_xmc(const hw::core& top);

    brought_up_t<bmc::alveo::xmc>& get_xmc() { return xmc_; }

    std::optional<std::string> get_serial();
    sensors_t get_sensors(bmc::alveo::registers::sensor_list sensors);
    std::optional<mac_addresses_t> get_vendor_mac_addresses();

private:
    bmc::alveo::xmc& xmc_for(const char* what);

    hw::core core_;
    brought_up_t<bmc::alveo::xmc> xmc_;
};

} // namespace ivra::bsp::board

#endif
