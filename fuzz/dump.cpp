// Dumps of modules: whatever the bytes, pages or a dump_error; and pages that are printed with headings are read again.
#include "devices/module/dump.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace ivra::virtual_platform;

std::string printed(const dump_t& dump)
{
    std::string text;
    for (const auto& [place, page] : dump.pages) {
        char line[64];
        std::snprintf(line, sizeof line, "device 0x%02x, %s page %xh, bank %u\n", unsigned{place.device},
                      place.is_upper ? "upper" : "lower", unsigned{place.page}, unsigned{place.bank});
        text += line;
        for (std::size_t at = 0; at < page.bytes.size(); ++at) {
            if (at % 16 == 0) {
                std::snprintf(line, sizeof line, "\n%02zx:", at + (place.is_upper ? block_size : 0));
                text += line;
            }
            std::snprintf(line, sizeof line, " %02x", unsigned{page.bytes.at(at)});
            text += line;
        }
        text += '\n';
    }
    return text;
}

/// What somebody else may know of the dump.
dump_hint_t hint_of(std::uint8_t choice)
{
    dump_hint_t hint;
    if ((choice & 3U) != 0)
        hint.map = static_cast<memory_map_t>((choice & 3U) - 1);
    switch (choice >> 2U & 7U) {
    case 1:
        hint.label.emplace().is_upper = false;
        break;
    case 2:
        hint.label.emplace().is_upper = true;
        hint.label->page = choice >> 5U;
        break;
    case 3:
        hint.label.emplace().device = choice >> 5U == 0 ? module_device : diagnostics_device;
        break;
    default:
        break;
    }
    return hint;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const dump_hint_t hint = hint_of(data[0]);
    const std::vector<char> text(data + 1, data + size);
    dump_t dump;
    try {
        dump = read_dump({text.data(), text.size()}, hint);
    } catch (const dump_error& error) {
        if (!std::string{error.what()}.starts_with("expected "))
            std::abort();
        return 0;
    }
    const dump_t again = read_dump(printed(dump), {hint.map, std::nullopt}); // throws what nobody catches
    if (dump.pages.empty() || again.pages.size() != dump.pages.size())
        std::abort();
    for (const auto& [place, page] : dump.pages)
        if (again.pages.at(place).bytes != page.bytes)
            std::abort();
    return 0;
}
