#ifndef IVRA_VIRTUAL_EXPAND_H
#define IVRA_VIRTUAL_EXPAND_H

#include "rack.h"

#include <string>

namespace ivra::virtual_platform {

/// A rack file that says everything about `rack`, defaults included, and loads to the same accelerators.
std::string expand(const rack_t& rack);

/// A rack file to start from: a board of each of `models`, over and over until there are `count`. It says what people
/// change and leaves the rest to defaults.
std::string starter(const std::vector<std::string>& models, std::size_t count);

} // namespace ivra::virtual_platform

#endif
