#include "commands.h"
#include "output.h"

#include "devices/bmc/bmc.h"
#include "devices/clock_generator/clock_generator.h"
#include "devices/i2c/i2c.h"
#include "devices/module/module.h"
#include "devices/xmc/xmc.h"
#include "rack/change_words.h"
#include "rack/model.h"
#include "state/parameters.h"
#include "state/state.h"
#include "json/text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

namespace {

// clang-format off
constexpr struct { std::uint32_t hardware_id; std::string_view name; } core_names[] = {
    {hardware_ids::hw_top, "top-level core"},
    {hardware_ids::flash,  "flash controller"},
    {hardware_ids::i2c,    "I2C controller"},
    {hardware_ids::uart,   "UART"},
    {hardware_ids::xmc,    "card management controller"},
};
// clang-format on

/// "Label          line", the label only before the first of `lines`.
std::string field(std::string_view label, const std::vector<std::string>& lines)
{
    constexpr std::size_t label_width = 15;
    std::string text;
    for (const std::string& line : lines) {
        const std::string_view shown = text.empty() ? label : "";
        text += "   " + std::string{shown} + std::string(label_width - shown.size(), ' ') + line + '\n';
    }
    return text;
}

std::string padded(std::string text, std::size_t width)
{
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

/// "0x0010000 - 0x0010fff", both numbers with `digits` digits.
std::string range_text(std::uint64_t start, std::uint64_t size, std::size_t digits)
{
    const auto number = [&](std::uint64_t value) {
        const std::string text = hex_text(value).substr(2);
        return "0x" + std::string(digits - std::min(digits, text.size()), '0') + text;
    };
    return number(start) + " - " + number(start + size - 1);
}

std::size_t digits_of(std::uint64_t value)
{
    return hex_text(value).size() - 2;
}

std::string count_text(std::size_t count, const std::string& thing, const std::string& plural = "s")
{
    return std::to_string(count) + ' ' + thing + (count == 1 ? "" : plural);
}

std::vector<std::string> mac_address_lines(const std::vector<std::array<std::uint8_t, 6>>& addresses)
{
    if (addresses.size() > 1 && are_consecutive(addresses))
        return {mac_address_text(addresses.front()) + " - " + mac_address_text(addresses.back())};
    std::vector<std::string> lines;
    for (const auto& address : addresses)
        lines.push_back(mac_address_text(address));
    if (lines.empty())
        lines.emplace_back("none");
    return lines;
}

/// Programmed sectors that overlap the section.
std::size_t programmed(const std::vector<std::uint64_t>& sectors, std::uint64_t sector_size,
                       const flash_section_t& section)
{
    return static_cast<std::size_t>(std::ranges::count_if(sectors, [&](std::uint64_t sector) {
        return sector < section.start + section.size && section.start < sector + sector_size;
    }));
}

std::vector<std::string> flash_lines(const flash_t& flash, const std::optional<board_state>& state)
{
    std::vector<std::string> lines{size_text(flash.size) + " in sectors of " + size_text(flash.sector)};
    std::vector<std::uint64_t> sectors;
    if (state)
        sectors = state->flash().programmed_sectors();
    std::size_t width = 0;
    for (const flash_section_t& section : flash.sections)
        width = std::max(width, printable(section.name.value_or("(no name)")).size());
    for (const flash_section_t& section : flash.sections) {
        std::string line = padded(printable(section.name.value_or("(no name)")), width) + "  " +
                           range_text(section.start, section.size, digits_of(flash.size - 1));
        if (section.write_protected)
            line += "  protected";
        if (const std::size_t count = programmed(sectors, flash.sector, section); count != 0)
            line += "  holds data in " + count_text(count, "sector");
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> core_lines(const std::vector<core_t>& cores)
{
    if (cores.empty())
        return {"none below the root"};
    const std::size_t digits = digits_of(cores.back().address + cores.back().size - 1);
    std::vector<std::string> lines;
    for (const core_t& core : cores) {
        const auto* const row = std::ranges::find_if(
            core_names, [&](const auto& candidate) { return candidate.hardware_id == core.hardware_id; });
        lines.push_back(range_text(core.address, core.size, digits) + "  " +
                        padded(std::to_string(core.hardware_id), 3) + "  " +
                        std::string{row == std::end(core_names) ? "" : row->name});
        lines.back().erase(lines.back().find_last_not_of(' ') + 1);
    }
    return lines;
}

/// Two lines for each: how far it is, and its card.
std::vector<std::string> xmc_lines(const accelerator_t& accelerator, const std::optional<board_state>& state)
{
    std::vector<std::string> lines;
    for (const core_t& core : accelerator.cores) {
        const xmc_t* xmc = xmc_behind(accelerator, core);
        if (xmc == nullptr)
            continue;
        constexpr const char* phases[] = {"in reset", "starting", "ready"};
        const xmc_phase_t phase =
            state ? phase_of(*xmc, core, state->registers(), device_now()) : xmc_phase_t::in_reset;
        lines.push_back(xmc->dead_link ? "dead link" : phases[static_cast<std::size_t>(phase)]);
        if (xmc->card.raw)
            lines.push_back("card of " + count_text(xmc->card.raw->size(), "raw byte"));
        else
            lines.push_back(printable(xmc->card.name.value_or("(no name)")) + ", serial " +
                            printable(xmc->card.serial.value_or("(none)")));
    }
    return lines;
}

/// A code by its name, or in hexadecimal.
std::string code_text(std::span<const code_name_t> names, std::uint8_t code)
{
    for (const auto& [name, known] : names)
        if (known == code)
            return std::string{name};
    return "0x" + hex_pair(code);
}

std::vector<std::string> bmc_lines(const std::optional<bmc_t>& config, std::optional<board_state>& state)
{
    if (!config)
        return {};
    bmc_memory_t memory = state ? state->bmc().read() : bmc_memory_t{};
    const std::string images = "boot image " + code_text(boot_images, bmc{*config, memory}.boot_image()) +
                               ", configured from " + code_text(configurations, config->configured_from);
    const bmc_fru_t& fru = config->fru;
    return {(config->silent ? "silent, " : "") + images,
            fru.raw ? "FRU of " + count_text(fru.raw->size(), "raw byte")
                    : printable(fru.manufacturer.value_or("(no manufacturer)")) + ' ' +
                          printable(fru.product.value_or("(no product)")) + ", serial " +
                          printable(fru.serial.value_or("(none)")),
            count_text(static_cast<std::size_t>(std::ranges::count_if(config->sensors, &is_sensor)), "sensor")};
}

std::vector<std::string> i2c_lines(const accelerator_t& accelerator, const std::optional<board_state>& state)
{
    if (std::ranges::find(accelerator.cores, hardware_ids::i2c, &core_t::hardware_id) == accelerator.cores.end())
        return {};
    const i2c_t& i2c = accelerator.i2c;
    std::vector<std::string> lines{count_text(i2c.buses.size(), "bus", "es") + ", " + count_text(i2c.pins, "pin")};
    if (i2c.pins != 0)
        lines.back() += ": " + hex_text(state ? control_pins(i2c, state->i2c()) : 0);
    if (i2c.mac_eeprom)
        lines.push_back("EEPROM with " + printable(*i2c.mac_eeprom));
    return lines;
}

/// "NORTHLIGHT NL-Q28-SR4, high power"
std::string module_text(const module_t& module)
{
    constexpr const char* powers[] = {"", ", high power", ", low power"};
    const std::span<const text_field_t> texts = text_fields(module.map);
    const std::string name = text_of(module, texts[0]) + ' ' + text_of(module, texts[1]);
    return (name == " " ? "(unnamed)" : printable(name)) + powers[static_cast<std::size_t>(power_mode_of(module))];
}

std::vector<std::string> cage_lines(const i2c_t& i2c, const std::optional<board_state>& state)
{
    std::vector<std::string> lines;
    for (std::size_t number = 0; number < i2c.cages.size(); ++number) {
        const cage_t& cage = i2c.cages[number];
        std::string line = padded(std::to_string(number), 2) + ' ';
        if (cage.module)
            line += module_text(state ? remembered(i2c, number, state->i2c()) : *cage.module);
        else
            line += cage.acknowledges ? "empty" : "empty, does not acknowledge";
        lines.push_back(line);
    }
    return lines;
}

/// How it is, and then each of its outputs.
std::vector<std::string> clock_lines(const i2c_t& i2c, const std::optional<board_state>& state)
{
    const bool has_clock = std::ranges::any_of(i2c.buses, [](const i2c_bus_t& bus) {
        return std::ranges::find(bus.devices, i2c_kind_t::clock_generator, &i2c_device_t::kind) != bus.devices.end();
    });
    if (!has_clock)
        return {};
    if (!state)
        return {"not loaded, its outputs are off"};
    const clock_status_t status = clock_generator{state->i2c(), places_of(i2c).clock}.status();
    if (!status.is_running)
        return {status.text + ", its outputs are off"};
    std::vector<std::string> lines{status.text};
    for (std::size_t output = 0; output < clock_outputs; ++output)
        lines.push_back("OUT" + std::to_string(output) + "  " + status.outputs.at(output));
    return lines;
}

std::string temperature_text(double celsius)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g °C", celsius);
    return text;
}

/// "in 2.5 s: silent on", counted from now.
std::vector<std::string> lines_to_come(const std::optional<board_state>& state)
{
    std::vector<std::string> lines;
    if (!state)
        return lines;
    changes_t changes = state->changes();
    const device_time now = device_now();
    for (const changes_t::step_t& step : changes.to_come) {
        accelerator_t next = changes.board;
        apply_difference(next, step.difference, "");
        for (const std::string& line : told_changes(changes.board, next))
            lines.push_back("in " + duration_text(std::max(step.at - now, device_time{})) + ": " + line);
        changes.board = std::move(next);
    }
    return lines;
}

std::string state_text(const rack_t& rack, const accelerator_t& accelerator, const std::optional<board_state>& state)
{
    std::error_code ignored;
    if (!state && std::filesystem::exists(board_state_folder(rack, accelerator), ignored))
        return "out of date, starts anew with the next use";
    if (!state)
        return "not used yet";
    const std::size_t count = state->flash().programmed_sectors().size();
    return count == 0 ? "used, flash erased" : "used, flash holds data in " + count_text(count, "sector");
}

void show_accelerator(const rack_t& rack, std::size_t index)
{
    const accelerator_t& original = rack.accelerators.at(index);
    auto state = board_state::open_existing(rack, original);
    const accelerator_t& accelerator = state ? state->board() : original;

    std::string text = std::to_string(index) + "  " + printable(accelerator.name.value_or("(no name)")) + '\n';
    text += field("Model", {printable(accelerator.model)});
    if (accelerator.board != accelerator.model)
        text += field("Says it is", {printable(accelerator.board)});
    text += field("UID", {printable(accelerator.uid)});
    if (const char* const error = open_error_name(accelerator.open_error))
        text += field("Opening", {"fails with " + std::string{error}});
    text += field("FPGA", {printable(accelerator.fpga.device) + ", " + temperature_text(accelerator.fpga.temperature)});
    text += field("FPGA serial", {"0x" + serial_text(accelerator.fpga.serial)});
    text += field("MAC addresses",
                  mac_address_lines(state ? mac_addresses(accelerator, *state) : accelerator.mac_addresses));
    text += field("Flash", flash_lines(accelerator.flash, state));
    if (accelerator.mmios != 1)
        text += field("MMIO spaces", {std::to_string(accelerator.mmios)});
    text += field("Cores", core_lines(accelerator.cores));
    text += field("I2C", i2c_lines(accelerator, state));
    text += field("Cages", cage_lines(accelerator.i2c, state));
    text += field("Clock", clock_lines(accelerator.i2c, state));
    text += field("BMC", bmc_lines(accelerator.bmc, state));
    text += field("XMC", xmc_lines(accelerator, state));
    text += field("Changed", told_changes(original, accelerator));
    text += field("To come", lines_to_come(state));
    text += field("State", {state_text(rack, accelerator, state)});
    print('\n' + text);
}

} // namespace

void show(const rack_t& rack)
{
    print("Rack   " + printable(rack.file.string()) + "\nState  " + printable(rack_state_folder(rack.file).string()) +
          '\n');
    if (rack.accelerators.empty())
        print("\nNo accelerators\n");
    for (std::size_t index = 0; index < rack.accelerators.size(); ++index)
        show_accelerator(rack, index);
}

} // namespace ivra::virtual_platform
