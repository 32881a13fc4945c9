#include "story.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <signal.h>
#include <unistd.h>

namespace ivra::platform_tests {

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr std::uint64_t reset = 0x20010;
constexpr std::uint64_t status = 0x28018;
constexpr std::uint64_t error = 0x2801c;
constexpr std::uint64_t control = 0x28028;
constexpr std::uint64_t message_offset = 0x28310;
constexpr std::uint64_t message_error = 0x28314;
constexpr std::uint64_t power_good = 0x28380;
constexpr std::uint64_t mailbox = 0x29010;

using std::this_thread::sleep_for;

/// A host with an XMC on a clock of the test's own.
class xmc : public host
{
protected:
    xmc()
    {
        ::setenv("IVRA_VIRTUAL_CLOCK", (folder / "clock").c_str(), 1);
        plug_xmc("{}");
    }

    void plug_xmc(const std::string& json)
    {
        plug({R"({"model": "xilinx_u200", "uid": "0000:01:00.0", "xmc": )" + json + "}"});
    }
};

ivra_hw_core* started(const opened& board)
{
    ivra_hw_core* core = board.core(475);
    write_word(core, reset, 1);
    sleep_for(2s);
    return core;
}

void post(ivra_hw_core* core, std::uint32_t header)
{
    write_word(core, mailbox, header);
    write_word(core, control, read_word(core, control) | 0x20);
}

/// The payload of the packet in the mailbox.
std::string payload_of(ivra_hw_core* core)
{
    std::string payload;
    const std::uint64_t size = read_word(core, mailbox) & 0xfff;
    for (std::uint64_t at = 0; at < size; ++at)
        payload += static_cast<char>(read_word(core, mailbox + 4 + at / 4 * 4) >> 8 * (at % 4));
    return payload;
}

/// Asks for the card information and waits for it.
std::string card_information(ivra_hw_core* core)
{
    post(core, 0x04000000);
    sleep_for(30ms);
    EXPECT_EQ(read_word(core, control) & 0x20, 0U);
    EXPECT_EQ(read_word(core, mailbox) >> 24, 4U);
    return payload_of(core);
}

TEST_F(xmc, is_held_in_reset_until_1_is_written)
{
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        sleep_for(10s);
        EXPECT_EQ(read_word(core, reset), 0U);
        EXPECT_EQ(read_word(core, status), 0U);
        EXPECT_EQ(read_word(core, message_offset), 0U);
        EXPECT_EQ(read_word(core, 0x28030 + 8), 0U) << "it does not measure";
        write_word(core, reset, 1);
        EXPECT_EQ(read_word(core, reset), 1U);
        EXPECT_EQ(read_word(core, status), 0U);
    });
}

TEST_F(xmc, becomes_ready_bit_by_bit)
{
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        sleep_for(10s); // counted from the release, not from the beginning
        write_word(core, reset, 1);
        sleep_for(500ms - 1ns);
        EXPECT_EQ(read_word(core, status), 0U);
        sleep_for(1ns);
        EXPECT_EQ(read_word(core, status), 0x03018801U) << "without bit 28";
        EXPECT_EQ(read_word(core, message_offset), 0U);
        sleep_for(1s - 1ns);
        EXPECT_EQ(read_word(core, status), 0x03018801U);
        sleep_for(1ns);
        EXPECT_EQ(read_word(core, status), 0x13018801U);
        EXPECT_EQ(read_word(core, message_offset), 0x1000U);
    });
}

TEST_F(xmc, that_runs_is_ready_at_once_for_every_process_also_when_it_is_released_again)
{
    run([] {
        const opened board;
        write_word(board.core(475), reset, 1);
        sleep_for(1s);
    });
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        write_word(core, reset, 1); // does not begin anew
        EXPECT_EQ(read_word(core, status), 0x03018801U);
        sleep_for(500ms);
        EXPECT_EQ(read_word(core, status), 0x13018801U);
    });
    run([] {
        const opened board;
        EXPECT_EQ(read_word(board.core(475), status), 0x13018801U);
    });
}

