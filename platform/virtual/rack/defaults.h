#ifndef IVRA_VIRTUAL_DEFAULTS_H
#define IVRA_VIRTUAL_DEFAULTS_H

#include "rack/rack.h"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// Sort of board: decides which cores its design has.
enum class family_t
{
    other,
    arista,
    alveo,
    bittware
};

/// What a board has when its rack file does not say. A board without a row of its own is of the family `other`.
struct model_t
{
    std::string_view model;
    std::string_view short_name; ///< in default names: "virtual-u200-0"
    family_t family;
    std::string_view device;
    double temperature;
    unsigned mac_count;
};

/// The models that have defaults of their own.
const std::vector<model_t>& known_models();
const model_t& defaults_of(std::string_view model);

/// Defaults that depend on the board's position in the rack, from 0: no two boards share them.
std::string default_name(const model_t& model, std::size_t index);
std::string default_uid(std::size_t index);
std::array<std::uint32_t, 3> default_fpga_serial(std::size_t index);
std::vector<std::array<std::uint8_t, 6>> default_mac_addresses(const model_t& model, std::size_t index);

std::vector<flash_section_t> default_flash_sections();

/// A board's BMC.
bmc_t default_bmc(std::string_view model, std::size_t index);
/// The XMC of so many on its board.
xmc_t default_xmc(std::string_view model, std::size_t index, std::size_t number);
/// A board's I2C controller, all cages empty.
i2c_t default_i2c(std::string_view model, std::size_t index);

/// The buses of a model with so many cages, at most most_cages(); a cage without a place is on none of them.
std::vector<i2c_bus_t> default_buses(std::string_view model, std::size_t cages);
/// How many cages the model has at least, and at most.
std::size_t fewest_cages(std::string_view model);
std::size_t most_cages(std::string_view model);

/// "U200" of "u200".
std::string upper_case(std::string_view text);

/// What the model's design has besides the top-level core and the flash.
bool has_i2c(const model_t& model);
bool has_bmc(const model_t& model);
bool has_xmc(const model_t& model);
std::vector<core_t> default_cores(bool i2c, bool uart, std::size_t xmcs);

inline constexpr std::uint64_t default_flash_size = 128U << 20U;
inline constexpr std::uint64_t default_flash_sector = 64U << 10U;

/// `count` consecutive addresses from `first` on; they do not pass ff:ff:ff:ff:ff:ff.
std::vector<std::array<std::uint8_t, 6>> consecutive_mac_addresses(const std::array<std::uint8_t, 6>& first,
                                                                   std::size_t count);
/// Whether these are one or more addresses, each one more than the address before it.
bool are_consecutive(const std::vector<std::array<std::uint8_t, 6>>& addresses);

} // namespace ivra::virtual_platform

#endif
