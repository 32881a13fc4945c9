// SFF-8636, and SFF-8436, which it grew from: QSFP modules. A lower page, and the upper page that byte 127 selects.

#include "telemetry/module_map.h"

#include <algorithm>

namespace ivra::bsp::telemetry {

namespace {

constexpr std::uint8_t dev = main_memory;
constexpr std::size_t channel_count = 4;

// clang-format off
//                              device page  byte length          table
constexpr place_t revision    = {dev,  0x00, 1,   1};          // 6-4
constexpr place_t status      = {dev,  0x00, 2,   1};          // 6-3
constexpr place_t tx_disable  = {dev,  0x00, 86,  1};          // 6-10
constexpr place_t power       = {dev,  0x00, 93,  1};          // 6-10
constexpr place_t channels    = {dev,  0x00, 113, 1};          // 6-14
constexpr place_t technology  = {dev,  0x00, 147, 1};          // 6-20
constexpr place_t advertising = {dev,  0x00, 220, 1};          // 6-24

constexpr identity_t identity_places{
    .vendor        = {dev,  0x00, 148, 16},                    // 6-15
    .oui           = {dev,  0x00, 165, 3},                     // 6-15
    .part_number   = {dev,  0x00, 168, 16},                    // 6-15
    .revision      = {dev,  0x00, 184, 2},                     // 6-15
    .serial_number = {dev,  0x00, 196, 16},                    // 6-15
    .date_code     = {dev,  0x00, 212, 8},                     // 6-23
};

constexpr monitor_t temperature{"temperature", scales::temperature,
                                {dev,  0x00, 22,  2},          // 6-8
                                {dev,  0x03, 128, 8}};         // 6-28
constexpr monitor_t voltage{"voltage", scales::voltage,
                                {dev,  0x00, 26,  2},          // 6-8
                                {dev,  0x03, 144, 8}};         // 6-28
constexpr monitor_t rx_power{"rx power", scales::optical_power,
                                {dev,  0x00, 34,  8},          // 6-9, of four channels
                                {dev,  0x03, 176, 8}};         // 6-28
constexpr monitor_t tx_bias{"tx bias", scales::bias,
                                {dev,  0x00, 42,  8},          // 6-9
                                {dev,  0x03, 184, 8}};         // 6-28
constexpr monitor_t tx_power{"tx power", scales::optical_power,
                                {dev,  0x00, 50,  8},          // 6-9
                                {dev,  0x03, 192, 8}};         // 6-28

// What is read at once. Bytes 3 to 21 are flags, which reading clears.
constexpr place_t state            = {dev,  0x00, 0,   3};
constexpr place_t module_monitors  = {dev,  0x00, 22,  6};
constexpr place_t channel_monitors = {dev,  0x00, 34,  24};
constexpr place_t controls         = {dev,  0x00, 86,  8};
constexpr place_t names            = {dev,  0x00, 147, 39};
constexpr place_t serial           = {dev,  0x00, 196, 25};
constexpr place_t module_limits    = {dev,  0x03, 128, 24};
constexpr place_t channel_limits   = {dev,  0x03, 176, 24};
// clang-format on

constexpr unsigned is_flat = 0x04; // of the status
constexpr unsigned data_not_ready = 0x01;
constexpr unsigned power_override = 0x01; // of the power control: bit 1 counts, not the cage's pin
constexpr unsigned power_set_low = 0x02;
constexpr unsigned has_temperature = 0x20; // of the advertising
constexpr unsigned has_voltage = 0x10;
constexpr unsigned has_tx_power = 0x04;

bool has_pages(const memory_t& memory)
{
    return (find_byte(memory, status).value_or(0) & is_flat) == 0;
}

std::vector<place_t> get_places(const memory_t& memory)
{
    std::vector<place_t> places{state, module_monitors, channel_monitors, controls, channels, names, serial};
    if (find_byte(memory, status) && has_pages(memory)) {
        places.push_back(module_limits);
        places.push_back(channel_limits);
    }
    return places;
}

bool is_copper(const memory_t& memory)
{
    constexpr unsigned first_of_copper = 0xa;
    return find_byte(memory, technology).value_or(0) >> 4 >= first_of_copper;
}

/// Before SFF-8636 nothing was said of transmit power.
bool is_sff_8436(const memory_t& memory, const module_t& module)
{
    constexpr std::uint8_t qsfp28 = 0x11;
    constexpr unsigned last_of_sff_8436 = 2;
    const auto number = find_byte(memory, revision);
    return module.identifier != qsfp28 && number && *number <= last_of_sff_8436;
}

/// Temperature or voltage. Modules that measure them and do not say so are common, so that only a zero is none.
reading_t decode_module_monitor(const memory_t& memory, const monitor_t& monitor, unsigned advertised)
{
    constexpr unsigned first_to_advertise = 8; // revision 2.8
    reading_t reading = decode_monitor(memory, monitor);
    const auto bits = find_byte(memory, advertising);
    if (reading.value == 0 && bits && (*bits & advertised) == 0 &&
        find_byte(memory, revision).value_or(0) >= first_to_advertise)
        return without_value(monitor, state_t::unsupported);
    return reading;
}

reading_t decode_tx_power(const memory_t& memory, const module_t& module, std::size_t channel)
{
    if (is_sff_8436(memory, module))
        return without_value(tx_power, state_t::unsupported);
    const found_t bits = find(memory, advertising);
    if (!bits)
        return without_value(tx_power, state_t::failed, bits.error);
    if ((bits.bytes[0] & has_tx_power) == 0)
        return without_value(tx_power, state_t::unsupported);
    return decode_monitor(memory, tx_power, channel);
}

/// Bit n: transmitter n + 1 is off, or it is not known to be on.
unsigned get_transmitters_off(const memory_t& memory)
{
    constexpr unsigned all = (1U << channel_count) - 1;
    const auto disabled = find_byte(memory, tx_disable);
    const auto control = find_byte(memory, power);
    if (!disabled || !control)
        return all;
    if ((*control & power_override) != 0)
        return (*control & power_set_low) != 0 ? all : *disabled;
    // The cage's pin decides, which nobody can read: it may be why there is no bias anywhere.
    const std::vector<std::uint8_t> biases = find(memory, tx_bias.values).bytes;
    const bool is_dark = std::ranges::count(biases, 0) == std::ssize(biases);
    return is_dark ? all : *disabled;
}

lane_t decode_lane(const memory_t& memory, const module_t& module, std::size_t channel)
{
    lane_t lane{.number = static_cast<unsigned>(channel + 1),
                .rx_power = decode_monitor(memory, rx_power, channel),
                .tx_power = decode_tx_power(memory, module, channel),
                .tx_bias = decode_monitor(memory, tx_bias, channel),
                .is_transmitter_off = (get_transmitters_off(memory) >> channel & 1) != 0};
    if (lane.is_transmitter_off) {
        drop_low_limits(lane.tx_power);
        drop_low_limits(lane.tx_bias);
    }
    if ((find_byte(memory, status).value_or(0) & data_not_ready) != 0)
        for (reading_t* reading : readings_of(lane))
            make_unavailable(*reading);
    return lane;
}

void decode(const memory_t& memory, module_t& module)
{
    decode_identity(memory, identity_places, module);
    module.monitors = {decode_module_monitor(memory, temperature, has_temperature),
                       decode_module_monitor(memory, voltage, has_voltage)};
    check_measured(memory, temperature, voltage, module);
    if ((find_byte(memory, status).value_or(0) & data_not_ready) != 0)
        std::ranges::for_each(module.monitors, make_unavailable);

    // A channel that may not be implemented is not judged.
    const auto missing = find_byte(memory, channels);
    if (!missing || is_copper(memory))
        return;
    for (std::size_t channel = 0; channel < channel_count; ++channel)
        if ((*missing >> channel & 1) == 0)
            module.lanes.push_back(decode_lane(memory, module, channel));
}

} // namespace

const module_map_t sff_8636{.has_pages = &has_pages, .get_places = &get_places, .decode = &decode};

} // namespace ivra::bsp::telemetry
