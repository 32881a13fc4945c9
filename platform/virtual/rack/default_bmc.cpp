#include "rack/defaults.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>

namespace ivra::virtual_platform {

namespace {

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

std::string default_serial(std::string_view number, std::size_t position)
{
    char text[40];
    std::snprintf(text, sizeof text, "VRT%s%04zu", std::string{number}.c_str(), position + 1);
    return text;
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

} // namespace ivra::virtual_platform
