#include "rack/rack.h"

#include "rack/model.h"
#include "json/describe.h"
#include "json/text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include <dlfcn.h>
#include <link.h>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;

constexpr std::uint64_t largest_flash = std::uint64_t{4} << 30U;
constexpr std::uint64_t largest_sector = 16U << 20U;
constexpr std::uint64_t largest_core = 16U << 20U;
constexpr std::size_t most_xmcs = 16;
constexpr std::uint64_t last_address = (std::uint64_t{1} << 63U) - 1;

// ---- values ----

constexpr codec::or_null name_codec{codec::long_text, "no name"};

constexpr codec::name_t<int> open_errors[] = {
    {"EACCES", EACCES}, {"EBUSY", EBUSY},   {"EINTR", EINTR},   {"EINVAL", EINVAL},
    {"EIO", EIO},       {"EMFILE", EMFILE}, {"ENODEV", ENODEV}, {"ENOENT", ENOENT},
    {"ENOMEM", ENOMEM}, {"ENXIO", ENXIO},   {"EPERM", EPERM},   {"ETIMEDOUT", ETIMEDOUT},
};

/// 0 stands for null.
struct open_error_codec : codec::or_null<codec::names<int>>
{
    static json::value_t write(int number)
    {
        const char* const name = open_error_name(number);
        return name == nullptr ? json::value_t{} : json::value_t{std::string{name}};
    }
};
constexpr open_error_codec open_error{{{open_errors, "the error with which opening fails"}}};

/// A block of MAC addresses, as a rack says it.
struct mac_range_t
{
    codec::mac_t first{};
    std::size_t count = 0;
};

struct mac_addresses_codec
{
    static constexpr codec::list list{
        R"({ "first": "02:00:00:00:10:00", "count": 4 } or a list of at most 4096 MAC addresses)", codec::mac_address,
        4096};
    static constexpr codec::record<mac_range_t> range{list.what};

    static std::string sentence() { return list.what; }
    static void read(const json::node_t& node, std::vector<codec::mac_t>& addresses)
    {
        if (node.as<json::object_t>() == nullptr)
            return list.read(node, addresses);
        mac_range_t said;
        range.read(node, said);
        if (!node.reading().is_beyond_mistake(node.value().end))
            addresses = consecutive_mac_addresses(said.first, said.count);
    }
    static json::value_t write(const std::vector<codec::mac_t>& addresses)
    {
        return are_consecutive(addresses) ? range.write({addresses.front(), addresses.size()}) : list.write(addresses);
    }
    static json::value_t schema() { return codec::or_list(range.schema(), sentence(), list.schema()); }
};
constexpr mac_addresses_codec mac_addresses;

/// "0x10" and nothing else.
std::optional<std::uint64_t> parse_offset(std::string_view text)
{
    const std::string_view digits = text.substr(std::min<std::size_t>(2, text.size()));
    const bool is_one = text.starts_with("0x") && !digits.empty() && digits.size() <= 16 &&
                        digits.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
    return is_one ? std::optional{parse_digits(digits, 16)} : std::nullopt;
}

/// Values of registers by their offsets.
struct registers_codec
{
    std::uint64_t size; ///< of the core; 0: unknown

    static std::string sentence() { return R"(values by byte offset: { "0x10": "0x1" })"; }
    void read(const json::node_t& node, std::map<std::uint64_t, std::uint32_t>& registers) const
    {
        const auto* members = node.as<json::object_t>();
        if (members == nullptr)
            return node.expected(sentence());
        registers.clear();
        for (const json::member_t& member : *members) {
            const json::node_t value = node.below(member);
            const std::optional<std::uint64_t> offset = parse_offset(member.name);
            std::uint32_t number = 0;
            codec::word.read(value, number);
            if (!offset || *offset % 4 != 0 || (size != 0 && *offset >= size))
                value.expected("an offset such as 0x10, a multiple of 4" +
                               (size == 0 ? "" : " and less than " + hex_text(size)));
            else if (!registers.emplace(*offset, number).second)
                value.expected("an offset that no other register of the core has");
        }
    }
    static json::value_t write(const std::map<std::uint64_t, std::uint32_t>& registers)
    {
        json::object_t members;
        for (const auto& [offset, value] : registers)
            members.push_back({hex_text(offset), codec::word.write(value)});
        return {std::move(members)};
    }
    static json::value_t schema()
    {
        return codec::schema_of(sentence(), {"object"}, {{"additionalProperties", codec::word.schema()}});
    }
};

