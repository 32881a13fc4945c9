#include "readings.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

const std::string hanging_call = "ivra_hw_top_get_board_name(0000:01:00.0";

/// Three plain switches, of which the second one meets a fault when it is opened.
class three_boards_t : public readings_rack_t
{
public:
    explicit three_boards_t(const std::string& effect)
    {
        for (int board = 0; board < 3; ++board)
            plug("m48l_xcvu7p");
        host(plain_host);
        faults(R"({"call": "ivra_hw_top_get_board_name", "accelerator": "card-1", )" + effect + "}");
    }

    /// The program at the end of this line of a shell.
    run_t run_by_shell(const std::string& beginning, const std::string& end)
    {
        program("/bin/sh");
        return run(std::vector<std::string>{"-c", beginning + " " IVRA_BSP_READINGS " " + end});
    }
};

std::string screen_without_second(const std::string& why)
{
    return "Health   ID  Name    Model        Serial       Hottest\n"
           "ok       0   card-0  m48l_xcvu7p  SSJ17200123  45.5°C\n"
           "unknown  1   card-1\n"
           "ok       2   card-2  m48l_xcvu7p  SSJ17200123  45.5°C\n"
           "\n"
           "unknown: card-1: The board could not be read: " +
           why +
           "\n"
           "\n"
           "3 boards: unknown\n";
}

/// The process that opened a board in the last run.
std::string worker_of(const rack_t& rack)
{
    const std::string trace = rack.trace();
    const std::size_t end = trace.find(" ivra_hw_top_get_board_name(");
    const std::size_t begin = trace.rfind(' ', end - 1) + 1;
    return trace.substr(begin, end - begin);
}

/// Waits until a process that is nobody's child any more has ended.
void wait_for_end(const std::string& process)
{
    for (std::string line = "-"; !line.empty() && line.find(") Z ") == std::string::npos;) {
        line.clear();
        std::getline(std::ifstream{"/proc/" + process + "/stat"}, line);
    }
}

TEST(workers, a_crash_costs_its_board_and_no_other)
{
    const char* const not_handled = "ASAN_OPTIONS=handle_segv=0"; // by a sanitizer, which would make it an exit status
    const std::string crash = "what read it was ended by signal 11 (Segmentation fault)";
    for (const char* jobs : {"1", "2", "64"}) {
        three_boards_t rack{R"("signal": "SIGSEGV")"};
        rack.environment(not_handled);
        EXPECT_EQ(rack.run(std::string{"--text --jobs "} + jobs), (run_t{screen_without_second(crash), "", 2}));
    }
    three_boards_t callers_children_go_unseen{R"("signal": "SIGSEGV")"};
    callers_children_go_unseen.environment(not_handled);
    EXPECT_EQ(callers_children_go_unseen.run_by_shell("exec env --ignore-signal=CHLD", "--text"),
              (run_t{screen_without_second(crash), "", 2}));
}

TEST(workers, a_crash_loses_nothing_that_the_log_had_said_at_error_level)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").environment("ASAN_OPTIONS=handle_segv=0");
    rack.environment("IVRA_VIRTUAL_TRACE=/dev/null/trace"); // which the library cannot open, and says so
    rack.faults(R"({"call": "ivra_hw_top_get_board_name", "log": "a warning", "signal": "SIGSEGV"})");
    const std::string log = "ivra_virtual_trace: Cannot write the trace to /dev/null/trace: Not a directory";
    const run_t run = rack.run("--text");
    EXPECT_EQ(run, (run_t{"Health   ID  Name\n"
                          "unknown  0   card-0\n"
                          "\n"
                          "unknown: card-0: The board could not be read: "
                          "what read it was ended by signal 11 (Segmentation fault)\n"
                          "note: card-0: The platform's log: " +
                              log + "\n",
                          "", 1}));
    const std::string shown = rack.run("--text --verbose").err;
    EXPECT_NE(shown.find("card-0: " + log + "\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("card-0: ivra_hw_top_get_board_name: a warning\n"), std::string::npos) << shown;
}

TEST(workers, an_error_of_the_log_is_a_remark_on_a_board_that_could_be_read)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host).environment("IVRA_VIRTUAL_TRACE=/dev/null/trace");
    EXPECT_EQ(rack.run("--text"),
              says("Health  ID  Name    Model        Serial       Hottest\n"
                   "ok      0   card-0  m48l_xcvu7p  SSJ17200123  45.5°C\n"
                   "\n"
                   "note: card-0: The platform's log: ivra_virtual_trace: Cannot write the trace to /dev/null/trace: "
                   "Not a directory\n"));
    EXPECT_EQ(rack.run("--check"), says("OK - 1 board | 'card-0 FPGA'=45.5C\n")) << "no verdict comes of it";
}

