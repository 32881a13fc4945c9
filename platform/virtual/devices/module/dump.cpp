#include "dump.h"

#include "dump_lines.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <vector>

namespace ivra::virtual_platform {

namespace {

constexpr unsigned largest_memory = block_size * (1 + UINT8_MAX + 1); // a lower page and 256 upper ones
constexpr std::size_t largest_dump = 1U << 20U;

/// A byte of a dump, and where it stands.
struct cell_t
{
    unsigned address;
    std::uint8_t value;
    std::size_t line;
};

std::string hex(unsigned value, std::size_t digits = 2)
{
    std::string text;
    for (; value != 0 || text.size() < digits; value /= 16)
        text.insert(text.begin(), "0123456789abcdef"[value % 16]);
    return text;
}

std::string address_text(unsigned address)
{
    return "address 0x" + hex(address);
}

[[noreturn]] void expected(std::size_t line, const std::string& what)
{
    throw dump_error{line, "expected " + what};
}

// ---- from rows to bytes ----

/// The base of the addresses: where digits and marks do not tell it, the step from the first row to the second does.
int base_of(const std::vector<dump_row_t>& rows)
{
    if (rows.front().is_hexadecimal)
        return 16;
    for (const int base : {16, 10, 8}) {
        const auto first = number_of(rows.front().address, base);
        const auto second = rows.size() > 1 ? number_of(rows[1].address, base) : std::nullopt;
        if (first && second && *second == *first + rows.front().bytes.size())
            return base;
    }
    expected(rows.front().line, "addresses of which two in a row tell their base, not " + in_quotes(rows.front().text) +
                                    ": make the dump with hexdump -C, xxd or od -A x -t x1");
}

unsigned address_of(const dump_row_t& row, int base)
{
    const auto address = number_of(row.address, base);
    if (!address || *address > largest_memory)
        expected(row.line, "an address of at most 0x" + hex(largest_memory) + ", not " + in_quotes(row.address));
    return *address;
}

/// A line that broke off, was lost, or comes from elsewhere.
[[noreturn]] void misplaced(const dump_row_t& row, unsigned next, unsigned address)
{
    if (row.noise)
        expected(row.noise->line, "bytes of " + address_text(next) + ", not " + in_quotes(row.noise->text));
    const std::string hint =
        address < next ? ": a heading, or a file of its own, would have to say which page it is" : "";
    expected(row.line, address_text(next) + ", not 0x" + hex(address) + hint);
}

/// The bytes of rows that have addresses, which run upwards without a hole but for whole pages.
std::vector<cell_t> cells_with_addresses(const dump_block_t& block)
{
    const std::vector<dump_row_t>& rows = block.rows;
    if (block.star != 0)
        expected(block.star, "an address after \"*\", which says how often it repeats");
    const int base = base_of(rows);
    std::vector<cell_t> cells;
    std::span<const std::uint8_t> before;
    for (std::size_t at = 0; at < rows.size(); ++at) {
        const dump_row_t& row = rows[at];
        const unsigned address = address_of(row, base);
        unsigned next = cells.empty() ? address : cells.back().address + 1;
        // Text that looks like bytes may follow the 16th.
        if (before.size() > usual_width && address + before.size() == next + usual_width) {
            next = address;
            cells.resize(cells.size() - (before.size() - usual_width));
        }
        if (row.repeats && (before.empty() || address <= next || (address - next) % before.size() != 0))
            misplaced(row, next, address);
        for (; row.repeats && next < address; next += static_cast<unsigned>(before.size()))
            for (std::size_t byte = 0; byte < before.size(); ++byte)
                cells.push_back({next + static_cast<unsigned>(byte), before[byte], row.line});
        const bool skips_pages = address > next && address % block_size == 0 && next % block_size == 0 && !row.noise;
        if (address != next && !(skips_pages && !row.bytes.empty()))
            misplaced(row, next, address);
        before = row.bytes;
        const bool is_last_of_16 =
            at > 0 && at + 1 == rows.size() && address_of(rows[at - 1], base) + usual_width == address;
        if (is_last_of_16 && before.size() > usual_width)
            before = before.first(usual_width);
        if (before.size() > largest_memory - address)
            expected(row.line, "no more than 0x" + hex(largest_memory) + " bytes");
        for (std::size_t byte = 0; byte < before.size(); ++byte)
            cells.push_back({address + static_cast<unsigned>(byte), before[byte], row.line});
        if (before.empty() && at + 1 != rows.size())
            expected(row.line, "bytes after the address, not " + in_quotes(row.text));
    }
    return cells;
}

/// The same of rows that have none.
std::vector<cell_t> cells_without_addresses(const dump_block_t& block)
{
    std::vector<cell_t> cells;
    for (const dump_row_t& row : block.rows) {
        if (row.noise && !cells.empty())
            expected(row.noise->line, "bytes, not " + in_quotes(row.noise->text));
        if (row.bytes.size() > largest_memory - cells.size())
            expected(row.line, "no more than 0x" + hex(largest_memory) + " bytes");
        for (const std::uint8_t byte : row.bytes)
            cells.push_back({static_cast<unsigned>(cells.size()), byte, row.line});
    }
    return cells;
}

std::vector<cell_t> cells_of(const dump_block_t& block)
{
    const dump_row_t& first = block.rows.front();
    std::vector<cell_t> cells = first.address.empty() ? cells_without_addresses(block) : cells_with_addresses(block);
    if (cells.empty())
        expected(first.line, "bytes after the address, not " + in_quotes(first.text));
    if (block.noise && cells.size() % block_size != 0)
        expected(block.noise->line,
                 "bytes of " + address_text(cells.back().address + 1) + ", not " + in_quotes(block.noise->text));
    return cells;
}

// ---- from bytes to places ----

/// A byte of the block; nothing when it has none at the address.
std::optional<std::uint8_t> byte_at(std::span<const cell_t> cells, unsigned address)
{
    const auto cell = std::ranges::lower_bound(cells, address, {}, &cell_t::address);
    return cell != cells.end() && cell->address == address ? std::optional{cell->value} : std::nullopt;
}

/// Whether the upper half of a window is page 00h: it repeats the identifier, or has the right checksum.
bool is_page_0(std::span<const cell_t> cells, memory_map_t map)
{
    const unsigned checksum = map == memory_map_t::cmis ? 222 : 191;
    unsigned sum = 0;
    for (unsigned at = block_size; at < checksum; ++at)
        sum += byte_at(cells, at).value_or(0);
    return byte_at(cells, block_size) == byte_at(cells, 0) ||
           (sum != 0 && byte_at(cells, checksum) == static_cast<std::uint8_t>(sum));
}

const char* const page_expected =
    R"(a heading that says which page this is, or a rack that does: { "dump": FILE, "page": "11" })";

/// Puts the bytes of a file where they belong.
class placer
{
public:
    explicit placer(const dump_hint_t& hint) : hint_{hint} {}

