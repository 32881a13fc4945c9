// Several programs at the same boards at the same time, by the real clock.

#include "readings.h"

#include "support/rack.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace ivra::tests {
namespace {

void plug_three(rack_t& rack)
{
    const std::string cages = R"({"cages": ["qsfp28-sr4", "qsfpdd-dr4"]})";
    rack.plug("xilinx_u200", {{"xmc", R"({"ready_after": ["0 s", "0 s"], "answer_after": "5 ms"})"}, {"i2c", cages}});
    rack.plug("bittware_xupvv8",
              {{"bmc", R"({"latency": "2 ms", "sensors": {"only": true, "list": [{"name": "12V0", "unit": "V",
                   "value": 12, "m": 1}]}})"},
               {"i2c", cages}});
    rack.plug("m48l_xcvu7p").host({.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"});
    rack.environment("IVRA_LOG_LEVEL=0").environment("IVRA_VIRTUAL_CLOCK");
}

struct program_row_t
{
    const char* program;
    const char* words;
};
const program_row_t program_rows[] = {
    {IVRA_BSP_READINGS, "--json"},
    {IVRA_BSP_BOARD, "-a 1 show transceivers"},
    {IVRA_BSP_READINGS, "--json -a 1"},
    {IVRA_BSP_BOARD, "-a 0 show sensors"},
    {IVRA_BSP_READINGS, "--json -a 0"},
    {IVRA_BSP_BOARD, "-a 1 show sensors"},
    {IVRA_BSP_BOARD, "-a 0 show transceivers"},
};

run_t normal(run_t run)
{
    run.out = without_moment(run.out);
    return run;
}

TEST(neighbours, at_a_board_change_nothing_in_what_each_says)
{
    rack_t rack;
    plug_three(rack);
    std::vector<run_t> alone;
    for (const program_row_t& row : program_rows)
        alone.push_back(normal(rack.program(row.program).run(row.words)));
    for (const run_t& run : alone)
        ASSERT_EQ(run.status, 0) << run.out << run.err;

    constexpr std::size_t runs = 21, side_by_side = 4;
    std::deque<std::pair<std::size_t, running_t>> running;
    const auto expect_the_oldest = [&] {
        EXPECT_EQ(normal(running.front().second.end()), alone[running.front().first]);
        running.pop_front();
    };
    for (std::size_t at = 0; at < runs; ++at) {
        const std::size_t which = at % alone.size();
        rack.program(program_rows[which].program);
        running.emplace_back(which, rack.start_neighbour(program_rows[which].words));
        if (running.size() == side_by_side)
            expect_the_oldest();
    }
    while (!running.empty())
        expect_the_oldest();
}

} // namespace
} // namespace ivra::tests
