// A whole module memory, read as the standards have it and decoded. The I2C is this program's own: one bus with a
// module, whose memory is the input. Everything else is a plain board of the virtual platform.

#include "board.h"
#include "telemetry/module.h"

#include <ivra/i2c.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

using namespace ivra::bsp::telemetry;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

constexpr std::size_t page_size = 128;
constexpr std::array<std::uint8_t, 6> pages{0x00, 0x01, 0x02, 0x03, 0x10, 0x11};

/// The input: how long the module works and the page that is selected at first, then its lower page and the pages
/// above, as far as it reaches; zeros stand for the rest. Of an SFP page 00 is the lower half of 0x51.
struct plugged_t
{
    std::span<const std::uint8_t> memory;
    unsigned transfers_left = 0;
    std::size_t last_transfer = 0; ///< bytes that it still moves of the first transfer that fails; all: an error
    std::uint8_t selected = 0;
    bool has_failed = false;

    bool is_flat() const { return (byte(0x50, 2) & (is_sff_8636() ? 0x04 : 0x80)) != 0; }
    bool is_sff_8636() const { return byte(0x50, 0) == 0x0c || byte(0x50, 0) == 0x0d || byte(0x50, 0) == 0x11; }

    std::size_t index_of_selected() const
    {
        for (std::size_t at = 0; at < pages.size(); ++at)
            if (pages[at] == selected)
                return at;
        return 0;
    }

    std::uint8_t byte(std::uint8_t device, std::size_t reg) const
    {
        if (device == 0x50 && reg == 127)
            return selected;
        const std::size_t page = device == 0x51 ? 1 : reg < page_size ? 0 : 1 + index_of_selected();
        const std::size_t at = page * page_size + reg % page_size;
        return at < memory.size() ? memory[at] : 0;
    }

    /// How many bytes of a transfer are moved; -1 with errno for none.
    int move(std::size_t size)
    {
        if (transfers_left != 0) {
            --transfers_left;
            return static_cast<int>(size);
        }
        has_failed = true;
        if (last_transfer < size)
            return static_cast<int>(last_transfer);
        errno = EIO;
        return -1;
    }
};

plugged_t module;

plugged_t plug(std::span<const std::uint8_t> input)
{
    plugged_t plugged;
    if (input.size() < 3)
        return plugged;
    plugged.transfers_left = input[0] % 64; // the longest walk has 49
    plugged.last_transfer = input[1];
    plugged.selected = pages[input[2] % pages.size()];
    plugged.memory = input.subspan(3);
    return plugged;
}

/// What reading clears, or may clear.
bool is_flag(std::uint8_t device, std::size_t reg)
{
    if (device == 0x51)
        return reg >= 112 && reg <= 117;
    if (module.is_sff_8636())
        return reg >= 3 && reg <= 21;
    const std::uint8_t identifier = module.byte(0x50, 0);
    const bool is_sff_8472 = identifier >= 0x01 && identifier <= 0x03;
    const bool is_page_11 = module.selected == 0x11 && !module.is_flat();
    return !is_sff_8472 && ((reg >= 8 && reg <= 13) || (is_page_11 && reg >= 134 && reg <= 153));
}

void check(const reading_t& reading)
{
    require(!reading.name.empty() && !reading.peak && !reading.compared);
    require((reading.state == state_t::ok) == reading.value.has_value());
    require((reading.state == state_t::failed) == !reading.error.empty());
    require(!reading.value || std::isfinite(*reading.value));
    for (const auto& limit : reading.limits.values)
        require(!limit || std::isfinite(*limit));
    const auto& limits = reading.limits;
    for (const auto& [low, high] : {std::pair{limit_t::lower_critical, limit_t::upper_critical},
                                    std::pair{limit_t::lower_non_critical, limit_t::upper_non_critical}})
        require(!limits[low] || !limits[high] || *limits[low] < *limits[high]);
}

} // namespace

extern "C" {

ivra_i2c* ivra_i2c_create(ivra_hw_core* core)
{
    return reinterpret_cast<ivra_i2c*>(core); // never looked into
}

void ivra_i2c_destroy(ivra_i2c*) {}

ivra_i2c_bus* ivra_i2c_get_bus(ivra_i2c* i2c, uint8_t)
{
    return reinterpret_cast<ivra_i2c_bus*>(i2c);
}

void ivra_i2c_bus_destroy(ivra_i2c_bus*) {}

int ivra_i2c_bus_read_register(ivra_i2c_bus*, uint8_t device, uint8_t reg, uint8_t* buffer, size_t size)
{
    require((device == 0x50 || device == 0x51) && size > 0 && reg % page_size + size <= page_size);
    const int count = module.move(size);
    for (int i = 0; i < count; ++i) {
        const std::size_t at = reg + static_cast<std::size_t>(i);
        require(!is_flag(device, at));
        buffer[i] = module.byte(device, at);
    }
    return count;
}

// Nothing but pages is selected; the module does not have all of them.
int ivra_i2c_bus_write_register(ivra_i2c_bus*, uint8_t device, uint8_t reg, const uint8_t* buffer, size_t size)
{
    require(device == 0x50 && reg == 127 && size == 1);
    const int count = module.move(size);
    if (count == 1) {
        module.selected = *buffer;
        module.selected = pages[module.index_of_selected()];
    }
    return count;
}

} // extern "C"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const board_t board{"bittware_xupp3r"};
    static const ivra::v6::i2c::i2c controller{board.root()};
    static ivra::v6::i2c::bus bus = controller.get_bus(1).value();

    module = plug({data, size});
    const std::uint8_t selected = module.selected;
    const module_t read = read_module(bus);

    require(module.has_failed || module.selected == selected);
    require((read.state == module_state_t::failed) == !read.error.empty());
    require(!module.has_failed || read.state == module_state_t::failed || !read.findings.empty());
    require(read.identifier || (read.state != module_state_t::ok && read.monitors.empty()));
    require(read.lanes.size() <= 8);
    for (const reading_t& reading : read.monitors)
        check(reading);
    for (const lane_t& lane : read.lanes) {
        require(lane.number >= 1 && lane.number <= 8);
        check(lane.rx_power);
        check(lane.tx_power);
        check(lane.tx_bias);
    }
    return 0;
}
