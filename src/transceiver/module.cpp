#include "transceiver/module.h"

#include "transceiver/decode.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace ivra::bsp::transceiver {

namespace {

using v6::i2c::bus;

constexpr auto cannot_read_channels = "Cannot read QSFP channel monitors registers"; // Deliberate: of a QSFP-DD, too

/// A transfer is of all its bytes, or failed.
hw::result<std::size_t> whole(hw::result<std::size_t> transferred, std::size_t size)
{
    if (transferred.has_value() && transferred.value() != size)
        return std::error_code{EIO, std::generic_category()};
    return transferred;
}

template <const field_t& field>
bytes_of<field> read(bus& bus, const char* failure)
{
    bytes_of<field> bytes{};
    whole(bus.read_register(field.device, field.byte, bytes.data(), bytes.size()), bytes.size())
        .access_value_or_throw(failure);
    return bytes;
}

void write(bus& bus, const field_t& field, std::uint8_t value, const char* failure)
{
    whole(bus.write_register(field.device, field.byte, &value, 1), 1).access_value_or_throw(failure);
}

std::uint8_t read_identifier(bus& bus)
{
    return read<sff_8024::identifier>(bus, "Cannot read transceived identifier")[0];
}

void read_sfp(bus& bus, transceiver_info_t& info)
{
    using namespace sff_8472;
    info.vendor_name = read_string(bus, vendor_name.byte);
    info.vendor_pn = read_string(bus, vendor_pn.byte);
    const auto type = read<diagnostic_type>(bus, "Cannot read SFP diagnostics monitoring type register");
    // Deliberate: what an externally calibrated module measures is not shown; its constants are not applied.
    if ((type[0] & internally_calibrated) != 0)
        info.stats = decode_diagnostics(read<diagnostics>(bus, "Cannot read SFP diagnostics registers"));
}

void read_qsfp(bus& bus, transceiver_info_t& info)
{
    using namespace sff_8636;
    constexpr auto cannot_select = "Cannot select QSFP upper memory page";
    write(bus, page_select, vendor_name.page, cannot_select);
    info.vendor_name = read_string(bus, vendor_name.byte);
    write(bus, page_select, vendor_pn.page, cannot_select);
    info.vendor_pn = read_string(bus, vendor_pn.byte);
    write(bus, page_select, module_monitors.page, cannot_select);
    const auto module = read<module_monitors>(bus, "Cannot read QSFP module monitors registers");
    const auto channels = read<channel_monitors>(bus, cannot_read_channels);
    info.stats = decode_monitors(module, channels);
}

void read_qsfp_dd(bus& bus, transceiver_info_t& info)
{
    using namespace cmis;
    write(bus, page_select, vendor_name.page, "Cannot select QSFP-DD information memory page");
    info.vendor_name = read_string(bus, vendor_name.byte);
    write(bus, page_select, vendor_pn.page, "Cannot select QSFP-DD information page");
    info.vendor_pn = read_string(bus, vendor_pn.byte);
    write(bus, page_select, supported_monitors.page, "Cannot select QSFP-DD advertising page");
    const supported_monitors_t supported =
        decode_supported_monitors(read<supported_monitors>(bus, "Cannot read QSFP-DD supported monitors registers"));

    qsfp_dd::stats_t stats{};
    if (supported.temperature)
        stats.temperature = decode(temperature, read<temperature>(bus, "Cannot read QSFP-DD temperature register"));
    if (supported.vcc)
        stats.vcc = decode(vcc, read<vcc>(bus, "Cannot read QSFP-DD VCC register"));
    // Deliberate: selected even when nothing is read there.
    write(bus, page_select, rx_power.page, "Cannot select QSFP-DD lane status page");
    if (supported.rx_power) {
        const auto bytes = read<rx_power>(bus, cannot_read_channels);
        for (std::size_t i = 0; i < stats.lanes.size(); ++i)
            stats.lanes[i].rx_power = decode(rx_power, bytes, i);
    }
    if (supported.tx_power) {
        const auto bytes = read<tx_power>(bus, cannot_read_channels);
        for (std::size_t i = 0; i < stats.lanes.size(); ++i)
            stats.lanes[i].tx_power = decode(tx_power, bytes, i);
    }
    if (supported.tx_bias) {
        const auto bytes = read<tx_bias>(bus, cannot_read_channels);
        for (std::size_t i = 0; i < stats.lanes.size(); ++i)
            stats.lanes[i].tx_bias = decode_tx_bias(bytes, i, supported.bias_multiplier);
    }
    info.stats = stats;
}

/// Reads a module into `info` step by step, so that a failure leaves what was read before it. False: an empty cage.
bool read_module(bus& bus, transceiver_info_t& info)
{
    const std::uint8_t identifier = read_identifier(bus);
    info.type = get_identifier_name(identifier);
    const module_type_t type = get_module_type(identifier);
    if (type == module_type_t::none)
        return false;
    info.type = get_module_type_str(bus);
    if (type == module_type_t::sfp)
        read_sfp(bus, info);
    else if (type == module_type_t::qsfp)
        read_qsfp(bus, info);
    else if (type == module_type_t::qsfp_dd)
        read_qsfp_dd(bus, info);
    else
        throw std::runtime_error{"Cannot get transceiver stats"};
    return true;
}

} // namespace

module_type_t get_module_type(bus& bus)
{
    return get_module_type(read_identifier(bus));
}

std::string get_module_type_str(bus& bus)
{
    return std::string{get_identifier_name(read_identifier(bus))};
}

std::string read_string(bus& bus, std::uint8_t offset)
{
    std::array<std::uint8_t, 16> bytes{};
    whole(bus.read_register(main_memory, offset, bytes.data(), bytes.size()), bytes.size()).access_value_or_throw();
    return decode_text(bytes);
}

std::optional<transceiver_info_t> get_module_stats(bus& bus)
{
    transceiver_info_t info;
    if (!read_module(bus, info))
        return std::nullopt;
    return info;
}

std::optional<transceiver_info_t> get_module_report(bus& bus)
{
    transceiver_info_t info;
    try {
        if (!read_module(bus, info))
            return std::nullopt;
    } catch (const std::runtime_error& error) {
        info.error = error.what();
    }
    return info;
}

void set_qsfp_power_mode(bus& bus, qsfp_power_mode_t mode)
{
    switch (get_module_type(bus)) {
    case module_type_t::sfp:
        return;
    case module_type_t::qsfp: {
        using namespace sff_8636;
        const auto old = read<power_control>(bus, "Cannot read QSFP power control byte");
        write(bus, power_control, with_power_mode(old[0], mode), "Cannot update QSFP power control byte");
        return;
    }
    case module_type_t::qsfp_dd: {
        using namespace cmis;
        const auto old = read<module_control>(bus, "Cannot read QSFP-DD module level controls");
        write(bus, module_control, with_power_mode(old[0], mode), "Cannot update QSFP-DD module level controls");
        return;
    }
    case module_type_t::none:
        break;
    }
    throw std::runtime_error{"Cannot set low power mode"};
}

} // namespace ivra::bsp::transceiver
