#ifndef IVRA_BMC_BITTWARE_BMC_H
#define IVRA_BMC_BITTWARE_BMC_H

#include "bmc/bittware/ipmi_serial.h"
#include "bmc/bittware/sdr.h"
#include "hw/core.h"
#include "hw/mutex.h"
#include "hw/uart.h"
#include "records/sensors.h"

#include <cstddef>
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

class stretch;

/// What a BMC is asked, whatever way a request takes to it. All of these throw std::system_error when the UART or the
/// lock fails, std::runtime_error for what the BMC says.
class ipmi_commands
{
public:
    virtual ~ipmi_commands() = default;

    /// Sends a request and waits for its answer; a completion code other than 0 is no error here.
    virtual ipmi_response_t ipmi_request(std::uint8_t netfn, std::uint8_t cmd, std::vector<std::uint8_t> data) = 0;

    /// The same for a command of the board's maker, whose identifier is added to the request and taken off the answer.
    ipmi_response_t ipmi_request_bittware_oem(std::uint8_t cmd, std::vector<std::uint8_t> data);

    boot_image_t get_boot_image();

    /// From what the FPGA was configured: 0, 1 or 2.
    std::uint8_t get_fpga_config_status();

    /// At least `count` bytes of the inventory (FRU), from `offset` on.
    std::vector<std::uint8_t> read_fru_data(std::uint16_t offset, std::uint8_t count);

    /// The serial number in the board information area of the inventory.
    std::string get_board_serial();

protected:
    ipmi_commands() = default;
    ipmi_commands(const ipmi_commands&) = default;
    ipmi_commands& operator=(const ipmi_commands&) = default;
};

/// The management controller of a Bittware board, behind a UART of the design. Every request takes the lock that
/// serialises the UART among the processes of this host.
class bmc : public ipmi_commands
{
public:
    /// Throws std::system_error.
    explicit bmc(const hw::core& core) : uart_{core}, mutex_{"bmc-bittware", core} {}

    /// What ends or stops the process waits until the answer was read, and what is to be said of the answer until
    /// others can have the UART.
    ipmi_response_t ipmi_request(std::uint8_t netfn, std::uint8_t cmd, std::vector<std::uint8_t> data) override;

    /// Any number of requests that no other process comes between. Throws as stretch's constructor.
    stretch begin_stretch();

    void set_boot_image(boot_image_t image);

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

/// Requests to a BMC under one lock, on a line that is in step: what waits in the UART is drained first, and so is what
/// comes after a request that failed. After three of those in a row, or when a drain fails, all others fail at once.
class stretch : public ipmi_commands
{
public:
    /// Waits for the lock; throws as held_lock and drain() do.
    stretch(v6::uart::uart& uart, mutex& m);

    /// What ends the process waits until the answer was read, and the UART was drained when it failed.
    ipmi_response_t ipmi_request(std::uint8_t netfn, std::uint8_t cmd, std::vector<std::uint8_t> data) override;

    /// Why nothing is asked any more; empty as long as it is.
    const std::string& failure() const { return failure_; }

    /// How many bytes were drained.
    std::size_t drained() const { return drained_; }

    void end() { lock_.unlock(); } ///< Once, unless the end of this object does. Throws std::system_error.

private:
    v6::uart::uart& uart_;
    held_lock lock_;
    std::size_t drained_;
    unsigned failures_ = 0; ///< in a row
    std::string failure_;
};

} // namespace ivra::bsp::bmc::bittware

#endif
