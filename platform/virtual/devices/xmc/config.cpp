#include "devices/xmc/config.h"

#include <algorithm>
#include <utility>

namespace ivra::virtual_platform {

// clang-format off
constexpr std::array<xmc_sensor_row_t, 42> xmc_sensor_rows = [] {
    using enum xmc_unit_t;
    return std::array<xmc_sensor_row_t, 42>{{
        // sensor          a step of its registers
        {"12V_PEX",       millivolts},
        {"3V3_PEX",       millivolts},
        {"3V3_AUX",       millivolts},
        {"12V_AUX",       millivolts},
        {"DDR4_VPP_BTM",  millivolts},
        {"SYS_5V5",       millivolts},
        {"VCC1V2_TOP",    millivolts},
        {"VCC1V8",        millivolts},
        {"VCC0V85",       millivolts},
        {"DDR4_VPP_TOP",  millivolts},
        {"MGT0V9AVCC",    millivolts},
        {"12V_SW",        millivolts},
        {"MGTAVTT",       millivolts},
        {"VCC1V2_BTM",    millivolts},
        {"12V_PEX_I_IN",  milliamperes},
        {"12V_AUX_I_IN",  milliamperes},
        {"VCCINT",        millivolts},
        {"VCCINT_I",      milliamperes},
        {"FPGA_TEMP",     celsius},
        {"FAN_TEMP",      celsius},
        {"DIMM_TEMP0",    celsius},
        {"DIMM_TEMP1",    celsius},
        {"DIMM_TEMP2",    celsius},
        {"DIMM_TEMP3",    celsius},
        {"SE98_TEMP0",    celsius},
        {"SE98_TEMP1",    celsius},
        {"SE98_TEMP2",    celsius},
        {"FAN_SPEED",     rpm},
        {"CAGE_TEMP0",    celsius},
        {"CAGE_TEMP1",    celsius},
        {"HBM_TEMP1",     celsius},
        {"VCC3V3",        millivolts},
        {"3V3_PEX_I_IN",  milliamperes},
        {"VCCINT_IO_I",   milliamperes},
        {"HBM_1V2",       millivolts},
        {"VPP2V5",        millivolts},
        {"VCCINT_IO",     millivolts},
        {"HBM_TEMP2",     celsius},
        {"VCCINT_TEMP",   celsius},
        {"PEX_12V_POWER", milliwatts},
        {"PEX_3V_POWER",  milliwatts},
        {"HBM_1V2_I",     milliamperes},
    }};
}();
// clang-format on

namespace {

namespace codec = json::codec;

constexpr std::size_t largest_field = 255;    // bytes of a value in the card information
constexpr std::size_t largest_payload = 4095; // bytes: a packet's size has 12 bits
constexpr const char* not_sent = "a field that is not sent";

constexpr codec::or_null field{codec::text{largest_field}, not_sent};
constexpr codec::list times{"two times, of status bits 0 and 28: [\"0.5 s\", \"1.5 s\"]", codec::duration, 2, 2};
constexpr codec::list sensor_values{"three 32-bit numbers, current, average and maximum: [12170, 12168, 12201]",
                                    codec::code{codec::word.what, codec::word.bits, 0}, 3, 3};

/// Sensors by their names, over those that there are.
constexpr struct
{
    static std::string sentence() { return R"(sensors as raw register values: { "12V_PEX": [12170, 12168, 12201] })"; }
    static void read(const json::node_t& node, std::vector<xmc_sensor_t>& sensors)
    {
        const auto* members = node.as<json::object_t>();
        if (members == nullptr)
            return node.expected(sentence());
        for (const json::member_t& member : *members) {
            const auto* const row = std::ranges::find(xmc_sensor_rows, member.name, &xmc_sensor_row_t::name);
            if (row == xmc_sensor_rows.end())
                return node.below(member).note(member.place, unknown());
            auto place = std::ranges::find(sensors, row->name, &xmc_sensor_t::name);
            if (place == sensors.end())
                place = sensors.insert(place, {row->name, {}});
            sensor_values.read(node.below(member), place->values);
        }
    }
    static json::value_t write(const std::vector<xmc_sensor_t>& sensors)
    {
        json::object_t members;
        for (const xmc_sensor_t& sensor : sensors)
            members.push_back({std::string{sensor.name}, sensor_values.write(sensor.values)});
        return {std::move(members)};
    }
    static json::value_t schema()
    {
        std::string names;
        for (const xmc_sensor_row_t& row : xmc_sensor_rows)
            names += (names.empty() ? "^(" : "|") + std::string{row.name};
        return codec::schema_of(sentence(), {"object"},
                                {{"additionalProperties", {false}},
                                 {"patternProperties", {json::object_t{{names + ")$", sensor_values.schema()}}}}});
    }

private:
    static std::string unknown()
    {
        std::string names;
        for (const xmc_sensor_row_t& row : xmc_sensor_rows)
            names += (names.empty() ? "unknown member, expected one of " : ", ") + std::string{row.name};
        return names;
    }
} sensors_by_name;

} // namespace

static void describe(auto& visit, mac_block_t& block)
{
    visit.required("first", block.first, codec::mac_address);
    visit.required("count", block.count, codec::whole{"a number of addresses", 0, 255});
    const std::uint64_t room = codec::addresses_from(block.first);
    visit.check({"count"}, block.count <= room, [&] { return codec::too_many_addresses(room); });
}

static void describe(auto& visit, card_field_t& other)
{
    visit.required("key", other.key, codec::byte);
    visit.required("value", other.value, codec::text{largest_field});
}

static void describe(auto& visit, xmc_card_t& card)
{
    if (visit.said("legacy_macs"))
        card.macs.reset(); // a card has one scheme, unless both are spelt out
    visit("name", card.name, field);
    visit("revision", card.revision, field);
    visit("serial", card.serial, field);
    visit("macs", card.macs,
          codec::or_null{codec::record<mac_block_t>{R"({ "first": "02:00:00:00:20:00", "count": 4 })"}, not_sent});
    visit(
        "legacy_macs", card.legacy_macs,
        codec::list{"a list of at most 4 addresses as the card spells them, null for one that is not sent", field, 4});
    while (!card.legacy_macs.empty() && !card.legacy_macs.back())
        card.legacy_macs.pop_back();
    visit("fan", card.fan, codec::or_null{codec::flag, not_sent});
    visit("configuration_mode", card.configuration_mode, codec::or_null{codec::whole{"a number", 0, 255}, not_sent});
    visit("maximum_power", card.maximum_power, codec::or_null{codec::whole{"a number of watts", 0, 65535}, not_sent});
    visit("firmware", card.firmware, field);
    visit("extra", card.extra,
          codec::list{R"(a list of at most 256 fields after the others: { "key": "0x21", "value": "text" })",
                      codec::record<card_field_t>{R"(a field: { "key": "0x21", "value": "text" })"}, 256});
    visit("raw", card.raw, codec::or_null{codec::hex{largest_payload, ", sent instead of all fields"}});
    visit.check({}, card_information(card).size() <= largest_payload,
                [&] { return "at most " + std::to_string(largest_payload) + " bytes of card information"; });
}

static void describe(auto& visit, xmc_t& xmc)
{
    visit("ready_after", xmc.ready_after, times);
    visit("answer_after", xmc.answer_after, codec::duration);
    visit("error", xmc.error, codec::word);
    visit("dead_link", xmc.dead_link, codec::flag);
    visit("power_good", xmc.power_good, codec::flag);
    visit("card", xmc.card,
          codec::record<xmc_card_t>{R"(what the card says of itself: { "name": ..., "serial": ..., "macs": ... })"});
    visit("sensors", xmc.sensors, sensors_by_name);
}

std::string card_information(const xmc_card_t& card)
{
    if (card.raw)
        return *card.raw;
    std::string bytes;
    const auto add = [&](std::size_t key, const std::optional<std::string>& value) {
        if (value)
            (bytes += static_cast<char>(key)).append(1, static_cast<char>(value->size())) += *value;
    };
    const auto little_endian = [](const auto& number, std::size_t size) -> std::optional<std::string> {
        if (!number)
            return std::nullopt;
        std::string value;
        for (std::size_t at = 0; at < size; ++at)
            value += static_cast<char>(*number >> 8U * at);
        return value;
    };
    std::optional<std::string> macs;
    if (card.macs) {
        macs = std::string{static_cast<char>(card.macs->count), '\0'};
        macs->append(card.macs->first.begin(), card.macs->first.end());
    }
    add(0x27, card.name);
    add(0x26, card.revision);
    add(0x21, card.serial);
    add(0x4b, macs);
    for (std::size_t slot = 0; slot < card.legacy_macs.size(); ++slot)
        add(0x22 + slot, card.legacy_macs[slot]);
    add(0x2a, little_endian(card.fan, 1));
    add(0x2b, little_endian(card.configuration_mode, 1));
    add(0x29, little_endian(card.maximum_power, 2));
    add(0x28, card.firmware);
    for (const auto& [key, value] : card.extra)
        add(key, value);
    return bytes;
}

template struct json::codec::record<mac_block_t>;
template struct json::codec::record<xmc_t>;

} // namespace ivra::virtual_platform
