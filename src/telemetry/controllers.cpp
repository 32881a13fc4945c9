#include "telemetry/controllers.h"

#include "bmc/alveo/card_info.h"
#include "bmc/alveo/registers.h"
#include "bmc/alveo/xmc.h"
#include "bmc/bittware/bmc.h"
#include "bmc/bittware/sdr.h"
#include "telemetry/ipmi_sensor.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <set>
#include <span>
#include <stdexcept>
#include <utility>
#include <variant>

namespace ivra::bsp::telemetry {

namespace {

template <class T, class Read>
void take(item_t<T>& item, Read read)
{
    try {
        item.value = read();
    } catch (const std::exception& error) {
        item.error = error.what();
    }
}

reading_t failed(reading_t reading, const std::string& error)
{
    reading.state = state_t::failed;
    reading.error = error;
    return reading;
}

namespace alveo {

namespace registers = bmc::alveo::registers;

constexpr std::uint32_t all_ones = 0xFFFFFFFF;
constexpr auto dead_link = "All ones were read: there is no link to the XMC";

std::uint32_t checked(std::uint32_t word)
{
    if (word == all_ones)
        throw std::runtime_error{dead_link};
    return word;
}

reading_t read_sensor(bmc::alveo::xmc& xmc, const registers::sensor_reg_t& sensor, reading_t reading)
{
    const auto values = xmc.read_sensor(sensor);
    const auto in_base_unit = [&](std::uint32_t word) { return static_cast<double>(word) / sensor.per_base_unit; };
    reading.value = in_base_unit(checked(values.current));
    if (values.maximum != all_ones)
        reading.peak = in_base_unit(values.maximum);
    else
        reading.findings.emplace_back("The XMC gives all ones as its maximum");
    reading.state = state_t::ok;
    return reading;
}

controller_readings_t read_controller(const board::xmc_access_t& access, const parts_t& parts, const is_over_t& is_over)
{
    controller_readings_t result;
    const auto get_xmc = [&]() -> bmc::alveo::xmc& {
        if (result.error.empty() && is_over())
            result.error = deadline_error;
        if (!result.error.empty())
            throw std::runtime_error{result.error};
        return *access.xmc.controller;
    };
    result.error = access.xmc.failure;

    item_t<bool> power_good;
    take(power_good, [&] { return (checked(get_xmc().read_power_good()) & registers::power_bad) == 0; });
    if (parts.contains(part_t::sensors)) {
        result.power_good = power_good;
        for (const registers::sensor_reg_t& sensor : access.sensors) {
            reading_t reading;
            reading.name = sensor.name.data();
            reading.quantity = sensor.quantity;
            try {
                result.sensors.push_back(read_sensor(get_xmc(), sensor, reading));
            } catch (const std::exception& error) {
                result.sensors.push_back(failed(reading, error.what()));
            }
        }
    }
    if (power_good.error == dead_link)
        result.error = dead_link; // a mailbox that nobody reads would take 5 seconds to say so
    if (!parts.contains(part_t::identity))
        return result;

    item_t<bmc::alveo::card_info_t> card;
    take(card, [&] { return get_xmc().read_card_info(); });
    result.serial.error = result.vendor_macs.error = card.error;
    if (card.value) {
        take(result.serial, [&] { return bmc::alveo::find_board_serial(*card.value); });
        take(result.vendor_macs, [&] { return bmc::alveo::find_vendor_macs(*card.value); });
    }
    return result;
}

} // namespace alveo

namespace bittware {

using bmc::bittware::ipmi_commands;
using bmc::bittware::ipmi_response_t;
using bytes_t = std::vector<std::uint8_t>;

/// Requests of a stretch, until the deadline.
class timed_stretch : public ipmi_commands
{
public:
    timed_stretch(bmc::bittware::stretch& stretch, const is_over_t& is_over) : stretch_{stretch}, is_over_{is_over} {}

    ipmi_response_t ipmi_request(std::uint8_t netfn, std::uint8_t cmd, std::vector<std::uint8_t> data) override
    {
        if (is_over_())
            throw std::runtime_error{deadline_error};
        return stretch_.ipmi_request(netfn, cmd, std::move(data));
    }

