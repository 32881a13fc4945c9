#include "libraries/handles.h"
#include "libraries/session.h"

#include <map>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

using namespace ivra::virtual_platform;

namespace {

/// One mutex of the host as this process knows it; all its handles of that name share it. The lock is a record lock on
/// a file: the system releases it when the process dies, and a forked child does not have it. Such a lock is also lost
/// when the process closes the file anywhere, so there is one descriptor.
class named_mutex
{
public:
    explicit named_mutex(const std::string& name) : path_{mutex_folder() / file_name(name)}, fd_{-1}
    {
        create_private_folder(mutex_folder());
        fd_ = open_own_file(AT_FDCWD, path_.c_str(), path_, O_RDWR | O_CREAT);
    }

    bool is_held() const { return holder_ != nullptr && process_ == ::getpid(); }
    bool is_held_by(const ivra_hw_shared_mutex* handle) const { return is_held() && holder_ == handle; }

    void lock(const ivra_hw_shared_mutex* handle, int command)
    {
        require(!is_held(), EDEADLK);
        set(F_WRLCK, command);
        holder_ = handle;
        process_ = ::getpid();
    }

    void unlock()
    {
        set(F_UNLCK, F_SETLK);
        holder_ = nullptr;
    }

private:
    void set(short type, int command)
    {
        struct flock whole_file
        {
        };
        whole_file.l_type = type;
        whole_file.l_whence = SEEK_SET;
        while (::fcntl(fd_.get(), command, &whole_file) < 0) {
            require(errno != EAGAIN && errno != EACCES, EBUSY);
            if (errno != EINTR)
                throw std::system_error{errno, std::generic_category(), "Cannot lock " + path_.string()};
        }
    }

    std::filesystem::path path_;
    unique_fd fd_;
    const ivra_hw_shared_mutex* holder_ = nullptr;
    ::pid_t process_ = 0;
};

std::shared_ptr<named_mutex> mutex_named(const std::string& name)
{
    static never_destroyed<std::map<std::string, std::weak_ptr<named_mutex>>> mutexes;
    std::weak_ptr<named_mutex>& known = mutexes.value[name];
    std::shared_ptr<named_mutex> mutex = known.lock();
    if (mutex == nullptr)
        known = mutex = std::make_shared<named_mutex>(name);
    return mutex;
}

} // namespace

struct ivra_hw_shared_mutex : handle_base<ivra_hw_shared_mutex, handle_kind::mutex>
{
    explicit ivra_hw_shared_mutex(const std::string& n) : name{n}, mutex{mutex_named(n)} {}

    std::string name;
    std::shared_ptr<named_mutex> mutex;
};

namespace {

const char* name_of(const ivra_hw_shared_mutex* mutex)
{
    return mutex == nullptr ? nullptr : mutex->name.c_str();
}

} // namespace

ivra_hw_shared_mutex* ivra_hw_shared_mutex_create(const char* name)
{
    call c{__func__};
    return c.with(name).handle([&] {
        require(name != nullptr);
        return ivra_hw_shared_mutex::give(std::make_shared<ivra_hw_shared_mutex>(name));
    });
}

int ivra_hw_shared_mutex_lock(ivra_hw_shared_mutex* mutex)
{
    call c{__func__};
    return c.with(name_of(mutex)).status([&] {
        require(mutex != nullptr);
        mutex->mutex->lock(mutex, F_SETLKW);
    });
}

int ivra_hw_shared_mutex_trylock(ivra_hw_shared_mutex* mutex)
{
    call c{__func__};
    return c.with(name_of(mutex)).status([&] {
        require(mutex != nullptr);
        mutex->mutex->lock(mutex, F_SETLK);
    });
}

int ivra_hw_shared_mutex_unlock(ivra_hw_shared_mutex* mutex)
{
    call c{__func__};
    return c.with(name_of(mutex)).status([&] {
        require(mutex != nullptr);
        require(mutex->mutex->is_held_by(mutex), EPERM);
        mutex->mutex->unlock();
    });
}

void ivra_hw_shared_mutex_destroy(ivra_hw_shared_mutex* mutex)
{
    call c{__func__};
    c.with(name_of(mutex)).nothing([&] {
        if (mutex != nullptr && mutex->mutex->is_held_by(mutex))
            mutex->mutex->unlock();
        ivra_hw_shared_mutex::take_back(mutex);
    });
}
