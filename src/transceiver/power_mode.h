#ifndef IVRA_TRANSCEIVER_POWER_MODE_H
#define IVRA_TRANSCEIVER_POWER_MODE_H

namespace ivra::bsp::transceiver {

enum class qsfp_power_mode_t
{
    high = 0, ///< full power
    low = 1,
};

} // namespace ivra::bsp::transceiver

#endif
