// What was changed of a board, and files to be played: whatever the bytes, changes or a file_error; and changes that
// are written are read as the same ones.
#include "rack/changes.h"
#include "rack/play.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace ivra::virtual_platform;

constexpr device_time now{1'000'000};

const rack_t& boards()
{
    static const rack_t rack = parse_rack(R"({"accelerators": [
        {"name": "alveo", "model": "xilinx_u200", "i2c": {"cages": ["qsfp28-sr4", "sfp-10g-sr"]}},
        {"name": "bitt", "model": "bittware_xupp3r", "i2c": {"cages": ["qsfpdd-dr4"]}}]})",
                                          "rack.json");
    return rack;
}

void expect_told(const file_error& error, std::string_view file)
{
    if (!std::string_view{error.what()}.starts_with(file))
        std::abort();
}

void read(const accelerator_t& board, std::string_view text)
{
    changes_t changes;
    try {
        changes = read_changes(board, text, "changes", now);
    } catch (const file_error& error) {
        return expect_told(error, "changes: ");
    }
    const std::string written = changes_text(board, changes, now);
    const changes_t again = read_changes(board, written, "written", now); // throws what nobody catches
    if (changes_text(board, again, now) != written)
        std::abort();
}

void play(std::string_view text)
{
    try {
        std::vector<std::string> remarks;
        for (const auto& [board, lines] : sorted_by_board(boards(), parse_play(text, "play"), "play"))
            steps_of(*board, *board, lines, "play", folders_of("rack.json"), now, 1, remarks);
    } catch (const file_error& error) {
        expect_told(error, "play: ");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::vector<char> bytes(data + 1, data + size);
    const std::string_view text{bytes.data(), bytes.size()};
    if (data[0] % 3 == 2)
        play(text);
    else
        read(boards().accelerators.at(data[0] % 3), text);
    return 0;
}
