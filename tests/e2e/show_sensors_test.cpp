#include "support/rack.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

run_t run_on(const std::string& model, const std::string& words)
{
    rack_t rack;
    return rack.plug(model).run(words);
}

/// The row of a document for a row of a table: `"│ A │ 1 mV │ 2 mV │ 3 mV │"`; without empty cells.
std::string document_row(std::string row)
{
    std::string text;
    for (const char* key : {"sensors", "Current", "Average", "Maximum"}) {
        row.erase(0, row.find_first_not_of(" ", std::string{"│"}.size()));
        std::string cell = row.substr(0, row.find("│"));
        row.erase(0, cell.size());
        cell.erase(cell.find_last_not_of(' ') + 1);
        if (!cell.empty())
            text += std::string{text.empty() ? "{" : ","} + "\"" + key + "\":\"" + cell + "\"";
    }
    return text + "}";
}

/// What a board shows: this table, and the same rows in a document.
void expect_sensors(const std::string& model, const std::string& table)
{
    const std::string progress = "Retrieving sensor data... done";
    EXPECT_EQ(run_on(model, "show sensors"), says(progress + "\nSensors\n" + table));

    std::string rows;
    std::istringstream lines{table.substr(table.find("┤\n") + std::string{"┤\n"}.size())};
    for (std::string line; std::getline(lines, line) && line.starts_with("\t│");)
        rows += (rows.empty() ? "" : ",") + document_row(line.substr(1));
    const run_t document = run_on(model, "show sensors --json");
    EXPECT_EQ(document.out, R"({"data":{"Sensors":{"Sensor":[)" + rows + R"(]}},"status":{"success":true},)" +
                                R"("log":[{"type":"info","message":")" + progress + "\"}]}\n");
    EXPECT_EQ(document.err, progress + "\n");
    EXPECT_EQ(document.status, 0);
}

// clang-format off

TEST(show_sensors, of_a_u200_has_32_rows_on_a_screen_and_in_a_document)
{
    expect_sensors("xilinx_u200",
        "\t┌──────────────┬──────────┬──────────┬──────────┐\n"
        "\t│ Sensor       │ Current  │ Average  │ Maximum  │\n"
        "\t├──────────────┼──────────┼──────────┼──────────┤\n"
        "\t│ 3V3_AUX      │  3313 mV │  3312 mV │  3316 mV │\n"
        "\t│ 3V3_PEX      │  3361 mV │  3358 mV │  3364 mV │\n"
        "\t│ 12V_AUX      │   479 mV │   478 mV │   489 mV │\n"
        "\t│ 12V_AUX_I_IN │     3 mA │     2 mA │    12 mA │\n"
        "\t│ 12V_PEX      │ 11962 mV │ 11950 mV │ 11984 mV │\n"
        "\t│ 12V_SW       │ 12021 mV │ 12018 mV │ 12052 mV │\n"
        "\t│ 12V_PEX_I_IN │  1445 mA │  1438 mA │  1838 mA │\n"
        "\t│ CAGE_TEMP0   │    34 °C │    33 °C │    36 °C │\n"
        "\t│ CAGE_TEMP1   │     0 °C │     0 °C │     0 °C │\n"
        "\t│ DDR4_VPP_BTM │  2502 mV │  2501 mV │  2505 mV │\n"
        "\t│ DDR4_VPP_TOP │  2499 mV │  2499 mV │  2503 mV │\n"
        "\t│ DIMM_TEMP0   │    43 °C │    42 °C │    44 °C │\n"
        "\t│ DIMM_TEMP1   │    45 °C │    44 °C │    45 °C │\n"
        "\t│ DIMM_TEMP2   │    44 °C │    43 °C │    45 °C │\n"
        "\t│ DIMM_TEMP3   │    42 °C │    42 °C │    43 °C │\n"
        "\t│ FAN_SPEED    │ 1120 RPM │ 1118 RPM │ 1136 RPM │\n"
        "\t│ FAN_TEMP     │    49 °C │    49 °C │    50 °C │\n"
        "\t│ FPGA_TEMP    │    52 °C │    51 °C │    52 °C │\n"
        "\t│ MGT0V9AVCC   │   908 mV │   907 mV │   911 mV │\n"
        "\t│ MGTAVTT      │  1203 mV │  1202 mV │  1205 mV │\n"
        "\t│ SE98_TEMP0   │    50 °C │    49 °C │    50 °C │\n"
        "\t│ SE98_TEMP1   │    41 °C │    41 °C │    41 °C │\n"
        "\t│ SE98_TEMP2   │    49 °C │    48 °C │    49 °C │\n"
        "\t│ SYS_5V5      │  5492 mV │  5490 mV │  5504 mV │\n"
        "\t│ VCC0V85      │   854 mV │   856 mV │   861 mV │\n"
        "\t│ VCC1V2_BTM   │  1204 mV │  1203 mV │  1208 mV │\n"
        "\t│ VCC1V2_TOP   │  1202 mV │  1202 mV │  1207 mV │\n"
        "\t│ VCC1V8       │  1829 mV │  1828 mV │  1832 mV │\n"
        "\t│ VCCINT       │   851 mV │   851 mV │   854 mV │\n"
        "\t│ VCCINT_I     │  5618 mA │  5602 mA │  8210 mA │\n"
        "\t│ VCCINT_TEMP  │    43 °C │    42 °C │    44 °C │\n"
        "\t│ POWER_GOOD   │     Good │          │          │\n"
        "\t└──────────────┴──────────┴──────────┴──────────┘\n");
}

