// ivra-bsp-exporter: the readings of all boards of a host for Prometheus.

#include "exporter/command_line.h"
#include "exporter/service.h"
#include "text/text.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <iostream>

using namespace ivra::bsp;

int main(int argc, char** argv)
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(descriptor, F_GETFD) == -1)
            ::open("/dev/null", O_RDWR); // the lowest free descriptor: this one
    const exporter::arguments_t args = exporter::parse_command_line({argv + (argc > 0 ? 1 : 0), argv + argc});
    try {
        if (args.text_file)
            return exporter::write_text_file(args) ? EXIT_SUCCESS : EXIT_FAILURE;
        exporter::serve(args);
    } catch (const std::exception& error) {
        std::cerr << "ivra-bsp exporter: " << printable(error.what()) << '\n';
        return EXIT_FAILURE;
    }
}
