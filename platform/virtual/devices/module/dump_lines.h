#ifndef IVRA_VIRTUAL_DEVICES_MODULE_DUMP_LINES_H
#define IVRA_VIRTUAL_DEVICES_MODULE_DUMP_LINES_H

#include "dump.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

inline constexpr std::size_t usual_width = 16; ///< bytes of a line

/// A line that is none of a dump.
struct dump_noise_t
{
    std::size_t line = 0;
    std::string text;
};

/// A line of bytes.
struct dump_row_t
{
    std::size_t line = 0;
    std::string text;
    std::string address;               ///< digits; empty: there is none
    bool is_hexadecimal = true;        ///< the address; otherwise the step to the next one tells its base
    std::vector<std::uint8_t> bytes;   ///< none: the address is where the dump ends. Those behind the 16th may be text
    bool repeats = false;              ///< "*" comes before it: the row before goes on up to its address
    std::optional<dump_noise_t> noise; ///< the first such line before it
};

/// Rows with one heading.
struct dump_block_t
{
    dump_label_t label;
    bool tells_page = false;     ///< its byte 127 is the page of its upper half, as both were read at once
    bool is_two_devices = false; ///< of an SFP: the second half is the first one of the other device
    std::vector<dump_row_t> rows;
    std::size_t star = 0;              ///< line of a "*" behind all rows; 0: there is none
    std::optional<dump_noise_t> noise; ///< the first such line behind all rows
};

/// A number of the base, or of base 16 after 0x; nothing when it is none or too large.
std::optional<unsigned> number_of(std::string_view text, int base);

/// A text of the dump as mistakes quote it.
std::string in_quotes(std::string_view text);

/// Sorts out the lines of a dump. There is at least one block, and each has rows. Throws dump_error.
std::vector<dump_block_t> dump_blocks(std::string_view text);

} // namespace ivra::virtual_platform

#endif
