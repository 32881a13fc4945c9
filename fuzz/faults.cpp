// Fault plans: whatever the bytes, a plan or a file_error.
#include "rack/fault_plan.h"
#include "json/document.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace ivra::virtual_platform;
    const std::vector<char> text(data, data + size);
    try {
        const json::value_t document = json::parse({text.data(), text.size()}, "faults.json", "a fault plan");
        const fault_plan plan{document, "faults.json"};
    } catch (const file_error& error) {
        if (!std::string_view{error.what()}.starts_with("faults.json: "))
            std::abort();
    }
    return 0;
}
