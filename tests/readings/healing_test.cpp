// A killed command leaves half a request, or an answer that nobody read, on a BMC's line. Reading the board heals it.

#include "readings.h"

#include "support/rack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <iterator>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

constexpr std::size_t sample = 6; // of the calls, evenly

void plug_bmc(rack_t& rack, const std::string& latency)
{
    rack.plug("bittware_xupp3r", {{"bmc", R"({"latency": ")" + latency + R"(", "boot_image": "primary",
        "configured_from": "backup", "sensors": {"only": true, "list": [
            {"name": "12V0", "unit": "V", "value": 12, "m": 1, "limits": {"upper_critical": 13}}]}})"}});
    rack.environment("IVRA_LOG_LEVEL=0");
}

const std::vector<std::string> nexts{"show boot-image", "show sensors", "show info"};

/// What the programs say on a board when nobody was there before.
struct expected_t
{
    std::string document;
    std::vector<std::string> outs; ///< of `nexts`

    expected_t(const std::string& latency, const std::string& before)
    {
        for (const std::string& next : nexts) {
            rack_t rack;
            plug(rack, latency, before);
            outs.push_back(rack.run(next).out);
        }
        rack_t rack;
        plug(rack, latency, before);
        const run_t run = rack.program(IVRA_BSP_READINGS).run("--json");
        EXPECT_EQ(run.status, 0) << run.out;
        document = without_moment(run.out);
        EXPECT_NE(document.find(R"("health":"ok","findings":[])"), std::string::npos) << document;
    }

private:
    static void plug(rack_t& rack, const std::string& latency, const std::string& before)
    {
        plug_bmc(rack, latency);
        if (!before.empty()) {
            EXPECT_EQ(rack.run(before).status, 0);
        }
    }
};

/// Rules of a fault plan, one for each call of a command.
std::vector<std::string> kills_of(const std::string& latency, const std::string& words)
{
    rack_t rack;
    plug_bmc(rack, latency);
    rack.run(words);
    std::map<std::string, std::size_t> made;
    std::vector<std::string> kills;
    for (const std::string& line : traced(rack, " ivra_")) {
        const std::string call = line.substr(1, line.find('(') - 1);
        if (call == "ivra_log_log")
            continue;
        kills.push_back(R"({"call": ")" + call + R"(", "nth": )" + std::to_string(++made[call]) +
                        R"(, "kill": "after"})");
    }
    return kills;
}

/// Without the finding that bytes were dropped; counts in `dropped` that it was there.
std::string without_dropped(const std::string& document, std::size_t& dropped)
{
    static const std::regex finding{
        R"re(\{"text":"[0-9]+ bytes that answered nothing were dropped from the BMC's line"\})re"};
    std::string rest = std::regex_replace(document, finding, "");
    dropped += rest == document ? 0 : 1;
    return rest;
}

struct command_row_t
{
    const char* words;
    const char* latency;
};
const command_row_t command_rows[] = {
    {"show boot-image", "5 ms"},
    {"show boot-image", "50 ms"},
    {"show boot-image", "95 ms"},
    {"show sensors", "5 ms"},
    {"show sensors", "50 ms"},
    {"show sensors", "95 ms"},
    {"show info", "5 ms"},
    {"show info", "50 ms"},
    {"show info", "95 ms"},
    {"set boot-image backup", "5 ms"},
    {"set boot-image backup", "50 ms"},
    {"set boot-image backup", "95 ms"},
};

class healing : public testing::TestWithParam<std::size_t>
{
};

TEST_P(healing, after_a_kill_the_readings_are_right_and_so_is_the_next_command)
{
    const command_row_t& row = command_rows[GetParam()];
    const std::string words = row.words;
    const expected_t before{row.latency, ""};
    const expected_t after{row.latency, words.starts_with("set") ? words : ""};
    const std::vector<std::string> kills = kills_of(row.latency, words);
    const auto first_request = static_cast<std::size_t>(
        std::ranges::find(kills, R"({"call": "ivra_uart_write_all", "nth": 1, "kill": "after"})") - kills.begin());
    ASSERT_LT(first_request, kills.size());
    std::size_t dropped = 0;
    for (std::size_t step = 0; step < sample; step += IVRA_SWEEP_STEP) {
        // First after a request, so that there is an answer that nobody reads.
        const std::size_t at = step == 0 ? first_request : kills.size() * step / sample;
        SCOPED_TRACE(words + ", " + row.latency + ", " + kills[at]);
        rack_t rack;
        plug_bmc(rack, row.latency);
        rack.faults(kills[at]);
        ASSERT_EQ(rack.run(words).status, 128 + SIGKILL);
        const bool is_set = words.starts_with("set") && calls(rack, "ivra_uart_write_all") != 0;
        const expected_t& expected = is_set ? after : before;
        rack.environment("IVRA_VIRTUAL_FAULTS");

        const run_t run = rack.program(IVRA_BSP_READINGS).run("--json");
        EXPECT_EQ(without_dropped(without_moment(run.out), dropped), expected.document);
        EXPECT_EQ(run.err, "");
        EXPECT_EQ(run.status, 0);

        const std::size_t next = at % nexts.size();
        EXPECT_EQ(rack.program(IVRA_BSP_BOARD).run(nexts[next]).out, expected.outs[next]);
        if (testing::Test::HasFailure())
            return; // one is enough to read
    }
    EXPECT_GT(dropped, 0U) << "there was nothing to heal";
}

INSTANTIATE_TEST_SUITE_P(commands, healing, testing::Range(std::size_t{0}, std::size(command_rows)),
                         [](const auto& row) {
                             std::string name =
                                 command_rows[row.param].words + std::string{" "} + command_rows[row.param].latency;
                             std::ranges::replace_if(
                                 name, [](char letter) { return letter == ' ' || letter == '-'; }, '_');
                             return name;
                         });

} // namespace
} // namespace ivra::tests
