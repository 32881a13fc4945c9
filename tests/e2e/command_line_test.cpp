#include "support/rack.h"

#include <gtest/gtest.h>

namespace ivra::tests {
namespace {

const host_t switch_host{.serial = "S1", .address = {}};

/// First line of what a command line prints on standard output, else all of standard error.
std::string outcome(const std::string& words, const std::vector<std::string>& environment = {})
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host(switch_host);
    for (const std::string& entry : environment)
        rack.environment(entry);
    const run_t run = rack.run(words);
    return run.out.empty() ? run.err : run.out.substr(0, run.out.find('\n') + 1);
}

const std::string show_ran = "Accelerator\n";
const std::string list_ran = "card-0\n";
const std::string flash_ran = "Flash memory\n";
const std::string sensors_ran = "Retrieving sensor data... done\n";
const std::string no_boot_image = "Getting current boot image is only supported on Bittware boards\n";
// A switch cannot do any of these, and says so after the line.
const std::string setup_ran = "Setting up board card-0...fail\n";
const std::string speed_ran = "Updating transceiver speed... fail\n";
const std::string no_transceivers = "Transceiver stats are unsupported for Arista switches\n";

TEST(command_word, stands_for_the_first_command_that_contains_it)
{
    // clang-format off
    struct row_t { const char* words; std::string outcome; };
    const std::vector<row_t> rows{
        {"list",  list_ran},
        {"show",  show_ran},
        {"s",     show_ran},
        {"h",     show_ran},
        {"t",     list_ran},
        {"is",    list_ran},
        {"",      show_ran},
        {"x",     "Invalid command: 'x'\n"},
        {"lists", "Invalid command: 'lists'\n"},
        {"Show",  "Invalid command: 'Show'\n"},
        {"up",    setup_ran},
        {"setup", setup_ran},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("m48l_xcvu7p").host(switch_host);
        const run_t run = rack.run(std::vector<std::string>{row.words});
        EXPECT_EQ(run.out.empty() ? run.err : run.out.substr(0, run.out.find('\n') + 1), row.outcome) << row.words;
        EXPECT_EQ(run.status, run.err.empty() ? 0 : 1) << row.words;
    }
    EXPECT_EQ(outcome("se boot primary"), "Setting boot image to primary... fail\n");
}

TEST(info_word, stands_for_the_first_info_that_contains_it)
{
    // clang-format off
    struct row_t { const char* word; std::string outcome; };
    const std::vector<row_t> rows{
        {"info",        show_ran},
        {"n",           show_ran},
        {"flash",       flash_ran},
        {"s",           flash_ran}, // the first in the order that has an "s"
        {"l",           flash_ran},
        {"ns",          sensors_ran}, // "transceivers" has it, too
        {"rs",          sensors_ran},
        {"sensors",     sensors_ran},
        {"a",           no_boot_image},
        {"transceiver", no_transceivers},
        {"all",         show_ran},
        {"power",       "Invalid info to show: 'power'\n"},
        {"Flash",       "Invalid info to show: 'Flash'\n"},
    };
    // clang-format on
    for (const row_t& row : rows)
        EXPECT_EQ(outcome(std::string{"show "} + row.word), row.outcome) << row.word;
}

TEST(set_words, are_checked_before_anything_is_done)
{
    // clang-format off
    struct row_t { const char* words; std::string outcome; };
    const std::vector<row_t> rows{
        {"set boot-image primary",          "Setting boot image to primary... fail\n"},
        {"set boot-image p extra",          "Setting boot image to primary... fail\n"},
        {"set speed 1 10",                  speed_ran},
        {"set transceiver-speed 0",         speed_ran},
        {"set qsfp high",                   "Setting all QSFP to high power mode... fail\n"},
        {"set a primary",                   "Setting boot image to primary... fail\n"}, // "transceiver-speed" has it, too
        {"set o primary",                   "Setting boot image to primary... fail\n"}, // and "qsfp-power-mode" this
        {"set s 1",                         speed_ran},                                // which "qsfp-power-mode" has, too
        {"set w high",                      "Setting all QSFP to high power mode... fail\n"},
        {"set  a",                          "Setting boot image to primary... fail\n"}, // an empty word is in each keyword
        {"set boot-image x",                "Invalid value for boot-image: 'x'\n"},
        {"set speed 10G 100G",              "Invalid value for transceiver-speed: '100G'\n"},
        {"set qsfp-power-mode medium",      "Invalid value for qsfp-power-mode: 'medium'\n"},
        {"set colour red",                  "Invalid parameter to set: 'colour'\n"},
    };
    // clang-format on
    for (const row_t& row : rows)
        EXPECT_EQ(outcome(row.words), row.outcome) << row.words;
}

TEST(usage, errors_end_with_status_64_and_the_brief_usage)
{
    struct row_t
    {
        const char* words;
        const char* error;
    };
    // clang-format off
    constexpr row_t rows[] = {
        {"show info flash",           "ivra-bsp board show: Too many arguments, starting with \"flash\".\n"},
        {"show --colour never",       "ivra-bsp board show: Unknown option: --colour\n"},
        {"show --colour=never",       "ivra-bsp board show: Unknown option: --colour=never\n"},
        {"show -x",                   "ivra-bsp board show: Unknown option: -x\n"},
        {"show --",                   "ivra-bsp board show: Unknown option: --\n"},
        {"-xyz show",                 "ivra-bsp board: Unknown option: -xyz\n"},
        {"show --color",              "ivra-bsp board: --color: no value given.\n"},
        {"show -a",                   "ivra-bsp board: -a: no value given.\n"},
        {"set",                       "ivra-bsp board set: Too few arguments. Expected at least 2, received 0.\n"},
        {"set boot-image",            "ivra-bsp board set: Too few arguments. Expected at least 2, received 1.\n"},
        {"set boot-image primary -x", "ivra-bsp board set: Unknown option: -x\n"},
        {"--json show -x",            "ivra-bsp board show: Unknown option: -x\n"},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("m48l_xcvu7p").host(switch_host);
        const run_t run = rack.run(row.words);
        EXPECT_EQ(run.out, "") << row.words;
        EXPECT_TRUE(run.err.starts_with(row.error)) << run.err;
        EXPECT_NE(run.err.find("ivra-bsp board", std::string{row.error}.size()), std::string::npos) << run.err;
        EXPECT_EQ(run.status, 64) << row.words;
        EXPECT_EQ(rack.trace(), "") << "no call to the platform";
    }
}

TEST(usage, errors_repeat_words_as_a_screen_may_show_them)
{
    struct row_t
    {
        std::vector<std::string> words;
        const char* error;
        int status;
    };
    const std::string bad = "a\033[2J\u202eb\u009b\x9b\ufeff\xe9";
    // clang-format off
    const row_t rows[] = {
        {{"-z" + bad, "show"},             "ivra-bsp board: Unknown option: -za?[2J?b???\xe9\n",                     64},
        {{"show", "--" + bad},             "ivra-bsp board show: Unknown option: --a?[2J?b???\xe9\n",                64},
        {{"show", "info", bad},            "ivra-bsp board show: Too many arguments, starting with \"a?[2J?b???\xe9\".\n", 64},
        {{"set", "--" + bad},              "ivra-bsp board set: Unknown option: --a?[2J?b???\xe9\n",                 64},
        {{"setup", bad},                   "ivra-bsp board setup: Too many arguments, starting with \"a?[2J?b???\xe9\".\n", 64},
        {{bad},                            "Invalid command: 'a?[2J?b???\xe9'\n",                                    1},
        {{"show", bad},                    "Invalid info to show: 'a?[2J?b???\xe9'\n",                               1},
        {{"set", bad, "x"},                "Invalid parameter to set: 'a?[2J?b???\xe9'\n",                           1},
        {{"set", "boot-image", bad},       "Invalid value for boot-image: 'a?[2J?b???\xe9'\n",                       1},
        {{"show", "-a", bad},              "No such accelerator: a?[2J?b???\xe9\n",                                  1},
    };
    // clang-format on
    for (const row_t& row : rows) {
        rack_t rack;
        rack.plug("m48l_xcvu7p").host(switch_host);
        const run_t run = rack.run(row.words);
        EXPECT_EQ(run.err.substr(0, run.err.find('\n') + 1), row.error);
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.status, row.status);
    }
    rack_t rack;
    EXPECT_EQ(rack.plug("m48l_xcvu7p").run(std::vector<std::string>{"--json", "show", "-a", "\033\u202e"}).out,
              R"({"data":{},"status":{"success":false},"log":[{"type":"error","message":"No such accelerator: \u001B)"
              "\u202e"
              R"("}]})"
              "\n")
        << "a document keeps them";
}

