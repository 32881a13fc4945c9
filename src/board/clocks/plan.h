#ifndef IVRA_BOARD_CLOCKS_PLAN_H
#define IVRA_BOARD_CLOCKS_PLAN_H

#include "board/transceiver_speed.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <stdexcept>

/// Frequencies of the clock generator, a Si5394, and the registers that they decide. Evaluated by the compiler only: a
/// plan that the generator cannot follow does not compile.
namespace ivra::bsp::clocks {

/// Frequencies count half hertz, in which every one here is a whole number.
inline constexpr std::uint64_t mhz = 2'000'000;

inline constexpr std::uint64_t reference = 40 * mhz; // on pin XA
inline constexpr std::uint64_t multiplier = 330;
inline constexpr std::uint64_t vco = reference * multiplier;

inline constexpr std::uint64_t system_clock = 100 * mhz;
inline constexpr std::uint64_t clock_1g = 1250 * mhz / 10;           // 125 MHz
inline constexpr std::uint64_t clock_10g = 20625 * mhz / 2 / 64;     // 161.1328125 MHz
inline constexpr std::uint64_t network_clock = 20625 * mhz / 2 / 32; // 322.265625 MHz

/// Wanted frequencies of OUT0 to OUT3.
using plan_t = std::array<std::uint64_t, 4>;

constexpr std::uint64_t clock_for(board::transceiver_speed_t speed)
{
    return speed == board::transceiver_speed_t::speed_1g ? clock_1g : clock_10g;
}

/// The cage, two more of the network design, and the system clock.
constexpr plan_t u50_plan(board::transceiver_speed_t speed)
{
    return {clock_for(speed), network_clock, network_clock, system_clock};
}

/// The two cages, and the system clock twice.
constexpr plan_t u55c_plan(board::transceiver_speed_t first, board::transceiver_speed_t second)
{
    return {clock_for(first), clock_for(second), system_clock, system_clock};
}

/// A divider as registers hold it: the numerator in 44 bits, the denominator in 32 with its highest bit set.
struct fraction_t
{
    std::uint64_t numerator = 0;
    std::uint64_t denominator = 0;

    constexpr bool operator==(const fraction_t&) const = default;
    constexpr bool is_integer() const { return denominator != 0 && numerator % denominator == 0; }
};

constexpr fraction_t make_fraction(std::uint64_t numerator, std::uint64_t denominator)
{
    const std::uint64_t common = std::gcd(numerator, denominator);
    fraction_t fraction{numerator / common, denominator / common};
    while ((fraction.denominator & 0x8000'0000) == 0)
        fraction = {fraction.numerator << 1, fraction.denominator << 1};
    if (fraction.denominator >> 32 != 0 || fraction.numerator >> 44 != 0)
        throw std::logic_error{"fraction does not fit in its registers"};
    return fraction;
}

/// f(OUT) = f(VCO) / n / r
struct dividers_t
{
    fraction_t n;
    std::uint64_t r;
};

/// The output divider is 2 where that leaves a whole number to the N divider, which then adds no jitter; else the
/// largest even one that leaves it at 20 or more.
constexpr dividers_t dividers_for(std::uint64_t frequency)
{
    constexpr std::uint64_t least_n = 10;
    constexpr std::uint64_t most_n = 4095;
    constexpr std::uint64_t least_fractional_n = 20;

    const std::uint64_t r = vco % (2 * frequency) == 0 ? 2 : vco / (least_fractional_n * frequency) / 2 * 2;
    if (r < 2 || vco < least_n * r * frequency || vco > most_n * r * frequency)
        throw std::logic_error{"no divider for this frequency"};
    return {make_fraction(vco, r * frequency), r};
}

/// Values of the registers that a plan decides.
class planned_registers
{
public:
    static constexpr std::int16_t undecided = -1;

    explicit constexpr planned_registers(const plan_t& plan)
    {
        values_.fill(undecided);
        set(0x0206, 1, 0); // the reference is not divided before it is multiplied
        const fraction_t times = make_fraction(multiplier, 1);
        set(0x0235, 6, times.numerator);
        set(0x023B, 4, times.denominator);

        std::array<fraction_t, 4> n{dividers_for(system_clock).n}; // N0, on every board
        std::size_t used = 1;
        for (std::size_t output = 0; output < plan.size(); ++output) {
            const dividers_t dividers = dividers_for(plan[output]);
            std::size_t index = 0;
            while (index < used && n[index] != dividers.n)
                ++index;
            if (index == used)
                n.at(used++) = dividers.n;
            set_output(output, dividers.r, index);
        }
        set_n_dividers(n, used);
    }

    /// The value, or `undecided`.
    constexpr std::int16_t at(std::size_t address) const { return values_.at(address); }

private:
    constexpr void set_output(std::size_t output, std::uint64_t r, std::uint64_t n_index)
    {
        constexpr std::array<std::uint16_t, 4> blocks{0x0112, 0x0117, 0x0126, 0x012B};
        constexpr std::array<std::uint16_t, 4> r_dividers{0x0250, 0x0253, 0x025C, 0x025F};
        constexpr std::uint64_t enabled = 0x02;
        constexpr std::uint64_t divide_by_2 = 0x04;

        const std::uint16_t block = blocks[output];
        set(block, 1, r == 2 ? enabled | divide_by_2 : enabled);
        set(block + 1, 1, 0x09);           // format
        set(block + 2, 1, 0x3E);           // amplitude and common mode
        set(block + 3, 1, 0x18 | n_index); // driver supply, and in the low three bits the N divider
        set(r_dividers[output], 3, r / 2 - 1);
    }

    constexpr void set_n_dividers(const std::array<fraction_t, 4>& n, std::size_t used)
    {
        constexpr std::array<std::uint16_t, 4> high_frequency_flags{0x0A14, 0x0A1A, 0x0A20, 0x0A26};

        std::uint64_t integers = 0;
        for (std::size_t index = 0; index < n.size(); ++index) {
            const std::size_t block = 0x0302 + 11 * index;
            set(block, 6, n[index].numerator);
            set(block + 6, 4, n[index].denominator);
            set(high_frequency_flags[index], 1, 0);
            if (n[index].is_integer())
                integers |= std::uint64_t{1} << index;
        }
        const std::uint64_t in_use = (std::uint64_t{1} << used) - 1;
        set(0x0A02, 1, 0);              // no half-step adders
        set(0x0A03, 1, in_use);         // routed to outputs
        set(0x0A04, 1, integers);       // integer mode
        set(0x0A05, 1, in_use);         // powered
        set(0x0B4A, 1, ~in_use & 0x0F); // clocks off
    }

    /// Little endian.
    constexpr void set(std::size_t first, std::size_t bytes, std::uint64_t value)
    {
        for (std::size_t i = 0; i < bytes; ++i)
            values_.at(first + i) = static_cast<std::int16_t>(value >> (8 * i) & 0xFF);
    }

    std::array<std::int16_t, 0x0D00> values_{};
};

} // namespace ivra::bsp::clocks

#endif
