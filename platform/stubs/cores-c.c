#include "stub.h"

#include <ivra/flash.h>
#include <ivra/hw_top.h>
#include <ivra/i2c.h>
#include <ivra/mac_address.h>
#include <ivra/uart.h>

ivra_flash *ivra_flash_create(ivra_hw_core *) { return no_handle(); }
void ivra_flash_destroy(ivra_flash *) {}
const char *ivra_flash_get_section_pgm(ivra_flash *) { return no_handle(); }
const char *ivra_flash_get_section_usr(ivra_flash *) { return no_handle(); }
const char *ivra_flash_get_section_prm(ivra_flash *) { return no_handle(); }
const char *ivra_flash_get_section_otp(ivra_flash *) { return no_handle(); }
int ivra_flash_get_memory_size(ivra_flash *, uint64_t *) { return failure(); }
int ivra_flash_get_sector_size(ivra_flash *, uint64_t *) { return failure(); }
int ivra_flash_get_sections(ivra_flash *, const char *, const char **, size_t) { return failure(); }
const char *ivra_flash_get_section_name(ivra_flash *, const char *) { return no_handle(); }
int ivra_flash_get_section_start_address(ivra_flash *, const char *, uint64_t *) { return failure(); }
int ivra_flash_get_section_size(ivra_flash *, const char *, uint64_t *) { return failure(); }
int ivra_flash_write_section(ivra_flash *, const char *, uint64_t, const void *, size_t) { return failure(); }

ivra_hw_top *ivra_hw_top_create(ivra_hw_core *) { return no_handle(); }
void ivra_hw_top_destroy(ivra_hw_top *) {}
int ivra_hw_top_get_board_name(ivra_hw_top *, char *, size_t) { return failure(); }
int ivra_hw_top_get_device_id(ivra_hw_top *, char *, size_t) { return failure(); }
int ivra_hw_top_get_fpga_serial_id(ivra_hw_top *, ivra_hw_top_fpga_serial_id *) { return failure(); }
int ivra_hw_top_print_fpga_serial_id(const ivra_hw_top_fpga_serial_id *, char *, size_t) { return failure(); }
int ivra_hw_top_get_mac_addresses(ivra_hw_top *, ivra_mac_address *, size_t) { return failure(); }
int ivra_hw_top_get_temperature(ivra_hw_top *, double *) { return failure(); }
int ivra_hw_top_update_params(ivra_hw_top *) { return failure(); }

ivra_i2c *ivra_i2c_create(ivra_hw_core *) { return no_handle(); }
void ivra_i2c_destroy(ivra_i2c *) {}
int ivra_i2c_read_control_pins(ivra_i2c *, uint32_t *) { return failure(); }
int ivra_i2c_write_control_pins(ivra_i2c *, uint32_t) { return failure(); }
ivra_i2c_bus *ivra_i2c_get_bus(ivra_i2c *, uint8_t) { return no_handle(); }
void ivra_i2c_bus_destroy(ivra_i2c_bus *) {}
int ivra_i2c_bus_read(ivra_i2c_bus *, uint8_t, uint8_t *, size_t) { return failure(); }
int ivra_i2c_bus_write(ivra_i2c_bus *, uint8_t, const uint8_t *, size_t) { return failure(); }
int ivra_i2c_bus_read_register(ivra_i2c_bus *, uint8_t, uint8_t, uint8_t *, size_t) { return failure(); }
int ivra_i2c_bus_write_register(ivra_i2c_bus *, uint8_t, uint8_t, const uint8_t *, size_t) { return failure(); }

int ivra_parse_mac_address(const char *, ivra_mac_address *) { return failure(); }
int ivra_print_mac_address(const ivra_mac_address *, char *, size_t) { return failure(); }
uint64_t ivra_mac_address_to_int(const ivra_mac_address *) { return nothing(); }
int ivra_mac_address_from_int(uint64_t, ivra_mac_address *) { return failure(); }

ivra_uart *ivra_uart_create(ivra_hw_core *) { return no_handle(); }
void ivra_uart_destroy(ivra_uart *) {}
int ivra_uart_read(ivra_uart *, uint8_t *, size_t) { return failure(); }
int ivra_uart_write_all(ivra_uart *, const uint8_t *, size_t, unsigned) { return failure(); }
