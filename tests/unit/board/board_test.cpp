#include "board/board.h"
#include "support/outcome.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <system_error>
#include <typeinfo>
#include <vector>

namespace ivra::bsp::board {
namespace {

using tests::printed;

/// What an operation comes to, where what a board has not is told from what went wrong.
std::string outcome(const std::function<std::string()>& operation)
{
    return tests::outcome([&] {
        try {
            return operation();
        } catch (const unsupported_feature& error) {
            return std::string{"unsupported: "} + error.what();
        }
    });
}

using operation_t = std::function<std::string(board&)>;

const std::vector<std::pair<std::string, operation_t>> operations{
    {"get_transceivers", [](board& b) { return std::to_string(b.get_transceivers().size()); }},
    {"set_qsfp_power_mode",
     [](board& b) {
         b.set_qsfp_power_mode(transceiver::qsfp_power_mode_t::low);
         return "ok";
     }},
    {"set_transceiver_speeds",
     [](board& b) {
         b.set_transceiver_speeds({}); // no board has no cage
         return "ok";
     }},
    {"set_boot_image",
     [](board& b) {
         b.set_boot_image(boot_image_t::primary);
         return "ok";
     }},
    {"get_boot_image", [](board& b) { return std::to_string(static_cast<int>(b.get_boot_image())); }},
    {"get_current_boot_image", [](board& b) { return std::to_string(static_cast<int>(b.get_current_boot_image())); }},
    {"get_serial", [](board& b) { return b.get_serial().value_or("none"); }},
    {"get_sensors", [](board& b) { return std::to_string(b.get_sensors().sensors.size()); }},
    {"get_vendor_mac_addresses",
     [](board& b) {
         const auto block = b.get_vendor_mac_addresses();
         std::ostringstream text;
         if (block)
             text << block->first << " x " << block->count;
         return block ? text.str() : "none";
     }},
};

/// What every operation says on a board of this model, one line each.
std::string outcomes(const std::string& model)
{
    tests::rack_t rack;
    rack.plug(model).host({.serial = "S1", .address = "00:1c:73:aa:bb:cc\n"});
    // The management controllers of this board do not come up.
    rack.faults(R"({"call": "ivra_hw_core_enumerate", "errno": "EIO"}, {"call": "ivra_uart_create", "errno": "EIO"})");
    rack.environment("IVRA_LOG_LEVEL=0");
    return printed(rack, [] {
        board b{hw::enumerate_accelerators().at(0)};
        for (const auto& operation : operations)
            std::cout << operation.first << ": " << outcome([&] { return operation.second(b); }) << '\n';
    });
}

const std::string bmc_missing = "error: Could not set/get boot image as Bittware BMC subsustem is not initialized.\n";
const std::string only_bittware_and_u5x =
    "set_transceiver_speeds: unsupported: Setting transceiver speeds is only supported on Alveo U5x boards\n";
const std::string only_bittware =
    "set_boot_image: unsupported: Setting boot image is only supported on Bittware boards\n"
    "get_boot_image: unsupported: Getting boot image is only supported on Bittware boards\n"
    "get_current_boot_image: unsupported: Getting current boot image is only supported on Bittware boards\n";
const std::string xmc_missing =
    "get_serial: error: Could not get board serial as Alveo XMC subsystem is not initialized.\n"
    "get_sensors: error: Could not get board sensors as Alveo XMC subsystem is not initialized.\n"
    "get_vendor_mac_addresses: error: Could not get vendor MAC as Alveo XMC subsystem is not initialized.\n";

TEST(facade, an_arista_switch_has_a_serial_and_addresses_and_no_sensors)
{
    for (const std::string model : {"m48e_emu_xcvu9p", "m48l_xcvu7p", "m48lb_xcvu9p"})
        EXPECT_EQ(outcomes(model),
                  "get_transceivers: unsupported: Transceiver stats are unsupported for Arista switches\n"
                  "set_qsfp_power_mode: unsupported: Setting QSFP power mode is unsupported for Arista switches\n" +
                      only_bittware_and_u5x + only_bittware +
                      "get_serial: S1\n"
                      "get_sensors: 0\n"
                      "get_vendor_mac_addresses: 00:1c:73:aa:bb:80 x 128\n");
}

TEST(facade, a_bittware_board_without_its_bmc_says_so_and_ivra_fpb2_is_an_xupp3r)
{
    for (const std::string model : {"ivra_fpb2", "bittware_xupp3r", "bittware_xupvv8"})
        EXPECT_EQ(outcomes(model), "get_transceivers: 4\n" // of which none has a module
                                   "set_qsfp_power_mode: error: Cannot set low power mode\n" +
                                       only_bittware_and_u5x + "set_boot_image: " + bmc_missing +
                                       "get_boot_image: " + bmc_missing + "get_current_boot_image: " + bmc_missing +
                                       "get_serial: " + bmc_missing + "get_sensors: " + bmc_missing +
                                       "get_vendor_mac_addresses: 02:00:02:00:00:00 x 8\n");
}

TEST(facade, a_u5x_board_has_transceiver_speeds_and_no_cages)
{
    EXPECT_EQ(outcomes("xilinx_u50"),
              "get_transceivers: unsupported: Transceiver stats are unsupported for Xilinx Alveo U50 boards\n"
              "set_qsfp_power_mode: unsupported: Setting QSFP power mode is unsupported for Xilinx Alveo U50 boards\n"
              "set_transceiver_speeds: error: U50 board needs one transceiver speed\n" +
                  only_bittware + xmc_missing);
    EXPECT_EQ(outcomes("xilinx_u55c"),
              "get_transceivers: unsupported: Transceiver stats are unsupported for Xilinx Alveo U55c boards\n"
              "set_qsfp_power_mode: unsupported: Setting QSFP power mode is unsupported for Xilinx Alveo U55c boards\n"
              "set_transceiver_speeds: error: U55c board needs two transceiver speeds\n" +
                  only_bittware + xmc_missing);
}

TEST(facade, a_u250_is_a_u200_in_every_operation)
{
    for (const std::string model : {"xilinx_u200", "xilinx_u250"})
        EXPECT_EQ(outcomes(model), "get_transceivers: 2\n" // of which none has a module
                                   "set_qsfp_power_mode: error: Cannot set low power mode\n" +
                                       only_bittware_and_u5x + only_bittware + xmc_missing);
}

template <class Kind>
std::string identity_of(const std::string& model)
{
    tests::rack_t rack;
    rack.plug(model, {{"xmc", R"({"card": {"serial": "SN-1", "macs": {"first": "00:0a:35:01:02:03", "count": 4}}})"}});
    return printed(rack, [](const hw::core& root) {
        Kind kind{root};
        const mac_addresses_t block = kind.get_vendor_mac_addresses().value();
        std::cout << kind.get_serial().value() << ", " << block.first << " x " << block.count << ", "
                  << kind.get_sensors().sensors.size() << " sensors";
    });
}

// One more sensor than in the lists: whether power is good.
TEST(alveo_kinds, tell_by_themselves_what_their_controller_says)
{
    const std::string identity = "SN-1, 00:0a:35:01:02:03 x 4, ";
    EXPECT_EQ(identity_of<u50>("xilinx_u50"), identity + "25 sensors");
    EXPECT_EQ(identity_of<u55c>("xilinx_u55c"), identity + "27 sensors");
    EXPECT_EQ(identity_of<u200>("xilinx_u200"), identity + "32 sensors");
}

/// The kind's position in the variant; or what building the board says.
std::string kind_of(const std::string& model, const std::string& faults = "")
{
    tests::rack_t rack;
    rack.plug(model).environment("IVRA_LOG_LEVEL=0");
    if (!faults.empty())
        rack.faults(faults);
    return printed(rack, [](const hw::core& root) { std::cout << get_board_variant(root).index(); });
}

TEST(board_variant, has_the_kinds_in_their_order)
{
    // clang-format off
    struct row_t { const char* model; const char* index; };
    constexpr row_t rows[] = {
        {"m48e_emu_xcvu9p", "0"}, {"m48l_xcvu7p", "0"}, {"m48lb_xcvu9p", "0"},
        {"ivra_fpb2", "1"}, {"bittware_xupp3r", "1"},
        {"xilinx_u50", "2"}, {"xilinx_u55c", "3"},
        {"xilinx_u200", "4"}, {"xilinx_u250", "4"},
        {"bittware_xupvv8", "5"},
    };
    // clang-format on
    for (const row_t& row : rows)
        EXPECT_EQ(kind_of(row.model), row.index) << row.model;
}

TEST(board_variant, of_another_name_does_not_exist)
{
    for (const std::string model : {"unknown_model", "Xilinx_U50", "xilinx_u50 ", "xilinx_u", ""})
        EXPECT_EQ(kind_of(model), "error: Unsupported board model: '" + model + "'");
}

TEST(board_variant, of_a_design_that_does_not_tell_its_name_is_a_system_error)
{
    EXPECT_EQ(kind_of("xilinx_u50", R"({"call": "ivra_hw_top_get_board_name", "errno": "EIO"})"),
              "system error: Input/output error");
    EXPECT_EQ(kind_of("xilinx_u50", R"({"call": "ivra_hw_top_create", "errno": "ENODEV"})"),
              "system error: Failed to create hw_top subsystem: No such device");
}

TEST(board_variant, opens_i2c_before_the_controller_except_on_u5x_boards)
{
    struct row_t
    {
        const char* model;
        const char* first;
        const char* second;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {"bittware_xupp3r", "ivra_i2c_create(",        "ivra_uart_create("},
        {"bittware_xupvv8", "ivra_i2c_create(",        "ivra_uart_create("},
        {"xilinx_u200",     "ivra_i2c_create(",        "ivra_hw_core_enumerate("},
        {"xilinx_u50",      "ivra_hw_core_enumerate(", "ivra_i2c_create("},
        {"xilinx_u55c",     "ivra_hw_core_enumerate(", "ivra_i2c_create("},
    };
    // clang-format on
    for (const row_t& row : rows) {
        tests::rack_t rack;
        rack.plug(row.model);
        rack.in_child([] { board{hw::enumerate_accelerators().at(0)}; });
        const std::size_t first = rack.trace().find(row.first);
        const std::size_t second = rack.trace().find(row.second);
        EXPECT_NE(second, std::string::npos) << row.model;
        EXPECT_LT(first, second) << row.model;
    }
}

TEST(board_object, reads_the_addresses_of_the_design_in_their_order)
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p", {{"mac_addresses", R"(["02:00:00:00:00:09", "02:00:00:00:00:01"])"}});
    EXPECT_EQ(printed(rack,
                      [] {
                          board b{hw::enumerate_accelerators().at(0)};
                          for (const v6::mac_address& address : b.get_mac_addresses())
                              std::cout << address << '\n';
                      }),
              "02:00:00:00:00:09\n02:00:00:00:00:01\n");
}

std::string vendor_addresses(tests::rack_t& rack)
{
    return printed(rack, [] {
        const auto block = board{hw::enumerate_accelerators().at(0)}.get_vendor_mac_addresses();
        std::cout << block.value().first << " x " << block.value().count;
    });
}

/// The vendor addresses of a switch with this content of its address file, or without one.
std::string switch_addresses(const std::optional<std::string>& content, const std::string& faults = "")
{
    tests::rack_t rack;
    rack.plug("m48l_xcvu7p").host({.serial = {}, .address = content});
    if (!faults.empty())
        rack.faults(faults);
    return vendor_addresses(rack);
}

TEST(arista_addresses, replace_the_last_octet_of_the_management_port)
{
    EXPECT_EQ(switch_addresses("00:1c:73:aa:bb:cc\n"), "00:1c:73:aa:bb:80 x 128");
    EXPECT_EQ(switch_addresses("00:1c:73:aa:bb:05\n"), "00:1c:73:aa:bb:80 x 128") << "replaced, not added to";
    EXPECT_EQ(switch_addresses("FF:FF:FF:FF:FF:FF"), "ff:ff:ff:ff:ff:80 x 128");
    EXPECT_EQ(switch_addresses(" 00:1c:73:aa:bb:cc more"), "00:1c:73:aa:bb:80 x 128") << "the first word counts";
}

TEST(arista_addresses, of_a_host_without_the_file_are_an_error)
{
    EXPECT_EQ(switch_addresses(std::nullopt), "error: Could not get MAC address from system");
}

TEST(arista_addresses, that_cannot_be_parsed_are_a_system_error)
{
    for (const std::string content : {"", " \n", "00:1c:73:aa:bb", "00:1c:73:aa:bb:cc:dd", "00-1c-73-aa-bb-cc", "eth0"})
        EXPECT_EQ(switch_addresses(content), "system error: mac_address::mac_address(): Invalid argument") << content;
}

TEST(arista_addresses, that_cannot_be_converted_back_are_a_system_error)
{
    EXPECT_EQ(switch_addresses("00:1c:73:aa:bb:cc", R"({"call": "ivra_mac_address_from_int", "errno": "ERANGE"})"),
              "system error: mac_address::mac_address(): Numerical result out of range");
}

/// The vendor addresses of a U55c with this card.
std::string card_addresses(const std::string& card)
{
    tests::rack_t rack;
    rack.plug("xilinx_u55c", {{"xmc", R"({"card": )" + card + "}"}});
    return vendor_addresses(rack);
}

TEST(card_addresses, of_the_new_scheme_are_a_block)
{
    EXPECT_EQ(card_addresses(R"({"macs": {"first": "02:00:00:00:20:08", "count": 4}})"), "02:00:00:00:20:08 x 4");
}

TEST(card_addresses, of_the_new_scheme_win_over_legacy_ones_and_have_8_bytes)
{
    const std::string legacy = R"("macs": null, "legacy_macs": ["02:00:00:00:00:07"], )";
    EXPECT_EQ(card_addresses("{" + legacy + R"("extra": [{"key": "0x4b", "value": {"hex": "0200020304050607"}}]})"),
              "02:03:04:05:06:07 x 2");
    for (const std::string value : {"02000203040506", "020002030405060708"})
        EXPECT_EQ(card_addresses("{" + legacy + R"("extra": [{"key": "0x4b", "value": {"hex": ")" + value + R"("}}]})"),
                  "error: Invalid new MAC scheme packet read");
}

TEST(card_addresses, of_the_legacy_scheme_are_counted_from_the_first_slot_that_is_not_erased)
{
    EXPECT_EQ(card_addresses(R"({"legacy_macs": ["FF:FF:FF:FF:FF:FF", "02:00:00:00:00:23", "02:00:00:00:00:24", ""]})"),
              "02:00:00:00:00:23 x 2");
    EXPECT_EQ(card_addresses(R"({"macs": null, "extra": [{"key": "0x24", "value": "02:00:00:00:00:24\u0000"}]})"),
              "02:00:00:00:00:24 x 1")
        << "read up to its zero byte";
    EXPECT_EQ(card_addresses(R"({"legacy_macs": ["FF:FF:FF:FF:FF:FF\u0000"]})"), "ff:ff:ff:ff:ff:ff x 1")
        << "not the marker of an erased slot";
    EXPECT_EQ(card_addresses(R"({"legacy_macs": ["FF:FF:FF:FF:FF:FF"]})"), "error: No MAC address found");
    EXPECT_EQ(card_addresses(R"({"legacy_macs": ["02-00"]})"),
              "system error: mac_address::mac_address(): Invalid argument");
}

/// What an action on the I2C controller of an XUPP3R says; `i2c` is what the rack says of it.
std::string on_i2c(const std::string& i2c, const std::string& faults,
                   const std::function<std::string(v6::i2c::i2c&)>& action)
{
    tests::rack_t rack;
    rack.plug("bittware_xupp3r", {{"i2c", i2c}});
    if (!faults.empty())
        rack.faults(faults);
    return printed(rack, [&](const hw::core& root) {
        v6::i2c::i2c controller{root};
        std::cout << action(controller);
    });
}

std::string enabled(v6::i2c::i2c& controller)
{
    enable_i2c(controller);
    std::ostringstream text;
    text << std::hex << controller.read_control_pins().value().value();
    return text.str();
}

TEST(enable_i2c, sets_pin_0_and_keeps_every_other_one)
{
    EXPECT_EQ(on_i2c(R"({"pins": 8})", "", &enabled), "1");
    EXPECT_EQ(on_i2c(R"({"pins": 8})", "",
                     [](v6::i2c::i2c& controller) {
                         controller.write_control_pins(0xA4);
                         return enabled(controller);
                     }),
              "a5");
}

TEST(enable_i2c, of_a_controller_without_pins_is_out_of_range)
{
    EXPECT_EQ(on_i2c(R"({"pins": 0})", "", &enabled),
              "system error: Could not not set enable I2C pin: Numerical result out of range");
}

TEST(enable_i2c, that_fails_says_so)
{
    for (const std::string call : {"ivra_i2c_read_control_pins", "ivra_i2c_write_control_pins"})
        EXPECT_EQ(on_i2c(R"({"pins": 8})", R"({"call": ")" + call + R"(", "errno": "EIO"})", &enabled),
                  "system error: Could not not set enable I2C pin: Input/output error");
}

/// The address in the EEPROM of an XUPP3R with this text in it.
std::string eeprom_address(const std::string& text, const std::string& faults = "")
{
    return on_i2c(R"({"mac_eeprom": )" + text + "}", faults, [](v6::i2c::i2c& controller) {
        enable_i2c(controller);
        v6::i2c::bus bus = controller.get_bus(0).value();
        std::ostringstream address;
        address << bittware::read_eeprom_mac(bus);
        return address.str();
    });
}

TEST(mac_eeprom, holds_the_address_as_text)
{
    EXPECT_EQ(eeprom_address(R"("MAC=00:11:22:33:44:55")"), "00:11:22:33:44:55");
    EXPECT_EQ(eeprom_address(R"("MAC=00:11:22:AA:BB:CC and more")"), "00:11:22:aa:bb:cc");
}

TEST(mac_eeprom, with_another_field_shows_what_it_holds)
{
    EXPECT_EQ(eeprom_address(R"("mac=00:11:22:33:44:55")"),
              "error: Unexpected field read from MAC EEPROM: mac=00:11:22:33:44:55")
        << "the comparison is exact";
    EXPECT_EQ(eeprom_address(R"("")"),
              "error: Unexpected field read from MAC EEPROM: " + std::string(21, static_cast<char>(0xFF)));
}

TEST(mac_eeprom, with_a_text_that_is_no_address_is_a_system_error)
{
    EXPECT_EQ(eeprom_address(R"("MAC=00:11:22:33:44:5")"),
              "system error: mac_address::mac_address(): Invalid argument");
    EXPECT_EQ(eeprom_address(R"("MAC=00-11-22-33-44-55")"),
              "system error: mac_address::mac_address(): Invalid argument");
}

TEST(mac_eeprom, that_cannot_be_read_whole_is_an_error)
{
    const std::string good = R"("MAC=00:11:22:33:44:55")";
    EXPECT_EQ(eeprom_address(good, R"({"call": "ivra_i2c_bus_read_register", "short": 20})"),
              "error: Not enough byte read from MAC EEPROM");
    EXPECT_EQ(eeprom_address(good, R"({"call": "ivra_i2c_bus_read_register", "count": 22})"),
              "error: Not enough byte read from MAC EEPROM")
        << "a count that cannot be";
    EXPECT_EQ(eeprom_address(good, R"({"call": "ivra_i2c_bus_read_register", "errno": "EIO"})"),
              "system error: Cannot read MAC EEPROM: Input/output error");
    EXPECT_EQ(eeprom_address("null"), "system error: Cannot read MAC EEPROM: No such device or address");
}

} // namespace
} // namespace ivra::bsp::board