TEST(show_sensors, of_a_u250_has_32_rows_on_a_screen_and_in_a_document)
{
    expect_sensors("xilinx_u250",
        "\t┌──────────────┬──────────┬──────────┬──────────┐\n"
        "\t│ Sensor       │ Current  │ Average  │ Maximum  │\n"
        "\t├──────────────┼──────────┼──────────┼──────────┤\n"
        "\t│ 3V3_AUX      │  3325 mV │  3323 mV │  3330 mV │\n"
        "\t│ 3V3_PEX      │  3295 mV │  3294 mV │  3301 mV │\n"
        "\t│ 12V_AUX      │ 12104 mV │ 12100 mV │ 12128 mV │\n"
        "\t│ 12V_AUX_I_IN │   812 mA │   805 mA │  1420 mA │\n"
        "\t│ 12V_PEX      │ 12058 mV │ 12052 mV │ 12080 mV │\n"
        "\t│ 12V_SW       │ 12044 mV │ 12040 mV │ 12066 mV │\n"
        "\t│ 12V_PEX_I_IN │  1386 mA │  1380 mA │  2104 mA │\n"
        "\t│ CAGE_TEMP0   │    31 °C │    31 °C │    33 °C │\n"
        "\t│ CAGE_TEMP1   │    33 °C │    32 °C │    34 °C │\n"
        "\t│ DDR4_VPP_BTM │  2500 mV │  2500 mV │  2504 mV │\n"
        "\t│ DDR4_VPP_TOP │  2500 mV │  2500 mV │  2503 mV │\n"
        "\t│ DIMM_TEMP0   │    36 °C │    35 °C │    37 °C │\n"
        "\t│ DIMM_TEMP1   │    38 °C │    37 °C │    39 °C │\n"
        "\t│ DIMM_TEMP2   │    37 °C │    36 °C │    38 °C │\n"
        "\t│ DIMM_TEMP3   │    35 °C │    35 °C │    36 °C │\n"
        "\t│ FAN_SPEED    │    0 RPM │    0 RPM │    0 RPM │\n"
        "\t│ FAN_TEMP     │    36 °C │    36 °C │    37 °C │\n"
        "\t│ FPGA_TEMP    │    39 °C │    38 °C │    41 °C │\n"
        "\t│ MGT0V9AVCC   │   908 mV │   907 mV │   910 mV │\n"
        "\t│ MGTAVTT      │  1204 mV │  1203 mV │  1207 mV │\n"
        "\t│ SE98_TEMP0   │    33 °C │    32 °C │    34 °C │\n"
        "\t│ SE98_TEMP1   │    29 °C │    29 °C │    30 °C │\n"
        "\t│ SE98_TEMP2   │    35 °C │    34 °C │    36 °C │\n"
        "\t│ SYS_5V5      │  5508 mV │  5505 mV │  5518 mV │\n"
        "\t│ VCC0V85      │   852 mV │   852 mV │   857 mV │\n"
        "\t│ VCC1V2_BTM   │  1203 mV │  1203 mV │  1207 mV │\n"
        "\t│ VCC1V2_TOP   │  1206 mV │  1205 mV │  1210 mV │\n"
        "\t│ VCC1V8       │  1812 mV │  1811 mV │  1816 mV │\n"
        "\t│ VCCINT       │   851 mV │   850 mV │   854 mV │\n"
        "\t│ VCCINT_I     │  8120 mA │  8075 mA │ 12440 mA │\n"
        "\t│ VCCINT_TEMP  │    38 °C │    37 °C │    40 °C │\n"
        "\t│ POWER_GOOD   │     Good │          │          │\n"
        "\t└──────────────┴──────────┴──────────┴──────────┘\n");
}

