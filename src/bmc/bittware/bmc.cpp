#include "bmc/bittware/bmc.h"

#include "bmc/bittware/fru.h"

#include <iterator>
#include <set>
#include <span>
#include <stdexcept>
#include <utility>

namespace ivra::bsp::bmc::bittware {

namespace {

// Commands of the maker (IPMI 2.0, table 5-1: network function of an OEM group).
constexpr std::uint8_t netfn_oem = 0x2E;
constexpr std::uint8_t cmd_oem_get = 0x08;
constexpr std::uint8_t cmd_oem_set = 0x09;

constexpr std::uint8_t manufacturer_id[] = {0x18, 0x7B, 0x00}; // least significant byte first

// What the commands of the maker are about.
constexpr std::uint8_t oem_config_status = 0x01;
constexpr std::uint8_t oem_boot_image = 0x07;

struct boot_image_row_t
{
    boot_image_t image;
    std::uint8_t code;
};

constexpr std::uint8_t boot_image_mask = 0x07;
constexpr boot_image_row_t boot_images[] = {
    {boot_image_t::none, 0x04},
    {boot_image_t::primary, 0x00},
    {boot_image_t::backup, 0x01},
};

constexpr std::uint8_t config_status_values = 3;

constexpr unsigned most_failures = 3; // of requests in a row

/// Throws what the response's completion code says, unless that is success.
void check(const ipmi_response_t& response, const char* failure)
{
    if (response.code != 0)
        throw std::runtime_error{std::string{failure} + " Response code: " + std::to_string(response.code)};
}

} // namespace

ipmi_response_t bmc::ipmi_request(std::uint8_t netfn, std::uint8_t cmd, std::vector<std::uint8_t> data)
{
    remarks_t remarks; // nothing is written to a screen under a lock
    try {
        ipmi_response_t response = locked_whole(mutex_, [&] { return exchange(uart_, netfn, cmd, data, remarks); });
        log(remarks);
        return response;
    } catch (...) {
        log(remarks);
        throw;
    }
}

ipmi_response_t ipmi_commands::ipmi_request_bittware_oem(std::uint8_t cmd, std::vector<std::uint8_t> data)
{
    data.insert(data.begin(), std::begin(manufacturer_id), std::end(manufacturer_id));
    ipmi_response_t response = ipmi_request(netfn_oem, cmd, std::move(data));
    if (response.data.size() < std::size(manufacturer_id))
        throw std::runtime_error{"Incomplete IPMI OEM command response received from BMC"};
    // Deliberate: whose identifier it is, is not looked at.
    response.data.erase(response.data.begin(), response.data.begin() + std::size(manufacturer_id));
    return response;
}

boot_image_t ipmi_commands::get_boot_image()
{
    const ipmi_response_t response = ipmi_request_bittware_oem(cmd_oem_get, {oem_boot_image});
    check(response, "Error requesting boot image.");
    if (!response.data.empty())
        for (const boot_image_row_t& row : boot_images)
            if (row.code == (response.data.front() & boot_image_mask))
                return row.image;
    throw std::runtime_error{"Unknown boot image value received from BMC"};
}

void bmc::set_boot_image(boot_image_t image)
{
    for (const boot_image_row_t& row : boot_images)
        if (row.image == image)
            check(ipmi_request_bittware_oem(cmd_oem_set, {oem_boot_image, row.code}), "Error setting boot image.");
}

std::uint8_t ipmi_commands::get_fpga_config_status()
{
    const ipmi_response_t response = ipmi_request_bittware_oem(cmd_oem_get, {oem_config_status});
    check(response, "Error requesting FPGA configuration status.");
    if (response.data.empty() || response.data.front() >= config_status_values)
        throw std::runtime_error{"Unknown FPGA configuration status value received from BMC"};
    return response.data.front();
}

std::vector<std::uint8_t> ipmi_commands::read_fru_data(std::uint16_t offset, std::uint8_t count)
{
    const auto request = encode_read_fru_data({offset, count});
    const ipmi_response_t response =
        ipmi_request(read_fru_data_netfn, read_fru_data_command, {request.begin(), request.end()});
    const std::span<const std::uint8_t> bytes = decode_fru_data(response.code, response.data, count);
    return {bytes.begin(), bytes.end()};
}

std::string ipmi_commands::get_board_serial()
{
    const auto read = [this](fru_range_t range) { return read_fru_data(range.offset, range.count); };
    const fru_range_t start_range = find_board_area_start(read(fru_common_header));
    const std::vector<std::uint8_t> start = read(start_range);
    return decode_board_serial(start, read(find_board_area_rest(start_range, start)));
}

stretch bmc::begin_stretch()
{
    return {uart_, mutex_};
}

bmc::sensor_reading_t bmc::read_sensor(std::uint16_t record_id)
{
    const auto ask = [this](std::uint8_t cmd, std::span<const std::uint8_t> data) {
        return ipmi_request(sensor_netfn, cmd, {data.begin(), data.end()});
    };
    const ipmi_response_t first = ask(get_sdr_command, encode_get_sensor_record(record_id));
    sensor_record_t record = decode_sensor_record(first.code, first.data);
    if (record.name.size() < record.name_length) {
        const ipmi_response_t rest = ask(get_sdr_command, encode_get_sensor_name(record_id, record));
        record.name = decode_sensor_name(rest.code, rest.data, record);
    }
    const ipmi_response_t reading = ask(get_sensor_reading_command, encode_get_sensor_reading(record));
    return {std::move(record), decode_sensor_reading(reading.code, reading.data)};
}

bmc::sensor_result_t bmc::get_sensor(std::uint16_t record_id)
{
    const sensor_reading_t reading = read_sensor(record_id);
    return {make_sensor(reading.record, reading.raw), reading.record.next_record_id};
}

board::sensors_t bmc::get_sensors()
{
    board::sensors_t report{.columns = {"Value"}, .sensors = {}};
    std::set<std::uint16_t> seen;
    std::uint16_t record_id = first_record_id;
    do {
        if (!seen.insert(record_id).second)
            throw std::runtime_error{"Sensor data record repository does not end"};
        sensor_result_t result = get_sensor(record_id);
        report.sensors.push_back(std::move(result.sensor));
        record_id = result.next_record_id;
    } while (record_id != no_more_records);
    return report;
}

stretch::stretch(v6::uart::uart& uart, mutex& m) : uart_{uart}, lock_{m}, drained_{drain(uart)} {}

ipmi_response_t stretch::ipmi_request(std::uint8_t netfn, std::uint8_t cmd, std::vector<std::uint8_t> data)
{
    if (!failure_.empty())
        throw std::runtime_error{failure_};
    const hw::signal_hold hold;
    try {
        ipmi_response_t response = exchange_strictly(uart_, netfn, cmd, data);
        failures_ = 0;
        return response;
    } catch (const std::exception& error) {
        if (++failures_ == most_failures)
            failure_ = error.what();
        try {
            drained_ += drain(uart_);
        } catch (const std::exception& drain_error) {
            failure_ = drain_error.what();
        }
        throw;
    }
}

} // namespace ivra::bsp::bmc::bittware