TEST(workers, a_board_that_cannot_be_looked_for_is_not_read)
{
    three_boards_t rack{R"("errno": "EIO")"};
    rack.faults(R"({"call": "ivra_hw_filter_create", "nth": 2, "errno": "ENOMEM"})"); // of the process that reads
    EXPECT_EQ(rack.run("--text --jobs 1"), (run_t{screen_without_second("Cannot allocate memory"), "", 2}));
}

TEST(workers, that_cannot_be_waited_for_are_a_failure)
{
    three_boards_t rack{R"("errno": "EIO")"};
    rack.environment("IVRA_VIRTUAL_TRACE"); // those that read go on, and may trace more than is looked at here
    rack.forbid({SYS_poll}, ENOMEM);
    EXPECT_EQ(rack.run("--text"), fails("ivra-bsp readings: Cannot wait for boards: Cannot allocate memory\n"));
}

TEST(workers, a_crash_of_all_is_unknown_and_a_failure)
{
    readings_rack_t rack;
    rack.plug("xilinx_u50").faults(R"({"call": "ivra_hw_top_get_board_name", "signal": "SIGABRT"})");
    EXPECT_EQ(rack.run("--check"), (run_t{"UNKNOWN - 1 board, 1 unknown; card-0: The board could not be read: "
                                          "what read it was ended by signal 6 (Aborted)\n",
                                          "", 3}));
    EXPECT_EQ(rack.run("--json").status, 1);
}

TEST(workers, one_that_hangs_is_left_behind_and_keeps_no_pipe_open)
{
    three_boards_t rack{R"("delay": "10 s")"};
    rack.environment("IVRA_VIRTUAL_CLOCK"); // time passes by itself
    EXPECT_EQ(rack.run_by_shell("", "--timeout 1 --jobs 1 --text 7>&1 | cat").out, screen_without_second("deadline"));
    EXPECT_EQ(traced(rack, hanging_call).size(), 0U) << "the pipe was closed when the worker was through";
}

#if IVRA_SWEEP_STEP == 1 // sanitizers make false reports where they get no descriptors to look at memory
TEST(workers, are_fewer_where_descriptors_are_few)
{
    readings_rack_t rack;
    for (int board = 0; board < 10; ++board)
        rack.plug("m48l_xcvu7p");
    rack.host(plain_host).program("/bin/sh");
    const std::string few = "ulimit -n 12; exec " IVRA_BSP_READINGS " --jobs 64 --parts flash --check";
    EXPECT_EQ(rack.run(std::vector<std::string>{"-c", few}), says("OK - 10 boards\n"));
}

TEST(workers, that_cannot_be_started_cost_every_board_and_leave_a_document)
{
    readings_rack_t rack;
    rack.plug("xilinx_u50").plug("xilinx_u50").program("/bin/sh");
    rack.environment("IVRA_VIRTUAL_TRACE").environment("IVRA_VIRTUAL_CLOCK"); // which have descriptors, too
    const std::string none = "exec 3</dev/null; ulimit -n 5; exec " IVRA_BSP_READINGS " --text";
    const std::string why = "The board could not be read: Cannot make a socket: Too many open files\n";
    EXPECT_EQ(rack.run(std::vector<std::string>{"-c", none}),
              (run_t{"Health   ID  Name\n"
                     "unknown  0   card-0\n"
                     "unknown  1   card-1\n"
                     "\n"
                     "unknown: card-0: " +
                         why + "unknown: card-1: " + why + "\n2 boards: unknown\n",
                     "", 1}));
}

