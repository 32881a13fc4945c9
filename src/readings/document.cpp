#include "readings/document.h"

#include "text/text.h"

#include <dlfcn.h>
#include <unistd.h>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <ctime>
#include <string_view>

namespace ivra::bsp::readings {

namespace {

using namespace telemetry;

/// Writes members of the object that is open.
class json_writer
{
public:
    std::string text() const { return {buffer_.GetString(), buffer_.GetSize()}; }

    template <class Write>
    void object(const char* name, Write write)
    {
        key(name);
        object(write);
    }
    template <class Write>
    void object(Write write)
    {
        json_.StartObject();
        write();
        json_.EndObject();
    }
    /// A list of objects.
    template <class List, class Write>
    void list(const char* name, const List& items, Write write)
    {
        key(name);
        json_.StartArray();
        for (const auto& item : items)
            object([&] { write(item); });
        json_.EndArray();
    }

    void member(const char* name, std::string_view text)
    {
        key(name);
        const std::string valid = valid_utf8(text);
        json_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
    }
    void member(const char* name, const char* text) { member(name, std::string_view{text}); }
    void member(const char* name, const std::string& text) { member(name, std::string_view{text}); }
    void member(const char* name, bool value)
    {
        key(name);
        json_.Bool(value);
    }
    void member(const char* name, double value) // finite by what makes readings
    {
        key(name);
        json_.Double(value);
    }
    void member(const char* name, std::unsigned_integral auto value)
    {
        key(name);
        json_.Uint64(value);
    }
    template <class T>
    void member(const char* name, const std::optional<T>& value)
    {
        if (value)
            member(name, *value);
    }

private:
    void key(const char* name) { json_.Key(name); }

