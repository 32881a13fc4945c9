// Platform libraries that give more than they were given room for, or fail without saying why. Texts come from this
// program: its functions here come before those of the platform library. Counts come from fault plans.

#include "hw/accelerator.h"
#include "hw/core.h"
#include "hw/flash.h"
#include "hw/hw_top.h"
#include "hw/i2c.h"
#include "hw/mac_address.h"
#include "hw/mutex.h"
#include "hw/uart.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

/// Fills the whole buffer, without a NUL, and tells of more.
int overfill(char* buffer, std::size_t size)
{
    std::memset(buffer, 'x', size);
    return static_cast<int>(size) + 100;
}

} // namespace

extern "C" {

int ivra_hw_prop_get_name(const ivra_hw_properties*, char* buffer, size_t size)
{
    return overfill(buffer, size);
}

int ivra_hw_prop_get_uid(const ivra_hw_properties*, char* buffer, size_t size)
{
    return overfill(buffer, size);
}

int ivra_hw_top_get_board_name(ivra_hw_top*, char* buffer, size_t size)
{
    return overfill(buffer, size);
}

int ivra_hw_top_get_device_id(ivra_hw_top*, char* buffer, size_t size)
{
    return overfill(buffer, size);
}

int ivra_hw_top_print_fpga_serial_id(const ivra_hw_top_fpga_serial_id*, char* buffer, size_t size)
{
    return overfill(buffer, size);
}

int ivra_print_mac_address(const ivra_mac_address*, char* buffer, size_t size)
{
    return overfill(buffer, size);
}

} // extern "C"

