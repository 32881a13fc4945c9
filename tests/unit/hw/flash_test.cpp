// Here one function of the platform is the test's own.
#include "hw/accelerator.h"
#include "hw/core.h"
#include "hw/flash.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <iostream>
#include <vector>

namespace {

std::vector<const char*> listed;   ///< what the second enumeration has
std::size_t counted = 0;           ///< what the first one says
std::vector<std::size_t> requests; ///< the room that each was given

} // namespace

int ivra_flash_get_sections(ivra_flash*, const char*, const char** sections, std::size_t capacity)
{
    requests.push_back(capacity);
    if (capacity == 0)
        return static_cast<int>(counted);
    for (std::size_t i = 0; i < listed.size() && i < capacity; ++i)
        sections[i] = listed[i];
    return static_cast<int>(listed.size());
}

namespace ivra::v6::flash {
namespace {

/// The handles that an enumeration finds, "null" for none.
std::string found(std::size_t first, const std::vector<const char*>& second)
{
    counted = first;
    listed = second;
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p");
    return tests::printed(rack, [](const hw::core& root) {
        const auto sections = flash{root}.get_sections_char(nullptr);
        for (const char* section : sections.value())
            std::cout << (section == nullptr ? "null" : section) << ' ';
        for (const std::size_t capacity : requests)
            std::cout << capacity;
    });
}

TEST(flash_sections, are_as_many_as_the_second_enumeration_stored)
{
    EXPECT_EQ(found(3, {"A", "B", "C"}), "A B C 03");
    EXPECT_EQ(found(3, {"A"}), "A 03") << "no handle is null";
    EXPECT_EQ(found(3, {}), "03");
    EXPECT_EQ(found(2, {"A", "B", "C"}), "A B 02") << "those that there was room for";
}

} // namespace
} // namespace ivra::v6::flash
