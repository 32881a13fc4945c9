#include "board/helpers.h"
#include "board_monitor.h"
#include "command_line.h"
#include "hw/mutex.h"
#include "output/output.h"
#include "set_commands.h"
#include "show_commands.h"
#include "utils.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <vector>

using namespace ivra::bsp;

namespace {

/// Makes failed writes to standard output and error what they are, failures: a reader that went away does not kill the
/// process, and a closed descriptor is never lent to a file that the platform opens.
void prepare_descriptors()
{
    std::signal(SIGPIPE, SIG_IGN);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(descriptor, F_GETFD) == -1)
            ::open("/dev/null", O_RDONLY); // the lowest free descriptor: this one
}

void show(const board_monitor_p::Args& args)
{
    const std::map<std::string, std::function<void(board_monitor&)>> handlers{
        {"info", show_board_info},  {"boot-image", show_boot_image},
        {"flash", show_flash_info}, {"transceivers", show_transceivers_info},
        {"sensors", show_sensors},  {"all", show_all_info},
    };

    const auto accelerator = get_accelerator(args.args);
    if (!accelerator)
        output::get().exit(false);
    board_monitor monitor{*accelerator};
    handlers.at(args.info)(monitor);
}

void set(const board_monitor_p::Args& args)
{
    const std::map<std::string, std::function<void(const board_monitor_p::Args&)>> handlers{
        {"boot-image", set_boot_part},
        {"transceiver-speed", set_transceiver_speed},
        {"qsfp-power-mode", set_qsfp_low_power_mode},
    };
    handlers.at(args.parameter.first)(args);
}

void run(const board_monitor_p::Args& args)
{
    if (args.command == "list")
        list_boards();
    else if (args.command == "show")
        show(args);
    else if (args.command == "set")
        set(args);
    else
        setup_board(args);
}

[[noreturn]] void run(const std::vector<std::string_view>& words)
{
    output& out = output::get();
    // Nothing is written to a screen under a lock.
    watch_locks({.held = []() noexcept { output::get().hold_log(); },
                 .released = []() noexcept { output::get().release_log(); }});
    try {
        const board_monitor_p::Args args = board_monitor_p::parse_command_line(words);
        out.set_color_mode(args.color);
        out.set_format(args.format);
        run(args);
    } catch (const StopParsing&) {
        out.exit();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        out.exit(false, error.what());
    }
    out.exit();
}

} // namespace

int main(int argc, char** argv)
{
    prepare_descriptors();
    try {
        run({argv + (argc > 0 ? 1 : 0), argv + argc});
    } catch (const std::bad_alloc&) {
        output::exit_without_memory();
    }
}
