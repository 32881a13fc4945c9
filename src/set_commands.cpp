#include "set_commands.h"

#include "board/parameters.h"
#include "board_monitor.h"
#include "hw/signal_hold.h"
#include "output/output.h"
#include "utils.h"

#include <cstddef>
#include <exception>
#include <functional>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace ivra::bsp {

namespace {

/// A word of the command line and what it stands for.
template <class Value>
struct value_row_t
{
    std::string_view word;
    Value value;
};

// clang-format off
constexpr value_row_t<board::boot_image_t> boot_images[] = {
    {"primary", board::boot_image_t::primary},
    {"backup",  board::boot_image_t::backup},
};
constexpr value_row_t<board::transceiver_speed_t> speeds[] = {
    {"1G",  board::transceiver_speed_t::speed_1g},
    {"10G", board::transceiver_speed_t::speed_10g},
};
constexpr value_row_t<transceiver::qsfp_power_mode_t> power_modes[] = {
    {"high", transceiver::qsfp_power_mode_t::high},
    {"low",  transceiver::qsfp_power_mode_t::low},
};
// clang-format on

template <class Value, std::size_t count>
Value find(const value_row_t<Value> (&rows)[count], std::string_view word, const std::string& failure)
{
    for (const value_row_t<Value>& row : rows)
        if (row.word == word)
            return row.value;
    throw std::runtime_error{failure};
}

/// What a command does to a board, and how it speaks of it.
struct change_t
{
    std::function<std::string(board_monitor&)> announcement;
    std::function<void(board_monitor&)> action;
    std::string failure_prefix;
};

std::string message_of(const std::exception& error)
{
    const auto* field = dynamic_cast<const board::unexpected_field*>(&error);
    return field != nullptr ? field->message() : error.what();
}

/// Makes a change to the selected board; returns the failure's text. The board is closed then.
std::optional<std::string> attempt(const hw::accelerator_descriptor& accelerator, const change_t& change)
{
    board_monitor monitor{accelerator};
    std::optional<std::string> failure;
    // Deliberate: what the platform logs meanwhile completes this line, and the outcome then comes alone.
    output::get().log_part(change.announcement(monitor));
    try {
        change.action(monitor);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        failure = change.failure_prefix + message_of(error);
    }
    if (failure)
        output::get().log("fail", color::red);
    else
        output::get().log("success", color::green);
    return failure;
}

void run(const board_monitor_p::Args& args, const change_t& change)
{
    std::optional<hw::accelerator_descriptor> accelerator = get_accelerator(args.args);
    if (!accelerator)
        output::get().exit(false);
    const std::optional<std::string> failure = attempt(*accelerator, change);
    accelerator.reset();
    if (failure)
        output::get().exit(false, failure);
}

void write_parameters(board::board& board)
{
    const std::optional<board::mac_addresses_t> addresses = board.get_vendor_mac_addresses();
    if (!addresses)
        throw std::runtime_error{"No vendor MAC available for this board"};
    const auto record = board::encode_parameters(*addresses);
    const std::vector<const char*> sections = board.get_flash()
                                                  .get_sections_char(IVRA_FLASH_SECTION_PARAMS)
                                                  .access_value_or_throw("Could not get PARAMS sections from flash");
    if (sections.size() < 2)
        throw std::runtime_error{"Expected at least 2 PARAMS flash sections, got " + std::to_string(sections.size())};

    const hw::signal_hold hold; // the record and the addresses in use belong together
    if (const std::error_code error = board.get_flash().write_section(sections[1], 0, record))
        throw std::system_error{error, "Failed to setup board flash"};
    if (const std::error_code error = board.get_top().update_params())
        throw std::system_error{error, "Failed to reload board MACs"};
}

} // namespace

void set_boot_part(const board_monitor_p::Args& args)
{
    const std::string& value = args.parameter.second.front();
    run(args, {.announcement = [&](board_monitor&) { return "Setting boot image to " + value + "... "; },
               .action =
                   [&](board_monitor& monitor) {
                       monitor.get_board().set_boot_image(find(boot_images, value, "Unknown boot image to set"));
                   },
               .failure_prefix = "Boot image setting failure: "});
}

void set_transceiver_speed(const board_monitor_p::Args& args)
{
    run(args, {.announcement = [](board_monitor&) { return "Updating transceiver speed... "; },
               .action =
                   [&](board_monitor& monitor) {
                       std::vector<board::transceiver_speed_t> chosen;
                       for (const std::string& value : args.parameter.second)
                           chosen.push_back(find(speeds, value, "Invalid speed"));
                       monitor.get_board().set_transceiver_speeds(chosen);
                   },
               .failure_prefix = "Transceiver speed update failure: "});
}

void set_qsfp_low_power_mode(const board_monitor_p::Args& args)
{
    const std::string& value = args.parameter.second.front();
    run(args,
        {.announcement = [&](board_monitor&) { return "Setting all QSFP to " + value + " power mode... "; },
         .action =
             [&](board_monitor& monitor) {
                 monitor.get_board().set_qsfp_power_mode(find(power_modes, value, "Invalid QSFP power mode: " + value));
             },
         .failure_prefix = "QSFP power mode setting failure: "});
}

void setup_board(const board_monitor_p::Args& args)
{
    run(args, {// Deliberate: no space after the dots.
               .announcement = [](board_monitor& m) { return "Setting up board " + m.get_info().name() + "..."; },
               .action = [](board_monitor& monitor) { write_parameters(monitor.get_board()); },
               .failure_prefix = "Board setup failure: "});
}

} // namespace ivra::bsp
