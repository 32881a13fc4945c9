// The whole conversation with an XMC, with the fuzzer as the card: what its registers read is the input, word by word.
// Everything else is a plain board of the virtual platform; a register access of this program ends here, not there.

#include "bmc/alveo/xmc.h"
#include "board.h"

#include <ivra/hw.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <span>

using namespace ivra::bsp;

namespace {

std::span<const std::uint8_t> words_to_read;

} // namespace

// Fails at the end of the input.
extern "C" int ivra_hw_read(ivra_hw_core*, const ivra_hw_register_description*, uint64_t* value)
{
    if (words_to_read.size() < 4) {
        errno = EIO;
        return -1;
    }
    *value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        *value |= std::uint64_t{words_to_read[i]} << (8 * i);
    words_to_read = words_to_read.subspan(4);
    return 0;
}

// Fails when the card answered with a certain bit, so that the fuzzer can have that, too.
extern "C" int ivra_hw_write(ivra_hw_core*, const ivra_hw_register_description* description, uint64_t value)
{
    if ((value & 0x80) != 0 && description->offset == 0x28028) {
        errno = EIO;
        return -1;
    }
    return 0;
}

// Nobody waits.
extern "C" int nanosleep(const timespec*, timespec*)
{
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const board_t board{"xilinx_u50"};
    static const ivra::hw::core card = board.root().enumerate(bmc::alveo::registers::xmc_hardware_id, 1).value().at(0);
    static mutex guard{"bmc-alveo", card};
    words_to_read = {data, size};
    attempt([] { locked(guard, [] { bmc::alveo::bring_up(card); }); });
    bmc::alveo::xmc xmc{card, guard};
    attempt([&xmc] { xmc.get_board_serial(); });
    attempt([&xmc] { xmc.get_vendor_macs(); });
    attempt([&xmc] {
        if (xmc.get_sensors(bmc::alveo::registers::hbm_sensors).sensors.size() != 25)
            std::abort();
    });
    guard.lock(); // would fail, had one of them kept it
    guard.unlock();
    return 0;
}
