#include "bad_racks.h"

#include "devices/module/dump.h"
#include "rack/rack.h"
#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

// What people have of modules, in the layouts of the programs that print it, becomes the same memory or is refused.

namespace ivra::tests {

namespace {

using namespace ivra::virtual_platform;
using namespace std::string_literals;
using ::testing::MatchesRegex;
using ::testing::StartsWith;
namespace fs = std::filesystem;
using bytes_t = std::vector<std::uint8_t>;

const char* const ten_modules[] = {
    "sfp-10g-sr",     "sfp-no-diagnostics", "sfp-external-calibration",
    "qsfp-lr4",       "qsfp28-sr4",         "qsfp28-copper",
    "qsfpdd-dr4",     "qsfpdd-copper",      "qsfpdd-flat",
    "qsfp-plus-cmis",
};

template <class... Values>
std::string format(const char* layout, Values... values)
{
    char text[512];
    const int size = std::snprintf(text, sizeof text, layout, values...);
    return {text, static_cast<std::size_t>(size)};
}

std::string printable_byte(std::uint8_t byte)
{
    return std::string(1, byte >= 0x20 && byte < 0x7f ? static_cast<char>(byte) : '.');
}

module_t plugged(const std::string& name)
{
    return *parse_rack(rack_with(R"("i2c": {"cages": [")" + name + "\"]}"), "my.json")
                .accelerators[0]
                .i2c.cages[0]
                .module;
}

// ---- what a host reads ----

bool is_sfp(const module_t& module)
{
    return module.map == memory_map_t::sfp;
}

bool is_flat(const module_t& module)
{
    return is_sfp(module) || (module.byte(2) & (module.map == memory_map_t::cmis ? 0x80U : 0x04U)) != 0;
}

bytes_t block(const module_t& module, unsigned number)
{
    return {module.blocks.at(number).begin(), module.blocks.at(number).end()};
}

/// A page that the module lacks is page 00h.
bytes_t page(const module_t& module, unsigned number)
{
    return block(module, module.blocks.contains(number + 1) ? number + 1 : 1);
}

bytes_t operator+(bytes_t one, const bytes_t& other)
{
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

/// The 256 bytes of a device while a page is selected.
bytes_t window(const module_t& module, unsigned number = 0)
{
    bytes_t bytes = block(module, 0) + page(module, number);
    if (!is_sfp(module))
        bytes[127] = static_cast<std::uint8_t>(module.blocks.contains(number + 1) ? number : 0);
    return bytes;
}

bytes_t diagnostics(const module_t& module)
{
    return block(module, 2) + block(module, 3);
}

/// Pages that a program asks for, whether or not the module has them.
std::vector<unsigned> asked_pages(const module_t& module)
{
    return is_flat(module) ? std::vector<unsigned>{} : std::vector<unsigned>{1, 2, 3, 16, 17};
}

/// Lower page and pages from 00h to `last`, or A0h and A2h.
bytes_t flat(const module_t& module, unsigned last)
{
    bytes_t bytes = block(module, 0) + block(module, 1);
    if (is_sfp(module))
        return module.blocks.size() == 2 ? bytes : bytes + diagnostics(module);
    for (unsigned number = 1; number <= last && !is_flat(module); ++number)
        bytes = bytes + page(module, number);
    return bytes;
}

bytes_t whole(const module_t& module)
{
    return flat(module, module.map == memory_map_t::cmis ? 0x11 : 0x03);
}

std::string binary(const bytes_t& bytes)
{
    return {bytes.begin(), bytes.end()};
}

// ---- layouts of programs ----

std::string ethtool_rows(const bytes_t& bytes, unsigned first = 0)
{
    std::string text = "Offset\t\tValues\n------\t\t------\n";
    for (unsigned at = 0; at < bytes.size(); ++at)
        text += (at % 16 == 0 ? format("0x%04x:\t\t", first + at) : "") + format("%02x ", bytes[at]) +
                (at % 16 == 15 ? "\n" : "");
    return text;
}

/// ethtool -m, as drivers give it: 256, 512 or 640 bytes; what is behind them, page by page.
std::string ethtool(const module_t& module)
{
    const unsigned last = module.map == memory_map_t::qsfp ? 0x03 : 0x02;
    std::string text = ethtool_rows(flat(module, last));
    for (const unsigned number : asked_pages(module))
        if (number > last)
            text += format("root@host:~# ethtool -m eth0 hex on page 0x%x\n", number) +
                    ethtool_rows(page(module, number), 0x80);
    return text;
}

std::string ethtool_pages(const module_t& module)
{
    std::string text = "$ sudo ethtool -m eth0 hex on offset 0 length 128 page 0\n" + ethtool_rows(block(module, 0)) +
                       "$ ethtool --module-info eth0 page 0 offset 0x80 length 128\n" +
                       ethtool_rows(block(module, 1), 0x80);
    for (const unsigned number : asked_pages(module)) {
        const bytes_t bytes = page(module, number);
        text += format("$ ethtool -m eth0 page %u offset 128 length 64\n", number) +
                ethtool_rows({bytes.begin(), bytes.begin() + 64}, 0x80) +
                format("$ ethtool -m eth0 page %u bank 0 offset 192 length 64\n", number) +
                ethtool_rows({bytes.begin() + 64, bytes.end()}, 0xc0);
    }
    if (is_sfp(module) && module.blocks.size() > 2)
        text += "$ ethtool -m eth0 i2c 0x51 length 128\n" + ethtool_rows(block(module, 2)) +
                "$ ethtool -m eth0 i2c 0x51 offset 0x80\n" + ethtool_rows(block(module, 3), 0x80);
    return text;
}

/// The rows of hexdump -C, and of sfputil with its indentation and one blank before the text.
std::string hexdump_rows(const bytes_t& bytes, unsigned first, const char* indentation, const char* blanks)
{
    std::string text;
    for (unsigned at = 0; at < bytes.size(); at += 16) {
        text += indentation + format("%08x ", first + at) + (*indentation == '\0' ? " " : "");
        std::string letters;
        for (unsigned byte = at; byte < at + 16; ++byte) {
            text += format("%02x ", bytes[byte]) + (byte == at + 7 ? " " : "");
            letters += printable_byte(bytes[byte]);
        }
        text.pop_back();
        text += blanks + ("|" + letters) + "|\n";
    }
    return text;
}

std::string sfputil(const module_t& module)
{
    const auto part = [](const std::string& heading, const bytes_t& bytes, unsigned first) {
        return "        " + heading + '\n' + hexdump_rows(bytes, first, "        ", " ") + '\n';
    };
    if (is_sfp(module))
        return "EEPROM hexdump for port Ethernet0\n" + part("A0h dump", window(module), 0) +
               (module.blocks.size() == 2 ? ""s
                                          : part("A2h dump (lower 128 bytes)", block(module, 2), 0) +
                                                part("A2h dump (upper 128 bytes) page 0h", block(module, 3), 0x80));
    std::string text = "EEPROM hexdump for port Ethernet0\n" + part("Lower page 0h", block(module, 0), 0) +
                       part("Upper page 0h", block(module, 1), 0x80);
    for (const unsigned number : asked_pages(module))
        text += part(format("Upper page %xh", number), page(module, number), 0x80);
    return text;
}

std::string i2cdump_rows(const bytes_t& bytes)
{
    std::string text = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f    0123456789abcdef\n";
    for (unsigned at = 0; at < bytes.size(); at += 16) {
        text += format("%02x: ", at);
        std::string letters;
        for (unsigned byte = at; byte < at + 16; ++byte) {
            text += format("%02x ", bytes[byte]);
            letters += bytes[byte] == 0 || bytes[byte] == 0xff ? "."
                       : printable_byte(bytes[byte]) == "."    ? "?"
                                                               : printable_byte(bytes[byte]);
        }
        text += "   " + letters + '\n';
    }
    return text;
}

std::string i2cdump(const module_t& module)
{
    std::string text =
        "root@host:~# i2cdump -y 4 0x50\nNo size specified (using byte-data access)\n" + i2cdump_rows(window(module));
    if (is_sfp(module))
        return text +
               (module.blocks.size() == 2
                    ? ""
                    : "root@host:~# i2cdump 4 0x51 b\nWARNING! This program can confuse your I2C bus, cause data "
                      "loss and worse!\nI will probe file /dev/i2c-4, address 0x51, mode byte\nContinue? [Y/n] \n" +
                          i2cdump_rows(diagnostics(module)));
    for (const unsigned number : asked_pages(module))
        if (module.blocks.contains(number + 1))
            text += format("root@host:~# i2cset -y 4 0x50 127 %u\n", number) + "root@host:~# i2cdump -y 4 0x50\n" +
                    i2cdump_rows(window(module, number));
    return text;
}

std::string junos(const module_t& module)
{
    const auto rows = [](const bytes_t& bytes, unsigned first, const char* layout) {
        std::string text;
        for (unsigned at = 0; at < bytes.size(); ++at)
            text += (at % 16 == 0 ? format(layout, first + at) : " ") + format("%02x", bytes[at]) +
                    (at % 16 == 15 ? "\n"
                     : at % 8 == 7 ? " -"
                     : at % 4 == 3 ? " ."
                                   : "");
        return text;
    };
    if (is_sfp(module))
        return "2-wire device address 0x50\n" + rows(window(module), 0, "  0x%02x:   ") +
               (module.blocks.size() == 2
                    ? ""
                    : "2-wire device address 0x51\n" + rows(diagnostics(module), 0, "  0x%02x:   "));
    std::string text = "  QSFP IDEEPROM (Low Page 00h - Diagnostics):\n" +
                       rows(block(module, 0), 0, "    Address 0x%02x: ") + "  QSFP IDEEPROM (Upper Page 00h):\n" +
                       rows(block(module, 1), 0x80, "    Address 0x%02x: ");
    for (const unsigned number : asked_pages(module))
        text += format("  QSFP-DD Upper Page %02xh                   :\n", number) +
                rows(page(module, number), 0x80, "    Address 0x%02x: ");
    return text;
}

struct layout_t
{
    const char* name;
    std::function<std::string(const module_t&)> write;
};

const layout_t layouts[] = {
    {"ethtool -m DEVICE hex on", ethtool},
    {"ethtool, page by page", ethtool_pages},
    {"sfputil show eeprom-hexdump", sfputil},
    {"i2cdump", i2cdump},
    {"show interfaces diagnostics", junos},
    {"hexdump -C", [](const module_t& module) { return hexdump_rows(whole(module), 0, "", "  "); }},
    {"a binary file", [](const module_t& module) { return binary(whole(module)); }},
};

/// Racks and dumps that go with the test.
class dumps : public ::testing::Test
{
protected:
    dumps()
    {
        std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
        folder = fs::canonical(::mkdtemp(name.data()));
    }
    ~dumps() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    fs::path file(const std::string& name, const std::string& text) const
    {
        std::ofstream{folder / name, std::ios::binary} << text;
        return folder / name;
    }

    /// The first cage's module, given as JSON.
    module_t module_from(const std::string& json) const
    {
        return *load_rack(file("my.json", rack_with(R"("i2c": {"cages": [)" + json + "]}")))
                    .accelerators.at(0)
                    .i2c.cages.at(0)
                    .module;
    }

    /// What is wrong with it, without the places.
    std::string error_of(const std::string& json) const
    {
        try {
            module_from(json);
        } catch (const file_error& error) {
            std::string text = error.what();
            for (const std::string& place :
                 {(folder / "my.json").string() + ": /accelerators/0/i2c/cages/0", folder.string() + "/"})
                for (std::size_t at = 0; (at = text.find(place)) != std::string::npos;)
                    text.erase(at, place.size());
            return text;
        }
        return "no error";
    }

    /// The dump makes the module, whatever it is called.
    void expect_module(const std::string& dump, const module_t& expected) const
    {
        file("my.hex", dump);
        ASSERT_EQ(error_of(R"({"dump": "my.hex"})"), "no error") << dump.substr(0, 2000);
        const module_t module = module_from(R"({"dump": "my.hex"})");
        EXPECT_EQ(module.map, expected.map);
        EXPECT_EQ(module.blocks, expected.blocks) << dump.substr(0, 2000);
    }

    /// What a program prints of these bytes.
    std::string output(const std::string& command, const bytes_t& bytes) const
    {
        file("my.bin", binary(bytes));
        const run_t run = run_program("/bin/sh", {"-c", "cd " + folder.string() + " && " + command + " my.bin"});
        EXPECT_EQ(run.status, 0) << command << ": " << run.err;
        return run.out;
    }

    std::string dump_error_of(const std::string& dump) const
    {
        file("my.hex", dump);
        return error_of(R"({"dump": "my.hex"})");
    }

    fs::path folder;
};

} // namespace

TEST_F(dumps, ten_modules_in_every_layout_become_the_same_memory)
{
    for (const char* name : ten_modules)
        for (const layout_t& layout : layouts) {
            SCOPED_TRACE(name + ": "s + layout.name);
            const module_t module = plugged(name);
            // A page that there is not shows page 00h; i2cdump does not tell which one was asked for.
            const unsigned last = module.map == memory_map_t::cmis ? 0x11 : 0x03;
            if (layout.name == "i2cdump"s && !is_flat(module) && !module.blocks.contains(last + 1))
                EXPECT_THAT(
                    dump_error_of(layout.write(module)),
                    MatchesRegex(
                        R"(/dump: my.hex: line [0-9]+: expected page 0[23]h up to here, as byte 2 says that there are pages \("flat": true beside the dump says otherwise\))"));
            else
                expect_module(layout.write(module), module);
        }
}

TEST_F(dumps, ten_modules_as_programs_print_them_become_the_same_memory)
{
    const char* const commands[] = {
        "hexdump -C",
        "hd",
        "hexdump -v -C",
        "xxd",
        "xxd -g1",
        "xxd -u",
        "xxd -c 8",
        "xxd -c 8 -g1",
        "xxd -c 32",
        "xxd -a",
        "xxd -p",
        "xxd -i",
        "od -A x -t x1",
        "od -A d -t x1",
        "od -t x1",
        "od -v -A n -t x1",
        "od -A x -t x1z",
        "od -v -w8 -t x1",
        "hexdump -v -e '/1 \"%02x\"'",
        "hexdump -v -e '16/1 \"%02x \" \"\\n\"'",
        "cat",
    };
    for (const char* name : ten_modules)
        for (const char* command : commands) {
            SCOPED_TRACE(name + ": "s + command);
            expect_module(output(command, whole(plugged(name))), plugged(name));
        }
    EXPECT_EQ(output("hexdump -v -C", window(plugged("qsfp28-sr4"))),
              hexdump_rows(window(plugged("qsfp28-sr4")), 0, "", "  ") + "00000100\n");
}

TEST_F(dumps, layouts_whose_bytes_could_be_swapped_or_missing_are_refused_with_their_line)
{
    const std::pair<const char*, const char*> commands[] = {
        {"hexdump", "0811"},
        {"hexdump -x", "0811"},
        {"hexdump -b", "021"},
        {"xxd -e", "00020811"},
        {"xxd -g4", "11080200"},
        {"xxd -b", "00010001"},
        {"od", "004021"},
        {"od -x", "0811"},
        {"od -A x -x", "0811"},
        {"od -A n -x", "0002"},
        {"od -c", "021"},
        {"od -t o1", "021"},
        {"od --endian=big -x", "1108"},
    };
    for (const auto& [command, word] : commands)
        EXPECT_EQ(
            dump_error_of(output(command, whole(plugged("qsfp28-sr4")))),
            "/dump: my.hex: line 1: expected two hexadecimal digits, not \"" + std::string{word} +
                "\", as other groups may be swapped or no bytes: make the dump with hexdump -C, xxd or od -A x -t x1")
            << command;
}

TEST_F(dumps, what_terminals_and_mails_add_is_no_part_of_them)
{
    const module_t module = plugged("qsfp28-sr4");
    const std::string plain = ethtool(module);
    const auto with = [&](const std::string& text, const std::string& replacement) {
        std::string result;
        for (std::size_t at = 0; at < plain.size(); ++at)
            if (plain.compare(at, text.size(), text) == 0) {
                result += replacement;
                at += text.size() - 1;
            } else {
                result += plain[at];
            }
        return result;
    };
    expect_module(with("\n", "\r\n"), module);
    expect_module(with("\n", "\n\n"), module);
    expect_module(with("0x0", "  0x0"), module);
    expect_module("> " + with("\n", "\n> "), module);
    expect_module(with("\t\t", "\xc2\xa0"), module);
    expect_module("\xef\xbb\xbf" + plain, module);
    expect_module(with("0x0", "\x1b[1;32m0x0\x1b[0m"), module);
    expect_module("\x1b]0;root@host: ~\aroot@host:~# ethtool -m eth0 hex on\n" + plain + "root@host:~# ", module);
    expect_module("Last login: Sun Nov 22 02:59:53 from 192.0.2.7\n[root@host ~]# sudo /sbin/ethtool -m eth0 hex on\n" +
                      plain + "[root@host ~]# exit\nlogout\n",
                  module);
    expect_module("# A capture of mine\n" + plain, module);
}

TEST_F(dumps, of_ethtool_the_command_line_tells_what_its_output_does_not)
{
    const module_t module = plugged("qsfpdd-dr4");
    const auto prompt = [](const std::string& words, const std::string& output) {
        return "$ ethtool -m eth0 " + words + '\n' + output;
    };
    const auto half = [](const bytes_t& bytes, unsigned number) {
        return bytes_t{bytes.begin() + 64 * number, bytes.begin() + 64 * (number + 1)};
    };
    const auto hexdumped = [](const bytes_t& bytes) { return hexdump_rows(bytes, 0, "", "  "); };
    expect_module(prompt("hex on offset 0 length 128", ethtool_rows(block(module, 0))) +
                      prompt("hex on offset 0x80 length 0x80", ethtool_rows(block(module, 1), 0x80)) +
                      prompt("raw on page 1 | hexdump -C", hexdumped(page(module, 1))) +
                      prompt("raw on page 0x02 length 128 | hexdump -C", hexdumped(page(module, 2))) +
                      prompt("raw on page 16 offset 192 length 64 | hexdump -C", hexdumped(half(page(module, 16), 1))) +
                      prompt("raw on page 16 offset 128 length 64 | hexdump -C", hexdumped(half(page(module, 16), 0))) +
                      "$ ssh host ethtool -m eth0 raw on page 17 bank 0 | hd\n" + hexdumped(page(module, 17)),
                  module);
}

TEST_F(dumps, a_mistake_is_said_with_its_line_and_what_stands_there)
{
    const std::string row = "03 04 07 10 00 00 00 00 00 00 00 06 67 00 00 00";
    const std::string flat_qsfp = hexdump_rows(flat(plugged("qsfp28-sr4"), 0x03), 0, "", "  ");
    const std::string sfp = hexdump_rows(whole(plugged("sfp-10g-sr")), 0, "", "  ");
    const std::string cmis = hexdump_rows(flat(plugged("qsfpdd-dr4"), 0x02), 0, "", "  ");
    const std::string sonic = sfputil(plugged("qsfp28-sr4"));
    const auto lines = [](const std::string& text, std::size_t first, std::size_t last) { // from 1
        std::istringstream stream{text};
        std::string result;
        std::string line;
        for (std::size_t number = 1; std::getline(stream, line); ++number)
            if (number >= first && number <= last)
                result += line + '\n';
        return result;
    };
    const auto changed = [](std::string text, const std::string& from, const std::string& to) {
        EXPECT_NE(text.find(from), std::string::npos) << from;
        return text.replace(text.find(from), from.size(), to);
    };
    const std::string make_one = R"(: make a dump with "ethtool -m DEVICE hex on" or hexdump -C)";
    const std::string groups =
        ", as other groups may be swapped or no bytes: make the dump with hexdump -C, xxd or od -A x -t x1";
    const std::string other_page = ": a heading, or a file of its own, would have to say which page it is";
    const std::string which_page =
        R"(a heading that says which page this is, or a rack that does: { "dump": FILE, "page": "11" })";
    const std::string repeated =
        ": another page or module needs a heading that says so, or a file of its own; of two readings leave one";
    struct row_t
    {
        const char* why;
        std::string dump, error;
    };
    // clang-format off
    const row_t rows[] = {
        {"nothing", "", ": expected a dump of a module's memory, but there is no byte in it"},
        {"a comment", "# nothing\n", ": expected a dump of a module's memory, but there is no byte in it"},
        {"another file", "{ \"map\": \"sfp\" }\n", ": line 1: expected bytes of a module's memory, not \"{ \"map\": \"sfp\" }\"" + make_one},
        {"decoded text", "\tIdentifier          : 0x03 (SFP)\n", ": line 1: expected bytes of a module's memory, not \"Identifier          : 0x03 (SFP)\"" + make_one},
        {"a program that failed", "$ ethtool -m eth9 hex on\nnetlink error: No such device\n",
         ": line 2: expected bytes of a module's memory, not \"netlink error: No such device\"" + make_one},
        {"UTF-16", "\xff\xfe" "0\0x\0"s, ": expected a text of 8-bit characters, not of UTF-16: save it as UTF-8"},
        {"no digits", "00: 03 xy", ": line 1: expected two hexadecimal digits, not \"xy\""},
        {"half a byte", "00 01\n02 3\n", ": line 2: expected two hexadecimal digits, not \"3\""},
        {"half a byte of digits alone", "0304071\n", ": line 1: expected pairs of hexadecimal digits, not \"0304071\""},
        {"a byte that was not read", "00: 03 XX 07\n", ": line 1: expected two hexadecimal digits, not \"XX\""},
        {"an address of odd width", "000010 0304 0710\n", ": line 1: expected two hexadecimal digits, not \"0304\"" + groups},
        {"words of no address", "0403 1007\n", ": line 1: expected two hexadecimal digits, not \"1007\"" + groups},
        {"words of i2cdump", "     0,8  1,9  2,a  3,b  4,c  5,d  6,e  7,f\n00: 0403 0704\n",
         ": line 1: expected bytes, not words of i2cdump, which overlap: make the dump with its mode b"},
        {"an SMBus block", "# i2cdump -y 4 0x50 s\n" + i2cdump_rows(window(plugged("qsfpdd-flat"))),
         ": line 1: expected another mode of i2cdump than \"s\", in which bytes overlap or are missing: make the dump with mode b"},
        {"the kernel's log", "[   12.345999] sfp EE: 00000000: " + row + "  ............g...\n",
         ": line 1: expected whole pages, not the first bytes in the kernel's log: make a dump with \"ethtool -m DEVICE hex on\""},
        {"an address beyond all pages", "0x8081: 00", ": line 1: expected an address of at most 0x8080, not \"8081\""},
        {"an endless address", "0xffffffffffffffffffff: 00", ": line 1: expected an address of at most 0x8080, not \"ffffffffffffffffffff\""},
        {"too many bytes", "0x8070: 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10", ": line 1: expected no more than 0x8080 bytes"},
        {"an address alone", "00:\n10: " + row, ": line 1: expected bytes after the address, not \"00:\""},
        {"an address that goes back", lines(flat_qsfp, 1, 16) + lines(flat_qsfp, 1, 16), ": line 17: expected address 0x100, not 0x00" + other_page},
        {"a line that is missing", lines(flat_qsfp, 1, 3) + lines(flat_qsfp, 5, 40), ": line 4: expected address 0x30, not 0x40"},
        {"a line that broke off", changed(flat_qsfp, "00 00 00 00 00 00 21 00  00 00 81 1f 00 00 00 00", "00 00 00 00 00 00 21 00"),
         ": line 3: expected address 0x18, not 0x20"},
        {"a line that goes on in the next one", "00: 03 04 07 10 00 00 00 00\n00 00 00 06 67 00 00 00\n",
         ": line 2: expected an address before the bytes, not \"00 00 00 06 67 00 00 00\""},
        {"an address among bytes", row + "\n10: " + row + '\n', ": line 2: expected bytes without an address, not \"10: " + row.substr(0, 36) + "...\""},
        {"something else in between", lines(flat_qsfp, 1, 2) + "^C\n" + lines(flat_qsfp, 4, 40), ": line 3: expected bytes of address 0x20, not \"^C\""},
        {"something else at the end", lines(flat_qsfp, 1, 39) + "^C\n", ": line 40: expected bytes of address 0x270, not \"^C\""},
        {"words that are digits, too", "A dump\n", ": line 1: expected bytes of a module's memory, not \"A dump\"" + make_one},
        {"something else behind bytes", row + "\n03 04 xy\n", ": line 2: expected bytes of address 0x10, not \"03 04 xy\""},
        {"something else among bytes", row + "\nlost\n" + row + '\n', ": line 2: expected bytes, not \"lost\""},
        {"a star at the end", lines(flat_qsfp, 1, 4) + "*\n", ": line 5: expected an address after \"*\", which says how often it repeats"},
        {"a star without addresses", row + "\n*\n", ": line 2: expected a line with an address before \"*\", which says how often it repeats"},
        {"a star that does not reach", "00: 03 04 07\n*\n08: 00\n", ": line 3: expected address 0x03, not 0x08"},
        {"a length that is another one", lines(flat_qsfp, 1, 40) + "00000290\n", ": line 41: expected address 0x280, not 0x290"},
        {"one line whose base nobody knows", "0000000 " + row, ": line 1: expected addresses of which two in a row tell their base, not \"0000000 " + row.substr(0, 32) +
         "...\": make the dump with hexdump -C, xxd or od -A x -t x1"},
        {"half a page", lines(flat_qsfp, 1, 12), ": line 12: expected address 0xc0 of page 00h after this, as pages have to be whole"},
        {"the other half of a page", "$ ethtool -m eth0 page 3 offset 192 length 64\n" + ethtool_rows(bytes_t(64), 0xc0),
         ": line 4: expected address 0x80 of page 03h before this, as pages have to be whole"},
        {"a lower page alone", lines(flat_qsfp, 1, 8), ": line 8: expected page 00h up to here, which every module has"},
        {"no limits", lines(flat_qsfp, 1, 32), R"(: line 32: expected page 03h up to here, as byte 2 says that there are pages ("flat": true beside the dump says otherwise))"},
        {"no diagnostics", lines(sfp, 1, 16), R"(: line 16: expected A2h up to here, as byte 92 says that the module measures ("calibration": "none" beside the dump says otherwise))"},
        {"no lanes", cmis, R"(: line 32: expected page 11h up to here, as byte 2 says that there are pages ("flat": true beside the dump says otherwise))"},
        {"an unknown identifier", changed(flat_qsfp, "11 08 02", "7a 08 02"), ": line 1: expected the identifier of a module at address 0, not 0x7a: if it is a module's, the rack has to say its \"map\""},
        {"an upper half alone", lines(flat_qsfp, 9, 16), ": line 1: expected " + which_page},
        {"an upper half of an unknown page", lines(flat_qsfp, 1, 8) + hexdump_rows(page(plugged("qsfp28-sr4"), 3), 0x80, "", "  "), ": line 9: expected " + which_page},
        {"another page without a heading", flat_qsfp + ethtool_rows(page(plugged("qsfpdd-dr4"), 17), 0x80), ": line 43: expected " + which_page},
        {"two readings", i2cdump(plugged("qsfp28-sr4")) + "$ i2cdump -y 4 0x50\n" + i2cdump_rows(window(module_from(R"({"module": "qsfp28-sr4", "temperature": 5})"))),
         ": line 42: expected byte 22 of the lower page as in line 5" + repeated},
        {"two modules", sonic + "EEPROM hexdump for port Ethernet4\n", ": line 72: expected one module, but that of \"Ethernet4\" comes after that of \"Ethernet0\": make a dump of one port with -p"},
        {"a page that could not be read", changed(sonic.substr(0, sonic.find("        Upper page 1h")), "Upper page 0h\n", "Upper page 0h\nError: Failed to read EEPROM for page 0h\n") ,
         R"(: line 21: expected page 03h up to here, as byte 2 says that there are pages ("flat": true beside the dump says otherwise))"},
        {"a page of unclear base", "Upper page 11\n80: 00\n", ": line 1: expected a page such as 11h or 0x11, as \"11\" may be either"},
        {"a page of 300", "$ ethtool -m eth0 hex on page 300\n", ": line 1: expected a number of a page, a bank or a byte, not \"300\""},
        {"another device", "$ i2cdump -y 4 0x52\n", ": line 1: expected a module's address, 0x50 or 0x51, not \"0x52\""},
        {"a page with a lower half", "$ ethtool -m eth0 page 3 length 128\n" + ethtool_rows(block(plugged("qsfp28-sr4"), 0)), ": line 4: expected addresses from 0x80 on, as of an upper page"},
        {"a lower page with an upper half", "Lower page\n" + lines(flat_qsfp, 1, 16), ": line 10: expected addresses below 0x80, as of a lower page"},
        {"a page of more than a window", "Upper page 1h\n" + lines(flat_qsfp, 9, 40), ": line 33: expected addresses up to 0xff, as the bytes are said to be of one page"},
        {"a second device of a QSFP", flat_qsfp + "2-wire device address 0x51\n" + lines(flat_qsfp, 1, 8), ": line 42: expected pages that modules with identifier 0x11 have here, not the lower page of device 51h"},
        {"another bank", flat_qsfp + "$ ethtool -m eth0 page 0x11 bank 1\n" + ethtool_rows(bytes_t(128, 1), 0x80), ": line 44: expected pages that modules with identifier 0x11 have here, not page 11h of bank 1"},
        {"an SFP that is too large", hexdump_rows(whole(plugged("sfp-10g-sr")) + bytes_t(128), 0, "", "  "), ": line 40: expected A0h and A2h alone, as of an SFP: at most 512 bytes"},
        {"a binary file that broke off", binary(whole(plugged("qsfp28-sr4"))).substr(0, 200), ": expected a multiple of 128 bytes, at most 32896, not 200, as it is no text"},
        {"a binary file without limits", binary(window(plugged("qsfp28-sr4"))), R"(: expected page 03h up to here, as byte 2 says that there are pages ("flat": true beside the dump says otherwise))"},
        {"an empty cage", std::string(256, '\xff'), ": expected the identifier of a module at address 0, not 0xff: if it is a module's, the rack has to say its \"map\""},
        {"a large text", std::string((1U << 20U) + 1, ' '), ": expected a text of at most 1 MiB"},
    };
    // clang-format on
    for (const row_t& row_of_table : rows)
        EXPECT_EQ(dump_error_of(row_of_table.dump), "/dump: my.hex" + row_of_table.error) << row_of_table.why;
}

TEST_F(dumps, pages_may_come_as_files_of_their_own)
{
    const module_t module = plugged("qsfpdd-dr4");
    file("lower.bin", binary(block(module, 0)));
    file("p00.hex", output("xxd -p", block(module, 1)));
    file("p01.hex", output("hexdump -C", page(module, 1)));
    file("p02.hex", ethtool_rows(page(module, 2), 0x80));
    file("p10.hex", i2cdump_rows(window(module, 0x10)));
    file("p11.bin", binary(page(module, 0x11)));
    EXPECT_EQ(module_from(R"({"dump": [
        {"dump": "lower.bin"}, {"dump": "p00.hex", "page": "00"}, {"dump": "p01.hex", "page": "01"},
        {"dump": "p02.hex", "page": "02"}, {"dump": "p10.hex", "page": "10"}, {"dump": "p11.bin", "page": "11"}]})")
                  .blocks,
              module.blocks);
    const module_t sfp = plugged("sfp-10g-sr");
    file("a0.hex", output("xxd", window(sfp)));
    file("a2.bin", binary(diagnostics(sfp)));
    EXPECT_EQ(module_from(R"({"dump": [{"dump": "a2.bin", "page": "A2"}, {"dump": "a0.hex"}]})").blocks, sfp.blocks);
}