    rapidjson::StringBuffer buffer_;
    rapidjson::Writer<rapidjson::StringBuffer> json_{buffer_};
};

const char* get_name(board::quantity_t quantity)
{
    using board::quantity_t;
    switch (quantity) {
    case quantity_t::voltage:
        return "voltage";
    case quantity_t::current:
        return "current";
    case quantity_t::temperature:
        return "temperature";
    case quantity_t::power:
        return "power";
    case quantity_t::fan_speed:
        return "fan speed";
    case quantity_t::optical_power:
        return "optical power";
    case quantity_t::other:
        break;
    }
    return "other";
}

const char* get_name(state_t state)
{
    switch (state) {
    case state_t::ok:
        return "ok";
    case state_t::unavailable:
        return "unavailable";
    case state_t::unsupported:
        return "unsupported";
    case state_t::failed:
        break;
    }
    return "failed";
}

const char* get_name(module_state_t state)
{
    switch (state) {
    case module_state_t::ok:
        return "ok";
    case module_state_t::empty:
        return "empty";
    case module_state_t::unsupported:
        return "unsupported";
    case module_state_t::failed:
        break;
    }
    return "failed";
}

const char* get_name(board::boot_image_t image)
{
    switch (image) {
    case board::boot_image_t::primary:
        return "primary";
    case board::boot_image_t::backup:
        return "backup";
    case board::boot_image_t::none:
        break;
    }
    return "none";
}

const char* get_name(authority_t authority)
{
    switch (authority) {
    case authority_t::bmc:
        return "bmc";
    case authority_t::module:
        return "module";
    case authority_t::file:
        break;
    }
    return "file";
}

/// Without the platform, which may fail to print it when all else has been read.
std::string to_text(const v6::mac_address& address)
{
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : address.get().bytes) {
        if (!text.empty())
            text += ':';
        text += digits[byte >> 4U];
        text += digits[byte & 15U];
    }
    return text;
}

void write_reading(json_writer& json, const reading_t& reading)
{
    json.member("name", reading.name);
    json.member("record", reading.record);
    json.member("quantity", get_name(reading.quantity));
    const std::string_view base_unit = get_base_unit(reading.quantity);
    json.member("unit", base_unit.empty() ? std::string_view{reading.unit} : base_unit);
    json.member("state", get_name(reading.state));
    json.member("value", reading.value);
    json.member("peak", reading.peak);
    if (reading.state == state_t::failed)
        json.member("error", reading.error);
    if (std::ranges::any_of(reading.limits.values, &std::optional<double>::has_value))
        json.object("limits", [&] {
            for (const limit_t limit : all_limits)
                json.member(telemetry::get_name(limit), reading.limits[limit]);
            json.member("set_by", get_name(reading.limits.authority));
        });
    if (reading.compared)
        json.member("compared", telemetry::get_name(*reading.compared));
    if (const std::optional<health_t> health = judge(reading, "").health)
        json.member("health", telemetry::get_name(*health));
}

void write_findings(json_writer& json, const std::vector<finding_t>& findings)
{
    json.list("findings", findings, [&json](const finding_t& finding) {
        if (finding.health)
            json.member("health", telemetry::get_name(*finding.health));
        json.member("text", finding.text);
    });
}

void write_lane(json_writer& json, const lane_t& lane)
{
    json.member("lane", lane.number);
    json.member("transmitter_off", lane.is_transmitter_off);
    json.object("rx_power", [&] { write_reading(json, lane.rx_power); });
    json.object("tx_power", [&] { write_reading(json, lane.tx_power); });
    json.object("tx_bias", [&] { write_reading(json, lane.tx_bias); });
}

void write_cage(json_writer& json, const cage_readings_t& cage)
{
    const module_t& module = cage.module;
    json.member("cage", cage.number);
    json.member("state", get_name(module.state));
    if (module.state == module_state_t::failed)
        json.member("error", module.error);
    if (module.identifier) {
        json.member("identifier", unsigned{*module.identifier});
        if (const std::string_view name = get_identifier_name(*module.identifier); !name.empty())
            json.member("type", name);
    }
    json.member("vendor", module.vendor);
    json.member("vendor_oui", module.vendor_oui);
    json.member("part", module.part_number);
    json.member("revision", module.revision);
    json.member("serial", module.serial_number);
    json.member("date_code", module.date_code);
    json.member("date", module.date);
    if (const std::optional<health_t> health = judge(module, "").health)
        json.member("health", telemetry::get_name(*health));
    if (module.state == module_state_t::ok || module.state == module_state_t::failed) {
        json.list("monitors", module.monitors, [&json](const reading_t& reading) { write_reading(json, reading); });
        json.list("lanes", module.lanes, [&json](const lane_t& lane) { write_lane(json, lane); });
    }
}

void write_mac_block(json_writer& json, const char* name, const std::string& first, std::size_t count)
{
    json.object(name, [&] {
        json.member("first", first);
        json.member("count", count);
    });
}

void write_boot_images(json_writer& json, const controller_readings_t& controller)
{
    const auto& current = controller.current_boot_image.value;
    const auto& next = controller.next_boot_image.value;
    if (!current && !next)
        return;
    json.object("boot_image", [&] {
        if (current)
            json.member("current", get_name(*current));
        if (next)
            json.member("next", get_name(*next));
    });
}

void write_flash(json_writer& json, const flash_layout_t& flash)
{
    json.object("flash", [&] {
        json.member("size", flash.size);
        json.member("sector_size", flash.sector_size);
        json.list("sections", flash.sections, [&json](const flash_section_t& section) {
            json.member("name", section.name);
            json.member("start", section.start);
            json.member("size", section.size);
        });
    });
}

/// What could not be read, by the member that it would be.
void write_errors(json_writer& json, const board_readings_t& readings)
{
    const controller_readings_t& controller = readings.controller;
    const std::pair<const char*, const std::string&> errors[] = {
        {"model", readings.model.error},
        {"serial", controller.serial.error},
        {"macs", readings.macs.error},
        {"vendor_macs", readings.vendor_macs.error},
        {"fpga_device", readings.fpga_device.error},
        {"fpga_serial", readings.fpga_serial.error},
        {"flash", readings.flash.error},
        {"current_boot_image", controller.current_boot_image.error},
        {"next_boot_image", controller.next_boot_image.error},
        {"power_good", controller.power_good.error},
        {"controller", controller.error},
        {"modules", readings.cages.error},
    };
    if (std::ranges::all_of(errors, [](const auto& error) { return error.second.empty(); }))
        return;
    json.object("errors", [&] {
        for (const auto& [name, error] : errors)
            if (!error.empty())
                json.member(name, error);
    });
}

void write_contents(json_writer& json, const board_readings_t& readings)
{
    const controller_readings_t& controller = readings.controller;
    json.member("model", readings.model.value);
    json.member("serial", controller.serial.value);
    if (readings.macs.value && !readings.macs.value->empty())
        write_mac_block(json, "macs", to_text(readings.macs.value->front()), readings.macs.value->size());
    if (readings.vendor_macs.value)
        write_mac_block(json, "vendor_macs", to_text(readings.vendor_macs.value->first),
                        std::size_t{readings.vendor_macs.value->count});
    if (readings.fpga_temperature)
        json.object("fpga", [&] {
            json.member("device", readings.fpga_device.value);
            json.member("serial", readings.fpga_serial.value);
            json.object("temperature", [&] { write_reading(json, *readings.fpga_temperature); });
        });
    if (readings.flash.value)
        write_flash(json, *readings.flash.value);
    write_boot_images(json, controller);
    json.member("power_good", controller.power_good.value);
    write_errors(json, readings);
}

/// RFC 3339, in UTC.
std::string now()
{
    const std::time_t time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm fields{};
    ::gmtime_r(&time, &fields);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &fields)};
}

