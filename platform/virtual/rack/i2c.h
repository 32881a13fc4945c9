#ifndef IVRA_VIRTUAL_RACK_I2C_H
#define IVRA_VIRTUAL_RACK_I2C_H

#include "module.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// A place for a module. An empty one reads as all ones, or does not acknowledge.
struct cage_t
{
    bool acknowledges = true; ///< counts when it is empty
    std::optional<module_t> module;

    bool operator==(const cage_t&) const = default;
};

enum class i2c_kind_t
{
    cage,
    multiplexer,
    mac_eeprom,
    clock_generator
};

/// The channels of a multiplexer that a device is behind.
struct i2c_behind_t
{
    std::size_t multiplexer = 0; ///< which one, as in i2c_device_t::number
    std::uint8_t channels = 0;   ///< mask

    bool operator==(const i2c_behind_t&) const = default;
};

/// Where something sits on a bus.
struct i2c_device_t
{
    i2c_kind_t kind = i2c_kind_t::cage;
    std::size_t number = 0;             ///< which cage; of a multiplexer: how many come before it on all buses
    std::uint8_t address = 0;           ///< 7 bits; nothing to a cage, as its module decides
    std::optional<unsigned> pin;        ///< answers only while this control pin is on
    std::optional<i2c_behind_t> behind; ///< answers only while one of these channels is on

    bool operator==(const i2c_device_t&) const = default;
};

struct i2c_bus_t
{
    std::uint8_t index = 0;
    std::vector<i2c_device_t> devices; ///< a multiplexer before what is behind it

    bool operator==(const i2c_bus_t&) const = default;
};

/// An I2C controller and everything on its buses.
struct i2c_t
{
    unsigned pins = 0;                     ///< control pins that it drives, at most 32
    std::vector<cage_t> cages;             ///< in the board's order
    std::optional<std::string> mac_eeprom; ///< contents, of at most 256 bytes; nothing: it does not answer
    std::vector<i2c_bus_t> buses;          ///< in index order

    bool operator==(const i2c_t&) const = default;
};

inline constexpr std::size_t i2c_eeprom_size = 256;
inline constexpr unsigned most_i2c_pins = 32;

/// A board's controller when its rack does not say, all cages empty; `position` is the board's in the rack.
i2c_t default_i2c(std::string_view model, std::size_t position);

/// The buses of a model with so many cages, at most most_cages(); a cage without a place is on none of them.
std::vector<i2c_bus_t> default_buses(std::string_view model, std::size_t cages);
/// How many cages the model has at least, and at most.
std::size_t fewest_cages(std::string_view model);
std::size_t most_cages(std::string_view model);

/// One of the bus's own multiplexers, by its number.
const i2c_device_t& multiplexer_of(const i2c_bus_t& bus, std::size_t number);

/// Where each thing of a controller lies in the file of what the board remembers of it.
struct i2c_places_t
{
    std::uint64_t pins = 0;           ///< the word of the control pins, little endian
    std::uint64_t eeprom = 0;         ///< its address counter
    std::uint64_t clock = 0;          ///< clock_memory_size bytes
    std::uint64_t multiplexers = 0;   ///< one byte each
    std::vector<std::uint64_t> cages; ///< address counters of 0x50 and 0x51, then the blocks of the module in order
    std::uint64_t size = 0;
};

i2c_places_t places_of(const i2c_t& i2c);
/// The whole file as it is when the board is new.
std::vector<std::uint8_t> start_values(const i2c_t& i2c);

/// Bytes that a clock generator keeps: its state, and 16 pages of registers.
inline constexpr std::size_t clock_state_size = 1024;
inline constexpr std::size_t clock_pages = 16;
inline constexpr std::size_t clock_memory_size = clock_state_size + clock_pages * 256;

inline constexpr std::size_t cage_counters = 2;

} // namespace ivra::virtual_platform

#endif