    void place(const dump_block_t& block, const std::vector<cell_t>& cells)
    {
        dump_label_t label = with_hint(block, cells);
        const unsigned start = label.start.value_or(0);
        if (start + cells.back().address >= window && label != dump_label_t{})
            expected(cells.back().line, "addresses up to 0xff, as the bytes are said to be of one page");
        const memory_map_t map = map_of_block(label, cells);
        const bool is_sfp = map == memory_map_t::sfp;
        if (cells.back().address + start >= (is_sfp ? 2 * window : largest_memory))
            expected(cells.back().line, is_sfp ? "A0h and A2h alone, as of an SFP: at most 512 bytes"
                                               : "no more than 0x" + hex(largest_memory) + " bytes");
        if (!is_sfp && !label.page && label.is_upper != false && cells.back().address < window)
            find_page(block, cells, map, label);
        for (const cell_t& cell : cells)
            store(cell, place_of(block, label, cell, start + cell.address, is_sfp),
                  (start + cell.address) % block_size);
    }

    dump_t end(std::size_t last_line)
    {
        dump_t dump{{}, last_line};
        if (pages_.empty())
            expected(last_line, "bytes of the page that the rack names up to here");
        for (const auto& [place, page] : pages_) {
            std::size_t line = (*std::ranges::find_if(page, [](const auto& cell) { return cell.has_value(); }))->line;
            dump_page_t& whole = dump.pages[place];
            for (std::size_t at = 0; at < block_size; ++at) {
                if (!page.at(at))
                    missing(place, at, line);
                line = page.at(at)->line;
                whole.bytes.at(at) = page.at(at)->value;
            }
            whole.line = page.front()->line;
        }
        return dump;
    }

private:
    /// What was read of a page so far.
    using cells_t = std::array<std::optional<cell_t>, block_size>;

