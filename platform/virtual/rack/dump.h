#ifndef IVRA_VIRTUAL_RACK_DUMP_H
#define IVRA_VIRTUAL_RACK_DUMP_H

#include "module.h"

#include <filesystem>
#include <string_view>

namespace ivra::virtual_platform {

/// The blocks of a module from a hexadecimal dump of its memory; `file` is named in errors. Throws file_error.
std::map<unsigned, block_t> parse_dump(std::string_view text, const std::filesystem::path& file);

} // namespace ivra::virtual_platform

#endif
