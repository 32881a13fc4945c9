#include "bad_racks.h"

#include "rack/rack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace ivra::tests {

namespace {

using namespace ivra::virtual_platform;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

using mac_t = std::array<std::uint8_t, 6>;
using ids_t = std::vector<std::uint32_t>;

/// The one accelerator of a rack with these members beside its model.
accelerator_t accelerator_with(const std::string& members)
{
    return parse_rack(rack_with(members), "my.json").accelerators.at(0);
}

accelerator_t plain(const std::string& model)
{
    return parse_rack(R"({"accelerators": [{"model": ")" + model + R"("}]})", "my.json").accelerators.at(0);
}

ids_t core_ids(const accelerator_t& accelerator)
{
    std::vector<std::uint32_t> ids;
    for (const core_t& core : accelerator.cores)
        ids.push_back(core.hardware_id);
    return ids;
}

} // namespace

TEST(rack, everything_that_a_rack_says_arrives)
{
    const accelerator_t accelerator = accelerator_with(R"(
        "name": "Größe 1", "uid": "0000:3b:00.0", "open": "EACCES",
        "fpga": {"device": "xcu200-fsgd2104-2-e", "serial": "4002000001285C0f1a104285", "temperature": -45.5},
        "mac_addresses": ["02:00:00:00:10:0A", "02:00:00:00:00:00"],
        "flash": {"size": "1 MiB", "sector": 4096, "sections": [
            {"start": 0, "size": "64 KiB"},
            {"name": null, "start": "0x10000", "size": "512 bytes", "protected": true},
            {"name": "PARAMS", "start": 131072, "size": "1KiB", "protected": false}]},
        "mmios": 3,
        "cores": [{"hardware_id": "0x1db", "address": "0x100000", "size": "192 KiB",
                   "registers": {"0x2fffc": 4294967295, "0x10": "0xABCD"}}])");
    EXPECT_EQ(accelerator.name, "Größe 1");
    EXPECT_EQ(accelerator.model, "xilinx_u200");
    EXPECT_EQ(accelerator.uid, "0000:3b:00.0");
    EXPECT_EQ(accelerator.open_error, EACCES);
    EXPECT_EQ(accelerator.fpga, (fpga_t{"xcu200-fsgd2104-2-e", {0x1a104285, 0x01285c0f, 0x40020000}, -45.5}));
    EXPECT_THAT(accelerator.mac_addresses, ElementsAre(mac_t{2, 0, 0, 0, 0x10, 0x0a}, mac_t{2, 0, 0, 0, 0, 0}));
    EXPECT_EQ(accelerator.flash.size, 1048576U);
    EXPECT_EQ(accelerator.flash.sector, 4096U);
    EXPECT_THAT(accelerator.flash.sections, ElementsAre(flash_section_t{std::nullopt, 0, 65536, false},
                                                        flash_section_t{std::nullopt, 0x10000, 512, true},
                                                        flash_section_t{"PARAMS", 0x20000, 1024, false}));
    EXPECT_EQ(accelerator.mmios, 3U);
    EXPECT_THAT(accelerator.cores,
                ElementsAre(core_t{475, 0x100000, 0x30000, {{0x10, 0xabcd}, {0x2fffc, 0xffffffff}}}));
}

TEST(rack, a_block_of_MAC_addresses_counts_on_through_the_bytes)
{
    EXPECT_THAT(accelerator_with(R"("mac_addresses": {"first": "02:00:00:ff:ff:fe", "count": 4})").mac_addresses,
                ElementsAre(mac_t{2, 0, 0, 0xff, 0xff, 0xfe}, mac_t{2, 0, 0, 0xff, 0xff, 0xff}, mac_t{2, 0, 1, 0, 0, 0},
                            mac_t{2, 0, 1, 0, 0, 1}));
    EXPECT_THAT(accelerator_with(R"("mac_addresses": {"first": "ff:ff:ff:ff:ff:ff", "count": 1})").mac_addresses,
                ElementsAre(mac_t{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}));
}

TEST(rack, an_accelerator_can_have_no_MAC_address)
{
    EXPECT_THAT(accelerator_with(R"("mac_addresses": [])").mac_addresses, IsEmpty());
    EXPECT_THAT(accelerator_with(R"("mac_addresses": {"first": "02:00:00:00:00:00", "count": 0})").mac_addresses,
                IsEmpty());
}

