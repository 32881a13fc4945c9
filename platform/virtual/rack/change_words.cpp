#include "rack/change_words.h"

#include "rack/changes.h"
#include "json/names.h"
#include "json/text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;

using words_t = std::vector<std::string>;

[[noreturn]] void expected(const std::string& what)
{
    throw change_error{"expected " + what};
}

/// "there are A, B", and first those that `name` may be a slip of.
std::string there_are(const std::vector<std::string>& known, const std::string& name)
{
    std::vector<std::string_view> names = json::close_names(known, name);
    for (const std::string& other : known)
        if (std::ranges::find(names, other) == names.end())
            names.emplace_back(other);
    std::string list;
    for (const std::string_view other : names)
        list += (list.empty() ? "there are " : ", ") + printable(other);
    return list.empty() ? "there are none" : list;
}

/// One change on its way.
struct change_t
{
    accelerator_t& board;
    const change_context_t& context;
    std::vector<std::string> remarks{};

    /// Reads what is said over a value, with the codec of racks.
    template <class T, class Codec>
    void read(T& value, const json::value_t& said, const Codec& as)
    {
        const std::filesystem::path nowhere;
        json::reading reading{nowhere, context.folders, json::remarks_t::wanted};
        as.read(json::node_t{said, reading}, value);
        if (reading.has_mistake())
            throw change_error{std::string{reading.mistake_found()}};
        std::ranges::move(reading.remark_texts(), std::back_inserter(remarks));
    }

    bmc_t& bmc() const
    {
        if (!board.bmc)
            expected("a board with a BMC");
        return *board.bmc;
    }
    std::vector<xmc_t>& xmcs() const
    {
        if (board.xmcs.empty())
            expected("a board with a card management controller");
        return board.xmcs;
    }
};

// ---- quantities ----

enum class quantity_kind_t
{
    celsius,
    fahrenheit,
    kelvin,
    volts,
    amperes,
    watts,
    joules,
    rpm,
    hertz
};

struct unit_word_t
{
    std::string_view word;
    quantity_kind_t kind;
    double scale; ///< base units that it is
    std::string_view example{};
};

using enum quantity_kind_t;

// clang-format off
constexpr unit_word_t unit_words[] = { // the first word of each kind is the one that is asked for
    {"C",         celsius,    1, "85 C"},
    {"°C",        celsius,    1},
    {"degrees C", celsius,    1},
    {"F",         fahrenheit, 1, "185 F"},
    {"°F",        fahrenheit, 1},
    {"degrees F", fahrenheit, 1},
    {"K",         kelvin,     1, "358 K"},
    {"V",         volts,      1, "0.9 V"},
    {"mV",        volts,      1e-3},
    {"A",         amperes,    1, "1.5 A"},
    {"mA",        amperes,    1e-3},
    {"W",         watts,      1, "75 W"},
    {"mW",        watts,      1e-3},
    {"J",         joules,     1, "10 J"},
    {"rpm",       rpm,        1, "1200 rpm"},
    {"RPM",       rpm,        1},
    {"Hz",        hertz,      1, "100 Hz"},
    {"kHz",       hertz,      1e3},
    {"MHz",       hertz,      1e6},
};

constexpr struct { std::uint8_t code; quantity_kind_t kind; } ipmi_units[] = { // IPMI 2.0, table 43-15
    {1, celsius}, {2, fahrenheit}, {3, kelvin}, {4, volts}, {5, amperes}, {6, watts}, {7, joules}, {18, rpm}, {19, hertz},
};

constexpr struct { xmc_unit_t unit; quantity_kind_t kind; double steps; } xmc_units[] = { // steps to a base unit
    {xmc_unit_t::millivolts,   volts,   1000},
    {xmc_unit_t::milliamperes, amperes, 1000},
    {xmc_unit_t::milliwatts,   watts,   1000},
    {xmc_unit_t::celsius,      celsius, 1},
    {xmc_unit_t::rpm,          rpm,     1},
};
// clang-format on

/// The number that a text begins with, and takes it; nothing when there is none.
std::optional<double> take_number(std::string_view& text)
{
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || !std::isfinite(value))
        return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
}