TEST(usage, of_set_takes_65535_values_and_no_more)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p").host(switch_host);
    std::vector<std::string> words{"set", "boot-image", "primary"};
    words.resize(2 + 65535, "x");
    const run_t most = rack.run(words);
    EXPECT_EQ(most.out, "Setting boot image to primary... fail\n");
    EXPECT_EQ(most.status, 1);
    words.emplace_back("last");
    const run_t too_many = rack.run(words);
    EXPECT_EQ(too_many.out, "");
    EXPECT_TRUE(too_many.err.starts_with("ivra-bsp board set: Too many arguments, starting with \"last\".\n"))
        << too_many.err;
    EXPECT_EQ(too_many.status, 64);
}

TEST(usage, without_a_command_is_an_error)
{
    rack_t rack;
    const run_t run = rack.run(std::vector<std::string>{});
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(run.err.starts_with("ivra-bsp board: Too few arguments. Expected 1, received 0.\n")) << run.err;
    EXPECT_EQ(run.status, 64);
}

TEST(setup, takes_no_words_and_refuses_them_before_it_touches_an_accelerator)
{
    for (const std::string words :
         {"setup extra", "setup --acelerator 1", "setup --acelerator=1", "setup -x", "-x setup"}) {
        rack_t rack;
        rack.plug("m48l_xcvu7p");
        const run_t run = rack.run(words);
        EXPECT_EQ(run.out, "");
        EXPECT_TRUE(run.err.starts_with("ivra-bsp board setup: ")) << run.err;
        EXPECT_EQ(run.status, 64);
        EXPECT_EQ(rack.trace(), "");
    }
}

