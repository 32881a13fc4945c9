#include "commands.h"
#include "output.h"

#include "memory/clock.h"
#include "rack/change_words.h"
#include "state/state.h"
#include "json/text.h"

#include <cstdint>
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

} // namespace ivra::virtual_platform
