#include "json/names.h"

#include <algorithm>
#include <cstddef>
#include <set>
#include <system_error>

namespace ivra::virtual_platform::json {

namespace {

namespace fs = std::filesystem;

/// As names of models and modules are mostly spelt.
std::string usual_spelling(std::string_view name)
{
    std::string text;
    for (const char c : name)
        text += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c == '-' || c == ' ' ? '_' : c;
    return text;
}

/// How many letters have to be put in, left out, changed, or exchanged with their neighbour to make one text the other.
std::size_t letters_wrong(std::string_view left, std::string_view right)
{
    std::vector<std::vector<std::size_t>> table(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i)
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            const std::size_t changed = table[i - 1][j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
            table[i][j] = std::min({changed, table[i - 1][j] + 1, table[i][j - 1] + 1});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1])
                table[i][j] = std::min(table[i][j], table[i - 2][j - 2] + 1);
        }
    return table[left.size()][right.size()];
}

} // namespace

std::vector<std::string> names_in(const std::vector<fs::path>& folders, const fs::path& folder)
{
    std::set<std::string> names;
    std::error_code error;
    for (const fs::path& above : folders)
        for (fs::directory_iterator entry{above / folder, error}; !error && entry != fs::directory_iterator{};
             entry.increment(error))
            if (entry->path().extension() == ".json")
                names.insert(entry->path().stem());
    return {names.begin(), names.end()};
}

std::vector<std::string_view> close_names(const std::vector<std::string>& known, std::string_view name)
{
    constexpr std::size_t longest = 100;
    constexpr std::size_t most_wrong = 2;
    std::vector<std::string_view> close;
    if (name.size() > longest)
        return close;
    const std::string said = usual_spelling(name);
    std::size_t fewest = most_wrong;
    for (const std::string& candidate : known) {
        const std::string other = usual_spelling(candidate);
        const std::size_t prefix = other.find('_') + 1; // 0 without one
        const std::size_t wrong =
            prefix != 0 && said == std::string_view{other}.substr(prefix) ? 0 : letters_wrong(said, other);
        if (wrong > fewest || 4 * wrong > other.size())
            continue;
        if (wrong < fewest)
            close.clear();
        fewest = wrong;
        close.push_back(candidate);
    }
    return close;
}

} // namespace ivra::virtual_platform::json
