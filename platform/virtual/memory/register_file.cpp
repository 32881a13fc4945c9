#include "memory/register_file.h"

#include <array>
#include <bit>
#include <numeric>

namespace ivra::virtual_platform {

namespace {

std::uint64_t space_sum(const core_t* begin, const core_t* end)
{
    return std::accumulate(begin, end, std::uint64_t{0},
                           [](std::uint64_t sum, const core_t& core) { return sum + core.size; });
}

constexpr std::uint64_t kept_bytes = register_file::kept_numbers * sizeof(std::int64_t); // for each core

} // namespace

std::uint64_t register_file::file_size(const std::vector<core_t>& cores)
{
    return space_sum(cores.data(), cores.data() + cores.size()) + kept_bytes * cores.size();
}

register_file::register_file(mapped_file file, const std::vector<core_t>& cores)
    : file_{std::move(file)}, cores_{&cores}
{
}

const core_t* register_file::place_of(const core_t& core) const
{
    const core_t* place = cores_->data();
    while (place->address != core.address)
        ++place;
    return place;
}

std::uint64_t register_file::position(const core_t& core, std::uint64_t offset) const
{
    return space_sum(cores_->data(), place_of(core)) + offset;
}

std::uint32_t register_file::read(const core_t& core, std::uint64_t offset) const
{
    std::array<std::uint8_t, 4> bytes{};
    file_.read(position(core, offset), bytes);
    return std::bit_cast<std::uint32_t>(bytes);
}

void register_file::write(const core_t& core, std::uint64_t offset, std::uint32_t value)
{
    file_.write(position(core, offset), std::bit_cast<std::array<std::uint8_t, 4>>(value));
}

std::uint64_t register_file::kept_position(const core_t& core, std::size_t slot) const
{
    const auto number = static_cast<std::uint64_t>(place_of(core) - cores_->data());
    return space_sum(cores_->data(), cores_->data() + cores_->size()) + kept_bytes * number +
           sizeof(std::int64_t) * slot;
}

std::int64_t register_file::kept(const core_t& core, std::size_t slot) const
{
    std::array<std::uint8_t, sizeof(std::int64_t)> bytes{};
    file_.read(kept_position(core, slot), bytes);
    return std::bit_cast<std::int64_t>(bytes);
}

void register_file::keep(const core_t& core, std::size_t slot, std::int64_t value)
{
    file_.write(kept_position(core, slot), std::bit_cast<std::array<std::uint8_t, sizeof value>>(value));
}

} // namespace ivra::virtual_platform
