// Values of sensors against those of an independent decoder. It is not asked about what is decoded differently on
// purpose: analog formats 1 and 2, and linearisation 4.

#include "bmc/bittware/sdr.h"

#include "support/process.h"
#include "support/sensor_reply.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace ivra::bsp::bmc::bittware {
namespace {

using tests::bytes_t;
using tests::sensor_reply_t;
using tests::to_hex;

struct scale_t
{
    int m, b, r_exponent, b_exponent;
};

// The lower half as boards have them, the upper half to the limits of each field.
constexpr scale_t scales[] = {
    {1, 0, 0, 0},     // temperature in degrees
    {1, -50, 0, 0},   // the same from -50 on
    {63, 0, -3, 0},   // 12 V
    {172, 0, -4, 0},  // 3.3 V
    {44, 125, -4, 1}, // 0.85 V
    {2, 0, 0, 0},     // power
    {-1, 100, -1, 0}, // falling
    {511, 511, 7, 7}, {-512, -512, -8, -8}, {256, 1, -8, 7},  {-256, 255, 3, -8},
    {0, 7, -1, 1},    {0, 0, 0, 0},         {3, -384, -1, 0}, // through 0 in the middle
    {-7, 256, 2, -3}, {500, -511, -2, 2},
};

constexpr std::uint8_t linearisations[] = {0, 1, 2, 3, 5, 6, 7, 8, 9, 10, 11};

/// Some last bits: the referee divides natural logarithms where we have the function.
bool agree(double ours, double theirs)
{
    return std::abs(ours - theirs) <= 4 * std::numeric_limits<double>::epsilon() * std::abs(theirs);
}

TEST(sensor_values, agree_with_those_of_an_independent_decoder)
{
    std::vector<sensor_record_t> records;
    std::vector<std::string> arguments{IVRA_REFEREES "/sdr_values.py"};
    for (const std::uint8_t linearisation : linearisations)
        for (const scale_t& scale : scales) {
            const auto reply = sensor_reply_t{}
                                   .name("SENSOR")
                                   .set(23, linearisation)
                                   .scale(scale.m, scale.b, scale.r_exponent, scale.b_exponent);
            records.push_back(decode_sensor_record(0, reply.bytes()));
            arguments.push_back(to_hex(reply.record()));
        }
    ASSERT_GE(records.size(), 40U);

    const ivra::tests::run_t run = ivra::tests::run_program("/usr/bin/python3", arguments);
    ASSERT_EQ(run.status, 0) << "python3-pyipmi: " << run.err;

    std::istringstream values{run.out};
    std::map<unsigned, unsigned> numbers; // how many numbers were compared, by linearisation
    for (std::size_t i = 0; i < records.size(); ++i)
        for (unsigned raw = 0; raw < 256; ++raw) {
            std::string theirs;
            ASSERT_TRUE(values >> theirs) << "record " << i << " has no value " << raw;
            const double ours = convert_reading(records[i], static_cast<std::uint8_t>(raw));
            if (theirs == "none") {
                EXPECT_FALSE(std::isfinite(ours)) << arguments[i + 1] << " raw " << raw << ": " << ours;
                continue;
            }
            EXPECT_TRUE(agree(ours, std::stod(theirs)))
                << arguments[i + 1] << " raw " << raw << ": " << ours << ", not " << std::stod(theirs);
            ++numbers[records[i].linearisation];
        }
    std::string more;
    EXPECT_FALSE(values >> more) << "more values than were asked for";
    ASSERT_EQ(numbers.size(), std::size(linearisations));
    for (const auto& [linearisation, count] : numbers)
        EXPECT_GE(count, 256U) << "hardly anything was compared of linearisation " << linearisation;
}

} // namespace
} // namespace ivra::bsp::bmc::bittware
