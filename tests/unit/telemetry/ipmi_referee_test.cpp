// Values of sensors against those of an independent decoder of the standard. Where it has none of a cube root, it is
// asked to do what it cannot: take that of a negative number.

#include "support/process.h"
#include "support/sensor_reply.h"
#include "telemetry/ipmi_sensor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

using tests::bytes_t;
using tests::sensor_reply_t;
using tests::to_hex;

struct scale_t
{
    int m, b, r_exponent, b_exponent;
};

// The first lines as boards have them, the others to the limits of each field.
constexpr scale_t scales[] = {
    {1, 0, 0, 0},     {1, -50, 0, 0},   {63, 0, -3, 0},       {44, 125, -4, 1},   {-1, 100, -1, 0},
    {3, -384, -1, 0}, {511, 511, 7, 7}, {-512, -512, -8, -8}, {256, 1, -8, 7},    {-256, 255, 3, -8},
    {0, 7, -1, 1},    {0, 0, 0, 0},     {-7, 256, 2, -3},     {500, -511, -2, 2},
};
constexpr unsigned formats = 3;
constexpr unsigned linearisations = 12;
constexpr unsigned logarithms[] = {1, 2, 3};
constexpr unsigned cube_root = 11;
constexpr unsigned powers[] = {4, 5, 6, cube_root}; // of a rounded number, or, in the referee, to one: a third

template <std::size_t Size>
bool is_one_of(const unsigned (&codes)[Size], unsigned code)
{
    return std::ranges::find(codes, code) != std::end(codes);
}

/// But for some last bits of the number that the function is taken of: there are two ways of rounding it.
bool agree(unsigned linearisation, double ours, double theirs)
{
    double conditioned = std::abs(theirs);
    if (is_one_of(logarithms, linearisation))
        conditioned = std::max(conditioned, 1.5);
    else if (is_one_of(powers, linearisation) && theirs != 0)
        conditioned *= 1 + std::abs(std::log(theirs));
    return std::abs(ours - theirs) <= 4 * std::numeric_limits<double>::epsilon() * conditioned;
}

TEST(ipmi_sensor_values, of_all_raw_readings_agree_with_an_independent_decoder)
{
    std::vector<ipmi_sensor_t> sensors;
    std::vector<std::string> arguments{IVRA_REFEREES "/sdr_values.py"};
    for (unsigned format = 0; format < formats; ++format)
        for (unsigned linearisation = 0; linearisation < linearisations; ++linearisation)
            for (const scale_t& scale : scales) {
                const bytes_t record = sensor_reply_t{}
                                           .name("SENSOR")
                                           .set(13, 1)
                                           .set(20, format << 6)
                                           .set(23, linearisation)
                                           .scale(scale.m, scale.b, scale.r_exponent, scale.b_exponent)
                                           .record();
                sensors.push_back(decode_full_sensor_record(record));
                arguments.push_back(to_hex(record));
            }

    const tests::run_t run = tests::run_program("/usr/bin/python3", arguments);
    ASSERT_EQ(run.status, 0) << "python3-pyipmi: " << run.err;

    std::istringstream values{run.out};
    std::map<std::pair<unsigned, unsigned>, unsigned> numbers; // how many were compared, by format and linearisation
    unsigned roots_of_negative_numbers = 0;
    for (std::size_t i = 0; i < sensors.size(); ++i)
        for (unsigned raw = 0; raw < 256; ++raw) {
            const ipmi_formula_t& formula = sensors[i].formula;
            const std::string where = arguments[i + 1] + " raw " + std::to_string(raw);
            std::string theirs;
            ASSERT_TRUE(values >> theirs) << where;
            const bytes_t answer{static_cast<std::uint8_t>(raw), 0xC0, 0xC0};
            const reading_t reading = decode_sensor_reading(sensors[i], 0, answer);
            if (theirs == "none" && formula.linearisation == cube_root) {
                ASSERT_TRUE(reading.value) << where;
                EXPECT_LT(*reading.value, 0) << where;
                ++roots_of_negative_numbers;
                continue;
            }
            if (theirs == "none") {
                EXPECT_EQ(reading.state, state_t::failed) << where;
                EXPECT_FALSE(reading.value) << where;
                continue;
            }
            EXPECT_EQ(reading.state, state_t::ok) << where;
            ASSERT_TRUE(reading.value) << where << ": " << theirs;
            EXPECT_TRUE(agree(formula.linearisation, *reading.value, std::stod(theirs)))
                << where << ": " << *reading.value << ", not " << std::stod(theirs);
            ++numbers[{formula.format, formula.linearisation}];
        }
    std::string more;
    EXPECT_FALSE(values >> more) << "more values than were asked for";
    ASSERT_EQ(numbers.size(), formats * linearisations);
    for (const auto& [what, count] : numbers)
        EXPECT_GE(count, 4 * 256U) << "hardly anything was compared of format " << what.first << ", linearisation "
                                   << what.second;
    EXPECT_GE(roots_of_negative_numbers, 256U);
}

} // namespace
} // namespace ivra::bsp::telemetry
