#include "bad_racks.h"

#include "rack/rack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <numeric>
#include <set>
#include <string>
#include <vector>

namespace ivra::tests {

namespace {

using namespace ivra::virtual_platform;
using namespace std::string_literals;
namespace fs = std::filesystem;
using values_t = std::vector<unsigned>;

/// The module in the first cage, given as JSON.
module_t module_from(const std::string& json)
{
    return parse_rack(rack_with(R"("i2c": {"cages": [)" + json + "]}"), "my.json")
        .accelerators.at(0)
        .i2c.cages.at(0)
        .module.value();
}

module_t named(const std::string& name)
{
    return module_from('"' + name + '"');
}

/// Bytes of the half, or page, that a block is.
values_t bytes_of(const module_t& module, unsigned block, std::size_t first, std::size_t last)
{
    values_t bytes;
    for (std::size_t at = first; at <= last; ++at)
        bytes.push_back(module.blocks.at(block).at(at % 128));
    return bytes;
}

unsigned sum(const module_t& module, unsigned block, std::size_t first, std::size_t last)
{
    const values_t bytes = bytes_of(module, block, first, last);
    return std::accumulate(bytes.begin(), bytes.end(), 0U) % 256;
}

unsigned byte(const module_t& module, unsigned block, std::size_t at)
{
    return module.blocks.at(block).at(at % 128);
}

std::string text(const module_t& module, unsigned block, std::size_t first, std::size_t size)
{
    std::string result;
    for (std::size_t at = first; at < first + size; ++at)
        result += static_cast<char>(module.blocks.at(block).at(at % 128));
    return result;
}

std::set<std::string> module_names()
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator{IVRA_RACKS "/modules"})
        names.insert(entry.path().stem());
    return names;
}

void expect_right_checksums(const module_t& module)
{
    switch (module.map) {
    case memory_map_t::sfp: // SFF-8472: CC_BASE, CC_EXT, and CC_DMI of A2h
        EXPECT_EQ(byte(module, 0, 63), sum(module, 0, 0, 62));
        EXPECT_EQ(byte(module, 0, 95), sum(module, 0, 64, 94));
        if (module.blocks.contains(2)) {
            EXPECT_EQ(byte(module, 2, 95), sum(module, 2, 0, 94));
        }
        break;
    case memory_map_t::qsfp: // SFF-8636: CC_BASE and CC_EXT
        EXPECT_EQ(byte(module, 1, 191), sum(module, 1, 128, 190));
        EXPECT_EQ(byte(module, 1, 223), sum(module, 1, 192, 222));
        break;
    case memory_map_t::cmis: // pages 00h, 01h and 02h
        EXPECT_EQ(byte(module, 1, 222), sum(module, 1, 128, 221));
        if (module.blocks.contains(2)) {
            EXPECT_EQ(byte(module, 2, 255), sum(module, 2, 130, 254));
        }
        if (module.blocks.contains(3)) {
            EXPECT_EQ(byte(module, 3, 255), sum(module, 3, 128, 254));
        }
        break;
    }
}

} // namespace

TEST(modules, that_come_with_the_platform_have_right_checksums_and_a_vendor)
{
    const std::set<std::string> names = module_names();
    EXPECT_GE(names.size(), 12U);
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const module_t module = named(name);
        expect_right_checksums(module);
        const auto [block, at] = module.map == memory_map_t::sfp    ? std::pair{0U, 20U}
                                 : module.map == memory_map_t::qsfp ? std::pair{1U, 148U}
                                                                    : std::pair{1U, 129U};
        EXPECT_THAT(text(module, block, at, 16), ::testing::MatchesRegex("[A-Z][A-Z0-9 -]{15}"));
        if (module.map != memory_map_t::sfp) {
            EXPECT_EQ(byte(module, 1, 128), byte(module, 0, 0)) << "the identifier comes twice";
        }
    }
}

