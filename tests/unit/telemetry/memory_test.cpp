// Here there is no memory for an FPGA's temperature.
#include "hw/accelerator.h"
#include "support/rack.h"
#include "telemetry/board_readings.h"

#include <ivra/hw_top.h>

#include <gtest/gtest.h>

#include <iostream>
#include <new>

int ivra_hw_top_get_temperature(ivra_hw_top*, double*)
{
    throw std::bad_alloc{};
}

namespace ivra::bsp::telemetry {
namespace {

TEST(board_readings, do_not_take_a_lack_of_memory_for_a_failure_of_the_board)
{
    tests::rack_t rack;
    EXPECT_EQ(rack.plug("m48l_xcvu7p").in_child([] {
        try {
            read_board(hw::enumerate_accelerators().at(0), {part_t::identity}, [] { return false; });
        } catch (const std::bad_alloc&) {
            std::cout << "no memory\n";
        }
    }),
              tests::says("no memory\n"));
}

} // namespace
} // namespace ivra::bsp::telemetry