/// A number and its unit, in the base unit of the kind; without a kind a number alone.
double quantity(const std::string& text, std::optional<quantity_kind_t> kind, const std::string& also)
{
    std::string_view rest = text;
    const std::optional<double> value = take_number(rest);
    if (rest.starts_with(' '))
        rest.remove_prefix(1);
    const auto* const unit = std::ranges::find(unit_words, rest, &unit_word_t::word);
    if (value && kind && unit != std::end(unit_words) && unit->kind == *kind)
        return *value * unit->scale;
    if (value && !kind && rest.empty())
        return *value;
    if (!kind)
        expected("a number in the sensor's own unit, such as 1200" + also);
    const auto* const usual = std::ranges::find(unit_words, *kind, &unit_word_t::kind);
    expected("a number and its unit, such as \"" + std::string{usual->example} + '"' + also);
}

std::string value_text(double value, std::optional<quantity_kind_t> kind)
{
    if (!kind)
        return short_number(value);
    return short_number(value) + ' ' + std::string{std::ranges::find(unit_words, *kind, &unit_word_t::kind)->word};
}

std::string joined(words_t::const_iterator begin, words_t::const_iterator end)
{
    std::string text;
    for (auto word = begin; word != end; ++word)
        text += (text.empty() ? "" : " ") + *word;
    return text;
}

// ---- sensors ----

constexpr std::string_view unavailable = "unavailable";

/// The unit of a BMC's sensor by which people say its value; nothing: it has a stranger one.
std::optional<quantity_kind_t> kind_of(const bmc_sensor_t& sensor)
{
    const auto* const row =
        std::ranges::find_if(ipmi_units, [&](const auto& candidate) { return candidate.code == sensor.unit; });
    const bool is_plain = sensor.modifier == 0 && sensor.rate == 0 && !sensor.percent;
    return is_plain && row != std::end(ipmi_units) ? std::optional{row->kind} : std::nullopt;
}

void change_sensor(change_t& change, bmc_sensor_t& sensor, const std::string& value)
{
    json::object_t said{{"name", codec::text::write(sensor.name)}};
    if (value == unavailable)
        said.push_back({"available", {false}});
    else
        said.push_back({"value", {quantity(value, kind_of(sensor), ", or unavailable")}});
    change.read(sensor, {std::move(said)}, bmc_sensor_codec);
}

/// The current value; the maximum is at least that, and the average stays as it is.
void change_sensor(change_t& change, xmc_t& xmc, const xmc_sensor_row_t& row, const std::string& value)
{
    if (value == unavailable)
        expected("a value, as a card management controller has one for every sensor");
    const auto* const unit =
        std::ranges::find_if(xmc_units, [&](const auto& candidate) { return candidate.unit == row.unit; });
    const double base = quantity(value, unit->kind, "");
    const double steps = std::round(base * unit->steps);
    if (!(steps >= 0 && steps <= UINT32_MAX))
        expected("a value from 0 to " + value_text(UINT32_MAX / unit->steps, unit->kind) +
                 ", as its register has 32 bits");
    if (const double shown = steps / unit->steps; std::fabs(shown - base) > 1e-9 * std::fabs(base))
        change.remarks.push_back(value + " reads as " + value_text(shown, unit->kind) +
                                 ", the nearest that its register can say");
    const auto sensor = std::ranges::find(xmc.sensors, row.name, &xmc_sensor_t::name);
    if (sensor == xmc.sensors.end())
        return; // another XMC of the board has it
    sensor->values[0] = static_cast<std::uint32_t>(steps);
    sensor->values[2] = std::max(sensor->values[2], sensor->values[0]);
}

/// The BMC's sensors of a name, or the one of a record ID such as 0x1f.
std::vector<bmc_sensor_t*> bmc_sensors_called(bmc_t& bmc, const std::string& name)
{
    std::vector<bmc_sensor_t*> found;
    for (bmc_sensor_t& sensor : bmc.sensors)
        if (is_sensor(sensor) && sensor.name == name)
            found.push_back(&sensor);
    const std::vector<std::uint16_t> ids = record_ids(bmc.sensors);
    for (std::size_t at = 0; at < ids.size() && found.empty(); ++at)
        if (is_sensor(bmc.sensors[at]) && hex_text(ids[at]) == name)
            found.push_back(&bmc.sensors[at]);
    return found;
}

