#include "rack/play.h"

#include "rack/change_words.h"
#include "json/text.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;

using word_t = play_line_t::word_t;

std::size_t characters(std::string_view text)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U; }));
}

std::string place_in(std::size_t line, std::size_t before)
{
    return "line " + std::to_string(line) + ", column " + std::to_string(before + 1);
}

/// The words of a line. Throws file_error.
std::vector<word_t> words_of(std::string_view line, std::size_t number, const std::filesystem::path& file)
{
    constexpr std::string_view spaces = " \t\r";
    std::vector<word_t> words;
    for (std::size_t at = line.find_first_not_of(spaces); at < line.size() && line[at] != '#';
         at = line.find_first_not_of(spaces, at)) {
        word_t word{"", characters(line.substr(0, at))};
        while (at < line.size() && spaces.find(line[at]) == std::string_view::npos) {
            const char quote = line[at];
            if (quote != '"' && quote != '\'') {
                word.text += line[at++];
                continue;
            }
            const std::size_t end = line.find(quote, at + 1);
            if (end == std::string_view::npos)
                mistake(file, place_in(number, characters(line.substr(0, at))),
                        std::string{"expected another "} + quote + " on this line");
            word.text += line.substr(at + 1, end - at - 1);
            at = end + 1;
        }
        words.push_back(std::move(word));
    }
    return words;
}

/// The time that the words begin with, and how many of them it takes; nothing when it is none.
std::optional<std::pair<device_time, std::size_t>> time_of(const std::vector<word_t>& words)
{
    const std::filesystem::path nowhere;
    for (std::size_t count = 1; count <= std::min<std::size_t>(2, words.size()); ++count) {
        json::reading reading{nowhere};
        const json::value_t said{count == 1 ? words[0].text : words[0].text + ' ' + words[1].text};
        codec::duration_t time;
        codec::duration.read(json::node_t{said, reading}, time);
        if (!reading.has_mistake() && time)
            return std::pair{*time, count};
    }
    return std::nullopt;
}

} // namespace

std::vector<play_line_t> parse_play(std::string_view text, const std::filesystem::path& file)
{
    constexpr std::size_t most_lines = 65536;
    std::vector<play_line_t> lines;
    device_time last{};
    std::size_t number = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::vector<word_t> words = words_of(text.substr(0, end), ++number, file);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (words.empty())
            continue;
        const auto time = time_of(words);
        if (!time)
            mistake(file, place_in(number, words[0].before), "expected a time such as \"1.5 s\", \"30 ms\" or \"0 s\"");
        const auto& [after, count] = *time;
        if (after < last)
            mistake(file, place_in(number, words[0].before),
                    "expected a time of at least " + duration_text(last) + ", that of the line before it");
        if (words.size() < count + 2) {
            const word_t& behind = words.back();
            mistake(file, place_in(number, behind.before + characters(behind.text)),
                    words.size() == count ? "expected an accelerator and what changes of it behind the time"
                                          : "expected what changes of the accelerator");
        }
        if (lines.size() == most_lines)
            mistake(file, place_in(number, words[0].before), "expected at most 65536 changes");
        last = after;
        play_line_t line{number, after, words[count], words[count + 1], {}};
        for (std::size_t at = count + 1; at < words.size(); ++at)
            line.words.push_back(words[at].text);
        lines.push_back(std::move(line));
    }
    return lines;
}

std::map<const accelerator_t*, std::vector<play_line_t>>
sorted_by_board(const rack_t& rack, const std::vector<play_line_t>& lines, const std::filesystem::path& file)
{
    std::map<const accelerator_t*, std::vector<play_line_t>> sorted;
    for (const play_line_t& line : lines) {
        try {
            sorted[&accelerator_called(rack, line.accelerator.text)].push_back(line);
        } catch (const std::runtime_error& error) {
            mistake(file, place_in(line.number, line.accelerator.before), error.what());
        }
    }
    return sorted;
}

std::vector<changes_t::step_t> steps_of(const accelerator_t& original, accelerator_t board,
                                        const std::vector<play_line_t>& lines, const std::filesystem::path& file,
                                        const std::vector<std::filesystem::path>& folders, device_time start,
                                        std::uint64_t number, std::vector<std::string>& remarks)
{
    std::vector<changes_t::step_t> steps;
    for (const play_line_t& line : lines) {
        const bool is_too_late = start > device_time{} && line.after > device_time::max() - start;
        const device_time at = is_too_late ? device_time::max() : start + line.after;
        accelerator_t next = board;
        try {
            for (const std::string& remark : make_change(next, line.words, {original, folders, number++, at}))
                remarks.push_back(told(file, place_in(line.number, line.what.before), remark));
        } catch (const change_error& error) {
            mistake(file, place_in(line.number, line.what.before), error.what());
        }
        steps.push_back({at, difference(board, next)});
        board = std::move(next);
    }
    return steps;
}

} // namespace ivra::virtual_platform
