#include "devices/bmc/config.h"

#include "json/text.h"

#include <algorithm>
#include <bitset>
#include <cmath>
#include <map>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;

// ---- words ----

// Source: IPMI 2.0 tables 43-1 (full sensor record) and 43-15 (units).
constexpr code_name_t unit_codes[] = {
    {"unspecified", 0}, {"degrees C", 1}, {"degrees F", 2}, {"K", 3},    {"V", 4},
    {"A", 5},           {"W", 6},         {"J", 7},         {"RPM", 18}, {"Hz", 19},
};
constexpr code_name_t formats[] = {{"unsigned", 0}, {"ones complement", 1}, {"twos complement", 2}, {"none", 3}};
constexpr code_name_t modifiers[] = {{"none", 0}, {"per", 1}, {"times", 2}, {"reserved", 3}};
constexpr code_name_t rates[] = {
    {"none", 0}, {"us", 1}, {"ms", 2}, {"s", 3}, {"min", 4}, {"h", 5}, {"day", 6}, {"reserved", 7},
};
constexpr code_name_t linearisations[] = {
    {"linear", 0}, {"ln", 1},  {"log10", 2}, {"log2", 3}, {"e", 4},     {"exp10", 5},
    {"exp2", 6},   {"1/x", 7}, {"sqr", 8},   {"cube", 9}, {"sqrt", 10}, {"cube root", 11},
};

constexpr codec::names<std::uint8_t> boot_image{boot_images, "", 8, true};
constexpr codec::names<std::uint8_t> configuration{configurations, "", 8, true};
constexpr codec::names<std::uint8_t> unit_word{unit_codes, "a unit", 8};
constexpr codec::names<std::uint8_t> format_word{formats, "how raw readings are coded"};
constexpr codec::names<std::uint8_t> modifier{modifiers, "how the second unit joins the first"};
constexpr codec::names<std::uint8_t> rate{rates, "the time that a rate is about"};
constexpr codec::names<std::uint8_t> linearisation{linearisations, "a function", 8};

// ---- bounds ----

constexpr std::size_t largest_fru_field = 63;   // bytes: 6 bits of length
constexpr std::size_t largest_fru_area = 2040;  // bytes: 8 bits of length, in units of 8
constexpr std::size_t largest_sensor_name = 63; // bytes: 6 bits of length
constexpr std::size_t largest_record = 260;     // bytes: 5 of header, and 8 bits of length
constexpr std::size_t largest_text = 1024;      // bytes that a rack can put in the place of an answer
constexpr std::size_t largest_fru = 65535;      // bytes: 16 bits of size
constexpr std::size_t largest_repository = std::size_t{1} << 20U;
constexpr std::size_t most_sensors = 1024;

constexpr codec::whole factor{"a whole number", -512, 511};
constexpr codec::whole power{"a whole number", -8, 7};
constexpr codec::or_null byte_or_null{codec::byte};
constexpr codec::or_null number_or_null{codec::code{codec::byte.what, 8, 0}};
constexpr codec::or_null fru_field_codec{codec::text{largest_fru_field}, "the end of the fields"};
constexpr codec::or_null any_bytes{codec::hex{largest_text}};
constexpr codec::or_null pieces{codec::list{"a list of at most 1024 numbers of bytes that successive reads give",
                                            codec::whole{"a number of bytes", 1, 64}, 1024}};

constexpr codec::code record_id_codec{"a record ID such as 2 or \"0x1f\"", 16};

// ---- files ----

/// The bytes of a file beside the rack.
struct file_codec
{
    const char* what;
    std::size_t most;

    std::string sentence() const { return what; }
    void read(const json::node_t& node, std::optional<std::string>& bytes) const
    {
        const auto* name = node.as<std::string>();
        if (name == nullptr || name->empty() || name->find('\0') != std::string::npos)
            return node.expected(what);
        try {
            bytes = node.reading().open(node.reading().folders().front() / *name);
        } catch (const file_error& error) {
            return node.note(node.value().place, error.what());
        }
        if (bytes->empty() || bytes->size() > most)
            node.expected(std::string{what} + ", of 1 to " + std::to_string(most) + " bytes");
    }
    json::value_t schema() const { return codec::schema_of(what, {"string"}, {{"minLength", {std::uint64_t{1}}}}); }
};

