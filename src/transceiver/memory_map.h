#ifndef IVRA_TRANSCEIVER_MEMORY_MAP_H
#define IVRA_TRANSCEIVER_MEMORY_MAP_H

#include <cstddef>
#include <cstdint>
#include <span>

// Where modules keep what is read from them or written to them. The source of each row is the table of its standard
// with the title given; the tables' numbers differ between revisions.

namespace ivra::bsp::transceiver {

/// What the bytes of a field mean. Numbers are two bytes each, the most significant one first.
enum class scale_t
{
    none,        ///< bits, or a block of several fields
    text,        ///< ASCII, padded with spaces
    temperature, ///< signed; 1/256 degree Celsius
    voltage,     ///< 100 microvolts
    power,       ///< 0.1 microwatts
    bias,        ///< 2 microamperes
};

struct field_t
{
    std::uint8_t device; ///< two-wire address, 7 bits
    std::uint8_t page;   ///< that byte 127 selects; means nothing below byte 128 and in modules without pages
    std::uint8_t byte;
    std::uint8_t length;
    scale_t scale;
};

inline constexpr std::uint8_t main_memory = 0x50;
inline constexpr std::uint8_t diagnostics_memory = 0x51; // of SFP modules

// clang-format off

/// What all modules have.
namespace sff_8024 {
//                                              device page byte length scale
inline constexpr field_t identifier        = {main_memory, 0, 0,   1, scale_t::none}; // Identifier Values
} // namespace sff_8024

/// SFP: two memories without pages.
namespace sff_8472 {
//                                              device page byte length scale
inline constexpr field_t vendor_name       = {main_memory, 0, 20, 16, scale_t::text}; // Data Fields, Address A0h
inline constexpr field_t vendor_pn         = {main_memory, 0, 40, 16, scale_t::text};
inline constexpr field_t diagnostic_type   = {main_memory, 0, 92,  1, scale_t::none}; // Diagnostic Monitoring Type

inline constexpr field_t diagnostics = {diagnostics_memory, 0, 96, 10, scale_t::none}; // A/D Values and Status Bits
inline constexpr field_t temperature = {diagnostics_memory, 0, 96,  2, scale_t::temperature};
inline constexpr field_t vcc         = {diagnostics_memory, 0, 98,  2, scale_t::voltage};
inline constexpr field_t tx_bias     = {diagnostics_memory, 0, 100, 2, scale_t::bias};
inline constexpr field_t tx_power    = {diagnostics_memory, 0, 102, 2, scale_t::power};
inline constexpr field_t rx_power    = {diagnostics_memory, 0, 104, 2, scale_t::power};

inline constexpr std::uint8_t internally_calibrated = 0x20; // of the diagnostic monitoring type
} // namespace sff_8472

/// QSFP, QSFP+ and QSFP28: a lower page, and the upper page that its last byte selects.
namespace sff_8636 {
//                                              device page byte length scale
inline constexpr field_t module_monitors  = {main_memory, 0,  22,  6, scale_t::none}; // Free Side Monitoring Values
inline constexpr field_t temperature      = {main_memory, 0,  22,  2, scale_t::temperature};
inline constexpr field_t vcc              = {main_memory, 0,  26,  2, scale_t::voltage};
inline constexpr field_t channel_monitors = {main_memory, 0,  34, 16, scale_t::none}; // Channel Monitoring Values
inline constexpr field_t rx_power         = {main_memory, 0,  34,  8, scale_t::power}; // of four channels
inline constexpr field_t tx_bias          = {main_memory, 0,  42,  8, scale_t::bias};
inline constexpr field_t power_control    = {main_memory, 0,  93,  1, scale_t::none}; // Control Function Bytes
inline constexpr field_t page_select      = {main_memory, 0, 127,  1, scale_t::none}; // Lower Page 00h Memory Map
inline constexpr field_t vendor_name      = {main_memory, 0, 148, 16, scale_t::text}; // Serial ID, Upper Page 00h
inline constexpr field_t vendor_pn        = {main_memory, 0, 168, 16, scale_t::text};

inline constexpr std::uint8_t power_override = 0x01; // of power control: bit 1 counts, not the pin
inline constexpr std::uint8_t power_set_low  = 0x02;
} // namespace sff_8636

/// QSFP-DD: pages as in SFF-8636.
namespace cmis {
//                                                  device page  byte length scale
inline constexpr field_t temperature        = {main_memory, 0,     14,  4, scale_t::temperature}; // Module-Level Monitors
inline constexpr field_t vcc                = {main_memory, 0,     16,  4, scale_t::voltage};
inline constexpr field_t module_control     = {main_memory, 0,     26,  1, scale_t::none}; // Module Global Controls
inline constexpr field_t page_select        = {main_memory, 0,    127,  1, scale_t::none}; // Lower Memory Overview
inline constexpr field_t vendor_name        = {main_memory, 0x00, 129, 16, scale_t::text}; // Page 00h Overview
inline constexpr field_t vendor_pn          = {main_memory, 0x00, 148, 16, scale_t::text};
inline constexpr field_t supported_monitors = {main_memory, 0x01, 159,  2, scale_t::none}; // Supported Monitors
// Deliberate: the values are taken from the blocks in this order, which is not everywhere that of a module's documents.
inline constexpr field_t rx_power           = {main_memory, 0x11, 154, 16, scale_t::power}; // Lane-Specific Monitors,
inline constexpr field_t tx_power           = {main_memory, 0x11, 170, 16, scale_t::power}; // of eight lanes
inline constexpr field_t tx_bias            = {main_memory, 0x11, 186, 16, scale_t::bias};

inline constexpr std::uint8_t request_low_power   = 0x10; // of module control: by software
inline constexpr std::uint8_t allow_low_power_pin = 0x40; // by the hardware pin
} // namespace cmis

// clang-format on

/// Number `index` of a field, in degrees Celsius, volts, milliwatts or milliamperes. `bytes` are what was read of
/// `block`, which the field lies in. Throws std::out_of_range for a number that they do not hold.
double decode(const field_t& field, const field_t& block, std::span<const std::uint8_t> bytes, std::size_t index = 0);

/// A number that is all that was read, or the first of it.
inline double decode(const field_t& field, std::span<const std::uint8_t> bytes, std::size_t index = 0)
{
    return decode(field, field, bytes, index);
}

} // namespace ivra::bsp::transceiver

#endif
