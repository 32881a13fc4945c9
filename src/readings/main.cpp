// ivra-bsp-readings: numbers, limits and verdicts of every board of a host.

#include "hw/accelerator.h"
#include "readings/board_view.h"
#include "readings/check.h"
#include "readings/command_line.h"
#include "readings/document.h"
#include "readings/limits_file.h"
#include "readings/progress_line.h"
#include "readings/select.h"
#include "readings/text_screen.h"
#include "readings/worker.h"
#include "readings/workers.h"
#include "text/text.h"

#include <ivra/log.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace hw = ivra::hw;
using namespace ivra::bsp;
using namespace ivra::bsp::readings;

namespace {

enum exit_status_t
{
    all_read = 0,
    nothing_read = 1,
    something_failed = 2,
};

/// Makes failed writes to standard output what they are, failures, and lends a closed descriptor to nobody.
void prepare_descriptors()
{
    std::signal(SIGPIPE, SIG_IGN);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(descriptor, F_GETFD) == -1)
            ::open("/dev/null", O_RDONLY); // the lowest free descriptor: this one
}

/// What the platform says while boards are looked for.
struct platform_log_t
{
    bool is_shown = false;
    std::string error; ///< the first message of that level
};
platform_log_t platform_log;

// Nothing may be thrown through the library that calls it.
void hear(int level, const char* /*file*/, int /*line*/, const char* function, const char* format,
          std::va_list args) noexcept
{
    try {
        const std::string message = format_message(function, format, args);
        if (platform_log.is_shown)
            std::cerr << printable(message) << '\n';
        if (level == IVRA_LOG_ERROR && platform_log.error.empty())
            platform_log.error = message;
    } catch (const std::exception&) { // no memory: the message is lost
        return;
    }
}

struct host_t
{
    std::vector<telemetry::accelerator_identity_t> boards;
    std::vector<telemetry::finding_t> findings; ///< why there may be more
};

/// The boards that the platform lists. No handle of the platform is open any more. A host that may have others must not
/// pass for one without.
host_t find_boards()
{
    host_t host;
    const auto fail = [&host](const std::string& text) {
        host.findings.push_back({.health = telemetry::health_t::unknown, .text = text});
        return host;
    };
    const std::string unlisted = "The boards of this host cannot be listed: ";
    try {
        // Without a filter there would be none where they are fewer than were counted.
        for (const hw::accelerator_descriptor& descriptor : hw::enumerate_accelerators(hw::accelerator_filter{}))
            host.boards.push_back(telemetry::get_identity(descriptor));
        if (const std::size_t count = hw::count_accelerators(); count > host.boards.size())
            return fail("The platform counts " + std::to_string(count) + (count == 1 ? " board" : " boards") +
                        ", and lists " + (host.boards.empty() ? "none" : std::to_string(host.boards.size())));
    } catch (const std::exception& error) {
        return fail(unlisted + error.what());
    }
    if (host.boards.empty() && !platform_log.error.empty())
        return fail(unlisted + platform_log.error);
    return host;
}

std::string name_of(const telemetry::accelerator_identity_t& board)
{
    return board.name.value_or(board.uid.value_or("board-" + std::to_string(board.index.value_or(0))));
}

telemetry::health_t worst_of(const std::vector<rapidjson::Document>& boards,
                             const std::vector<telemetry::finding_t>& findings)
{
    telemetry::verdict_t verdict{.health = telemetry::health_t::ok, .findings = {}};
    for (const rapidjson::Document& board : boards)
        verdict.add(get_health(board).value_or(telemetry::health_t::unknown));
    for (const telemetry::finding_t& finding : findings)
        verdict.add({.health = finding.health, .findings = {}});
    return *verdict.health;
}

int status_of(const std::vector<rapidjson::Document>& boards, const std::vector<telemetry::finding_t>& findings)
{
    const auto is_unread = [](const rapidjson::Document& board) { return get_text(board, "state") == "failed"; };
    const bool has_failed = !findings.empty() || std::ranges::any_of(boards, &has_failure);
    if (has_failed && std::ranges::all_of(boards, is_unread))
        return nothing_read;
    return has_failed ? something_failed : all_read;
}

/// Standard output takes nothing any more.
class output_error : public std::exception
{
};

int run(const arguments_t& args)
{
    const std::string limits = args.limits_file ? read_limits_file(*args.limits_file) : "";
    if (args.limits_file)
        parse_limits(limits, *args.limits_file); // a mistake ends this before any board is touched
    const host_t host = find_boards();
    const bool has_list = host.findings.empty() || !host.boards.empty(); // that could have the boards that are named
    const std::vector<telemetry::accelerator_identity_t> boards =
        has_list ? select(host.boards, args.selectors, args.skipped) : host.boards;
    if (args.announces && !(std::cout << make_announcement(boards) << std::endl))
        throw output_error{};
    std::vector<std::string> documents(boards.size());
    progress_line progress;
    read_boards(boards, {.parts = args.parts, .jobs = args.jobs, .timeout = args.timeout, .limits = limits},
                {.board =
                     [&](std::size_t board, const std::string& document) {
                         documents[board] = document;
                         if (args.format != format_t::lines)
                             return;
                         progress.wipe();
                         if (!(std::cout << document << std::endl))
                             throw output_error{}; // what else is read nobody would see
                     },
                 .log =
                     [&](std::size_t board, const std::string& text) {
                         if (!args.is_verbose)
                             return;
                         progress.wipe();
                         std::cerr << printable(name_of(boards[board])) << ": " << printable(text) << '\n';
                     },
                 .progress =
                     [&](std::size_t done, std::size_t waiting, std::chrono::milliseconds time) {
                         progress.show(done, boards.size(), name_of(boards[waiting]), time);
                     }});
    progress.wipe();

    std::vector<rapidjson::Document> parsed(documents.size());
    for (std::size_t at = 0; at < documents.size(); ++at)
        parsed[at].Parse<rapidjson::kParseFullPrecisionFlag>(documents[at].data(), documents[at].size());
    const telemetry::health_t health = worst_of(parsed, host.findings);
    switch (args.format) {
    case format_t::json:
        std::cout << make_host_document(health, host.findings, boards.size(), documents) << '\n';
        break;
    case format_t::lines:
        std::cout << make_host_document(health, host.findings, boards.size(), std::nullopt) << '\n';
        break;
    case format_t::text:
        std::cout << make_text_screen(health, host.findings, parsed, args.colored);
        break;
    case format_t::check:
        std::cout << make_check_line(health, host.findings, parsed) << '\n';
        return get_check_status(health);
    }
    return status_of(parsed, host.findings);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], worker_word) == 0)
        return run_worker();
    prepare_descriptors();
    const arguments_t args = parse_command_line({argv + (argc > 0 ? 1 : 0), argv + argc});
    platform_log.is_shown = args.is_verbose;
    ivra_log_set_handler(&hear);
    int status = EXIT_FAILURE;
    try {
        status = run(args);
    } catch (const output_error&) {
        // which finish_output() tells
    } catch (const std::exception& error) {
        if (args.format == format_t::check) {
            std::cout << make_failure_line(error.what()) << '\n';
            status = get_check_status(telemetry::health_t::unknown);
        } else {
            std::cerr << "ivra-bsp readings: " << printable(error.what()) << '\n';
        }
    }
    return finish_output(status, args.format == format_t::check);
}