TEST_F(dumps, of_several_files_mistakes_name_the_one)
{
    const module_t module = plugged("qsfp28-sr4");
    file("whole.bin", binary(whole(module)));
    file("window.hex", i2cdump_rows(window(module, 3)));
    file("other.hex", ethtool_rows(bytes_t(128, 1), 0x80));
    const std::pair<const char*, const char*> rows[] = {
        {R"({"dump": [{"dump": "whole.bin"}, {"dump": "other.hex", "page": "03"}]})",
         "/dump: other.hex: line 3: expected page 03h once, but other bytes of it are in whole.bin"},
        {R"({"dump": [{"dump": "other.hex", "page": "03"}]})",
         "/dump: other.hex: line 10: expected the lower page, or A0h, up to here"},
        {R"({"dump": [{"dump": "whole.bin"}, {"dump": "other.hex"}]})",
         R"(/dump/1/dump: other.hex: line 3: expected a heading that says which page this is, or a rack that does: { "dump": FILE, "page": "11" })"},
        {R"({"dump": "whole.bin", "page": "11"})",
         "/dump: whole.bin: expected addresses up to 0xff, as the bytes are said to be of one page"},
        {R"({"dump": "window.hex", "page": "03"})",
         "/dump: window.hex: line 17: expected the lower page, or A0h, up to here"},
        {R"({"dump": [{"dump": "whole.bin"}, {"dump": "window.hex", "page": "03"}]})", "no error"},
    };
    for (const auto& [cage, error] : rows)
        EXPECT_EQ(error_of(cage), error) << cage;
    file("headed.hex", "Upper page 2h\n" + hexdump_rows(page(module, 2), 0x80, "", "  "));
    EXPECT_EQ(error_of(R"({"dump": [{"dump": "whole.bin"}, {"dump": "headed.hex", "page": "03"}]})"),
              "/dump/1/dump: headed.hex: line 2: expected bytes of the page that the rack names, but a heading names "
              "another one");
    file("half.hex", ethtool_rows(block(module, 0)));
    EXPECT_EQ(error_of(R"({"dump": [{"dump": "whole.bin"}, {"dump": "half.hex", "page": "A2"}]})"),
              "/dump: half.hex: line 3: expected pages that modules with identifier 0x11 have here, not the lower page "
              "of device 51h");
}

