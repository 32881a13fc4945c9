#include "readings.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <utility>

namespace ivra::tests {
namespace {

// A U200, whose 12V_PEX is read as 11.962 V, and whose controller gives no limits.
class limits_rack_t : public readings_rack_t
{
public:
    limits_rack_t() { plug("xilinx_u200"); }

    std::string path() const { return (folder() / "limits.json").string(); }

    /// Runs with a limits file of this text.
    run_t run_with(const std::string& text, const std::string& words)
    {
        std::ofstream{path()} << text;
        return run(words + " --limits " + path());
    }
    /// The same with these limits for 12V_PEX.
    run_t run_limited(const std::string& limits, const std::string& words)
    {
        return run_with(R"({"sensors": [{"sensor": "12V_PEX", "unit": "volts", "limits": {)" + limits + "}}]}\n",
                        words);
    }
};

/// Up to the performance data.
std::string verdict_of(const run_t& run)
{
    return run.out.substr(0, run.out.find(" |")) + " -> " + std::to_string(run.status);
}

TEST(limits, of_an_operator_judge_a_sensor_that_has_none)
{
    limits_rack_t rack;
    const struct
    {
        const char* limits;
        const char* verdict;
    } rows[] = {
        {R"("lower_critical": 11, "upper_critical": 13)", "OK - 1 board -> 0"},
        {R"("lower_critical": 11.962, "upper_critical": 11.962)", "OK - 1 board -> 0"}, // equal is not beyond
        {R"("lower_critical": 11, "lower_non_critical": 11.97)",
         "WARNING - 1 board, 1 warning; card-0: 12V_PEX: 11.962 V is below the lower warning limit of 11.97 V set by "
         "the limits file -> 1"},
        {R"("upper_non_critical": 11.9, "upper_critical": 11.95)",
         "CRITICAL - 1 board, 1 critical; card-0: 12V_PEX: 11.962 V is above the upper critical limit of 11.95 V set "
         "by "
         "the limits file -> 2"},
        {R"("upper_non_critical": 11.96199999)",
         "WARNING - 1 board, 1 warning; card-0: 12V_PEX: 11.962 V is above the upper warning limit of 11.96199999 V "
         "set by the limits file -> 1"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(verdict_of(rack.run_limited(row.limits, "--check")), row.verdict);
}

TEST(limits, of_an_operator_stand_beside_the_value)
{
    limits_rack_t rack;
    const std::string limits = R"("lower_non_critical": 11.5, "upper_critical": 13)";
    const std::string document = rack.run_limited(limits, "--lines").out;
    const std::string begin = R"({"name":"12V_PEX",)";
    const std::string reading = document.substr(document.find(begin));
    EXPECT_EQ(reading.substr(0, reading.find("},{")),
              begin + R"("quantity":"voltage","unit":"volts","state":"ok","value":11.962,"peak":11.984,)"
                      R"("limits":{"lower_non_critical":11.5,"upper_critical":13.0,"set_by":"file"},"health":"ok")");
    EXPECT_NE(rack.run_limited(limits, "--check").out.find(" 'card-0 12V_PEX'=11.962V;11.5:;~:13 "), std::string::npos);
}

TEST(limits, beyond_which_a_value_is_critical_are_a_range_for_monitoring)
{
    limits_rack_t rack;
    const std::pair<const char*, const char*> rows[] = {
        {R"("upper_non_recoverable": 14)", ";;~:14 "},
        {R"("lower_non_recoverable": 10, "upper_non_critical": 13)", ";~:13;10: "},
        {R"("lower_non_recoverable": 10, "lower_critical": 11, "upper_non_recoverable": 14)", ";;11:14 "},
    };
    for (const auto& [limits, range] : rows) {
        const std::string line = rack.run_limited(limits, "--check").out;
        EXPECT_NE(line.find(std::string{" 'card-0 12V_PEX'=11.962V"} + range), std::string::npos) << line;
    }
}

TEST(limits, of_an_operator_guard_the_fpga_of_any_board)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").plug("xilinx_u200");
    const std::string file = (rack.folder() / "limits.json").string();
    std::ofstream{file} << R"({"sensors": [
        {"model": "xilinx_u200", "sensor": "FPGA", "unit": "celsius", "limits": {"upper_non_critical": 45}},
        {"sensor": "FPGA", "unit": "celsius", "limits": {"upper_critical": 45}}]})";
    const run_t run = rack.run("--parts identity --text --limits " + file);
    EXPECT_NE(run.out.find("critical: card-0: FPGA temperature: 45.5 °C is above the upper critical limit of 45 °C set "
                           "by the limits file\n"
                           "warning: card-1: FPGA temperature: 45.5 °C is above the upper warning limit of 45 °C set "
                           "by the limits file\n"),
              std::string::npos)
        << run.out;
}

