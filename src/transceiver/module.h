#ifndef IVRA_TRANSCEIVER_MODULE_H
#define IVRA_TRANSCEIVER_MODULE_H

#include "hw/i2c.h"
#include "records/transceiver_info.h"
#include "transceiver/identifier.h"
#include "transceiver/power_mode.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ivra::bsp::transceiver {

// All of these talk to the module that answers on a bus. They throw std::system_error for a transfer that failed, or
// that was shorter than asked for (EIO), and std::runtime_error for a module of no family that can be read.

module_type_t get_module_type(v6::i2c::bus& bus);
std::string get_module_type_str(v6::i2c::bus& bus); ///< the identifier's name, or "Unknown"

/// A text of 16 characters in the main memory, without what pads it.
std::string read_string(v6::i2c::bus& bus, std::uint8_t offset);

/// What a module is and measures; nothing for an empty cage. The page selected last stays selected.
std::optional<transceiver_info_t> get_module_stats(v6::i2c::bus& bus);

/// The same for a report, which one bad module does not stop: never throws for a module's fault, but returns what was
/// read before it, and the fault as `error`. Nothing more is read.
std::optional<transceiver_info_t> get_module_report(v6::i2c::bus& bus);

/// Lets software decide the power mode of a QSFP or QSFP-DD module; an SFP module is left alone. Throws
/// std::runtime_error also for an empty cage.
void set_qsfp_power_mode(v6::i2c::bus& bus, qsfp_power_mode_t mode);

} // namespace ivra::bsp::transceiver

#endif
