#ifndef IVRA_RECORDS_TRANSCEIVER_INFO_H
#define IVRA_RECORDS_TRANSCEIVER_INFO_H

#include <array>
#include <optional>
#include <string>
#include <variant>

namespace ivra::bsp::transceiver {

// Temperatures are in degrees Celsius, supply voltages in volts, optical powers in milliwatts, laser biases in
// milliamperes.

namespace sfp {
struct stats_t
{
    double temperature;
    double vcc;
    double rx_power;
    double tx_power;
    double tx_bias;
};
} // namespace sfp

namespace qsfp {
struct channel_t
{
    double rx_power;
    double tx_bias;
};
struct stats_t
{
    double temperature;
    double vcc;
    std::array<channel_t, 4> channels;
};
} // namespace qsfp

namespace qsfp_dd {
/// A value is absent when the module does not advertise its monitor.
struct lane_t
{
    std::optional<double> rx_power;
    std::optional<double> tx_power;
    std::optional<double> tx_bias;
};
struct stats_t
{
    std::optional<double> temperature;
    std::optional<double> vcc;
    std::array<lane_t, 8> lanes;
};
} // namespace qsfp_dd

/// The type of what is in an empty cage.
inline constexpr const char* no_transceiver = "no transceiver detected";

/// A plugged module, as its memory describes it. A text that was not read, because something failed before it, is
/// absent; one that was read may be blank.
struct transceiver_info_t
{
    std::optional<std::string> type;
    std::optional<std::string> vendor_name;
    std::optional<std::string> vendor_pn;
    std::optional<std::variant<sfp::stats_t, qsfp::stats_t, qsfp_dd::stats_t>> stats; ///< absent without diagnostics
    std::optional<std::string> error; ///< why the rest could not be read
};

} // namespace ivra::bsp::transceiver

#endif
