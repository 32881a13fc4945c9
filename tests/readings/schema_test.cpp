#include "readings.h"

#include "support/schema.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace ivra::tests {
namespace {

namespace fs = std::filesystem;

const fs::path schema = IVRA_SCHEMA;

std::string read_file(const fs::path& file)
{
    std::ostringstream text;
    text << std::ifstream{file, std::ios::binary}.rdbuf();
    return text.str();
}

std::vector<fs::path> json_files(const fs::path& folder)
{
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator{folder})
        if (entry.path().extension() == ".json" && entry.path().stem().extension() != ".schema")
            files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

/// Calls that fail, and where: each leaves another member out.
constexpr std::pair<const char*, const char*> faults[] = {
    {"xilinx_u200", R"({"call": "ivra_hw_top_get_board_name", "nth": 2, "errno": "EIO"},
                       {"call": "ivra_hw_top_get_mac_addresses", "errno": "EIO"},
                       {"call": "ivra_hw_top_get_device_id", "errno": "EIO"},
                       {"call": "ivra_hw_top_get_fpga_serial_id", "errno": "EIO"},
                       {"call": "ivra_hw_top_get_temperature", "errno": "EIO"},
                       {"call": "ivra_flash_get_sector_size", "errno": "EIO"},
                       {"call": "ivra_hw_read", "from": 5, "errno": "EIO"},
                       {"call": "ivra_i2c_create", "errno": "EIO"})"},
    {"bittware_xupp3r", R"({"call": "ivra_uart_write_all", "errno": "EIO"},
                           {"call": "ivra_i2c_bus_read_register", "errno": "EIO"})"},
    {"bittware_xupvv8", R"({"call": "ivra_i2c_bus_read_register", "from": 6, "errno": "EIO"})"},
    {"ivra_fpb2", R"({"call": "ivra_hw_accelerator_get", "errno": "EACCES"})"},
    {"xilinx_u250", R"({"call": "ivra_hw_top_get_temperature", "kill": "before"})"},
};

void make_document(rack_t& rack, const std::string& words)
{
    const run_t run = rack.run(words);
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(run.out.starts_with("{\"format\":1,")) << run.out;
}

// Here every member that the schema describes occurs: "json-documents", which judges the documents, looks for each.
TEST(readings_schema, describes_hosts_of_every_kind)
{
    const host_t switch_host{.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"};
    for (const fs::path& file : json_files(IVRA_RACKS)) {
        readings_rack_t rack;
        rack.file(read_file(file)).host(switch_host);
        const std::string name = file.stem().string();
        make_document(rack, name == "many"       ? "--lines --announce -a 0 -a 7 -a 998"
                            : name == "showcase" ? "--lines --announce"
                                                 : "--json --timeout 0");
    }
    readings_rack_t all_models;
    for (const fs::path& file : json_files(IVRA_RACKS "/models"))
        all_models.plug(file.stem().string());
    make_document(all_models, "--json");
    readings_rack_t limited;
    const std::string limits = (limited.folder() / "limits.json").string();
    std::ofstream{limits} << R"({"sensors": [{"sensor": "12V_PEX", "unit": "volts", "limits": {"upper_critical": 11}},
                                             {"sensor": "FPGA", "unit": "volts", "limits": {"upper_critical": 1}}]})";
    make_document(limited.plug("xilinx_u50"), "--json --limits " + limits);
    for (const auto& [model, rules] : faults) {
        readings_rack_t rack;
        rack.plug(model, {{"i2c", R"({"cages": ["qsfp28-sr4", "prototype"]})"}}).faults(rules);
        make_document(rack, "--json");
    }
    for (const char* effect : {R"("errno": "EIO")", R"("short": 1)"}) {
        readings_rack_t rack;
        rack.plug("xilinx_u50").plug("xilinx_u50");
        rack.faults(R"({"call": "ivra_hw_enumerate_accelerators", )" + std::string{effect} + "}");
        make_document(rack, "--json");
        make_document(rack, "--lines --announce");
    }
}

