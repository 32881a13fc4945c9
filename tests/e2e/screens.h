#ifndef IVRA_TESTS_E2E_SCREENS_H
#define IVRA_TESTS_E2E_SCREENS_H

#include "support/rack.h"

#include <string>

namespace ivra::tests {

inline const std::string bittware_models[] = {"bittware_xupp3r", "ivra_fpb2", "bittware_xupvv8"};

/// For racks: members of a board's BMC, and what is in its cages.
inline members_t bmc_of(const std::string& members)
{
    return {{"bmc", "{" + members + "}"}};
}

inline members_t cages_of(const std::string& list)
{
    return {{"i2c", R"({"cages": [)" + list + "]}"}};
}

/// What `list` says of an accelerator.
inline std::string listed(const std::string& name, const std::string& id, const std::string& model,
                          const std::string& address, const std::string& serial)
{
    return name + "\n\tID            : " + id + "\n\tBoard model   : " + model + "\n\tBoard base MAC: " + address +
           "\n\tBoard serial  : " + serial + "\n";
}

/// What is said of a serial number that cannot be read.
inline std::string serial_failed(const std::string& why)
{
    return "get_board_serial_stat: Error retrieving serial for board card-0: " + why + "\n";
}

/// What `show info` says of the first board of a rack_t.
inline std::string info(const std::string& model, const std::string& serial,
                        const std::string& addresses = "02:00:00:00:00:00 - 02:00:00:00:00:03",
                        const std::string& temperature = "45.5°C")
{
    return "Accelerator\n"
           "\tName         : card-0\n"
           "\tID           : 0\n"
           "\tBoard model  : " +
           model + "\n\tBoard serial : " + serial +
           "\n"
           "\tFPGA device  : xcvu7p-flva2104-2-e\n"
           "\tFPGA serial  : 0x4002000001285c0f1a104280\n"
           "\tMAC addresses: " +
           addresses + "\n\tTemperature  : " + temperature + "\n";
}

} // namespace ivra::tests

#endif
