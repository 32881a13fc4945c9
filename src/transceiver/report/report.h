#ifndef IVRA_TRANSCEIVER_REPORT_REPORT_H
#define IVRA_TRANSCEIVER_REPORT_REPORT_H

#include "output/section.h"
#include "records/transceiver_info.h"

#include <string>

namespace ivra::bsp {

/// Appends what a module is, then what it measures, that it measures nothing, or why it could not be read.
void add_transceiver(const transceiver::transceiver_info_t& info, section& port);

// Each appends what a module of one family measures.
void get_sfp_stats(const transceiver::sfp::stats_t& stats, section& s);
void get_qsfp_stats(const transceiver::qsfp::stats_t& stats, section& s);
void get_qsfp_dd_stats(const transceiver::qsfp_dd::stats_t& stats, section& s);

/// An optical power with 3 decimals, in milliwatts and, unless it is 0, in dBm.
/// Instantiated for double.
template <class T>
std::string optical_power_str(T milliwatts);

} // namespace ivra::bsp

#endif
