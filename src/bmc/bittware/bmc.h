#ifndef IVRA_BMC_BITTWARE_BMC_H
#define IVRA_BMC_BITTWARE_BMC_H

#include "bmc/bittware/ipmi_serial.h"
#include "bmc/bittware/sdr.h"
#include "hw/core.h"
#include "hw/mutex.h"
#include "hw/uart.h"
#include "records/sensors.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::bmc::bittware {

/// Flash image from which the BMC has the FPGA configured at its next reload.
enum class boot_image_t : std::uint8_t
{
    none = 0,
    primary = 1,
    backup = 2,
};

/// The management controller of a Bittware board, behind a UART of the design. Every request takes the lock that
/// serialises the UART among the processes of this host. All of them throw std::system_error when the UART or the lock
/// fails, std::runtime_error for what the BMC says.
class bmc
{
public:
    /// Throws std::system_error.
    explicit bmc(const hw::core& core) : uart_{core}, mutex_{"bmc-bittware", core} {}

    /// Sends a request and waits for its answer; a completion code other than 0 is no error here. What ends or stops
    /// the process waits until the answer was read, and what is to be said of the answer until others can have the
    /// UART.
    ipmi_response_t ipmi_request(std::uint8_t netfn, std::uint8_t cmd, std::vector<std::uint8_t> data);

    /// The same for a command of the board's maker, whose identifier is added to the request and taken off the answer.
    ipmi_response_t ipmi_request_bittware_oem(std::uint8_t cmd, std::vector<std::uint8_t> data);

    boot_image_t get_boot_image();
    void set_boot_image(boot_image_t image);

    /// From what the FPGA was configured: 0, 1 or 2.
    std::uint8_t get_fpga_config_status();

    /// At least `count` bytes of the inventory (FRU), from `offset` on.
    std::vector<std::uint8_t> read_fru_data(std::uint16_t offset, std::uint8_t count);

    /// The serial number in the board information area of the inventory.
    std::string get_board_serial();

    /// Every sensor of the record repository, in its order, with one column, "Value".
    board::sensors_t get_sensors();

    /// A sensor's record, and its raw reading, if it has one.
    struct sensor_reading_t
    {
        sensor_record_t record;
        std::optional<std::uint8_t> raw;
    };

    /// Those of one record.
    sensor_reading_t read_sensor(std::uint16_t record_id);

    /// A sensor, and the record that follows it.
    struct sensor_result_t
    {
        board::sensor_t sensor;
        std::uint16_t next_record_id;
    };

    /// The sensor of one record.
    sensor_result_t get_sensor(std::uint16_t record_id);

private:
    v6::uart::uart uart_;
    mutex mutex_;
};

} // namespace ivra::bsp::bmc::bittware

#endif
