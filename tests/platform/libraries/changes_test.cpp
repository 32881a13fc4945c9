// Boards that are changed while they are used.

#include "story.h"

#include "state/state.h"
#include "support/process.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <sstream>
#include <thread>
#include <utility>

#include <fcntl.h>

namespace ivra::platform_tests {

namespace {

namespace fs = std::filesystem;
namespace vp = virtual_platform;
using ivra::tests::run_t;
using namespace std::chrono_literals;

// Registers of an XMC.
constexpr std::uint64_t reset_register = 0x20010;
constexpr std::uint64_t fpga_temperature = 0x28108; // maximum, average, current
constexpr std::uint64_t fan_speed = 0x28174;
constexpr std::uint64_t status_register = 0x28018;
constexpr std::uint64_t control_register = 0x28028;
constexpr std::uint64_t power_good_register = 0x28380;
constexpr std::uint64_t supply_current = 0x280d8;

/// A board with an XMC, on a clock of the test's own.
class changes : public host
{
protected:
    changes()
    {
        ::setenv("IVRA_VIRTUAL_CLOCK", (folder / "clock").c_str(), 1);
        plug({R"({"name": "card", "model": "xilinx_u200", "uid": "0000:01:00.0",
                  "xmc": {"sensors": {"FPGA_TEMP": [45, 44, 51]}}})"});
    }

    std::vector<std::string> arguments_of(const std::string& words) const
    {
        std::vector<std::string> arguments{"change", rack, "card"};
        std::istringstream stream{words};
        for (std::string word; stream >> word;)
            arguments.push_back(word);
        return arguments;
    }

    run_t change(const std::string& words) const
    {
        return ivra::tests::run_program(IVRA_VIRTUAL_COMMAND, arguments_of(words));
    }

    void expect_change(const std::string& words) const { EXPECT_EQ(change(words), ivra::tests::says("")) << words; }

    /// The file with what was changed.
    fs::path file() const
    {
        const vp::rack_t loaded = vp::load_rack(rack);
        return vp::board_state_folder(loaded, loaded.accelerators.at(0)) / "changes";
    }