/// null, one, or a list; each over what is there already.
struct xmcs_codec
{
    static constexpr codec::list several{
        R"({ "ready_after": ..., "card": ..., "sensors": ... } for a card management controller, a list of at most 16 of them, or null for none)",
        xmc_codec, most_xmcs};

    static std::string sentence() { return several.what; }
    static void read(const json::node_t& node, std::vector<xmc_t>& xmcs)
    {
        const auto* list = node.as<json::list_t>();
        if (node.value().is_null())
            return xmcs.clear();
        if (node.as<json::object_t>() == nullptr && (list == nullptr || list->size() > several.most))
            return node.expected(sentence());
        xmcs.resize(list == nullptr ? 1 : list->size());
        for (std::size_t number = 0; number < xmcs.size(); ++number)
            xmc_codec.read(list == nullptr ? node : node.below(*list, number), xmcs[number]);
    }
    static json::value_t write(const std::vector<xmc_t>& xmcs)
    {
        if (xmcs.empty())
            return {};
        return xmcs.size() == 1 ? xmc_codec.write(xmcs.front()) : several.write(xmcs);
    }
    static json::value_t schema()
    {
        return codec::widened(codec::or_list(xmc_codec.schema(), sentence(), several.schema()), sentence(), "null");
    }
};

bool has_core(const accelerator_t& accelerator, std::uint32_t hardware_id)
{
    return std::ranges::count(accelerator.cores, hardware_id, &core_t::hardware_id) != 0;
}

/// The controller of a design that has one; null: it has none.
struct i2c_or_null
{
    bool is_there;

    static std::string sentence() { return i2c_codec.sentence() + ", or null for none"; }
    static void read(const json::node_t& node, i2c_t& i2c) { codec::or_null{i2c_codec, "none"}.read(node, i2c); }
    json::value_t write(const i2c_t& i2c) const { return is_there ? i2c_codec.write(i2c) : json::value_t{}; }
    static json::value_t schema() { return codec::widened(i2c_codec.schema(), sentence(), "null"); }
};

// ---- records ----

void describe(auto& visit, mac_range_t& range)
{
    visit.required("first", range.first, codec::mac_address);
    visit.required("count", range.count, codec::whole{"a number of addresses", 0, 4096});
    const std::uint64_t room = codec::addresses_from(range.first);
    visit.check({"count"}, range.count <= room, [&] { return codec::too_many_addresses(room); });
}

std::string size_up_to(std::uint64_t largest)
{
    return "a size from 1 byte to " + size_text(largest);
}

bool is_uid(const std::string& text)
{
    return !text.empty() && text.find('\0') == std::string::npos;
}

bool is_size(std::uint64_t size, std::uint64_t largest)
{
    return size != 0 && size <= largest;
}

} // namespace

static void describe(auto& visit, fpga_t& fpga)
{
    visit("device", fpga.device, codec::long_text);
    visit("serial", fpga.serial, codec::fpga_serial);
    visit("temperature", fpga.temperature, codec::real{"a number of degrees Celsius"});
}

static void describe(auto& visit, flash_section_t& section)
{
    visit("name", section.name, name_codec);
    visit.required("start", section.start, codec::address);
    visit.required("size", section.size, codec::size);
    visit("protected", section.write_protected, codec::flag);
}

