#include "rack/defaults.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>

namespace ivra::virtual_platform {

namespace {

// clang-format off
const model_t models[] = {
    // model              short name  family              device                     °C     MAC addresses
    {"xilinx_u200",       "u200",     family_t::alveo,    "xcu200-fsgd2104-2-e",     45.5,  4},
    {"xilinx_u250",       "u250",     family_t::alveo,    "xcu250-figd2104-2l-e",    47.25, 8},
    {"xilinx_u50",        "u50",      family_t::alveo,    "xcu50-fsvh2104-2-e",      52.0,  1},
    {"xilinx_u55c",       "u55c",     family_t::alveo,    "xcu55c-fsvh2892-2l-e",    49.75, 2},
    {"bittware_xupp3r",   "xupp3r",   family_t::bittware, "xcvu9p-flgb2104-2-e",     41.0,  4},
    {"bittware_xupvv8",   "xupvv8",   family_t::bittware, "xcvu13p-figd2104-2-e",    43.5,  8},
    {"ivra_fpb2",         "fpb2",     family_t::bittware, "xcvu9p-flgb2104-2-e",     39.25, 4},
    {"m48e_emu_xcvu9p",   "m48e",     family_t::arista,   "xcvu9p-flga2104-2-e",     36.5,  1},
    {"m48l_xcvu7p",       "m48l",     family_t::arista,   "xcvu7p-flvb2104-2-e",     34.0,  2},
    {"m48lb_xcvu9p",      "m48lb",    family_t::arista,   "xcvu9p-flgb2104-2-e",     37.75, 6},
};
// clang-format on

const model_t other_model{"", "board", family_t::other, "xcvu9p-flgb2104-2-e", 40.0, 1};

} // namespace

const std::vector<model_t>& known_models()
{
    static const std::vector<model_t> result{std::begin(models), std::end(models)};
    return result;
}

const model_t& defaults_of(std::string_view model)
{
    const auto* const row = std::ranges::find(models, model, &model_t::model);
    return row == std::end(models) ? other_model : *row;
}

std::string upper_case(std::string_view text)
{
    std::string result{text};
    std::ranges::transform(result, result.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return result;
}

std::string default_name(const model_t& model, std::size_t index)
{
    return "virtual-" + std::string{model.short_name} + "-" + std::to_string(index);
}

std::string default_uid(std::size_t index)
{
    // As a PCI address: 255 buses a domain, bus 0 being the host's own.
    char text[32];
    std::snprintf(text, sizeof text, "%04zx:%02zx:00.0", index / 255, 1 + index % 255);
    return text;
}

std::array<std::uint32_t, 3> default_fpga_serial(std::size_t index)
{
    // An odd factor gives every index another low word.
    const auto low = static_cast<std::uint32_t>(index + 1) * 0x9e3779b1U;
    return {low, 0x01285c0fU, 0x40020000U};
}

std::vector<std::array<std::uint8_t, 6>> default_mac_addresses(const model_t& model, std::size_t index)
{
    // Locally administered, 256 addresses for each of at most 65536 boards.
    const auto high = static_cast<std::uint8_t>(index >> 8U);
    const auto low = static_cast<std::uint8_t>(index);
    return consecutive_mac_addresses({0x02, 0x00, 0x00, high, low, 0x00}, model.mac_count);
}

std::vector<flash_section_t> default_flash_sections()
{
    return {
        // clang-format off
        // name    start      size       protected
        {"PGM",    0x0000000, 0x1002000, false}, // golden image
        {"USR",    0x1002000, 0x5000000, false}, // user image
        {"PARAMS", 0x7fc0000, 0x0010000, true},
        {"PARAMS", 0x7fd0000, 0x0010000, false},
        {"OTP",    0x7ff0000, 0x0001000, false},
        // clang-format on
    };
}

bool has_i2c(const model_t& model)
{
    return model.family == family_t::alveo || model.family == family_t::bittware;
}

bool has_bmc(const model_t& model)
{
    return model.family == family_t::bittware;
}

bool has_xmc(const model_t& model)
{
    return model.family == family_t::alveo;
}

std::vector<core_t> default_cores(bool i2c, bool uart, std::size_t xmcs)
{
    struct row_t
    {
        std::uint32_t hardware_id;
        bool present;
        std::uint64_t address, size;
    };
    // clang-format off
    const row_t rows[] = {
        {hardware_ids::hw_top, true, 0x000000, 0x01000},
        {hardware_ids::flash,  true, 0x010000, 0x01000},
        {hardware_ids::i2c,    i2c,  0x020000, 0x01000},
        {hardware_ids::uart,   uart, 0x030000, 0x01000},
    };
    // clang-format on
    std::vector<core_t> cores;
    for (const row_t& row : rows)
        if (row.present)
            cores.push_back({row.hardware_id, row.address, row.size, {}});
    for (std::size_t number = 0; number < xmcs; ++number)
        cores.push_back({hardware_ids::xmc, 0x100000 + 0x40000 * number, 0x30000, {}});
    return cores;
}

std::vector<std::array<std::uint8_t, 6>> consecutive_mac_addresses(const std::array<std::uint8_t, 6>& first,
                                                                   std::size_t count)
{
    std::vector<std::array<std::uint8_t, 6>> result;
    result.reserve(count);
    std::array<std::uint8_t, 6> address = first;
    while (result.size() < count) {
        result.push_back(address);
        for (std::size_t at = address.size(); at-- > 0 && ++address[at] == 0;) {
        }
    }
    return result;
}

bool are_consecutive(const std::vector<std::array<std::uint8_t, 6>>& addresses)
{
    return !addresses.empty() && addresses == consecutive_mac_addresses(addresses.front(), addresses.size()) &&
           std::ranges::is_sorted(addresses); // ff:ff:ff:ff:ff:ff is the last one
}

} // namespace ivra::virtual_platform
