#include "board/clocks/tables.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <map>
#include <numeric>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace ivra::bsp::clocks {
namespace {

using enum board::transceiver_speed_t;

/// An exact number, in lowest terms.
struct ratio_t
{
    std::uint64_t numerator = 1;
    std::uint64_t denominator = 1;

    bool operator==(const ratio_t&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ratio_t& ratio)
{
    return out << ratio.numerator << "/" << ratio.denominator;
}

std::uint64_t product(std::uint64_t a, std::uint64_t b)
{
    std::uint64_t result = 0;
    EXPECT_FALSE(__builtin_mul_overflow(a, b, &result)) << a << " x " << b;
    return result;
}

ratio_t reduced(std::uint64_t numerator, std::uint64_t denominator)
{
    if (numerator == 0 || denominator == 0) {
        ADD_FAILURE() << numerator << "/" << denominator;
        return {};
    }
    const std::uint64_t common = std::gcd(numerator, denominator);
    return {numerator / common, denominator / common};
}

ratio_t operator*(const ratio_t& a, const ratio_t& b)
{
    const ratio_t one = reduced(a.numerator, b.denominator);
    const ratio_t other = reduced(b.numerator, a.denominator);
    return {product(one.numerator, other.numerator), product(one.denominator, other.denominator)};
}

ratio_t operator/(const ratio_t& a, const ratio_t& b)
{
    return a * ratio_t{b.denominator, b.numerator};
}

// Frequencies are in MHz.
constexpr ratio_t mhz_100{100, 1};
constexpr ratio_t mhz_125{125, 1};
constexpr ratio_t mhz_161{20625, 128}; // 161.1328125
constexpr ratio_t mhz_322{20625, 64};  // 322.265625

/// N and R for each frequency.
struct dividers_t
{
    ratio_t frequency;
    ratio_t n;
    std::uint64_t r;
};
// clang-format off
constexpr dividers_t dividers[] = {
    {mhz_100, {66, 1},   2},
    {mhz_125, {132, 5},  4}, // 26.4
    {mhz_161, {512, 25}, 4}, // 20.48
    {mhz_322, {512, 25}, 2},
};
// clang-format on

struct named_table_t
{
    std::string name;
    std::string list; ///< of its rows
    std::span<const entry_t> entries;
    std::array<ratio_t, 4> outputs;
    std::uint32_t checksum;
};

void PrintTo(const named_table_t& table, std::ostream* out)
{
    *out << table.name;
}

const std::string u55c_list = "u55c-rows.csv";
const std::string u50_list = "u50-rows.csv";

std::vector<named_table_t> all_tables()
{
    // clang-format off
    return {
        {"u55c_1g_1g",   u55c_list, u55c_table(speed_1g, speed_1g).entries,   {mhz_125, mhz_125, mhz_100, mhz_100}, 0xEC3266EA},
        {"u55c_1g_10g",  u55c_list, u55c_table(speed_1g, speed_10g).entries,  {mhz_125, mhz_161, mhz_100, mhz_100}, 0x41AED42E},
        {"u55c_10g_1g",  u55c_list, u55c_table(speed_10g, speed_1g).entries,  {mhz_161, mhz_125, mhz_100, mhz_100}, 0x95964842},
        {"u55c_10g_10g", u55c_list, u55c_table(speed_10g, speed_10g).entries, {mhz_161, mhz_161, mhz_100, mhz_100}, 0x94FEFA08},
        {"u50_1g",       u50_list,  u50_table(speed_1g).entries,              {mhz_125, mhz_322, mhz_322, mhz_100}, 0xE0E28B21},
        {"u50_10g",      u50_list,  u50_table(speed_10g).entries,             {mhz_161, mhz_322, mhz_322, mhz_100}, 0x20E7AAAC},
    };
    // clang-format on
}

using row_t = std::pair<std::uint32_t, std::uint32_t>; // address and value
using rows_t = std::vector<row_t>;

rows_t rows_of(std::span<const entry_t> entries)
{
    rows_t rows;
    for (const entry_t& entry : entries)
        rows.emplace_back(entry.address, entry.value);
    return rows;
}

/// The entries between preamble and postamble.
rows_t main_rows(const named_table_t& table)
{
    return rows_of(table.entries.subspan(3, table.entries.size() - 8));
}

struct list_t
{
    rows_t rows;
    std::set<std::uint32_t> planned; ///< addresses of class P
};

/// A list of rows: address, base value, class and meaning of each, after a line of titles.
list_t read_list(const std::string& name)
{
    std::ifstream file{IVRA_TEST_DATA "/clocks/" + name};
    std::string line;
    std::getline(file, line);
    EXPECT_EQ(line, "address,base,class,meaning");
    list_t list;
    while (std::getline(file, line)) {
        std::istringstream fields{line};
        std::string address;
        std::string base;
        std::string kind;
        std::getline(std::getline(std::getline(fields, address, ','), base, ','), kind, ',');
        list.rows.emplace_back(std::stoul(address, nullptr, 16), std::stoul(base, nullptr, 16));
        if (kind == "P")
            list.planned.insert(list.rows.back().first);
    }
    return list;
}

/// What the generator holds after the table.
class registers
{
public:
    explicit registers(const named_table_t& table)
    {
        for (const auto& [address, value] : main_rows(table))
            values_[address] = value;
    }

