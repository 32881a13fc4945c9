#include "board/clocks/load.h"
#include "board/u50.h"
#include "board/u55c.h"
#include "support/outcome.h"
#include "support/rack.h"
#include "support/root_core.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <time.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

/// What reaches the bus and the clock, in order: a write or a pause in one line each.
std::vector<std::string> events;
std::size_t writes = 0;

/// Registers of the clock generator, by page and register, and its page.
std::map<unsigned, unsigned> held;
unsigned selected_page = 0;

// What happens besides; positions count writes from 0.
std::optional<std::size_t> failing_write;
std::optional<std::size_t> short_write;
std::optional<std::size_t> long_write;
std::optional<std::size_t> signal_during_write;
int signal_to_raise = SIGTERM;
bool signal_during_get_bus = false;
bool has_controller = true;
bool has_bus = true;
bool sleeps_are_interrupted = false;
bool shows_writes = false; // as a dot each

std::string pause(std::chrono::nanoseconds duration)
{
    return "pause " + std::to_string(duration.count());
}

std::string write(unsigned device, unsigned reg, unsigned value)
{
    std::ostringstream text;
    text << std::hex << "write " << device << ' ' << reg << ' ' << value;
    return text.str();
}

} // namespace

struct ivra_i2c
{
};

struct ivra_i2c_bus
{
};

// The board's I2C controller, whose only bus has nothing but the clock generator, in place of the platform's.

ivra_i2c* ivra_i2c_create(ivra_hw_core*)
{
    static ivra_i2c controller;
    errno = ENODEV;
    return has_controller ? &controller : nullptr;
}

void ivra_i2c_destroy(ivra_i2c*) {}

ivra_i2c_bus* ivra_i2c_get_bus(ivra_i2c*, std::uint8_t index)
{
    static ivra_i2c_bus bus;
    events.push_back("bus " + std::to_string(index));
    if (signal_during_get_bus)
        std::raise(signal_to_raise);
    errno = ENODEV;
    return has_bus ? &bus : nullptr;
}

void ivra_i2c_bus_destroy(ivra_i2c_bus*) {}

int ivra_i2c_bus_write_register(ivra_i2c_bus*, std::uint8_t device, std::uint8_t reg, const std::uint8_t* buffer,
                                std::size_t size)
{
    EXPECT_EQ(size, 1U);
    EXPECT_EQ(device, 0x68);
    const std::size_t position = writes++;
    events.push_back(write(device, reg, buffer[0]));
    if (shows_writes) {
        EXPECT_EQ(::write(STDOUT_FILENO, ".", 1), 1);
    }
    if (position == signal_during_write)
        std::raise(signal_to_raise);
    if (position == failing_write) {
        errno = EIO;
        return -1;
    }
    errno = 0;
    if (position == short_write)
        return 0;
    if (reg == 0x01)
        selected_page = buffer[0];
    else
        held[selected_page << 8 | reg] = buffer[0];
    return position == long_write ? 2 : 1;
}

/// Sleeps for no time at all. Pauses in a row are one event of their sum.
int nanosleep(const timespec* request, timespec* remaining)
{
    const std::chrono::nanoseconds asked =
        std::chrono::seconds{request->tv_sec} + std::chrono::nanoseconds{request->tv_nsec};
    static std::chrono::nanoseconds since_write{};
    if (events.empty() || !events.back().starts_with("pause"))
        since_write = {};
    else
        events.pop_back();
    const bool is_interrupted = sleeps_are_interrupted && asked > 100us;
    const auto slept = is_interrupted ? asked / 3 : asked;
    since_write += slept;
    events.push_back(pause(since_write));
    if (!is_interrupted)
        return 0;
    const auto left = asked - slept;
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    *remaining = {.tv_sec = seconds.count(), .tv_nsec = (left - seconds).count()};
    errno = EINTR;
    return -1;
}

