#include "devices/clock_generator/clock_generator.h"

#include <algorithm>
#include <iterator>
#include <span>

namespace ivra::virtual_platform {

namespace {

using namespace std::chrono_literals;

// Its state, in the bytes before the registers.
constexpr std::size_t phase_at = 1;
constexpr std::size_t mistake_at = 2;
constexpr std::size_t page_at = 3;
constexpr std::size_t last_write_at = 8; // nanoseconds
constexpr std::size_t written_at = 128;  // a bit for each register that was written since the preamble

constexpr device_time pause_after_write = 1ms;
constexpr device_time pause_after_preamble = 500ms;

// How far a load is: one of these, or in between.
constexpr std::uint8_t not_loaded = 0;
constexpr std::uint8_t preamble_done = 3;
constexpr std::uint8_t in_main_part = 4;
constexpr std::uint8_t running = 9;

enum mistake_t : std::uint8_t
{
    none,
    too_fast,
    not_settled,
    out_of_order,
    incomplete,
    changed
};
constexpr const char* mistake_texts[] = {"",
                                         "written too fast",
                                         "written before it had settled",
                                         "written out of order",
                                         "loaded incompletely",
                                         "changed while it was running"};

constexpr std::uint8_t page_register = 0x01;
constexpr unsigned soft_reset = 0x001c;
constexpr unsigned loop_reset = 0x0514;

// Dividers.
constexpr unsigned reference_shift = 0x0206; // bits 1 and 0
constexpr unsigned vco_numerator = 0x0235;
constexpr unsigned vco_denominator = 0x023b;
constexpr unsigned numerator_bytes = 6; // of which 44 bits count
constexpr unsigned denominator_bytes = 4;
constexpr unsigned n_dividers = 0x0302;
constexpr unsigned n_stride = 11;
constexpr unsigned r_bytes = 3;
constexpr unsigned n_routed = 0x0a03;
constexpr unsigned n_powered = 0x0a05;
constexpr std::uint64_t mask_of_44_bits = (std::uint64_t{1} << 44U) - 1;
constexpr unsigned reference_megahertz = 40;

struct output_row_t
{
    unsigned config; ///< bit 0 power down, bit 1 enable, bit 2 divide by 2; three further on: which N divider
    unsigned r_divider;
};
constexpr output_row_t output_rows[clock_outputs] = {
    {0x0112, 0x0250}, {0x0117, 0x0253}, {0x0126, 0x025c}, {0x012b, 0x025f}};

/// Registers that every load has to write: without them no output can be known.
constexpr struct
{
    unsigned first, count;
} needed[] = {
    {reference_shift, 1},
    {vco_numerator, numerator_bytes + denominator_bytes},
    {n_dividers, numerator_bytes + denominator_bytes},
    {n_dividers + n_stride, numerator_bytes + denominator_bytes},
    {n_dividers + 2 * n_stride, numerator_bytes + denominator_bytes},
    {n_dividers + 3 * n_stride, numerator_bytes + denominator_bytes},
    {n_routed, 1},
    {n_powered, 1},
    {0x0112, 4},
    {0x0117, 4},
    {0x0126, 4},
    {0x012b, 4},
    {0x0250, 6},
    {0x025c, 6},
};

__extension__ using wide_t = unsigned __int128; // 40 x 2^44 x 2^32, and 2^2 x 2^32 x 2^44 x 2^25, have 103 bits

/// A number of megahertz in decimals, all of them when there are not many.
std::string megahertz_text(wide_t numerator, wide_t denominator)
{
    constexpr int most_decimals = 15;
    const wide_t whole = numerator / denominator;
    wide_t rest = numerator % denominator;
    std::string text;
    for (wide_t left = whole; left != 0; left /= 10)
        text.insert(text.begin(), static_cast<char>('0' + static_cast<int>(left % 10)));
    if (text.empty())
        text = "0";
    for (int decimal = 0; rest != 0 && decimal < most_decimals; ++decimal) {
        text += decimal == 0 ? "." : "";
        rest *= 10;
        text += static_cast<char>('0' + static_cast<int>(rest / denominator));
        rest %= denominator;
    }
    return text + (rest == 0 ? "" : "...") + " MHz";
}

} // namespace

/// A write that takes a load from one phase to the next.
struct clock_generator::step_t
{
    std::uint8_t phase;
    unsigned address;
    std::uint8_t value;
};

constexpr clock_generator::step_t clock_generator::steps[] = {
    // clang-format off
    {1,            0x0b25,     0x00}, // preamble; its first write begins a load at any time
    {2,            0x0540,     0x01},
    {in_main_part, loop_reset, 0x01}, // postamble
    {5,            soft_reset, 0x01},
    {6,            0x0540,     0x00},
    {7,            0x0b24,     0xc3},
    {8,            0x0b25,     0x02},
    // clang-format on
};

clock_generator::clock_generator(const mapped_file& file, std::uint64_t place) : memory_(clock_memory_size)
{
    file.read(place, memory_);
}

void clock_generator::store(mapped_file& file, std::uint64_t place) const
{
    file.write(place + 1, std::span{memory_}.subspan(1));
}

std::uint8_t& clock_generator::phase()
{
    return memory_.at(phase_at);
}

std::int64_t clock_generator::time(std::size_t at) const
{
    std::uint64_t value = 0;
    for (std::size_t byte = 0; byte < sizeof value; ++byte)
        value |= std::uint64_t{memory_.at(at + byte)} << 8U * byte;
    return static_cast<std::int64_t>(value);
}

void clock_generator::set_time(std::size_t at, device_time now)
{
    const auto value = static_cast<std::uint64_t>(now.count());
    for (std::size_t byte = 0; byte < sizeof value; ++byte)
        memory_.at(at + byte) = static_cast<std::uint8_t>(value >> 8U * byte);
}

/// The first mistake of a load stays.
void clock_generator::found(std::uint8_t mistake)
{
    if (memory_.at(mistake_at) == none)
        memory_.at(mistake_at) = mistake;
}

void clock_generator::begin_write(std::size_t count, device_time now)
{
    if (count == 0)
        return;
    const device_time last{time(last_write_at)};
    // It was long ago when the clock was set back since, or further on than a difference can hold.
    const bool was_long_ago = now < last || (last.count() < 0 && now > last + device_time::max());
    const device_time pause = was_long_ago ? device_time::max() : now - last;
    const bool is_loading = phase() != not_loaded && phase() != running;
    if (is_loading && (pause < pause_after_write || count > 1))
        found(too_fast);
    if (phase() == preamble_done) {
        if (pause < pause_after_preamble)
            found(not_settled);
        phase() = in_main_part;
    }
    set_time(last_write_at, now);
}

void clock_generator::write(std::uint8_t at, std::uint8_t value)
{
    if (at == page_register) {
        memory_.at(page_at) = value;
        return;
    }
    const unsigned address = unsigned{memory_.at(page_at)} << 8U | at;
    advance(address, value);
    const bool clears_itself = address == soft_reset || address == loop_reset;
    if (address < clock_pages * 256)
        memory_.at(clock_state_size + address) = clears_itself ? std::uint8_t{0} : value;
}

/// Takes a load further, or notes why it cannot be.
void clock_generator::advance(unsigned address, std::uint8_t value)
{
    constexpr unsigned first_address = 0x0b24;
    constexpr std::uint8_t first_value = 0xc0;
    if (address == first_address && value == first_value) {
        phase() = 1;
        memory_.at(mistake_at) = none;
        std::fill_n(memory_.begin() + written_at, clock_pages * 256 / 8, std::uint8_t{0});
        return;
    }
    const auto* const step = std::ranges::find(steps, phase(), &step_t::phase);
    if (step != std::end(steps) && step->address == address && step->value == value) {
        if (phase() == in_main_part && !is_complete())
            found(incomplete);
        ++phase();
        return;
    }
    const bool is_a_steps =
        std::ranges::find(steps, address, &step_t::address) != std::end(steps) || address == first_address;
    if (phase() == running)
        found(changed);
    else if (phase() != in_main_part || is_a_steps)
        found(out_of_order);
    else if (address < clock_pages * 256)
        memory_.at(written_at + address / 8) |= static_cast<std::uint8_t>(1U << address % 8);
}

bool clock_generator::is_written(unsigned address) const
{
    return (memory_.at(written_at + address / 8) >> address % 8 & 1U) != 0;
}

bool clock_generator::is_complete() const
{
    return std::ranges::all_of(needed, [this](const auto& range) {
        for (unsigned at = 0; at < range.count; ++at)
            if (!is_written(range.first + at))
                return false;
        return true;
    });
}

std::uint8_t clock_generator::read(std::uint8_t at) const
{
    const unsigned address = unsigned{memory_.at(page_at)} << 8U | at;
    if (at == page_register)
        return memory_.at(page_at);
    return address < clock_pages * 256 ? memory_.at(clock_state_size + address) : std::uint8_t{0};
}

/// A number of little-endian registers.
std::uint64_t clock_generator::number(unsigned address, unsigned bytes) const
{
    std::uint64_t value = 0;
    for (unsigned byte = 0; byte < bytes; ++byte)
        value |= std::uint64_t{reg(address + byte)} << 8U * byte;
    return value;
}

std::string clock_generator::output_text(std::size_t output) const
{
    const auto& [config, r_divider] = output_rows[output];
    constexpr unsigned power_down = 1;
    constexpr unsigned enable = 2;
    constexpr unsigned divide_by_2 = 4;
    const unsigned n = reg(config + 3) & 7U;
    if ((reg(config) & power_down) != 0 || (reg(config) & enable) == 0)
        return "off";
    if ((reg(n_routed) >> n & 1U) == 0 || (reg(n_powered) >> n & 1U) == 0)
        return "off, as N" + std::to_string(n) + " is";
    const std::uint64_t n_numerator = number(n_dividers + n_stride * n, numerator_bytes) & mask_of_44_bits;
    const std::uint64_t n_denominator = number(n_dividers + n_stride * n + numerator_bytes, denominator_bytes);
    const std::uint64_t f_numerator = number(vco_numerator, numerator_bytes) & mask_of_44_bits;
    const std::uint64_t f_denominator = number(vco_denominator, denominator_bytes);
    const std::uint64_t r = (reg(config) & divide_by_2) != 0 ? 2 : 2 * (number(r_divider, r_bytes) + 1);
    const unsigned shift = reg(reference_shift) & 3U;
    if (n_numerator == 0 || f_denominator == 0)
        return "off, as a divider is 0";
    return megahertz_text(wide_t{reference_megahertz} * f_numerator * n_denominator,
                          (wide_t{f_denominator} * n_numerator * r) << shift);
}

clock_status_t clock_generator::status() const
{
    const std::uint8_t at = memory_.at(phase_at);
    const std::uint8_t mistake = std::min<std::uint8_t>(memory_.at(mistake_at), std::size(mistake_texts) - 1);
    clock_status_t status;
    status.is_running = at == running && mistake == none;
    status.text = mistake != none      ? mistake_texts[mistake]
                  : at == not_loaded   ? "not loaded"
                  : at < preamble_done ? "in the preamble of a load"
                  : at <= in_main_part ? "in the middle of a load"
                  : at < running       ? "in the postamble of a load"
                                       : "running";
    for (std::size_t output = 0; output < clock_outputs; ++output)
        status.outputs.at(output) = status.is_running ? output_text(output) : "off";
    return status;
}

} // namespace ivra::virtual_platform
