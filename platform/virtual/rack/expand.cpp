#include "expand.h"

#include "defaults.h"
#include "open_errors.h"
#include "json/text.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace ivra::virtual_platform {

using rapidjson::Value;

namespace {

constexpr std::size_t widest_line = 120;
using allocator_t = rapidjson::Document::AllocatorType;

// ---- values ----

Value plain(std::string_view text, allocator_t& allocator)
{
    return Value{text.data(), static_cast<rapidjson::SizeType>(text.size()), allocator};
}

std::string hex_digits(std::string_view bytes)
{
    std::string digits;
    for (const char c : bytes)
        digits += hex_pair(static_cast<std::uint8_t>(c));
    return digits;
}

/// A device's text; one that is not UTF-8 as { "hex": ... }.
Value device_text(std::string_view text, allocator_t& allocator)
{
    if (is_utf8(text))
        return plain(text, allocator);
    Value object{rapidjson::kObjectType};
    object.AddMember("hex", plain(hex_digits(text), allocator), allocator);
    return object;
}

Value device_text(const std::optional<std::string>& text, allocator_t& allocator)
{
    return text ? device_text(std::string_view{*text}, allocator) : Value{};
}

Value open_error(int number, allocator_t& allocator)
{
    const auto* const row = std::ranges::find(open_errors, number, &open_error_t::number);
    return row == std::end(open_errors) ? Value{} : plain(row->name, allocator);
}

Value fpga_value(const fpga_t& fpga, allocator_t& allocator)
{
    Value object{rapidjson::kObjectType};
    object.AddMember("device", device_text(std::string_view{fpga.device}, allocator), allocator);
    object.AddMember("serial", plain(serial_text(fpga.serial), allocator), allocator);
    object.AddMember("temperature", Value{fpga.temperature}, allocator);
    return object;
}

Value mac_addresses_value(const std::vector<std::array<std::uint8_t, 6>>& addresses, allocator_t& allocator)
{
    if (are_consecutive(addresses)) {
        Value object{rapidjson::kObjectType};
        object.AddMember("first", plain(mac_address_text(addresses.front()), allocator), allocator);
        object.AddMember("count", Value{static_cast<unsigned>(addresses.size())}, allocator);
        return object;
    }
    Value list{rapidjson::kArrayType};
    for (const auto& address : addresses)
        list.PushBack(plain(mac_address_text(address), allocator), allocator);
    return list;
}

/// A section that is not protected says so only when everything is to be said.
Value flash_value(const flash_t& flash, bool everything, allocator_t& allocator)
{
    Value sections{rapidjson::kArrayType};
    for (const flash_section_t& section : flash.sections) {
        Value object{rapidjson::kObjectType};
        object.AddMember("name", device_text(section.name, allocator), allocator);
        object.AddMember("start", plain(hex_text(section.start), allocator), allocator);
        object.AddMember("size", plain(size_text(section.size), allocator), allocator);
        if (everything || section.write_protected)
            object.AddMember("protected", section.write_protected, allocator);
        sections.PushBack(object, allocator);
    }
    Value object{rapidjson::kObjectType};
    object.AddMember("size", plain(size_text(flash.size), allocator), allocator);
    object.AddMember("sector", plain(size_text(flash.sector), allocator), allocator);
    object.AddMember("sections", sections, allocator);
    return object;
}

Value cores_value(const std::vector<core_t>& cores, allocator_t& allocator)
{
    Value list{rapidjson::kArrayType};
    for (const core_t& core : cores) {
        Value registers{rapidjson::kObjectType};
        for (const auto& [offset, value] : core.registers)
            registers.AddMember(plain(hex_text(offset), allocator), plain(hex_text(value), allocator), allocator);
        Value object{rapidjson::kObjectType};
        object.AddMember("hardware_id", Value{core.hardware_id}, allocator);
        object.AddMember("address", plain(hex_text(core.address), allocator), allocator);
        object.AddMember("size", plain(size_text(core.size), allocator), allocator);
        object.AddMember("registers", registers, allocator);
        list.PushBack(object, allocator);
    }
    return list;
}

Value duration_value(const duration_t& duration, allocator_t& allocator)
{
    return plain(duration ? duration_text(*duration) : "never", allocator);
}

/// A code of a table by its name; any other as the number or, for bytes on a wire, in hexadecimal.
Value code_value(std::span<const code_name_t> names, std::uint8_t code, bool hexadecimal, allocator_t& allocator)
{
    for (const auto& [name, known] : names)
        if (known == code)
            return plain(name, allocator);
    return hexadecimal ? plain("0x" + hex_pair(code), allocator) : Value{static_cast<unsigned>(code)};
}

Value optional_hex(const std::optional<std::string>& bytes, allocator_t& allocator)
{
    return bytes ? plain(hex_digits(*bytes), allocator) : Value{};
}

template <class Numbers>
Value numbers_value(const Numbers& numbers, allocator_t& allocator)
{
    Value list{rapidjson::kArrayType};
    for (const auto number : numbers)
        list.PushBack(Value{static_cast<unsigned>(number)}, allocator);
    return list;
}

Value fru_value(const bmc_fru_t& fru, allocator_t& allocator)
{
    Value extra{rapidjson::kArrayType};
    for (const std::string& field : fru.extra)
        extra.PushBack(device_text(std::string_view{field}, allocator), allocator);
    Value object{rapidjson::kObjectType};
    object.AddMember("manufacturer", device_text(fru.manufacturer, allocator), allocator);
    object.AddMember("product", device_text(fru.product, allocator), allocator);
    object.AddMember("serial", device_text(fru.serial, allocator), allocator);
    object.AddMember("part_number", device_text(fru.part_number, allocator), allocator);
    object.AddMember("file_id", device_text(fru.file_id, allocator), allocator);
    object.AddMember("extra", extra, allocator);
    object.AddMember("raw", optional_hex(fru.raw, allocator), allocator);
    return object;
}

/// Raw bytes stand for all that they take the place of.
Value bmc_sensor_value(const bmc_sensor_t& sensor, allocator_t& allocator)
{
    Value object{rapidjson::kObjectType};
    const auto code = [&](const rapidjson::Value::StringRefType& name, std::span<const code_name_t> names,
                          std::uint8_t value) {
        object.AddMember(name, code_value(names, value, false, allocator), allocator);
    };
    if (sensor.record) {
        object.AddMember("record", optional_hex(sensor.record, allocator), allocator);
    } else {
        object.AddMember("name", device_text(std::string_view{sensor.name}, allocator), allocator);
        code("number", {}, sensor.number);
        code("unit", sensor_units, sensor.unit);
    }
    if (sensor.response) {
        object.AddMember("response", optional_hex(sensor.response, allocator), allocator);
    } else {
        if (sensor.value)
            object.AddMember("value", Value{*sensor.value}, allocator);
        else
            code("raw", {}, sensor.raw);
        object.AddMember("available", sensor.available, allocator);
    }
    if (!sensor.record) {
        object.AddMember("m", sensor.m, allocator);
        object.AddMember("b", sensor.b, allocator);
        object.AddMember("r_exp", sensor.r_exp, allocator);
        object.AddMember("b_exp", sensor.b_exp, allocator);
        code("format", sensor_formats, sensor.format);
        code("linearisation", sensor_linearisations, sensor.linearisation);
        code("modifier", sensor_modifiers, sensor.modifier);
        code("modifier_unit", sensor_units, sensor.modifier_unit);
        code("rate", sensor_rates, sensor.rate);
        object.AddMember("percent", sensor.percent, allocator);
    }
    object.AddMember("next", sensor.next ? plain(hex_text(*sensor.next), allocator) : Value{}, allocator);
    return object;
}

Value bmc_answer_value(const bmc_answer_t& answer, allocator_t& allocator)
{
    Value object{rapidjson::kObjectType};
    object.AddMember("to", plain(hex_digits(answer.to), allocator), allocator);
    object.AddMember("nth", answer.nth ? Value{*answer.nth} : Value{}, allocator);
    object.AddMember("latency", answer.latency ? duration_value(*answer.latency, allocator) : Value{}, allocator);
    object.AddMember("code", answer.code ? plain("0x" + hex_pair(*answer.code), allocator) : Value{}, allocator);
    object.AddMember("data", optional_hex(answer.data, allocator), allocator);
    object.AddMember("noise", plain(hex_digits(answer.noise), allocator), allocator);
    object.AddMember("frame", optional_hex(answer.frame, allocator), allocator);
    object.AddMember("lose", numbers_value(answer.lose, allocator), allocator);
    object.AddMember("pieces", answer.pieces ? numbers_value(*answer.pieces, allocator) : Value{}, allocator);
    return object;
}

Value bmc_value(const std::optional<bmc_t>& bmc, allocator_t& allocator)
{
    if (!bmc)
        return {};
    Value sensors{rapidjson::kArrayType};
    for (const bmc_sensor_t& sensor : bmc->sensors)
        sensors.PushBack(bmc_sensor_value(sensor, allocator), allocator);
    Value answers{rapidjson::kArrayType};
    for (const bmc_answer_t& answer : bmc->answers)
        answers.PushBack(bmc_answer_value(answer, allocator), allocator);
    Value object{rapidjson::kObjectType};
    object.AddMember("latency", duration_value(bmc->latency, allocator), allocator);
    object.AddMember("silent", bmc->silent, allocator);
    object.AddMember("boot_image", code_value(boot_images, bmc->boot_image, true, allocator), allocator);
    object.AddMember("configured_from", code_value(configurations, bmc->configured_from, true, allocator), allocator);
    object.AddMember("depth", Value{static_cast<unsigned>(bmc->depth)}, allocator);
    object.AddMember("pieces", numbers_value(bmc->pieces, allocator), allocator);
    object.AddMember("fru", fru_value(bmc->fru, allocator), allocator);
    object.AddMember("sensors", sensors, allocator);
    object.AddMember("answers", answers, allocator);
    return object;
}

Value card_value(const xmc_card_t& card, allocator_t& allocator)
{
    const auto number = [](const auto& value) { return value ? Value{static_cast<unsigned>(*value)} : Value{}; };
    Value macs;
    if (card.macs) {
        macs.SetObject();
        macs.AddMember("first", plain(mac_address_text(card.macs->first), allocator), allocator);
        macs.AddMember("count", Value{static_cast<unsigned>(card.macs->count)}, allocator);
    }
    Value legacy_macs{rapidjson::kArrayType};
    for (const auto& address : card.legacy_macs)
        legacy_macs.PushBack(device_text(address, allocator), allocator);
    while (!legacy_macs.Empty() && legacy_macs[legacy_macs.Size() - 1].IsNull())
        legacy_macs.PopBack();
    Value extra{rapidjson::kArrayType};
    for (const auto& [key, value] : card.extra) {
        Value field{rapidjson::kObjectType};
        field.AddMember("key", plain("0x" + hex_pair(key), allocator), allocator);
        field.AddMember("value", device_text(std::string_view{value}, allocator), allocator);
        extra.PushBack(field, allocator);
    }
    Value object{rapidjson::kObjectType};
    object.AddMember("name", device_text(card.name, allocator), allocator);
    object.AddMember("revision", device_text(card.revision, allocator), allocator);
    object.AddMember("serial", device_text(card.serial, allocator), allocator);
    object.AddMember("macs", macs, allocator);
    object.AddMember("legacy_macs", legacy_macs, allocator);
    object.AddMember("fan", card.fan ? Value{*card.fan} : Value{}, allocator);
    object.AddMember("configuration_mode", number(card.configuration_mode), allocator);
    object.AddMember("maximum_power", number(card.maximum_power), allocator);
    object.AddMember("firmware", device_text(card.firmware, allocator), allocator);
    object.AddMember("extra", extra, allocator);
    object.AddMember("raw", card.raw ? plain(hex_digits(*card.raw), allocator) : Value{}, allocator);
    return object;
}

Value xmc_value(const xmc_t& xmc, allocator_t& allocator)
{
    Value ready_after{rapidjson::kArrayType};
    for (const duration_t& time : xmc.ready_after)
        ready_after.PushBack(duration_value(time, allocator), allocator);
    Value sensors{rapidjson::kObjectType};
    for (const xmc_sensor_t& sensor : xmc.sensors) {
        Value values{rapidjson::kArrayType};
        for (const std::uint32_t value : sensor.values)
            values.PushBack(Value{value}, allocator);
        sensors.AddMember(plain(sensor.name, allocator), values, allocator);
    }
    Value object{rapidjson::kObjectType};
    object.AddMember("ready_after", ready_after, allocator);
    object.AddMember("answer_after", duration_value(xmc.answer_after, allocator), allocator);
    object.AddMember("error", plain(hex_text(xmc.error), allocator), allocator);
    object.AddMember("dead_link", xmc.dead_link, allocator);
    object.AddMember("power_good", xmc.power_good, allocator);
    object.AddMember("card", card_value(xmc.card, allocator), allocator);
    object.AddMember("sensors", sensors, allocator);
    return object;
}

/// None as null, one by itself, several as a list.
Value xmcs_value(const std::vector<xmc_t>& xmcs, allocator_t& allocator)
{
    if (xmcs.empty())
        return {};
    if (xmcs.size() == 1)
        return xmc_value(xmcs.front(), allocator);
    Value list{rapidjson::kArrayType};
    for (const xmc_t& xmc : xmcs)
        list.PushBack(xmc_value(xmc, allocator), allocator);
    return list;
}

std::string byte_text(std::uint8_t byte)
{
    return "0x" + hex_pair(byte);
}

Value bus_value(const i2c_bus_t& bus, allocator_t& allocator)
{
    constexpr std::string_view kinds[] = {"cage", "multiplexer", "mac_eeprom", "clock_generator"};
    Value devices{rapidjson::kArrayType};
    for (const i2c_device_t& device : bus.devices) {
        Value object{rapidjson::kObjectType};
        object.AddMember("device", plain(kinds[static_cast<std::size_t>(device.kind)], allocator), allocator);
        if (device.kind == i2c_kind_t::cage)
            object.AddMember("number", Value{static_cast<unsigned>(device.number)}, allocator);
        else
            object.AddMember("address", plain(byte_text(device.address), allocator), allocator);
        if (device.pin)
            object.AddMember("pin", Value{*device.pin}, allocator);
        if (device.behind) {
            const i2c_device_t& multiplexer = multiplexer_of(bus, device.behind->multiplexer);
            Value behind{rapidjson::kArrayType};
            behind.PushBack(plain(byte_text(multiplexer.address), allocator), allocator);
            behind.PushBack(plain(byte_text(device.behind->channels), allocator), allocator);
            object.AddMember("behind", behind, allocator);
        }
        devices.PushBack(object, allocator);
    }
    Value object{rapidjson::kObjectType};
    object.AddMember("index", Value{static_cast<unsigned>(bus.index)}, allocator);
    object.AddMember("devices", devices, allocator);
    return object;
}

/// Hexadecimal digits of blocks one after the other, without zeros at the end.
std::string block_digits(const module_t& module, unsigned first, unsigned count)
{
    std::string bytes;
    for (std::size_t at = block_size * first; at < block_size * (first + count); ++at)
        bytes += static_cast<char>(module.byte(at));
    bytes.erase(bytes.find_last_not_of('\0') + 1);
    return hex_digits(bytes);
}

/// A module as its whole memory: the files that it was read from may be elsewhere.
Value module_value(const module_t& module, allocator_t& allocator)
{
    constexpr std::string_view maps[] = {"sfp", "qsfp", "cmis"};
    const bool is_sfp = module.map == memory_map_t::sfp;
    Value memory{rapidjson::kObjectType};
    for (const auto& [block, bytes] : module.blocks) {
        if (is_sfp && block % 2 != 0)
            continue; // the second half
        const std::string name = is_sfp       ? block == 0 ? "A0" : "A2"
                                 : block == 0 ? "lower"
                                              : hex_pair(static_cast<std::uint8_t>(block - 1));
        memory.AddMember(plain(name, allocator), plain(block_digits(module, block, is_sfp ? 2 : 1), allocator),
                         allocator);
    }
    Value object{rapidjson::kObjectType};
    object.AddMember("map", plain(maps[static_cast<std::size_t>(module.map)], allocator), allocator);
    if (!is_sfp)
        object.AddMember("low_power_pin", module.low_power_pin, allocator);
    if (module.captured)
        object.AddMember("captured", true, allocator);
    object.AddMember("memory", memory, allocator);
    return object;
}

Value cage_value(const cage_t& cage, allocator_t& allocator)
{
    if (cage.module)
        return module_value(*cage.module, allocator);
    return plain(cage.acknowledges ? "empty" : "silent", allocator);
}

Value i2c_value(const accelerator_t& accelerator, allocator_t& allocator)
{
    const i2c_t& i2c = accelerator.i2c;
    if (std::ranges::find(accelerator.cores, hardware_ids::i2c, &core_t::hardware_id) == accelerator.cores.end())
        return {};
    Value cages{rapidjson::kArrayType};
    for (const cage_t& cage : i2c.cages)
        cages.PushBack(cage_value(cage, allocator), allocator);
    Value buses{rapidjson::kArrayType};
    for (const i2c_bus_t& bus : i2c.buses)
        buses.PushBack(bus_value(bus, allocator), allocator);
    Value object{rapidjson::kObjectType};
    object.AddMember("pins", Value{i2c.pins}, allocator);
    object.AddMember("mac_eeprom", device_text(i2c.mac_eeprom, allocator), allocator);
    object.AddMember("cages", cages, allocator);
    object.AddMember("buses", buses, allocator);
    return object;
}

Value accelerator_value(const accelerator_t& accelerator, allocator_t& allocator)
{
    Value object{rapidjson::kObjectType};
    object.AddMember("name", device_text(accelerator.name, allocator), allocator);
    object.AddMember("model", device_text(std::string_view{accelerator.model}, allocator), allocator);
    object.AddMember("uid", device_text(std::string_view{accelerator.uid}, allocator), allocator);
    object.AddMember("open", open_error(accelerator.open_error, allocator), allocator);
    object.AddMember("fpga", fpga_value(accelerator.fpga, allocator), allocator);
    object.AddMember("mac_addresses", mac_addresses_value(accelerator.mac_addresses, allocator), allocator);
    object.AddMember("flash", flash_value(accelerator.flash, true, allocator), allocator);
    object.AddMember("mmios", Value{accelerator.mmios}, allocator);
    object.AddMember("cores", cores_value(accelerator.cores, allocator), allocator);
    object.AddMember("i2c", i2c_value(accelerator, allocator), allocator);
    object.AddMember("bmc", bmc_value(accelerator.bmc, allocator), allocator);
    object.AddMember("xmc", xmcs_value(accelerator.xmcs, allocator), allocator);
    return object;
}

// ---- layout: a value stands on one line when it fits there ----

std::string leaf(const Value& value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer{buffer};
    value.Accept(writer);
    // JSON allows DEL and U+0080 to U+009F as they are; a screen may obey them.
    std::string safe;
    for (std::string_view text{buffer.GetString(), buffer.GetSize()}; !text.empty(); text.remove_prefix(1)) {
        const bool is_c1 = text.size() > 1 && text[0] == '\xc2' && static_cast<std::uint8_t>(text[1]) < 0xa0;
        if (is_c1)
            text.remove_prefix(1);
        if (is_c1 || text[0] == '\x7f')
            safe += "\\u00" + hex_pair(static_cast<std::uint8_t>(text[0]));
        else
            safe += text[0];
    }
    return safe;
}

std::string on_one_line(const Value& value)
{
    std::string text;
    if (value.IsObject() && !value.ObjectEmpty()) {
        for (const auto& member : value.GetObject())
            text += (text.empty() ? "{ " : ", ") + leaf(member.name) + ": " + on_one_line(member.value);
        return text + " }";
    }
    if (value.IsArray() && !value.Empty()) {
        for (const Value& element : value.GetArray())
            text += (text.empty() ? "[" : ", ") + on_one_line(element);
        return text + "]";
    }
    return leaf(value);
}

/// Writes `value` to the end of `text`; `indent` is that of the line it begins on, `depth` how deep its container is.
void lay_out(std::string& text, const Value& value, std::size_t indent, std::size_t depth)
{
    // Accelerators and what holds them are always spread out, one member a line.
    constexpr std::size_t spread_depth = 3;
    const bool has_entries = (value.IsObject() && !value.ObjectEmpty()) || (value.IsArray() && !value.Empty());
    if (!has_entries || depth >= spread_depth) {
        const std::string line = on_one_line(value);
        const std::size_t column = text.size() - (text.rfind('\n') + 1);
        if (!has_entries || column + line.size() < widest_line) {
            text += line;
            return;
        }
    }
    const std::string margin(indent + 2, ' ');
    bool is_first = true;
    text += value.IsObject() ? "{" : "[";
    const auto begin_entry = [&] {
        text += is_first ? "\n" : ",\n";
        text += margin;
        is_first = false;
    };
    if (value.IsObject()) {
        for (const auto& member : value.GetObject()) {
            begin_entry();
            text += leaf(member.name) + ": ";
            lay_out(text, member.value, indent + 2, depth + 1);
        }
    } else {
        for (const Value& element : value.GetArray()) {
            begin_entry();
            lay_out(text, element, indent + 2, depth + 1);
        }
    }
    text += '\n' + std::string(indent, ' ') + (value.IsObject() ? '}' : ']');
}

std::string rack_text(Value& accelerators, allocator_t& allocator)
{
    Value root{rapidjson::kObjectType};
    root.AddMember("accelerators", accelerators, allocator);
    std::string text;
    lay_out(text, root, 0, 0);
    return text + '\n';
}

} // namespace

