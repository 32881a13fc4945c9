#include "story.h"

#include "rack/calls.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <set>

#include <dlfcn.h>

namespace ivra::platform_tests {

namespace {

class contract : public host
{
};

TEST_F(contract, null_handles_and_null_results_are_EINVAL)
{
    run([] {
        const opened board;
        ivra_hw_filter* filter = ivra_hw_filter_create();
        ivra_hw_top* top = ivra_hw_top_create(board.root);
        ivra_flash* flash = ivra_flash_create(board.root);
        ivra_i2c* i2c = ivra_i2c_create(board.root);
        ivra_uart* uart = ivra_uart_create(board.root);
        const ivra_hw_properties* properties = ivra_hw_accelerator_get_properties(board.descriptor);
        const ivra_hw_register_description word{0, 0, 32, nullptr};
        ivra_hw_core* core = board.core(475);
        ivra_hw_top_fpga_serial_id id{};
        ivra_mac_address address{};
        std::uint64_t number = 0;
        std::uint32_t index = 0;
        double celsius = 0;
        char text[64];
        std::uint8_t bytes[4] = {};

        EXPECT_FAILS(-1, EINVAL, ivra_hw_prop_get_index(nullptr, &index));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_prop_get_index(properties, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_prop_get_name(nullptr, text, sizeof text));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_prop_get_name(properties, nullptr, 8));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_prop_get_uid(nullptr, text, sizeof text));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_prop_get_uid(properties, nullptr, 0));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_enumerate_all_accelerators(nullptr, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_enumerate_accelerators(nullptr, nullptr, 0));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_enumerate_accelerators(filter, nullptr, 1));
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_accelerator_get_properties(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_filter_set_index(nullptr, 0));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_filter_set_name(nullptr, "a"));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_filter_set_name(filter, nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_accelerator_get(nullptr));
        EXPECT_FAILS(0U, EINVAL, ivra_hw_accelerator_count_mmios(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_accelerator_enumerate_all_mmios(nullptr, nullptr, 0));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_accelerator_enumerate_all_mmios(board.accelerator, nullptr, 1));
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_mmio_descriptor_get_properties(nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_mmio_create(nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_mmio_get_descriptor(nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_enumerate_cores(nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_core_tree_get_root(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_core_enumerate(nullptr, 1, nullptr, 0));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_core_enumerate(board.root, 1, nullptr, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_read(nullptr, &word, &number));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_read(core, nullptr, &number));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_read(core, &word, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_write(nullptr, &word, 0));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_write(core, nullptr, 0));
        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_shared_mutex_create(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_shared_mutex_lock(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_shared_mutex_trylock(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_shared_mutex_unlock(nullptr));

        EXPECT_FAILS(nullptr, EINVAL, ivra_hw_top_create(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_board_name(nullptr, text, sizeof text));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_board_name(top, nullptr, 8));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_device_id(nullptr, text, sizeof text));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_device_id(top, nullptr, 8));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_fpga_serial_id(nullptr, &id));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_fpga_serial_id(top, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_print_fpga_serial_id(nullptr, text, sizeof text));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_print_fpga_serial_id(&id, nullptr, 25));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_mac_addresses(nullptr, nullptr, 0));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_temperature(nullptr, &celsius));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_get_temperature(top, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_hw_top_update_params(nullptr));

        const char* section = ivra_flash_get_section_usr(flash);
        EXPECT_FAILS(nullptr, EINVAL, ivra_flash_create(nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_flash_get_section_pgm(nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_flash_get_section_usr(nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_flash_get_section_prm(nullptr));
        EXPECT_FAILS(nullptr, EINVAL, ivra_flash_get_section_otp(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_memory_size(nullptr, &number));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_memory_size(flash, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_sector_size(nullptr, &number));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_sector_size(flash, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_sections(nullptr, nullptr, nullptr, 0));
        EXPECT_FAILS(nullptr, EINVAL, ivra_flash_get_section_name(nullptr, section));
        EXPECT_FAILS(nullptr, EINVAL, ivra_flash_get_section_name(flash, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_section_start_address(nullptr, section, &number));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_section_start_address(flash, nullptr, &number));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_section_start_address(flash, section, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_section_size(nullptr, section, &number));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_section_size(flash, nullptr, &number));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_get_section_size(flash, section, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_write_section(nullptr, section, 0, "x", 1));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_write_section(flash, nullptr, 0, "x", 1));
        EXPECT_FAILS(-1, EINVAL, ivra_flash_write_section(flash, section, 0, nullptr, 1));
        EXPECT_EQ(ivra_flash_write_section(flash, section, 0, nullptr, 0), 0);

        EXPECT_FAILS(nullptr, EINVAL, ivra_i2c_create(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_read_control_pins(nullptr, &index));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_read_control_pins(i2c, nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_write_control_pins(nullptr, 0));
        EXPECT_FAILS(nullptr, EINVAL, ivra_i2c_get_bus(nullptr, 0));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_bus_read(nullptr, 0x50, bytes, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_bus_write(nullptr, 0x50, bytes, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_bus_read_register(nullptr, 0x50, 0, bytes, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_i2c_bus_write_register(nullptr, 0x50, 0, bytes, 1));

        EXPECT_FAILS(nullptr, EINVAL, ivra_uart_create(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_uart_read(nullptr, bytes, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_uart_read(uart, nullptr, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_uart_write_all(nullptr, bytes, 1, 1));
        EXPECT_FAILS(-1, EINVAL, ivra_uart_write_all(uart, nullptr, 1, 1));

        EXPECT_FAILS(-1, EINVAL, ivra_parse_mac_address(nullptr, &address));
        EXPECT_FAILS(-1, EINVAL, ivra_parse_mac_address("00:11:22:aa:bb:cc", nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_print_mac_address(nullptr, text, sizeof text));
        EXPECT_FAILS(0U, EINVAL, ivra_mac_address_to_int(nullptr));
        EXPECT_FAILS(-1, EINVAL, ivra_mac_address_from_int(0, nullptr));

        ivra_uart_destroy(uart);
        ivra_i2c_destroy(i2c);
        ivra_flash_destroy(flash);
        ivra_hw_top_destroy(top);
        ivra_hw_filter_destroy(filter);
    });
    EXPECT_EQ(trace().back(), "exit: 0 handles not released");
}

TEST_F(contract, releasing_nothing_does_nothing_and_leaves_errno_alone)
{
    run([] {
        errno = ENOENT;
        ivra_hw_accelerator_put_descriptor(nullptr);
        ivra_hw_filter_destroy(nullptr);
        ivra_hw_accelerator_put(nullptr);
        ivra_hw_mmio_put_descriptor(nullptr);
        ivra_hw_mmio_destroy(nullptr);
        ivra_hw_destroy_tree(nullptr);
        ivra_hw_shared_mutex_destroy(nullptr);
        ivra_hw_top_destroy(nullptr);
        ivra_flash_destroy(nullptr);
        ivra_i2c_destroy(nullptr);
        ivra_i2c_bus_destroy(nullptr);
        ivra_uart_destroy(nullptr);
        EXPECT_EQ(errno, ENOENT);
    });
}

TEST_F(contract, a_call_that_succeeds_leaves_errno_alone)
{
    run([] {
        errno = ENOENT;
        const opened board; // makes the state
        ivra_flash* flash = ivra_flash_create(board.root);
        EXPECT_EQ(ivra_flash_write_section(flash, ivra_flash_get_section_usr(flash), 0, "x", 1), 0);
        ivra_flash_destroy(flash);
        EXPECT_EQ(errno, ENOENT);
    });
}

TEST_F(contract, the_table_of_calls_is_the_one_of_the_headers)
{
    std::set<std::string> declared = declared_functions();
    // the log is no hardware: it can neither fail nor be traced
    std::erase_if(declared, [](const std::string& name) { return name.starts_with("ivra_log_"); });
    std::set<std::string> known;
    for (const auto& row : virtual_platform::calls) {
        known.emplace(row.name);
        EXPECT_NE(::dlsym(RTLD_DEFAULT, std::string{row.name}.c_str()), nullptr) << row.name;
    }
    EXPECT_EQ(known, declared);
    EXPECT_EQ(known.size(), std::size(virtual_platform::calls)) << "no name twice";
}

} // namespace

} // namespace ivra::platform_tests
