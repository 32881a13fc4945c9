#ifndef IVRA_BMC_BITTWARE_IPMI_SERIAL_H
#define IVRA_BMC_BITTWARE_IPMI_SERIAL_H

#include "hw/uart.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace ivra::bsp::bmc::bittware {

/// What a BMC answers to a request.
struct ipmi_response_t
{
    std::uint8_t code = 0; ///< completion code; 0 is success
    std::vector<std::uint8_t> data;
};

/// A request as it goes to the BMC: network function << 2, 0, command, data.
std::vector<std::uint8_t> encode_request(std::uint8_t netfn, std::uint8_t cmd, std::span<const std::uint8_t> data);

/// The message in a frame of the IPMI serial basic mode (IPMI 2.0, 14.4.1): start byte, message with its special bytes
/// escaped, stop byte. The frame fills the beginning of 2 * message.size() + 2 bytes; the rest is 0.
std::vector<std::uint8_t> encode_frame(std::span<const std::uint8_t> message);

/// Finds one frame in what a UART gives, piece by piece, and undoes the escapes.
class frame_decoder
{
public:
    static constexpr std::size_t buffer_size = 64;
    using buffer_t = std::array<std::uint8_t, buffer_size>;

    /// Takes the first `count` bytes of the buffer that they were read into; what follows the end of the frame is
    /// dropped.
    void feed(const buffer_t& buffer, std::size_t count);

    bool complete() const { return state_ == state_t::complete; }
    const std::vector<std::uint8_t>& message() const { return message_; }

    /// Bytes that followed an escape byte and stand for nothing, in the order in which they came. They were dropped.
    const std::vector<std::uint8_t>& invalid_escapes() const { return invalid_escapes_; }

private:
    enum class state_t
    {
        looking_for_start,
        inside,
        complete
    };

    void take_escaped(std::uint8_t byte);

    state_t state_ = state_t::looking_for_start;
    std::vector<std::uint8_t> message_;
    std::vector<std::uint8_t> invalid_escapes_;
};

/// The same of frames as the standard has them: an escape is undone wherever reads divide it, a start byte begins anew,
/// and what holds an invalid escape is no frame.
class strict_frame_decoder
{
public:
    /// Takes the next byte; true when a frame ends with it.
    bool feed(std::uint8_t byte);

    const std::vector<std::uint8_t>& message() const { return message_; }

private:
    enum class state_t
    {
        outside,
        inside,
        escaped
    };

    state_t state_ = state_t::outside;
    std::vector<std::uint8_t> message_;
};

/// The answer in an unescaped message: network function << 2, ignored, command, completion code, data. Throws
/// std::runtime_error when it is none to this request.
ipmi_response_t decode_response(std::span<const std::uint8_t> message, std::uint8_t netfn, std::uint8_t cmd);

/// Something odd about what a UART gave, for the platform's log.
struct remark_t
{
    int line; ///< by which the log tells what kind of remark it is
    std::string text;
};
using remarks_t = std::vector<remark_t>;

/// Sends a request and waits for its answer, about 100 ms at most. Nothing that waits in the UART is drained before.
/// Adds to `remarks`, also when it fails. Throws std::system_error or std::runtime_error; a completion code other than
/// 0 is no error here.
ipmi_response_t exchange(v6::uart::uart& uart, std::uint8_t netfn, std::uint8_t cmd, std::span<const std::uint8_t> data,
                         remarks_t& remarks);

/// The same by strict_frame_decoder and without remarks. Waits until nothing has come for 110 ms, which is longer than
/// a BMC may take to answer.
ipmi_response_t exchange_strictly(v6::uart::uart& uart, std::uint8_t netfn, std::uint8_t cmd,
                                  std::span<const std::uint8_t> data);

/// Reads until nothing has come for 110 ms, and returns how many bytes came until then. Throws std::system_error, or
/// std::runtime_error when they go on for 2 seconds, as does exchange_strictly().
std::size_t drain(v6::uart::uart& uart);

/// Hands remarks to the platform's log.
void log(const remarks_t& remarks);

} // namespace ivra::bsp::bmc::bittware

#endif
