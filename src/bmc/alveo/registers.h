#ifndef IVRA_BMC_ALVEO_REGISTERS_H
#define IVRA_BMC_ALVEO_REGISTERS_H

#include "records/units.h"

#include <ivra/hw.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

/// Registers of the XMC, the management controller of Alveo cards. Offsets are bytes in the XMC core's space.
namespace ivra::bsp::bmc::alveo::registers {

inline constexpr std::uint32_t xmc_hardware_id = 475;

/// A whole 32-bit register.
constexpr ivra_hw_register_description word(std::uint64_t offset, const char* name)
{
    return {.offset = offset, .bit_offset = 0, .width = 32, .name = name};
}

// clang-format off
//                                           offset   name
inline constexpr auto reset           = word(0x20010, nullptr);           // 1 releases the XMC
inline constexpr auto status          = word(0x28018, "STATUS");
inline constexpr auto error           = word(0x2801C, "ERROR");
inline constexpr auto control         = word(0x28028, "CONTROL");
inline constexpr auto host_msg_offset = word(0x28310, "HOST_MSG_OFFSET"); // of the mailbox, from register_base
inline constexpr auto host_msg_error  = word(0x28314, "HOST_MSG_ERROR");
inline constexpr auto power_good      = word(0x28380, "POWER_GOOD");

inline constexpr std::uint64_t register_base = 0x28010;

inline constexpr std::uint32_t status_ready          = 0x10000001; // bits 0 and 28, both
inline constexpr std::uint32_t control_packet_posted = 1U << 5;    // set by the host, cleared with the response
inline constexpr std::uint32_t control_clear_error   = 1U << 1;
inline constexpr std::uint32_t power_bad             = 1U << 0;
// clang-format on

/// One sensor: three words, its name and its unit (UTF-8).
struct sensor_reg_t
{
    ivra_hw_register_description max;
    ivra_hw_register_description avg;
    ivra_hw_register_description inst;
    std::array<char, 64> name;
    std::array<char, 16> unit;
    board::quantity_t quantity;
    unsigned per_base_unit; ///< how many steps of a word make one base unit of the quantity
};

/// The three words follow each other: maximum, average, current value.
template <std::size_t Name>
constexpr sensor_reg_t sensor(const char (&name)[Name], std::uint64_t max, const board::unit_t& unit)
{
    static_assert(Name <= 64);
    sensor_reg_t record{.max = word(max, name),
                        .avg = word(max + 4, name),
                        .inst = word(max + 8, name),
                        .name = {},
                        .unit = {},
                        .quantity = unit.quantity,
                        .per_base_unit = unit.per_base_unit};
    std::copy_n(name, Name, record.name.begin());
    for (std::size_t at = 0; unit.text[at] != '\0'; ++at)
        record.unit.at(at) = unit.text[at];
    return record;
}

inline constexpr const board::unit_t& mv = board::millivolts;
inline constexpr const board::unit_t& ma = board::milliamperes;
inline constexpr const board::unit_t& mw = board::milliwatts;
inline constexpr const board::unit_t& celsius = board::degrees_celsius;
inline constexpr const board::unit_t& rpm = board::revolutions_per_minute;

// clang-format off
//                                            name            max      unit
inline constexpr auto volt_12v_pex   = sensor("12V_PEX",       0x28030, mv);
inline constexpr auto volt_3v3_pex   = sensor("3V3_PEX",       0x2803C, mv);
inline constexpr auto volt_3v3_aux   = sensor("3V3_AUX",       0x28048, mv);
inline constexpr auto volt_12v_aux   = sensor("12V_AUX",       0x28054, mv);
inline constexpr auto ddr4_vpp_btm   = sensor("DDR4_VPP_BTM",  0x28060, mv);
inline constexpr auto sys_5v5        = sensor("SYS_5V5",       0x2806C, mv);
inline constexpr auto vcc1v2_top     = sensor("VCC1V2_TOP",    0x28078, mv);
inline constexpr auto vcc1v8         = sensor("VCC1V8",        0x28084, mv);
inline constexpr auto vcc0v85        = sensor("VCC0V85",       0x28090, mv);
inline constexpr auto ddr4_vpp_top   = sensor("DDR4_VPP_TOP",  0x2809C, mv);
inline constexpr auto mgt0v9avcc     = sensor("MGT0V9AVCC",    0x280A8, mv);
inline constexpr auto volt_12v_sw    = sensor("12V_SW",        0x280B4, mv);
inline constexpr auto mgtavtt        = sensor("MGTAVTT",       0x280C0, mv);
inline constexpr auto vcc1v2_btm     = sensor("VCC1V2_BTM",    0x280CC, mv);
inline constexpr auto curr_12v_pex   = sensor("12V_PEX_I_IN",  0x280D8, ma);
inline constexpr auto curr_12v_aux   = sensor("12V_AUX_I_IN",  0x280E4, ma);
inline constexpr auto vccint         = sensor("VCCINT",        0x280F0, mv);
inline constexpr auto vccint_i       = sensor("VCCINT_I",      0x280FC, ma);
inline constexpr auto fpga_temp      = sensor("FPGA_TEMP",     0x28108, celsius);
inline constexpr auto fan_temp       = sensor("FAN_TEMP",      0x28114, celsius);
inline constexpr auto dimm_temp0     = sensor("DIMM_TEMP0",    0x28120, celsius);
inline constexpr auto dimm_temp1     = sensor("DIMM_TEMP1",    0x2812C, celsius);
inline constexpr auto dimm_temp2     = sensor("DIMM_TEMP2",    0x28138, celsius);
inline constexpr auto dimm_temp3     = sensor("DIMM_TEMP3",    0x28144, celsius);
inline constexpr auto se98_temp0     = sensor("SE98_TEMP0",    0x28150, celsius);
inline constexpr auto se98_temp1     = sensor("SE98_TEMP1",    0x2815C, celsius);
inline constexpr auto se98_temp2     = sensor("SE98_TEMP2",    0x28168, celsius);
inline constexpr auto fan_speed      = sensor("FAN_SPEED",     0x28174, rpm);
inline constexpr auto cage_temp0     = sensor("CAGE_TEMP0",    0x28180, celsius);
inline constexpr auto cage_temp1     = sensor("CAGE_TEMP1",    0x2818C, celsius);
inline constexpr auto hbm_temp1      = sensor("HBM_TEMP1",     0x28270, celsius);
inline constexpr auto vcc3v3         = sensor("VCC3V3",        0x2827C, mv);
inline constexpr auto curr_3v3_pex   = sensor("3V3_PEX_I_IN",  0x28288, ma);
inline constexpr auto vccint_io_i    = sensor("VCCINT_IO_I",   0x28294, ma);
inline constexpr auto hbm_1v2        = sensor("HBM_1V2",       0x282A0, mv);
inline constexpr auto vpp2v5         = sensor("VPP2V5",        0x282AC, mv);
inline constexpr auto vccint_io      = sensor("VCCINT_IO",     0x282B8, mv);
inline constexpr auto hbm_temp2      = sensor("HBM_TEMP2",     0x282C4, celsius);
inline constexpr auto vccint_temp    = sensor("VCCINT_TEMP",   0x282DC, celsius);
inline constexpr auto pex_12v_power  = sensor("PEX_12V_POWER", 0x282E8, mw);
inline constexpr auto pex_3v_power   = sensor("PEX_3V_POWER",  0x282F4, mw);
inline constexpr auto hbm_1v2_i      = sensor("HBM_1V2_I",     0x28420, ma);
// clang-format on

// clang-format off
/// Sensors of a board, in the order in which they are reported.
using sensor_list = std::span<const std::reference_wrapper<const sensor_reg_t>>;

/// Of cards with DDR memory: U200, U250.
inline constexpr std::reference_wrapper<const sensor_reg_t> ddr_sensors[] = {
    volt_3v3_aux, volt_3v3_pex, volt_12v_aux, curr_12v_aux, volt_12v_pex, volt_12v_sw, curr_12v_pex, cage_temp0,
    cage_temp1, ddr4_vpp_btm, ddr4_vpp_top, dimm_temp0, dimm_temp1, dimm_temp2, dimm_temp3, fan_speed, fan_temp,
    fpga_temp, mgt0v9avcc, mgtavtt, se98_temp0, se98_temp1, se98_temp2, sys_5v5, vcc0v85, vcc1v2_btm, vcc1v2_top,
    vcc1v8, vccint, vccint_i, vccint_temp,
};

/// Of cards with high-bandwidth memory: U50.
inline constexpr std::reference_wrapper<const sensor_reg_t> hbm_sensors[] = {
    volt_3v3_pex, curr_3v3_pex, volt_12v_pex, curr_12v_pex, cage_temp0, fpga_temp, hbm_1v2, hbm_temp1, hbm_temp2,
    mgt0v9avcc, mgtavtt, pex_3v_power, pex_12v_power, se98_temp0, se98_temp1, sys_5v5, vcc1v8, vcc3v3, vccint,
    vccint_i, vccint_io, vccint_io_i, vccint_temp, vpp2v5,
};

/// Of cards with high-bandwidth memory and an auxiliary 12 V input: U55c.
inline constexpr std::reference_wrapper<const sensor_reg_t> hbm_sensors_with_auxiliary_power[] = {
    volt_3v3_pex, curr_3v3_pex, volt_12v_aux, curr_12v_aux, volt_12v_pex, curr_12v_pex, cage_temp0, cage_temp1,
    fpga_temp, hbm_1v2, hbm_1v2_i, hbm_temp1, hbm_temp2, mgt0v9avcc, mgtavtt, se98_temp0, se98_temp1, sys_5v5,
    vcc1v8, vcc3v3, vccint, vccint_i, vccint_io, vccint_io_i, vccint_temp, vpp2v5,
};
// clang-format on

} // namespace ivra::bsp::bmc::alveo::registers

#endif
