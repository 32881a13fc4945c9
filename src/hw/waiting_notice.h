#ifndef IVRA_HW_WAITING_NOTICE_H
#define IVRA_HW_WAITING_NOTICE_H

#include <chrono>
#include <csignal>
#include <ctime>

namespace ivra::hw {
inline namespace v5 {

/// Tells who sits at a terminal that this process waits for another one, once it has lasted for `patience`. Where
/// standard error is no terminal, it does nothing. One at a time; it uses SIGURG, which nobody sends to end a
/// process, and which may interrupt a call. A terminal that takes no text now is not told.
class waiting_notice
{
public:
    explicit waiting_notice(std::chrono::milliseconds patience);
    ~waiting_notice();
    waiting_notice(const waiting_notice&) = delete;
    waiting_notice& operator=(const waiting_notice&) = delete;

    bool was_given() const;

private:
    bool is_set_ = false;
    timer_t timer_{};
    struct sigaction action_before_
    {
    };
    sigset_t mask_before_{};
};

} // namespace v5
} // namespace ivra::hw

#endif
