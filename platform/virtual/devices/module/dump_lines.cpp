#include "dump_lines.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <system_error>
#include <utility>

namespace ivra::virtual_platform {

namespace {

constexpr std::string_view hexadecimal_digits = "0123456789abcdefABCDEF";

/// Texts of which a line is refused, and what is wrong with it.
constexpr struct
{
    std::string_view text, what;
} refused[] = {
    {"0,8  1,9", "bytes, not words of i2cdump, which overlap: make the dump with its mode b"},
    {"sfp EE: ", "whole pages, not the first bytes in the kernel's log: make a dump with \"ethtool -m DEVICE hex on\""},
};

bool is_hexadecimal(std::string_view text)
{
    return !text.empty() && text.find_first_not_of(hexadecimal_digits) == std::string_view::npos;
}

/// A line without what a terminal or a mail puts into it: colours, titles, quotation marks; blanks instead of tabs.
std::string cleaned(std::string_view line)
{
    constexpr char escape = '\x1b';
    constexpr char bell = '\a';
    constexpr std::string_view no_break_space = "\xc2\xa0";
    std::string text;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char next = at + 1 < line.size() ? line[at + 1] : '\0';
        if (line[at] == escape && (next == '[' || next == ']')) {
            const bool is_title = next == ']';
            at += 2;
            while (at < line.size() && (is_title ? line[at] != bell : line[at] < '@' || line[at] > '~'))
                ++at;
        } else if (line.substr(at).starts_with(no_break_space)) {
            text += ' ';
            ++at;
        } else {
            text += line[at] == '\t' || line[at] == '\r' ? ' ' : line[at];
        }
    }
    while (text.starts_with("> "))
        text.erase(0, 2);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

struct word_t
{
    std::string_view text;
    std::size_t gap; ///< blanks before it
};

std::vector<word_t> words_of(std::string_view text, std::string_view separators = " ")
{
    std::vector<word_t> words;
    while (true) {
        const std::size_t gap = std::min(text.find_first_not_of(separators), text.size());
        text.remove_prefix(gap);
        if (text.empty())
            return words;
        words.push_back({text.substr(0, text.find_first_of(separators)), gap});
        text.remove_prefix(words.back().text.size());
    }
}

// ---- rows ----

/// Takes the address from the front of a row's words.
void take_address(std::vector<word_t>& words, dump_row_t& row, bool& has_colon)
{
    std::string_view digits = words.front().text;
    has_colon = digits.ends_with(':');
    digits.remove_suffix(has_colon ? 1 : 0);
    const bool has_prefix = digits.starts_with("0x");
    digits.remove_prefix(has_prefix ? 2 : 0);
    if (!is_hexadecimal(digits))
        return;
    const std::string_view next = words.size() > 1 ? words[1].text : "";
    constexpr std::size_t most_digits = 8;
    constexpr std::size_t fewest_alone = 6;
    constexpr std::size_t undecided = 7; // hexdump, or od in decimal or octal
    const bool is_wider = digits.size() > 2 && digits.size() <= most_digits;
    if (has_colon ||
        (has_prefix ? digits.size() > 2 || is_hexadecimal(next)
                    : is_wider && (is_hexadecimal(next) || (next.empty() && digits.size() >= fewest_alone)))) {
        row.address = digits;
        row.is_hexadecimal = has_colon || has_prefix || digits.size() != undecided;
        words.erase(words.begin());
    }
}

/// What may be two digits of a byte: without 0x and the comma behind it.
std::string_view digits_of(const word_t& word)
{
    std::string_view digits = word.text;
    digits.remove_suffix(digits.ends_with(',') ? 1 : 0);
    digits.remove_prefix(digits.starts_with("0x") ? 2 : 0);
    return digits;
}

bool is_pair(const word_t& word)
{
    return word.text.size() == 2 && is_hexadecimal(word.text);
}

/// How many words of a row are bytes. Text follows a mark, or a wider gap than there is between bytes; two blanks after
/// eight bytes that eight others follow are no such gap.
std::size_t count_groups(const std::vector<word_t>& words, bool has_mark)
{
    if (has_mark && std::ranges::all_of(words, is_pair))
        return words.size();
    constexpr std::size_t widest = 4;
    constexpr std::size_t half = usual_width / 2;
    std::size_t gap = 1;
    if (words.size() > 1 && words[0].text.size() == words[1].text.size() && words[1].gap <= widest)
        gap = words[1].gap;
    for (std::size_t at = 1; at < words.size(); ++at) {
        const auto here = words.begin() + static_cast<std::ptrdiff_t>(at);
        if (words[at].gap > gap &&
            !(at == half && words.size() >= usual_width && std::all_of(here, here + half, is_pair)))
            return at;
    }
    return words.size();
}

/// A line of bytes; nothing when it is none.
std::optional<dump_row_t> read_row(std::string_view text, std::size_t line)
{
    dump_row_t row;
    row.line = line;
    row.text = text;
    std::vector<word_t> words = words_of(text);
    if (words.size() > 1 && (words[0].text == "Address" || words[0].text == "eeprom:") && words[1].text.ends_with(':'))
        words.erase(words.begin());
    const auto mark =
        std::ranges::find_if(words, [](const word_t& word) { return word.text.find_first_of("|>#") == 0; });
    const bool has_mark = mark != words.end();
    words.erase(mark, words.end());
    if (words.empty())
        return std::nullopt;
    bool has_colon = false;
    take_address(words, row, has_colon);
    const bool has_address = !row.address.empty();
    if (has_address)
        words.resize(count_groups(words, has_mark));
    else if (!std::ranges::all_of(words, [](const word_t& word) { return is_hexadecimal(digits_of(word)); }))
        return std::nullopt;
    std::size_t width = 0; // digits of the first group
    for (const word_t& word : words) {
        if (has_address && !row.bytes.empty() && (word.text == "." || word.text == "-")) // they only group
            continue;
        std::string_view digits = digits_of(word);
        width = width == 0 ? digits.size() : width;
        const bool is_hex = is_hexadecimal(digits);
        const bool is_sure = digits.size() == 2 ? width <= 4
                             : has_address      ? width == 4 && has_colon && digits.size() == 4
                                                : (words.size() == 1 || width > 8) && digits.size() % 2 == 0;
        if (!is_hex || !is_sure) {
            if (has_address && row.bytes.size() >= usual_width) // it is text
                break;
            throw dump_error{line, "expected two hexadecimal digits, not " + in_quotes(word.text) +
                                       (is_hex && digits.size() > 2
                                            ? ", as other groups may be swapped or no bytes: make the dump with "
                                              "hexdump -C, xxd or od -A x -t x1"
                                            : "")};
        }
        for (; !digits.empty(); digits.remove_prefix(2))
            row.bytes.push_back(static_cast<std::uint8_t>(*number_of(digits.substr(0, 2), 16)));
    }
    return row;
}

// ---- headings ----

/// What a word of a heading says of the device: its address, that of its writing with 8 bits, or its name.
constexpr struct
{
    std::string_view word;
    std::uint8_t device;
} devices[] = {
    {"0x50", module_device},      {"50h", module_device},       {"a0", module_device},       {"0xa0", module_device},
    {"a0h", module_device},       {"0x51", diagnostics_device}, {"51h", diagnostics_device}, {"a2", diagnostics_device},
    {"0xa2", diagnostics_device}, {"a2h", diagnostics_device},
};

std::uint8_t read_device(std::string_view word, std::size_t line)
{
    const unsigned device = number_of(word, 10).value_or(0);
    if (device != module_device && device != diagnostics_device)
        throw dump_error{line, "expected a module's address, 0x50 or 0x51, not " + in_quotes(word)};
    return static_cast<std::uint8_t>(device);
}

std::uint8_t read_byte(std::string_view word, std::size_t line)
{
    const auto number = number_of(word, 10);
    if (number.value_or(UINT8_MAX + 1U) > UINT8_MAX)
        throw dump_error{line, "expected a number of a page, a bank or a byte, not " + in_quotes(word)};
    return static_cast<std::uint8_t>(*number);
}

/// The page of a heading: "11h", "0x11", or a number that is the same in decimal and hexadecimal.
std::optional<std::uint8_t> read_page(std::string_view word, std::size_t line)
{
    const bool has_h = word.ends_with('h');
    word.remove_suffix(has_h ? 1 : 0);
    const auto page = number_of(word, 16);
    if (!page || *page > UINT8_MAX)
        return std::nullopt;
    if (!has_h && !word.starts_with("0x") && *page > 9)
        throw dump_error{line, "expected a page such as 11h or 0x11, as \"" + std::string{word} + "\" may be either"};
    return static_cast<std::uint8_t>(*page);
}

/// The label of a line such as "Upper page 11h", "A2h dump (lower 128 bytes)" or "2-wire device address 0x50".
std::optional<dump_label_t> read_heading(std::string_view text, std::size_t line)
{
    std::string lower_case{text};
    for (char& c : lower_case)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    dump_label_t label;
    bool is_heading = false;
    const std::vector<word_t> words = words_of(lower_case, " ():,=-");
    for (std::size_t at = 0; at < words.size(); ++at) {
        const std::string_view word = words[at].text;
        const std::string_view next = at + 1 < words.size() ? words[at + 1].text : "";
        const auto* const device =
            std::ranges::find_if(devices, [word](const auto& candidate) { return candidate.word == word; });
        if (device != std::end(devices))
            label.device = device->device;
        if (word == "lower" || word == "low" || word == "upper")
            label.is_upper = word == "upper";
        if (word == "page" && !label.page)
            label.page = read_page(next, line);
        if (word == "bank")
            label.bank = static_cast<std::uint8_t>(std::min(number_of(next, 10).value_or(0), 255U));
        is_heading = is_heading || word == "page" || word == "dump" || word == "device" || word == "address";
    }
    return is_heading && (label.device || label.is_upper || label.page) ? std::optional{label} : std::nullopt;
}

/// What "ethtool -m DEVICE ..." prints. Its numbers are decimal unless they begin with 0x.
dump_label_t read_ethtool(const std::vector<word_t>& words, std::size_t line)
{
    dump_label_t label;
    bool is_raw = false;
    bool is_window = false;
    std::optional<unsigned> offset;
    std::optional<unsigned> length;
    for (std::size_t at = 0; at + 1 < words.size(); ++at) {
        const std::string_view name = words[at].text;
        const std::string_view value = words[at + 1].text;
        is_raw = is_raw || (name == "raw" && value == "on");
        is_window = is_window || name == "page" || name == "bank" || name == "i2c";
        if (name == "page")
            label.page = read_byte(value, line);
        else if (name == "bank")
            label.bank = read_byte(value, line);
        else if (name == "i2c")
            label.device = read_device(value, line);
        else if (name == "offset")
            offset = number_of(value, 10);
        else if (name == "length")
            length = number_of(value, 10);
    }
    // Beyond a window only older programs go, which print one flat block.
    if (!is_window && !(length && offset.value_or(0) < window && *length <= window - offset.value_or(0)))
        return {};
    label.device = label.device.value_or(module_device);
    label.page = label.page.value_or(std::uint8_t{0});
    if (is_raw)
        label.start = std::min(offset.value_or(*label.page == 0 ? 0 : block_size), window);
    return label;
}

/// What "i2cdump [-r RANGE] [-y] BUS ADDRESS [MODE]" prints.
dump_label_t read_i2cdump(const std::vector<word_t>& words, std::size_t line)
{
    std::vector<std::string_view> arguments;
    for (std::size_t at = 0; at < words.size(); ++at) {
        if (!words[at].text.starts_with('-'))
            arguments.push_back(words[at].text);
        else if (words[at].text.ends_with('r'))
            ++at;
    }
    dump_label_t label;
    if (arguments.size() > 1)
        label.device = read_device(arguments[1], line);
    if (arguments.size() > 2 && (arguments[2] == "w" || arguments[2] == "s"))
        throw dump_error{line, "expected another mode of i2cdump than " + in_quotes(arguments[2]) +
                                   ", in which bytes overlap or are missing: make the dump with mode b"};
    return label;
}

dump_label_t read_other_program(const std::vector<word_t>&, std::size_t)
{
    return {};
}

constexpr struct
{
    std::string_view name;
    dump_label_t (*read)(const std::vector<word_t>&, std::size_t);
} programs[] = {
    {"ethtool", read_ethtool},       {"i2cdump", read_i2cdump},   {"sfputil", read_other_program},
    {"hexdump", read_other_program}, {"hd", read_other_program},  {"xxd", read_other_program},
    {"od", read_other_program},      {"cat", read_other_program}, {"i2ctransfer", read_other_program},
};

/// The label of what a command line prints; nothing when it is none that prints dumps.
std::optional<dump_label_t> read_command(std::string_view text, std::size_t line)
{
    const std::vector<word_t> words = words_of(text);
    for (auto word = words.begin(); word != words.end(); ++word) {
        const std::string_view name = word->text.substr(word->text.rfind('/') + 1);
        const auto* const program =
            std::ranges::find_if(programs, [name](const auto& candidate) { return candidate.name == name; });
        if (program != std::end(programs))
            return program->read({word + 1, words.end()}, line);
    }
    return std::nullopt;
}

// ---- blocks ----

/// Takes one line after the other.
class block_reader
{
public:
    void read_line(const std::string& text, std::size_t line)
    {
        for (const auto& row : refused)
            if (text.find(row.text) != std::string::npos)
                throw dump_error{line, "expected " + std::string{row.what}};
        if (text.empty() || text.find_first_not_of(" -") == std::string::npos)
            return;
        const std::string_view trimmed = std::string_view{text}.substr(text.find_first_not_of(' '));
        constexpr std::string_view port = "EEPROM hexdump for port "; // sfputil
        if (trimmed == "*") {
            if (block_.rows.empty() || block_.rows.back().address.empty())
                throw dump_error{line, "expected a line with an address before \"*\", which says how often it repeats"};
            block_.star = line;
        } else if (trimmed.starts_with("Offset ") || trimmed.starts_with("Addr ")) {
            begin_unless_new();
        } else if (trimmed.starts_with("0  1  2  3 ")) {
            begin_unless_new();
            block_.tells_page = true;
        } else if (trimmed.starts_with(port)) {
            begin({});
            check_port(std::string{words_of(trimmed.substr(port.size())).front().text}, line);
        } else if (auto row = read_row(text, line)) {
            if (trimmed.starts_with("eeprom:")) {
                begin({});
                block_.is_two_devices = true;
            }
            add(std::move(*row));
        } else if (const auto command = read_command(text, line)) {
            begin(*command);
        } else if (const auto heading = read_heading(text, line)) {
            begin(*heading);
        } else if (!trimmed.starts_with('#') && !block_.noise) {
            block_.noise = dump_noise_t{line, std::string{trimmed}};
            if (!first_noise_)
                first_noise_ = block_.noise;
        }
    }

