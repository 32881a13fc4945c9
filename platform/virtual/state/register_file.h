#ifndef IVRA_VIRTUAL_REGISTER_FILE_H
#define IVRA_VIRTUAL_REGISTER_FILE_H

#include "rack/rack.h"
#include "state/mapped_file.h"

#include <cstdint>
#include <vector>

namespace ivra::virtual_platform {

/// The 32-bit registers of all cores of a board, one core's space after the other's.
class register_file
{
public:
    /// Bytes of the file that holds the registers of these cores.
    static std::uint64_t file_size(const std::vector<core_t>& cores);

    /// `cores` outlives the object. Throws std::system_error.
    register_file(mapped_file file, const std::vector<core_t>& cores);

    /// `core` is a member of the cores given; `offset` is a multiple of 4 and lies in its space with all four bytes.
    /// Each throws std::system_error.
    std::uint32_t read(const core_t& core, std::uint64_t offset) const;
    void write(const core_t& core, std::uint64_t offset, std::uint32_t value);

private:
    std::uint64_t position(const core_t& core, std::uint64_t offset) const;

    mapped_file file_;
    const std::vector<core_t>* cores_;
};

} // namespace ivra::virtual_platform

#endif
