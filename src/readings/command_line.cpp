#include "readings/command_line.h"

#include "Argos/argument_parser.h"
#include "readings/check.h"
#include "readings/workers.h"
#include "text/text.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>

namespace ivra::bsp::readings {

namespace {

using argos::Option;
using telemetry::part_t;

constexpr int usage_error = 64;
constexpr int plugin_unknown = 3;
constexpr unsigned default_jobs = 8;
constexpr unsigned default_timeout = 30; // seconds
constexpr unsigned longest_timeout = 86'400;

struct part_name_t
{
    std::string_view name;
    part_t part;
};
constexpr part_name_t part_names[] = {
    {"identity", part_t::identity}, {"flash", part_t::flash},     {"boot-image", part_t::boot_image},
    {"sensors", part_t::sensors},   {"modules", part_t::modules},
};

std::string all_parts()
{
    std::string list;
    for (const part_name_t& row : part_names)
        list += (list.empty() ? "" : ",") + std::string{row.name};
    return list;
}

[[noreturn]] void end_wrong(bool is_check, const std::string& message)
{
    if (is_check) {
        std::cout << make_failure_line(message) << '\n';
        std::exit(finish_output(plugin_unknown, is_check));
    }
    std::cerr << "ivra-bsp readings: " << message << "\nHelp: ivra-bsp readings --help\n";
    std::exit(usage_error);
}

std::optional<unsigned> to_number(const std::string& text, unsigned least, unsigned most)
{
    if (text.empty() || text.size() > 9 || !std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    const unsigned long number = std::stoul(text);
    return number >= least && number <= most ? std::optional{static_cast<unsigned>(number)} : std::nullopt;
}

/// It lies beside the program, in the build folder as after an install.
[[noreturn]] void write_schema(bool is_check)
{
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto file = program.parent_path().parent_path() / "share/ivra/schema/readings-1.json";
    std::ostringstream text;
    if (!(text << std::ifstream{file}.rdbuf())) {
        const std::string message = "Cannot read the schema " + printable(file.string());
        if (is_check)
            end_wrong(is_check, message);
        std::cerr << "ivra-bsp readings: " << message << '\n';
        std::exit(EXIT_FAILURE);
    }
    std::cout << text.str();
    std::exit(finish_output(EXIT_SUCCESS, is_check));
}

} // namespace

arguments_t parse_command_line(const std::vector<std::string_view>& words)
{
    const bool is_check = std::ranges::find(words, "--check") != words.end();
    std::ostringstream errors;
    argos::ArgumentParser parser{"ivra-bsp readings", false};
    parser.about("Read all boards of this host: numbers with units, limits and a verdict.")
        .error_filter(printable)
        .error_stream(errors)
        .add(Option{"-h", "--help"}.help("Show help text").type(argos::OptionType::STOP))
        .add(Option{"--version"}.help("Show the version").type(argos::OptionType::STOP))
        .add(Option{"--schema"}.help("Show the JSON Schema of the documents").type(argos::OptionType::STOP))
        .add(Option{"-a", "--accelerator"}
                 .argument("board")
                 .operation(argos::OptionOperation::APPEND)
                 .help("Read this board: an index, a name or a uid. May be given several times; without it all boards "
                       "are read."))
        .add(
            Option{"--skip"}
                .argument("uid")
                .operation(argos::OptionOperation::APPEND)
                .help("Leave this board out; one without a uid is told by its name, one without both by its index. May "
                      "be given several times."))
        .add(Option{"--parts"}.argument("list").help("What to read, separated by commas: " + all_parts() +
                                                     " (default: all)."))
        .add(Option{"--jobs"}.argument("number").help("Boards that are read side by side: 1 to 64 (default 8)."))
        .add(Option{"--limits"}.argument("file").help(
            "Judge sensors whose device gives no limits by those of this file (share/ivra/schema/limits-1.json). Where "
            "the device gives limits these count."))
        .add(Option{"--timeout"}.argument("seconds").help("What a board may take; 0: any time (default 30)."))
        .add(Option{"--json"}.help("Print one JSON document: the default unless standard output is a terminal."))
        .add(Option{"--lines"}.help("Print JSON Lines: each board as soon as it was read, the host last."))
        .add(Option{"--announce"}.help("With --lines: print first a line that says which boards will be read."))
        .add(Option{"--text"}.help("Print a screen for people."))
        .add(Option{"--check"}.help("Print the line of a monitoring plugin, and end with its status, 0 to 3."))
        .add(Option{"-c", "--color"}.argument("color").help("`always`, `never` or `auto` (default)."))
        .add(Option{"--verbose"}.help("Show the platform's log on standard error."));
    const argos::ParsedArguments args = parser.parse(words);
    if (args.result_code() == argos::ResultCode::ERROR) {
        std::string message = errors.str();
        message = message.substr(0, message.find('\n'));
        const std::string prefix = "ivra-bsp readings: ";
        end_wrong(is_check, message.starts_with(prefix) ? message.substr(prefix.size()) : message);
    }
    if (args.has("--help")) {
        args.write_help_text();
        std::exit(finish_output(EXIT_SUCCESS, is_check));
    }
    if (args.has("--version")) {
        std::cout << "ivra-bsp-readings " IVRA_VERSION "\n";
        std::exit(finish_output(EXIT_SUCCESS, is_check));
    }
    if (args.has("--schema"))
        write_schema(is_check);

    arguments_t result{.selectors = args.values("--accelerator").as_strings(),
                       .skipped = args.values("--skip").as_strings(),
                       .parts = {},
                       .jobs = default_jobs,
                       .timeout = std::chrono::seconds{default_timeout},
                       .format = ::isatty(STDOUT_FILENO) == 1 ? format_t::text : format_t::json,
                       .limits_file =
                           args.has("--limits") ? std::optional{args.value("--limits").as_string()} : std::nullopt,
                       .announces = args.has("--announce"),
                       .is_verbose = args.has("--verbose"),
                       .colored = false};
    std::istringstream parts{args.has("--parts") ? args.value("--parts").as_string() : all_parts()};
    for (std::string name; std::getline(parts, name, ',');) {
        const auto* const found = std::ranges::find(part_names, name, &part_name_t::name);
        if (found == std::end(part_names))
            end_wrong(is_check, "Unknown part '" + printable(name) + "': there are " + all_parts());
        result.parts.insert(found->part);
    }
    if (result.parts.empty())
        end_wrong(is_check, "No part to read: there are " + all_parts());
    if (args.has("--jobs")) {
        const auto jobs = to_number(args.value("--jobs").as_string(), 1, most_jobs);
        if (!jobs)
            end_wrong(is_check, "Expected 1 to 64 jobs");
        result.jobs = *jobs;
    }
    if (args.has("--timeout")) {
        const auto timeout = to_number(args.value("--timeout").as_string(), 0, longest_timeout);
        if (!timeout)
            end_wrong(is_check, "Expected a timeout of 0 to 86400 seconds");
        result.timeout = std::chrono::seconds{*timeout};
    }
    const std::pair<const char*, format_t> formats[] = {{"--json", format_t::json},
                                                        {"--lines", format_t::lines},
                                                        {"--text", format_t::text},
                                                        {"--check", format_t::check}};
    unsigned chosen = 0;
    for (const auto& [flag, format] : formats)
        if (args.has(flag)) {
            result.format = format;
            ++chosen;
        }
    if (chosen > 1)
        end_wrong(is_check, "Only one of --json, --lines, --text and --check can be given");

    if (result.announces && result.format != format_t::lines)
        end_wrong(is_check, "--announce goes with --lines");

    const char* variable = std::getenv("IVRA_BSP_COLOR");
    const std::string color = args.has("--color")   ? args.value("--color").as_string()
                              : variable != nullptr ? variable
                                                    : "auto";
    if (color != "auto" && color != "never" && color != "always" && !color.empty())
        end_wrong(is_check, "Invalid color value");
    const char* no_color = std::getenv("NO_COLOR");
    const bool is_off = !args.has("--color") && no_color != nullptr && *no_color != '\0';
    result.colored = color == "always" || (color != "never" && !is_off && ::isatty(STDOUT_FILENO) == 1);
    return result;
}

int finish_output(int status, bool is_check)
{
    if (std::cout.flush())
        return status;
    if (errno != EPIPE) // a reader that went away needs no telling
        std::cerr << "ivra-bsp readings: Cannot write to standard output: " << std::strerror(errno) << '\n';
    return is_check ? plugin_unknown : EXIT_FAILURE;
}

} // namespace ivra::bsp::readings
