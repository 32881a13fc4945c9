#include "readings.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

namespace ivra::tests {
namespace {

/// Four plain switches: two share a name, one is called as another one's uid is, and one has no name.
class four_boards_t : public readings_rack_t
{
public:
    four_boards_t()
    {
        plug("m48l_xcvu7p", {{"name", R"("twin")"}});
        plug("m48l_xcvu7p", {{"name", R"("twin")"}});
        plug("m48l_xcvu7p", {{"name", R"("0000:03:00.0")"}});
        plug("m48l_xcvu7p", {{"name", "null"}});
        host(plain_host);
    }

    /// The uids of the boards that are read with these words.
    std::string chosen(const std::string& words)
    {
        const std::string text = run("--jobs 1 --parts flash --lines " + words).out;
        std::string uids;
        const std::string before = R"("uid":"0000:)";
        for (std::size_t at = 0; (at = text.find(before, at)) != std::string::npos; at += before.size())
            uids += (uids.empty() ? "" : " ") + text.substr(at + before.size(), 2);
        return uids;
    }
};

TEST(readings_command_line, chooses_boards_by_index_name_and_uid)
{
    four_boards_t rack;
    EXPECT_EQ(rack.chosen(""), "00 01 02 03");
    EXPECT_EQ(rack.chosen("-a 2"), "02");
    EXPECT_EQ(rack.chosen("-a 0x1 -a 03"), "01 03");
    EXPECT_EQ(rack.chosen("-a twin"), "00 01") << "all of that name";
    EXPECT_EQ(rack.chosen("-a 0000:01:00.0"), "01") << "a uid";
    EXPECT_EQ(rack.chosen("-a 0000:03:00.0"), "02") << "a name comes before a uid";
    EXPECT_EQ(rack.chosen("-a 3 -a 3 --accelerator=0"), "00 03") << "in the order of the host, each once";
    EXPECT_EQ(rack.chosen("--skip 0000:01:00.0 --skip 0000:03:00.0"), "00 02");
    EXPECT_EQ(rack.chosen("-a twin --skip 0000:00:00.0 --skip none-such"), "01");
    EXPECT_EQ(rack.chosen("--skip twin --skip 3"), "00 01 02 03") << "these have uids";
}

TEST(readings_command_line, refuses_a_board_that_there_is_not)
{
    four_boards_t rack;
    for (const char* selector : {"4", "tw", "0000:04:00.0", "-1", "1.0"}) {
        const std::string words = std::string{"-a 0 --accelerator="} + selector;
        EXPECT_EQ(rack.run(words), fails("ivra-bsp readings: No such accelerator: " + std::string{selector} + "\n"));
        EXPECT_EQ(rack.run("--check " + words),
                  (run_t{"UNKNOWN - No such accelerator: " + std::string{selector} + "\n", "", 3}));
    }
}

TEST(readings_command_line, refuses_what_it_does_not_know)
{
    const std::string parts = "there are identity,flash,boot-image,sensors,modules";
    for (const auto& [words, message] :
         {std::pair<std::string, std::string>{"--parts flash,lights", "Unknown part 'lights': " + parts},
          {"--parts flash,,modules", "Unknown part '': " + parts},
          {"--parts=", "No part to read: " + parts},
          {"--jobs 0", "Expected 1 to 64 jobs"},
          {"--jobs 65", "Expected 1 to 64 jobs"},
          {"--jobs 0x8", "Expected 1 to 64 jobs"},
          {"--timeout -1", "Expected a timeout of 0 to 86400 seconds"},
          {"--timeout 86401", "Expected a timeout of 0 to 86400 seconds"},
          {"--timeout 1.5", "Expected a timeout of 0 to 86400 seconds"},
          {"--announce", "--announce goes with --lines"},
          {"--color purple", "Invalid color value"}}) {
        readings_rack_t rack;
        EXPECT_EQ(rack.run(words),
                  (run_t{"", "ivra-bsp readings: " + message + "\nHelp: ivra-bsp readings --help\n", 64}));
        EXPECT_EQ(rack.run("--check " + words), (run_t{"UNKNOWN - " + message + "\n", "", 3}));
    }
    readings_rack_t rack;
    EXPECT_EQ(rack.run("--json --text").status, 64);
    EXPECT_EQ(rack.run("--bogus").status, 64);
    EXPECT_EQ(rack.run("--bogus").out, "");
    EXPECT_EQ(rack.run("--check --bog|us=").status, 3);
    EXPECT_EQ(rack.run("--check --bog|us=").err, "");
    EXPECT_EQ(rack.run("--check --bog|us=").out.find('|'), std::string::npos);
}

TEST(readings_command_line, listens_to_the_variables_for_colors_only)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host);
    const std::string plain = rack.run("--text").out;
    for (const char* variable : {"IVRA_BSP_ACCELERATOR=none-such", "IVRA_BSP_JSON=1", "IVRA_BSP_HELP=1"})
        rack.environment(variable);
    EXPECT_EQ(rack.run("--text").out, plain);
    rack.environment("IVRA_BSP_COLOR=always");
    EXPECT_NE(rack.run("--text").out.find("\033["), std::string::npos);
    EXPECT_EQ(rack.run("--text --color never").out, plain);
    rack.environment("IVRA_BSP_COLOR");
    EXPECT_NE(rack.run("", {.out = stream_t::terminal}).out, plain);
    rack.environment("NO_COLOR=1");
    EXPECT_EQ(rack.run("", {.out = stream_t::terminal}).out, plain);
    EXPECT_NE(rack.run("--color always", {.out = stream_t::terminal}).out, plain);
    rack.environment("NO_COLOR=");
    EXPECT_NE(rack.run("", {.out = stream_t::terminal}).out, plain);
}