TEST(show_sensors, of_a_u50_has_25_rows_on_a_screen_and_in_a_document)
{
    expect_sensors("xilinx_u50",
        "\t┌───────────────┬──────────┬──────────┬──────────┐\n"
        "\t│ Sensor        │ Current  │ Average  │ Maximum  │\n"
        "\t├───────────────┼──────────┼──────────┼──────────┤\n"
        "\t│ 3V3_PEX       │  3300 mV │  3298 mV │  3306 mV │\n"
        "\t│ 3V3_PEX_I_IN  │   223 mA │   221 mA │   241 mA │\n"
        "\t│ 12V_PEX       │ 12213 mV │ 12208 mV │ 12231 mV │\n"
        "\t│ 12V_PEX_I_IN  │  1363 mA │  1352 mA │  1744 mA │\n"
        "\t│ CAGE_TEMP0    │    45 °C │    44 °C │    46 °C │\n"
        "\t│ FPGA_TEMP     │    41 °C │    40 °C │    43 °C │\n"
        "\t│ HBM_1V2       │  1198 mV │  1198 mV │  1201 mV │\n"
        "\t│ HBM_TEMP1     │    36 °C │    35 °C │    38 °C │\n"
        "\t│ HBM_TEMP2     │    37 °C │    36 °C │    38 °C │\n"
        "\t│ MGT0V9AVCC    │   903 mV │   903 mV │   906 mV │\n"
        "\t│ MGTAVTT       │  1204 mV │  1203 mV │  1206 mV │\n"
        "\t│ PEX_3V_POWER  │   736 mW │   729 mW │   797 mW │\n"
        "\t│ PEX_12V_POWER │ 16646 mW │ 16505 mW │ 21331 mW │\n"
        "\t│ SE98_TEMP0    │    29 °C │    29 °C │    30 °C │\n"
        "\t│ SE98_TEMP1    │    36 °C │    35 °C │    37 °C │\n"
        "\t│ SYS_5V5       │  4987 mV │  4988 mV │  5003 mV │\n"
        "\t│ VCC1V8        │  1800 mV │  1800 mV │  1804 mV │\n"
        "\t│ VCC3V3        │  3354 mV │  3353 mV │  3360 mV │\n"
        "\t│ VCCINT        │   849 mV │   849 mV │   852 mV │\n"
        "\t│ VCCINT_I      │  4100 mA │  4080 mA │  6900 mA │\n"
        "\t│ VCCINT_IO     │   852 mV │   851 mV │   855 mV │\n"
        "\t│ VCCINT_IO_I   │  2100 mA │  2080 mA │  2500 mA │\n"
        "\t│ VCCINT_TEMP   │    44 °C │    43 °C │    46 °C │\n"
        "\t│ VPP2V5        │  2512 mV │  2511 mV │  2516 mV │\n"
        "\t│ POWER_GOOD    │     Good │          │          │\n"
        "\t└───────────────┴──────────┴──────────┴──────────┘\n");
}