static void describe(auto& visit, flash_t& flash)
{
    visit("size", flash.size, codec::size);
    visit("sector", flash.sector, codec::size);
    visit("sections", flash.sections,
          codec::list{"a list of at most 1024 sections, in address order",
                      codec::record<flash_section_t>{
                          R"(a section: { "name": "PARAMS", "start": "0x7fc0000", "size": "64 KiB" })"},
                      1024});

    const bool is_good_size = is_size(flash.size, largest_flash);
    const std::uint64_t largest = std::min(flash.size, largest_sector);
    const bool is_good_sector = !visit.said("sector") || is_size(flash.sector, largest);
    visit.check({"size"}, is_good_size, [&] { return size_up_to(largest_flash); });
    if (!is_good_size)
        return;
    visit.check({"sector"}, is_good_sector, [&] { return size_up_to(largest); });
    visit.check({"sector"}, !is_good_sector || flash.size % flash.sector == 0,
                [&] { return "a sector size that divides the size of the flash, " + size_text(flash.size); });
    std::uint64_t end = 0;
    const bool are_sections_said = visit.said("sections");
    for (std::size_t at = 0; are_sections_said && at < flash.sections.size(); ++at) {
        const flash_section_t& section = flash.sections[at];
        visit.check({"sections", at, "start"}, section.start <= last_address,
                    [&] { return "at most " + hex_text(last_address); });
        visit.check({"sections", at, "start"}, section.start >= end,
                    [&] { return "at least " + hex_text(end) + ", where the section before it ends"; });
        visit.check({"sections", at, "start"}, section.start < flash.size,
                    [&] { return "less than " + hex_text(flash.size) + ", the size of the flash"; });
        if (section.start >= flash.size)
            break;
        const std::uint64_t room = flash.size - section.start;
        visit.check({"sections", at, "size"}, is_size(section.size, room), [&] { return size_up_to(room); });
        end = section.start + std::min(section.size, room);
    }
    if (!are_sections_said && !flash.sections.empty()) {
        const std::uint64_t needed = flash.sections.back().start + flash.sections.back().size;
        visit.check({}, needed <= flash.size || !is_good_sector || flash.size % flash.sector != 0,
                    [&] { return "a member \"sections\", as the default ones need " + hex_text(needed) + " bytes"; });
    }
}

static void describe(auto& visit, core_t& core)
{
    visit.required("hardware_id", core.hardware_id, codec::code{codec::word.what, codec::word.bits, 0});
    visit.required("address", core.address, codec::address);
    visit.required("size", core.size, codec::size);
    visit("registers", core.registers, registers_codec{core.size});

    visit.check({"address"}, core.address <= last_address, [&] { return "at most " + hex_text(last_address); });
    visit.check({"address"}, core.address % 4 == 0, "a multiple of 4");
    const std::uint64_t room = std::min(largest_core, last_address - std::min(core.address, last_address) + 1);
    visit.check({"size"}, is_size(core.size, room), [&] { return size_up_to(room); });
    visit.check({"size"}, core.size % 4 == 0, "a multiple of 4");
}

static void describe(auto& visit, accelerator_t& accelerator)
{
    visit("name", accelerator.name, name_codec);
    visit.required("model", accelerator.model, codec::long_text);
    visit("board", accelerator.board, codec::long_text, accelerator.board != accelerator.model);
    visit("uid", accelerator.uid, codec::long_text);
    visit("open", accelerator.open_error, open_error);
    visit("fpga", accelerator.fpga,
          codec::record<fpga_t>{R"(the FPGA: { "device": ..., "serial": ..., "temperature": ... })"});
    visit("mac_addresses", accelerator.mac_addresses, mac_addresses);
    visit("flash", accelerator.flash, flash_codec);
    visit("mmios", accelerator.mmios, codec::whole{"a number of MMIO spaces", 0, 16});
    visit("cores", accelerator.cores,
          codec::list{
              "a list of at most 1024 cores, in address order",
              codec::record<core_t>{R"(a core: { "hardware_id": 475, "address": "0x100000", "size": "192 KiB" })"},
              1024});
    visit("i2c", accelerator.i2c, i2c_or_null{has_core(accelerator, hardware_ids::i2c)});
    visit("bmc", accelerator.bmc, codec::or_null{bmc_codec, "none"});
    visit("xmc", accelerator.xmcs, xmcs_codec{});

    visit.check({"uid"}, !visit.said("uid") || is_uid(accelerator.uid),
                "a text of at least one character, none of them NUL");
    const bool are_cores_said = visit.said("cores");
    for (std::size_t at = 1; are_cores_said && at < accelerator.cores.size(); ++at) {
        const core_t& before = accelerator.cores[at - 1];
        visit.check({"cores", at, "address"}, accelerator.cores[at].address >= before.address + before.size, [&] {
            return "at least " + hex_text(before.address + before.size) + ", where the core before it ends";
        });
    }
}