    /// Puts bytes at a place of it.
    void write(std::uint64_t place, const std::string& bytes) const
    {
        std::fstream stream{file(), std::ios::in | std::ios::out | std::ios::binary};
        stream.seekp(static_cast<std::streamoff>(place));
        stream << bytes;
    }
};

/// The XMC of the only board, which is ready.
ivra_hw_core* ready(const opened& board)
{
    ivra_hw_core* const core = board.core(475);
    write_word(core, reset_register, 1);
    std::this_thread::sleep_for(2s);
    return core;
}

/// Maximum, average and current value.
std::array<std::uint64_t, 3> values(ivra_hw_core* core, std::uint64_t maximum)
{
    return {read_word(core, maximum), read_word(core, maximum + 4), read_word(core, maximum + 8)};
}

using values_t = std::array<std::uint64_t, 3>;

TEST_F(changes, are_seen_at_once_by_a_process_that_has_the_board_open)
{
    run([&] {
        const opened board;
        ivra_hw_core* const core = ready(board);
        EXPECT_EQ(values(core, fpga_temperature), (values_t{51, 44, 45}));
        expect_change("sensor FPGA_TEMP 85 C");
        EXPECT_EQ(values(core, fpga_temperature), (values_t{85, 44, 85})) << "the maximum follows, the average stays";
        expect_change("sensor FPGA_TEMP 30 C");
        EXPECT_EQ(values(core, fpga_temperature), (values_t{85, 44, 30}));
        expect_change("sensor 12V_PEX_I_IN 1.5 A");
        expect_change("sensor FAN_SPEED 0 rpm");
        EXPECT_EQ(values(core, supply_current).back(), 1500U);
        EXPECT_EQ(values(core, fan_speed).back(), 0U);
        EXPECT_EQ(change("reset"), ivra::tests::says("Undid all changes of card\n"));
        EXPECT_EQ(values(core, fpga_temperature), (values_t{51, 44, 45}));
        EXPECT_EQ(values(core, fan_speed).back(), 1120U) << "as the model has it";
    });
}

TEST_F(changes, outlive_the_processes_and_leave_the_rack_file_alone)
{
    const std::string before = read(rack);
    expect_change("sensor FPGA_TEMP 85 C");
    run([] {
        const opened board;
        EXPECT_EQ(values(ready(board), fpga_temperature), (values_t{85, 44, 85}));
    });
    EXPECT_EQ(read(rack), before);
}

TEST_F(changes, of_several_processes_at_once_are_all_made)
{
    const std::vector<std::string> words{"sensor FPGA_TEMP 85 C", "sensor FAN_SPEED 7 rpm",
                                         "sensor 12V_PEX_I_IN 2500 mA", "sensor VCCINT 0.9 V"};
    std::vector<ivra::tests::running_t> running;
    for (const std::string& one : words)
        running.emplace_back([&] {
            for (int time = 0; time < 10; ++time)
                expect_change(one);
        });
    for (ivra::tests::running_t& one : running)
        EXPECT_EQ(one.end(), ivra::tests::says(""));
    run([] {
        const opened board;
        ivra_hw_core* const core = ready(board);
        EXPECT_EQ(values(core, fpga_temperature).back(), 85U);
        EXPECT_EQ(values(core, fan_speed).back(), 7U);
        EXPECT_EQ(values(core, supply_current).back(), 2500U);
        EXPECT_EQ(values(core, 0x280f0).back(), 900U);
    });
}

TEST_F(changes, wait_for_one_that_is_being_made)
{
    expect_change("sensor FPGA_TEMP 85 C");
    const vp::mapped_file changing{vp::open_own_file(AT_FDCWD, file().c_str(), file(), O_RDWR), file(),
                                   vp::file_access::read_write};
    std::optional<vp::file_lock> lock{std::in_place, changing};
    for (const char* const words : {"sensor FAN_SPEED 7 rpm", "reset"}) {
        ivra::tests::running_t second{
            [&] { ivra::tests::exec_program(IVRA_VIRTUAL_COMMAND, arguments_of(words), {}); }};
        EXPECT_TRUE(second.waits_for_a_lock()) << words;
        EXPECT_THAT(shown(), ::testing::HasSubstr("sensor FPGA_TEMP 85 C")) << "readers do not wait";
        lock.reset();
        EXPECT_EQ(second.end().status, 0);
        lock.emplace(changing);
    }
}

TEST_F(changes, that_were_not_finished_are_none)
{
    expect_change("sensor FPGA_TEMP 85 C"); // its number is 1, so that it stands in the second place
    // A process that was killed before it stored its number has left half a text in the other one.
    write(vp::changes_file::page, std::string{"\x40\0\0\0\0\0\0\0{\"made_at\": 1, \"diff", 28});
    run([&] {
        const opened board;
        ivra_hw_core* const core = ready(board);
        EXPECT_EQ(values(core, fpga_temperature).back(), 85U);
        expect_change("sensor FPGA_TEMP 60 C");
        EXPECT_EQ(values(core, fpga_temperature).back(), 60U);
    });
}

TEST_F(changes, that_cannot_be_read_are_an_error_that_says_how_to_undo_them)
{
    struct row_t
    {
        std::string bytes; ///< in the place of the size and the text
        std::string what;
    };
    const auto text = [](const std::string& json) {
        std::string size(8, '\0');
        size[0] = static_cast<char>(json.size());
        size[1] = static_cast<char>(json.size() >> 8U);
        return size + json;
    };
    const row_t rows[] = {
        {text("nonsense"), "line 1, column 2: not JSON: Invalid value"},
        {text(R"({"made_at":0,"to_come":[]})"), "expected a member \"difference\""},
        {text(R"({"made_at":0,"difference":{"xmcs":{"1":{}}},"to_come":[]})"),
         "/xmcs/1: expected the place of one of 1"},
        {text(R"({"made_at":0,"difference":{"xmcs":{"":{}}},"to_come":[]})"), "/xmcs/: expected the place of one of 1"},
        {text(R"({"made_at":0,"difference":{"xmcs":{"0":{"sensors":{"FPGA_TEMP":[1,2]}}}},"to_come":[]})"),
         "/xmcs/0/sensors/FPGA_TEMP: expected three 32-bit numbers"},
        {text(R"({"made_at":0,"difference":{"xmcs":{"0":{"sensors":{"HBM_1V2":[1,2,3]}}}},"to_come":[]})"),
         "expected no sensors beside those that there are"},
        {text(R"({"made_at":0,"difference":{"bmc":{}},"to_come":[]})"), "/bmc: unknown member"},
        {text(R"({"made_at":0,"difference":{},"to_come":[{"at":2,"difference":{}},{"at":1,"difference":{}}]})"),
         "/to_come/1/at: expected a time that is not before the one before it"},
        {std::string(8, '\xff'), "expected a text of at most 4194296 bytes"},
    };
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(change("reset").status, 0);
        expect_change("sensor FPGA_TEMP 85 C");
        run([&] {
            const log_t log;
            const opened board;
            ivra_hw_core* const core = ready(board);
            const std::string number = read(file()).substr(0, 8);
            for (const std::uint64_t place : {vp::changes_file::page, vp::changes_file::page + vp::changes_file::place})
                write(place, row.bytes);
            write(0, std::string{static_cast<char>(number[0] + 1)} + number.substr(1)); // as if it were another one
            const ivra_hw_register_description word{fpga_temperature, 0, 32, "word"};
            std::uint64_t value = 0;
            EXPECT_FAILS(-1, EIO, ivra_hw_read(core, &word, &value));
            ASSERT_EQ(log.lines().size(), 1U);
            EXPECT_THAT(log.lines()[0],
                        ::testing::AllOf(::testing::StartsWith("0 ivra_hw_read: " + file().string() + ": " + row.what),
                                         ::testing::HasSubstr("; 'ivra-virtual change " + rack.string() +
                                                              " 0000:01:00.0 reset' undoes all changes")));
            EXPECT_EQ(change("sensor FPGA_TEMP 20 C").status, 1) << "nothing is lost without a word";
            EXPECT_EQ(change("reset"), ivra::tests::says("Undid all changes of card\n"));
            EXPECT_EQ(values(core, fpga_temperature), (values_t{51, 44, 45}));
        });
    }
}

// ---- controllers ----

TEST_F(changes, of_an_xmc_turn_its_power_bad_and_good)
{
    run([&] {
        const opened board;
        ivra_hw_core* const core = ready(board);
        EXPECT_EQ(read_word(core, power_good_register), 0U);
        expect_change("power-good bad");
        EXPECT_EQ(read_word(core, power_good_register), 1U);
        expect_change("power-good good");
        EXPECT_EQ(read_word(core, power_good_register), 0U);
    });
}

TEST_F(changes, of_an_xmc_start_it_again)
{
    run([&] {
        const opened board;
        ivra_hw_core* const core = ready(board);
        const std::uint64_t is_ready = read_word(core, status_register);
        EXPECT_NE(is_ready, 0U);
        expect_change("ready after 3 s");
        EXPECT_EQ(read_word(core, status_register), 0U) << "at once, though its reset was released long ago";
        EXPECT_EQ(values(core, fpga_temperature), (values_t{0, 0, 0}));
        std::this_thread::sleep_for(2999ms);
        EXPECT_EQ(read_word(core, status_register), 0U);
        std::this_thread::sleep_for(1ms);
        EXPECT_EQ(read_word(core, status_register), is_ready);
        expect_change("ready after never");
        std::this_thread::sleep_for(1000s);
        EXPECT_EQ(read_word(core, status_register), 0U);
        EXPECT_EQ(change("reset").status, 0);
        EXPECT_EQ(read_word(core, status_register), is_ready);
    });
}

TEST_F(changes, of_an_xmc_make_a_packet_wait_that_was_posted_meanwhile)
{
    run([&] {
        const opened board;
        ivra_hw_core* const core = ready(board);
        expect_change("ready after 3 s");
        write_word(core, 0x29010, 4U << 24U); // asks for the card's information
        write_word(core, control_register, 0x20);
        std::this_thread::sleep_for(3029ms);
        EXPECT_EQ(read_word(core, control_register), 0x20U);
        std::this_thread::sleep_for(1ms); // it takes 30 ms when it is ready
        EXPECT_EQ(read_word(core, control_register), 0U);
    });
}

TEST_F(changes, of_the_fpga_are_its_temperature)
{
    run([&] {
        const opened board;
        ivra_hw_top* const top = ivra_hw_top_create(board.root);
        double celsius = 0;
        expect_change("fpga-temperature 97.5 C");
        EXPECT_EQ(ivra_hw_top_get_temperature(top, &celsius), 0);
        EXPECT_EQ(celsius, 97.5);
        ivra_hw_top_destroy(top);
    });
}

// ---- modules ----

/// The first cage of a U200, behind channel 0 of a multiplexer that pin 0 switches on.
class cage
{
public:
    explicit cage(const opened& board) : i2c_{ivra_i2c_create(board.root)}, bus_{ivra_i2c_get_bus(i2c_, 0)}
    {
        EXPECT_EQ(ivra_i2c_write_control_pins(i2c_, 1), 0);
        const std::uint8_t channel = 1;
        EXPECT_EQ(ivra_i2c_bus_write(bus_, 0x74, &channel, 1), 1);
    }
    ~cage()
    {
        ivra_i2c_bus_destroy(bus_);
        ivra_i2c_destroy(i2c_);
    }
    cage(const cage&) = delete;
    cage& operator=(const cage&) = delete;

