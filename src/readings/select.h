#ifndef IVRA_READINGS_SELECT_H
#define IVRA_READINGS_SELECT_H

#include "telemetry/board_readings.h"

#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::bsp::readings {

/// The boards that a command line names, in the order of the host, each once: an index as `ivra-bsp board` takes one,
/// else every board of that name, else that uid; all of them where none is named. Those with a skipped uid, or
/// without one a skipped name, or without both a skipped index, are left out. Throws std::runtime_error for a board
/// that there is not.
std::vector<telemetry::accelerator_identity_t> select(const std::vector<telemetry::accelerator_identity_t>& boards,
                                                      const std::vector<std::string>& selectors,
                                                      const std::vector<std::string>& skipped);

} // namespace ivra::bsp::readings

#endif
