#include "hw/accelerator.h"
#include "hw/core.h"
#include "hw/flash.h"
#include "hw/hw_top.h"
#include "hw/i2c.h"
#include "hw/mac_address.h"
#include "hw/mmio.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <iostream>
#include <string>

namespace ivra::hw {
namespace {

using tests::printed;

const tests::members_t two_cores{{"cores", R"([
    {"hardware_id": 475, "address": "0x100000", "size": "0x1000", "registers": {"0x10": "0x12345678"}},
    {"hardware_id": 475, "address": "0x200000", "size": "0x1000"},
    {"hardware_id": 7, "address": "0x300000", "size": "0x1000"}])"}};

constexpr ivra_hw_register_description word_at_10{.offset = 0x10, .bit_offset = 0, .width = 32, .name = "WORD"};

TEST(cores, are_found_by_their_hardware_identifier)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p", two_cores);
    EXPECT_EQ(printed(rack,
                      [](const core& root) {
                          std::cout << root.enumerate(475, 100).value().size() << root.enumerate(475, 1).value().size()
                                    << root.enumerate(7, 100).value().size() << root.enumerate(8, 100).value().size();
                          std::cout << read(root.enumerate(475, 1).value().at(0), word_at_10).value();
                      }),
              "2110305419896");
    rack.faults(R"({"call": "ivra_hw_core_enumerate", "errno": "EIO"})");
    EXPECT_EQ(printed(rack, [](const core& root) { std::cout << root.enumerate(475, 100).error().message(); }),
              "Input/output error");
}

TEST(registers, are_read_and_written_field_by_field)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p", two_cores);
    EXPECT_EQ(printed(rack,
                      [](const core& root) {
                          const core c = root.enumerate(475, 1).value().at(0);
                          const ivra_hw_register_description byte{
                              .offset = 0x10, .bit_offset = 8, .width = 8, .name = nullptr};
                          std::cout << std::hex << read(c, byte).value() << ' ';
                          std::cout << write(c, byte, 0xAB) << ' ' << read(c, word_at_10).value();
                      }),
              "56 system:0 1234ab78");
}

TEST(registers, that_cannot_be_accessed_give_the_error)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p", two_cores);
    rack.faults(R"({"call": "ivra_hw_read", "errno": "EIO"}, {"call": "ivra_hw_write", "errno": "EACCES"})");
    EXPECT_EQ(printed(rack,
                      [](const core& root) {
                          const core c = root.enumerate(475, 1).value().at(0);
                          std::cout << read(c, word_at_10).error() << ' ' << write(c, word_at_10, 1);
                      }),
              "generic:5 generic:13");
}

/// How many characters the name and the UID of a board have, or why they cannot be read.
std::string text_sizes(const std::string& name, const std::string& uid)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p", {{"name", "\"" + name + "\""}, {"uid", "\"" + uid + "\""}});
    return rack
        .in_child([] {
            const accelerator_descriptor descriptor = enumerate_accelerators().at(0);
            for (const auto& text : {descriptor.properties().name(), descriptor.properties().uid()})
                std::cout << (text.has_value() ? std::to_string(text.value().size()) : text.error().message()) << '\n';
        })
        .out;
}

TEST(properties, have_room_for_1023_characters_and_a_nul)
{
    const std::string longest(1023, 'x');
    EXPECT_EQ(text_sizes(longest, longest), "1023\n1023\n");
    EXPECT_EQ(text_sizes(longest + "x", longest + "x"),
              "Numerical result out of range\nNumerical result out of range\n");
}

TEST(hw_top, answers_its_queries)
{
    tests::rack_t rack;
    rack.plug("xilinx_u50");
    EXPECT_EQ(printed(rack,
                      [](const core& root) {
                          v6::hw_top::hw_top top{root};
                          std::cout << top.get_board_name().value() << ' ' << top.get_device_id().value() << ' '
                                    << v6::hw_top::print_fpga_serial_id(top.get_fpga_serial_id().value()).value() << ' '
                                    << top.get_mac_addresses().value().size() << ' '
                                    << top.get_mac_addresses().value().back() << ' ' << top.get_temperature().value()
                                    << ' ' << top.update_params();
                      }),
              "xilinx_u50 xcvu7p-flva2104-2-e 4002000001285c0f1a104280 4 02:00:00:00:00:03 45.5 system:0");
}

