#include "support/rack.h"

#include <gtest/gtest.h>

namespace ivra::tests {
namespace {

std::string flash_of(const std::string& size, const std::string& sections)
{
    return R"({"size": ")" + size + R"(", "sector": "4 KiB", "sections": [)" + sections + "]}";
}

/// The sections without which no flash can be opened, out of the way of a test's own.
const std::string usual = R"(
    {"name": "PGM",    "start": "0x0",    "size": "0x1000"},
    {"name": "USR",    "start": "0x1000", "size": "0x1000"},
    {"name": "PARAMS", "start": "0x2000", "size": "0x1000"},
    {"name": "OTP",    "start": "0x3000", "size": "0x1000"})";

TEST(show_flash, gives_sizes_and_the_range_of_each_section)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p");
    EXPECT_EQ(rack.run("show flash"), says("Flash memory\n"
                                           "\tMemory size: 134217728 bytes (128 MB)\n"
                                           "\tSector size: 65536 bytes\n"
                                           "\tSections\n"
                                           "\t\tPGM   : 0x0000000 - 0x1001fff\n"
                                           "\t\tUSR   : 0x1002000 - 0x6001fff\n"
                                           "\t\tPARAMS: 0x7fc0000 - 0x7fcffff\n"
                                           "\t\tPARAMS: 0x7fd0000 - 0x7fdffff\n"
                                           "\t\tOTP   : 0x7ff0000 - 0x7ff0fff\n"));
}

TEST(show_flash, is_one_json_object_with_an_array_of_sections)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p");
    const run_t run = rack.run("show flash --json");
    EXPECT_EQ(run.out, R"x({"data":{"Flash memory":{"Memory size":"134217728 bytes (128 MB)",)x"
                       R"("Sector size":"65536 bytes","Sections":[{"PGM":"0x0000000 - 0x1001fff"},)"
                       R"({"USR":"0x1002000 - 0x6001fff"},{"PARAMS":"0x7fc0000 - 0x7fcffff"},)"
                       R"({"PARAMS":"0x7fd0000 - 0x7fdffff"},{"OTP":"0x7ff0000 - 0x7ff0fff"}]}},)"
                       R"("status":{"success":true},"log":[]})"
                       "\n");
    EXPECT_EQ(run.status, 0);
}

TEST(show_flash, has_its_colours_on_a_terminal)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"flash", flash_of("0x10000", usual)}});
    EXPECT_EQ(rack.run("show flash", {stream_t::terminal, stream_t::terminal}).out,
              "\033[1mFlash memory\033[0m\n"
              "\t\033[0mMemory size: \033[35m65536 bytes (0 MB)\033[0m\033[0m\n"
              "\t\033[0mSector size: \033[36m4096 bytes\033[0m\033[0m\n"
              "\t\033[1mSections\033[0m\n"
              "\t\t\033[0mPGM   : \033[0m0x0000 - 0x0fff\033[0m\033[0m\n"
              "\t\t\033[0mUSR   : \033[0m0x1000 - 0x1fff\033[0m\033[0m\n"
              "\t\t\033[0mPARAMS: \033[0m0x2000 - 0x2fff\033[0m\033[0m\n"
              "\t\t\033[0mOTP   : \033[0m0x3000 - 0x3fff\033[0m\033[0m\n");
}

TEST(show_flash, shows_memory_sizes_below_a_mebibyte_as_0_MB)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"flash", flash_of("1020 KiB", usual)}})
        .plug("m48l_xcvu7p", {{"flash", flash_of("1 MiB", usual)}});
    EXPECT_NE(rack.run("show flash -a 0").out.find("\tMemory size: 1044480 bytes (0 MB)\n"), std::string::npos);
    EXPECT_NE(rack.run("show flash -a 1").out.find("\tMemory size: 1048576 bytes (1 MB)\n"), std::string::npos);
}

TEST(show_flash, calls_a_section_without_a_name_unknown)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p",
              {{"flash", flash_of("0x10000", usual + R"(, {"name": null, "start": "0x5000", "size": "0x1000"})")}});
    EXPECT_NE(rack.run("show flash").out.find("\t\tUNKNOWN: 0x5000 - 0x5fff\n"), std::string::npos);
}

/// The ranges of a flash whose OTP section, the last, starts at this address.
std::string ranges(const std::string& start)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"flash", R"({"size": "4 GiB", "sector": 16, "sections": [
        {"name": "PGM",    "start": "0x0", "size": "0x1"},
        {"name": "USR",    "start": "0x1", "size": "0x1"},
        {"name": "PARAMS", "start": "0x2", "size": "0x1"},
        {"name": "OTP",    "start": ")" + start +
                                            R"(", "size": "0x10"}]})"}});
    const std::string out = rack.run("show flash").out;
    return out.substr(out.find("\t\tPGM"));
}

TEST(show_flash, pads_every_range_to_the_widest_start_address)
{
    EXPECT_EQ(ranges("0x9"),
              "\t\tPGM   : 0x0 - 0x0\n\t\tUSR   : 0x1 - 0x1\n\t\tPARAMS: 0x2 - 0x2\n\t\tOTP   : 0x9 - 0x18\n");
    EXPECT_EQ(ranges("0x11"),
              "\t\tPGM   : 0x00 - 0x00\n\t\tUSR   : 0x01 - 0x01\n\t\tPARAMS: 0x02 - 0x02\n\t\tOTP   : 0x11 - 0x20\n");
    EXPECT_EQ(ranges("0x9abcde"), "\t\tPGM   : 0x000000 - 0x000000\n\t\tUSR   : 0x000001 - 0x000001\n"
                                  "\t\tPARAMS: 0x000002 - 0x000002\n\t\tOTP   : 0x9abcde - 0x9abced\n");
    EXPECT_EQ(ranges("0xfffffff0"), "\t\tPGM   : 0x00000000 - 0x00000000\n\t\tUSR   : 0x00000001 - 0x00000001\n"
                                    "\t\tPARAMS: 0x00000002 - 0x00000002\n\t\tOTP   : 0xfffffff0 - 0xffffffff\n");
}

