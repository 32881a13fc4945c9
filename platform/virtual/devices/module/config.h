#ifndef IVRA_VIRTUAL_DEVICES_MODULE_CONFIG_H
#define IVRA_VIRTUAL_DEVICES_MODULE_CONFIG_H

#include "devices/module/module.h"
#include "json/codec.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace ivra::virtual_platform {

/// A place for a module. An empty one reads as all ones, or does not acknowledge.
struct cage_t
{
    bool acknowledges = true; ///< counts when it is empty
    std::optional<module_t> module;
    std::uint64_t plugged = 0; ///< tells what is in it from what was in it before: what a host did to that is gone

    bool operator==(const cage_t&) const = default;
};

/// A cage: "empty", "silent", the name of a module, or an object with all that there is to say of one. Files that it
/// names are opened by the reading. Modules are written as their whole memory, as such files may be elsewhere.
struct cage_codec_t
{
    static std::string sentence();
    static void read(const json::node_t& node, cage_t& cage);
    static json::value_t write(const cage_t& cage);
    static json::value_t schema();
};
inline constexpr cage_codec_t cage_codec;

/// What a module measures now, and its limits, over those that it has: the members of a cage that say so.
struct monitors_codec_t
{
    static std::string sentence();
    static void read(const json::node_t& node, module_t& module);
};
inline constexpr monitors_codec_t monitors_codec;

/// What a rack calls the monitors of a module, and the limits of each.
inline constexpr std::array<const char*, 5> monitor_members{"temperature", "vcc", "rx_power", "tx_power", "tx_bias"};
inline constexpr std::array<const char*, 4> limit_names{"high_alarm", "low_alarm", "high_warning", "low_warning"};

} // namespace ivra::virtual_platform

#endif
