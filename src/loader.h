#ifndef IVRA_BSP_LOADER_H
#define IVRA_BSP_LOADER_H

#include <filesystem>
#include <string>
#include <vector>

namespace ivra::bsp {

/// A library that a program needs.
struct library_t
{
    std::string name;
    std::string file; ///< that the dynamic loader finds under this name; empty: none
};

/// Asks the dynamic loader, in a process of its own, which libraries it would load for a program. No code of the
/// program or of a library runs. Empty when it is no dynamic program, or when the loader cannot be asked.
std::vector<library_t> libraries_of(const std::filesystem::path& program);

/// Whether a library carries the mark of those that simulate boards.
bool is_simulated(const std::filesystem::path& library);

} // namespace ivra::bsp

#endif
