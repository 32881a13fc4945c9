#ifndef IVRA_VIRTUAL_FLASH_MEMORY_H
#define IVRA_VIRTUAL_FLASH_MEMORY_H

#include "memory/mapped_file.h"

#include <cstdint>
#include <span>
#include <vector>

namespace ivra::virtual_platform {

/// The cells of a flash: erasing sets all bits of a sector, programming can only clear bits. The file holds the bytes
/// inverted, so that a hole in it is erased flash.
class flash_memory
{
public:
    /// `sector` is the number of bytes that are erased together.
    flash_memory(mapped_file file, std::uint64_t sector);

    std::uint64_t size() const { return file_.size(); }
    std::uint64_t sector_size() const { return sector_; }

    /// These take ranges within the flash and throw std::system_error.
    void read(std::uint64_t address, std::span<std::uint8_t> bytes) const;
    /// The sector that holds `address`.
    void erase_sector(std::uint64_t address);
    void program(std::uint64_t address, std::span<const std::uint8_t> bytes);
    /// Replaces bytes, sector by sector: erases where a bit has to be set, and puts back the rest of the sector. Of
    /// several processes one writes at a time. A full disk leaves everything as it was.
    void write(std::uint64_t address, std::span<const std::uint8_t> bytes);

    /// Addresses of the sectors in which something is programmed, in order.
    std::vector<std::uint64_t> programmed_sectors() const;

private:
    std::uint64_t sector_start(std::uint64_t address) const { return address - address % sector_; }
    std::vector<std::uint8_t> read_sector(std::uint64_t start) const;
    void write_within_sector(std::uint64_t address, std::span<const std::uint8_t> bytes);

    mapped_file file_;
    std::uint64_t sector_;
};

} // namespace ivra::virtual_platform

#endif