    [[noreturn]] static void missing(const dump_place_t& place, std::size_t at, std::size_t line)
    {
        expected(line, address_text(static_cast<unsigned>(at + (place.is_upper ? block_size : 0))) + " of " +
                           text_of(place) + (at == 0 ? " before" : " after") + " this, as pages have to be whole");
    }

    /// The label of a block, and what the hint adds to it.
    dump_label_t with_hint(const dump_block_t& block, const std::vector<cell_t>& cells) const
    {
        if (!hint_.label)
            return block.label;
        dump_label_t label = *hint_.label;
        const auto contradicts = [](const auto& one, const auto& other) { return one && other && *one != *other; };
        if (contradicts(label.device, block.label.device) || contradicts(label.page, block.label.page) ||
            contradicts(label.is_upper, block.label.is_upper))
            expected(block.rows.front().line, "bytes of the page that the rack names, but a heading names another one");
        label.bank = block.label.bank;
        label.start = block.label.start;
        const bool is_half = cells.size() == block_size;
        if (label.is_upper == true && is_half && cells.front().address == 0)
            label.start = block_size;
        return label;
    }

    /// The map of the module, which its first byte tells.
    memory_map_t map_of_block(const dump_label_t& label, const std::vector<cell_t>& cells)
    {
        if (label.device == diagnostics_device)
            return memory_map_t::sfp;
        const cell_t& first = cells.front();
        if (hint_.map) {
            map_ = hint_.map;
        } else if (first.address + label.start.value_or(0) == 0 && label.is_upper != true) {
            map_ = map_of(first.value);
            if (!map_)
                expected(first.line, "the identifier of a module at address 0, not 0x" + hex(first.value) +
                                         R"(: if it is a module's, the rack has to say its "map")");
        }
        return map_.value_or(memory_map_t::qsfp);
    }

    /// Finds out which page the upper half of a window is, when it is in it.
    static void find_page(const dump_block_t& block, const std::vector<cell_t>& cells, memory_map_t map,
                          dump_label_t& label)
    {
        if (cells.back().address < block_size)
            return;
        if (cells.front().address >= block_size)
            expected(cells.front().line, page_expected);
        constexpr unsigned bank_select = 126;
        constexpr unsigned page_select = 127;
        label.page = std::uint8_t{0};
        if (is_page_0(cells, map))
            return;
        const std::uint8_t page = byte_at(cells, page_select).value_or(std::uint8_t{0});
        if (!block.tells_page || page == 0)
            expected(std::ranges::lower_bound(cells, block_size, {}, &cell_t::address)->line, page_expected);
        label.page = page;
        label.bank =
            map == memory_map_t::cmis ? byte_at(cells, bank_select).value_or(std::uint8_t{0}) : std::uint8_t{0};
    }

    /// Nothing: the byte is not of the page that is to be taken.
    std::optional<dump_place_t> place_of(const dump_block_t& block, const dump_label_t& label, const cell_t& cell,
                                         unsigned address, bool is_sfp) const
    {
        dump_place_t place{label.device.value_or(module_device), address >= block_size};
        if (address < window) {
            if (label.is_upper && *label.is_upper != place.is_upper) {
                if (hint_.label)
                    return std::nullopt;
                expected(cell.line, *label.is_upper ? "addresses from 0x80 on, as of an upper page"
                                                    : "addresses below 0x80, as of a lower page");
            }
            if (!place.is_upper && label.page.value_or(0) != 0 && !block.tells_page)
                expected(cell.line, "addresses from 0x80 on, as of an upper page");
            if (is_sfp && block.is_two_devices && place.is_upper)
                return dump_place_t{diagnostics_device};
            if (place.is_upper)
                place = {place.device, true, label.bank, label.page.value_or(std::uint8_t{0})};
            return place;
        }
        if (is_sfp)
            return dump_place_t{diagnostics_device, address >= window + block_size};
        return dump_place_t{module_device, true, 0, static_cast<std::uint8_t>(address / block_size - 1)};
    }

