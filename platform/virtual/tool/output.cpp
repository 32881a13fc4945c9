#include "output.h"

#include "json/text.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace ivra::virtual_platform {

namespace {

int output_error = 0;
void (*inherited_sigpipe)(int) = SIG_DFL;

/// 0, or an errno.
int write_all(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = ::write(descriptor, text.data(), text.size());
        if (count < 0 && errno != EINTR)
            return errno;
        if (count > 0)
            text.remove_prefix(static_cast<std::size_t>(count));
    }
    return 0;
}

} // namespace

void prepare_output()
{
    // Deliberate: open for reading, so that writing to what was closed still fails.
    for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor)
        if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY | O_CLOEXEC) < 0)
            std::abort(); // the lowest free number is the one that is missing
    inherited_sigpipe = std::signal(SIGPIPE, SIG_IGN);
}

void restore_output()
{
    std::signal(SIGPIPE, inherited_sigpipe); // and what is closed here is closed there
}

bool print(std::string_view text)
{
    if (output_error == 0)
        output_error = write_all(STDOUT_FILENO, text);
    return output_error == 0;
}

void print_error(std::string_view message)
{
    print_note("ivra-virtual: " + std::string{message});
}

void print_note(std::string_view message)
{
    write_all(STDERR_FILENO, printable(message) + "\n");
}

bool finish_output()
{
    if (output_error != 0 && output_error != EPIPE)
        print_error("cannot write to standard output: " + std::generic_category().message(output_error));
    return output_error == 0;
}

} // namespace ivra::virtual_platform
