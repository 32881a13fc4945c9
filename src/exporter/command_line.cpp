#include "exporter/command_line.h"

#include "Argos/argument_parser.h"
#include "exporter/metrics.h"
#include "text/text.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>

namespace ivra::bsp::exporter {

namespace {

using argos::Option;

constexpr int usage_error = 64;
constexpr unsigned default_max_age = 5;
constexpr unsigned longest_max_age = 3600;
constexpr auto default_listen = "127.0.0.1:9749";

[[noreturn]] void end_wrong(const std::string& message)
{
    std::cerr << "ivra-bsp exporter: " << message << "\nHelp: ivra-bsp exporter --help\n";
    std::exit(usage_error);
}

[[noreturn]] void end_after(const std::string& text)
{
    std::cout << text << std::flush;
    std::exit(std::cout ? EXIT_SUCCESS : EXIT_FAILURE);
}

std::optional<unsigned> to_number(std::string_view text, unsigned most)
{
    unsigned number = 0;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && rest == text.data() + text.size() && number <= most ? std::optional{number}
                                                                                       : std::nullopt;
}

/// "127.0.0.1:9749", "[::1]:9749"; nothing for anything else.
std::optional<listen_address_t> to_address(const std::string& text)
{
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0)
        return std::nullopt;
    const auto port = to_number(std::string_view{text}.substr(colon + 1), 65535);
    std::string host = text.substr(0, colon);
    listen_address_t listen;
    ::sockaddr_in v4{};
    ::sockaddr_in6 v6{};
    if (!port)
        return std::nullopt;
    if (::inet_pton(AF_INET, host.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(static_cast<std::uint16_t>(*port));
        listen.size = sizeof v4;
        std::memcpy(&listen.address, &v4, sizeof v4);
        return listen;
    }
    if (!host.starts_with('[') || !host.ends_with(']'))
        return std::nullopt;
    host = host.substr(1, host.size() - 2);
    if (::inet_pton(AF_INET6, host.c_str(), &v6.sin6_addr) != 1)
        return std::nullopt;
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(static_cast<std::uint16_t>(*port));
    listen.size = sizeof v6;
    std::memcpy(&listen.address, &v6, sizeof v6);
    return listen;
}

} // namespace

arguments_t parse_command_line(const std::vector<std::string_view>& words)
{
    std::ostringstream errors;
    argos::ArgumentParser parser{"ivra-bsp exporter", false};
    parser.about("Serve the readings of all boards of this host to Prometheus.")
        .error_filter(printable)
        .error_stream(errors)
        .add(Option{"-h", "--help"}.help("Show help text").type(argos::OptionType::STOP))
        .add(Option{"--version"}.help("Show the version").type(argos::OptionType::STOP))
        .add(Option{"--metrics"}.help("Show the table of metrics, in Markdown").type(argos::OptionType::STOP))
        .add(Option{"--listen"}.argument("address").help(
            std::string{"Where to listen: an address and a port, as in \"[::1]:9749\"; port 0 is any (default "} +
            default_listen + ")."))
        .add(Option{"--jobs"}.argument("number").help("Boards that are read side by side: 1 to 64 (default 8)."))
        .add(Option{"--parts"}.argument("list").help("What to read: as `ivra-bsp readings --parts` has it."))
        .add(Option{"--limits"}.argument("file").help("Limits: as `ivra-bsp readings --limits` has them."))
        .add(Option{"--max-age"}.argument("seconds").help(
            "How old a collection may be that answers once more; 0: each scrape collects (default 5)."))
        .add(Option{"--textfile"}.argument("file").help(
            "Collect once, write the metrics to this file, and end: for node_exporter."));
    const argos::ParsedArguments args = parser.parse(words);
    if (args.result_code() == argos::ResultCode::ERROR) {
        std::string message = errors.str();
        message = message.substr(0, message.find('\n'));
        const std::string prefix = "ivra-bsp exporter: ";
        end_wrong(message.starts_with(prefix) ? message.substr(prefix.size()) : message);
    }
    if (args.has("--help")) {
        args.write_help_text();
        end_after("");
    }
    if (args.has("--version"))
        end_after("ivra-bsp-exporter " IVRA_VERSION "\n");
    if (args.has("--metrics"))
        end_after(make_metrics_page());

    arguments_t result{.listen = {}, .reader_words = {}, .max_age = {}, .text_file = std::nullopt};
    const std::string address = args.has("--listen") ? args.value("--listen").as_string() : default_listen;
    const auto listen = to_address(address);
    if (!listen)
        end_wrong("Expected an address and a port, such as 127.0.0.1:9749 or [::1]:9749, instead of '" +
                  printable(address) + "'");
    result.listen = *listen;
    unsigned max_age = default_max_age;
    if (args.has("--max-age")) {
        const auto number = to_number(args.value("--max-age").as_string(), longest_max_age);
        if (!number)
            end_wrong("Expected a maximum age of 0 to 3600 seconds");
        max_age = *number;
    }
    result.max_age = std::chrono::seconds{max_age};
    for (const char* flag : {"--jobs", "--parts", "--limits"})
        if (args.has(flag))
            result.reader_words.push_back(std::string{flag} + "=" + args.value(flag).as_string());
    if (args.has("--textfile")) {
        if (args.has("--listen") || args.has("--max-age"))
            end_wrong("--textfile collects once: --listen and --max-age do not go with it");
        result.text_file = args.value("--textfile").as_string();
    }
    return result;
}

} // namespace ivra::bsp::exporter