TEST_F(dumps, a_rack_may_say_that_a_module_is_less_than_it_advertises)
{
    const module_t qsfp = plugged("qsfp28-sr4");
    file("my.bin", binary(window(qsfp)));
    const module_t flat_qsfp = module_from(R"({"dump": "my.bin", "flat": true})");
    EXPECT_EQ(flat_qsfp.blocks.size(), 2U);
    EXPECT_EQ(flat_qsfp.byte(2), qsfp.byte(2) | 0x04U);
    file("my.bin", binary(window(plugged("sfp-10g-sr"))));
    EXPECT_EQ(module_from(R"({"dump": "my.bin", "calibration": "none"})").blocks.size(), 2U);
    file("my.bin", binary(flat(plugged("prototype"), 0x03)));
    EXPECT_EQ(module_from(R"({"dump": "my.bin", "map": "qsfp"})").blocks, plugged("prototype").blocks);
}

TEST_F(dumps, identifier_0x0b_is_an_sfp)
{
    module_t module = plugged("sfp-10g-sr");
    module.set_byte(0, 0x0b);
    expect_module(binary(whole(module)), module);
}

TEST_F(dumps, half_of_the_other_device_follows_where_a_router_prints_256_bytes)
{
    const module_t module = plugged("sfp-10g-sr");
    std::string text = "  eeprom-checksum: good\n";
    const bytes_t bytes = block(module, 0) + block(module, 2);
    for (unsigned at = 0; at < bytes.size(); at += 16) {
        text += at == 0 ? "           eeprom: " : "                   ";
        text += format("%04x: ", at);
        for (unsigned byte = at; byte < at + 16; ++byte)
            text += format("%02x ", bytes[byte]) + (byte == at + 7 ? " " : "");
        text += " ........ ........\n";
    }
    module_t expected = module;
    expected.blocks[1] = {};
    expected.blocks[3] = {};
    expect_module(text, expected);
}