TEST(modules, of_the_platform_are_what_they_are_called)
{
    struct row_t
    {
        const char* name;
        memory_map_t map;
        unsigned identifier;
    };
    using enum memory_map_t;
    const row_t rows[] = {
        {"sfp-10g-sr", sfp, 0x03},         {"sfp-10g-lr", sfp, 0x03},
        {"sfp-no-diagnostics", sfp, 0x03}, {"sfp-external-calibration", sfp, 0x03},
        {"sfp-dark-receiver", sfp, 0x03},  {"qsfp-lr4", qsfp, 0x0d},
        {"qsfp28-sr4", qsfp, 0x11},        {"qsfp28-copper", qsfp, 0x11},
        {"qsfpdd-dr4", cmis, 0x18},        {"qsfpdd-zr", cmis, 0x18},
        {"qsfpdd-copper", cmis, 0x18},     {"qsfpdd-flat", cmis, 0x18},
        {"qsfp-plus-cmis", cmis, 0x1e},    {"prototype", qsfp, 0x7a},
    };
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(named(row.name).map, row.map);
        EXPECT_EQ(byte(named(row.name), 0, 0), row.identifier);
    }
    EXPECT_EQ(module_names().size(), std::size(rows));
    EXPECT_EQ(byte(named("sfp-10g-sr"), 0, 92) & 0x70U, 0x60U) << "digital diagnostics, internally calibrated";
    EXPECT_EQ(byte(named("sfp-external-calibration"), 0, 92) & 0x70U, 0x50U);
    EXPECT_EQ(byte(named("sfp-no-diagnostics"), 0, 92) & 0x70U, 0x00U);
    EXPECT_EQ(bytes_of(named("sfp-dark-receiver"), 2, 104, 105), (values_t{0, 0}));
    EXPECT_EQ(byte(named("qsfpdd-zr"), 2, 160) >> 3U & 3U, 2U) << "bias times 4";
    EXPECT_EQ(bytes_of(named("qsfpdd-copper"), 2, 159, 160), (values_t{0, 0}));
    EXPECT_EQ(byte(named("qsfpdd-flat"), 0, 2) & 0x80U, 0x80U);
    EXPECT_EQ(named("qsfpdd-flat").blocks.size(), 2U);
}

TEST(modules, made_from_nothing_have_an_identity_checksums_and_monitors)
{
    for (const char* map : {"sfp", "qsfp", "cmis"}) {
        SCOPED_TRACE(map);
        const module_t module = module_from(R"({"map": ")"s + map + "\"}");
        expect_right_checksums(module);
    }
    EXPECT_EQ(text(module_from(R"({"map": "cmis"})"), 1, 129, 16), "VIRTUAL         ");
    EXPECT_EQ(byte(module_from(R"({"map": "cmis"})"), 2, 160), 0x07U);
    EXPECT_EQ(module_from(R"({"map": "sfp", "calibration": "none"})").blocks.size(), 2U) << "A2h is not there";
}

TEST(modules, each_text_has_its_place_and_is_filled_with_spaces)
{
    const std::string members =
        R"("vendor_name": "NAME", "vendor_pn": "PN", "vendor_rev": "R", "vendor_sn": "SN", "date_code": "260131"})";
    const auto texts = [&](const std::string& map, unsigned block,
                           std::vector<std::pair<std::size_t, std::size_t>> at) {
        const module_t module = module_from(R"({"map": ")" + map + "\", " + members);
        expect_right_checksums(module);
        std::string result;
        for (const auto& [first, size] : at)
            result += text(module, block, first, size) + '|';
        return result;
    };
    const std::string tail = "SN              |260131  |";
    const std::string head = "NAME            |PN              |";
    EXPECT_EQ(texts("sfp", 0, {{20, 16}, {40, 16}, {56, 4}, {68, 16}, {84, 8}}), head + "R   |" + tail);
    EXPECT_EQ(texts("qsfp", 1, {{148, 16}, {168, 16}, {184, 2}, {196, 16}, {212, 8}}), head + "R |" + tail);
    EXPECT_EQ(texts("cmis", 1, {{129, 16}, {148, 16}, {164, 2}, {166, 16}, {182, 8}}), head + "R |" + tail);
}

