// Who connects may send anything: it gets an answer of HTTP or none, its connection ends, and nothing of it stays.

#include "exporter/http_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace ivra::bsp::exporter;
using namespace std::chrono_literals;
using steady = std::chrono::steady_clock;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

listen_address_t loopback(std::uint16_t port = 0)
{
    ::sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    listen_address_t result;
    result.size = sizeof address;
    std::memcpy(&result.address, &address, sizeof address);
    return result;
}

int connect_to(const http_server& server)
{
    const std::string text = server.address();
    const listen_address_t address = loopback(static_cast<std::uint16_t>(std::stoul(text.substr(text.find(':') + 1))));
    ::sockaddr there{};
    std::memcpy(&there, &address.address, sizeof there);
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(client != -1 && ::connect(client, &there, sizeof there) == 0);
    return client;
}

/// What the server sends until it has closed the connection. Who has not said everything is closed after 10 s.
std::string exchange(http_server& server, const std::string& request)
{
    const auto body = std::make_shared<const std::string>("whole");
    const int client = connect_to(server);
    const ::ssize_t sent = ::send(client, request.data(), request.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    require(sent >= 0);
    std::string received;
    for (int turn = 0;; ++turn) {
        require(turn < 100'000);
        std::vector<::pollfd> descriptors;
        server.prepare(descriptors);
        ::poll(descriptors.data(), descriptors.size(), 0);
        server.run(steady::now() + (turn < 10 ? 0s : 11s));
        server.answer([&](const request_t& waiting) {
            require(waiting.page != page_t::health && waiting.deadline <= steady::now() + 1h);
            return std::optional<answer_t>{{200, "text/plain", body, false}};
        });
        std::array<char, 4096> piece{};
        const ::ssize_t count = ::recv(client, piece.data(), piece.size(), MSG_DONTWAIT);
        if (count > 0)
            received.append(piece.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EAGAIN)
            break;
    }
    ::close(client);
    return received;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static http_server server{loopback()};
    const std::string bytes{data, data + size};
    // As it is, or among the headers of a request that is well-formed but for it.
    const std::string request = size % 2 == 0 ? bytes : "GET /metrics HTTP/1.1\r\nHost: h\r\n" + bytes + "\r\n\r\n";
    const std::string answer = exchange(server, request);
    require(answer.empty() || answer.starts_with("HTTP/1.1 ") || answer.starts_with("HTTP/1.0 "));
    require(server.waiting().empty());
    return 0;
}