std::string record_list(const bmc_t& bmc, const std::string& name)
{
    const std::vector<std::uint16_t> ids = record_ids(bmc.sensors);
    std::string list;
    for (std::size_t at = 0; at < ids.size(); ++at)
        if (is_sensor(bmc.sensors[at]) && bmc.sensors[at].name == name)
            list += (list.empty() ? "" : ", ") + hex_text(ids[at]);
    return list;
}

void sensor_value(change_t& change, const words_t& words)
{
    accelerator_t& board = change.board;
    const std::string& name = words[1];
    const std::string value = joined(words.begin() + 2, words.end());
    const auto of_bmc = board.bmc ? bmc_sensors_called(*board.bmc, name) : std::vector<bmc_sensor_t*>{};
    const auto* const row = std::ranges::find(xmc_sensor_rows, name, &xmc_sensor_row_t::name);
    const bool is_of_xmc = row != xmc_sensor_rows.end() && !board.xmcs.empty();
    if (of_bmc.size() > 1)
        expected("the record ID of one of the sensors of this name: " + record_list(*board.bmc, name));
    if (!of_bmc.empty() && is_of_xmc)
        expected("the record ID " + record_list(*board.bmc, name) + ", as both controllers have a sensor of this name");
    if (!of_bmc.empty())
        return change_sensor(change, *of_bmc.front(), value);
    std::vector<std::string> known;
    for (const xmc_t& xmc : board.xmcs)
        for (const xmc_sensor_t& other : xmc.sensors)
            if (std::ranges::find(known, other.name) == known.end())
                known.emplace_back(other.name);
    const bool has_one = is_of_xmc && std::ranges::find(known, name) != known.end();
    if (board.bmc)
        for (const bmc_sensor_t& other : board.bmc->sensors)
            if (is_sensor(other))
                known.push_back(other.name);
    if (!has_one)
        expected("a sensor of the board; " + there_are(known, name));
    for (xmc_t& xmc : board.xmcs)
        change_sensor(change, xmc, *row, value);
}

std::string value_text(const bmc_sensor_t& sensor)
{
    if (sensor.response)
        return "a response of its own";
    return sensor.available ? value_text(sensor.value.value_or(sensor_value(sensor, sensor.raw)), kind_of(sensor))
                            : std::string{unavailable};
}

void tell_sensors(const xmc_t& original, const xmc_t& now, std::vector<std::string>& lines)
{
    for (std::size_t at = 0; at < now.sensors.size(); ++at) {
        const xmc_sensor_t& sensor = now.sensors[at];
        const auto* const row = std::ranges::find(xmc_sensor_rows, sensor.name, &xmc_sensor_row_t::name);
        const auto* const unit =
            std::ranges::find_if(xmc_units, [&](const auto& candidate) { return candidate.unit == row->unit; });
        const auto text = [&](std::uint32_t steps) { return value_text(steps / unit->steps, unit->kind); };
        if (const auto& before = original.sensors.at(at); before != sensor)
            lines.push_back("sensor " + std::string{sensor.name} + ' ' + text(sensor.values[0]) + ", not " +
                            text(before.values[0]));
    }
}

void tell_sensors(const bmc_t& original, const bmc_t& now, std::vector<std::string>& lines)
{
    for (std::size_t at = 0; at < now.sensors.size(); ++at)
        if (const auto& before = original.sensors.at(at); before != now.sensors[at])
            lines.push_back("sensor " + printable(now.sensors[at].name) + ' ' + value_text(now.sensors[at]) + ", not " +
                            value_text(before));
}

// ---- modules ----

