#ifndef IVRA_VIRTUAL_DEVICES_MODULE_CAPTURED_H
#define IVRA_VIRTUAL_DEVICES_MODULE_CAPTURED_H

#include "devices/module/dump.h"
#include "devices/module/module.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// A dump, and the file that it stands in.
struct capture_t
{
    std::filesystem::path file;
    dump_t dump;
};

/// A module that dumps make.
struct captured_t
{
    module_t module;
    std::filesystem::path file;     ///< the last one
    std::size_t last_line = 0;      ///< of it; 0 of a binary one
    std::set<std::size_t> repeated; ///< blocks that were page 00h again: the module does not have these pages
};

/// What a rack calls the part of a module that a dump is: as the members of "memory", but pages in small letters.
dump_label_t label_of_page(std::string_view name);

/// Reads a dump, the text of a file. Throws file_error with the line.
capture_t read_capture(const std::filesystem::path& file, std::string_view text, const dump_hint_t& hint = {});

/// Puts a module together from at least one dump. Throws file_error where they contradict each other.
captured_t captured_module(const std::vector<capture_t>& captures, std::optional<memory_map_t> map);

/// Throws file_error for a page that the module says it has and that no dump holds: nobody knows what it would say
/// there.
void check_advertised(const captured_t& captured);

/// The module of one dump. Throws file_error.
module_t load_captured(const std::filesystem::path& file);

} // namespace ivra::virtual_platform

#endif
