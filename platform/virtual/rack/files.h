#ifndef IVRA_VIRTUAL_RACK_FILES_H
#define IVRA_VIRTUAL_RACK_FILES_H

#include <filesystem>
#include <string>

namespace ivra::virtual_platform {

/// The text of a regular file. Throws rack_error, also when it is very large.
std::string read_file(const std::filesystem::path& file);

/// The folder of the racks that come with the platform; it lies beside the libraries and programs.
std::filesystem::path racks_folder();

} // namespace ivra::virtual_platform

#endif
