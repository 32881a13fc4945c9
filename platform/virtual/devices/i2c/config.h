#ifndef IVRA_VIRTUAL_DEVICES_I2C_CONFIG_H
#define IVRA_VIRTUAL_DEVICES_I2C_CONFIG_H

#include "devices/module/config.h"
#include "json/describe.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ivra::virtual_platform {

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
    std::uint8_t multiplexer = 0; ///< its address: the first of that address that comes before it on the bus
    std::uint8_t channels = 0;    ///< mask

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

/// Whether a device of this kind, or the cage of this number, is on a bus.
bool reaches(const i2c_t& i2c, i2c_kind_t kind, std::size_t cage = 0);

inline constexpr unsigned most_i2c_pins = 32;

/// The multiplexer that something on the bus is behind.
const i2c_device_t& multiplexer_of(const i2c_bus_t& bus, const i2c_behind_t& behind);

/// Numbers the multiplexers of all buses.
void number_multiplexers(std::vector<i2c_bus_t>& buses);

/// Where each thing of a controller lies in the file of what the board remembers of it.
struct i2c_places_t
{
    std::uint64_t pins = 0;           ///< the word of the control pins, little endian
    std::uint64_t eeprom = 0;         ///< its address counter
    std::uint64_t clock = 0;          ///< clock_memory_size bytes
    std::uint64_t multiplexers = 0;   ///< one byte each
    std::vector<std::uint64_t> cages; ///< cage_size bytes each
    std::uint64_t size = 0;
};

i2c_places_t places_of(const i2c_t& i2c);

// What is remembered of a cage: of which module it is, 1 + cage_t::plugged, or 0 (8 bytes, in the machine's order), the
// address counters of 0x50 and 0x51, and the bytes of the module that the host can write.
inline constexpr std::size_t cage_counters = 8;
inline constexpr std::size_t cage_written = cage_counters + 2;
inline constexpr std::size_t cage_size = cage_written + most_writable;

extern template struct json::codec::record<i2c_t>;

inline constexpr json::codec::record<i2c_t> i2c_codec{R"({ "pins": ..., "cages": [ ... ] } for an I2C controller)"};

} // namespace ivra::virtual_platform

#endif
