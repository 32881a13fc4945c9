// An operator's limits: any text is refused with its name and a reason, or sets limits that make sense.

#include "readings/limits_file.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

using namespace ivra::bsp;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::string text{data, data + size};
    std::vector<readings::limits_entry_t> entries;
    try {
        entries = readings::parse_limits(text, "limits.json");
    } catch (const readings::limits_error& error) {
        const std::string told = error.what();
        require(told.starts_with("limits.json: ") && told.size() > std::string{"limits.json: "}.size());
        return 0;
    }
    for (const readings::limits_entry_t& entry : entries) {
        require(!entry.sensor.empty() && !entry.unit.empty());
        require(entry.model != "" && entry.board != "");
        std::optional<double> lower;
        for (const std::optional<double>& limit : entry.limits.values) {
            require(!limit || (std::isfinite(*limit) && (!lower || *lower <= *limit)));
            if (limit)
                lower = limit;
        }
        require(lower.has_value());
    }
    // As a worker gets it.
    std::ranges::replace(text, '\n', ' ');
    require(readings::parse_limits(text, "limits.json").size() == entries.size());
    return 0;
}
