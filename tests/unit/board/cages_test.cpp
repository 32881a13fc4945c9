// Walks along the cages of boards of the virtual platform; each story is a process of its own.

#include "board/board.h"
#include "board/cages.h"
#include "support/i2c_trace.h"
#include "support/outcome.h"
#include "support/rack.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

namespace ivra::bsp::board {
namespace {

using calls_t = std::vector<std::string>;

/// A board whose cages hold such modules: a letter each, the identifier's place being that of the letter in this list.
const std::string modules = R"({"map": "sfp"}, {"map": "qsfp", "identifier": "0x0d"}, "empty",
                               {"map": "cmis", "identifier": "0x18"})";

tests::rack_t& plug(tests::rack_t& rack, const std::string& model, const std::string& content = modules)
{
    return rack.plug(model, {{"i2c", R"({"cages": [)" + content + "]}"}})
        .faults(R"({"call": "ivra_hw_core_enumerate", "errno": "EIO"}, {"call": "ivra_uart_create", "errno": "EIO"})")
        .environment("IVRA_LOG_LEVEL=0");
}

/// The number of each cage with the identifier that is read there, or why nothing is.
std::string visited(tests::rack_t& rack, unsigned last = 100)
{
    return tests::printed(rack, [&] {
        board b{hw::enumerate_accelerators().at(0)};
        b.visit_cages([&](const cage_t& cage) {
            std::cout << cage.number << ": ";
            if (cage.failure) {
                std::cout << cage.failure->what() << (cage.bus == nullptr ? "\n" : " with a bus\n");
            } else {
                std::uint8_t identifier = 0;
                cage.bus->read_register(0x50, 0, &identifier, 1);
                std::cout << static_cast<int>(identifier) << '\n';
            }
            return cage.number != last;
        });
    });
}

TEST(cages, are_visited_in_the_order_of_the_board_under_one_lock)
{
    tests::rack_t rack;
    plug(rack, "xilinx_u200", R"({"map": "qsfp", "identifier": "0x11"}, "empty")");
    EXPECT_EQ(visited(rack), "1: 17\n2: 255\n");
    const std::string read = tests::read_registers(0x50, 0, 1);
    EXPECT_EQ(tests::i2c_calls(rack),
              (calls_t{"read_control_pins()", "write_control_pins(0x1)", tests::get_bus(0),
                       tests::write_raw(0x74, "01"), read, tests::write_raw(0x74, "02"), read}));
    EXPECT_EQ(tests::calls(rack, "ivra_hw_shared_mutex_lock"), 1U);
}

TEST(cages, of_an_optional_bus_are_there_only_with_its_multiplexer)
{
    tests::rack_t four;
    plug(four, "bittware_xupp3r");
    EXPECT_EQ(visited(four), "1: 3\n2: 13\n3: 255\n4: 24\n");
    tests::rack_t eight;
    plug(eight, "bittware_xupp3r", modules + ", " + modules);
    EXPECT_EQ(visited(eight), "1: 3\n2: 13\n3: 255\n4: 24\n5: 3\n6: 13\n7: 255\n8: 24\n");
}

TEST(cages, are_out_of_reach_one_by_one)
{
    const std::string no_channel = "Cannot select I2C multiplexer channel: Input/output error\n";
    const std::string no_bus = "Cannot get I2C bus: Input/output error\n";
    const struct
    {
        const char* model;
        std::string fault;
        std::string expected;
    } rows[] = {
        {"bittware_xupvv8", R"({"call": "ivra_i2c_bus_write", "nth": 2, "errno": "EIO"})",
         "1: 3\n2: " + no_channel + "3: 255\n4: 24\n"},
        {"bittware_xupvv8", R"({"call": "ivra_i2c_bus_write", "nth": 4, "short": 0})",
         "1: 3\n2: 13\n3: 255\n4: " + no_channel},
        {"bittware_xupvv8", R"({"call": "ivra_i2c_get_bus", "errno": "EIO"})",
         "1: " + no_bus + "2: " + no_bus + "3: " + no_bus + "4: " + no_bus},
        {"bittware_xupp3r", R"({"call": "ivra_i2c_get_bus", "nth": 2, "errno": "EIO"})",
         "1: 3\n2: " + no_bus + "3: 255\n4: 24\n"},
    };
    for (const auto& row : rows) {
        tests::rack_t rack;
        plug(rack, row.model).faults(row.fault);
        EXPECT_EQ(visited(rack), row.expected) << row.fault;
    }
}

TEST(cages, that_may_be_there_are_visited_and_reported_only_if_they_are)
{
    const std::string first = "1: 3\n2: 13\n3: 255\n4: 24\n";
    const std::string more = "5: 3\n6: 13\n7: 255\n8: 24\n";
    const std::string no_bus = "Cannot get I2C bus: Input/output error\n";
    const struct
    {
        std::string fault;
        std::string expected;
    } rows[] = {
        {R"({"call": "ivra_i2c_get_bus", "nth": 5, "errno": "ENODEV"})", ""},
        {R"({"call": "ivra_i2c_get_bus", "nth": 5, "errno": "EIO"})",
         "5: " + no_bus + "6: " + no_bus + "7: " + no_bus + "8: " + no_bus},
        {R"({"call": "ivra_i2c_bus_read", "errno": "ENXIO"})", ""},
        {R"({"call": "ivra_i2c_bus_read", "errno": "EREMOTEIO"})", ""},
        {R"({"call": "ivra_i2c_bus_read", "errno": "EIO"})", more},
        {R"({"call": "ivra_i2c_bus_read", "short": 0})", more},
    };
    for (const auto& row : rows) {
        tests::rack_t rack;
        plug(rack, "bittware_xupp3r", modules + ", " + modules).faults(row.fault);
        EXPECT_EQ(visited(rack), first + row.expected) << row.fault;
        const std::string count = tests::printed(rack, [] {
            board b{hw::enumerate_accelerators().at(0)};
            std::cout << b.get_transceivers().size();
        });
        EXPECT_EQ(count, "4") << row.fault;
    }
}

TEST(cages, are_all_out_of_reach_where_the_boards_i2c_cannot_be_enabled)
{
    tests::rack_t rack;
    plug(rack, "xilinx_u200", R"("empty")").faults(R"({"call": "ivra_i2c_write_control_pins", "errno": "EIO"},
                   {"call": "ivra_hw_core_enumerate", "errno": "EIO"})");
    EXPECT_EQ(visited(rack), "system error: Could not not set enable I2C pin: Input/output error");
}

TEST(cages, are_visited_until_the_visitor_says_to_stop)
{
    for (const std::string model : {"bittware_xupp3r", "bittware_xupvv8"}) {
        tests::rack_t rack;
        plug(rack, model);
        EXPECT_EQ(visited(rack, 2), "1: 3\n2: 13\n");
        EXPECT_EQ(tests::i2c_calls(rack).back(), tests::read_registers(0x50, 0, 1)) << "cage 3 is not reached for";
    }
}

TEST(cages, are_left_by_a_signal_between_two_of_them)
{
    tests::rack_t rack;
    plug(rack, "bittware_xupvv8");
    const tests::run_t run = rack.in_child([] {
        board b{hw::enumerate_accelerators().at(0)};
        b.visit_cages([](const cage_t& cage) {
            std::raise(SIGTERM);
            std::cout << cage.number << " to its end" << std::endl;
            return true;
        });
    });
    EXPECT_EQ(run.out, "1 to its end\n");
    EXPECT_EQ(run.status, 128 + SIGTERM);
}

TEST(cages, are_not_on_boards_that_have_none)
{
    const struct
    {
        const char* model;
        const char* family;
    } rows[] = {{"xilinx_u50", "Xilinx Alveo U50 boards"},
                {"xilinx_u55c", "Xilinx Alveo U55c boards"},
                {"m48l_xcvu7p", "Arista switches"}};
    for (const auto& row : rows) {
        tests::rack_t rack;
        rack.plug(row.model).environment("IVRA_LOG_LEVEL=0");
        rack.faults(R"({"call": "ivra_hw_core_enumerate", "errno": "EIO"})");
        EXPECT_EQ(tests::printed(rack,
                                 [] {
                                     board b{hw::enumerate_accelerators().at(0)};
                                     try {
                                         b.visit_cages([](const cage_t&) { return true; });
                                     } catch (const unsupported_feature& error) {
                                         std::cout << "unsupported: " << error.what();
                                     }
                                 }),
                  std::string{"unsupported: Visiting cages is unsupported for "} + row.family);
    }
}

TEST(cages, need_an_i2c_controller)
{
    tests::rack_t rack;
    plug(rack, "bittware_xupvv8")
        .faults(R"({"call": "ivra_i2c_create", "errno": "EIO"}, {"call": "ivra_uart_create", "errno": "EIO"})");
    EXPECT_EQ(visited(rack), "error: Could not visit cages as no I2C MM bridge core are detected");
}

} // namespace
} // namespace ivra::bsp::board
