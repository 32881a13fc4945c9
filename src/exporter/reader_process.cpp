#include "exporter/reader_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

namespace ivra::bsp::exporter {

namespace {

constexpr std::size_t longest_line = 16U << 20U; // a board has some ten thousand bytes
constexpr std::size_t longest_complaint = 4096;

struct pipe_t
{
    descriptor_t reading, writing;
};

pipe_t make_pipe()
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        fail("Cannot make a pipe", errno);
    pipe_t pipe{.reading = descriptor_t{ends[0]}, .writing = descriptor_t{ends[1]}};
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return pipe;
}

class spawn_plan_t
{
public:
    spawn_plan_t(int output, int errors)
    {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions_, errors, STDERR_FILENO);
        sigset_t none, all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &all);
        ::posix_spawnattr_setpgroup(&attributes_, 0);
        ::posix_spawnattr_setflags(&attributes_,
                                   POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    spawn_plan_t(const spawn_plan_t&) = delete;
    spawn_plan_t& operator=(const spawn_plan_t&) = delete;
    ~spawn_plan_t()
    {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    ::pid_t start(std::vector<std::string> words) const
    {
        std::vector<char*> pointers;
        for (std::string& word : words)
            pointers.push_back(word.data());
        pointers.push_back(nullptr);
        ::pid_t process = -1;
        if (const int error =
                ::posix_spawn(&process, words.front().c_str(), &actions_, &attributes_, pointers.data(), environ);
            error != 0)
            fail("Cannot start " + words.front(), error);
        return process;
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

/// What a descriptor has to say now, as far as one who has more to do listens. Closes it at its end.
std::string read_now(descriptor_t& descriptor)
{
    constexpr std::size_t most = 1U << 20U;
    std::string text;
    std::array<char, 65536> piece{};
    while (descriptor.get() != -1 && text.size() < most) {
        const ::ssize_t count = ::read(descriptor.get(), piece.data(), piece.size());
        if (count > 0)
            text.append(piece.data(), static_cast<std::size_t>(count));
        else if (count == 0 || (errno != EAGAIN && errno != EINTR))
            descriptor.close();
        else if (errno == EAGAIN)
            break;
    }
    return text;
}

} // namespace

reader_process::reader_process(const std::vector<std::string>& words)
{
    pipe_t output = make_pipe(), errors = make_pipe();
    process_ = spawn_plan_t{output.writing.get(), errors.writing.get()}.start(words);
    output_ = std::move(output.reading);
    errors_ = std::move(errors.reading);
}

void reader_process::read(const std::function<void(const std::string& line)>& take)
{
    complaint_ += read_now(errors_);
    complaint_.resize(std::min(complaint_.size(), longest_complaint));
    received_ += read_now(output_);
    std::size_t begin = 0;
    for (std::size_t end; (end = received_.find('\n', begin)) != std::string::npos; begin = end + 1)
        take(received_.substr(begin, end - begin));
    received_.erase(0, begin);
    if (received_.size() > longest_line) {
        how_ = "what reads the boards writes a line without end";
        output_.close();
    }
}

std::optional<std::string> reader_process::end()
{
    if (output_.get() != -1)
        return std::nullopt;
    if (process_ != -1) {
        int status = 0;
        const ::pid_t ended = ::waitpid(process_, &status, WNOHANG);
        if (ended == 0 || (ended == -1 && errno == EINTR))
            return std::nullopt;
        process_ = -1;
        if (ended != -1 && WIFEXITED(status))
            status_ = WEXITSTATUS(status);
        if (how_.empty())
            how_ = ended == -1 ? "what reads the boards is gone"
                   : WIFSIGNALED(status)
                       ? std::string{"what reads the boards was ended by signal "} + std::to_string(WTERMSIG(status)) +
                             " (" + ::strsignal(WTERMSIG(status)) + ")"
                       : "what reads the boards ended with status " + std::to_string(*status_);
    }
    return how_;
}

} // namespace ivra::bsp::exporter
