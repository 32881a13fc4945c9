// Each platform call of a reading that can fail does so in turn: it costs what it carries, and is told.

#include "readings.h"

#include "hw/accelerator.h"
#include "readings/board_view.h"
#include "readings/document.h"
#include "support/rack.h"
#include "telemetry/board_readings.h"

#include <ivra/log.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::tests {
namespace {

using namespace bsp;

const telemetry::parts_t all_parts{telemetry::part_t::identity, telemetry::part_t::flash, telemetry::part_t::boot_image,
                                   telemetry::part_t::sensors, telemetry::part_t::modules};
const std::string cages = R"({"cages": ["qsfp28-sr4", "qsfpdd-dr4"]})";
const std::string ready_xmc = R"({"ready_after": ["0 s", "0.1 s"], "answer_after": "5 ms"})";
const std::string small_bmc = R"({"latency": "0 ms", "sensors": {"only": true, "list": [
    {"name": "12V0", "unit": "V", "value": 12, "m": 1, "limits": {"upper_critical": 13}}, {"name": "FPGA temp", "value": 40, "m": 1}]}})";

struct model_row_t
{
    const char* model;
    members_t members;
};
const model_row_t models[] = {
    {"xilinx_u200", {{"xmc", ready_xmc}, {"i2c", cages}}},
    {"xilinx_u250", {{"xmc", ready_xmc}, {"i2c", cages}}},
    {"xilinx_u50", {{"xmc", ready_xmc}}},
    {"xilinx_u55c", {{"xmc", ready_xmc}}},
    {"bittware_xupp3r", {{"bmc", small_bmc}, {"i2c", cages}}},
    {"bittware_xupvv8", {{"bmc", small_bmc}, {"i2c", cages}}},
    {"ivra_fpb2", {{"bmc", small_bmc}, {"i2c", cages}}},
    {"m48l_xcvu7p", {}},
    {"m48e_emu_xcvu9p", {}},
    {"m48lb_xcvu9p", {}},
};

