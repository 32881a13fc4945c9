#include "readings/check.h"

#include "readings/board_view.h"
#include "readings/text_screen.h"
#include "text/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string_view>

namespace ivra::bsp::readings {

namespace {

using telemetry::health_t;

/// Engines cut what is longer.
constexpr std::size_t most_bytes = 8000;
constexpr std::size_t most_findings = 3;
constexpr std::size_t longest_finding = 160; // characters

struct verdict_row_t
{
    health_t health;
    const char* word;
    int status;
};
constexpr verdict_row_t verdicts[] = {
    {health_t::ok, "OK", 0},
    {health_t::warning, "WARNING", 1},
    {health_t::critical, "CRITICAL", 2},
    {health_t::unknown, "UNKNOWN", 3},
};

struct unit_row_t
{
    std::string_view unit;
    const char* symbol; ///< that engines know
};
constexpr unit_row_t unit_rows[] = {{"volts", "V"}, {"amperes", "A"}, {"watts", "W"}, {"celsius", "C"}};

const verdict_row_t& row_of(health_t health)
{
    return *std::ranges::find(verdicts, health, &verdict_row_t::health);
}

/// What engines take for something else is "_": the mark before the performance data, and what a label must not have.
std::string plain(std::string_view text, std::string_view forbidden)
{
    std::string result = printable(valid_utf8(text));
    std::ranges::replace_if(
        result, [forbidden](char letter) { return letter == '\0' || forbidden.find(letter) != std::string_view::npos; },
        '_');
    return result;
}

/// A decimal without an exponent.
std::string decimal(double value)
{
    std::array<char, 512> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr;
    return {text.data(), end};
}

/// The first of these limits that a reading has.
std::optional<double> get_limit(const json_t& reading, std::initializer_list<const char*> names)
{
    for (const char* name : names)
        if (const std::optional<double> limit = get_number(get_member(reading, "limits"), name))
            return limit;
    return std::nullopt;
}

/// "11:13", "~:85" or "11:"; empty without limits.
std::string range(std::optional<double> low, std::optional<double> high)
{
    if (!low && !high)
        return {};
    return (low ? decimal(*low) : "~") + ":" + (high ? decimal(*high) : "");
}

/// What tells a reading from the others of its board: of sensors of one name each has its record.
std::string label_of(const located_reading_t& located, const std::vector<located_reading_t>& readings)
{
    const auto label = [](const located_reading_t& some) {
        return some.where + (some.where.empty() ? "" : " ") + get_text(some.reading, "name");
    };
    const std::string record = get_count(located.reading, "record"), own = label(located);
    const bool is_alone = record.empty() || std::ranges::count(readings, own, label) == 1;
    return is_alone ? own : own + " (" + record + ')';
}

std::string performance(const std::string& label, const json_t& reading)
{
    const std::string unit = get_text(reading, "unit");
    const auto* const row = std::ranges::find(unit_rows, unit, &unit_row_t::unit);
    std::string item = "'" + plain(label, "'=|") + "'=" + decimal(*get_number(reading, "value")) +
                       (row == std::end(unit_rows) ? "" : row->symbol);
    const std::string warning =
        range(get_limit(reading, {"lower_non_critical"}), get_limit(reading, {"upper_non_critical"}));
    const std::string critical = range(get_limit(reading, {"lower_critical", "lower_non_recoverable"}),
                                       get_limit(reading, {"upper_critical", "upper_non_recoverable"}));
    if (!warning.empty() || !critical.empty())
        item += ';' + warning;
    if (!critical.empty())
        item += ';' + critical;
    return item;
}

struct item_t
{
    health_t health;
    std::string text;
};

/// The worst first, else in the order of the boards.
void sort(std::vector<item_t>& items)
{
    std::ranges::stable_sort(items, std::ranges::greater{}, &item_t::health);
}

std::vector<item_t> find_findings(const std::vector<telemetry::finding_t>& host,
                                  const std::vector<rapidjson::Document>& boards, const std::vector<std::string>& names)
{
    std::vector<item_t> findings;
    const auto add = [&findings](std::optional<health_t> health, const std::string& finding) {
        if (!health)
            return;
        findings.push_back({*health, shortened(plain(finding, "|"), longest_finding)});
    };
    for (const telemetry::finding_t& finding : host)
        add(finding.health, finding.text);
    for (std::size_t at = 0; at < boards.size(); ++at)
        for_each(boards[at], "findings", [&](const json_t& finding) {
            add(get_health(finding), names[at] + ": " + get_text(finding, "text"));
        });
    sort(findings);
    return findings;
}

std::vector<item_t> find_performance(const std::vector<rapidjson::Document>& boards,
                                     const std::vector<std::string>& names)
{
    std::vector<item_t> items;
    for (std::size_t at = 0; at < boards.size(); ++at) {
        const std::vector<located_reading_t> readings = get_readings(boards[at]);
        for (const located_reading_t& located : readings)
            if (get_number(located.reading, "value"))
                items.push_back({get_health(located.reading).value_or(health_t::ok),
                                 performance(names[at] + ' ' + label_of(located, readings), located.reading)});
    }
    sort(items);
    return items;
}

std::string summary(const std::vector<rapidjson::Document>& boards)
{
    if (boards.empty())
        return "no boards";
    std::string text = std::to_string(boards.size()) + (boards.size() == 1 ? " board" : " boards");
    for (const health_t health : {health_t::critical, health_t::warning, health_t::unknown}) {
        const auto count =
            std::ranges::count(boards, std::optional{health}, [](const auto& b) { return get_health(b); });
        if (count > 0)
            text += ", " + std::to_string(count) + ' ' + std::string{telemetry::get_name(health)};
    }
    return text;
}

} // namespace

std::string make_check_line(health_t host, const std::vector<telemetry::finding_t>& host_findings,
                            const std::vector<rapidjson::Document>& boards)
{
    if (boards.empty() && !host_findings.empty())
        return make_failure_line(host_findings.front().text);
    std::string line = std::string{row_of(host).word} + " - " + summary(boards);
    const std::vector<std::string> names = get_names(boards);
    const std::vector<item_t> findings = find_findings(host_findings, boards, names);
    for (std::size_t at = 0; at < std::min(findings.size(), most_findings); ++at)
        line += "; " + findings[at].text;
    if (findings.size() > most_findings)
        line += "; and " + std::to_string(findings.size() - most_findings) + " more";

    const std::vector<item_t> items = find_performance(boards, names);
    std::string data;
    std::size_t count = 0;
    for (; count < items.size() && line.size() + data.size() + items[count].text.size() < most_bytes; ++count)
        data += ' ' + items[count].text;
    if (count < items.size())
        line += " (" + std::to_string(items.size() - count) + " values left out)";
    return data.empty() ? line : line + " |" + data;
}

std::string make_failure_line(const std::string& error)
{
    return std::string{row_of(health_t::unknown).word} + " - " + plain(error, "|");
}

int get_check_status(health_t host)
{
    return row_of(host).status;
}

} // namespace ivra::bsp::readings
