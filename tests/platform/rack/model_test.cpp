#include "devices/module/module.h"
#include "rack/rack.h"
#include "json/document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace ivra::tests {

namespace {

using namespace ivra::virtual_platform;
using namespace std::string_literals;
using ::testing::HasSubstr;
using ::testing::Not;
namespace fs = std::filesystem;

/// A folder with a rack, its models and dumps, which goes with the test.
class model : public ::testing::Test
{
protected:
    model()
    {
        std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
        folder = fs::canonical(::mkdtemp(name.data()));
        fs::create_directory(folder / "models");
    }
    ~model() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    void file(const std::string& name, const std::string& text) const
    {
        std::ofstream{folder / name, std::ios::binary} << text;
    }

    /// A rack of one accelerator with these members.
    rack_t rack(const std::string& members) const
    {
        file("rack.json", R"({"accelerators": [{)" + members + "}]}");
        return load_rack(folder / "rack.json");
    }

    fs::path folder;
};

/// What ethtool's "raw on" gives of a QSFP cable without further pages.
std::string raw_dump_of(const std::string& vendor)
{
    constexpr std::size_t vendor_place = 148;
    std::string bytes(256, '\0');
    bytes[0] = bytes[128] = '\x11';
    bytes[2] = '\x04';
    std::ranges::copy(vendor, bytes.begin() + vendor_place);
    return bytes;
}

} // namespace

TEST_F(model, cages_that_are_left_out_take_along_every_multiplexer_that_leads_only_to_them)
{
    file("models/mine.json", R"({
      "optional_cages": 1,
      "i2c": {
        "cages": ["empty", "empty"],
        "buses": [
          { "index": 0, "devices": [{ "device": "cage", "number": 0 }] },
          { "index": 1, "devices": [
            { "device": "multiplexer", "address": "0x70", "pin": 3 },
            { "device": "multiplexer", "address": "0x71", "behind": ["0x70", "0x01"] },
            { "device": "multiplexer", "address": "0x72", "behind": ["0x71", "0x02"] },
            { "device": "cage", "number": 1, "behind": ["0x72", "0x04"] }] },
          { "index": 2, "devices": [
            { "device": "multiplexer", "address": "0x73" },
            { "device": "multiplexer", "address": "0x74", "behind": ["0x73", "0x01"] },
            { "device": "mac_eeprom", "address": "0x50", "behind": ["0x73", "0x02"] },
            { "device": "cage", "number": 1, "behind": ["0x74", "0x04"] }] }]
      }
    })");
    EXPECT_THAT(expand(rack(R"("model": "mine", "i2c": {"cages": ["silent"]})")), HasSubstr(R"(
        "cages": ["silent"],
        "buses": [
          { "index": 0, "devices": [{ "device": "cage", "number": 0 }] },
          { "index": 1, "devices": [] },
          {
            "index": 2,
            "devices": [
              { "device": "multiplexer", "address": "0x73" },
              { "device": "mac_eeprom", "address": "0x50", "behind": ["0x73", "0x02"] }
            ]
          }
        ])"));
    EXPECT_THAT(expand(rack(R"("model": "mine", "i2c": {"cages": ["silent", "empty"]})")), HasSubstr(R"(
        "cages": ["silent", "empty"],
        "buses": [
          { "index": 0, "devices": [{ "device": "cage", "number": 0 }] },
          {
            "index": 1,
            "devices": [
              { "device": "multiplexer", "address": "0x70", "pin": 3 },
              { "device": "multiplexer", "address": "0x71", "behind": ["0x70", "0x01"] },
              { "device": "multiplexer", "address": "0x72", "behind": ["0x71", "0x02"] },
              { "device": "cage", "number": 1, "behind": ["0x72", "0x04"] }
            ]
          },
          {
            "index": 2,
            "devices": [
              { "device": "multiplexer", "address": "0x73" },
              { "device": "multiplexer", "address": "0x74", "behind": ["0x73", "0x01"] },
              { "device": "mac_eeprom", "address": "0x50", "behind": ["0x73", "0x02"] },
              { "device": "cage", "number": 1, "behind": ["0x74", "0x04"] }
            ]
          }
        ])"));
}

TEST_F(model, a_link_to_a_file_that_is_gone_is_a_mistake_and_no_other_model)
{
    fs::create_symlink("gone.json", folder / "models/xilinx_u50.json"); // the platform has one of that name, too
    try {
        rack(R"("model": "xilinx_u50")");
        FAIL() << "it was taken for the platform's";
    } catch (const file_error& error) {
        EXPECT_EQ(error.what(), folder.string() + "/rack.json: /accelerators/0/model: " + folder.string() +
                                    "/models/xilinx_u50.json: cannot be read: No such file or directory");
    }
}

TEST_F(model, a_mistake_in_a_file_is_told_with_the_place_in_the_rack)
{
    for (const char* device : {"i2c", "bmc", "xmc"}) {
        file("models/mine.json", R"({")" + std::string{device} + R"(": {"none": 1}})");
        try {
            rack(R"("model": "mine")");
            FAIL() << device;
        } catch (const file_error& error) {
            EXPECT_TRUE(std::string_view{error.what()}.starts_with(
                folder.string() + "/rack.json: /accelerators/0/model: " + folder.string() + "/models/mine.json: /" +
                device + "/none: unknown member"))
                << error.what();
        }
    }
}

TEST_F(model, a_mistake_that_only_the_defaults_make_is_told_the_same_way)
{
    // 2,048 bytes of fields and these: VIRTUAL, BOARD, VRT00000001, VRT-0000 and an empty one.
    std::string fields;
    for (int count = 0; count < 32; ++count)
        fields += (count == 0 ? "\"" : ", \"") + std::string(63, 'x') + '"';
    file("models/mine.json", R"({"bmc": {"fru": {"extra": [)" + fields + "]}}}");
    try {
        rack(R"("model": "mine")");
        FAIL() << "the fields do not fit";
    } catch (const file_error& error) {
        EXPECT_EQ(error.what(), folder.string() + "/rack.json: /accelerators/0/model: " + folder.string() +
                                    "/models/mine.json: /bmc/fru: expected fields that fit into a board area of 2040 "
                                    "bytes");
    }
}

TEST_F(model, boards_of_one_model_differ_in_what_it_leaves_out)
{
    file("models/mine.json",
         R"({"number": "77", "bmc": {"fru": {"product": "MINE"}}, "xmc": {"card": {"revision": "B"}},
      "i2c": {"buses": [{"index": 0, "devices": [{"device": "mac_eeprom", "address": "0x50"}]}]}})");
    const rack_t host = rack(R"("model": "mine"}, {"model": "mine")");
    const char* const serials[] = {"VRT770001", "VRT770002"};
    const char* const card_serials[] = {"VRT77A0001", "VRT77A0002"};
    const char* const eeproms[] = {"MAC=02:00:02:00:00:00", "MAC=02:00:02:00:01:00"};
    for (std::size_t at = 0; at < 2; ++at) {
        const accelerator_t& board = host.accelerators.at(at);
        EXPECT_EQ(board.bmc.value().fru.product, "MINE") << at;
        EXPECT_EQ(board.bmc.value().fru.serial, serials[at]);
        EXPECT_EQ(board.xmcs.at(0).card.revision, "B") << at;
        EXPECT_EQ(board.xmcs.at(0).card.serial, card_serials[at]);
        EXPECT_EQ(board.i2c.mac_eeprom, eeproms[at]);
    }
}

