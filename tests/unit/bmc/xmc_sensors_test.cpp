#include "bmc/alveo/registers.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>

namespace ivra::bsp::bmc::alveo::registers {

namespace {

using board::quantity_t;

TEST(xmc_sensors, measure_what_their_unit_says_in_so_many_steps)
{
    const std::map<std::string, std::pair<quantity_t, unsigned>> units{
        {"mV", {quantity_t::voltage, 1000}},  {"mA", {quantity_t::current, 1000}}, {"mW", {quantity_t::power, 1000}},
        {"°C", {quantity_t::temperature, 1}}, {"RPM", {quantity_t::fan_speed, 1}},
    };
    std::set<std::string> seen;
    for (const sensor_list list :
         {sensor_list{ddr_sensors}, sensor_list{hbm_sensors}, sensor_list{hbm_sensors_with_auxiliary_power}}) {
        for (const sensor_reg_t& sensor : list) {
            const auto unit = units.find(sensor.unit.data());
            ASSERT_NE(unit, units.end()) << sensor.name.data();
            EXPECT_EQ(sensor.quantity, unit->second.first) << sensor.name.data();
            EXPECT_EQ(sensor.per_base_unit, unit->second.second) << sensor.name.data();
            seen.insert(unit->first);
        }
    }
    EXPECT_EQ(seen.size(), units.size());
}

} // namespace

} // namespace ivra::bsp::bmc::alveo::registers
