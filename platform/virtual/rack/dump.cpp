#include "dump.h"

#include "document.h"
#include "node.h"
#include "json/text.h"

#include <algorithm>
#include <string>
#include <vector>

namespace ivra::virtual_platform {

namespace {

constexpr std::size_t bytes_a_line = 16;
constexpr std::size_t largest_address = block_size * (last_block + 1) - 1;

bool is_hexadecimal(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

/// Words of a line, without what is behind "|" or "#".
std::vector<std::string_view> words_of(std::string_view line)
{
    line = line.substr(0, line.find_first_of("|#"));
    constexpr std::string_view spaces = " \t\r";
    std::vector<std::string_view> words;
    while (true) {
        line.remove_prefix(std::min(line.find_first_not_of(spaces), line.size()));
        if (line.empty())
            return words;
        words.push_back(line.substr(0, line.find_first_of(spaces)));
        line.remove_prefix(words.back().size());
    }
}

/// The digits of an address, as "0x0080:", "80:" or "00000080"; empty when the word is none.
std::string_view address_digits(std::string_view word)
{
    constexpr std::size_t size_without_colon = 8; // others are bytes
    const bool has_colon = word.ends_with(':');
    if (has_colon)
        word.remove_suffix(1);
    const bool has_prefix = word.starts_with("0x");
    if (has_prefix)
        word.remove_prefix(2);
    const bool is_one = has_colon || has_prefix || word.size() == size_without_colon;
    return is_one && is_hexadecimal(word) ? word : std::string_view{};
}

} // namespace

std::map<unsigned, block_t> parse_dump(std::string_view text, const std::filesystem::path& file)
{
    std::map<unsigned, block_t> blocks;
    std::uint64_t address = 0;
    std::vector<std::uint8_t> line_before;
    bool repeats = false;
    std::size_t number = 0;
    const auto expected = [&](const std::string& what) {
        mistake(file, "line " + std::to_string(number), "expected " + what);
    };
    const auto store = [&](const std::vector<std::uint8_t>& bytes) {
        for (const std::uint8_t byte : bytes) {
            if (address > largest_address)
                expected("no more than 257 blocks of 128 bytes");
            blocks[static_cast<unsigned>(address / block_size)].at(address % block_size) = byte;
            ++address;
        }
    };
    while (!text.empty()) {
        ++number;
        std::vector<std::string_view> words = words_of(text.substr(0, text.find('\n')));
        text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
        if (words.empty() || words.front() == "Offset" || words.front().starts_with("--")) // ethtool's head
            continue;
        if (words.front() == "*") { // hexdump's: as the line before, up to the next one
            repeats = true;
            continue;
        }
        const std::string_view digits = address_digits(words.front());
        if (!digits.empty()) {
            const std::uint64_t next = parse_digits(digits, 16);
            if (next > largest_address + 1)
                expected("an address of at most 0x8080");
            while (repeats && !line_before.empty() && address < next)
                store(line_before);
            address = next;
            words.erase(words.begin());
        }
        repeats = false;
        std::vector<std::uint8_t> bytes;
        for (std::string_view word : words) {
            if (!digits.empty() && bytes.size() >= bytes_a_line)
                break; // the same as text
            if (!is_hexadecimal(word) || word.size() % 2 != 0)
                expected("an address and pairs of hexadecimal digits");
            for (; !word.empty(); word.remove_prefix(2))
                bytes.push_back(static_cast<std::uint8_t>(parse_digits(word.substr(0, 2), 16)));
        }
        store(bytes);
        line_before = bytes;
    }
    if (blocks.empty())
        mistake(file, "", "expected a hexadecimal dump, but there is no byte in it");
    return blocks;
}

} // namespace ivra::virtual_platform
