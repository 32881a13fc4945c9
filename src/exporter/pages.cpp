#include "exporter/pages.h"

#include "text/json.h"
#include "text/text.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>

namespace ivra::bsp::exporter {

namespace {

using json_writer_t = rapidjson::Writer<rapidjson::StringBuffer>;

std::string format_time(std::chrono::system_clock::time_point time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 64> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

void add(json_writer_t& json, const char* name, const std::string& text)
{
    json.Key(name);
    json.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

/// Why a board has no document.
std::string explain(const board_t& board)
{
    switch (board.absence) {
    case absence_t::late:
        return "not read in time";
    case absence_t::held:
        return "an earlier collection still waits for it, or did so a moment ago";
    case absence_t::failed:
        break;
    }
    return board.error;
}

/// The document of a board that has none.
std::string make_missing(const board_t& board)
{
    rapidjson::StringBuffer buffer;
    json_writer_t json{buffer};
    json.StartObject();
    if (board.index) {
        json.Key("index");
        json.Uint(*board.index);
    }
    if (board.name)
        add(json, "name", *board.name);
    if (board.uid)
        add(json, "uid", *board.uid);
    add(json, "state", "failed");
    add(json, "error", explain(board));
    add(json, "health", "unknown");
    json.Key("findings");
    json.StartArray();
    json.EndArray();
    json.EndObject();
    return {buffer.GetString(), buffer.GetSize()};
}

std::string document_of(const board_t& board)
{
    return board.document.empty() ? make_missing(board) : board.document;
}

std::size_t rank(std::string_view health)
{
    const auto* const found = std::ranges::find(healths, health);
    return found == std::end(healths) ? 1 : static_cast<std::size_t>(found - healths); // what is not known is unknown
}

/// The worst verdict of the boards.
std::string_view judge(const snapshot_t& snapshot, const std::vector<rapidjson::Document>& boards)
{
    std::size_t worst = snapshot.is_listed ? 0 : rank("unknown");
    for (const rapidjson::Document& board : boards)
        worst = std::max(worst, rank(get_text(board, "health")));
    return healths[worst];
}

std::vector<rapidjson::Document> parse_boards(const snapshot_t& snapshot)
{
    std::vector<rapidjson::Document> boards(snapshot.boards.size());
    for (std::size_t at = 0; at < boards.size(); ++at) {
        const std::string document = document_of(snapshot.boards[at]);
        boards[at].Parse(document.data(), document.size());
    }
    return boards;
}

std::string escape_html(const std::string& text)
{
    std::string escaped;
    for (const char letter : printable(text))
        switch (letter) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        default:
            escaped += letter;
        }
    return escaped;
}

constexpr const char* style = R"(<style>
body { font: 16px/1.5 sans-serif; margin: 2em auto; max-width: 60em; padding: 0 1em; color: #222; background: #fff }
table { border-collapse: collapse; width: 100% }
th, td { text-align: left; vertical-align: top; padding: .3em .8em .3em 0; border-bottom: 1px solid #ddd }
.ok { color: #17692d } .warning { color: #8a5a00 } .critical, .failed { color: #a61c1c } .unknown { color: #555 }
.health { font-weight: bold }
</style>
)";

} // namespace

std::string make_document(const snapshot_t& snapshot)
{
    rapidjson::StringBuffer buffer;
    json_writer_t json{buffer};
    json.StartObject();
    json.Key("format");
    json.Uint(1);
    add(json, "program", "ivra-bsp-readings");
    add(json, "version", snapshot.version);
    add(json, "time", format_time(snapshot.time));
    add(json, "host", snapshot.host);
    add(json, "platform", snapshot.platform);
    add(json, "health", std::string{judge(snapshot, parse_boards(snapshot))});
    json.Key("findings");
    json.StartArray();
    if (!snapshot.is_listed) {
        json.StartObject();
        add(json, "health", "unknown");
        add(json, "text", snapshot.error);
        json.EndObject();
    }
    json.EndArray();
    json.Key("board_count");
    json.Uint64(snapshot.boards.size());
    json.EndObject();
    std::string text{buffer.GetString(), buffer.GetSize() - 1}; // the object stays open
    text += ",\"boards\":[";
    for (const board_t& board : snapshot.boards)
        text += (&board == &snapshot.boards.front() ? "\n" : ",\n") + document_of(board);
    return text + "]}\n";
}

std::string make_start_page(const snapshot_t& snapshot)
{
    const std::vector<rapidjson::Document> boards = parse_boards(snapshot);
    const std::string health{judge(snapshot, boards)};
    std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width\">\n<title>Boards of " +
                       escape_html(snapshot.host) + "</title>\n" + style + "</head>\n<body>\n<h1>Boards of " +
                       escape_html(snapshot.host) + "</h1>\n<p><span class=\"health " + health + "\">" + health +
                       "</span>, " + format_time(snapshot.time) +
                       (snapshot.platform == "simulated" ? ", simulated boards" : "") +
                       ". <a href=\"metrics\">metrics</a>, <a href=\"readings.json\">readings.json</a></p>\n";
    if (!snapshot.is_listed)
        page += "<p class=\"failed\">" + escape_html(snapshot.error) + "</p>\n";
    else if (boards.empty())
        page += "<p>No accelerator found</p>\n";
    if (!boards.empty())
        page +=
            "<table>\n<tr><th>Health</th><th>ID</th><th>Name</th><th>Model</th><th>Serial</th><th>Findings</th></tr>\n";
    for (const rapidjson::Document& board : boards) {
        std::string verdict = escape_html(get_text(board, "health"));
        page +=
            "<tr><td class=\"health " + verdict + "\">" + verdict + "</td><td>" + get_count(board, "index") + "</td>";
        for (const char* member : {"name", "model", "serial"})
            page += "<td>" + escape_html(get_text(board, member)) + "</td>";
        page += "<td>";
        if (const std::string error = get_text(board, "error"); !error.empty())
            page += "<div class=\"failed\">" + escape_html(error) + "</div>";
        for_each(board, "findings", [&page](const json_t& finding) {
            page += "<div class=\"" + escape_html(get_text(finding, "health")) + "\">" +
                    escape_html(get_text(finding, "text")) + "</div>";
        });
        page += "</td></tr>\n";
    }
    return page + (boards.empty() ? "" : "</table>\n") + "</body>\n</html>\n";
}

} // namespace ivra::bsp::exporter
