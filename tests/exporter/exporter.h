#ifndef IVRA_TESTS_EXPORTER_EXPORTER_H
#define IVRA_TESTS_EXPORTER_EXPORTER_H

#include "support/rack.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace ivra::tests {

/// A connection to a server on this host, which the test closes.
class connection_t
{
public:
    /// To 127.0.0.1, or to ::1.
    explicit connection_t(std::uint16_t port, bool is_v6 = false);
    ~connection_t();
    connection_t(const connection_t&) = delete;
    connection_t& operator=(const connection_t&) = delete;

    connection_t& send(const std::string& text);
    /// What the server says until it closes the connection.
    std::string receive();
    /// What of it has come, up to so many bytes.
    std::string receive(std::size_t most);
    /// Whether the server has not closed it, as far as one can tell now.
    bool is_open() const;

private:
    int socket_;
};

/// What a server answered: its status line, its headers as they came, and its body.
struct reply_t
{
    std::string status, headers, body;
};

/// A running ivra-bsp-exporter, which reads the boards of a rack unless the test has put something else beside it. It
/// ends with this object, by SIGTERM; the calling test fails if that is no success.
class exporter_t : public rack_t
{
public:
    exporter_t();
    ~exporter_t();
    exporter_t(const exporter_t&) = delete;
    exporter_t& operator=(const exporter_t&) = delete;

    /// Puts a program beside the exporter that stands in for ivra-bsp-readings: a script of the shell.
    exporter_t& reader(const std::string& script);
    /// Starts it on some port, and waits until it listens.
    exporter_t& serve(const std::string& words = "", streams_t streams = {});
    /// Ends it by a signal. What it said up to then.
    run_t stop(int signal);

    std::uint16_t port() const { return port_; }
    ::pid_t process() const { return running_->process(); }
    /// The answer to a GET request. `headers`: more of them, each with its line end.
    reply_t get(const std::string& path, const std::string& headers = "") const;

private:
    std::optional<running_t> running_;
    std::uint16_t port_ = 0;
};

/// Splits what a server said.
reply_t to_reply(const std::string& text);

/// The samples of an answer in the text format, without those of the exporter itself and of times.
std::string samples(const std::string& metrics);

} // namespace ivra::tests

#endif
