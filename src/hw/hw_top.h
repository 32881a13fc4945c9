#ifndef IVRA_HW_HW_TOP_H
#define IVRA_HW_HW_TOP_H

#include "hw/core.h"
#include "hw/mac_address.h"
#include "hw/result.h"

#include <ivra/hw_top.h>

#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace ivra::v6::hw_top {

/// The top-level core, which says what board and FPGA a design runs on.
class hw_top
{
public:
    /// Throws std::system_error.
    explicit hw_top(const hw::core& core);

    hw::result<std::string> get_board_name() const;
    hw::result<std::string> get_device_id() const;
    hw::result<ivra_hw_top_fpga_serial_id> get_fpga_serial_id() const;
    /// The addresses that the design uses, in its order.
    hw::result<std::vector<mac_address>> get_mac_addresses() const;
    /// Of the FPGA's die, in degrees Celsius.
    hw::result<double> get_temperature() const;
    /// Makes the design read its parameters from flash again; an error value of 0 means success.
    std::error_code update_params();

private:
    hw::core core_;
    std::shared_ptr<ivra_hw_top> handle_;
};

/// 24 lower-case hexadecimal digits.
hw::result<std::string> print_fpga_serial_id(const ivra_hw_top_fpga_serial_id& id);

} // namespace ivra::v6::hw_top

#endif
