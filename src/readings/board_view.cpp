#include "readings/board_view.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <string_view>

namespace ivra::bsp::readings {

namespace {

constexpr telemetry::health_t healths[] = {telemetry::health_t::ok, telemetry::health_t::unknown,
                                           telemetry::health_t::warning, telemetry::health_t::critical};

std::string get_name(const json_t& board)
{
    for (const char* member : {"name", "uid"})
        if (std::string text = get_text(board, member); !text.empty())
            return text;
    const std::string index = get_count(board, "index");
    return index.empty() ? "(unknown)" : "board-" + index;
}

} // namespace

std::optional<telemetry::health_t> get_health(const json_t& object)
{
    const std::string text = get_text(object, "health");
    const auto* const found =
        std::ranges::find(healths, text, [](telemetry::health_t health) { return telemetry::get_name(health); });
    return found == std::end(healths) ? std::nullopt : std::optional{*found};
}

std::vector<located_reading_t> get_readings(const json_t& board)
{
    std::vector<located_reading_t> readings;
    for_each(board, "sensors", [&](const json_t& sensor) { readings.push_back({"", sensor}); });
    if (const json_t& temperature = get_member(get_member(board, "fpga"), "temperature"); temperature.IsObject())
        readings.push_back({"", temperature});
    for_each(board, "modules", [&](const json_t& module) {
        const std::string cage = "cage " + get_count(module, "cage");
        for_each(module, "monitors", [&](const json_t& monitor) { readings.push_back({cage, monitor}); });
        for_each(module, "lanes", [&](const json_t& lane) {
            const std::string where = cage + " lane " + get_count(lane, "lane");
            for (const char* name : {"rx_power", "tx_power", "tx_bias"})
                readings.push_back({where, get_member(lane, name)});
        });
    });
    return readings;
}

bool has_failure(const json_t& board)
{
    bool failed = get_text(board, "state") == "failed" || get_member(board, "errors").IsObject();
    for (const located_reading_t& located : get_readings(board))
        failed = failed || get_text(located.reading, "state") == "failed";
    for_each(board, "modules",
             [&failed](const json_t& module) { failed = failed || get_text(module, "state") == "failed"; });
    return failed;
}

std::vector<std::string> get_names(const std::vector<rapidjson::Document>& boards)
{
    std::vector<std::string> names;
    std::map<std::string, std::size_t> counts;
    for (const rapidjson::Document& board : boards)
        ++counts[names.emplace_back(get_name(board))];
    for (std::size_t at = 0; at < boards.size(); ++at) {
        const std::string uid = get_text(boards[at], "uid");
        if (counts[names[at]] > 1)
            names[at] += " (" + (uid.empty() ? get_count(boards[at], "index") : uid) + ')';
    }
    return names;
}

} // namespace ivra::bsp::readings
