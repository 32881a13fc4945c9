#ifndef IVRA_VIRTUAL_TOOL_OUTPUT_H
#define IVRA_VIRTUAL_TOOL_OUTPUT_H

#include <string_view>

namespace ivra::virtual_platform {

/// Call before anything is opened: no file may become standard input, output or error. A reader that goes away is an
/// error of writing from now on, not a signal.
void prepare_output();

/// Undoes it, for a program that takes the place of this one.
void restore_output();

/// Writes to standard output at once; the first failure is kept, and what follows it is dropped. False after a failure.
bool print(std::string_view text);

/// "ivra-virtual: MESSAGE" on standard error, control characters made visible.
void print_error(std::string_view message);

/// "MESSAGE" there, in the same way.
void print_note(std::string_view message);

/// Whether everything could be written; says so on standard error when not, except of a reader that went away.
bool finish_output();

} // namespace ivra::virtual_platform

#endif
