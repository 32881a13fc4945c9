#ifndef IVRA_VIRTUAL_RACK_FILES_H
#define IVRA_VIRTUAL_RACK_FILES_H

#include <filesystem>
#include <string>

namespace ivra::virtual_platform {

/// The folder of the racks that come with the platform; it lies beside the libraries and programs.
std::filesystem::path racks_folder();

} // namespace ivra::virtual_platform

#endif