cage_t& cage_of(const change_t& change, const std::string& number)
{
    std::vector<cage_t>& cages = change.board.i2c.cages;
    const bool is_number =
        !number.empty() && number.size() < 4 && number.find_first_not_of("0123456789") == number.npos;
    const std::uint64_t place = is_number ? parse_digits(number, 10) : UINT64_MAX;
    if (cages.empty())
        expected("a board with cages");
    if (place >= cages.size())
        expected("the number of a cage, 0 to " + std::to_string(cages.size() - 1));
    return cages[place];
}

struct monitor_unit_t
{
    std::string_view word;
    std::string_view monitors; ///< that have it
    double scale;              ///< of the unit that racks have
};

// clang-format off
constexpr monitor_unit_t monitor_units[] = {
    {"",          "temperature vcc rx_power tx_power tx_bias", 1},
    {"C",         "temperature",       1},
    {"°C",        "temperature",       1},
    {"degrees C", "temperature",       1},
    {"V",         "vcc",               1},
    {"mV",        "vcc",               1e-3},
    {"mW",        "rx_power tx_power", 1},
    {"uW",        "rx_power tx_power", 1e-3},
    {"W",         "rx_power tx_power", 1e3},
    {"mA",        "tx_bias",           1},
    {"A",         "tx_bias",           1e3},
};
// clang-format on

std::string monitor_expectation(const std::string& monitor)
{
    std::string units;
    for (const monitor_unit_t& unit : monitor_units)
        if (!unit.word.empty() && unit.monitors.find(monitor) != std::string_view::npos)
            units += (units.empty() ? "" : ", ") + std::string{unit.word};
    return "numbers, with or without one of the units " + units;
}

/// One value, or several, one for each lane, with a unit behind the last one.
json::value_t monitor_values(const std::string& monitor, const std::string& text)
{
    std::string_view rest = text;
    json::list_t values;
    for (;;) {
        const std::optional<double> value = take_number(rest);
        if (!value)
            break;
        values.push_back({*value});
        if (rest.starts_with(' '))
            rest.remove_prefix(1);
    }
    const auto* const unit = std::ranges::find(monitor_units, rest, &monitor_unit_t::word);
    const bool has_unit = unit != std::end(monitor_units) && unit->monitors.find(monitor) != std::string_view::npos;
    if (values.empty() || !has_unit)
        expected(monitor_expectation(monitor));
    for (json::value_t& value : values)
        value = {*value.as<double>() * unit->scale};
    return values.size() == 1 ? values.front() : json::value_t{std::move(values)};
}

void module_monitor(change_t& change, const words_t& words)
{
    cage_t& cage = cage_of(change, words[1]);
    if (!cage.module)
        expected("a cage with a module, which " + words[1] + " is not");
    const std::string& monitor = words[2];
    const words_t monitors{monitor_members.begin(), monitor_members.end()};
    if (std::ranges::find(monitors, monitor) == monitors.end())
        expected("a monitor; " + there_are(monitors, monitor));
    const bool is_limit = std::ranges::find(limit_names, words[3]) != limit_names.end();
    json::value_t value = monitor_values(monitor, joined(words.begin() + (is_limit ? 4 : 3), words.end()));
    if (is_limit) {
        value = {json::object_t{{words[3], std::move(value)}}};
        value = {json::object_t{{"limits", {json::object_t{{monitor, std::move(value)}}}}}};
    } else {
        value = {json::object_t{{monitor, std::move(value)}}};
    }
    change.read(*cage.module, value, monitors_codec);
}

/// What is in the cage from now on; nobody has touched it.
void put_into(change_t& change, cage_t& cage, const json::value_t& what)
{
    change.read(cage, what, cage_codec);
    cage.plugged = change.context.number;
}

void unplug(change_t& change, const words_t& words)
{
    put_into(change, cage_of(change, words[1]), {std::string{"empty"}});
}

void plug(change_t& change, const words_t& words)
{
    const std::string module = joined(words.begin() + 2, words.end());
    cage_t& cage = cage_of(change, words[1]);
    try {
        put_into(change, cage,
                 module.starts_with('{') ? json::parse(module, "MODULE", "a module") : json::value_t{module});
    } catch (const file_error& error) {
        throw change_error{error.what()};
    }
}

