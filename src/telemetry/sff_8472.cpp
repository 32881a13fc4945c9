// SFF-8472: SFP modules. Two memories without pages, A0h and A2h; what an SFP measures is in the second one.

#include "telemetry/module_map.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace ivra::bsp::telemetry {

namespace {

constexpr std::uint8_t a0 = main_memory;
constexpr std::uint8_t a2 = diagnostics_memory;

// clang-format off
constexpr identity_t identity_places{
//                    device page byte length          table
    .vendor        = {a0,    0,   20,  16},         // 4-2
    .oui           = {a0,    0,   37,  3},          // 4-2
    .part_number   = {a0,    0,   40,  16},         // 4-2
    .revision      = {a0,    0,   56,  4},          // 4-2
    .serial_number = {a0,    0,   68,  16},         // 4-2
    .date_code     = {a0,    0,   84,  8},          // 8-4
};
constexpr place_t diagnostics = {a0, 0, 92, 1};     // 8-5

constexpr monitor_t temperature{"temperature", scales::temperature,
                      {a2,    0,   96,  2},         // 9-16
                      {a2,    0,   0,   8}};        // 9-5
constexpr monitor_t voltage{"voltage", scales::voltage,
                      {a2,    0,   98,  2},         // 9-16
                      {a2,    0,   8,   8}};        // 9-5
constexpr monitor_t tx_bias{"tx bias", scales::bias,
                      {a2,    0,   100, 2},         // 9-16
                      {a2,    0,   16,  8}};        // 9-5
constexpr monitor_t tx_power{"tx power", scales::optical_power,
                      {a2,    0,   102, 2},         // 9-16
                      {a2,    0,   24,  8}};        // 9-5
constexpr monitor_t rx_power{"rx power", scales::optical_power,
                      {a2,    0,   104, 2},         // 9-16
                      {a2,    0,   32,  8}};        // 9-5
constexpr place_t status = {a2, 0, 110, 1};         // 9-16

// Slope and offset, and the polynomial from its highest power on
constexpr place_t rx_power_calibration    = {a2, 0, 56, 20}; // 9-6
constexpr place_t tx_bias_calibration     = {a2, 0, 76, 4};
constexpr place_t tx_power_calibration    = {a2, 0, 80, 4};
constexpr place_t temperature_calibration = {a2, 0, 84, 4};
constexpr place_t voltage_calibration     = {a2, 0, 88, 4};

// What is read at once. Bytes 112 to 117 are flags, which some vendors latch.
constexpr place_t names        = {a0, 0, 20, 40};
constexpr place_t serial       = {a0, 0, 68, 27};
constexpr place_t limits       = {a2, 0, 0,  40};
constexpr place_t calibration  = {a2, 0, 56, 36};
constexpr place_t measurements = {a2, 0, 96, 15};
// clang-format on

constexpr unsigned is_implemented = 0x40; // of the diagnostics
constexpr unsigned is_internal = 0x20;
constexpr unsigned is_external = 0x10;
constexpr unsigned needs_address_change = 0x04;
constexpr unsigned tx_disable = 0xc0; // of the status: the pin, and software
constexpr unsigned data_not_ready = 0x01;

bool is_calibrated_once(unsigned bits)
{
    return ((bits & is_internal) != 0) != ((bits & is_external) != 0);
}

std::vector<place_t> get_places(const memory_t& memory)
{
    std::vector<place_t> places{names, serial};
    const unsigned bits = find_byte(memory, diagnostics).value_or(0);
    if ((bits & is_implemented) == 0 || (bits & needs_address_change) != 0 || !is_calibrated_once(bits))
        return places;
    places.push_back(limits);
    if ((bits & is_external) != 0)
        places.push_back(calibration);
    places.push_back(measurements);
    return places;
}

unsigned unsigned_of(const std::vector<std::uint8_t>& bytes, std::size_t first, std::size_t count)
{
    unsigned number = 0;
    for (std::size_t at = first; at < first + count; ++at)
        number = number << 8 | bytes[at];
    return number;
}

/// Slope in 256ths and offset (section 9.3).
polynomial_t decode_line(const std::vector<std::uint8_t>& bytes)
{
    const double offset = static_cast<std::int16_t>(unsigned_of(bytes, 2, 2));
    return {offset, unsigned_of(bytes, 0, 2) / 256.0};
}

/// Five numbers in single precision, that of x^4 first (section 9.3).
polynomial_t decode_polynomial(const std::vector<std::uint8_t>& bytes)
{
    polynomial_t polynomial{};
    for (std::size_t power = 0; power < polynomial.size(); ++power)
        polynomial[power] = std::bit_cast<float>(unsigned_of(bytes, 4 * (polynomial.size() - 1 - power), 4));
    return polynomial;
}

/// An externally calibrated value without its constants is none.
reading_t decode_calibrated(const memory_t& memory, const monitor_t& monitor, const place_t& constants,
                            polynomial_t (*decode)(const std::vector<std::uint8_t>& bytes))
{
    if ((find_byte(memory, diagnostics).value_or(0) & is_external) == 0)
        return decode_monitor(memory, monitor);
    const found_t found = find(memory, constants);
    if (!found)
        return without_value(monitor, found.error.empty() ? state_t::unsupported : state_t::failed, found.error);
    return decode_monitor(memory, monitor, 0, decode(found.bytes));
}

void decode(const memory_t& memory, module_t& module)
{
    decode_identity(memory, identity_places, module);
    const found_t type = find(memory, diagnostics);
    const auto has_none = [&](state_t state, const std::string& error = {}) {
        for (const monitor_t& monitor : {temperature, voltage})
            module.monitors.push_back(without_value(monitor, state, error));
    };
    if (!type)
        return has_none(state_t::failed, type.error);
    if ((type.bytes[0] & is_implemented) == 0)
        return has_none(state_t::unsupported);
    if ((type.bytes[0] & needs_address_change) != 0) {
        module.findings.emplace_back("Its diagnostics are only reached by a change of address, which is not done");
        return has_none(state_t::unsupported);
    }
    if (!is_calibrated_once(type.bytes[0])) {
        module.findings.emplace_back("It does not say whether its diagnostics are calibrated internally or externally");
        return has_none(state_t::unsupported);
    }

    module.monitors = {decode_calibrated(memory, temperature, temperature_calibration, &decode_line),
                       decode_calibrated(memory, voltage, voltage_calibration, &decode_line)};
    lane_t lane{.number = 1,
                .rx_power = decode_calibrated(memory, rx_power, rx_power_calibration, &decode_polynomial),
                .tx_power = decode_calibrated(memory, tx_power, tx_power_calibration, &decode_line),
                .tx_bias = decode_calibrated(memory, tx_bias, tx_bias_calibration, &decode_line)};
    check_measured(memory, temperature, voltage, module);
    if (const found_t found = find(memory, status)) {
        lane.is_transmitter_off = (found.bytes[0] & tx_disable) != 0;
        if ((found.bytes[0] & data_not_ready) != 0) {
            for (reading_t* reading :
                 {&module.monitors[0], &module.monitors[1], &lane.rx_power, &lane.tx_power, &lane.tx_bias})
                make_unavailable(*reading);
        }
    }
    if (lane.is_transmitter_off) {
        drop_limits(lane.tx_power); // not even a high one: the value counts for nothing then (section 9.2)
        drop_low_limits(lane.tx_bias);
    }
    module.lanes.push_back(std::move(lane));
}

} // namespace

const module_map_t sff_8472{
    .has_pages = [](const memory_t&) { return false; }, .get_places = &get_places, .decode = &decode};

} // namespace ivra::bsp::telemetry
