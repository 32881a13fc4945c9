#include "libraries/session.h"

#include "libraries/call.h"
#include "libraries/handles.h"
#include "libraries/log_observer.h"
#include "memory/clock.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <memory>
#include <system_error>

namespace ivra::virtual_platform {

namespace {

constexpr std::array handle_kind_names{"accelerator descriptor",
                                       "accelerator",
                                       "mmio descriptor",
                                       "mmio",
                                       "core tree",
                                       "filter",
                                       "mutex",
                                       "hw_top",
                                       "flash",
                                       "i2c",
                                       "bus",
                                       "uart"};

std::array<int, handle_kind_names.size()> unreleased{};
const trace* trace_to_end = nullptr;

const char* variable(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// The last line of a process in the trace. It runs when the library is finalised: after the program's own destructors.
[[gnu::destructor]] void trace_exit()
{
    if (trace_to_end == nullptr)
        return;
    try {
        int sum = 0;
        std::string kinds;
        for (std::size_t i = 0; i < unreleased.size(); ++i) {
            sum += unreleased[i];
            if (unreleased[i] != 0)
                kinds += (kinds.empty() ? " (" : ", ") + std::to_string(unreleased[i]) + " " + handle_kind_names[i];
        }
        trace_to_end->write("exit: " + std::to_string(sum) + " handles not released" + (sum == 0 ? "" : kinds + ")"));
    } catch (const std::exception&) { // no memory for a line: the process ends anyway
    }
}

void trace_log(int level, const char* file, int line, const char* function, const char* format)
{
    const int error = errno;
    try {
        trace_to_end->write("ivra_log_log(" + describe(level) + ", " + describe(file) + ", " + describe(line) + ", " +
                            describe(function) + ", " + describe(format) + ")");
    } catch (const std::exception&) { // no memory for a line: only the trace is poorer
    }
    errno = error;
}

} // namespace

void count_handle(handle_kind kind, int change)
{
    unreleased[static_cast<std::size_t>(kind)] += change;
}

void log_message(int level, const char* function, const std::string& text)
{
    ivra_log_log(level, "platform/virtual", 0, function, "%s", text.c_str());
}

session& session::instance()
{
    static never_destroyed<session> one;
    return one.value;
}

session::session()
{
    if (const int error = stepped_clock::error(); error != 0)
        log_message(IVRA_LOG_ERROR, "ivra_virtual_clock",
                    std::string{"Cannot use "} + variable("IVRA_VIRTUAL_CLOCK") +
                        " as a clock: " + std::generic_category().message(error));
    if (const char* file = variable("IVRA_VIRTUAL_TRACE"); *file != '\0') {
        try {
            trace_to_end = &trace_.emplace(file);
            observe_log(&trace_log);
        } catch (const std::exception& error) {
            log_message(IVRA_LOG_ERROR, "ivra_virtual_trace", error.what());
        }
    }
    if (const char* file = variable("IVRA_VIRTUAL_FAULTS"); *file != '\0') {
        try {
            faults_ = fault_plan{file};
            if (faults_.names_accelerators())
                faults_.check_accelerators(rack());
        } catch (const failure&) {
            faults_unusable_ = true; // without a rack; the log has it
        } catch (const std::exception& error) {
            faults_unusable_ = true;
            log_message(IVRA_LOG_ERROR, "ivra_virtual_faults", error.what());
        }
    }
}

const fault_t* session::next_fault(const char* call, const accelerator_t* device)
{
    require(!faults_unusable_);
    return faults_.next(call, device);
}

const rack_t& session::rack()
{
    require(!rack_unusable_, EIO);
    if (!rack_) {
        try {
            rack_ = load_rack(rack_in_use());
        } catch (const std::exception& error) {
            rack_unusable_ = true;
            log_message(IVRA_LOG_ERROR, "ivra_virtual_rack", error.what());
            throw failure{EIO};
        }
    }
    return *rack_;
}

} // namespace ivra::virtual_platform
