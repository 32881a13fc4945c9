#include "board/arista.h"

#include <ivra/log.h>

#include <cstdint>
#include <fstream>
#include <stdexcept>

namespace ivra::bsp::board {

namespace {

constexpr auto serial_file = "/sys/devices/platform/sid.0/serial";
constexpr auto address_file = "/sys/class/net/ma1/address"; // of the switch's management interface

constexpr std::uint64_t last_octet = 0xFF;
constexpr std::uint64_t upper_half = 0x80;

/// The first word of a file; empty when it holds none or cannot be read.
std::string read_word(std::ifstream& file)
{
    std::string word;
    try {
        file.exceptions(std::ios_base::badbit); // so that a lack of memory is told
        file >> word;
    } catch (const std::ios_base::failure&) {
        return {};
    }
    return word;
}

} // namespace

std::optional<std::string> arista::get_serial()
{
    std::ifstream file{serial_file};
    std::string serial = read_word(file);
    if (!serial.empty())
        return serial;
    ivra_log_log(IVRA_LOG_INFO, __FILE__, __LINE__, __func__, "Could not get serial of this switch");
    return std::nullopt;
}

std::optional<mac_addresses_t> arista::get_mac_addresses()
{
    std::ifstream file{address_file};
    if (!file)
        throw std::runtime_error{"Could not get MAC address from system"};
    const std::uint64_t management_port = v6::mac_address{read_word(file)}.to_int();

    // Deliberate: the last octet is replaced, not added to, so every port address of one switch gives the same block.
    return mac_addresses_t{.first = v6::mac_address{(management_port & ~last_octet) | upper_half}, .count = 128};
}

} // namespace ivra::bsp::board
