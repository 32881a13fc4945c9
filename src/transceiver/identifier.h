#ifndef IVRA_TRANSCEIVER_IDENTIFIER_H
#define IVRA_TRANSCEIVER_IDENTIFIER_H

#include <cstdint>
#include <string_view>

namespace ivra::bsp::transceiver {

/// The families of modules that can be read.
enum class module_type_t
{
    none = 0, ///< an empty cage
    sfp = 1,
    qsfp = 2,
    qsfp_dd = 3,
};

/// What an identifier byte stands for (SFF-8024, Identifier Values), "Unknown" for one without a name.
std::string_view get_identifier_name(std::uint8_t identifier);

/// Throws std::runtime_error for a module of no family that can be read.
module_type_t get_module_type(std::uint8_t identifier);

} // namespace ivra::bsp::transceiver

#endif
