#include "rack/changes.h"

#include "json/describe.h"
#include "json/text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;

constexpr std::size_t most_steps = 65536;

/// Members by the places of the elements of a list that they change: { "3": ... }.
template <class Codec>
struct by_place
{
    const char* what;
    Codec codec;

    std::string sentence() const { return what; }
    template <class T>
    void read(const json::node_t& node, std::vector<T>& values) const
    {
        const auto* members = node.as<json::object_t>();
        if (members == nullptr)
            return node.expected(what);
        for (const json::member_t& member : *members) {
            constexpr std::size_t most_digits = 6;
            const bool is_number = !member.name.empty() && member.name.size() <= most_digits &&
                                   member.name.find_first_not_of("0123456789") == std::string::npos;
            const std::uint64_t place = is_number ? parse_digits(member.name, 10) : UINT64_MAX;
            if (place >= values.size())
                return node.below(member).expected("the place of one of " + std::to_string(values.size()));
            codec.read(node.below(member), values[place]);
        }
    }
};

template <class Codec>
by_place(const char*, Codec) -> by_place<Codec>;

constexpr codec::whole change_number{"a number", 0, std::numeric_limits<std::int64_t>::max()};

/// Nanoseconds of device_time.
constexpr codec::whole nanoseconds{"a number of nanoseconds", std::numeric_limits<std::int64_t>::min(),
                                   std::numeric_limits<std::int64_t>::max()};

constexpr struct
{
    static std::string sentence() { return nanoseconds.sentence(); }
    static void read(const json::node_t& node, device_time& value)
    {
        std::int64_t count = value.count();
        nanoseconds.read(node, count);
        value = device_time{count};
    }
    static json::value_t write(device_time value) { return codec::whole::write(value.count()); }
} device_moment;

} // namespace

/// What is in it may name no file: it is all there.
static void describe(auto& visit, cage_t& cage)
{
    visit("holds", cage, cage_codec);
    visit("plugged", cage.plugged, change_number);
}

namespace {

/// What can change of a board.
struct changeable_t
{
    accelerator_t board;
};

/// How many sensors each controller has, which never changes.
std::vector<std::size_t> sensor_counts(const accelerator_t& board)
{
    std::vector<std::size_t> counts;
    for (const xmc_t& xmc : board.xmcs)
        counts.push_back(xmc.sensors.size());
    if (board.bmc)
        counts.push_back(board.bmc->sensors.size());
    return counts;
}

void describe(auto& visit, changeable_t& changeable)
{
    accelerator_t& board = changeable.board;
    const std::vector<std::size_t> counts = sensor_counts(board);
    visit("fpga_temperature", board.fpga.temperature, codec::real{"a number of degrees Celsius"});
    visit("xmcs", board.xmcs, by_place{R"(XMCs by their places: { "0": ... })", xmc_codec});
    device_time restarted_at = board.xmcs.empty() ? device_time::min() : board.xmcs.front().restarted_at;
    visit("xmcs_restarted_at", restarted_at, device_moment);
    for (xmc_t& xmc : board.xmcs)
        xmc.restarted_at = restarted_at;
    visit("cages", board.i2c.cages,
          by_place{R"(cages by their places: { "0": ... })",
                   codec::record<cage_t>{R"(what is in a cage: { "holds": ..., "plugged": 1 })"}});
    if (board.bmc) {
        visit("bmc", *board.bmc, bmc_codec);
        visit("boot_image_change", board.bmc->boot_image_change, change_number);
        visit("bmc_sensors", board.bmc->sensors,
              by_place{R"(sensors by their places: { "3": ... })", bmc_sensor_codec});
    }
    visit.check({}, sensor_counts(board) == counts, "no sensors beside those that there are");
}

constexpr codec::record<changeable_t> changeable{R"(what has changed of a board: { "xmcs": ..., "bmc": ... })"};

/// A difference that is read later, or not at all.
constexpr struct
{
    static std::string sentence() { return changeable.what; }
    static void read(const json::node_t& node, json::value_t& value)
    {
        if (node.as<json::object_t>() == nullptr)
            node.expected(sentence());
        else
            value = node.value();
    }
    static json::value_t write(const json::value_t& value) { return value; }
} unread;

} // namespace

static void describe(auto& visit, changes_t::step_t& step)
{
    visit.required("at", step.at, device_moment);
    visit.required("difference", step.difference, unread);
}

