#ifndef IVRA_VIRTUAL_CHANGES_FILE_H
#define IVRA_VIRTUAL_CHANGES_FILE_H

#include "memory/mapped_file.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace ivra::virtual_platform {

/// A text in a file, with a number that grows when the text becomes another one, which is mapped shared. All zeros are
/// no text. It is replaced in one step: a process that is killed on the way leaves what was there before. Readers wait
/// for nobody. The file is open only while the text is read or written: a board takes no descriptor for it.
class changes_file
{
public:
    static constexpr std::uint64_t page = 4096;
    static constexpr std::uint64_t place = 4U << 20U; ///< bytes for a text and its size; there are two such places
    static constexpr std::uint64_t largest_text = place - 8;
    static constexpr std::uint64_t file_size = page + 2 * place;

    /// Gives the number its room; of a file that is new.
    static void prepare(mapped_file file);

    /// Throws std::system_error, as all below.
    changes_file(mapped_file file, std::filesystem::path path);

    std::uint64_t generation() const { return file_.load(0); }

    /// Opens the file. Deliberate: not within the other functions, as a process that closes a file loses its locks on
    /// it.
    mapped_file open(file_access access) const;

    /// The text of a generation; nothing that counts when the generation is another one by now. Throws file_error.
    std::string read(const mapped_file& file, std::uint64_t generation) const;
    /// The file is locked, and the generation is odd where the present one is even. Throws file_error.
    void write(mapped_file& file, std::uint64_t generation, std::string_view text) const;

    const std::filesystem::path& path() const { return path_; }

private:
    mapped_file file_;
    std::filesystem::path path_;
    std::uint64_t device_ = 0; ///< which file it is
    std::uint64_t inode_ = 0;
};

} // namespace ivra::virtual_platform

#endif