/// A board, and another one beside it.
void plug(rack_t& rack, const model_row_t& row)
{
    rack.plug(row.model, row.members)
        .plug("m48l_xcvu7p")
        .host({.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"});
    rack.environment("IVRA_LOG_LEVEL=0");
}

/// Reads all boards as one process does; prints a line for each.
void read_boards()
{
    ivra_log_set_handler([](int, const char*, int, const char*, const char*, std::va_list) {});
    for (const hw::accelerator_descriptor& descriptor : hw::enumerate_accelerators()) {
        const telemetry::accelerator_identity_t identity = telemetry::get_identity(descriptor);
        std::cout << readings::make_board_document(
                         identity, telemetry::read_board(descriptor, all_parts, [] { return false; }), {})
                  << '\n';
    }
    ivra_log_set_handler(nullptr);
}

std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

/// A call of a run, and a fault plan's rule that makes it fail.
struct failure_t
{
    std::string line;
    std::string rule;
};

/// The calls of a run that are about its first board, or about none, and that can fail.
std::vector<failure_t> failures_of(const rack_t& rack)
{
    std::vector<failure_t> failures;
    std::map<std::string, std::size_t> made;
    for (const std::string& traced_line : traced(rack, " ivra_")) {
        const std::string line = traced_line.substr(1);
        if (line.starts_with("ivra_hw_accelerator_get(0000:01:00.0"))
            break;
        const std::string call = line.substr(0, line.find('('));
        const std::size_t nth = ++made[call];
        const bool returns_nothing = line.ends_with(" = void") || call == "ivra_hw_core_tree_get_root" ||
                                     call == "ivra_mac_address_to_int" || call == "ivra_log_log";
        constexpr std::size_t whole = 24, part = 4; // controllers are asked in the same way many times
        if (!returns_nothing && (nth <= whole || nth % part == 0) && line.find("0000:01:00.0") == std::string::npos)
            failures.push_back(
                {line, R"({"call": ")" + call + R"(", "nth": )" + std::to_string(nth) + R"(, "errno": "EIO"})"});
    }
    return failures;
}

/// Whether the platform tells by a failure, too, that there is no such thing: a name, a number, a uid.
bool is_absence(const failure_t& failure)
{
    return failure.line.starts_with("ivra_hw_prop_get_") || failure.line.starts_with("ivra_hw_accelerator_get_prop") ||
           failure.line.starts_with("ivra_flash_get_section_name");
}

rapidjson::Document parse(const std::string& line)
{
    rapidjson::Document document;
    document.Parse(line.data(), line.size()); // takes neither NaN nor infinity
    EXPECT_FALSE(document.HasParseError()) << line;
    return document;
}

bool is_told(const rapidjson::Document& board)
{
    return readings::has_failure(board) || board["findings"].Size() != 0;
}

std::size_t count_of(const rack_t& rack, const std::string& call)
{
    const std::vector<std::string> lines = traced(rack, " " + call + "(");
    return static_cast<std::size_t>(
        std::ranges::count_if(lines, [](const std::string& line) { return line.ends_with(" = 0"); }));
}

class sweep : public testing::TestWithParam<std::size_t>
{
};

TEST_P(sweep, of_failing_calls_costs_each_time_what_the_call_carries)
{
    rack_t rack;
    plug(rack, models[GetParam()]);
    rack.in_child(&read_boards); // a new board is another story
    const run_t whole = rack.in_child(&read_boards);
    const std::vector<std::string> expected = lines_of(whole.out);
    ASSERT_EQ(expected.size(), 2U) << whole.out << whole.err;
    ASSERT_FALSE(is_told(parse(expected[1])));
    const std::vector<failure_t> failures = failures_of(rack);
    const run_t info = rack.run("-a 0 show info");
    ASSERT_EQ(info.status, 0) << info.err;
    ASSERT_GT(failures.size(), 40U);
    std::size_t told = 0;
    for (std::size_t step = 0; step < failures.size(); step += IVRA_SWEEP_STEP) {
        const failure_t& failure = failures[step];
        if (failure.line.find("accelerators(") != std::string::npos)
            continue; // the host has no boards
        SCOPED_TRACE(failure.line);
        rack.faults(failure.rule);
        const run_t run = rack.in_child(&read_boards);
        EXPECT_NE(rack.trace().find("(fault plan)"), std::string::npos);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 0);
        const std::vector<std::string> lines = lines_of(run.out);
        ASSERT_EQ(lines.size(), 2U) << run.out;
        EXPECT_TRUE(is_told(parse(lines[0])) || lines[0] == expected[0] ||
                    (is_absence(failure) && lines[0].size() < expected[0].size()))
            << lines[0];
        EXPECT_EQ(lines[1], expected[1]);
        told += is_told(parse(lines[0])) ? 1 : 0;

        // No lock is left: not even when giving it back fails.
        const bool is_unlock = failure.line.starts_with("ivra_hw_shared_mutex_unlock");
        EXPECT_EQ(count_of(rack, "ivra_hw_shared_mutex_lock"),
                  count_of(rack, "ivra_hw_shared_mutex_unlock") + (is_unlock ? 1 : 0));
        if (is_unlock || step % 16 == 0) {
            rack.environment("IVRA_VIRTUAL_FAULTS");
            EXPECT_EQ(rack.run("-a 0 show info"), info);
        }
    }
    EXPECT_GT(told, failures.size() / IVRA_SWEEP_STEP / 3);
}

INSTANTIATE_TEST_SUITE_P(models, sweep, testing::Range(std::size_t{0}, std::size(models)),
                         [](const auto& row) { return std::string{models[row.param].model}; });

struct host_row_t
{
    const char* fault;
    int status;
    bool is_first_failed, is_second_failed; ///< the whole board
};
const host_row_t host_rows[] = {
    {R"({"call": "ivra_hw_top_get_temperature", "accelerator": "card-0", "errno": "EIO"})", 2, false, false},
    {R"({"call": "ivra_hw_accelerator_get", "accelerator": "card-0", "errno": "EACCES"})", 2, true, false},
    {R"({"call": "ivra_hw_accelerator_get", "accelerator": "card-1", "errno": "EACCES"})", 2, false, true},
    {R"({"call": "ivra_hw_accelerator_get", "errno": "EACCES"})", 1, true, true},
    {R"({"call": "ivra_hw_enumerate_cores", "accelerator": "card-0", "errno": "EIO"})", 2, true, false},
    {R"({"call": "ivra_flash_create", "accelerator": "card-0", "kill": "before"})", 2, true, false},
    {R"({"call": "ivra_flash_create", "accelerator": "card-0", "signal": "SIGSEGV"})", 2, true, false},
};

TEST(hosts, with_failing_boards_have_one_document_with_the_others_complete)
{
    readings_rack_t whole;
    plug(whole, models[0]);
    const std::vector<std::string> expected = lines_of(whole.run("--lines --jobs 1").out);
    ASSERT_EQ(expected.size(), 3U);
    for (const host_row_t& row : host_rows) {
        SCOPED_TRACE(row.fault);
        readings_rack_t rack;
        plug(rack, models[0]);
        rack.faults(row.fault);
        const run_t run = rack.run("--json --jobs 1");
        EXPECT_EQ(run.status, row.status);
        EXPECT_EQ(run.err, "");
        const rapidjson::Document document = parse(run.out);
        const std::vector<std::string> lines = lines_of(run.out);
        ASSERT_EQ(lines.size(), 3U) << run.out;
        EXPECT_STREQ(document["health"].GetString(), "unknown");
        EXPECT_EQ(std::string{document["boards"][0]["state"].GetString()}, row.is_first_failed ? "failed" : "ok");
        EXPECT_EQ(std::string{document["boards"][1]["state"].GetString()}, row.is_second_failed ? "failed" : "ok");
        EXPECT_EQ(readings::has_failure(document["boards"][0]), row.is_first_failed || !row.is_second_failed);
        if (!row.is_second_failed) {
            EXPECT_EQ(lines[2], expected[1] + "]}");
        }
        for (const std::string& end : traced(rack, " exit: "))
            EXPECT_EQ(end, " exit: 0 handles not released");
    }
}

TEST(hosts, have_every_cage_that_a_failure_does_not_tell_absent)
{
    const struct
    {
        const char* fault;
        const char* health;
        const char* fifth; ///< cage
    } rows[] = {
        {R"({"call": "ivra_i2c_bus_read", "nth": 1, "errno": "EIO"})", "critical", "ok"},
        {R"({"call": "ivra_i2c_get_bus", "nth": 5, "errno": "EIO"})", "unknown", "failed"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fault);
        readings_rack_t rack;
        rack.plug("bittware_xupp3r",
                  {{"i2c", R"({"cages": ["empty", "empty", "empty", "empty", "sfp-dark-receiver"]})"}});
        rack.host(plain_host).faults(row.fault);
        const rapidjson::Document document = parse(rack.run("--json --parts modules").out);
        EXPECT_STREQ(document["health"].GetString(), row.health);
        const rapidjson::Value& modules = document["boards"][0]["modules"];
        ASSERT_EQ(modules.Size(), 8U);
        EXPECT_STREQ(modules[4]["state"].GetString(), row.fifth);
    }
}

TEST(hosts, whose_boards_cannot_be_listed_are_no_hosts_without_boards)
{
    readings_rack_t rack;
    plug(rack, models[0]);
    for (const auto& [fault, why] :
         {std::pair<std::string, std::string>{R"("call": "ivra_hw_enumerate_accelerators", "errno": "EIO")",
                                              "The platform counts 2 boards, and lists none"},
          {R"("call": "ivra_hw_filter_create", "errno": "ENOMEM")",
           "The boards of this host cannot be listed: Cannot allocate memory"}}) {
        rack.faults("{" + fault + "}");
        const run_t run = rack.run("--json");
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 1);
        const rapidjson::Document document = parse(run.out);
        EXPECT_STREQ(document["health"].GetString(), "unknown");
        ASSERT_EQ(document["findings"].Size(), 1U);
        EXPECT_EQ(document["findings"][0]["text"].GetString(), why);
        EXPECT_EQ(document["boards"].Size(), 0U);
        EXPECT_EQ(rack.run("--check"), (run_t{"UNKNOWN - " + why + "\n", "", 3}));
    }
}

TEST(hosts, whose_boards_the_platform_cannot_find_are_no_hosts_without_boards)
{
    readings_rack_t rack;
    rack.file("{\"accelerators\": 1}");
    const run_t run = rack.run("--json");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find(R"("findings":[{"health":"unknown","text":"The boards of this host cannot be listed: )"),
              std::string::npos)
        << run.out;
    const run_t check = rack.run("--check");
    EXPECT_TRUE(check.out.starts_with("UNKNOWN - The boards of this host cannot be listed: ")) << check.out;
    EXPECT_EQ(check.status, 3);
}

} // namespace
} // namespace ivra::tests