TEST(show_flash, counts_start_addresses_of_one_to_eight_digits)
{
    const std::string digits = "98765432";
    for (std::size_t width = 1; width <= 8; ++width) {
        const std::string start = digits.substr(0, width);
        const std::string padded = std::string(width - 1, '0') + "2";
        EXPECT_NE(ranges("0x" + start).find("\t\tPARAMS: 0x" + padded + " - 0x" + padded + "\n"), std::string::npos)
            << start;
    }
}

TEST(show_flash, counts_an_exact_power_of_16_one_digit_short)
{
    EXPECT_EQ(ranges("0x1000000"), "\t\tPGM   : 0x000000 - 0x000000\n\t\tUSR   : 0x000001 - 0x000001\n"
                                   "\t\tPARAMS: 0x000002 - 0x000002\n\t\tOTP   : 0x1000000 - 0x100000f\n");
}

TEST(show_flash, lets_an_end_address_be_wider_than_the_column)
{
    EXPECT_NE(ranges("0xfff8").find("\t\tOTP   : 0xfff8 - 0x10007\n"), std::string::npos);
}

TEST(show_flash, shows_an_unreadable_section_as_an_error_and_goes_on)
{
    for (const std::string call : {"ivra_flash_get_section_start_address", "ivra_flash_get_section_size"}) {
        rack_t rack;
        rack.plug("m48l_xcvu7p", {{"flash", flash_of("0x10000", usual)}});
        // The start addresses are asked for twice, the sizes once: this is each time the third section.
        const std::string nth = call.ends_with("address") ? "7" : "3";
        rack.faults(R"({"call": ")" + call + R"(", "nth": )" + nth + R"(, "errno": "EIO"})");
        const run_t run = rack.run("show flash");
        EXPECT_EQ(run.out, "Flash memory\n"
                           "\tMemory size: 65536 bytes (0 MB)\n"
                           "\tSector size: 4096 bytes\n"
                           "\tSections\n"
                           "\t\tPGM   : 0x0000 - 0x0fff\n"
                           "\t\tUSR   : 0x1000 - 0x1fff\n"
                           "\t\tPARAMS: Error reading section start address or size\n"
                           "\t\tOTP   : 0x3000 - 0x3fff\n");
        EXPECT_EQ(run.status, 0);
    }
}

TEST(show_flash, leaves_an_unreadable_start_address_out_of_the_column_width)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p",
              {{"flash", flash_of("0x10000", usual + R"(, {"name": "X", "start": "0xa000", "size": 1})")}});
    rack.faults(R"({"call": "ivra_flash_get_section_start_address", "nth": 5, "errno": "EIO"})");
    EXPECT_NE(rack.run("show flash").out.find("\t\tX     : 0xa000 - 0xa000\n"), std::string::npos);
}

TEST(show_flash, ends_with_the_text_of_what_could_not_be_read)
{
    // clang-format off
    constexpr failure_row_t rows[] = {
        {R"("call": "ivra_flash_create", "nth": 2)",          "Failed to create flash management subsystem: Input/output error\n"},
        {R"("call": "ivra_flash_get_section_pgm", "nth": 2)", "Failed to create section object: Input/output error\n"},
        {R"("call": "ivra_flash_get_sections")",              "Input/output error\n"},
        {R"("call": "ivra_flash_get_sections", "nth": 2)",    "Input/output error\n"},
        {R"("call": "ivra_flash_get_memory_size")",           "Unable to retrieve flash memory size: Input/output error\n"},
        {R"("call": "ivra_flash_get_sector_size")",           "Unable to retrieve flash sector size: Input/output error\n"},
    };
    // clang-format on
    for (const failure_row_t& row : rows) {
        rack_t rack;
        rack.plug("m48l_xcvu7p").faults(std::string{"{"} + row.fault + R"(, "errno": "EIO"})");
        EXPECT_EQ(rack.run("show flash"), fails(row.text)) << row.fault;
    }
}

TEST(show_flash, shows_as_many_sections_as_the_second_enumeration_has)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"flash", flash_of("0x10000", usual)}});
    rack.faults(R"({"call": "ivra_flash_get_sections", "nth": 2, "count": 2})");
    EXPECT_EQ(rack.run("show flash").out, "Flash memory\n"
                                          "\tMemory size: 65536 bytes (0 MB)\n"
                                          "\tSector size: 4096 bytes\n"
                                          "\tSections\n"
                                          "\t\tPGM: 0x000 - 0xfff\n" // by the starts of these two
                                          "\t\tUSR: 0x1000 - 0x1fff\n");
    EXPECT_EQ(calls(rack, "ivra_flash_get_section_name"), 2U);
    rack.faults(R"({"call": "ivra_flash_get_sections", "nth": 2, "count": 0})");
    EXPECT_TRUE(rack.run("show flash").out.ends_with("\tSections\n"));
}

TEST(show_flash, fails_when_one_of_the_four_usual_sections_is_missing)
{
    rack_t rack;
    rack.plug("m48l_xcvu7p", {{"flash", flash_of("0x10000", R"({"name": "PGM", "start": "0x0", "size": "0x1000"})")}});
    const run_t run = rack.run("show flash");
    EXPECT_EQ(run.err, "Failed to create section object: No such file or directory\n");
    EXPECT_EQ(run.status, 1);
}

} // namespace
} // namespace ivra::tests
