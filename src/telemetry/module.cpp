#include "telemetry/module.h"

#include "telemetry/module_map.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace ivra::bsp::telemetry {

namespace {

constexpr place_t identifier_place{main_memory, 0, 0, 1};
constexpr std::uint8_t page_select = 127;
constexpr std::uint8_t nobody = 0xff; // drives the lines

std::string hexadecimal(unsigned byte)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    return {digits[byte >> 4 & 0xf], digits[byte & 0xf], 'h'};
}

std::string text_of(const place_t& place)
{
    const unsigned first = place.byte;
    std::string text = place.length == 1
                           ? "byte " + std::to_string(first)
                           : "bytes " + std::to_string(first) + " to " + std::to_string(first + place.length - 1);
    if (place.device == diagnostics_memory)
        text += " of A2h";
    else if (place.byte >= first_of_page)
        text += " of page " + hexadecimal(place.page);
    return text;
}

/// A transfer is of all its bytes, or failed.
std::error_code error_of(const hw::result<std::size_t>& transferred, std::size_t size)
{
    if (!transferred.has_value())
        return transferred.error();
    return transferred.value() == size ? std::error_code{} : std::error_code{EIO, std::generic_category()};
}

/// Reads places, on the pages that they are on.
class module_reader
{
public:
    explicit module_reader(v6::i2c::bus& bus) : bus_{bus} {}

    std::error_code transfer(const place_t& place, std::vector<std::uint8_t>& bytes)
    {
        bytes.resize(place.length);
        const std::error_code error =
            counted(error_of(bus_.read_register(place.device, place.byte, bytes.data(), bytes.size()), bytes.size()));
        if (error)
            bytes.clear();
        return error;
    }

    /// A module that fails several times in a row is not asked again.
    block_t read(const place_t& place, bool has_pages)
    {
        constexpr unsigned several = 3;
        block_t block{place, {}, {}};
        std::string failure = "Cannot read " + text_of(place) + ": ";
        if (failures_ >= several) {
            block.error = failure + "the module has failed " + std::to_string(several) + " times in a row";
            return block;
        }
        if (has_pages && place.byte >= first_of_page && !find_page(place.page, block.error))
            return block;
        const std::error_code error = transfer(place, block.bytes);
        if (error)
            block.error = failure + error.message();
        return block;
    }

    /// Selects the page that was selected at first. What fails is said.
    std::string restore()
    {
        std::string error;
        if (!is_changed_ || select(*before_, error))
            return {};
        return "The page that was selected before, " + hexadecimal(*before_) + ", is not selected again" +
               (error.empty() ? "" : ": " + error);
    }

private:
    std::error_code counted(const std::error_code& error)
    {
        failures_ = error ? failures_ + 1 : 0;
        return error;
    }

    std::error_code get_selected(std::optional<std::uint8_t>& page)
    {
        std::vector<std::uint8_t> bytes;
        const std::error_code error = transfer({main_memory, 0, page_select, 1}, bytes);
        page = error ? std::nullopt : std::optional{bytes[0]};
        return error;
    }

    /// Selects a page, unless that was tried in vain.
    bool find_page(std::uint8_t page, std::string& error)
    {
        if (const auto row = refused_.find(page); row != refused_.end()) {
            error = row->second;
            return false;
        }
        if (select(page, error))
            return true;
        refused_[page] = error;
        return false;
    }

    /// False with an error, or without one: the module does not have the page.
    bool select(std::uint8_t page, std::string& error)
    {
        const auto succeeds = [&](const std::error_code& code) {
            if (code)
                error = "Cannot select page " + hexadecimal(page) + ": " + code.message();
            return !code;
        };
        if (!before_) { // without it nothing could be selected again
            if (!succeeds(get_selected(before_)))
                return false;
            selected_ = before_;
        }
        if (selected_ == page)
            return true;
        is_changed_ = true;
        selected_.reset();
        return succeeds(counted(error_of(bus_.write_register(main_memory, page_select, &page, 1), 1))) &&
               succeeds(get_selected(selected_)) && selected_ == page;
    }

    v6::i2c::bus& bus_;
    std::optional<std::uint8_t> before_;
    std::optional<std::uint8_t> selected_;        ///< as far as it is known
    std::map<std::uint8_t, std::string> refused_; ///< pages, and the errors with which they were
    bool is_changed_ = false;
    unsigned failures_ = 0; ///< in a row
};

bool is_known(const memory_t& memory, const place_t& place)
{
    return std::ranges::any_of(memory, [&](const block_t& block) { return block.place == place; });
}

memory_t read_memory(module_reader& reader, const module_map_t& map)
{
    memory_t memory;
    for (bool is_complete = false; !is_complete;) {
        is_complete = true;
        for (const place_t& place : map.get_places(memory))
            if (!is_known(memory, place)) {
                memory.push_back(reader.read(place, map.has_pages(memory)));
                is_complete = false;
            }
    }
    return memory;
}

/// Limits are those of all lanes: what is odd about them is said of the first one.
void say_once(std::vector<lane_t>& lanes)
{
    if (lanes.empty())
        return;
    const lane_t first = lanes.front();
    const auto drop = [](std::vector<std::string>& findings, const std::vector<std::string>& said) {
        std::erase_if(findings, [&](const std::string& finding) { return std::ranges::count(said, finding) != 0; });
    };
    for (auto lane = lanes.begin() + 1; lane != lanes.end(); ++lane) {
        drop(lane->rx_power.findings, first.rx_power.findings);
        drop(lane->tx_power.findings, first.tx_power.findings);
        drop(lane->tx_bias.findings, first.tx_bias.findings);
    }
}

/// What failed becomes the state of the module.
void judge(const memory_t& memory, module_t& module)
{
    const auto fail = [&](const std::string& error) {
        if (error.empty() || module.state == module_state_t::failed)
            return;
        module.state = module_state_t::failed;
        module.error = error;
    };
    for (const block_t& block : memory)
        fail(block.error);
    for (const reading_t& reading : module.monitors)
        fail(reading.error);
    for (lane_t& lane : module.lanes)
        for (const reading_t* reading : readings_of(lane))
            fail(reading->error);
}

} // namespace

module_t decode_module(std::uint8_t identifier, const memory_t& memory)
{
    module_t module;
    module.identifier = identifier;
    const module_map_t* map = find_module_map(identifier);
    if (map == nullptr) {
        module.state = module_state_t::unsupported;
        return module;
    }
    memory_t true_memory = memory;
    drop_repeated_pages(true_memory);
    map->decode(true_memory, module);
    say_once(module.lanes);
    judge(memory, module);
    return module;
}

module_t read_module(v6::i2c::bus& bus)
{
    module_t module;
    module_reader reader{bus};
    std::vector<std::uint8_t> identifier;
    if (const std::error_code error = reader.transfer(identifier_place, identifier)) {
        module.state = v6::i2c::is_no_answer(error) ? module_state_t::empty : module_state_t::failed;
        if (module.state == module_state_t::failed)
            module.error = "Cannot read " + text_of(identifier_place) + ": " + error.message();
        return module;
    }
    if (identifier[0] == nobody) {
        module.state = module_state_t::empty;
        return module;
    }
    const module_map_t* map = find_module_map(identifier[0]);
    const memory_t memory = map == nullptr ? memory_t{} : read_memory(reader, *map);
    const std::string failure = reader.restore();
    module = decode_module(identifier[0], memory);
    if (!failure.empty())
        module.findings.push_back(failure);
    return module;
}

} // namespace ivra::bsp::telemetry
