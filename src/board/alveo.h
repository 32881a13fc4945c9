#ifndef IVRA_BOARD_ALVEO_H
#define IVRA_BOARD_ALVEO_H

#include "board/mac_addresses.h"
#include "board/sensors.h"
#include "hw/core.h"

#include <optional>
#include <string>

namespace ivra::bsp::board {

/// What every Alveo board kind answers through its XMC. A board whose XMC could not be brought up has none, and each of
/// these then throws std::runtime_error.
class alveo
{
public:
    explicit alveo(const hw::core& root) : core_{root} {}

    std::optional<std::string> get_serial();
    sensors_t get_sensors();
    std::optional<mac_addresses_t> get_vendor_mac_addresses();

private:
    hw::core core_;
};

} // namespace ivra::bsp::board

#endif
