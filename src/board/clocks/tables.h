#ifndef IVRA_BOARD_CLOCKS_TABLES_H
#define IVRA_BOARD_CLOCKS_TABLES_H

#include "board/transceiver_speed.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace ivra::bsp::clocks {

/// One register write.
struct entry_t
{
    std::uint32_t address; ///< page in bits 8 to 15, register of the page in bits 0 to 7
    std::uint32_t value;   ///< one byte
};

/// A complete configuration of the clock generator.
struct table_t
{
    static constexpr std::size_t preamble_size = 3;
    static constexpr std::size_t postamble_size = 5;

    std::span<const entry_t> entries;
    std::uint8_t page = 0xFF; ///< that this table's entries selected last; 0xFF stands for none yet

    std::span<const entry_t> preamble() const { return entries.first(preamble_size); }
    std::span<const entry_t> main() const
    {
        return entries.subspan(preamble_size, entries.size() - postamble_size - preamble_size);
    }
    std::span<const entry_t> postamble() const { return entries.last(postamble_size); }
};

/// The tables, one for each choice of speeds. They live as long as the process, and so does the page of each.
/// Deliberate: tables do not share their page.
table_t& u50_table(board::transceiver_speed_t speed);
table_t& u55c_table(board::transceiver_speed_t first, board::transceiver_speed_t second);

} // namespace ivra::bsp::clocks

#endif
