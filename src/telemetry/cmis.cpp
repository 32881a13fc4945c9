// CMIS: QSFP-DD, OSFP and others. A lower page, and the upper page that byte 127 selects; pages from 10h on are there
// once for each bank of eight lanes, of which only bank 0 is read.

#include "telemetry/module_map.h"

#include <algorithm>
#include <string>

namespace ivra::bsp::telemetry {

namespace {

constexpr std::uint8_t dev = main_memory;
constexpr std::size_t lane_count = 8; // of a bank

// clang-format off
//                                device page  byte length          table
constexpr place_t revision      = {dev,  0x00, 1,   1};          // 8-5
constexpr place_t memory_model  = {dev,  0x00, 2,   1};          // 8-5
constexpr place_t module_state  = {dev,  0x00, 3,   1};          // 8-6
constexpr place_t fault_cause   = {dev,  0x00, 41,  1};          // 8-16
constexpr place_t bank          = {dev,  0x00, 126, 1};          // 8-25
constexpr place_t lanes_missing = {dev,  0x00, 210, 1};          // 8-35
constexpr place_t module_advertising = {dev,  0x01, 159, 1};     // 8-52
constexpr place_t lane_advertising   = {dev,  0x01, 160, 1};     // 8-52
constexpr place_t tx_disable    = {dev,  0x10, 130, 1};          // bit i is lane i + 1
constexpr place_t data_paths    = {dev,  0x11, 128, 4};          // 8-83
constexpr place_t tx_output     = {dev,  0x11, 133, 1};          // 8-85, from revision 5.0 on

constexpr identity_t identity_places{
    .vendor        = {dev,  0x00, 129, 16},                      // 8-28
    .oui           = {dev,  0x00, 145, 3},                       // 8-28
    .part_number   = {dev,  0x00, 148, 16},                      // 8-28
    .revision      = {dev,  0x00, 164, 2},                       // 8-28
    .serial_number = {dev,  0x00, 166, 16},                      // 8-28
    .date_code     = {dev,  0x00, 182, 8},                       // 8-29
};

constexpr monitor_t temperature{"temperature", scales::temperature,
                                {dev,  0x00, 14,  2},            // 8-10
                                {dev,  0x02, 128, 8}};           // 8-62
constexpr monitor_t voltage{"voltage", scales::voltage,
                                {dev,  0x00, 16,  2},            // 8-10
                                {dev,  0x02, 136, 8}};           // 8-62
constexpr monitor_t tx_power{"tx power", scales::optical_power,
                                {dev,  0x11, 154, 16},           // 8-89, of eight lanes
                                {dev,  0x02, 176, 8}};           // 8-63, for all lanes
constexpr monitor_t tx_bias{"tx bias", scales::bias,
                                {dev,  0x11, 170, 16},           // 8-89
                                {dev,  0x02, 184, 8}};           // 8-63
constexpr monitor_t rx_power{"rx power", scales::optical_power,
                                {dev,  0x11, 186, 16},           // 8-89
                                {dev,  0x02, 192, 8}};           // 8-63

// What is read at once: never more than eight bytes. Bytes 8 to 13, and 134 to 153 of page 11h, are flags, which reading
// clears.
constexpr std::uint8_t longest_transfer = 8;
constexpr place_t state           = {dev,  0x00, 0,   4};
constexpr place_t module_monitors = {dev,  0x00, 14,  4};
constexpr place_t identity_bytes  = {dev,  0x00, 129, 61};
constexpr place_t advertising     = {dev,  0x01, 153, 8};
constexpr place_t lane_states     = {dev,  0x11, 128, 6};
// clang-format on

constexpr unsigned is_flat = 0x80; // of the memory model
constexpr unsigned has_temperature = 0x01;
constexpr unsigned has_voltage = 0x02;
constexpr unsigned has_tx_bias = 0x01;
constexpr unsigned has_tx_power = 0x02;
constexpr unsigned has_rx_power = 0x04;
constexpr unsigned has_lane_monitor = has_tx_bias | has_tx_power | has_rx_power;

constexpr unsigned ready = 3; // states of the module
constexpr unsigned faulty = 5;
constexpr unsigned activated = 4; // states of a data path
constexpr unsigned initialised = 7;

bool has_pages(const memory_t& memory)
{
    return (find_byte(memory, memory_model).value_or(0) & is_flat) == 0;
}

unsigned get_state(const memory_t& memory)
{
    return find_byte(memory, module_state).value_or(0) >> 1 & 7;
}

/// Bit n: lane n + 1. None when that is not known: a lane that may not be there is not judged.
unsigned get_lanes(const memory_t& memory)
{
    return ~find_byte(memory, lanes_missing).value_or(0xff) & 0xff;
}

void add(std::vector<place_t>& places, const place_t& place)
{
    for (unsigned at = 0; at < place.length; at += longest_transfer)
        places.push_back({place.device, place.page, static_cast<std::uint8_t>(place.byte + at),
                          static_cast<std::uint8_t>(std::min<unsigned>(longest_transfer, place.length - at))});
}

/// The halves of a block of lanes that have a lane that is there.
void add_lanes(std::vector<place_t>& places, const place_t& place, unsigned lanes)
{
    constexpr unsigned half = 0xf;
    for (unsigned first = 0; first < lane_count; first += lane_count / 2)
        if ((lanes >> first & half) != 0)
            places.push_back(
                {place.device, place.page, static_cast<std::uint8_t>(place.byte + 2 * first), longest_transfer});
}

std::vector<place_t> get_places(const memory_t& memory)
{
    std::vector<place_t> places{state};
    add(places, identity_bytes);
    places.push_back(lanes_missing);
    if (!find_byte(memory, memory_model) || !has_pages(memory))
        return places;
    if (get_state(memory) == faulty)
        places.push_back(fault_cause);
    places.push_back(bank);
    places.push_back(advertising);
    const unsigned of_module = find_byte(memory, module_advertising).value_or(0);
    const unsigned of_lanes = find_byte(memory, lane_advertising).value_or(0);
    const unsigned lanes = get_lanes(memory);
    if ((of_module & (has_temperature | has_voltage)) != 0)
        places.push_back(module_monitors);
    if ((of_module & has_temperature) != 0)
        places.push_back(temperature.limits);
    if ((of_module & has_voltage) != 0)
        places.push_back(voltage.limits);
    if (lanes == 0 || (of_lanes & has_lane_monitor) == 0 || find_byte(memory, bank) != 0U)
        return places;
    const struct
    {
        unsigned bit;
        const monitor_t& monitor;
    } rows[] = {{has_tx_power, tx_power}, {has_tx_bias, tx_bias}, {has_rx_power, rx_power}};
    for (const auto& [bit, monitor] : rows)
        if ((of_lanes & bit) != 0)
            places.push_back(monitor.limits);
    places.push_back(tx_disable);
    places.push_back(lane_states);
    for (const auto& [bit, monitor] : rows)
        if ((of_lanes & bit) != 0)
            add_lanes(places, monitor.values, lanes);
    return places;
}

/// Why nothing is known of the lanes: they are in another bank than the one that is selected. Empty when they are not.
std::string get_bank_error(const memory_t& memory)
{
    const found_t selected = find(memory, bank);
    if (!selected || selected.bytes[0] == 0)
        return selected.error;
    return "Bank " + std::to_string(selected.bytes[0]) + " is selected; lanes 1 to 8 are in bank 0";
}

/// A monitor of the module, or of a lane. `bits` are what it advertises.
reading_t decode_advertised(const memory_t& memory, const found_t& bits, unsigned bit, const monitor_t& monitor,
                            std::size_t lane = 0)
{
    if (!bits)
        return without_value(monitor, bits.error.empty() ? state_t::unsupported : state_t::failed, bits.error);
    if ((bits.bytes[0] & bit) == 0)
        return without_value(monitor, state_t::unsupported);
    const bool is_of_bank = monitor.values.byte >= first_of_page;
    if (const std::string error = get_bank_error(memory); is_of_bank && !error.empty())
        return without_value(monitor, state_t::failed, error);
    return decode_monitor(memory, monitor, lane);
}

/// A bias is the usual number times a factor, as are its limits.
reading_t decode_tx_bias(const memory_t& memory, const found_t& bits, std::size_t lane)
{
    const unsigned code = bits.bytes[0] >> 3 & 3;
    if ((bits.bytes[0] & has_tx_bias) != 0 && code == 3) {
        reading_t reading = without_value(tx_bias, state_t::unsupported);
        reading.findings.emplace_back("The module gives its bias a factor that has no meaning");
        return reading;
    }
    monitor_t monitor = tx_bias;
    monitor.scale.steps /= 1U << code;
    return decode_advertised(memory, bits, has_tx_bias, monitor, lane);
}

/// The state of a lane's data path; nothing when it was not read.
std::optional<unsigned> get_path_state(const memory_t& memory, std::size_t lane)
{
    const found_t found = find(memory, data_paths);
    return found ? std::optional<unsigned>{found.bytes[lane / 2] >> 4 * (lane % 2) & 0xfU} : std::nullopt;
}

/// Nobody has switched a lane's transmitter off, as far as it can be told.
bool is_transmitting(const memory_t& memory, std::size_t lane)
{
    constexpr unsigned first_with_outputs = 0x50;
    const auto disabled = find_byte(memory, tx_disable);
    const auto outputs = find_byte(memory, tx_output);
    const bool tells_outputs = find_byte(memory, revision).value_or(0) >= first_with_outputs;
    return get_path_state(memory, lane) == activated && disabled && (*disabled >> lane & 1) == 0 &&
           (!tells_outputs || (outputs && (*outputs >> lane & 1) != 0));
}

lane_t decode_lane(const memory_t& memory, const found_t& bits, std::size_t number)
{
    lane_t lane{.number = static_cast<unsigned>(number + 1),
                .rx_power = decode_advertised(memory, bits, has_rx_power, rx_power, number),
                .tx_power = decode_advertised(memory, bits, has_tx_power, tx_power, number),
                .tx_bias = decode_tx_bias(memory, bits, number),
                .is_transmitter_off = !is_transmitting(memory, number)};
    const unsigned path = get_path_state(memory, number).value_or(0);
    if (path != activated && path != initialised) // only then limits are valid (section 8.5)
        for (reading_t* reading : readings_of(lane))
            drop_limits(*reading);
    if (lane.is_transmitter_off) {
        drop_low_limits(lane.tx_power);
        drop_low_limits(lane.tx_bias);
    }
    return lane;
}

void decode_lanes(const memory_t& memory, module_t& module)
{
    const found_t bits = find(memory, lane_advertising);
    if (!bits || (bits.bytes[0] & has_lane_monitor) == 0)
        return;
    const unsigned lanes = get_lanes(memory);
    for (std::size_t number = 0; number < lane_count; ++number)
        if ((lanes >> number & 1) != 0)
            module.lanes.push_back(decode_lane(memory, bits, number));
    const found_t states = find(memory, data_paths);
    if (lanes != 0 && !states && states.error.empty() && get_bank_error(memory).empty())
        module.findings.emplace_back("It says that it measures its lanes, and has no page 11h");
}

void tell_fault(const memory_t& memory, module_t& module)
{
    constexpr const char* causes[] = {"it does not say why", "a runaway of its cooler", "its data memory",
                                      "its program memory",  "a transmitter",           "a receiver",
                                      "its temperature"};
    const unsigned cause = find_byte(memory, fault_cause).value_or(0);
    module.findings.push_back(std::string{"It reports a fault: "} + causes[cause < std::size(causes) ? cause : 0]);
}

void decode(const memory_t& memory, module_t& module)
{
    decode_identity(memory, identity_places, module);
    const found_t model = find(memory, memory_model);
    const found_t bits = !model ? model : has_pages(memory) ? find(memory, module_advertising) : found_t{};
    module.monitors = {decode_advertised(memory, bits, has_temperature, temperature),
                       decode_advertised(memory, bits, has_voltage, voltage)};
    check_measured(memory, temperature, voltage, module);
    if (!model || !has_pages(memory))
        return;
    // While it powers up or down, or saves power, what it measures of itself may be out of specification.
    const unsigned state_now = get_state(memory);
    if (state_now != ready && state_now != faulty)
        std::ranges::for_each(module.monitors, drop_limits);
    if (state_now == faulty)
        tell_fault(memory, module);
    decode_lanes(memory, module);
}

} // namespace

const module_map_t cmis{.has_pages = &has_pages, .get_places = &get_places, .decode = &decode};

} // namespace ivra::bsp::telemetry