std::string expand(const rack_t& rack)
{
    allocator_t allocator;
    Value list{rapidjson::kArrayType};
    for (const accelerator_t& accelerator : rack.accelerators)
        list.PushBack(accelerator_value(accelerator, allocator), allocator);
    return rack_text(list, allocator);
}

std::string starter(const std::vector<std::string>& models, std::size_t count)
{
    allocator_t allocator;
    Value list{rapidjson::kArrayType};
    for (std::size_t at = 0; at < count; ++at) {
        const std::string& name = models.at(at % models.size());
        const model_t& model = defaults_of(name);
        Value object{rapidjson::kObjectType};
        object.AddMember("name", plain(default_name(model, at), allocator), allocator);
        object.AddMember("model", plain(name, allocator), allocator);
        object.AddMember("uid", plain(default_uid(at), allocator), allocator);
        object.AddMember("fpga",
                         fpga_value({std::string{model.device}, default_fpga_serial(at), model.temperature}, allocator),
                         allocator);
        object.AddMember("mac_addresses", mac_addresses_value(default_mac_addresses(model, at), allocator), allocator);
        object.AddMember(
            "flash",
            flash_value({default_flash_size, default_flash_sector, default_flash_sections()}, false, allocator),
            allocator);
        list.PushBack(object, allocator);
    }
    return rack_text(list, allocator);
}

} // namespace ivra::virtual_platform