TEST_F(dumps, text_after_16_bytes_and_one_blank_is_text_even_where_it_looks_like_bytes)
{
    const module_t module = plugged("qsfp28-sr4");
    const bytes_t bytes = whole(module);
    std::string text;
    for (unsigned at = 0; at < bytes.size(); ++at)
        text +=
            (at % 16 == 0 ? format("%04x:", at) : "") + format(" %02x", bytes[at]) + (at % 16 == 15 ? " ab cd\n" : "");
    expect_module(text, module);
}

TEST_F(dumps, a_page_that_only_repeats_page_0_is_not_there)
{
    module_t module = plugged("qsfp28-sr4");
    module.blocks.erase(4);
    file("my.bin", binary(flat(module, 0x03)));
    EXPECT_EQ(module_from(R"({"dump": "my.bin"})").blocks, module.blocks);
}

TEST_F(dumps, a_captured_module_expands_to_itself)
{
    file("my.bin", binary(whole(plugged("qsfpdd-dr4"))));
    const rack_t rack = load_rack(file("my.json", rack_with(R"("i2c": {"cages": [{"dump": "my.bin"}]})")));
    EXPECT_TRUE(rack.accelerators.at(0).i2c.cages.at(0).module->captured);
    EXPECT_EQ(parse_rack(expand(rack), "expanded.json").accelerators.at(0).i2c, rack.accelerators.at(0).i2c);
}