TEST(workers, are_no_processes_where_the_system_has_no_room_for_them)
{
    readings_rack_t rack;
    rack.plug("xilinx_u50").forbid({SYS_clone, SYS_clone3, SYS_vfork}, EAGAIN);
    EXPECT_EQ(rack.run("--check"),
              (run_t{"UNKNOWN - 1 board, 1 unknown; card-0: The board could not be read: "
                     "Cannot start a process that reads boards: Resource temporarily unavailable\n",
                     "", 3}));
}
#endif

TEST(workers, are_told_to_end_by_the_signal_that_ends_the_program)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        three_boards_t rack{R"("delay": "10 s")"};
        rack.environment("IVRA_VIRTUAL_CLOCK");
        running_t run = rack.start("--lines --jobs 1");
        while (calls(rack, "ivra_hw_top_get_board_name") == 0) // the first board; the worker goes on to the second one
            continue;
        run.signal(signal);
        const run_t ended = run.end();
        EXPECT_EQ(ended.status, 128 + signal);
        EXPECT_EQ(ended.err, "");
        wait_for_end(worker_of(rack));
        EXPECT_EQ(traced(rack, hanging_call).size(), 0U) << "it was not told";
    }
}

TEST(workers, that_were_left_behind_are_told_to_end_too)
{
    three_boards_t rack{R"("delay": "10 s")"};
    rack.environment("IVRA_VIRTUAL_CLOCK");
    running_t run = rack.start("--json --timeout 1 --jobs 1", {.out = stream_t::full_pipe});
    ASSERT_TRUE(run.waits_to_write()); // all is read but the second board
    run.signal(SIGTERM);
    EXPECT_EQ(run.end().status, 128 + SIGTERM);
    wait_for_end(worker_of(rack));
    EXPECT_EQ(traced(rack, hanging_call).size(), 0U) << "it was not told";
}

TEST(workers, that_follow_a_crash_of_the_first_one_are_told_to_end)
{
    readings_rack_t rack;
    for (int board = 0; board < 3; ++board)
        rack.plug("m48l_xcvu7p");
    rack.host(plain_host).environment("IVRA_VIRTUAL_CLOCK").environment("ASAN_OPTIONS=handle_segv=0");
    rack.faults(R"({"call": "ivra_hw_top_get_board_name", "accelerator": "card-0", "signal": "SIGSEGV"},
                   {"call": "ivra_hw_top_get_board_name", "accelerator": "card-2", "delay": "10 s"})");
    running_t run = rack.start("--lines --jobs 1");
    while (calls(rack, "ivra_hw_top_get_board_name") == 0) // the second board; the worker goes on to the third one
        continue;
    run.signal(SIGINT);
    EXPECT_EQ(run.end().status, 128 + SIGINT);
    wait_for_end(worker_of(rack));
    EXPECT_EQ(traced(rack, "ivra_hw_top_get_board_name(0000:02:00.0").size(), 0U) << "it was not told";
}

/// A plain switch, and a board at which the log says more than a socket holds that nobody reads.
class talkative_t : public readings_rack_t
{
public:
    talkative_t()
    {
        plug("m48l_xcvu7p").plug("bittware_xupp3r", {{"bmc", R"({"sensors": {"only": true, "list": [
            {"name": "12V0", "unit": "V", "value": 12, "m": 1}]}})"}});
        host(plain_host).faults(R"({"call": "ivra_uart_read", "log": ")" + std::string(900, 'x') + "\"}");
    }
    std::size_t requests() const { return calls(*this, "ivra_uart_write_all"); }
};
const std::string sensors_of_both = "--parts sensors --lines --jobs 2";

TEST(workers, go_on_with_a_board_while_nobody_hears_what_its_log_says)
{
    talkative_t rack;
    ASSERT_EQ(rack.run(sensors_of_both).status, 0);
    const std::size_t requests = rack.requests();
    ASSERT_GT(requests, 1U);
    ASSERT_GT(calls(rack, "ivra_uart_read"), 150U) << "of a line of almost a kilobyte each";
    running_t run = rack.start(sensors_of_both, {.out = stream_t::full_pipe});
    ASSERT_TRUE(run.waits_to_write());
    while (rack.requests() < requests)
        continue;
    run.signal(SIGTERM);
    run.end();
}

