#include "readings/workers.h"

#include "hw/signal_hold.h"
#include "readings/document.h"
#include "readings/progress_line.h"
#include "readings/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <list>
#include <optional>
#include <system_error>
#include <utility>

namespace ivra::bsp::readings {

namespace {

using clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int ending_signals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr milliseconds progress_interval{100};

/// The process group of all workers, those that were left behind among them; 0 before there is one. It is the process
/// of the first worker, which is never waited for to the end: the number stays theirs as long as this process lives.
std::atomic<::pid_t> workers_group{0};
static_assert(std::atomic<::pid_t>::is_always_lock_free);

// Wherever this process is at work, be it that nobody reads what it writes.
void end_by_signal(int signal)
{
    if (workers_group != 0)
        ::kill(-workers_group, SIGTERM);
    progress_line::wipe_at_end();
    std::signal(signal, SIG_DFL);
    std::raise(signal); // takes effect when this returns
}

/// What is ignored, as by nohup, stays ignored.
void handle_signals()
{
    struct sigaction action
    {
    };
    action.sa_handler = &end_by_signal;
    for (const int signal : ending_signals)
        ::sigaddset(&action.sa_mask, signal);
    for (const int signal : ending_signals) {
        struct sigaction before
        {
        };
        ::sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN)
            ::sigaction(signal, &action, nullptr);
    }
    std::signal(SIGCHLD, SIG_DFL); // ignored it would hide how workers end
}

[[noreturn]] void fail(const char* what, int error = errno)
{
    throw std::system_error{error, std::generic_category(), what};
}

/// Ends what lives in it when it goes: the worker sees its socket closed.
class descriptor
{
public:
    explicit descriptor(int number) : number_{number} {}
    descriptor(descriptor&& other) noexcept : number_{std::exchange(other.number_, -1)} {}
    descriptor& operator=(descriptor&&) = delete;
    ~descriptor()
    {
        if (number_ != -1)
            ::close(number_);
    }
    int get() const { return number_; }

private:
    int number_;
};

/// What a child starts with: nothing of this process but its socket, and the group of the workers, which no terminal
/// signals.
class spawn_plan
{
public:
    explicit spawn_plan(int socket)
    {
        ::posix_spawn_file_actions_init(&actions_);
        ::posix_spawnattr_init(&attributes_);
        ::posix_spawn_file_actions_adddup2(&actions_, socket, worker_socket);
        for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            ::posix_spawn_file_actions_addopen(&actions_, stream, "/dev/null", O_RDWR, 0);
        ::posix_spawn_file_actions_addclosefrom_np(&actions_, worker_socket + 1);
        sigset_t none, defaults;
        ::sigemptyset(&none);
        ::sigemptyset(&defaults);
        ::sigaddset(&defaults, SIGTERM);
        ::posix_spawnattr_setsigmask(&attributes_, &none);
        ::posix_spawnattr_setsigdefault(&attributes_, &defaults);
        ::posix_spawnattr_setpgroup(&attributes_, workers_group); // 0: a new one
        ::posix_spawnattr_setflags(&attributes_,
                                   POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    spawn_plan(const spawn_plan&) = delete;
    spawn_plan& operator=(const spawn_plan&) = delete;
    ~spawn_plan()
    {
        ::posix_spawn_file_actions_destroy(&actions_);
        ::posix_spawnattr_destroy(&attributes_);
    }

    ::pid_t start() const
    {
        std::string program = "ivra-bsp-readings", word = worker_word;
        const std::array<char*, 3> words{program.data(), word.data(), nullptr};
        ::pid_t process = -1;
        if (const int error = ::posix_spawn(&process, "/proc/self/exe", &actions_, &attributes_, words.data(), environ);
            error != 0)
            fail("Cannot start a process that reads boards", error);
        return process;
    }

private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

struct worker_t
{
    ::pid_t process;
    descriptor socket;
    std::optional<std::size_t> board = std::nullopt; ///< that it reads
    clock::time_point begin{};
    std::vector<telemetry::finding_t> findings{}; ///< that came of the board so far
    std::string received{};
};

worker_t start_worker()
{
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        fail("Cannot make a socket");
    descriptor own{ends[0]};
    const descriptor other{ends[1]};
    const hw::signal_hold hold; // one that came in between would not reach a new group
    const ::pid_t process = spawn_plan{other.get()}.start();
    if (workers_group == 0)
        workers_group = process;
    return {.process = process, .socket = std::move(own)};
}

/// How a worker ended that should not have.
std::string end_of(::pid_t process)
{
    const int keep = process == workers_group ? WNOWAIT : 0;
    ::siginfo_t end{};
    while (::waitid(P_PID, static_cast<::id_t>(process), &end, WEXITED | keep) == -1 && errno == EINTR) {
    }
    if (end.si_code == CLD_EXITED)
        return "what read it ended with status " + std::to_string(end.si_status);
    return "what read it was ended by signal " + std::to_string(end.si_status) + " (" + ::strsignal(end.si_status) +
           ")";
}

class reader
{
public:
    reader(const std::vector<telemetry::accelerator_identity_t>& boards, const reading_options_t& options,
           const listeners_t& listeners)
        : boards_{boards}, options_{options}, listeners_{listeners}
    {
        handle_signals();
    }

    void run()
    {
        while (done_ < boards_.size()) {
            while (next_ < boards_.size() && workers_.size() < options_.jobs && add_worker())
                continue;
            if (workers_.empty())
                continue;
            wait();
            for (auto worker = workers_.begin(); worker != workers_.end();)
                worker = serve(*worker) ? std::next(worker) : workers_.erase(worker);
            tell_progress();
        }
        for (const ::pid_t process : idle_) // their sockets are closed
            end_of(process);
    }

private:
    /// Without room in the system for one more, those that there are go on; when there are none, the next board fails.
    bool add_worker()
    {
        try {
            workers_.push_back(start_worker());
        } catch (const std::system_error& error) {
            if (workers_.empty())
                fail_board(next_++, error.what(), {});
            return false;
        }
        begin(workers_.back());
        return give_board(workers_.back());
    }

    /// Tells a worker what it needs for every board.
    void begin(const worker_t& worker)
    {
        std::string line = options_.limits;
        std::ranges::replace(line, '\n', ' '); // to JSON these are the same
        send(worker, line + '\n');
    }

    /// False when there is none left.
    bool give_board(worker_t& worker)
    {
        worker.board.reset();
        if (next_ == boards_.size())
            return false;
        worker.board = next_++;
        worker.begin = clock::now();
        worker.findings.clear();
        send(worker,
             encode_request({.board = boards_[*worker.board], .parts = options_.parts, .time = options_.timeout}));
        return true;
    }

    /// A worker that is gone is found out when it is listened to.
    static void send(const worker_t& worker, const std::string& text)
    {
        [[maybe_unused]] const ::ssize_t sent = ::send(worker.socket.get(), text.data(), text.size(), MSG_NOSIGNAL);
    }

    void wait()
    {
        polled_.clear();
        for (const worker_t& worker : workers_)
            polled_.push_back({.fd = worker.socket.get(), .events = POLLIN, .revents = 0});
        milliseconds most = progress_interval;
        if (options_.timeout.count() != 0)
            for (const worker_t& worker : workers_)
                most = std::min(most, std::chrono::ceil<milliseconds>(worker.begin + options_.timeout - clock::now()));
        const long count = std::max<long>(0, most.count());
        if (::poll(polled_.data(), polled_.size(), static_cast<int>(count)) == -1 && errno != EINTR)
            fail("Cannot wait for boards");
    }

    /// False when the worker is not needed, or not there, any more.
    bool serve(worker_t& worker)
    {
        std::array<char, 65536> piece{};
        const ::ssize_t count = ::recv(worker.socket.get(), piece.data(), piece.size(), MSG_DONTWAIT);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
            if (worker.board)
                fail_board(*worker.board, end_of(worker.process), worker.findings);
            return false;
        }
        if (count > 0)
            worker.received.append(piece.data(), static_cast<std::size_t>(count));
        for (std::size_t end; worker.board && (end = worker.received.find('\n')) != std::string::npos;) {
            const std::string line = worker.received.substr(0, end);
            worker.received.erase(0, end + 1);
            const std::string text = line.substr(1);
            if (!line.starts_with(static_cast<char>(answer_t::board))) {
                if (line.starts_with(static_cast<char>(answer_t::error)))
                    worker.findings.push_back(make_log_finding(text));
                listeners_.log(*worker.board, text);
                continue;
            }
            finish(*worker.board, text);
            if (!give_board(worker)) {
                idle_.push_back(worker.process);
                return false;
            }
        }
        if (worker.board && options_.timeout.count() != 0 && clock::now() >= worker.begin + options_.timeout) {
            fail_board(*worker.board, telemetry::deadline_error, worker.findings);
            return false; // it goes on, and ends when it wants to tell
        }
        return true;
    }

    void fail_board(std::size_t board, const std::string& error, const std::vector<telemetry::finding_t>& findings)
    {
        telemetry::board_readings_t readings;
        readings.error = error;
        finish(board, make_board_document(boards_[board], readings, findings));
    }

    void finish(std::size_t board, const std::string& document)
    {
        ++done_;
        listeners_.board(board, document);
    }

    void tell_progress()
    {
        const auto oldest = std::ranges::min_element(workers_, {}, &worker_t::begin);
        if (oldest != workers_.end() && oldest->board)
            listeners_.progress(done_, *oldest->board,
                                std::chrono::duration_cast<milliseconds>(clock::now() - oldest->begin));
    }

    const std::vector<telemetry::accelerator_identity_t>& boards_;
    const reading_options_t& options_;
    const listeners_t& listeners_;
    std::list<worker_t> workers_;
    std::vector<::pollfd> polled_;
    std::vector<::pid_t> idle_; ///< that have no board and no socket any more
    std::size_t next_ = 0, done_ = 0;
};

} // namespace

void read_boards(const std::vector<telemetry::accelerator_identity_t>& boards, const reading_options_t& options,
                 const listeners_t& listeners)
{
    reader{boards, options, listeners}.run();
}

} // namespace ivra::bsp::readings
