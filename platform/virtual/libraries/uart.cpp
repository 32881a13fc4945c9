#include "libraries/handles.h"

#include "devices/bmc/bmc.h"

#include <algorithm>
#include <optional>

using namespace ivra::virtual_platform;

/// A UART with a BMC at the other end of its line, or with nothing: then it takes every byte and brings none.
struct ivra_uart : device_base<ivra_uart, handle_kind::uart>
{
    explicit ivra_uart(const ivra_hw_core& node) : device_base{node, hardware_ids::uart} {}

    /// Lets a body use the BMC, if there is one, while no other process does.
    template <class Body>
    void use_bmc(Body body) const
    {
        if (bmc_behind(*device(), core()) == nullptr)
            return;
        bmc_file& file = state().bmc();
        const file_lock lock = file.lock();
        const bmc_t* const config = bmc_behind(board(), core()); // as it is now that nobody else uses it
        const bmc_memory_t before = file.read();
        bmc_memory_t memory = before;
        body(bmc{*config, memory});
        if (memory != before)
            file.write(memory);
    }
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
        const std::size_t most = c.at_most(size);
        std::string bytes;
        uart->use_bmc([&](bmc link) { bytes = link.send(most, most < size, device_now()); });
        std::ranges::copy(bytes, buffer);
        c.stored(std::span{buffer, bytes.size()});
        return bytes.size();
    });
}

int ivra_uart_write_all(ivra_uart* uart, const std::uint8_t* buffer, std::size_t size, unsigned timeout_ms)
{
    call c{__func__, device_of(uart)};
    return c.with(bytes_of(buffer, size), timeout_ms).status([&] {
        require(uart != nullptr && (buffer != nullptr || size == 0));
        uart->use_bmc([&](bmc link) { link.receive({buffer, c.at_most(size)}, device_now()); });
    });
}