namespace ivra::bsp::clocks {
namespace {

using tests::outcome;
using enum board::transceiver_speed_t;

/// Runs `body` on a board, in a process of its own; what is expected there in vain fails here.
tests::run_t run_on_a_board(tests::function_ref<void(const hw::core&)> body)
{
    tests::rack_t rack;
    rack.plug("xilinx_u50").environment("IVRA_LOG_LEVEL=0");
    rack.faults(R"({"call": "ivra_hw_core_enumerate", "errno": "EIO"})"); // its XMC does not come up
    return rack.in_child([&] { body(tests::root_core()); });
}

void on_a_board(tests::function_ref<void(const hw::core&)> body)
{
    const tests::run_t run = run_on_a_board(body);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

void on_its_bus(tests::function_ref<void(v6::i2c::bus&)> body)
{
    on_a_board([&](const hw::core& root) {
        auto bus = v6::i2c::i2c{root}.get_bus(0);
        events.clear();
        body(bus.value());
    });
}

std::vector<std::string> take_events()
{
    writes = 0;
    return std::exchange(events, {});
}

/// What loading has to do, when this page is the remembered one.
std::vector<std::string> expected_load(std::span<const entry_t> entries, unsigned page = 0xFF)
{
    std::vector<std::string> lines;
    const auto one_write = [&lines](unsigned reg, unsigned value) {
        lines.push_back(write(0x68, reg, value));
        lines.push_back(pause(1ms));
    };
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (i == 3)
            lines.back() = pause(1ms + 500ms); // after the last write of the preamble
        if (entries[i].address / 0x100 != page) {
            page = entries[i].address / 0x100;
            one_write(0x01, page);
        }
        one_write(entries[i].address % 0x100, entries[i].value);
    }
    return lines;
}

/// What the generator holds after a complete load.
std::map<unsigned, unsigned> complete(const table_t& table)
{
    std::map<unsigned, unsigned> values;
    for (const entry_t& entry : table.entries)
        values[entry.address] = entry.value;
    return values;
}

const std::string write_failed = "system error: Error writing clock I2C register: Input/output error";

TEST(clock_write, is_one_byte_and_then_a_pause)
{
    on_its_bus([](v6::i2c::bus& bus) {
        i2c_write(bus, 0x68, 0x16, 0x02);
        EXPECT_EQ(take_events(), (std::vector<std::string>{"write 68 16 2", "pause 1000000"}));
    });
}

TEST(clock_write, that_fails_is_a_system_error_without_a_pause)
{
    on_its_bus([](v6::i2c::bus& bus) {
        failing_write = 0;
        EXPECT_EQ(outcome([&] { i2c_write(bus, 0x68, 0x16, 0x02); }), write_failed);
        EXPECT_EQ(take_events(), std::vector<std::string>{"write 68 16 2"});
    });
}

TEST(clock_write, that_transfers_nothing_has_failed)
{
    on_its_bus([](v6::i2c::bus& bus) {
        short_write = 0;
        EXPECT_EQ(outcome([&] { i2c_write(bus, 0x68, 0x16, 0x02); }), write_failed);
    });
}

TEST(clock_write, that_transfers_more_than_one_byte_has_failed)
{
    on_its_bus([](v6::i2c::bus& bus) {
        long_write = 0;
        EXPECT_EQ(outcome([&] { i2c_write(bus, 0x68, 0x16, 0x02); }), write_failed);
    });
}

TEST(clock_load, writes_the_table_in_three_runs_and_waits_after_the_first)
{
    on_its_bus([](v6::i2c::bus& bus) {
        load(bus, u55c_table(speed_1g, speed_10g));
        EXPECT_EQ(writes, 527U) << "510 rows and 17 page selections";
        const std::vector<std::string> done = take_events();
        EXPECT_EQ(done, expected_load(u55c_table(speed_1g, speed_10g).entries));
        EXPECT_EQ(std::vector<std::string>(done.begin(), done.begin() + 12),
                  (std::vector<std::string>{"write 68 1 b", "pause 1000000", "write 68 24 c0", "pause 1000000",
                                            "write 68 25 0", "pause 1000000", "write 68 1 5", "pause 1000000",
                                            "write 68 40 1", "pause 501000000", "write 68 1 0", "pause 1000000"}));
        EXPECT_EQ(std::vector<std::string>(done.end() - 8, done.end()),
                  (std::vector<std::string>{"write 68 40 0", "pause 1000000", "write 68 1 b", "pause 1000000",
                                            "write 68 24 c3", "pause 1000000", "write 68 25 2", "pause 1000000"}));
        EXPECT_EQ(held, complete(u55c_table(speed_1g, speed_10g)));

        load(bus, u50_table(speed_1g));
        EXPECT_EQ(writes, 530U) << "513 rows and 17 page selections";
        EXPECT_EQ(take_events(), expected_load(u50_table(speed_1g).entries));
    });
}

TEST(clock_load, of_the_same_table_again_does_not_select_the_page_that_it_left)
{
    on_its_bus([](v6::i2c::bus& bus) {
        load(bus, u55c_table(speed_10g, speed_10g));
        take_events();
        load(bus, u55c_table(speed_10g, speed_10g));
        EXPECT_EQ(writes, 526U);
        EXPECT_EQ(take_events(), expected_load(u55c_table(speed_10g, speed_10g).entries, 0x0B));

        load(bus, u50_table(speed_10g));
        take_events();
        load(bus, u50_table(speed_10g));
        EXPECT_EQ(writes, 529U);
        EXPECT_EQ(take_events(), expected_load(u50_table(speed_10g).entries, 0x0B));
    });
}

TEST(clock_load, tables_do_not_share_their_page)
{
    on_its_bus([](v6::i2c::bus& bus) {
        load(bus, u55c_table(speed_1g, speed_1g));
        take_events();
        load(bus, u55c_table(speed_10g, speed_1g));
        EXPECT_EQ(writes, 527U);
        EXPECT_EQ(take_events().front(), "write 68 1 b");
    });
}

TEST(clock_load, that_breaks_off_at_any_write_leaves_a_prefix_and_the_next_one_completes)
{
    on_its_bus([](v6::i2c::bus& bus) {
        const std::span<const entry_t> entries = u55c_table(speed_1g, speed_1g).entries;
        const std::vector<std::string> all = expected_load(entries); // writes at even places, pauses at odd ones
        ASSERT_EQ(all.size(), 2 * 527U);
        for (std::size_t position = 0; position < 527; position += IVRA_SWEEP_STEP) {
            table_t table{entries};
            held.clear();
            selected_page = 0xEE;
            failing_write = position;
            ASSERT_EQ(outcome([&] { load(bus, table); }), write_failed) << position;
            const std::vector<std::string> done = take_events();
            ASSERT_EQ(done, std::vector<std::string>(all.begin(), all.begin() + static_cast<long>(2 * position + 1)));

            failing_write.reset();
            const std::uint8_t page = table.page;
            ASSERT_EQ(page, position == 0 ? 0xFF : selected_page) << position;
            load(bus, table);
            ASSERT_EQ(take_events(), expected_load(entries, page)) << position;
            ASSERT_EQ(held, complete(table)) << position;
        }
        failing_write = 527;
        table_t table{entries};
        EXPECT_EQ(outcome([&] { load(bus, table); }), "ok") << "there is no such write";
    });
}

TEST(clock_load, pauses_are_never_shorter_not_even_when_signals_interrupt_them)
{
    on_its_bus([](v6::i2c::bus& bus) {
        sleeps_are_interrupted = true;
        table_t& table = u50_table(speed_1g);
        load(bus, table);
        EXPECT_EQ(take_events(), expected_load(table.entries));
    });
}

volatile std::sig_atomic_t writes_at_signal = -1;

void note_signal(int)
{
    writes_at_signal = static_cast<int>(writes);
}

TEST(clock_load, holds_signals_back_until_it_is_through)
{
    on_a_board([](const hw::core& root) {
        const v6::i2c::i2c controller{root};
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
            std::signal(signal, &note_signal);
            signal_to_raise = signal;
            writes_at_signal = -1;
            writes = 0;
            signal_during_write = 3;
            table_t table{u50_table(speed_1g).entries};
            load(controller, table);
            EXPECT_EQ(writes_at_signal, 530) << signal;

            writes_at_signal = -1;
            writes = 0;
            failing_write = 10;
            EXPECT_EQ(outcome([&] { load(controller, table); }), write_failed);
            EXPECT_EQ(writes_at_signal, 11) << "a load that breaks off is through, too";
            failing_write.reset();
        }
    });
}

TEST(clock_load, lets_a_signal_kill_the_process_when_it_is_through)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        const tests::run_t run = run_on_a_board([signal](const hw::core& root) {
            shows_writes = true;
            signal_to_raise = signal;
            signal_during_write = 0;
            load(v6::i2c::i2c{root}, u55c_table(speed_1g, speed_1g));
            ADD_FAILURE() << "still alive";
        });
        EXPECT_EQ(run.out, std::string(527, '.'));
        EXPECT_EQ(run.status, 128 + signal);
    }
}