std::string host_name()
{
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

/// Simulated boards have libraries with a mark: a symbol, whose address says nothing.
bool is_simulated()
{
    ::dlerror();
    [[maybe_unused]] const void* const mark = ::dlsym(RTLD_DEFAULT, "ivra_virtual_platform");
    return ::dlerror() == nullptr;
}

void write_identity(json_writer& json, const accelerator_identity_t& identity)
{
    json.member("index", identity.index);
    json.member("name", identity.name);
    json.member("uid", identity.uid);
}

void write_head(json_writer& json)
{
    json.member("format", 1U);
    json.member("program", "ivra-bsp-readings");
    json.member("version", IVRA_VERSION);
    json.member("time", now());
    json.member("host", host_name());
    json.member("platform", is_simulated() ? "simulated" : "system");
}

} // namespace

std::string make_board_document(const accelerator_identity_t& identity, const board_readings_t& readings,
                                const std::vector<finding_t>& findings)
{
    verdict_t verdict = judge(readings);
    for (const finding_t& finding : findings)
        verdict.add({.health = finding.health, .findings = {finding}});
    json_writer json;
    json.object([&] {
        write_identity(json, identity);
        json.member("state", readings.error.empty() ? "ok" : "failed");
        if (!readings.error.empty())
            json.member("error", readings.error);
        write_contents(json, readings);
        json.member("health", telemetry::get_name(*verdict.health));
        write_findings(json, verdict.findings);
        if (!readings.controller.sensors.empty())
            json.list("sensors", readings.controller.sensors,
                      [&json](const reading_t& reading) { write_reading(json, reading); });
        if (readings.cages.value)
            json.list("modules", *readings.cages.value,
                      [&json](const cage_readings_t& cage) { write_cage(json, cage); });
    });
    return json.text();
}

std::string make_announcement(const std::vector<accelerator_identity_t>& boards)
{
    json_writer json;
    json.object([&] {
        write_head(json);
        json.list("announced", boards, [&json](const accelerator_identity_t& board) { write_identity(json, board); });
    });
    return json.text();
}

std::string make_host_document(health_t health, const std::vector<finding_t>& findings, std::size_t board_count,
                               const std::optional<std::vector<std::string>>& boards)
{
    json_writer json;
    json.object([&] {
        write_head(json);
        json.member("health", telemetry::get_name(health));
        write_findings(json, findings);
        json.member("board_count", board_count);
    });
    std::string text = json.text();
    if (!boards)
        return text;
    text.pop_back();
    text += ",\"boards\":[";
    for (const std::string& board : *boards)
        text += (&board == &boards->front() ? "\n" : ",\n") + board;
    return text + "]}";
}

} // namespace ivra::bsp::readings