    std::uint8_t byte(std::uint8_t at) const
    {
        std::uint8_t value = 0;
        EXPECT_EQ(ivra_i2c_bus_read_register(bus_, 0x50, at, &value, 1), 1);
        return value;
    }
    std::uint16_t word(std::uint8_t at) const { return static_cast<std::uint16_t>(byte(at) << 8U | byte(at + 1U)); }
    void set(std::uint8_t at, std::uint8_t value) const
    {
        EXPECT_EQ(ivra_i2c_bus_write_register(bus_, 0x50, at, &value, 1), 1);
    }

private:
    ivra_i2c* i2c_;
    ivra_i2c_bus* bus_;
};

/// QSFP+ and QSFP28, SFF-8636.
constexpr std::uint8_t temperature = 22;
constexpr std::uint8_t receive_power = 34;
constexpr std::uint8_t power_control = 93;
constexpr std::uint8_t page_select = 127;
constexpr std::uint8_t high_alarm_of_temperature = 128; // on page 03
constexpr std::uint8_t identifier = 0;
constexpr std::uint8_t qsfp28 = 0x11;
constexpr std::uint8_t qsfp_dd = 0x18;

class changed_modules : public changes
{
protected:
    changed_modules()
    {
        plug({R"({"name": "card", "model": "xilinx_u200", "uid": "0000:01:00.0",
                  "i2c": {"cages": [{"module": "qsfp28-sr4", "temperature": 30}, "empty"]}})"});
    }
};

TEST_F(changed_modules, measure_something_else_and_keep_what_the_host_has_set)
{
    run([&] {
        const opened board;
        const cage module{board};
        EXPECT_EQ(module.word(temperature), 30 * 256);
        module.set(power_control, 3);
        expect_change("module 0 temperature 78");
        EXPECT_EQ(module.word(temperature), 78 * 256);
        expect_change("module 0 temperature -3.5 C");
        EXPECT_EQ(module.word(temperature), 0xfc80); // SFF-8636 table 6-7: signed, in steps of 1/256 degree
        expect_change("module 0 rx_power 0.5 0.4 0.1 0 mW");
        EXPECT_EQ(module.word(receive_power), 5000); // in steps of 0.1 uW
        EXPECT_EQ(module.word(receive_power + 4), 1000);
        EXPECT_EQ(module.word(receive_power + 6), 0);
        expect_change("module 0 temperature high_alarm 90");
        module.set(page_select, 3);
        EXPECT_EQ(module.word(high_alarm_of_temperature), 90 * 256);
        EXPECT_EQ(module.byte(power_control), 3);
        EXPECT_EQ(change("reset").status, 0);
        EXPECT_EQ(module.word(temperature), 30 * 256);
        EXPECT_EQ(module.byte(power_control), 3) << "it was never taken out";
    });
}

TEST_F(changed_modules, come_and_go_and_a_new_one_was_touched_by_nobody)
{
    run([&] {
        const opened board;
        const cage module{board};
        module.set(power_control, 3);
        expect_change("unplug 0");
        EXPECT_EQ(module.byte(identifier), 0xff);
        expect_change("plug 0 qsfpdd-dr4");
        EXPECT_EQ(module.byte(identifier), qsfp_dd);
        const std::uint8_t as_plugged = module.byte(26);
        module.set(26, as_plugged ^ 0x10U);
        expect_change(R"(plug 0 {"module":"qsfp28-sr4","temperature":40})");
        EXPECT_EQ(module.byte(identifier), qsfp28);
        EXPECT_EQ(module.word(temperature), 40 * 256);
        EXPECT_EQ(module.byte(power_control), 0);
        expect_change("plug 0 qsfpdd-dr4");
        EXPECT_EQ(module.byte(26), as_plugged);
        EXPECT_EQ(change("reset").status, 0);
        EXPECT_EQ(module.word(temperature), 30 * 256);
        EXPECT_EQ(module.byte(power_control), 0) << "the first one has come back without current";
        module.set(power_control, 3);
        EXPECT_EQ(change("reset"), ivra::tests::says("Nothing to undo: card is as its rack says\n"));
        EXPECT_EQ(module.byte(power_control), 3);
    });
}

TEST_F(changed_modules, come_back_without_what_was_set_also_when_nobody_looked_meanwhile)
{
    run([&] {
        const opened board;
        const cage module{board};
        module.set(power_control, 3);
        expect_change("unplug 0");
        EXPECT_EQ(change("reset").status, 0);
        EXPECT_EQ(module.byte(power_control), 0);
    });
}

TEST_F(changed_modules, in_cages_that_were_empty_leave_those_beside_them_alone)
{
    run([&] {
        const opened board;
        const cage module{board};
        module.set(power_control, 3);
        expect_change("plug 1 sfp-10g-sr");
        EXPECT_EQ(module.byte(power_control), 3);
        EXPECT_EQ(module.word(temperature), 30 * 256);
    });
}

// ---- times ----

class played_changes : public changes
{
protected:
    run_t play(const std::string& text) const
    {
        std::ofstream{folder / "file.play"} << text;
        return ivra::tests::run_program(IVRA_VIRTUAL_COMMAND, {"play", rack, folder / "file.play"});
    }
};

TEST_F(played_changes, come_at_their_times_on_a_stepped_clock)
{
    run([&] {
        const opened board;
        ivra_hw_core* const core = ready(board);
        EXPECT_EQ(play("0 s card sensor FPGA_TEMP 60 C\n"
                       "1.5 s card sensor FPGA_TEMP 85 C\n"
                       "1.5 s card power-good bad\n"
                       "2 s card reset\n"),
                  ivra::tests::says("Set 4 changes, the last one in 2 s\n"));
        EXPECT_EQ(values(core, fpga_temperature).back(), 60U);
        std::this_thread::sleep_for(1499ms);
        EXPECT_EQ(values(core, fpga_temperature).back(), 60U);
        EXPECT_EQ(read_word(core, power_good_register), 0U);
        std::this_thread::sleep_for(1ms);
        EXPECT_EQ(values(core, fpga_temperature).back(), 85U);
        EXPECT_EQ(read_word(core, power_good_register), 1U);
        std::this_thread::sleep_for(500ms);
        EXPECT_EQ(values(core, fpga_temperature), (values_t{51, 44, 45}));
        EXPECT_EQ(read_word(core, power_good_register), 0U);
    });
}

TEST_F(played_changes, go_on_after_a_change_that_comes_between_them_and_end_with_a_reset)
{
    run([&] {
        const opened board;
        ivra_hw_core* const core = ready(board);
        EXPECT_EQ(
            play("1 s card sensor FPGA_TEMP 70 C\n2 s card sensor FPGA_TEMP 80 C\n3 s card power-good bad\n").status,
            0);
        std::this_thread::sleep_for(1s);
        EXPECT_EQ(values(core, fpga_temperature).back(), 70U);
        expect_change("sensor FAN_SPEED 0 rpm");
        EXPECT_EQ(values(core, fpga_temperature).back(), 70U);
        std::this_thread::sleep_for(1s);
        EXPECT_EQ(values(core, fpga_temperature).back(), 80U);
        EXPECT_EQ(values(core, fan_speed).back(), 0U);
        EXPECT_EQ(change("reset").status, 0);
        std::this_thread::sleep_for(1s);
        EXPECT_EQ(read_word(core, power_good_register), 0U) << "what was to come is undone, too";
    });
}

TEST_F(played_changes, are_all_made_when_the_host_was_started_again_since_then)
{
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(play("0 s card sensor FPGA_TEMP 60 C\n100 s card sensor FPGA_TEMP 85 C\n").status, 0);
    std::ofstream{folder / "clock", std::ios::binary} << std::string(8, '\0');
    run([] {
        const opened board;
        EXPECT_EQ(values(ready(board), fpga_temperature).back(), 85U);
    });
}

TEST_F(played_changes, with_a_mistake_are_none_at_all)
{
    const std::string file = (folder / "file.play").string();
    const struct
    {
        std::string text;
        std::string what;
    } rows[] = {
        {"x card power-good bad", "line 1, column 1: expected a time such as \"1.5 s\", \"30 ms\" or \"0 s\""},
        {"never card power-good bad", "line 1, column 1: expected a time such as \"1.5 s\", \"30 ms\" or \"0 s\""},
        {"1 card power-good bad", "line 1, column 1: expected a time such as \"1.5 s\", \"30 ms\" or \"0 s\""},
        {"2 s card power-good bad\n1 s card power-good good",
         "line 2, column 1: expected a time of at least 2 s, that of the line before it"},
        {"# ü\n\n  1s ", "line 3, column 5: expected an accelerator and what changes of it behind the time"},
        {"1s card", "line 1, column 8: expected what changes of the accelerator"},
        {"1s nobody power-good bad", "line 1, column 4: " + rack.string() +
                                         " has no accelerator of the name, uid or index \"nobody\"; there are card"},
        {"0 s card power-good bad\n1s \"card\" power-good so", "line 2, column 11: expected good or bad"},
        {"1s \"ü\" power-good 'so", "line 1, column 19: expected another ' on this line"},
        {"1s card sensor FPGA_TMP 2 C", "line 1, column 9: expected a sensor of the board; there are FPGA_TEMP"},
    };
    for (const auto& row : rows) {
        const run_t result = play(row.text);
        EXPECT_THAT(result.err, ::testing::StartsWith("ivra-virtual: " + file + ": " + row.what)) << row.text;
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(change("reset"), ivra::tests::says("Nothing to undo: card is as its rack says\n"));
    }
}

TEST_F(played_changes, are_shown_before_they_come)
{
    EXPECT_EQ(play("# a comment\n1 s 'card' sensor \"FPGA_TEMP\" 60 C # another one\r\n2 s 0 power-good bad").status,
              0);
    EXPECT_THAT(shown(), ::testing::HasSubstr("   To come        in 1 s: sensor FPGA_TEMP 60 C, not 45 C\n"
                                              "                  in 2 s: power-good bad\n"));
    EXPECT_EQ(play(""), ivra::tests::says("Nothing to play\n"));
}

TEST_F(changes, end_with_the_state_of_the_board)
{
    expect_change("sensor FPGA_TEMP 85 C");
    plug({R"({"name": "card", "model": "xilinx_u200", "uid": "0000:01:00.0",
              "xmc": {"sensors": {"FPGA_TEMP": [46, 44, 51]}}})"});
    run([] {
        const opened board;
        EXPECT_EQ(values(ready(board), fpga_temperature), (values_t{51, 44, 46}));
    });
}

} // namespace

} // namespace ivra::platform_tests
