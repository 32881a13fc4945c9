#include "bad_racks.h"

#include "devices/clock_generator/clock_generator.h"
#include "devices/i2c/i2c.h"
#include "state/state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace ivra::tests {

namespace {

using namespace ivra::virtual_platform;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct clock_row_t
{
    unsigned address;
    unsigned value;
};
using rows_t = std::vector<clock_row_t>;
using outputs_t = decltype(clock_status_t::outputs);

const rows_t preamble = {{0x0b24, 0xc0}, {0x0b25, 0x00}, {0x0540, 0x01}};
const rows_t postamble = {{0x0514, 0x01}, {0x001c, 0x01}, {0x0540, 0x00}, {0x0b24, 0xc3}, {0x0b25, 0x02}};

void add(rows_t& rows, unsigned address, std::uint64_t value, unsigned bytes)
{
    for (unsigned byte = 0; byte < bytes; ++byte)
        rows.push_back({address + byte, static_cast<unsigned>(value >> 8U * byte & 0xffU)});
}

struct output_t
{
    unsigned n = 0;             ///< which N divider
    unsigned r = 2;             ///< an even number
    unsigned configuration = 2; ///< enabled
};

struct divider_t
{
    std::uint64_t numerator, denominator;
};

/// The rows of outputs, which divide the 13.2 GHz of a VCO at 330 times 40 MHz.
rows_t main_part(const std::vector<output_t>& outputs, const std::vector<divider_t>& dividers, unsigned powered)
{
    const unsigned blocks[] = {0x0112, 0x0117, 0x0126, 0x012b};
    const unsigned r_dividers[] = {0x0250, 0x0253, 0x025c, 0x025f};
    rows_t rows;
    for (std::size_t at = 0; at < 4; ++at) {
        const output_t& output = outputs.at(at);
        add(rows, blocks[at], output.configuration | (output.r == 2 ? 4U : 0U), 1);
        add(rows, blocks[at] + 1, 0x3d09, 2);
        add(rows, blocks[at] + 3, output.n, 1);
        add(rows, r_dividers[at], output.r / 2 - 1, 3);
    }
    add(rows, 0x0206, 0, 1);
    add(rows, 0x0235, std::uint64_t{330} << 31U, 6);
    add(rows, 0x023b, std::uint64_t{1} << 31U, 4);
    for (unsigned at = 0; at < 4; ++at) {
        const divider_t divider = at < dividers.size() ? dividers.at(at) : divider_t{0, 0};
        add(rows, 0x0302 + 11 * at, divider.numerator, 6);
        add(rows, 0x0302 + 11 * at + 6, divider.denominator, 4);
    }
    add(rows, 0x0a03, powered, 1);
    add(rows, 0x0a05, powered, 1);
    return rows;
}

/// 161.1328125 MHz, 125 MHz, 322.265625 MHz and 100 MHz: N is 20.48 or 26.4 or 66.
const std::vector<divider_t> all_dividers = {
    {0x2100000000, 0x80000000}, {0x1000000000, 0xc8000000}, {0x1080000000, 0xa0000000}};
const rows_t all_outputs = main_part({{1, 4}, {2, 4}, {1, 2}, {0, 2}}, all_dividers, 0x7);

/// A U55c with a clock of the test's own.
class clock_chip : public ::testing::Test
{
protected:
    clock_chip()
    {
        std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
        folder = ::mkdtemp(name.data());
        ::setenv("IVRA_VIRTUAL_STATE", folder.c_str(), 1);
        rack = parse_rack(R"({"accelerators": [{"model": "xilinx_u55c"}]})", "my.json");
    }
    ~clock_chip() override
    {
        ::unsetenv("IVRA_VIRTUAL_STATE");
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    board_state open() const { return board_state::open(rack, rack.accelerators.at(0)); }
    const i2c_t& i2c() const { return rack.accelerators.at(0).i2c; }

    void write(std::vector<std::uint8_t> bytes, device_time pause = 1ms)
    {
        board_state board = open(); // as another process would
        EXPECT_EQ((i2c_bus{i2c(), i2c().buses.at(0), board.i2c()}.transfer(0x68, bytes, {}, now)), 1U);
        now += pause;
    }

    void write_row(const clock_row_t& row, device_time pause = 1ms)
    {
        if (row.address >> 8U != page) {
            page = row.address >> 8U;
            write({0x01, static_cast<std::uint8_t>(page)});
        }
        write({static_cast<std::uint8_t>(row.address), static_cast<std::uint8_t>(row.value)}, pause);
    }

    void write_rows(const rows_t& rows)
    {
        for (const clock_row_t& row : rows)
            write_row(row);
    }

    void load(const rows_t& main, device_time settling = 500ms)
    {
        write_rows(preamble);
        now += settling;
        write_rows(main);
        write_rows(postamble);
    }

    unsigned read(unsigned address)
    {
        board_state board = open();
        i2c_bus bus{i2c(), i2c().buses.at(0), board.i2c()};
        const std::uint8_t select[] = {0x01, static_cast<std::uint8_t>(address >> 8U)};
        const std::uint8_t at[] = {static_cast<std::uint8_t>(address)};
        std::uint8_t value[1] = {};
        bus.transfer(0x68, select, {}, now);
        bus.transfer(0x68, at, value, now);
        page = address >> 8U;
        now += 1ms;
        return value[0];
    }

    clock_status_t status() const { return clock_generator{open().i2c(), places_of(i2c()).clock}.status(); }

    fs::path folder;
    rack_t rack;
    device_time now = 10s;
    unsigned page = 0xff;
};

} // namespace

TEST_F(clock_chip, is_not_loaded_at_the_start)
{
    EXPECT_FALSE(status().is_running);
    EXPECT_EQ(status().text, "not loaded");
    EXPECT_EQ(status().outputs, (outputs_t{"off", "off", "off", "off"}));
}

TEST_F(clock_chip, runs_after_a_complete_load_with_exact_frequencies)
{
    load(all_outputs);
    EXPECT_TRUE(status().is_running);
    EXPECT_EQ(status().text, "running");
    EXPECT_EQ(status().outputs, (outputs_t{"161.1328125 MHz", "125 MHz", "322.265625 MHz", "100 MHz"}));
    load(main_part({{0, 2}, {0, 4}, {0, 66}, {0, 6}}, all_dividers, 0x1));
    EXPECT_EQ(status().outputs,
              (outputs_t{"100 MHz", "50 MHz", "3.030303030303030... MHz", "33.333333333333333... MHz"}));
}

TEST_F(clock_chip, an_output_that_is_switched_off_or_whose_divider_is_has_no_frequency)
{
    load(main_part({{0, 2, 3}, {0, 2, 0}, {1, 4}, {3, 4}}, all_dividers, 0x9));
    EXPECT_EQ(status().outputs, (outputs_t{"off", "off", "off, as N1 is", "off, as a divider is 0"}));
}

TEST_F(clock_chip, registers_are_in_pages_and_can_be_read)
{
    load(all_outputs);
    EXPECT_EQ(read(0x0235 + 3), 330U << 7U & 0xffU);
    EXPECT_EQ(read(0x0235 + 4), 330U << 7U >> 8U & 0xffU);
    EXPECT_EQ(read(0x0a03), 7U);
    EXPECT_EQ(read(0x0a01), 0x0aU) << "the page, in every page";
    EXPECT_EQ(read(0x001c), 0U) << "clears itself";
    EXPECT_TRUE(status().is_running) << "reading and selecting pages do no harm";
}

TEST_F(clock_chip, a_load_that_breaks_off_shows_how_far_it_came)
{
    const auto text_after = [this](const rows_t& rows) {
        write_rows(rows);
        EXPECT_EQ(status().outputs, (outputs_t{"off", "off", "off", "off"}));
        return status().text;
    };
    load(all_outputs);
    EXPECT_EQ(text_after({preamble[0]}), "in the preamble of a load");
    EXPECT_EQ(text_after({preamble[1]}), "in the preamble of a load");
    EXPECT_EQ(text_after({preamble[2]}), "in the middle of a load");
    now += 500ms;
    EXPECT_EQ(text_after(all_outputs), "in the middle of a load");
    for (std::size_t at = 0; at + 1 < postamble.size(); ++at)
        EXPECT_EQ(text_after({postamble[at]}), "in the postamble of a load");
    write_rows({postamble.back()});
    EXPECT_TRUE(status().is_running);
}

TEST_F(clock_chip, a_pause_that_is_missing_anywhere_shows)
{
    const std::size_t count = preamble.size() + all_outputs.size() + postamble.size();
    for (std::size_t hasty = 0; hasty + 1 < count; ++hasty) {
        std::size_t at = 0;
        const auto write_hastily = [&](const rows_t& rows) {
            for (const clock_row_t& row : rows)
                write_row(row, at++ == hasty ? 1ms - 1ns : 1ms);
        };
        write_hastily(preamble);
        now += hasty == preamble.size() - 1 ? 0ms : 500ms; // its pause is the long one
        write_hastily(all_outputs);
        write_hastily(postamble);
        ASSERT_FALSE(status().is_running) << hasty;
        ASSERT_EQ(status().text, "written too fast") << hasty;
    }
    load(all_outputs);
    EXPECT_TRUE(status().is_running) << "the next load makes up for it";
}

TEST_F(clock_chip, has_to_settle_after_the_preamble)
{
    load(all_outputs, 499ms - 1ns); // and 1 ms after the last write
    EXPECT_EQ(status().text, "written before it had settled");
    load(all_outputs, 499ms);
    EXPECT_TRUE(status().is_running);
}

TEST_F(clock_chip, a_load_in_another_order_shows)
{
    load(all_outputs);
    const rows_t wrong[] = {
        {preamble[0], preamble[2], preamble[1]},
        {preamble[0], {0x0b25, 0x01}, preamble[2]},
        {preamble[0], {0x0112, 0x06}, preamble[1], preamble[2]},
    };
    for (const rows_t& rows : wrong) {
        write_rows(rows);
        now += 500ms;
        write_rows(all_outputs);
        write_rows(postamble);
        EXPECT_EQ(status().text, "written out of order");
    }
    for (std::size_t left_out = 0; left_out < postamble.size(); ++left_out) {
        rows_t rows = postamble;
        rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(left_out));
        write_rows(preamble);
        now += 500ms;
        write_rows(all_outputs);
        write_rows(rows);
        EXPECT_FALSE(status().is_running) << left_out;
    }
}

