#include "telemetry/reading.h"

namespace ivra::bsp::telemetry {

const char* get_name(limit_t limit)
{
    switch (limit) {
    case limit_t::lower_non_recoverable:
        return "lower_non_recoverable";
    case limit_t::lower_critical:
        return "lower_critical";
    case limit_t::lower_non_critical:
        return "lower_non_critical";
    case limit_t::upper_non_critical:
        return "upper_non_critical";
    case limit_t::upper_critical:
        return "upper_critical";
    case limit_t::upper_non_recoverable:
        break;
    }
    return "upper_non_recoverable";
}

std::string_view get_base_unit(board::quantity_t quantity)
{
    using board::quantity_t;
    switch (quantity) {
    case quantity_t::voltage:
        return "volts";
    case quantity_t::current:
        return "amperes";
    case quantity_t::temperature:
        return "celsius";
    case quantity_t::power:
    case quantity_t::optical_power:
        return "watts";
    case quantity_t::fan_speed:
        return "rpm";
    case quantity_t::other:
        break;
    }
    return {};
}

} // namespace ivra::bsp::telemetry