    /// Little endian.
    std::uint64_t get(std::uint32_t address, std::uint32_t bytes = 1) const
    {
        std::uint64_t value = 0;
        for (std::uint32_t i = 0; i < bytes; ++i)
            value |= static_cast<std::uint64_t>(values_.at(address + i)) << (8 * i);
        return value;
    }

    ratio_t vco() const
    {
        const ratio_t xa{40, std::uint64_t{1} << (get(0x0206) & 3)};
        return xa * reduced(get(0x0235, 6), get(0x023B, 4));
    }

    std::uint64_t n_index(std::size_t output) const { return get(blocks[output] + 3) & 7; }

    ratio_t n(std::uint64_t index) const
    {
        const auto block = static_cast<std::uint32_t>(0x0302 + 11 * index);
        return reduced(get(block, 6), get(block + 6, 4));
    }

    bool is_forced_to_2(std::size_t output) const { return (get(blocks[output]) & 4) != 0; }

    std::uint64_t r(std::size_t output) const
    {
        return is_forced_to_2(output) ? 2 : 2 * (get(r_registers[output], 3) + 1);
    }

    static constexpr std::array<std::uint32_t, 4> blocks{0x0112, 0x0117, 0x0126, 0x012B};
    static constexpr std::array<std::uint32_t, 4> r_registers{0x0250, 0x0253, 0x025C, 0x025F};

private:
    std::map<std::uint32_t, std::uint32_t> values_;
};

class clock_table : public testing::TestWithParam<named_table_t>
{
protected:
    const named_table_t& table = GetParam();
    const registers held{table};

    /// One bit a divider that feeds an output.
    std::uint64_t in_use() const
    {
        std::uint64_t bits = 0;
        for (std::size_t output = 0; output < 4; ++output)
            bits |= std::uint64_t{1} << held.n_index(output);
        return bits;
    }
};

INSTANTIATE_TEST_SUITE_P(every, clock_table, testing::ValuesIn(all_tables()),
                         [](const auto& test) { return test.param.name; });

TEST_P(clock_table, has_a_preamble_its_main_rows_and_a_postamble)
{
    const std::size_t main_size = table.list == u55c_list ? 502 : 505;
    ASSERT_EQ(table.entries.size(), 3 + main_size + 5);
    EXPECT_EQ(rows_of(table.entries.first(3)), (rows_t{{0x0B24, 0xC0}, {0x0B25, 0x00}, {0x0540, 0x01}}));
    EXPECT_EQ(rows_of(table.entries.last(5)),
              (rows_t{{0x0514, 0x01}, {0x001C, 0x01}, {0x0540, 0x00}, {0x0B24, 0xC3}, {0x0B25, 0x02}}));

    const table_t parts{table.entries};
    EXPECT_EQ(rows_of(parts.preamble()), rows_of(table.entries.first(3)));
    EXPECT_EQ(rows_of(parts.main()), main_rows(table));
    EXPECT_EQ(rows_of(parts.postamble()), rows_of(table.entries.last(5)));
    EXPECT_EQ(parts.page, 0xFF);
}

TEST_P(clock_table, main_rows_ascend_from_the_first_ones_to_the_last_ones_as_listed)
{
    const rows_t rows = main_rows(table);
    const list_t list = read_list(table.list);
    ASSERT_EQ(rows.size(), list.rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].first, list.rows[i].first);
        EXPECT_LE(rows[i].second, 0xFFU) << std::hex << rows[i].first;
        if (i > 0) {
            EXPECT_LT(rows[i - 1].first, rows[i].first);
        }
    }
    EXPECT_EQ(rows_t(rows.begin(), rows.begin() + 5),
              (rows_t{{0x0006, 0x00}, {0x0007, 0x00}, {0x0008, 0x00}, {0x000B, 0x68}, {0x0016, 0x02}}));
    EXPECT_EQ(rows_t(rows.end() - 4, rows.end()),
              (rows_t{{0x0C02, 0x03}, {0x0C03, 0x00}, {0x0C07, 0x00}, {0x0C08, 0x00}}));
}

