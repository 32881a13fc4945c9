#include "screens.h"
#include "support/rack.h"

#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

const std::string xmc_not_initialized = "get_board_serial_stat: Error retrieving serial for board card-0: "
                                        "Could not get board serial as Alveo XMC subsystem is not initialized.\n";

std::string bring_up_failed(const std::string& why)
{
    return "get_xmc: Could not initialize Alveo XMC subsystem: " + why + "\n";
}

members_t xmc(const std::string& text)
{
    return {{"xmc", text}};
}

members_t card(const std::string& text)
{
    return xmc(R"({"card": )" + text + "}");
}

std::size_t count(const std::string& text, const std::string& piece)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1))
        ++found;
    return found;
}

TEST(alveo, boards_list_their_serials)
{
    for (const std::string model : {"xilinx_u200", "xilinx_u250", "xilinx_u50", "xilinx_u55c"}) {
        rack_t rack;
        rack.plug(model, card(R"({"serial": "VRT0001"})"));
        EXPECT_EQ(rack.run("list"), says(listed("card-0", "0", model, "02:00:00:00:00:00", "VRT0001")));
    }
}

TEST(alveo, show_info_has_the_serial_with_every_byte_of_it)
{
    rack_t rack;
    rack.plug("xilinx_u50", card(R"({"serial": "VRT\u0000"})"));
    EXPECT_EQ(rack.run("show info").out, info("xilinx_u50", {"VRT\0", 4}));
    EXPECT_NE(rack.run("show info --json").out.find(R"("Board serial":"VRT\u0000")"), std::string::npos);
}

TEST(alveo_bring_up, writes_the_reset_and_looks_at_the_status_every_100_ms)
{
    rack_t rack;
    rack.plug("xilinx_u50", xmc(R"({"ready_after": ["0.5 s", "1.5 s"], "card": {"serial": "S1"}})"));
    rack.run("show sensors");
    EXPECT_EQ(count(rack.trace(), " ivra_hw_write("), 1U);
    EXPECT_EQ(count(rack.trace(), " 0x28018[31:0]"), 16U) << "at 0, 0.1 ... 1.5 s";
    rack.run("show sensors");
    EXPECT_EQ(count(rack.trace(), " 0x28018[31:0]"), 1U) << "it is ready from then on";
}

TEST(alveo_bring_up, needs_both_bits_of_the_status)
{
    for (const std::string times : {R"(["0.5 s", "1.5 s"])", R"(["1.5 s", "0.5 s"])"}) {
        rack_t rack;
        rack.plug("xilinx_u50", xmc(R"({"ready_after": )" + times + "}"));
        rack.run("show sensors");
        EXPECT_EQ(count(rack.trace(), " 0x28018[31:0]"), 16U) << times;
    }
}

TEST(alveo_bring_up, gives_up_after_150_looks_and_says_what_it_saw)
{
    for (const std::string times : {R"(["never", "never"])", R"(["never", "0.5 s"])", R"(["0.5 s", "never"])"}) {
        rack_t rack;
        rack.plug("xilinx_u50", xmc(R"({"error": "0xbad0", "ready_after": )" + times + "}"));
        const run_t run = rack.run("show info");
        const std::string begin = "get_xmc: Could not initialize Alveo XMC subsystem: XMC init timeout: status: 0x";
        const std::string end =
            ", error: 0xbad0: Connection timed out\n" + info("xilinx_u50", "Error"); // the board still works
        EXPECT_TRUE(run.out.starts_with(begin)) << run.out;
        EXPECT_TRUE(run.out.ends_with(end)) << run.out;
        EXPECT_EQ(run.err, xmc_not_initialized);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(count(rack.trace(), " 0x28018[31:0]"), 151U) << "and once more for the message";
        EXPECT_EQ(count(rack.trace(), " ivra_hw_shared_mutex_unlock("), 1U);
        EXPECT_LT(rack.trace().find(" ivra_hw_shared_mutex_unlock("), rack.trace().find("\"get_xmc\""))
            << "nothing is said under the lock";
    }
}