TEST(clock_load, holds_no_signal_back_before_it_has_its_bus)
{
    on_a_board([](const hw::core& root) {
        std::signal(SIGTERM, [](int) { writes_at_signal = static_cast<int>(events.size()); });
        signal_during_get_bus = true;
        load(v6::i2c::i2c{root}, u50_table(speed_1g));
        EXPECT_EQ(writes_at_signal, 1) << "at once";
        EXPECT_EQ(writes, 530U);
    });
}

using speeds_t = std::vector<board::transceiver_speed_t>;

/// What a board did after it was asked for its only bus.
std::vector<std::string> load_events()
{
    std::vector<std::string> done = take_events();
    EXPECT_FALSE(done.empty());
    EXPECT_EQ(done.front(), "bus 0");
    done.erase(done.begin());
    return done;
}

TEST(transceiver_speeds, of_a_u50_are_one)
{
    on_a_board([](const hw::core& root) {
        board::u50 u50{root};
        for (const speeds_t& speeds : {speeds_t{}, speeds_t{speed_1g, speed_1g}})
            EXPECT_EQ(outcome([&] { u50.set_transceiver_speeds(speeds); }),
                      "error: U50 board needs one transceiver speed");
        EXPECT_EQ(take_events(), std::vector<std::string>{}) << "refused before any access";

        u50.set_transceiver_speeds({speed_1g});
        EXPECT_EQ(load_events(), expected_load(u50_table(speed_1g).entries));
        u50.set_transceiver_speeds({speed_10g});
        EXPECT_EQ(load_events(), expected_load(u50_table(speed_10g).entries));
    });
}

