#include "libraries/handles.h"
#include "state/parameters.h"

#include <algorithm>
#include <array>
#include <cstdio>

using namespace ivra::virtual_platform;

struct ivra_hw_top : device_base<ivra_hw_top, handle_kind::hw_top>
{
    explicit ivra_hw_top(const ivra_hw_core& core) : device_base{core, hardware_ids::hw_top} {}
};

ivra_hw_top* ivra_hw_top_create(ivra_hw_core* core)
{
    call c{__func__, device_of(core)};
    return c.handle([&] {
        require(core != nullptr);
        return ivra_hw_top::give(std::make_shared<ivra_hw_top>(*core));
    });
}

void ivra_hw_top_destroy(ivra_hw_top* top)
{
    call c{__func__, device_of(top)};
    c.nothing([&] { ivra_hw_top::take_back(top); });
}

int ivra_hw_top_get_board_name(ivra_hw_top* top, char* buffer, std::size_t size)
{
    call c{__func__, device_of(top)};
    return c.with(size).count([&] {
        require(top != nullptr);
        return c.store_text(top->device()->board, buffer, size);
    });
}

int ivra_hw_top_get_device_id(ivra_hw_top* top, char* buffer, std::size_t size)
{
    call c{__func__, device_of(top)};
    return c.with(size).count([&] {
        require(top != nullptr);
        return c.store_text(top->device()->fpga.device, buffer, size);
    });
}

int ivra_hw_top_get_fpga_serial_id(ivra_hw_top* top, ivra_hw_top_fpga_serial_id* id)
{
    call c{__func__, device_of(top)};
    return c.status([&] {
        require(top != nullptr && id != nullptr);
        const std::array<std::uint32_t, 3>& serial = top->device()->fpga.serial;
        c.store(id, {{serial[0], serial[1], serial[2]}});
    });
}

int ivra_hw_top_print_fpga_serial_id(const ivra_hw_top_fpga_serial_id* id, char* buffer, std::size_t size)
{
    call c{__func__};
    return c.with(size).count([&] {
        require(id != nullptr);
        std::array<char, 25> text{};
        std::snprintf(text.data(), text.size(), "%08x%08x%08x", id->words[2], id->words[1], id->words[0]);
        return c.store_text(text.data(), buffer, size);
    });
}

int ivra_hw_top_get_mac_addresses(ivra_hw_top* top, ivra_mac_address* addresses, std::size_t capacity)
{
    call c{__func__, device_of(top)};
    return c.with(capacity).count([&] {
        require(top != nullptr && (addresses != nullptr || capacity == 0));
        const auto known = mac_addresses(*top->device(), top->state());
        const std::span places{addresses, std::min(known.size(), capacity)};
        for (std::size_t i = 0; i < places.size(); ++i)
            std::copy(known[i].begin(), known[i].end(), places[i].bytes);
        c.stored(places);
        return known.size();
    });
}

int ivra_hw_top_get_temperature(ivra_hw_top* top, double* celsius)
{
    call c{__func__, device_of(top)};
    return c.status([&] {
        require(top != nullptr && celsius != nullptr);
        c.store(celsius, top->board().fpga.temperature);
    });
}

int ivra_hw_top_update_params(ivra_hw_top* top)
{
    call c{__func__, device_of(top)};
    return c.status([&] {
        require(top != nullptr);
        update_parameters(*top->device(), top->state());
    });
}
