#include "telemetry/board_readings.h"

#include "board/board.h"

#include <exception>
#include <new>
#include <stdexcept>
#include <utility>
#include <variant>

namespace ivra::bsp::telemetry {

namespace {

/// What `read` returns, which may be nothing, or what it throws.
template <class T, class Read>
item_t<T> attempt(const is_over_t& is_over, Read read)
{
    item_t<T> item;
    if (is_over()) {
        item.error = deadline_error;
        return item;
    }
    try {
        item.value = read();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const board::unsupported_feature&) {
        // The board has no such thing.
    } catch (const std::exception& error) {
        item.error = error.what();
    }
    return item;
}

template <class T>
std::optional<T> optional(const hw::result<T>& result)
{
    return result.has_value() ? std::optional<T>{result.value()} : std::nullopt;
}

reading_t read_fpga_temperature(const v6::hw_top::hw_top& top, const is_over_t& is_over)
{
    reading_t reading;
    reading.name = "FPGA";
    reading.quantity = board::quantity_t::temperature;
    const item_t<double> item =
        attempt<double>(is_over, [&top] { return top.get_temperature().access_value_or_throw(); });
    reading.state = item.value ? state_t::ok : state_t::failed;
    reading.value = item.value;
    reading.error = item.error;
    return reading;
}

flash_layout_t read_flash(const v6::flash::flash& flash)
{
    flash_layout_t layout{.size = flash.get_memory_size().access_value_or_throw("Memory size"),
                          .sector_size = flash.get_sector_size().access_value_or_throw("Sector size"),
                          .sections = {}};
    const std::vector<const char*> sections = flash.get_sections_char(nullptr).access_value_or_throw("Sections");
    for (const char* section : sections) {
        const char* name = flash.get_section_name(section);
        layout.sections.push_back(
            {.name = name == nullptr ? std::nullopt : std::optional<std::string>{name},
             .start = flash.get_section_start_address(section).access_value_or_throw("Start of a section"),
             .size = flash.get_section_size(section).access_value_or_throw("Size of a section")});
    }
    return layout;
}

std::vector<cage_readings_t> read_cages(board::board& board, const is_over_t& is_over)
{
    std::vector<cage_readings_t> cages;
    board.visit_cages([&](const board::cage_t& cage) {
        cage_readings_t readings{.number = cage.number, .module = {}};
        if (cage.failure || is_over()) {
            readings.module.state = module_state_t::failed;
            readings.module.error = cage.failure ? cage.failure->what() : deadline_error;
        } else {
            readings.module = read_module(*cage.bus);
        }
        cages.push_back(std::move(readings));
        return true;
    });
    return cages;
}

void read(board::board& board, const parts_t& parts, const is_over_t& is_over, board_readings_t& readings)
{
    readings.model =
        attempt<std::string>(is_over, [&] { return board.get_top().get_board_name().access_value_or_throw(); });

    const bool has_controller = !std::holds_alternative<std::monostate>(board.get_controller());
    readings.controller = read_controller(board, parts, is_over);

    if (parts.contains(part_t::identity)) {
        const v6::hw_top::hw_top& top = board.get_top();
        readings.macs = attempt<std::vector<v6::mac_address>>(is_over, [&] { return board.get_mac_addresses(); });
        readings.fpga_device =
            attempt<std::string>(is_over, [&] { return top.get_device_id().access_value_or_throw(); });
        readings.fpga_serial = attempt<std::string>(is_over, [&] {
            return v6::hw_top::print_fpga_serial_id(top.get_fpga_serial_id().access_value_or_throw())
                .access_value_or_throw();
        });
        readings.fpga_temperature = read_fpga_temperature(top, is_over);
        if (!has_controller)
            readings.controller.serial = attempt<std::string>(is_over, [&] { return board.get_serial(); });
        readings.vendor_macs = readings.controller.vendor_macs;
        if (!readings.vendor_macs.value && readings.vendor_macs.error.empty())
            readings.vendor_macs =
                attempt<board::mac_addresses_t>(is_over, [&] { return board.get_vendor_mac_addresses(); });
    }
    if (parts.contains(part_t::flash))
        readings.flash = attempt<flash_layout_t>(is_over, [&] { return read_flash(board.get_flash()); });
    if (parts.contains(part_t::modules))
        readings.cages = attempt<std::vector<cage_readings_t>>(is_over, [&] { return read_cages(board, is_over); });
}

template <class T>
void judge_item(const item_t<T>& item, const char* what, verdict_t& verdict)
{
    if (!item.error.empty())
        verdict.add(health_t::unknown, std::string{what} + " could not be read: " + item.error);
}

} // namespace

accelerator_identity_t get_identity(const hw::accelerator_descriptor& descriptor)
{
    const hw::properties properties = descriptor.properties();
    return {
        .index = optional(properties.index()), .name = optional(properties.name()), .uid = optional(properties.uid())};
}

board_readings_t read_board(const hw::accelerator_descriptor& descriptor, const parts_t& parts,
                            const is_over_t& is_over)
{
    board_readings_t readings;
    try {
        board::board board{descriptor};
        read(board, parts, is_over, readings);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        readings = {};
        readings.error = error.what();
    }
    return readings;
}

verdict_t judge(const module_t& module, const std::string& what)
{
    verdict_t verdict;
    if (module.state == module_state_t::failed)
        verdict.add(health_t::unknown, what + " could not be read: " + module.error);
    const auto add_reading = [&](const reading_t& reading, const std::string& where) {
        // What a failed module's error says already, its readings need not say again.
        if (reading.state == state_t::failed && module.state == module_state_t::failed)
            return;
        verdict.add(judge(reading, where + " " + reading.name));
    };
    for (const reading_t& reading : module.monitors)
        add_reading(reading, what);
    for (const lane_t& lane : module.lanes)
        for (const reading_t* reading : {&lane.rx_power, &lane.tx_power, &lane.tx_bias})
            add_reading(*reading, what + " lane " + std::to_string(lane.number));
    for (const std::string& finding : module.findings)
        verdict.remark(what + ": " + finding);
    return verdict;
}

verdict_t judge(const board_readings_t& readings)
{
    verdict_t verdict;
    if (!readings.error.empty()) {
        verdict.add(health_t::unknown, "The board could not be read: " + readings.error);
        return verdict;
    }
    verdict.add(health_t::ok);
    const controller_readings_t& controller = readings.controller;
    if (controller.power_good.value == false)
        verdict.add(health_t::critical, "Power is bad");
    if (!controller.error.empty())
        verdict.add(health_t::unknown, "The board's controller could not be read: " + controller.error);
    judge_item(readings.model, "Model", verdict);
    judge_item(readings.macs, "MAC addresses", verdict);
    judge_item(readings.fpga_device, "FPGA device", verdict);
    judge_item(readings.fpga_serial, "FPGA serial", verdict);
    if (readings.fpga_temperature)
        verdict.add(judge(*readings.fpga_temperature, "FPGA temperature"));
    judge_item(readings.flash, "Flash layout", verdict);
    if (controller.error.empty()) { // which says it once
        judge_item(controller.serial, "Serial number", verdict);
        judge_item(readings.vendor_macs, "MAC addresses of the vendor", verdict);
        judge_item(controller.power_good, "Power good", verdict);
        judge_item(controller.current_boot_image, "Current boot image", verdict);
        judge_item(controller.next_boot_image, "Next boot image", verdict);
    }
    for (const reading_t& sensor : controller.sensors)
        if (sensor.state != state_t::failed || sensor.error != controller.error)
            verdict.add(judge(sensor, sensor.name));
    for (const std::string& finding : controller.findings)
        verdict.remark(finding);
    judge_item(readings.cages, "Modules", verdict);
    if (readings.cages.value)
        for (const cage_readings_t& cage : *readings.cages.value)
            verdict.add(judge(cage.module, "Cage " + std::to_string(cage.number)));
    return verdict;
}

} // namespace ivra::bsp::telemetry