TEST_F(xmc, put_back_into_reset_forgets_and_starts_again)
{
    run([] {
        const opened board;
        ivra_hw_core* core = started(board);
        post(core, 0x04000000);
        write_word(core, reset, 0);
        EXPECT_EQ(read_word(core, status), 0U);
        EXPECT_EQ(read_word(core, control), 0U);
        sleep_for(10s);
        write_word(core, reset, 1);
        EXPECT_EQ(read_word(core, status), 0U);
        sleep_for(1500ms);
        EXPECT_EQ(read_word(core, status), 0x13018801U);
        EXPECT_EQ(read_word(core, mailbox), 0x04000000U) << "the packet was not answered";
    });
}

TEST_F(xmc, bits_come_in_the_order_of_their_times_or_never)
{
    plug_xmc(R"({"ready_after": ["2 s", "1 s"]})");
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        write_word(core, reset, 1);
        sleep_for(1s);
        EXPECT_EQ(read_word(core, status), 0x10000000U) << "bit 28 alone";
        sleep_for(1s);
        EXPECT_EQ(read_word(core, status), 0x13018801U);
    });
    plug_xmc(R"({"ready_after": ["1 s", "never"], "error": "0xc0de"})");
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        write_word(core, reset, 1);
        sleep_for(1000h);
        EXPECT_EQ(read_word(core, status), 0x03018801U);
        EXPECT_EQ(read_word(core, error), 0xc0deU);
    });
}

TEST_F(xmc, with_a_clock_that_was_set_back_it_has_been_running_for_long)
{
    run([] {
        sleep_for(1000s);
        const opened board;
        write_word(board.core(475), reset, 1);
    });
    std::filesystem::remove(folder / "clock");
    run([] {
        const opened board;
        EXPECT_EQ(read_word(board.core(475), status), 0x13018801U);
    });
}

TEST_F(xmc, answers_a_packet_after_a_time_by_clearing_the_bit_that_posted_it)
{
    plug_xmc(R"({"card": {"raw": "2105313233343500"}})");
    run([] {
        const opened board;
        ivra_hw_core* core = started(board);
        EXPECT_EQ(read_word(core, control), 0U);
        post(core, 0x04000000);
        sleep_for(30ms - 1ns);
        EXPECT_EQ(read_word(core, control), 0x20U);
        EXPECT_EQ(read_word(core, mailbox), 0x04000000U) << "no answer yet";
        sleep_for(1ns);
        EXPECT_EQ(read_word(core, control), 0U);
        EXPECT_EQ(read_word(core, message_error), 0U);
        EXPECT_EQ(read_word(core, mailbox), 0x04000008U);
        EXPECT_EQ(read_word(core, mailbox + 4), 0x32310521U) << "the first byte is the lowest";
        EXPECT_EQ(read_word(core, mailbox + 8), 0x00353433U);
        sleep_for(1h);
        EXPECT_EQ(payload_of(core), "\x21\5"s + "12345\0"s) << "it stays there";
    });
}

TEST_F(xmc, says_what_its_card_is)
{
    plug_xmc(R"({"answer_after": "30 ms", "card": {"name": "N", "revision": "B", "serial": "VRT1",
        "macs": {"first": "02:00:00:00:20:0f", "count": 4}, "fan": true, "configuration_mode": 7, "maximum_power": 225,
        "firmware": "4.3"}})");
    run([] {
        const opened board;
        EXPECT_EQ(card_information(started(board)),
                  "\x27\1N\x26\1B\x21\4VRT1\x4b\x08\4\0\2\0\0\0\x20\x0f\x2a\1\1\x2b\1\7\x29\2\xe1\0\x28\3"s + "4.3");
    });
}

TEST_F(xmc, sends_payloads_of_every_length_and_pads_the_last_word)
{
    for (const std::size_t size : {0U, 1U, 3U, 4U, 5U, 4091U, 4092U, 4095U}) {
        std::string digits;
        for (std::size_t at = 0; at < size; ++at)
            digits += "a5";
        plug_xmc(R"({"card": {"raw": ")" + digits + "\"}}");
        run([&] {
            const opened board;
            ivra_hw_core* core = started(board);
            EXPECT_EQ(card_information(core), std::string(size, '\xa5')) << size;
            EXPECT_EQ(read_word(core, mailbox), 0x04000000U + size);
            if (size % 4 == 1) {
                EXPECT_EQ(read_word(core, mailbox + 4 + size / 4 * 4), 0xa5U);
            }
        });
    }
}

