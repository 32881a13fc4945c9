// The whole conversation with the BMC of a Bittware board, with the fuzzer as the BMC: what it answers to each request
// is the next piece of the input, put into a frame by this program unless the piece says otherwise. The UART is this
// program's own; everything else is a plain board of the virtual platform.

#include "bmc/bittware/bmc.h"
#include "board.h"
#include "uart.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>

using namespace ivra::bsp;

namespace {

/// A step that finds nothing of the one before it on the line.
template <class Step>
void ask(Step step)
{
    waiting.clear();
    attempt(step);
}

} // namespace

// Nobody waits.
extern "C" int nanosleep(const timespec*, timespec*)
{
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const board_t board{"bittware_xupp3r"};
    static bmc::bittware::bmc controller{board.root()};
    input = {data, size};
    ask([&] { controller.get_sensors(); });
    ask([&] { controller.get_board_serial(); });
    ask([&] { controller.get_boot_image(); });
    ask([&] { controller.set_boot_image(bmc::bittware::boot_image_t::backup); });
    ask([&] {
        if (controller.get_fpga_config_status() > 2)
            std::abort();
    });
    return 0;
}
