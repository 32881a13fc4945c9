#ifndef IVRA_EXPORTER_METRICS_H
#define IVRA_EXPORTER_METRICS_H

#include "exporter/collector.h"

#include <chrono>
#include <string>

namespace ivra::bsp::exporter {

/// All metrics, in the text format of Prometheus (0.0.4): each series once, in base units, without NaN and without
/// timestamps.
std::string make_metrics(const snapshot_t& snapshot);

/// The table of metrics as a page for people, in Markdown.
std::string make_metrics_page();

} // namespace ivra::bsp::exporter

#endif