TEST(modules, a_checksum_follows_unless_it_was_wrong_or_is_spelt_out)
{
    expect_right_checksums(
        module_from(R"({"module": "qsfp28-sr4", "vendor_name": "OTHER", "bytes": {"00:200": "ff"}})"));
    const module_t spelt =
        module_from(R"({"module": "qsfp28-sr4", "vendor_name": "OTHER", "bytes": {"00:191": "00"}})");
    EXPECT_EQ(byte(spelt, 1, 191), 0U);
    EXPECT_EQ(byte(spelt, 1, 223), sum(spelt, 1, 192, 222));
    const module_t wrong = module_from(R"({"map": "qsfp", "memory": {"00": "11"}, "vendor_sn": "X"})");
    EXPECT_EQ(byte(wrong, 1, 191), 0U) << "was 0 where 0x11 is right";
    EXPECT_EQ(byte(wrong, 1, 223), sum(wrong, 1, 192, 222)) << "was right";
}

TEST(modules, have_their_limits_where_their_map_says)
{
    const std::string limits = R"("limits": {
        "temperature": {"high_alarm": 75, "low_alarm": -5, "high_warning": 70.5, "low_warning": -0.5},
        "vcc": {"high_alarm": 3.63, "low_alarm": 2.97, "high_warning": 3.465, "low_warning": 3.135},
        "tx_bias": {"high_alarm": 12, "low_alarm": 1, "high_warning": 11, "low_warning": 2},
        "tx_power": {"high_alarm": 3.9811, "low_alarm": 0.1862, "high_warning": 1, "low_warning": 0.2344},
        "rx_power": {"high_alarm": 6.5535, "low_alarm": 0, "high_warning": 1.0001, "low_warning": 0.0001}}})";
    // SFF-8472 table 9-5, SFF-8636 table 6-28, CMIS tables 8-62 and 8-63: high alarm, low alarm, high warning, low
    // warning, each the high byte first.
    const values_t temperature{75, 0, 0xfb, 0, 70, 0x80, 0xff, 0x80};
    const values_t vcc{0x8d, 0xcc, 0x74, 0x04, 0x87, 0x5a, 0x7a, 0x76};
    const values_t bias{0x17, 0x70, 0x01, 0xf4, 0x15, 0x7c, 0x03, 0xe8};
    const values_t tx_power{0x9b, 0x83, 0x07, 0x46, 0x27, 0x10, 0x09, 0x28};
    const values_t rx_power{0xff, 0xff, 0, 0, 0x27, 0x11, 0, 1};

    const module_t sfp = module_from(R"({"map": "sfp", )" + limits);
    EXPECT_EQ(bytes_of(sfp, 2, 0, 7), temperature);
    EXPECT_EQ(bytes_of(sfp, 2, 8, 15), vcc);
    EXPECT_EQ(bytes_of(sfp, 2, 16, 23), bias);
    EXPECT_EQ(bytes_of(sfp, 2, 24, 31), tx_power);
    EXPECT_EQ(bytes_of(sfp, 2, 32, 39), rx_power);
    expect_right_checksums(sfp);
    EXPECT_EQ(bytes_of(module_from(R"({"map": "sfp", "calibration": "external", )" + limits), 2, 0, 39),
              bytes_of(sfp, 2, 0, 39))
        << "as its monitors they are raw";

    const module_t qsfp = module_from(R"({"map": "qsfp", )" + limits);
    EXPECT_EQ(bytes_of(qsfp, 4, 128, 135), temperature);
    EXPECT_THAT(bytes_of(qsfp, 4, 136, 143), ::testing::Each(0));
    EXPECT_EQ(bytes_of(qsfp, 4, 144, 151), vcc);
    EXPECT_THAT(bytes_of(qsfp, 4, 152, 175), ::testing::Each(0));
    EXPECT_EQ(bytes_of(qsfp, 4, 176, 183), rx_power);
    EXPECT_EQ(bytes_of(qsfp, 4, 184, 191), bias);
    EXPECT_EQ(bytes_of(qsfp, 4, 192, 199), tx_power);
    EXPECT_EQ(byte(qsfp, 0, 2) & 0x04U, 0U) << "its memory is not flat";
    expect_right_checksums(qsfp);

    const module_t cmis = module_from(R"({"map": "cmis", )" + limits);
    EXPECT_EQ(bytes_of(cmis, 3, 128, 135), temperature);
    EXPECT_EQ(bytes_of(cmis, 3, 136, 143), vcc);
    EXPECT_THAT(bytes_of(cmis, 3, 144, 175), ::testing::Each(0));
    EXPECT_EQ(bytes_of(cmis, 3, 176, 183), tx_power);
    EXPECT_EQ(bytes_of(cmis, 3, 184, 191), bias);
    EXPECT_EQ(bytes_of(cmis, 3, 192, 199), rx_power);
    EXPECT_EQ(byte(cmis, 0, 2) & 0x80U, 0U) << "its memory is not flat";
    expect_right_checksums(cmis);
    for (const auto& [multiplier, high] : {std::pair{"2", 3000U}, {"4", 1500U}}) {
        const module_t scaled = module_from(R"({"map": "cmis", "bias_multiplier": )"s + multiplier + ", " + limits);
        EXPECT_EQ(bytes_of(scaled, 3, 184, 185), (values_t{high / 256, high % 256})) << multiplier;
    }
}

