#include "devices/bmc/config.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <numeric>
#include <set>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;

// ---- words ----

// Source: IPMI 2.0 tables 43-1 (full sensor record) and 43-15 (units).
constexpr code_name_t units[] = {
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
constexpr codec::names<std::uint8_t> unit_word{units, "a unit", 8};
constexpr codec::names<std::uint8_t> format_word{formats, "how raw readings are coded"};
constexpr codec::names<std::uint8_t> modifier{modifiers, "how the second unit joins the first"};
constexpr codec::names<std::uint8_t> rate{rates, "the time that a rate is about"};
constexpr codec::names<std::uint8_t> linearisation{linearisations, "a function", 8};

// ---- bounds ----

constexpr std::size_t largest_fru_field = 63;   // bytes: 6 bits of length
constexpr std::size_t largest_fru_area = 2040;  // bytes: 8 bits of length, in units of 8
constexpr std::size_t largest_sensor_name = 63; // bytes: 6 bits of length
constexpr std::size_t largest_text = 1024;      // bytes that a rack can put in the place of an answer

constexpr codec::whole factor{"a whole number", -512, 511};
constexpr codec::whole power{"a whole number", -8, 7};
constexpr codec::or_null byte_or_null{codec::byte};
constexpr codec::or_null number_or_null{codec::code{codec::byte.what, 8, 0}};
constexpr codec::or_null fru_field_codec{codec::text{largest_fru_field}, "the end of the fields"};
constexpr codec::or_null any_bytes{codec::hex{largest_text}};
constexpr codec::or_null pieces{codec::list{"a list of at most 1024 numbers of bytes that successive reads give",
                                            codec::whole{"a number of bytes", 1, 64}, 1024}};

// ---- bytes ----

char byte(unsigned value)
{
    return static_cast<char>(value & 0xffU);
}

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

std::uint8_t sensor_type(std::uint8_t unit)
{
    switch (unit) {
    case 1:
    case 2:
    case 3:
        return 0x01; // temperature
    case 4:
        return 0x02; // voltage
    case 5:
        return 0x03; // current
    case 18:
        return 0x04; // fan
    default:
        return 0x0b; // units-based
    }
}

/// 10 to the power of -8 to 7, as std::pow has it.
double power_of_ten(int exponent)
{
    constexpr double powers[] = {1e-8, 1e-7, 1e-6, 1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7};
    return powers[std::clamp(exponent + 8, 0, 15)];
}

/// A raw reading as a number.
double signed_raw(std::uint8_t format, std::uint8_t raw)
{
    if (format == 1 && raw >= 0x80)
        return raw - 255.0;
    if (format == 2 && raw >= 0x80)
        return raw - 256.0;
    return raw;
}

} // namespace

static void describe(auto& visit, bmc_fru_t& fru)
{
    visit("manufacturer", fru.manufacturer, fru_field_codec);
    visit("product", fru.product, fru_field_codec);
    visit("serial", fru.serial, fru_field_codec);
    visit("part_number", fru.part_number, fru_field_codec);
    visit("file_id", fru.file_id, fru_field_codec);
    visit("extra", fru.extra,
          codec::list{"a list of at most 64 texts after the others", codec::text{largest_fru_field}, 64});
    visit("raw", fru.raw, codec::or_null{codec::hex{4096, ", instead of all fields"}});
    visit.check({}, fru.raw || fru_image(fru).size() <= largest_fru_area + 8,
                "fields that fit into a board area of " + std::to_string(largest_fru_area) + " bytes");
}