TEST(rack, a_devices_text_can_be_any_bytes)
{
    EXPECT_EQ(accelerator_with(R"("name": "\u001b[31m\u0000x")").name, "\x1b[31m\0x"s);
    EXPECT_EQ(accelerator_with(R"("name": {"hex": "FF0041"})").name, "\xff\0\x41"s);
    EXPECT_EQ(accelerator_with(R"("fpga": {"device": {"hex": ""}})").fpga.device, "");
    EXPECT_EQ(parse_rack(R"({"accelerators": [{"model": {"hex": "80"}}]})", "my.json").accelerators.at(0).model,
              "\x80");
    EXPECT_EQ(accelerator_with(R"("uid": {"hex": "c328"})").uid, "\xc3\x28");
    EXPECT_EQ(accelerator_with(R"("flash": {"sections": [{"name": {"hex": "1b"}, "start": 0, "size": 1}]})")
                  .flash.sections.at(0)
                  .name,
              "\x1b");
}

TEST(rack, an_accelerator_can_have_no_name_and_no_MMIO_space)
{
    EXPECT_EQ(accelerator_with(R"("name": null)").name, std::nullopt);
    EXPECT_EQ(accelerator_with(R"("mmios": 0)").mmios, 0U);
}

TEST(rack, opening_can_fail_with_every_error_that_the_schema_lists)
{
    EXPECT_EQ(accelerator_with(R"("open": null)").open_error, 0);
    const std::pair<const char*, int> rows[] = {{"EACCES", EACCES}, {"EBUSY", EBUSY},   {"EINTR", EINTR},
                                                {"EINVAL", EINVAL}, {"EIO", EIO},       {"EMFILE", EMFILE},
                                                {"ENODEV", ENODEV}, {"ENOENT", ENOENT}, {"ENOMEM", ENOMEM},
                                                {"ENXIO", ENXIO},   {"EPERM", EPERM},   {"ETIMEDOUT", ETIMEDOUT}};
    for (const auto& [name, number] : rows)
        EXPECT_EQ(accelerator_with(R"("open": ")" + std::string{name} + '"').open_error, number) << name;
}

TEST(rack, temperatures_are_exact)
{
    const std::pair<const char*, double> rows[] = {{"45.5", 45.5},
                                                   {"-0.0", -0.0},
                                                   {"0E19", 0},
                                                   {"4", 4},
                                                   {"4.35", 4.35},
                                                   {"1e22", 1e22},
                                                   {"18446744073709551616", 18446744073709551616.0},
                                                   {"9007199254740993", 9007199254740992.0},
                                                   {"1.7976931348623157e308", 1.7976931348623157e308},
                                                   {"5e-324", 5e-324}};
    for (const auto& [text, celsius] : rows)
        EXPECT_EQ(accelerator_with(R"("fpga": {"temperature": )" + std::string{text} + "}").fpga.temperature, celsius)
            << text;
}

TEST(rack, sizes_are_taken_in_the_units_of_operators)
{
    const std::pair<const char*, std::uint64_t> rows[] = {
        {"134217728", 134217728},     {"\"134217728 bytes\"", 134217728}, {"\"0x8000000\"", 134217728},
        {"\"0x800000A\"", 134217738}, {"\"131072 KiB\"", 134217728},      {"\"128MiB\"", 134217728},
        {"\"1 GiB\"", 1073741824},    {"\"4 GiB\"", 4294967296}};
    for (const auto& [text, size] : rows)
        EXPECT_EQ(accelerator_with(R"("flash": {"sector": 1, "size": )" + std::string{text} + "}").flash.size, size)
            << text;
}

TEST(rack, the_mark_that_some_editors_put_before_a_text_is_passed_over)
{
    EXPECT_EQ(parse_rack("\xef\xbb\xbf{\"accelerators\": []}", "my.json").accelerators.size(), 0U);
}

TEST(rack, a_rack_may_say_where_its_schema_is)
{
    EXPECT_EQ(parse_rack(R"({"$schema": "rack.schema.json", "accelerators": []})", "my.json").accelerators.size(), 0U);
}

TEST(rack, the_text_of_an_accelerator_is_its_own_and_does_not_depend_on_spaces)
{
    const rack_t rack =
        parse_rack("{\"accelerators\": [ {\"model\" :\n \"a\"}, {\"model\":\"b\", \"mmios\": 2 } ]}", "my.json");
    EXPECT_EQ(rack.accelerators.at(0).text, R"({"model":"a"})");
    EXPECT_EQ(rack.accelerators.at(1).text, R"({"model":"b","mmios":2})");
}

TEST(rack_file, is_known_by_its_absolute_path_without_symbolic_links)
{
    std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
    const fs::path folder = fs::canonical(::mkdtemp(name.data()));
    std::ofstream{folder / "real.json"} << R"({"accelerators": []})";
    fs::create_symlink("real.json", folder / "link.json");
    EXPECT_EQ(load_rack(folder / "." / "link.json").file, folder / "real.json");
    fs::remove_all(folder);
}

// ---- what is left out ----

TEST(rack_defaults, every_model_has_its_own_FPGA_and_cores)
{
    struct row_t
    {
        const char* model;
        const char* device;
        std::vector<std::uint32_t> cores;
    };
    const std::vector<std::uint32_t> alveo{1, 16, 32, 475};
    const std::vector<std::uint32_t> bittware{1, 16, 32, 48};
    const std::vector<std::uint32_t> others{1, 16};
    const row_t rows[] = {
        {"xilinx_u200", "xcu200-fsgd2104-2-e", alveo},
        {"xilinx_u250", "xcu250-figd2104-2l-e", alveo},
        {"xilinx_u50", "xcu50-fsvh2104-2-e", alveo},
        {"xilinx_u55c", "xcu55c-fsvh2892-2l-e", alveo},
        {"bittware_xupp3r", "xcvu9p-", bittware},
        {"bittware_xupvv8", "xcvu13p-", bittware},
        {"ivra_fpb2", "xcvu9p-", bittware},
        {"m48e_emu_xcvu9p", "xcvu9p-", others},
        {"m48l_xcvu7p", "xcvu7p-", others},
        {"m48lb_xcvu9p", "xcvu9p-", others},
        {"unknown_model", "xc", others},
        {"Xilinx_U200", "xc", others},
    };
    for (const row_t& row : rows) {
        const accelerator_t accelerator = plain(row.model);
        EXPECT_THAT(accelerator.fpga.device, ::testing::StartsWith(row.device)) << row.model;
        EXPECT_EQ(core_ids(accelerator), row.cores) << row.model;
        EXPECT_GE(accelerator.mac_addresses.size(), 1U) << row.model;
        EXPECT_LE(accelerator.mac_addresses.size(), 8U) << row.model;
        EXPECT_GT(accelerator.fpga.temperature, 0) << row.model;
        EXPECT_LT(accelerator.fpga.temperature, 100) << row.model;
        EXPECT_EQ(accelerator.mmios, 1U) << row.model;
        EXPECT_EQ(accelerator.open_error, 0) << row.model;
        EXPECT_THAT(accelerator.name.value_or(""), ::testing::StartsWith("virtual-")) << row.model;
    }
}

TEST(rack_defaults, the_flash_has_two_images_parameters_twice_and_a_section_for_one_time)
{
    const flash_t flash = plain("xilinx_u200").flash;
    EXPECT_EQ(flash.size, 128U * 1024 * 1024);
    EXPECT_EQ(flash.sector, 64U * 1024);
    EXPECT_THAT(flash.sections, ElementsAre(flash_section_t{"PGM", 0, 0x1002000, false},
                                            flash_section_t{"USR", 0x1002000, 0x5000000, false},
                                            flash_section_t{"PARAMS", 0x7fc0000, 0x10000, true},
                                            flash_section_t{"PARAMS", 0x7fd0000, 0x10000, false},
                                            flash_section_t{"OTP", 0x7ff0000, 0x1000, false}));
}

TEST(rack_defaults, a_member_that_is_given_leaves_the_others_alone)
{
    const accelerator_t whole = plain("xilinx_u200");
    EXPECT_EQ(accelerator_with(R"("fpga": {"temperature": 1})").fpga.device, whole.fpga.device);
    EXPECT_EQ(accelerator_with(R"("fpga": {"device": "x"})").fpga.serial, whole.fpga.serial);
    EXPECT_EQ(accelerator_with(R"("flash": {"size": "256 MiB"})").flash.sections, whole.flash.sections);
    EXPECT_EQ(accelerator_with(R"("flash": {"sections": []})").flash.size, whole.flash.size);
    EXPECT_THAT(accelerator_with(R"("flash": {"sections": []})").flash.sections, IsEmpty());
}

TEST(rack_defaults, a_design_can_lack_its_I2C_controller_or_its_UART_or_all_cores)
{
    EXPECT_EQ(core_ids(accelerator_with(R"("i2c": null)")), (ids_t{1, 16, 475}));
    EXPECT_EQ(core_ids(accelerator_with(R"("i2c": {})")), (ids_t{1, 16, 32, 475}));
    EXPECT_EQ(core_ids(accelerator_with(R"("bmc": null)")), (ids_t{1, 16, 32, 475}));
    EXPECT_THAT(core_ids(accelerator_with(R"("cores": [])")), IsEmpty());
    EXPECT_THAT(core_ids(accelerator_with(R"("cores": [], "i2c": null, "bmc": null)")), IsEmpty());
    const auto bittware = R"({"accelerators": [{"model": "ivra_fpb2", "bmc": null, "i2c": null}]})";
    EXPECT_EQ(core_ids(parse_rack(bittware, "my.json").accelerators.at(0)), (ids_t{1, 16}));
}

TEST(rack_defaults, a_design_can_have_an_I2C_controller_that_its_model_has_not)
{
    const rack_t rack = parse_rack(R"({"accelerators": [{"model": "m48l_xcvu7p", "i2c": {}, "bmc": {}}]})", "my.json");
    EXPECT_EQ(core_ids(rack.accelerators.at(0)), (ids_t{1, 16, 32, 48}));
}

TEST(rack_defaults, cores_lie_in_address_order_and_never_overlap)
{
    const rack_t rack = parse_rack(R"({"accelerators": [{"model": "xilinx_u200", "bmc": {}}]})", "my.json");
    const std::vector<core_t>& cores = rack.accelerators.at(0).cores;
    ASSERT_EQ(cores.size(), 5U);
    for (std::size_t at = 1; at < cores.size(); ++at)
        EXPECT_GE(cores[at].address, cores[at - 1].address + cores[at - 1].size);
    EXPECT_EQ(cores.back(), (core_t{475, 0x100000, 0x30000, {}}));
}

TEST(rack_defaults, no_two_boards_share_a_uid_a_name_a_serial_or_a_MAC_address)
{
    // One of 16 has most addresses; the others are read in a tenth of its time.
    constexpr std::size_t count = 65536, one_of = 16;
    std::string text;
    for (std::size_t at = 0; at < count; ++at)
        text += at % one_of == 0 ? R"(,{"model":"xilinx_u250"})" : R"(,{"model":"m48lb_xcvu9p"})";
    const rack_t rack = parse_rack(R"({"accelerators":[)" + text.substr(1) + "]}", "my.json");
    std::set<std::string> uids;
    std::set<std::string> names;
    std::set<std::array<std::uint32_t, 3>> serials;
    std::set<mac_t> addresses;
    for (const accelerator_t& accelerator : rack.accelerators) {
        uids.insert(accelerator.uid);
        names.insert(accelerator.name.value());
        serials.insert(accelerator.fpga.serial);
        addresses.insert(accelerator.mac_addresses.begin(), accelerator.mac_addresses.end());
    }
    EXPECT_TRUE(std::ranges::all_of(addresses, [](const mac_t& address) { return address[0] == 0x02; }))
        << "they are locally administered";
    EXPECT_EQ(uids.size(), count);
    EXPECT_EQ(names.size(), count);
    EXPECT_EQ(serials.size(), count);
    EXPECT_EQ(addresses.size(), (8 + 15 * 6) * count / one_of);
}

TEST(rack_defaults, a_uid_that_is_left_out_makes_way_for_those_that_are_given)
{
    const std::string taken = plain("xilinx_u200").uid;
    const rack_t rack = parse_rack(
        R"({"accelerators": [{"model": "a"}, {"model": "a", "uid": ")" + taken + R"("}, {"model": "a"}]})", "my.json");
    EXPECT_EQ(rack.accelerators.at(1).uid, taken);
    EXPECT_NE(rack.accelerators.at(0).uid, taken);
    EXPECT_NE(rack.accelerators.at(0).uid, rack.accelerators.at(2).uid);
}

// ---- XMC ----

TEST(rack_xmc, everything_that_a_rack_says_arrives)
{
    using namespace std::chrono_literals;
    const accelerator_t accelerator = accelerator_with(R"("xmc": {
        "ready_after": ["20 ms", "1.25 s"], "answer_after": "never", "error": "0xC0de", "dead_link": true,
        "power_good": false,
        "card": {"name": "N", "revision": "R\u0000", "serial": {"hex": "53ff"},
                 "macs": {"first": "02:00:00:00:20:0A", "count": 255}, "legacy_macs": [null, "text"], "fan": true,
                 "configuration_mode": 255, "maximum_power": 65535, "firmware": "F",
                 "extra": [{"key": "0x4b", "value": {"hex": "00"}}, {"key": 33, "value": "again"}]},
        "sensors": {"VCCINT": [1, "0xffffffff", 3], "HBM_1V2_I": [4, 5, 6]}})");
    ASSERT_EQ(accelerator.xmcs.size(), 1U);
    const xmc_t& xmc = accelerator.xmcs.at(0);
    EXPECT_THAT(xmc.ready_after, ElementsAre(20ms, 1250ms));
    EXPECT_EQ(xmc.answer_after, std::nullopt);
    EXPECT_EQ(xmc.error, 0xc0deU);
    EXPECT_TRUE(xmc.dead_link);
    EXPECT_FALSE(xmc.power_good);
    EXPECT_EQ(xmc.card.name, "N");
    EXPECT_EQ(xmc.card.revision, "R\0"s);
    EXPECT_EQ(xmc.card.serial, "S\xff");
    EXPECT_EQ(xmc.card.macs, (mac_block_t{{2, 0, 0, 0, 0x20, 0x0a}, 255}));
    EXPECT_THAT(xmc.card.legacy_macs, ElementsAre(std::nullopt, "text"));
    EXPECT_EQ(xmc.card.fan, true);
    EXPECT_EQ(xmc.card.configuration_mode, 255);
    EXPECT_EQ(xmc.card.maximum_power, 65535);
    EXPECT_EQ(xmc.card.firmware, "F");
    EXPECT_THAT(xmc.card.extra, ElementsAre(card_field_t{0x4b, "\0"s}, card_field_t{0x21, "again"}));
    EXPECT_EQ(xmc.card.raw, std::nullopt);
    EXPECT_THAT(xmc.sensors, ::testing::Contains(xmc_sensor_t{"VCCINT", {1, 0xffffffff, 3}}));
    EXPECT_THAT(xmc.sensors, ::testing::Contains(xmc_sensor_t{"HBM_1V2_I", {4, 5, 6}}));
    EXPECT_EQ(xmc.sensors.size(), 32U) << "the 31 of the board, and one that it does not have";
}

TEST(rack_xmc, times_are_exact_to_the_nanosecond)
{
    const std::pair<const char*, std::int64_t> rows[] = {
        {"0 s", 0},
        {"1s", 1'000'000'000},
        {"0.000000001 s", 1},
        {"1.5 ms", 1'500'000},
        {"50 us", 50'000},
        {"0.001 us", 1},
        {"0.0019 us", 1},
        {"007 ms", 7'000'000},
        {"0.1 s", 100'000'000},
        {"999999999.999999999 s", 999'999'999'999'999'999},
    };
    for (const auto& [text, nanoseconds] : rows) {
        const accelerator_t accelerator = accelerator_with(R"("xmc": {"answer_after": ")"s + text + "\"}");
        EXPECT_EQ(accelerator.xmcs.at(0).answer_after, std::chrono::nanoseconds{nanoseconds}) << text;
    }
}

TEST(rack_bmc, a_board_of_a_model_with_one_has_plausible_sensors_and_a_serial_of_its_own)
{
    std::set<std::string> serials;
    for (const char* model : {"bittware_xupp3r", "bittware_xupvv8", "ivra_fpb2"}) {
        const std::string text = R"({"accelerators": [{"model": ")"s + model + R"("}, {"model": ")" + model + "\"}]}";
        std::vector<std::string> remarks;
        const rack_t rack = read_rack(json::parse(text, "my.json", rack_sentence), "my.json", &remarks);
        EXPECT_THAT(remarks, IsEmpty());
        for (const accelerator_t& accelerator : rack.accelerators) {
            ASSERT_TRUE(accelerator.bmc);
            EXPECT_TRUE(serials.insert(*accelerator.bmc->fru.serial).second);
            EXPECT_EQ(accelerator.bmc->sensors.size(), 12U);
            EXPECT_EQ(std::ranges::count(accelerator.bmc->sensors, false, &bmc_sensor_t::available), 1);
            EXPECT_EQ(std::ranges::count_if(accelerator.bmc->sensors,
                                            [](const bmc_sensor_t& sensor) { return sensor.name.size() > 16; }),
                      1);
        }
    }
    EXPECT_EQ(serials.size(), 6U);
    EXPECT_EQ(plain("xilinx_u200").bmc, std::nullopt);
}

TEST(rack_bmc, a_rack_changes_what_it_mentions_and_nothing_else)
{
    const bmc_t before = *plain("ivra_fpb2").bmc;
    bmc_t after = before;
    after.boot_image = 1;
    after.fru.serial = "S";
    const rack_t rack = parse_rack(
        R"({"accelerators": [{"model": "ivra_fpb2", "bmc": {"boot_image": "backup", "fru": {"serial": "S"}}}]})",
        "my.json");
    EXPECT_EQ(rack.accelerators.at(0).bmc, after);
}

TEST(rack_bmc, a_UART_that_is_spelt_out_has_one_behind_it)
{
    EXPECT_TRUE(accelerator_with(R"("cores": [{"hardware_id": 48, "address": 0, "size": 4}])").bmc);
    EXPECT_FALSE(accelerator_with(R"("cores": [])").bmc);
}

TEST(rack_xmc, a_card_sends_its_fields_in_one_order_as_key_length_and_value)
{
    const auto bytes_of = [](const std::string& members) {
        return card_information(accelerator_with(R"("xmc": {"card": {)" + members + "}}").xmcs.at(0).card);
    };
    const std::string texts = R"("name": "NN", "revision": "R", "serial": "SSS", "firmware": "F",
        "fan": true, "configuration_mode": 9, "maximum_power": 258, )";
    EXPECT_EQ(bytes_of(texts + R"("macs": {"first": "02:03:04:05:06:07", "count": 8})"),
              "\x27\2NN\x26\1R\x21\3SSS\x4b\x08\x08\0\2\3\4\5\6\7\x2a\1\1\x2b\1\x09\x29\2\2\1\x28\1F"s);
    EXPECT_EQ(bytes_of(texts + R"("legacy_macs": ["a", null, "", "dd"])"),
              "\x27\2NN\x26\1R\x21\3SSS\x22\1a\x24\0\x25\2dd\x2a\1\1\x2b\1\x09\x29\2\2\1\x28\1F"s);
    EXPECT_EQ(
        bytes_of(R"("name": null, "revision": null, "serial": "", "macs": null, "fan": null, "maximum_power": null,
        "configuration_mode": null, "firmware": null, "extra": [{"key": 33, "value": "x"}, {"key": 33, "value": ""}])"),
        "\x21\0\x21\1x\x21\0"s);
    EXPECT_EQ(bytes_of(texts + R"("raw": "0021ff")"), "\0\x21\xff"s);
    EXPECT_EQ(bytes_of(R"("raw": "")"), "");
}

TEST(rack_xmc, legacy_addresses_take_the_place_of_the_new_ones_unless_both_are_given)
{
    const auto card_with = [](const std::string& members) {
        return accelerator_with(R"("xmc": {"card": {)" + members + "}}").xmcs.at(0).card;
    };
    EXPECT_TRUE(card_with("").macs.has_value());
    EXPECT_FALSE(card_with(R"("legacy_macs": ["02:00:00:00:20:00"])").macs.has_value());
    EXPECT_TRUE(card_with(R"("macs": {"first": "02:00:00:00:20:00", "count": 1}, "legacy_macs": [])").macs.has_value());
}

TEST(rack_xmc, each_model_has_its_sensors_and_a_board_of_another_sort_none)
{
    const std::pair<const char*, std::size_t> rows[] = {
        {"xilinx_u200", 31}, {"xilinx_u250", 31}, {"xilinx_u50", 24}, {"xilinx_u55c", 26}};
    for (const auto& [model, count] : rows) {
        const accelerator_t accelerator = plain(model);
        ASSERT_EQ(accelerator.xmcs.size(), 1U) << model;
        EXPECT_EQ(accelerator.xmcs.at(0).sensors.size(), count) << model;
        EXPECT_TRUE(accelerator.xmcs.at(0).power_good) << model;
    }
    for (const char* model : {"bittware_xupp3r", "m48l_xcvu7p", "unknown_model"})
        EXPECT_THAT(plain(model).xmcs, IsEmpty()) << model;
    const rack_t strange = parse_rack(R"({"accelerators": [{"model": "m48l_xcvu7p", "xmc": {}}]})", "my.json");
    EXPECT_THAT(strange.accelerators.at(0).xmcs.at(0).sensors, IsEmpty());
    EXPECT_EQ(core_ids(strange.accelerators.at(0)), (ids_t{1, 16, 475}));
}

TEST(rack_xmc, a_board_has_a_core_for_each_xmc_and_the_cores_it_spells_out_decide_about_those_left_out)
{
    EXPECT_EQ(core_ids(accelerator_with(R"("xmc": null)")), (ids_t{1, 16, 32}));
    EXPECT_EQ(core_ids(accelerator_with(R"("xmc": [])")), (ids_t{1, 16, 32}));
    const accelerator_t two = accelerator_with(R"("xmc": [{"error": 1}, {"error": 2}])");
    EXPECT_EQ(core_ids(two), (ids_t{1, 16, 32, 475, 475}));
    EXPECT_EQ(xmc_behind(two, two.cores.at(2)), nullptr);
    EXPECT_EQ(xmc_behind(two, two.cores.at(3))->error, 1U);
    EXPECT_EQ(xmc_behind(two, two.cores.at(4))->error, 2U);
    EXPECT_NE(two.xmcs.at(0).card.serial, two.xmcs.at(1).card.serial);
    EXPECT_NE(two.xmcs.at(0).card.macs, two.xmcs.at(1).card.macs);
    const accelerator_t small = accelerator_with(
        R"("cores": [{"hardware_id": 475, "address": 0, "size": "0x2a00c"},
                     {"hardware_id": 475, "address": "1 MiB", "size": "0x2a010"}])");
    ASSERT_EQ(small.xmcs.size(), 1U);
    EXPECT_EQ(xmc_behind(small, small.cores.at(0)), nullptr) << "it is too small";
    EXPECT_EQ(xmc_behind(small, small.cores.at(1)), &small.xmcs.at(0));
}