TEST(alveo_bring_up, pauses_after_the_last_look_too)
{
    // The 150th look is at 14.9 s; the message shows what the status is at 15 s.
    rack_t rack;
    rack.plug("xilinx_u50", xmc(R"({"error": "0xbad0", "ready_after": ["0.5 s", "14.95 s"]})"));
    EXPECT_EQ(rack.run("show info").out,
              bring_up_failed("XMC init timeout: status: 0x13018801, error: 0xbad0: Connection timed out") +
                  info("xilinx_u50", "Error"));
}

TEST(alveo_bring_up, asks_for_at_most_100_cores)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    rack.run("show sensors");
    EXPECT_EQ(count(rack.trace(), " ivra_hw_core_enumerate(0000:00:00.0, root, 475, 100) = 1"), 1U) << rack.trace();
}

TEST(alveo_bring_up, takes_the_lock_of_the_alveo_controller_of_this_board_first)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    rack.run("show sensors");
    const std::string trace = rack.trace();
    EXPECT_NE(trace.find("ivra_hw_shared_mutex_create(\"ivra-bsp-bmc-alveo-"), std::string::npos) << trace;
    EXPECT_LT(trace.find(" ivra_hw_shared_mutex_lock("), trace.find(" ivra_hw_write("));
}

TEST(alveo_bring_up, that_times_out_leaves_out_what_cannot_be_read)
{
    struct row_t
    {
        std::string fault;
        std::string begin;
        std::string end;
    };
    const std::vector<row_t> rows{
        {R"("nth": 151)", "XMC init timeout: error: 0xbad0: Connection timed out\n", ""},
        {R"("nth": 152)", "XMC init timeout: status: 0x", ": Connection timed out\n"},
        {R"("from": 151)", "Cannot read XMC status and error: Input/output error\n", ""},
    };
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("xilinx_u50", xmc(R"({"error": "0xbad0", "ready_after": ["never", "never"]})"));
        rack.faults(R"({"call": "ivra_hw_read", "errno": "EIO", )" + row.fault + "}");
        const run_t run = rack.run("show sensors");
        const std::string line = run.out.substr(0, run.out.find('\n') + 1);
        EXPECT_TRUE(line.starts_with("get_xmc: Could not initialize Alveo XMC subsystem: " + row.begin)) << line;
        EXPECT_TRUE(line.ends_with(row.end)) << line;
        EXPECT_EQ(line.find("status: 0x") != std::string::npos && line.find("error: 0x") != std::string::npos, false);
        EXPECT_EQ(run.err, "Could not get board sensors as Alveo XMC subsystem is not initialized.\n");
    }
}

TEST(alveo_bring_up, that_fails_is_one_line_in_the_log)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"("call": "ivra_hw_core_enumerate")",      "XMC core not found: Invalid argument"},
        {R"("call": "ivra_hw_prop_get_uid")",        "Error getting MMIO UID: Input/output error"},
        {R"("call": "ivra_hw_shared_mutex_create")", "Input/output error"},
        {R"("call": "ivra_hw_shared_mutex_lock")",   "Input/output error"},
        {R"("call": "ivra_hw_write")",               "Cannot unset XMC reset: Input/output error"},
        {R"("call": "ivra_hw_read")",                "Cannot read XMC status: Input/output error"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("xilinx_u50");
        rack.faults(std::string{"{"} + row.fault + R"(, "errno": "EIO"})");
        const run_t run = rack.run("show info");
        EXPECT_EQ(run.out, bring_up_failed(row.text) + info("xilinx_u50", "Error"));
        EXPECT_EQ(run.err, xmc_not_initialized);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(count(rack.trace(), " ivra_hw_shared_mutex_lock("),
                  count(rack.trace(), " ivra_hw_shared_mutex_unlock(") +
                      (std::string{row.fault}.find("mutex_lock") != std::string::npos ? 1 : 0));
    }
}

TEST(alveo_bring_up, says_in_the_log_where_it_failed)
{
    rack_t rack;
    rack.plug("xilinx_u50", xmc("null"));
    rack.run("show info");
    EXPECT_NE(rack.trace().find("ivra_log_log(1, \"src/board/alveo\", 18, \"get_xmc\", "), std::string::npos)
        << rack.trace();
}