TEST_F(model, an_EEPROM_that_no_bus_has_holds_what_the_model_says_and_nothing_by_itself)
{
    file("models/without.json", R"({"i2c": {"cages": ["empty"]}})");
    file("models/with.json", R"({"i2c": {"mac_eeprom": "MAC=02:00:00:00:00:01"}})");
    file("models/silent.json", R"({"i2c": {"mac_eeprom": null,
      "buses": [{"index": 0, "devices": [{"device": "mac_eeprom", "address": "0x50"}]}]}})");
    EXPECT_EQ(rack(R"("model": "without")").accelerators.at(0).i2c.mac_eeprom, std::nullopt);
    EXPECT_EQ(rack(R"("model": "with")").accelerators.at(0).i2c.mac_eeprom, "MAC=02:00:00:00:00:01");
    EXPECT_EQ(rack(R"("model": "silent")").accelerators.at(0).i2c.mac_eeprom, std::nullopt);
}

TEST_F(model, a_name_that_is_a_path_is_no_file_but_a_board_that_nobody_knows)
{
    file("mine.json", R"({"device": "xcmine"})");
    EXPECT_NE(rack(R"("model": "../mine")").accelerators.at(0).fpga.device, "xcmine");
    file("models/mine.json", R"({"device": "xcmine"})");
    EXPECT_EQ(rack(R"("model": "mine")").accelerators.at(0).fpga.device, "xcmine");
}

TEST_F(model, each_XMC_has_16_of_the_addresses_at_most)
{
    file("models/mine.json", R"({"mac_count": 255, "xmc": {}})");
    const accelerator_t board = rack(R"("model": "mine", "xmc": [{}, {}])").accelerators.at(0);
    EXPECT_EQ(board.mac_addresses.size(), 255U);
    ASSERT_EQ(board.xmcs.size(), 2U);
    EXPECT_EQ(board.xmcs.at(0).card.macs, (mac_block_t{{0x02, 0x00, 0x01, 0x00, 0x00, 0x00}, 16}));
    EXPECT_EQ(board.xmcs.at(1).card.macs, (mac_block_t{{0x02, 0x00, 0x01, 0x00, 0x00, 0x10}, 16}));
}

TEST_F(model, expand_says_which_board_it_is_where_that_is_not_the_models_name)
{
    file("models/mine.json", R"({"board": "xilinx_u250"})");
    const std::string text = expand(rack(R"("model": "mine")"));
    EXPECT_THAT(text, HasSubstr("      \"model\": \"mine\",\n      \"board\": \"xilinx_u250\",\n      \"uid\": "));
    EXPECT_EQ(expand(parse_rack(text, folder / "expanded.json")), text);
    for (const char* members : {R"("model": "mine", "board": "mine")", R"("model": "xilinx_u50")",
                                R"("model": "xilinx_u50", "board": "xilinx_u50")"})
        EXPECT_THAT(expand(rack(members)), Not(HasSubstr("\"board\""))) << members;
}

TEST_F(model, a_dump_in_one_of_its_cages_lies_beside_the_rack)
{
    file("models/mine.json", R"({"i2c": {"cages": [{"dump": "mine.bin"}], "buses": []}})");
    file("mine.bin", raw_dump_of("BESIDE THE RACK"));
    file("models/mine.bin", raw_dump_of("ELSEWHERE"));
    const accelerator_t board = rack(R"("model": "mine")").accelerators.at(0);
    const module_t& module = board.i2c.cages.at(0).module.value();
    EXPECT_EQ(text_of(module, text_fields(module.map)[0]), "BESIDE THE RACK");

    // Another dump makes another board of it, which begins anew.
    file("mine.bin", raw_dump_of("BESIDE IT"));
    EXPECT_NE(rack(R"("model": "mine")").accelerators.at(0).text, board.text);
}

} // namespace ivra::tests
