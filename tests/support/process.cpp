#include "support/process.h"

#include "support/documents.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace {

bool looks_for_leaks = true; ///< this process, at its end

}

/// LeakSanitizer asks this before it looks; without it nobody does.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off()
{
    return looks_for_leaks ? 0 : 1;
}

namespace ivra::tests {

namespace {

/// Whether the next process of a test looks for leaks, which takes it as long as all else. A test that starts many
/// starts the same ones again and again: the first ones look, and then one of a few.
bool is_next_to_look_for_leaks()
{
    constexpr std::size_t first = 10, one_of = 7;
    static std::size_t started = 0;
    ++started;
    return started <= first || started % one_of == 0;
}

int checked(int result, const char* what)
{
    if (result < 0)
        throw std::system_error{errno, std::generic_category(), what};
    return result;
}

class descriptor
{
public:
    descriptor() = default;
    explicit descriptor(int fd) : fd_{fd} {}
    descriptor(descriptor&& other) noexcept : fd_{std::exchange(other.fd_, -1)} {}
    descriptor& operator=(descriptor&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~descriptor() { close(); }

    void close()
    {
        if (fd_ >= 0)
            ::close(std::exchange(fd_, -1));
    }
    int get() const { return fd_; }

private:
    int fd_ = -1;
};

/// One end for the child, and one to learn what it wrote.
struct channel
{
    descriptor child;
    descriptor parent;
    bool is_read = false; ///< by a user at a terminal, while it is written
    bool is_file = false;
};

channel open_channel(stream_t kind)
{
    channel c;
    switch (kind) {
    case stream_t::file:
        c.parent = descriptor{checked(::memfd_create("output", MFD_CLOEXEC), "memfd_create")};
        c.child = descriptor{checked(::fcntl(c.parent.get(), F_DUPFD_CLOEXEC, 3), "dup")};
        c.is_file = true;
        break;
    case stream_t::terminal:
    case stream_t::held: {
        int controller = -1;
        int terminal = -1;
        termios mode{};
        ::cfmakeraw(&mode);
        const winsize size{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
        checked(::openpty(&controller, &terminal, nullptr, &mode, &size), "openpty");
        c.parent = descriptor{controller};
        c.child = descriptor{terminal};
        c.is_read = kind == stream_t::terminal;
        if (kind == stream_t::held)
            checked(::tcflow(terminal, TCOOFF), "tcflow");
        break;
    }
    case stream_t::closed:
        break;
    case stream_t::full_disk:
        c.child = descriptor{checked(::open("/dev/full", O_WRONLY | O_CLOEXEC), "/dev/full")};
        break;
    case stream_t::broken_pipe: {
        std::array<int, 2> ends{};
        checked(::pipe2(ends.data(), O_CLOEXEC), "pipe2");
        ::close(ends[0]);
        c.child = descriptor{ends[1]};
        break;
    }
    case stream_t::full_pipe: {
        std::array<int, 2> ends{};
        checked(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), "pipe2");
        c.parent = descriptor{ends[0]};
        c.child = descriptor{ends[1]};
        const std::array<char, 4096> page{};
        while (::write(ends[1], page.data(), page.size()) > 0) {
        }
        checked(::fcntl(ends[1], F_SETFL, 0), "fcntl");
        break;
    }
    }
    return c;
}

/// Appends what is there; false at the end.
bool append_some(int fd, std::string& text)
{
    std::array<char, 4096> buffer{};
    const ssize_t count = ::read(fd, buffer.data(), buffer.size());
    if (count <= 0)
        return false; // a terminal whose last user is gone gives EIO
    text.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
}

void read_terminals(std::array<std::pair<channel*, std::string*>, 2> channels)
{
    std::array<pollfd, 2> polled{};
    for (std::size_t i = 0; i < 2; ++i)
        polled[i] = {
            .fd = channels[i].first->is_read ? channels[i].first->parent.get() : -1, .events = POLLIN, .revents = 0};
    while (polled[0].fd >= 0 || polled[1].fd >= 0) {
        checked(::poll(polled.data(), polled.size(), -1), "poll");
        for (std::size_t i = 0; i < 2; ++i)
            if (polled[i].fd >= 0 && polled[i].revents != 0 && !append_some(polled[i].fd, *channels[i].second))
                polled[i].fd = -1;
    }
}

void read_file(const channel& c, std::string& text)
{
    if (!c.is_file)
        return;
    checked(static_cast<int>(::lseek(c.parent.get(), 0, SEEK_SET)), "lseek");
    while (append_some(c.parent.get(), text)) {
    }
}

/// Takes signals as a process started by a shell does, whatever the caller was started by.
void take_signals()
{
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGTSTP, SIGTTIN, SIGTTOU})
        std::signal(number, SIG_DFL);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

/// Lets the kernel ask this filter about every system call from here on.
void install(std::vector<sock_filter> filter)
{
    const sock_fprog program{.len = static_cast<unsigned short>(filter.size()), .filter = filter.data()};
    if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0)
        throw std::system_error{errno, std::generic_category(), "seccomp"};
}

void become(int target, const channel& c)
{
    if (c.child.get() >= 0)
        ::dup2(c.child.get(), target);
    else
        ::close(target);
}

} // namespace

struct running_t::state_t
{
    channel out;
    channel err;
    std::string program; ///< whose documents are kept, if any
    ::pid_t process = -1;
    std::optional<int> status; ///< as waitpid() has it, once it has ended

