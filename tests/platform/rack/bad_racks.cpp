#include "bad_racks.h"

namespace ivra::tests {

namespace {

using namespace std::string_literals;

std::string repeated(const std::string& text, std::size_t count)
{
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

const std::string known_members =
    "name, model, board, uid, open, fpga, mac_addresses, flash, mmios, cores, i2c, bmc, xmc";
const std::string text_expected = R"(a text of at most 4096 bytes, or { "hex": "ff41" } for any bytes)";
const std::string name_expected =
    R"(a text of at most 4096 bytes, or { "hex": "ff41" } for any bytes, or null for no name)";
/// Of a text of so many bytes.
std::string text_of(std::size_t most)
{
    return "a text of at most " + std::to_string(most) + R"( bytes, or { "hex": "ff41" } for any bytes)";
}

std::string hex_of(std::size_t most)
{
    return "at most " + std::to_string(most) + " bytes as pairs of hexadecimal digits";
}

const std::string bytes_expected = R"(a number of bytes such as 4096, "0x1000", "64 KiB" or "128 MiB")";
const std::string word_expected = R"(a 32-bit number such as 475 or "0x1db")";
/// What is added for digits that may be decimal or hexadecimal.
const std::string digits = "; a text of digits begins with 0x";
const std::string size_digits = "; a text of digits begins with 0x or ends with a unit";

const std::string duration_expected = R"(a time such as "1.5 s", "30 ms" or "50 us", or "never")";
const std::string card_text_expected =
    R"(a text of at most 255 bytes, or { "hex": "ff41" } for any bytes, or null for a field that is not sent)";

std::string xmc_with(const std::string& members)
{
    return rack_with(R"("xmc": {)" + members + "}");
}

std::string card_with(const std::string& members)
{
    return xmc_with(R"("card": {)" + members + "}");
}

const std::string eeprom_expected =
    R"(a text of at most 256 bytes, or { "hex": "ff41" } for any bytes, or null for an EEPROM that does not answer)";
const std::string cage_expected =
    R"(a cage: a module such as "qsfp28-sr4" or { "module": "qsfp28-sr4", "temperature": 33 }, "empty" for one that reads as all ones, or "silent" for one that does not acknowledge)";

const std::string dump_expected = R"(a file with the module's memory, or a list of { "dump": FILE, "page": "11" })";
const std::string dump_page_expected =
    "the page that a dump is: lower, 00 to ff in small letters, or of an SFP A0 or A2";

const std::string those_there_are =
    "prototype, qsfp-lr4, qsfp-plus-cmis, qsfp28-copper, qsfp28-sr4, qsfpdd-copper, qsfpdd-dr4, qsfpdd-flat, "
    "qsfpdd-zr, "
    "sfp-10g-lr, sfp-10g-sr, sfp-dark-receiver, sfp-external-calibration, sfp-no-diagnostics";

std::string i2c_with(const std::string& members)
{
    return rack_with(R"("i2c": {)" + members + "}");
}

/// A module in the first cage.
std::string module_with(const std::string& members)
{
    return i2c_with(R"("cages": [{)" + members + "}]");
}

/// A module with limits of one monitor.
std::string module_limit(const std::string& map, const std::string& monitor, const std::string& limits)
{
    return module_with(R"("map": ")" + map + R"(", "limits": {")" + monitor + R"(": {)" + limits + "}}");
}

/// A device on bus 0 of a board with two cages.
std::string device_with(const std::string& members)
{
    return i2c_with(R"("buses": [{"index": 0, "devices": [{)" + members + "}]}]");
}

/// Cores 475 of these sizes, one after the other.
std::string xmc_cores(const std::vector<std::string>& sizes)
{
    std::string text;
    for (std::size_t at = 0; at < sizes.size(); ++at)
        text += (at == 0 ? "" : ", ") + R"({"hardware_id": 475, "address": )"s + std::to_string(at << 20U) +
                R"(, "size": ")" + sizes[at] + "\"}";
    return R"("cores": [)" + text + "]";
}

const std::string byte_expected = R"(a number from 0 to 255, such as 33 or "0x21", or null)";
const std::string raw_expected = "at most 1024 bytes as pairs of hexadecimal digits, or null";
const std::string boot_image_expected = R"(none, primary or backup, or the byte that it says, such as "0x04")";

std::string bmc_with(const std::string& members)
{
    return rack_with(R"("bmc": {)" + members + "}");
}

std::string fru_with(const std::string& members)
{
    return bmc_with(R"("fru": {)" + members + "}");
}

std::string bmc_sensor_with(const std::string& members)
{
    return bmc_with(R"("sensors": [{)" + members + "}]");
}

/// A sensor with limits.
std::string limit_with(const std::string& members, const std::string& limits)
{
    return bmc_sensor_with(R"("name": "a", )" + members + R"("limits": {)" + limits + "}");
}

std::string bmc_answer_with(const std::string& members)
{
    return bmc_with(R"("answers": [{)" + members + "}]");
}

std::string flash_with(const std::string& members)
{
    return rack_with(R"("flash": {)" + members + "}");
}

std::string section_with(const std::string& members)
{
    return flash_with(R"("size": "1 MiB", "sector": "64 KiB", "sections": [{)" + members + "}]");
}

std::string core_with(const std::string& members)
{
    return rack_with(R"("cores": [{)" + members + "}]");
}

} // namespace

std::string rack_with(const std::string& members)
{
    return R"({"accelerators": [{"model": "xilinx_u200", )" + members + "}]}";
}

const std::vector<bad_rack_t>& bad_racks()
{
    using enum seen_by_t;
    // clang-format off
    static const std::vector<bad_rack_t> rows = {
        // ---- not JSON ----
        {"an empty file", "", R"(empty, expected a rack: { "accelerators": [ ... ] })", parser},
        {"a byte order mark alone", "\xef\xbb\xbf", R"(empty, expected a rack: { "accelerators": [ ... ] })", parser},
        {"white space alone", " \n\n ", "line 3, column 2: not JSON: The document is empty", parser},
        {"truncated in a list", "{\n  \"accelerators\": [", "line 2, column 20: not JSON: Invalid value", parser},
        {"truncated in a text", "{\"acc", "line 1, column 6: not JSON: Missing a closing quotation mark in string", parser},
        {"a comma too many", R"({"accelerators": [],})", "line 1, column 21: not JSON: Missing a name for object member", parser},
        {"a comment", "{} // good?", "line 1, column 4: not JSON: The document root must not be followed by other values", parser},
        {"text after the rack", "{\"accelerators\": []}\n{}",
         "line 2, column 1: not JSON: The document root must not be followed by other values", parser},
        {"a NUL byte after the rack", "{\"accelerators\": []}\n\0x"s, "line 2, column 1: expected text, not a NUL byte", parser},
        {"a NUL byte in a text", "{\"accelerators\": [{\"model\": \"a\0b\"}]}"s, "line 1, column 31: expected text, not a NUL byte", parser},
        {"a control character in a text", "{\"a\": \"\x1b[31m\"}", R"(line 1, column 8: not JSON: A control character in a string, expected \u001b)", parser},
        {"bytes that are not UTF-8", "{\"\xc3\xa4\": \"\xff\"}", "line 1, column 8: not JSON: Invalid encoding in string", parser},
        {"half a surrogate pair", R"({"a": "\ud800"})", "line 1, column 8: not JSON: The surrogate pair in string is invalid", parser},
        {"a number beyond all doubles", rack_with(R"("fpga": {"temperature": 1e999})"),
         "line 1, column 68: not JSON: Number too big to be stored in double", parser},
        {"a number of so many digits", rack_with(R"("fpga": {"temperature": )" + repeated("9", 400) + "}"),
         "line 1, column 68: not JSON: Number too big to be stored in double", parser},
        {"a number just beyond all doubles", rack_with(R"("fpga": {"temperature": 1.8e308})"),
         "/accelerators/0/fpga/temperature: expected a number that a double can hold", parser},
        {"a number too small for a double", rack_with(R"("fpga": {"temperature": 1e-400})"),
         "/accelerators/0/fpga/temperature: expected a number that a double can hold", parser},
        {"not a number", rack_with(R"("fpga": {"temperature": NaN})"), "line 1, column 68: not JSON: Invalid value", parser},
        {"a hundred thousand lists", repeated("[", 100000), repeated("/0", 32) + ": expected no more than 32 levels of nesting", parser},
        {"a hundred thousand objects", repeated("{\"a\":", 100000), repeated("/a", 32) + ": expected no more than 32 levels of nesting", parser},
        {"a member twice", R"({"accelerators": [{"model": "a"}, {"model": "a", "uid": "x", "model": "a"}]})",
         "/accelerators/1/model: expected this member once, but it comes again", parser},
        {"a member twice, once escaped", R"({"accelerators": [], "\u0061ccelerators": []})",
         "/accelerators: expected this member once, but it comes again", parser},

        // ---- the whole ----
        {"no object", "[]", R"(expected a rack: { "accelerators": [ ... ] })", schema},
        {"a number", "18446744073709551616", R"(expected a rack: { "accelerators": [ ... ] })", schema},
        {"nothing in it", "{}", R"(expected a member "accelerators")", schema},
        {"an unknown member", R"({"accelerators": [], "name": "x"})", "/name: unknown member, expected one of $schema, accelerators", schema},
        {"an unknown member with a hostile name", R"({"accelerators": [], "\u001b[2J/~\u0000": 1})",
         R"(/\x1b[2J~1~0\x00: unknown member, expected one of $schema, accelerators)", schema},
        {"a schema that is no text", R"({"$schema": 1, "accelerators": []})",
         "/$schema: expected a text: where an editor finds the schema of racks", schema},
        {"accelerators that are no list", R"({"accelerators": {}})", "/accelerators: expected a list of at most 65536 accelerators", schema},
        {"more accelerators than an index can tell apart",
         R"({"accelerators": [{"model": "a"})" + repeated(R"(,{"model":"a"})", 65536) + "]}",
         "/accelerators: expected a list of at most 65536 accelerators", schema},

        // ---- an accelerator ----
        {"an accelerator that is a text", R"({"accelerators": ["u200"]})",
         R"(/accelerators/0: expected an accelerator: { "model": "xilinx_u200", ... })", schema},
        {"no model", R"({"accelerators": [{"model": "a"}, {"name": "x"}]})", R"(/accelerators/1: expected a member "model")", schema},
        {"a misspelt member", rack_with(R"("uuid": "x")"), "/accelerators/0/uuid: unknown member, expected one of " + known_members, schema},
        {"a model that is null", R"({"accelerators": [{"model": null}]})", "/accelerators/0/model: expected " + text_expected, schema},
        {"a name that is a number", rack_with(R"("name": 3)"), "/accelerators/0/name: expected " + name_expected, schema},
        {"a name that is too long", rack_with(R"("name": ")" + repeated("n", 4097) + '"'), "/accelerators/0/name: expected " + name_expected, schema},
        {"bytes with half a pair", rack_with(R"("name": {"hex": "ff4"})"),
         "/accelerators/0/name/hex: expected at most 4096 bytes as pairs of hexadecimal digits", schema},
        {"bytes with another letter", rack_with(R"("name": {"hex": "fg"})"),
         "/accelerators/0/name/hex: expected at most 4096 bytes as pairs of hexadecimal digits", schema},
        {"too many bytes", rack_with(R"("name": {"hex": ")" + repeated("ff", 4097) + "\"}"),
         "/accelerators/0/name/hex: expected at most 4096 bytes as pairs of hexadecimal digits", schema},
        {"bytes without hex", rack_with(R"("name": {})"), R"(/accelerators/0/name: expected a member "hex")", schema},
        {"bytes and something else", rack_with(R"("name": {"hex": "", "text": ""})"),
         "/accelerators/0/name/text: unknown member, expected one of hex", schema},
        {"a NUL behind good digits", rack_with(R"("name": {"hex": "ff\u0000"})"), "/accelerators/0/name/hex: expected " + hex_of(4096), schema},
        {"a uid without a character", rack_with(R"("uid": "")"),
         "/accelerators/0/uid: expected a text of at least one character, none of them NUL", code},
        {"a uid with NUL", rack_with(R"("uid": "a\u0000b")"),
         "/accelerators/0/uid: expected a text of at least one character, none of them NUL", code},
        {"a uid twice", R"({"accelerators": [{"model": "a", "uid": "x"}, {"model": "a", "uid": "y"}, {"model": "b", "uid": "x"}]})",
         "/accelerators/2/uid: expected a text that no other accelerator has", code},
        {"a uid twice, once as bytes", R"({"accelerators": [{"model": "a", "uid": "x"}, {"model": "a", "uid": {"hex": "78"}}]})",
         "/accelerators/1/uid: expected a text that no other accelerator has", code},
        {"an error that there is not", rack_with(R"("open": "EUCLEAN")"),
         "/accelerators/0/open: expected the error with which opening fails (EACCES, EBUSY, EINTR, EINVAL, EIO, EMFILE, ENODEV, ENOENT, "
         "ENOMEM, ENXIO, EPERM or ETIMEDOUT), or null", schema},
        {"an error as a number", rack_with(R"("open": 13)"),
         "/accelerators/0/open: expected the error with which opening fails (EACCES, EBUSY, EINTR, EINVAL, EIO, EMFILE, ENODEV, ENOENT, "
         "ENOMEM, ENXIO, EPERM or ETIMEDOUT), or null", schema},
        {"too many spaces", rack_with(R"("mmios": 17)"), "/accelerators/0/mmios: expected a number of MMIO spaces, 0 to 16", schema},
        {"less than no space", rack_with(R"("mmios": -1)"), "/accelerators/0/mmios: expected a number of MMIO spaces, 0 to 16", schema},
        {"half a space", rack_with(R"("mmios": 0.5)"), "/accelerators/0/mmios: expected a number of MMIO spaces, 0 to 16", schema},
        {"a management controller that is a number", rack_with(R"("bmc": 1)"),
         R"(/accelerators/0/bmc: expected { "boot_image": ..., "fru": ..., "sensors": ... } for a management controller behind a UART, or null for none)", schema},

        // ---- the FPGA ----
        {"an FPGA that is a text", rack_with(R"("fpga": "xcu200")"),
         R"(/accelerators/0/fpga: expected the FPGA: { "device": ..., "serial": ..., "temperature": ... })", schema},
        {"an unknown member of the FPGA", rack_with(R"("fpga": {"colour": 1})"),
         "/accelerators/0/fpga/colour: unknown member, expected one of device, serial, temperature", schema},
        {"a device that is a list", rack_with(R"("fpga": {"device": []})"), "/accelerators/0/fpga/device: expected " + text_expected, schema},
        {"a short serial", rack_with(R"("fpga": {"serial": "4002000001285c0f1a10428"})"),
         "/accelerators/0/fpga/serial: expected 24 hexadecimal digits, most significant first", schema},
        {"a long serial", rack_with(R"("fpga": {"serial": "4002000001285c0f1a1042850"})"),
         "/accelerators/0/fpga/serial: expected 24 hexadecimal digits, most significant first", schema},
        {"a serial with 0x", rack_with(R"("fpga": {"serial": "0x02000001285c0f1a104285"})"),
         "/accelerators/0/fpga/serial: expected 24 hexadecimal digits, most significant first", schema},
        {"a temperature with its unit", rack_with(R"("fpga": {"temperature": "45.5 C"})"),
         "/accelerators/0/fpga/temperature: expected a number of degrees Celsius", schema},

        // ---- MAC addresses ----
        {"MAC addresses that are one", rack_with(R"("mac_addresses": "02:00:00:00:10:00")"),
         R"(/accelerators/0/mac_addresses: expected { "first": "02:00:00:00:10:00", "count": 4 } or a list of at most 4096 MAC addresses)", schema},
        {"a block without a count", rack_with(R"("mac_addresses": {"first": "02:00:00:00:10:00"})"),
         R"(/accelerators/0/mac_addresses: expected a member "count")", schema},
        {"a block without a first", rack_with(R"("mac_addresses": {"count": 1})"),
         R"(/accelerators/0/mac_addresses: expected a member "first")", schema},
        {"five bytes", rack_with(R"("mac_addresses": ["02:00:00:00:00:00", "02:00:00:00:10"])"),
         "/accelerators/0/mac_addresses/1: expected a MAC address such as 02:00:00:00:10:00", schema},
        {"dashes", rack_with(R"("mac_addresses": {"first": "02-00-00-00-10-00", "count": 1})"),
         "/accelerators/0/mac_addresses/first: expected a MAC address such as 02:00:00:00:10:00", schema},
        {"too many in a block", rack_with(R"("mac_addresses": {"first": "02:00:00:00:10:00", "count": 4097})"),
         "/accelerators/0/mac_addresses/count: expected a number of addresses, 0 to 4096", schema},
        {"less than none in a block", rack_with(R"("mac_addresses": {"first": "02:00:00:00:10:00", "count": -1})"),
         "/accelerators/0/mac_addresses/count: expected a number of addresses, 0 to 4096", schema},
        {"a block beyond the last address", rack_with(R"("mac_addresses": {"first": "ff:ff:ff:ff:ff:fe", "count": 3})"),
         "/accelerators/0/mac_addresses/count: expected at most 2, as MAC addresses end at ff:ff:ff:ff:ff:ff", code},

        // ---- the flash ----
        {"a flash that is a size", rack_with(R"("flash": "128 MiB")"),
         R"(/accelerators/0/flash: expected the flash: { "size": ..., "sector": ..., "sections": [ ... ] })", schema},
        {"an unknown unit", flash_with(R"("size": "128 MB")"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a unit without a number", flash_with(R"("size": "MiB")"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a fraction with a unit", flash_with(R"("size": "1.5 MiB")"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a negative size", flash_with(R"("size": -1)"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a size that is not whole", flash_with(R"("size": 65536.0)"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a size of more than 64 bits", flash_with(R"("size": 18446744073709551616)"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a size of 64 bits", flash_with(R"("size": 18446744073709551615)"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a text of more than 64 bits", flash_with(R"("size": "0x10000000000000000")"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a unit that overflows", flash_with(R"("size": "9999999999999999999 GiB")"),
         "/accelerators/0/flash/size: expected a size from 1 byte to 4 GiB", code},
        {"a flash of nothing", flash_with(R"("size": 0)"), "/accelerators/0/flash/size: expected a size from 1 byte to 4 GiB", code},
        {"a flash of too much", flash_with(R"("size": "4097 MiB")"), "/accelerators/0/flash/size: expected a size from 1 byte to 4 GiB", code},
        {"a NUL behind a good size", flash_with(R"("size": "128 MiB\u0000")"), "/accelerators/0/flash/size: expected " + bytes_expected, schema},
        {"a sector of nothing", flash_with(R"("sector": "0x0")"), "/accelerators/0/flash/sector: expected a size from 1 byte to 16 MiB", code},
        {"a sector larger than the flash", flash_with(R"("size": "1 MiB", "sector": "2 MiB")"),
         "/accelerators/0/flash/sector: expected a size from 1 byte to 1 MiB", code},
        {"a sector that does not divide the flash", flash_with(R"("sector": 65535)"),
         "/accelerators/0/flash/sector: expected a sector size that divides the size of the flash, 128 MiB", code},
        {"a flash that the default sector does not divide", flash_with(R"("size": "4 KiB")"),
         "/accelerators/0/flash: expected a sector size that divides the size of the flash, 4 KiB", code},
        {"a flash without room for the default sections", flash_with(R"("size": "64 MiB")"),
         R"(/accelerators/0/flash: expected a member "sections", as the default ones need 0x7ff1000 bytes)", code},
        {"sections by name", flash_with(R"("sections": {"PGM": []})"),
         "/accelerators/0/flash/sections: expected a list of at most 1024 sections, in address order", schema},
        {"a section without a start", section_with(R"("size": 1)"), R"(/accelerators/0/flash/sections/0: expected a member "start")", schema},
        {"a section without a size", section_with(R"("start": 1)"), R"(/accelerators/0/flash/sections/0: expected a member "size")", schema},
        {"a section that is a number", flash_with(R"("sections": [7])"),
         R"(/accelerators/0/flash/sections/0: expected a section: { "name": "PARAMS", "start": "0x7fc0000", "size": "64 KiB" })", schema},
        {"a section with an unknown member", section_with(R"("start": 0, "size": 1, "end": 1)"),
         "/accelerators/0/flash/sections/0/end: unknown member, expected one of name, start, size, protected", schema},
        {"a protection that is a word", section_with(R"("start": 0, "size": 1, "protected": "yes")"),
         "/accelerators/0/flash/sections/0/protected: expected true or false", schema},
        {"a section behind the flash", section_with(R"("start": "0x100000", "size": 1)"),
         "/accelerators/0/flash/sections/0/start: expected less than 0x100000, the size of the flash", code},
        {"a section past the end", section_with(R"("start": "0xfffff", "size": 2)"),
         "/accelerators/0/flash/sections/0/size: expected a size from 1 byte to 0x1", code},
        {"a section whose end overflows", section_with(R"("start": 1, "size": "0xffffffffffffffff")"),
         "/accelerators/0/flash/sections/0/size: expected a size from 1 byte to 0xfffff", code},
        {"a section of nothing", section_with(R"("start": 0, "size": 0)"),
         "/accelerators/0/flash/sections/0/size: expected a size from 1 byte to 1 MiB", code},
        {"an address of more than 63 bits", section_with(R"("start": "0x8000000000000000", "size": 1)"),
         "/accelerators/0/flash/sections/0/start: expected at most 0x7fffffffffffffff", code},
        {"sections that overlap", section_with(R"("start": 0, "size": "0x1001"}, {"start": "0x1000", "size": 1)"),
         "/accelerators/0/flash/sections/1/start: expected at least 0x1001, where the section before it ends", code},
        {"sections out of order", section_with(R"("start": 4096, "size": 1}, {"start": 0, "size": 1)"),
         "/accelerators/0/flash/sections/1/start: expected at least 0x1001, where the section before it ends", code},

        // ---- cores ----
        {"cores that are null", rack_with(R"("cores": null)"), "/accelerators/0/cores: expected a list of at most 1024 cores, in address order", schema},
        {"a core that is a number", rack_with(R"("cores": [1])"),
         R"(/accelerators/0/cores/0: expected a core: { "hardware_id": 475, "address": "0x100000", "size": "192 KiB" })", schema},
        {"a core without an identifier", core_with(R"("address": 0, "size": 4)"), R"(/accelerators/0/cores/0: expected a member "hardware_id")", schema},
        {"an identifier of 33 bits", core_with(R"("hardware_id": 4294967296, "address": 0, "size": 4)"),
         "/accelerators/0/cores/0/hardware_id: expected " + word_expected, schema},
        {"a core with an unknown member", core_with(R"("hardware_id": 1, "address": 0, "size": 4, "name": "x")"),
         "/accelerators/0/cores/0/name: unknown member, expected one of hardware_id, address, size, registers", schema},
        {"a core at an odd address", core_with(R"("hardware_id": 1, "address": 2, "size": 4)"),
         "/accelerators/0/cores/0/address: expected a multiple of 4", code},
        {"a core with an odd size", core_with(R"("hardware_id": 1, "address": 0, "size": 6)"),
         "/accelerators/0/cores/0/size: expected a multiple of 4", code},
        {"a core of nothing", core_with(R"("hardware_id": 1, "address": 0, "size": 0)"),
         "/accelerators/0/cores/0/size: expected a size from 1 byte to 16 MiB", code},
        {"a core of too much", core_with(R"("hardware_id": 1, "address": 0, "size": "17 MiB")"),
         "/accelerators/0/cores/0/size: expected a size from 1 byte to 16 MiB", code},
        {"a core past the last address", core_with(R"("hardware_id": 1, "address": "0x7ffffffffffffffc", "size": 8)"),
         "/accelerators/0/cores/0/size: expected a size from 1 byte to 0x4", code},
        {"cores that overlap", core_with(R"("hardware_id": 1, "address": 0, "size": 8}, {"hardware_id": 2, "address": 4, "size": 4)"),
         "/accelerators/0/cores/1/address: expected at least 0x8, where the core before it ends", code},
        {"registers in a list", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": [1])"),
         R"(/accelerators/0/cores/0/registers: expected values by byte offset: { "0x10": "0x1" })", schema},
        {"a register by name", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"RESET": 1})"),
         "/accelerators/0/cores/0/registers/RESET: expected an offset such as 0x10, a multiple of 4 and less than 0x8", code},
        {"a register behind a NUL", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"0x0\u0000": 1})"),
         R"(/accelerators/0/cores/0/registers/0x0\x00: expected an offset such as 0x10, a multiple of 4 and less than 0x8)", code},
        {"a register behind a NUL, with a value that is none", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"0x0\u0000%/": "z"})"),
         R"(/accelerators/0/cores/0/registers/0x0\x00%~1: expected )" + word_expected, schema},
        {"a register with a name that pointers escape", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"a/b~": 1})"),
         "/accelerators/0/cores/0/registers/a~1b~0: expected an offset such as 0x10, a multiple of 4 and less than 0x8", code},
        {"a register at a negative offset", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"0x-4": 1})"),
         "/accelerators/0/cores/0/registers/0x-4: expected an offset such as 0x10, a multiple of 4 and less than 0x8", code},
        {"a register of 33 bits", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"0x4": "0x100000000"})"),
         "/accelerators/0/cores/0/registers/0x4: expected " + word_expected, schema},
        {"a register at an odd offset", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"0x2": 1})"),
         "/accelerators/0/cores/0/registers/0x2: expected an offset such as 0x10, a multiple of 4 and less than 0x8", code},
        {"a register past the end", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"0x8": 1})"),
         "/accelerators/0/cores/0/registers/0x8: expected an offset such as 0x10, a multiple of 4 and less than 0x8", code},
        {"a register twice", core_with(R"("hardware_id": 1, "address": 0, "size": 8, "registers": {"0x4": 1, "0x04": 1})"),
         "/accelerators/0/cores/0/registers/0x04: expected an offset that no other register of the core has", code},
        {"no I2C, and its core", rack_with(R"("i2c": null, "cores": [{"hardware_id": 32, "address": 0, "size": 4}])"),
         R"(/accelerators/0/i2c: expected {}, as "cores" has one with the hardware_id 32)", code},
        {"a BMC without its core", rack_with(R"("bmc": {}, "cores": [])"),
         R"(/accelerators/0/bmc: expected null, as "cores" has none with the hardware_id 48)", code},

        // ---- I2C ----
        {"an I2C controller that is a text", rack_with(R"("i2c": "yes")"),
         R"(/accelerators/0/i2c: expected { "pins": ..., "cages": [ ... ] } for an I2C controller, or null for none)", schema},
        {"an I2C controller with an unknown member", i2c_with(R"("cage": [])"),
         "/accelerators/0/i2c/cage: unknown member, expected one of pins, mac_eeprom, cages, buses", schema},
        {"33 pins", i2c_with(R"("pins": 33)"), "/accelerators/0/i2c/pins: expected a number of control pins, 0 to 32", schema},
        {"less than no pin", i2c_with(R"("pins": -1)"), "/accelerators/0/i2c/pins: expected a number of control pins, 0 to 32", schema},
        {"an EEPROM that is a number", i2c_with(R"("mac_eeprom": 1)"), "/accelerators/0/i2c/mac_eeprom: expected " + eeprom_expected, schema},
        {"an EEPROM of 257 characters", i2c_with(R"("mac_eeprom": ")" + repeated("a", 257) + '"'),
         "/accelerators/0/i2c/mac_eeprom: expected " + eeprom_expected, schema},
        {"an EEPROM of 256 characters and 257 bytes", i2c_with(R"("mac_eeprom": ")" + repeated("a", 255) + "\xc3\xa4\""),
         "/accelerators/0/i2c/mac_eeprom: expected " + eeprom_expected, code},
        {"an EEPROM of 257 bytes", i2c_with(R"("mac_eeprom": {"hex": ")" + repeated("00", 257) + "\"}"),
         "/accelerators/0/i2c/mac_eeprom/hex: expected " + hex_of(256), schema},
        {"cages that are a number", i2c_with(R"("cages": 2)"), "/accelerators/0/i2c/cages: expected a list of at most 64 cages, in the board's order", schema},
        {"65 cages", i2c_with(R"("cages": [)" + repeated("\"empty\",", 64) + "\"empty\"]"),
         "/accelerators/0/i2c/cages: expected a list of at most 64 cages, in the board's order", schema},
        {"a cage that is null", i2c_with(R"("cages": ["empty", null])"), "/accelerators/0/i2c/cages/1: expected " + cage_expected, schema},
        {"more cages than the model has", i2c_with(R"("cages": ["empty", "empty", "empty"])"),
         R"(/accelerators/0/i2c/cages: expected at most 2 cages, as the model has, or a member "buses" that says where they are)", code},
        {"buses that are none", i2c_with(R"("buses": {})"), "/accelerators/0/i2c/buses: expected a list of at most 256 buses, in index order", schema},
        {"a bus without an index", i2c_with(R"("buses": [{"devices": []}])"), R"(/accelerators/0/i2c/buses/0: expected a member "index")", schema},
        {"a bus without devices", i2c_with(R"("buses": [{"index": 0}])"), R"(/accelerators/0/i2c/buses/0: expected a member "devices")", schema},
        {"bus 256", i2c_with(R"("buses": [{"index": 256, "devices": []}])"), "/accelerators/0/i2c/buses/0/index: expected the index of a bus, 0 to 255", schema},
        {"a bus twice", i2c_with(R"("buses": [{"index": 3, "devices": []}, {"index": 3, "devices": []}])"),
         "/accelerators/0/i2c/buses/1/index: expected more than 3, the index of the bus before it", code},
        {"buses in another order", i2c_with(R"("buses": [{"index": 3, "devices": []}, {"index": 1, "devices": []}])"),
         "/accelerators/0/i2c/buses/1/index: expected more than 3, the index of the bus before it", code},
        {"an unknown device", device_with(R"("device": "fan")"), "/accelerators/0/i2c/buses/0/devices/0/device: expected cage, multiplexer, mac_eeprom or clock_generator", schema},
        {"a device that is none", device_with(R"("address": "0x50")"), R"(/accelerators/0/i2c/buses/0/devices/0: expected a member "device")", schema},
        {"a multiplexer without an address", device_with(R"("device": "multiplexer")"), R"(/accelerators/0/i2c/buses/0/devices/0: expected a member "address")", code},
        {"an address of 8 bits", device_with(R"("device": "multiplexer", "address": "0x80")"),
         R"(/accelerators/0/i2c/buses/0/devices/0/address: expected an address of 7 bits, such as 114 or "0x72")", schema},
        {"an address of 8 bits as a number", device_with(R"("device": "multiplexer", "address": 128)"),
         R"(/accelerators/0/i2c/buses/0/devices/0/address: expected an address of 7 bits, such as 114 or "0x72")", schema},
        {"a multiplexer with a number", device_with(R"("device": "multiplexer", "address": 1, "number": 0)"),
         "/accelerators/0/i2c/buses/0/devices/0/number: expected no number, which only a cage has", code},
        {"a cage without a number", device_with(R"("device": "cage")"), R"(/accelerators/0/i2c/buses/0/devices/0: expected a member "number", from 0: which cage it is)", code},
        {"a cage with an address", device_with(R"("device": "cage", "number": 0, "address": "0x50")"),
         "/accelerators/0/i2c/buses/0/devices/0/address: expected no address, as a cage's module decides", code},
        {"a cage that the board has not", device_with(R"("device": "cage", "number": 2)"),
         "/accelerators/0/i2c/buses/0/devices/0/number: expected less than 2, the number of cages", code},
        {"pin 32", device_with(R"("device": "cage", "number": 0, "pin": 32)"),
         "/accelerators/0/i2c/buses/0/devices/0/pin: expected a control pin, while which is off it does not answer, 0 to 31, or null", schema},
        {"behind an address alone", device_with(R"("device": "cage", "number": 0, "behind": ["0x72"])"),
         R"(/accelerators/0/i2c/buses/0/devices/0/behind: expected a multiplexer's address and a mask of its channels, ["0x72", "0x10"], or null)", schema},
        {"behind a mask of 9 bits", device_with(R"("device": "cage", "number": 0, "behind": ["0x72", 256])"),
         R"(/accelerators/0/i2c/buses/0/devices/0/behind/1: expected a number from 0 to 255, such as 33 or "0x21")", schema},
        {"behind itself", device_with(R"("device": "multiplexer", "address": "0x72", "behind": ["0x72", 1])"),
         "/accelerators/0/i2c/buses/0/devices/0/behind/0: expected the address of a multiplexer that comes before it on this bus", code},
        {"behind an EEPROM", device_with(R"("device": "mac_eeprom", "address": "0x50"}, {"device": "cage", "number": 0, "behind": ["0x50", 1])"),
         "/accelerators/0/i2c/buses/0/devices/1/behind/0: expected the address of a multiplexer that comes before it on this bus", code},

        // ---- modules ----
        {"a module that there is not", i2c_with(R"("cages": ["empty", "no-such-module"])"),
         "/accelerators/0/i2c/cages/1: expected a module: there is no modules/no-such-module.json beside the rack, nor among the racks that come with the platform; there are " + those_there_are, code},
        {"a module with the name of a path", i2c_with(R"("cages": ["../showcase"])"), "/accelerators/0/i2c/cages/0: expected " + cage_expected, schema},
        {"a module with a NUL in its name", i2c_with(R"("cages": ["prototype\u0000"])"), "/accelerators/0/i2c/cages/0: expected " + cage_expected, schema},
        {"a module with an unknown member", module_with(R"("speed": 1)"),
         "/accelerators/0/i2c/cages/0/speed: unknown member, expected one of module, dump, page, map, memory, captured, identifier, vendor_name, vendor_pn, vendor_rev, vendor_sn, "
         "date_code, calibration, flat, low_power_pin, advertises, bias_multiplier, temperature, vcc, rx_power, tx_power, tx_bias, limits, bytes", schema},
        {"a module of nothing", module_with(""), R"(/accelerators/0/i2c/cages/0: expected a member "map": "sfp", "qsfp" or "cmis")", code},
        {"a module of an unknown map", module_with(R"("map": "xfp")"), "/accelerators/0/i2c/cages/0/map: expected sfp, qsfp or cmis", schema},
        {"a dump beside a module", module_with(R"("module": "prototype", "dump": "x")"), "/accelerators/0/i2c/cages/0/dump: expected no dump beside a module", code},
        {"a map beside a module", module_with(R"("module": "prototype", "map": "sfp")"), "/accelerators/0/i2c/cages/0/map: expected no map beside a module, which has one", code},
        {"memory beside a module", module_with(R"("module": "prototype", "memory": {})"), "/accelerators/0/i2c/cages/0/memory: expected no memory beside a module or a dump", code},
        {"a dump that there is not", module_with(R"("dump": "no/such.hex")"), "/accelerators/0/i2c/cages/0/dump: no/such.hex: cannot be read: No such file or directory", code},
        {"a list of no dumps", module_with(R"("dump": [])"), "/accelerators/0/i2c/cages/0/dump: expected " + dump_expected, schema},
        {"a dump of the list without its file", module_with(R"("dump": [{"page": "11"}])"), "/accelerators/0/i2c/cages/0/dump/0: expected a member \"dump\"", schema},
        {"a dump of the list that there is not", module_with(R"("dump": [{"dump": "no/such.hex"}])"),
         "/accelerators/0/i2c/cages/0/dump/0/dump: no/such.hex: cannot be read: No such file or directory", code},
        {"a page in capital letters", module_with(R"("dump": "no/such.hex", "page": "1F")"), "/accelerators/0/i2c/cages/0/page: expected " + dump_page_expected, schema},
        {"a page without a dump", module_with(R"("map": "qsfp", "page": "11")"), "/accelerators/0/i2c/cages/0/page: expected no page without a dump", code},
        {"a page beside a list of dumps", module_with(R"("dump": [{"dump": "no/such.hex"}], "page": "11")"),
         "/accelerators/0/i2c/cages/0/page: expected no page beside a list of dumps, in which each can have one", code},
        {"a captured module without memory", module_with(R"("map": "qsfp", "captured": true)"), "/accelerators/0/i2c/cages/0/captured: expected no such member without memory", code},
        {"a captured module of a name", module_with(R"("module": "prototype", "captured": true)"),
         "/accelerators/0/i2c/cages/0/captured: expected no captured beside a module or a dump", code},
        {"a dump without a name", module_with(R"("dump": "")"), "/accelerators/0/i2c/cages/0/dump: expected the path of a file", code},
        {"a vendor name of 17 characters", module_with(R"("map": "qsfp", "vendor_name": "12345678901234567")"),
         "/accelerators/0/i2c/cages/0/vendor_name: expected " + text_of(16), schema},
        {"a vendor name of 17 bytes", module_with(R"("map": "qsfp", "vendor_name": "123456789012345\u00e4")"), "/accelerators/0/i2c/cages/0/vendor_name: expected " + text_of(16), code},
        {"a revision of 3 bytes", module_with(R"("map": "qsfp", "vendor_rev": "A10")"), "/accelerators/0/i2c/cages/0/vendor_rev: expected at most 2 bytes", code},
        {"a temperature that is too high", module_with(R"("map": "qsfp", "temperature": 128)"), "/accelerators/0/i2c/cages/0/temperature: expected a number from -128 to 127.996", code},
        {"a temperature that is too low", module_with(R"("map": "sfp", "temperature": -128.01)"), "/accelerators/0/i2c/cages/0/temperature: expected a number from -128 to 127.996", code},
        {"a negative power", module_with(R"("map": "sfp", "rx_power": -0.1)"), "/accelerators/0/i2c/cages/0/rx_power: expected a number from 0 to 6.5535", code},
        {"a bias that is too high", module_with(R"("map": "sfp", "tx_bias": 132)"), "/accelerators/0/i2c/cages/0/tx_bias: expected a number from 0 to 131.07", code},
        {"a bias that is too high for its multiplier", module_with(R"("map": "cmis", "bias_multiplier": 2, "tx_bias": 263)"), "/accelerators/0/i2c/cages/0/tx_bias: expected a number from 0 to 262.14", code},
        {"a power of dBm", module_with(R"("map": "sfp", "rx_power": "-3 dBm")"), "/accelerators/0/i2c/cages/0/rx_power: expected a number of milliwatts or milliamperes, or a list with one for each lane", schema},
        {"three lanes of four", module_with(R"("map": "qsfp", "rx_power": [1, 2, 3])"), "/accelerators/0/i2c/cages/0/rx_power: expected a number, or a list of 4, one for each lane", code},
        {"two lanes of one", module_with(R"("map": "sfp", "rx_power": [1, 2])"), "/accelerators/0/i2c/cages/0/rx_power: expected one number", code},
        {"limits of a module in a list", module_with(R"("map": "sfp", "limits": [])"),
         R"(/accelerators/0/i2c/cages/0/limits: expected limits: { "temperature": { "high_alarm": 75, "low_alarm": -5, ... } })", schema},
        {"limits of what no module measures", module_with(R"("map": "sfp", "limits": {"bias": {}})"),
         "/accelerators/0/i2c/cages/0/limits/bias: unknown member, expected one of temperature, vcc, rx_power, tx_power, tx_bias", schema},
        {"a limit of a module that there is not", module_with(R"("map": "sfp", "limits": {"vcc": {"high": 3.5}})"),
         "/accelerators/0/i2c/cages/0/limits/vcc/high: unknown member, expected one of high_alarm, low_alarm, high_warning, low_warning", schema},
        {"a limit of dBm", module_with(R"("map": "sfp", "limits": {"rx_power": {"low_alarm": "-12 dBm"}})"),
         "/accelerators/0/i2c/cages/0/limits/rx_power/low_alarm: expected a number of degrees Celsius, volts, milliwatts or milliamperes", schema},
        {"a limit of power that is negative", module_limit("sfp", "rx_power", R"("high_alarm": 1, "low_alarm": -12, "high_warning": 1, "low_warning": 0)"),
         "/accelerators/0/i2c/cages/0/limits/rx_power/low_alarm: expected a number from 0 to 6.5535", code},
        {"a limit of temperature that is too high", module_limit("qsfp", "temperature", R"("high_alarm": 128, "low_alarm": 1, "high_warning": 1, "low_warning": 1)"),
         "/accelerators/0/i2c/cages/0/limits/temperature/high_alarm: expected a number from -128 to 127.996", code},
        {"a limit of bias that is too high for its multiplier", module_limit("cmis", "tx_bias", R"("high_alarm": 140, "low_alarm": 1, "high_warning": 1, "low_warning": 1)"),
         "/accelerators/0/i2c/cages/0/limits/tx_bias/high_alarm: expected a number from 0 to 131.07", code},
        {"a low alarm above the high one", module_limit("qsfp", "vcc", R"("high_alarm": 2.9, "low_alarm": 3.5, "high_warning": 0, "low_warning": 0)"),
         "/accelerators/0/i2c/cages/0/limits/vcc: expected limits that rise in the order low_alarm, low_warning, high_warning, high_alarm", code},
        {"a low warning above the high one", module_limit("sfp", "vcc", R"("high_alarm": 4, "low_alarm": 3, "high_warning": 3.2, "low_warning": 3.4)"),
         "/accelerators/0/i2c/cages/0/limits/vcc: expected limits that rise in the order low_alarm, low_warning, high_warning, high_alarm", code},
        {"a high warning above the high alarm", module_limit("cmis", "temperature", R"("high_alarm": 70, "low_alarm": -9, "high_warning": 75, "low_warning": -9)"),
         "/accelerators/0/i2c/cages/0/limits/temperature: expected limits that rise in the order low_alarm, low_warning, high_warning, high_alarm", code},
        {"a low warning below the low alarm", module_limit("cmis", "temperature", R"("high_alarm": 70, "low_alarm": -9, "high_warning": 60, "low_warning": -10)"),
         "/accelerators/0/i2c/cages/0/limits/temperature: expected limits that rise in the order low_alarm, low_warning, high_warning, high_alarm", code},
        {"no warnings of an SFP", module_limit("sfp", "vcc", R"("high_alarm": 3.6, "low_alarm": 3, "high_warning": 0, "low_warning": 0)"),
         "/accelerators/0/i2c/cages/0/limits/vcc: expected limits that rise in the order low_alarm, low_warning, high_warning, high_alarm", code},
        {"one limit out of order with those of the module", module_with(R"("module": "qsfp28-sr4", "limits": {"temperature": {"low_warning": 70.01}})"),
         "/accelerators/0/i2c/cages/0/limits/temperature: expected limits that rise in the order low_alarm, low_warning, high_warning, high_alarm", code},
        {"one limit of a module that has none", module_limit("qsfp", "temperature", R"("high_alarm": 70)"),
         "/accelerators/0/i2c/cages/0/limits/temperature: expected high_alarm, low_alarm, high_warning and low_warning, as the module has none of them yet", code},
        {"a bias multiplier of 3", module_with(R"("map": "cmis", "bias_multiplier": 3)"), "/accelerators/0/i2c/cages/0/bias_multiplier: expected 1, 2 or 4", schema},
        {"a bias multiplier of a QSFP", module_with(R"("map": "qsfp", "bias_multiplier": 2)"), "/accelerators/0/i2c/cages/0/bias_multiplier: expected no such member for a module of the map qsfp", code},
        {"an SFP of flat memory", module_with(R"("map": "sfp", "flat": true)"), "/accelerators/0/i2c/cages/0/flat: expected no such member for a module of the map sfp", code},
        {"a calibrated QSFP", module_with(R"("map": "qsfp", "calibration": "none")"), "/accelerators/0/i2c/cages/0/calibration: expected no such member for a module of the map qsfp", code},
        {"a byte of the upper page without its page", module_with(R"("map": "qsfp", "bytes": {"128": "00"})"),
         "/accelerators/0/i2c/cages/0/bytes/128: expected a byte such as 26 of the lower page (0 to 127), or 01:160 of page 01 (128 to 255)", code},
        {"a byte of the lower page with a page", module_with(R"("map": "qsfp", "bytes": {"00:127": "00"})"),
         "/accelerators/0/i2c/cages/0/bytes/00:127: expected a byte such as 26 of the lower page (0 to 127), or 01:160 of page 01 (128 to 255)", code},
        {"byte 256", module_with(R"("map": "sfp", "bytes": {"A0:256": "00"})"), "/accelerators/0/i2c/cages/0/bytes/A0:256: expected a byte of an SFP such as A0:92 or A2:110", code},
        {"a byte of an SFP's page", module_with(R"("map": "sfp", "bytes": {"00:128": "00"})"), "/accelerators/0/i2c/cages/0/bytes/00:128: expected a byte of an SFP such as A0:92 or A2:110", code},
        {"bytes past the end of a page", module_with(R"("map": "qsfp", "bytes": {"126": "000000"})"), "/accelerators/0/i2c/cages/0/bytes/126: expected at most 2 bytes, as the page ends there", code},
        {"memory of an unknown page", module_with(R"("map": "qsfp", "memory": {"upper": ""})"),
         "/accelerators/0/i2c/cages/0/memory/upper: expected a member of memory to be called lower, or 00 to ff, as a page", code},
        {"memory of a page of an SFP", module_with(R"("map": "sfp", "memory": {"00": ""})"), "/accelerators/0/i2c/cages/0/memory/00: expected a member of memory to be called A0 or A2, as of an SFP", code},
        {"too much memory", module_with(R"("map": "qsfp", "memory": {"lower": ")" + repeated("00", 129) + "\"}"), "/accelerators/0/i2c/cages/0/memory/lower: expected at most 128 bytes", code},

        // ---- XMC ----
        {"an XMC that is a number", rack_with(R"("xmc": 1)"),
         R"(/accelerators/0/xmc: expected { "ready_after": ..., "card": ..., "sensors": ... } for a card management controller, a list of at most 16 of them, or null for none)", schema},
        {"17 XMCs", rack_with(R"("xmc": [)" + repeated("{},", 16) + "{}]"),
         R"(/accelerators/0/xmc: expected { "ready_after": ..., "card": ..., "sensors": ... } for a card management controller, a list of at most 16 of them, or null for none)", schema},
        {"an XMC in a list that is none", rack_with(R"("xmc": [{}, null])"),
         R"(/accelerators/0/xmc/1: expected a card management controller: { "ready_after": ..., "card": ..., "sensors": ... })", schema},
        {"an XMC with an unknown member", xmc_with(R"("ready": 1)"),
         "/accelerators/0/xmc/ready: unknown member, expected one of ready_after, answer_after, error, dead_link, power_good, card, sensors", schema},
        {"an XMC in a list with an unknown member", rack_with(R"("xmc": [{"ready": 1}])"),
         "/accelerators/0/xmc/0/ready: unknown member, expected one of ready_after, answer_after, error, dead_link, power_good, card, sensors", schema},
        {"one time to ready", xmc_with(R"("ready_after": ["1 s"])"),
         R"(/accelerators/0/xmc/ready_after: expected two times, of status bits 0 and 28: ["0.5 s", "1.5 s"])", schema},
        {"three times to ready", xmc_with(R"("ready_after": ["1 s", "1 s", "1 s"])"),
         R"(/accelerators/0/xmc/ready_after: expected two times, of status bits 0 and 28: ["0.5 s", "1.5 s"])", schema},
        {"a time without a unit", xmc_with(R"("ready_after": ["1 s", "1"])"), "/accelerators/0/xmc/ready_after/1: expected " + duration_expected, schema},
        {"a time that is a number", xmc_with(R"("answer_after": 30)"), "/accelerators/0/xmc/answer_after: expected " + duration_expected, schema},
        {"a negative time", xmc_with(R"("answer_after": "-1 s")"), "/accelerators/0/xmc/answer_after: expected " + duration_expected, schema},
        {"a time in an unknown unit", xmc_with(R"("answer_after": "1 h")"), "/accelerators/0/xmc/answer_after: expected " + duration_expected, schema},
        {"a time that ends in a point", xmc_with(R"("answer_after": "1. s")"), "/accelerators/0/xmc/answer_after: expected " + duration_expected, schema},
        {"a time of ten digits", xmc_with(R"("answer_after": "1234567890 s")"), "/accelerators/0/xmc/answer_after: expected " + duration_expected, schema},
        {"a time behind a NUL", xmc_with(R"("answer_after": "1 s\u0000")"), "/accelerators/0/xmc/answer_after: expected " + duration_expected, schema},
        {"an error of 33 bits", xmc_with(R"("error": "0x100000000")"), "/accelerators/0/xmc/error: expected " + word_expected, schema},
        {"a dead link that is a word", xmc_with(R"("dead_link": "yes")"), "/accelerators/0/xmc/dead_link: expected true or false", schema},
        {"a power that is null", xmc_with(R"("power_good": null)"), "/accelerators/0/xmc/power_good: expected true or false", schema},
        {"sensors in a list", xmc_with(R"("sensors": [])"),
         R"(/accelerators/0/xmc/sensors: expected sensors as raw register values: { "12V_PEX": [12170, 12168, 12201] })", schema},
        {"a sensor with two values", xmc_with(R"("sensors": {"VCCINT": [1, 2]})"),
         "/accelerators/0/xmc/sensors/VCCINT: expected three 32-bit numbers, current, average and maximum: [12170, 12168, 12201]", schema},
        {"a sensor with a value of 33 bits", xmc_with(R"("sensors": {"VCCINT": [1, 2, 4294967296]})"),
         "/accelerators/0/xmc/sensors/VCCINT/2: expected " + word_expected, schema},
        {"a sensor with a negative value", xmc_with(R"("sensors": {"VCCINT": [-1, 2, 3]})"),
         "/accelerators/0/xmc/sensors/VCCINT/0: expected " + word_expected, schema},
        {"a card that is a text", xmc_with(R"("card": "x")"),
         R"(/accelerators/0/xmc/card: expected what the card says of itself: { "name": ..., "serial": ..., "macs": ... })", schema},
        {"a card with an unknown member", card_with(R"("mac": 1)"),
         "/accelerators/0/xmc/card/mac: unknown member, expected one of name, revision, serial, macs, legacy_macs, fan, configuration_mode, maximum_power, firmware, extra, raw", schema},
        {"a serial number that is a number", card_with(R"("serial": 1)"), "/accelerators/0/xmc/card/serial: expected " + card_text_expected, schema},
        {"a serial number of 256 characters", card_with(R"("serial": ")" + repeated("a", 256) + "\""),
         "/accelerators/0/xmc/card/serial: expected " + card_text_expected, schema},
        {"a serial number of 255 characters and 256 bytes", card_with(R"("serial": ")" + repeated("a", 254) + "\xc3\xa4\""),
         "/accelerators/0/xmc/card/serial: expected " + card_text_expected, code},
        {"a name of 256 bytes", card_with(R"("name": {"hex": ")" + repeated("00", 256) + "\"}"), "/accelerators/0/xmc/card/name/hex: expected " + hex_of(255), schema},
        {"MAC addresses in a list", card_with(R"("macs": [])"),
         R"(/accelerators/0/xmc/card/macs: expected { "first": "02:00:00:00:20:00", "count": 4 }, or null for a field that is not sent)", schema},
        {"256 MAC addresses", card_with(R"("macs": {"first": "02:00:00:00:20:00", "count": 256})"),
         "/accelerators/0/xmc/card/macs/count: expected a number of addresses, 0 to 255", schema},
        {"MAC addresses past the last one", card_with(R"("macs": {"first": "ff:ff:ff:ff:ff:fe", "count": 3})"),
         "/accelerators/0/xmc/card/macs/count: expected at most 2, as MAC addresses end at ff:ff:ff:ff:ff:ff", code},
        {"five slots of MAC addresses", card_with(R"("legacy_macs": [null, null, null, null, null])"),
         "/accelerators/0/xmc/card/legacy_macs: expected a list of at most 4 addresses as the card spells them, null for one that is not sent", schema},
        {"a slot that is too long", card_with(R"("legacy_macs": [null, {"hex": ")" + repeated("00", 256) + "\"}]"),
         "/accelerators/0/xmc/card/legacy_macs/1/hex: expected " + hex_of(255), schema},
        {"a number of fans", card_with(R"("fan": 2)"), "/accelerators/0/xmc/card/fan: expected true or false, or null for a field that is not sent", schema},
        {"a configuration mode of 9 bits", card_with(R"("configuration_mode": 256)"),
         "/accelerators/0/xmc/card/configuration_mode: expected a number, 0 to 255, or null for a field that is not sent", schema},
        {"a power of 17 bits", card_with(R"("maximum_power": 65536)"),
         "/accelerators/0/xmc/card/maximum_power: expected a number of watts, 0 to 65535, or null for a field that is not sent", schema},
        {"a field without a value", card_with(R"("extra": [{"key": 33}])"), R"(/accelerators/0/xmc/card/extra/0: expected a member "value")", schema},
        {"a field with a key of 9 bits", card_with(R"("extra": [{"key": "0x100", "value": ""}])"),
         R"(/accelerators/0/xmc/card/extra/0/key: expected a number from 0 to 255, such as 33 or "0x21")", schema},
        {"a field of 256 bytes", card_with(R"("extra": [{"key": 1, "value": ")" + repeated("a", 256) + "\"}]"),
         "/accelerators/0/xmc/card/extra/0/value: expected " + text_of(255), schema},
        {"more fields than a packet holds", card_with(R"("extra": [)" + repeated(R"({"key": 1, "value": ")" + repeated("a", 255) + "\"},", 15) +
         R"({"key": 2, "value": ")" + repeated("a", 255) + "\"}]"),
         "/accelerators/0/xmc/card: expected at most 4095 bytes of card information", code},
        {"raw bytes of half a pair", card_with(R"("raw": "0")"),
         "/accelerators/0/xmc/card/raw: expected at most 4095 bytes as pairs of hexadecimal digits, sent instead of all fields, or null", schema},
        {"4096 raw bytes", card_with(R"("raw": ")" + repeated("00", 4096) + "\""),
         "/accelerators/0/xmc/card/raw: expected at most 4095 bytes as pairs of hexadecimal digits, sent instead of all fields, or null", schema},
        {"no XMC, and its core", rack_with(R"("xmc": null, )" + xmc_cores({"192 KiB"})),
         R"(/accelerators/0/xmc: expected {}, as "cores" has one with the hardware_id 475)", code},
        {"no XMC, and two cores", rack_with(R"("xmc": null, )" + xmc_cores({"192 KiB", "192 KiB"})),
         R"(/accelerators/0/xmc: expected a list of 2, as "cores" has 2 with the hardware_id 475)", code},
        {"an XMC on a core that is too small", rack_with(R"("xmc": {}, )" + xmc_cores({"0x2a00c"})),
         R"(/accelerators/0/xmc: expected null, as "cores" has none with the hardware_id 475 and at least 0x2a010 bytes)", code},

        // ---- BMC ----
        {"a BMC with an unknown member", bmc_with(R"("serial": 1)"),
         "/accelerators/0/bmc/serial: unknown member, expected one of latency, silent, boot_image, configured_from, depth, pieces, fru, records, sensors, answers", schema},
        {"a latency without a unit", bmc_with(R"("latency": "5")"), "/accelerators/0/bmc/latency: expected " + duration_expected, schema},
        {"a boot image that there is not", bmc_with(R"("boot_image": "golden")"), "/accelerators/0/bmc/boot_image: expected " + boot_image_expected, schema},
        {"a boot image of nine bits", bmc_with(R"("configured_from": 256)"), "/accelerators/0/bmc/configured_from: expected " + boot_image_expected, schema},
        {"a boot image behind a NUL", bmc_with(R"("boot_image": "none\u0000")"), "/accelerators/0/bmc/boot_image: expected " + boot_image_expected, schema},
        {"a FIFO of no byte", bmc_with(R"("depth": 0)"), "/accelerators/0/bmc/depth: expected a number of bytes, 1 to 64", schema},
        {"a FIFO of 65 bytes", bmc_with(R"("depth": 65)"), "/accelerators/0/bmc/depth: expected a number of bytes, 1 to 64", schema},
        {"a piece of no byte", bmc_with(R"("pieces": [0])"), "/accelerators/0/bmc/pieces/0: expected a number of bytes, 1 to 64", schema},
        {"a piece that the FIFO does not hold", bmc_with(R"("depth": 8, "pieces": [8, 9])"),
         "/accelerators/0/bmc/pieces/1: expected at most 8, the depth of the FIFO", code},
        {"a FRU that is a text", bmc_with(R"("fru": "x")"),
         R"(/accelerators/0/bmc/fru: expected the FRU information: { "manufacturer": ..., "product": ..., "serial": ... })", schema},
        {"a FRU field of 64 bytes", fru_with(R"("serial": {"hex": ")" + repeated("00", 64) + "\"}"), "/accelerators/0/bmc/fru/serial/hex: expected " + hex_of(63), schema},
        {"a further FRU field of 64 bytes", fru_with(R"("extra": ["", ")" + repeated("x", 64) + "\"]"),
         "/accelerators/0/bmc/fru/extra/1: expected " + text_of(63), schema},
        {"more FRU fields than an area holds", fru_with(R"("extra": [)" + repeated("\"" + repeated("x", 63) + "\",", 32) + "\"\"]"),
         "/accelerators/0/bmc/fru: expected fields that fit into a board area of 2040 bytes", code},
        {"raw FRU bytes of half a pair", fru_with(R"("raw": "0")"),
         "/accelerators/0/bmc/fru/raw: expected at most 65535 bytes as pairs of hexadecimal digits, instead of all fields, or null", schema},
        {"1025 sensors", bmc_with(R"("sensors": [)" + repeated("{},", 1024) + "{}]"), "/accelerators/0/bmc/sensors: expected a list of at most 1024 sensors", schema},
        {"1025 sensors and no others", bmc_with(R"("sensors": {"only": true, "list": [)" + repeated("{},", 1024) + "{}]}"),
         "/accelerators/0/bmc/sensors/list: expected a list of at most 1024 sensors", schema},
        {"sensors that are a number", bmc_with(R"("sensors": 12)"), "/accelerators/0/bmc/sensors: expected a list of at most 1024 sensors, over those that there are, or { "
         R"("only": true, "list": [ ... ] } for no others)", schema},
        {"no others than no list", bmc_with(R"("sensors": {"only": true})"), R"(/accelerators/0/bmc/sensors: expected a member "list")", schema},
        {"a list of which nobody knows whether it is all", bmc_with(R"("sensors": {"list": []})"), R"(/accelerators/0/bmc/sensors: expected a member "only")", schema},
        {"records that are a list", bmc_with(R"("records": [])"), R"(/accelerators/0/bmc/records: expected the records of a real board: { "file": "sdr.bin" })", schema},
        {"records of no file", bmc_with(R"("records": {})"), R"(/accelerators/0/bmc/records: expected a member "file")", schema},
        {"a FRU of a file without a name", fru_with(R"("file": "")"), "/accelerators/0/bmc/fru/file: expected a file with the FRU's bytes", schema},
        {"a sensor of a BMC without a name", bmc_sensor_with(""), R"(/accelerators/0/bmc/sensors/0: expected a member "name", or one "record")", code},
        {"a sensor name of 64 bytes", bmc_sensor_with(R"("name": ")" + repeated("x", 64) + "\""), "/accelerators/0/bmc/sensors/0/name: expected " + text_of(63), schema},
        {"two sensors of one number", bmc_with(R"("sensors": [{"name": "a", "number": 2}, {"name": "b", "number": 2}])"),
         "/accelerators/0/bmc/sensors/1/number: expected a sensor number that no other sensor has, which 2 is not", code},
        {"a sensor number of nine bits", bmc_sensor_with(R"("name": "a", "number": 256)"), "/accelerators/0/bmc/sensors/0/number: expected " + byte_expected, schema},
        {"a unit that there is not", bmc_sensor_with(R"("name": "a", "unit": "volt")"),
         "/accelerators/0/bmc/sensors/0/unit: expected a unit (unspecified, degrees C, degrees F, K, V, A, W, J, RPM or Hz), or its code, 0 to 255", schema},
        {"a factor of eleven bits", bmc_sensor_with(R"("name": "a", "m": 512)"), "/accelerators/0/bmc/sensors/0/m: expected a whole number, -512 to 511", schema},
        {"an exponent of five bits", bmc_sensor_with(R"("name": "a", "b_exp": -9)"), "/accelerators/0/bmc/sensors/0/b_exp: expected a whole number, -8 to 7", schema},
        {"a format that there is not", bmc_sensor_with(R"("name": "a", "format": 1)"),
         "/accelerators/0/bmc/sensors/0/format: expected how raw readings are coded (unsigned, ones complement, twos complement or none)", schema},
        {"a value that is a text", bmc_sensor_with(R"("name": "a", "value": "12 V")"), "/accelerators/0/bmc/sensors/0/value: expected a number in the sensor's unit, or null", schema},
        {"a value and a raw reading", bmc_sensor_with(R"("name": "a", "value": 1, "raw": 1)"),
         R"(/accelerators/0/bmc/sensors/0/raw: expected no such member beside "value")", code},
        {"a name beside a raw record", bmc_sensor_with(R"("record": "00", "name": "a")"),
         R"(/accelerators/0/bmc/sensors/0/name: expected no such member beside "record")", code},
        {"a value beside a raw record", bmc_sensor_with(R"("record": "00", "value": 1)"),
         "/accelerators/0/bmc/sensors/0/value: expected no such member beside a record that is no full sensor record", code},
        {"a raw record of 261 bytes", bmc_sensor_with(R"("record": ")" + repeated("00", 261) + "\""), "/accelerators/0/bmc/sensors/0/record: expected " + hex_of(260) + ", or null", schema},
        {"a reading beside a raw response", bmc_sensor_with(R"("name": "a", "response": "00", "available": false)"),
         R"(/accelerators/0/bmc/sensors/0/available: expected no such member beside "response")", code},
        {"a record ID of 17 bits", bmc_sensor_with(R"("name": "a", "next": "0x10000")"),
         R"(/accelerators/0/bmc/sensors/0/next: expected a record ID such as 2 or "0x1f", or null for the true one)", schema},
        {"limits that are a list", bmc_sensor_with(R"("name": "a", "limits": [1, 2])"),
         R"(/accelerators/0/bmc/sensors/0/limits: expected the limits of a sensor: { "lower_critical": 10.8, "upper_critical": 13.2 }, or null for none)", schema},
        {"a limit that there is not", limit_with("", R"("upper": 1)"),
         "/accelerators/0/bmc/sensors/0/limits/upper: unknown member, expected one of lower_non_recoverable, lower_critical, lower_non_critical, "
         "upper_non_critical, upper_critical, upper_non_recoverable, positive_hysteresis, negative_hysteresis", schema},
        {"a limit that is a text", limit_with("", R"("upper_critical": "13 V")"),
         "/accelerators/0/bmc/sensors/0/limits/upper_critical: expected a number in the sensor's unit, or null for no such limit", schema},
        {"a limit above all that a sensor reads", limit_with(R"("m": 63, "r_exp": -3,)", R"("upper_critical": 16.07)"),
         "/accelerators/0/bmc/sensors/0/limits/upper_critical: expected a limit that the sensor can say, from 0 to 16.065, which upper_critical 16.07 is not", code},
        {"a limit below all that a sensor reads", limit_with(R"("b": 5,)", R"("lower_critical": 4.5)"),
         "/accelerators/0/bmc/sensors/0/limits/lower_critical: expected a limit that the sensor can say, from 5 to 260, which lower_critical 4.5 is not", code},
        {"a lower limit above an upper one", limit_with("", R"("upper_critical": 20, "lower_critical": 30)"),
         "/accelerators/0/bmc/sensors/0/limits/upper_critical: expected limits that rise in their order, which lower_critical 30 and upper_critical 20 do not", code},
        {"a warning behind an alarm", limit_with("", R"("lower_critical": 30, "lower_non_critical": 29.5)"),
         "/accelerators/0/bmc/sensors/0/limits/lower_non_critical: expected limits that rise in their order, which lower_critical 30 and lower_non_critical 29.5 do not", code},
        {"limits of which the last two are out of order", limit_with("", R"("upper_critical": 20, "upper_non_critical": 30, "lower_critical": 10)"),
         "/accelerators/0/bmc/sensors/0/limits/upper_critical: expected limits that rise in their order, which upper_non_critical 30 and upper_critical 20 do not", code},
        {"limits of a sensor without numbers", limit_with(R"("format": "none",)", R"("upper_critical": 20)"),
         "/accelerators/0/bmc/sensors/0/limits: expected no limits of a sensor whose value neither rises nor falls with its raw reading", code},
        {"limits of a sensor that falls and rises", limit_with(R"("linearisation": "sqr", "b": -9,)", R"("upper_critical": 20)"),
         "/accelerators/0/bmc/sensors/0/limits: expected no limits of a sensor whose value neither rises nor falls with its raw reading", code},
        {"limits of a sensor of one value", limit_with(R"("m": 0, "b": 9,)", R"("upper_critical": 9)"),
         "/accelerators/0/bmc/sensors/0/limits: expected no limits of a sensor whose value neither rises nor falls with its raw reading", code},
        {"a hysteresis of 256 counts", limit_with(R"("m": -2,)", R"("positive_hysteresis": 512)"),
         "/accelerators/0/bmc/sensors/0/limits/positive_hysteresis: expected a hysteresis from 0 to 510, which positive_hysteresis 512 is not", code},
        {"a negative hysteresis", limit_with("", R"("negative_hysteresis": -1)"),
         "/accelerators/0/bmc/sensors/0/limits/negative_hysteresis: expected a hysteresis from 0 to 255, which negative_hysteresis -1 is not", code},
        {"a hysteresis of uneven steps", limit_with(R"("linearisation": "1/x",)", R"("negative_hysteresis": 1)"),
         "/accelerators/0/bmc/sensors/0/limits/negative_hysteresis: expected no hysteresis of a sensor with a linearisation, whose steps differ", code},
        {"limits beside a raw record", bmc_sensor_with(R"("record": "00", "limits": {"upper_critical": 9})"),
         R"(/accelerators/0/bmc/sensors/0/limits: expected no such member beside "record")", code},
        {"a rule about no answer", bmc_answer_with(R"("code": 1)"), R"(/accelerators/0/bmc/answers/0: expected a member "to")", schema},
        {"a rule about the 0th answer", bmc_answer_with(R"("to": "", "nth": 0)"), "/accelerators/0/bmc/answers/0/nth: expected a number, 1 to 4294967295, or null for all of them", schema},
        {"an answer with data of half a pair", bmc_answer_with(R"("to": "", "data": "0")"), "/accelerators/0/bmc/answers/0/data: expected " + raw_expected, schema},
        {"an answer with data and a frame", bmc_answer_with(R"("to": "", "frame": "", "data": "")"),
         R"(/accelerators/0/bmc/answers/0/data: expected no such member beside "frame")", code},
        {"a unit that there is not before a value", bmc_sensor_with(R"("name": "a", "unit": "volts", "value": 12)"),
         "/accelerators/0/bmc/sensors/0/unit: expected a unit (unspecified, degrees C, degrees F, K, V, A, W, J, RPM or Hz), or its code, 0 to 255", schema},
        {"a record that is none before a number", bmc_sensor_with(R"("record": "0", "number": 1)"),
         "/accelerators/0/bmc/sensors/0/record: expected " + hex_of(260) + ", or null", schema},
        {"a name that is misspelt", bmc_sensor_with(R"("nmae": "a", "value": 2)"),
         "/accelerators/0/bmc/sensors/0/nmae: unknown member, expected one of record, name, number, unit, response, value, raw, available, m, b, "
         "r_exp, b_exp, format, linearisation, modifier, modifier_unit, rate, percent, limits, id, next", schema},
        {"a unit beside a raw record", bmc_sensor_with(R"("record": "00", "unit": "V")"),
         R"(/accelerators/0/bmc/sensors/0/unit: expected no such member beside "record")", code},
        {"the ID of the last record", bmc_sensor_with(R"("name": "a", "id": "0xffff")"),
         "/accelerators/0/bmc/sensors/0/id: expected a record ID from 0x1 to 0xfffe, or 0x0 of the first one, which 0xffff is not", code},
        {"the ID of the first record for another one", bmc_with(R"("sensors": [{"name": "a"}, {"name": "b", "id": 0}])"),
         "/accelerators/0/bmc/sensors/1/id: expected a record ID from 0x1 to 0xfffe, or 0x0 of the first one, which 0x0 is not", code},
        {"two records of one ID", bmc_with(R"("sensors": [{"name": "a", "id": 7}, {"record": "0700510302"}])"),
         "/accelerators/0/bmc/sensors/1: expected a record ID that no other one has, which 0x7 is not", code},
        {"noise of 1025 bytes", bmc_answer_with(R"("to": "", "noise": ")" + repeated("00", 1025) + "\""), "/accelerators/0/bmc/answers/0/noise: expected " + hex_of(1024), schema},
        {"a piece of an answer that the FIFO does not hold", bmc_answer_with(R"("to": "", "pieces": [17])"),
         "/accelerators/0/bmc/answers/0/pieces/0: expected at most 16, the depth of the FIFO", code},
        {"65 rules about answers", bmc_with(R"("answers": [)" + repeated(R"({"to": ""},)", 64) + R"({"to": ""}])"),
         "/accelerators/0/bmc/answers: expected a list of at most 64 rules about answers", schema},
        {"no BMC, and its core", rack_with(R"("bmc": null, "cores": [{"hardware_id": 48, "address": 0, "size": 4}])"),
         R"(/accelerators/0/bmc: expected {}, as "cores" has one with the hardware_id 48)", code},

        // ---- decimal or hexadecimal? ----
        {"an address as a text of digits", core_with(R"("hardware_id": 1, "address": "1000", "size": 4)"),
         "/accelerators/0/cores/0/address: expected " + bytes_expected + size_digits, schema},
        {"a size as a text of digits", flash_with(R"("size": "134217728")"), "/accelerators/0/flash/size: expected " + bytes_expected + size_digits, schema},
        {"a start as hexadecimal digits alone", section_with(R"("start": "7fc0000", "size": 1)"),
         "/accelerators/0/flash/sections/0/start: expected " + bytes_expected + size_digits, schema},
        {"a hardware identifier as a text of digits", core_with(R"("hardware_id": "475", "address": 0, "size": 4)"),
         "/accelerators/0/cores/0/hardware_id: expected " + word_expected + digits, schema},
        {"a register's offset as a text of digits", core_with(R"("hardware_id": 1, "address": 0, "size": 64, "registers": {"16": 1})"),
         "/accelerators/0/cores/0/registers/16: expected an offset such as 0x10, a multiple of 4 and less than 0x40", code},
        {"a register's value as a text of digits", core_with(R"("hardware_id": 1, "address": 0, "size": 64, "registers": {"0x10": "1"})"),
         "/accelerators/0/cores/0/registers/0x10: expected " + word_expected + digits, schema},
        {"a bus address as a text of digits", device_with(R"("device": "multiplexer", "address": "74")"),
         R"(/accelerators/0/i2c/buses/0/devices/0/address: expected an address of 7 bits, such as 114 or "0x72")" + digits, schema},
        {"a mask of channels as a text of digits",
         device_with(R"("device": "multiplexer", "address": "0x74"}, {"device": "cage", "number": 0, "behind": ["0x74", "10"])"),
         R"(/accelerators/0/i2c/buses/0/devices/1/behind/1: expected a number from 0 to 255, such as 33 or "0x21")" + digits, schema},
        {"an error as a text of digits", xmc_with(R"("error": "33")"), "/accelerators/0/xmc/error: expected " + word_expected + digits, schema},
        {"a key as a text of digits", card_with(R"("extra": [{"key": "33", "value": ""}])"),
         R"(/accelerators/0/xmc/card/extra/0/key: expected a number from 0 to 255, such as 33 or "0x21")" + digits, schema},
        {"a boot image as a text of digits", bmc_with(R"("boot_image": "4")"), "/accelerators/0/bmc/boot_image: expected " + boot_image_expected + digits, schema},
        {"a code as a text of digits", bmc_answer_with(R"("to": "", "code": "192")"),
         R"(/accelerators/0/bmc/answers/0/code: expected a number from 0 to 255, such as 33 or "0x21")" + digits, schema},
        {"an identifier as a text of digits", module_with(R"("map": "qsfp", "identifier": "17")"),
         R"(/accelerators/0/i2c/cages/0/identifier: expected a number from 0 to 255, such as 33 or "0x21")" + digits, schema},
        {"a byte's place in hexadecimal", module_with(R"("map": "sfp", "bytes": {"A2:0x6e": "02"})"),
         "/accelerators/0/i2c/cages/0/bytes/A2:0x6e: expected a byte of an SFP such as A0:92 or A2:110", code},
        {"a byte with 0x", module_with(R"("map": "qsfp", "bytes": {"26": "0x02"})"), "/accelerators/0/i2c/cages/0/bytes/26: expected " + hex_of(4096), schema},
        {"a page with 0x", module_with(R"("dump": "a.hex", "page": "0x11")"), "/accelerators/0/i2c/cages/0/page: expected " + dump_page_expected, schema},
        {"a page as a number", module_with(R"("dump": "a.hex", "page": 11)"), "/accelerators/0/i2c/cages/0/page: expected " + dump_page_expected, schema},

        // ---- several ----
        {"the first of several", R"({"accelerators": [{"model": "a", "mmios": 99}, {"model": 1}]})",
         "/accelerators/0/mmios: expected a number of MMIO spaces, 0 to 16", schema},
    };
    // clang-format on
    return rows;
}

} // namespace ivra::tests
