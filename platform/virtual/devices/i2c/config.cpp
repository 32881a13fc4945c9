#include "devices/i2c/config.h"

#include "devices/clock_generator/clock_generator.h"

#include <algorithm>
#include <string>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;

using enum i2c_kind_t;
using namespace std::string_literals;

constexpr codec::name_t<i2c_kind_t> kinds[] = {
    {"cage", cage}, {"multiplexer", multiplexer}, {"mac_eeprom", mac_eeprom}, {"clock_generator", clock_generator}};

constexpr codec::code bus_address{"an address of 7 bits, such as 114 or \"0x72\"", 7, 2};
constexpr std::size_t eeprom_size = 256;
constexpr std::size_t most_cages = 64;

/// The multiplexer's address and the mask of channels.
struct behind_codec_t
{
    static std::string sentence() { return R"(a multiplexer's address and a mask of its channels, ["0x72", "0x10"])"; }
    static void read(const json::node_t& node, i2c_behind_t& behind)
    {
        std::array<std::uint8_t, 2> bytes{};
        pair.read(node, bytes);
        behind = {bytes[0], bytes[1]};
    }
    static json::value_t write(const i2c_behind_t& behind)
    {
        return pair.write(std::array{behind.multiplexer, behind.channels});
    }
    static json::value_t schema() { return pair.schema(); }

private:
    static constexpr codec::list pair{R"(a multiplexer's address and a mask of its channels, ["0x72", "0x10"])",
                                      codec::byte, 2, 2};
};
constexpr behind_codec_t behind_codec;

/// The pin of a device, if there is no such pin.
std::optional<std::size_t> missing_pin(const i2c_t& i2c, const i2c_device_t& device)
{
    return device.pin && *device.pin >= i2c.pins ? std::optional<std::size_t>{*device.pin} : std::nullopt;
}

auto multiplexer_at(const std::vector<i2c_device_t>& devices, std::uint8_t address)
{
    return std::ranges::find_if(devices, [address](const i2c_device_t& device) {
        return device.kind == multiplexer && device.address == address;
    });
}

} // namespace

static void describe(auto& visit, i2c_device_t& device)
{
    visit.required("device", device.kind, codec::names<i2c_kind_t>{kinds});
    const bool is_cage = device.kind == cage;
    visit("number", device.number, codec::whole{"a cage's number", 0, most_cages - 1}, is_cage);
    visit("address", device.address, bus_address, !is_cage);
    visit("pin", device.pin,
          codec::or_null{codec::whole{"a control pin, while which is off it does not answer", 0, most_i2c_pins - 1}},
          device.pin.has_value());
    visit("behind", device.behind, codec::or_null{behind_codec}, device.behind.has_value());
    visit.check({"address"}, !is_cage || !visit.said("address"), "no address, as a cage's module decides");
    visit.check({}, !is_cage || visit.said("number"), "a member \"number\", from 0: which cage it is");
    visit.check({"number"}, is_cage || !visit.said("number"), "no number, which only a cage has");
    visit.check({}, is_cage || visit.said("address"), "a member \"address\"");
}

static void describe(auto& visit, i2c_bus_t& bus)
{
    visit.required("index", bus.index, codec::whole{"the index of a bus", 0, 255});
    visit.required(
        "devices", bus.devices,
        codec::list{
            "a list of at most 256 devices",
            codec::record<i2c_device_t>{
                R"(a device: { "device": "multiplexer", "address": "0x74" } or { "device": "cage", "number": 0 })"},
            256});
    for (std::size_t at = 0; at < bus.devices.size(); ++at) {
        const auto& behind = bus.devices[at].behind;
        const auto found = behind ? multiplexer_at(bus.devices, behind->multiplexer) : bus.devices.begin();
        visit.check({"devices", at, "behind", std::size_t{0}},
                    !behind || static_cast<std::size_t>(found - bus.devices.begin()) < at,
                    "the address of a multiplexer that comes before it on this bus");
    }
}

