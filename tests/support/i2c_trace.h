#ifndef IVRA_TESTS_SUPPORT_I2C_TRACE_H
#define IVRA_TESTS_SUPPORT_I2C_TRACE_H

#include "support/rack.h"

#include <sstream>
#include <string>
#include <vector>

namespace ivra::tests {

// I2C calls as a trace shows them, without their beginning and the board: "bus_read_register(0x50, 0x16, 2)".

inline std::string hexadecimal(int number)
{
    std::ostringstream text;
    text << "0x" << std::hex << number;
    return text.str();
}

inline std::string get_bus(int index)
{
    return "get_bus(" + std::to_string(index) + ")";
}

inline std::string read_registers(int device, int reg, int size)
{
    return "bus_read_register(" + hexadecimal(device) + ", " + hexadecimal(reg) + ", " + std::to_string(size) + ")";
}

/// `byte` has two digits.
inline std::string write_register(int device, int reg, const std::string& byte)
{
    return "bus_write_register(" + hexadecimal(device) + ", " + hexadecimal(reg) + ", [" + byte + "])";
}

inline std::string read_raw(int device, int size)
{
    return "bus_read(" + hexadecimal(device) + ", " + std::to_string(size) + ")";
}

inline std::string write_raw(int device, const std::string& byte)
{
    return "bus_write(" + hexadecimal(device) + ", [" + byte + "])";
}

/// All that the last run asked of I2C, but for making handles of controllers and releasing handles.
inline std::vector<std::string> i2c_calls(const rack_t& rack)
{
    const std::string prefix = " ivra_i2c_";
    std::vector<std::string> found;
    std::istringstream trace{rack.trace()};
    for (std::string line; std::getline(trace, line);) {
        const std::size_t begin = line.find(prefix);
        if (begin == std::string::npos)
            continue;
        std::string call = line.substr(begin + prefix.size());
        call.erase(call.find(')') + 1);
        if (call.starts_with("create") || call.starts_with("destroy") || call.starts_with("bus_destroy"))
            continue;
        const std::size_t board = call.find('(') + 1;
        const std::size_t rest = call.find(", ", board);
        call.erase(board, rest == std::string::npos ? call.size() - board - 1 : rest + 2 - board);
        found.push_back(call);
    }
    return found;
}

} // namespace ivra::tests

#endif