TEST(alveo_bring_up, without_a_core_works_for_everything_else)
{
    rack_t rack;
    rack.plug("xilinx_u50", xmc("null"));
    const run_t run = rack.run("show flash");
    EXPECT_TRUE(run.out.starts_with(bring_up_failed("XMC core not found: Invalid argument") + "Flash memory\n"));
    EXPECT_EQ(run.status, 0);
}

TEST(alveo_bring_up, takes_the_first_of_several_cores)
{
    rack_t rack;
    rack.plug("xilinx_u50", xmc(R"([{"card": {"serial": "FIRST"}}, {"card": {"serial": "SECOND"}}])"));
    EXPECT_EQ(rack.run("show info"), says(info("xilinx_u50", "FIRST")));
}

TEST(alveo_bring_up, whose_unlock_fails_after_success_ends_the_command)
{
    rack_t rack;
    rack.plug("xilinx_u50").faults(R"({"call": "ivra_hw_shared_mutex_unlock", "errno": "EIO"})");
    EXPECT_EQ(rack.run("show info"), fails("Input/output error\n"));
}

TEST(alveo_bring_up, whose_unlock_fails_after_a_failure_reports_the_failure)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    rack.faults(R"({"call": "ivra_hw_shared_mutex_unlock", "errno": "EACCES"},
                   {"call": "ivra_hw_write", "errno": "EIO"})");
    EXPECT_EQ(rack.run("show info").out,
              bring_up_failed("Cannot unset XMC reset: Input/output error") + info("xilinx_u50", "Error"));
}

/// A rack with a U50 whose XMC is ready.
void plug_ready(rack_t& rack, const members_t& members)
{
    rack.plug("xilinx_u50", members);
    rack.run("show sensors");
}

/// Register accesses in the last run's trace, in order: "r 0x28018 = 0: 0x13018801" without process and time.
std::vector<std::string> conversation(const rack_t& rack)
{
    std::vector<std::string> found;
    std::istringstream trace{rack.trace()};
    for (std::string line; std::getline(trace, line);) {
        line = line.substr(0, line.find(" (fault plan)"));
        const bool is_read = line.find(" ivra_hw_read(") != std::string::npos;
        if (!is_read && line.find(" ivra_hw_write(") == std::string::npos)
            continue;
        const std::size_t bits = line.find('[');
        const std::size_t begin = line.rfind(' ', bits) + 1;
        std::string access = (is_read ? "r " : "w ") + line.substr(begin, bits - begin);
        const std::size_t value = is_read ? line.rfind(' ') + 1 : line.find(", ", bits) + 2;
        const std::size_t end = is_read ? line.size() : line.find(')', value);
        found.push_back(access + " " + line.substr(value, end - value));
    }
    return found;
}

TEST(alveo_mailbox, is_asked_for_the_card_information_word_by_word)
{
    rack_t rack;
    plug_ready(rack, card(R"({"raw": "2103414243"})"));
    EXPECT_EQ(rack.run("show info"), says(info("xilinx_u50", "ABC")));
    EXPECT_EQ(conversation(rack), (std::vector<std::string>{
                                      "w 0x20010 0x1",
                                      "r 0x28018 0x13018801",
                                      "r 0x28310 0x1000",
                                      "w 0x29010 0x4000000", // the request
                                      "r 0x28028 0x0",
                                      "w 0x28028 0x20", // posted
                                      "r 0x28028 0x20", // at once, after 10 and 20 ms
                                      "r 0x28028 0x20",
                                      "r 0x28028 0x20",
                                      "r 0x28028 0x0", // answered after 30 ms
                                      "r 0x28314 0x0",
                                      "r 0x28310 0x1000",
                                      "r 0x29010 0x4000005", // five bytes in two words
                                      "r 0x29014 0x42410321",
                                      "r 0x29018 0x43",
                                      "r 0x28028 0x0",
                                      "r 0x28314 0x0",
                                  }));
}

