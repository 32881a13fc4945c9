#ifndef IVRA_VIRTUAL_READ_I2C_H
#define IVRA_VIRTUAL_READ_I2C_H

#include "i2c.h"
#include "node.h"

#include <string>
#include <string_view>

namespace ivra::virtual_platform {

/// Reads what a rack says of an I2C controller over its defaults. What was read from other files is added to `text`.
/// Throws file_error.
void read_i2c(const node_t& node, std::string_view model, i2c_t& i2c, std::string& text);

} // namespace ivra::virtual_platform

#endif
