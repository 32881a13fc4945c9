#include "utils.h"

#include "accelerator_info.h"
#include "output/output.h"
#include "text/text.h"
#include "text/text_stream.h"

#include <ivra/log.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <new>
#include <stdexcept>
#include <vector>

namespace ivra::bsp {

namespace stats {
const stat_t name{"Name", "", color::normal};
const stat_t id{"ID", "", color::normal};
const stat_t board_model{"Board model", "", color::normal};
const stat_t board_base_mac{"Board base MAC", "", color::normal};
const stat_t board_serial{"Board serial", "", color::normal};
} // namespace stats

namespace {

void set_error(stat_t& stat)
{
    stat.value = "Error";
    stat.color = color::red;
}

std::optional<std::string> get_selector(const argos::ParsedArguments& args)
{
    if (args.has("--accelerator"))
        return args.value("--accelerator").as_string("");
    if (const char* variable = std::getenv("IVRA_BSP_ACCELERATOR"); variable != nullptr)
        return variable;
    return std::nullopt;
}

std::string to_text(const v6::mac_address& address)
{
    text_stream stream;
    stream << address;
    return stream.str();
}

} // namespace

std::optional<hw::accelerator_descriptor> get_accelerator(const argos::ParsedArguments& args)
{
    const std::vector<hw::accelerator_descriptor> accelerators = hw::enumerate_accelerators();
    if (accelerators.empty()) {
        output::get().error("No accelerator found");
        return std::nullopt;
    }

    const std::optional<std::string> selector = get_selector(args);
    if (!selector) {
        if (accelerators.size() > 1)
            output::get().log("Auto-selected first accelerator");
        return accelerators.front();
    }

    hw::accelerator_filter filter;
    if (const std::optional<std::uint32_t> index = to_index(*selector))
        filter.set_index(*index);
    else
        filter.set_name(*selector);
    const std::vector<hw::accelerator_descriptor> selected = hw::enumerate_accelerators(filter);
    if (selected.empty()) {
        output::get().error("No such accelerator: " + *selector);
        return std::nullopt;
    }
    return selected.front();
}

void list_boards()
{
    section::list list{"accelerators", 0, {}};
    std::size_t index = 0;
    for (const hw::accelerator_descriptor& descriptor : hw::enumerate_accelerators())
        list_add_board(list, descriptor, index++);

    output& out = output::get();
    if (out.is_json())
        out.print_json_list(list);
    else
        out.print_out_content(list.entries, list.level);
}

void list_add_board(section::list& list, const hw::accelerator_descriptor& descriptor, std::size_t index)
{
    std::string name = "Accelerator " + std::to_string(index);
    stat_t id = stats::id;
    stat_t board_model = stats::board_model;
    stat_t board_base_mac = stats::board_base_mac;
    stat_t board_serial = stats::board_serial;

    try {
        const accelerator_info info{descriptor};
        name = info.name();
        // Deliberate: a listing shows 16 bits of the index.
        id.set_value(std::to_string(static_cast<std::uint16_t>(info.id())));
        board_model.set_value(info.board_model());
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        ivra_log_log(IVRA_LOG_ERROR, __FILE__, __LINE__, __func__, "Error retrieving info for accelerator %zu: %s",
                     index, error.what());
        set_error(id);
        set_error(board_model);
    }

    try {
        board::board board{descriptor};
        board_base_mac.set_value(to_text(board.get_mac_addresses().at(0)));
        board_serial = get_board_serial_stat(board, name);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        ivra_log_log(IVRA_LOG_ERROR, __FILE__, __LINE__, __func__,
                     "Error retrieving board info for accelerator %zu: %s", index, error.what());
        set_error(board_base_mac);
        set_error(board_serial);
    }

    list.add_section(name, "Name", 0)
        .add_stat(id)
        .add_stat(board_model)
        .add_stat(board_base_mac)
        .add_stat(board_serial);
}

stat_t get_board_serial_stat(board::board& board, const std::string& name)
{
    stat_t stat = stats::board_serial;
    try {
        stat.set_value(board.get_serial().value_or("Not available"));
    } catch (const std::runtime_error& error) {
        ivra_log_log(IVRA_LOG_ERROR, __FILE__, __LINE__, __func__, "Error retrieving serial for board %s: %s",
                     name.c_str(), error.what());
        set_error(stat);
    }
    return stat;
}

} // namespace ivra::bsp