/// Milliseconds between two register accesses in the last run's trace, which are its n-th ones, counted from 0.
long milliseconds_between(const rack_t& rack, std::size_t from, std::size_t to)
{
    std::vector<double> times;
    std::istringstream trace{rack.trace()};
    for (std::string line; std::getline(trace, line);)
        if (line.find(" ivra_hw_read(") != std::string::npos || line.find(" ivra_hw_write(") != std::string::npos)
            times.push_back(std::stod(line));
    return std::lround(1000 * (times.at(to) - times.at(from)));
}

TEST(alveo_mailbox, is_waited_for_10_ms_also_when_it_is_free_already)
{
    rack_t rack;
    plug_ready(rack, xmc(R"({"answer_after": "0 s", "card": {"raw": "2103414243"}})"));
    rack.run("show info");
    const std::vector<std::string> accesses = conversation(rack);
    ASSERT_EQ(accesses.size(), 14U);
    for (const std::size_t look : {6U, 12U}) {
        EXPECT_EQ(accesses[look], "r 0x28028 0x0");
        EXPECT_EQ(accesses[look + 1], "r 0x28314 0x0");
        EXPECT_EQ(milliseconds_between(rack, look, look + 1), 10);
    }
    EXPECT_EQ(milliseconds_between(rack, 0, 13), 20) << "and for nothing else";
}

TEST(alveo_mailbox, is_looked_for_again_before_the_response_is_read)
{
    rack_t rack;
    plug_ready(rack, card(R"({"raw": "2103414243"})"));
    rack.faults(R"({"call": "ivra_hw_read", "nth": 9, "garble": "04"})"); // the second offset: 0x1004
    rack.run("show info");
    const std::vector<std::string> accesses = conversation(rack);
    EXPECT_EQ(accesses.at(3), "w 0x29010 0x4000000");
    EXPECT_EQ(accesses.at(12), "r 0x29014 0x42410321");
    EXPECT_EQ(accesses.at(13).substr(0, 9), "r 0x29018");
}

TEST(alveo_mailbox, other_bits_of_the_control_word_are_kept_and_mean_nothing)
{
    rack_t rack;
    plug_ready(rack, xmc(R"({"answer_after": "0 s", "card": {"raw": "2103414243"}})"));
    // Bits 31, 6, 4 and 0 before the posting, which sets them for good; bits 30 and 7, and not 4 and 0, in the first
    // look after it; and then an error that has to be cleared.
    rack.faults(R"({"call": "ivra_hw_read", "nth": 3, "garble": "51000080"},
                   {"call": "ivra_hw_read", "nth": 4, "garble": "91000040"},
                   {"call": "ivra_hw_read", "nth": 5, "garble": "00000080"})");
    EXPECT_EQ(rack.run("show info").err, serial_failed("XMC mailbox packet error: Input/output error"));
    EXPECT_EQ(conversation(rack), (std::vector<std::string>{
                                      "w 0x20010 0x1",
                                      "r 0x28018 0x13018801",
                                      "r 0x28310 0x1000",
                                      "w 0x29010 0x4000000",
                                      "r 0x28028 0x80000051",
                                      "w 0x28028 0x80000071",
                                      "r 0x28028 0xc00000c0",
                                      "r 0x28314 0x80000000",
                                      "w 0x28028 0xc00000c2",
                                  }));
}

