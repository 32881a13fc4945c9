#include "board/alveo.h"

#include <stdexcept>

namespace ivra::bsp::board {

namespace {

[[noreturn]] void throw_not_initialized(const std::string& what)
{
    throw std::runtime_error{"Could not get " + what + " as Alveo XMC subsystem is not initialized."};
}

} // namespace

std::optional<std::string> alveo::get_serial()
{
    throw_not_initialized("board serial");
}

sensors_t alveo::get_sensors()
{
    throw_not_initialized("board sensors");
}

std::optional<mac_addresses_t> alveo::get_vendor_mac_addresses()
{
    throw_not_initialized("vendor MAC");
}

} // namespace ivra::bsp::board
