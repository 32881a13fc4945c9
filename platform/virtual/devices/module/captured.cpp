#include "devices/module/captured.h"

#include "json/document.h"
#include "json/text.h"

#include <map>
#include <utility>

namespace ivra::virtual_platform {

namespace {

/// A part of a module that has to be there while bits of a byte have a value.
struct advertised_t
{
    memory_map_t map;
    std::size_t byte;
    std::uint8_t mask, value;
    std::size_t block;
    const char* part;
    const char* why;
};

constexpr const char* always = "which every module has";
constexpr const char* says_that_it_measures =
    R"(as byte 92 says that the module measures ("calibration": "none" beside the dump says otherwise))";
constexpr const char* has_pages =
    R"(as byte 2 says that there are pages ("flat": true beside the dump says otherwise))";

// clang-format off
constexpr advertised_t advertised[] = { // SFF-8472, table 8-5; SFF-8636, table 6-3; CMIS, table 8-5
    {memory_map_t::sfp,  92, 0x44, 0x40, 2,        "A2h",      says_that_it_measures},
    {memory_map_t::qsfp, 0,  0x00, 0x00, 1,        "page 00h", always},
    {memory_map_t::qsfp, 2,  0x04, 0x00, 1 + 0x03, "page 03h", has_pages},
    {memory_map_t::cmis, 0,  0x00, 0x00, 1,        "page 00h", always},
    {memory_map_t::cmis, 2,  0x80, 0x00, 1 + 0x01, "page 01h", has_pages},
    {memory_map_t::cmis, 2,  0x80, 0x00, 1 + 0x02, "page 02h", has_pages},
    {memory_map_t::cmis, 2,  0x80, 0x00, 1 + 0x11, "page 11h", has_pages},
};
// clang-format on

[[noreturn]] void expected(const std::filesystem::path& file, std::size_t line, const std::string& what)
{
    mistake(file, line == 0 ? "" : "line " + std::to_string(line), "expected " + what);
}

/// The number of a block; nothing when modules here have no such one.
std::optional<unsigned> block_of(const dump_place_t& place, memory_map_t map)
{
    if (place.bank != 0 || (map == memory_map_t::sfp ? place.page != 0 : place.device != module_device))
        return std::nullopt;
    if (map == memory_map_t::sfp)
        return (place.device == module_device ? 0U : 2U) + (place.is_upper ? 1U : 0U);
    return place.is_upper ? place.page + 1U : 0U;
}

} // namespace

dump_label_t label_of_page(std::string_view name)
{
    dump_label_t label;
    if (name == "A0" || name == "A2") {
        label.device = name == "A0" ? module_device : diagnostics_device;
    } else {
        label.is_upper = name != "lower";
        if (*label.is_upper)
            label.page = static_cast<std::uint8_t>(parse_digits(name, 16));
    }
    return label;
}

capture_t read_capture(const std::filesystem::path& file, std::string_view text, const dump_hint_t& hint)
{
    try {
        return {file, read_dump(text, hint)};
    } catch (const dump_error& error) {
        mistake(file, error.line == 0 ? "" : "line " + std::to_string(error.line), error.what());
    }
}

captured_t captured_module(const std::vector<capture_t>& captures, std::optional<memory_map_t> map)
{
    using page_t = std::pair<dump_page_t, const capture_t*>;
    std::map<dump_place_t, page_t> pages;
    for (const capture_t& capture : captures)
        for (const auto& [place, page] : capture.dump.pages) {
            const auto [other, is_new] = pages.insert({place, page_t{page, &capture}});
            if (!is_new && other->second.first.bytes != page.bytes)
                expected(capture.file, page.line,
                         text_of(place) + " once, but other bytes of it are in " + other->second.second->file.string());
        }
    captured_t captured{{}, captures.back().file, captures.back().dump.last_line, {}};
    const auto lower = pages.find({});
    if (lower == pages.end())
        expected(captured.file, captured.last_line, "the lower page, or A0h, up to here");
    module_t& module = captured.module;
    const std::uint8_t identifier = lower->second.first.bytes.front();
    module.captured = true;
    module.map = map ? *map : map_of(identifier).value_or(memory_map_t::qsfp);
    for (const auto& [place, page] : pages) {
        const auto block = block_of(place, module.map);
        if (!block)
            expected(page.second->file, page.first.line,
                     "pages that modules with identifier 0x" + hex_pair(identifier) + " have here, not " +
                         text_of(place));
        module.blocks[*block] = page.first.bytes;
    }
    if (module.map != memory_map_t::sfp && module.has_block(1))
        std::erase_if(module.blocks, [&](const auto& block) {
            const bool is_repeated = block.first > 1 && block.second == module.blocks.at(1);
            if (is_repeated)
                captured.repeated.insert(block.first);
            return is_repeated;
        });
    return captured;
}

void check_advertised(const captured_t& captured)
{
    const module_t& module = captured.module;
    for (const advertised_t& row : advertised) {
        const bool is_there = module.has_block(row.block) || captured.repeated.contains(row.block);
        if (row.map == module.map && (module.byte(row.byte) & row.mask) == row.value && !is_there)
            expected(captured.file, captured.last_line, std::string{row.part} + " up to here, " + row.why);
    }
}

module_t load_captured(const std::filesystem::path& file)
{
    captured_t captured = captured_module({read_capture(file, read_file(file))}, std::nullopt);
    check_advertised(captured);
    complete(captured.module);
    return captured.module;
}

} // namespace ivra::virtual_platform
