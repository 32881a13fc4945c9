#ifndef IVRA_TESTS_ARGOS_SUPPORT_H
#define IVRA_TESTS_ARGOS_SUPPORT_H

#include "Argos/argument_parser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// A parser that never ends the process and whose texts stay here.
struct Console
{
    std::ostringstream help;
    std::ostringstream errors;
    argos::ArgumentParser parser{"prog", false};

    explicit Console(argos::OptionStyle style = argos::OptionStyle::STANDARD)
    {
        parser.option_style(style).help_stream(help).error_stream(errors).line_width(80);
    }

    /// What was written as error, up to the end of its first line.
    std::string error() const { return errors.str().substr(0, errors.str().find('\n')); }
};

/// Runs `action`, which must throw ArgosException, and returns the message.
template <class Action>
std::string thrown_by(Action action)
{
    try {
        action();
    } catch (const argos::ArgosException& exception) {
        return exception.what();
    }
    return "nothing thrown";
}

using words_t = std::vector<std::string>;

#endif
