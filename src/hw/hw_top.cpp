#include "hw/hw_top.h"

#include "hw/own.h"

#include <algorithm>
#include <array>

namespace ivra::v6::hw_top {

namespace {

using text_getter = int (*)(ivra_hw_top*, char*, std::size_t);

hw::result<std::string> read_text(ivra_hw_top* handle, text_getter get)
{
    std::array<char, IVRA_HW_TOP_MAX_STRING_LENGTH> buffer{};
    if (get(handle, buffer.data(), buffer.size()) < 0)
        return hw::last_error();
    buffer.back() = '\0';
    return std::string{buffer.data()};
}

} // namespace

hw_top::hw_top(const hw::core& core)
    : core_{core}, handle_{hw::own(ivra_hw_top_create(core_.get()), &ivra_hw_top_destroy,
                                   "Failed to create hw_top subsystem")}
{
}

hw::result<std::string> hw_top::get_board_name() const
{
    return read_text(handle_.get(), &ivra_hw_top_get_board_name);
}

hw::result<std::string> hw_top::get_device_id() const
{
    return read_text(handle_.get(), &ivra_hw_top_get_device_id);
}

hw::result<ivra_hw_top_fpga_serial_id> hw_top::get_fpga_serial_id() const
{
    ivra_hw_top_fpga_serial_id id{};
    if (ivra_hw_top_get_fpga_serial_id(handle_.get(), &id) < 0)
        return hw::last_error();
    return id;
}

hw::result<std::vector<mac_address>> hw_top::get_mac_addresses() const
{
    const int count = ivra_hw_top_get_mac_addresses(handle_.get(), nullptr, 0);
    if (count < 0)
        return hw::last_error();
    std::vector<ivra_mac_address> raw(static_cast<std::size_t>(count));
    const int filled = ivra_hw_top_get_mac_addresses(handle_.get(), raw.data(), raw.size());
    if (filled < 0)
        return hw::last_error();
    raw.resize(std::min(raw.size(), static_cast<std::size_t>(filled)));
    return std::vector<mac_address>(raw.begin(), raw.end());
}

hw::result<double> hw_top::get_temperature() const
{
    double celsius = 0;
    if (ivra_hw_top_get_temperature(handle_.get(), &celsius) < 0)
        return hw::last_error();
    return celsius;
}

std::error_code hw_top::update_params()
{
    if (ivra_hw_top_update_params(handle_.get()) < 0)
        return hw::last_error();
    return {};
}

hw::result<std::string> print_fpga_serial_id(const ivra_hw_top_fpga_serial_id& id)
{
    std::array<char, 25> buffer{};
    if (ivra_hw_top_print_fpga_serial_id(&id, buffer.data(), buffer.size()) < 0)
        return hw::last_error();
    buffer.back() = '\0';
    return std::string{buffer.data()};
}

} // namespace ivra::v6::hw_top
