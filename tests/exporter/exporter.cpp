#include "exporter.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace ivra::tests {

namespace fs = std::filesystem;

namespace {

/// The port on which a process listens; 0: none yet.
std::uint16_t find_port(::pid_t process)
{
    std::set<std::string> sockets;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator{"/proc/" + std::to_string(process) + "/fd", error})
        sockets.insert(fs::read_symlink(entry.path(), error).string());
    std::ifstream table{"/proc/" + std::to_string(process) + "/net/tcp"};
    for (std::string line; std::getline(table, line);) {
        std::istringstream stream{line};
        std::string number, local, remote, state, queue, timer, retransmit, user, timeout, inode;
        stream >> number >> local >> remote >> state >> queue >> timer >> retransmit >> user >> timeout >> inode;
        if (state == "0A" && sockets.contains("socket:[" + inode + "]"))
            return static_cast<std::uint16_t>(std::stoul(local.substr(local.find(':') + 1), nullptr, 16));
    }
    return 0;
}

} // namespace

connection_t::connection_t(std::uint16_t port, bool is_v6)
    : socket_{::socket(is_v6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)}
{
    ::sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(port);
    v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    v6.sin6_addr = in6addr_loopback;
    const auto* const address =
        is_v6 ? reinterpret_cast<const ::sockaddr*>(&v6) : reinterpret_cast<const ::sockaddr*>(&v4);
    EXPECT_EQ(::connect(socket_, address, is_v6 ? sizeof v6 : sizeof v4), 0);
}

connection_t::~connection_t()
{
    ::close(socket_);
}

connection_t& connection_t::send(const std::string& text)
{
    EXPECT_EQ(::send(socket_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<::ssize_t>(text.size()));
    return *this;
}

std::string connection_t::receive()
{
    std::string text;
    std::array<char, 65536> piece{};
    for (::ssize_t count; (count = ::recv(socket_, piece.data(), piece.size(), 0)) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(count));
    return text;
}

std::string connection_t::receive(std::size_t most)
{
    std::string text(most, '\0');
    text.resize(static_cast<std::size_t>(std::max<::ssize_t>(::recv(socket_, text.data(), most, MSG_DONTWAIT), 0)));
    return text;
}

bool connection_t::is_open() const
{
    char next = 0;
    const ::ssize_t count = ::recv(socket_, &next, 1, MSG_PEEK | MSG_DONTWAIT);
    return count > 0 || (count == -1 && errno == EAGAIN);
}

exporter_t::exporter_t()
{
    program(IVRA_BSP_EXPORTER);
}

exporter_t& exporter_t::reader(const std::string& script)
{
    const fs::path bin = folder() / "bin";
    fs::create_directories(bin);
    fs::copy_file(IVRA_BSP_EXPORTER, bin / "ivra-bsp-exporter", fs::copy_options::overwrite_existing);
    std::ofstream{bin / "ivra-bsp-readings"} << "#!/bin/sh\n" << script;
    fs::permissions(bin / "ivra-bsp-readings", fs::perms::owner_all);
    program((bin / "ivra-bsp-exporter").string());
    return *this;
}

exporter_t::~exporter_t()
{
    if (running_) {
        EXPECT_EQ(stop(SIGTERM).status, 0);
    }
}

exporter_t& exporter_t::serve(const std::string& words, streams_t streams)
{
    running_.emplace(start("--listen 127.0.0.1:0" + (words.empty() ? "" : " " + words), streams));
    for (int patience = 30'000; (port_ = find_port(running_->process())) == 0; --patience) {
        if (patience == 0) {
            ADD_FAILURE() << "does not listen";
            break;
        }
        ::usleep(1000);
    }
    return *this;
}

run_t exporter_t::stop(int signal)
{
    running_->signal(signal);
    if (!running_->ends()) {
        ADD_FAILURE() << "does not end at signal " << signal;
        running_->signal(SIGKILL);
    }
    run_t run = running_->end();
    running_.reset();
    return run;
}

reply_t exporter_t::get(const std::string& path, const std::string& headers) const
{
    return to_reply(
        connection_t{port_}.send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n").receive());
}

reply_t to_reply(const std::string& text)
{
    const std::size_t line = text.find("\r\n"), end = text.find("\r\n\r\n");
    if (end == std::string::npos)
        return {.status = text, .headers = "", .body = ""};
    return {.status = text.substr(0, line),
            .headers = end == line ? "" : text.substr(line + 2, end - line),
            .body = text.substr(end + 4)};
}

std::string samples(const std::string& metrics)
{
    std::string text;
    std::istringstream stream{metrics};
    for (std::string line; std::getline(stream, line);)
        if (!line.starts_with('#') && !line.starts_with("ivra_exporter_") &&
            !line.starts_with("ivra_board_collect_seconds"))
            text += line + '\n';
    return text;
}

} // namespace ivra::tests