TEST_P(clock_table, differs_from_its_list_only_where_the_plan_decides)
{
    const rows_t rows = main_rows(table);
    const list_t list = read_list(table.list);
    for (std::size_t i = 0; i < rows.size(); ++i)
        if (!list.planned.contains(rows[i].first)) {
            EXPECT_EQ(rows[i], list.rows.at(i));
        }
}

TEST_P(clock_table, makes_the_wanted_frequencies)
{
    EXPECT_EQ(held.vco(), (ratio_t{13'200, 1}));
    for (std::size_t output = 0; output < 4; ++output) {
        const ratio_t r{held.r(output), 1};
        EXPECT_EQ(held.vco() / held.n(held.n_index(output)) / r, table.outputs.at(output)) << output;
    }
}

TEST_P(clock_table, divides_as_planned)
{
    for (std::size_t output = 0; output < 4; ++output)
        for (const dividers_t& row : dividers)
            if (row.frequency == table.outputs.at(output)) {
                EXPECT_EQ(held.n(held.n_index(output)), row.n) << output;
                EXPECT_EQ(held.r(output), row.r) << output;
                EXPECT_EQ(held.is_forced_to_2(output), row.r == 2) << output;
                EXPECT_EQ(held.get(registers::r_registers[output], 3), row.r / 2 - 1) << output;
            }
    EXPECT_EQ(held.n(0), (ratio_t{66, 1})) << "the divider of 100 MHz is N0";
    std::uint64_t next = 1; // the others follow as they are needed
    for (std::size_t output = 0; output < 4; ++output) {
        EXPECT_LE(held.n_index(output), next) << output;
        next += held.n_index(output) == next ? 1 : 0;
    }
}

TEST_P(clock_table, holds_fractions_in_the_form_that_the_generator_wants)
{
    for (std::uint64_t index = 0; index < 4; ++index) {
        const auto block = static_cast<std::uint32_t>(0x0302 + 11 * index);
        const std::uint64_t numerator = held.get(block, 6);
        const std::uint64_t denominator = held.get(block + 6, 4);
        EXPECT_EQ(held.get(block + 10), 0U) << "the strobe of N" << index;
        if ((in_use() >> index & 1) == 0) {
            EXPECT_EQ(numerator, 0U) << index;
            EXPECT_EQ(denominator, 0U) << index;
            continue;
        }
        EXPECT_GE(denominator, 0x8000'0000U) << index;
        EXPECT_EQ(numerator >> 44, 0U) << index;
        EXPECT_GE(numerator, 10 * denominator) << index;
        EXPECT_LE(numerator, 4095 * denominator) << index;
    }
    EXPECT_EQ(held.get(0x0235, 6) >> 44, 0U);
    EXPECT_GE(held.get(0x023B, 4), 0x8000'0000U);
}

TEST_P(clock_table, runs_freely)
{
    EXPECT_EQ(held.get(0x0535) & 1, 1U);
    EXPECT_EQ(held.get(0x0949) & 0x0F, 0U);
}

TEST_P(clock_table, enables_its_outputs_and_the_dividers_that_feed_them)
{
    for (const std::uint32_t block : registers::blocks)
        EXPECT_EQ(held.get(block) & 3, 2U) << "enabled and not powered down, at " << std::hex << block;
    EXPECT_EQ(held.get(0x0A03), in_use()) << "routed";
    EXPECT_EQ(held.get(0x0A05), in_use()) << "powered";
    EXPECT_EQ(held.get(0x0B4A), ~in_use() & 0x0F) << "clocks off";

    std::uint64_t integers = 0;
    for (std::uint64_t index = 0; index < 4; ++index)
        if ((in_use() >> index & 1) != 0 && held.n(index).denominator == 1)
            integers |= std::uint64_t{1} << index;
    EXPECT_EQ(held.get(0x0A04), integers);
}

/// CRC-32 of IEEE 802.3.
std::uint32_t crc_32(const std::vector<std::uint8_t>& bytes)
{
    std::uint32_t crc = 0xFFFF'FFFF;
    for (const std::uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB8'8320U : 0U);
    }
    return ~crc;
}

TEST_P(clock_table, has_its_checksum)
{
    EXPECT_EQ(crc_32({'1', '2', '3', '4', '5', '6', '7', '8', '9'}), 0xCBF4'3926U);

    // Of page, register and value of each entry: guards the rows on which no frequency depends.
    std::vector<std::uint8_t> bytes;
    for (const entry_t& entry : table.entries)
        for (const std::uint32_t byte : {entry.address >> 8, entry.address & 0xFF, entry.value})
            bytes.push_back(static_cast<std::uint8_t>(byte));
    EXPECT_EQ(crc_32(bytes), table.checksum) << std::hex << crc_32(bytes);
}

/// Addresses of the rows in which two tables of one board differ.
std::set<std::uint32_t> differences(const table_t& one, const table_t& other)
{
    std::set<std::uint32_t> addresses;
    EXPECT_EQ(one.entries.size(), other.entries.size());
    for (std::size_t i = 0; i < one.entries.size(); ++i) {
        EXPECT_EQ(one.entries[i].address, other.entries[i].address);
        if (one.entries[i].value != other.entries[i].value)
            addresses.insert(one.entries[i].address);
    }
    return addresses;
}

TEST(clock_tables, of_10g_everywhere_equal_the_lists_row_by_row)
{
    EXPECT_EQ(rows_of(u55c_table(speed_10g, speed_10g).main()), read_list(u55c_list).rows);
    EXPECT_EQ(rows_of(u50_table(speed_10g).main()), read_list(u50_list).rows);
}

TEST(clock_tables, of_the_u50_have_three_rows_more)
{
    rows_t rows = rows_of(u50_table(speed_10g).main());
    std::erase_if(rows, [](const row_t& row) { return row.first >= 0x053A && row.first <= 0x053C; });
    const rows_t u55c = rows_of(u55c_table(speed_10g, speed_10g).main());
    ASSERT_EQ(rows.size(), u55c.size());
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(rows[i].first, u55c[i].first);
}

TEST(clock_tables, of_one_board_differ_in_the_few_rows_that_the_plan_decides)
{
    const table_t& base = u55c_table(speed_10g, speed_10g);
    EXPECT_EQ(differences(u55c_table(speed_1g, speed_1g), base).size(), 2U);
    EXPECT_EQ(differences(u55c_table(speed_1g, speed_10g), base).size(), 8U);
    EXPECT_EQ(differences(u55c_table(speed_10g, speed_1g), base).size(), 7U);
    EXPECT_EQ(differences(u50_table(speed_1g), u50_table(speed_10g)).size(), 9U);
}

TEST(clock_tables, are_one_object_for_each_choice_of_speeds)
{
    const std::set<table_t*> tables{&u50_table(speed_1g),
                                    &u50_table(speed_10g),
                                    &u55c_table(speed_1g, speed_1g),
                                    &u55c_table(speed_1g, speed_10g),
                                    &u55c_table(speed_10g, speed_1g),
                                    &u55c_table(speed_10g, speed_10g)};
    EXPECT_EQ(tables.size(), 6U);
    EXPECT_EQ(&u55c_table(speed_1g, speed_10g), &u55c_table(speed_1g, speed_10g));
}

} // namespace
} // namespace ivra::bsp::clocks
