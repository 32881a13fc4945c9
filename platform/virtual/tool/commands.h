#ifndef IVRA_VIRTUAL_TOOL_COMMANDS_H
#define IVRA_VIRTUAL_TOOL_COMMANDS_H

#include "rack/rack.h"

#include <filesystem>

namespace ivra::virtual_platform {

/// Prints what is plugged into a rack and what its boards remember. Throws std::system_error.
void show(const rack_t& rack);

/// Each makes boards forget, those of a rack file (which need not exist any more) or all, and says which. Nothing is
/// removed when the folder holds anything but states of boards. Throws std::runtime_error.
void reset_rack(const std::filesystem::path& rack_file);
void reset_all();

} // namespace ivra::virtual_platform

#endif
