#include "rack/defaults.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <span>

namespace ivra::virtual_platform {

namespace {

/// A device on a bus of a model.
struct place_t
{
    std::uint8_t bus;
    i2c_kind_t kind;
    std::uint8_t address;
    std::optional<unsigned> pin;
    std::uint8_t channel = 0; ///< of the multiplexer before it on its bus; 0: on the bus itself
};

using enum i2c_kind_t;

// clang-format off
constexpr place_t alveo_u2x[] = {
    // bus  kind          address  pin           channel
    {0, multiplexer,      0x74,    0},
    {0, cage,             0,       std::nullopt, 0x01},
    {0, cage,             0,       std::nullopt, 0x02},
};

constexpr place_t alveo_u5x[] = {
    {0, clock_generator,  0x68,    std::nullopt},
};

constexpr place_t xupp3r[] = {
    {0, mac_eeprom,       0x50,    0},
    {1, cage,             0,       std::nullopt},
    {2, cage,             0,       std::nullopt},
    {3, cage,             0,       std::nullopt},
    {4, cage,             0,       std::nullopt},
    {5, multiplexer,      0x72,    std::nullopt}, // comes with the cages behind it
    {5, cage,             0,       std::nullopt, 0x01},
    {5, cage,             0,       std::nullopt, 0x02},
    {5, cage,             0,       std::nullopt, 0x04},
    {5, cage,             0,       std::nullopt, 0x08},
};

constexpr place_t xupvv8[] = {
    {0, multiplexer,      0x72,    std::nullopt},
    {0, mac_eeprom,       0x50,    0,            0x01},
    {0, cage,             0,       std::nullopt, 0x10},
    {0, cage,             0,       std::nullopt, 0x20},
    {0, cage,             0,       std::nullopt, 0x40},
    {0, cage,             0,       std::nullopt, 0x80},
};

struct topology_t
{
    std::string_view model;
    std::span<const place_t> places;
    std::size_t cages;     ///< that are always there
    std::size_t all_cages; ///< with those that are optional
};

constexpr topology_t topologies[] = {
    {"xilinx_u200",     alveo_u2x, 2, 2},
    {"xilinx_u250",     alveo_u2x, 2, 2},
    {"xilinx_u50",      alveo_u5x, 0, 0},
    {"xilinx_u55c",     alveo_u5x, 0, 0},
    {"bittware_xupp3r", xupp3r,    4, 8},
    {"ivra_fpb2",       xupp3r,    4, 8},
    {"bittware_xupvv8", xupvv8,    4, 4},
};
// clang-format on

constexpr topology_t no_topology{"", {}, 0, 0};
constexpr unsigned default_pins = 8;

const topology_t& topology_of(std::string_view model)
{
    const auto* const row = std::ranges::find(topologies, model, &topology_t::model);
    return row == std::end(topologies) ? no_topology : *row;
}

std::string default_mac_eeprom(std::size_t position)
{
    // Locally administered, and other ones than the design's: 256 for each board.
    char text[32];
    std::snprintf(text, sizeof text, "MAC=02:00:02:%02x:%02x:00", static_cast<unsigned>(position >> 8U & 0xffU),
                  static_cast<unsigned>(position & 0xffU));
    return text;
}

} // namespace

std::size_t fewest_cages(std::string_view model)
{
    return topology_of(model).cages;
}

std::size_t most_cages(std::string_view model)
{
    return topology_of(model).all_cages;
}

std::vector<i2c_bus_t> default_buses(std::string_view model, std::size_t cages)
{
    const topology_t& topology = topology_of(model);
    std::vector<i2c_bus_t> buses;
    std::size_t next_cage = 0;
    std::uint8_t multiplexer_address = 0;
    for (const place_t& place : topology.places) {
        if (buses.empty() || buses.back().index != place.bus)
            buses.push_back({place.bus, {}});
        const bool is_optional = next_cage >= topology.cages && topology.all_cages > topology.cages;
        if (is_optional && cages <= topology.cages)
            continue; // the bus is there, with nothing on it
        i2c_device_t device{place.kind, 0, place.address, place.pin, {}};
        if (place.kind == multiplexer)
            multiplexer_address = place.address;
        if (place.kind == cage)
            device.number = next_cage++;
        if (place.channel != 0)
            device.behind = {multiplexer_address, place.channel};
        if (place.kind != cage || device.number < cages)
            buses.back().devices.push_back(device);
    }
    number_multiplexers(buses);
    return buses;
}

i2c_t default_i2c(std::string_view model, std::size_t position)
{
    const topology_t& topology = topology_of(model);
    i2c_t i2c;
    if (topology.places.empty())
        return i2c;
    i2c.pins = default_pins;
    i2c.cages.resize(topology.cages);
    if (std::ranges::find(topology.places, mac_eeprom, &place_t::kind) != topology.places.end())
        i2c.mac_eeprom = default_mac_eeprom(position);
    i2c.buses = default_buses(model, topology.cages);
    return i2c;
}

} // namespace ivra::virtual_platform
