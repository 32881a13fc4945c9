#include "readings/text_screen.h"

#include "output/terminal.h"
#include "readings/board_view.h"
#include "text/text.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string_view>
#include <utility>

namespace ivra::bsp::readings {

namespace {

using telemetry::health_t;

color color_of(std::optional<health_t> health)
{
    if (!health)
        return color::normal;
    switch (*health) {
    case health_t::ok:
        return color::green;
    case health_t::warning:
        return color::yellow;
    case health_t::critical:
        return color::red;
    case health_t::unknown:
        break;
    }
    return color::orange;
}

/// "85.0°C"; empty where nothing has a temperature.
std::string hottest(const json_t& board)
{
    std::optional<double> most;
    std::string text;
    for (const located_reading_t& located : get_readings(board)) {
        const std::optional<double> value = get_number(located.reading, "value");
        if (!value || get_text(located.reading, "quantity") != "temperature" || (most && *most >= *value))
            continue;
        most = value;
        text = fixed(*value, 1) + "°C";
    }
    return text;
}

/// What the lane receives that has the least light; empty where no lane is measured.
std::string worst_lane(const json_t& board)
{
    std::optional<double> least;
    std::string text;
    for_each(board, "modules", [&](const json_t& module) {
        for_each(module, "lanes", [&](const json_t& lane) {
            const std::optional<double> watts = get_number(get_member(lane, "rx_power"), "value");
            if (!watts || (least && *least <= *watts))
                return;
            least = watts;
            text = *watts > 0 ? fixed(10 * std::log10(*watts * 1000), 1) : "none";
        });
    });
    return text;
}

struct cell_t
{
    std::string text;
    color text_color = color::normal;
};
using row_t = std::vector<cell_t>;

row_t make_row(const json_t& board, std::size_t longest_name)
{
    return {{get_text(board, "health"), color_of(get_health(board))},
            {get_count(board, "index")},
            {shortened(get_text(board, "name"), longest_name)},
            {shortened(get_text(board, "model"), 15)},
            {shortened(get_text(board, "serial"), 16)},
            {hottest(board)},
            {worst_lane(board)}};
}

std::size_t width(const std::string& text)
{
    return strlen_utf8(valid_utf8(text));
}

/// A row of titles, and one for each board.
std::vector<row_t> make_rows(const std::vector<rapidjson::Document>& boards, std::size_t longest_name)
{
    std::vector<row_t> rows{{{"Health"}, {"ID"}, {"Name"}, {"Model"}, {"Serial"}, {"Hottest"}, {"Rx dBm"}}};
    for (const rapidjson::Document& board : boards)
        rows.push_back(make_row(board, longest_name));
    return rows;
}

/// Of columns as wide as their widest cell; 0: no board has anything in it, and it is left out.
std::vector<std::size_t> get_widths(const std::vector<row_t>& rows)
{
    std::vector<std::size_t> widths(rows.front().size());
    for (std::size_t column = 0; column < widths.size(); ++column)
        for (std::size_t at = 1; at < rows.size(); ++at)
            if (!rows[at][column].text.empty())
                widths[column] = std::max({widths[column], width(rows[at][column].text), width(rows[0][column].text)});
    return widths;
}

/// Names give way to what else there is on a screen of 80 columns.
std::string make_table(const std::vector<rapidjson::Document>& boards, const color_map& colors)
{
    constexpr std::size_t screen = 80, longest_name = 18, shortest_name = 8, between = 2;
    std::vector<row_t> rows = make_rows(boards, longest_name);
    std::vector<std::size_t> widths = get_widths(rows);
    std::size_t total = 0;
    for (const std::size_t column : widths)
        total += column == 0 ? 0 : column + (total == 0 ? 0 : between);
    if (total > screen) {
        rows = make_rows(boards, longest_name - std::min(total - screen, longest_name - shortest_name));
        widths = get_widths(rows);
    }
    std::string table;
    for (const row_t& row : rows) {
        std::string line;
        std::size_t gap = 0;
        for (std::size_t column = 0; column < row.size(); ++column) {
            if (widths[column] == 0)
                continue;
            const cell_t& cell = row[column];
            line += std::string(gap, ' ');
            if (cell.text_color == color::normal)
                line += cell.text;
            else
                line += colors.at(cell.text_color) + cell.text + colors.at(color::normal);
            gap = widths[column] - width(cell.text) + between;
        }
        table += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
    }
    return table;
}

} // namespace

std::string shortened(const std::string& text, std::size_t most)
{
    std::string shown = printable(valid_utf8(text));
    if (strlen_utf8(shown) <= most)
        return shown;
    std::string beginning;
    std::size_t count = 0;
    for (const char letter : shown) {
        if ((static_cast<unsigned char>(letter) & 0xc0U) != 0x80U && ++count == most)
            break;
        beginning += letter;
    }
    return beginning + "…";
}

std::string make_text_screen(health_t host, const std::vector<telemetry::finding_t>& findings,
                             const std::vector<rapidjson::Document>& boards, bool colored)
{
    if (boards.empty() && findings.empty())
        return "No accelerator found\n";
    const color_map colors = get_color_map(colored);
    std::string screen;
    if (!boards.empty())
        screen = make_table(boards, colors);

    std::vector<std::pair<std::optional<health_t>, std::string>> lines;
    for (const telemetry::finding_t& finding : findings)
        lines.emplace_back(finding.health, printable(finding.text));
    const std::vector<std::string> names = get_names(boards);
    for (std::size_t at = 0; at < boards.size(); ++at)
        for_each(boards[at], "findings", [&](const json_t& finding) {
            lines.emplace_back(get_health(finding), printable(names[at] + ": " + get_text(finding, "text")));
        });
    std::ranges::stable_sort(lines, [](const auto& one, const auto& other) { return one.first > other.first; });
    if (!screen.empty() && !lines.empty())
        screen += '\n';
    for (const auto& [health, text] : lines)
        screen += colors.at(color_of(health)) + (health ? std::string{telemetry::get_name(*health)} : "note") +
                  colors.at(color::normal) + ": " + text + '\n';
    if (boards.size() > 1)
        screen += '\n' + std::to_string(boards.size()) + " boards: " + colors.at(color_of(host)) +
                  std::string{telemetry::get_name(host)} + colors.at(color::normal) + '\n';
    return screen;
}

} // namespace ivra::bsp::readings
