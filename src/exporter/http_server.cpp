#include "exporter/http_server.h"

#include "exporter/system.h"

#include <microhttpd.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <list>
#include <optional>
#include <string_view>

namespace ivra::bsp::exporter {

namespace {

using clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto request_time = 10s; // to say what is wanted, and to take the answer
constexpr auto answer_margin = 500ms;
constexpr std::chrono::duration<double> usual_deadline{10};
constexpr std::chrono::duration<double> longest_deadline{3600};
constexpr unsigned most_connections = 128;
constexpr std::size_t most_header_bytes = 16384;

struct page_row_t
{
    std::string_view path;
    page_t page;
};
constexpr page_row_t pages[] = {
    {"/", page_t::start},
    {"/-/healthy", page_t::health},
    {"/metrics", page_t::metrics},
    {"/readings.json", page_t::readings},
};

struct connection_t
{
    MHD_Connection* connection;
    int descriptor;
    std::optional<clock::time_point> end;  ///< when it is closed; nothing while it waits for its answer
    std::optional<request_t> request = {}; ///< that waits
    std::optional<answer_t> answer = {};   ///< of one that waited
    bool is_given_up = false;
};

/// How long a scraper waits, as it says. What is no number, or no time, is as nothing.
std::chrono::duration<double> deadline_of(const char* text)
{
    double seconds = 0;
    if (text == nullptr)
        return usual_deadline;
    const char* const end = text + std::strlen(text);
    const auto [rest, error] = std::from_chars(text, end, seconds, std::chars_format::fixed);
    if (error != std::errc{} || rest != end || !(seconds > 0))
        return usual_deadline;
    return std::min(std::chrono::duration<double>{seconds}, longest_deadline);
}

/// Whether "Accept-Encoding" has gzip, and not with quality 0.
bool takes_gzip(const char* header)
{
    std::string text = header == nullptr ? "" : header;
    std::erase_if(text, [](unsigned char letter) { return std::isspace(letter) != 0; });
    std::ranges::transform(text, text.begin(),
                           [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find(',', begin), text.size());
        const std::string_view item = std::string_view{text}.substr(begin, end - begin);
        const std::string_view quality = item.substr(std::min(item.find(';'), item.size()));
        if (item.substr(0, item.size() - quality.size()) == "gzip")
            return !(quality.starts_with(";q=0") && quality.find_first_not_of("0.", 3) == std::string_view::npos);
        begin = end + 1;
    }
    return false;
}

std::string_view reason_of(unsigned status)
{
    switch (status) {
    case MHD_HTTP_NOT_FOUND:
        return "There is /, /metrics, /readings.json and /-/healthy here.\n";
    case MHD_HTTP_METHOD_NOT_ALLOWED:
        return "GET and HEAD are understood here.\n";
    default:
        return "OK\n";
    }
}

void close_response(MHD_Response* response)
{
    MHD_destroy_response(response);
}

/// Lets go of the text of a response.
void drop_body(void* owner)
{
    std::unique_ptr<std::shared_ptr<const std::string>>{static_cast<std::shared_ptr<const std::string>*>(owner)};
}

using response_t = std::unique_ptr<MHD_Response, decltype(&close_response)>;

/// The body belongs to the response, which several connections may share.
response_t make_response(const answer_t& answer)
{
    // The response keeps the text alive until the library lets go of it.
    auto body = std::make_unique<std::shared_ptr<const std::string>>(answer.body);
    response_t response{MHD_create_response_from_buffer_with_free_callback_cls(
                            answer.body->size(), const_cast<char*>(answer.body->data()), &drop_body, body.get()),
                        &close_response};
    if (!response)
        throw std::bad_alloc{};
    [[maybe_unused]] const auto* const owned = body.release();
    const std::pair<const char*, const char*> headers[] = {
        {MHD_HTTP_HEADER_CONTENT_TYPE, answer.type},
        {MHD_HTTP_HEADER_CONNECTION, "close"},
        {MHD_HTTP_HEADER_CACHE_CONTROL, "no-store"},
        {MHD_HTTP_HEADER_VARY, MHD_HTTP_HEADER_ACCEPT_ENCODING},
        {MHD_HTTP_HEADER_CONTENT_ENCODING, answer.is_gzip ? "gzip" : nullptr},
        {MHD_HTTP_HEADER_ALLOW, answer.status == MHD_HTTP_METHOD_NOT_ALLOWED ? "GET, HEAD" : nullptr},
    };
    for (const auto& [name, value] : headers)
        if (value != nullptr && MHD_add_response_header(response.get(), name, value) == MHD_NO)
            throw std::bad_alloc{};
    return response;
}

std::string to_text(const ::sockaddr_storage& address, std::uint16_t port)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    const bool is_v6 = address.ss_family == AF_INET6;
    const void* const bytes =
        is_v6 ? static_cast<const void*>(&reinterpret_cast<const ::sockaddr_in6&>(address).sin6_addr)
              : &reinterpret_cast<const ::sockaddr_in&>(address).sin_addr;
    ::inet_ntop(address.ss_family, bytes, text.data(), text.size());
    return (is_v6 ? "[" + std::string{text.data()} + "]" : std::string{text.data()}) + ":" + std::to_string(port);
}

} // namespace

