#ifndef IVRA_EXPORTER_SERVICE_H
#define IVRA_EXPORTER_SERVICE_H

#include "exporter/command_line.h"

namespace ivra::bsp::exporter {

/// Serves until a signal ends it. Throws std::runtime_error when it cannot start.
void serve(const arguments_t& args);

/// Collects once and writes the metrics to a file, which is replaced whole or stays as it was. False when nothing could
/// be read. Throws std::runtime_error when the file cannot be written, or the boards cannot be asked as told.
bool write_text_file(const arguments_t& args);

} // namespace ivra::bsp::exporter

#endif
