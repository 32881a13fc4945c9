#include "show_commands.h"

#include "output/output.h"

#include <optional>
#include <string>
#include <utility>

namespace ivra::bsp {

namespace {

void print_section(const section& s)
{
    output& out = output::get();
    if (out.is_json()) {
        out.print_json_section(s);
    } else {
        out.print_line(s.name, color::bold, s.level);
        out.print_out_content(s.entries, s.level);
    }
}

} // namespace

void show_board_info(board_monitor& monitor)
{
    print_section(monitor.get_board_info());
}

void show_boot_image(board_monitor& monitor)
{
    const board::boot_image_t current = monitor.get_board().get_current_boot_image();
    const board::boot_image_t next = monitor.get_board().get_boot_image();
    section s{"Boot image", std::nullopt, 0};
    add_boot_image_stat(s, "Current boot", current);
    add_boot_image_stat(s, "Next reload", next);
    print_section(s);
}

void show_flash_info(board_monitor& monitor)
{
    print_section(monitor.get_flash_info());
}

void show_transceivers_info(board_monitor& monitor)
{
    const section::list ports = monitor.get_transceivers_info();
    output& out = output::get();
    if (out.is_json()) {
        out.print_json_list(ports);
    } else {
        out.print_line(ports.name, color::bold, ports.level);
        out.print_out_content(ports.entries, ports.level);
    }
}

void show_sensors(board_monitor& monitor)
{
    output::get().log_part("Retrieving sensor data... ");
    board::sensors_t report = monitor.get_board().get_sensors();
    output::get().log("done", color::green);

    section s{"Sensors", std::nullopt, 0};
    if (report.sensors.empty()) {
        s.add_stat<std::string>("Info", "No sensors available", color::red);
    } else {
        section::array table{.row_key = "sensors",
                             .first_header = "Sensor",
                             .headers = std::move(report.columns),
                             .rows = {},
                             .level = static_cast<unsigned short>(s.level + 1)};
        table.rows.reserve(report.sensors.size());
        for (board::sensor_t& sensor : report.sensors)
            table.rows.push_back({std::move(sensor.name), std::move(sensor.values), color::normal});
        s.entries.emplace_back(std::move(table));
    }
    print_section(s);
}

void show_all_info(board_monitor& monitor)
{
    show_board_info(monitor);
    for (const auto show : {show_boot_image, show_flash_info, show_transceivers_info, show_sensors}) {
        if (!output::get().is_json())
            output::get().print_text("\n");
        show(monitor);
    }
}

} // namespace ivra::bsp
