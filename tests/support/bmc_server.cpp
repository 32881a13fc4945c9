#include "support/bmc_server.h"

#include "support/process.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ivra::tests {

namespace {

std::string trimmed(const std::string& text)
{
    const std::size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

} // namespace

bmc_server::bmc_server(const std::filesystem::path& rack, const std::string& accelerator,
                       const std::filesystem::path& state)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    process_ = ::fork();
    if (process_ == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        exec_program(IVRA_VIRTUAL_COMMAND, {"bmc", rack.string(), accelerator},
                     {"IVRA_VIRTUAL_STATE=" + state.string()});
    }
    ::close(ends[1]);
    for (char c = 0; ::read(ends[0], &c, 1) == 1 && c != '\n';)
        device += c;
    ::close(ends[0]);
}

bmc_server::~bmc_server()
{
    end(SIGTERM);
}

int bmc_server::end(int signal)
{
    if (process_ <= 0)
        return -1;
    ::kill(process_, signal);
    int status = 0;
    const ::pid_t ended = ::waitpid(std::exchange(process_, -1), &status, 0);
    return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string bmc_server::ipmitool(std::vector<std::string> words) const
{
    words.insert(words.begin(), {"60", "ipmitool", "-I", "serial-terminal", "-D", device + ":115200"});
    const run_t result = run_program("/usr/bin/timeout", words);
    EXPECT_EQ(result.status, 0) << "ipmitool (package ipmitool): " << result.err;
    return result.out;
}

std::vector<std::vector<std::string>> table(const std::string& text, const std::string& separator)
{
    std::vector<std::vector<std::string>> rows;
    std::istringstream lines{text};
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string>& row = rows.emplace_back();
        std::size_t begin = 0;
        for (std::size_t end = line.find(separator); end != std::string::npos; end = line.find(separator, begin)) {
            row.push_back(trimmed(line.substr(begin, end - begin)));
            begin = end + separator.size();
        }
        if (begin < line.size())
            row.push_back(trimmed(line.substr(begin)));
    }
    return rows;
}

} // namespace ivra::tests
