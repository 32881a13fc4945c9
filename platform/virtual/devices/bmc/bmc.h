#ifndef IVRA_VIRTUAL_DEVICES_BMC_BMC_H
#define IVRA_VIRTUAL_DEVICES_BMC_BMC_H

#include "devices/bmc/config.h"
#include "devices/bmc/memory.h"
#include "memory/clock.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ivra::virtual_platform {

/// The management controller of a board and the UART line to it, as the host sees them. Requests are IPMI messages in
/// the frames of serial basic mode; what is not in a frame is ignored. An answer sets out some time after the stop byte
/// of its request, byte by byte at 115200 baud, into the host's FIFO. Everything follows from what the rack says, what
/// the memory holds and the time that is given.
class bmc
{
public:
    /// Both outlive the object; the caller holds the memory's lock and writes it back.
    bmc(const bmc_t& config, bmc_memory_t& memory) : config_{config}, memory_{memory} {}

    /// The host sends bytes. They set out now, behind those that it sent before.
    void receive(std::span<const std::uint8_t> bytes, device_time now);

    /// Gives the host what waits in its FIFO, `most` bytes at most. By itself that never ends between an escape byte
    /// and its partner; `exactly` gives as much as there is up to `most`, whatever it is.
    std::string send(std::size_t most, bool exactly, device_time now);

    /// What it says to a request, and how long it takes to.
    struct answer_t
    {
        std::string message;
        std::chrono::nanoseconds latency;
        std::size_t rule; ///< place in bmc_t::answers; bmc_t::answers.size(): none
    };

    /// Takes a request as it comes over any of its links: network function and LUN, sequence, command, data. The answer
    /// is network function and LUN, sequence, command, completion code, data. Nothing: there is none.
    std::optional<answer_t> take(std::string_view request);

    std::uint8_t boot_image() const
    {
        const bool is_chosen = memory_.boot_image_chosen == config_.boot_image_change + 1;
        return is_chosen ? static_cast<std::uint8_t>(memory_.boot_image) : config_.boot_image;
    }

private:
    struct command_t;
    static const command_t commands[];

    /// Completion code and data.
    using result_t = std::pair<std::uint8_t, std::string>;
    using bytes_t = std::span<const std::uint8_t>;

    result_t run(std::uint8_t netfn, std::uint8_t command, bytes_t data);
    result_t fru_area(bytes_t data);
    result_t read_fru(bytes_t data);
    result_t sdr_info(bytes_t data);
    result_t sdr(bytes_t data);
    result_t reserve_sdr(bytes_t data);
    result_t sensor_hysteresis(bytes_t data);
    result_t sensor_thresholds(bytes_t data);
    result_t sensor_reading(bytes_t data);
    result_t device_id(bytes_t data);
    result_t oem_get(bytes_t data);
    result_t oem_set(bytes_t data);

    const bmc_sensor_t* sensor_of_number(std::uint8_t number) const;
    result_t what_sensor_has(std::uint8_t number, std::optional<std::string> (*what)(const bmc_sensor_t&)) const;
    void take_byte(std::uint8_t byte, device_time at);
    void answer_frame(device_time at);
    void arrive(device_time now);
    const std::vector<std::size_t>& pieces_of(const bmc_memory_t::answer_t& answer) const;
    std::size_t given_at_once() const;
    void drop(std::size_t count);
    void notice_time(device_time now);

    const bmc_t& config_;
    bmc_memory_t& memory_;
};

} // namespace ivra::virtual_platform

#endif
