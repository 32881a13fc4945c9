#include "memory/mapped_file.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <system_error>
#include <tuple>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

/// Sets the lock on a file that belongs to this process. Deliberate: not one of the open file, which a forked child
/// would share.
int set_lock(int fd, short type)
{
    struct flock whole_file
    {
    };
    whole_file.l_type = type;
    whole_file.l_whence = SEEK_SET;
    int result = 0;
    do {
        result = ::fcntl(fd, F_SETLKW, &whole_file);
    } while (result < 0 && errno == EINTR);
    return result;
}

} // namespace

unique_fd::~unique_fd()
{
    if (fd_ < 0)
        return;
    const int error = errno;
    ::close(fd_);
    errno = error;
}

unique_fd open_own_file(int folder, const char* name, const std::filesystem::path& path, int flags)
{
    const auto fail = [&](int error) {
        throw std::system_error{error, std::generic_category(), "Cannot open " + path.string()};
    };
    constexpr ::mode_t for_its_owner = 0600;
    unique_fd fd{::openat(folder, name, flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, for_its_owner)};
    struct stat status = {};
    if (!fd || ::fstat(fd.get(), &status) < 0)
        fail(errno);
    if (!S_ISREG(status.st_mode))
        fail(EINVAL);
    if (status.st_uid != ::geteuid())
        fail(EPERM);
    return fd;
}

void mapped_file::unmap::operator()(std::uint8_t* memory) const
{
    ::munmap(memory, size);
}

mapped_file::mapped_file(unique_fd fd, std::filesystem::path path, file_access access)
    : fd_{std::move(fd)}, path_{std::move(path)}, size_{0}, memory_{nullptr, unmap{0}}
{
    struct stat status
    {
    };
    if (::fstat(fd_.get(), &status) < 0)
        fail(errno, "Cannot examine");
    size_ = static_cast<std::uint64_t>(status.st_size);
    if (size_ == 0)
        return; // nothing to map
    const int protection = access == file_access::read_only ? PROT_READ : PROT_READ | PROT_WRITE;
    void* memory = ::mmap(nullptr, size_, protection, MAP_SHARED, fd_.get(), 0);
    if (memory == MAP_FAILED)
        fail(errno, "Cannot map");
    memory_ = {static_cast<std::uint8_t*>(memory), unmap{size_}};
}

void mapped_file::fail(int error, const char* what) const
{
    throw std::system_error{error, std::generic_category(), std::string{what} + " " + path_.string()};
}

void mapped_file::check_range(std::uint64_t offset, std::uint64_t count) const
{
    if (offset > size_ || count > size_ - offset)
        fail(ERANGE, "Cannot reach past the end of");
}

std::pair<std::uint64_t, std::uint64_t> mapped_file::next_data(std::uint64_t offset) const
{
    if (offset >= size_)
        return {size_, size_};
    const ::off_t begin = ::lseek(fd_.get(), static_cast<::off_t>(offset), SEEK_DATA);
    if (begin < 0 && errno == ENXIO)
        return {size_, size_};
    if (begin < 0)
        fail(errno, "Cannot search");
    const ::off_t end = ::lseek(fd_.get(), begin, SEEK_HOLE);
    if (end < 0)
        fail(errno, "Cannot search");
    return {static_cast<std::uint64_t>(begin), static_cast<std::uint64_t>(end)};
}

void mapped_file::read(std::uint64_t offset, std::span<std::uint8_t> bytes) const
{
    check_range(offset, bytes.size());
    // Through the mapping, a hole that is read would take room on some file systems, and end the process when there is
    // none.
    for (std::size_t done = 0; done < bytes.size();) {
        const ::ssize_t count =
            ::pread(fd_.get(), bytes.data() + done, bytes.size() - done, static_cast<::off_t>(offset + done));
        if (count == 0)
            fail(ERANGE, "Cannot reach past the end of");
        if (count < 0 && errno != EINTR)
            fail(errno, "Cannot read");
        done += count < 0 ? 0 : static_cast<std::size_t>(count);
    }
}

void mapped_file::reserve(std::uint64_t offset, std::uint64_t count)
{
    check_range(offset, count);
    if (count == 0 || (offset >= reserved_.first && offset + count <= reserved_.second))
        return;
    constexpr std::uint64_t small = 16384; // such a file takes its room at once: it is written all over
    const std::uint64_t begin = size_ <= small ? 0 : offset;
    const std::uint64_t end = size_ <= small ? size_ : offset + count;
    int error = 0;
    do {
        error = ::posix_fallocate(fd_.get(), static_cast<::off_t>(begin), static_cast<::off_t>(end - begin));
    } while (error == EINTR);
    if (error != 0)
        fail(error, "Cannot write");
    reserved_ = {begin, end};
}

void mapped_file::write(std::uint64_t offset, std::span<const std::uint8_t> bytes)
{
    reserve(offset, bytes.size());
    std::copy(bytes.begin(), bytes.end(), memory_.get() + offset);
}

std::uint64_t mapped_file::load(std::uint64_t offset) const
{
    check_range(offset, sizeof(std::uint64_t));
    const void* const place = memory_.get() + offset;
    return __atomic_load_n(static_cast<const std::uint64_t*>(place), __ATOMIC_ACQUIRE);
}

void mapped_file::store(std::uint64_t offset, std::uint64_t number)
{
    reserve(offset, sizeof number);
    void* const place = memory_.get() + offset;
    __atomic_store_n(static_cast<std::uint64_t*>(place), number, __ATOMIC_RELEASE);
}

void mapped_file::clear(std::uint64_t offset, std::uint64_t count)
{
    check_range(offset, count);
    const std::uint64_t end = offset + count;
    for (auto [from, to] = next_data(offset); from < end; std::tie(from, to) = next_data(to)) {
        to = std::min(to, end);
        std::fill(memory_.get() + from, memory_.get() + to, std::uint8_t{0});
    }
}

file_lock::file_lock(const mapped_file& file) : fd_{file.fd_.get()}
{
    if (set_lock(fd_, F_WRLCK) < 0)
        file.fail(errno, "Cannot lock");
}

file_lock::~file_lock()
{
    set_lock(fd_, F_UNLCK);
}

} // namespace ivra::virtual_platform
