// Frames from a BMC, in pieces of any size. The first byte of the input is the size of the pieces; what comes out must
// be the same as from an input read whole, unless a piece ended within an escape.

#include "bmc/bittware/ipmi_serial.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <stdexcept>
#include <vector>

using namespace ivra::bsp::bmc::bittware;

namespace {

/// Feeds pieces of this size; `split` tells whether one of them ended with an escape byte.
frame_decoder decode(std::span<const std::uint8_t> bytes, std::size_t piece, bool& split)
{
    frame_decoder::buffer_t buffer{};
    frame_decoder decoder;
    while (!bytes.empty()) {
        const std::size_t count = std::min(piece, bytes.size());
        std::copy_n(bytes.begin(), count, buffer.begin());
        decoder.feed(buffer, count);
        split = split || (buffer[count - 1] == 0xAA);
        bytes = bytes.subspan(count);
    }
    return decoder;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::span<const std::uint8_t> bytes{data + 1, size - 1};
    bool split = false;
    const frame_decoder one = decode(bytes, 1 + data[0] % frame_decoder::buffer_size, split);
    const frame_decoder other = decode(bytes, frame_decoder::buffer_size, split);
    if (!split && (one.complete() != other.complete() || one.message() != other.message() ||
                   one.invalid_escapes() != other.invalid_escapes()))
        std::abort();
    if (one.message().size() + one.invalid_escapes().size() >= size)
        std::abort();
    try {
        decode_response(one.message(), 0x04, 0x21);
    } catch (const std::runtime_error&) {
    }

    // And there and back: any bytes are a message.
    const std::vector<std::uint8_t> frame = encode_frame(bytes);
    split = false;
    const frame_decoder back = decode(frame, frame_decoder::buffer_size, split);
    if (frame.size() != 2 * bytes.size() + 2)
        std::abort();
    if (!split &&
        (!back.complete() || !std::equal(bytes.begin(), bytes.end(), back.message().begin(), back.message().end())))
        std::abort();
    return 0;
}
