#ifndef IVRA_TELEMETRY_MODULE_H
#define IVRA_TELEMETRY_MODULE_H

#include "hw/i2c.h"
#include "telemetry/module_memory.h"
#include "telemetry/reading.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::bsp::telemetry {

enum class module_state_t
{
    ok,
    empty,       ///< nothing answers in the cage
    unsupported, ///< a module, but no memory map is known for its identifier
    failed,      ///< something of it could not be read: module_t::error says what; the rest stands all the same
};

/// A lane that the module has. A reading of a monitor that it does not have is `unsupported`.
struct lane_t
{
    unsigned number = 0; ///< from 1
    reading_t rx_power;  ///< watts
    reading_t tx_power;  ///< watts
    reading_t tx_bias;   ///< amperes, of the laser
    /// It is switched off, or what it carries is not set up: its power and bias are true, but may well be zero, and
    /// limits that they would fall below are left out.
    bool is_transmitter_off = false;
};

/// A pluggable module as the standards have it. Texts that it does not give are absent; they may hold any bytes.
struct module_t
{
    module_state_t state = module_state_t::ok;
    std::string error; ///< of a failed one: the first that went wrong
    std::optional<std::uint8_t> identifier;
    std::optional<std::string> vendor;
    std::optional<std::string> vendor_oui; ///< "02-00-11"
    std::optional<std::string> part_number;
    std::optional<std::string> revision;
    std::optional<std::string> serial_number;
    std::optional<std::string> date_code; ///< as the module gives it: YYMMDD and a lot
    std::optional<std::string> date;      ///< YYYY-MM-DD, if the date code begins with a date
    std::vector<reading_t> monitors;      ///< temperature and voltage; none if nothing of the module is known
    std::vector<lane_t> lanes;            ///< none if the module measures nothing of its lanes
    std::vector<std::string> findings;    ///< what was odd about it as a whole, a sentence each
};

/// What an identifier byte stands for (SFF-8024, table 4-1); empty for one without a name.
std::string_view get_identifier_name(std::uint8_t identifier);

/// Decodes what was read of a module: SFF-8472, SFF-8636 (and SFF-8436, which it grew from) or CMIS, by its identifier.
/// Of a CMIS module the first eight lanes. Never throws for what the memory holds.
module_t decode_module(std::uint8_t identifier, const memory_t& memory);

/// Reads the module that answers on a bus. A transfer that fails costs what it carries, and nothing is thrown for it.
///
/// What reading may clear, flags above all, is not read. Nothing is written but the page, and the one that was selected
/// before is selected again at the end. So the caller holds the I2C lock, and holds signals back meanwhile.
module_t read_module(v6::i2c::bus& bus);

} // namespace ivra::bsp::telemetry

#endif