TEST(options, may_stand_anywhere)
{
    for (const std::string words : {"--json list", "list --json", "-j list", "-jc never list", "list -cnever -j",
                                    "-c never list -j", "list --color=never -j"})
        EXPECT_TRUE(outcome(words).starts_with(R"({"data":{"accelerators":[)")) << words;
}

TEST(color, is_one_of_three_words_exactly)
{
    const std::string wrong = "Invalid color value\n";
    EXPECT_EQ(outcome("list --color=Never"), wrong);
    EXPECT_EQ(outcome("list --color alway"), wrong);
    EXPECT_EQ(outcome("list --color=auto"), list_ran);
    EXPECT_EQ(outcome("list --color="), list_ran);
    EXPECT_EQ(outcome("list --color=never"), list_ran);
    EXPECT_EQ(outcome("list --color=always"), "\033[1mcard-0\033[0m\n");
    EXPECT_EQ(outcome("list", {"IVRA_BSP_COLOR=Never"}), wrong);
    EXPECT_EQ(outcome("list", {"IVRA_BSP_COLOR="}), list_ran);
    EXPECT_EQ(outcome("list", {"IVRA_BSP_COLOR=always"}), "\033[1mcard-0\033[0m\n");
    EXPECT_EQ(outcome("list --color never", {"IVRA_BSP_COLOR=always"}), list_ran);
    EXPECT_EQ(outcome("list --color never", {"IVRA_BSP_COLOR=wrong"}), list_ran);
    EXPECT_EQ(outcome("list --color=", {"IVRA_BSP_COLOR=always"}), list_ran) << "given, and it means auto";
    EXPECT_EQ(outcome("list --color=", {"IVRA_BSP_COLOR=wrong"}), list_ran);
}

TEST(color, that_is_wrong_is_told_in_plain_text_also_when_json_was_asked_for)
{
    rack_t rack;
    EXPECT_EQ(rack.run("list --json --color=x"), fails("Invalid color value\n"));
}

TEST(json, is_selected_by_the_environment_only_with_exactly_1)
{
    EXPECT_TRUE(outcome("list", {"IVRA_BSP_JSON=1"}).starts_with("{"));
    for (const std::string value : {"true", "", "0", "11", " 1", "1 "})
        EXPECT_EQ(outcome("list", {"IVRA_BSP_JSON=" + value}), list_ran) << value;
}

TEST(json, of_an_invalid_word_is_plain_text)
{
    rack_t rack;
    EXPECT_EQ(rack.run("--json frobnicate"), fails("Invalid command: 'frobnicate'\n"));
}

std::string help(const std::string& words, const std::vector<std::string>& environment = {})
{
    rack_t rack;
    for (const std::string& entry : environment)
        rack.environment(entry);
    const run_t run = words.empty() ? rack.run(std::vector<std::string>{}) : rack.run(words);
    EXPECT_EQ(run.err, "") << words;
    EXPECT_EQ(run.status, 0) << words;
    EXPECT_EQ(rack.trace(), "") << words;
    return run.out;
}

TEST(help, of_each_command_is_its_own_or_the_top_level_one)
{
    const std::string top = help("--help");
    const std::string show = help("show --help");
    const std::string set = help("set --help");
    EXPECT_NE(top.find("Display and manage board hardware."), std::string::npos) << top;
    EXPECT_NE(show.find("Display information about board hardware."), std::string::npos) << show;
    EXPECT_NE(set.find("Configure board hardware parameter."), std::string::npos) << set;
    for (const std::string words : {"-h", "list --help", "setup --help", "--json --help", "list -h extra -x"})
        EXPECT_EQ(help(words), top) << words;
    for (const std::string words : {"--help show", "-h s"})
        EXPECT_EQ(help(words), top) << "the words after --help stay unread: " << words;
    EXPECT_EQ(help("se -h"), set);
    EXPECT_EQ(help("s -h"), show);
}

TEST(help, can_be_asked_for_by_the_environment)
{
    const std::vector<std::string> asked{"IVRA_BSP_HELP=1"};
    EXPECT_EQ(help("", asked), help("--help"));
    EXPECT_EQ(help("show", asked), help("show --help"));
    EXPECT_EQ(help("set", asked), help("set --help"));
    EXPECT_EQ(help("list", asked), help("--help"));
    EXPECT_EQ(help("setup --misspelt", asked), help("--help"));
    EXPECT_EQ(outcome("list", {"IVRA_BSP_HELP=true"}), list_ran);
    EXPECT_EQ(outcome("list", {"IVRA_BSP_HELP=11"}), list_ran);
    EXPECT_EQ(outcome("list", {"IVRA_BSP_HELP="}), list_ran);
}

TEST(help, for_a_word_that_is_no_command_fails)
{
    EXPECT_EQ(outcome("frobnicate --help"), "Invalid command: 'frobnicate'\n");
}

} // namespace
} // namespace ivra::tests
