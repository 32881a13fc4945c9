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

module_t named(const std::string& name)
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
            const module_t module = named(name);
            // A page that there is not shows page 00h; i2cdump does not tell which one was asked for.
            const unsigned last = module.map == memory_map_t::cmis ? 0x11 : 0x03;
            if (layout.name == "i2cdump"s && !is_flat(module) && !module.blocks.contains(last + 1))
                EXPECT_THAT(
                    dump_error_of(layout.write(module)),
                    MatchesRegex("/dump: expected page [01][0-9]h, as byte 2 says that there is one \\(\"flat\": "
                                 "true beside the dump says otherwise\\), which is not in my.hex up to its line "
                                 "[0-9]+"));
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
            expect_module(output(command, whole(named(name))), named(name));
        }
    EXPECT_EQ(output("hexdump -v -C", window(named("qsfp28-sr4"))),
              hexdump_rows(window(named("qsfp28-sr4")), 0, "", "  ") + "00000100\n");
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
            dump_error_of(output(command, whole(named("qsfp28-sr4")))),
            "/dump: my.hex: line 1: expected two hexadecimal digits, not \"" + std::string{word} +
                "\", as other groups may be swapped or no bytes: make the dump with hexdump -C, xxd or od -A x -t x1")
            << command;
}

} // namespace ivra::tests