TEST(alveo_mailbox, failures_have_their_sentences_and_release_the_lock)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"("call": "ivra_hw_read", "nth": 2)",   "Cannot get XMC mailbox offset: Input/output error"},
        {R"("call": "ivra_hw_write", "nth": 2)",  "Cannot write to XMC mailbox: Input/output error"},
        {R"("call": "ivra_hw_read", "nth": 3)",   "Cannot read XMC control register: Input/output error"},
        {R"("call": "ivra_hw_write", "nth": 3)",  "Cannot write to XMC control register: Input/output error"},
        {R"("call": "ivra_hw_read", "nth": 4)",   "Cannot read XMC control: Input/output error"},
        {R"("call": "ivra_hw_read", "nth": 8)",   "Cannot read XMC host msg error: Input/output error"},
        {R"("call": "ivra_hw_read", "nth": 9)",   "Cannot get XMC mailbox offset: Input/output error"},
        {R"("call": "ivra_hw_read", "nth": 10)",  "Cannot read XMC mailbox content: Input/output error"},
        {R"("call": "ivra_hw_read", "nth": 11)",  "Cannot read XMC mailbox content: Input/output error"},
        {R"("call": "ivra_hw_shared_mutex_lock", "nth": 2)", "Input/output error"},
        {R"("call": "ivra_hw_shared_mutex_unlock", "nth": 2)", "Input/output error"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        plug_ready(rack, card(R"({"raw": "2103414243"})"));
        rack.faults(std::string{"{"} + row.fault + R"(, "errno": "EIO"})");
        const run_t run = rack.run("show info");
        EXPECT_EQ(run, (run_t{info("xilinx_u50", "Error"), serial_failed(row.text), 0})) << row.fault;
        EXPECT_EQ(count(rack.trace(), " ivra_hw_shared_mutex_unlock("),
                  std::string{row.fault}.find("mutex_lock") == std::string::npos ? 2U : 1U);
    }
}

TEST(alveo_mailbox, is_waited_for_once_more_before_the_response_is_decoded)
{
    const auto failing = [](const std::string& nth) {
        rack_t rack;
        plug_ready(rack, card(R"({"raw": "2103"})")); // which cannot be decoded
        rack.faults(R"({"call": "ivra_hw_read", "errno": "EIO", "nth": )" + nth + "}");
        return rack.run("show info").err;
    };
    EXPECT_EQ(failing("12"), serial_failed("Cannot read XMC control: Input/output error"));
    EXPECT_EQ(failing("13"), serial_failed("Cannot read XMC host msg error: Input/output error"));
    EXPECT_EQ(failing("14"), serial_failed("Invalid XMC card info field size received"));
}

TEST(alveo_mailbox, that_reports_an_error_is_told_to_clear_it)
{
    rack_t rack;
    plug_ready(rack, card(R"({"raw": "2103414243"})"));
    rack.faults(R"({"call": "ivra_hw_read", "nth": 8, "garble": "01"})");
    EXPECT_EQ(rack.run("show info").err, serial_failed("XMC mailbox packet error: Input/output error"));
    EXPECT_EQ(conversation(rack).back(), "w 0x28028 0x2");
}

TEST(alveo_mailbox, whose_error_cannot_be_cleared_fails_with_error_value_0)
{
    rack_t rack;
    plug_ready(rack, card(R"({"raw": "2103414243"})"));
    rack.faults(R"({"call": "ivra_hw_read", "nth": 8, "garble": "01"},
                   {"call": "ivra_hw_write", "nth": 4, "errno": "EIO"})");
    EXPECT_EQ(rack.run("show info").err, serial_failed("Cannot reset XMC control error: Success"));
}

TEST(alveo_mailbox, that_never_answers_times_out_after_500_polls)
{
    rack_t rack;
    plug_ready(rack, xmc(R"({"answer_after": "never"})"));
    EXPECT_EQ(rack.run("show info").err, serial_failed("XMC mailbox packet error: Connection timed out"));
    EXPECT_EQ(count(rack.trace(), " 0x28028[31:0]"), 502U) << "500 polls, and the posting";
}

TEST(alveo_mailbox, that_answers_in_the_last_poll_times_out_all_the_same)
{
    rack_t last;
    plug_ready(last, xmc(R"({"answer_after": "4985 ms", "card": {"serial": "S1"}})"));
    EXPECT_EQ(last.run("show info").err, serial_failed("XMC mailbox packet error: Connection timed out"));
    EXPECT_EQ(conversation(last).back(), "r 0x28028 0x0") << "the bit was clear, and not looked at";
    rack_t last_but_one;
    plug_ready(last_but_one, xmc(R"({"answer_after": "4975 ms", "card": {"serial": "S1"}})"));
    EXPECT_EQ(last_but_one.run("show info"), says(info("xilinx_u50", "S1")));
}

