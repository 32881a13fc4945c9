#include "board/alveo.h"

#include "hw/mutex.h"

#include <ivra/log.h>

#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace ivra::bsp::board {

namespace {

constexpr std::size_t max_xmc_cores = 100; // more than any design has

hw::core find_xmc(const hw::core& top)
{
    const auto cores = top.enumerate(bmc::alveo::registers::xmc_hardware_id, max_xmc_cores);
    if (!cores.has_value() || cores.value().empty())
        throw std::system_error{EINVAL, std::generic_category(), "XMC core not found"};
    return cores.value().front();
}

} // namespace

brought_up_t<bmc::alveo::xmc> alveo::get_xmc(const hw::core& top)
{
    std::optional<mutex> guard;
    std::optional<held_lock> lock;
    std::optional<bmc::alveo::xmc> controller;
    try {
        const hw::core core = find_xmc(top);
        guard.emplace("bmc-alveo", core);
        lock.emplace(*guard);
        bmc::alveo::bring_up(core);
        controller.emplace(core, *guard);
    } catch (const std::system_error& error) {
        lock.reset(); // nothing is written to a screen under a lock
        // Deliberate: file and line are fixed, so that this line is the same in every version's log.
        ivra_log_log(IVRA_LOG_WARNING, "src/board/alveo", 18, "get_xmc", "Could not initialize Alveo XMC subsystem: %s",
                     error.what());
        return {.controller = std::nullopt, .failure = error.what()};
    }
    lock->unlock();
    return {.controller = std::move(controller), .failure = {}};
}

bmc::alveo::xmc& alveo::xmc_for(const char* what)
{
    if (!xmc_.controller)
        throw std::runtime_error{std::string{"Could not get "} + what + " as Alveo XMC subsystem is not initialized."};
    return *xmc_.controller;
}

std::optional<std::string> alveo::get_serial()
{
    return xmc_for("board serial").get_board_serial();
}

sensors_t alveo::get_sensors(bmc::alveo::registers::sensor_list sensors)
{
    return xmc_for("board sensors").get_sensors(sensors);
}

std::optional<mac_addresses_t> alveo::get_vendor_mac_addresses()
{
    return xmc_for("vendor MAC").get_vendor_macs();
}

} // namespace ivra::bsp::board
