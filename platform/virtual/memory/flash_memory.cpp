#include "memory/flash_memory.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>

#include <sys/file.h>

namespace ivra::virtual_platform {

namespace {

constexpr std::uint64_t page = 4096; // what is programmed together; room is taken by the page

std::uint8_t inverted(std::uint8_t byte)
{
    return static_cast<std::uint8_t>(~byte);
}

/// Keeps other processes from writing to the same flash.
class write_lock
{
public:
    explicit write_lock(int fd) : fd_{fd}
    {
        while (::flock(fd_, LOCK_EX) < 0) {
            if (errno != EINTR)
                throw std::system_error{errno, std::generic_category(), "Cannot lock the flash"};
        }
    }
    ~write_lock() { ::flock(fd_, LOCK_UN); }
    write_lock(const write_lock&) = delete;
    write_lock& operator=(const write_lock&) = delete;

private:
    int fd_;
};

} // namespace

flash_memory::flash_memory(mapped_file file, std::uint64_t sector)
    : file_{std::move(file)}, sector_{std::max<std::uint64_t>(sector, 1)}
{
}

void flash_memory::read(std::uint64_t address, std::span<std::uint8_t> bytes) const
{
    file_.read(address, bytes);
    std::transform(bytes.begin(), bytes.end(), bytes.begin(), inverted);
}

void flash_memory::erase_sector(std::uint64_t address)
{
    const std::uint64_t start = sector_start(address);
    file_.clear(start, std::min(sector_, size() - start));
}

void flash_memory::program(std::uint64_t address, std::span<const std::uint8_t> bytes)
{
    while (!bytes.empty()) {
        const std::span chunk = bytes.first(std::min<std::size_t>(bytes.size(), page - address % page));
        std::vector<std::uint8_t> cells(chunk.size());
        file_.read(address, cells);
        const std::vector<std::uint8_t> before = cells;
        for (std::size_t i = 0; i < chunk.size(); ++i)
            cells[i] = static_cast<std::uint8_t>(cells[i] | inverted(chunk[i]));
        if (cells != before) // erased pages that stay erased take no room
            file_.write(address, cells);
        address += chunk.size();
        bytes = bytes.subspan(chunk.size());
    }
}

std::vector<std::uint8_t> flash_memory::read_sector(std::uint64_t start) const
{
    std::vector<std::uint8_t> bytes(std::min(sector_, size() - start));
    read(start, bytes);
    return bytes;
}

void flash_memory::write_within_sector(std::uint64_t address, std::span<const std::uint8_t> bytes)
{
    const std::uint64_t start = sector_start(address);
    std::vector<std::uint8_t> sector = read_sector(start);
    const auto place = sector.begin() + static_cast<std::ptrdiff_t>(address - start);
    const bool sets_a_bit = !std::equal(bytes.begin(), bytes.end(), place,
                                        [](std::uint8_t wanted, std::uint8_t cell) { return (wanted & ~cell) == 0; });
    if (!sets_a_bit) {
        program(address, bytes);
        return;
    }
    std::copy(bytes.begin(), bytes.end(), place);
    erase_sector(start);
    program(start, sector);
}

void flash_memory::write(std::uint64_t address, std::span<const std::uint8_t> bytes)
{
    const write_lock lock{file_.descriptor()};
    // Room for everything comes first: what is put back into a sector had its room before.
    file_.reserve(address, bytes.size());
    while (!bytes.empty()) {
        const std::uint64_t sector_end = sector_start(address) + sector_;
        const std::span part = bytes.first(std::min<std::size_t>(bytes.size(), sector_end - address));
        write_within_sector(address, part);
        address += part.size();
        bytes = bytes.subspan(part.size());
    }
}

std::vector<std::uint64_t> flash_memory::programmed_sectors() const
{
    std::vector<std::uint64_t> sectors;
    for (std::uint64_t from = file_.next_data(0).first; from < size();) {
        const std::uint64_t start = sector_start(from);
        const std::vector<std::uint8_t> bytes = read_sector(start);
        if (std::any_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte != 0xFF; }))
            sectors.push_back(start);
        from = file_.next_data(start + bytes.size()).first;
    }
    return sectors;
}

} // namespace ivra::virtual_platform