TEST(alveo_mailbox, of_a_dead_link_that_reads_all_ones_is_an_error)
{
    rack_t rack;
    rack.plug("xilinx_u50", xmc(R"({"dead_link": true})"));
    const run_t run = rack.run("show info");
    EXPECT_TRUE(run.err.starts_with(
        "get_board_serial_stat: Error retrieving serial for board card-0: Cannot write to XMC mailbox: "))
        << run.err;
    EXPECT_EQ(run.status, 0);
}

/// Hexadecimal of a payload of this size that begins with the serial "A" and goes on with other fields.
std::string payload_of(std::size_t size)
{
    std::string raw = "210141";
    for (std::size_t left = size - 3; left > 0;) {
        const std::size_t field = left > 257 ? (left == 258 ? 256 : 257) : left;
        std::ostringstream head;
        head << "30" << std::hex << (field - 2 < 16 ? "0" : "") << field - 2;
        raw += head.str();
        for (std::size_t i = 2; i < field; ++i)
            raw += "55";
        left -= field;
    }
    return raw;
}

TEST(card_information, of_0_and_of_4092_bytes_and_more_is_refused_and_of_4091_accepted)
{
    const auto shown = [](const std::string& raw) {
        rack_t rack;
        rack.plug("xilinx_u50", card(R"({"raw": ")" + raw + R"("})"));
        return rack.run("show info");
    };
    EXPECT_EQ(shown("").err, serial_failed("Invalid XMC mailbox packet payload size: 0"));
    EXPECT_EQ(shown(payload_of(4091)), says(info("xilinx_u50", "A")));
    EXPECT_EQ(shown(payload_of(4092)).err, serial_failed("Invalid XMC mailbox packet payload size: 4092"));
    EXPECT_EQ(shown(payload_of(4095)).err, serial_failed("Invalid XMC mailbox packet payload size: 4095"));
}

TEST(card_information, that_is_malformed_is_an_error_and_a_repeated_key_keeps_its_first_value)
{
    const auto shown = [](const std::string& raw) {
        rack_t rack;
        rack.plug("xilinx_u50", card(R"({"raw": ")" + raw + R"("})"));
        const run_t run = rack.run("show info");
        return run.err.empty() ? run.out : run.err;
    };
    EXPECT_EQ(shown("21014127"), serial_failed("Invalid XMC card info received"));
    EXPECT_EQ(shown("21034142"), serial_failed("Invalid XMC card info field size received"));
    EXPECT_EQ(shown("270141"), serial_failed("Cannot find board serial in XMC card info"));
    EXPECT_EQ(shown("210141210142"), info("xilinx_u50", "A"));
    EXPECT_EQ(shown("2100"), info("xilinx_u50", "")) << "a serial of no bytes";
}

TEST(alveo_lock, is_free_again_when_its_holder_was_killed_at_any_call)
{
    // The first run releases the XMC from reset and waits until it is ready; the second one finds it so.
    for (const bool ready : {false, true}) {
        for (const std::string call :
             {"ivra_hw_core_enumerate", "ivra_hw_shared_mutex_create", "ivra_hw_shared_mutex_lock",
              "ivra_hw_shared_mutex_unlock", "ivra_hw_write", "ivra_hw_read"}) {
            rack_t rack;
            const members_t members = xmc(R"({"ready_after": ["0.1 s", "0.3 s"], "card": {"raw": "2103414243"}})");
            rack.plug("xilinx_u50", members);
            if (ready)
                rack.run("show sensors");
            rack.run("show info");
            const std::size_t steps = calls(rack, call);
            ASSERT_GT(steps, 0U) << call;
            for (std::size_t nth = 1; nth <= steps; ++nth) {
                rack_t victim;
                victim.plug("xilinx_u50", members);
                if (ready)
                    victim.run("show sensors");
                victim.faults(R"({"call": ")" + call + R"(", "kill": "after", "nth": )" + std::to_string(nth) + "}");
                EXPECT_EQ(victim.run("show info").status, 128 + 9) << call << nth;
                victim.environment("IVRA_VIRTUAL_FAULTS");
                const run_t next = victim.run("show info");
                EXPECT_EQ(next, says(info("xilinx_u50", "ABC"))) << call << nth;
            }
        }
    }
}

} // namespace
} // namespace ivra::tests
