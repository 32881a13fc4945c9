#include "board/cages.h"

#include "board/helpers.h"
#include "hw/mutex.h"
#include "hw/signal_hold.h"
#include "transceiver/module.h"

#include <cerrno>
#include <system_error>

namespace ivra::bsp::board {

namespace {

constexpr std::uint8_t u200_channels[] = {0x01, 0x02};
constexpr std::uint8_t xupp3r_channels[] = {0x01, 0x02, 0x04, 0x08};
constexpr std::uint8_t xupvv8_channels[] = {0x10, 0x20, 0x40, 0x80};

constexpr cage_bus_t u200_buses[] = {
    {.bus = 0, .multiplexer = 0x74, .channels = u200_channels},
};
constexpr cage_bus_t xupp3r_buses[] = {
    {.bus = 1},
    {.bus = 2},
    {.bus = 3},
    {.bus = 4},
    {.bus = 5, .multiplexer = 0x72, .channels = xupp3r_channels, .optional = true},
};
constexpr cage_bus_t xupvv8_buses[] = {
    {.bus = 0, .multiplexer = 0x72, .channels = xupvv8_channels},
};

enum class presence_t
{
    there,
    absent,
    unknown, ///< it could not be found out
};

/// Of the bus, if it is optional, and of its multiplexer.
presence_t get_presence(hw::result<v6::i2c::bus>& bus, const cage_bus_t& cages)
{
    if (!cages.optional)
        return presence_t::there;
    if (!bus.has_value())
        return bus.error() == std::errc::no_such_device ? presence_t::absent : presence_t::unknown;
    std::uint8_t byte = 0;
    const auto count = bus.value().read(cages.multiplexer, &byte, 1);
    if (count.has_value())
        return count.value() == 1 ? presence_t::there : presence_t::unknown;
    return v6::i2c::is_no_answer(count.error()) ? presence_t::absent : presence_t::unknown;
}

/// Calls `lead`, which leads to a cage or throws, and then the visitor. Whether to go on.
template <class Lead>
bool visit_cage(unsigned number, Lead lead, const cage_visitor_t& visitor)
{
    cage_t cage{number, nullptr, std::nullopt};
    try {
        cage.bus = &lead();
    } catch (const std::system_error& error) {
        cage.failure = error;
    }
    return visitor(cage);
}

/// Where it is unknown whether there are cages, `are_unknown_ones_visited`.
void walk_cages(v6::i2c::i2c& i2c, const cage_walk_t& walk, bool are_unknown_ones_visited,
                const cage_visitor_t& visitor)
{
    if (walk.enable_i2c)
        enable_i2c(i2c);
    unsigned number = 0;
    for (const cage_bus_t& cages : walk.buses) {
        auto found = i2c.get_bus(cages.bus);
        const presence_t presence = get_presence(found, cages);
        if (presence == presence_t::absent || (presence == presence_t::unknown && !are_unknown_ones_visited))
            continue;
        const auto bus = [&]() -> v6::i2c::bus& { return found.access_value_or_throw(cannot_get_i2c_bus); };
        if (cages.channels.empty() && !visit_cage(++number, bus, visitor))
            return;
        for (const std::uint8_t mask : cages.channels) {
            const auto behind = [&]() -> v6::i2c::bus& {
                select_channels(bus(), cages.multiplexer, mask);
                return bus();
            };
            if (!visit_cage(++number, behind, visitor))
                return;
        }
    }
}

/// The same for what one cage out of reach ends. Cages that are not known to be there are none.
template <class Visitor>
void visit_buses(v6::i2c::i2c& i2c, const cage_walk_t& walk, Visitor visitor)
{
    walk_cages(i2c, walk, false, [&](const cage_t& cage) {
        if (cage.failure)
            throw std::system_error{*cage.failure};
        visitor(*cage.bus);
        return true;
    });
}

} // namespace

constexpr cage_walk_t u200_cages{.enable_i2c = true, .buses = u200_buses};
constexpr cage_walk_t xupp3r_cages{.enable_i2c = false, .buses = xupp3r_buses};
constexpr cage_walk_t xupvv8_cages{.enable_i2c = false, .buses = xupvv8_buses};

void select_channels(v6::i2c::bus& bus, std::uint8_t multiplexer, std::uint8_t mask)
{
    constexpr const char* failure = "Cannot select I2C multiplexer channel";
    if (bus.write(multiplexer, &mask, 1).access_value_or_throw(failure) != 1)
        throw std::system_error{EIO, std::generic_category(), failure};
}

std::vector<std::optional<transceiver::transceiver_info_t>> get_transceivers_stats(std::optional<v6::i2c::i2c>& i2c,
                                                                                   const cage_walk_t& walk)
{
    require_i2c(i2c, "get transceiver statistics");
    mutex guard = make_i2c_mutex(*i2c);
    return locked(guard, [&] {
        std::vector<std::optional<transceiver::transceiver_info_t>> stats;
        visit_buses(*i2c, walk, [&](v6::i2c::bus& bus) { stats.push_back(transceiver::get_module_report(bus)); });
        return stats;
    });
}

void set_qsfp_power_mode(std::optional<v6::i2c::i2c>& i2c, const cage_walk_t& walk, transceiver::qsfp_power_mode_t mode)
{
    require_i2c(i2c, "set QSFP power mode");
    mutex guard = make_i2c_mutex(*i2c);
    locked(guard, [&] {
        visit_buses(*i2c, walk, [mode](v6::i2c::bus& bus) {
            const hw::signal_hold hold; // a module is changed or it is not
            transceiver::set_qsfp_power_mode(bus, mode);
        });
    });
}

void visit_cages(std::optional<v6::i2c::i2c>& i2c, const cage_walk_t& walk, const cage_visitor_t& visitor)
{
    require_i2c(i2c, "visit cages");
    mutex guard = make_i2c_mutex(*i2c);
    locked(guard, [&] {
        walk_cages(*i2c, walk, true, [&](const cage_t& cage) {
            const hw::signal_hold hold; // no module is left on another page
            return visitor(cage);
        });
    });
}

} // namespace ivra::bsp::board
