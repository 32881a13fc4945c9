#include "Argos/flag_table.h"

#include <algorithm>

namespace argos {

FlagTable::FlagTable(const ParserData& data) : data_{data}
{
    for (const auto& option : data.options)
        for (const auto& flag : option->flags)
            rows_.push_back({data.folded(flag), flag, option});
    // Stable, so that a conflict names the flags in the order of their definition.
    std::stable_sort(rows_.begin(), rows_.end(), [](const Row& a, const Row& b) { return a.key < b.key; });

    const auto same_key = [](const Row& a, const Row& b) { return a.key == b.key; };
    const auto twice = std::adjacent_find(rows_.begin(), rows_.end(), same_key);
    if (twice == rows_.end())
        return;
    const std::string first{twice->flag};
    const std::string second{(twice + 1)->flag};
    if (first == second)
        throw ArgosException{"Multiple definitions of flag " + first};
    throw ArgosException{"Conflicting flags: " + first + " and " + second};
}

std::shared_ptr<const OptionData> FlagTable::find(std::string_view word) const
{
    if (auto option = find_flag(word))
        return option;
    if (word.size() > 2 && word.back() == '=')
        if (auto option = find_flag(word.substr(0, word.size() - 1)); option && !option->argument.empty())
            return option;
    return nullptr;
}

std::shared_ptr<const OptionData> FlagTable::find_flag(std::string_view word) const
{
    const std::string key = data_.folded(word);
    const auto row =
        std::lower_bound(rows_.begin(), rows_.end(), key, [](const Row& a, const std::string& b) { return a.key < b; });
    if (row == rows_.end())
        return nullptr;
    if (row->key == key)
        return row->option;
    // "--" says nothing that a longer flag could be told by.
    if (!data_.allow_abbreviated_options || word == "--" || !row->key.starts_with(key))
        return nullptr;
    const auto following = row + 1;
    return following != rows_.end() && following->key.starts_with(key) ? nullptr : row->option;
}

} // namespace argos
