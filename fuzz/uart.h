#ifndef IVRA_FUZZ_UART_H
#define IVRA_FUZZ_UART_H

#include <ivra/uart.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <span>

// The UART of a fuzzer that is the BMC behind it: what it answers to each request is the next piece of the input, put
// into a frame unless the piece says otherwise. For one source file of a program.

namespace {

std::span<const std::uint8_t> input;
std::deque<std::uint8_t> waiting; ///< what the UART gives

std::uint8_t next_byte()
{
    if (input.empty())
        return 0;
    const std::uint8_t byte = input.front();
    input = input.subspan(1);
    return byte;
}

void send(std::uint8_t byte)
{
    constexpr std::uint8_t special[] = {0xA0, 0xA5, 0xA6, 0xAA, 0x1B};
    if (std::find(std::begin(special), std::end(special), byte) == std::end(special)) {
        waiting.push_back(byte);
    } else {
        waiting.push_back(0xAA);
        waiting.push_back(byte == 0x1B ? 0x3B : static_cast<std::uint8_t>(byte + 0x10));
    }
}

} // namespace

extern "C" {

ivra_uart* ivra_uart_create(ivra_hw_core* core)
{
    return reinterpret_cast<ivra_uart*>(core); // never looked into
}

void ivra_uart_destroy(ivra_uart*) {}

// Answers the request with a message of a length that the input gives: right network function and command, or, at odd
// lengths, bytes of the input without a frame.
int ivra_uart_write_all(ivra_uart*, const uint8_t* buffer, size_t size, unsigned)
{
    if (input.empty() || size < 8) {
        errno = EPIPE;
        return -1;
    }
    const std::size_t length = next_byte();
    if (length % 2 == 1) {
        for (std::size_t i = 0; i < length; ++i)
            waiting.push_back(next_byte());
        return 0;
    }
    waiting.push_back(0xA0);
    send(static_cast<std::uint8_t>(buffer[1] + 4));
    send(0);
    send(buffer[3]);
    for (std::size_t i = 0; i < length / 2; ++i)
        send(next_byte());
    waiting.push_back(0xA5);
    return 0;
}

int ivra_uart_read(ivra_uart*, uint8_t* buffer, size_t size)
{
    const std::size_t count = std::min(size, waiting.size());
    std::copy_n(waiting.begin(), count, buffer);
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(count));
    return static_cast<int>(count);
}

} // extern "C"

#endif
