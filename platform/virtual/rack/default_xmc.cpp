#include "rack/defaults.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <span>

namespace ivra::virtual_platform {

namespace {

// clang-format off
constexpr xmc_sensor_t u200_sensors[] = {
    // sensor           current average maximum
    {"3V3_AUX",        {  3313,   3312,   3316}},
    {"3V3_PEX",        {  3361,   3358,   3364}},
    {"12V_AUX",        {   479,    478,    489}},
    {"12V_AUX_I_IN",   {     3,      2,     12}},
    {"12V_PEX",        { 11962,  11950,  11984}},
    {"12V_SW",         { 12021,  12018,  12052}},
    {"12V_PEX_I_IN",   {  1445,   1438,   1838}},
    {"CAGE_TEMP0",     {    34,     33,     36}},
    {"CAGE_TEMP1",     {     0,      0,      0}},
    {"DDR4_VPP_BTM",   {  2502,   2501,   2505}},
    {"DDR4_VPP_TOP",   {  2499,   2499,   2503}},
    {"DIMM_TEMP0",     {    43,     42,     44}},
    {"DIMM_TEMP1",     {    45,     44,     45}},
    {"DIMM_TEMP2",     {    44,     43,     45}},
    {"DIMM_TEMP3",     {    42,     42,     43}},
    {"FAN_SPEED",      {  1120,   1118,   1136}},
    {"FAN_TEMP",       {    49,     49,     50}},
    {"FPGA_TEMP",      {    52,     51,     52}},
    {"MGT0V9AVCC",     {   908,    907,    911}},
    {"MGTAVTT",        {  1203,   1202,   1205}},
    {"SE98_TEMP0",     {    50,     49,     50}},
    {"SE98_TEMP1",     {    41,     41,     41}},
    {"SE98_TEMP2",     {    49,     48,     49}},
    {"SYS_5V5",        {  5492,   5490,   5504}},
    {"VCC0V85",        {   854,    856,    861}},
    {"VCC1V2_BTM",     {  1204,   1203,   1208}},
    {"VCC1V2_TOP",     {  1202,   1202,   1207}},
    {"VCC1V8",         {  1829,   1828,   1832}},
    {"VCCINT",         {   851,    851,    854}},
    {"VCCINT_I",       {  5618,   5602,   8210}},
    {"VCCINT_TEMP",    {    43,     42,     44}},
};

constexpr xmc_sensor_t u250_sensors[] = {
    // sensor           current average maximum
    {"3V3_AUX",        {  3325,   3323,   3330}},
    {"3V3_PEX",        {  3295,   3294,   3301}},
    {"12V_AUX",        { 12104,  12100,  12128}},
    {"12V_AUX_I_IN",   {   812,    805,   1420}},
    {"12V_PEX",        { 12058,  12052,  12080}},
    {"12V_SW",         { 12044,  12040,  12066}},
    {"12V_PEX_I_IN",   {  1386,   1380,   2104}},
    {"CAGE_TEMP0",     {    31,     31,     33}},
    {"CAGE_TEMP1",     {    33,     32,     34}},
    {"DDR4_VPP_BTM",   {  2500,   2500,   2504}},
    {"DDR4_VPP_TOP",   {  2500,   2500,   2503}},
    {"DIMM_TEMP0",     {    36,     35,     37}},
    {"DIMM_TEMP1",     {    38,     37,     39}},
    {"DIMM_TEMP2",     {    37,     36,     38}},
    {"DIMM_TEMP3",     {    35,     35,     36}},
    {"FAN_SPEED",      {     0,      0,      0}},
    {"FAN_TEMP",       {    36,     36,     37}},
    {"FPGA_TEMP",      {    39,     38,     41}},
    {"MGT0V9AVCC",     {   908,    907,    910}},
    {"MGTAVTT",        {  1204,   1203,   1207}},
    {"SE98_TEMP0",     {    33,     32,     34}},
    {"SE98_TEMP1",     {    29,     29,     30}},
    {"SE98_TEMP2",     {    35,     34,     36}},
    {"SYS_5V5",        {  5508,   5505,   5518}},
    {"VCC0V85",        {   852,    852,    857}},
    {"VCC1V2_BTM",     {  1203,   1203,   1207}},
    {"VCC1V2_TOP",     {  1206,   1205,   1210}},
    {"VCC1V8",         {  1812,   1811,   1816}},
    {"VCCINT",         {   851,    850,    854}},
    {"VCCINT_I",       {  8120,   8075,  12440}},
    {"VCCINT_TEMP",    {    38,     37,     40}},
};

constexpr xmc_sensor_t u50_sensors[] = {
    // sensor           current average maximum
    {"3V3_PEX",        {  3300,   3298,   3306}},
    {"3V3_PEX_I_IN",   {   223,    221,    241}},
    {"12V_PEX",        { 12213,  12208,  12231}},
    {"12V_PEX_I_IN",   {  1363,   1352,   1744}},
    {"CAGE_TEMP0",     {    45,     44,     46}},
    {"FPGA_TEMP",      {    41,     40,     43}},
    {"HBM_1V2",        {  1198,   1198,   1201}},
    {"HBM_TEMP1",      {    36,     35,     38}},
    {"HBM_TEMP2",      {    37,     36,     38}},
    {"MGT0V9AVCC",     {   903,    903,    906}},
    {"MGTAVTT",        {  1204,   1203,   1206}},
    {"PEX_3V_POWER",   {   736,    729,    797}},
    {"PEX_12V_POWER",  { 16646,  16505,  21331}},
    {"SE98_TEMP0",     {    29,     29,     30}},
    {"SE98_TEMP1",     {    36,     35,     37}},
    {"SYS_5V5",        {  4987,   4988,   5003}},
    {"VCC1V8",         {  1800,   1800,   1804}},
    {"VCC3V3",         {  3354,   3353,   3360}},
    {"VCCINT",         {   849,    849,    852}},
    {"VCCINT_I",       {  4100,   4080,   6900}},
    {"VCCINT_IO",      {   852,    851,    855}},
    {"VCCINT_IO_I",    {  2100,   2080,   2500}},
    {"VCCINT_TEMP",    {    44,     43,     46}},
    {"VPP2V5",         {  2512,   2511,   2516}},
};

constexpr xmc_sensor_t u55c_sensors[] = {
    // sensor           current average maximum
    {"3V3_PEX",        {  3288,   3287,   3296}},
    {"3V3_PEX_I_IN",   {   952,    955,   1552}},
    {"12V_AUX",        { 12208,  12206,  12216}},
    {"12V_AUX_I_IN",   {   336,    352,   1312}},
    {"12V_PEX",        { 12200,  12198,  12208}},
    {"12V_PEX_I_IN",   {   681,    704,   1704}},
    {"CAGE_TEMP0",     {    23,     23,     33}},
    {"CAGE_TEMP1",     {    24,     24,     34}},
    {"FPGA_TEMP",      {    28,     29,     49}},
    {"HBM_1V2",        {  1202,   1202,   1204}},
    {"HBM_1V2_I",      {  1050,   1060,   2900}},
    {"HBM_TEMP1",      {    30,     30,     44}},
    {"HBM_TEMP2",      {    31,     31,     45}},
    {"MGT0V9AVCC",     {   901,    901,    906}},
    {"MGTAVTT",        {  1200,   1200,   1205}},
    {"SE98_TEMP0",     {    26,     26,     39}},
    {"SE98_TEMP1",     {    23,     23,     34}},
    {"SYS_5V5",        {  5010,   5009,   5034}},
    {"VCC1V8",         {  1805,   1805,   1814}},
    {"VCC3V3",         {  3359,   3358,   3361}},
    {"VCCINT",         {   851,    851,    854}},
    {"VCCINT_I",       {  4600,   4800,  21200}},
    {"VCCINT_IO",      {   851,    851,    856}},
    {"VCCINT_IO_I",    {   700,    720,   3500}},
    {"VCCINT_TEMP",    {    31,     31,     44}},
    {"VPP2V5",         {  2488,   2488,   2513}},
};

/// What the cards of a model have in common.
struct card_row_t
{
    std::string_view model;
    std::string_view number; // in serial numbers
    std::span<const xmc_sensor_t> sensors;
    bool fan;
    std::uint16_t watts;
};

constexpr card_row_t cards[] = {
    {"xilinx_u200", "0200", u200_sensors, true,  225},
    {"xilinx_u250", "0250", u250_sensors, false, 225},
    {"xilinx_u50",  "0050", u50_sensors,  false, 75},
    {"xilinx_u55c", "055C", u55c_sensors, false, 150},
};
// clang-format on

constexpr card_row_t other_card{"", "0000", {}, false, 75};

/// "VRT0200A0001": the letter is the XMC's on its board.
std::string default_serial(const card_row_t& row, std::size_t position, std::size_t number)
{
    char text[40];
    std::snprintf(text, sizeof text, "VRT%s%c%04zu", std::string{row.number}.c_str(),
                  static_cast<char>('A' + number % 26), position + 1);
    return text;
}

} // namespace

xmc_t default_xmc(std::string_view model, std::size_t position, std::size_t number)
{
    const auto* const found = std::ranges::find(cards, model, &card_row_t::model);
    const card_row_t& row = found == std::end(cards) ? other_card : *found;
    const model_t& board = defaults_of(model);
    xmc_t xmc;
    xmc.sensors.assign(row.sensors.begin(), row.sensors.end());
    xmc.card.name = "VIRTUAL " + upper_case(board.short_name);
    xmc.card.revision = "A";
    xmc.card.serial = default_serial(row, position, number);
    // Locally administered, and other ones than the design's: 16 for each of at most 16 XMCs of a board.
    xmc.card.macs = {{0x02, 0x00, 0x01, static_cast<std::uint8_t>(position >> 8U), static_cast<std::uint8_t>(position),
                      static_cast<std::uint8_t>(16 * number)},
                     static_cast<std::uint8_t>(board.mac_count)};
    xmc.card.fan = row.fan;
    xmc.card.configuration_mode = 7;
    xmc.card.maximum_power = row.watts;
    xmc.card.firmware = "4.3.9";
    return xmc;
}

} // namespace ivra::virtual_platform