namespace {

// ---- an accelerator ----

/// A member of an accelerator has to agree with its cores, of which `found` have the hardware identifier.
std::string agreement(const std::string& expected, std::size_t found, std::uint32_t hardware_id)
{
    return expected + ", as \"cores\" has " +
           (found == 0   ? "none"
            : found == 1 ? "one"
                         : std::to_string(found)) +
           " with the hardware_id " + std::to_string(hardware_id) +
           (found == 0 && hardware_id == hardware_ids::xmc ? " and at least " + hex_text(xmc_window) + " bytes" : "");
}

/// Whether the design has the core that a member is about: {} says yes, null says no. Cores that are spelt out must
/// agree.
bool is_present(const json::node_t& node, const accelerator_t& accelerator, const char* name, std::uint32_t hardware_id,
                bool by_default)
{
    const json::member_t* const member = json::find(node.value(), name);
    if (json::find(node.value(), "cores") != nullptr) {
        const bool is_there = has_core(accelerator, hardware_id);
        if (member != nullptr && is_there == member->value.is_null())
            node.expected_at({name}, agreement(is_there ? "{}" : "null", is_there ? 1 : 0, hardware_id));
        return is_there;
    }
    return member == nullptr ? by_default : !member->value.is_null();
}

/// As many XMCs as there are cores for them.
void settle_xmcs(const json::node_t& node, const model_t& model, accelerator_t& accelerator, auto default_xmcs)
{
    const bool is_said = json::find(node.value(), "xmc") != nullptr;
    const bool are_cores_said = json::find(node.value(), "cores") != nullptr;
    const auto room = static_cast<std::size_t>(std::ranges::count_if(accelerator.cores, &has_room_for_xmc));
    if (is_said && are_cores_said && room != accelerator.xmcs.size())
        node.expected_at({"xmc"}, agreement(room == 0   ? "null"
                                            : room == 1 ? "{}"
                                                        : "a list of " + std::to_string(room),
                                            room, hardware_ids::xmc));
    if (is_said)
        return;
    accelerator.xmcs = default_xmcs(are_cores_said ? room : model.xmc ? 1 : 0);
}

/// The buses of the model, unless others are spelt out, have the cages.
void settle_cages(const json::node_t& node, const model_t& model, accelerator_t& accelerator)
{
    const json::member_t* const said = json::find(node.value(), "i2c");
    if (said == nullptr || json::find(said->value, "buses") != nullptr)
        return;
    std::vector<cage_t>& cages = accelerator.i2c.cages;
    const std::size_t fewest = fewest_cages(model);
    const std::size_t most = most_cages(model);
    if (json::find(said->value, "cages") != nullptr) {
        if (cages.size() > most)
            node.expected_at({"i2c", "cages"},
                             "at most " + std::to_string(most) +
                                 " cages, as the model has, or a member \"buses\" that says where they are");
        cages.resize(cages.size() <= fewest ? fewest : most); // those that are left out are empty
    }
    accelerator.i2c.buses = default_buses(model, cages.size());
}

/// What the members say together, and what is left to defaults.
void settle(const json::node_t& node, const model_t& model, accelerator_t& accelerator, auto default_xmcs)
{
    const bool has_i2c_core = is_present(node, accelerator, "i2c", hardware_ids::i2c, model.i2c.has_value());
    const bool has_uart = is_present(node, accelerator, "bmc", hardware_ids::uart, model.bmc.has_value());
    settle_xmcs(node, model, accelerator, default_xmcs);
    if (json::find(node.value(), "cores") == nullptr)
        accelerator.cores = default_cores(has_i2c_core, has_uart, accelerator.xmcs.size());
    if (!has_uart)
        accelerator.bmc.reset();
    if (has_i2c_core)
        settle_cages(node, model, accelerator);
    else
        accelerator.i2c = {};
}

/// What a rack says of a board can be more than its model has.
void remark_on_model(const json::node_t& node, const model_t& model, const std::string& name)
{
    // Cores that are spelt out say themselves what the design has.
    if (!model.has_file || json::find(node.value(), "cores") != nullptr)
        return;
    const struct
    {
        const char* name;
        bool is_there;
    } devices[] = {{"i2c", model.i2c.has_value()}, {"bmc", model.bmc.has_value()}, {"xmc", model.xmc.has_value()}};
    for (const auto& device : devices)
        if (!node.value_at({device.name}).is_null() && !device.is_there)
            node.remark_at({device.name}, "the model " + name + " has none");
}

void remark_on_sensors(const json::node_t& xmc, const model_t& model, const std::string& name)
{
    const json::member_t* const said = json::find(xmc.value(), "sensors");
    if (said == nullptr || !model.xmc || model.xmc->sensors.empty())
        return;
    for (const json::member_t& sensor : *said->value.as<json::object_t>())
        if (std::ranges::count(model.xmc->sensors, sensor.name, &xmc_sensor_t::name) == 0)
            xmc.remark_at({"sensors", std::string_view{sensor.name}}, "the model " + name + " has no such sensor");
}

/// Reads an accelerator over what its model has.
struct accelerator_codec
{
    models* known; ///< null: only to write