/// Whether it is the same one by what it says of itself.
bool is_same_module(const module_t& module, const module_t& other)
{
    return module.map == other.map && std::ranges::all_of(text_fields(module.map), [&](const text_field_t& field) {
               return text_of(module, field) == text_of(other, field);
           });
}

void tell_cages(const i2c_t& original, const i2c_t& now, std::vector<std::string>& lines)
{
    for (std::size_t at = 0; at < now.cages.size(); ++at) {
        const cage_t& before = original.cages.at(at);
        const cage_t& cage = now.cages[at];
        if (cage.module == before.module && cage.acknowledges == before.acknowledges)
            continue;
        const std::string number = std::to_string(at);
        if (!cage.module)
            lines.push_back("unplug " + number);
        else if (before.module && is_same_module(*cage.module, *before.module))
            lines.push_back("module " + number + " with other values");
        else
            lines.push_back("plug " + number + " with another module");
    }
}

// ---- the rest ----

/// Which of two words it is.
bool is_first(const std::string& word, const char* first, const char* second)
{
    if (word != first && word != second)
        expected(std::string{first} + " or " + second);
    return word == first;
}

void power_good(change_t& change, const words_t& words)
{
    const bool is_good = is_first(words[1], "good", "bad");
    for (xmc_t& xmc : change.xmcs())
        xmc.power_good = is_good;
}

void ready(change_t& change, const words_t& words)
{
    if (words[1] != "after")
        expected("ready after TIME");
    duration_t time;
    change.read(time, {joined(words.begin() + 2, words.end())}, codec::duration);
    for (xmc_t& xmc : change.xmcs()) {
        xmc.ready_after = {time, time};
        xmc.restarted_at = change.context.now;
    }
}

void silent(change_t& change, const words_t& words)
{
    change.bmc().silent = is_first(words[1], "on", "off");
}

/// A member of the BMC as a rack says it.
void bmc_member(change_t& change, const char* member, const std::string& value)
{
    change.read(change.bmc(), {json::object_t{{member, {value}}}}, bmc_codec);
}

void boot_image_next(change_t& change, const words_t& words)
{
    bmc_member(change, "boot_image", words[1]);
    change.bmc().boot_image_change = change.context.number;
}

void configured_from(change_t& change, const words_t& words)
{
    bmc_member(change, "configured_from", words[1]);
}

void fpga_temperature(change_t& change, const words_t& words)
{
    change.board.fpga.temperature = quantity(joined(words.begin() + 1, words.end()), celsius, "");
}

void undo(change_t& change, const words_t&)
{
    change.board = undone(change.context.original, change.board, change.context.number);
}

/// An image by its name, or in hexadecimal.
std::string image_text(std::span<const code_name_t> names, std::uint8_t code)
{
    const auto row = std::ranges::find(names, code, &code_name_t::value);
    return row == names.end() ? "0x" + hex_pair(code) : std::string{row->name};
}

void tell_members(const accelerator_t& original, const accelerator_t& now, std::vector<std::string>& lines)
{
    if (now.fpga.temperature != original.fpga.temperature)
        lines.push_back("fpga-temperature " + value_text(now.fpga.temperature, celsius) + ", not " +
                        value_text(original.fpga.temperature, celsius));
    if (!now.xmcs.empty()) {
        const xmc_t& xmc = now.xmcs.front();
        const xmc_t& before = original.xmcs.at(0);
        if (xmc.power_good != before.power_good)
            lines.push_back(xmc.power_good ? "power-good good" : "power-good bad");
        if (xmc.restarted_at != before.restarted_at)
            lines.push_back("ready after " +
                            (xmc.ready_after[1] ? duration_text(*xmc.ready_after[1]) : std::string{"never"}));
    }
    if (!now.bmc)
        return;
    const bmc_t& before = original.bmc.value();
    if (now.bmc->silent != before.silent)
        lines.push_back(now.bmc->silent ? "silent on" : "silent off");
    if (now.bmc->boot_image_change != 0)
        lines.push_back("boot-image " + image_text(boot_images, now.bmc->boot_image));
    if (now.bmc->configured_from != before.configured_from)
        lines.push_back("configured-from " + image_text(configurations, now.bmc->configured_from) + ", not " +
                        image_text(configurations, before.configured_from));
}

