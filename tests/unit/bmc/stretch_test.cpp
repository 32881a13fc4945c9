// Stretches of requests to a simulated BMC whose line is out of step, or whose answers are late.

#include "bmc/bittware/bmc.h"
#include "hw/uart.h"
#include "support/outcome.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace ivra::bsp::bmc::bittware {
namespace {

using tests::printed;

/// A board with this BMC, which does not show what its log says.
class bmc_rack_t : public tests::rack_t
{
public:
    explicit bmc_rack_t(const std::string& members)
    {
        plug("bittware_xupp3r", {{"bmc", members}}).environment("IVRA_LOG_LEVEL=0");
    }
};

/// Leaves the answer to Get Device ID, of 17 bytes, in the UART.
void leave_an_answer(const hw::core& root)
{
    v6::uart::uart line{root};
    if (const std::error_code error =
            line.write_all(encode_frame(encode_request(0x06, 0x01, {})), std::chrono::milliseconds{100}))
        throw std::system_error{error};
}

/// Says what the first board's serial number is, or why it cannot be read, as many times.
void say_serials(stretch& requests, int times)
{
    for (int i = 0; i < times; ++i)
        std::cout << tests::said_by([&] { return requests.get_board_serial(); })
                  << (requests.failure().empty() ? "\n" : " (and has failed)\n");
}

/// What a stretch says of serial numbers, and how many bytes it drained.
std::string serials(bmc_rack_t& rack, int times)
{
    return printed(rack, [times](const hw::core& root) {
        bmc controller{root};
        stretch requests = controller.begin_stretch();
        say_serials(requests, times);
        requests.end();
        std::cout << requests.drained() << " bytes\n";
    });
}

const std::string late = "Cannot find IPMI transaction in response";

TEST(stretch, drops_an_answer_that_nobody_waited_for)
{
    bmc_rack_t rack{R"({"fru": {"serial": "S1"}})"};
    EXPECT_EQ(printed(rack, &leave_an_answer), "");
    EXPECT_EQ(serials(rack, 1), "S1\n17 bytes\n");
    EXPECT_EQ(serials(rack, 1), "S1\n0 bytes\n");
}

TEST(stretch, waits_for_an_answer_that_is_on_its_way)
{
    bmc_rack_t rack{R"({"fru": {"serial": "S1"}, "answers": [{"to": "0601", "latency": "105 ms"}]})"};
    EXPECT_EQ(printed(rack, &leave_an_answer), "");
    EXPECT_EQ(serials(rack, 1), "S1\n17 bytes\n");
}

TEST(stretch, takes_answers_of_a_bmc_that_is_as_slow_as_it_may_be)
{
    for (const char* latency : {"5 ms", "50 ms", "95 ms"}) {
        bmc_rack_t rack{std::string{R"({"fru": {"serial": "S1"}, "latency": ")"} + latency + "\"}"};
        EXPECT_EQ(serials(rack, 3), "S1\nS1\nS1\n0 bytes\n") << latency;
    }
}

TEST(stretch, is_in_step_again_after_an_answer_that_was_late)
{
    // The common header of the inventory: an answer of 4 + 9 bytes between start and stop byte.
    for (const char* latency : {"110 ms", "150 ms", "205 ms"}) {
        bmc_rack_t rack{std::string{R"({"fru": {"serial": "S1"},
            "answers": [{"to": "0a1100000008", "nth": 1, "latency": ")"} +
                        latency + "\"}]}"};
        EXPECT_EQ(serials(rack, 2), late + "\nS1\n15 bytes\n") << latency;
    }
}

TEST(stretch, has_failed_after_three_failures_in_a_row)
{
    bmc_rack_t rack{R"({"latency": "110 ms"})"};
    EXPECT_EQ(serials(rack, 4),
              late + '\n' + late + '\n' + late + " (and has failed)\n" + late + " (and has failed)\n45 bytes\n");
    EXPECT_EQ(tests::calls(rack, "ivra_uart_write_all"), 3U) << "then nothing is asked any more";
}

TEST(stretch, counts_failures_in_a_row)
{
    bmc_rack_t rack{R"({"fru": {"serial": "S1"}, "answers": [
        {"to": "0a1100000008", "nth": 1, "frame": ""}, {"to": "0a1100000008", "nth": 2, "frame": ""},
        {"to": "0a1100000008", "nth": 4, "frame": ""}, {"to": "0a1100000008", "nth": 5, "frame": ""},
        {"to": "0a1100000008", "nth": 7, "frame": ""}]})"};
    EXPECT_EQ(serials(rack, 8),
              late + '\n' + late + "\nS1\n" + late + '\n' + late + "\nS1\n" + late + "\nS1\n0 bytes\n");
}

TEST(stretch, takes_a_completion_code_for_an_answer)
{
    bmc_rack_t rack{R"({"answers": [{"to": "0a11", "code": "0xc0"}]})"};
    const std::string busy = "Error reading FRU data. Response code: 192\n";
    EXPECT_EQ(serials(rack, 4), busy + busy + busy + busy + "0 bytes\n");
}

TEST(stretch, of_a_board_whose_uart_fails_fails)
{
    bmc_rack_t rack{R"({"fru": {"serial": "S1"}})"};
    rack.faults(R"({"call": "ivra_uart_read", "nth": 5, "errno": "EIO"})");
    EXPECT_EQ(serials(rack, 1), "system error: Cannot read IPMI response: Input/output error")
        << "within the drain at its beginning";
    EXPECT_EQ(serials(rack, 1), "system error: Cannot read IPMI response: Input/output error");
    EXPECT_EQ(tests::calls(rack, "ivra_hw_shared_mutex_unlock"), 1U);

    rack.faults(R"({"call": "ivra_uart_write_all", "nth": 1, "errno": "EPIPE"})");
    EXPECT_EQ(serials(rack, 2), "Error sending IPMI data: Broken pipe\nS1\n0 bytes\n");
}

TEST(stretch, has_failed_when_its_line_cannot_be_drained)
{
    bmc_rack_t rack{R"({"silent": true})"};
    // The first 111 reads are the drain at the beginning.
    rack.faults(R"({"call": "ivra_uart_write_all", "errno": "EPIPE"},
                   {"call": "ivra_uart_read", "from": 112, "errno": "EIO"})");
    EXPECT_EQ(serials(rack, 2), "Error sending IPMI data: Broken pipe (and has failed)\n"
                                "Cannot read IPMI response: Input/output error (and has failed)\n0 bytes\n");
    EXPECT_EQ(tests::calls(rack, "ivra_uart_write_all"), 1U);
}

TEST(stretch, holds_the_lock_from_its_drain_to_its_end)
{
    bmc_rack_t rack{"{}"};
    serials(rack, 2);
    const std::string trace = rack.trace();
    EXPECT_EQ(tests::calls(rack, "ivra_hw_shared_mutex_lock"), 1U);
    EXPECT_EQ(tests::calls(rack, "ivra_hw_shared_mutex_unlock"), 1U);
    EXPECT_LT(trace.find(" ivra_hw_shared_mutex_lock("), trace.find(" ivra_uart_read("));
    EXPECT_GT(trace.find(" ivra_hw_shared_mutex_unlock("), trace.rfind(" ivra_uart_read("));
}

TEST(stretch, decodes_escapes_wherever_reads_divide_them)
{
    bmc_rack_t rack{R"({"fru": {"serial": {"hex": "aaa5a0a61b"}},
                        "answers": [{"to": "0a11", "pieces": [1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                         1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1]}]})"};
    EXPECT_EQ(serials(rack, 1), "\xAA\xA5\xA0\xA6\x1B\n0 bytes\n");
}

