#ifndef IVRA_VIRTUAL_RACK_PLAY_H
#define IVRA_VIRTUAL_RACK_PLAY_H

#include "memory/clock.h"
#include "rack/changes.h"
#include "rack/rack.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// A change at a time: a line of a file to be played.
struct play_line_t
{
    /// A word, and how many characters stand before it on its line.
    struct word_t
    {
        std::string text;
        std::size_t before;
    };

    std::size_t number; ///< of the line, from 1
    device_time after;  ///< the start
    word_t accelerator; ///< its name, uid or index
    word_t what;        ///< the first of the words of the change
    std::vector<std::string> words;
};

/// Reads lines such as "2.5 s  virtual-u200  sensor FPGA_TEMP 85 C". Words in quotation marks may hold spaces, "#"
/// begins a comment, times do not go back. Throws file_error.
std::vector<play_line_t> parse_play(std::string_view text, const std::filesystem::path& file);

/// The lines that are about each accelerator of the rack. Throws file_error.
std::map<const accelerator_t*, std::vector<play_line_t>>
sorted_by_board(const rack_t& rack, const std::vector<play_line_t>& lines, const std::filesystem::path& file);

/// What the lines make of a board from `start` on; each takes one number, from `number` on. Remarks become lines in
/// `remarks`. Throws file_error.
std::vector<changes_t::step_t> steps_of(const accelerator_t& original, accelerator_t board,
                                        const std::vector<play_line_t>& lines, const std::filesystem::path& file,
                                        const std::vector<std::filesystem::path>& folders, device_time start,
                                        std::uint64_t number, std::vector<std::string>& remarks);

} // namespace ivra::virtual_platform

#endif