    /// Whether every other request would fail, too.
    bool has_ended() const { return !stretch_.failure().empty() || is_over_(); }

private:
    bmc::bittware::stretch& stretch_;
    const is_over_t& is_over_;
};

constexpr std::uint8_t reserve_sdr_command = 0x22; // table 33-11

// Completion codes (table 5-2).
constexpr std::uint8_t reservation_canceled = 0xC5;
constexpr std::uint8_t request_length_exceeded = 0xC8;
constexpr std::uint8_t out_of_range = 0xC9;
constexpr std::uint8_t cannot_return_so_many = 0xCA;
constexpr std::uint8_t not_present = 0xCB;

constexpr std::size_t reply_next_id = 0; // record that follows, 2 bytes, least significant first
constexpr std::size_t reply_record = 2;
constexpr std::size_t record_header = 5; // ID, version, type, length of what follows
constexpr std::size_t record_length = 4;
constexpr std::size_t longest_record = 48 + 31; // of what is decoded
constexpr std::size_t smallest_piece = 8;

std::uint16_t little_endian(std::span<const std::uint8_t> bytes)
{
    return static_cast<std::uint16_t>(bytes[0] | bytes[1] << 8);
}

/// A record that is read piece by piece.
struct record_t
{
    std::optional<std::uint16_t> next;
    bytes_t bytes;
};

/// Reads records in pieces as large as the BMC sends them.
class record_reader
{
public:
    explicit record_reader(ipmi_commands& commands) : commands_{commands} {}

    /// Adds to `record` all that is decoded of it, or what could be read before a failure.
    void read(std::uint16_t id, record_t& record)
    {
        std::size_t wanted = record_header;
        do {
            const bytes_t piece = get_piece(id, record);
            if (piece.empty())
                return;
            record.bytes.insert(record.bytes.end(), piece.begin(), piece.end());
            if (record.bytes.size() >= record_header)
                wanted = is_full_sensor_record(record.bytes)
                             ? std::min(record_header + record.bytes[record_length], longest_record)
                             : 0;
        } while (record.bytes.size() < wanted);
    }

private:
    bytes_t get_piece(std::uint16_t id, record_t& record)
    {
        for (bool is_reserved = false;;) {
            const auto low = [](std::size_t value) { return static_cast<std::uint8_t>(value & 0xFFU); };
            const auto high = [](std::size_t value) { return static_cast<std::uint8_t>(value >> 8 & 0xFFU); };
            ipmi_response_t response = commands_.ipmi_request(
                bmc::bittware::sensor_netfn, bmc::bittware::get_sdr_command,
                {low(reservation_), high(reservation_), low(id), high(id), low(record.bytes.size()), low(piece_)});
            if ((response.code == request_length_exceeded || response.code == cannot_return_so_many) &&
                piece_ > smallest_piece) {
                piece_ /= 2;
                continue;
            }
            if (response.code == reservation_canceled && !is_reserved) {
                reserve();
                is_reserved = true;
                continue;
            }
            if (response.code == out_of_range && !record.bytes.empty())
                return {}; // it is shorter than it says
            if (response.code == not_present && id == bmc::bittware::first_record_id) {
                record.next = bmc::bittware::no_more_records; // there is none at all
                return {};
            }
            if (response.code != 0)
                throw std::runtime_error{"Error reading sensor record. Response code: " +
                                         std::to_string(response.code)};
            if (response.data.size() < reply_record)
                throw std::runtime_error{"Incomplete sensor record received from BMC"};
            record.next = little_endian(std::span{response.data}.subspan(reply_next_id));
            response.data.erase(response.data.begin(), response.data.begin() + reply_record);
            return std::move(response.data);
        }
    }

    void reserve()
    {
        const ipmi_response_t response = commands_.ipmi_request(bmc::bittware::sensor_netfn, reserve_sdr_command, {});
        if (response.code != 0 || response.data.size() < 2)
            throw std::runtime_error{"Cannot reserve the BMC's sensor records. Response code: " +
                                     std::to_string(response.code)};
        reservation_ = little_endian(response.data);
    }