constexpr file_codec fru_file{"a file with the FRU's bytes", largest_fru};

// ---- bytes ----

/// Appends what makes the sum of all bytes 0.
void add_checksum(std::string& bytes)
{
    const unsigned sum = std::accumulate(
        bytes.begin(), bytes.end(), 0U, [](unsigned so_far, char c) { return so_far + static_cast<unsigned char>(c); });
    bytes += byte(0U - sum);
}

/// A type/length byte and the text. Deliberate: a single character goes as a binary field, as type 3 with length 1
/// would be the mark of the end.
std::string fru_field(const std::string& text)
{
    const auto size = static_cast<unsigned>(text.size());
    return byte(size == 1 ? 1U : 0xc0U | size) + text;
}

} // namespace

/// The last word about a reading counts, whatever the sensor had before it.
static void settle_reading(auto& visit, bmc_sensor_t& sensor)
{
    const bool is_said = visit.gives("value") || visit.gives("raw");
    if (visit.gives("raw") || visit.gives("response"))
        sensor.value.reset();
    if (visit.gives("value") || visit.gives("response"))
        sensor.raw = 0;
    if (is_said || visit.gives("available"))
        sensor.response.reset();
    if ((is_said || visit.gives("response")) && !visit.gives("available"))
        sensor.available = true;
}

static void describe(auto& visit, bmc_fru_t& fru)
{
    visit("manufacturer", fru.manufacturer, fru_field_codec);
    visit("product", fru.product, fru_field_codec);
    visit("serial", fru.serial, fru_field_codec);
    visit("part_number", fru.part_number, fru_field_codec);
    visit("file_id", fru.file_id, fru_field_codec);
    visit("extra", fru.extra,
          codec::list{"a list of at most 64 texts after the others", codec::text{largest_fru_field}, 64});
    visit("raw", fru.raw, codec::or_null{codec::hex{largest_fru, ", instead of all fields"}});
    visit.other_way("file", fru.raw, fru_file);
    visit.excludes("raw", {"file"});
    visit.check({}, fru.raw || fru_image(fru).size() <= largest_fru_area + 8,
                [&] { return "fields that fit into a board area of " + std::to_string(largest_fru_area) + " bytes"; });
    for (const char* field : {"manufacturer", "product", "serial", "part_number", "file_id"})
        visit.remark({field}, [&] {
            return fru.raw && visit.gives(field) ? "it is not served, as the whole FRU is given as bytes" : "";
        });
    if (fru.raw) {
        bmc_fru_t whole;
        whole.raw = std::move(fru.raw);
        fru = std::move(whole);
    }
}

static void describe(auto& visit, bmc_limits_t& limits)
{
    constexpr codec::or_null limit{codec::real{"a number in the sensor's unit"}, "no such limit"};
    constexpr codec::or_null hysteresis{codec::real{"a number in the sensor's unit"}};
    for (std::size_t at = 0; at < limit_members.size(); ++at)
        visit(limit_members.at(at), limits.values.at(at), limit);
    visit("positive_hysteresis", limits.positive_hysteresis, hysteresis);
    visit("negative_hysteresis", limits.negative_hysteresis, hysteresis);
}

/// What asks for one number and gets another one.
static std::string reads_as(double value, double read_value)
{
    const std::string asked = two_decimals(value);
    const std::string shown = two_decimals(read_value);
    return asked == shown ? "" : asked + " reads as " + shown + ", the nearest that the sensor can say";
}

static void check_hysteresis(auto& visit, const bmc_sensor_t& sensor, const char* name,
                             const std::optional<double>& hysteresis)
{
    if (!hysteresis)
        return;
    constexpr int most = 255; // counts
    const std::optional<double> step = hysteresis_step(sensor);
    const double counts = step ? std::round(*hysteresis / *step) : 0;
    visit.check({"limits", name}, step.has_value(),
                "no hysteresis of a sensor with a linearisation, whose steps differ");
    visit.check({"limits", name}, counts >= 0 && counts <= most, [&] {
        return "a hysteresis from 0 to " + short_number(most * step.value_or(0)) + ", which " + name + ' ' +
               short_number(*hysteresis) + " is not";
    });
    visit.remark({"limits", name}, [&] {
        return visit.gives({"limits", name}) ? reads_as(*hysteresis, counts * step.value_or(0)) : "";
    });
}

