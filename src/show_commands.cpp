#include "show_commands.h"

#include "output/output.h"

namespace ivra::bsp {

namespace {

void print_section(const section& s)
{
    output& out = output::get();
    if (out.is_json()) {
        out.print_json_section(s);
    } else {
        out.print_line(s.name, color::bold, s.level);
        out.print_out_content(s.entries, s.level);
    }
}

} // namespace

void show_board_info(board_monitor& monitor)
{
    print_section(monitor.get_board_info());
}

void show_flash_info(board_monitor& monitor)
{
    print_section(monitor.get_flash_info());
}

} // namespace ivra::bsp
