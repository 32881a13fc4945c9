#ifndef IVRA_TESTS_READINGS_READINGS_H
#define IVRA_TESTS_READINGS_READINGS_H

#include "support/rack.h"

#include <regex>
#include <string>

namespace ivra::tests {

/// The host of a switch that knows all about itself.
inline const host_t plain_host{.serial = "SSJ17200123\n", .address = "00:1c:73:aa:bb:cc\n"};

/// A rack whose boards ivra-bsp-readings reads.
class readings_rack_t : public rack_t
{
public:
    readings_rack_t() { program(IVRA_BSP_READINGS); }
};

/// A document without what differs from run to run: time, host and version.
inline std::string without_moment(const std::string& document)
{
    static const std::regex moment{R"("version":"[0-9.]+","time":"[0-9TZ:-]+","host":"[^"]*")"};
    return std::regex_replace(document, moment, "...");
}

} // namespace ivra::tests

#endif
