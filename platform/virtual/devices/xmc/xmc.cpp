#include "devices/xmc/xmc.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

namespace ivra::virtual_platform {

namespace {

// Byte offsets in the core's space.
constexpr std::uint64_t reset_register = 0x20010;
constexpr std::uint64_t status_register = 0x28018;
constexpr std::uint64_t error_register = 0x2801c;
constexpr std::uint64_t control_register = 0x28028;
constexpr std::uint64_t message_offset_register = 0x28310;
constexpr std::uint64_t message_error_register = 0x28314;
constexpr std::uint64_t power_good_register = 0x28380;

constexpr std::uint32_t mailbox_offset = 0x1000; // what HOST_MSG_OFFSET says, counted from 0x28010
constexpr std::uint64_t mailbox = 0x28010 + mailbox_offset;

// STATUS: bit 0 comes with what says that the firmware runs, bit 28 by itself.
constexpr std::uint32_t status_firmware = 0x03018801;
constexpr std::uint32_t status_satellite = 1U << 28U;

constexpr std::uint32_t reset_released = 1U << 0U;
constexpr std::uint32_t control_packet_posted = 1U << 5U;
constexpr std::uint32_t control_clear_error = 1U << 1U;

// A packet's header: opcode in bits 31 to 24, bytes of the payload in bits 11 to 0.
constexpr std::uint32_t opcode_card_information = 4;
constexpr std::uint32_t size_mask = 0xfff;

constexpr std::uint32_t message_error_opcode = 1;
constexpr std::uint32_t message_error_size = 2;

// What the board remembers for this device, beside its registers.
constexpr std::size_t released_at = 0;   // nanoseconds
constexpr std::size_t posted_at = 1;     // nanoseconds
constexpr std::size_t posted_header = 2; // of the packet: the answer takes its place

struct sensor_row_t
{
    std::string_view name;
    std::uint64_t maximum; // average and current value follow
};

// clang-format off
constexpr sensor_row_t sensor_rows[] = {
    // sensor           maximum
    {"12V_PEX",        0x28030},
    {"3V3_PEX",        0x2803c},
    {"3V3_AUX",        0x28048},
    {"12V_AUX",        0x28054},
    {"DDR4_VPP_BTM",   0x28060},
    {"SYS_5V5",        0x2806c},
    {"VCC1V2_TOP",     0x28078},
    {"VCC1V8",         0x28084},
    {"VCC0V85",        0x28090},
    {"DDR4_VPP_TOP",   0x2809c},
    {"MGT0V9AVCC",     0x280a8},
    {"12V_SW",         0x280b4},
    {"MGTAVTT",        0x280c0},
    {"VCC1V2_BTM",     0x280cc},
    {"12V_PEX_I_IN",   0x280d8},
    {"12V_AUX_I_IN",   0x280e4},
    {"VCCINT",         0x280f0},
    {"VCCINT_I",       0x280fc},
    {"FPGA_TEMP",      0x28108},
    {"FAN_TEMP",       0x28114},
    {"DIMM_TEMP0",     0x28120},
    {"DIMM_TEMP1",     0x2812c},
    {"DIMM_TEMP2",     0x28138},
    {"DIMM_TEMP3",     0x28144},
    {"SE98_TEMP0",     0x28150},
    {"SE98_TEMP1",     0x2815c},
    {"SE98_TEMP2",     0x28168},
    {"FAN_SPEED",      0x28174},
    {"CAGE_TEMP0",     0x28180},
    {"CAGE_TEMP1",     0x2818c},
    {"HBM_TEMP1",      0x28270},
    {"VCC3V3",         0x2827c},
    {"3V3_PEX_I_IN",   0x28288},
    {"VCCINT_IO_I",    0x28294},
    {"HBM_1V2",        0x282a0},
    {"VPP2V5",         0x282ac},
    {"VCCINT_IO",      0x282b8},
    {"HBM_TEMP2",      0x282c4},
    {"VCCINT_TEMP",    0x282dc},
    {"PEX_12V_POWER",  0x282e8},
    {"PEX_3V_POWER",   0x282f4},
    {"HBM_1V2_I",      0x28420},
};
// clang-format on

/// Time since something that is remembered happened. A clock that was set back, as by a restart of the host, says that
/// it was long ago.
device_time since(std::int64_t then, device_time now)
{
    return then < 0 || now.count() < then ? device_time::max() : now - device_time{then};
}

/// When it started last: with its reset, or by itself.
std::int64_t started_at(const xmc_t& config, const core_t& core, const register_file& registers, device_time now)
{
    const std::int64_t then = registers.kept(core, released_at);
    return config.restarted_at <= now ? std::max(then, std::int64_t{config.restarted_at.count()}) : then;
}

bool has_come(const duration_t& after, device_time elapsed)
{
    return after && elapsed >= *after;
}

/// The bits of STATUS that have come.
std::array<bool, 2> bits_of(const xmc_t& config, const core_t& core, const register_file& registers, device_time now)
{
    if ((registers.read(core, reset_register) & reset_released) == 0)
        return {false, false};
    const device_time elapsed = since(started_at(config, core, registers, now), now);
    return {has_come(config.ready_after[0], elapsed), has_come(config.ready_after[1], elapsed)};
}

} // namespace

xmc_phase_t phase_of(const xmc_t& config, const core_t& core, const register_file& registers, device_time now)
{
    if ((registers.read(core, reset_register) & reset_released) == 0)
        return xmc_phase_t::in_reset;
    return bits_of(config, core, registers, now) == std::array{true, true} ? xmc_phase_t::ready : xmc_phase_t::starting;
}

/// One register of its own: how it is read (null: what was stored) and written.
struct xmc::row_t
{
    std::uint64_t offset;
    std::uint32_t (xmc::*read)(device_time now) const;
    void (xmc::*write)(std::uint32_t value, device_time now);
};

constexpr xmc::row_t xmc::rows[] = {
    // clang-format off
    // offset                  read                  write
    {reset_register,           nullptr,              &xmc::change_reset},
    {status_register,          &xmc::status,         &xmc::keep_as_it_is},
    {error_register,           &xmc::error,          &xmc::keep_as_it_is},
    {control_register,         nullptr,              &xmc::change_control},
    {message_offset_register,  &xmc::message_offset, &xmc::keep_as_it_is},
    {message_error_register,   nullptr,              &xmc::keep_as_it_is},
    {power_good_register,      &xmc::power_good,     &xmc::keep_as_it_is},
    // clang-format on
};

const xmc::row_t* xmc::row_of(std::uint64_t offset)
{
    const auto* const row = std::ranges::find(rows, offset, &row_t::offset);
    return row == std::end(rows) ? nullptr : row;
}

std::uint32_t xmc::read(std::uint64_t offset, device_time now)
{
    if (config_.dead_link)
        return ~std::uint32_t{0};
    if (is_answer_due(now)) {
        const register_file::lock lock{registers_};
        if (is_answer_due(now)) // no other process was faster
            answer();
    }
    if (const row_t* row = row_of(offset); row != nullptr && row->read != nullptr)
        return (this->*row->read)(now);
    const std::optional<std::uint32_t> value = sensor(offset, now);
    return value ? *value : stored(offset);
}

void xmc::write(std::uint64_t offset, std::uint32_t value, device_time now)
{
    if (config_.dead_link)
        return;
    const register_file::lock lock{registers_};
    if (is_answer_due(now))
        answer();
    if (const row_t* row = row_of(offset))
        (this->*row->write)(value, now);
    else if (!sensor(offset, now))
        store(offset, value);
}

std::uint32_t xmc::status(device_time now) const
{
    const auto [firmware, satellite] = bits_of(config_, core_, registers_, now);
    return (firmware ? status_firmware : 0) | (satellite ? status_satellite : 0);
}

std::uint32_t xmc::error(device_time) const
{
    return config_.error;
}

std::uint32_t xmc::message_offset(device_time now) const
{
    return is_ready(now) ? mailbox_offset : 0;
}

std::uint32_t xmc::power_good(device_time now) const
{
    return is_ready(now) && !config_.power_good ? 1 : 0; // bit 0 says that it is bad
}

void xmc::change_reset(std::uint32_t value, device_time now)
{
    const bool was_released = (stored(reset_register) & reset_released) != 0;
    const bool is_released = (value & reset_released) != 0;
    if (was_released == is_released)
        return; // it runs, or stands still, already
    if (is_released) {
        registers_.keep(core_, released_at, now.count()); // before the register tells that it counts
    } else {
        store(control_register, 0);
        store(message_error_register, 0);
    }
    store(reset_register, value & reset_released);
}

void xmc::change_control(std::uint32_t value, device_time now)
{
    const bool was_posted = (stored(control_register) & control_packet_posted) != 0;
    const bool is_posted = (value & control_packet_posted) != 0;
    if ((value & control_clear_error) != 0)
        store(message_error_register, 0);
    if (is_posted && !was_posted) {
        registers_.keep(core_, posted_at, now.count());
        registers_.keep(core_, posted_header, stored(mailbox));
    }
    value &= ~(control_clear_error | control_packet_posted); // the one is done, the other is not the host's to clear
    store(control_register, value | (was_posted || is_posted ? control_packet_posted : 0));
}

void xmc::keep_as_it_is(std::uint32_t, device_time) {}

std::optional<std::uint32_t> xmc::sensor(std::uint64_t offset, device_time now) const
{
    for (const sensor_row_t& row : sensor_rows) {
        if (offset < row.maximum || offset > row.maximum + 8)
            continue;
        const auto values = std::ranges::find(config_.sensors, row.name, &xmc_sensor_t::name);
        if (values == config_.sensors.end() || !is_ready(now))
            return 0;
        return values->values.at(2 - (offset - row.maximum) / 4); // the rack begins with the current value
    }
    return std::nullopt;
}

bool xmc::is_ready(device_time now) const
{
    return phase_of(config_, core_, registers_, now) == xmc_phase_t::ready;
}

bool xmc::is_answer_due(device_time now) const
{
    if ((stored(control_register) & control_packet_posted) == 0 || !config_.answer_after || !is_ready(now))
        return false;
    // A packet that was posted too early waits until it is ready.
    const device_time ready_after = std::max(*config_.ready_after[0], *config_.ready_after[1]);
    const device_time since_ready = since(started_at(config_, core_, registers_, now), now) - ready_after;
    return std::min(since_ready, since(registers_.kept(core_, posted_at), now)) >= *config_.answer_after;
}

/// Takes the packet that was posted; the lock is held. The posted bit goes last: a process that is killed on the way
/// leaves the packet to the next one.
void xmc::answer()
{
    const auto header = static_cast<std::uint32_t>(registers_.kept(core_, posted_header));
    if (header >> 24U != opcode_card_information)
        store(message_error_register, message_error_opcode);
    else if ((header & size_mask) != 0)
        store(message_error_register, message_error_size);
    else
        send(card_information(config_.card));
    store(control_register, stored(control_register) & ~control_packet_posted);
}

void xmc::send(const std::string& payload)
{
    store(mailbox, opcode_card_information << 24U | static_cast<std::uint32_t>(payload.size()));
    for (std::size_t at = 0; at < payload.size(); at += 4) {
        std::uint32_t word = 0;
        for (std::size_t byte = 0; byte < 4 && at + byte < payload.size(); ++byte)
            word |= std::uint32_t{static_cast<std::uint8_t>(payload[at + byte])} << 8U * byte;
        if (const std::uint64_t offset = mailbox + 4 + at; offset + 4 <= core_.size)
            store(offset, word);
    }
}

} // namespace ivra::virtual_platform
