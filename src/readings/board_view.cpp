#include "readings/board_view.h"

#include <algorithm>
#include <string_view>

namespace ivra::bsp::readings {

namespace {

constexpr telemetry::health_t healths[] = {telemetry::health_t::ok, telemetry::health_t::unknown,
                                           telemetry::health_t::warning, telemetry::health_t::critical};

/// The elements of a list; none where there is no such member.
template <class Visit>
void for_each(const json_t& object, const char* member, Visit visit)
{
    if (const auto found = object.FindMember(member); found != object.MemberEnd() && found->value.IsArray())
        for (const json_t& element : found->value.GetArray())
            visit(element);
}

} // namespace

std::string get_text(const json_t& object, const char* member)
{
    const auto found = object.FindMember(member);
    if (found == object.MemberEnd() || !found->value.IsString())
        return {};
    return {found->value.GetString(), found->value.GetStringLength()};
}

std::optional<double> get_number(const json_t& object, const char* member)
{
    const auto found = object.FindMember(member);
    if (found == object.MemberEnd() || !found->value.IsNumber())
        return std::nullopt;
    return found->value.GetDouble();
}

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
    if (const auto fpga = board.FindMember("fpga"); fpga != board.MemberEnd())
        if (const auto temperature = fpga->value.FindMember("temperature"); temperature != fpga->value.MemberEnd())
            readings.push_back({"", temperature->value});
    for_each(board, "modules", [&](const json_t& module) {
        const std::string cage = "cage " + std::to_string(module["cage"].GetUint());
        for_each(module, "monitors", [&](const json_t& monitor) { readings.push_back({cage, monitor}); });
        for_each(module, "lanes", [&](const json_t& lane) {
            const std::string where = cage + " lane " + std::to_string(lane["lane"].GetUint());
            for (const char* name : {"rx_power", "tx_power", "tx_bias"})
                readings.push_back({where, lane[name]});
        });
    });
    return readings;
}

bool has_failure(const json_t& board)
{
    bool failed = get_text(board, "state") == "failed" || board.HasMember("errors");
    for (const located_reading_t& located : get_readings(board))
        failed = failed || get_text(located.reading, "state") == "failed";
    for_each(board, "modules",
             [&failed](const json_t& module) { failed = failed || get_text(module, "state") == "failed"; });
    return failed;
}

std::string get_name(const json_t& board)
{
    for (const char* member : {"name", "uid"})
        if (std::string text = get_text(board, member); !text.empty())
            return text;
    const std::optional<double> index = get_number(board, "index");
    return index ? "board-" + std::to_string(static_cast<unsigned>(*index)) : "(unknown)";
}

} // namespace ivra::bsp::readings