TEST_F(xmc, whose_space_ends_with_the_mailbox_loses_what_does_not_fit)
{
    std::string digits;
    for (std::size_t at = 0; at < 4095; ++at)
        digits += "a5";
    plug({R"({"model": "xilinx_u200", "uid": "0000:01:00.0", "xmc": {"card": {"raw": ")" + digits + R"("}}, "cores": [
        {"hardware_id": 475, "address": 0, "size": "0x2a010"}, {"hardware_id": 7, "address": "1 MiB", "size": 4}]})"});
    run([] {
        const opened board;
        ivra_hw_core* core = started(board);
        post(core, 0x04000000);
        sleep_for(30ms);
        EXPECT_EQ(read_word(core, mailbox), 0x04000fffU);
        EXPECT_EQ(read_word(core, 0x2a00c), 0xa5a5a5a5U);
        EXPECT_EQ(read_word(board.core(7), 0), 0U);
    });
}

TEST_F(xmc, refuses_other_packets_with_an_error_that_stays_until_it_is_cleared)
{
    run([] {
        const opened board;
        ivra_hw_core* core = started(board);
        for (const std::uint32_t header : {0x05000000U, 0x00000000U, 0xff000000U, 0x04000001U, 0x04000fffU}) {
            post(core, header);
            sleep_for(29ms);
            EXPECT_EQ(read_word(core, message_error), 0U) << header;
            sleep_for(1ms);
            EXPECT_EQ(read_word(core, control), 0U) << header;
            EXPECT_NE(read_word(core, message_error), 0U) << header;
            EXPECT_EQ(read_word(core, mailbox), header) << "no answer";
            card_information(core);
            EXPECT_NE(read_word(core, message_error), 0U) << "a good packet does not clear it";
            write_word(core, control, 0x41);
            EXPECT_NE(read_word(core, message_error), 0U) << "other bits do not";
            write_word(core, control, 0x42);
            EXPECT_EQ(read_word(core, message_error), 0U);
            EXPECT_EQ(read_word(core, control), 0x40U) << "the request is done, other bits stay";
            write_word(core, control, 0);
        }
    });
}

TEST_F(xmc, the_host_cannot_take_a_packet_back)
{
    run([] {
        const opened board;
        ivra_hw_core* core = started(board);
        post(core, 0x04000000);
        sleep_for(20ms);
        write_word(core, control, 0);
        EXPECT_EQ(read_word(core, control), 0x20U);
        write_word(core, control, 0x20); // nor does it count as another one
        sleep_for(10ms);
        EXPECT_EQ(read_word(core, control), 0U);
    });
}

TEST_F(xmc, a_packet_that_was_posted_before_it_is_ready_waits)
{
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        post(core, 0x04000000);
        sleep_for(1s);
        EXPECT_EQ(read_word(core, control), 0x20U);
        write_word(core, reset, 1);
        sleep_for(1529ms);
        EXPECT_EQ(read_word(core, control), 0x20U);
        sleep_for(1ms);
        EXPECT_EQ(read_word(core, control), 0U);
    });
}

TEST_F(xmc, that_loses_its_mailbox_never_answers)
{
    plug_xmc(R"({"answer_after": "never"})");
    run([] {
        const opened board;
        ivra_hw_core* core = started(board);
        post(core, 0x04000000);
        sleep_for(1000h);
        EXPECT_EQ(read_word(core, control), 0x20U);
        EXPECT_EQ(read_word(core, message_error), 0U);
    });
}

TEST_F(xmc, behind_a_dead_link_reads_as_all_ones_and_does_nothing)
{
    plug_xmc(R"({"dead_link": true})");
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        write_word(core, reset, 1);
        for (const std::uint64_t offset : {reset, status, error, control, message_offset, mailbox, power_good})
            EXPECT_EQ(read_word(core, offset), 0xffffffffU) << offset;
        const ivra_hw_register_description bit{control, 5, 1, "bit"};
        EXPECT_EQ(ivra_hw_write(core, &bit, 0), 0);
        EXPECT_EQ(read_word(core, control), 0xffffffffU);
    });
}

