#ifndef IVRA_VIRTUAL_READ_MODULE_H
#define IVRA_VIRTUAL_READ_MODULE_H

#include "module.h"
#include "node.h"

#include <string>

namespace ivra::virtual_platform {

/// Reads the module of a cage: its name, or an object. What is read from other files is added to `text`. Throws
/// file_error.
module_t read_module(const node_t& node, std::string& text);

} // namespace ivra::virtual_platform

#endif
