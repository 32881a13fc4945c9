// A whole module memory, from its identification to the finished text and document. The I2C is this program's own: one
// bus with a module, whose memory is the input. Everything else is a plain board of the virtual platform.

#include "board.h"
#include "output/json.h"
#include "output/terminal.h"
#include "transceiver/module.h"
#include "transceiver/report/report.h"

#include <ivra/i2c.h>

#include <rapidjson/document.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <sstream>
#include <stdexcept>
#include <string>
#include <variant>

using namespace ivra::bsp;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

constexpr std::size_t page_size = 128;

/// The input: how long the module works, then its lower page, pages 00, 01 and 11, and the two pages at 0x51, as far as
/// it reaches; zeros stand for the rest.
struct module_t
{
    std::span<const std::uint8_t> memory;
    unsigned transfers_left = 0;
    std::size_t last_transfer = 0; ///< bytes that it still moves of the first transfer that fails; all: an error
    std::uint8_t selected = 0;

    std::uint8_t byte(std::uint8_t device, std::size_t reg) const
    {
        const std::size_t page = device == 0x51     ? 4 + reg / page_size
                                 : reg < page_size  ? 0
                                 : selected == 0x11 ? 3
                                 : selected == 0x01 ? 2
                                                    : 1;
        const std::size_t at = page * page_size + reg % page_size;
        return at < memory.size() ? memory[at] : 0;
    }

    /// How many bytes of a transfer are moved; -1 with errno for none.
    int move(std::size_t size)
    {
        if (transfers_left != 0) {
            --transfers_left;
            return static_cast<int>(size);
        }
        if (last_transfer < size)
            return static_cast<int>(last_transfer);
        errno = EIO;
        return -1;
    }
};

module_t module;

module_t plug(std::span<const std::uint8_t> input)
{
    module_t plugged;
    if (input.size() < 2)
        return plugged;
    plugged.transfers_left = input[0] % 32; // the longest walk has 14
    plugged.last_transfer = input[1];
    plugged.memory = input.subspan(2);
    return plugged;
}

std::string text_of(const section::list& ports)
{
    std::ostringstream text;
    terminal screen{text};
    screen.print_line(ports.name, color::bold, ports.level);
    screen.print_out_content(ports.entries, ports.level);
    return text.str();
}

std::string document_of(const section::list& ports)
{
    json_document document;
    document.add(ports);
    return document.complete(true, std::nullopt, {});
}

void check(const transceiver::transceiver_info_t& info)
{
    section::list ports{"Transceivers", 0, {}};
    add_transceiver(info, ports.add_section("Port 1", "Port", 1));

    const std::string text = text_of(ports);
    require(text.starts_with("Transceivers\n\tPort 1\n\t\t") && text.ends_with('\n'));
    require(std::all_of(text.begin(), text.end(), [](char c) {
        return c == '\n' || c == '\t' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
    }));
    require((text.find("\tError") != std::string::npos) == info.error.has_value());

    const std::string written = document_of(ports);
    rapidjson::Document document;
    document.Parse<rapidjson::kParseValidateEncodingFlag>(written.data(), written.size());
    require(!document.HasParseError() && document["data"]["Transceivers"].Size() == 1);
    const auto& port = document["data"]["Transceivers"][0];
    require(port["Port"] == "Port 1" && port.HasMember("Error") == info.error.has_value());
    require(info.error || port["Type"] == info.type.value().c_str());
    if (port.HasMember("Channels"))
        require(port["Channels"].Size() == (std::get_if<2>(&*info.stats) != nullptr ? 8U : 4U));
}

} // namespace

extern "C" {

ivra_i2c* ivra_i2c_create(ivra_hw_core* core)
{
    return reinterpret_cast<ivra_i2c*>(core); // never looked into
}

void ivra_i2c_destroy(ivra_i2c*) {}

ivra_i2c_bus* ivra_i2c_get_bus(ivra_i2c* i2c, uint8_t)
{
    return reinterpret_cast<ivra_i2c_bus*>(i2c);
}

void ivra_i2c_bus_destroy(ivra_i2c_bus*) {}

int ivra_i2c_bus_read_register(ivra_i2c_bus*, uint8_t device, uint8_t reg, uint8_t* buffer, size_t size)
{
    require((device == 0x50 || device == 0x51) && reg + size <= 2 * page_size);
    const int count = module.move(size);
    for (int i = 0; i < count; ++i)
        buffer[i] = module.byte(device, reg + static_cast<std::size_t>(i));
    return count;
}

// Nothing but pages is selected.
int ivra_i2c_bus_write_register(ivra_i2c_bus*, uint8_t device, uint8_t reg, const uint8_t* buffer, size_t size)
{
    require(device == 0x50 && reg == 127 && size == 1 && (*buffer <= 0x01 || *buffer == 0x11));
    const int count = module.move(size);
    if (count == 1)
        module.selected = *buffer;
    return count;
}

} // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const board_t board{"bittware_xupp3r"};
    static const ivra::v6::i2c::i2c controller{board.root()};
    static ivra::v6::i2c::bus bus = controller.get_bus(1).value();

    module = plug({data, size});
    const std::optional<transceiver::transceiver_info_t> report = transceiver::get_module_report(bus);
    if (report)
        check(*report);

    // Where a report has an error, that is what is thrown.
    module = plug({data, size});
    try {
        const auto stats = transceiver::get_module_stats(bus);
        require(stats.has_value() == report.has_value() && (!report || !report->error));
    } catch (const std::runtime_error& error) {
        require(report && report->error == error.what() && !report->stats);
    }
    return 0;
}