TEST_F(dumps, every_truncation_is_a_module_or_a_mistake_and_nothing_worse)
{
    const std::string dump = "$ ethtool -m eth0 hex on\nOffset\t\tValues\n0x0000:\t\t03 04 | x\n*\n0x0080: ff # y\n"
                             "Upper page 1h\n00000080: 1122 33  ..3\r\nA2h dump\n00000000  00 01\n*\n00000080\n";
    for (std::size_t length = 0; length <= dump.size(); ++length)
        try {
            read_dump(dump.substr(0, length));
        } catch (const dump_error& error) {
            EXPECT_THAT(error.what(), StartsWith("expected ")) << length;
        }
}

TEST_F(dumps, new_makes_a_rack_with_the_module_in_the_first_cage)
{
    const module_t module = plugged("qsfpdd-dr4");
    file("my.hex", ethtool(module));
    const run_t made = run_program(IVRA_VIRTUAL_COMMAND, {"new", "--dump", folder / "my.hex", "bittware_xupp3r"});
    EXPECT_EQ(made.err, "");
    EXPECT_EQ(made.status, 0);
    const std::vector<cage_t> cages = parse_rack(made.out, "new.json").accelerators.at(0).i2c.cages;
    ASSERT_EQ(cages.size(), 4U);
    EXPECT_EQ(cages[0].module->blocks, module.blocks);
    EXPECT_TRUE(cages[0].module->captured);
    EXPECT_FALSE(cages[1].module);

    const fs::path cut = file("cut.hex", ethtool_rows(bytes_t(55, 0x18)));
    const run_t refused = run_program(IVRA_VIRTUAL_COMMAND, {"new", "--dump=" + cut.string(), "xilinx_u200"});
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "ivra-virtual: " + cut.string() +
                               ": line 6: expected address 0x37 of the lower page after " +
                               "this, as pages have to be whole\n");
    EXPECT_EQ(refused.status, 1);
    const run_t without = run_program(IVRA_VIRTUAL_COMMAND, {"new", "--dump=" + cut.string(), "xilinx_u50"});
    EXPECT_EQ(without.err, "ivra-virtual: new: a board of the model \"xilinx_u50\" has no cage for --dump\n"
                           "ivra-virtual: try \"ivra-virtual new --help\"\n");
    EXPECT_EQ(without.status, 64);
}

} // namespace ivra::tests