TEST(limits, in_another_unit_leave_the_board_unknown)
{
    limits_rack_t rack;
    EXPECT_EQ(
        verdict_of(rack.run_with(
            R"({"sensors": [{"sensor": "12V_PEX", "unit": "watts", "limits": {"upper_critical": 13}}]})", "--check")),
        "UNKNOWN - 1 board, 1 unknown; card-0: 12V_PEX is not judged: the limits file gives limits in watts, it "
        "is read in volts -> 3");
}

TEST(limits, with_a_mistake_touch_no_board)
{
    limits_rack_t rack;
    const struct
    {
        std::string text;
        std::string mistake;
    } rows[] = {
        {"{\n", "line 2, column 1: not JSON: Missing a name for object member"},
        {R"({"sensors": [{"sensor": "12V_PEX", "unit": "mV"}]})",
         R"(/sensors/0/unit: found "mV", expected volts, amperes, celsius, watts, rpm or percent)"},
        {R"({"sensors": [{"sensor": "a|b)"
         "\u202e"
         R"(", "unit": "a|b)"
         "\u202e"
         R"("}]})",
         R"(/sensors/0/unit: found "a|b?", expected volts, amperes, celsius, watts, rpm or percent)"},
        {std::string(20'000'000, ' '), "expected a file of at most 1 MiB"},
    };
    for (const auto& row : rows) {
        const std::string told = rack.path() + ": " + row.mistake;
        for (const char* words : {"--json", "--lines", "--text"}) {
            EXPECT_EQ(rack.run_with(row.text, words), fails("ivra-bsp readings: " + told + "\n"));
            EXPECT_EQ(rack.trace(), "");
        }
        std::string line = "UNKNOWN - " + told + "\n";
        std::ranges::replace(line, '|', '_'); // performance data would begin there
        EXPECT_EQ(rack.run_with(row.text, "--check"), (run_t{.out = line, .err = "", .status = 3}));
    }
}

TEST(limits, that_are_no_file_are_not_waited_for)
{
    limits_rack_t rack;
    const std::string fifo = rack.folder() / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string folder = rack.folder().string();
    const struct
    {
        std::string file, mistake;
    } rows[] = {
        {fifo, ": expected a regular file"},
        {folder, ": cannot be read: Is a directory"},
        {folder + "/none", ": cannot be read: No such file or directory"},
        {"/proc/self/mem", ": cannot be read: Input/output error"},
        {"/dev/zero", ": expected a regular file"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(rack.run("--json --limits " + row.file),
                  fails("ivra-bsp readings: " + row.file + row.mistake + "\n"));
        EXPECT_EQ(rack.run("--check --limits " + row.file),
                  (run_t{.out = "UNKNOWN - " + row.file + row.mistake + "\n", .err = "", .status = 3}));
    }
}

// More than a socket holds: nobody waits for anybody.
TEST(limits, of_a_mebibyte_reach_every_worker)
{
    readings_rack_t rack;
    for (int board = 0; board < 3; ++board)
        rack.plug("m48l_xcvu7p");
    const std::string file = (rack.folder() / "limits.json").string();
    std::string text = R"({"sensors": [)" + std::string(1'000'000, '\n');
    text += R"({"sensor": "FPGA", "unit": "celsius", "limits": {"upper_critical": 45}}]})";
    std::ofstream{file} << text;
    const run_t run = rack.run("--parts identity --check --jobs 3 --limits " + file);
    EXPECT_TRUE(run.out.starts_with("CRITICAL - 3 boards, 3 critical; ")) << run.out;
}

} // namespace
} // namespace ivra::tests
