#ifndef IVRA_TRANSCEIVER_DECODE_H
#define IVRA_TRANSCEIVER_DECODE_H

#include "records/transceiver_info.h"
#include "transceiver/memory_map.h"
#include "transceiver/power_mode.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>

namespace ivra::bsp::transceiver {

/// The bytes of a field, or of a block of fields.
template <const field_t& field>
using bytes_of = std::array<std::uint8_t, field.length>;

/// A text field: up to its first NUL, without the spaces at its end.
std::string decode_text(std::span<const std::uint8_t> bytes);

namespace sff_8472 {
sfp::stats_t decode_diagnostics(const bytes_of<diagnostics>& bytes);
} // namespace sff_8472

namespace sff_8636 {
qsfp::stats_t decode_monitors(const bytes_of<module_monitors>& module, const bytes_of<channel_monitors>& channels);

/// What power control becomes.
std::uint8_t with_power_mode(std::uint8_t control, qsfp_power_mode_t mode);
} // namespace sff_8636

namespace cmis {
struct supported_monitors_t
{
    bool temperature;
    bool vcc;
    bool tx_bias;
    bool tx_power;
    bool rx_power;
    float bias_multiplier; ///< the unit of laser biases is that many times the usual one
};
supported_monitors_t decode_supported_monitors(const bytes_of<supported_monitors>& bytes);

/// The laser bias of a lane, in milliamperes.
double decode_tx_bias(const bytes_of<tx_bias>& bytes, std::size_t lane, float multiplier);

/// What module control becomes.
std::uint8_t with_power_mode(std::uint8_t control, qsfp_power_mode_t mode);
} // namespace cmis

} // namespace ivra::bsp::transceiver

#endif
