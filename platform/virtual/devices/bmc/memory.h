#ifndef IVRA_VIRTUAL_BMC_MEMORY_H
#define IVRA_VIRTUAL_BMC_MEMORY_H

#include "memory/mapped_file.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

namespace ivra::virtual_platform {

/// What a BMC and its line remember. All zeros is the state at the start. Times are nanoseconds of device_time.
struct bmc_memory_t
{
    static constexpr std::int64_t latest = std::numeric_limits<std::int64_t>::max() / 4;
    static constexpr std::int64_t earliest = -latest;

    struct answer_t
    {
        std::int64_t due = 0;    ///< when its first byte sets out
        std::uint32_t bytes = 0; ///< that were not read yet
        std::uint32_t rule = 0;  ///< 1 + place in bmc_t::answers; 0: none
        bool operator==(const answer_t&) const = default;
    };

    std::int64_t changed_at = 0;     ///< last use: a clock before it was set back
    std::int64_t received_until = 0; ///< when the last byte of the host has arrived
    std::int64_t busy_until = 0;     ///< when the last request has been worked on
    std::int64_t line_free_at = 0;   ///< when the last byte for the host has arrived

    // The frame that the host is sending.
    std::uint32_t message_size = 0;
    std::uint8_t in_frame = 0;
    std::uint8_t after_escape = 0;

    std::uint16_t boot_image = 0;        ///< that the host has chosen
    std::uint64_t boot_image_chosen = 0; ///< 1 + bmc_t::boot_image_change as it was then; 0: none was

    // For the host, in order: `waiting` bytes of `queue` have arrived in its FIFO.
    std::uint32_t waiting = 0;
    std::uint32_t pieces_given = 0; ///< of the first answer
    std::uint32_t answer_count = 0;
    std::uint32_t queued = 0;

    std::array<std::uint32_t, 64> seen{}; ///< requests that each rule of the rack has matched
    std::array<answer_t, 16> answers{};
    std::array<std::uint8_t, 512> message{};
    std::array<std::uint8_t, 4096> queue{};

    bool operator==(const bmc_memory_t&) const = default;
};

/// A bmc_memory_t in a file that is mapped shared. It is changed in one step: a process that is killed on the way
/// leaves what was there before.
class bmc_file
{
public:
    static constexpr std::uint64_t file_size = 8 + 2 * sizeof(bmc_memory_t);

    explicit bmc_file(mapped_file file) : file_{std::move(file)} {}

    /// Nonsense reads as the state at the start. What is written was read under the same lock. Each throws
    /// std::system_error.
    bmc_memory_t read();
    void write(const bmc_memory_t& memory);

    /// Keeps other processes from taking it, for what has to be read and changed in one go.
    file_lock lock() { return file_lock{file_}; }

private:
    mapped_file file_;
    std::uint8_t current_ = 0; // which of the two copies counts
};

} // namespace ivra::virtual_platform

#endif
