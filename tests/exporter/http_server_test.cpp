// The exporter's server at times that the test sets: who is slow, who goes away, and who comes in crowds.

#include "exporter/http_server.h"

#include "exporter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <list>
#include <memory>
#include <string>
#include <vector>

namespace ivra::tests {
namespace {

using namespace bsp::exporter;
using namespace std::chrono_literals;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using steady = std::chrono::steady_clock;

listen_address_t loopback()
{
    ::sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    listen_address_t listen;
    listen.size = sizeof address;
    std::memcpy(&listen.address, &address, sizeof address);
    return listen;
}

listen_address_t loopback_v6()
{
    ::sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    listen_address_t listen;
    listen.size = sizeof address;
    std::memcpy(&listen.address, &address, sizeof address);
    return listen;
}

/// A server in this process.
class listening_t
{
public:
    explicit listening_t(const listen_address_t& address = loopback()) : server{address} {}

    http_server server;
    const std::uint16_t port =
        static_cast<std::uint16_t>(std::stoul(server.address().substr(server.address().rfind(':') + 1)));

    /// Lets the server do its work, as at a later time, until something is so.
    template <class Predicate>
    void until(Predicate is_so, steady::duration later = 0s)
    {
        const auto patience = steady::now() + 30s;
        do {
            std::vector<::pollfd> descriptors;
            server.prepare(descriptors);
            ::poll(descriptors.data(), descriptors.size(), is_so() ? 0 : 1);
            server.run(steady::now() + later);
            ASSERT_LT(steady::now(), patience);
        } while (!is_so());
    }
    /// How many requests wait, once the next one has come.
    std::size_t take_request()
    {
        until([this, before = server.count_asked()] { return server.count_asked() > before; });
        return server.waiting().size();
    }
    /// What a client is told, up to the end.
    std::string receive(connection_t& client)
    {
        std::string text;
        until([&] {
            text += client.receive(1U << 20U);
            return !client.is_open();
        });
        return text;
    }
    void answer(const std::string& body)
    {
        server.answer([&](const request_t&) {
            return std::optional<answer_t>{{200, "text/plain", std::make_shared<const std::string>(body)}};
        });
    }
    /// Until when the server would wait for something to happen.
    steady::time_point patience() const
    {
        std::vector<::pollfd> descriptors;
        return server.prepare(descriptors);
    }
};

const std::string scrape = "GET /metrics HTTP/1.1\r\nHost: h\r\n\r\n";

TEST(exporter_server, closes_who_does_not_say_what_it_wants_within_10_s)
{
    listening_t host;
    EXPECT_EQ(host.patience(), steady::time_point::max()) << "there is nobody";
    const auto begin = steady::now();
    connection_t silent{host.port}, dripping{host.port}, posting{host.port};
    posting.send("GET /metrics HTTP/1.1\r\nHost: h\r\nContent-Length: 1000\r\n\r\n");
    host.until([&] { return host.patience() < steady::time_point::max(); });
    const auto came = steady::now();
    EXPECT_GE(host.patience(), begin + 10s);
    EXPECT_LE(host.patience(), came + 10s);
    for (int second = 1; second < 10; ++second) {
        dripping.send("G");
        posting.send("x");
        host.server.run(begin + std::chrono::seconds{second});
        EXPECT_TRUE(silent.is_open() && dripping.is_open() && posting.is_open()) << second;
    }
    host.until([&] { return !silent.is_open() && !dripping.is_open() && !posting.is_open(); }, 10s);
    EXPECT_EQ(host.patience(), steady::time_point::max()) << "it is as it was";
    EXPECT_EQ(host.server.count_asked(), 0U);
}

TEST(exporter_server, lets_a_scraper_wait_as_long_as_it_says)
{
    for (const auto& [header, expected] :
         std::vector<std::pair<std::string, std::chrono::milliseconds>>{{"0.9", 400ms},
                                                                        {"10.000", 9500ms},
                                                                        {"60", 59'500ms},
                                                                        {"0.3", 0ms},
                                                                        {"7200", 3'599'500ms},
                                                                        {"", 9500ms},
                                                                        {"0", 9500ms},
                                                                        {"-1", 9500ms},
                                                                        {"x", 9500ms},
                                                                        {"5 s", 9500ms},
                                                                        {"5e0", 9500ms},
                                                                        {"nan", 9500ms},
                                                                        {"inf", 3'599'500ms}}) {
        listening_t host;
        const auto begin = steady::now();
        connection_t scraper{host.port};
        scraper.send("GET /metrics HTTP/1.1\r\nHost: h\r\nX-Prometheus-Scrape-Timeout-Seconds: " + header + "\r\n\r\n");
        ASSERT_EQ(host.take_request(), 1U);
        const auto deadline = host.server.waiting().front().deadline;
        EXPECT_GE(deadline, begin + expected) << header;
        EXPECT_LE(deadline, steady::now() + expected) << header;
        EXPECT_EQ(host.patience(), deadline) << header;
        host.server.run(begin + 3h);
        EXPECT_EQ(host.server.waiting().size(), 1U) << "closed by nobody but its owner";
        host.answer("late");
        EXPECT_THAT(host.receive(scraper), HasSubstr("\r\n\r\nlate")) << header;
    }
    listening_t host;
    const auto begin = steady::now();
    connection_t scraper{host.port};
    scraper.send(scrape);
    ASSERT_EQ(host.take_request(), 1U);
    EXPECT_GE(host.server.waiting().front().deadline, begin + 9500ms);
    EXPECT_LE(host.server.waiting().front().deadline, steady::now() + 9500ms);
}

TEST(exporter_server, closes_who_takes_a_big_answer_byte_by_byte_and_serves_others_meanwhile)
{
    listening_t host;
    connection_t slow{host.port};
    slow.send(scrape);
    ASSERT_EQ(host.take_request(), 1U);
    const auto begin = steady::now();
    const std::size_t size = 48U << 20U; // more than the buffers of the system between the two have
    host.answer(std::string(size, 'x'));
    std::size_t received = 0;
    for (int second = 1; second < 10; ++second) {
        received += slow.receive(1).size();
        host.server.run(begin + std::chrono::seconds{second});
    }
    EXPECT_EQ(received, 9U);

    connection_t other{host.port};
    other.send(scrape);
    EXPECT_EQ(host.take_request(), 1U);
    host.answer("whole");
    EXPECT_THAT(host.receive(other), HasSubstr("\r\n\r\nwhole"));
    host.server.run(begin + 9999ms);
    EXPECT_NE(host.patience(), steady::time_point::max()) << "it is still there";

    host.until([&] { return host.patience() == steady::time_point::max(); }, 10s);
    received += slow.receive().size();
    EXPECT_LT(received, size);
}

TEST(exporter_server, forgets_who_goes_away_while_it_waits)
{
    listening_t host;
    auto gone = std::make_unique<connection_t>(host.port);
    connection_t patient{host.port};
    gone->send(scrape);
    EXPECT_EQ(host.take_request(), 1U);
    patient.send(scrape);
    EXPECT_EQ(host.take_request(), 2U);
    gone.reset();
    host.until([&] { return host.server.waiting().size() == 1; });
    EXPECT_EQ(host.server.count_asked(), 2U);
    host.answer("here");
    EXPECT_THAT(host.receive(patient), HasSubstr("\r\n\r\nhere"));
    EXPECT_EQ(host.patience(), steady::time_point::max());
}

TEST(exporter_server, listens_on_ipv6)
{
    if (std::ifstream{"/proc/net/if_inet6"}.peek() == std::ifstream::traits_type::eof())
        GTEST_SKIP() << "this host has none";
    listening_t host{loopback_v6()};
    const std::string place = "[::1]:" + std::to_string(host.port);
    EXPECT_EQ(host.server.address(), place);
    connection_t scraper{host.port, true};
    scraper.send(scrape);
    ASSERT_EQ(host.take_request(), 1U);
    host.answer("here");
    EXPECT_THAT(host.receive(scraper), HasSubstr("\r\n\r\nhere"));

    exporter_t exporter;
    EXPECT_EQ(exporter.run("--listen " + place),
              fails("ivra-bsp exporter: Cannot listen on " + place + ": Address already in use\n"));
}

TEST(exporter_server, outlives_a_thousand_connections_at_once)
{
    ::rlimit files{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = files.rlim_max;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &files), 0);
    listening_t host;
    std::list<connection_t> crowd;
    for (int at = 0; at < 1000; ++at)
        crowd.emplace_back(host.port);
    connection_t scraper{host.port};
    scraper.send(scrape);
    const auto count_open = [&] {
        return std::ranges::count_if(crowd, [](const connection_t& connection) { return connection.is_open(); });
    };
    host.until([&] { return host.patience() < steady::time_point::max(); });
    EXPECT_EQ(count_open(), 1000);
    host.until([&] { return count_open() < 1000; }, 10s);
    EXPECT_GE(count_open(), 1000 - 2 * 128) << "the others wait to be let in";
    host.until([&] { return count_open() <= 128; }, 10s);
    EXPECT_EQ(host.take_request(), 1U);
    host.until([&] { return count_open() == 0; }, 10s);
    host.answer("at last");
    EXPECT_THAT(host.receive(scraper), HasSubstr("\r\n\r\nat last"));
    EXPECT_EQ(host.server.count_asked(), 1U);
}

TEST(exporter_server, ends_with_clients_in_every_state)
{
    auto host = std::make_unique<listening_t>();
    connection_t silent{host->port}, half{host->port}, waiting{host->port}, slow{host->port};
    half.send("GET /met");
    slow.send(scrape);
    ASSERT_EQ(host->take_request(), 1U);
    host->answer(std::string(48U << 20U, 'x'));
    waiting.send(scrape);
    ASSERT_EQ(host->take_request(), 1U);
    host.reset();
    for (connection_t* client : {&silent, &half, &waiting})
        EXPECT_EQ(client->receive(), "");
    EXPECT_THAT(slow.receive(), StartsWith("HTTP/1.1 200 OK\r\n"));
}

} // namespace
} // namespace ivra::tests