TEST(workers, go_on_with_a_board_when_the_program_was_killed)
{
    talkative_t rack;
    ASSERT_EQ(rack.run(sensors_of_both).status, 0);
    const std::size_t requests = rack.requests();
    running_t run = rack.start("-a 1 " + sensors_of_both);
    while (rack.requests() == 0)
        continue;
    run.signal(SIGKILL);
    run.end();
    wait_for_end(worker_of(rack));
    EXPECT_EQ(rack.requests(), requests);
}

TEST(workers, take_a_signal_when_a_module_shows_its_first_page_again)
{
    readings_rack_t rack;
    rack.plug("xilinx_u200", {{"i2c", R"({"cages": ["qsfp28-sr4", "qsfpdd-dr4"]})"}});
    const std::string document = rack.run("--parts modules --lines").out;
    for (int nth = 1; nth <= 4; ++nth) {
        rack.faults(R"({"call": "ivra_i2c_bus_write_register", "signal": "SIGTERM", "when": "after", "nth": )" +
                    std::to_string(nth) + "}");
        EXPECT_EQ(rack.run("--parts modules --check"),
                  (run_t{"UNKNOWN - 1 board, 1 unknown; card-0: The board could not be read: "
                         "what read it was ended by signal 15 (Terminated)\n",
                         "", 3}));
        const std::vector<std::string> selected = traced(rack, "0x50, 0x7f, [");
        ASSERT_FALSE(selected.empty());
        EXPECT_TRUE(selected.back().starts_with("0x50, 0x7f, [00]")) << selected.back();
        rack.faults("");
        EXPECT_EQ(without_moment(rack.run("--parts modules --lines").out), without_moment(document));
    }
}

TEST(workers, take_a_signal_when_a_bmc_has_answered)
{
    readings_rack_t rack;
    rack.plug("bittware_xupp3r");
    const std::string document = rack.run("--parts sensors --lines").out;
    for (const char* nth : {"1", "2", "9"}) {
        rack.faults(std::string{R"({"call": "ivra_uart_write_all", "signal": "SIGTERM", "when": "after", "nth": )"} +
                    nth + "}");
        EXPECT_EQ(rack.run("--parts sensors --json").status, 1);
        rack.faults("");
        EXPECT_EQ(without_moment(rack.run("--parts sensors --lines").out), without_moment(document))
            << "nothing was left on the line";
    }
}

TEST(workers, change_nothing_on_a_board)
{
    readings_rack_t rack;
    rack.environment("IVRA_VIRTUAL_RACK=" IVRA_RACKS "/showcase.json");
    EXPECT_EQ(rack.run("--json").status, 2);
    const std::regex changes{"ivra_(i2c_write|i2c_bus_write|flash_write|hw_top_update)[a-z_]*\\(.*"};
    const std::regex allowed{"ivra_i2c_write_control_pins\\(0000:..:00.0, 0x1\\).*|"                   // the enable pin
                             "ivra_i2c_bus_write\\(0000:..:00.0, 0x7[0-7], \\[..\\]\\).*|"             // a multiplexer
                             "ivra_i2c_bus_write_register\\(0000:..:00.0, 0x50, 0x7f, \\[..\\]\\).*"}; // a page
    std::size_t count = 0;
    for (const std::string& call : traced(rack, "ivra_")) {
        if (!std::regex_match(call, changes))
            continue;
        ++count;
        EXPECT_TRUE(std::regex_match(call, allowed)) << call;
    }
    EXPECT_GT(count, 10U);
}

TEST(workers, signals_end_the_program_also_while_nobody_reads_what_it_writes)
{
    for (const char* format : {"--json", "--lines"})
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
            readings_rack_t rack;
            rack.plug("m48l_xcvu7p").host(plain_host);
            running_t run = rack.start(format, {.out = stream_t::full_pipe});
            ASSERT_TRUE(run.waits_to_write());
            run.signal(signal);
            EXPECT_EQ(run.end().status, 128 + signal);
        }
}

TEST(workers, a_signal_that_is_ignored_stays_ignored)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host).program("/usr/bin/nohup");
    running_t run = rack.start(IVRA_BSP_READINGS " --json", {.out = stream_t::full_pipe});
    ASSERT_TRUE(run.waits_to_write());
    run.signal(SIGHUP);
    ASSERT_TRUE(run.waits_to_write());
    run.signal(SIGTERM);
    EXPECT_EQ(run.end().status, 128 + SIGTERM);
}

