// Here the UART of a Bittware board is the test's own: its errors are those of the board's serial.
#include "support/rack.h"
#include "utils.h"

#include <ivra/uart.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <iostream>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

std::function<void()> fail;

} // namespace

int ivra_uart_write_all(ivra_uart*, const std::uint8_t*, std::size_t, unsigned)
{
    fail();
    return 0;
}

namespace ivra::bsp {
namespace {

/// What is made of a serial whose reading fails like this, a statistic or the failure itself; and what is logged.
std::string serial_of(const std::function<void()>& failure)
{
    fail = failure;
    tests::rack_t rack;
    const tests::run_t run = rack.plug("bittware_xupp3r").in_child([] {
        board::board board{hw::enumerate_accelerators().at(0)};
        try {
            const stat_t stat = get_board_serial_stat(board, "card-0");
            std::cout << stat.name << ": " << stat.value << (stat.color == color::red ? ", in red" : "") << '\n';
        } catch (const std::exception& error) {
            std::cout << "thrown: " << error.what() << '\n';
        }
    });
    return run.out + run.err;
}

TEST(board_serial, is_an_error_after_a_runtime_error_and_every_other_one_goes_on)
{
    const std::string shown = "Board serial: Error, in red\n"
                              "get_board_serial_stat: Error retrieving serial for board card-0: ";
    EXPECT_EQ(serial_of([] { throw std::runtime_error{"no answer"}; }), shown + "no answer\n");
    EXPECT_EQ(serial_of([] { throw std::system_error{EIO, std::generic_category()}; }), shown + "Input/output error\n");
    EXPECT_EQ(serial_of([] { throw std::logic_error{"mistake"}; }), "thrown: mistake\n");
    EXPECT_EQ(serial_of([] { throw std::bad_alloc{}; }), "thrown: std::bad_alloc\n");
}

} // namespace
} // namespace ivra::bsp
