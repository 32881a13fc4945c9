#include "rack/model.h"

#include "json/names.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <set>
#include <system_error>
#include <utility>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;
namespace fs = std::filesystem;

constexpr const char* models_folder = "models";

std::string upper_case(std::string text)
{
    std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

template <class... Arguments>
std::string formatted(const char* format, Arguments... arguments)
{
    char text[80];
    std::snprintf(text, sizeof text, format, arguments...);
    return text;
}

/// Locally administered addresses: `block` tells what they are of, and there are 256 for each board.
codec::mac_t default_mac(std::uint8_t block, std::size_t position, std::size_t last = 0)
{
    return {0x02,
            0x00,
            block,
            static_cast<std::uint8_t>(position >> 8U),
            static_cast<std::uint8_t>(position),
            static_cast<std::uint8_t>(last)};
}

/// Whether a board name can be that of a file.
bool is_file_name(std::string_view name)
{
    constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    constexpr std::size_t longest = 63;
    return !name.empty() && name.size() <= longest && name.find_first_not_of(letters) == std::string_view::npos;
}

/// A name that is none of a model is mostly meant so.
void remark_on_name(const json::node_t& node, const std::string& name)
{
    if (node.reading().wanted() == json::remarks_t::unwanted)
        return;
    const std::vector<std::string> known = json::names_in(node.reading().folders(), models_folder);
    if (const std::vector<std::string_view> close = json::close_names(known, name); !close.empty())
        node.remark("no model of this name; is " + codec::enumeration(close) + " meant?");
}

/// The devices before a model says anything of them.
bmc_t plain_bmc(const model_t& model)
{
    bmc_t bmc;
    bmc.fru.manufacturer = "VIRTUAL";
    bmc.fru.product = upper_case(model.short_name);
    bmc.fru.serial = "VRT" + model.number + formatted("%04zu", model.position + 1);
    bmc.fru.part_number = "VRT-" + model.number;
    bmc.fru.file_id = "";
    return bmc;
}

xmc_t plain_xmc(const model_t& model)
{
    constexpr std::size_t most_addresses = 16; // for each of at most 16 XMCs of a board
    xmc_t xmc;
    xmc.card.name = "VIRTUAL " + upper_case(model.short_name);
    xmc.card.revision = "A";
    // The letter is the XMC's on its board.
    xmc.card.serial =
        "VRT" + model.number + static_cast<char>('A' + model.xmc_number % 26) + formatted("%04zu", model.position + 1);
    // Other ones than the design's.
    xmc.card.macs = mac_block_t{default_mac(1, model.position, most_addresses * model.xmc_number),
                                static_cast<std::uint8_t>(std::min(model.mac_count, most_addresses))};
    xmc.card.fan = false;
    xmc.card.configuration_mode = 7;
    xmc.card.maximum_power = 75;
    xmc.card.firmware = "4.3.9";
    return xmc;
}

i2c_t plain_i2c(const model_t& model)
{
    i2c_t i2c;
    i2c.mac_eeprom = formatted("MAC=02:00:02:%02zx:%02zx:00", model.position >> 8U & 0xffU, model.position & 0xffU);
    return i2c;
}

/// Reads what is said of a device over its defaults; nothing when the model does not have it.
template <class Device, class Codec>
void visit_device(auto& visit, const char* name, std::optional<Device>& device, Device plain, const Codec& device_codec)
{
    device = std::move(plain);
    if (!visit(name, device, codec::or_null{device_codec, "none"}))
        device.reset();
}

} // namespace

static void describe(auto& visit, model_t& model)
{
    visit("board", model.board, codec::long_text);
    visit("short_name", model.short_name, codec::text{16});
    visit("number", model.number, codec::text{16});
    visit("device", model.device, codec::long_text);
    visit("temperature", model.temperature, codec::real{"a number of degrees Celsius"});
    visit("mac_count", model.mac_count, codec::whole{"a number of addresses", 0, 255});
    visit("flash", model.flash, flash_codec);
    visit_device(visit, "i2c", model.i2c, plain_i2c(model), i2c_codec);
    if (model.i2c && !visit.gives({"i2c", "mac_eeprom"}) && !reaches(*model.i2c, i2c_kind_t::mac_eeprom))
        model.i2c->mac_eeprom.reset();
    visit("optional_cages", model.optional_cages, codec::whole{"a number of cages", 0, 64});
    visit_device(visit, "bmc", model.bmc, plain_bmc(model), bmc_codec);
    visit_device(visit, "xmc", model.xmc, plain_xmc(model), xmc_codec);
    visit.check({"optional_cages"}, model.optional_cages <= most_cages(model),
                [&] { return "at most " + std::to_string(most_cages(model)) + ", the number of cages"; });
}

static constexpr codec::record<model_t> model_codec{R"(a model: { "short_name": "u200", "device": ..., "xmc": ... })"};

bool is_model_file(const fs::path& file)
{
    return fs::absolute(file).lexically_normal().parent_path().filename() == models_folder;
}

std::vector<std::string> check_model(const fs::path& file)
{
    const fs::path racks = fs::absolute(file).lexically_normal().parent_path().parent_path();
    const json::value_t document = json::parse(read_file(file), file, model_codec.what);
    json::reading reading{file, {racks, racks_folder()}, json::remarks_t::wanted};
    model_t model;
    model_codec.read({document, reading}, model);
    reading.finish();
    return reading.remarks();
}