TEST_F(clock_chip, a_load_without_its_preamble_is_none)
{
    write_rows(all_outputs);
    write_rows(postamble);
    EXPECT_EQ(status().text, "written out of order");
    EXPECT_FALSE(status().is_running);
}

TEST_F(clock_chip, a_load_that_leaves_out_a_divider_shows)
{
    load(all_outputs);
    for (const std::size_t left_out : {std::size_t{0}, all_outputs.size() / 2, all_outputs.size() - 1}) {
        rows_t rows = all_outputs;
        rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(left_out));
        load(rows);
        EXPECT_EQ(status().text, "loaded incompletely");
    }
}

TEST_F(clock_chip, that_is_changed_outside_of_a_load_says_so)
{
    load(all_outputs);
    write_row({0x0250, 0x05});
    EXPECT_EQ(status().text, "changed while it was running");
    EXPECT_EQ(status().outputs, (outputs_t{"off", "off", "off", "off"}));
}

TEST_F(clock_chip, registers_in_one_transfer_have_no_pause_between_them)
{
    write_rows(preamble);
    now += 500ms;
    write({0x50, 0x01, 0x02});
    EXPECT_EQ(status().text, "written too fast");
}

TEST_F(clock_chip, takes_the_last_write_for_long_ago_when_its_clock_was_set_anew)
{
    const device_time times[] = {
        device_time::min(), device_time::max(), device_time::min(), 0s, device_time::min() + 1s, -1s};
    write({0x01, 0x0b});
    for (const device_time time : times) {
        write({0x24, 0xc0}, 0ms);
        now = time;
        write({0x25, 0x00}, 0ms);
        EXPECT_EQ(status().text, "in the preamble of a load") << time.count();
    }
}

} // namespace ivra::tests
