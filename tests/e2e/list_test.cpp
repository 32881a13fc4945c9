#include "screens.h"
#include "support/rack.h"

#include <gtest/gtest.h>

namespace ivra::tests {
namespace {

const std::string no_mmio = "vector::_M_range_check: __n (which is 0) >= this->size() (which is 0)";

TEST(list, shows_every_accelerator_in_the_order_of_the_host)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48e_emu_xcvu9p").host({.serial = "SSJ17200123\n", .address = {}});
    EXPECT_EQ(rack.run("list"), says("card-0\n"
                                     "\tID            : 0\n"
                                     "\tBoard model   : m48l_xcvu7p\n"
                                     "\tBoard base MAC: 02:00:00:00:00:00\n"
                                     "\tBoard serial  : SSJ17200123\n"
                                     "card-1\n"
                                     "\tID            : 1\n"
                                     "\tBoard model   : m48e_emu_xcvu9p\n"
                                     "\tBoard base MAC: 02:00:00:00:01:00\n"
                                     "\tBoard serial  : SSJ17200123\n"));
}

TEST(list, is_one_json_array_whose_items_begin_with_their_name)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48lb_xcvu9p").host({.serial = "SSJ17200123\n", .address = {}});
    EXPECT_EQ(rack.run("list --json"), says(R"({"data":{"accelerators":[)"
                                            R"({"Name":"card-0","ID":"0","Board model":"m48l_xcvu7p",)"
                                            R"("Board base MAC":"02:00:00:00:00:00","Board serial":"SSJ17200123"},)"
                                            R"({"Name":"card-1","ID":"1","Board model":"m48lb_xcvu9p",)"
                                            R"("Board base MAC":"02:00:00:00:01:00","Board serial":"SSJ17200123"}]},)"
                                            R"("status":{"success":true},"log":[]})"
                                            "\n"));
}

TEST(list, of_a_host_without_accelerators_is_empty_and_no_error)
{
    rack_t rack;
    EXPECT_EQ(rack.run("list"), says(""));
    EXPECT_EQ(rack.run("list --json").out, R"({"data":{"accelerators":[]},"status":{"success":true},"log":[]})"
                                           "\n");
}

TEST(list, shows_an_unreadable_accelerator_as_errors_and_goes_on)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"open", "\"EACCES\""}}).plug("m48l_xcvu7p").host({.serial = "S1", .address = {}});
    const run_t run = rack.run("list");
    EXPECT_EQ(run.out, listed("Accelerator 0", "Error", "Error", "Error", "Error") +
                           listed("card-1", "1", "m48l_xcvu7p", "02:00:00:00:01:00", "S1"));
    EXPECT_EQ(run.err, "list_add_board: Error retrieving info for accelerator 0: Permission denied\n"
                       "list_add_board: Error retrieving board info for accelerator 0: Permission denied\n");
    EXPECT_EQ(run.status, 0);
}

TEST(list, records_what_went_wrong_in_the_json_log)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"open", "\"ENODEV\""}});
    const run_t run = rack.run("list --json");
    EXPECT_EQ(run.out, R"({"data":{"accelerators":[{"Name":"Accelerator 0","ID":"Error","Board model":"Error",)"
                       R"("Board base MAC":"Error","Board serial":"Error"}]},"status":{"success":true},"log":[)"
                       R"({"type":"error","message":"list_add_board: Error retrieving info for accelerator 0: )"
                       R"(No such device"},)"
                       R"({"type":"error","message":"list_add_board: Error retrieving board info for accelerator 0: )"
                       R"(No such device"}]})"
                       "\n");
    EXPECT_EQ(run.status, 0);
}

TEST(list, colours_names_and_errors_on_a_terminal)
{
    struct row_t
    {
        const char* environment;
        const char* red;
    };
    constexpr row_t rows[] = {
        {"TERM=xterm", "\033[31m"},
        {"TERM=xterm-256color", "\033[38;5;175m"},
        {"COLORTERM=truecolor", "\033[38;2;204;121;167m"},
    };
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("m48l_xcvu7p", {{"open", "\"EACCES\""}}).environment(row.environment);
        const run_t run = rack.run("list", {stream_t::terminal, stream_t::terminal});
        const std::string error = std::string{row.red} + "Error\033[0m\033[0m\n";
        EXPECT_EQ(run.out, "\033[1mAccelerator 0\033[0m\n"
                           "\t\033[0mID            : " +
                               error + "\t\033[0mBoard model   : " + error + "\t\033[0mBoard base MAC: " + error +
                               "\t\033[0mBoard serial  : " + error);
        EXPECT_EQ(run.err, std::string{row.red} +
                               "list_add_board: Error retrieving info for accelerator 0: Permission denied\033[0m\n" +
                               row.red +
                               "list_add_board: Error retrieving board info for accelerator 0: Permission denied"
                               "\033[0m\n");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(list, calls_an_accelerator_without_a_name_by_its_index)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p", {{"name", "null"}}).host({.serial = "S1", .address = {}});
    EXPECT_EQ(rack.run("list").out, listed("card-0", "0", "m48l_xcvu7p", "02:00:00:00:00:00", "S1") +
                                        listed("board-1", "1", "m48l_xcvu7p", "02:00:00:00:01:00", "S1"));
}

