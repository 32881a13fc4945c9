// What clients do to the exporter's server, well-meant or not.

#include "exporter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <zlib.h>

#include <string>

namespace ivra::tests {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

/// An exporter of a host without boards.
class empty_host_t : public exporter_t
{
public:
    empty_host_t()
    {
        reader(R"(echo '{"format":1,"host":"h","version":"1.2.3","platform":"system","announced":[]}')"
               "\n");
        serve();
    }
    reply_t ask(const std::string& request) const { return to_reply(connection_t{port()}.send(request).receive()); }
};

std::string unpack(const std::string& packed)
{
    std::string text(1U << 16U, '\0');
    ::z_stream stream{};
    ::inflateInit2(&stream, 15 + 16);
    stream.next_in = reinterpret_cast<const ::Bytef*>(packed.data());
    stream.avail_in = static_cast<::uInt>(packed.size());
    stream.next_out = reinterpret_cast<::Bytef*>(text.data());
    stream.avail_out = static_cast<::uInt>(text.size());
    EXPECT_EQ(::inflate(&stream, Z_FINISH), Z_STREAM_END);
    text.resize(stream.total_out);
    ::inflateEnd(&stream);
    return text;
}

TEST(exporter_http, knows_its_pages_and_two_methods)
{
    const empty_host_t host;
    for (const char* path : {"/", "/metrics", "/readings.json", "/-/healthy", "/metrics?x=1"}) {
        EXPECT_EQ(host.get(path).status, "HTTP/1.1 200 OK") << path;
        const reply_t reply = host.ask(std::string{"HEAD "} + path + " HTTP/1.1\r\nHost: h\r\n\r\n");
        EXPECT_EQ(reply.status, "HTTP/1.1 200 OK") << path;
        EXPECT_EQ(reply.body, "") << path;
        EXPECT_THAT(reply.headers, Not(HasSubstr("Content-Length: 0\r\n")));
    }
    for (const char* path : {"/x", "/metrics/", "//metrics", "/%00", "/../etc/passwd", "/METRICS"}) {
        const reply_t reply = host.get(path);
        EXPECT_EQ(reply.status, "HTTP/1.1 404 Not Found") << path;
        EXPECT_EQ(reply.body, "There is /, /metrics, /readings.json and /-/healthy here.\n");
    }
    for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "FOO"}) {
        const reply_t reply =
            host.ask(std::string{method} + " /metrics HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\nhello");
        EXPECT_EQ(reply.status, "HTTP/1.1 405 Method Not Allowed") << method;
        EXPECT_THAT(reply.headers, HasSubstr("Allow: GET, HEAD\r\n"));
    }
}

TEST(exporter_http, compresses_for_those_who_can_unpack)
{
    const empty_host_t host;
    const std::string plain = host.get("/metrics").body;
    EXPECT_THAT(plain, HasSubstr("ivra_exporter_collect_success 1\n"));
    for (const char* accepted : {"gzip", "deflate, gzip;q=0.5", "GZIP", "gzip;q=1.0, *;q=0", "br,\tgzip"}) {
        const reply_t reply = host.get("/metrics", std::string{"Accept-Encoding: "} + accepted + "\r\n");
        EXPECT_THAT(reply.headers, HasSubstr("Content-Encoding: gzip\r\n")) << accepted;
        EXPECT_THAT(reply.headers, HasSubstr("Vary: Accept-Encoding\r\n"));
        EXPECT_EQ(unpack(reply.body), plain) << accepted;
    }
    for (const char* accepted : {"", "identity", "gzip;q=0", "gzip; q=0.000", "xgzip", "gzipx", "deflate"})
        EXPECT_EQ(host.get("/metrics", std::string{"Accept-Encoding: "} + accepted + "\r\n").body, plain) << accepted;
}

TEST(exporter_http, outlives_requests_that_are_none)
{
    const empty_host_t host;
    const auto status = [&](const std::string& request) { return host.ask(request).status; };
    EXPECT_EQ(status("GET /" + std::string(20'000, 'x') + " HTTP/1.1\r\nHost: h\r\n\r\n"), "HTTP/1.1 414 URI Too Long");
    EXPECT_EQ(status("GET / HTTP/1.1\r\nHost: h\r\nX: " + std::string(20'000, 'x') + "\r\n\r\n"),
              "HTTP/1.1 431 Request Header Fields Too Large");
    EXPECT_EQ(status("GET / HTTP/3.7\r\nHost: h\r\n\r\n"), "HTTP/1.1 505 HTTP Version Not Supported");
    EXPECT_EQ(status("GET / HTTP/1.1\r\nHost: h\r\nContent-Length: -1\r\n\r\n"), "HTTP/1.1 400 Bad Request");
    EXPECT_EQ(status("\x16\x03\x01\x02\x01\x01\r\n\r\n"), "") << "no HTTP at all";
    EXPECT_EQ(status(std::string(40'000, '\0')), "HTTP/1.1 414 URI Too Long");
    {
        const connection_t silent{host.port()};
    }
    {
        connection_t{host.port()}.send("GET /metrics HTTP/1.1\r\n");
    }
    for (const char* timeout : {"", "-1", "x", "1e9", "nan", "inf", "0", "1 s", "99999999999999999999"})
        EXPECT_EQ(host.get("/metrics", std::string{"X-Prometheus-Scrape-Timeout-Seconds: "} + timeout + "\r\n").status,
                  "HTTP/1.1 200 OK")
            << timeout;
    EXPECT_EQ(host.get("/metrics").status, "HTTP/1.1 200 OK");
}

} // namespace
} // namespace ivra::tests
