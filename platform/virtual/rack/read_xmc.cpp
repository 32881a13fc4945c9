#include "read_xmc.h"

#include <algorithm>

namespace ivra::virtual_platform {

namespace {

std::optional<std::string> read_field(const node_t& node)
{
    std::optional<std::string> value = read_name(node);
    if (value && value->size() > largest_xmc_field)
        node.expected("at most " + std::to_string(largest_xmc_field) + " bytes");
    return value;
}

/// The number of a field; null: it is left out.
template <class Number>
std::optional<Number> read_optional(const node_t& node)
{
    return node.value.IsNull() ? std::nullopt : std::optional{static_cast<Number>(node.value.GetUint())};
}

void read_macs(const node_t& node, xmc_card_t& card)
{
    card.macs.reset();
    if (node.value.IsNull())
        return;
    const auto [first, count] = read_mac_range(node);
    card.macs = mac_block_t{first, static_cast<std::uint8_t>(count)};
}

void read_legacy_macs(const node_t& node, xmc_card_t& card)
{
    for (std::size_t slot = 0; slot < node.size(); ++slot)
        card.legacy_macs.at(slot) = read_field(node.element(slot));
}

void read_extra(const node_t& node, xmc_card_t& card)
{
    for (std::size_t at = 0; at < node.size(); ++at) {
        const node_t field = node.element(at);
        const auto key = static_cast<std::uint8_t>(read_number(field.required("key")));
        card.extra.emplace_back(key, *read_field(field.required("value")));
    }
}

void read_card(const node_t& node, xmc_card_t& card)
{
    struct
    {
        const char* name;
        std::optional<std::string>& value;
    } const texts[] = {
        {"name", card.name},
        {"revision", card.revision},
        {"serial", card.serial},
        {"firmware", card.firmware},
    };
    for (const auto& [name, value] : texts)
        if (const auto text = node.member(name))
            value = read_field(*text);
    if (const auto slots = node.member("legacy_macs")) {
        card.macs.reset(); // a card has one scheme, unless both are spelt out
        read_legacy_macs(*slots, card);
    }
    if (const auto macs = node.member("macs"))
        read_macs(*macs, card);
    if (const auto fan = node.member("fan"))
        card.fan = fan->value.IsNull() ? std::nullopt : std::optional{fan->value.GetBool()};
    if (const auto mode = node.member("configuration_mode"))
        card.configuration_mode = read_optional<std::uint8_t>(*mode);
    if (const auto watts = node.member("maximum_power"))
        card.maximum_power = read_optional<std::uint16_t>(*watts);
    if (const auto extra = node.member("extra"))
        read_extra(*extra, card);
    if (const auto raw = node.member("raw"); raw && !raw->value.IsNull())
        card.raw = read_hex(*raw);
    if (card_information(card).size() > largest_xmc_payload)
        node.expected("at most " + std::to_string(largest_xmc_payload) + " bytes of card information");
}

void read_sensors(const node_t& node, std::vector<xmc_sensor_t>& sensors)
{
    for (const std::string_view name : xmc_sensor_names) {
        const auto values = node.member(std::string{name}.c_str());
        if (!values)
            continue;
        auto place = std::ranges::find(sensors, name, &xmc_sensor_t::name);
        if (place == sensors.end())
            place = sensors.insert(place, {name, {}});
        for (std::size_t at = 0; at < place->values.size(); ++at)
            place->values.at(at) = static_cast<std::uint32_t>(read_number(values->element(at)));
    }
}

} // namespace

void read_xmc(const node_t& node, xmc_t& xmc)
{
    if (const auto times = node.member("ready_after"))
        for (std::size_t at = 0; at < xmc.ready_after.size(); ++at)
            xmc.ready_after.at(at) = read_duration(times->element(at));
    if (const auto time = node.member("answer_after"))
        xmc.answer_after = read_duration(*time);
    if (const auto error = node.member("error"))
        xmc.error = static_cast<std::uint32_t>(read_number(*error));
    if (const auto dead = node.member("dead_link"))
        xmc.dead_link = dead->value.GetBool();
    if (const auto good = node.member("power_good"))
        xmc.power_good = good->value.GetBool();
    if (const auto sensors = node.member("sensors"))
        read_sensors(*sensors, xmc.sensors);
    if (const auto card = node.member("card"))
        read_card(*card, xmc.card);
}

} // namespace ivra::virtual_platform
