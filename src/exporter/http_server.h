#ifndef IVRA_EXPORTER_HTTP_SERVER_H
#define IVRA_EXPORTER_HTTP_SERVER_H

#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::exporter {

/// Where to listen: an address and a port, as the system has them.
struct listen_address_t
{
    ::sockaddr_storage address{};
    ::socklen_t size = 0;
};

/// What can be asked for.
enum class page_t
{
    metrics,
    readings,
    start,
    health, ///< needs no boards
};

struct answer_t
{
    unsigned status; ///< of HTTP
    const char* type;
    std::shared_ptr<const std::string> body;
    bool is_gzip = false;
};

/// A request that waits for an answer.
struct request_t
{
    page_t page;
    bool takes_gzip;
    std::chrono::steady_clock::time_point deadline; ///< when it has to be answered: half a second before the scraper's
};

/// An HTTP server in the loop of its owner: descriptors to wait for, and a function to call after that.
///
/// GET and HEAD of /, /metrics, /readings.json and /-/healthy; one request a connection. Who does not say what it wants
/// within 10 s, or does not take its answer within 10 s, is closed; so is what waits for an answer and has gone away.
class http_server
{
public:
    using time_point = std::chrono::steady_clock::time_point;

    /// Listens. Throws std::system_error.
    explicit http_server(const listen_address_t& address);
    ~http_server();
    http_server(const http_server&) = delete;
    http_server& operator=(const http_server&) = delete;

    /// "127.0.0.1:9749": where it listens, with the port that was found for port 0.
    std::string address() const;

    /// Adds what has to be waited for, and returns until when at most.
    time_point prepare(std::vector<::pollfd>& descriptors) const;
    /// Does what there is to be done.
    void run(time_point now);

    /// How many requests there have been that wait, or waited, for an answer.
    std::size_t count_asked() const;
    /// The requests that wait for an answer.
    std::vector<request_t> waiting() const;
    /// Answers those that wait and for which `make` has an answer.
    void answer(const std::function<std::optional<answer_t>(const request_t&)>& make);

private:
    struct server;
    std::unique_ptr<server> server_;
};

} // namespace ivra::bsp::exporter

#endif
