#include "libraries/handles.h"

using namespace ivra::virtual_platform;

/// A UART with nothing at the other end of its line: it takes every byte and brings none.
struct ivra_uart : device_base<ivra_uart, handle_kind::uart>
{
    explicit ivra_uart(const ivra_hw_core& core) : device_base{core, hardware_ids::uart} {}
};

ivra_uart* ivra_uart_create(ivra_hw_core* core)
{
    call c{__func__, device_of(core)};
    return c.with(core).handle([&] {
        require(core != nullptr);
        return ivra_uart::give(std::make_shared<ivra_uart>(*core));
    });
}

void ivra_uart_destroy(ivra_uart* uart)
{
    call c{__func__, device_of(uart)};
    c.nothing([&] { ivra_uart::take_back(uart); });
}

int ivra_uart_read(ivra_uart* uart, std::uint8_t* buffer, std::size_t size)
{
    call c{__func__, device_of(uart)};
    return c.with(size).count([&] {
        require(uart != nullptr && (buffer != nullptr || size == 0));
        return 0;
    });
}

int ivra_uart_write_all(ivra_uart* uart, const std::uint8_t* buffer, std::size_t size, unsigned timeout_ms)
{
    call c{__func__, device_of(uart)};
    return c.with(bytes_of(buffer, size), timeout_ms).status([&] {
        require(uart != nullptr && (buffer != nullptr || size == 0));
    });
}
