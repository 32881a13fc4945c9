#include "transceiver/decode.h"

#include <algorithm>

namespace ivra::bsp::transceiver {

std::string decode_text(std::span<const std::uint8_t> bytes)
{
    std::string text{bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

namespace sff_8472 {

sfp::stats_t decode_diagnostics(const bytes_of<diagnostics>& bytes)
{
    return {.temperature = decode(temperature, diagnostics, bytes),
            .vcc = decode(vcc, diagnostics, bytes),
            .rx_power = decode(rx_power, diagnostics, bytes),
            .tx_power = decode(tx_power, diagnostics, bytes),
            .tx_bias = decode(tx_bias, diagnostics, bytes)};
}

} // namespace sff_8472

namespace sff_8636 {

qsfp::stats_t decode_monitors(const bytes_of<module_monitors>& module, const bytes_of<channel_monitors>& channels)
{
    qsfp::stats_t stats{.temperature = decode(temperature, module_monitors, module),
                        .vcc = decode(vcc, module_monitors, module),
                        .channels = {}};
    for (std::size_t i = 0; i < stats.channels.size(); ++i)
        stats.channels[i] = {.rx_power = decode(rx_power, channel_monitors, channels, i),
                             .tx_bias = decode(tx_bias, channel_monitors, channels, i)};
    return stats;
}

std::uint8_t with_power_mode(std::uint8_t control, qsfp_power_mode_t mode)
{
    const unsigned overridden = control | power_override;
    return static_cast<std::uint8_t>(mode == qsfp_power_mode_t::low ? overridden | power_set_low
                                                                    : overridden & ~unsigned{power_set_low});
}

} // namespace sff_8636

namespace cmis {

supported_monitors_t decode_supported_monitors(const bytes_of<supported_monitors>& bytes)
{
    constexpr float bias_multipliers[] = {1, 2, 4, 1}; // by code; 3 is reserved
    const auto has = [&bytes](std::size_t byte, unsigned bit) { return (bytes[byte] >> bit & 1) != 0; };
    return {.temperature = has(0, 0),
            .vcc = has(0, 1),
            .tx_bias = has(1, 0),
            .tx_power = has(1, 1),
            .rx_power = has(1, 2),
            .bias_multiplier = bias_multipliers[bytes[1] >> 3 & 3]};
}

double decode_tx_bias(const bytes_of<tx_bias>& bytes, std::size_t lane, float multiplier)
{
    return decode(tx_bias, bytes, lane) * multiplier; // exact: multipliers are powers of two
}

std::uint8_t with_power_mode(std::uint8_t control, qsfp_power_mode_t mode)
{
    const unsigned without = control & ~unsigned{allow_low_power_pin} & ~unsigned{request_low_power};
    return static_cast<std::uint8_t>(mode == qsfp_power_mode_t::low ? without | request_low_power : without);
}

} // namespace cmis

} // namespace ivra::bsp::transceiver
