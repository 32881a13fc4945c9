// From bytes of devices and of an operator to what is printed: sensor records with their answers, the memory of a
// module and a limits file give a document that is JSON, a line for monitoring that is one, and a screen.

#include "readings/check.h"
#include "readings/document.h"
#include "readings/limits_file.h"
#include "readings/text_screen.h"
#include "telemetry/ipmi_sensor.h"
#include "telemetry/module_memory.h"
#include "telemetry_reading.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

using namespace ivra::bsp;
using bytes_t = std::span<const std::uint8_t>;

namespace {

/// As many bytes as the first one says, as far as there are some.
bytes_t take(bytes_t& input)
{
    if (input.empty())
        return {};
    const std::size_t size = std::min<std::size_t>(input[0], input.size() - 1);
    const bytes_t taken = input.subspan(1, size);
    input = input.subspan(1 + size);
    return taken;
}

std::string take_text(bytes_t& input)
{
    const bytes_t bytes = take(input);
    return {bytes.begin(), bytes.end()};
}

std::vector<telemetry::reading_t> take_sensors(bytes_t& input)
{
    std::vector<telemetry::reading_t> sensors;
    for (int count = 0; count < 3; ++count)
        try {
            const telemetry::ipmi_sensor_t sensor = telemetry::decode_full_sensor_record(take(input));
            const bytes_t answer = take(input);
            sensors.push_back(sensor.reading.state == telemetry::state_t::unsupported
                                  ? sensor.reading
                                  : telemetry::decode_sensor_reading(sensor, 0, answer));
        } catch (const std::runtime_error&) { // no record
            break;
        }
    return sensors;
}

/// What is left: a module's pages, as large as one has them.
telemetry::module_t decode_module(bytes_t input)
{
    constexpr std::size_t page_size = 128;
    constexpr std::pair<std::uint8_t, std::uint8_t> pages[] = {{0x50, 0x00}, {0x50, 0x01}, {0x50, 0x02}, {0x50, 0x03},
                                                               {0x50, 0x10}, {0x50, 0x11}, {0x51, 0x00}};
    if (input.empty())
        return {.state = telemetry::module_state_t::empty};
    const std::uint8_t identifier = input[0];
    telemetry::memory_t memory;
    const auto add = [&](std::uint8_t device, std::uint8_t page, std::uint8_t first) {
        const bytes_t piece = input.first(std::min(page_size, input.size()));
        std::vector<std::uint8_t> bytes{piece.begin(), piece.end()};
        input = input.subspan(bytes.size());
        bytes.resize(page_size);
        memory.push_back({.place = {device, page, first, page_size}, .bytes = bytes, .error = {}});
    };
    add(0x50, 0x00, 0);
    add(0x51, 0x00, 0);
    for (const auto& [device, page] : pages)
        add(device, page, telemetry::first_of_page);
    return telemetry::decode_module(identifier, memory);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    bytes_t input{data, size};
    const telemetry::accelerator_identity_t identity{.index = 0, .name = take_text(input), .uid = "0000:17:00.0"};
    telemetry::board_readings_t board;
    board.model.value = take_text(input);
    board.controller.serial.value = take_text(input);
    board.fpga_device.error = take_text(input);
    const std::string limits = take_text(input);
    board.controller.sensors = take_sensors(input);
    board.cages.value = {{.number = 1, .module = decode_module(input)}};

    std::vector<readings::limits_entry_t> entries;
    try {
        entries = readings::parse_limits(limits, "limits.json");
    } catch (const readings::limits_error&) { // as they were: no entries
    }
    const auto findings =
        readings::apply_limits(entries, identity, {telemetry::part_t::sensors, telemetry::part_t::modules}, board);

    const std::string line = readings::make_board_document(identity, board, findings);
    require(line.find('\n') == std::string::npos);
    std::vector<rapidjson::Document> documents(1);
    documents[0].Parse<rapidjson::kParseValidateEncodingFlag>(line.data(), line.size());
    require(!documents[0].HasParseError());
    rapidjson::Document host;
    const telemetry::health_t health = *telemetry::judge(board).health;
    const std::string text = readings::make_host_document(health, findings, 1, std::vector{line});
    host.Parse<rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
    require(!host.HasParseError());

    const std::string check = readings::make_check_line(health, findings, documents);
    require(check.size() <= 8192 && check.find('\n') == std::string::npos);
    require(std::ranges::count(check, '|') <= 1);
    // No device sends anything to a terminal but text.
    require(std::ranges::none_of(readings::make_text_screen(health, findings, documents, false),
                                 [](char letter) { return letter > 0 && letter < ' ' && letter != '\n'; }));
    return 0;
}
