#ifndef IVRA_VIRTUAL_RACK_CHANGES_H
#define IVRA_VIRTUAL_RACK_CHANGES_H

#include "memory/clock.h"
#include "rack/rack.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// A board as it is now, and what is going to change.
struct changes_t
{
    /// What is different from some time on.
    struct step_t
    {
        device_time at;
        json::value_t difference; ///< from the step before it, see difference()
    };

    accelerator_t board;
    std::vector<step_t> to_come; ///< in the order of their times
};

/// What a board has that another one has not, of all that can change: to be read over that other one.
json::value_t difference(const accelerator_t& from, const accelerator_t& to);

/// What is different about a board is read over it, with the codecs of racks. `file` is named in errors, which are
/// file_error.
void apply_difference(accelerator_t& board, const json::value_t& difference, const std::filesystem::path& file);

/// The board as its rack says it. Modules that come back into their cages do with this number, which no change has.
accelerator_t undone(const accelerator_t& original, const accelerator_t& board, std::uint64_t number);

/// The text that remembers changes of a board, of which `original` is what its rack says; "" is no change.
std::string changes_text(const accelerator_t& original, const changes_t& changes, device_time now);

/// The board that such a text makes of `original`, at this time. A clock that was set back since the text was made
/// says that all of it was long ago. Throws file_error.
changes_t read_changes(const accelerator_t& original, std::string_view text, const std::filesystem::path& file,
                       device_time now);

} // namespace ivra::virtual_platform

#endif
