#include "devices/module/config.h"

#include "devices/module/captured.h"
#include "json/describe.h"
#include "json/names.h"
#include "json/text.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iterator>
#include <map>
#include <span>
#include <utility>
#include <vector>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;
namespace fs = std::filesystem;

/// Where a 16-bit monitor of every lane lies, and its limits.
struct monitor_t
{
    const char* member;
    std::size_t place, limits;
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

constexpr std::size_t advertising_page = 0x01;
constexpr std::size_t threshold_page = 0x02;
constexpr std::size_t qsfp_threshold_page = 0x03;
constexpr double celsius = 1.0 / 256;  // degrees
constexpr double volts = 0.0001;       // 100 uV
constexpr double milliwatts = 0.0001;  // 0.1 uW
constexpr double milliamperes = 0.002; // 2 uA

// clang-format off
constexpr monitor_t sfp_monitors[] = { // SFF-8472, tables 9-16 and 9-5
    {"temperature", a2(96),  a2(0),  celsius,      1, true,  false, 32.5},
    {"vcc",         a2(98),  a2(8),  volts,        1, false, false, 3.3},
    {"tx_bias",     a2(100), a2(16), milliamperes, 1, false, true,  6.5},
    {"tx_power",    a2(102), a2(24), milliwatts,   1, false, false, 0.6},
    {"rx_power",    a2(104), a2(32), milliwatts,   1, false, false, 0.5},
};
constexpr monitor_t qsfp_monitors[] = { // SFF-8636, tables 6-8, 6-9 and 6-28
    {"temperature", 22, upper(qsfp_threshold_page, 128), celsius,      1, true,  false, 32.5},
    {"vcc",         26, upper(qsfp_threshold_page, 144), volts,        1, false, false, 3.3},
    {"rx_power",    34, upper(qsfp_threshold_page, 176), milliwatts,   4, false, false, 0.5},
    {"tx_bias",     42, upper(qsfp_threshold_page, 184), milliamperes, 4, false, true,  6.5},
    {"tx_power",    50, upper(qsfp_threshold_page, 192), milliwatts,   4, false, false, 0.6},
};
constexpr monitor_t cmis_monitors[] = { // CMIS, lower page, page 11h and page 02h
    {"temperature", 14,                    upper(threshold_page, 128), celsius,      1, true,  false, 32.5},
    {"vcc",         16,                    upper(threshold_page, 136), volts,        1, false, false, 3.3},
    {"tx_power",    upper(lane_page, 154), upper(threshold_page, 176), milliwatts,   8, false, false, 0.6},
    {"tx_bias",     upper(lane_page, 170), upper(threshold_page, 184), milliamperes, 8, false, true,  6.5},
    {"rx_power",    upper(lane_page, 186), upper(threshold_page, 192), milliwatts,   8, false, false, 0.5},
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
constexpr codec::name_t<std::uint8_t> calibrations[] = {
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

// ---- what a rack or a file says of a module ----

/// Values of a monitor: one for all lanes, or one for each.
struct lanes_t
{
    bool is_list = false;
    std::vector<double> values;
};

struct named_bytes_t
{
    std::string name, bytes;
};

struct dump_part_t
{
    std::string file;
    std::optional<std::string> page;
};

struct dumps_t
{
    bool is_list = false;
    std::vector<dump_part_t> parts;
};

constexpr std::size_t text_count = 5;
constexpr std::size_t monitor_count = monitor_members.size(); // in the order in which a description has them
constexpr const char* text_members[text_count] = {"vendor_name", "vendor_pn", "vendor_rev", "vendor_sn", "date_code"};

constexpr std::size_t limit_count = limit_names.size(); // in the order in which every map has them

/// The limits of one monitor.
struct limits_t
{
    std::array<std::optional<double>, limit_count> values;
};

/// The limits of all monitors, in the order of their names.
struct all_limits_t
{
    std::array<std::optional<limits_t>, monitor_count> of;
};

struct module_said_t
{
    std::optional<memory_map_t> map;
    std::vector<named_bytes_t> memory;
    bool captured = false;
    std::optional<std::uint8_t> identifier;
    std::array<std::optional<std::string>, text_count> texts;
    std::optional<std::uint8_t> calibration;
    std::optional<bool> flat, low_power_pin;
    std::vector<std::string_view> advertises;
    std::optional<unsigned> bias_multiplier;
    std::array<std::optional<lanes_t>, monitor_count> monitors;
    all_limits_t limits;
    std::vector<named_bytes_t> bytes;
};

struct cage_said_t
{
    std::optional<std::string> module;
    std::optional<dumps_t> dump;
    std::optional<std::string> page;
    module_said_t other;
};

/// An object of bytes by names that the map of the module tells apart.
struct bytes_by_name
{
    const char* what;

    std::string sentence() const { return what; }
    void read(const json::node_t& node, std::vector<named_bytes_t>& bytes) const
    {
        const auto* members = node.as<json::object_t>();
        if (members == nullptr)
            return node.expected(what);
        for (const json::member_t& member : *members)
            value.read(node.below(member), bytes.emplace_back(named_bytes_t{member.name, {}}).bytes);
    }
    json::value_t write(const std::vector<named_bytes_t>& bytes) const
    {
        json::object_t members;
        for (const auto& [name, values] : bytes)
            members.push_back({name, value.write(values)});
        return {std::move(members)};
    }
    json::value_t schema() const
    {
        return codec::schema_of(what, {"object"}, {{"additionalProperties", value.schema()}});
    }

    static constexpr codec::hex value{4096};
};

struct lanes_codec_t
{
    static std::string sentence() { return "a number of milliwatts or milliamperes, or a list with one for each lane"; }
    static void read(const json::node_t& node, lanes_t& lanes)
    {
        lanes.is_list = node.as<json::list_t>() != nullptr;
        if (lanes.is_list)
            list.read(node, lanes.values);
        else
            codec::real{list.what}.read(node, lanes.values.emplace_back());
    }
    static json::value_t write(const lanes_t& lanes) { return list.write(lanes.values); }
    static json::value_t schema() { return codec::widened(list.schema(), sentence(), "number"); }

private:
    static constexpr codec::list list{"a number of milliwatts or milliamperes, or a list with one for each lane",
                                      codec::real{"a number"}, 8, 1};
};
constexpr lanes_codec_t lanes_codec;

/// A monitor of the whole module.
struct single
{
    codec::real value;

    std::string sentence() const { return value.sentence(); }
    void read(const json::node_t& node, lanes_t& lanes) const { value.read(node, lanes.values.emplace_back()); }
    json::value_t write(const lanes_t& lanes) const { return value.write(lanes.values.front()); }
    json::value_t schema() const { return value.schema(); }
};

bool is_name(std::string_view text)
{
    constexpr std::string_view first = "abcdefghijklmnopqrstuvwxyz0123456789";
    constexpr std::string_view others = "abcdefghijklmnopqrstuvwxyz0123456789_-";
    constexpr std::size_t longest = 63;
    return !text.empty() && text.size() <= longest && first.find(text[0]) != std::string_view::npos &&
           text.find_first_not_of(others) == std::string_view::npos;
}

const json::object_t& name_rule()
{
    static const json::object_t rule{{"pattern", {std::string{"^[a-z0-9][a-z0-9_-]*$"}}},
                                     {"maxLength", {std::uint64_t{63}}}};
    return rule;
}

constexpr struct
{
    static std::string sentence() { return "the name of a module, of letters a to z, digits, - and _"; }
    static void read(const json::node_t& node, std::string& name)
    {
        const auto* text = node.as<std::string>();
        if (text == nullptr || !is_name(*text))
            node.expected(sentence());
        else
            name = *text;
    }
    static json::value_t write(const std::string& name) { return {name}; }
    static json::value_t schema() { return codec::schema_of(sentence(), {"string"}, name_rule()); }
} module_name;

/// As the members of "memory", but pages in small letters.
constexpr struct
{
    static std::string sentence()
    {
        return "the page that a dump is: lower, 00 to ff in small letters, or of an SFP A0 or A2";
    }
    static void read(const json::node_t& node, std::string& page)
    {
        constexpr std::string_view digits = "0123456789abcdef";
        const auto* text = node.as<std::string>();
        const bool is_page =
            text != nullptr && text->size() == 2 && text->find_first_not_of(digits) == std::string::npos;
        if (is_page || (text != nullptr && (*text == "lower" || *text == "A0" || *text == "A2")))
            page = *text;
        else
            node.expected(sentence());
    }
    static json::value_t write(const std::string& page) { return {page}; }
    static json::value_t schema()
    {
        return codec::schema_of(sentence(), {"string"},
                                {{"pattern", {std::string{"^(lower|[0-9a-f][0-9a-f]|A0|A2)$"}}}});
    }
} dump_page;

constexpr codec::name_t<memory_map_t> map_names[] = {
    {"sfp", memory_map_t::sfp}, {"qsfp", memory_map_t::qsfp}, {"cmis", memory_map_t::cmis}};
constexpr codec::name_t<std::string_view> monitor_names[] = {{"temperature", "temperature"},
                                                             {"vcc", "vcc"},
                                                             {"rx_power", "rx_power"},
                                                             {"tx_power", "tx_power"},
                                                             {"tx_bias", "tx_bias"}};

/// 1, 2 or 4.
constexpr struct
{
    static std::string sentence() { return "1, 2 or 4"; }
    static void read(const json::node_t& node, unsigned& value)
    {
        const auto* number = node.as<std::uint64_t>();
        if (number == nullptr || (*number != 1 && *number != 2 && *number != 4))
            node.expected(sentence());
        else
            value = static_cast<unsigned>(*number);
    }
    static json::value_t write(unsigned value) { return {std::uint64_t{value}}; }
    static json::value_t schema()
    {
        json::list_t values;
        for (const std::uint64_t value : {1U, 2U, 4U})
            values.push_back({value});
        return {json::object_t{{"description", {sentence()}}, {"enum", {std::move(values)}}}};
    }
} multiplier;

void describe(auto& visit, dump_part_t& part)
{
    visit.required("dump", part.file, codec::long_text);
    visit("page", part.page, codec::given{dump_page});
}

void describe(auto& visit, limits_t& limits)
{
    for (std::size_t at = 0; at < limit_count; ++at)
        visit(limit_names.at(at), limits.values.at(at),
              codec::given{codec::real{"a number of degrees Celsius, volts, milliwatts or milliamperes"}});
}

void describe(auto& visit, all_limits_t& limits)
{
    constexpr codec::record<limits_t> limits_of_one{
        R"({ "high_alarm": ..., "low_alarm": ..., "high_warning": ..., "low_warning": ... })"};
    for (std::size_t at = 0; at < monitor_count; ++at)
        visit(monitor_members.at(at), limits.of.at(at), codec::given{limits_of_one});
}

void describe(auto& visit, module_said_t& said)
{
    using codec::given;
    visit("map", said.map, given{codec::names<memory_map_t>{map_names}});
    visit(
        "memory", said.memory,
        bytes_by_name{R"(the whole memory: { "lower": "1107...", "00": ... }, or of an SFP { "A0": ..., "A2": ... })"});
    visit("captured", said.captured, codec::flag);
    visit("identifier", said.identifier, given{codec::byte});
    for (std::size_t at = 0; at < text_count; ++at)
        visit(text_members[at], said.texts.at(at), given{codec::text{16}});
    visit("calibration", said.calibration, given{codec::names<std::uint8_t>{calibrations}});
    visit("flat", said.flat, given{codec::flag});
    visit("low_power_pin", said.low_power_pin, given{codec::flag});
    visit("advertises", said.advertises,
          codec::list{"a list of temperature, vcc, rx_power, tx_power and tx_bias",
                      codec::names<std::string_view>{monitor_names}, monitor_count});
    visit("bias_multiplier", said.bias_multiplier, given{multiplier});
    visit(monitor_members.at(0), said.monitors.at(0), given{single{{"a number of degrees Celsius"}}});
    visit(monitor_members.at(1), said.monitors.at(1), given{single{{"a number of volts"}}});
    for (std::size_t at = 2; at < monitor_count; ++at)
        visit(monitor_members.at(at), said.monitors.at(at), given{lanes_codec});
    visit("limits", said.limits,
          codec::record<all_limits_t>{R"(limits: { "temperature": { "high_alarm": 75, "low_alarm": -5, ... } })"});
    visit("bytes", said.bytes,
          bytes_by_name{R"(bytes by their place: { "26": "40", "01:160": "1f" }, or of an SFP { "A0:92": "68" })"});
}

constexpr codec::record<module_said_t> monitors{R"(what a module measures: { "temperature": 78, "limits": { ... } })"};

constexpr codec::record<module_said_t> module_file{
    R"(a module: { "map": "qsfp", "vendor_name": ..., "temperature": ... })"};

struct dumps_codec_t
{
    static std::string sentence() { return list.what; }
    static void read(const json::node_t& node, dumps_t& dumps)
    {
        dumps.is_list = node.as<json::list_t>() != nullptr;
        if (dumps.is_list)
            list.read(node, dumps.parts);
        else
            codec::long_text.read(node, dumps.parts.emplace_back().file);
    }
    static json::value_t write(const dumps_t& dumps) { return list.write(dumps.parts); }
    static json::value_t schema() { return codec::or_list(codec::long_text.schema(), sentence(), list.schema()); }

private:
    static constexpr codec::list list{R"(a file with the module's memory, or a list of { "dump": FILE, "page": "11" })",
                                      codec::record<dump_part_t>{R"({ "dump": FILE, "page": "11" })"}, 257, 1};
};
constexpr dumps_codec_t dumps_codec;

void describe(auto& visit, cage_said_t& said)
{
    visit("module", said.module, codec::given{module_name});
    visit("dump", said.dump, codec::given{dumps_codec});
    visit("page", said.page, codec::given{dump_page});
    describe(visit, said.other);
    for (const char* member : {"memory", "captured"})
        visit.check({member}, !visit.said(member) || !(said.module || said.dump),
                    [&] { return "no " + std::string{member} + " beside a module or a dump"; });
    visit.check({"dump"}, !said.module || !said.dump, "no dump beside a module");
    visit.check({"map"}, !said.module || !said.other.map, "no map beside a module, which has one");
    visit.check({"page"}, !said.page || said.dump, "no page without a dump");
    visit.check({"page"}, !said.page || !said.dump || !said.dump->is_list,
                "no page beside a list of dumps, in which each can have one");
}

constexpr codec::record<cage_said_t> cage_object{
    R"(a cage: a module such as "qsfp28-sr4" or { "module": "qsfp28-sr4", "temperature": 33 }, "empty" for one that reads as all ones, or "silent" for one that does not acknowledge)"};

/// What is wrong with a module is noted at one of its members.
class applier
{
public:
    applier(const json::node_t& node, const module_said_t& said, module_t& module)
        : node_{node}, said_{said}, module_{module}
    {
    }

    void set_memory();
    /// Sets what is said over what the module is already; a new one has defaults for the rest.
    void set_fields(bool is_new);

private:
    void set_defaults();
    std::vector<std::size_t> set_bytes();
    void set_map_fields();
    void set_monitor(const monitor_t& monitor, const lanes_t& lanes);
    void set_limits(const monitor_t& monitor, const limits_t& limits);
    bool set_value(const monitor_t& monitor, std::size_t place, double value, std::initializer_list<json::step_t> path);

    const json::node_t& node_;
    const module_said_t& said_;
    module_t& module_;
};

void set_bits(module_t& module, std::size_t place, std::uint8_t mask, std::uint8_t value)
{
    module.set_byte(place, static_cast<std::uint8_t>((module.byte(place) & ~mask) | (value & mask)));
}

void set_text(module_t& module, const text_field_t& field, std::string_view text)
{
    for (std::size_t at = 0; at < field.size; ++at)
        module.set_byte(field.place + at, at < text.size() ? static_cast<std::uint8_t>(text[at]) : std::uint8_t{' '});
}

void set_word(module_t& module, std::size_t place, std::uint16_t raw)
{
    module.set_byte(place, static_cast<std::uint8_t>(raw >> 8U));
    module.set_byte(place + 1, static_cast<std::uint8_t>(raw));
}

bool is_page(std::string_view name)
{
    return name.size() == 2 && name.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

/// Sum of a checksum's bytes, which are of one block; its lowest eight bits are kept.
std::uint8_t sum_of(const module_t& module, const checksum_t& checksum)
{
    unsigned sum = 0;
    const auto block = module.blocks.find(static_cast<unsigned>(checksum.first / block_size));
    for (std::size_t at = checksum.first; block != module.blocks.end() && at <= checksum.last; ++at)
        sum += block->second.at(at % block_size);
    return static_cast<std::uint8_t>(sum);
}

double unit_of(const monitor_t& monitor, const module_t& module)
{
    if (!monitor.is_bias || module.map != memory_map_t::cmis)
        return monitor.unit;
    const unsigned code = (module.byte(bias_multiplier_place) & bias_multiplier_mask) >> 3U;
    return monitor.unit * (code == 1 ? 2 : code == 2 ? 4 : 1);
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

void applier::set_memory()
{
    const bool is_sfp = module_.map == memory_map_t::sfp;
    for (const auto& [name, bytes] : said_.memory) {
        const auto expected = [&, &key = name](const std::string& what) {
            node_.expected_at({"memory", std::string_view{key}}, what);
        };
        const std::size_t size = is_sfp ? 2 * block_size : block_size;
        if (is_sfp && name != "A0" && name != "A2")
            return expected("a member of memory to be called A0 or A2, as of an SFP");
        if (!is_sfp && name != "lower" && !is_page(name))
            return expected("a member of memory to be called lower, or 00 to ff, as a page");
        if (bytes.size() > size)
            return expected("at most " + std::to_string(size) + " bytes");
        const std::size_t first = is_sfp            ? name == "A0" ? 0 : a2(0)
                                             : name == "lower" ? 0
                                                    : upper(parse_digits(name, 16), block_size);
        for (std::size_t at = 0; at < size; ++at)
            module_.set_byte(first + at, at < bytes.size() ? static_cast<std::uint8_t>(bytes[at]) : std::uint8_t{0});
    }
}

/// The place of "26" (lower page), "01:160" (page 01h), "A0:92" or "A2:110" (SFP); or what was expected.
std::optional<std::size_t> place_named(std::string_view name, memory_map_t map)
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
            return std::nullopt;
        return page == "A0" ? offset : a2(offset);
    }
    if (page.empty() && colon == std::string_view::npos && offset < block_size)
        return offset;
    if (!is_page(page) || offset < block_size || offset >= 2 * block_size)
        return std::nullopt;
    return upper(parse_digits(page, 16), offset);
}

/// Sets the bytes and returns their places.
std::vector<std::size_t> applier::set_bytes()
{
    std::vector<std::size_t> places;
    for (const auto& [name, bytes] : said_.bytes) {
        const auto expected = [&, &key = name](const std::string& what) {
            node_.expected_at({"bytes", std::string_view{key}}, what);
        };
        const auto first = place_named(name, module_.map);
        if (!first) {
            expected(module_.map == memory_map_t::sfp
                         ? "a byte of an SFP such as A0:92 or A2:110"
                         : "a byte such as 26 of the lower page (0 to 127), or 01:160 of page 01 (128 to 255)");
            return places;
        }
        // Bytes of one name stay within its page, or within A0h or A2h.
        const std::size_t span = module_.map == memory_map_t::sfp ? 2 * block_size : block_size;
        const std::size_t room = span - *first % span;
        if (bytes.size() > room) {
            expected("at most " + std::to_string(room) + " bytes, as the page ends there");
            return places;
        }
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            module_.set_byte(*first + at, static_cast<std::uint8_t>(bytes[at]));
            places.push_back(*first + at);
        }
    }
    return places;
}

/// Members that only modules of one map have.
void applier::set_map_fields()
{
    const map_row_t& row = row_of(module_.map);
    const bool is_cmis = module_.map == memory_map_t::cmis;
    const struct
    {
        const char* member;
        bool is_known;
    } rows[] = {
        {"calibration", module_.map == memory_map_t::sfp},
        {"flat", row.flat_bit != 0},
        {"low_power_pin", row.flat_bit != 0},
        {"advertises", is_cmis},
        {"bias_multiplier", is_cmis},
    };
    for (const auto& [member, is_known] : rows)
        if (!is_known && json::find(node_.value(), member) != nullptr)
            node_.expected_at({member}, "no such member for a module of the map " + std::string{row.name});
    if (said_.calibration)
        module_.set_byte(calibration_place, *said_.calibration);
    if (said_.flat)
        set_bits(module_, row.flat_byte, row.flat_bit, *said_.flat ? row.flat_bit : std::uint8_t{0});
    if (said_.low_power_pin)
        module_.low_power_pin = *said_.low_power_pin;
    if (is_cmis && json::find(node_.value(), "advertises") != nullptr)
        for (const auto& [name, offset, bit] : advertisements)
            set_bits(module_, upper(advertising_page, offset), bit,
                     std::ranges::count(said_.advertises, name) != 0 ? bit : std::uint8_t{0});
    if (is_cmis && said_.bias_multiplier)
        set_bits(module_, bias_multiplier_place, bias_multiplier_mask,
                 static_cast<std::uint8_t>(*said_.bias_multiplier / 2 << 3U)); // 1, 2, 4: code 0, 1, 2
}

void applier::set_monitor(const monitor_t& monitor, const lanes_t& lanes)
{
    if (lanes.is_list && lanes.values.size() != monitor.lanes)
        return node_.expected_at({monitor.member}, monitor.lanes == 1
                                                       ? "one number"
                                                       : "a number, or a list of " + std::to_string(monitor.lanes) +
                                                             ", one for each lane");
    for (std::size_t lane = 0; lane < monitor.lanes; ++lane)
        if (!set_value(monitor, monitor.place + 2 * lane, lanes.values.at(lanes.is_list ? lane : 0),
                       {monitor.member, lane}))
            return;
}

/// Puts the nearest raw value at a place, or notes a mistake.
bool applier::set_value(const monitor_t& monitor, std::size_t place, double value,
                        std::initializer_list<json::step_t> path)
{
    const double unit = unit_of(monitor, module_);
    const double least = monitor.is_signed ? -32768 : 0;
    const double most = monitor.is_signed ? 32767 : 65535;
    const double steps = std::round(value / unit);
    if (!(steps >= least && steps <= most)) {
        node_.expected_at(path, "a number from " + short_number(least * unit) + " to " + short_number(most * unit));
        return false;
    }
    set_word(module_, place, static_cast<std::uint16_t>(static_cast<std::int32_t>(steps)));
    return true;
}

/// Limits that are not said stay as they are. They rise, or there are no warnings, as SFF-8636 allows.
void applier::set_limits(const monitor_t& monitor, const limits_t& limits)
{
    const auto step = [&](std::size_t limit) {
        const std::size_t place = monitor.limits + 2 * limit;
        const auto raw = static_cast<std::uint16_t>(module_.byte(place) << 8U | module_.byte(place + 1));
        return monitor.is_signed ? std::int32_t{static_cast<std::int16_t>(raw)} : std::int32_t{raw};
    };
    const bool has_limits = step(0) != 0 || step(1) != 0 || step(2) != 0 || step(3) != 0;
    if (!has_limits && !std::ranges::all_of(limits.values, [](const auto& value) { return value.has_value(); }))
        return node_.expected_at(
            {"limits", monitor.member},
            "high_alarm, low_alarm, high_warning and low_warning, as the module has none of them yet");
    for (std::size_t limit = 0; limit < limit_count; ++limit)
        if (const auto& value = limits.values.at(limit);
            value &&
            !set_value(monitor, monitor.limits + 2 * limit, *value, {"limits", monitor.member, limit_names.at(limit)}))
            return;
    const auto [high_alarm, low_alarm, high_warning, low_warning] = std::array{step(0), step(1), step(2), step(3)};
    const bool has_no_warnings = module_.map == memory_map_t::qsfp && high_warning == 0 && low_warning == 0;
    if (!(has_no_warnings ? low_alarm <= high_alarm
                          : low_alarm <= low_warning && low_warning <= high_warning && high_warning <= high_alarm))
        node_.expected_at({"limits", monitor.member},
                          "limits that rise in the order low_alarm, low_warning, high_warning, high_alarm");
}

/// What a module made from nothing has until its members say otherwise.
void applier::set_defaults()
{
    const map_row_t& row = row_of(module_.map);
    module_.set_byte(identifier_place, row.identifier);
    constexpr std::string_view defaults[text_count] = {"VIRTUAL", "VT-0000", "A", "VRT000000001", "260101"};
    const std::span<const text_field_t> texts = text_fields(module_.map);
    for (std::size_t field = 0; field < texts.size(); ++field)
        set_text(module_, texts[field], defaults[field]);
    constexpr std::uint8_t paged_identifier = 128; // repeats byte 0
    constexpr std::uint8_t sfp_by_two_wire = 0x04;
    constexpr std::uint8_t interrupt_not_asserted = 0x02;
    if (module_.map == memory_map_t::sfp) {
        module_.set_byte(1, sfp_by_two_wire);
        module_.set_byte(calibration_place, calibrations[1].value);
    } else {
        module_.set_byte(paged_identifier, row.identifier);
    }
    if (module_.map == memory_map_t::qsfp) {
        constexpr std::uint8_t revision_2_10 = 0x08;
        module_.set_byte(1, revision_2_10);
        module_.set_byte(2, interrupt_not_asserted);
    }
    if (module_.map == memory_map_t::cmis) {
        constexpr std::uint8_t revision_4_0 = 0x40;
        module_.set_byte(1, revision_4_0);
        module_.set_byte(3, 0x07); // ready, interrupt not asserted
        if (!said_.flat.value_or(false))
            for (const auto& [name, offset, bit] : advertisements)
                set_bits(module_, upper(advertising_page, offset), bit, bit);
    }
}

void applier::set_fields(bool is_new)
{
    if (is_new)
        set_defaults();
    const map_row_t& row = row_of(module_.map);
    std::vector<const checksum_t*> right;
    for (const checksum_t& checksum : row.checksums)
        if (is_new || sum_of(module_, checksum) == module_.byte(checksum.place))
            right.push_back(&checksum);

    if (said_.identifier) {
        module_.set_byte(identifier_place, *said_.identifier);
        if (module_.map != memory_map_t::sfp)
            module_.set_byte(block_size, *said_.identifier);
    }
    const std::span<const text_field_t> texts = text_fields(module_.map);
    for (std::size_t at = 0; at < text_count; ++at) {
        const auto& text = said_.texts.at(at);
        if (text && text->size() > texts[at].size)
            node_.expected_at({text_members[at]}, "at most " + std::to_string(texts[at].size) + " bytes");
        else if (text)
            set_text(module_, texts[at], *text);
    }
    set_map_fields();
    const std::vector<std::size_t> spelt_out = set_bytes(); // monitors may depend on them
    for (const monitor_t& monitor : row.monitors) {
        const auto* const name = std::ranges::find(monitor_members, std::string_view{monitor.member});
        const auto number = static_cast<std::size_t>(name - monitor_members.begin());
        const auto& lanes = said_.monitors.at(number);
        if (lanes)
            set_monitor(monitor, *lanes);
        else if (is_new && measures(module_, monitor))
            for (std::size_t lane = 0; lane < monitor.lanes; ++lane)
                set_word(module_, monitor.place + 2 * lane,
                         static_cast<std::uint16_t>(std::lround(monitor.by_default / unit_of(monitor, module_))));
        if (const auto& limits = said_.limits.of.at(number)) {
            set_limits(monitor, *limits);
            if (!measures(module_, monitor))
                node_.remark_at({"limits", monitor.member},
                                "hosts do not look for them, as the module does not say that it has them");
        }
    }
    set_bytes();
    for (const checksum_t* checksum : right)
        if (module_.has_block(checksum->place / block_size) && std::ranges::count(spelt_out, checksum->place) == 0)
            module_.set_byte(checksum->place, sum_of(module_, *checksum));
}

/// A module from its own members alone.
module_t whole_module(const json::node_t& node, const module_said_t& said)
{
    module_t module;
    if (!said.map)
        return node.expected(R"(a member "map": "sfp", "qsfp" or "cmis")"), module;
    module.map = *said.map;
    module.captured = said.captured;
    applier apply{node, said, module};
    const bool has_memory = json::find(node.value(), "memory") != nullptr;
    if (!has_memory && json::find(node.value(), "captured") != nullptr)
        node.expected_at({"captured"}, "no such member without memory");
    apply.set_memory();
    apply.set_fields(!has_memory);
    return module;
}

// ---- other files ----

/// Reads a file that a cage names. What is wrong with it is a mistake at the node.
template <class Read>
void read_other_file(const json::node_t& node, const fs::path& file, Read read)
{
    try {
        read(node.reading().open(file));
    } catch (const file_error& error) {
        node.note(node.value().place, error.what());
    }
}

/// The names of the modules that there are, and first those that `name` may be a slip of.
std::string other_names(const json::node_t& node, const std::string& name)
{
    const std::vector<std::string> known = json::names_in(node.reading().folders(), "modules");
    std::vector<std::string_view> names = json::close_names(known, name);
    const std::vector<std::string_view> close = names;
    for (const std::string& other : known)
        if (std::ranges::find(close, other) == close.end())
            names.emplace_back(other);
    std::string list;
    for (const std::string_view other : names)
        list += (list.empty() ? "" : ", ") + std::string{other};
    return list.empty() ? "none" : list;
}

module_t named_module(const json::node_t& node, const std::string& name)
{
    module_t module;
    const std::string file = "modules/" + name + ".json";
    const auto path = node.reading().find(file);
    if (!path)
        return node.expected("a module: there is no " + file +
                             " beside the rack, nor among the racks that come with the platform; there are " +
                             other_names(node, name)),
               module;
    read_other_file(node, *path, [&](const std::string& text) {
        const json::value_t document = json::parse(text, *path, module_file.what);
        json::reading reading{*path};
        const json::node_t top{document, reading};
        module_said_t said;
        module_file.read(top, said);
        if (!reading.has_mistake())
            module = whole_module(top, said);
        reading.finish();
    });
    return module;
}

/// Whether what is said is free of mistakes, so that it can be taken for a module.
bool is_good(const json::node_t& node)
{
    return !node.reading().is_beyond_mistake(node.value().end);
}

/// Reads a dump that a cage names; `node` is where it does so.
std::optional<capture_t> read_dump_file(const json::node_t& node, const dump_part_t& part,
                                        std::optional<memory_map_t> map)
{
    std::optional<capture_t> capture;
    if (part.file.empty() || part.file.find('\0') != std::string::npos)
        return node.expected("the path of a file"), capture;
    const dump_hint_t hint{map, part.page ? std::optional{label_of_page(*part.page)} : std::nullopt};
    const fs::path file = node.reading().folders().front() / part.file;
    read_other_file(node, file, [&](const std::string& text) { capture = read_capture(file, text, hint); });
    return capture;
}

/// A module from dumps, with what else its cage says; `node` is where they are named.
module_t read_dumps(const json::node_t& node, const json::node_t& cage, const dumps_t& dumps, const module_said_t& said)
{
    std::vector<capture_t> captures;
    const auto* elements = node.as<json::list_t>();
    for (std::size_t at = 0; at < dumps.parts.size(); ++at) {
        const json::node_t place = elements == nullptr ? node : node.below(*elements, at);
        const json::member_t* const name = json::find(place.value(), "dump");
        if (const auto capture = read_dump_file(elements == nullptr || name == nullptr ? place : place.below(*name),
                                                dumps.parts[at], said.map))
            captures.push_back(*capture);
    }
    captured_t captured;
    if (captures.size() != dumps.parts.size())
        return captured.module;
    try {
        captured = captured_module(captures, said.map);
        applier{cage, said, captured.module}.set_fields(false);
        check_advertised(captured);
    } catch (const file_error& error) {
        node.note(node.value().place, error.what());
    }
    return captured.module;
}

// ---- the module of a cage ----

module_t module_of(const json::node_t& node)
{
    if (const auto* name = node.as<std::string>())
        return named_module(node, *name);
    cage_said_t said;
    cage_object.read(node, said);
    if (!is_good(node))
        return {};
    if (said.dump) {
        const json::node_t place = node.below(*json::find(node.value(), "dump"));
        if (!said.dump->is_list)
            said.dump->parts.front().page = said.page;
        return read_dumps(place, node, *said.dump, said.other);
    }
    if (said.module) {
        module_t module = named_module(node.below(*json::find(node.value(), "module")), *said.module);
        if (is_good(node))
            applier{node, said.other, module}.set_fields(false);
        return module;
    }
    return whole_module(node, said.other);
}

/// Hexadecimal digits of blocks one after the other, without zeros at the end.
std::string block_bytes(const module_t& module, unsigned first, unsigned count)
{
    std::string bytes;
    for (std::size_t at = block_size * first; at < block_size * (first + count); ++at)
        bytes += static_cast<char>(module.byte(at));
    bytes.erase(bytes.find_last_not_of('\0') + 1);
    return bytes;
}

json::value_t memory_of(const module_t& module)
{
    const bool is_sfp = module.map == memory_map_t::sfp;
    json::object_t memory;
    for (const auto& [block, bytes] : module.blocks) {
        if (is_sfp && block % 2 != 0)
            continue; // the second half
        const std::string name = is_sfp       ? block == 0 ? "A0" : "A2"
                                 : block == 0 ? "lower"
                                              : hex_pair(static_cast<std::uint8_t>(block - 1));
        memory.push_back({name, bytes_by_name::value.write(block_bytes(module, block, is_sfp ? 2 : 1))});
    }
    return {std::move(memory)};
}

} // namespace

std::string cage_codec_t::sentence()
{
    return cage_object.what;
}

void cage_codec_t::read(const json::node_t& node, cage_t& cage)
{
    const auto* text = node.as<std::string>();
    if (text != nullptr && !is_name(*text))
        return node.expected(sentence());
    cage = {text == nullptr || *text != "silent", std::nullopt, cage.plugged};
    if (text != nullptr && (*text == "empty" || *text == "silent"))
        return;
    cage.module = module_of(node);
    complete(*cage.module);
}

json::value_t cage_codec_t::write(const cage_t& cage)
{
    if (!cage.module)
        return {std::string{cage.acknowledges ? "empty" : "silent"}};
    const module_t& module = *cage.module;
    json::object_t members{{"map", {std::string{row_of(module.map).name}}}};
    if (module.map != memory_map_t::sfp)
        members.push_back({"low_power_pin", {module.low_power_pin}});
    if (module.captured)
        members.push_back({"captured", {true}});
    members.push_back({"memory", memory_of(module)});
    return {std::move(members)};
}

std::string monitors_codec_t::sentence()
{
    return monitors.what;
}

void monitors_codec_t::read(const json::node_t& node, module_t& module)
{
    module_said_t said;
    monitors.read(node, said);
    if (is_good(node))
        applier{node, said, module}.set_fields(false);
}

json::value_t cage_codec_t::schema()
{
    json::value_t schema = codec::widened(cage_object.schema(), sentence(), "string");
    for (const json::member_t& rule : name_rule())
        std::get<json::object_t>(schema.content).push_back(rule);
    return schema;
}

} // namespace ivra::virtual_platform
