#include "read_module.h"

#include "document.h"
#include "files.h"
#include "rack.h"

#include "devices/module/dump.h"
#include "json/text.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <set>
#include <span>
#include <utility>
#include <vector>

namespace ivra::virtual_platform {

namespace {

namespace fs = std::filesystem;

/// Where a 16-bit monitor of every lane lies.
struct monitor_t
{
    const char* member;
    std::size_t place;
    double unit; ///< of one step, in the member's unit
    std::size_t lanes;
    bool is_signed = false;
    bool is_bias = false;
    double by_default = 0;
};

/// A byte with the sum of others.
struct checksum_t
{
    std::size_t first, last, place;
};

constexpr std::size_t lane_page = 0x11;
constexpr std::size_t advertising_page = 0x01;
constexpr std::size_t threshold_page = 0x02;
constexpr double celsius = 1.0 / 256;  // degrees
constexpr double volts = 0.0001;       // 100 uV
constexpr double milliwatts = 0.0001;  // 0.1 uW
constexpr double milliamperes = 0.002; // 2 uA

// clang-format off
constexpr monitor_t sfp_monitors[] = { // SFF-8472, table 9-11
    {"temperature", a2(96),  celsius,      1, true,  false, 32.5},
    {"vcc",         a2(98),  volts,        1, false, false, 3.3},
    {"tx_bias",     a2(100), milliamperes, 1, false, true,  6.5},
    {"tx_power",    a2(102), milliwatts,   1, false, false, 0.6},
    {"rx_power",    a2(104), milliwatts,   1, false, false, 0.5},
};
constexpr monitor_t qsfp_monitors[] = { // SFF-8636, tables 6-7 and 6-8
    {"temperature", 22,      celsius,      1, true,  false, 32.5},
    {"vcc",         26,      volts,        1, false, false, 3.3},
    {"rx_power",    34,      milliwatts,   4, false, false, 0.5},
    {"tx_bias",     42,      milliamperes, 4, false, true,  6.5},
    {"tx_power",    50,      milliwatts,   4, false, false, 0.6},
};
constexpr monitor_t cmis_monitors[] = { // CMIS, lower page and page 11h
    {"temperature", 14,                    celsius,      1, true,  false, 32.5},
    {"vcc",         16,                    volts,        1, false, false, 3.3},
    {"tx_power",    upper(lane_page, 154), milliwatts,   8, false, false, 0.6},
    {"tx_bias",     upper(lane_page, 170), milliamperes, 8, false, true,  6.5},
    {"rx_power",    upper(lane_page, 186), milliwatts,   8, false, false, 0.5},
};

constexpr checksum_t sfp_checksums[] = {{0, 62, 63}, {64, 94, 95}, {a2(0), a2(94), a2(95)}};
constexpr checksum_t qsfp_checksums[] = {{128, 190, 191}, {192, 222, 223}};
constexpr checksum_t cmis_checksums[] = {
    {128, 221, 222},
    {upper(advertising_page, 130), upper(advertising_page, 254), upper(advertising_page, 255)},
    {upper(threshold_page, 128), upper(threshold_page, 254), upper(threshold_page, 255)},
};

struct map_row_t
{
    std::string_view name;
    memory_map_t map;
    std::uint8_t identifier;
    std::size_t flat_byte;
    std::uint8_t flat_bit; ///< 0: there is no such thing
    std::span<const monitor_t> monitors;
    std::span<const checksum_t> checksums;
};

constexpr map_row_t maps[] = {
    {"sfp",  memory_map_t::sfp,  0x03, 0, 0x00, sfp_monitors,  sfp_checksums},
    {"qsfp", memory_map_t::qsfp, 0x11, 2, 0x04, qsfp_monitors, qsfp_checksums},
    {"cmis", memory_map_t::cmis, 0x18, 2, 0x80, cmis_monitors, cmis_checksums},
};

/// What a CMIS module says that it measures: page 01h, bytes 159 and 160.
constexpr struct { std::string_view name; std::size_t offset; std::uint8_t bit; } advertisements[] = {
    {"temperature", 159, 0x01},
    {"vcc",         159, 0x02},
    {"tx_bias",     160, 0x01},
    {"tx_power",    160, 0x02},
    {"rx_power",    160, 0x04},
};

/// Diagnostic monitoring type of an SFP (A0h, byte 92): average power, and how it is calibrated.
constexpr struct { std::string_view name; std::uint8_t byte; } calibrations[] = {
    {"none",     0x00},
    {"internal", 0x68},
    {"external", 0x58},
};
// clang-format on

constexpr std::size_t bias_multiplier_place = upper(advertising_page, 160);
constexpr std::uint8_t bias_multiplier_mask = 0x18;
constexpr std::size_t calibration_place = 92;
constexpr std::size_t identifier_place = 0;

const map_row_t& row_of(memory_map_t map)
{
    return *std::ranges::find(maps, map, &map_row_t::map);
}

std::string_view name_of(const rapidjson::Value& name)
{
    return {name.GetString(), name.GetStringLength()};
}

node_t below(const node_t& object, const rapidjson::Value& name, const rapidjson::Value& value)
{
    return {value, object.pointer + '/' + name.GetString(), object.file};
}

/// Sum of a checksum's bytes, whose lowest eight bits are kept.
std::uint8_t sum_of(const module_t& module, const checksum_t& checksum)
{
    unsigned sum = 0;
    for (std::size_t at = checksum.first; at <= checksum.last; ++at)
        sum += module.byte(at);
    return static_cast<std::uint8_t>(sum);
}

// ---- memory that is spelt out ----

/// First place and size of what a member of "memory" is called.
std::pair<std::size_t, std::size_t> area_of(const node_t& node, std::string_view name, memory_map_t map)
{
    if (map == memory_map_t::sfp) {
        if (name != "A0" && name != "A2")
            node.expected("a member of memory to be called A0 or A2, as of an SFP");
        return {name == "A0" ? 0 : a2(0), 2 * block_size};
    }
    if (name == "lower")
        return {0, block_size};
    if (name.size() != 2 || name.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos)
        node.expected("a member of memory to be called lower, or 00 to ff, as a page");
    return {upper(parse_digits(name, 16), block_size), block_size};
}

void read_memory(const node_t& node, module_t& module)
{
    for (const auto& member : node.value.GetObject()) {
        const node_t bytes = below(node, member.name, member.value);
        const auto [first, size] = area_of(bytes, name_of(member.name), module.map);
        const std::string values = read_hex(bytes);
        if (values.size() > size)
            bytes.expected("at most " + std::to_string(size) + " bytes");
        for (std::size_t at = 0; at < size; ++at)
            module.set_byte(first + at, at < values.size() ? static_cast<std::uint8_t>(values[at]) : std::uint8_t{0});
    }
}

/// The place of "26" (lower page), "01:160" (page 01h), "A0:92" or "A2:110" (SFP).
std::size_t read_place(const node_t& node, std::string_view name, memory_map_t map)
{
    const std::size_t colon = name.find(':');
    const std::string_view page = name.substr(0, colon == std::string_view::npos ? 0 : colon);
    const std::string_view digits = name.substr(colon == std::string_view::npos ? 0 : colon + 1);
    constexpr std::size_t most_digits = 3;
    const bool is_number = !digits.empty() && digits.size() <= most_digits &&
                           digits.find_first_not_of("0123456789") == std::string_view::npos;
    const std::uint64_t offset = is_number ? parse_digits(digits, 10) : UINT64_MAX;
    if (map == memory_map_t::sfp) {
        if ((page != "A0" && page != "A2") || offset >= 2 * block_size)
            node.expected("a byte of an SFP such as A0:92 or A2:110");
        return page == "A0" ? offset : a2(offset);
    }
    const bool is_page = page.size() == 2 && page.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
    if (page.empty() && colon == std::string_view::npos && offset < block_size)
        return offset;
    if (!is_page || offset < block_size || offset >= 2 * block_size)
        node.expected("a byte such as 26 of the lower page (0 to 127), or 01:160 of page 01 (128 to 255)");
    return upper(parse_digits(page, 16), offset);
}

/// Sets the bytes and returns their places.
std::set<std::size_t> read_bytes(const node_t& node, module_t& module)
{
    std::set<std::size_t> places;
    for (const auto& member : node.value.GetObject()) {
        const node_t bytes = below(node, member.name, member.value);
        const std::size_t first = read_place(bytes, name_of(member.name), module.map);
        // Bytes of one name stay within its page, or within A0h or A2h.
        const std::size_t span = module.map == memory_map_t::sfp ? 2 * block_size : block_size;
        const std::size_t room = span - first % span;
        const std::string values = read_hex(bytes);
        if (values.size() > room)
            bytes.expected("at most " + std::to_string(room) + " bytes, as the page ends there");
        for (std::size_t at = 0; at < values.size(); ++at) {
            module.set_byte(first + at, static_cast<std::uint8_t>(values[at]));
            places.insert(first + at);
        }
    }
    return places;
}

// ---- named fields ----

void set_text(module_t& module, const text_field_t& field, std::string_view text)
{
    for (std::size_t at = 0; at < field.size; ++at)
        module.set_byte(field.place + at, at < text.size() ? static_cast<std::uint8_t>(text[at]) : std::uint8_t{' '});
}

void read_text_field(const node_t& node, const text_field_t& field, module_t& module)
{
    const std::string text = read_text(node);
    if (text.size() > field.size)
        node.expected("at most " + std::to_string(field.size) + " bytes");
    set_text(module, field, text);
}

void set_bits(module_t& module, std::size_t place, std::uint8_t mask, std::uint8_t value)
{
    module.set_byte(place, static_cast<std::uint8_t>((module.byte(place) & ~mask) | (value & mask)));
}

/// Members that only modules of one map have.
void read_map_fields(const node_t& node, module_t& module)
{
    const map_row_t& row = row_of(module.map);
    const auto only = [&](const char* name, bool allowed) {
        auto member = node.member(name);
        if (member && !allowed)
            member->expected("no such member for a module of the map " + std::string{row.name});
        return member;
    };
    if (const auto calibration = only("calibration", module.map == memory_map_t::sfp))
        module.set_byte(calibration_place, std::ranges::find_if(calibrations, [&](const auto& candidate) {
                                               return candidate.name == calibration->text();
                                           })->byte);
    if (const auto flat = only("flat", row.flat_bit != 0))
        set_bits(module, row.flat_byte, row.flat_bit, flat->value.GetBool() ? row.flat_bit : std::uint8_t{0});
    if (const auto pin = only("low_power_pin", row.flat_bit != 0))
        module.low_power_pin = pin->value.GetBool();
    if (const auto list = only("advertises", module.map == memory_map_t::cmis)) {
        std::set<std::string_view> names;
        for (std::size_t at = 0; at < list->size(); ++at)
            names.insert(list->element(at).text());
        for (const auto& [name, offset, bit] : advertisements)
            set_bits(module, upper(advertising_page, offset), bit, names.contains(name) ? bit : std::uint8_t{0});
    }
    if (const auto multiplier = only("bias_multiplier", module.map == memory_map_t::cmis))
        set_bits(module, bias_multiplier_place, bias_multiplier_mask,
                 static_cast<std::uint8_t>(multiplier->value.GetUint() / 2 << 3U)); // 1, 2, 4: code 0, 1, 2
}

double unit_of(const monitor_t& monitor, const module_t& module)
{
    if (!monitor.is_bias || module.map != memory_map_t::cmis)
        return monitor.unit;
    const unsigned code = (module.byte(bias_multiplier_place) & bias_multiplier_mask) >> 3U;
    return monitor.unit * (code == 1 ? 2 : code == 2 ? 4 : 1);
}

void set_monitor(module_t& module, std::size_t place, std::uint16_t raw)
{
    module.set_byte(place, static_cast<std::uint8_t>(raw >> 8U));
    module.set_byte(place + 1, static_cast<std::uint8_t>(raw));
}

std::string short_number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

/// The nearest raw value.
std::uint16_t raw_value(const node_t& node, const monitor_t& monitor, double unit)
{
    const double least = monitor.is_signed ? -32768 : 0;
    const double most = monitor.is_signed ? 32767 : 65535;
    const double steps = std::round(node.value.GetDouble() / unit);
    if (!(steps >= least && steps <= most))
        node.expected("a number from " + short_number(least * unit) + " to " + short_number(most * unit));
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(steps));
}

void read_monitor(const node_t& node, const monitor_t& monitor, module_t& module)
{
    const double unit = unit_of(monitor, module);
    if (node.value.IsArray() && node.size() != monitor.lanes)
        node.expected(monitor.lanes == 1
                          ? "one number"
                          : "a number, or a list of " + std::to_string(monitor.lanes) + ", one for each lane");
    for (std::size_t lane = 0; lane < monitor.lanes; ++lane)
        set_monitor(module, monitor.place + 2 * lane,
                    raw_value(node.value.IsArray() ? node.element(lane) : node, monitor, unit));
}

/// What a module made from nothing has until its members say otherwise.
void set_defaults(const node_t& node, module_t& module)
{
    const map_row_t& row = row_of(module.map);
    module.set_byte(identifier_place, row.identifier);
    constexpr std::string_view defaults[] = {"VIRTUAL", "VT-0000", "A", "VRT000000001", "260101"};
    const std::span<const text_field_t> texts = text_fields(module.map);
    for (std::size_t field = 0; field < texts.size(); ++field)
        set_text(module, texts[field], defaults[field]);
    constexpr std::uint8_t paged_identifier = 128; // repeats byte 0
    constexpr std::uint8_t sfp_by_two_wire = 0x04;
    constexpr std::uint8_t interrupt_not_asserted = 0x02;
    if (module.map == memory_map_t::sfp) {
        module.set_byte(1, sfp_by_two_wire);
        module.set_byte(calibration_place, calibrations[1].byte);
    } else {
        module.set_byte(paged_identifier, row.identifier);
    }
    if (module.map == memory_map_t::qsfp) {
        constexpr std::uint8_t revision_2_10 = 0x08;
        module.set_byte(1, revision_2_10);
        module.set_byte(2, interrupt_not_asserted);
    }
    if (module.map == memory_map_t::cmis) {
        constexpr std::uint8_t revision_4_0 = 0x40;
        module.set_byte(1, revision_4_0);
        module.set_byte(3, 0x07); // ready, interrupt not asserted
        const auto flat = node.member("flat");
        if (!flat || !flat->value.GetBool())
            for (const auto& [name, offset, bit] : advertisements)
                set_bits(module, upper(advertising_page, offset), bit, bit);
    }
}

/// Whether a monitor of a module made from nothing has a value that nobody gave it.
bool measures(const module_t& module, const monitor_t& monitor)
{
    const map_row_t& row = row_of(module.map);
    if (module.map == memory_map_t::sfp)
        return module.byte(calibration_place) != 0;
    if ((module.byte(row.flat_byte) & row.flat_bit) != 0)
        return false;
    if (module.map == memory_map_t::qsfp)
        return true;
    const auto* const advertisement =
        std::ranges::find_if(advertisements, [&](const auto& candidate) { return candidate.name == monitor.member; });
    return (module.byte(upper(advertising_page, advertisement->offset)) & advertisement->bit) != 0;
}

/// Reads an object of the schema's "module" over what the module is already.
void read_fields(const node_t& node, module_t& module, bool is_new)
{
    if (is_new)
        set_defaults(node, module);
    const map_row_t& row = row_of(module.map);
    std::vector<const checksum_t*> right;
    for (const checksum_t& checksum : row.checksums)
        if (is_new || sum_of(module, checksum) == module.byte(checksum.place))
            right.push_back(&checksum);

    if (const auto identifier = node.member("identifier")) {
        module.set_byte(identifier_place, static_cast<std::uint8_t>(read_number(*identifier)));
        if (module.map != memory_map_t::sfp)
            module.set_byte(block_size, module.byte(identifier_place));
    }
    for (const text_field_t& field : text_fields(module.map))
        if (const auto text = node.member(field.member))
            read_text_field(*text, field, module);
    read_map_fields(node, module);
    const auto bytes = node.member("bytes");
    std::set<std::size_t> spelt_out;
    if (bytes)
        spelt_out = read_bytes(*bytes, module); // monitors may depend on them
    for (const monitor_t& monitor : row.monitors) {
        if (const auto value = node.member(monitor.member))
            read_monitor(*value, monitor, module);
        else if (is_new && measures(module, monitor))
            for (std::size_t lane = 0; lane < monitor.lanes; ++lane)
                set_monitor(module, monitor.place + 2 * lane,
                            static_cast<std::uint16_t>(std::lround(monitor.by_default / unit_of(monitor, module))));
    }
    if (bytes)
        read_bytes(*bytes, module);
    for (const checksum_t* checksum : right)
        if (module.has_block(checksum->place / block_size) && !spelt_out.contains(checksum->place))
            module.set_byte(checksum->place, sum_of(module, *checksum));
}

/// The halves of a module that are always there.
void complete(module_t& module)
{
    module.blocks[0];
    module.blocks[1];
    if (module.map == memory_map_t::sfp && (module.has_block(2) || module.has_block(3))) {
        module.blocks[2];
        module.blocks[3];
    }
}

std::optional<memory_map_t> read_map(const node_t& node)
{
    const auto map = node.member("map");
    if (!map)
        return std::nullopt;
    return std::ranges::find(maps, map->text(), &map_row_t::name)->map;
}

/// A module from its own members alone.
module_t read_whole_module(const node_t& node)
{
    const auto memory = node.member("memory");
    const auto map = read_map(node);
    if (!map)
        node.expected(R"(a member "map": "sfp", "qsfp" or "cmis")");
    module_t module;
    module.map = *map;
    if (const auto captured = node.member("captured")) {
        if (!memory)
            captured->expected("no such member without memory");
        module.captured = captured->value.GetBool();
    }
    if (memory)
        read_memory(*memory, module);
    read_fields(node, module, !memory);
    return module;
}

/// Reads a file that a cage names. What is wrong with it is the cage's mistake.
template <class Read>
auto read_other_file(const node_t& node, const fs::path& file, std::string& text, Read read)
{
    try {
        const std::string contents = read_file(file);
        text += '\n' + contents;
        return read(contents);
    } catch (const file_error& error) {
        mistake(node.file, node.pointer, error.what());
    }
}

module_t read_named_module(const node_t& node, std::string& text)
{
    const std::string name = std::string{node.patterned_text()} + ".json";
    std::error_code ignored;
    fs::path file = node.file.parent_path() / "modules" / name;
    if (!fs::exists(file, ignored))
        file = racks_folder() / "modules" / name;
    if (!fs::exists(file, ignored))
        node.expected("a module: there is no modules/" + name +
                      " beside the rack, nor among the racks that come with the platform");
    return read_other_file(node, file, text, [&](const std::string& contents) {
        const rapidjson::Document document = read_document(contents, file, document_t::module);
        return read_whole_module({document, "", file});
    });
}

// ---- dumps ----

/// A module that dumps make.
struct captured_t
{
    module_t module;
    fs::path file; ///< the last one
    std::size_t last_line = 0;
    std::set<std::size_t> repeated; ///< blocks that were page 00h again: the module does not have these pages
};

/// "line 7" of a dump, or nothing of a binary one.
std::string line_text(std::size_t line)
{
    return line == 0 ? "" : "line " + std::to_string(line);
}

/// What a rack calls the part of a module that a dump is: as the members of "memory", but pages in small letters.
dump_label_t read_page(const node_t& node)
{
    dump_label_t label;
    const std::string_view name = node.patterned_text();
    if (name == "A0" || name == "A2") {
        label.device = name == "A0" ? module_device : diagnostics_device;
    } else {
        label.is_upper = name != "lower";
        if (*label.is_upper)
            label.page = static_cast<std::uint8_t>(parse_digits(name, 16));
    }
    return label;
}

/// The number of a block; nothing when modules here have no such one.
std::optional<unsigned> block_of(const dump_place_t& place, memory_map_t map)
{
    if (map == memory_map_t::sfp && place.page == 0 && place.bank == 0)
        return (place.device == module_device ? 0U : 2U) + (place.is_upper ? 1U : 0U);
    if (map == memory_map_t::sfp || place.device != module_device || place.bank != 0)
        return std::nullopt;
    return place.is_upper ? place.page + 1U : 0U;
}

/// A dump that a cage names: its member "dump", or an element of that.
dump_t read_dump_file(const node_t& cage, const node_t& dump, std::optional<memory_map_t> map, std::string& text,
                      fs::path& file)
{
    const std::string path = read_text(dump);
    if (path.empty() || path.find('\0') != std::string::npos)
        dump.expected("the path of a file");
    file = dump.file.parent_path() / path;
    const auto page = cage.member("page");
    const dump_hint_t hint{map, page ? std::optional{read_page(*page)} : std::nullopt};
    return read_other_file(dump, file, text, [&](const std::string& contents) {
        try {
            return read_dump(contents, hint);
        } catch (const dump_error& error) {
            mistake(file, line_text(error.line), error.what());
        }
    });
}

captured_t read_dumps(const node_t& cage, const node_t& dump, std::optional<memory_map_t> map, std::string& text)
{
    captured_t captured;
    std::map<dump_place_t, dump_page_t> pages;
    for (std::size_t at = 0; at < (dump.value.IsArray() ? dump.size() : 1); ++at) {
        const node_t part = dump.value.IsArray() ? dump.element(at) : cage;
        const dump_t read = read_dump_file(part, part.required("dump"), map, text, captured.file);
        captured.last_line = read.last_line;
        for (const auto& [place, page] : read.pages)
            if (const auto [other, is_new] = pages.insert({place, page}); !is_new && other->second.bytes != page.bytes)
                mistake(cage.file, part.pointer,
                        captured.file.string() + ": " + line_text(page.line) + ": expected " + text_of(place) +
                            " once, or the same again");
    }
    const auto lower = pages.find({});
    if (lower == pages.end())
        dump.expected("the lower page, or A0h, among the dumps");
    module_t& module = captured.module;
    module.captured = true;
    const std::uint8_t identifier = lower->second.bytes.front();
    module.map = map ? *map : map_of(identifier).value_or(memory_map_t::qsfp);
    for (const auto& [place, page] : pages) {
        const auto block = block_of(place, module.map);
        if (!block)
            dump.expected("no " + text_of(place) + ": of modules with identifier 0x" + hex_pair(identifier) +
                          " there is none here");
        module.blocks[*block] = page.bytes;
    }
    if (module.map != memory_map_t::sfp && module.has_block(1))
        std::erase_if(module.blocks, [&](const auto& block) {
            const bool is_repeated = block.first > 1 && block.second == module.blocks.at(1);
            if (is_repeated)
                captured.repeated.insert(block.first);
            return is_repeated;
        });
    return captured;
}

/// A part of a module that has to be there while bits of a byte have a value.
struct advertised_t
{
    memory_map_t map;
    std::size_t byte;
    std::uint8_t mask, value;
    std::size_t block;
    const char* what;
};

// clang-format off
constexpr advertised_t advertised[] = {
    {memory_map_t::sfp,  calibration_place, 0x44, 0x40, 2, R"(A2h, as byte 92 says that the module measures ("calibration": "none" beside the dump says otherwise))"},
    {memory_map_t::qsfp, 0, 0x00, 0x00, 1,                        "page 00h"},
    {memory_map_t::qsfp, 2, 0x04, 0x00, 0x03 + 1,                 R"(page 03h, as byte 2 says that there is one ("flat": true beside the dump says otherwise))"},
    {memory_map_t::cmis, 0, 0x00, 0x00, 1,                        "page 00h"},
    {memory_map_t::cmis, 2, 0x80, 0x00, advertising_page + 1,     R"(page 01h, as byte 2 says that there is one ("flat": true beside the dump says otherwise))"},
    {memory_map_t::cmis, 2, 0x80, 0x00, threshold_page + 1,       R"(page 02h, as byte 2 says that there is one ("flat": true beside the dump says otherwise))"},
    {memory_map_t::cmis, 2, 0x80, 0x00, lane_page + 1,            R"(page 11h, as byte 2 says that there is one ("flat": true beside the dump says otherwise))"},
};
// clang-format on

/// What a dump lacks is a mistake: nobody knows what the module would have said there.
void check_advertised(const node_t& node, const captured_t& captured)
{
    const module_t& module = captured.module;
    for (const advertised_t& row : advertised) {
        const bool is_there = module.has_block(row.block) || captured.repeated.contains(row.block);
        if (row.map == module.map && (module.byte(row.byte) & row.mask) == row.value && !is_there)
            node.expected(row.what + std::string{", which is not in "} + captured.file.string() +
                          (captured.last_line == 0 ? "" : " up to its " + line_text(captured.last_line)));
    }
}

} // namespace

module_t read_module(const node_t& node, std::string& text)
{
    module_t module;
    if (node.value.IsString()) {
        module = read_named_module(node, text);
    } else {
        const auto name = node.member("module");
        const auto dump = node.member("dump");
        for (const char* member : {"memory", "captured"})
            if (const auto other = node.member(member); other && (name || dump))
                other->expected("no " + std::string{member} + " beside a module or a dump");
        if (name && dump)
            dump->expected("no dump beside a module");
        if (const auto map = node.member("map"); name && map)
            map->expected("no map beside a module, which has one");
        if (const auto page = node.member("page"); page && (!dump || dump->value.IsArray()))
            page->expected(dump ? "no page beside a list of dumps, in which each can have one"
                                : "no page without a dump");
        if (dump) {
            captured_t captured = read_dumps(node, *dump, read_map(node), text);
            read_fields(node, captured.module, false);
            check_advertised(*dump, captured);
            module = captured.module;
        } else if (name) {
            module = read_named_module(*name, text);
            read_fields(node, module, false);
        } else {
            module = read_whole_module(node);
        }
    }
    complete(module);
    return module;
}

} // namespace ivra::virtual_platform
