// Rack files: whatever the bytes, a rack or a file_error; and a rack expands to a rack of the same accelerators.
#include "rack/rack.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace {

using namespace ivra::virtual_platform;

std::vector<accelerator_t> contents(rack_t rack)
{
    for (accelerator_t& accelerator : rack.accelerators)
        accelerator.text.clear();
    return rack.accelerators;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<char> text(data, data + size);
    rack_t rack;
    try {
        rack = parse_rack({text.data(), text.size()}, "rack.json");
    } catch (const file_error& error) {
        if (!std::string_view{error.what()}.starts_with("rack.json: "))
            std::abort();
        return 0;
    }
    if (contents(parse_rack(expand(rack), "expanded.json")) != contents(rack)) // throws what nobody catches
        std::abort();
    return 0;
}
