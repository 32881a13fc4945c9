#include "board/clocks/tables.h"

#include "board/clocks/plan.h"
#include "board/clocks/rows.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>

namespace ivra::bsp::clocks {

namespace {

constexpr std::size_t count(std::span<const rows_t> rows)
{
    std::size_t sum = 0;
    for (const rows_t& row : rows)
        sum += row.last - row.first + std::size_t{1};
    return sum;
}

constexpr std::size_t u55c_main_size = count(main_rows);
constexpr std::size_t u50_main_size = u55c_main_size + count(lockable_rows);

/// Writes the entries of `rows` from `at` on; returns where they end.
constexpr entry_t* expand(std::span<const rows_t> rows, const planned_registers& registers, entry_t* at)
{
    for (const rows_t& row : rows)
        for (std::uint32_t address = row.first; address <= row.last; ++address) {
            const std::int16_t decided = registers.at(address);
            // A planned row that the plan leaves out ends the compilation, and so does a fixed one that it decides.
            if ((row.value == planned) != (decided != planned_registers::undecided))
                throw std::logic_error{"rows and plan disagree"};
            *at++ = {address, static_cast<std::uint32_t>(row.value == planned ? decided : row.value)};
        }
    return at;
}

template <std::size_t main_size>
constexpr auto build(const plan_t& plan)
{
    const planned_registers registers{plan};
    std::array<entry_t, table_t::preamble_size + main_size + table_t::postamble_size> entries{};
    entry_t* const main = expand(preamble_rows, registers, entries.data());
    entry_t* end = expand(main_rows, registers, main);
    if (main_size == u50_main_size)
        end = expand(lockable_rows, registers, end);
    std::sort(main, end, [](const entry_t& a, const entry_t& b) { return a.address < b.address; });
    expand(postamble_rows, registers, end);
    return entries;
}

using enum board::transceiver_speed_t;

// Indices are speeds, as numbers.
constexpr std::array u50_entries{build<u50_main_size>(u50_plan(speed_1g)), build<u50_main_size>(u50_plan(speed_10g))};
constexpr std::array u55c_entries{
    std::array{build<u55c_main_size>(u55c_plan(speed_1g, speed_1g)),
               build<u55c_main_size>(u55c_plan(speed_1g, speed_10g))},
    std::array{build<u55c_main_size>(u55c_plan(speed_10g, speed_1g)),
               build<u55c_main_size>(u55c_plan(speed_10g, speed_10g))},
};

constinit std::array u50_tables{table_t{u50_entries[0]}, table_t{u50_entries[1]}};
constinit std::array u55c_tables{
    std::array{table_t{u55c_entries[0][0]}, table_t{u55c_entries[0][1]}},
    std::array{table_t{u55c_entries[1][0]}, table_t{u55c_entries[1][1]}},
};

std::size_t index(board::transceiver_speed_t speed)
{
    return static_cast<std::size_t>(speed);
}

} // namespace

table_t& u50_table(board::transceiver_speed_t speed)
{
    return u50_tables.at(index(speed));
}

table_t& u55c_table(board::transceiver_speed_t first, board::transceiver_speed_t second)
{
    return u55c_tables.at(index(first)).at(index(second));
}

} // namespace ivra::bsp::clocks