namespace {

/// As it stands in the file.
struct text_t
{
    device_time made_at{};
    json::value_t difference{json::object_t{}};
    std::vector<changes_t::step_t> to_come;
};

void describe(auto& visit, text_t& text)
{
    visit.required("made_at", text.made_at, device_moment);
    visit.required("difference", text.difference, unread);
    visit.required("to_come", text.to_come,
                   codec::list{"a list of at most 65536 changes",
                               codec::record<changes_t::step_t>{R"({ "at": ..., "difference": ... })"}, most_steps});
    for (std::size_t at = 1; at < text.to_come.size(); ++at)
        visit.check({"to_come", at, "at"}, text.to_come[at].at >= text.to_come[at - 1].at,
                    "a time that is not before the one before it");
}

constexpr codec::record<text_t> text_codec{R"(changes: { "made_at": ..., "difference": ..., "to_come": ... })"};

/// The members of `to` that `from` has not, or has otherwise.
json::object_t differing_members(const json::value_t& from, const json::value_t& to)
{
    json::object_t differing;
    for (const json::member_t& member : std::get<json::object_t>(to.content)) {
        const json::member_t* const other = json::find(from, member.name);
        if (other == nullptr || json::compact(other->value) != json::compact(member.value))
            differing.push_back(member);
    }
    return differing;
}

void add_if_any(json::object_t& members, std::string name, json::object_t value)
{
    if (!value.empty())
        members.push_back({std::move(name), {std::move(value)}});
}

json::object_t xmc_difference(const xmc_t& from, const xmc_t& to)
{
    const json::value_t before = xmc_codec.write(from);
    json::object_t members = differing_members(before, xmc_codec.write(to));
    for (json::member_t& member : members)
        if (member.name == "sensors")
            member.value = {differing_members(json::find(before, "sensors")->value, member.value)};
    return members;
}

/// The name says for people which sensor it is.
json::object_t sensor_difference(const bmc_sensor_t& from, const bmc_sensor_t& to)
{
    if (from == to)
        return {};
    json::object_t members = differing_members(bmc_sensor_codec.write(from), bmc_sensor_codec.write(to));
    std::erase_if(members, [](const json::member_t& member) { return member.name == "name"; });
    members.insert(members.begin(), {"name", codec::text::write(to.name)});
    return members;
}

json::object_t cage_difference(const cage_t& from, const cage_t& to)
{
    json::object_t members;
    if (from.module != to.module || from.acknowledges != to.acknowledges)
        members.push_back({"holds", cage_codec.write(to)});
    if (from.plugged != to.plugged)
        members.push_back({"plugged", {to.plugged}});
    return members;
}

json::object_t bmc_difference(const bmc_t& from, const bmc_t& to)
{
    json::object_t members = differing_members(bmc_codec.write(from), bmc_codec.write(to));
    std::erase_if(members, [](const json::member_t& member) { return member.name == "sensors"; });
    return members;
}

} // namespace

json::value_t difference(const accelerator_t& from, const accelerator_t& to)
{
    json::object_t members;
    if (from.fpga.temperature != to.fpga.temperature)
        members.push_back({"fpga_temperature", codec::real::write(to.fpga.temperature)});
    json::object_t xmcs;
    for (std::size_t at = 0; at < to.xmcs.size(); ++at)
        if (from.xmcs.at(at) != to.xmcs[at])
            add_if_any(xmcs, std::to_string(at), xmc_difference(from.xmcs[at], to.xmcs[at]));
    add_if_any(members, "xmcs", std::move(xmcs));
    if (!to.xmcs.empty() && from.xmcs.front().restarted_at != to.xmcs.front().restarted_at)
        members.push_back({"xmcs_restarted_at", codec::whole::write(to.xmcs.front().restarted_at.count())});
    json::object_t cages;
    for (std::size_t at = 0; at < to.i2c.cages.size(); ++at)
        if (from.i2c.cages.at(at) != to.i2c.cages[at])
            add_if_any(cages, std::to_string(at), cage_difference(from.i2c.cages[at], to.i2c.cages[at]));
    add_if_any(members, "cages", std::move(cages));
    if (to.bmc && from.bmc != to.bmc) {
        add_if_any(members, "bmc", bmc_difference(from.bmc.value(), *to.bmc));
        if (from.bmc->boot_image_change != to.bmc->boot_image_change)
            members.push_back({"boot_image_change", {to.bmc->boot_image_change}});
        json::object_t sensors;
        for (std::size_t at = 0; at < to.bmc->sensors.size(); ++at)
            add_if_any(sensors, std::to_string(at), sensor_difference(from.bmc->sensors.at(at), to.bmc->sensors[at]));
        add_if_any(members, "bmc_sensors", std::move(sensors));
    }
    return {std::move(members)};
}

void apply_difference(accelerator_t& board, const json::value_t& difference, const std::filesystem::path& file)
{
    changeable_t over{std::move(board)};
    json::reading reading{file, {file.parent_path()}};
    changeable.read({difference, reading}, over);
    reading.finish();
    board = std::move(over.board);
}

accelerator_t undone(const accelerator_t& original, const accelerator_t& board, std::uint64_t number)
{
    accelerator_t undone = original;
    for (std::size_t at = 0; at < undone.i2c.cages.size(); ++at) {
        cage_t& cage = undone.i2c.cages[at];
        const cage_t& now = board.i2c.cages.at(at);
        cage.plugged = now.plugged;
        if (now.plugged != original.i2c.cages[at].plugged && cage != now)
            cage.plugged = number;
    }
    return undone;
}

std::string changes_text(const accelerator_t& original, const changes_t& changes, device_time now)
{
    json::value_t from_original = difference(original, changes.board);
    if (changes.to_come.empty() && std::get<json::object_t>(from_original.content).empty())
        return "";
    return json::compact(text_codec.write({now, std::move(from_original), changes.to_come}));
}

changes_t read_changes(const accelerator_t& original, std::string_view text, const std::filesystem::path& file,
                       device_time now)
{
    changes_t changes{original, {}};
    if (text.empty())
        return changes;
    text_t said;
    json::read(json::parse(text, file, text_codec.what), file, said, text_codec);
    apply_difference(changes.board, said.difference, file);
    for (changes_t::step_t& step : said.to_come)
        if (step.at <= now || now < said.made_at)
            apply_difference(changes.board, step.difference, file);
        else
            changes.to_come.push_back(std::move(step));
    return changes;
}

} // namespace ivra::virtual_platform
