#ifndef IVRA_VIRTUAL_MAPPED_FILE_H
#define IVRA_VIRTUAL_MAPPED_FILE_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <utility>

namespace ivra::virtual_platform {

/// Owns a file descriptor.
class unique_fd
{
public:
    explicit unique_fd(int fd) : fd_{fd} {}
    unique_fd(unique_fd&& other) noexcept : fd_{std::exchange(other.fd_, -1)} {}
    unique_fd& operator=(unique_fd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~unique_fd(); ///< Leaves errno alone.

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_;
};

/// Opens a file that belongs to this user, by its name below a folder (AT_FDCWD: below the current one, or absolute);
/// `path` is for messages. No link is followed, and nobody is waited for. Throws std::system_error: ELOOP for a link,
/// EINVAL for anything else but a regular file, EPERM for a file of another user.
unique_fd open_own_file(int folder, const char* name, const std::filesystem::path& path, int flags);

enum class file_access
{
    read_only,
    read_write
};

/// A sparse file of fixed size, mapped shared. What was never written reads as 0 and takes no room. Memory without a
/// block behind it is never touched, so a full disk is an error and not a SIGBUS.
class mapped_file
{
public:
    /// `fd` is open for `access`; `path` is for messages. Throws std::system_error.
    mapped_file(unique_fd fd, std::filesystem::path path, file_access access);

    std::uint64_t size() const { return size_; }

    /// All of these throw std::system_error with the path, ERANGE when the range is not within the file.
    void read(std::uint64_t offset, std::span<std::uint8_t> bytes) const;
    void write(std::uint64_t offset, std::span<const std::uint8_t> bytes);
    /// Sets bytes to 0.
    void clear(std::uint64_t offset, std::uint64_t count);
    /// Makes sure that the disk has room for this range.
    void reserve(std::uint64_t offset, std::uint64_t count);

    /// The number in 8 bytes at a multiple of 8, in the machine's order: it is read and written in one step, and what
    /// was written before it is there for whoever reads it. Memory has to be there: it was stored before.
    std::uint64_t load(std::uint64_t offset) const;
    void store(std::uint64_t offset, std::uint64_t number);

    /// Gives the descriptor back. From then on only load() works.
    void close() { fd_ = unique_fd{-1}; }

    /// The first range from `offset` on, as begin and end, that may hold something other than 0; both are size() when
    /// there is none.
    std::pair<std::uint64_t, std::uint64_t> next_data(std::uint64_t offset) const;

    int descriptor() const { return fd_.get(); }

private:
    friend class file_lock;

    struct unmap
    {
        std::size_t size;
        void operator()(std::uint8_t* memory) const;
    };

    [[noreturn]] void fail(int error, const char* what) const;
    void check_range(std::uint64_t offset, std::uint64_t count) const;

    unique_fd fd_;
    std::filesystem::path path_;
    std::uint64_t size_;
    std::unique_ptr<std::uint8_t, unmap> memory_;
    std::pair<std::uint64_t, std::uint64_t> reserved_{0, 0}; ///< begin and end of the last reserved range: what has
                                                             ///< room keeps it, and a device writes where it wrote
};

/// A file locked against other processes. Throws std::system_error with the path.
class file_lock
{
public:
    explicit file_lock(const mapped_file& file);
    ~file_lock();
    file_lock(const file_lock&) = delete;
    file_lock& operator=(const file_lock&) = delete;

private:
    int fd_;
};

} // namespace ivra::virtual_platform

#endif
