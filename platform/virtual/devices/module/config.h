#ifndef IVRA_VIRTUAL_DEVICES_MODULE_CONFIG_H
#define IVRA_VIRTUAL_DEVICES_MODULE_CONFIG_H

#include "devices/module/module.h"
#include "json/codec.h"

#include <optional>
#include <string>

namespace ivra::virtual_platform {

/// A place for a module. An empty one reads as all ones, or does not acknowledge.
struct cage_t
{
    bool acknowledges = true; ///< counts when it is empty
    std::optional<module_t> module;

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

} // namespace ivra::virtual_platform

#endif
