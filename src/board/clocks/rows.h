#ifndef IVRA_BOARD_CLOCKS_ROWS_H
#define IVRA_BOARD_CLOCKS_ROWS_H

#include <cstdint>

/// The registers that configure the clock generator, a Si5394 revision A, on U50 and U55c boards, in the order in which
/// they are written. They follow from the part's public register documentation and from published configurations that
/// let it run freely on these boards: the one for the U55c in axi-pcie-core (SLAC National Accelerator Laboratory,
/// BSD-3-Clause) agrees with the table for 10G in both cages. This project has not loaded any table into a real board.
namespace ivra::bsp::clocks {

/// Value of rows that a plan decides.
inline constexpr std::int16_t planned = -1;

/// The registers from `first` to `last`, all of one value.
struct rows_t
{
    std::uint16_t first;
    std::uint16_t last;
    std::int16_t value;
};

// clang-format off

/// Opens the generator for a new configuration.
inline constexpr rows_t preamble_rows[] = {
    {0x0B24, 0x0B24, 0xC0},
    {0x0B25, 0x0B25, 0x00},
    {0x0540, 0x0540, 0x01},
};

/// The configuration. "idle" rows let the generator run freely from its reference, with everything at rest that locks to
/// an input; "board" rows follow from the reference of the board; the others are fixed or planned.
inline constexpr rows_t main_rows[] = {
    {0x0006, 0x0008, 0x00},      // export tool version
    {0x000B, 0x000B, 0x68},      // I2C address
    {0x0016, 0x0016, 0x02},      // LOL while in holdover
    {0x0017, 0x0017, 0xDC},      // status interrupt masks
    {0x0018, 0x0019, 0xFF},      // LOS/OOF, LOL/holdover interrupt masks
    {0x001A, 0x001A, 0xFF},      // calibration interrupt mask
    {0x002B, 0x002B, 0x02},      // serial port mode
    {0x002C, 0x003F, 0x00},      // idle: input LOS: enables, times, thresholds; OOF enables
    {0x0040, 0x0040, 0x04},      // OOF reference: XA/XB
    {0x0041, 0x0044, 0x00},      // idle: OOF0-3 divider select
    {0x0045, 0x0045, 0x0C},      // OOF XO divider select
    {0x0046, 0x004D, 0x00},      // idle: OOF0-3 set, then clear thresholds
    {0x004E, 0x004F, 0x00},      // idle: OOF detection windows
    {0x0050, 0x0050, 0x0F},      // OOF asserted on LOS
    {0x0051, 0x0058, 0x00},      // idle: fast OOF0-3 set, then clear thresholds
    {0x0059, 0x0059, 0x00},      // idle: fast OOF detection windows
    {0x005A, 0x0069, 0x00},      // idle: OOF0-3 ratio references
    {0x0092, 0x0093, 0x00},      // idle: fast LOL enable and detection window
    {0x0095, 0x0096, 0x00},      // idle: fast LOL valid window and set threshold
    {0x0098, 0x0098, 0x00},      // idle: fast LOL clear threshold
    {0x009A, 0x009B, 0x00},      // idle: slow LOL enable and detection window
    {0x009D, 0x009E, 0x00},      // idle: slow LOL valid window and set threshold
    {0x00A0, 0x00A0, 0x00},      // idle: slow LOL clear threshold
    {0x00A2, 0x00A2, 0x00},      // idle: LOL timer enable
    {0x00A9, 0x00AC, 0x00},      // idle: LOL clear delay
    {0x00E5, 0x00E5, 0x01},      // fastlock extension control
    {0x00EA, 0x00ED, 0x00},      // idle: fastlock extension time
    {0x0102, 0x0102, 0x01},      // all outputs enabled
    {0x0112, 0x0115, planned},   // OUT0 config/format/amplitude/mux
    {0x0117, 0x011A, planned},   // OUT1 config/format/amplitude/mux
    {0x0126, 0x0129, planned},   // OUT2 config/format/amplitude/mux
    {0x012B, 0x012E, planned},   // OUT3 config/format/amplitude/mux
    {0x013F, 0x0140, 0x00},      // outputs always on
    {0x0141, 0x0141, 0x40},      // output disable masks (LOSXAXB)
    {0x0142, 0x0142, 0xFF},      // output disable masks (LOL/hold)
    {0x0206, 0x0206, planned},   // XA/XB prescaler (power of two)
    {0x0208, 0x022F, 0x00},      // idle: P0-P3 dividers: numerator, then denominator of each
    {0x0231, 0x0234, 0x0B},      // P0-P3 fractional mode
    {0x0235, 0x023E, planned},   // MXAXB multiplier: numerator, then denominator
    {0x0250, 0x0255, planned},   // R0, R1 output dividers
    {0x025C, 0x0261, planned},   // R2, R3 output dividers
    {0x026B, 0x0272, 0x00},      // design id text (8 bytes)
    {0x028A, 0x0291, 0x00},      // idle: OOF0-3 trigger, then clear threshold extension
    {0x0292, 0x0292, 0x3F},      // OOF stops on LOS
    {0x0293, 0x0293, 0x2F},      // OOF cleared on LOS
    {0x0294, 0x0294, 0x80},      // fastlock extension scale
    {0x0296, 0x0297, 0x00},      // idle: slow LOL window select, fastlock delay on switch enable
    {0x0299, 0x0299, 0x00},      // idle: fastlock delay on LOL enable
    {0x029D, 0x029F, 0x00},      // idle: fastlock delay on LOL
    {0x02A9, 0x02AB, 0x00},      // idle: fastlock delay on switch
    {0x02B7, 0x02B7, 0xFF},      // LOL no-signal time
    {0x02BC, 0x02BC, 0x00},      // idle: CMOS LOS minimum period
    {0x0302, 0x030B, planned},   // N0 divider: numerator, then denominator
    {0x030C, 0x030C, 0x00},      // N0 update (strobe, 0)
    {0x030D, 0x0316, planned},   // N1 divider: numerator, then denominator
    {0x0317, 0x0317, 0x00},      // N1 update (strobe, 0)
    {0x0318, 0x0321, planned},   // N2 divider: numerator, then denominator
    {0x0322, 0x0322, 0x00},      // N2 update (strobe, 0)
    {0x0323, 0x032C, planned},   // N3 divider: numerator, then denominator
    {0x032D, 0x032D, 0x00},      // N3 update (strobe, 0)
    {0x0338, 0x0338, 0x00},      // update all N (strobe, 0)
    {0x0339, 0x0339, 0x1F},      // frequency step mask
    {0x033B, 0x0352, 0x00},      // N0-N3 frequency step words
    {0x0359, 0x0360, 0x00},      // N0-N3 output delays
    {0x0487, 0x0487, 0x00},      // zero-delay mode (off)
    {0x0508, 0x0513, 0x00},      // idle: loop bandwidth, then fastlock bandwidth parameters
    {0x0515, 0x051F, 0x00},      // idle: M feedback divider: numerator, then denominator
    {0x0521, 0x0521, 0x2B},      // M fractional mode, output rate
    {0x052A, 0x052A, 0x00},      // idle: input select control
    {0x052B, 0x052B, 0x01},      // automatic fastlock
    {0x052C, 0x052C, 0x0F},      // idle: holdover enable and ramp
    {0x052D, 0x052D, 0x03},      // holdover ramp bypass
    {0x052E, 0x052F, 0x00},      // idle: holdover history length and delay
    {0x0531, 0x0532, 0x00},      // idle: holdover reference and cycle count
    {0x0533, 0x0533, 0x04},      // idle: holdover cycle count
    {0x0534, 0x0534, 0x00},      // idle: holdover cycle count
    {0x0535, 0x0535, 0x01},      // idle: force holdover (free-run)
    {0x0536, 0x0536, 0x06},      // idle: input switch mode
    {0x0537, 0x0539, 0x00},      // idle: input alarm masks and priorities
    {0x053D, 0x053D, 0x0A},      // idle: hitless coarse measure length
    {0x053E, 0x053E, 0x06},      // idle: hitless coarse measure delay
    {0x0588, 0x0588, 0x00},      // idle: hitless fine measure length
    {0x0589, 0x0589, 0x0C},      // idle: phase detector enable delay
    {0x058A, 0x058D, 0x00},      // idle: phase detector enable delay, hitless measure settle time
    {0x059B, 0x059B, 0x18},      // idle: holdover entry/exit options
    {0x059C, 0x059C, 0x0C},      // idle: holdover exit options
    {0x059D, 0x05A2, 0x00},      // idle: holdover exit bandwidth
    {0x05A4, 0x05A4, 0x20},      // idle: hitless limit
    {0x05A5, 0x05A6, 0x00},      // idle: hitless limit action, frequency ramp step
    {0x05AC, 0x05AE, 0x00},      // idle: output limit enables and maximum
    {0x05B1, 0x05B2, 0x00},      // idle: holdover settle target
    {0x0802, 0x0802, 0x35},      // idle: fix-up slot 0: 0x0535 = 1
    {0x0803, 0x0803, 0x05},      // idle: fix-up slot 0: 0x0535 = 1
    {0x0804, 0x0804, 0x01},      // idle: fix-up slot 0: 0x0535 = 1
    {0x0805, 0x0861, 0x00},      // fix-up slots 1-31 (unused)
    {0x090E, 0x090E, 0x03},      // board: XA/XB external clock, powered
    {0x0943, 0x0943, 0x00},      // board: control pin voltage 1.8 V
    {0x0949, 0x094A, 0x00},      // idle: input buffers, inputs to phase detector
    {0x094E, 0x094E, 0x49},      // reference hysteresis, CMOS select
    {0x094F, 0x094F, 0xF2},      // reference hysteresis, CMOS select
    {0x095E, 0x095E, 0x00},      // MXAXB integer flag
    {0x0A02, 0x0A05, planned},   // N half-step adders, routing, integer mode, power
    {0x0A14, 0x0A14, planned},   // N0 high-frequency flag
    {0x0A1A, 0x0A1A, planned},   // N1 high-frequency flag
    {0x0A20, 0x0A20, planned},   // N2 high-frequency flag
    {0x0A26, 0x0A26, planned},   // N3 high-frequency flag
    {0x0A38, 0x0A3A, 0x00},      // N0 phase step and count
    {0x0A3C, 0x0A3E, 0x00},      // N1 phase step and count
    {0x0A40, 0x0A42, 0x00},      // N2 phase step and count
    {0x0A44, 0x0A46, 0x00},      // N3 phase step and count
    {0x0A4C, 0x0A5B, 0x00},      // N0-N3 I/O delays
    {0x0B44, 0x0B44, 0x0F},      // idle: P/M fractional clocks off
    {0x0B46, 0x0B46, 0x00},      // idle: LOS clock disable
    {0x0B47, 0x0B47, 0x0F},      // idle: OOF clock disable
    {0x0B48, 0x0B48, 0x0F},      // idle: OOF divider clock disable
    {0x0B4A, 0x0B4A, planned},   // unused N clocks off
    {0x0B57, 0x0B57, 0x44},      // board: VCO start code after reset
    {0x0B58, 0x0B58, 0x01},      // board: VCO start code after reset
    {0x0C02, 0x0C02, 0x03},      // validation divider control
    {0x0C03, 0x0C03, 0x00},      // idle: input validation power
    {0x0C07, 0x0C07, 0x00},      // idle: input validation enable
    {0x0C08, 0x0C08, 0x00},      // idle: input validation time
};

/// More of the configuration, each row in its place by address, where an input could be locked to: on the U50.
inline constexpr rows_t lockable_rows[] = {
    {0x053A, 0x053A, 0x01},      // idle: hitless switch mode
    {0x053B, 0x053B, 0x03},      // idle: hitless phase measure threshold
    {0x053C, 0x053C, 0x00},      // idle: hitless phase measure threshold
};

/// Starts the generator with its new configuration.
inline constexpr rows_t postamble_rows[] = {
    {0x0514, 0x0514, 0x01},
    {0x001C, 0x001C, 0x01},
    {0x0540, 0x0540, 0x00},
    {0x0B24, 0x0B24, 0xC3},
    {0x0B25, 0x0B25, 0x02},
};

// clang-format on

} // namespace ivra::bsp::clocks

#endif