TEST_F(xmc, has_three_registers_for_each_of_42_sensors)
{
    struct row_t
    {
        const char* name;
        std::uint64_t maximum; // average and current value follow
    };
    // clang-format off
    const row_t rows[] = {
        {"12V_PEX",       0x28030}, {"3V3_PEX",      0x2803C}, {"3V3_AUX",     0x28048}, {"12V_AUX",      0x28054},
        {"DDR4_VPP_BTM",  0x28060}, {"SYS_5V5",      0x2806C}, {"VCC1V2_TOP",  0x28078}, {"VCC1V8",       0x28084},
        {"VCC0V85",       0x28090}, {"DDR4_VPP_TOP", 0x2809C}, {"MGT0V9AVCC",  0x280A8}, {"12V_SW",       0x280B4},
        {"MGTAVTT",       0x280C0}, {"VCC1V2_BTM",   0x280CC}, {"12V_PEX_I_IN", 0x280D8}, {"12V_AUX_I_IN", 0x280E4},
        {"VCCINT",        0x280F0}, {"VCCINT_I",     0x280FC}, {"FPGA_TEMP",   0x28108}, {"FAN_TEMP",     0x28114},
        {"DIMM_TEMP0",    0x28120}, {"DIMM_TEMP1",   0x2812C}, {"DIMM_TEMP2",  0x28138}, {"DIMM_TEMP3",   0x28144},
        {"SE98_TEMP0",    0x28150}, {"SE98_TEMP1",   0x2815C}, {"SE98_TEMP2",  0x28168}, {"FAN_SPEED",    0x28174},
        {"CAGE_TEMP0",    0x28180}, {"CAGE_TEMP1",   0x2818C}, {"HBM_TEMP1",   0x28270}, {"VCC3V3",       0x2827C},
        {"3V3_PEX_I_IN",  0x28288}, {"VCCINT_IO_I",  0x28294}, {"HBM_1V2",     0x282A0}, {"VPP2V5",       0x282AC},
        {"VCCINT_IO",     0x282B8}, {"HBM_TEMP2",    0x282C4}, {"VCCINT_TEMP", 0x282DC}, {"PEX_12V_POWER", 0x282E8},
        {"PEX_3V_POWER",  0x282F4}, {"HBM_1V2_I",    0x28420},
    };
    // clang-format on
    static_assert(std::size(rows) == 42);
    std::string sensors;
    std::uint64_t value = 4'000'000'000; // some that no default has: current, average, maximum
    for (const row_t& row : rows) {
        sensors += (sensors.empty() ? "\"" : ", \"") + std::string{row.name} + "\": [" + std::to_string(value) + ", " +
                   std::to_string(value + 1) + ", " + std::to_string(value + 2) + "]";
        value += 3;
    }
    plug_xmc(R"({"sensors": {)" + sensors + "}}");
    run([&] {
        const opened board;
        ivra_hw_core* core = started(board);
        value = 4'000'000'000;
        for (const row_t& row : rows) {
            EXPECT_EQ(read_word(core, row.maximum + 8), value) << row.name << ", current";
            EXPECT_EQ(read_word(core, row.maximum + 4), value + 1) << row.name << ", average";
            EXPECT_EQ(read_word(core, row.maximum), value + 2) << row.name << ", maximum";
            value += 3;
        }
        write_word(core, 0x28030, 7);
        EXPECT_EQ(read_word(core, 0x28030), 4'000'000'002U) << "not the host's to write";
    });
}

TEST_F(xmc, a_sensor_that_the_board_does_not_have_reads_as_0)
{
    run([] {
        const opened board;
        ivra_hw_core* core = started(board);
        EXPECT_EQ(read_word(core, 0x28420), 0U) << "HBM_1V2_I";
        EXPECT_EQ(read_word(core, 0x28038), 11962U) << "12V_PEX, current";
        EXPECT_EQ(read_word(core, 0x28030), 11984U) << "12V_PEX, maximum";
    });
}

TEST_F(xmc, bit_0_of_power_good_is_set_when_power_is_bad)
{
    run([] {
        const opened board;
        EXPECT_EQ(read_word(started(board), power_good), 0U);
    });
    plug_xmc(R"({"power_good": false})");
    run([] {
        const opened board;
        EXPECT_EQ(read_word(started(board), power_good), 1U);
    });
}

TEST_F(xmc, registers_that_mean_nothing_to_it_keep_what_is_written)
{
    run([] {
        const opened board;
        ivra_hw_core* core = started(board);
        write_word(core, 0x100, 0x12345678);
        write_word(core, 0x2fffc, 0x9abcdef0);
        write_word(core, status, 0);
        write_word(core, message_error, 7);
        EXPECT_EQ(read_word(core, 0x100), 0x12345678U);
        EXPECT_EQ(read_word(core, 0x2fffc), 0x9abcdef0U);
        EXPECT_EQ(read_word(core, status), 0x13018801U);
        EXPECT_EQ(read_word(core, message_error), 0U);
    });
}

TEST_F(xmc, two_on_one_board_know_nothing_of_each_other)
{
    plug_xmc(R"([{"card": {"raw": "01"}}, {"card": {"raw": "02"}}])");
    run([] {
        const opened board;
        ivra_hw_core* first = board.core(475, 0);
        ivra_hw_core* second = board.core(475, 1);
        write_word(second, reset, 1);
        sleep_for(2s);
        EXPECT_EQ(read_word(first, status), 0U);
        EXPECT_EQ(card_information(second), "\2");
        write_word(first, reset, 1);
        EXPECT_EQ(read_word(first, status), 0U) << "its time begins now";
        EXPECT_EQ(read_word(second, status), 0x13018801U) << "its own goes on";
        EXPECT_EQ(card_information(started(board)), "\1");
    });
}

TEST_F(xmc, a_packet_that_one_process_posts_is_answered_to_another_after_the_first_was_killed)
{
    const end_t end = end_of(start([] {
        const opened board;
        post(started(board), 0x04000000);
        ::kill(::getpid(), SIGKILL);
    }));
    EXPECT_EQ(end.signal, SIGKILL);
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        EXPECT_EQ(read_word(core, control), 0x20U);
        sleep_for(30ms);
        EXPECT_EQ(read_word(core, control), 0U);
        EXPECT_EQ(read_word(core, mailbox) >> 24, 4U);
        EXPECT_NE(read_word(core, mailbox) & 0xfff, 0U);
    });
}