/// The limits rise in the order of their names. Each is a number that the sensor can read, or nearly so.
static void check_limits(auto& visit, const bmc_sensor_t& sensor)
{
    const bmc_limits_t& limits = *sensor.limits;
    constexpr std::uint8_t no_number = 3;
    const sensor_span_t span = sensor_span(sensor);
    const bool has_any = std::ranges::any_of(limits.values, [](const auto& limit) { return limit.has_value(); });
    visit.check({"limits"}, !has_any || (sensor.format != no_number && span.rises != span.falls),
                "no limits of a sensor whose value neither rises nor falls with its raw reading");
    const double slack = 1e-9 * std::max(std::fabs(span.lowest), std::fabs(span.highest)); // of the last digits
    std::optional<std::size_t> lower;
    for (std::size_t at = 0; at < limit_members.size(); ++at) {
        const char* const name = limit_members.at(at);
        if (!limits.values.at(at))
            continue;
        const double limit = *limits.values.at(at);
        visit.check({"limits", name}, limit >= span.lowest - slack && limit <= span.highest + slack, [&] {
            return "a limit that the sensor can say, from " + short_number(span.lowest) + " to " +
                   short_number(span.highest) + ", which " + name + ' ' + short_number(limit) + " is not";
        });
        if (lower)
            visit.check({"limits", visit.gives({"limits", name}) ? name : limit_members.at(*lower)},
                        *limits.values.at(*lower) <= limit, [&] {
                            return std::string{"limits that rise in their order, which "} + limit_members.at(*lower) +
                                   ' ' + short_number(*limits.values.at(*lower)) + " and " + name + ' ' +
                                   short_number(limit) + " do not";
                        });
        lower = at;
        visit.remark({"limits", name}, [&] {
            return visit.gives({"limits", name}) ? reads_as(limit, sensor_value(sensor, nearest_raw(sensor, limit)))
                                                 : "";
        });
    }
    check_hysteresis(visit, sensor, "positive_hysteresis", limits.positive_hysteresis);
    check_hysteresis(visit, sensor, "negative_hysteresis", limits.negative_hysteresis);
}

static void describe(auto& visit, bmc_sensor_t& sensor)
{
    // Bytes stand for all that they take the place of.
    const bool has_record = sensor.record.has_value();
    const bool has_response = sensor.response.has_value();
    const std::optional<double> value_before = sensor.value;
    visit("record", sensor.record, codec::or_null{codec::hex{largest_record}}, has_record);
    if (visit.gives("record") && sensor.record)
        sensor = sensor_of(*sensor.record);
    visit("name", sensor.name, codec::text{largest_sensor_name}, !has_record);
    visit("number", sensor.number, number_or_null, !has_record);
    visit("unit", sensor.unit, unit_word, !has_record);
    visit("response", sensor.response, codec::or_null{codec::hex{255}}, has_response);
    visit("value", sensor.value, codec::or_null{codec::real{"a number in the sensor's unit"}},
          !has_response && sensor.value);
    if (visit.said("value") && !visit.gives("value"))
        sensor.value = value_before; // null says nothing
    visit("raw", sensor.raw, number_or_null, !has_response && !sensor.value);
    visit("available", sensor.available, codec::flag, !has_response);
    visit("m", sensor.m, factor, !has_record);
    visit("b", sensor.b, factor, !has_record);
    visit("r_exp", sensor.r_exp, power, !has_record);
    visit("b_exp", sensor.b_exp, power, !has_record);
    visit("format", sensor.format, format_word, !has_record);
    visit("linearisation", sensor.linearisation, linearisation, !has_record);
    visit("modifier", sensor.modifier, modifier, !has_record);
    visit("modifier_unit", sensor.modifier_unit, unit_word, !has_record);
    visit("rate", sensor.rate, rate, !has_record);
    visit("percent", sensor.percent, codec::flag, !has_record);
    visit("limits", sensor.limits,
          codec::or_null{codec::record<bmc_limits_t>{
                             R"(the limits of a sensor: { "lower_critical": 10.8, "upper_critical": 13.2 })"},
                         "none"},
          sensor.limits.has_value());
    visit("id", sensor.id, codec::given{record_id_codec}, sensor.id.has_value());
    visit("next", sensor.next, codec::or_null{record_id_codec, "the true one"});

    visit.check({}, visit.gives("record") || visit.said("name"), "a member \"name\", or one \"record\"");
    visit.excludes("record", {"name"});
    for (const char* member : {"number", "unit", "modifier", "modifier_unit", "rate", "percent", "format",
                               "linearisation", "m", "b", "r_exp", "b_exp", "limits"})
        visit.check({member}, !sensor.record || !visit.gives(member),
                    visit.gives("record") ? "no such member beside \"record\""
                                          : "no such member, as the sensor's record says it");
    visit.check({"value"}, is_full(sensor) || !visit.gives("value"),
                "no such member beside a record that is no full sensor record");
    visit.excludes("response", {"value", "raw", "available"});
    visit.excludes("value", {"raw"});
    settle_reading(visit, sensor);
    visit.remark({"value"}, [&]() -> std::string {
        if (!visit.gives("value") || !sensor.value)
            return "";
        return reads_as(*sensor.value, sensor_value(sensor, raw_reading(sensor)));
    });
    if (sensor.limits)
        check_limits(visit, sensor);
}

