#include "readings/select.h"

#include "text/text.h"

#include <algorithm>
#include <cstdint>
#include <optional>

namespace ivra::bsp::readings {

namespace {

using telemetry::accelerator_identity_t;

bool is_chosen(const accelerator_identity_t& board, const std::string& selector, bool by_name)
{
    if (const std::optional<std::uint32_t> index = to_index(selector))
        return board.index == index;
    return by_name ? board.name == selector : board.uid == selector;
}

/// What tells a board from the others, as a document says it.
std::string key_of(const accelerator_identity_t& board)
{
    return board.uid.value_or(board.name.value_or(board.index ? std::to_string(*board.index) : ""));
}

} // namespace

std::vector<accelerator_identity_t> select(const std::vector<accelerator_identity_t>& boards,
                                           const std::vector<std::string>& selectors,
                                           const std::vector<std::string>& skipped)
{
    std::vector<bool> is_selected(boards.size(), selectors.empty());
    for (const std::string& selector : selectors) {
        const bool by_name = std::ranges::find(boards, selector, &accelerator_identity_t::name) != boards.end();
        bool is_found = false;
        for (std::size_t at = 0; at < boards.size(); ++at)
            if (is_chosen(boards[at], selector, by_name))
                is_selected[at] = is_found = true;
        if (!is_found)
            throw std::runtime_error{"No such accelerator: " + printable(selector)};
    }
    std::vector<accelerator_identity_t> selected;
    for (std::size_t at = 0; at < boards.size(); ++at)
        if (is_selected[at] && std::ranges::find(skipped, valid_utf8(key_of(boards[at])), &valid_utf8) == skipped.end())
            selected.push_back(boards[at]);
    return selected;
}

} // namespace ivra::bsp::readings