struct http_server::server
{
    explicit server(const listen_address_t& listen) : address{listen.address}
    {
        unsigned flags = MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME;
        if (listen.address.ss_family == AF_INET6)
            flags |= MHD_USE_IPv6;
        errno = 0;
        daemon = MHD_start_daemon(flags, 0, nullptr, nullptr, &server::handle, this, MHD_OPTION_SOCK_ADDR,
                                  reinterpret_cast<const ::sockaddr*>(&listen.address), MHD_OPTION_CONNECTION_LIMIT,
                                  most_connections, MHD_OPTION_CONNECTION_MEMORY_LIMIT, most_header_bytes,
                                  MHD_OPTION_NOTIFY_CONNECTION, &server::notice, this, MHD_OPTION_NOTIFY_COMPLETED,
                                  &server::complete, this, MHD_OPTION_UNESCAPE_CALLBACK, &server::leave_escapes,
                                  nullptr, MHD_OPTION_END);
        if (daemon == nullptr)
            fail("Cannot listen on " + to_text(address, port_of(listen.address)), errno == 0 ? EINVAL : errno);
        port = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port;
        epoll = MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    }

    /// Requests that wait get no answer.
    ~server()
    {
        for (connection_t& connection : connections)
            if (connection.request)
                give_up(connection);
        MHD_run(daemon);
        MHD_stop_daemon(daemon);
    }
    server(const server&) = delete;
    server& operator=(const server&) = delete;

    /// Lets the library go on with a connection that waited.
    static void resume(connection_t& connection)
    {
        connection.request.reset();
        connection.end = clock::now() + request_time;
        MHD_resume_connection(connection.connection);
    }
    static void give_up(connection_t& connection)
    {
        connection.is_given_up = true;
        resume(connection);
    }