TEST(hw_top, queries_that_fail_give_the_error)
{
    struct row_t
    {
        const char* call;
        std::function<std::error_code(v6::hw_top::hw_top&)> query;
    };
    const std::vector<row_t> rows{
        {"ivra_hw_top_get_board_name", [](auto& top) { return top.get_board_name().error(); }},
        {"ivra_hw_top_get_device_id", [](auto& top) { return top.get_device_id().error(); }},
        {"ivra_hw_top_get_fpga_serial_id", [](auto& top) { return top.get_fpga_serial_id().error(); }},
        {"ivra_hw_top_print_fpga_serial_id", [](auto&) { return v6::hw_top::print_fpga_serial_id({}).error(); }},
        {"ivra_hw_top_get_mac_addresses", [](auto& top) { return top.get_mac_addresses().error(); }},
        {"ivra_hw_top_get_temperature", [](auto& top) { return top.get_temperature().error(); }},
        {"ivra_hw_top_update_params", [](auto& top) { return top.update_params(); }},
    };
    for (const row_t& row : rows) {
        tests::rack_t rack;
        rack.plug("xilinx_u50").faults(std::string{R"({"call": ")"} + row.call + R"(", "errno": "EIO"})");
        EXPECT_EQ(printed(rack,
                          [&](const core& root) {
                              v6::hw_top::hw_top top{root};
                              std::cout << row.query(top);
                          }),
                  "generic:5")
            << row.call;
    }
}

TEST(hw_top, takes_no_more_addresses_than_it_made_room_for)
{
    for (const std::string fault :
         {R"("nth": 1, "count": 2)", R"("nth": 2, "count": 1000)", R"("nth": 2, "count": 2)"}) {
        tests::rack_t rack;
        rack.plug("xilinx_u50").faults(R"({"call": "ivra_hw_top_get_mac_addresses", )" + fault + "}");
        EXPECT_EQ(
            printed(rack,
                    [](const core& root) { std::cout << v6::hw_top::hw_top{root}.get_mac_addresses().value().size(); }),
            fault.find("1000") == std::string::npos ? "2" : "4");
    }
}

TEST(flash, answers_its_queries)
{
    tests::rack_t rack;
    rack.plug("xilinx_u50");
    EXPECT_EQ(printed(rack,
                      [](const core& root) {
                          const v6::flash::flash flash{root};
                          std::cout << flash.get_memory_size().value() << ' ' << flash.get_sector_size().value() << ' '
                                    << flash.get_sections_char(nullptr).value().size() << ' '
                                    << flash.get_sections_char("none").value().size() << ' ';
                          const auto params = flash.get_sections_char(IVRA_FLASH_SECTION_PARAMS).value();
                          std::cout << params.size() << ' ' << (params.at(0) == flash.get_section_prm()) << ' '
                                    << flash.get_section_name(params.at(1)) << ' ' << std::hex
                                    << flash.get_section_start_address(params.at(1)).value() << ' '
                                    << flash.get_section_size(params.at(1)).value() << ' '
                                    << flash.get_section_start_address(flash.get_section_pgm()).value() << ' '
                                    << flash.get_section_start_address(flash.get_section_usr()).value() << ' '
                                    << flash.get_section_start_address(flash.get_section_otp()).value();
                      }),
              "134217728 65536 5 0 2 1 PARAMS 7fd0000 10000 0 1002000 7ff0000");
}

TEST(flash, queries_that_fail_give_the_error)
{
    using query_t = std::function<std::error_code(v6::flash::flash&)>;
    const std::vector<std::pair<std::string, query_t>> rows{
        {R"("ivra_flash_get_memory_size")", [](auto& f) { return f.get_memory_size().error(); }},
        {R"("ivra_flash_get_sector_size")", [](auto& f) { return f.get_sector_size().error(); }},
        {R"("ivra_flash_get_sections")", [](auto& f) { return f.get_sections_char(nullptr).error(); }},
        {R"("ivra_flash_get_sections", "nth": 2)", [](auto& f) { return f.get_sections_char(nullptr).error(); }},
        {R"("ivra_flash_get_section_start_address")",
         [](auto& f) { return f.get_section_start_address(f.get_section_pgm()).error(); }},
        {R"("ivra_flash_get_section_size")", [](auto& f) { return f.get_section_size(f.get_section_pgm()).error(); }},
        {R"("ivra_flash_write_section")", [](auto& f) { return f.write_section(f.get_section_usr(), 0, {}); }},
    };
    for (const auto& row : rows) {
        tests::rack_t rack;
        rack.plug("xilinx_u50").faults("{\"call\": " + row.first + R"(, "errno": "EIO"})");
        EXPECT_EQ(printed(rack,
                          [&row](const core& root) {
                              v6::flash::flash flash{root};
                              std::cout << row.second(flash);
                          }),
                  "generic:5")
            << row.first;
    }
}

TEST(flash, sections_are_written_unless_protected_or_too_small)
{
    tests::rack_t rack;
    rack.plug("xilinx_u50");
    EXPECT_EQ(printed(rack,
                      [](const core& root) {
                          v6::flash::flash flash{root};
                          const auto params = flash.get_sections_char(IVRA_FLASH_SECTION_PARAMS).value();
                          const std::array<std::uint8_t, 4> data{1, 2, 3, 4};
                          std::cout << flash.write_section(params.at(1), 0, data).message() << ", "
                                    << flash.write_section(params.at(0), 0, data).message() << ", "
                                    << flash.write_section(params.at(1), 0xFFFD, data).message();
                      }),
              "Success, Read-only file system, File too large");
}

TEST(i2c, without_such_a_bus_gives_the_error)
{
    tests::rack_t rack;
    rack.plug("xilinx_u50");
    EXPECT_EQ(printed(rack,
                      [](const core& root) {
                          const v6::i2c::i2c controller{root};
                          std::cout << controller.get_bus(255).error().message();
                      }),
              "No such device");
}

TEST(mac_address, is_text_bytes_and_an_integer)
{
    tests::rack_t rack;
    rack.plug("xilinx_u50");
    EXPECT_EQ(printed(rack,
                      [](const core&) {
                          const v6::mac_address from_text{std::string{"00:11:22:aA:Bb:cc"}};
                          std::cout << std::hex << from_text.to_int() << ' ' << int{from_text.get().bytes[1]} << ' '
                                    << int{from_text.get().bytes[5]} << ' '
                                    << v6::mac_address{std::uint64_t{0xFEDCBA987654}};
                      }),
              "1122aabbcc 11 cc fe:dc:ba:98:76:54");
}

TEST(mac_address, that_is_none_throws)
{
    for (const std::string text : {"", "00:11:22:aa:bb", "00:11:22:aa:bb:cc ", "00:11:22:aa:bb:gg", "001122aabbcc"}) {
        tests::rack_t rack;
        rack.plug("xilinx_u50");
        EXPECT_EQ(printed(rack, [&](const core&) { v6::mac_address{text}; }),
                  "system error: mac_address::mac_address(): Invalid argument")
            << text;
    }
    tests::rack_t rack;
    rack.plug("xilinx_u50");
    EXPECT_EQ(printed(rack, [](const core&) { v6::mac_address{std::uint64_t{1} << 48U}; }),
              "system error: mac_address::mac_address(): Numerical result out of range");
}

TEST(mac_address, that_cannot_be_printed_throws)
{
    const auto print = [](const core&) { std::cout << v6::mac_address{std::uint64_t{1}}; };
    tests::rack_t rack;
    rack.plug("xilinx_u50").faults(R"({"call": "ivra_print_mac_address", "errno": "EIO"})");
    EXPECT_EQ(printed(rack, print), "system error: ivra_print_mac_address(): Input/output error");
    rack.faults(R"({"call": "ivra_print_mac_address", "text": "00:11:22:33:44:55:"})");
    EXPECT_EQ(printed(rack, print), "logic error: Buffer too small for ivra_print_mac_address()");
    rack.faults(R"({"call": "ivra_print_mac_address", "text": "00:11"})");
    EXPECT_EQ(printed(rack, print), "00:11") << "as many characters as it says";
}

} // namespace
} // namespace ivra::hw
