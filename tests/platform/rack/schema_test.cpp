#include "bad_racks.h"

#include "support/process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace ivra::tests {

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

/// Arguments: the schema, then files. Prints "good" or "bad" for each.
const char* const referee = R"python(
import json, sys
import jsonschema
schema = json.load(open(sys.argv[1]))
jsonschema.Draft4Validator.check_schema(schema)
validator = jsonschema.Draft4Validator(schema)
for name in sys.argv[2:]:
    print("good" if validator.is_valid(json.load(open(name))) else "bad")
)python";

/// Every part of the schema that stands for a value has to say what is expected there.
const char* const wording = R"python(
import json, sys
def walk(schema, place):
    if "$ref" in schema:
        return
    assert schema.get("description"), place
    count[0] += 1
    for name, below in schema.get("properties", {}).items():
        walk(below, place + "/" + name)
    for name, below in schema.get("patternProperties", {}).items():
        walk(below, place + "/" + name)
    if isinstance(schema.get("additionalProperties"), dict):
        walk(schema["additionalProperties"], place + "/additionalProperties")
    if "items" in schema:
        walk(schema["items"], place + "/items")
count = [0]
schema = json.load(open(sys.argv[1]))
walk(schema, "")
for name, below in schema["definitions"].items():
    walk(below, name)
print(count[0])
)python";

std::vector<std::string> verdicts(const std::vector<fs::path>& files, const std::string& schema = "rack")
{
    std::vector<std::string> arguments{"-c", referee, IVRA_RACKS "/" + schema + ".schema.json"};
    for (const fs::path& file : files)
        arguments.push_back(file.string());
    const run_t run = run_program("/usr/bin/python3", arguments);
    EXPECT_EQ(run.status, 0) << "python3-jsonschema: " << run.err;
    std::vector<std::string> lines;
    std::istringstream stream{run.out};
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    EXPECT_EQ(lines.size(), files.size());
    lines.resize(files.size());
    return lines;
}

/// The validator refuses those whose mistake a schema can say, and no other ones.
void expect_same_verdicts(const auto& rows, const std::string& schema)
{
    std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
    const fs::path folder = ::mkdtemp(name.data());
    std::vector<fs::path> files;
    std::vector<std::string> expected, errors;
    for (const auto& row : rows) {
        if (row.seen_by == seen_by_t::parser)
            continue;
        files.push_back(folder / (std::to_string(files.size()) + ".json"));
        std::ofstream{files.back(), std::ios::binary} << row.text;
        expected.emplace_back(row.seen_by == seen_by_t::schema ? "bad" : "good");
        errors.push_back(row.text.substr(0, 200) + " " + row.error);
    }
    const std::vector<std::string> results = verdicts(files, schema);
    for (std::size_t at = 0; at < files.size(); ++at)
        EXPECT_EQ(results[at], expected[at]) << errors[at];
    fs::remove_all(folder);
}

} // namespace

TEST(schema, an_independent_validator_takes_every_rack_that_comes_with_it)
{
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator{IVRA_RACKS})
        if (entry.path().extension() == ".json" && entry.path().stem().extension() != ".schema")
            files.push_back(entry.path());
    ASSERT_GE(files.size(), 6U);
    const std::vector<std::string> results = verdicts(files);
    for (std::size_t at = 0; at < files.size(); ++at)
        EXPECT_EQ(results[at], "good") << files[at];
}

TEST(schema, an_independent_validator_refuses_what_we_refuse_by_the_schema_and_nothing_else)
{
    expect_same_verdicts(bad_racks(), "rack");
}

TEST(schema, an_independent_validator_refuses_the_same_fault_plans_by_the_schema)
{
    expect_same_verdicts(bad_plans(), "faults");
}

TEST(schema, an_independent_validator_takes_every_module_that_comes_with_it)
{
    std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
    const fs::path folder = ::mkdtemp(name.data());
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator{IVRA_RACKS "/modules"}) {
        files.push_back(folder / entry.path().filename());
        std::ofstream{files.back()} << R"({"accelerators": [{"model": "a", "i2c": {"cages": [)"
                                    << std::ifstream{entry.path()}.rdbuf() << "]}}]}";
    }
    ASSERT_GE(files.size(), 12U);
    const std::vector<std::string> results = verdicts(files);
    for (std::size_t at = 0; at < files.size(); ++at)
        EXPECT_EQ(results[at], "good") << files[at];
    fs::remove_all(folder);
}

TEST(schema, every_part_of_it_says_what_is_expected_there)
{
    for (const char* name : {"rack", "faults"}) {
        const run_t run = run_program("/usr/bin/python3", {"-c", wording, IVRA_RACKS "/"s + name + ".schema.json"});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_GT(std::stoi("0" + run.out), 10) << name;
    }
}

TEST(schema, that_comes_with_the_platform_is_the_one_that_the_tool_prints)
{
    for (const char* name : {"rack", "faults"}) {
        std::ostringstream shipped;
        shipped << std::ifstream{IVRA_RACKS "/"s + name + ".schema.json"}.rdbuf();
        const run_t run = run_program(IVRA_VIRTUAL_COMMAND, {"schema", name});
        EXPECT_EQ(run.out, shipped.str())
            << "make it anew: ivra-virtual schema " << name << " >racks/" << name << ".schema.json";
    }
}

} // namespace ivra::tests