    void store(const cell_t& cell, const std::optional<dump_place_t>& place, unsigned offset)
    {
        if (!place)
            return;
        std::optional<cell_t>& stored = pages_[*place].at(offset);
        constexpr unsigned bank_select = 126; // this and the next byte differ from one reading of all pages to the next
        const bool may_differ = !place->is_upper && offset >= bank_select;
        if (stored && stored->value != cell.value && !may_differ)
            expected(cell.line,
                     "byte " + std::to_string(offset + (place->is_upper ? block_size : 0U)) + " of " + text_of(*place) +
                         " as in line " + std::to_string(stored->line) +
                         ": another page or module needs a heading that says so, or a file of its own; of two"
                         " readings leave one");
        if (!stored)
            stored = cell;
    }

    const dump_hint_t& hint_;
    std::optional<memory_map_t> map_;
    std::map<dump_place_t, cells_t> pages_;
};

/// Whether bytes are no text: control characters, or what text never has.
bool is_binary(std::string_view file)
{
    constexpr std::size_t looked_at = 64;
    return std::ranges::any_of(file.substr(0, looked_at), [](char c) {
        return c == '\xff' || (static_cast<unsigned char>(c) < ' ' &&
                               std::string_view{"\t\n\r\a\x1b"}.find(c) == std::string_view::npos);
    });
}

} // namespace

std::string text_of(const dump_place_t& place)
{
    const std::string device = place.device == module_device ? "" : " of device 51h";
    if (!place.is_upper)
        return "the lower page" + device;
    return "page " + hex(place.page) + "h" + device + (place.bank == 0 ? "" : " of bank " + std::to_string(place.bank));
}

std::optional<memory_map_t> map_of(std::uint8_t identifier)
{
    struct row_t
    {
        std::uint8_t identifier;
        memory_map_t map;
    };
    using enum memory_map_t;
    static constexpr row_t rows[] = {
        {0x01, sfp},  {0x02, sfp},  {0x03, sfp},  {0x0b, sfp},  {0x0c, qsfp}, {0x0d, qsfp},
        {0x11, qsfp}, {0x18, cmis}, {0x19, cmis}, {0x1e, cmis}, {0x1f, cmis}, {0x20, cmis},
        {0x21, cmis}, {0x22, cmis}, {0x23, cmis}, {0x24, cmis}, {0x25, cmis},
    };
    const auto* const row = std::ranges::find(rows, identifier, &row_t::identifier);
    return row == std::end(rows) ? std::nullopt : std::optional{row->map};
}

dump_t read_dump(std::string_view file, const dump_hint_t& hint)
{
    placer pages{hint};
    if (file.starts_with("\xff\xfe") || file.starts_with("\xfe\xff"))
        expected(0, "a text of 8-bit characters, not of UTF-16: save it as UTF-8");
    if (is_binary(file)) {
        if (file.size() > largest_memory || file.size() % block_size != 0)
            expected(0, "a multiple of 128 bytes, at most " + std::to_string(largest_memory) + ", not " +
                            std::to_string(file.size()) + ", as it is no text");
        std::vector<cell_t> cells;
        for (const char c : file)
            cells.push_back({static_cast<unsigned>(cells.size()), static_cast<std::uint8_t>(c), 0});
        pages.place({}, cells);
        return pages.end(0);
    }
    if (file.size() > largest_dump)
        expected(0, "a text of at most 1 MiB");
    constexpr std::string_view byte_order_mark = "\xef\xbb\xbf";
    if (file.starts_with(byte_order_mark))
        file.remove_prefix(byte_order_mark.size());
    std::size_t last_line = 0;
    for (const dump_block_t& block : dump_blocks(file)) {
        const std::vector<cell_t> cells = cells_of(block);
        pages.place(block, cells);
        last_line = cells.back().line;
    }
    return pages.end(last_line);
}

} // namespace ivra::virtual_platform