    ipmi_commands& commands_;
    std::uint16_t reservation_ = 0;
    std::size_t piece_ = 64;
};

/// Why a record could not be read; empty: it was.
std::string try_to_read(record_reader& reader, std::uint16_t id, record_t& record)
{
    try {
        reader.read(id, record);
        return {};
    } catch (const std::exception& error) {
        return error.what();
    }
}

/// A sensor of which no more is known than its record.
reading_t unknown_sensor(std::uint16_t id, const std::string& error)
{
    reading_t reading;
    reading.record = id;
    return failed(std::move(reading), error);
}

/// The sensor of a record; nothing when it is the record of something else.
std::optional<reading_t> read_sensor(ipmi_commands& commands, std::uint16_t id, const bytes_t& record)
{
    if (record.size() < record_header)
        return unknown_sensor(id, "Incomplete sensor record received from BMC");
    if (!is_full_sensor_record(record))
        return std::nullopt;
    ipmi_sensor_t sensor;
    try {
        sensor = decode_full_sensor_record(record);
    } catch (const std::runtime_error& error) {
        return unknown_sensor(id, error.what());
    }
    if (sensor.reading.record != id)
        sensor.reading.findings.push_back("Its record says that it is record " +
                                          std::to_string(*sensor.reading.record));
    sensor.reading.record = id;
    if (sensor.reading.state == state_t::unsupported)
        return sensor.reading;
    try {
        const ipmi_response_t answer = commands.ipmi_request(
            bmc::bittware::sensor_netfn, bmc::bittware::get_sensor_reading_command, {sensor.number});
        return decode_sensor_reading(sensor, answer.code, answer.data);
    } catch (const std::exception& error) {
        return failed(sensor.reading, error.what());
    }
}

/// Reads the sensors of the repository, from record to record as long as it is known which one follows.
void read_sensors(timed_stretch& requests, controller_readings_t& result)
{
    record_reader reader{requests};
    std::set<std::uint16_t> seen;
    std::uint16_t id = bmc::bittware::first_record_id;
    do {
        if (!seen.insert(id).second) {
            result.findings.push_back("The BMC's sensor records do not end: record " + std::to_string(id) +
                                      " comes again");
            return;
        }
        record_t record;
        std::string error = try_to_read(reader, id, record);
        if (!record.next && !requests.has_ended())
            error = try_to_read(reader, id, record); // all that follow hang on it
        if (!record.next && requests.has_ended()) {
            result.error = error;
            return;
        }
        if (id == bmc::bittware::first_record_id && record.bytes.size() >= record_header) {
            id = little_endian(record.bytes);
            seen.insert(id);
        }
        if (!error.empty())
            result.sensors.push_back(unknown_sensor(id, error));
        else if (!record.bytes.empty() || *record.next != bmc::bittware::no_more_records)
            if (auto reading = read_sensor(requests, id, record.bytes))
                result.sensors.push_back(std::move(*reading));
        if (!record.next) {
            result.findings.push_back("The BMC's sensor records are not known beyond record " + std::to_string(id));
            return;
        }
        id = *record.next;
    } while (id != bmc::bittware::no_more_records);
}

void read_parts(bmc::bittware::bmc& bmc, const parts_t& parts, const is_over_t& is_over, controller_readings_t& result)
{
    bmc::bittware::stretch stretch = bmc.begin_stretch();
    timed_stretch requests{stretch, is_over};
    if (parts.contains(part_t::identity))
        take(result.serial, [&] { return requests.get_board_serial(); });
    if (parts.contains(part_t::boot_image)) {
        take(result.current_boot_image, [&] { return board::get_current_boot_image(requests); });
        take(result.next_boot_image, [&] { return board::get_boot_image(requests); });
    }
    if (parts.contains(part_t::sensors))
        read_sensors(requests, result);
    if (result.error.empty())
        result.error = stretch.failure();
    if (stretch.drained() > 0)
        result.findings.push_back(std::to_string(stretch.drained()) +
                                  " bytes that answered nothing were dropped from the BMC's line");
    try {
        stretch.end();
    } catch (const std::exception& error) {
        result.findings.emplace_back(error.what());
    }
}

controller_readings_t read_controller(const board::bmc_access_t& access, const parts_t& parts, const is_over_t& is_over)
{
    controller_readings_t result;
    try {
        if (!access.bmc.controller)
            throw std::runtime_error{access.bmc.failure};
        if (is_over())
            throw std::runtime_error{deadline_error};
        read_parts(*access.bmc.controller, parts, is_over, result);
    } catch (const std::exception& error) {
        result.error = error.what();
        if (parts.contains(part_t::identity))
            result.serial.error = error.what();
        if (parts.contains(part_t::boot_image))
            result.current_boot_image.error = result.next_boot_image.error = error.what();
    }
    return result;
}

} // namespace bittware

} // namespace

controller_readings_t read_controller(board::board& board, const parts_t& parts, const is_over_t& is_over)
{
    const board::controller_access_t access = board.get_controller();
    const bool asks_xmc = parts.contains(part_t::identity) || parts.contains(part_t::sensors);
    if (const auto* const xmc = std::get_if<board::xmc_access_t>(&access); xmc != nullptr && asks_xmc)
        return alveo::read_controller(*xmc, parts, is_over);
    const bool asks_bmc = asks_xmc || parts.contains(part_t::boot_image);
    if (const auto* const bmc = std::get_if<board::bmc_access_t>(&access); bmc != nullptr && asks_bmc)
        return bittware::read_controller(*bmc, parts, is_over);
    return {};
}

} // namespace ivra::bsp::telemetry
