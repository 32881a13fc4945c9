#include "read_bmc.h"

#include <algorithm>
#include <set>
#include <span>

namespace ivra::virtual_platform {

namespace {

/// A name of the table, or the number itself.
std::uint8_t read_code(const node_t& node, std::span<const code_name_t> names)
{
    if (node.value.IsString())
        for (const auto& [name, code] : names)
            if (node.patterned_text() == name)
                return code;
    return static_cast<std::uint8_t>(read_number(node));
}

std::string read_bytes(const node_t& node, std::size_t most)
{
    std::string bytes = read_text(node);
    if (bytes.size() > most)
        node.expected("at most " + std::to_string(most) + " bytes");
    return bytes;
}

std::string read_hex_bytes(const node_t& node, std::size_t most)
{
    std::string bytes = read_hex(node);
    if (bytes.size() > most)
        node.expected("at most " + std::to_string(most) + " bytes");
    return bytes;
}

/// null: there is none.
std::optional<std::string> read_optional_hex(const node_t& node, std::size_t most)
{
    return node.value.IsNull() ? std::nullopt : std::optional{read_hex_bytes(node, most)};
}

void read_fru(const node_t& node, bmc_fru_t& fru)
{
    struct
    {
        const char* name;
        std::optional<std::string>& value;
    } const fields[] = {
        {"manufacturer", fru.manufacturer}, {"product", fru.product}, {"serial", fru.serial},
        {"part_number", fru.part_number},   {"file_id", fru.file_id},
    };
    for (const auto& [name, value] : fields)
        if (const auto field = node.member(name))
            value = field->value.IsNull() ? std::nullopt : std::optional{read_bytes(*field, largest_fru_field)};
    if (const auto extra = node.member("extra"))
        for (std::size_t at = 0; at < extra->size(); ++at)
            fru.extra.push_back(read_bytes(extra->element(at), largest_fru_field));
    if (const auto raw = node.member("raw"); raw && !raw->value.IsNull())
        fru.raw = read_hex(*raw);
    else if (fru_image(fru).size() > largest_fru_area + 8)
        node.expected("fields that fit into a board area of " + std::to_string(largest_fru_area) + " bytes");
}

/// Members that cannot stand beside another one.
void reject(const node_t& node, const char* beside, std::initializer_list<const char*> names)
{
    if (const auto member = node.member(beside); member && !member->value.IsNull())
        for (const char* name : names)
            if (const auto other = node.member(name); other && !other->value.IsNull())
                other->expected("no such member beside \"" + std::string{beside} + '"');
}

bmc_sensor_t read_sensor(const node_t& node, std::size_t position)
{
    bmc_sensor_t sensor;
    reject(node, "record",
           {"name", "number", "unit", "modifier", "modifier_unit", "rate", "percent", "format", "linearisation", "m",
            "b", "r_exp", "b_exp", "value"});
    reject(node, "response", {"value", "raw", "available"});
    reject(node, "value", {"raw"});
    sensor.number = static_cast<std::uint8_t>(position + 1);
    if (const auto record = node.member("record"); record && !record->value.IsNull()) {
        sensor.record = read_hex_bytes(*record, 255);
        constexpr std::size_t number_at = 7;
        sensor.number = sensor.record->size() > number_at ? static_cast<std::uint8_t>(sensor.record->at(number_at)) : 0;
    } else if (const auto name = node.member("name")) {
        sensor.name = read_bytes(*name, largest_sensor_name);
    } else {
        node.expected("a member \"name\", or one \"record\"");
    }
    struct
    {
        const char* name;
        std::uint8_t& value;
        std::span<const code_name_t> names;
    } const codes[] = {
        {"number", sensor.number, {}},
        {"unit", sensor.unit, sensor_units},
        {"modifier", sensor.modifier, sensor_modifiers},
        {"modifier_unit", sensor.modifier_unit, sensor_units},
        {"rate", sensor.rate, sensor_rates},
        {"format", sensor.format, sensor_formats},
        {"linearisation", sensor.linearisation, sensor_linearisations},
        {"raw", sensor.raw, {}},
    };
    for (const auto& [name, value, names] : codes)
        if (const auto code = node.member(name); code && !code->value.IsNull())
            value = read_code(*code, names);
    struct
    {
        const char* name;
        int& value;
    } const numbers[] = {{"m", sensor.m}, {"b", sensor.b}, {"r_exp", sensor.r_exp}, {"b_exp", sensor.b_exp}};
    for (const auto& [name, value] : numbers)
        if (const auto number = node.member(name))
            value = number->value.GetInt();
    if (const auto percent = node.member("percent"))
        sensor.percent = percent->value.GetBool();
    if (const auto available = node.member("available"))
        sensor.available = available->value.GetBool();
    if (const auto value = node.member("value"); value && !value->value.IsNull()) {
        sensor.value = value->value.GetDouble();
        sensor.raw = nearest_raw(sensor, *sensor.value);
    }
    if (const auto next = node.member("next"); next && !next->value.IsNull())
        sensor.next = static_cast<std::uint16_t>(read_number(*next));
    if (const auto response = node.member("response"))
        sensor.response = read_optional_hex(*response, 255);
    return sensor;
}

std::vector<bmc_sensor_t> read_sensors(const node_t& list)
{
    std::vector<bmc_sensor_t> sensors;
    std::set<std::uint8_t> numbers;
    for (std::size_t at = 0; at < list.size(); ++at) {
        const node_t node = list.element(at);
        sensors.push_back(read_sensor(node, at));
        const bmc_sensor_t& sensor = sensors.back();
        if (!sensor.record && !numbers.insert(sensor.number).second)
            node.member("number").value_or(node).expected("a sensor number that no other sensor has, which " +
                                                          std::to_string(sensor.number) + " is not");
    }
    return sensors;
}

std::vector<std::size_t> read_pieces(const node_t& list, std::size_t depth)
{
    std::vector<std::size_t> pieces;
    for (std::size_t at = 0; at < list.size(); ++at) {
        const node_t node = list.element(at);
        pieces.push_back(node.value.GetUint());
        if (pieces.back() > depth)
            node.expected("at most " + std::to_string(depth) + ", the depth of the FIFO");
    }
    return pieces;
}

bmc_answer_t read_answer(const node_t& node, std::size_t depth)
{
    bmc_answer_t answer;
    answer.to = read_hex_bytes(node.required("to"), largest_bmc_text);
    reject(node, "frame", {"code", "data"});
    if (const auto nth = node.member("nth"); nth && !nth->value.IsNull())
        answer.nth = nth->value.GetUint();
    if (const auto latency = node.member("latency"); latency && !latency->value.IsNull())
        answer.latency = read_duration(*latency);
    if (const auto code = node.member("code"); code && !code->value.IsNull())
        answer.code = static_cast<std::uint8_t>(read_number(*code));
    if (const auto data = node.member("data"))
        answer.data = read_optional_hex(*data, largest_bmc_text);
    if (const auto noise = node.member("noise"))
        answer.noise = read_hex_bytes(*noise, largest_bmc_text);
    if (const auto frame = node.member("frame"))
        answer.frame = read_optional_hex(*frame, largest_bmc_text);
    if (const auto lose = node.member("lose"))
        for (std::size_t at = 0; at < lose->size(); ++at)
            answer.lose.push_back(static_cast<std::uint16_t>(lose->element(at).value.GetUint()));
    if (const auto pieces = node.member("pieces"); pieces && !pieces->value.IsNull())
        answer.pieces = read_pieces(*pieces, depth);
    return answer;
}

} // namespace

void read_bmc(const node_t& node, bmc_t& bmc)
{
    if (const auto latency = node.member("latency"))
        bmc.latency = read_duration(*latency);
    if (const auto silent = node.member("silent"))
        bmc.silent = silent->value.GetBool();
    if (const auto image = node.member("boot_image"))
        bmc.boot_image = read_code(*image, boot_images);
    if (const auto image = node.member("configured_from"))
        bmc.configured_from = read_code(*image, configurations);
    if (const auto depth = node.member("depth"))
        bmc.depth = depth->value.GetUint();
    if (const auto pieces = node.member("pieces"); pieces && !pieces->value.IsNull())
        bmc.pieces = read_pieces(*pieces, bmc.depth);
    if (const auto fru = node.member("fru"))
        read_fru(*fru, bmc.fru);
    if (const auto sensors = node.member("sensors"))
        bmc.sensors = read_sensors(*sensors);
    if (const auto answers = node.member("answers"))
        for (std::size_t at = 0; at < answers->size(); ++at)
            bmc.answers.push_back(read_answer(answers->element(at), bmc.depth));
}

} // namespace ivra::virtual_platform
