#include "state/changes_file.h"

#include "json/document.h"

#include <array>
#include <bit>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace ivra::virtual_platform {

namespace {

using size_bytes_t = std::array<std::uint8_t, 8>;

struct stat status_of(const mapped_file& file, const std::filesystem::path& path)
{
    struct stat status = {};
    if (::fstat(file.descriptor(), &status) != 0)
        throw std::system_error{errno, std::generic_category(), "Cannot examine " + path.string()};
    return status;
}

std::uint64_t place_of_text(std::uint64_t generation)
{
    return changes_file::page + generation % 2 * changes_file::place;
}

} // namespace

void changes_file::prepare(mapped_file file)
{
    file.store(0, 0);
}

changes_file::changes_file(mapped_file file, std::filesystem::path path)
    : file_{std::move(file)}, path_{std::move(path)}
{
    const auto status = status_of(file_, path_);
    device_ = status.st_dev;
    inode_ = status.st_ino;
    file_.close();
}

mapped_file changes_file::open(file_access access) const
{
    const int flags = access == file_access::read_only ? O_RDONLY : O_RDWR;
    mapped_file file{open_own_file(AT_FDCWD, path_.c_str(), path_, flags), path_, access};
    const auto status = status_of(file, path_);
    if (status.st_dev != device_ || status.st_ino != inode_ || file.size() != file_size)
        throw std::system_error{ESTALE, std::generic_category(), "Cannot use " + path_.string()};
    return file;
}

std::string changes_file::read(const mapped_file& file, std::uint64_t generation) const
{
    size_bytes_t size_bytes{};
    file.read(place_of_text(generation), size_bytes);
    const auto size = std::bit_cast<std::uint64_t>(size_bytes);
    if (size > largest_text)
        mistake(path_, "", "expected a text of at most " + std::to_string(largest_text) + " bytes");
    std::vector<std::uint8_t> bytes(size);
    file.read(place_of_text(generation) + size_bytes.size(), bytes);
    return {bytes.begin(), bytes.end()};
}

void changes_file::write(mapped_file& file, std::uint64_t generation, std::string_view text) const
{
    if (text.size() > largest_text)
        mistake(path_, "", "no room for more changes: they take at most " + std::to_string(largest_text) + " bytes");
    std::vector<std::uint8_t> bytes(text.begin(), text.end());
    const auto size_bytes = std::bit_cast<size_bytes_t>(std::uint64_t{text.size()});
    bytes.insert(bytes.begin(), size_bytes.begin(), size_bytes.end());
    file.write(place_of_text(generation), bytes);
    file.store(0, generation);
}

} // namespace ivra::virtual_platform
