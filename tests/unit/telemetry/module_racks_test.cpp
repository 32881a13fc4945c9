// The modules that come with the racks, in the first cage of a board: which of their limits they are beyond.

#include "hw/i2c.h"
#include "module_text.h"
#include "support/rack.h"
#include "support/root_core.h"
#include "telemetry/module.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

namespace fs = std::filesystem;

std::string beyond_limits(const reading_t& reading)
{
    if (!reading.value)
        return {};
    std::string text;
    const auto& limits = reading.limits;
    for (const limit_t limit : {limit_t::lower_critical, limit_t::lower_non_critical})
        if (limits[limit] && *reading.value < *limits[limit])
            text += reading.name + " below " + number(*limits[limit]) + '\n';
    for (const limit_t limit : {limit_t::upper_non_critical, limit_t::upper_critical})
        if (limits[limit] && *reading.value > *limits[limit])
            text += reading.name + " above " + number(*limits[limit]) + '\n';
    return text;
}

/// What is odd about a module, which limits it is beyond, and what failed.
std::string alarms_of(const module_t& module)
{
    std::string text = module.error + lines(module.findings);
    const auto add = [&](const reading_t& reading) { text += beyond_limits(reading) + lines(reading.findings); };
    for (const reading_t& reading : module.monitors)
        add(reading);
    for (const lane_t& lane : module.lanes)
        for (const reading_t* reading : {&lane.rx_power, &lane.tx_power, &lane.tx_bias})
            add(*reading);
    return text;
}

/// Of what is in a cage, as a rack has it.
std::string alarms_of(const std::string& content)
{
    tests::rack_t rack;
    rack.plug("bittware_xupp3r", {{"i2c", R"({"cages": [)" + content + "]}"}});
    return tests::printed(rack, [](const hw::core& root) {
        v6::i2c::bus bus = v6::i2c::i2c{root}.get_bus(1).value();
        std::cout << alarms_of(read_module(bus));
    });
}

TEST(rack_modules, are_within_their_limits_but_for_the_dark_receiver)
{
    std::size_t count = 0;
    for (const fs::directory_entry& file : fs::directory_iterator{IVRA_RACK_MODULES}) {
        const std::string name = file.path().stem().string();
        EXPECT_EQ(alarms_of('"' + name + '"'),
                  name == "sfp-dark-receiver" ? "rx power below 6.31e-05\nrx power below 0.0001\n" : "")
            << name;
        ++count;
    }
    EXPECT_GE(count, 14U);
}

TEST(rack_modules, tell_that_they_are_too_hot_or_too_dark)
{
    EXPECT_EQ(alarms_of(R"({"module": "sfp-10g-sr", "temperature": 74, "tx_bias": 0.9})"),
              "temperature above 73\ntx bias below 0.001\ntx bias below 0.002\n");
    EXPECT_EQ(alarms_of(R"({"module": "qsfp28-sr4", "vcc": 3.64, "rx_power": [0.8, 0.8, 0.03, 0.8]})"),
              "voltage above 3.465\nvoltage above 3.63\nrx power below 4.68e-05\nrx power below 9.33e-05\n");
    EXPECT_EQ(alarms_of(R"({"module": "qsfpdd-dr4", "temperature": 76, "tx_power": [1, 1, 1, 4, 0, 0, 0, 0]})"),
              "temperature above 70\ntemperature above 75\ntx power above 0.0031623\ntx power above 0.0039811\n");
}

TEST(rack_modules, that_save_power_are_not_beyond_their_low_limits)
{
    for (const std::string content :
         {R"({"module": "qsfp28-sr4", "bytes": {"93": "03"}})", R"({"module": "qsfp28-sr4", "low_power_pin": true})",
          R"({"module": "qsfpdd-dr4", "bytes": {"26": "50"}})", R"({"module": "qsfpdd-dr4", "low_power_pin": true})",
          R"({"module": "qsfpdd-zr", "bytes": {"26": "10"}})"})
        EXPECT_EQ(alarms_of(content), "") << content;
}

} // namespace
} // namespace ivra::bsp::telemetry
