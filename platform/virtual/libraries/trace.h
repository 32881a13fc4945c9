#ifndef IVRA_VIRTUAL_TRACE_H
#define IVRA_VIRTUAL_TRACE_H

#include "libraries/api.h"
#include "memory/mapped_file.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

struct ivra_hw_core;
struct ivra_hw_register_description;

namespace ivra::virtual_platform {

/// Something that a trace shows in hexadecimal.
struct hexadecimal_t
{
    std::uint64_t value;
};

/// The text with "\xNN" for what is not printable.
std::string escaped(std::string_view text);

/// An argument or result as the trace shows it; a null pointer is NULL. Texts are in quotes.
std::string describe(std::string_view text);
std::string describe(const char* text);
std::string describe(hexadecimal_t number);
/// Two digits a byte; of many bytes the first ones, and how many there are.
std::string describe(std::span<const std::byte> bytes);
std::string describe(const ivra_hw_core* core);                        ///< such as core 475@0x40000
std::string describe(const ivra_hw_register_description* description); ///< such as 0x28018[31:0] STATUS
template <std::integral Number>
std::string describe(Number number)
{
    return std::to_string(number);
}

/// Name and text of an errno, such as "EIO (Input/output error)".
std::string describe_error(int error);

/// A file to which lines "seconds pid text" are appended, each in one write, so that processes can share it.
class trace
{
public:
    /// Throws std::system_error.
    explicit trace(const std::filesystem::path& file);

    /// A line that cannot be written is lost.
    void write(const std::string& text) const;

private:
    unique_fd fd_;
};

} // namespace ivra::virtual_platform

#endif
