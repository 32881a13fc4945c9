#ifndef IVRA_RECORDS_SENSORS_H
#define IVRA_RECORDS_SENSORS_H

#include <string>
#include <vector>

namespace ivra::bsp::board {

/// One sensor: its values, one a column, are formatted with their units.
struct sensor_t
{
    std::string name;
    std::vector<std::string> values;
};

/// A board's sensors, in the order in which they were read. A board without sensors has none.
struct sensors_t
{
    std::vector<std::string> columns; ///< column titles
    std::vector<sensor_t> sensors;
};

} // namespace ivra::bsp::board

#endif
