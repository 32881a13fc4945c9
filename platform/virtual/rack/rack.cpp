#include "rack.h"

#include "defaults.h"
#include "files.h"
#include "node.h"
#include "open_errors.h"
#include "read_bmc.h"
#include "read_i2c.h"
#include "read_xmc.h"
#include "json/text.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <set>
#include <string>
#include <system_error>

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace ivra::virtual_platform {

using rapidjson::Value;

namespace {

constexpr std::uint64_t largest_flash = std::uint64_t{4} << 30U;
constexpr std::uint64_t largest_sector = 16U << 20U;
constexpr std::uint64_t largest_core = 16U << 20U;
constexpr std::uint64_t last_address = (std::uint64_t{1} << 63U) - 1;

/// "0x10" and nothing else.
std::optional<std::uint64_t> parse_offset(std::string_view text)
{
    if (!text.starts_with("0x"))
        return std::nullopt;
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional{value} : std::nullopt;
}

std::uint64_t read_address(const node_t& node)
{
    const std::uint64_t value = read_number(node);
    if (value > last_address)
        node.expected("at most " + hex_text(last_address));
    return value;
}

std::uint64_t read_size(const node_t& node, std::uint64_t largest)
{
    const std::uint64_t value = read_number(node);
    if (value == 0 || value > largest)
        node.expected("a size from 1 byte to " + size_text(largest));
    return value;
}

int read_open_error(const node_t& node)
{
    if (node.value.IsNull())
        return 0;
    const auto* const row = std::ranges::find(open_errors, node.text(), &open_error_t::name);
    return row == std::end(open_errors) ? EIO : row->number; // the schema lets no other name through
}

fpga_t read_fpga(const std::optional<node_t>& node, const model_t& model, std::size_t index)
{
    fpga_t fpga{std::string{model.device}, default_fpga_serial(index), model.temperature};
    if (!node)
        return fpga;
    if (const auto device = node->member("device"))
        fpga.device = read_text(*device);
    if (const auto serial = node->member("serial")) {
        for (std::size_t word = 0; word < fpga.serial.size(); ++word) // the text begins with the last word
            fpga.serial.at(fpga.serial.size() - 1 - word) =
                static_cast<std::uint32_t>(parse_digits(serial->patterned_text().substr(8 * word, 8), 16));
    }
    if (const auto temperature = node->member("temperature"))
        fpga.temperature = temperature->value.GetDouble();
    return fpga;
}

std::vector<std::array<std::uint8_t, 6>> read_mac_addresses(const node_t& node)
{
    if (node.value.IsObject()) {
        const auto [first, count] = read_mac_range(node);
        return consecutive_mac_addresses(first, count);
    }
    std::vector<std::array<std::uint8_t, 6>> addresses;
    for (std::size_t at = 0; at < node.size(); ++at)
        addresses.push_back(read_mac_address(node.element(at)));
    return addresses;
}

flash_section_t read_section(const node_t& node, std::uint64_t flash_size, std::uint64_t previous_end)
{
    flash_section_t section;
    if (const auto name = node.member("name"))
        section.name = read_name(*name);
    const node_t start = node.required("start");
    section.start = read_address(start);
    if (section.start < previous_end)
        start.expected("at least " + hex_text(previous_end) + ", where the section before it ends");
    if (section.start >= flash_size)
        start.expected("less than " + hex_text(flash_size) + ", the size of the flash");
    section.size = read_size(node.required("size"), flash_size - section.start);
    if (const auto write_protected = node.member("protected"))
        section.write_protected = write_protected->value.GetBool();
    return section;
}

flash_t read_flash(const std::optional<node_t>& node)
{
    flash_t flash{default_flash_size, default_flash_sector, default_flash_sections()};
    if (!node)
        return flash;
    if (const auto size = node->member("size"))
        flash.size = read_size(*size, largest_flash);
    const auto sector = node->member("sector");
    if (sector)
        flash.sector = read_size(*sector, std::min(flash.size, largest_sector));
    if (flash.size % flash.sector != 0)
        sector.value_or(*node).expected("a sector size that divides the size of the flash, " + size_text(flash.size));
    if (const auto sections = node->member("sections")) {
        flash.sections.clear();
        std::uint64_t previous_end = 0;
        for (std::size_t at = 0; at < sections->size(); ++at) {
            flash.sections.push_back(read_section(sections->element(at), flash.size, previous_end));
            previous_end = flash.sections.back().start + flash.sections.back().size;
        }
    } else if (const flash_section_t& last = flash.sections.back(); last.start + last.size > flash.size) {
        node->expected("a member \"sections\", as the default ones need " + hex_text(last.start + last.size) +
                       " bytes");
    }
    return flash;
}

core_t read_core(const node_t& node, std::uint64_t previous_end)
{
    core_t core;
    core.hardware_id = static_cast<std::uint32_t>(read_number(node.required("hardware_id")));
    const node_t address = node.required("address");
    core.address = read_address(address);
    if (core.address < previous_end)
        address.expected("at least " + hex_text(previous_end) + ", where the core before it ends");
    if (core.address % 4 != 0)
        address.expected("a multiple of 4");
    const node_t size = node.required("size");
    core.size = read_size(size, std::min(largest_core, last_address - core.address + 1));
    if (core.size % 4 != 0)
        size.expected("a multiple of 4");
    if (const auto registers = node.member("registers")) {
        for (const auto& member : registers->value.GetObject()) {
            const std::string_view name{member.name.GetString(), member.name.GetStringLength()};
            const node_t value{member.value, registers->pointer + '/' + pointer_token(name), node.file};
            const std::optional<std::uint64_t> offset = parse_offset(name);
            if (!offset || *offset % 4 != 0 || *offset >= core.size)
                value.expected("an offset such as 0x10, a multiple of 4 and less than " + hex_text(core.size));
            if (!core.registers.emplace(*offset, static_cast<std::uint32_t>(read_number(value))).second)
                value.expected("an offset that no other register of the core has");
        }
    }
    return core;
}

/// A member of an accelerator that does not agree with its cores, of which `found` have the hardware identifier.
[[noreturn]] void disagree(const node_t& node, const std::string& expected, std::size_t found,
                           std::uint32_t hardware_id)
{
    node.expected(
        expected + ", as \"cores\" has " +
        (found == 0   ? "none"
         : found == 1 ? "one"
                      : std::to_string(found)) +
        " with the hardware_id " + std::to_string(hardware_id) +
        (found == 0 && hardware_id == hardware_ids::xmc ? " and at least " + hex_text(xmc_window) + " bytes" : ""));
}

/// Whether the design has the core that the section `name` of an accelerator is about: {} says yes, null says no.
/// Cores that are spelt out must agree.
bool read_presence(const node_t& accelerator, const char* name, std::uint32_t hardware_id, bool by_default,
                   const std::optional<std::vector<core_t>>& cores)
{
    const auto node = accelerator.member(name);
    const bool present = node ? !node->value.IsNull() : by_default;
    if (cores && node) {
        const auto found = static_cast<std::size_t>(std::ranges::count(*cores, hardware_id, &core_t::hardware_id));
        if ((found != 0) != present)
            disagree(*node, found == 0 ? "null" : "{}", std::min<std::size_t>(found, 1), hardware_id);
    }
    return present;
}

/// The XMCs of a board: null says none, an object one, a list so many. Cores that are spelt out must agree.
std::vector<xmc_t> read_xmcs(const node_t& accelerator, const model_t& model, std::string_view name, std::size_t index,
                             const std::optional<std::vector<core_t>>& cores)
{
    const auto node = accelerator.member("xmc");
    std::size_t count = 0;
    if (cores)
        count = static_cast<std::size_t>(std::ranges::count_if(*cores, &has_room_for_xmc));
    else if (!node)
        count = has_xmc(model) ? 1 : 0;
    if (node) {
        const std::size_t given = node->value.IsNull() ? 0 : node->value.IsArray() ? node->size() : 1;
        if (cores && given != count)
            disagree(*node,
                     count == 0   ? "null"
                     : count == 1 ? "{}"
                                  : "a list of " + std::to_string(count),
                     count, hardware_ids::xmc);
        count = given;
    }
    std::vector<xmc_t> xmcs;
    for (std::size_t number = 0; number < count; ++number) {
        xmcs.push_back(default_xmc(name, index, number));
        if (node)
            read_xmc(node->value.IsArray() ? node->element(number) : *node, xmcs.back());
    }
    return xmcs;
}

/// The cores, and what stands behind them.
void read_design(const node_t& node, const model_t& model, std::size_t index, accelerator_t& accelerator)
{
    std::optional<std::vector<core_t>> cores;
    if (const auto list = node.member("cores")) {
        cores.emplace();
        for (std::size_t at = 0; at < list->size(); ++at)
            cores->push_back(read_core(list->element(at), at == 0 ? 0 : cores->back().address + cores->back().size));
    }
    const bool i2c = read_presence(node, "i2c", hardware_ids::i2c, has_i2c(model), cores);
    const bool uart = read_presence(node, "bmc", hardware_ids::uart, has_bmc(model), cores);
    accelerator.xmcs = read_xmcs(node, model, accelerator.model, index, cores);
    accelerator.cores = cores ? *cores : default_cores(i2c, uart, accelerator.xmcs.size());
    if (std::ranges::find(accelerator.cores, hardware_ids::uart, &core_t::hardware_id) != accelerator.cores.end()) {
        accelerator.bmc = default_bmc(accelerator.model, index);
        if (const auto bmc = node.member("bmc"))
            read_bmc(*bmc, *accelerator.bmc);
    }
    if (std::ranges::find(accelerator.cores, hardware_ids::i2c, &core_t::hardware_id) != accelerator.cores.end()) {
        accelerator.i2c = default_i2c(accelerator.model, index);
        if (const auto said = node.member("i2c"))
            read_i2c(*said, accelerator.model, accelerator.i2c, accelerator.text);
    }
}

std::string compact(const Value& value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer{buffer};
    value.Accept(writer);
    return {buffer.GetString(), buffer.GetSize()};
}

/// Everything but the uid.
accelerator_t read_accelerator(const node_t& node, std::size_t index)
{
    accelerator_t accelerator;
    accelerator.model = read_text(node.required("model"));
    const model_t& model = defaults_of(accelerator.model);
    const auto name = node.member("name");
    accelerator.name = name ? read_name(*name) : default_name(model, index);
    if (const auto open = node.member("open"))
        accelerator.open_error = read_open_error(*open);
    accelerator.fpga = read_fpga(node.member("fpga"), model, index);
    const auto mac_addresses = node.member("mac_addresses");
    accelerator.mac_addresses =
        mac_addresses ? read_mac_addresses(*mac_addresses) : default_mac_addresses(model, index);
    accelerator.flash = read_flash(node.member("flash"));
    if (const auto mmios = node.member("mmios"))
        accelerator.mmios = mmios->value.GetUint();
    accelerator.text = compact(node.value);
    read_design(node, model, index, accelerator); // adds what the text names
    return accelerator;
}

/// The uids that are written down come first: a default one makes way for them.
void read_uids(const node_t& list, std::vector<accelerator_t>& accelerators)
{
    std::set<std::string> taken;
    for (std::size_t at = 0; at < accelerators.size(); ++at) {
        const auto node = list.element(at).member("uid");
        if (!node)
            continue;
        std::string& uid = accelerators[at].uid;
        uid = read_text(*node);
        if (uid.empty() || uid.find('\0') != std::string::npos)
            node->expected("a text of at least one character, none of them NUL");
        if (!taken.insert(uid).second)
            node->expected("a text that no other accelerator has");
    }
    for (std::size_t at = 0; at < accelerators.size(); ++at)
        for (std::size_t position = at; accelerators[at].uid.empty(); position += accelerators.size())
            if (const auto [uid, is_new] = taken.insert(default_uid(position)); is_new)
                accelerators[at].uid = *uid;
}

[[noreturn]] void unreadable(const std::filesystem::path& file, int error)
{
    mistake(file, "", "cannot be read: " + std::generic_category().message(error));
}

/// File of the library or program that this code has become part of.
std::filesystem::path this_file()
{
    Dl_info info = {};
    void* map = nullptr;
    static const char marker = 0;
    const bool found = ::dladdr1(&marker, &info, &map, RTLD_DL_LINKMAP) != 0;
    // The program itself has no name in the loader's list; the name that it was started by may be no path at all.
    if (!found || map == nullptr || static_cast<const link_map*>(map)->l_name[0] == '\0')
        return std::filesystem::read_symlink("/proc/self/exe");
    return std::filesystem::canonical(static_cast<const link_map*>(map)->l_name);
}

} // namespace

bool has_room_for_xmc(const core_t& core)
{
    return core.hardware_id == hardware_ids::xmc && core.size >= xmc_window;
}

const xmc_t* xmc_behind(const accelerator_t& accelerator, const core_t& core)
{
    if (!has_room_for_xmc(core))
        return nullptr;
    std::size_t number = 0;
    for (const core_t& other : accelerator.cores)
        number += &other < &core && has_room_for_xmc(other) ? 1U : 0U;
    return number < accelerator.xmcs.size() ? &accelerator.xmcs[number] : nullptr;
}

const bmc_t* bmc_behind(const accelerator_t& accelerator, const core_t& core)
{
    const auto first = std::ranges::find(accelerator.cores, hardware_ids::uart, &core_t::hardware_id);
    return first == accelerator.cores.end() || &*first != &core || !accelerator.bmc ? nullptr : &*accelerator.bmc;
}

std::vector<std::string> warnings(const rack_t& rack)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < rack.accelerators.size(); ++at) {
        const auto& bmc = rack.accelerators[at].bmc;
        for (std::size_t n = 0; bmc && n < bmc->sensors.size(); ++n) {
            const bmc_sensor_t& sensor = bmc->sensors[n];
            if (!sensor.value)
                continue;
            const std::string asked = two_decimals(*sensor.value);
            const std::string shown = two_decimals(sensor_value(sensor, sensor.raw));
            if (asked != shown)
                lines.push_back("/accelerators/" + std::to_string(at) + "/bmc/sensors/" + std::to_string(n) +
                                "/value: " + asked + " reads as " + shown + ", the nearest that the sensor can say");
        }
    }
    return lines;
}