TEST(show_sensors, of_a_u55c_has_27_rows_on_a_screen_and_in_a_document)
{
    expect_sensors("xilinx_u55c",
        "\t┌──────────────┬──────────┬──────────┬──────────┐\n"
        "\t│ Sensor       │ Current  │ Average  │ Maximum  │\n"
        "\t├──────────────┼──────────┼──────────┼──────────┤\n"
        "\t│ 3V3_PEX      │  3288 mV │  3287 mV │  3296 mV │\n"
        "\t│ 3V3_PEX_I_IN │   952 mA │   955 mA │  1552 mA │\n"
        "\t│ 12V_AUX      │ 12208 mV │ 12206 mV │ 12216 mV │\n"
        "\t│ 12V_AUX_I_IN │   336 mA │   352 mA │  1312 mA │\n"
        "\t│ 12V_PEX      │ 12200 mV │ 12198 mV │ 12208 mV │\n"
        "\t│ 12V_PEX_I_IN │   681 mA │   704 mA │  1704 mA │\n"
        "\t│ CAGE_TEMP0   │    23 °C │    23 °C │    33 °C │\n"
        "\t│ CAGE_TEMP1   │    24 °C │    24 °C │    34 °C │\n"
        "\t│ FPGA_TEMP    │    28 °C │    29 °C │    49 °C │\n"
        "\t│ HBM_1V2      │  1202 mV │  1202 mV │  1204 mV │\n"
        "\t│ HBM_1V2_I    │  1050 mA │  1060 mA │  2900 mA │\n"
        "\t│ HBM_TEMP1    │    30 °C │    30 °C │    44 °C │\n"
        "\t│ HBM_TEMP2    │    31 °C │    31 °C │    45 °C │\n"
        "\t│ MGT0V9AVCC   │   901 mV │   901 mV │   906 mV │\n"
        "\t│ MGTAVTT      │  1200 mV │  1200 mV │  1205 mV │\n"
        "\t│ SE98_TEMP0   │    26 °C │    26 °C │    39 °C │\n"
        "\t│ SE98_TEMP1   │    23 °C │    23 °C │    34 °C │\n"
        "\t│ SYS_5V5      │  5010 mV │  5009 mV │  5034 mV │\n"
        "\t│ VCC1V8       │  1805 mV │  1805 mV │  1814 mV │\n"
        "\t│ VCC3V3       │  3359 mV │  3358 mV │  3361 mV │\n"
        "\t│ VCCINT       │   851 mV │   851 mV │   854 mV │\n"
        "\t│ VCCINT_I     │  4600 mA │  4800 mA │ 21200 mA │\n"
        "\t│ VCCINT_IO    │   851 mV │   851 mV │   856 mV │\n"
        "\t│ VCCINT_IO_I  │   700 mA │   720 mA │  3500 mA │\n"
        "\t│ VCCINT_TEMP  │    31 °C │    31 °C │    44 °C │\n"
        "\t│ VPP2V5       │  2488 mV │  2488 mV │  2513 mV │\n"
        "\t│ POWER_GOOD   │     Good │          │          │\n"
        "\t└──────────────┴──────────┴──────────┴──────────┘\n");
}

// clang-format on

/// Register accesses in the last run's trace, in order: "r 0x28018", "w 0x20010".
std::vector<std::string> accesses(const rack_t& rack)
{
    std::vector<std::string> found;
    std::istringstream trace{rack.trace()};
    for (std::string line; std::getline(trace, line);) {
        const bool is_read = line.find(" ivra_hw_read(") != std::string::npos;
        if (!is_read && line.find(" ivra_hw_write(") == std::string::npos)
            continue;
        const std::size_t end = line.find('[');
        const std::size_t begin = line.rfind(' ', end) + 1;
        found.push_back((is_read ? "r " : "w ") + line.substr(begin, end - begin));
    }
    return found;
}

std::string hexadecimal(unsigned number)
{
    std::ostringstream text;
    text << std::hex << "0x" << number;
    return text.str();
}

TEST(show_sensors, of_a_ready_u200_makes_exactly_the_reads_of_its_sensors_and_takes_no_lock_for_them)
{
    rack_t rack;
    rack.plug("xilinx_u200");
    rack.run("list"); // brings the XMC up
    rack.run("show sensors");

    // Address of the maximum of each sensor, in the order of the report; average and current value follow it.
    constexpr unsigned maximums[] = {0x28048, 0x2803c, 0x28054, 0x280e4, 0x28030, 0x280b4, 0x280d8, 0x28180,
                                     0x2818c, 0x28060, 0x2809c, 0x28120, 0x2812c, 0x28138, 0x28144, 0x28174,
                                     0x28114, 0x28108, 0x280a8, 0x280c0, 0x28150, 0x2815c, 0x28168, 0x2806c,
                                     0x28090, 0x280cc, 0x28078, 0x28084, 0x280f0, 0x280fc, 0x282dc};
    std::vector<std::string> expected{"w 0x20010", "r 0x28018"};
    for (const unsigned maximum : maximums)
        for (const unsigned word : {8U, 4U, 0U})
            expected.push_back("r " + hexadecimal(maximum + word));
    expected.emplace_back("r 0x28380");
    EXPECT_EQ(accesses(rack), expected);

    const std::string trace = rack.trace();
    const std::size_t unlock = trace.find(" ivra_hw_shared_mutex_unlock(");
    EXPECT_LT(unlock, trace.find("0x28050[31:0]"));
    EXPECT_EQ(trace.find(" ivra_hw_shared_mutex_lock(", unlock), std::string::npos);
}