TEST(modules, without_limits_have_no_page_for_them)
{
    EXPECT_FALSE(module_from(R"({"map": "qsfp"})").has_block(4));
    EXPECT_FALSE(module_from(R"({"map": "qsfp", "limits": {}})").has_block(4));
    EXPECT_FALSE(module_from(R"({"map": "cmis"})").has_block(3));
}

TEST(modules, of_which_one_limit_changes_keep_the_others)
{
    const module_t before = named("qsfpdd-dr4");
    module_t after = module_from(
        R"({"module": "qsfpdd-dr4", "limits": {"temperature": {"high_warning": 68}, "vcc": {"low_alarm": 2.9}}})");
    expect_right_checksums(after);
    EXPECT_EQ(bytes_of(after, 3, 128, 135), (values_t{75, 0, 0xfb, 0, 68, 0, 0, 0}));
    EXPECT_EQ(bytes_of(after, 3, 136, 143), (values_t{0x8d, 0xcc, 0x71, 0x48, 0x87, 0x5a, 0x7a, 0x76}));
    for (const std::size_t at : {132U, 138U, 139U, 255U})
        after.blocks[3].at(at % 128) = before.blocks.at(3).at(at % 128);
    EXPECT_EQ(after, before);
}

TEST(modules, take_bytes_for_more_than_limits)
{
    const std::string limits =
        R"({"temperature": {"high_alarm": 75, "low_alarm": -5, "high_warning": 70, "low_warning": 0}})";
    const module_t module =
        module_from(R"({"map": "qsfp", "limits": )" + limits + R"(, "bytes": {"2": "06", "03:130": "7f00"}})");
    EXPECT_EQ(bytes_of(module, 4, 128, 135), (values_t{75, 0, 0x7f, 0, 70, 0, 0, 0}));
    EXPECT_EQ(byte(module, 0, 2), 0x06U);
    EXPECT_EQ(bytes_of(module_from(R"({"map": "cmis", "limits": )" + limits + R"(, "bytes": {"02:255": "00"}})"), 3,
                       255, 255),
              (values_t{0}));
}

TEST(modules, can_have_limits_that_are_equal_or_no_warnings_where_the_map_allows_it)
{
    EXPECT_EQ(bytes_of(module_from(R"({"map": "sfp", "limits": {"tx_bias": {
                    "high_alarm": 12, "low_alarm": 1, "high_warning": 12, "low_warning": 1}}})"),
                       2, 16, 23),
              (values_t{0x17, 0x70, 0x01, 0xf4, 0x17, 0x70, 0x01, 0xf4}));
    EXPECT_EQ(bytes_of(module_from(R"({"map": "cmis", "limits": {"vcc": {
                    "high_alarm": 3.3, "low_alarm": 3.3, "high_warning": 3.3, "low_warning": 3.3}}})"),
                       3, 136, 143),
              (values_t{0x80, 0xe8, 0x80, 0xe8, 0x80, 0xe8, 0x80, 0xe8}));
    EXPECT_EQ(bytes_of(module_from(R"({"map": "qsfp", "limits": {"vcc": {
                    "high_alarm": 3.63, "low_alarm": 2.97, "high_warning": 0, "low_warning": 0}}})"),
                       4, 144, 151),
              (values_t{0x8d, 0xcc, 0x74, 0x04, 0, 0, 0, 0}));
}