static void describe(auto& visit, bmc_sensor_t& sensor)
{
    // Bytes stand for all that they take the place of.
    const bool has_record = sensor.record.has_value();
    const bool has_response = sensor.response.has_value();
    visit("record", sensor.record, codec::or_null{codec::hex{255}}, has_record);
    visit("name", sensor.name, codec::text{largest_sensor_name}, !has_record);
    visit("number", sensor.number, number_or_null, !has_record);
    visit("unit", sensor.unit, unit_word, !has_record);
    visit("response", sensor.response, codec::or_null{codec::hex{255}}, has_response);
    visit("value", sensor.value, codec::or_null{codec::real{"a number in the sensor's unit"}},
          !has_response && sensor.value);
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
    visit("next", sensor.next, codec::or_null{codec::code{"a record ID such as 2 or \"0xffff\"", 16}, "the true one"});

    visit.check({}, visit.gives("record") || visit.said("name"), "a member \"name\", or one \"record\"");
    visit.excludes("record", {"name", "number", "unit", "modifier", "modifier_unit", "rate", "percent", "format",
                              "linearisation", "m", "b", "r_exp", "b_exp", "value"});
    visit.excludes("response", {"value", "raw", "available"});
    visit.excludes("value", {"raw"});
    constexpr std::size_t number_at = 7; // of a record
    if (visit.gives("record") && sensor.record)
        sensor.number = sensor.record->size() > number_at ? static_cast<std::uint8_t>(sensor.record->at(number_at)) : 0;
    if (visit.gives("value") && sensor.value)
        sensor.raw = nearest_raw(sensor, *sensor.value);
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
    visit("sensors", bmc.sensors,
          codec::list{"a list of at most 255 sensors",
                      codec::record<bmc_sensor_t>{
                          R"(a sensor: { "name": "12V0", "unit": "V", "value": 12.03, "m": 63, "r_exp": -3 })"},
                      255});
    visit("answers", bmc.answers,
          codec::list{
              "a list of at most 64 rules about answers",
              codec::record<bmc_answer_t>{R"(what is different about an answer: { "to": "0421", "code": "0xc0" })"},
              most_bmc_answers});

    const std::string depth = "at most " + std::to_string(bmc.depth) + ", the depth of the FIFO";
    for (std::size_t at = 0; at < bmc.pieces.size(); ++at)
        visit.check({"pieces", at}, bmc.pieces[at] <= bmc.depth, depth);
    for (std::size_t answer = 0; answer < bmc.answers.size(); ++answer)
        for (std::size_t at = 0; bmc.answers[answer].pieces && at < bmc.answers[answer].pieces->size(); ++at)
            visit.check({"answers", answer, "pieces", at}, (*bmc.answers[answer].pieces)[at] <= bmc.depth, depth);
    std::set<std::uint8_t> numbers;
    for (std::size_t at = 0; at < bmc.sensors.size(); ++at) {
        bmc_sensor_t& sensor = bmc.sensors[at];
        if (visit.gives("sensors") && !sensor.record && !visit.gives({"sensors", at, "number"}))
            sensor.number = static_cast<std::uint8_t>(at + 1);
        visit.check({"sensors", at, "number"}, sensor.record || numbers.insert(sensor.number).second,
                    "a sensor number that no other sensor has, which " + std::to_string(sensor.number) + " is not");
    }
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

std::string sensor_record(const bmc_sensor_t& sensor, std::uint16_t id)
{
    if (sensor.record)
        return *sensor.record;
    constexpr std::size_t smallest = 64; // with a name of up to 16 bytes: a host reads so much at once
    constexpr std::size_t name_at = 48;
    std::string record(std::max(smallest, name_at + sensor.name.size()), '\0');
    const auto put = [&](std::size_t at, unsigned value) { record.at(at) = byte(value); };
    const auto m = static_cast<unsigned>(sensor.m);
    const auto b = static_cast<unsigned>(sensor.b);
    put(0, id);
    put(1, id >> 8U);
    put(2, 0x51); // version of the record format
    put(3, 0x01); // full sensor record
    put(4, static_cast<unsigned>(record.size() - 5));
    put(5, 0x20); // its owner is the BMC
    put(7, sensor.number);
    put(8, 0x07); // of the system board
    put(9, 0x01);
    put(10, 0x7f); // it is ready when it is powered
    put(11, 0x40); // scanned by itself, without thresholds
    put(12, sensor_type(sensor.unit));
    put(13, 0x01); // event type: thresholds
    put(20, unsigned{sensor.format} << 6U | unsigned{sensor.rate} << 3U | unsigned{sensor.modifier} << 1U |
                (sensor.percent ? 1U : 0U));
    put(21, sensor.unit);
    put(22, sensor.modifier_unit);
    put(23, sensor.linearisation);
    put(24, m);
    put(25, m >> 2U & 0xc0U);
    put(26, b);
    put(27, b >> 2U & 0xc0U);
    put(29, static_cast<unsigned>(sensor.r_exp) << 4U | (static_cast<unsigned>(sensor.b_exp) & 0xfU));
    put(34, 0xff); // largest reading; the smallest is 0
    put(47, 0xc0U | static_cast<unsigned>(sensor.name.size()));
    std::ranges::copy(sensor.name, record.begin() + name_at);
    return record;
}

std::string sensor_response(const bmc_sensor_t& sensor)
{
    if (sensor.response)
        return *sensor.response;
    constexpr unsigned scanning = 0xc0;   // events and scanning are enabled
    constexpr unsigned no_reading = 0x20; // added to it
    return {byte(sensor.available ? sensor.raw : 0U), byte(sensor.available ? scanning : scanning | no_reading),
            byte(sensor.available ? 0xc0U : 0U)};
}

double sensor_value(const bmc_sensor_t& sensor, std::uint8_t raw)
{
    const double y = (sensor.m * signed_raw(sensor.format, raw) + sensor.b * power_of_ten(sensor.b_exp)) *
                     power_of_ten(sensor.r_exp);
    switch (sensor.linearisation & 0x7fU) {
    case 1:
        return std::log(y);
    case 2:
        return std::log10(y);
    case 3:
        return std::log2(y);
    case 4:
        return std::exp(y);
    case 5:
        return std::pow(10.0, y);
    case 6:
        return std::exp2(y);
    case 7:
        return y == 0 ? std::numeric_limits<double>::infinity() : 1 / y;
    case 8:
        return y * y;
    case 9:
        return y * y * y;
    case 10:
        return std::sqrt(y);
    case 11:
        return std::cbrt(y);
    default:
        return y;
    }
}

std::uint8_t nearest_raw(const bmc_sensor_t& sensor, double value)
{
    std::uint8_t nearest = 0;
    double smallest = std::numeric_limits<double>::infinity();
    for (unsigned raw = 0; raw <= 0xff; ++raw) {
        const double distance = std::fabs(sensor_value(sensor, static_cast<std::uint8_t>(raw)) - value);
        if (distance < smallest) { // never for what is no number
            smallest = distance;
            nearest = static_cast<std::uint8_t>(raw);
        }
    }
    return nearest;
}

std::string two_decimals(double value)
{
    std::string text(400, '\0'); // the largest double has 309 digits before the point
    text.resize(static_cast<std::size_t>(std::snprintf(text.data(), text.size(), "%.2f", value)));
    return text;
}

template struct json::codec::record<bmc_t>;

} // namespace ivra::virtual_platform
