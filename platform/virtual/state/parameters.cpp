#include "state/parameters.h"

#include "rack/model.h"

#include <algorithm>
#include <cstddef>

namespace ivra::virtual_platform {

namespace {

using record_t = std::array<std::uint8_t, board_state::parameters_size>;

constexpr std::array<std::uint8_t, 4> magic{0x5a, 0x5a, 0xa5, 0xa5};
constexpr std::size_t first_address = 16;
constexpr std::size_t address_count = 22;

bool is_valid(const record_t& record)
{
    return std::equal(magic.begin(), magic.end(), record.begin());
}

} // namespace

void update_parameters(const accelerator_t& accelerator, board_state& state)
{
    std::size_t found = 0;
    for (const flash_section_t& section : accelerator.flash.sections) {
        if (section.name != "PARAMS" || ++found != 2 || section.size < board_state::parameters_size)
            continue;
        record_t record{};
        state.flash().read(section.start, record);
        if (is_valid(record))
            state.parameters().write(0, record);
    }
}

std::vector<std::array<std::uint8_t, 6>> mac_addresses(const accelerator_t& accelerator, const board_state& state)
{
    record_t record{};
    state.parameters().read(0, record);
    if (!is_valid(record))
        return accelerator.mac_addresses;
    std::array<std::uint8_t, 6> first{};
    std::reverse_copy(record.begin() + first_address, record.begin() + address_count, first.begin());
    return consecutive_mac_addresses(first, record[address_count]);
}

} // namespace ivra::virtual_platform