    static std::uint16_t port_of(const ::sockaddr_storage& address)
    {
        return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const ::sockaddr_in6&>(address).sin6_port
                                                   : reinterpret_cast<const ::sockaddr_in&>(address).sin_port);
    }

    static void notice(void* self, MHD_Connection* connection, void** context, MHD_ConnectionNotificationCode code)
    {
        auto& connections = static_cast<server*>(self)->connections;
        if (code == MHD_CONNECTION_NOTIFY_STARTED) {
            const int descriptor = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
            connections.push_back(
                {.connection = connection, .descriptor = descriptor, .end = clock::now() + request_time});
            *context = &connections.back();
        } else {
            connections.remove_if([&](const connection_t& known) { return known.connection == connection; });
        }
    }

    static connection_t& get_connection(MHD_Connection* connection)
    {
        return *static_cast<connection_t*>(
            MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
    }

    /// No path here has any.
    static std::size_t leave_escapes(void* /*nothing*/, MHD_Connection* /*connection*/, char* text)
    {
        return std::strlen(text);
    }

    static void complete(void* /*self*/, MHD_Connection* /*connection*/, void** request,
                         MHD_RequestTerminationCode /*why*/)
    {
        *request = nullptr;
    }

    static MHD_Result handle(void* self, MHD_Connection* connection, const char* url, const char* method,
                             const char* /*version*/, const char* /*body*/, std::size_t* size, void** state)
    {
        try {
            connection_t& known = get_connection(connection);
            if (*state == nullptr) {
                *state = &known; // the headers are read; what follows is the body, if any
                if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0 && std::strcmp(method, MHD_HTTP_METHOD_HEAD) != 0)
                    return send(known, MHD_HTTP_METHOD_NOT_ALLOWED);
                return MHD_YES;
            }
            if (*size != 0) {
                *size = 0; // a body that nobody needs
                return MHD_YES;
            }
            if (known.answer)
                return send(known, *known.answer);
            return known.is_given_up ? MHD_NO : static_cast<server*>(self)->take(known, url);
        } catch (const std::exception&) { // no memory: the connection is closed
            return MHD_NO;
        }
    }

    MHD_Result take(connection_t& known, const char* url)
    {
        const auto* const row = std::ranges::find(pages, std::string_view{url}, &page_row_t::path);
        if (row == std::end(pages))
            return send(known, MHD_HTTP_NOT_FOUND);
        if (row->page == page_t::health)
            return send(known, MHD_HTTP_OK);
        const auto header = [&](const char* name) {
            return MHD_lookup_connection_value(known.connection, MHD_HEADER_KIND, name);
        };
        const auto time = std::chrono::duration_cast<clock::duration>(
            deadline_of(header("X-Prometheus-Scrape-Timeout-Seconds")) - answer_margin);
        known.request = {.page = row->page,
                         .takes_gzip = takes_gzip(header(MHD_HTTP_HEADER_ACCEPT_ENCODING)),
                         .deadline = clock::now() + std::max(time, clock::duration{0})};
        known.end.reset();
        ++asked;
        MHD_suspend_connection(known.connection);
        return MHD_YES;
    }

    static MHD_Result send(connection_t& known, unsigned status)
    {
        return send(known, {.status = status,
                            .type = "text/plain; charset=utf-8",
                            .body = std::make_shared<const std::string>(reason_of(status))});
    }
    static MHD_Result send(connection_t& known, const answer_t& answer)
    {
        known.end = clock::now() + request_time;
        return MHD_queue_response(known.connection, answer.status, make_response(answer).get());
    }

    ::sockaddr_storage address;
    MHD_Daemon* daemon = nullptr;
    std::uint16_t port = 0;
    int epoll = -1;
    std::size_t asked = 0;
    std::list<connection_t> connections;
};

http_server::http_server(const listen_address_t& address) : server_{std::make_unique<server>(address)} {}

http_server::~http_server() = default;

std::string http_server::address() const
{
    return to_text(server_->address, server_->port);
}

http_server::time_point http_server::prepare(std::vector<::pollfd>& descriptors) const
{
    descriptors.push_back({.fd = server_->epoll, .events = POLLIN, .revents = 0});
    time_point until = time_point::max();
    for (const connection_t& connection : server_->connections)
        if (connection.request) // the library looks at it no more until it is answered
            descriptors.push_back({.fd = connection.descriptor, .events = POLLRDHUP, .revents = 0});
        else if (connection.end)
            until = std::min(until, *connection.end);
    for (const request_t& request : waiting())
        until = std::min(until, request.deadline);
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    if (MHD_get_timeout(server_->daemon, &milliseconds) == MHD_YES)
        until = std::min(until,
                         clock::now() + std::chrono::milliseconds{std::min<unsigned long long>(milliseconds, 60'000)});
    return until;
}

void http_server::run(time_point now)
{
    for (connection_t& connection : server_->connections) {
        ::pollfd state{.fd = connection.descriptor, .events = POLLRDHUP, .revents = 0};
        if (connection.request && ::poll(&state, 1, 0) == 1)
            server::give_up(connection);
        else if (connection.end && now >= *connection.end)
            ::shutdown(connection.descriptor, SHUT_RDWR); // the library finds that out, and closes it
    }
    MHD_run(server_->daemon);
}

std::size_t http_server::count_asked() const
{
    return server_->asked;
}

std::vector<request_t> http_server::waiting() const
{
    std::vector<request_t> requests;
    for (const connection_t& connection : server_->connections)
        if (connection.request)
            requests.push_back(*connection.request);
    return requests;
}

void http_server::answer(const std::function<std::optional<answer_t>(const request_t&)>& make)
{
    for (connection_t& connection : server_->connections) {
        if (!connection.request)
            continue;
        if (auto answer = make(*connection.request)) {
            connection.answer = std::move(answer);
            server::resume(connection);
        }
    }
    MHD_run(server_->daemon);
}

} // namespace ivra::bsp::exporter
