#include "read_i2c.h"

#include "read_module.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace ivra::virtual_platform {

namespace {

struct kind_row_t
{
    std::string_view name;
    i2c_kind_t kind;
};

constexpr kind_row_t kinds[] = {
    {"cage", i2c_kind_t::cage},
    {"multiplexer", i2c_kind_t::multiplexer},
    {"mac_eeprom", i2c_kind_t::mac_eeprom},
    {"clock_generator", i2c_kind_t::clock_generator},
};

cage_t read_cage(const node_t& node, std::string& text)
{
    if (node.value.IsString() && (node.text() == "empty" || node.text() == "silent"))
        return {node.text() == "empty", std::nullopt};
    return {true, read_module(node, text)};
}

/// "behind": the multiplexer's address and the mask of channels.
i2c_behind_t read_behind(const node_t& node, const i2c_bus_t& bus)
{
    const auto address = static_cast<std::uint8_t>(read_number(node.element(0)));
    const auto multiplexer = std::ranges::find_if(bus.devices, [address](const i2c_device_t& device) {
        return device.kind == i2c_kind_t::multiplexer && device.address == address;
    });
    if (multiplexer == bus.devices.end())
        node.element(0).expected("the address of a multiplexer that comes before it on this bus");
    return {multiplexer->number, static_cast<std::uint8_t>(read_number(node.element(1)))};
}

i2c_device_t read_device(const node_t& node, const i2c_t& i2c, const i2c_bus_t& bus, std::size_t& multiplexers)
{
    i2c_device_t device;
    const auto* const row = std::ranges::find(kinds, node.required("device").text(), &kind_row_t::name);
    device.kind = row == std::end(kinds) ? i2c_kind_t::cage : row->kind; // the schema lets no other name through
    const auto number = node.member("number");
    const auto address = node.member("address");
    if (device.kind == i2c_kind_t::cage) {
        if (address)
            address->expected("no address, as a cage's module decides");
        if (!number)
            node.expected("a member \"number\", from 0: which cage it is");
        device.number = number->value.GetUint();
        if (device.number >= i2c.cages.size())
            number->expected("less than " + std::to_string(i2c.cages.size()) + ", the number of cages");
    } else {
        if (number)
            number->expected("no number, which only a cage has");
        if (!address)
            node.expected("a member \"address\"");
        device.address = static_cast<std::uint8_t>(read_number(*address));
    }
    if (const auto pin = node.member("pin"); pin && !pin->value.IsNull())
        device.pin = pin->value.GetUint();
    if (const auto behind = node.member("behind"); behind && !behind->value.IsNull())
        device.behind = read_behind(*behind, bus);
    if (device.kind == i2c_kind_t::multiplexer)
        device.number = multiplexers++;
    return device;
}

std::vector<i2c_bus_t> read_buses(const node_t& node, const i2c_t& i2c)
{
    std::vector<i2c_bus_t> buses;
    std::size_t multiplexers = 0;
    for (std::size_t at = 0; at < node.size(); ++at) {
        const node_t index = node.element(at).required("index");
        const node_t devices = node.element(at).required("devices");
        if (!buses.empty() && index.value.GetUint() <= buses.back().index)
            index.expected("more than " + std::to_string(buses.back().index) + ", the index of the bus before it");
        buses.push_back({static_cast<std::uint8_t>(index.value.GetUint()), {}});
        for (std::size_t device = 0; device < devices.size(); ++device)
            buses.back().devices.push_back(read_device(devices.element(device), i2c, buses.back(), multiplexers));
    }
    return buses;
}

} // namespace

void read_i2c(const node_t& node, std::string_view model, i2c_t& i2c, std::string& text)
{
    if (const auto pins = node.member("pins"))
        i2c.pins = pins->value.GetUint();
    if (const auto contents = node.member("mac_eeprom")) {
        i2c.mac_eeprom = read_name(*contents);
        if (i2c.mac_eeprom && i2c.mac_eeprom->size() > i2c_eeprom_size)
            contents->expected("at most " + std::to_string(i2c_eeprom_size) + " bytes");
    }
    const auto buses = node.member("buses");
    if (const auto cages = node.member("cages")) {
        i2c.cages.clear();
        for (std::size_t at = 0; at < cages->size(); ++at)
            i2c.cages.push_back(read_cage(cages->element(at), text));
        if (!buses && i2c.cages.size() > most_cages(model))
            cages->expected("at most " + std::to_string(most_cages(model)) +
                            " cages, as the model has, or a member \"buses\" that says where they are");
        if (!buses) // those that are left out are empty
            i2c.cages.resize(i2c.cages.size() <= fewest_cages(model) ? fewest_cages(model) : most_cages(model));
    }
    i2c.buses = buses ? read_buses(*buses, i2c) : default_buses(model, i2c.cages.size());
}

} // namespace ivra::virtual_platform