TEST(rack_xmc, no_two_cards_share_a_serial_and_vendor_addresses_are_none_of_the_design)
{
    std::string text = R"({"accelerators": [{"model": "xilinx_u250"})";
    constexpr std::size_t count = 300;
    for (std::size_t at = 1; at < count; ++at)
        text += R"(,{"model":"xilinx_u250"})";
    std::set<std::string> serials;
    std::set<mac_t> designs;
    std::set<mac_t> vendors;
    for (const accelerator_t& accelerator : parse_rack(text + "]}", "my.json").accelerators) {
        serials.insert(accelerator.xmcs.at(0).card.serial.value());
        designs.insert(accelerator.mac_addresses.begin(), accelerator.mac_addresses.end());
        const mac_block_t macs = accelerator.xmcs.at(0).card.macs.value();
        EXPECT_EQ(macs.count, 8U);
        EXPECT_LE(macs.first[5], 0xf8U) << "counting on stays within the last byte";
        for (std::uint8_t at = 0; at < macs.count; ++at) {
            mac_t address = macs.first;
            address[5] = static_cast<std::uint8_t>(address[5] + at);
            vendors.insert(address);
            EXPECT_FALSE(designs.contains(address));
        }
    }
    EXPECT_EQ(serials.size(), count);
    EXPECT_EQ(vendors.size(), 8 * count);
    EXPECT_TRUE(serials.contains("VRT0250A0001"));
    EXPECT_TRUE(serials.contains("VRT0250A0300"));
}