TEST(workers, lines_that_nobody_takes_end_the_reading)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p").host(plain_host);
    EXPECT_EQ(rack.run("--lines --jobs 1", {.out = stream_t::broken_pipe}), (run_t{"", "", 1}));
    EXPECT_EQ(traced(rack, "ivra_hw_top_get_board_name(0000:01:00.0").size(), 0U);
    EXPECT_EQ(rack.run("--lines --announce", {.out = stream_t::broken_pipe}), (run_t{"", "", 1}));
    EXPECT_EQ(calls(rack, "ivra_hw_top_get_board_name"), 0U) << "nobody was told which boards there are";
}

TEST(workers, that_are_waited_for_are_named_on_a_terminal)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p", {{"name", R"("a name\u001b[2J that would fill a whole line of the screen")"}})
        .host(plain_host)
        .environment("IVRA_VIRTUAL_CLOCK")
        .faults(R"({"call": "ivra_hw_top_get_board_name", "delay": "800 ms"})");
    const run_t run = rack.run("--check", {.err = stream_t::terminal});
    EXPECT_TRUE(run.err.starts_with("\r\033[K0 of 1 boards, waiting for a name?[2J that would f… (0.")) << run.err;
    EXPECT_TRUE(run.err.ends_with(" s)\r\033[K")) << run.err;
    EXPECT_EQ(run.status, 0);
}

TEST(workers, the_line_that_names_them_fits_into_a_narrow_terminal)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p")
        .host(plain_host)
        .program("/bin/sh")
        .environment("IVRA_VIRTUAL_CLOCK")
        .faults(R"({"call": "ivra_hw_top_get_board_name", "delay": "800 ms"})");
    const std::vector<std::string> words{"-c", "stty columns 30 <&2; exec " IVRA_BSP_READINGS " --check"};
    const run_t run = rack.run(words, {.err = stream_t::terminal});
    EXPECT_TRUE(run.err.starts_with("\r\033[K0 of 1 boards, waiting for c…\r\033[K")) << run.err;
    EXPECT_EQ(run.status, 0);
}

/// A board that keeps a line on the terminal.
class waiting_t : public readings_rack_t
{
public:
    waiting_t()
    {
        plug("m48l_xcvu7p").host(plain_host).environment("IVRA_VIRTUAL_CLOCK");
        faults(R"({"call": "ivra_hw_top_get_board_name", "delay": "10 s"})");
    }
};

TEST(workers, the_line_that_names_them_is_wiped_when_a_signal_ends_the_program)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        waiting_t rack;
        running_t run = rack.start("--check", {.err = stream_t::terminal});
        ASSERT_TRUE(run.speaks());
        run.signal(signal);
        const run_t ended = run.end();
        EXPECT_EQ(ended.status, 128 + signal);
        EXPECT_TRUE(ended.err.starts_with("\r\033[K0 of 1 boards, waiting for card-0 (0.")) << ended.err;
        EXPECT_TRUE(ended.err.ends_with(" s)\r\033[K")) << ended.err;
    }
}

TEST(workers, nothing_is_wiped_where_no_line_was_shown)
{
    waiting_t rack;
    running_t run = rack.start("--check", {.err = stream_t::terminal});
    while (calls(rack, "ivra_hw_accelerator_get") == 0)
        continue;
    run.signal(SIGTERM);
    const run_t ended = run.end();
    EXPECT_EQ(ended.status, 128 + SIGTERM);
    EXPECT_TRUE(ended.err.empty() || ended.err.find("waiting for") != std::string::npos) // on a slow machine
        << ended.err;
}

TEST(workers, a_terminal_that_is_held_delays_no_end_by_a_signal)
{
    waiting_t rack;
    running_t run = rack.start("--check", {.err = stream_t::held});
    ASSERT_TRUE(run.waits_to_write());
    run.signal(SIGTERM);
    EXPECT_EQ(run.end().status, 128 + SIGTERM);
}

} // namespace
} // namespace ivra::tests
