#ifndef IVRA_VIRTUAL_FAULTS_H
#define IVRA_VIRTUAL_FAULTS_H

#include "rack/rack.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// What goes wrong with one platform call.
struct fault_t
{
    std::optional<int> error; ///< errno, which may be 0, of a call that fails. With `transferred`, it fails after that
    std::optional<std::size_t> transferred; ///< bytes or entries that are moved at most
    std::chrono::microseconds delay{0};     ///< before anything is done
    std::chrono::microseconds stop{0};      ///< for so long the process is stopped, before anything is done
    std::vector<std::uint8_t> garble;       ///< XORed over what the call stores, from its first byte on
    std::optional<int> count;               ///< returned instead of the true count
    std::optional<std::string> text;        ///< stored or returned instead of the true text
    std::optional<std::string> log;         ///< a warning of the library, before anything is done
    int signal = 0;                         ///< that the process sends itself; 0: none
    enum
    {
        before,
        after
    } when = before; ///< of the call's work: when the signal comes
};

/// A fault, and the calls that it happens to.
struct fault_rule_t
{
    std::string call;
    std::optional<std::string> accelerator; ///< name or uid; nothing: any call of that name
    std::uint64_t first = 1;                ///< of the matching calls of this process, from 1
    std::uint64_t last = std::numeric_limits<std::uint64_t>::max();
    fault_t fault;
    std::uint64_t seen = 0; ///< matching calls so far
};

/// A fault plan that cannot be used. The text names the file, the place in it and what was expected there.
class fault_plan_error : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The faults that a process is to meet. The file is a JSON array of rules, see README.md.
class fault_plan
{
public:
    fault_plan() = default;
    /// Throws fault_plan_error for the first mistake found.
    explicit fault_plan(const std::filesystem::path& file);

    /// Throws fault_plan_error for a rule about an accelerator that the rack does not have.
    void check_accelerators(const rack_t& rack) const;
    bool names_accelerators() const;

    /// Counts this call in all rules that it matches; returns the fault of the first rule whose turn it is, or null.
    const fault_t* next(std::string_view call, const accelerator_t* device);

private:
    std::filesystem::path file_;
    std::vector<fault_rule_t> rules_;
};

} // namespace ivra::virtual_platform

#endif
