#include "exporter/service.h"

#include "exporter/collector.h"
#include "exporter/metrics.h"
#include "exporter/pages.h"
#include "exporter/reader_process.h"
#include "exporter/system.h"
#include "text/text.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <zlib.h>

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace ivra::bsp::exporter {

namespace {

using clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
using descriptors_t = std::vector<::pollfd>;

constexpr auto start_patience = 5s; // for the boards of the host to be listed before the service calls itself ready
constexpr auto text_file_patience = 30s; // for all boards

/// Signals that this process looks at when it has time.
class signals_t
{
public:
    signals_t()
    {
        ::sigset_t set;
        ::sigemptyset(&set);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
            ::sigaddset(&set, signal);
        ::sigprocmask(SIG_BLOCK, &set, nullptr);
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGCHLD, SIG_DFL); // ignored it would hide how processes end
        descriptor_ = descriptor_t{::signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK)};
        if (descriptor_.get() == -1)
            fail("Cannot wait for signals", errno);
    }
    int get() const { return descriptor_.get(); }

    /// Whether one of those came that end a process.
    bool take() const
    {
        bool is_end = false;
        ::signalfd_siginfo info{};
        while (::read(descriptor_.get(), &info, sizeof info) == sizeof info)
            is_end = is_end || info.ssi_signo != SIGCHLD;
        return is_end;
    }

private:
    descriptor_t descriptor_;
};

/// Without the name of the program.
std::string first_line(const std::string& text)
{
    const std::string prefix = "ivra-bsp readings: ";
    const std::string line = text.substr(0, text.find('\n'));
    return line.starts_with(prefix) ? line.substr(prefix.size()) : line;
}

/// The boards of the host, through the program that reads them.
class boards_t
{
public:
    boards_t(std::vector<std::string> words, std::chrono::milliseconds max_age) : collector_{max_age}
    {
        std::array<char, 4096> file{};
        const ::ssize_t size = ::readlink("/proc/self/exe", file.data(), file.size());
        const std::filesystem::path own{
            std::string{file.data(), static_cast<std::size_t>(std::max<::ssize_t>(size, 0))}};
        words_ = {(own.parent_path() / "ivra-bsp-readings").string(), "--lines", "--announce", "--timeout=0"};
        words_.insert(words_.end(), words.begin(), words.end());
        if (::access(words_.front().c_str(), X_OK) != 0)
            fail("Cannot run " + words_.front(), errno);
    }

    void ask(bool is_awaited)
    {
        const auto order = collector_.ask(clock::now(), is_awaited);
        if (!order)
            return;
        std::vector<std::string> words = words_;
        for (const std::string& key : order->skipped)
            words.push_back("--skip=" + key);
        try {
            processes_.try_emplace(order->reader, words);
        } catch (const std::system_error& error) {
            collector_.take_end(order->reader, error.what(), clock::now());
        }
    }

    void prepare(descriptors_t& descriptors) const
    {
        for (const auto& [reader, process] : processes_)
            for (const int descriptor : {process.output(), process.errors()})
                descriptors.push_back({.fd = descriptor, .events = POLLIN, .revents = 0}); // -1: passed over
    }

    void run()
    {
        for (auto at = processes_.begin(); at != processes_.end();) {
            auto& [reader, process] = *at;
            process.read(
                [&, number = reader](const std::string& line) { collector_.take_line(number, line, clock::now()); });
            const auto how = process.end();
            if (!how) {
                ++at;
                continue;
            }
            // It refused what it was told, before it said anything; later it only has something to say.
            if (!collector_.is_announced() && process.status() && *process.status() != 0)
                refusal_ = process.complaint();
            if (has_started_)
                std::cerr << process.complaint() << std::flush;
            collector_.take_end(reader, *how, clock::now());
            at = processes_.erase(at);
        }
    }