TEST(readings_schema, refuses_what_breaks_the_contract)
{
    readings_rack_t rack;
    rack.plug("xilinx_u200", {{"i2c", R"({"cages": ["qsfp28-sr4", "empty"]})"}});
    const std::vector<std::pair<std::string, std::string>> changes{
        {R"("format":1)", R"("format":2)"},
        {R"("platform":)", R"("more":1,"platform":)"},
        {R"("board_count":1,)", ""},
        {R"("host":)", R"("state":"ok","host":)"},
        {R"("findings":[],"board_count")", R"("board_count")"},
        {R"("findings":[],"board_count")", R"("findings":[{"health":"unknown"}],"board_count")"},
        {R"("index":0)", R"("index":"0")"},
        {R"("index":0)", R"("index":0,"error":"none")"},
        {R"("uid":)", R"("uuid":)"},
        {R"("uid":"0000:00:00.0","state":"ok")", R"("uid":"0000:00:00.0","state":"failed")"},
        {R"("findings":[],"sensors")", R"("findings":["odd"],"sensors")"},
        {R"("findings":[],"sensors")", R"("findings":[{"health":"ok","text":"odd"}],"sensors")"},
        {R"("count":4)", R"("count":4,"last":"02:00:00:00:00:03")"},
        {R"("unit":"volts")", R"("unit":"millivolts")"},
        {R"("quantity":"voltage")", R"("quantity":"current")"},
        {R"("state":"ok","value":45.5)", R"("state":"ok")"},
        {R"("state":"ok","value":45.5)", R"("state":"failed","value":45.5)"},
        {R"("state":"ok","value":45.5)", R"("state":"failed")"},
        {R"("state":"ok","value":45.5)", R"("state":"unavailable","value":45.5)"},
        {R"("state":"ok","value":45.5)", R"("state":"unavailable","health":"ok")"},
        {R"("value":45.5)", R"("value":"45.5")"},
        {R"("power_good":true)", R"("power_good":1)"},
        {R"("set_by":"module")", R"("set_by":"nobody")"},
        {R"("lower_critical":)", R"("low":)"},
        {R"("transmitter_off":false,)", ""},
        {R"("cage":2,"state":"empty")", R"("cage":2,"state":"empty","lanes":[])"},
        {R"("cage":2,"state":"empty")", R"("cage":2,"state":"failed","monitors":[],"lanes":[])"},
        {R"("cage":2,"state":"empty")", R"("cage":0,"state":"empty")"},
        {R"("identifier":17)", R"("identifier":256)"},
    };
    EXPECT_EQ(taken_by_schema(schema, {{rack.run("--json").out, changes}}), says(""));
}

TEST(readings_schema, says_what_everything_is)
{
    EXPECT_EQ(wording_of_schema(schema), says(""));
}

TEST(readings_schema, is_shown)
{
    readings_rack_t rack;
    EXPECT_EQ(rack.run("--schema"), says(read_file(schema)));
    EXPECT_EQ(rack.run("--schema", {.out = stream_t::full_disk}).status, 1);
}

TEST(readings_schema, that_is_missing_is_named)
{
    readings_rack_t rack;
    const fs::path program = rack.folder() / "bin/ivra-bsp-readings";
    fs::create_directory(program.parent_path());
    fs::copy_file(IVRA_BSP_READINGS, program);
    rack.program(program.string());
    const std::string message =
        "Cannot read the schema " + (rack.folder() / "share/ivra/schema/readings-1.json").string() + "\n";
    EXPECT_EQ(rack.run("--schema"), fails("ivra-bsp readings: " + message));
    EXPECT_EQ(rack.run("--check --schema"), (run_t{.out = "UNKNOWN - " + message, .err = "", .status = 3}));
}

} // namespace
} // namespace ivra::tests
