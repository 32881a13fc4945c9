#include "bmc.h"

#include "defaults.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <numeric>

namespace ivra::virtual_platform {

namespace {

// ---- defaults ----

constexpr double unavailable = std::numeric_limits<double>::quiet_NaN();

struct sensor_row_t
{
    std::string_view name;
    std::uint8_t unit;
    int m, b, b_exp, r_exp;
    std::array<double, 3> values; // in the order of boards
};

struct board_row_t
{
    std::string_view model;
    std::string_view number; // in serial and part numbers
};

// clang-format off
constexpr board_row_t boards[] = {
    {"bittware_xupp3r", "P3R"},
    {"bittware_xupvv8", "PV8"},
    {"ivra_fpb2",       "FB2"},
};

constexpr std::uint8_t celsius = 1, volt = 4, ampere = 5, watt = 6;

constexpr sensor_row_t default_sensors[] = {
    // name                       unit       M   B   B exp  R exp   XUPP3R   XUPVV8   FPB2
    {"12V0",                      volt,     63,   0, 0,     -3,   {12.033,   12.096,  11.97}},
    {"3V3",                       volt,     16,   0, 0,     -3,   { 3.312,    3.296,  3.328}},
    {"1V8",                       volt,      8,   0, 0,     -3,   { 1.808,    1.8,    1.792}},
    {"1V2 DDR4",                  volt,      6,   0, 0,     -3,   { 1.2,      1.206,  1.194}},
    {"0V85",                      volt,      4,   0, 0,     -3,   { 0.852,    0.848,  0.856}},
    {"12V0 current",              ampere,   40,   0, 0,     -3,   { 3.4,      5.2,    2.96}},
    {"0V85 current",              ampere,   25,   0, 0,     -2,   {18.25,    31.75,   14.5}},
    {"Board power",               watt,      5,   0, 0,     -1,   {41,       62.5,    35.5}},
    {"Board temp",                celsius,   1,   0, 0,      0,   {38,       41,      36}},
    {"FPGA temp",                 celsius,   5, -40, 1,     -1,   {41,       43.5,    39}},
    {"DIMM temp",                 celsius,   1,   0, 0,      0,   {unavailable, unavailable, unavailable}},
    {"Fan inlet air temperature", celsius,   5,   0, 0,     -1,   {27.5,     29,      26.5}},
};
// clang-format on

std::string upper_case(std::string_view text)
{
    std::string result{text};
    std::ranges::transform(result, result.begin(), [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return result;
}

std::string default_serial(std::string_view number, std::size_t position)
{
    char text[40];
    std::snprintf(text, sizeof text, "VRT%s%04zu", std::string{number}.c_str(), position + 1);
    return text;
}

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

bmc_t default_bmc(std::string_view model, std::size_t position)
{
    const auto* const row = std::ranges::find(boards, model, &board_row_t::model);
    const bool is_known = row != std::end(boards);
    const std::string_view number = is_known ? row->number : "000";
    bmc_t bmc;
    bmc.fru.manufacturer = "VIRTUAL";
    bmc.fru.product = upper_case(defaults_of(model).short_name);
    bmc.fru.serial = default_serial(number, position);
    bmc.fru.part_number = "VRT-" + std::string{number};
    bmc.fru.file_id = "";
    if (!is_known)
        return bmc;
    for (const sensor_row_t& from : default_sensors) {
        bmc_sensor_t sensor;
        sensor.name = from.name;
        sensor.number = static_cast<std::uint8_t>(bmc.sensors.size() + 1);
        sensor.unit = from.unit;
        sensor.m = from.m;
        sensor.b = from.b;
        sensor.b_exp = from.b_exp;
        sensor.r_exp = from.r_exp;
        const double value = from.values.at(static_cast<std::size_t>(row - std::begin(boards)));
        sensor.available = !std::isnan(value);
        if (sensor.available) {
            sensor.value = value;
            sensor.raw = nearest_raw(sensor, value);
        }
        bmc.sensors.push_back(sensor);
    }
    return bmc;
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
    const double y = (sensor.m * signed_raw(sensor.format, raw) + sensor.b * std::pow(10.0, sensor.b_exp)) *
                     std::pow(10.0, sensor.r_exp);
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

} // namespace ivra::virtual_platform
