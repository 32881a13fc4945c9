#include "commands.h"
#include "output.h"

#include "memory/clock.h"
#include "rack/change_words.h"
#include "rack/play.h"
#include "state/state.h"
#include "json/text.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <map>
#include <string>
#include <vector>

namespace ivra::virtual_platform {

namespace {

/// "sensor 12V0 13 V"
std::string one_line(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words)
        line += (line.empty() ? "" : " ") + word;
    return line;
}

void undo(board_state& state, const std::string& name)
{
    if (state.undo_changes())
        print("Undid all changes of " + printable(name) + '\n');
    else
        print("Nothing to undo: " + printable(name) + " is as its rack says\n");
}

} // namespace

void change_board(const rack_t& rack, const std::string& name, const std::vector<std::string>& words)
{
    const accelerator_t& accelerator = accelerator_called(rack, name);
    board_state state = board_state::open(rack, accelerator);
    if (words == std::vector<std::string>{"reset"})
        return undo(state, name);
    try {
        std::vector<std::string> remarks;
        state.change([&](changes_t& changes, std::uint64_t number) {
            remarks = make_change(changes.board, words, {accelerator, folders_of(rack.file), number, device_now()});
            return number;
        });
        for (const std::string& remark : remarks)
            print_error(one_line(words) + ": " + remark);
    } catch (const no_change_error& error) {
        throw usage_error{error.what()};
    } catch (const change_error& error) {
        throw change_error{one_line(words) + ": " + error.what()};
    }
}

void play(const rack_t& rack, const std::filesystem::path& file)
{
    const std::vector<play_line_t> lines = parse_play(read_file(file), file);
    const std::vector<std::filesystem::path> folders = folders_of(rack.file);
    const device_time start = device_now();
    std::map<const accelerator_t*, board_state> states;
    const auto boards = sorted_by_board(rack, lines, file);
    std::vector<std::string> remarks;
    for (const auto& [accelerator, of_board] : boards) { // a mistake is found before anything changes
        board_state& state = states.emplace(accelerator, board_state::open(rack, *accelerator)).first->second;
        steps_of(*accelerator, state.board(), of_board, file, folders, start, 1, remarks);
    }
    for (const std::string& remark : remarks)
        print_error(remark);
    for (auto& [accelerator, state] : states)
        state.change([&, &board = *accelerator](changes_t& changes, std::uint64_t number) {
            const std::vector<play_line_t>& of_board = boards.at(&board);
            std::ranges::move(steps_of(board, changes.board, of_board, file, folders, start, number, remarks),
                              std::back_inserter(changes.to_come));
            std::ranges::stable_sort(changes.to_come, {}, &changes_t::step_t::at);
            return number + of_board.size();
        });
    if (lines.empty())
        print("Nothing to play\n");
    else
        print("Set " + std::to_string(lines.size()) + (lines.size() == 1 ? " change" : " changes") +
              ", the last one in " + duration_text(lines.back().after) + '\n');
}

} // namespace ivra::virtual_platform
