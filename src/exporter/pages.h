#ifndef IVRA_EXPORTER_PAGES_H
#define IVRA_EXPORTER_PAGES_H

#include "exporter/collector.h"

#include <chrono>
#include <string>

namespace ivra::bsp::exporter {

/// One document of all boards, as `ivra-bsp readings --json` prints it (share/ivra/schema/readings-1.json). A board
/// that is not in has the state "failed".
std::string make_document(const snapshot_t& snapshot);

/// A page of HTML for people: what is where, and the verdict of each board.
std::string make_start_page(const snapshot_t& snapshot);

} // namespace ivra::bsp::exporter

#endif
