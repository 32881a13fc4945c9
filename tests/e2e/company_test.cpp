// What a command says and leaves behind when it is interrupted, stopped or killed, and beside another one at the same
// board: at each of its platform calls in turn. (What happens between two calls happens in no board.)

#include "changes.h"

#include "support/rack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include <unistd.h>

namespace ivra::tests {
namespace {

constexpr std::array ending_signals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};
constexpr const char* ending_names[] = {"SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT"};

const members_t::value_type ready_xmc{"xmc", R"({"ready_after": ["0 s", "0.1 s"], "answer_after": "5 ms"})"};

// ---- boards, and how long their reports are when nobody else is there ----

void plug_bmc(rack_t& rack)
{
    rack.plug("bittware_xupp3r", {{"bmc", R"({"latency": "2 ms", "boot_image": "primary", "configured_from": "backup",
        "sensors": {"only": true, "list": [{"name": "12V0", "unit": "V", "value": 12, "m": 1}]}})"}});
    rack.environment("IVRA_LOG_LEVEL=0");
}

/// Four different modules behind one multiplexer, and the EEPROM with the vendor's addresses behind the same one.
void plug_cages(rack_t& rack)
{
    rack.plug("bittware_xupvv8",
              {{"bmc", R"({"latency": "2 ms"})"}, {"i2c", R"({"mac_eeprom": "MAC=00:11:22:33:44:55", "cages": [
                    {"module": "qsfp28-sr4", "bytes": {"93": "05"}}, {"module": "qsfpdd-dr4", "bytes": {"26": "00"}},
                    {"module": "qsfp-lr4", "bytes": {"93": "05"}}, {"module": "qsfpdd-zr", "bytes": {"26": "00"}}]})"}});
    rack.environment("IVRA_LOG_LEVEL=0");
}

void plug_u200(rack_t& rack)
{
    rack.plug("xilinx_u200", {ready_xmc, {"i2c", R"({"cages": ["qsfp28-sr4", "qsfpdd-dr4"]})"}});
}

void plug_u55c(rack_t& rack)
{
    rack.plug("xilinx_u55c", {ready_xmc});
}

using plug_t = void (*)(rack_t&);

/// What a command says on a new board, after others.
std::string alone(plug_t plug, const std::vector<std::string>& before, const std::string& words)
{
    rack_t rack;
    plug(rack);
    for (const std::string& earlier : before)
        EXPECT_EQ(rack.run(earlier).status, 0) << earlier;
    const run_t run = rack.run(words);
    EXPECT_EQ(run.status, 0) << words << ": " << run.err;
    return run.out;
}

std::string low_powers(const rack_t& rack)
{
    const std::string cages = shown(rack, "Cages");
    std::string letters;
    for (std::size_t at = 0; (at = cages.find(" power\n", at)) != std::string::npos; ++at)
        letters += cages[at - 1] == 'w' ? 'l' : 'h';
    return letters;
}

const std::string slow_outputs = "running\nOUT0  125 MHz\nOUT1  125 MHz\nOUT2  100 MHz\nOUT3  100 MHz\n";
const std::string fast_outputs =
    "running\nOUT0  161.1328125 MHz\nOUT1  161.1328125 MHz\nOUT2  100 MHz\nOUT3  100 MHz\n";

using choose_t = std::function<std::vector<std::size_t>(const std::vector<traced_call_t>&)>;

/// The platform calls of a command on a new board: those that `choose` picks, or all of them.
std::vector<traced_call_t> calls_of(plug_t plug, const std::string& words, const choose_t& choose)
{
    rack_t rack;
    plug(rack);
    EXPECT_EQ(rack.run(words).status, 0);
    const std::vector<traced_call_t> calls = traced_calls(rack);
    std::vector<std::size_t> positions(calls.size());
    std::iota(positions.begin(), positions.end(), 0U);
    if (choose)
        positions = choose(calls);
    std::vector<traced_call_t> chosen;
    for (std::size_t step = 0; step < positions.size(); step += IVRA_SWEEP_STEP)
        chosen.push_back(calls[positions[step]]);
    EXPECT_FALSE(chosen.empty());
    return chosen;
}

// ---- interrupted ----

struct interruption_t
{
    plug_t plug;
    std::string words;
    /// Looks at the board after the command died.
    std::function<void(rack_t&)> check;
    choose_t choose = {};
};

/// Lets a command get SIGINT, SIGTERM, SIGHUP or SIGQUIT after each of its calls. It dies of each.
void expect_right_after(const interruption_t& story)
{
    std::size_t which = 0;
    for (const traced_call_t& call : calls_of(story.plug, story.words, story.choose)) {
        which = (which + 1) % ending_signals.size();
        SCOPED_TRACE(story.words + ", " + ending_names[which] + " after " + call.line);
        rack_t rack;
        story.plug(rack);
        rack.faults(call.fault(std::string{R"("when": "after", "signal": ")"} + ending_names[which] + '"'));
        ASSERT_EQ(rack.run(story.words).status, 128 + ending_signals[which]);
        rack.environment("IVRA_VIRTUAL_FAULTS");
        story.check(rack);
        if (testing::Test::HasFailure())
            return; // one is enough to read
    }
}

/// After the command every one of those that talk to the BMC is right, and at each place of it another one comes first.
void expect_right_answers_after(const std::string& words)
{
    const std::vector<std::string> nexts{"show boot-image", "show sensors", "show info", "list",
                                         "set boot-image backup"};
    std::vector<std::string> expected;
    std::vector<std::string> expected_when_set;
    for (const std::string& next : nexts) {
        expected.push_back(alone(&plug_bmc, {}, next));
        expected_when_set.push_back(alone(&plug_bmc, {"set boot-image backup"}, next));
    }
    EXPECT_EQ(expected[0], "Boot image\n\tCurrent boot: backup\n\tNext reload : primary\n");
    EXPECT_EQ(expected_when_set[0], "Boot image\n\tCurrent boot: backup\n\tNext reload : backup\n");
    std::size_t place = 0;
    expect_right_after({.plug = &plug_bmc, .words = words, .check = [&](rack_t& rack) {
                            bool is_set = words.starts_with("set") && calls(rack, "ivra_uart_write_all") != 0;
                            const std::size_t first = place++;
                            for (std::size_t i = 0; i < nexts.size(); ++i) {
                                const std::size_t next = (first + i) % nexts.size();
                                EXPECT_EQ(rack.run(nexts[next]).out, is_set ? expected_when_set[next] : expected[next]);
                                is_set = is_set || nexts[next].starts_with("set");
                            }
                        }});
}

TEST(interrupted, show_boot_image_leaves_nothing_that_the_next_command_takes_for_its_answer)
{
    expect_right_answers_after("show boot-image");
}

TEST(interrupted, show_sensors_leaves_nothing_that_the_next_command_takes_for_its_answer)
{
    expect_right_answers_after("show sensors");
}

TEST(interrupted, show_info_leaves_nothing_that_the_next_command_takes_for_its_answer)
{
    expect_right_answers_after("show info");
}

TEST(interrupted, list_leaves_nothing_that_the_next_command_takes_for_its_answer)
{
    expect_right_answers_after("list");
}

TEST(interrupted, set_boot_image_leaves_nothing_that_the_next_command_takes_for_its_answer)
{
    expect_right_answers_after("set boot-image backup");
}

TEST(interrupted, load_of_a_clock_generator_is_through_or_has_not_begun)
{
    expect_right_after({.plug = &plug_u55c,
                        .words = "set transceiver-speed 10G 10G",
                        .check =
                            [](rack_t& rack) {
                                const std::size_t writes = calls(rack, "ivra_i2c_bus_write_register");
                                EXPECT_TRUE(writes == 0 || writes == 527) << writes;
                                EXPECT_EQ(shown(rack, "Clock"),
                                          writes == 0 ? "not loaded, its outputs are off\n" : fast_outputs);
                            },
                        .choose = [](const std::vector<traced_call_t>& calls) { return chosen_of_a_load(calls, 60); }});
}

TEST(interrupted, power_mode_is_set_in_the_first_cages_and_can_be_set_again)
{
    expect_right_after({.plug = &plug_cages, .words = "set qsfp-power-mode low", .check = [](rack_t& rack) {
                            const std::size_t done = calls(rack, "ivra_i2c_bus_write_register");
                            EXPECT_EQ(low_powers(rack), std::string(done, 'l') + std::string(4 - done, 'h'));
                            // A module whose change has begun is changed: none is read and then left.
                            EXPECT_EQ(traced(rack, "0x50, 0x0, 1) = ").size(), done);
                            EXPECT_EQ(rack.run("set qsfp-power-mode low").status, 0);
                            EXPECT_EQ(low_powers(rack), "llll");
                        }});
}

TEST(interrupted, report_of_transceivers_is_right_the_next_time)
{
    const std::string report = alone(&plug_cages, {}, "show transceivers");
    expect_right_after({.plug = &plug_cages, .words = "show transceivers", .check = [&](rack_t& rack) {
                            EXPECT_EQ(rack.run("show transceivers").out, report);
                        }});
}

TEST(killed, report_of_transceivers_leaves_no_lock)
{
    for (const plug_t plug : {&plug_cages, &plug_u200})
        expect_killing_leaves_a_beginning({.plug = plug,
                                           .words = "show transceivers",
                                           .changes = {"ivra_i2c_bus_write("},
                                           .check = [](rack_t&, std::size_t) {}});
}

// ---- beside another process ----

struct meeting_t
{
    plug_t plug;
    std::string words;
    std::string neighbour;
    /// Looks at the board and at what the two have said.
    std::function<void(rack_t&, const run_t& first, const run_t& second)> check;
    choose_t choose = {};
};

/// Lets a second command come between two platform calls of a first one, at each of them in turn: the first one stands
/// still until the second one has ended, or waits for a lock.
void expect_right_beside(const meeting_t& story)
{
    std::size_t waited = 0;
    for (const traced_call_t& call : calls_of(story.plug, story.words, story.choose)) {
        SCOPED_TRACE(story.words + ", beside " + story.neighbour + " after " + call.line);
        rack_t rack;
        story.plug(rack);
        rack.faults(call.fault(R"("when": "after", "signal": "SIGSTOP")"));
        running_t first = rack.start(story.words);
        ASSERT_TRUE(first.stops());
        running_t second = rack.start_neighbour(story.neighbour);
        waited += second.waits_for_a_lock() ? 1 : 0;
        first.signal(SIGCONT);
        const run_t first_run = first.end();
        story.check(rack, first_run, second.end());
        if (testing::Test::HasFailure())
            return; // one is enough to read
    }
    EXPECT_GT(waited, 0U) << "they never met";
}

TEST(neighbours, loading_a_clock_generator_load_it_one_after_the_other)
{
    expect_right_beside(
        {.plug = &plug_u55c,
         .words = "set transceiver-speed 10G 10G",
         .neighbour = "set transceiver-speed 1G 1G",
         .check =
             [](rack_t& rack, const run_t& first, const run_t& second) {
                 EXPECT_EQ(first.out, "Updating transceiver speed... success\n");
                 EXPECT_EQ(second.out, first.out);
                 // Whichever came last. The first one stood still before its lock, or the second one waited for it.
                 const std::string outputs = shown(rack, "Clock");
                 EXPECT_TRUE(outputs == slow_outputs || outputs == fast_outputs) << outputs;
             },
         .choose = [](const std::vector<traced_call_t>& calls) { return chosen_of_a_load(calls, 100); }});
}

TEST(neighbours, reading_transceivers_both_show_each_module_under_its_port)
{
    for (const plug_t plug : {&plug_cages, &plug_u200}) {
        const std::string report = alone(plug, {}, "show transceivers");
        expect_right_beside({.plug = plug,
                             .words = "show transceivers",
                             .neighbour = "show transceivers",
                             .check = [&](rack_t&, const run_t& first, const run_t& second) {
                                 EXPECT_EQ(first.out, report);
                                 EXPECT_EQ(second.out, report);
                             }});
    }
}

void expect_power_set_beside_a_reader(const run_t& setter, const run_t& reader, const rack_t& rack)
{
    static const std::string before = alone(&plug_cages, {}, "show transceivers");
    static const std::string after = alone(&plug_cages, {"set qsfp-power-mode low"}, "show transceivers");
    EXPECT_NE(before, after);
    EXPECT_EQ(setter.out, "Setting all QSFP to low power mode... success\n");
    EXPECT_EQ(low_powers(rack), "llll");
    EXPECT_TRUE(reader.out == before || reader.out == after) << reader.out;
}

TEST(neighbours, setting_the_power_mode_beside_a_reader_set_it_everywhere)
{
    expect_right_beside({.plug = &plug_cages,
                         .words = "set qsfp-power-mode low",
                         .neighbour = "show transceivers",
                         .check = [](rack_t& rack, const run_t& first, const run_t& second) {
                             expect_power_set_beside_a_reader(first, second, rack);
                         }});
    expect_right_beside({.plug = &plug_cages,
                         .words = "show transceivers",
                         .neighbour = "set qsfp-power-mode low",
                         .check = [](rack_t& rack, const run_t& first, const run_t& second) {
                             expect_power_set_beside_a_reader(second, first, rack);
                         }});
}

TEST(neighbours, reading_the_mac_eeprom_beside_a_reader_of_cages_find_it)
{
    const std::string report = alone(&plug_cages, {}, "show transceivers");
    const auto check = [&](rack_t& rack, const run_t& setup, const run_t& reader) {
        EXPECT_EQ(setup.out, "Setting up board card-0...success\n") << setup.err;
        EXPECT_EQ(reader.out, report);
        EXPECT_EQ(shown(rack, "MAC addresses"), "00:11:22:33:44:55 - 00:11:22:33:44:5c\n");
    };
    expect_right_beside({.plug = &plug_cages, .words = "setup", .neighbour = "show transceivers", .check = check});
}

// ---- stopped ----

/// Lets a command be stopped by a terminal's Ctrl-Z after each of its calls, while a neighbour does the same.
void expect_no_lock_in_a_stopped(const std::string& words, plug_t plug)
{
    const std::string expected = alone(plug, {}, words);
    for (const traced_call_t& call : calls_of(plug, words, {})) {
        SCOPED_TRACE(words + ", Ctrl-Z after " + call.line);
        rack_t rack;
        plug(rack);
        rack.faults(call.fault(R"("when": "after", "signal": "SIGTSTP")"));
        running_t first = rack.start(words);
        ASSERT_TRUE(first.stops());
        running_t second = rack.start_neighbour(words);
        ASSERT_FALSE(second.waits_for_a_lock());
        EXPECT_EQ(second.end().out, expected);
        first.signal(SIGCONT);
        EXPECT_EQ(first.end().out, expected) << "it goes on as if nothing had happened";
        if (testing::Test::HasFailure())
            return; // one is enough to read
    }
}

TEST(stopped, command_holds_no_lock_of_a_bmc)
{
    expect_no_lock_in_a_stopped("show sensors", &plug_bmc);
}

TEST(stopped, command_holds_no_lock_of_an_xmc)
{
    expect_no_lock_in_a_stopped("show info", &plug_u55c);
}

TEST(stopped, command_holds_no_lock_of_i2c)
{
    expect_no_lock_in_a_stopped("show transceivers", &plug_u200);
}

/// What waits for a lock, stopped by Ctrl-Z there, does not stop: its hold begins before it asks.
TEST(stopped, command_that_waits_for_a_lock_is_not_stopped_but_ended)
{
    rack_t rack;
    plug_u200(rack);
    rack.faults(R"({"call": "ivra_i2c_bus_read_register", "nth": 1, "signal": "SIGSTOP"})");
    running_t holder = rack.start("show transceivers");
    ASSERT_TRUE(holder.stops());
    running_t waiting = rack.start_neighbour("show transceivers");
    ASSERT_TRUE(waiting.waits_for_a_lock());
    waiting.signal(SIGTSTP);
    waiting.signal(SIGINT);
    EXPECT_EQ(waiting.end().status, 128 + SIGINT);
    holder.signal(SIGCONT);
    EXPECT_EQ(holder.end().status, 0);
}

TEST(stopped, output_of_a_command_stops_no_other_one)
{
    // A board whose BMC has something to remark, which these commands say before anything else.
    for (const stream_t stream : {stream_t::full_pipe, stream_t::held})
        for (const std::string words : {"show info", "list", "show boot-image"}) {
            rack_t rack;
            rack.plug("bittware_xupp3r");
            running_t first = rack.start(words, {.out = stream, .err = stream_t::file});
            ASSERT_TRUE(first.waits_to_write());
            running_t second = rack.start_neighbour(words);
            ASSERT_FALSE(second.waits_for_a_lock()) << words;
            const run_t run = second.end();
            EXPECT_EQ(run.status, 0) << run.err;
            first.signal(SIGTERM);
            EXPECT_EQ(first.end().status, 128 + SIGTERM) << words;
        }
}

TEST(stopped, output_of_what_the_library_says_under_a_lock_stops_no_other_command)
{
    struct row_t
    {
        plug_t plug;
        const char* words;
        const char* call; ///< under a lock
    };
    for (const row_t& row : {row_t{&plug_bmc, "show boot-image", "ivra_uart_read"},
                             {&plug_u200, "show transceivers", "ivra_i2c_bus_read_register"},
                             {&plug_u55c, "set transceiver-speed 1G 1G", "ivra_i2c_bus_write_register"}}) {
        SCOPED_TRACE(row.words);
        rack_t rack;
        row.plug(rack);
        rack.environment("IVRA_LOG_LEVEL=1");
        rack.faults(std::string{R"({"call": ")"} + row.call + R"(", "nth": 1, "log": "Noise"})");
        running_t first = rack.start(row.words, {.out = stream_t::full_pipe, .err = stream_t::file});
        ASSERT_TRUE(first.waits_to_write());
        running_t second = rack.start_neighbour(row.words);
        ASSERT_FALSE(second.waits_for_a_lock());
        EXPECT_EQ(second.end().status, 0);
        first.signal(SIGTERM);
        EXPECT_EQ(first.end().status, 128 + SIGTERM);
    }
}

TEST(stopped, command_says_what_the_library_said_under_a_lock_when_that_is_free)
{
    rack_t rack;
    plug_bmc(rack);
    rack.environment("IVRA_LOG_LEVEL=1");
    rack.faults(R"({"call": "ivra_uart_read", "nth": 1, "log": "Noise"},
                   {"call": "ivra_uart_write_all", "nth": 2, "log": "Echo", "errno": "EIO"})");
    const run_t run = rack.run("show boot-image");
    EXPECT_EQ(run.out, "ivra_uart_read: Noise\n" + remains + "ivra_uart_write_all: Echo\n");
    EXPECT_EQ(run.err, "Error sending IPMI data: Input/output error\n");
    EXPECT_EQ(run.status, 1);
}

// ---- waiting ----

const std::string waiting_line = "\nWaiting for another process that uses this board...\n";

TEST(waiting, on_a_terminal_is_told_after_2_seconds_and_goes_on)
{
    using namespace std::chrono_literals;
    rack_t rack;
    plug_u200(rack);
    const std::string report = alone(&plug_u200, {}, "show transceivers");
    rack.faults(R"({"call": "ivra_i2c_bus_read_register", "nth": 1, "signal": "SIGSTOP"})");
    running_t holder = rack.start("show transceivers");
    ASSERT_TRUE(holder.stops());
    running_t told =
        rack.start_neighbour("--color never show transceivers", {.out = stream_t::file, .err = stream_t::terminal});
    running_t not_told = rack.start_neighbour("show transceivers");
    ASSERT_TRUE(told.waits_for_a_lock());
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_TRUE(not_told.waits_for_a_lock());
    while (std::chrono::steady_clock::now() - begin < 2100ms)
        ::usleep(10000);
    holder.signal(SIGCONT);
    EXPECT_EQ(holder.end().out, report);
    const run_t run = told.end();
    EXPECT_EQ(run.out, report);
    EXPECT_EQ(run.err, waiting_line);
    EXPECT_EQ(not_told.end().err, "");
}

TEST(waiting, is_no_part_of_the_document)
{
    rack_t rack;
    plug_bmc(rack);
    const run_t expected = rack.run("--json show sensors");
    rack.faults(R"({"call": "ivra_hw_shared_mutex_lock", "nth": 1, "signal": "SIGURG"})"); // as if 2 s had passed
    const run_t run = rack.run("--json --color never show sensors", {.out = stream_t::file, .err = stream_t::terminal});
    EXPECT_EQ(run.out, expected.out);
    EXPECT_EQ(run.err, "Retrieving sensor data... " + waiting_line + "done\n");
}

} // namespace
} // namespace ivra::tests
