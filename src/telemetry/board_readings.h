#ifndef IVRA_TELEMETRY_BOARD_READINGS_H
#define IVRA_TELEMETRY_BOARD_READINGS_H

#include "hw/accelerator.h"
#include "hw/mac_address.h"
#include "telemetry/controllers.h"
#include "telemetry/health.h"
#include "telemetry/module.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {

/// What the host knows of an accelerator, whether it can be opened or not.
struct accelerator_identity_t
{
    std::optional<std::uint32_t> index;
    std::optional<std::string> name;
    std::optional<std::string> uid;
};
accelerator_identity_t get_identity(const hw::accelerator_descriptor& descriptor);

struct flash_section_t
{
    std::optional<std::string> name;
    std::uint64_t start, size; ///< bytes
};

struct flash_layout_t
{
    std::uint64_t size, sector_size; ///< bytes
    std::vector<flash_section_t> sections;
};

struct cage_readings_t
{
    unsigned number; ///< from 1
    module_t module; ///< failed where the cage is out of reach
};

/// Everything that a board says of itself. Nothing stands for what was left out.
struct board_readings_t
{
    std::string error; ///< why nothing of it could be read; then there is nothing else
    item_t<std::string> model;
    item_t<std::vector<v6::mac_address>> macs; ///< that the design uses
    item_t<board::mac_addresses_t> vendor_macs;
    item_t<std::string> fpga_device;
    item_t<std::string> fpga_serial; ///< 24 hexadecimal digits
    std::optional<reading_t> fpga_temperature;
    item_t<flash_layout_t> flash;
    controller_readings_t controller;
    item_t<std::vector<cage_readings_t>> cages; ///< neither for a board without any
};

/// Reads a board. What fails costs itself and nothing else. Throws nothing but what a lack of memory throws.
board_readings_t read_board(const hw::accelerator_descriptor& descriptor, const parts_t& parts,
                            const is_over_t& is_over);

/// The verdict on a board: that on all that was read of it, and on what could not be read.
verdict_t judge(const board_readings_t& readings);

/// The same on one module. `what` begins each finding.
verdict_t judge(const module_t& module, const std::string& what);

} // namespace ivra::bsp::telemetry

#endif