    std::vector<dump_block_t> end()
    {
        begin({});
        if (blocks_.empty() && first_noise_)
            throw dump_error{first_noise_->line, "expected bytes of a module's memory, not " +
                                                     in_quotes(first_noise_->text) +
                                                     ": make a dump with \"ethtool -m DEVICE hex on\" or hexdump -C"};
        if (blocks_.empty())
            throw dump_error{0, "expected a dump of a module's memory, but there is no byte in it"};
        return std::move(blocks_);
    }

private:
    void begin(const dump_label_t& label)
    {
        if (!block_.rows.empty())
            blocks_.push_back(std::move(block_));
        block_ = {};
        block_.label = label;
    }

    void begin_unless_new()
    {
        if (!block_.rows.empty())
            begin({});
    }

    void check_port(const std::string& port, std::size_t line)
    {
        if (!port_.empty() && port != port_)
            throw dump_error{line, "expected one module, but that of " + in_quotes(port) + " comes after that of " +
                                       in_quotes(port_) + ": make a dump of one port with -p"};
        port_ = port;
    }

    void add(dump_row_t row)
    {
        const bool is_first = block_.rows.empty();
        const bool has_addresses = !is_first && !block_.rows.back().address.empty();
        // A few digits alone are where the dump ends, or bytes where lines have no address.
        if (!has_addresses && row.bytes.empty() && row.text.find_first_of(":x") == std::string::npos) {
            for (std::string_view digits = row.address; digits.size() > 1; digits.remove_prefix(2))
                row.bytes.push_back(static_cast<std::uint8_t>(*number_of(digits.substr(0, 2), 16)));
            if (row.address.size() % 2 != 0)
                throw dump_error{row.line, "expected pairs of hexadecimal digits, not " + in_quotes(row.text)};
            row.address.clear();
        }
        if (!is_first && has_addresses == row.address.empty())
            throw dump_error{row.line, std::string{has_addresses ? "expected an address before the bytes, not "
                                                                 : "expected bytes without an address, not "} +
                                           in_quotes(row.text)};
        row.repeats = block_.star != 0;
        row.noise = std::exchange(block_.noise, {});
        block_.star = 0;
        block_.rows.push_back(std::move(row));
    }

    std::vector<dump_block_t> blocks_;
    dump_block_t block_;
    std::optional<dump_noise_t> first_noise_;
    std::string port_; ///< of sfputil
};

} // namespace

std::optional<unsigned> number_of(std::string_view text, int base)
{
    if (text.starts_with("0x")) {
        text.remove_prefix(2);
        base = 16;
    }
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional{value} : std::nullopt;
}

std::string in_quotes(std::string_view text)
{
    constexpr std::size_t longest = 40;
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return '"' + std::string{text.substr(0, longest)} + (text.size() > longest ? "...\"" : "\"");
}

std::vector<dump_block_t> dump_blocks(std::string_view text)
{
    block_reader reader;
    for (std::size_t line = 1; !text.empty(); ++line) {
        reader.read_line(cleaned(text.substr(0, text.find('\n'))), line);
        text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
    }
    return reader.end();
}

} // namespace ivra::virtual_platform
