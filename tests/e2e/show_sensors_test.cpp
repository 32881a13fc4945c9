#include "support/rack.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

// clang-format off

TEST(show_sensors, of_a_u200_has_32_rows)
{
    rack_t rack;
    rack.plug("xilinx_u200");
    const run_t run = rack.run("show sensors");
    EXPECT_EQ(run.out,
                                  "Retrieving sensor data... done\n"
                                  "Sensors\n"
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
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(show_sensors, of_a_u250_has_32_rows)
{
    rack_t rack;
    rack.plug("xilinx_u250");
    const run_t run = rack.run("show sensors");
    EXPECT_EQ(run.out,
                                  "Retrieving sensor data... done\n"
                                  "Sensors\n"
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
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(show_sensors, of_a_u50_has_25_rows)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    const run_t run = rack.run("show sensors");
    EXPECT_EQ(run.out,
                                  "Retrieving sensor data... done\n"
                                  "Sensors\n"
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
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(show_sensors, of_a_u55c_has_27_rows)
{
    rack_t rack;
    rack.plug("xilinx_u55c");
    const run_t run = rack.run("show sensors");
    EXPECT_EQ(run.out,
                                  "Retrieving sensor data... done\n"
                                  "Sensors\n"
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
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(show_sensors, of_a_u200_in_json_is_an_array_of_rows)
{
    rack_t rack;
    rack.plug("xilinx_u200");
    const run_t run = rack.run("show sensors --json");
    EXPECT_EQ(run.out,
              R"({"data":{"Sensors":{"Sensor":[{"sensors":"3V3_AUX","Current":"3313 mV","Average":"3312 mV","Maximum":"3316 mV"},)"
              R"({"sensors":"3V3_PEX","Current":"3361 mV","Average":"3358 mV","Maximum":"3364 mV"},)"
              R"({"sensors":"12V_AUX","Current":"479 mV","Average":"478 mV","Maximum":"489 mV"},)"
              R"({"sensors":"12V_AUX_I_IN","Current":"3 mA","Average":"2 mA","Maximum":"12 mA"},)"
              R"({"sensors":"12V_PEX","Current":"11962 mV","Average":"11950 mV","Maximum":"11984 mV"},)"
              R"({"sensors":"12V_SW","Current":"12021 mV","Average":"12018 mV","Maximum":"12052 mV"},)"
              R"({"sensors":"12V_PEX_I_IN","Current":"1445 mA","Average":"1438 mA","Maximum":"1838 mA"},)"
              R"({"sensors":"CAGE_TEMP0","Current":"34 °C","Average":"33 °C","Maximum":"36 °C"},)"
              R"({"sensors":"CAGE_TEMP1","Current":"0 °C","Average":"0 °C","Maximum":"0 °C"},)"
              R"({"sensors":"DDR4_VPP_BTM","Current":"2502 mV","Average":"2501 mV","Maximum":"2505 mV"},)"
              R"({"sensors":"DDR4_VPP_TOP","Current":"2499 mV","Average":"2499 mV","Maximum":"2503 mV"},)"
              R"({"sensors":"DIMM_TEMP0","Current":"43 °C","Average":"42 °C","Maximum":"44 °C"},)"
              R"({"sensors":"DIMM_TEMP1","Current":"45 °C","Average":"44 °C","Maximum":"45 °C"},)"
              R"({"sensors":"DIMM_TEMP2","Current":"44 °C","Average":"43 °C","Maximum":"45 °C"},)"
              R"({"sensors":"DIMM_TEMP3","Current":"42 °C","Average":"42 °C","Maximum":"43 °C"},)"
              R"({"sensors":"FAN_SPEED","Current":"1120 RPM","Average":"1118 RPM","Maximum":"1136 RPM"},)"
              R"({"sensors":"FAN_TEMP","Current":"49 °C","Average":"49 °C","Maximum":"50 °C"},)"
              R"({"sensors":"FPGA_TEMP","Current":"52 °C","Average":"51 °C","Maximum":"52 °C"},)"
              R"({"sensors":"MGT0V9AVCC","Current":"908 mV","Average":"907 mV","Maximum":"911 mV"},)"
              R"({"sensors":"MGTAVTT","Current":"1203 mV","Average":"1202 mV","Maximum":"1205 mV"},)"
              R"({"sensors":"SE98_TEMP0","Current":"50 °C","Average":"49 °C","Maximum":"50 °C"},)"
              R"({"sensors":"SE98_TEMP1","Current":"41 °C","Average":"41 °C","Maximum":"41 °C"},)"
              R"({"sensors":"SE98_TEMP2","Current":"49 °C","Average":"48 °C","Maximum":"49 °C"},)"
              R"({"sensors":"SYS_5V5","Current":"5492 mV","Average":"5490 mV","Maximum":"5504 mV"},)"
              R"({"sensors":"VCC0V85","Current":"854 mV","Average":"856 mV","Maximum":"861 mV"},)"
              R"({"sensors":"VCC1V2_BTM","Current":"1204 mV","Average":"1203 mV","Maximum":"1208 mV"},)"
              R"({"sensors":"VCC1V2_TOP","Current":"1202 mV","Average":"1202 mV","Maximum":"1207 mV"},)"
              R"({"sensors":"VCC1V8","Current":"1829 mV","Average":"1828 mV","Maximum":"1832 mV"},)"
              R"({"sensors":"VCCINT","Current":"851 mV","Average":"851 mV","Maximum":"854 mV"},)"
              R"({"sensors":"VCCINT_I","Current":"5618 mA","Average":"5602 mA","Maximum":"8210 mA"},)"
              R"({"sensors":"VCCINT_TEMP","Current":"43 °C","Average":"42 °C","Maximum":"44 °C"},)"
              R"({"sensors":"POWER_GOOD","Current":"Good"}]}},"status":{"success":true},"log":[{"type":"info","message":"Retrieving sensor data... done"}]})"
              "\n");
    EXPECT_EQ(run.err, "Retrieving sensor data... done\n");
    EXPECT_EQ(run.status, 0);
}

TEST(show_sensors, of_a_u250_in_json_is_an_array_of_rows)
{
    rack_t rack;
    rack.plug("xilinx_u250");
    const run_t run = rack.run("show sensors --json");
    EXPECT_EQ(run.out,
              R"({"data":{"Sensors":{"Sensor":[{"sensors":"3V3_AUX","Current":"3325 mV","Average":"3323 mV","Maximum":"3330 mV"},)"
              R"({"sensors":"3V3_PEX","Current":"3295 mV","Average":"3294 mV","Maximum":"3301 mV"},)"
              R"({"sensors":"12V_AUX","Current":"12104 mV","Average":"12100 mV","Maximum":"12128 mV"},)"
              R"({"sensors":"12V_AUX_I_IN","Current":"812 mA","Average":"805 mA","Maximum":"1420 mA"},)"
              R"({"sensors":"12V_PEX","Current":"12058 mV","Average":"12052 mV","Maximum":"12080 mV"},)"
              R"({"sensors":"12V_SW","Current":"12044 mV","Average":"12040 mV","Maximum":"12066 mV"},)"
              R"({"sensors":"12V_PEX_I_IN","Current":"1386 mA","Average":"1380 mA","Maximum":"2104 mA"},)"
              R"({"sensors":"CAGE_TEMP0","Current":"31 °C","Average":"31 °C","Maximum":"33 °C"},)"
              R"({"sensors":"CAGE_TEMP1","Current":"33 °C","Average":"32 °C","Maximum":"34 °C"},)"
              R"({"sensors":"DDR4_VPP_BTM","Current":"2500 mV","Average":"2500 mV","Maximum":"2504 mV"},)"
              R"({"sensors":"DDR4_VPP_TOP","Current":"2500 mV","Average":"2500 mV","Maximum":"2503 mV"},)"
              R"({"sensors":"DIMM_TEMP0","Current":"36 °C","Average":"35 °C","Maximum":"37 °C"},)"
              R"({"sensors":"DIMM_TEMP1","Current":"38 °C","Average":"37 °C","Maximum":"39 °C"},)"
              R"({"sensors":"DIMM_TEMP2","Current":"37 °C","Average":"36 °C","Maximum":"38 °C"},)"
              R"({"sensors":"DIMM_TEMP3","Current":"35 °C","Average":"35 °C","Maximum":"36 °C"},)"
              R"({"sensors":"FAN_SPEED","Current":"0 RPM","Average":"0 RPM","Maximum":"0 RPM"},)"
              R"({"sensors":"FAN_TEMP","Current":"36 °C","Average":"36 °C","Maximum":"37 °C"},)"
              R"({"sensors":"FPGA_TEMP","Current":"39 °C","Average":"38 °C","Maximum":"41 °C"},)"
              R"({"sensors":"MGT0V9AVCC","Current":"908 mV","Average":"907 mV","Maximum":"910 mV"},)"
              R"({"sensors":"MGTAVTT","Current":"1204 mV","Average":"1203 mV","Maximum":"1207 mV"},)"
              R"({"sensors":"SE98_TEMP0","Current":"33 °C","Average":"32 °C","Maximum":"34 °C"},)"
              R"({"sensors":"SE98_TEMP1","Current":"29 °C","Average":"29 °C","Maximum":"30 °C"},)"
              R"({"sensors":"SE98_TEMP2","Current":"35 °C","Average":"34 °C","Maximum":"36 °C"},)"
              R"({"sensors":"SYS_5V5","Current":"5508 mV","Average":"5505 mV","Maximum":"5518 mV"},)"
              R"({"sensors":"VCC0V85","Current":"852 mV","Average":"852 mV","Maximum":"857 mV"},)"
              R"({"sensors":"VCC1V2_BTM","Current":"1203 mV","Average":"1203 mV","Maximum":"1207 mV"},)"
              R"({"sensors":"VCC1V2_TOP","Current":"1206 mV","Average":"1205 mV","Maximum":"1210 mV"},)"
              R"({"sensors":"VCC1V8","Current":"1812 mV","Average":"1811 mV","Maximum":"1816 mV"},)"
              R"({"sensors":"VCCINT","Current":"851 mV","Average":"850 mV","Maximum":"854 mV"},)"
              R"({"sensors":"VCCINT_I","Current":"8120 mA","Average":"8075 mA","Maximum":"12440 mA"},)"
              R"({"sensors":"VCCINT_TEMP","Current":"38 °C","Average":"37 °C","Maximum":"40 °C"},)"
              R"({"sensors":"POWER_GOOD","Current":"Good"}]}},"status":{"success":true},"log":[{"type":"info","message":"Retrieving sensor data... done"}]})"
              "\n");
    EXPECT_EQ(run.err, "Retrieving sensor data... done\n");
    EXPECT_EQ(run.status, 0);
}

TEST(show_sensors, of_a_u50_in_json_is_an_array_of_rows)
{
    rack_t rack;
    rack.plug("xilinx_u50");
    const run_t run = rack.run("show sensors --json");
    EXPECT_EQ(run.out,
              R"({"data":{"Sensors":{"Sensor":[{"sensors":"3V3_PEX","Current":"3300 mV","Average":"3298 mV","Maximum":"3306 mV"},)"
              R"({"sensors":"3V3_PEX_I_IN","Current":"223 mA","Average":"221 mA","Maximum":"241 mA"},)"
              R"({"sensors":"12V_PEX","Current":"12213 mV","Average":"12208 mV","Maximum":"12231 mV"},)"
              R"({"sensors":"12V_PEX_I_IN","Current":"1363 mA","Average":"1352 mA","Maximum":"1744 mA"},)"
              R"({"sensors":"CAGE_TEMP0","Current":"45 °C","Average":"44 °C","Maximum":"46 °C"},)"
              R"({"sensors":"FPGA_TEMP","Current":"41 °C","Average":"40 °C","Maximum":"43 °C"},)"
              R"({"sensors":"HBM_1V2","Current":"1198 mV","Average":"1198 mV","Maximum":"1201 mV"},)"
              R"({"sensors":"HBM_TEMP1","Current":"36 °C","Average":"35 °C","Maximum":"38 °C"},)"
              R"({"sensors":"HBM_TEMP2","Current":"37 °C","Average":"36 °C","Maximum":"38 °C"},)"
              R"({"sensors":"MGT0V9AVCC","Current":"903 mV","Average":"903 mV","Maximum":"906 mV"},)"
              R"({"sensors":"MGTAVTT","Current":"1204 mV","Average":"1203 mV","Maximum":"1206 mV"},)"
              R"({"sensors":"PEX_3V_POWER","Current":"736 mW","Average":"729 mW","Maximum":"797 mW"},)"
              R"({"sensors":"PEX_12V_POWER","Current":"16646 mW","Average":"16505 mW","Maximum":"21331 mW"},)"
              R"({"sensors":"SE98_TEMP0","Current":"29 °C","Average":"29 °C","Maximum":"30 °C"},)"
              R"({"sensors":"SE98_TEMP1","Current":"36 °C","Average":"35 °C","Maximum":"37 °C"},)"
              R"({"sensors":"SYS_5V5","Current":"4987 mV","Average":"4988 mV","Maximum":"5003 mV"},)"
              R"({"sensors":"VCC1V8","Current":"1800 mV","Average":"1800 mV","Maximum":"1804 mV"},)"
              R"({"sensors":"VCC3V3","Current":"3354 mV","Average":"3353 mV","Maximum":"3360 mV"},)"
              R"({"sensors":"VCCINT","Current":"849 mV","Average":"849 mV","Maximum":"852 mV"},)"
              R"({"sensors":"VCCINT_I","Current":"4100 mA","Average":"4080 mA","Maximum":"6900 mA"},)"
              R"({"sensors":"VCCINT_IO","Current":"852 mV","Average":"851 mV","Maximum":"855 mV"},)"
              R"({"sensors":"VCCINT_IO_I","Current":"2100 mA","Average":"2080 mA","Maximum":"2500 mA"},)"
              R"({"sensors":"VCCINT_TEMP","Current":"44 °C","Average":"43 °C","Maximum":"46 °C"},)"
              R"({"sensors":"VPP2V5","Current":"2512 mV","Average":"2511 mV","Maximum":"2516 mV"},)"
              R"({"sensors":"POWER_GOOD","Current":"Good"}]}},"status":{"success":true},"log":[{"type":"info","message":"Retrieving sensor data... done"}]})"
              "\n");
    EXPECT_EQ(run.err, "Retrieving sensor data... done\n");
    EXPECT_EQ(run.status, 0);
}

TEST(show_sensors, of_a_u55c_in_json_is_an_array_of_rows)
{
    rack_t rack;
    rack.plug("xilinx_u55c");
    const run_t run = rack.run("show sensors --json");
    EXPECT_EQ(run.out,
              R"({"data":{"Sensors":{"Sensor":[{"sensors":"3V3_PEX","Current":"3288 mV","Average":"3287 mV","Maximum":"3296 mV"},)"
              R"({"sensors":"3V3_PEX_I_IN","Current":"952 mA","Average":"955 mA","Maximum":"1552 mA"},)"
              R"({"sensors":"12V_AUX","Current":"12208 mV","Average":"12206 mV","Maximum":"12216 mV"},)"
              R"({"sensors":"12V_AUX_I_IN","Current":"336 mA","Average":"352 mA","Maximum":"1312 mA"},)"
              R"({"sensors":"12V_PEX","Current":"12200 mV","Average":"12198 mV","Maximum":"12208 mV"},)"
              R"({"sensors":"12V_PEX_I_IN","Current":"681 mA","Average":"704 mA","Maximum":"1704 mA"},)"
              R"({"sensors":"CAGE_TEMP0","Current":"23 °C","Average":"23 °C","Maximum":"33 °C"},)"
              R"({"sensors":"CAGE_TEMP1","Current":"24 °C","Average":"24 °C","Maximum":"34 °C"},)"
              R"({"sensors":"FPGA_TEMP","Current":"28 °C","Average":"29 °C","Maximum":"49 °C"},)"
              R"({"sensors":"HBM_1V2","Current":"1202 mV","Average":"1202 mV","Maximum":"1204 mV"},)"
              R"({"sensors":"HBM_1V2_I","Current":"1050 mA","Average":"1060 mA","Maximum":"2900 mA"},)"
              R"({"sensors":"HBM_TEMP1","Current":"30 °C","Average":"30 °C","Maximum":"44 °C"},)"
              R"({"sensors":"HBM_TEMP2","Current":"31 °C","Average":"31 °C","Maximum":"45 °C"},)"
              R"({"sensors":"MGT0V9AVCC","Current":"901 mV","Average":"901 mV","Maximum":"906 mV"},)"
              R"({"sensors":"MGTAVTT","Current":"1200 mV","Average":"1200 mV","Maximum":"1205 mV"},)"
              R"({"sensors":"SE98_TEMP0","Current":"26 °C","Average":"26 °C","Maximum":"39 °C"},)"
              R"({"sensors":"SE98_TEMP1","Current":"23 °C","Average":"23 °C","Maximum":"34 °C"},)"
              R"({"sensors":"SYS_5V5","Current":"5010 mV","Average":"5009 mV","Maximum":"5034 mV"},)"
              R"({"sensors":"VCC1V8","Current":"1805 mV","Average":"1805 mV","Maximum":"1814 mV"},)"
              R"({"sensors":"VCC3V3","Current":"3359 mV","Average":"3358 mV","Maximum":"3361 mV"},)"
              R"({"sensors":"VCCINT","Current":"851 mV","Average":"851 mV","Maximum":"854 mV"},)"
              R"({"sensors":"VCCINT_I","Current":"4600 mA","Average":"4800 mA","Maximum":"21200 mA"},)"
              R"({"sensors":"VCCINT_IO","Current":"851 mV","Average":"851 mV","Maximum":"856 mV"},)"
              R"({"sensors":"VCCINT_IO_I","Current":"700 mA","Average":"720 mA","Maximum":"3500 mA"},)"
              R"({"sensors":"VCCINT_TEMP","Current":"31 °C","Average":"31 °C","Maximum":"44 °C"},)"
              R"({"sensors":"VPP2V5","Current":"2488 mV","Average":"2488 mV","Maximum":"2513 mV"},)"
              R"({"sensors":"POWER_GOOD","Current":"Good"}]}},"status":{"success":true},"log":[{"type":"info","message":"Retrieving sensor data... done"}]})"
              "\n");
    EXPECT_EQ(run.err, "Retrieving sensor data... done\n");
    EXPECT_EQ(run.status, 0);
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
