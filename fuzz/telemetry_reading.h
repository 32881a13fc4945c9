#ifndef IVRA_FUZZ_TELEMETRY_READING_H
#define IVRA_FUZZ_TELEMETRY_READING_H

#include "telemetry/reading.h"

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <optional>

inline void require(bool holds)
{
    if (!holds)
        std::abort();
}

/// What holds of every reading of a BMC.
inline void check(const ivra::bsp::telemetry::reading_t& reading)
{
    using namespace ivra::bsp::telemetry;
    require(reading.value.has_value() == (reading.state == state_t::ok));
    require(!reading.value || std::isfinite(*reading.value));
    require(reading.error.empty() == (reading.state != state_t::failed));
    require(!reading.peak);
    require(reading.name.size() <= 31);
    require(reading.unit.empty() || reading.quantity == ivra::bsp::board::quantity_t::other);
    std::optional<double> lower;
    for (const std::optional<double>& limit : reading.limits.values) {
        require(!limit || std::isfinite(*limit));
        require(!limit || !lower || *lower <= *limit);
        if (limit)
            lower = limit;
    }
}

#endif