static void describe(auto& visit, bmc_answer_t& answer)
{
    visit.required("to", answer.to, codec::hex{largest_text});
    visit("nth", answer.nth, codec::or_null{codec::whole{"a number", 1, UINT32_MAX}, "all of them"});
    visit("latency", answer.latency, codec::or_null{codec::duration});
    visit("code", answer.code, byte_or_null);
    visit("data", answer.data, any_bytes);
    visit("noise", answer.noise, codec::hex{largest_text});
    visit("frame", answer.frame, any_bytes);
    visit("lose", answer.lose,
          codec::list{"a list of at most 1024 positions of bytes that get lost, 0 to 4095",
                      codec::whole{"a position", 0, 4095}, 1024});
    visit("pieces", answer.pieces, pieces);
    visit.excludes("frame", {"code", "data"});
}

namespace {

/// A record whose ID a host cannot ask for.
struct bad_record_id_t
{
    std::size_t at;
    std::size_t earlier; ///< the one that has the ID already, or itself
    std::string expectation;
};

/// The first one of these records.
std::optional<bad_record_id_t> bad_record_id(const std::vector<bmc_sensor_t>& sensors)
{
    const std::vector<std::uint16_t> ids = record_ids(sensors);
    std::map<std::uint16_t, std::size_t> places;
    for (std::size_t at = 0; at < ids.size(); ++at) {
        if (ids[at] == last_record_id || (ids[at] == 0 && at != 0))
            return {
                {at, at,
                 "a record ID from 0x1 to 0xfffe, or 0x0 of the first one, which " + hex_text(ids[at]) + " is not"}};
        if (const auto [other, is_first] = places.emplace(ids[at], at); !is_first)
            return {{at, other->second, "a record ID that no other one has, which " + hex_text(ids[at]) + " is not"}};
    }
    return std::nullopt;
}

/// The records of another board. They take the place of all that there are.
struct repository_t
{
    std::optional<std::string> bytes;
};

void describe(auto& visit, repository_t& repository)
{
    visit.required(
        "file", repository.bytes,
        file_codec{"a file with sensor data records, as ipmitool's \"sdr dump\" writes one", largest_repository});
}

struct repository_codec : codec::record<repository_t>
{
    void read(const json::node_t& node, std::vector<bmc_sensor_t>& sensors) const
    {
        repository_t repository;
        record::read(node, repository);
        if (node.reading().is_beyond_mistake(node.value().end) || !repository.bytes)
            return;
        const json::node_t file = node.below(*json::find(node.value(), "file"));
        sensors.clear();
        try {
            for (std::string& bytes : split_records(*repository.bytes))
                sensors.push_back(sensor_of(std::move(bytes)));
        } catch (const std::runtime_error& error) {
            return file.note(file.value().place, error.what());
        }
        if (sensors.size() > most_sensors)
            file.expected("at most " + std::to_string(most_sensors) + " records, which " +
                          std::to_string(sensors.size()) + " are not");
        else if (const auto bad = bad_record_id(sensors))
            file.note(file.value().place, "record " + std::to_string(bad->at + 1) + ": expected " + bad->expectation);
    }
};
constexpr repository_codec repository_of_file{{R"(the records of a real board: { "file": "sdr.bin" })"}};

/// Sensors over those that there are: each changes the first of its name that none before it has changed, or is new.
struct sensors_codec
{
    static constexpr codec::list list{"a list of at most 1024 sensors", bmc_sensor_codec, most_sensors};

