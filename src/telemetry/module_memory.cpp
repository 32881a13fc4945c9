#include "telemetry/module_memory.h"

#include <algorithm>
#include <bitset>
#include <utility>

namespace ivra::bsp::telemetry {

namespace {

constexpr const char* all_ones = "Its memory reads as all ones";

bool is_on(const block_t& block, const place_t& place)
{
    return block.place.device == place.device && (place.byte < first_of_page || block.place.page == place.page);
}

bool is_of(const block_t& block, std::size_t byte)
{
    return byte >= block.place.byte && byte - block.place.byte < block.place.length;
}

const block_t* find_block(const memory_t& memory, const place_t& place, std::size_t byte)
{
    const auto found =
        std::ranges::find_if(memory, [&](const block_t& block) { return is_on(block, place) && is_of(block, byte); });
    return found == memory.end() ? nullptr : &*found;
}

bool is_all_ones(const block_t& block)
{
    constexpr std::size_t enough = 3; // a single number may well be 0xffff
    return block.bytes.size() >= enough && std::ranges::count(block.bytes, 0xff) == std::ssize(block.bytes);
}

/// Whether enough bytes of a page were read on page 00h, too, and all of them are the same there. A filling of one byte
/// says nothing.
bool is_page_0_again(const memory_t& memory, std::uint8_t page)
{
    constexpr std::size_t enough = 8;
    std::size_t count = 0;
    std::bitset<256> values;
    for (unsigned byte = first_of_page; byte < 256; ++byte) {
        const auto at = static_cast<std::uint8_t>(byte);
        const found_t here = find(memory, {main_memory, page, at, 1});
        const found_t there = find(memory, {main_memory, 0, at, 1});
        if (!here || !there)
            continue;
        if (here.bytes != there.bytes)
            return false;
        values.set(here.bytes[0]);
        ++count;
    }
    return count >= enough && values.count() > 1;
}

} // namespace

found_t find(const memory_t& memory, const place_t& place)
{
    found_t found;
    for (std::size_t byte = place.byte; byte < std::size_t{place.byte} + place.length; ++byte) {
        const block_t* block = find_block(memory, place, byte);
        if (block == nullptr)
            return {};
        if (byte - block->place.byte >= block->bytes.size())
            return {{}, block->error};
        if (is_all_ones(*block))
            return {{}, all_ones};
        found.bytes.push_back(block->bytes[byte - block->place.byte]);
    }
    return found;
}

std::optional<unsigned> find_byte(const memory_t& memory, const place_t& place)
{
    const found_t found = find(memory, place);
    return found ? std::optional<unsigned>{found.bytes[0]} : std::nullopt;
}

void drop_repeated_pages(memory_t& memory)
{
    std::bitset<256> seen;
    for (const block_t& block : memory)
        if (block.place.device == main_memory && block.place.byte >= first_of_page)
            seen.set(block.place.page);
    for (unsigned page = 1; page < seen.size(); ++page) {
        const auto number = static_cast<std::uint8_t>(page);
        if (!seen.test(page) || !is_page_0_again(memory, number))
            continue;
        for (block_t& block : memory)
            if (block.place.byte >= first_of_page && block.place.page == number)
                block.bytes.clear();
    }
}

} // namespace ivra::bsp::telemetry
