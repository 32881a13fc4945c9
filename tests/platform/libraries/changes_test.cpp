// Boards that are changed while they are used.

#include "story.h"

#include "state/state.h"
#include "support/process.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <sys/mman.h>

namespace ivra::platform_tests {

namespace {

namespace fs = std::filesystem;
namespace vp = virtual_platform;
using ivra::tests::run_t;
using namespace std::chrono_literals;

// Registers of an XMC.
constexpr std::uint64_t reset = 0x20010;
constexpr std::uint64_t fpga_temperature = 0x28108; // maximum, average, current
constexpr std::uint64_t fan_speed = 0x28174;
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

    run_t change(const std::string& words) const
    {
        std::vector<std::string> arguments{"change", rack, "card"};
        std::istringstream stream{words};
        for (std::string word; stream >> word;)
            arguments.push_back(word);
        return ivra::tests::run_program(IVRA_VIRTUAL_COMMAND, arguments);
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
    write_word(core, reset, 1);
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
