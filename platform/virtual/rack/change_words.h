#ifndef IVRA_VIRTUAL_RACK_CHANGE_WORDS_H
#define IVRA_VIRTUAL_RACK_CHANGE_WORDS_H

#include "memory/clock.h"
#include "rack/rack.h"

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::virtual_platform {

/// A change that cannot be made; the text says what was expected.
class change_error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Words that say no change.
class no_change_error : public change_error
{
public:
    using change_error::change_error;
};

/// What a change depends on beside its words.
struct change_context_t
{
    const accelerator_t& original;              ///< the board as its rack says it
    std::vector<std::filesystem::path> folders; ///< in which the files are that it names
    std::uint64_t number;                       ///< that no other change of the board has
    device_time now;
};

/// Makes a change that is said in words, such as "sensor", "FPGA_TEMP", "85", "C". What is no mistake and hardly meant
/// comes back as texts. Throws change_error; the board is then as it was.
std::vector<std::string> make_change(accelerator_t& board, const std::vector<std::string>& words,
                                     const change_context_t& context);

/// What is different about a board, in words that make it so: "sensor FPGA_TEMP 85 C, not 45 C".
std::vector<std::string> told_changes(const accelerator_t& original, const accelerator_t& board);

/// What can be changed, for people: a line for each.
std::string known_changes();

} // namespace ivra::virtual_platform

#endif