/// Throws file_error.
void models::open(const json::node_t& node, const std::string& name, file_t& file)
{
    const auto path =
        is_file_name(name) ? node.reading().find(fs::path{models_folder} / (name + ".json")) : std::nullopt;
    if (!path)
        return remark_on_name(node, name);
    const std::string text = read_file(*path);
    file.document = json::parse(text, *path, model_codec.what);
    file.path = *path;
    std::error_code ignored;
    if (!fs::equivalent(path->parent_path().parent_path(), racks_folder(), ignored))
        file.text = '\n' + text;
}

model_t models::read(const json::node_t& node, const std::string& name, std::size_t position, std::size_t xmc_number)
{
    model_t plain;
    plain.board = name;
    plain.position = position;
    plain.xmc_number = xmc_number;
    const auto [known, is_new] = files_.try_emplace(name);
    file_t& file = known->second;
    try {
        if (is_new)
            open(node, name, file);
        if (file.path.empty())
            return plain;
        model_t model = plain;
        json::reading reading{file.path, node.reading().folders(),
                              is_new ? node.reading().wanted() : json::remarks_t::unwanted};
        model_codec.read({file.document, reading}, model);
        reading.finish();
        for (const std::string& remark : reading.remarks())
            node.remark(remark);
        if (is_new)
            file.text += reading.take_opened();
        model.has_file = true;
        return model;
    } catch (const file_error& error) {
        node.note(node.value().place, error.what());
        return plain;
    }
}

std::vector<std::string> known_models()
{
    return json::names_in({racks_folder()}, models_folder);
}

accelerator_t default_accelerator(const model_t& model)
{
    // An odd factor gives every position another low word.
    const auto low = static_cast<std::uint32_t>(model.position + 1) * 0x9e3779b1U;
    accelerator_t accelerator;
    accelerator.name = "virtual-" + model.short_name + "-" + std::to_string(model.position);
    accelerator.board = model.board;
    accelerator.position = model.position;
    accelerator.fpga = {model.device, {low, 0x01285c0fU, 0x40020000U}, model.temperature};
    accelerator.mac_addresses = consecutive_mac_addresses(default_mac(0, model.position), model.mac_count);
    accelerator.flash = model.flash;
    if (model.i2c)
        accelerator.i2c = *model.i2c;
    accelerator.i2c.cages.resize(fewest_cages(model));
    accelerator.i2c.buses = default_buses(model, accelerator.i2c.cages.size());
    accelerator.bmc = model.bmc ? *model.bmc : plain_bmc(model);
    return accelerator;
}

std::string default_uid(std::size_t position)
{
    // As a PCI address: 255 buses a domain, bus 0 being the host's own.
    return formatted("%04zx:%02zx:00.0", position / 255, 1 + position % 255);
}

xmc_t default_xmc(const model_t& model)
{
    return model.xmc ? *model.xmc : plain_xmc(model);
}

std::vector<core_t> default_cores(bool i2c, bool uart, std::size_t xmcs)
{
    struct row_t
    {
        std::uint32_t hardware_id;
        bool present;
        std::uint64_t address, size;
    };
    // clang-format off
    const row_t rows[] = {
        {hardware_ids::hw_top, true, 0x000000, 0x01000},
        {hardware_ids::flash,  true, 0x010000, 0x01000},
        {hardware_ids::i2c,    i2c,  0x020000, 0x01000},
        {hardware_ids::uart,   uart, 0x030000, 0x01000},
    };
    // clang-format on
    std::vector<core_t> cores;
    for (const row_t& row : rows)
        if (row.present)
            cores.push_back({row.hardware_id, row.address, row.size, {}});
    for (std::size_t number = 0; number < xmcs; ++number)
        cores.push_back({hardware_ids::xmc, 0x100000 + 0x40000 * number, 0x30000, {}});
    return cores;
}

std::vector<i2c_bus_t> default_buses(const model_t& model, std::size_t cages)
{
    std::vector<i2c_bus_t> buses = model.i2c ? model.i2c->buses : std::vector<i2c_bus_t>{};
    for (i2c_bus_t& bus : buses) {
        std::erase_if(bus.devices, [&](const i2c_device_t& device) {
            return device.kind == i2c_kind_t::cage && device.number >= cages;
        });
        for (bool is_new = true; is_new;) { // until every multiplexer has something behind it
            std::set<std::uint8_t> needed;
            for (const i2c_device_t& device : bus.devices)
                if (device.behind)
                    needed.insert(device.behind->multiplexer);
            is_new = std::erase_if(bus.devices, [&](const i2c_device_t& device) {
                         return device.kind == i2c_kind_t::multiplexer && !needed.contains(device.address);
                     }) != 0;
        }
    }
    number_multiplexers(buses);
    return buses;
}

std::size_t fewest_cages(const model_t& model)
{
    return most_cages(model) - std::min(most_cages(model), model.optional_cages);
}

std::size_t most_cages(const model_t& model)
{
    return model.i2c ? model.i2c->cages.size() : 0;
}

std::vector<std::array<std::uint8_t, 6>> consecutive_mac_addresses(const std::array<std::uint8_t, 6>& first,
                                                                   std::size_t count)
{
    std::vector<std::array<std::uint8_t, 6>> result;
    result.reserve(count);
    std::array<std::uint8_t, 6> address = first;
    while (result.size() < count) {
        result.push_back(address);
        for (std::size_t at = address.size(); at-- > 0 && ++address[at] == 0;) {
        }
    }
    return result;
}

bool are_consecutive(const std::vector<std::array<std::uint8_t, 6>>& addresses)
{
    return !addresses.empty() && addresses == consecutive_mac_addresses(addresses.front(), addresses.size()) &&
           std::ranges::is_sorted(addresses); // ff:ff:ff:ff:ff:ff is the last one
}

} // namespace ivra::virtual_platform
