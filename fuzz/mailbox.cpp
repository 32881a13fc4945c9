// The whole conversation with an XMC, with the fuzzer as the card: what its registers read is the input, word by word.
// Everything else is a plain board of the virtual platform; a register access of this program ends here, not there.

#include "bmc/alveo/xmc.h"
#include "hw/accelerator.h"

#include <ivra/hw.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include <unistd.h>

using namespace ivra::bsp;

namespace {

std::span<const std::uint8_t> words_to_read;

/// The XMC core of the only board of a rack in a folder that goes with the process.
class card_t
{
public:
    card_t()
    {
        std::string folder = (std::filesystem::temp_directory_path() / "fuzz-mailbox-XXXXXX").string();
        if (::mkdtemp(folder.data()) == nullptr)
            std::abort();
        folder_ = folder;
        std::ofstream{folder_ / "rack.json"} << R"({"accelerators": [{"model": "xilinx_u50"}]})";
        ::setenv("IVRA_VIRTUAL_RACK", (folder_ / "rack.json").c_str(), 1);
        ::setenv("IVRA_VIRTUAL_STATE", (folder_ / "state").c_str(), 1);
        const ivra::hw::accelerator accelerator{ivra::hw::enumerate_accelerators().at(0)};
        const ivra::hw::mmio mmio{accelerator.enumerate_mmios().at(0)};
        core_ =
            ivra::hw::enumerate_cores(mmio).root().enumerate(bmc::alveo::registers::xmc_hardware_id, 1).value().at(0);
    }
    ~card_t() { std::filesystem::remove_all(folder_); }
    card_t(const card_t&) = delete;
    card_t& operator=(const card_t&) = delete;

    const ivra::hw::core& core() const { return *core_; }

private:
    std::filesystem::path folder_;
    std::optional<ivra::hw::core> core_;
};

/// Runs a step; what it throws for bytes that make no sense is well.
template <class Step>
void attempt(Step step)
{
    try {
        step();
    } catch (const std::runtime_error&) {
    }
}

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
    static const card_t card;
    static mutex guard{"bmc-alveo", card.core()};
    words_to_read = {data, size};
    attempt([] { locked(guard, [] { bmc::alveo::bring_up(card.core()); }); });
    bmc::alveo::xmc xmc{card.core(), guard};
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