TEST(stretch, takes_an_answer_while_which_it_was_held_up_itself)
{
    for (int read = 130; read < 160; ++read) {
        bmc_rack_t rack{R"({"fru": {"serial": "S1"}, "answers": [{"to": "0a11", "pieces": [1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                            1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1]}]})"};
        rack.faults(R"({"call": "ivra_uart_read", "delay": "3 s", "nth": )" + std::to_string(read) + "}");
        EXPECT_EQ(serials(rack, 1), "S1\n0 bytes\n") << read;
    }
}

/// Asks for the serial number, says that this is done, asks once more.
const std::function<void(const hw::core&)> ask_twice = [](const hw::core& root) {
    bmc controller{root};
    stretch requests = controller.begin_stretch();
    say_serials(requests, 1);
    std::cout << "done" << std::endl;
    say_serials(requests, 1);
};

TEST(stretch, is_ended_by_a_signal_when_the_answer_has_been_read)
{
    bmc_rack_t rack{R"({"fru": {"serial": "S1"}, "latency": "50 ms"})"};
    rack.faults(R"({"call": "ivra_uart_write_all", "nth": 4, "signal": "SIGTERM"})");
    const tests::run_t run = rack.in_child([] { ask_twice(tests::root_core()); });
    EXPECT_EQ(run, (tests::run_t{"S1\ndone\n", "", 128 + SIGTERM}));
    EXPECT_EQ(tests::calls(rack, "ivra_uart_write_all"), 4U);
    rack.environment("IVRA_VIRTUAL_FAULTS");
    EXPECT_EQ(serials(rack, 1), "S1\n0 bytes\n") << "the answer was read";
}

TEST(stretch, is_ended_by_a_signal_when_a_late_answer_has_been_drained)
{
    bmc_rack_t rack{R"({"fru": {"serial": "S1"}, "answers": [{"to": "0a11", "nth": 1, "latency": "150 ms"}]})"};
    rack.faults(R"({"call": "ivra_uart_write_all", "nth": 1, "signal": "SIGTERM"})");
    const tests::run_t run = rack.in_child([] { ask_twice(tests::root_core()); });
    EXPECT_EQ(run, (tests::run_t{"", "", 128 + SIGTERM}));
    rack.environment("IVRA_VIRTUAL_FAULTS");
    EXPECT_EQ(serials(rack, 1), "S1\n0 bytes\n");
}

TEST(stretch, heals_what_a_killed_command_left)
{
    for (const char* latency : {"5 ms", "50 ms", "95 ms"})
        for (int request = 1; request <= 2; ++request) {
            bmc_rack_t rack{std::string{R"({"fru": {"serial": "S1"}, "configured_from": "backup", "latency": ")"} +
                            latency + "\"}"};
            rack.faults(R"({"call": "ivra_uart_write_all", "nth": )" + std::to_string(request) +
                        R"(, "kill": "after"})");
            EXPECT_EQ(rack.run("show boot-image").status, 128 + SIGKILL);
            rack.environment("IVRA_VIRTUAL_FAULTS");
            const std::string said = serials(rack, 2);
            EXPECT_TRUE(said.starts_with("S1\nS1\n")) << said;
            EXPECT_FALSE(said.ends_with("\n0 bytes\n")) << "there was nothing to heal";
            EXPECT_EQ(rack.run("show boot-image"), tests::says("Boot image\n"
                                                               "\tCurrent boot: backup\n"
                                                               "\tNext reload : primary\n"))
                << latency;
        }
}

} // namespace
} // namespace ivra::bsp::bmc::bittware
