#ifndef IVRA_VIRTUAL_RACK_FAULT_PLAN_H
#define IVRA_VIRTUAL_RACK_FAULT_PLAN_H

#include "rack/rack.h"
#include "json/document.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

struct call_row_t;

enum class fault_moment_t
{
    before,
    after
};

/// What goes wrong with one platform call.
struct fault_t
{
    std::optional<int> error; ///< errno, which may be 0, of a call that fails. With `transferred`, it fails after that
    std::optional<std::size_t> transferred;       ///< bytes or entries that are moved at most
    std::chrono::nanoseconds delay{0};            ///< before anything is done
    std::chrono::nanoseconds stop{0};             ///< for so long the process is stopped, before anything is done
    std::vector<std::uint8_t> garble;             ///< XORed over what the call stores, from its first byte on
    std::optional<int> count;                     ///< returned instead of the true count
    std::optional<std::string> text;              ///< stored or returned instead of the true text
    std::optional<std::string> log;               ///< a warning of the library, before anything is done
    int signal = 0;                               ///< that the process sends itself; 0: none
    fault_moment_t when = fault_moment_t::before; ///< of the call's work: when the signal comes
};

/// A fault, and the calls that it happens to.
struct fault_rule_t
{
    const call_row_t* call = nullptr;
    std::optional<std::string> accelerator; ///< name or uid; nothing: any call of that name
    std::optional<std::uint64_t> nth;       ///< only this one of the matching calls of this process, from 1
    std::optional<std::uint64_t> from;      ///< only this one and all later ones
    fault_t fault;
    std::uint64_t seen = 0; ///< matching calls so far
};

/// The faults that a process is to meet: a JSON list of rules, see README.md.
class fault_plan
{
public:
    fault_plan() = default;
    /// Throws file_error for the first mistake in the file.
    explicit fault_plan(const std::filesystem::path& file);
    /// Of a document that has been parsed; `file` is named in errors. Throws file_error.
    fault_plan(const json::value_t& document, const std::filesystem::path& file);

    /// Throws file_error for a rule about an accelerator that the rack does not have.
    void check_accelerators(const rack_t& rack) const;
    bool names_accelerators() const;
    std::size_t size() const { return rules_.size(); }

    /// Counts this call in all rules that it matches; returns the fault of the first rule whose turn it is, or null.
    const fault_t* next(std::string_view call, const accelerator_t* device);

private:
    std::filesystem::path file_;
    std::vector<fault_rule_t> rules_;
};

/// The JSON Schema of fault plans.
json::value_t fault_plan_schema();

} // namespace ivra::virtual_platform

#endif