// ---- the racks that come with it ----

TEST(rack_files, those_with_an_xmc_to_learn_from_are_what_their_names_say)
{
    const auto xmcs_of = [](const std::string& name) {
        const rack_t rack = load_rack(IVRA_RACKS "/" + name + ".json");
        EXPECT_THAT(rack.accelerators.at(0).name.value_or(""), ::testing::StartsWith("virtual-"));
        return rack.accelerators.at(0).xmcs;
    };
    EXPECT_EQ(xmcs_of("xmc-never-ready").at(0).ready_after.at(1), std::nullopt);
    EXPECT_EQ(xmcs_of("xmc-loses-mailbox").at(0).answer_after, std::nullopt);
    EXPECT_EQ(xmcs_of("xmc-two").size(), 2U);
    EXPECT_EQ(xmcs_of("xmc-none").size(), 0U);
    EXPECT_TRUE(xmcs_of("xmc-dead-link").at(0).dead_link);
    EXPECT_THAT(xmcs_of("xmc-repeated-key").at(0).card.extra, ElementsAre(card_field_t{0x21, "VRTSECOND002"}));
    EXPECT_EQ(xmcs_of("xmc-legacy-card").at(0).card.macs, std::nullopt);
    EXPECT_THAT(xmcs_of("xmc-legacy-card").at(0).card.legacy_macs,
                ElementsAre("FF:FF:FF:FF:FF:FF", "02:00:00:00:30:01", "02:00:00:00:30:02", "FF:FF:FF:FF:FF:FF"));
    // The last field begins with its key and says 8 bytes, of which 5 are there.
    EXPECT_THAT(xmcs_of("xmc-truncated-record").at(0).card.raw.value(),
                ::testing::EndsWith("\x4b\x08\x02\x00\x02\x00\x01"s));
}