    /// Whether it has ended; looks, or waits for that or, with WUNTRACED, for being stopped.
    bool has_ended(int options)
    {
        int now = 0;
        if (!status && checked(::waitpid(process, &now, options), "waitpid") == process && !WIFSTOPPED(now))
            status = now;
        return status.has_value();
    }

    /// Waits until it has ended (false) or `is_so` (true). Throws std::runtime_error after a minute or so.
    template <class Condition>
    bool waits_until(Condition is_so)
    {
        for (int i = 0; !has_ended(WNOHANG); ++i) {
            if (is_so())
                return true;
            if (i == 300000)
                throw std::runtime_error{"waited in vain for a process"};
            ::usleep(200);
        }
        return false;
    }
};

running_t::running_t(function_ref<void()> body, streams_t streams, std::string program)
    : state_{std::make_unique<state_t>()}
{
    state_->program = std::move(program);
    channel& out = state_->out = open_channel(streams.out);
    channel& err = state_->err = open_channel(streams.err);
    std::fflush(nullptr);

    const bool is_to_look = is_next_to_look_for_leaks();
    state_->process = checked(::fork(), "fork");
    if (state_->process == 0) {
        if (!is_to_look) {
            looks_for_leaks = false;
            ::setenv("LSAN_OPTIONS", "detect_leaks=0", 0); // for what it runs, unless the caller wants something else
        }
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::setpgid(0, 0);
        take_signals();
        out.parent.close();
        err.parent.close();
        become(STDOUT_FILENO, out);
        become(STDERR_FILENO, err);
        if (!streams.has_input)
            ::close(STDIN_FILENO);
        out.child.close();
        err.child.close();
        try {
            body();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "the test's child failed: %s\n", error.what());
            std::exit(99);
        }
        std::exit(0);
    }
    out.child.close();
    err.child.close();
}

running_t::running_t(running_t&&) noexcept = default;

running_t::~running_t()
{
    if (state_ == nullptr || state_->status)
        return;
    ::kill(state_->process, SIGKILL);
    ::waitpid(state_->process, nullptr, 0);
}

::pid_t running_t::process() const
{
    return state_->process;
}

void running_t::signal(int number) const
{
    checked(::kill(state_->process, number), "kill");
}

bool running_t::stops()
{
    return !state_->has_ended(WUNTRACED);
}

bool running_t::waits_for_a_lock()
{
    const std::string waiter = " " + std::to_string(state_->process) + " ";
    return state_->waits_until([&] {
        std::ifstream locks{"/proc/locks"};
        for (std::string line; std::getline(locks, line);)
            if (line.find("-> ") != std::string::npos && line.find(waiter) != std::string::npos)
                return true;
        return false;
    });
}

bool running_t::waits_to_write()
{
    return state_->waits_until([&] {
        std::ifstream call{"/proc/" + std::to_string(state_->process) + "/syscall"}; // "running" unless it waits
        long number = -1;
        unsigned descriptor = 0;
        return call >> number >> std::hex >> descriptor && number == SYS_write &&
               (descriptor == STDOUT_FILENO || descriptor == STDERR_FILENO);
    });
}

bool running_t::speaks()
{
    return state_->waits_until([&] {
        const auto written = [](const channel& c) {
            pollfd polled{.fd = c.is_read ? c.parent.get() : -1, .events = POLLIN, .revents = 0};
            return ::poll(&polled, 1, 0) == 1 && (polled.revents & POLLIN) != 0;
        };
        return written(state_->out) || written(state_->err);
    });
}

bool running_t::ends()
{
    return !state_->waits_until([patience = 50'000]() mutable { return --patience == 0; });
}

run_t running_t::end()
{
    run_t run;
    read_terminals({{{&state_->out, &run.out}, {&state_->err, &run.err}}});
    state_->has_ended(0);
    read_file(state_->out, run.out);
    read_file(state_->err, run.err);
    const int status = *state_->status;
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (!state_->program.empty() && WIFEXITED(status))
        keep_documents(state_->program, run.out);
    return run;
}

run_t says(const std::string& out)
{
    return {.out = out, .err = "", .status = 0};
}

run_t fails(const std::string& err)
{
    return {.out = "", .err = err, .status = 1};
}

void PrintTo(const run_t& run, std::ostream* stream)
{
    *stream << "status " << run.status << ", standard output:\n" << run.out << "standard error:\n" << run.err;
}

run_t run_in_child(function_ref<void()> body, streams_t streams)
{
    return running_t{body, streams}.end();
}

void forbid(const std::vector<int>& calls, int error)
{
    std::vector<sock_filter> filter{BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const int call : calls) {
        filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
        filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)));
    }
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    install(filter);
}

void forbid_terminal_size()
{
    install({
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ioctl, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, TIOCGWINSZ, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    });
}

void set_environment(const std::vector<std::string>& environment)
{
    for (const std::string& entry : environment) {
        const std::size_t equals = entry.find('=');
        if (equals == std::string::npos)
            ::unsetenv(entry.c_str());
        else
            ::setenv(entry.substr(0, equals).c_str(), entry.substr(equals + 1).c_str(), 1);
    }
}

void exec_program(const std::string& program, const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment)
{
    set_environment(environment);
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    ::execv(program.c_str(), pointers.data());
    std::perror(program.c_str());
    ::_exit(127);
}

run_t run_program(const std::string& program, const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment, streams_t streams)
{
    return run_in_child([&] { exec_program(program, arguments, environment); }, streams);
}

} // namespace ivra::tests