TEST(show_sensors, shows_register_values_as_they_are)
{
    rack_t rack;
    rack.plug("xilinx_u50", {{"xmc", R"({"sensors": {"3V3_PEX": [0, 4294967295, 7]}})"}});
    EXPECT_NE(rack.run("show sensors --json")
                  .out.find(R"({"sensors":"3V3_PEX","Current":"0 mV","Average":"4294967295 mV","Maximum":"7 mV"})"),
              std::string::npos);
}

TEST(show_sensors, reads_a_set_power_good_bit_as_bad)
{
    rack_t rack;
    rack.plug("xilinx_u50", {{"xmc", R"({"power_good": false})"}});
    EXPECT_NE(rack.run("show sensors --json").out.find(R"({"sensors":"POWER_GOOD","Current":"Bad"}]})"),
              std::string::npos);
}

TEST(show_sensors, looks_at_no_other_bit_of_power_good)
{
    const auto power = [](const std::string& garble) {
        rack_t rack;
        rack.plug("xilinx_u50", {{"xmc", R"({"power_good": true})"}});
        rack.run("list");
        // The status, 24 times three registers, and power-good.
        rack.faults(R"({"call": "ivra_hw_read", "nth": 74, "garble": ")" + garble + R"("})");
        const std::string out = rack.run("show sensors --json").out;
        const std::size_t at = out.find("POWER_GOOD");
        return out.substr(at, out.find('}', at) - at);
    };
    EXPECT_EQ(power("feffffff"), R"(POWER_GOOD","Current":"Good")");
    EXPECT_EQ(power("01000000"), R"(POWER_GOOD","Current":"Bad")");
}

TEST(show_sensors, ends_with_the_text_of_the_register_that_could_not_be_read)
{
    struct row_t
    {
        const char* nth;
        const char* text;
    };
    // The first read is that of the status.
    constexpr row_t rows[] = {
        {"2", "Cannot read XMC sensor inst register: Input/output error\n"},
        {"3", "Cannot read XMC sensor avg register: Input/output error\n"},
        {"4", "Cannot read XMC sensor max register: Input/output error\n"},
        {"94", "Cannot read XMC sensor max register: Input/output error\n"},
        {"95", "Cannot read XMC POWER GOOD register: Input/output error\n"},
    };
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("xilinx_u200");
        rack.run("list");
        rack.faults(std::string{R"({"call": "ivra_hw_read", "errno": "EIO", "nth": )"} + row.nth + "}");
        const run_t run = rack.run("show sensors");
        EXPECT_EQ(run.out, "Retrieving sensor data... ");
        EXPECT_EQ(run.err, row.text);
        EXPECT_EQ(run.status, 1);
    }
}

TEST(show_sensors, that_fails_leaves_its_beginning_in_the_json_log)
{
    rack_t rack;
    rack.plug("xilinx_u50", {{"xmc", "null"}});
    const run_t run = rack.run("show sensors --json");
    EXPECT_EQ(run.out,
              R"({"data":{},"status":{"success":false,"message":)"
              R"("Could not get board sensors as Alveo XMC subsystem is not initialized."},"log":[)"
              R"({"type":"info","message":"get_xmc: Could not initialize Alveo XMC subsystem: XMC core not found: )"
              R"(Invalid argument"},)"
              R"({"type":"error","message":"Could not get board sensors as Alveo XMC subsystem is not initialized."},)"
              R"({"type":"info","message":"Retrieving sensor data... "}]})"
              "\n");
    EXPECT_EQ(run.status, 1);
}

TEST(show_sensors, of_a_board_without_sensors_says_so_in_red)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p");
    EXPECT_EQ(rack.run("show sensors").out, "Retrieving sensor data... done\n"
                                            "Sensors\n"
                                            "\tInfo: No sensors available\n");
    EXPECT_EQ(rack.run("show sensors", {stream_t::terminal, stream_t::terminal}).out,
              "\033[0mRetrieving sensor data... \033[0m\033[32mdone\033[0m\n"
              "\033[1mSensors\033[0m\n"
              "\t\033[0mInfo: \033[31mNo sensors available\033[0m\033[0m\n");
    EXPECT_EQ(rack.run("show sensors -j").out,
              R"({"data":{"Sensors":{"Info":"No sensors available"}},"status":{"success":true},)"
              R"("log":[{"type":"info","message":"Retrieving sensor data... done"}]})"
              "\n");
}

} // namespace
} // namespace ivra::tests
