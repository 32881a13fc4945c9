#ifndef IVRA_BOARD_ARISTA_H
#define IVRA_BOARD_ARISTA_H

#include "hw/core.h"
#include "records/mac_addresses.h"

#include <optional>
#include <string>

namespace ivra::bsp::board {

/// An FPGA inside an Arista switch. It has no management controller; the switch's host tells its identity.
struct arista
{
    static constexpr const char* family = "Arista switches";

    explicit arista(const hw::core&) {}

    /// The switch's serial number; nothing when the host does not tell it.
    std::optional<std::string> get_serial();

    /// The upper half of the last-octet range of the switch's management port: 128 addresses.
    /// Throws std::runtime_error, or std::system_error when the port's address cannot be parsed.
    std::optional<mac_addresses_t> get_mac_addresses();
};

} // namespace ivra::bsp::board

#endif
