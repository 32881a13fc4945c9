#ifndef IVRA_VIRTUAL_DEVICES_XMC_CONFIG_H
#define IVRA_VIRTUAL_DEVICES_XMC_CONFIG_H

#include "json/describe.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

using json::codec::duration_t;

/// Consecutive MAC addresses, none beyond ff:ff:ff:ff:ff:ff.
struct mac_block_t
{
    std::array<std::uint8_t, 6> first{};
    std::uint8_t count = 0;

    bool operator==(const mac_block_t&) const = default;
};

/// A field of the card information that has no name here.
struct card_field_t
{
    std::uint8_t key = 0;
    std::string value;

    bool operator==(const card_field_t&) const = default;
};

/// What the management controller of a card says when it is asked for card information: fields in this order, without
/// those that are nothing. `raw` is said instead of all of them.
struct xmc_card_t
{
    std::optional<std::string> name;
    std::optional<std::string> revision;
    std::optional<std::string> serial;
    std::optional<mac_block_t> macs;
    std::vector<std::optional<std::string>> legacy_macs; ///< at most four, one address a field, as text
    std::optional<bool> fan;                             ///< whether there is one
    std::optional<std::uint8_t> configuration_mode;
    std::optional<std::uint16_t> maximum_power; ///< watts
    std::optional<std::string> firmware;
    std::vector<card_field_t> extra; ///< after these
    std::optional<std::string> raw;

    bool operator==(const xmc_card_t&) const = default;
};

/// One sensor of a card, as raw register values.
struct xmc_sensor_t
{
    std::string_view name;                 ///< of one of xmc_sensor_rows
    std::array<std::uint32_t, 3> values{}; ///< current, average, maximum

    bool operator==(const xmc_sensor_t&) const = default;
};

/// The management controller of a card, as its host sees it through a core's registers.
struct xmc_t
{
    /// When the bits 0 and 28 of its status come, counted from when its reset is released.
    std::array<duration_t, 2> ready_after{std::chrono::milliseconds{500}, std::chrono::milliseconds{1500}};
    duration_t answer_after = std::chrono::milliseconds{30}; ///< a packet in its mailbox
    std::uint32_t error = 0;                                 ///< its error register
    bool dead_link = false;                                  ///< every read gives all ones
    bool power_good = true;
    xmc_card_t card;
    std::vector<xmc_sensor_t> sensors; ///< others read as 0
    /// When it started again by itself, if that was after its reset was released; a time of device_time.
    std::chrono::nanoseconds restarted_at = std::chrono::nanoseconds::min();

    bool operator==(const xmc_t&) const = default;
};

inline constexpr std::uint64_t xmc_window = 0x2a010; ///< bytes of a core's space that an XMC needs at least

/// What one step of a sensor's registers is.
enum class xmc_unit_t
{
    millivolts,
    milliamperes,
    milliwatts,
    celsius,
    rpm
};

struct xmc_sensor_row_t
{
    std::string_view name;
    xmc_unit_t unit;
};

/// Every sensor that an XMC can have.
extern const std::array<xmc_sensor_row_t, 42> xmc_sensor_rows;

/// The bytes of the card information: key, length and value of each field.
std::string card_information(const xmc_card_t& card);

extern template struct json::codec::record<mac_block_t>;
extern template struct json::codec::record<xmc_t>;

inline constexpr json::codec::record<xmc_t> xmc_codec{
    R"(a card management controller: { "ready_after": ..., "card": ..., "sensors": ... })"};

} // namespace ivra::virtual_platform

#endif
