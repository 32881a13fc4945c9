#ifndef IVRA_HW_UART_H
#define IVRA_HW_UART_H

#include "hw/core.h"
#include "hw/result.h"

#include <ivra/uart.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <system_error>

namespace ivra::v6::uart {

/// The UART of a design.
class uart
{
public:
    /// Throws std::system_error.
    explicit uart(const hw::core& core);

    /// Takes the bytes that are waiting, as many as there is room for; returns their number, which may be 0.
    hw::result<std::size_t> read(std::span<std::uint8_t> buffer);

    /// Writes all of the bytes; an error value of 0 means success. `timeout` is for how long the line may take nothing.
    std::error_code write_all(std::span<const std::uint8_t> bytes, std::chrono::duration<unsigned, std::milli> timeout);

private:
    hw::core core_;
    std::shared_ptr<ivra_uart> handle_;
};

} // namespace ivra::v6::uart

#endif
