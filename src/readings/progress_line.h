#ifndef IVRA_READINGS_PROGRESS_LINE_H
#define IVRA_READINGS_PROGRESS_LINE_H

#include <chrono>
#include <cstddef>
#include <string>

namespace ivra::bsp::readings {

/// A line on the terminal of standard error that says what is waited for. There is one.
class progress_line
{
public:
    progress_line();
    progress_line(const progress_line&) = delete;
    progress_line& operator=(const progress_line&) = delete;
    ~progress_line() { wipe(); }

    /// Says nothing of a short time.
    void show(std::size_t done, std::size_t count, const std::string& name, std::chrono::milliseconds time) const;
    static void wipe();
    /// For handlers of signals. A terminal that takes nothing now is left as it is.
    static void wipe_at_end() noexcept;

private:
    bool is_terminal_;
};

} // namespace ivra::bsp::readings

#endif
