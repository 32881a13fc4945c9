#include "devices/bmc/memory.h"

#include <algorithm>
#include <bit>
#include <type_traits>

namespace ivra::virtual_platform {

namespace {

using bytes_t = std::array<std::uint8_t, sizeof(bmc_memory_t)>;
static_assert(std::is_trivially_copyable_v<bmc_memory_t> && std::has_unique_object_representations_v<bmc_memory_t>);

/// The first byte of the file says which of the two copies behind it counts.
constexpr std::uint64_t copy_at(std::uint8_t number)
{
    return 8 + number * std::uint64_t{sizeof(bmc_memory_t)};
}

bool makes_sense(const bmc_memory_t& memory)
{
    if (memory.queued > memory.queue.size() || memory.waiting > memory.queued ||
        memory.answer_count > memory.answers.size() || memory.message_size > memory.message.size())
        return false;
    const auto is_time = [](std::int64_t time) {
        return time >= bmc_memory_t::earliest && time <= 2 * bmc_memory_t::latest;
    };
    std::uint64_t bytes = 0;
    bool are_times = is_time(memory.changed_at) && is_time(memory.received_until) && is_time(memory.busy_until) &&
                     is_time(memory.line_free_at);
    for (std::size_t at = 0; at < memory.answer_count; ++at) {
        bytes += memory.answers.at(at).bytes;
        are_times = are_times && is_time(memory.answers.at(at).due);
    }
    return are_times && bytes == memory.queued;
}

} // namespace

bmc_memory_t bmc_file::read()
{
    std::array<std::uint8_t, file_size> bytes; // all in one go: looking for what a file holds is what takes time
    file_.read(0, bytes);
    current_ = bytes[0] & 1U;
    bytes_t copy{};
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(copy_at(current_)), copy.size(), copy.begin());
    const auto memory = std::bit_cast<bmc_memory_t>(copy);
    return makes_sense(memory) ? memory : bmc_memory_t{};
}

void bmc_file::write(const bmc_memory_t& memory)
{
    current_ ^= 1U;
    file_.write(copy_at(current_), std::bit_cast<bytes_t>(memory));
    file_.write(0, std::array{current_});
}

} // namespace ivra::virtual_platform
