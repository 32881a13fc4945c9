#ifndef IVRA_VIRTUAL_REGISTER_FILE_H
#define IVRA_VIRTUAL_REGISTER_FILE_H

#include "memory/mapped_file.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace ivra::virtual_platform {

/// A core of the design: what the walk of an MMIO space finds.
struct core_t
{
    std::uint32_t hardware_id = 0;
    std::uint64_t address = 0;                        ///< of its space, in the MMIO space
    std::uint64_t size = 0;                           ///< bytes of its space
    std::map<std::uint64_t, std::uint32_t> registers; ///< values at the start, by byte offset; others are 0

    bool operator==(const core_t&) const = default;
};

/// The 32-bit registers of all cores of a board, one core's space after the other's, and behind them what the devices
/// behind the cores keep to themselves.
class register_file
{
public:
    /// Numbers that the device behind a core can keep where its host does not see them; 0 at the start.
    static constexpr std::size_t kept_numbers = 8;

    /// Bytes of the file that holds the registers of these cores.
    static std::uint64_t file_size(const std::vector<core_t>& cores);

    /// `cores` outlives the object. Throws std::system_error.
    register_file(mapped_file file, const std::vector<core_t>& cores);

    /// `core` is one of the cores given, or a copy; `offset` is a multiple of 4 and lies in its space with all four
    /// bytes. Each throws std::system_error.
    std::uint32_t read(const core_t& core, std::uint64_t offset) const;
    void write(const core_t& core, std::uint64_t offset, std::uint32_t value);

    /// The device's own numbers, each in one of the `kept_numbers` slots.
    std::int64_t kept(const core_t& core, std::size_t slot) const;
    void keep(const core_t& core, std::size_t slot, std::int64_t value);

    /// Keeps other processes from taking it, for what has to be read and changed in one go.
    class lock : public file_lock
    {
    public:
        explicit lock(register_file& registers) : file_lock{registers.file_} {}
    };

private:
    const core_t* place_of(const core_t& core) const;
    std::uint64_t kept_position(const core_t& core, std::size_t slot) const;
    std::uint64_t position(const core_t& core, std::uint64_t offset) const;

    mapped_file file_;
    const std::vector<core_t>* cores_;
};

} // namespace ivra::virtual_platform

#endif
