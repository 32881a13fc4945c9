#include "story.h"

#include <cerrno>
#include <cstdarg>
#include <set>
#include <string>
#include <type_traits>

#include <dlfcn.h>

namespace ivra::platform_tests {

namespace {

/// A library that stands for the maker's while programs are linked.
class stub
{
public:
    explicit stub(const std::string& name) : handle_{::dlopen((IVRA_STUBS "/" + name).c_str(), RTLD_NOW | RTLD_LOCAL)}
    {
        EXPECT_NE(handle_, nullptr) << ::dlerror();
    }
    ~stub() { ::dlclose(handle_); }
    stub(const stub&) = delete;
    stub& operator=(const stub&) = delete;

    /// Its function of a name, which has the type of `declaration`.
    template <class Function>
    Function* function(const char* name, Function*)
    {
        asked_.insert(name);
        void* const found = ::dlsym(handle_, name);
        EXPECT_NE(found, nullptr) << name;
        return reinterpret_cast<Function*>(found);
    }

    /// Calls a function with zeros: it returns what a failure is, and says why.
    template <class Result, class... Arguments>
    void fails(const char* name, Result (*declaration)(Arguments...))
    {
        const auto call = function(name, declaration);
        errno = 0;
        if constexpr (std::is_same_v<Result, int>)
            EXPECT_EQ(call(Arguments{}...), -1) << name;
        else
            EXPECT_EQ(call(Arguments{}...), Result{}) << name;
        EXPECT_EQ(errno, ENOSYS) << name;
    }

    template <class... Arguments>
    void does_nothing(const char* name, void (*declaration)(Arguments...))
    {
        const auto call = function(name, declaration);
        errno = 0;
        call(Arguments{}...);
        EXPECT_EQ(errno, 0) << name;
    }

    const std::set<std::string>& asked() const { return asked_; }

private:
    void* handle_;
    std::set<std::string> asked_;
};

#define FAILS(name) library.fails(#name, static_cast<decltype(&(name))>(nullptr))
#define DOES_NOTHING(name) library.does_nothing(#name, static_cast<decltype(&(name))>(nullptr))

std::set<std::string> hw_functions()
{
    stub library{"libivra-hw-c.so.1"};
    FAILS(ivra_hw_prop_get_index);
    FAILS(ivra_hw_prop_get_name);
    FAILS(ivra_hw_prop_get_uid);
    FAILS(ivra_hw_count_accelerators);
    FAILS(ivra_hw_enumerate_all_accelerators);
    FAILS(ivra_hw_enumerate_accelerators);
    DOES_NOTHING(ivra_hw_accelerator_put_descriptor);
    FAILS(ivra_hw_accelerator_get_properties);
    FAILS(ivra_hw_filter_create);
    FAILS(ivra_hw_filter_set_index);
    FAILS(ivra_hw_filter_set_name);
    DOES_NOTHING(ivra_hw_filter_destroy);
    FAILS(ivra_hw_accelerator_get);
    DOES_NOTHING(ivra_hw_accelerator_put);
    FAILS(ivra_hw_accelerator_count_mmios);
    FAILS(ivra_hw_accelerator_enumerate_all_mmios);
    DOES_NOTHING(ivra_hw_mmio_put_descriptor);
    FAILS(ivra_hw_mmio_descriptor_get_properties);
    FAILS(ivra_hw_mmio_create);
    FAILS(ivra_hw_mmio_get_descriptor);
    DOES_NOTHING(ivra_hw_mmio_destroy);
    FAILS(ivra_hw_enumerate_cores);
    DOES_NOTHING(ivra_hw_destroy_tree);
    FAILS(ivra_hw_core_tree_get_root);
    FAILS(ivra_hw_core_enumerate);
    FAILS(ivra_hw_read);
    FAILS(ivra_hw_write);
    FAILS(ivra_hw_shared_mutex_create);
    FAILS(ivra_hw_shared_mutex_lock);
    FAILS(ivra_hw_shared_mutex_trylock);
    FAILS(ivra_hw_shared_mutex_unlock);
    DOES_NOTHING(ivra_hw_shared_mutex_destroy);
    return library.asked();
}

std::set<std::string> cores_functions()
{
    stub library{"libivra-cores-c.so.1"};
    FAILS(ivra_flash_create);
    DOES_NOTHING(ivra_flash_destroy);
    FAILS(ivra_flash_get_section_pgm);
    FAILS(ivra_flash_get_section_usr);
    FAILS(ivra_flash_get_section_prm);
    FAILS(ivra_flash_get_section_otp);
    FAILS(ivra_flash_get_memory_size);
    FAILS(ivra_flash_get_sector_size);
    FAILS(ivra_flash_get_sections);
    FAILS(ivra_flash_get_section_name);
    FAILS(ivra_flash_get_section_start_address);
    FAILS(ivra_flash_get_section_size);
    FAILS(ivra_flash_write_section);
    FAILS(ivra_hw_top_create);
    DOES_NOTHING(ivra_hw_top_destroy);
    FAILS(ivra_hw_top_get_board_name);
    FAILS(ivra_hw_top_get_device_id);
    FAILS(ivra_hw_top_get_fpga_serial_id);
    FAILS(ivra_hw_top_print_fpga_serial_id);
    FAILS(ivra_hw_top_get_mac_addresses);
    FAILS(ivra_hw_top_get_temperature);
    FAILS(ivra_hw_top_update_params);
    FAILS(ivra_i2c_create);
    DOES_NOTHING(ivra_i2c_destroy);
    FAILS(ivra_i2c_read_control_pins);
    FAILS(ivra_i2c_write_control_pins);
    FAILS(ivra_i2c_get_bus);
    DOES_NOTHING(ivra_i2c_bus_destroy);
    FAILS(ivra_i2c_bus_read);
    FAILS(ivra_i2c_bus_write);
    FAILS(ivra_i2c_bus_read_register);
    FAILS(ivra_i2c_bus_write_register);
    FAILS(ivra_parse_mac_address);
    FAILS(ivra_print_mac_address);
    FAILS(ivra_mac_address_to_int);
    FAILS(ivra_mac_address_from_int);
    FAILS(ivra_uart_create);
    DOES_NOTHING(ivra_uart_destroy);
    FAILS(ivra_uart_read);
    FAILS(ivra_uart_write_all);
    return library.asked();
}

int heard = 0;

void hear(int, const char*, int, const char*, const char*, va_list)
{
    ++heard;
}

std::set<std::string> log_functions()
{
    stub library{"libivra-log.so.1"};
    const auto set_handler = library.function("ivra_log_set_handler", &ivra_log_set_handler);
    const auto log = library.function("ivra_log_log", &ivra_log_log);
    errno = 0;
    set_handler(&hear);
    log(IVRA_LOG_ERROR, "file", 1, "function", "%s", "text");
    set_handler(nullptr);
    log(IVRA_LOG_ERROR, "file", 1, "function", "%s", "text");
    EXPECT_EQ(heard, 0);
    EXPECT_EQ(errno, 0);
    return library.asked();
}

TEST(stubs, fail_in_every_function_of_the_headers_except_that_a_log_handler_hears_nothing)
{
    std::set<std::string> functions = hw_functions();
    functions.merge(cores_functions());
    functions.merge(log_functions());
    EXPECT_EQ(functions, declared_functions());
}

} // namespace

} // namespace ivra::platform_tests