namespace ivra::hw {
namespace {

std::string all_x(std::size_t room)
{
    return std::string(room - 1, 'x');
}

/// What `body` prints on a host with a Bittware board, under a fault plan of one rule.
std::string printed(const std::string& fault, tests::function_ref<void(const core&)> body)
{
    tests::rack_t rack;
    rack.plug("bittware_xupp3r").faults(fault);
    return tests::printed(rack, body);
}

TEST(odd_library, texts_end_with_the_room_for_them)
{
    EXPECT_EQ(properties{nullptr}.name().value(), all_x(1024));
    EXPECT_EQ(properties{nullptr}.uid().value(), all_x(1024));
    EXPECT_EQ(v6::hw_top::print_fpga_serial_id({}).value(), all_x(25));
    EXPECT_EQ(printed("", [](const core& root) { std::cout << v6::hw_top::hw_top{root}.get_board_name().value(); }),
              all_x(IVRA_HW_TOP_MAX_STRING_LENGTH));
    EXPECT_EQ(printed("", [](const core& root) { std::cout << v6::hw_top::hw_top{root}.get_device_id().value(); }),
              all_x(IVRA_HW_TOP_MAX_STRING_LENGTH));
}

TEST(odd_library, an_address_that_is_printed_longer_than_addresses_are_is_a_mistake)
{
    EXPECT_EQ(printed("", [](const core&) { std::cout << v6::mac_address{std::uint64_t{1}}; }),
              "logic error: Buffer too small for ivra_print_mac_address()");
}

TEST(odd_library, accelerators_are_as_many_as_there_was_room_for)
{
    for (const std::string call : {"ivra_hw_enumerate_accelerators", "ivra_hw_enumerate_all_accelerators"})
        EXPECT_EQ(printed(R"({"call": ")" + call + R"(", "count": 1000})",
                          [&](const core&) {
                              std::cout << (call == "ivra_hw_enumerate_accelerators"
                                                ? enumerate_accelerators(accelerator_filter{}).size()
                                                : enumerate_accelerators().size());
                          }),
                  "1");
}

TEST(odd_library, mmio_spaces_are_as_many_as_there_was_room_for)
{
    EXPECT_EQ(
        printed(R"({"call": "ivra_hw_accelerator_enumerate_all_mmios", "count": 1000})",
                [](const core&) { std::cout << accelerator{enumerate_accelerators().at(0)}.enumerate_mmios().size(); }),
        "1");
}

TEST(odd_library, cores_are_as_many_as_there_was_room_for_and_none_that_was_not_stored)
{
    constexpr std::uint32_t uart = 0x20;
    const auto count = [](std::size_t room) {
        return [room](const core& root) {
            const auto cores = root.enumerate(uart, room);
            std::cout << (cores.has_value() ? std::to_string(cores.value().size()) : cores.error().message());
        };
    };
    const std::string fault = R"({"call": "ivra_hw_core_enumerate", "count": 1000})";
    EXPECT_EQ(printed("", count(1)), "1");
    EXPECT_EQ(printed(fault, count(1)), "1");
    EXPECT_EQ(printed(fault, count(2)), "Invalid argument") << "the second one was not stored";
}

TEST(odd_library, sections_of_a_flash_are_as_many_as_there_was_room_for)
{
    EXPECT_EQ(printed(R"({"call": "ivra_flash_get_sections", "nth": 2, "count": 1000})",
                      [](const core& root) {
                          std::cout << v6::flash::flash{root}.get_sections_char(nullptr).value().size();
                      }),
              "5");
}

TEST(odd_library, mac_addresses_are_as_many_as_there_was_room_for)
{
    EXPECT_EQ(
        printed(R"({"call": "ivra_hw_top_get_mac_addresses", "nth": 2, "count": 1000})",
                [](const core& root) { std::cout << v6::hw_top::hw_top{root}.get_mac_addresses().value().size(); }),
        "4");
}

TEST(odd_library, bytes_of_a_uart_are_as_many_as_there_was_room_for)
{
    EXPECT_EQ(printed(R"({"call": "ivra_uart_read", "count": 1000})",
                      [](const core& root) {
                          std::array<std::uint8_t, 64> buffer{};
                          std::cout << v6::uart::uart{root}.read(buffer).value();
                      }),
              "64");
}

TEST(odd_library, a_failure_that_does_not_say_why_is_an_input_output_error)
{
    struct row_t
    {
        const char* call;
        void (*action)(const core& root);
        const char* text;
    };
    // clang-format off
    const row_t rows[] = {
        {"ivra_hw_accelerator_get",       [](const core&) { accelerator{enumerate_accelerators().at(0)}; },             ""},
        {"ivra_hw_filter_create",         [](const core&) { accelerator_filter{}; },                                     ""},
        {"ivra_hw_filter_set_index",      [](const core&) { accelerator_filter{}.set_index(0); },                        ""},
        {"ivra_hw_shared_mutex_create",   [](const core&) { shared_mutex{"m"}; },                                        ""},
        {"ivra_hw_shared_mutex_lock",     [](const core&) { shared_mutex{"m"}.lock(); },                                 ""},
        {"ivra_hw_shared_mutex_unlock",   [](const core&) { shared_mutex m{"m"}; m.lock(); m.unlock(); },                ""},
        {"ivra_hw_top_create",            [](const core& root) { v6::hw_top::hw_top{root}; },  "Failed to create hw_top subsystem: "},
        {"ivra_flash_create",             [](const core& root) { v6::flash::flash{root}; },    "Failed to create flash management subsystem: "},
        {"ivra_flash_get_section_usr",    [](const core& root) { v6::flash::flash{root}; },    "Failed to create section object: "},
        {"ivra_i2c_create",               [](const core& root) { v6::i2c::i2c{root}; },        "Failed to create i2c object.: "},
        {"ivra_uart_create",              [](const core& root) { v6::uart::uart{root}; },      "Failed to create UART subsystem: "},
        {"ivra_parse_mac_address",        [](const core&) { v6::mac_address{"00:11:22:33:44:55"}; }, "mac_address::mac_address(): "},
        {"ivra_mac_address_from_int",     [](const core&) { v6::mac_address{std::uint64_t{1}}; },    "mac_address::mac_address(): "},
        {"ivra_hw_top_update_params",     [](const core& root) { throw std::system_error{v6::hw_top::hw_top{root}.update_params()}; }, ""},
        {"ivra_flash_write_section",      [](const core& root) { v6::flash::flash f{root}; throw std::system_error{f.write_section(f.get_section_usr(), 0, {})}; }, ""},
        {"ivra_i2c_write_control_pins",   [](const core& root) { throw std::system_error{v6::i2c::i2c{root}.write_control_pins(0)}; }, ""},
        {"ivra_hw_shared_mutex_trylock",  [](const core&) { throw std::system_error{shared_mutex{"m"}.try_lock()}; },     ""},
    };
    // clang-format on
    for (const row_t& row : rows) {
        // Not the call that opens the board for the action.
        const std::string nth = std::string{row.call} == "ivra_hw_accelerator_get" ? R"(, "nth": 2)" : "";
        EXPECT_EQ(printed(std::string{R"({"call": ")"} + row.call + R"(", "errno": "0")" + nth + "}", row.action),
                  std::string{"system error: "} + row.text + "Input/output error")
            << row.call;
    }
}

} // namespace
} // namespace ivra::hw