TEST(list, shows_a_board_whose_serial_is_unknown_as_not_available)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p");
    const run_t run = rack.run("list", {stream_t::terminal, stream_t::terminal});
    EXPECT_EQ(run.out, "\033[0mget_serial: Could not get serial of this switch\033[0m\n"
                       "\033[1mcard-0\033[0m\n"
                       "\t\033[0mID            : \033[0m0\033[0m\033[0m\n"
                       "\t\033[0mBoard model   : \033[0mm48l_xcvu7p\033[0m\033[0m\n"
                       "\t\033[0mBoard base MAC: \033[0m02:00:00:00:00:00\033[0m\033[0m\n"
                       "\t\033[0mBoard serial  : \033[0mNot available\033[0m\033[0m\n");
    EXPECT_EQ(run.err, "");
}

TEST(list, of_an_accelerator_without_mmio_space_shows_errors)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"mmios", "0"}});
    const run_t run = rack.run("list");
    EXPECT_EQ(run.out, listed("Accelerator 0", "Error", "Error", "Error", "Error"));
    EXPECT_EQ(run.err, "list_add_board: Error retrieving info for accelerator 0: " + no_mmio +
                           "\nlist_add_board: Error retrieving board info for accelerator 0: " + no_mmio + "\n");
    EXPECT_EQ(run.status, 0);
}

TEST(list, of_an_unknown_model_names_it_and_shows_what_it_can)
{
    for (const std::string model : {"unknown_model", "Xilinx_U50", "xilinx_u5", "xilinx_u500"}) {
        rack_t rack;
        rack.plug(model);
        const run_t run = rack.run("list");
        EXPECT_EQ(run.out, listed("card-0", "0", model, "Error", "Error"));
        EXPECT_EQ(run.err, "list_add_board: Error retrieving board info for accelerator 0: "
                           "Unsupported board model: '" +
                               model + "'\n");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(list, of_a_design_without_mac_addresses_shows_errors_for_address_and_serial)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"mac_addresses", "[]"}}).host({.serial = "S1", .address = {}});
    const run_t run = rack.run("list");
    EXPECT_EQ(run.out, listed("card-0", "0", "m48l_xcvu7p", "Error", "Error"));
    EXPECT_EQ(run.err, "list_add_board: Error retrieving board info for accelerator 0: " + no_mmio + "\n");
}

TEST(list, keeps_a_name_that_was_read_before_the_id_failed)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host({.serial = "S1", .address = {}});
    rack.faults(R"({"call": "ivra_hw_prop_get_index", "errno": "EIO"})");
    const run_t run = rack.run("list");
    EXPECT_EQ(run.out, listed("card-0", "Error", "Error", "02:00:00:00:00:00", "S1"));
    EXPECT_EQ(run.err, "list_add_board: Error retrieving info for accelerator 0: Could not get accelerator ID: "
                       "Input/output error\n");
}

TEST(list, shows_id_and_model_as_errors_when_the_model_cannot_be_read)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p");
    rack.faults(R"({"call": "ivra_hw_top_get_board_name", "errno": "EIO"})");
    const run_t run = rack.run("list");
    EXPECT_EQ(run.out, listed("card-0", "Error", "Error", "Error", "Error"));
    EXPECT_EQ(run.err, "list_add_board: Error retrieving info for accelerator 0: Could not get accelerator model: "
                       "Input/output error\n"
                       "list_add_board: Error retrieving board info for accelerator 0: Input/output error\n");
}

TEST(list, shows_the_low_16_bits_of_an_index)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host({.serial = "S1", .address = {}});
    rack.faults(R"({"call": "ivra_hw_prop_get_index", "garble": "02000100"})"); // 0 becomes 65538
    EXPECT_EQ(rack.run("list").out, listed("card-0", "2", "m48l_xcvu7p", "02:00:00:00:00:00", "S1"));
    EXPECT_NE(rack.run("show info").out.find("\tID           : 65538\n"), std::string::npos) << "show info has all 32";
}

TEST(list, calls_an_accelerator_that_has_neither_name_nor_index_unknown)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host({.serial = "S1", .address = {}});
    rack.faults(
        R"({"call": "ivra_hw_prop_get_index", "errno": "EIO"}, {"call": "ivra_hw_prop_get_name", "errno": "EIO"})");
    EXPECT_EQ(rack.run("list").out, listed("(Unknown)", "Error", "Error", "02:00:00:00:00:00", "S1"));
}

TEST(list, of_accelerators_that_cannot_be_enumerated_is_empty)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p");
    rack.faults(R"({"call": "ivra_hw_enumerate_all_accelerators", "errno": "EIO"})");
    const run_t run = rack.run("list");
    EXPECT_EQ(run.out + run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(list, fails_when_the_platform_describes_fewer_accelerators_than_it_counts)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p");
    rack.faults(R"({"call": "ivra_hw_count_accelerators", "count": 2})");
    EXPECT_EQ(rack.run("list"), fails("Invalid argument\n"));
}

TEST(list, does_not_look_at_words_left_over)
{
    rack_t rack;
    const run_t run = rack.run("list --colour extra -x");
    EXPECT_EQ(run.out + run.err, "");
    EXPECT_EQ(run.status, 0);
}

TEST(list, shows_hostile_names_without_their_control_characters)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"name", R"("a\u001b[2Jb")"}}).host({.serial = "S\033[31m1", .address = {}});
    EXPECT_EQ(rack.run("list").out, listed("a?[2Jb", "0", "m48l_xcvu7p", "02:00:00:00:00:00", "S?[31m1"));
}

} // namespace
} // namespace ivra::tests
