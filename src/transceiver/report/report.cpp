#include "transceiver/report/report.h"

#include "text/text.h"

#include <cmath>
#include <cstddef>
#include <optional>
#include <variant>

namespace ivra::bsp {

namespace {

constexpr std::size_t decimals = 3;

std::string degrees(double celsius)
{
    return stat_str(celsius, "°C", decimals);
}

std::string volts(double value)
{
    return stat_str(value, "V", decimals);
}

std::string milliamperes(double value)
{
    return stat_str(value, "mA", decimals);
}

/// A value that not every module has.
void add_optional(section& s, const char* name, std::optional<double> value, std::string (*to_text)(double), color c)
{
    if (value)
        s.add_stat(name, to_text(*value), c);
    else
        s.add_stat<std::string>(name, "unavailable", color::red);
}

section& add_channel(section::list& channels, std::size_t number)
{
    return channels.add_section("Channel " + std::to_string(number), "Channel", channels.level);
}

} // namespace

template <class T>
std::string optical_power_str(T milliwatts)
{
    std::string text = fixed(milliwatts, decimals) + " mW";
    if (milliwatts != 0)
        text += " (" + fixed(10 * std::log10(milliwatts), decimals) + " dBm)";
    return text;
}

template std::string optical_power_str(double);

void get_sfp_stats(const transceiver::sfp::stats_t& stats, section& s)
{
    s.add_stat("Temperature", stat_str(stats.temperature, "°C", 2), color::vermilion); // Deliberate: 2 decimals here
    s.add_stat("VCC", volts(stats.vcc), color::yellow);
    section channel{"Channel info", std::nullopt, static_cast<unsigned short>(s.level + 1)};
    channel.add_stat("RX power", optical_power_str(stats.rx_power), color::green);
    channel.add_stat("TX power", optical_power_str(stats.tx_power), color::blue);
    channel.add_stat("TX bias", milliamperes(stats.tx_bias), color::vermilion);
    s.entries.emplace_back(channel);
}

void get_qsfp_stats(const transceiver::qsfp::stats_t& stats, section& s)
{
    s.add_stat("Temperature", degrees(stats.temperature), color::vermilion);
    s.add_stat("VCC", volts(stats.vcc), color::yellow);
    section::list& channels = s.add_list("Channels");
    for (std::size_t i = 0; i < stats.channels.size(); ++i) {
        section& channel = add_channel(channels, i);
        channel.add_stat("RX power", optical_power_str(stats.channels[i].rx_power), color::green);
        channel.add_stat("TX bias", milliamperes(stats.channels[i].tx_bias), color::vermilion);
    }
}

void get_qsfp_dd_stats(const transceiver::qsfp_dd::stats_t& stats, section& s)
{
    add_optional(s, "Temperature", stats.temperature, degrees, color::vermilion);
    add_optional(s, "VCC", stats.vcc, volts, color::yellow);
    section::list& channels = s.add_list("Channels");
    for (std::size_t i = 0; i < stats.lanes.size(); ++i) {
        section& channel = add_channel(channels, i);
        add_optional(channel, "RX power", stats.lanes[i].rx_power, optical_power_str<double>, color::green);
        add_optional(channel, "TX power", stats.lanes[i].tx_power, optical_power_str<double>, color::blue);
        add_optional(channel, "TX bias", stats.lanes[i].tx_bias, milliamperes, color::vermilion);
    }
}

namespace {

struct stats_visitor
{
    section& s;
    void operator()(const transceiver::sfp::stats_t& stats) const { get_sfp_stats(stats, s); }
    void operator()(const transceiver::qsfp::stats_t& stats) const { get_qsfp_stats(stats, s); }
    void operator()(const transceiver::qsfp_dd::stats_t& stats) const { get_qsfp_dd_stats(stats, s); }
};

} // namespace

void add_transceiver(const transceiver::transceiver_info_t& info, section& port)
{
    // A module that failed shows what was read before.
    const auto add_text = [&port](const char* name, const std::optional<std::string>& text) {
        if (text)
            port.add_stat(name, *text, color::normal);
    };
    add_text("Type", info.type);
    add_text("Vendor name", info.vendor_name);
    add_text("Vendor PN", info.vendor_pn);
    if (info.error)
        port.add_stat("Error", *info.error, color::red);
    else if (info.stats)
        std::visit(stats_visitor{port}, *info.stats);
    else
        port.add_stat<std::string>("Sensors", "Not available", color::red);
}

} // namespace ivra::bsp