    static std::string sentence() { return list.what; }
    static void read(const json::node_t& node, std::vector<bmc_sensor_t>& sensors)
    {
        const auto* elements = node.as<json::list_t>();
        if (elements == nullptr || elements->size() > most_sensors)
            return node.expected(sentence());
        std::vector<std::optional<std::size_t>> element_of(sensors.size()); // which of them it is that changed it
        const bool has_sensors = !sensors.empty();
        for (std::size_t at = 0; at < elements->size(); ++at) {
            const json::node_t element = node.below(*elements, at);
            if (node.reading().is_beyond_mistake(element.value().place))
                return;
            const std::size_t place = place_of(element, sensors, element_of);
            if (place == sensors.size()) {
                if (has_sensors && json::find(element.value(), "name") != nullptr)
                    element.remark_at({"name"}, "a new sensor, as there is none of this name to change");
                element_of.emplace_back();
                const std::uint8_t number = new_number(sensors);
                sensors.emplace_back().number = number;
            }
            element_of[place] = at;
            list.codec.read(element, sensors[place]);
        }
        if (sensors.size() > most_sensors)
            return node.expected("at most " + std::to_string(most_sensors) + " sensors with those that there are");
        check(node, sensors, element_of);
    }
    static json::value_t write(const std::vector<bmc_sensor_t>& sensors) { return list.write(sensors); }
    static json::value_t schema() { return list.schema(); }

private:
    static std::size_t place_of(const json::node_t& element, const std::vector<bmc_sensor_t>& sensors,
                                const std::vector<std::optional<std::size_t>>& element_of)
    {
        const json::member_t* const member = json::find(element.value(), "name");
        std::string name;
        if (member == nullptr)
            return sensors.size();
        codec::text{largest_sensor_name}.read(element.below(*member), name);
        std::size_t place = 0;
        while (place < sensors.size() &&
               (element_of[place] || sensors[place].name != name || !is_sensor(sensors[place])))
            ++place;
        return place;
    }
    /// Its place from 1, or the next number that none of them has.
    static std::uint8_t new_number(const std::vector<bmc_sensor_t>& sensors)
    {
        std::bitset<256> taken;
        for (const bmc_sensor_t& sensor : sensors)
            if (is_sensor(sensor))
                taken.set(sensor.number);
        auto number = static_cast<std::uint8_t>(sensors.size() + 1);
        while (taken[number] && !taken.all())
            ++number;
        return number;
    }
    /// The element that a clash of two sensors is told of: the later one that gives the member or a record, or else the
    /// later one.
    static std::size_t clashing(const json::node_t& node, const std::vector<std::optional<std::size_t>>& element_of,
                                std::size_t later, std::size_t earlier, const char* member)
    {
        for (const std::optional<std::size_t>& element : {element_of[later], element_of[earlier]})
            if (element &&
                (!node.value_at({*element, member}).is_null() || !node.value_at({*element, "record"}).is_null()))
                return *element;
        return element_of[later].value_or(element_of[earlier].value_or(0));
    }
    /// No two sensors that were made from their members have one number, and no two records one ID.
    static void check(const json::node_t& node, const std::vector<bmc_sensor_t>& sensors,
                      const std::vector<std::optional<std::size_t>>& element_of)
    {
        if (node.reading().is_beyond_mistake(node.value().end))
            return;
        std::map<std::uint8_t, std::size_t> places;
        for (std::size_t at = 0; at < sensors.size(); ++at) {
            if (sensors[at].record)
                continue;
            const auto [other, is_first] = places.emplace(sensors[at].number, at);
            if (!is_first)
                node.expected_at({clashing(node, element_of, at, other->second, "number"), "number"},
                                 "a sensor number that no other sensor has, which " +
                                     std::to_string(sensors[at].number) + " is not");
        }
        if (const auto bad = bad_record_id(sensors))
            node.expected_at({clashing(node, element_of, bad->at, bad->earlier, "id"), "id"}, bad->expectation);
    }
};

/// The sensors of a board, and whether they are all.
struct sensors_t
{
    std::vector<bmc_sensor_t> sensors;
    bool only = false;
};

void describe(auto& visit, sensors_t& said)
{
    visit.required("only", said.only, codec::flag);
    if (visit.gives("only") && said.only)
        said.sensors.clear();
    visit.required("list", said.sensors, sensors_codec{});
}

struct sensors_or_only_codec
{
    static constexpr codec::record<sensors_t> object{
        R"(a list of at most 1024 sensors, over those that there are, or { "only": true, "list": [ ... ] } for no others)"};