TEST(rack_files, a_rack_is_the_same_however_its_path_is_spelt)
{
    EXPECT_EQ(load_rack(IVRA_RACKS "/../racks/modules/../showcase.json").accelerators,
              load_rack(IVRA_RACKS "/showcase.json").accelerators);
}

TEST(rack_files, the_showcase_spells_out_for_the_u200_what_others_have_by_default)
{
    const rack_t rack = load_rack(IVRA_RACKS "/showcase.json");
    xmc_t spelt_out = rack.accelerators.at(0).xmcs.at(0);
    const mac_block_t expected{{2, 0, 0, 0, 0x20, 0}, 4};
    EXPECT_EQ(spelt_out.card.macs, expected);
    spelt_out.card.macs = plain("xilinx_u200").xmcs.at(0).card.macs;
    EXPECT_EQ(spelt_out, plain("xilinx_u200").xmcs.at(0));
    for (std::size_t at = 0; at < 4; ++at) {
        const std::string serial = rack.accelerators.at(at).xmcs.at(0).card.serial.value();
        EXPECT_EQ(serial.size(), 12U) << serial;
        EXPECT_EQ(serial.find('\0'), std::string::npos) << "it is sent without a NUL";
    }
}

TEST(rack_files, the_showcase_has_one_board_of_every_model_with_a_name_that_says_it_is_virtual)
{
    const rack_t rack = load_rack(IVRA_RACKS "/showcase.json");
    std::vector<std::string> models;
    std::set<std::array<std::uint32_t, 3>> serials;
    std::set<mac_t> addresses;
    std::size_t address_count = 0;
    for (const accelerator_t& accelerator : rack.accelerators) {
        models.push_back(accelerator.model);
        EXPECT_THAT(accelerator.name.value_or(""), ::testing::StartsWith("virtual-"));
        EXPECT_EQ(accelerator.flash.size, 128U << 20U);
        EXPECT_EQ(accelerator.flash.sector, 64U << 10U);
        EXPECT_EQ(accelerator.open_error, 0);
        EXPECT_GE(accelerator.mac_addresses.size(), 1U);
        EXPECT_LE(accelerator.mac_addresses.size(), 8U);
        serials.insert(accelerator.fpga.serial);
        addresses.insert(accelerator.mac_addresses.begin(), accelerator.mac_addresses.end());
        address_count += accelerator.mac_addresses.size();
    }
    EXPECT_THAT(models, ::testing::UnorderedElementsAre("m48e_emu_xcvu9p", "m48l_xcvu7p", "m48lb_xcvu9p", "ivra_fpb2",
                                                        "bittware_xupp3r", "xilinx_u50", "xilinx_u55c", "xilinx_u200",
                                                        "xilinx_u250", "bittware_xupvv8"));
    EXPECT_EQ(serials.size(), 10U);
    EXPECT_EQ(addresses.size(), address_count);
}

