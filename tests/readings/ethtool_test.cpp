// What ethtool prints of the racks' modules, and what we say of them.
//
// There is a table for each memory map: a line of ethtool, the member of our document that it is about, and what stands
// in that line for each module. That was worked out by hand from the racks and the steps of the standards, and is what
// ethtool 6.1 makes of the modules' bytes. In brackets is what it prints of a monitor or a lane that a module says it
// does not have: there we have no number. Not in the tables are lines about what we do not read, such as flags,
// the limits that it prints of qsfpdd-copper, whose page 02h is page 00h again, and modules that it does not decode:
// qsfp-plus-cmis and prototype.

#include "readings.h"

#include "readings/board_view.h"
#include "support/bmc_server.h"

#include <gtest/gtest.h>

#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

template <class... Numbers>
std::string print(const char* format, Numbers... numbers)
{
    std::array<char, 64> text{};
    const int length = std::snprintf(text.data(), text.size(), format, numbers...);
    return {text.data(), static_cast<std::size_t>(length)};
}

/// What ethtool prints of a unit of ours.
struct unit_row_t
{
    double steps; ///< of the module's memory in one of our unit
    std::string (*print)(double);
};
const std::map<std::string, unit_row_t> units{
    {"amperes", {5e5, [](double current) { return print("%.3f mA", current * 1e3); }}},
    {"watts",
     {1e7, [](double power) { return print("%.4f mW / %.2f dBm", power * 1e3, 10 * std::log10(power * 1e3)); }}},
    {"celsius",
     {256, [](double value) { return print("%.2f degrees C / %.2f degrees F", value, value * 9 / 5 + 32); }}},
    {"volts", {1e4, [](double voltage) { return print("%.4f V", voltage); }}},
};

/// Where it calculates in whole steps what ends between them, and cuts off the rest.
struct cut_row_t
{
    const char* module;
    const char* member; ///< how it begins
    double divisor;
};
const cut_row_t cuts[] = {
    {"sfp-external-calibration", "", 1},
    {"qsfpdd-zr", "lanes/0/tx_bias/", 16}, // it divides by the multiplier of 4, with which the standard multiplies
};

/// A member of a module's document as ethtool prints it; empty where there is none.
std::string printed_by_ethtool(const rapidjson::Value& module, const std::string& name, const std::string& member)
{
    const rapidjson::Value* value = rapidjson::Pointer{("/" + member).c_str()}.Get(module);
    if (value == nullptr)
        return "";
    if (member == "identifier")
        return print("0x%02x", value->GetUint());
    if (value->IsString()) {
        std::string text = value->GetString();
        if (member == "vendor_oui")
            std::ranges::replace(text, '-', ':');
        return text;
    }
    const std::string reading = member.substr(0, member.find(member.ends_with("/value") ? "/value" : "/limits/"));
    const rapidjson::Value* unit = rapidjson::Pointer{("/" + reading + "/unit").c_str()}.Get(module);
    const unit_row_t& row = units.at(unit->GetString());
    double number = value->GetDouble();
    for (const cut_row_t& cut : cuts)
        if (name == cut.module && member.starts_with(cut.member)) {
            constexpr double inexactness = 1e-6;
            number = std::floor(number * row.steps / cut.divisor + inexactness) / row.steps;
        }
    return row.print(number);
}

class ethtool : public testing::TestWithParam<const char*>
{
};

TEST_P(ethtool, agrees_with_our_numbers_and_texts)
{
    std::ostringstream text;
    text << std::ifstream{std::string{IVRA_ETHTOOL "/"} + GetParam() + ".txt"}.rdbuf();
    const std::vector<std::vector<std::string>> rows = table(text.str(), "|");
    ASSERT_GT(rows.size(), 30U);
    const std::vector<std::string>& names = rows[0];
    for (std::size_t column = 2; column < names.size(); ++column) {
        SCOPED_TRACE(names[column]);
        readings_rack_t rack;
        rack.plug("bittware_xupp3r", {{"i2c", R"({"cages": [")" + names[column] + "\"]}"}}).host(plain_host);
        const run_t run = rack.run("--json --parts modules");
        ASSERT_EQ(run.status, 0) << run.err;
        rapidjson::Document document;
        document.Parse<rapidjson::kParseFullPrecisionFlag>(run.out.c_str());
        const rapidjson::Value* module = rapidjson::Pointer{"/boards/0/modules/0"}.Get(document);
        ASSERT_NE(module, nullptr) << run.out;
        for (std::size_t at = 1; at < rows.size(); ++at) {
            const std::string& member = rows[at].at(1);
            const std::string expected = column < rows[at].size() ? rows[at][column] : "";
            const std::string ours = printed_by_ethtool(*module, names[column], member);
            if (member == "identifier")
                EXPECT_EQ(ours, expected.substr(0, expected.find(' '))) << rows[at][0];
            else
                EXPECT_EQ(ours, expected.starts_with('(') ? "" : expected) << rows[at][0];
        }
    }
}

INSTANTIATE_TEST_SUITE_P(tables, ethtool, testing::Values("sff-8472", "sff-8636", "cmis"), [](const auto& map) {
    std::string name = map.param;
    std::ranges::replace(name, '-', '_');
    return name;
});

} // namespace
} // namespace ivra::tests