std::filesystem::path racks_folder()
{
    // bin/ lies beside share/; libraries lie one or two folders deeper, as in lib/x86_64-linux-gnu/ivra-virtual.
    const std::filesystem::path folder = this_file().parent_path();
    const std::filesystem::path racks = "share/ivra/racks";
    std::error_code ignored;
    for (const char* prefix : {"../..", "../../.."})
        if (std::filesystem::exists(folder / prefix / racks, ignored))
            return (folder / prefix / racks).lexically_normal();
    return (folder / ".." / racks).lexically_normal();
}

std::filesystem::path rack_in_use()
{
    if (const char* chosen = std::getenv("IVRA_VIRTUAL_RACK"); chosen != nullptr && *chosen != '\0')
        return chosen;
    return racks_folder() / "showcase.json";
}

rack_t parse_rack(std::string_view text, const std::filesystem::path& file)
{
    const rapidjson::Document document = read_document(text, file);
    const node_t root{document, "", file};
    const node_t list = root.required("accelerators");
    rack_t rack{file, {}};
    for (std::size_t at = 0; at < list.size(); ++at)
        rack.accelerators.push_back(read_accelerator(list.element(at), at));
    read_uids(list, rack.accelerators);
    return rack;
}

rack_t load_rack(const std::filesystem::path& file)
{
    rack_t rack = parse_rack(read_file(file), file);
    std::error_code error;
    rack.file = std::filesystem::canonical(file, error);
    if (error)
        unreadable(file, error.value());
    return rack;
}

} // namespace ivra::virtual_platform
