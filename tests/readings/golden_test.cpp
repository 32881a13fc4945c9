#include "readings.h"

#include <gtest/gtest.h>

#include <rapidjson/document.h>
#include <rapidjson/istreamwrapper.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace ivra::tests {
namespace {

namespace fs = std::filesystem;

rapidjson::Document read_json(const fs::path& file)
{
    std::ifstream stream{file};
    rapidjson::IStreamWrapper wrapper{stream};
    rapidjson::Document document;
    document.ParseStream<rapidjson::kParseFullPrecisionFlag>(wrapper);
    EXPECT_FALSE(document.HasParseError()) << file;
    return document;
}

std::string to_text(const rapidjson::Value& value)
{
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer{buffer};
    value.Accept(writer);
    return buffer.GetString();
}

/// A line for each difference, whatever the order of members.
std::string differences(const rapidjson::Value& expected, const rapidjson::Value& actual, const std::string& place)
{
    std::string lines;
    if (expected.IsObject() && actual.IsObject()) {
        for (const auto& member : expected.GetObject()) {
            const std::string below = place + "/" + member.name.GetString();
            const auto found = actual.FindMember(member.name);
            lines +=
                found == actual.MemberEnd() ? below + " is missing\n" : differences(member.value, found->value, below);
        }
        for (const auto& member : actual.GetObject())
            if (!expected.HasMember(member.name))
                lines += place + "/" + member.name.GetString() + " is too many: " + to_text(member.value) + "\n";
    } else if (expected.IsArray() && actual.IsArray() && expected.Size() == actual.Size()) {
        for (rapidjson::SizeType at = 0; at < expected.Size(); ++at)
            lines += differences(expected[at], actual[at], place + "/" + std::to_string(at));
    } else if (expected != actual) {
        lines += place + " is " + to_text(actual) + " instead of " + to_text(expected) + "\n";
    }
    return lines;
}

/// What the boards of the showcase are to say, by what is simulated: a file for each.
TEST(readings_golden, documents_are_those_of_the_showcase)
{
    readings_rack_t rack;
    std::ostringstream showcase;
    showcase << std::ifstream{IVRA_RACKS "/showcase.json"}.rdbuf();
    rack.file(showcase.str()).host({.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"});
    const run_t run = rack.run("--json --timeout 0");
    EXPECT_EQ(run.err, "");
    rapidjson::Document document;
    document.Parse<rapidjson::kParseFullPrecisionFlag>(run.out.c_str());
    ASSERT_FALSE(document.HasParseError());
    EXPECT_EQ(document["health"], "critical");

    std::set<std::string> names;
    for (const rapidjson::Value& board : document["boards"].GetArray()) {
        const std::string name = board["name"].GetString();
        names.insert(name);
        EXPECT_EQ(differences(read_json(fs::path{IVRA_GOLDEN} / (name + ".json")), board, name), "");
    }
    std::set<std::string> expected;
    for (const auto& entry : fs::directory_iterator{IVRA_GOLDEN})
        expected.insert(entry.path().stem().string());
    EXPECT_EQ(names, expected);
    EXPECT_EQ(expected.size(), 10U);
}

} // namespace
} // namespace ivra::tests