TEST(modules, of_the_showcase_are_within_their_limits_but_for_the_one_without_light)
{
    // Reading, lanes, limits; of lanes that CMIS says are not there (page 00h, byte 210) the reading is 0.
    struct row_t
    {
        memory_map_t map;
        unsigned block;
        std::size_t at, lanes;
        unsigned limits_block;
        std::size_t limits;
        bool is_signed;
    };
    using enum memory_map_t;
    const row_t rows[] = {
        {sfp, 2, 96, 1, 2, 0, true},       {sfp, 2, 98, 1, 2, 8, false},      {sfp, 2, 100, 1, 2, 16, false},
        {sfp, 2, 102, 1, 2, 24, false},    {sfp, 2, 104, 1, 2, 32, false},    {qsfp, 0, 22, 1, 4, 128, true},
        {qsfp, 0, 26, 1, 4, 144, false},   {qsfp, 0, 34, 4, 4, 176, false},   {qsfp, 0, 42, 4, 4, 184, false},
        {qsfp, 0, 50, 4, 4, 192, false},   {cmis, 0, 14, 1, 3, 128, true},    {cmis, 0, 16, 1, 3, 136, false},
        {cmis, 18, 154, 8, 3, 176, false}, {cmis, 18, 170, 8, 3, 184, false}, {cmis, 18, 186, 8, 3, 192, false},
    };
    std::vector<std::string> beyond;
    std::size_t compared = 0;
    for (const accelerator_t& accelerator : load_rack(IVRA_RACKS "/showcase.json").accelerators)
        for (std::size_t cage = 0; cage < accelerator.i2c.cages.size(); ++cage) {
            const auto& module = accelerator.i2c.cages[cage].module;
            for (const row_t& row : rows) {
                if (!module || module->map != row.map || !module->has_block(row.limits_block))
                    continue;
                const auto word = [&](unsigned block, std::size_t at) {
                    const int raw = static_cast<int>(byte(*module, block, at) * 256 + byte(*module, block, at + 1));
                    return row.is_signed && raw >= 0x8000 ? raw - 0x10000 : raw;
                };
                for (std::size_t lane = 0; lane < row.lanes; ++lane) {
                    const int reading = word(row.block, row.at + 2 * lane);
                    const bool is_there = row.lanes < 8 || (byte(*module, 1, 210) >> lane & 1U) == 0;
                    if (!is_there) {
                        EXPECT_EQ(reading, 0);
                        continue;
                    }
                    ++compared;
                    if (reading >= word(row.limits_block, row.limits + 4) ||
                        reading <= word(row.limits_block, row.limits + 6))
                        beyond.push_back(accelerator.name.value_or("") + " " + std::to_string(cage) + " " +
                                         std::to_string(row.at));
                }
            }
        }
    EXPECT_EQ(beyond, std::vector<std::string>{"virtual-xupp3r 4 104"}) << "receive power of sfp-dark-receiver";
    EXPECT_GE(compared, 60U);
}

TEST(modules, a_value_becomes_the_nearest_raw_one)
{
    const auto vcc = [](const std::string& value) {
        return bytes_of(module_from(R"({"map": "qsfp", "vcc": )" + value + "}"), 0, 26, 27);
    };
    EXPECT_EQ(vcc("3.3055"), (values_t{0x81, 0x1f})); // 33055
    EXPECT_EQ(vcc("3.30554"), (values_t{0x81, 0x1f}));
    EXPECT_EQ(vcc("3.30556"), (values_t{0x81, 0x20}));
    EXPECT_EQ(vcc("0"), (values_t{0, 0}));
    EXPECT_EQ(vcc("6.5535"), (values_t{0xff, 0xff}));
    const auto temperature = [](const std::string& value) {
        return bytes_of(module_from(R"({"map": "sfp", "temperature": )" + value + "}"), 2, 96, 97);
    };
    EXPECT_EQ(temperature("-0.5"), (values_t{0xff, 0x80}));
    EXPECT_EQ(temperature("-128"), (values_t{0x80, 0x00}));
    EXPECT_EQ(temperature("127.99609375"), (values_t{0x7f, 0xff}));
    for (const auto& [multiplier, raw] : {std::pair{"1", 4000U}, {"2", 2000U}, {"4", 1000U}}) {
        const module_t module = module_from(R"({"map": "cmis", "tx_bias": 8, "bias_multiplier": )"s + multiplier + "}");
        EXPECT_EQ(bytes_of(module, 0x12, 170, 171), (values_t{raw / 256, raw % 256})) << multiplier;
    }
}

} // namespace ivra::tests