static void describe(auto& visit, i2c_t& i2c)
{
    visit("pins", i2c.pins, codec::whole{"a number of control pins", 0, most_i2c_pins});
    visit("mac_eeprom", i2c.mac_eeprom, codec::or_null{codec::text{eeprom_size}, "an EEPROM that does not answer"});
    visit("cages", i2c.cages, codec::list{"a list of at most 64 cages, in the board's order", cage_codec, most_cages});
    const bool are_buses_said =
        visit("buses", i2c.buses,
              codec::list{"a list of at most 256 buses, in index order",
                          codec::record<i2c_bus_t>{R"(a bus: { "index": 0, "devices": [ ... ] })"}, 256});
    visit.remark({"mac_eeprom"}, [&] {
        return visit.gives("mac_eeprom") && !reaches(i2c, mac_eeprom) ? "no bus has a mac_eeprom, so nobody can read it"
                                                                      : ""s;
    });
    if (!are_buses_said) {
        visit.remark({"pins"}, [&] {
            for (const i2c_bus_t& bus : i2c.buses)
                for (const i2c_device_t& device : bus.devices)
                    if (const auto pin = missing_pin(i2c, device); pin && visit.gives("pins"))
                        return "a device of the model never answers, as there is no pin " + std::to_string(*pin);
            return ""s;
        });
        return;
    }
    number_multiplexers(i2c.buses);
    for (std::size_t bus = 0; bus < i2c.buses.size(); ++bus) {
        const i2c_bus_t& other = i2c.buses[bus == 0 ? 0 : bus - 1];
        visit.check({"buses", bus, "index"}, bus == 0 || i2c.buses[bus].index > other.index,
                    [&] { return "more than " + std::to_string(other.index) + ", the index of the bus before it"; });
        for (std::size_t at = 0; at < i2c.buses[bus].devices.size(); ++at) {
            const i2c_device_t& device = i2c.buses[bus].devices[at];
            visit.check({"buses", bus, "devices", at, "number"},
                        device.kind != cage || device.number < i2c.cages.size(),
                        [&] { return "less than " + std::to_string(i2c.cages.size()) + ", the number of cages"; });
            visit.remark({"buses", bus, "devices", at, "pin"}, [&] {
                return missing_pin(i2c, device)
                           ? "it never answers, as there is no such pin: there are " + std::to_string(i2c.pins)
                           : "";
            });
            visit.remark({"buses", bus, "devices", at, "behind", std::size_t{1}}, [&] {
                return device.behind && device.behind->channels == 0 ? "it never answers, as this is no channel" : ""s;
            });
        }
    }
    for (std::size_t number = 0; number < i2c.cages.size(); ++number)
        visit.remark({"cages", number}, [&] {
            return i2c.cages[number].module && !reaches(i2c, cage, number)
                       ? "no bus has cage " + std::to_string(number) + ", so nobody can read its module"
                       : "";
        });
}

bool reaches(const i2c_t& i2c, i2c_kind_t kind, std::size_t number)
{
    return std::ranges::any_of(i2c.buses, [&](const i2c_bus_t& bus) {
        return std::ranges::any_of(bus.devices, [&](const i2c_device_t& device) {
            return device.kind == kind && (kind != cage || device.number == number);
        });
    });
}

const i2c_device_t& multiplexer_of(const i2c_bus_t& bus, const i2c_behind_t& behind)
{
    return *multiplexer_at(bus.devices, behind.multiplexer);
}

void number_multiplexers(std::vector<i2c_bus_t>& buses)
{
    std::size_t next = 0;
    for (i2c_bus_t& bus : buses)
        for (i2c_device_t& device : bus.devices)
            if (device.kind == multiplexer)
                device.number = next++;
}

i2c_places_t places_of(const i2c_t& i2c)
{
    i2c_places_t places;
    places.size = sizeof(std::uint32_t);
    const auto take = [&places](std::uint64_t size) {
        const std::uint64_t place = places.size;
        places.size += size;
        return place;
    };
    std::size_t multiplexers = 0;
    for (const i2c_bus_t& bus : i2c.buses)
        multiplexers += static_cast<std::size_t>(std::ranges::count(bus.devices, multiplexer, &i2c_device_t::kind));
    places.eeprom = take(1);
    places.clock = take(clock_memory_size);
    places.multiplexers = take(multiplexers);
    for (std::size_t number = 0; number < i2c.cages.size(); ++number)
        places.cages.push_back(take(cage_size));
    return places;
}

template struct json::codec::record<i2c_t>;

} // namespace ivra::virtual_platform