TEST(readings_command_line, shows_the_log_of_the_platform_when_asked)
{
    readings_rack_t no_rack;
    no_rack.file("{}}");
    EXPECT_EQ(no_rack.run("--text").err, "");
    EXPECT_TRUE(no_rack.run("--text --verbose").err.starts_with("ivra_virtual_rack: "));

    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host);
    rack.faults(R"({"call": "ivra_hw_top_get_board_name", "log": "it is\na board"})");
    EXPECT_EQ(rack.run("--check").err, "");
    EXPECT_NE(rack.run("--check --verbose").err.find("card-0: ivra_hw_top_get_board_name: it is a board\n"),
              std::string::npos);
}

TEST(readings_command_line, says_when_its_output_cannot_be_written)
{
    readings_rack_t rack;
    rack.plug("m48l_xcvu7p").host(plain_host);
    const std::string cannot = "ivra-bsp readings: Cannot write to standard output: ";
    for (const std::string words : {"--help", "--version", "--json", "--lines", "--text", "--check"}) {
        const int status = words == "--check" ? 3 : 1;
        EXPECT_EQ(rack.run(words, {.out = stream_t::full_disk}),
                  (run_t{"", cannot + "No space left on device\n", status}))
            << words;
        EXPECT_EQ(rack.run(words, {.out = stream_t::closed}), (run_t{"", cannot + "Bad file descriptor\n", status}))
            << words;
        EXPECT_EQ(rack.run(words, {.out = stream_t::broken_pipe}), (run_t{"", "", status})) << words;
        EXPECT_EQ(rack.run(words, {.err = stream_t::closed, .has_input = false}).status, 0) << words;
    }
}

TEST(readings_command_line, reads_no_more_than_the_parts_that_are_asked_for)
{
    readings_rack_t rack;
    rack.plug("bittware_xupp3r");
    const auto asks_bmc = [&](const char* parts) {
        rack.run(std::string{"--parts "} + parts);
        return calls(rack, "ivra_uart_write_all");
    };
    EXPECT_EQ(asks_bmc("modules,flash"), 0U);
    EXPECT_GT(calls(rack, "ivra_i2c_bus_read_register") + calls(rack, "ivra_i2c_bus_read"), 0U);
    EXPECT_EQ(asks_bmc("identity"), 3U) << "three pieces of the FRU";
    EXPECT_EQ(calls(rack, "ivra_i2c_bus_read_register"), 1U) << "the EEPROM with a MAC address";
    EXPECT_EQ(asks_bmc("boot-image"), 2U) << "the current and the next one";
    EXPECT_GT(asks_bmc("sensors"), 13U);
    EXPECT_EQ(calls(rack, "ivra_i2c_bus_read_register"), 0U);

    readings_rack_t card;
    card.plug("xilinx_u50");
    const auto reads_of_card = [&](const char* parts, const char* name) {
        card.run(std::string{"--parts "} + parts);
        return traced(card, name).size();
    };
    EXPECT_EQ(reads_of_card("identity", "0x28108"), 0U) << "a sensor";
    EXPECT_GT(reads_of_card("sensors", "0x28108"), 0U);
    EXPECT_EQ(reads_of_card("sensors", "CONTROL"), 0U) << "the mailbox";
    EXPECT_GT(reads_of_card("identity", "CONTROL"), 0U);
    EXPECT_EQ(reads_of_card("flash,modules,boot-image", "0x28108"), 0U);
    EXPECT_EQ(reads_of_card("flash,modules,boot-image", "CONTROL"), 0U);
}

} // namespace
} // namespace ivra::tests