TEST(transceiver_speeds, of_a_u55c_are_two_in_the_order_of_the_cages)
{
    on_a_board([](const hw::core& root) {
        board::u55c u55c{root};
        for (const speeds_t& speeds : {speeds_t{}, speeds_t{speed_1g}, speeds_t{speed_1g, speed_1g, speed_1g}})
            EXPECT_EQ(outcome([&] { u55c.set_transceiver_speeds(speeds); }),
                      "error: U55c board needs two transceiver speeds");
        EXPECT_EQ(take_events(), std::vector<std::string>{}) << "refused before any access";

        for (const auto first : {speed_1g, speed_10g})
            for (const auto second : {speed_1g, speed_10g}) {
                u55c.set_transceiver_speeds({first, second});
                EXPECT_EQ(load_events(), expected_load(u55c_table(first, second).entries));
            }
    });
}

TEST(transceiver_speeds, need_an_i2c_controller_once_their_number_is_right)
{
    on_a_board([](const hw::core& root) {
        has_controller = false;
        board::u50 u50{root};
        board::u55c u55c{root};
        const std::string refusal = "error: Could not apply speed configuration as no I2C MM bridge core are detected";
        EXPECT_EQ(outcome([&] { u50.set_transceiver_speeds({speed_1g}); }), refusal);
        EXPECT_EQ(outcome([&] { u55c.set_transceiver_speeds({speed_1g, speed_10g}); }), refusal);
        EXPECT_EQ(outcome([&] { u50.set_transceiver_speeds({}); }), "error: U50 board needs one transceiver speed");
        EXPECT_EQ(outcome([&] { u55c.set_transceiver_speeds({}); }), "error: U55c board needs two transceiver speeds");
        EXPECT_EQ(take_events(), std::vector<std::string>{});
    });
}

TEST(transceiver_speeds, need_the_first_bus)
{
    on_a_board([](const hw::core& root) {
        has_bus = false;
        board::u50 u50{root};
        board::u55c u55c{root};
        const std::string failure = "system error: Cannot get I2C bus: No such device";
        EXPECT_EQ(outcome([&] { u50.set_transceiver_speeds({speed_10g}); }), failure);
        EXPECT_EQ(outcome([&] { u55c.set_transceiver_speeds({speed_10g, speed_10g}); }), failure);
        EXPECT_EQ(take_events(), (std::vector<std::string>{"bus 0", "bus 0"}));
    });
}

} // namespace
} // namespace ivra::bsp::clocks