    collector& state() { return collector_; }
    /// Throws std::runtime_error when it cannot be asked as it was told.
    void start()
    {
        if (!refusal_.empty())
            throw std::runtime_error{first_line(refusal_)};
        has_started_ = true;
    }

private:
    collector collector_;
    std::vector<std::string> words_;
    std::map<collector::reader_t, reader_process> processes_;
    std::string refusal_;
    bool has_started_ = false;
};

void wait(descriptors_t& descriptors, clock::time_point until)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - clock::now()).count();
    const int most = until == clock::time_point::max() ? -1 : static_cast<int>(std::clamp<long>(left, 0, 60'000));
    if (::poll(descriptors.data(), descriptors.size(), most) == -1 && errno != EINTR)
        fail("Cannot wait for boards", errno);
}

/// Goes on until the boards have been read as far as `is_enough` says, or for some time, or until a signal ends it
/// (false).
template <class Predicate>
bool collect(boards_t& boards, const signals_t& signals, clock::duration time, Predicate is_enough)
{
    const clock::time_point end = clock::now() + time;
    while (!is_enough() && clock::now() < end) {
        descriptors_t descriptors{{.fd = signals.get(), .events = POLLIN, .revents = 0}};
        boards.prepare(descriptors);
        wait(descriptors, end);
        if (signals.take())
            return false;
        boards.run();
    }
    return true;
}

/// Tells the service manager, where there is one.
void notify(const char* state)
{
    const char* const place = std::getenv("NOTIFY_SOCKET");
    ::sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (place == nullptr || (*place != '/' && *place != '@') || std::strlen(place) >= sizeof address.sun_path)
        return;
    std::memcpy(address.sun_path, place, std::strlen(place) + 1);
    if (*place == '@')
        address.sun_path[0] = '\0';
    const descriptor_t socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const auto size = static_cast<::socklen_t>(offsetof(::sockaddr_un, sun_path) + std::strlen(place));
    [[maybe_unused]] const ::ssize_t sent = ::sendto(socket.get(), state, std::strlen(state), MSG_NOSIGNAL,
                                                     reinterpret_cast<const ::sockaddr*>(&address), size);
}

std::string compress(const std::string& text)
{
    constexpr int gzip_format = 15 + 16, usual_memory = 8;
    ::z_stream stream{};
    if (::deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, gzip_format, usual_memory, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::bad_alloc{};
    std::string packed(::deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<const ::Bytef*>(text.data());
    stream.avail_in = static_cast<::uInt>(text.size());
    stream.next_out = reinterpret_cast<::Bytef*>(packed.data());
    stream.avail_out = static_cast<::uInt>(packed.size());
    ::deflate(&stream, Z_FINISH); // all of it, as there is room
    packed.resize(stream.total_out);
    ::deflateEnd(&stream);
    return packed;
}

/// Answers of one moment, each made once.
class answers_t
{
public:
    explicit answers_t(snapshot_t snapshot) : snapshot_{std::move(snapshot)} {}

    const answer_t& get(const request_t& request)
    {
        const auto [at, is_new] = made_.try_emplace({request.page, request.takes_gzip});
        if (is_new)
            at->second = make(request.page);
        if (is_new && request.takes_gzip) {
            at->second.body = std::make_shared<const std::string>(compress(*at->second.body));
            at->second.is_gzip = true;
        }
        return at->second;
    }

private:
    answer_t make(page_t page) const
    {
        constexpr unsigned ok = 200;
        switch (page) {
        case page_t::metrics:
            return {ok, "text/plain; version=0.0.4; charset=utf-8",
                    std::make_shared<const std::string>(make_metrics(snapshot_))};
        case page_t::readings:
            return {ok, "application/json", std::make_shared<const std::string>(make_document(snapshot_))};
        case page_t::start:
        case page_t::health:
            break;
        }
        return {ok, "text/html; charset=utf-8", std::make_shared<const std::string>(make_start_page(snapshot_))};
    }

    snapshot_t snapshot_;
    std::map<std::pair<page_t, bool>, answer_t> made_;
};

/// Answers those whose boards are in, or whose time is over.
void answer(http_server& server, boards_t& boards, clock::time_point now)
{
    const bool is_complete = boards.state().is_complete();
    const auto is_due = [&](const request_t& request) { return is_complete || now >= request.deadline; };
    if (std::ranges::none_of(server.waiting(), is_due))
        return;
    answers_t answers{boards.state().make_snapshot(now)};
    server.answer(
        [&](const request_t& request) { return is_due(request) ? std::optional{answers.get(request)} : std::nullopt; });
    if (server.waiting().empty())
        boards.state().set_aside();
}

/// Writes a file whole, or not at all. Beside it lies, for that time, one that node_exporter does not take for its own.
void replace_file(const std::filesystem::path& file, const std::string& text)
{
    if (std::error_code error; std::filesystem::exists(file, error) && !std::filesystem::is_regular_file(file, error))
        throw std::runtime_error{"Cannot replace " + file.string() + ": it is no file"};
    const std::string beside = file.string() + ".tmp";
    const auto describe = [&] { return "Cannot write " + beside; };
    descriptor_t descriptor{::open(beside.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644)};
    struct ::stat opened
    {
    }, there{};
    if (descriptor.get() == -1 || ::fstat(descriptor.get(), &opened) != 0)
        fail(describe(), errno);
    if (::flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0 || ::lstat(beside.c_str(), &there) != 0 ||
        there.st_ino != opened.st_ino)
        throw std::runtime_error{describe() + ": another process writes it"};
    if (!S_ISREG(opened.st_mode))
        throw std::runtime_error{describe() + ": it is no file"};
    try {
        bool is_written = ::ftruncate(descriptor.get(), 0) == 0 && ::fchmod(descriptor.get(), 0644) == 0;
        for (std::string_view rest = text; is_written && !rest.empty();) {
            const ::ssize_t count = ::write(descriptor.get(), rest.data(), rest.size());
            is_written = count >= 0;
            rest.remove_prefix(static_cast<std::size_t>(std::max<::ssize_t>(count, 0)));
        }
        if (!is_written || ::fsync(descriptor.get()) != 0)
            fail(describe(), errno);
        if (::rename(beside.c_str(), file.c_str()) != 0)
            fail("Cannot replace " + file.string(), errno);
    } catch (const std::system_error&) {
        ::unlink(beside.c_str());
        throw;
    }
}

} // namespace

void serve(const arguments_t& args)
{
    const signals_t signals;
    boards_t boards{args.reader_words, args.max_age};
    http_server server{args.listen};
    boards.ask(false);
    if (!collect(boards, signals, start_patience, [&] { return boards.state().is_announced(); }))
        return;
    boards.start();
    std::cerr << "ivra-bsp exporter: http://" << server.address() << "/\n";
    notify("READY=1");
    for (std::size_t asked = 0;;) {
        descriptors_t descriptors{{.fd = signals.get(), .events = POLLIN, .revents = 0}};
        boards.prepare(descriptors);
        wait(descriptors, server.prepare(descriptors));
        if (signals.take())
            break;
        boards.run();
        const bool is_awaited = !server.waiting().empty();
        server.run(clock::now());
        if (server.count_asked() != asked)
            boards.ask(is_awaited);
        asked = server.count_asked();
        answer(server, boards, clock::now());
    }
    notify("STOPPING=1");
}

bool write_text_file(const arguments_t& args)
{
    const signals_t signals;
    boards_t boards{args.reader_words, args.max_age};
    boards.ask(false);
    if (!collect(boards, signals, text_file_patience, [&] { return boards.state().is_complete(); }))
        throw std::runtime_error{"Ended by a signal; " + args.text_file->string() + " stays as it was"};
    boards.start();
    const snapshot_t snapshot = boards.state().make_snapshot(clock::now());
    replace_file(*args.text_file, make_metrics(snapshot));
    const auto is_missing = [](const board_t& board) { return board.document.empty(); };
    return snapshot.is_listed && (snapshot.boards.empty() || !std::ranges::all_of(snapshot.boards, is_missing));
}

} // namespace ivra::bsp::exporter
