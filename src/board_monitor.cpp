#include "board_monitor.h"

#include "text/text.h"
#include "text/text_stream.h"
#include "transceiver/report/report.h"
#include "utils.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iomanip>
#include <string>
#include <vector>

namespace ivra::bsp {

namespace {

template <class... Pieces>
std::string to_text(const Pieces&... pieces)
{
    text_stream stream;
    (stream << ... << pieces);
    return stream.str();
}

stat_t with_value(stat_t stat, const std::string& value)
{
    return stat.set_value(value);
}

/// Hexadecimal digits for the widest start address. Deliberate: computed by a logarithm, so an exact power of 16 counts
/// one digit less than it has. Addresses that cannot be read, and address 0, do not count.
int address_width(const v6::flash::flash& flash, const std::vector<const char*>& sections)
{
    int width = 0;
    for (const char* section : sections) {
        const auto start = flash.get_section_start_address(section);
        if (start.has_value() && start.value() != 0)
            width = std::max(width, static_cast<int>(std::ceil(std::log2(static_cast<double>(start.value())) / 4)));
    }
    return width;
}

std::string address_range(const v6::flash::flash& flash, const char* section, int width)
{
    const auto start = flash.get_section_start_address(section);
    const auto size = flash.get_section_size(section);
    if (!start.has_value() || !size.has_value())
        return "Error reading section start address or size";
    text_stream stream;
    stream << std::hex << std::setfill('0') << "0x" << std::setw(width) << start.value() << " - 0x" << std::setw(width)
           << start.value() + size.value() - 1;
    return stream.str();
}

} // namespace

board_monitor::board_monitor(const hw::accelerator_descriptor& descriptor) : info_{descriptor}, board_{descriptor} {}

section board_monitor::get_board_info()
{
    const std::string device = info_.top().get_device_id().access_value_or_throw("Could not get device ID");
    const auto serial_id = info_.top().get_fpga_serial_id().access_value_or_throw("Could not get FPGA serial");
    const std::string serial =
        v6::hw_top::print_fpga_serial_id(serial_id).access_value_or_throw("ivra_hw_top_print_fpga_serial_id");
    const double temperature =
        info_.top().get_temperature().access_value_or_throw("Could not get accelerator temperature");

    section s{"Accelerator", std::nullopt, 0};
    const std::string name = info_.name();
    s.add_stat(with_value(stats::name, name));
    s.add_stat(with_value(stats::id, std::to_string(info_.id())));
    s.add_stat(with_value(stats::board_model, info_.board_model()));
    s.add_stat(get_board_serial_stat(board_, name));
    s.add_stat<std::string>("FPGA device", device, color::green);
    s.add_stat<std::string>("FPGA serial", "0x" + serial, color::orange);

    const std::vector<v6::mac_address> addresses = board_.get_mac_addresses();
    if (addresses.size() == 1)
        s.add_stat("MAC address", to_text(addresses.front()), color::blue);
    else if (!addresses.empty())
        s.add_stat("MAC addresses", to_text(addresses.front(), " - ", addresses.back()), color::blue);

    s.add_stat("Temperature", to_text(without_nan_sign(temperature), "°C"), color::vermilion);
    return s;
}

section board_monitor::get_flash_info()
{
    const v6::flash::flash flash{board_.get_root()};
    const std::vector<const char*> sections = flash.get_sections_char(nullptr).access_value_or_throw();

    section s{"Flash memory", std::nullopt, 0};
    section::caption_list ranges{{"Sections", static_cast<unsigned short>(s.level + 1), {}}};
    const int width = address_width(flash, sections);
    for (const char* flash_section : sections) {
        const char* name = flash.get_section_name(flash_section);
        ranges.entries.emplace_back(
            stat_t{name == nullptr ? "UNKNOWN" : name, address_range(flash, flash_section, width), color::normal});
    }

    const std::uint64_t size = flash.get_memory_size().access_value_or_throw("Unable to retrieve flash memory size");
    const std::uint64_t sector = flash.get_sector_size().access_value_or_throw("Unable to retrieve flash sector size");
    s.add_stat("Memory size", to_text(size, " bytes", " (", size >> 20U, " MB)"), color::orange);
    s.add_stat("Sector size", to_text(sector, " bytes"), color::blue);
    s.entries.emplace_back(ranges);
    return s;
}

section::list board_monitor::get_transceivers_info()
{
    section::list ports{"Transceivers", 0, {}};
    std::size_t number = 0;
    for (const auto& transceiver : board_.get_transceivers()) {
        section& port = ports.add_section("Port " + std::to_string(++number), "Port", 1);
        if (transceiver)
            add_transceiver(*transceiver, port);
        else
            port.add_stat("Type", transceiver::no_transceiver, color::normal);
    }
    return ports;
}

} // namespace ivra::bsp
