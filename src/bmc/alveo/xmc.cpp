#include "bmc/alveo/xmc.h"

#include "hw/sleep.h"
#include "text/text_stream.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <system_error>
#include <vector>

namespace ivra::bsp::bmc::alveo {

namespace {

using namespace std::chrono_literals;

constexpr auto ready_pause = 100ms; // between two looks at STATUS; an XMC takes a second or two
constexpr std::uint8_t ready_reads = 150;

constexpr auto mailbox_pause = 10ms; // between two looks at CONTROL
constexpr unsigned mailbox_polls = 500;

constexpr auto packet_error = "XMC mailbox packet error";
constexpr auto cannot_read_mailbox = "Cannot read XMC mailbox content";

[[noreturn]] void fail(int error, const std::string& what)
{
    throw std::system_error{error, std::generic_category(), what};
}

std::uint32_t read(const hw::core& core, const ivra_hw_register_description& description, const char* failure)
{
    return static_cast<std::uint32_t>(hw::read(core, description).access_value_or_throw(failure));
}

void write(const hw::core& core, const ivra_hw_register_description& description, std::uint32_t value,
           const char* failure)
{
    if (const std::error_code error = hw::write(core, description, value))
        throw std::system_error{error, failure};
}

[[noreturn]] void fail_with_timeout(const hw::core& core)
{
    const auto status = hw::read(core, registers::status);
    const auto error = hw::read(core, registers::error);
    if (!status.has_value() && !error.has_value())
        throw std::system_error{error.error(), "Cannot read XMC status and error"};

    text_stream message;
    message << "XMC init timeout: " << std::hex;
    if (status.has_value())
        message << "status: 0x" << status.value();
    if (status.has_value() && error.has_value())
        message << ", ";
    if (error.has_value())
        message << "error: 0x" << error.value();
    fail(ETIMEDOUT, message.str());
}

/// The register `words` words further on.
ivra_hw_register_description advanced(ivra_hw_register_description description, std::uint64_t words)
{
    description.offset += 4 * words;
    return description;
}

} // namespace

void bring_up(const hw::core& core)
{
    write(core, registers::reset, 1, "Cannot unset XMC reset");
    // Deliberate: a pause follows each of the 150 reads, the last one included.
    for (std::uint8_t reads = ready_reads; reads > 0; --reads) {
        const std::uint32_t status = read(core, registers::status, "Cannot read XMC status");
        if ((status & registers::status_ready) == registers::status_ready)
            return;
        hw::sleep(ready_pause);
    }
    fail_with_timeout(core);
}

ivra_hw_register_description xmc::mailbox_get_register()
{
    const std::uint64_t offset = read(core_, registers::host_msg_offset, "Cannot get XMC mailbox offset");
    return registers::word(offset + registers::register_base, nullptr);
}

void xmc::mailbox_wait()
{
    std::uint32_t control = 0;
    unsigned polls = 0;
    // Deliberate: the pause and the count come before the bit is looked at, so every call sleeps at least once, and a
    // packet that is completed in the last poll still ends in the time-out.
    do {
        control = read(core_, registers::control, "Cannot read XMC control");
        hw::sleep(mailbox_pause);
        if (++polls == mailbox_polls)
            fail(ETIMEDOUT, packet_error);
    } while ((control & registers::control_packet_posted) != 0);

    if (read(core_, registers::host_msg_error, "Cannot read XMC host msg error") == 0)
        return;
    if (hw::write(core_, registers::control, control | registers::control_clear_error))
        fail(0, "Cannot reset XMC control error"); // Deliberate: error value 0, that of the read before
    fail(EIO, packet_error);
}

card_info_t xmc::read_card_info()
{
    return locked(mutex_, [this] { return exchange_card_info(); });
}

card_info_t xmc::exchange_card_info()
{
    write(core_, mailbox_get_register(), card_info_request, "Cannot write to XMC mailbox");
    const std::uint32_t control = read(core_, registers::control, "Cannot read XMC control register");
    write(core_, registers::control, control | registers::control_packet_posted,
          "Cannot write to XMC control register");
    mailbox_wait();

    const ivra_hw_register_description mailbox = mailbox_get_register();
    const std::size_t size = decode_payload_size(read(core_, mailbox, cannot_read_mailbox));
    std::vector<std::uint32_t> words((size + 3) / 4);
    for (std::size_t i = 0; i < words.size(); ++i)
        words[i] = read(core_, advanced(mailbox, i + 1), cannot_read_mailbox);

    mailbox_wait(); // Deliberate: the response is acknowledged by the same wait as the request
    return decode_card_info(decode_payload(words, size));
}

std::string xmc::get_board_serial()
{
    return find_board_serial(read_card_info());
}

board::mac_addresses_t xmc::get_vendor_macs()
{
    return find_vendor_macs(read_card_info());
}

xmc::sensor_values_t xmc::read_sensor(const registers::sensor_reg_t& sensor)
{
    // In a list in braces: read in this order.
    return {read(core_, sensor.inst, "Cannot read XMC sensor inst register"),
            read(core_, sensor.avg, "Cannot read XMC sensor avg register"),
            read(core_, sensor.max, "Cannot read XMC sensor max register")};
}

std::uint32_t xmc::read_power_good()
{
    return read(core_, registers::power_good, "Cannot read XMC POWER GOOD register");
}

bool xmc::is_power_good()
{
    // Deliberate: a set bit means that power is bad.
    return (read_power_good() & registers::power_bad) == 0;
}

board::sensors_t xmc::get_sensors(registers::sensor_list sensors)
{
    board::sensors_t report{.columns = {"Current", "Average", "Maximum"}, .sensors = {}};
    report.sensors.reserve(sensors.size() + 1);
    for (const registers::sensor_reg_t& sensor : sensors) {
        const auto text = [&](std::uint32_t value) { return std::to_string(value) + ' ' + sensor.unit.data(); };
        const sensor_values_t values = read_sensor(sensor);
        report.sensors.push_back(
            {.name = sensor.name.data(), .values = {text(values.current), text(values.average), text(values.maximum)}});
    }
    report.sensors.push_back({.name = "POWER_GOOD", .values = {is_power_good() ? "Good" : "Bad"}});
    return report;
}

} // namespace ivra::bsp::bmc::alveo
