#ifndef IVRA_TESTS_SUPPORT_BMC_SERVER_H
#define IVRA_TESTS_SUPPORT_BMC_SERVER_H

#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ivra::tests {

/// "ivra-virtual bmc" while it runs: the BMC of one board on a pseudo-terminal, for programs that know IPMI and not us.
class bmc_server
{
public:
    bmc_server(const std::filesystem::path& rack, const std::string& accelerator, const std::filesystem::path& state);
    ~bmc_server();
    bmc_server(const bmc_server&) = delete;
    bmc_server& operator=(const bmc_server&) = delete;

    /// Exit status after a signal; -1 when it was killed or has ended before.
    int end(int signal);

    /// What ipmitool says; EXPECTs that it is content. A program that is missing ends with 127.
    std::string ipmitool(std::vector<std::string> words) const;

    std::string device;

private:
    ::pid_t process_ = -1;
};

/// Lines of columns that `separator` divides, without the blanks around them.
std::vector<std::vector<std::string>> table(const std::string& text, const std::string& separator);

} // namespace ivra::tests

#endif
