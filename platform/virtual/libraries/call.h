#ifndef IVRA_VIRTUAL_CALL_H
#define IVRA_VIRTUAL_CALL_H

#include "libraries/api.h"
#include "libraries/trace.h"
#include "rack/fault_plan.h"
#include "rack/rack.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace ivra::virtual_platform {

/// Thrown within a call that is to fail with this errno, without a word in the log.
class failure
{
public:
    explicit failure(int error) : error_{error} {}
    int error() const { return error_; }

private:
    int error_;
};

/// Throws failure unless the condition holds.
inline void require(bool condition, int error = EINVAL)
{
    if (!condition)
        throw failure{error};
}

/// Hands a message to the platform's log.
void log_message(int level, const char* function, const std::string& text);

/// Accelerator that a handle belongs to; null for a null handle.
template <class Handle>
const accelerator_t* device_of(const Handle* handle)
{
    return handle == nullptr ? nullptr : handle->device();
}

/// Bytes that a caller handed over as a pointer and a length.
inline std::span<const std::byte> bytes_of(const void* data, std::size_t size)
{
    return {static_cast<const std::byte*>(data), data == nullptr ? 0 : size};
}

/// One platform call on its way: it consults the fault plan, writes the trace and turns exceptions into errno. Every
/// platform function makes one and returns what one of the functions below makes of its body. errno changes only when
/// the call fails.
class call
{
public:
    /// `name` is the function's.
    explicit call(const char* name) noexcept;
    /// The same, about one accelerator, which is null when the caller handed over a null handle.
    call(const char* name, const accelerator_t* accelerator) noexcept;
    call(const call&) = delete;
    call& operator=(const call&) = delete;

    /// Arguments as the trace shows them, without those that only say where results go.
    template <class... Arguments>
    call& with(const Arguments&... arguments) noexcept
    {
        if (!tracing_)
            return *this;
        try {
            (add_argument(describe(arguments)), ...);
        } catch (...) { // only the trace is poorer
        }
        return *this;
    }

    /// Runs a body that returns nothing: 0, or -1.
    template <class Body>
    int status(Body body) noexcept
    {
        return count([&] {
            body();
            return 0;
        });
    }

    /// Runs a body that returns a count: the count, or -1.
    template <class Body>
    int count(Body body) noexcept
    {
        return run("-1", -1, [&] { return checked_count(body()); });
    }

    /// The same: the count, or 0.
    template <class Body>
    std::size_t size(Body body) noexcept
    {
        return static_cast<std::size_t>(run("0", 0, [&] { return checked_count(body()); }));
    }

    /// Runs a body that returns a number: the number, or 0.
    template <class Body>
    std::uint64_t number(Body body) noexcept
    {
        return run("0", std::uint64_t{0}, body);
    }

    /// Runs a body that returns a handle, given or borrowed: the handle, or null.
    template <class Body>
    auto handle(Body body) noexcept
    {
        return run("NULL", decltype(body()){nullptr}, body);
    }

    /// Runs a body that returns a borrowed text: the text, or null.
    template <class Body>
    const char* borrowed_text(Body body) noexcept
    {
        return run("NULL", borrowed_text_t{nullptr}, [&] { return borrowed_text_t{replaced_text(body())}; }).text;
    }

    /// Runs a body that cannot fail.
    template <class Body>
    void nothing(Body body) noexcept
    {
        can_fail_ = false;
        run("", false, [&] {
            body();
            return true;
        });
    }

    // For bodies:

    /// `wanted`, or less when the fault plan cuts this transfer short.
    std::size_t at_most(std::size_t wanted) const;

    /// Says what the body has stored for the caller, so that it can be garbled and traced.
    template <class T>
    void stored(std::span<T> values)
    {
        output_kind_ = std::is_floating_point_v<T>                ? output_kind::real
                       : std::is_integral_v<T> && (sizeof(T) > 1) ? output_kind::number
                                                                  : output_kind::bytes;
        output_ = std::as_writable_bytes(values);
    }

    /// Stores one value for the caller.
    template <class T>
    void store(T* place, const std::type_identity_t<T>& value)
    {
        *place = value;
        stored(std::span{place, 1});
    }

    /// Says something noteworthy about this call at the end of its line in the trace; `text` is a literal.
    void remark(const char* text) { remark_ = text; }

    /// Stores a text and its NUL in the caller's buffer; returns its length. Throws failure{ERANGE}.
    std::size_t store_text(std::string_view text, char* buffer, std::size_t size);

    /// Stores a text as snprintf() does; returns its whole length.
    std::size_t print_text(std::string_view text, char* buffer, std::size_t size);

private:
    enum class output_kind
    {
        bytes,
        number,
        real,
        text
    };
    struct borrowed_text_t
    {
        const char* text;
    };

    template <class Result, class Body>
    Result run(const char* shown_failure, Result failed, Body body) noexcept
    {
        try {
            begin();
            Result result = body();
            end(result);
            return result;
        } catch (...) {
            fail(shown_failure);
            return failed;
        }
    }

    template <class Result>
    void end(Result& result)
    {
        if constexpr (std::is_same_v<Result, int>)
            result = replaced_count(result);
        finish_output();
        if (tracing_)
            trace_success(result);
        leave();
    }

    template <class Result>
    void trace_success(Result result) noexcept
    {
        try {
            if constexpr (std::is_same_v<Result, bool>)
                trace_result("void");
            else if constexpr (std::is_same_v<Result, borrowed_text_t>)
                trace_result(describe(result.text));
            else if constexpr (std::is_pointer_v<Result>)
                trace_result("handle");
            else if constexpr (std::is_same_v<Result, std::uint64_t>)
                trace_result(describe(hexadecimal_t{result}));
            else
                trace_result(describe(result));
        } catch (...) { // only the trace is poorer
        }
    }

    void start() noexcept;
    void begin();
    void finish_output();
    void leave();
    void fail(const char* shown_failure) noexcept;
    void add_argument(const std::string& argument);
    void trace_result(const std::string& result) const;
    std::string describe_output() const;
    int replaced_count(int count) const;
    const char* replaced_text(const char* text) const;
    static int checked_count(std::size_t count);

    const char* name_;
    bool has_device_;
    const accelerator_t* device_;
    int saved_errno_;
    bool can_fail_ = true;
    bool tracing_ = false;
    const fault_t* fault_ = nullptr;
    std::string arguments_;
    output_kind output_kind_ = output_kind::bytes;
    std::span<std::byte> output_;
    const char* remark_ = nullptr;
};

} // namespace ivra::virtual_platform

#endif
