#ifndef IVRA_VIRTUAL_CALLS_H
#define IVRA_VIRTUAL_CALLS_H

#include <string_view>

namespace ivra::virtual_platform {

/// What a platform call can do, and so which faults make sense for it.
enum call_trait : unsigned
{
    fails = 1U << 0,     ///< it can fail with an errno
    device = 1U << 1,    ///< it is about one accelerator
    counts = 1U << 2,    ///< it returns a count
    lists = 1U << 3,     ///< it stores up to a number of handles that the caller gives
    transfers = 1U << 4, ///< it moves up to a number of bytes that the caller gives
    data = 1U << 5,      ///< it stores bytes or a number
    text = 1U << 6,      ///< it stores or returns text
};

struct call_row_t
{
    std::string_view name;
    unsigned traits;
};

// clang-format off
inline constexpr call_row_t calls[] = {
    // libivra-hw-c                              traits
    {"ivra_hw_prop_get_index",                   fails | device | data},
    {"ivra_hw_prop_get_name",                    fails | device | text | data},
    {"ivra_hw_prop_get_uid",                     fails | device | text | data},
    {"ivra_hw_count_accelerators",               fails | counts},
    {"ivra_hw_enumerate_all_accelerators",       fails | counts | lists},
    {"ivra_hw_enumerate_accelerators",           fails | counts | lists},
    {"ivra_hw_accelerator_put_descriptor",       device},
    {"ivra_hw_accelerator_get_properties",       fails | device},
    {"ivra_hw_filter_create",                    fails},
    {"ivra_hw_filter_set_index",                 fails},
    {"ivra_hw_filter_set_name",                  fails},
    {"ivra_hw_filter_destroy",                   0},
    {"ivra_hw_accelerator_get",                  fails | device},
    {"ivra_hw_accelerator_put",                  device},
    {"ivra_hw_accelerator_count_mmios",          fails | device | counts},
    {"ivra_hw_accelerator_enumerate_all_mmios",  fails | device | counts | lists},
    {"ivra_hw_mmio_put_descriptor",              device},
    {"ivra_hw_mmio_descriptor_get_properties",   fails | device},
    {"ivra_hw_mmio_create",                      fails | device},
    {"ivra_hw_mmio_get_descriptor",              fails | device},
    {"ivra_hw_mmio_destroy",                     device},
    {"ivra_hw_enumerate_cores",                  fails | device},
    {"ivra_hw_destroy_tree",                     device},
    {"ivra_hw_core_tree_get_root",               device},
    {"ivra_hw_core_enumerate",                   fails | device | counts | lists},
    {"ivra_hw_read",                             fails | device | data},
    {"ivra_hw_write",                            fails | device},
    {"ivra_hw_shared_mutex_create",              fails},
    {"ivra_hw_shared_mutex_lock",                fails},
    {"ivra_hw_shared_mutex_trylock",             fails},
    {"ivra_hw_shared_mutex_unlock",              fails},
    {"ivra_hw_shared_mutex_destroy",             0},
    // libivra-cores-c
    {"ivra_hw_top_create",                       fails | device},
    {"ivra_hw_top_destroy",                      device},
    {"ivra_hw_top_get_board_name",               fails | device | text | data},
    {"ivra_hw_top_get_device_id",                fails | device | text | data},
    {"ivra_hw_top_get_fpga_serial_id",           fails | device | data},
    {"ivra_hw_top_print_fpga_serial_id",         fails | text | data},
    {"ivra_hw_top_get_mac_addresses",            fails | device | counts | data},
    {"ivra_hw_top_get_temperature",              fails | device | data},
    {"ivra_hw_top_update_params",                fails | device},
    {"ivra_flash_create",                        fails | device},
    {"ivra_flash_destroy",                       device},
    {"ivra_flash_get_section_pgm",               fails | device},
    {"ivra_flash_get_section_usr",               fails | device},
    {"ivra_flash_get_section_prm",               fails | device},
    {"ivra_flash_get_section_otp",               fails | device},
    {"ivra_flash_get_memory_size",               fails | device | data},
    {"ivra_flash_get_sector_size",               fails | device | data},
    {"ivra_flash_get_sections",                  fails | device | counts},
    {"ivra_flash_get_section_name",              fails | device | text},
    {"ivra_flash_get_section_start_address",     fails | device | data},
    {"ivra_flash_get_section_size",              fails | device | data},
    {"ivra_flash_write_section",                 fails | device | transfers},
    {"ivra_i2c_create",                          fails | device},
    {"ivra_i2c_destroy",                         device},
    {"ivra_i2c_read_control_pins",               fails | device | counts | data},
    {"ivra_i2c_write_control_pins",              fails | device},
    {"ivra_i2c_get_bus",                         fails | device},
    {"ivra_i2c_bus_destroy",                     device},
    {"ivra_i2c_bus_read",                        fails | device | counts | transfers | data},
    {"ivra_i2c_bus_write",                       fails | device | counts | transfers},
    {"ivra_i2c_bus_read_register",               fails | device | counts | transfers | data},
    {"ivra_i2c_bus_write_register",              fails | device | counts | transfers},
    {"ivra_uart_create",                         fails | device},
    {"ivra_uart_destroy",                        device},
    {"ivra_uart_read",                           fails | device | counts | transfers | data},
    {"ivra_uart_write_all",                      fails | device | transfers},
    {"ivra_parse_mac_address",                   fails | data},
    {"ivra_print_mac_address",                   fails | text | data},
    {"ivra_mac_address_to_int",                  0},
    {"ivra_mac_address_from_int",                fails | data},
};
// clang-format on

} // namespace ivra::virtual_platform

#endif