TEST(rack_files, the_small_ones_are_what_their_names_say)
{
    EXPECT_EQ(load_rack(IVRA_RACKS "/none.json").accelerators.size(), 0U);
    EXPECT_EQ(load_rack(IVRA_RACKS "/one.json").accelerators.size(), 1U);
    EXPECT_EQ(load_rack(IVRA_RACKS "/many.json").accelerators.size(), 1000U);
    EXPECT_EQ(load_rack(IVRA_RACKS "/unknown-model.json").accelerators.at(0).model, "unknown_model");
    const rack_t unreadable = load_rack(IVRA_RACKS "/one-unreadable.json");
    std::vector<int> errors;
    for (const accelerator_t& accelerator : unreadable.accelerators)
        errors.push_back(accelerator.open_error);
    EXPECT_THAT(errors, ElementsAre(0, EACCES, 0));
}

TEST(rack_files, the_examples_of_the_documentation_are_good)
{
    std::ostringstream readme;
    readme << std::ifstream{IVRA_README}.rdbuf();
    const std::string text = readme.str();
    const std::string begin = "```json\n{";
    std::size_t count = 0;
    for (std::size_t at = text.find(begin); at != std::string::npos; at = text.find(begin, at + 1)) {
        const std::size_t start = at + begin.size() - 1;
        const std::string example = text.substr(start, text.find("```", start) - start);
        if (example.find("\"accelerators\"") == std::string::npos)
            continue;
        EXPECT_EQ(parse_rack(example, "README.md").accelerators.size(), 1U);
        ++count;
    }
    EXPECT_GE(count, 3U);
}

TEST(rack_in_use, is_the_showcase_beside_the_program_unless_the_environment_says_otherwise)
{
    const char* before = std::getenv("IVRA_VIRTUAL_RACK");
    const std::string kept = before == nullptr ? "" : before;
    ::setenv("IVRA_VIRTUAL_RACK", "/some/rack.json", 1);
    EXPECT_EQ(rack_in_use(), "/some/rack.json");
    ::setenv("IVRA_VIRTUAL_RACK", "", 1);
    EXPECT_EQ(fs::canonical(rack_in_use()), fs::canonical(IVRA_RACKS "/showcase.json"));
    ::unsetenv("IVRA_VIRTUAL_RACK");
    EXPECT_EQ(fs::canonical(rack_in_use()), fs::canonical(IVRA_RACKS "/showcase.json"));
    if (before != nullptr)
        ::setenv("IVRA_VIRTUAL_RACK", kept.c_str(), 1);
}

} // namespace ivra::tests
