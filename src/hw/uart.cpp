#include "hw/uart.h"

#include "hw/own.h"

#include <algorithm>

namespace ivra::v6::uart {

uart::uart(const hw::core& core)
    : core_{core}, handle_{
                       hw::own(ivra_uart_create(core_.get()), &ivra_uart_destroy, "Failed to create UART subsystem")}
{
}

hw::result<std::size_t> uart::read(std::span<std::uint8_t> buffer)
{
    const int count = ivra_uart_read(handle_.get(), buffer.data(), buffer.size());
    if (count < 0)
        return hw::last_error();
    return std::min(static_cast<std::size_t>(count), buffer.size());
}

std::error_code uart::write_all(std::span<const std::uint8_t> bytes,
                                std::chrono::duration<unsigned, std::milli> timeout)
{
    if (ivra_uart_write_all(handle_.get(), bytes.data(), bytes.size(), timeout.count()) < 0)
        return hw::last_error();
    return {};
}

} // namespace ivra::v6::uart