// ---- all ----

struct change_row_t
{
    std::string_view name, arguments, summary;
    std::size_t fewest, most; ///< words behind the name
    void (*make)(change_t& change, const words_t& words);
};

constexpr std::size_t any_number = SIZE_MAX;

// clang-format off
constexpr change_row_t change_rows[] = {
    {"sensor", "NAME VALUE", "what a sensor measures: 85 C, 0.9 V, 1200 rpm, or\n"
                             "unavailable, of a BMC; NAME may be a record ID", 2, any_number, &sensor_value},
    {"module", "CAGE MONITOR [LIMIT] VALUE...",
                             "\nwhat a module measures, or a limit of that:\n"
                             "module 0 temperature 78 C\n"
                             "module 0 temperature high_alarm 75 C\n"
                             "module 0 rx_power 0.5 0.4 0.1 0.6 mW\n"
                             "MONITOR: temperature, vcc, rx_power, tx_power,\n"
                             "tx_bias; LIMIT: high_alarm, low_alarm,\n"
                             "high_warning, low_warning", 3, any_number, &module_monitor},
    {"unplug", "CAGE", "take the module out of a cage, counted from 0", 1, 1, &unplug},
    {"plug", "CAGE MODULE", "put a module into a cage, as a rack says it", 2, any_number, &plug},
    {"power-good", "good|bad", "what an XMC says of the power", 1, 1, &power_good},
    {"ready", "after TIME", "an XMC starts again, and is ready then, or never", 2, any_number, &ready},
    {"silent", "on|off", "whether a BMC answers nothing", 1, 1, &silent},
    {"boot-image", "IMAGE", "what a BMC boots next: primary, backup, none", 1, 1, &boot_image_next},
    {"configured-from", "IMAGE", "what it says that the FPGA was configured from", 1, 1, &configured_from},
    {"fpga-temperature", "VALUE", "of the FPGA's die, as its design says it", 1, any_number, &fpga_temperature},
    {"reset", "", "undo all changes of the board", 0, 0, &undo},
};
// clang-format on

} // namespace

static std::string usage_of(const change_row_t& row)
{
    return std::string{row.name} + (row.arguments.empty() ? "" : " ") + std::string{row.arguments};
}

std::vector<std::string> make_change(accelerator_t& board, const std::vector<std::string>& words,
                                     const change_context_t& context)
{
    std::vector<std::string> names;
    for (const change_row_t& row : change_rows)
        if (names.empty() || names.back() != row.name)
            names.emplace_back(row.name);
    const std::string name = words.empty() ? "" : words.front();
    const auto* const row = std::ranges::find(change_rows, name, &change_row_t::name);
    if (row == std::end(change_rows))
        throw no_change_error{"expected what to change; " + there_are(names, name)};
    if (words.size() <= row->fewest || words.size() - 1 > row->most)
        throw no_change_error{"expected " + usage_of(*row)};
    accelerator_t changed = board;
    change_t change{changed, context};
    row->make(change, words);
    board = std::move(changed);
    return std::move(change.remarks);
}

std::vector<std::string> told_changes(const accelerator_t& original, const accelerator_t& board)
{
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < board.xmcs.size(); ++at)
        tell_sensors(original.xmcs.at(at), board.xmcs[at], lines);
    if (board.bmc)
        tell_sensors(original.bmc.value(), *board.bmc, lines);
    tell_cages(original.i2c, board.i2c, lines);
    tell_members(original, board, lines);
    return lines;
}

std::string known_changes()
{
    constexpr std::size_t column = 30;
    std::string text;
    for (const change_row_t& row : change_rows) {
        std::string line = "  " + usage_of(row);
        line.resize(std::max(line.size(), column), ' ');
        std::string_view rest = row.summary;
        for (std::size_t end = 0; end != std::string_view::npos;) {
            end = rest.find('\n');
            text += line + std::string{rest.substr(0, end)} + '\n';
            rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
            line.assign(column, ' ');
        }
    }
    return text;
}

} // namespace ivra::virtual_platform
