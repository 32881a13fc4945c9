#ifndef IVRA_VIRTUAL_SESSION_H
#define IVRA_VIRTUAL_SESSION_H

#include "libraries/trace.h"
#include "rack/fault_plan.h"
#include "rack/rack.h"

#include <optional>

namespace ivra::virtual_platform {

/// Holds a value for as long as the process lives: the program may make calls until its very end.
template <class T>
class never_destroyed
{
public:
    never_destroyed() : value{} {}
    ~never_destroyed() {}
    never_destroyed(const never_destroyed&) = delete;
    never_destroyed& operator=(const never_destroyed&) = delete;

    union
    {
        T value;
    };
};

/// What a process knows of the platform. The environment is read, and files are opened, at the first platform call that
/// needs them, never before: the program first puts its descriptors in order.
class session
{
public:
    /// The one of this process.
    static session& instance();

    /// Null when nothing is to be traced.
    const trace* tracing() const { return trace_ ? &*trace_ : nullptr; }

    /// Fault of this call, or null. Throws failure{EINVAL} when the plan cannot be used: every call fails then.
    const fault_t* next_fault(const char* call, const accelerator_t* device);

    /// The rack in use. Throws failure{EIO} when it cannot be used; the log says why, once.
    const rack_t& rack();

private:
    template <class T>
    friend class never_destroyed;
    session();

    std::optional<trace> trace_;
    fault_plan faults_;
    bool faults_unusable_ = false;
    std::optional<rack_t> rack_;
    bool rack_unusable_ = false;
};

} // namespace ivra::virtual_platform

#endif
