#ifndef IVRA_HW_FLASH_H
#define IVRA_HW_FLASH_H

#include "hw/core.h"
#include "hw/result.h"

#include <ivra/flash.h>

#include <cstdint>
#include <memory>
#include <span>
#include <system_error>
#include <vector>

namespace ivra::v6::flash {

/// The configuration flash of the FPGA. Its sections are named by handles that it lends.
class flash
{
public:
    /// Throws std::system_error.
    explicit flash(const hw::core& core);

    hw::result<std::uint64_t> get_memory_size() const; ///< bytes
    hw::result<std::uint64_t> get_sector_size() const; ///< bytes

    const char* get_section_pgm() const { return pgm_; } ///< of the program
    const char* get_section_usr() const { return usr_; } ///< of the user
    const char* get_section_prm() const { return prm_; } ///< of the parameters
    const char* get_section_otp() const { return otp_; } ///< one-time programmable

    /// Handles of the sections called `name`, of all of them when it is null, in the platform's order.
    hw::result<std::vector<const char*>> get_sections_char(const char* name) const;

    const char* get_section_name(const char* section) const; ///< null when it has none
    hw::result<std::uint64_t> get_section_start_address(const char* section) const;
    hw::result<std::uint64_t> get_section_size(const char* section) const; ///< bytes

    /// Replaces bytes at `offset` of a section; an error value of 0 means success.
    std::error_code write_section(const char* section, std::uint64_t offset, std::span<const std::uint8_t> data);

private:
    hw::core core_;
    std::shared_ptr<ivra_flash> handle_;
    const char* pgm_;
    const char* usr_;
    const char* prm_;
    const char* otp_;
};

} // namespace ivra::v6::flash

#endif
