#include "libraries/trace.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

constexpr std::size_t bytes_shown = 64;

std::string formatted(const char* format, auto... values)
{
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, format, values...);
    return buffer;
}

} // namespace

std::string escaped(std::string_view text)
{
    std::string shown;
    for (const char character : text) {
        if (character >= ' ' && character <= '~' && character != '"' && character != '\\')
            shown += character;
        else
            shown += formatted("\\x%02x", static_cast<unsigned char>(character));
    }
    return shown;
}

std::string describe(std::string_view text)
{
    return '"' + escaped(text) + '"';
}

std::string describe(const char* text)
{
    return text == nullptr ? "NULL" : describe(std::string_view{text});
}

std::string describe(hexadecimal_t number)
{
    return formatted("0x%llx", static_cast<unsigned long long>(number.value));
}

std::string describe(std::span<const std::byte> bytes)
{
    if (bytes.data() == nullptr)
        return "NULL";
    std::string text = "[";
    for (const std::byte byte : bytes.first(std::min(bytes.size(), bytes_shown)))
        text += formatted(text.size() == 1 ? "%02x" : " %02x", std::to_integer<unsigned>(byte));
    if (bytes.size() > bytes_shown)
        text += formatted(" ... %zu bytes", bytes.size());
    return text + ']';
}

std::string describe_error(int error)
{
    const char* name = ::strerrorname_np(error);
    return (name == nullptr ? std::to_string(error) : name) + " (" + std::generic_category().message(error) + ")";
}

trace::trace(const std::filesystem::path& file)
    : fd_{::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)}
{
    if (!fd_)
        throw std::system_error{errno, std::generic_category(), "Cannot write the trace to " + file.string()};
}

void trace::write(const std::string& text) const
{
    const std::chrono::duration<double> now = std::chrono::steady_clock::now().time_since_epoch();
    const std::string line = formatted("%.6f %d ", now.count(), static_cast<int>(::getpid())) + text + '\n';
    while (::write(fd_.get(), line.data(), line.size()) < 0 && errno == EINTR)
        continue;
}

} // namespace ivra::virtual_platform