    static constexpr codec::record<accelerator_t> members{R"(an accelerator: { "model": "xilinx_u200", ... })"};

    static std::string sentence() { return members.sentence(); }
    void read(const json::node_t& node, accelerator_t& accelerator) const
    {
        const json::member_t* const name = json::find(node.value(), "model");
        if (name == nullptr)
            return members.read(node, accelerator); // which says so
        const json::node_t place = node.below(*name);
        std::string model_name;
        codec::long_text.read(place, model_name);
        const model_t model = known->read(place, model_name, node.index());
        const auto default_xmcs = [&](std::size_t count) {
            std::vector<xmc_t> xmcs;
            for (std::size_t number = 0; number < count; ++number)
                xmcs.push_back(default_xmc(number == 0 ? model : known->read(place, model_name, node.index(), number)));
            return xmcs;
        };
        accelerator = default_accelerator(model);
        const json::member_t* const said = json::find(node.value(), "xmc");
        const auto* several = said == nullptr ? nullptr : said->value.as<json::list_t>();
        accelerator.xmcs = default_xmcs(several == nullptr ? 1 : std::min(several->size(), most_xmcs));
        members.read(node, accelerator);
        accelerator.text = json::compact(node.value()) + known->text(model_name) + node.reading().take_opened();
        if (node.reading().is_beyond_mistake(node.value().end))
            return;
        settle(node, model, accelerator, default_xmcs);
        if (node.reading().wanted() == json::remarks_t::unwanted)
            return;
        remark_on_model(node, model, model_name);
        if (said == nullptr)
            return;
        const json::node_t xmc = node.below(*said);
        if (several == nullptr)
            remark_on_sensors(xmc, model, model_name);
        for (std::size_t number = 0; several != nullptr && number < several->size(); ++number)
            remark_on_sensors(xmc.below(*several, number), model, model_name);
    }
    static json::value_t write(const accelerator_t& accelerator) { return members.write(accelerator); }
    static json::value_t schema() { return members.schema(); }
};

struct rack_file_t
{
    std::string schema;
    std::vector<accelerator_t> accelerators;
    models known;
};

/// The uids that are written down come first: a default one makes way for them.
void settle_uids(auto& visit, std::vector<accelerator_t>& accelerators)
{
    std::set<std::string> taken;
    for (std::size_t at = 0; at < accelerators.size(); ++at)
        visit.check({"accelerators", at, "uid"},
                    accelerators[at].uid.empty() || taken.insert(accelerators[at].uid).second,
                    "a text that no other accelerator has");
    for (std::size_t at = 0; at < accelerators.size(); ++at)
        for (std::size_t position = at; accelerators[at].uid.empty(); position += accelerators.size())
            if (const auto [uid, is_new] = taken.insert(default_uid(position)); is_new)
                accelerators[at].uid = *uid;
}

void describe(auto& visit, rack_file_t& rack)
{
    visit("$schema", rack.schema, codec::plain_text{"a text: where an editor finds the schema of racks"});
    visit.required("accelerators", rack.accelerators,
                   codec::list{"a list of at most 65536 accelerators", accelerator_codec{&rack.known}, 65536});
    settle_uids(visit, rack.accelerators);
}

constexpr codec::record<rack_file_t> rack_codec{R"(a rack: { "accelerators": [ ... ] })"};

constexpr std::string_view said_by_starters[] = {"name", "model", "uid", "fpga", "mac_addresses", "flash"};

void leave_out_unprotected(json::value_t& flash)
{
    auto& sections = std::get<json::object_t>(flash.content).back().value;
    for (json::value_t& section : std::get<json::list_t>(sections.content)) {
        auto& members = std::get<json::object_t>(section.content);
        if (!std::get<bool>(members.back().value.content))
            members.pop_back();
    }
}

std::string rack_text(json::list_t accelerators)
{
    constexpr std::size_t spread_levels = 3; // a line for each member of an accelerator
    return json::laid_out({json::object_t{{"accelerators", {std::move(accelerators)}}}}, spread_levels);
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

const char* const rack_sentence = rack_codec.what;

template struct json::codec::record<flash_t>;

flash_t default_flash()
{
    return {128U << 20U,
            64U << 10U,
            {
                // clang-format off
                // name    start      size       protected
                {"PGM",    0x0000000, 0x1002000, false}, // golden image
                {"USR",    0x1002000, 0x5000000, false}, // user image
                {"PARAMS", 0x7fc0000, 0x0010000, true},
                {"PARAMS", 0x7fd0000, 0x0010000, false},
                {"OTP",    0x7ff0000, 0x0001000, false},
                // clang-format on
            }};
}

const char* open_error_name(int number)
{
    const auto* const row = std::ranges::find(open_errors, number, &codec::name_t<int>::value);
    return row == std::end(open_errors) ? nullptr : row->name.data();
}

const accelerator_t& accelerator_called(const rack_t& rack, const std::string& name)
{
    constexpr std::size_t most_told = 20;
    std::string known;
    for (std::size_t at = 0; at < rack.accelerators.size(); ++at) {
        const accelerator_t& accelerator = rack.accelerators[at];
        if (accelerator.name == name || accelerator.uid == name || std::to_string(at) == name)
            return accelerator;
        if (at < most_told)
            known += (at == 0 ? "" : ", ") + accelerator.name.value_or(accelerator.uid);
    }
    const std::size_t count = rack.accelerators.size();
    throw std::runtime_error{
        rack.file.string() + " has no accelerator of the name, uid or index \"" + name + "\"; there are " +
        (count == 0 ? "none"
                    : known + (count > most_told ? " and " + std::to_string(count - most_told) + " more" : ""))};
}

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
        number += other.address < core.address && has_room_for_xmc(other) ? 1U : 0U;
    return number < accelerator.xmcs.size() ? &accelerator.xmcs[number] : nullptr;
}

const bmc_t* bmc_behind(const accelerator_t& accelerator, const core_t& core)
{
    const auto first = std::ranges::find(accelerator.cores, hardware_ids::uart, &core_t::hardware_id);
    const bool is_first = first != accelerator.cores.end() && first->address == core.address;
    return is_first && accelerator.bmc ? &*accelerator.bmc : nullptr;
}

namespace {

std::filesystem::path find_racks_folder()
{
    // bin/ lies beside share/; libraries lie one or two folders deeper, as in lib/x86_64-linux-gnu/ivra-virtual.
    const std::filesystem::path folder = this_file().parent_path();
    const std::filesystem::path racks = "share/ivra/racks";
    std::error_code ignored;
    for (const char* prefix : {"..", "../..", "../../.."})
        if (std::filesystem::exists(folder / prefix / racks, ignored))
            return (folder / prefix / racks).lexically_normal();
    return (folder / ".." / racks).lexically_normal();
}

} // namespace

const std::filesystem::path& racks_folder()
{
    static const std::filesystem::path found = find_racks_folder();
    return found;
}

std::filesystem::path rack_in_use()
{
    if (const char* chosen = std::getenv("IVRA_VIRTUAL_RACK"); chosen != nullptr && *chosen != '\0')
        return chosen;
    return racks_folder() / "showcase.json";
}

std::vector<std::filesystem::path> folders_of(const std::filesystem::path& rack_file)
{
    // One rack has one folder, however its path is spelt.
    std::error_code ignored;
    return {std::filesystem::weakly_canonical(rack_file, ignored).parent_path(), racks_folder()};
}

rack_t read_rack(const json::value_t& document, const std::filesystem::path& file, std::vector<std::string>* remarks)
{
    json::reading reading{file, folders_of(file),
                          remarks == nullptr ? json::remarks_t::unwanted : json::remarks_t::wanted};
    rack_file_t rack;
    rack_codec.read({document, reading}, rack);
    reading.finish();
    if (remarks != nullptr)
        *remarks = reading.remarks();
    return {file, std::move(rack.accelerators)};
}

rack_t parse_rack(std::string_view text, const std::filesystem::path& file)
{
    return read_rack(json::parse(text, file, rack_sentence), file);
}

rack_t load_rack(const std::filesystem::path& file)
{
    rack_t rack = parse_rack(read_file(file), file);
    std::error_code error;
    rack.file = std::filesystem::canonical(file, error);
    if (error)
        mistake(file, "", "cannot be read: " + error.message());
    return rack;
}

std::string expand(const rack_t& rack)
{
    json::list_t list;
    for (const accelerator_t& accelerator : rack.accelerators)
        list.push_back(accelerator_codec::write(accelerator));
    return rack_text(std::move(list));
}

std::vector<accelerator_t> default_boards(const std::vector<std::string>& models, std::size_t count)
{
    json::list_t models_only;
    for (std::size_t at = 0; at < count; ++at)
        models_only.push_back({json::object_t{{"model", {models.at(at % models.size())}}}});
    const std::filesystem::path file = racks_folder() / "starter.json"; // beside which the models are
    return read_rack({json::object_t{{"accelerators", {std::move(models_only)}}}}, file).accelerators;
}

std::string starter(const std::vector<std::string>& models, std::size_t count, const std::optional<module_t>& module)
{
    json::list_t list;
    for (const accelerator_t& accelerator : default_boards(models, count)) {
        json::value_t everything = accelerator_codec::write(accelerator);
        json::object_t members;
        for (json::member_t& member : std::get<json::object_t>(everything.content)) {
            if (std::ranges::count(said_by_starters, member.name) == 0)
                continue;
            if (member.name == "flash")
                leave_out_unprotected(member.value);
            members.push_back(std::move(member));
        }
        if (module)
            members.push_back({"i2c", {json::object_t{{"cages", {json::list_t{cage_codec.write({true, module})}}}}}});
        list.push_back({std::move(members)});
    }
    return rack_text(std::move(list));
}

json::value_t rack_schema()
{
    return json::as_document(rack_codec.schema());
}

} // namespace ivra::virtual_platform