    static std::string sentence() { return object.what; }
    static void read(const json::node_t& node, std::vector<bmc_sensor_t>& sensors)
    {
        if (node.as<json::list_t>() != nullptr)
            return sensors_codec::read(node, sensors);
        sensors_t said{std::move(sensors)};
        object.read(node, said);
        sensors = std::move(said.sensors);
    }
    static json::value_t write(const std::vector<bmc_sensor_t>& sensors) { return object.write({sensors, true}); }
    static json::value_t schema() { return codec::or_list(object.schema(), sentence(), sensors_codec::schema()); }
};
constexpr sensors_or_only_codec sensors_or_only;

} // namespace

static void describe(auto& visit, bmc_t& bmc)
{
    visit("latency", bmc.latency, codec::duration);
    visit("silent", bmc.silent, codec::flag);
    visit("boot_image", bmc.boot_image, boot_image);
    visit("configured_from", bmc.configured_from, configuration);
    visit("depth", bmc.depth, codec::whole{"a number of bytes", 1, 64});
    visit("pieces", bmc.pieces, pieces);
    visit("fru", bmc.fru,
          codec::record<bmc_fru_t>{R"(the FRU information: { "manufacturer": ..., "product": ..., "serial": ... })"});
    visit.other_way("records", bmc.sensors, repository_of_file);
    visit("sensors", bmc.sensors, sensors_or_only);
    visit("answers", bmc.answers,
          codec::list{
              "a list of at most 64 rules about answers",
              codec::record<bmc_answer_t>{R"(what is different about an answer: { "to": "0421", "code": "0xc0" })"},
              most_bmc_answers});

    const auto depth = [&] { return "at most " + std::to_string(bmc.depth) + ", the depth of the FIFO"; };
    for (std::size_t at = 0; at < bmc.pieces.size(); ++at)
        visit.check({"pieces", at}, bmc.pieces[at] <= bmc.depth, depth);
    for (std::size_t answer = 0; answer < bmc.answers.size(); ++answer)
        for (std::size_t at = 0; bmc.answers[answer].pieces && at < bmc.answers[answer].pieces->size(); ++at)
            visit.check({"answers", answer, "pieces", at}, (*bmc.answers[answer].pieces)[at] <= bmc.depth, depth);
}

std::string fru_image(const bmc_fru_t& fru)
{
    if (fru.raw)
        return *fru.raw;
    std::string fields;
    const auto add_all = [&] {
        for (const auto* const field : {&fru.manufacturer, &fru.product, &fru.serial, &fru.part_number, &fru.file_id}) {
            if (!*field)
                return;
            fields += fru_field(**field);
        }
        for (const std::string& field : fru.extra)
            fields += fru_field(field);
    };
    add_all();
    constexpr std::size_t begin = 6; // version, length, language, three bytes of date
    const std::size_t size = (begin + fields.size() + 2 + 7) / 8 * 8;
    std::string area;
    (area += byte(1)).append(1, byte(static_cast<unsigned>(size / 8))) += byte(25); // English
    area.append(3, '\0') += fields;
    area += byte(0xc1);
    area.resize(size - 1);
    add_checksum(area);
    std::string header{1, 0, 0, 1, 0, 0, 0}; // format; the board area lies at 1 x 8, no other area is there
    add_checksum(header);
    return header + area;
}

template struct json::codec::record<bmc_sensor_t>;
template struct json::codec::record<bmc_t>;

} // namespace ivra::virtual_platform