TEST_F(xmc, answers_processes_that_take_turns)
{
    plug_xmc(R"({"card": {"raw": "0001020304050607"}})");
    run([] {
        const opened board;
        started(board);
    });
    std::vector<::pid_t> processes;
    for (int n = 0; n < 4; ++n)
        processes.push_back(start([] {
            const opened board;
            ivra_hw_core* core = board.core(475);
            ivra_hw_shared_mutex* turn = ivra_hw_shared_mutex_create("turn");
            for (int times = 0; times < 50; ++times) {
                EXPECT_EQ(ivra_hw_shared_mutex_lock(turn), 0);
                EXPECT_EQ(card_information(core), "\0\1\2\3\4\5\6\7"s);
                EXPECT_EQ(read_word(core, message_error), 0U);
                EXPECT_EQ(ivra_hw_shared_mutex_unlock(turn), 0);
            }
            ivra_hw_shared_mutex_destroy(turn);
        }));
    for (const ::pid_t process : processes)
        EXPECT_EQ(end_of(process).status, 0);
}

TEST_F(xmc, without_a_clock_of_a_test_takes_its_time)
{
    ::unsetenv("IVRA_VIRTUAL_CLOCK");
    plug_xmc(R"({"ready_after": ["20 ms", "60 ms"], "answer_after": "10 ms"})");
    run([] {
        const opened board;
        ivra_hw_core* core = board.core(475);
        const auto before = std::chrono::steady_clock::now();
        write_word(core, reset, 1);
        EXPECT_EQ(read_word(core, status) & 0x10000000U, 0U);
        while ((read_word(core, status) & 0x10000001U) != 0x10000001U)
            sleep_for(1ms);
        EXPECT_GE(std::chrono::steady_clock::now() - before, 60ms);
        const auto posted = std::chrono::steady_clock::now();
        post(core, 0x04000000);
        while ((read_word(core, control) & 0x20U) != 0)
            sleep_for(1ms);
        EXPECT_GE(std::chrono::steady_clock::now() - posted, 10ms);
    });
}

} // namespace

} // namespace ivra::platform_tests
