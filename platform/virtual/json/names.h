#ifndef IVRA_VIRTUAL_JSON_NAMES_H
#define IVRA_VIRTUAL_JSON_NAMES_H

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform::json {

/// The NAMEs of the files NAME.json in `folder` below any of these, sorted, each once.
std::vector<std::string> names_in(const std::vector<std::filesystem::path>& folders,
                                  const std::filesystem::path& folder);

/// Those of `known` that `name` may be a slip of: fewest letters are wrong, at most two and one of four; capital
/// letters and dashes count for nothing, nor does what stands before the first "_" of a known name.
std::vector<std::string_view> close_names(const std::vector<std::string>& known, std::string_view name);

} // namespace ivra::virtual_platform::json

#endif
