#include "board/clocks/load.h"

#include "board/helpers.h"
#include "hw/mutex.h"
#include "hw/sleep.h"

#include <cerrno>
#include <chrono>
#include <span>
#include <system_error>

namespace ivra::bsp::clocks {

namespace {

using namespace std::chrono_literals;

constexpr std::uint8_t bus_index = 0;
constexpr std::uint8_t generator = 0x68; // its address on the bus
constexpr std::uint8_t page_register = 0x01;

// Deliberate: the generator needs both, so they are never shorter, and a signal does not shorten them.
constexpr auto write_pause = 1ms;
constexpr auto preamble_pause = 500ms; // until it has settled

void write(v6::i2c::bus& bus, table_t& table, std::span<const entry_t> entries)
{
    for (const entry_t& entry : entries) {
        const auto page = static_cast<std::uint8_t>(entry.address >> 8);
        if (page != table.page) {
            i2c_write(bus, generator, page_register, page);
            table.page = page;
        }
        i2c_write(bus, generator, static_cast<std::uint8_t>(entry.address), static_cast<std::uint8_t>(entry.value));
    }
}

} // namespace

void i2c_write(v6::i2c::bus& bus, std::uint8_t device, std::uint8_t reg, std::uint8_t value)
{
    const auto written = bus.write_register(device, reg, &value, 1);
    if (!written.has_value() || written.value() != 1)
        throw std::system_error{written.has_value() ? std::make_error_code(std::errc::io_error) : written.error(),
                                "Error writing clock I2C register"};
    hw::sleep(write_pause);
}

void load(v6::i2c::bus& bus, table_t& table)
{
    write(bus, table, table.preamble());
    hw::sleep(preamble_pause);
    write(bus, table, table.main());
    write(bus, table, table.postamble());
}

void load(const std::optional<v6::i2c::i2c>& controller, table_t& table)
{
    board::require_i2c(controller, "apply speed configuration");
    auto found = controller->get_bus(bus_index);
    v6::i2c::bus& bus = found.access_value_or_throw(board::cannot_get_i2c_bus);
    mutex guard = board::make_i2c_mutex(*controller);
    locked_whole(guard, [&] { load(bus, table); });
}

} // namespace ivra::bsp::clocks
