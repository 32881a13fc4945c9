#ifndef IVRA_TESTS_SUPPORT_OUTCOME_H
#define IVRA_TESTS_SUPPORT_OUTCOME_H

#include <stdexcept>
#include <string>
#include <system_error>
#include <type_traits>

namespace ivra::tests {

/// The text that an action gives, "no failure" when it gives none, or that of the std::runtime_error with which it
/// fails.
template <class Action>
std::string said_by(Action action)
{
    try {
        if constexpr (std::is_constructible_v<std::string, decltype(action())>) {
            return action();
        } else {
            action();
            return "no failure";
        }
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

/// The same, where a failure is also told by its kind.
template <class Action>
std::string outcome(Action action)
{
    try {
        if constexpr (std::is_constructible_v<std::string, decltype(action())>) {
            return action();
        } else {
            action();
            return "ok";
        }
    } catch (const std::system_error& error) {
        return std::string{"system error: "} + error.what() +
               (error.code().category() == std::generic_category() ? "" : " (of another category)");
    } catch (const std::runtime_error& error) {
        return std::string{"error: "} + error.what();
    } catch (const std::logic_error& error) {
        return std::string{"logic error: "} + error.what();
    }
}

} // namespace ivra::tests

#endif
