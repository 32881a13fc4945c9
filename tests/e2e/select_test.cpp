#include "support/rack.h"

#include <gtest/gtest.h>

namespace ivra::tests {
namespace {

/// Ten switches, so that there is an index 8.
void plug_ten(rack_t& rack)
{
    for (int i = 0; i < 10; ++i)
        rack.plug("m48l_xcvu7p");
    rack.host({.serial = "S1", .address = {}});
}

/// The name that `show info` shows for a selector; its standard error when it fails.
std::string selected(rack_t& rack, const std::vector<std::string>& words)
{
    std::vector<std::string> all{"show", "info"};
    all.insert(all.end(), words.begin(), words.end());
    const run_t run = rack.run(all);
    if (run.status != 0)
        return run.err;
    const std::string label = "Name         : ";
    const std::size_t begin = run.out.find(label) + label.size();
    return run.out.substr(begin, run.out.find('\n', begin) - begin);
}

TEST(selection, of_the_only_accelerator_is_silent)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host({.serial = "S1", .address = {}});
    const run_t run = rack.run("show info");
    EXPECT_TRUE(run.out.starts_with("Accelerator\n\tName         : card-0\n")) << run.out;
    EXPECT_EQ(run.err, "");
}

TEST(selection, of_the_first_of_several_is_told)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").plug("m48l_xcvu7p").host({.serial = "S1", .address = {}});
    const run_t run = rack.run("show info");
    EXPECT_TRUE(run.out.starts_with("Auto-selected first accelerator\nAccelerator\n\tName         : card-0\n"))
        << run.out;
    EXPECT_EQ(run.err, "");
}

TEST(selection, takes_an_index_in_decimal_hexadecimal_and_octal)
{
    rack_t rack;
    plug_ten(rack);
    EXPECT_EQ(selected(rack, {"--accelerator", "3"}), "card-3");
    EXPECT_EQ(selected(rack, {"--accelerator", "0x1"}), "card-1");
    EXPECT_EQ(selected(rack, {"--accelerator", "010"}), "card-8");
    EXPECT_EQ(selected(rack, {"-a", "0"}), "card-0");
    EXPECT_EQ(selected(rack, {"--accelerator=4294967298"}), "card-2") << "an index is cut to 32 bits";
}

TEST(selection, takes_anything_else_as_a_name)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p")
        .plug("m48l_xcvu7p")
        .plug("m48l_xcvu7p", {{"name", "\"1x\""}})
        .plug("m48l_xcvu7p", {{"name", "\"0x\""}})
        .plug("m48l_xcvu7p", {{"name", "\"1 \""}})
        .plug("m48l_xcvu7p", {{"name", "\"99999999999999999999\""}});
    rack.host({.serial = "S1", .address = {}});
    // None of them stands at the index with which its name begins.
    for (const std::string name : {"card-0", "card-1", "1x", "0x", "1 ", "99999999999999999999"})
        EXPECT_EQ(selected(rack, {"-a", name}), name);
    EXPECT_EQ(selected(rack, {"-a", "1y"}), "No such accelerator: 1y\n");
}

TEST(selection, that_matches_nothing_names_the_selector_as_typed)
{
    rack_t rack;
    plug_ten(rack);
    EXPECT_EQ(selected(rack, {"-a", "10"}), "No such accelerator: 10\n");
    EXPECT_EQ(selected(rack, {"-a", "-1"}), "No such accelerator: -1\n");
    EXPECT_EQ(selected(rack, {"-a", "Card-0"}), "No such accelerator: Card-0\n");
    EXPECT_EQ(selected(rack, {"-a", "card-"}), "No such accelerator: card-\n");
    EXPECT_EQ(selected(rack, {"-a", ""}), "No such accelerator: \n");
    EXPECT_EQ(selected(rack, {"-a", " a  b "}), "No such accelerator:  a  b \n");
}

TEST(selection, by_the_environment_holds_unless_the_command_line_selects)
{
    rack_t rack;
    plug_ten(rack);
    rack.environment("IVRA_BSP_ACCELERATOR=card-5");
    EXPECT_EQ(selected(rack, {}), "card-5");
    EXPECT_EQ(selected(rack, {"--accelerator", "7"}), "card-7");
}

TEST(selection, on_a_host_without_accelerators_fails_whatever_was_asked_for)
{
    rack_t rack;
    for (const std::string words : {"show info", "show info -a 0", "show flash -a name"}) {
        EXPECT_EQ(rack.run(words), fails("No accelerator found\n"));
    }
}

TEST(selection, that_fails_leaves_its_reason_in_the_json_log_and_no_message_in_the_status)
{
    rack_t rack;
    const run_t run = rack.run("show info --json");
    EXPECT_EQ(run.out, R"({"data":{},"status":{"success":false},)"
                       R"("log":[{"type":"error","message":"No accelerator found"}]})"
                       "\n");
    EXPECT_EQ(run.err, "No accelerator found\n");
    EXPECT_EQ(run.status, 1);
}

TEST(selection, by_a_filter_that_the_platform_refuses_ends_the_command)
{
    for (const std::string call : {"ivra_hw_filter_create", "ivra_hw_filter_set_index"}) {
        rack_t rack;
        rack.plug("m48l_xcvu7p").faults(R"({"call": ")" + call + R"(", "errno": "ENOMEM"})");
        const run_t run = rack.run("show info -a 0");
        EXPECT_EQ(run.err, "Cannot allocate memory\n") << call;
        EXPECT_EQ(run.status, 1);
    }
    rack_t rack;
    rack.plug("m48l_xcvu7p").faults(R"({"call": "ivra_hw_filter_set_name", "errno": "ENOMEM"})");
    const run_t run = rack.run("show info -a card-0");
    EXPECT_EQ(run.err, "Cannot allocate memory\n");
    EXPECT_EQ(run.status, 1);
}

TEST(selection, that_cannot_be_enumerated_matches_nothing)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").faults(R"({"call": "ivra_hw_enumerate_accelerators", "errno": "EIO"})");
    const run_t run = rack.run("show info -a 0");
    EXPECT_EQ(run.err, "No such accelerator: 0\n");
    EXPECT_EQ(run.status, 1);
}

} // namespace
} // namespace ivra::tests
