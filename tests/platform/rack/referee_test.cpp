#include "rack/rack.h"
#include "support/bmc_server.h"
#include "support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

// Programs that know IPMI and not us judge what the BMC of a rack says.

namespace ivra::tests {

namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
namespace fs = std::filesystem;
namespace vp = ivra::virtual_platform;

class bmc_referee : public ::testing::Test
{
protected:
    bmc_referee()
    {
        std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
        folder = fs::canonical(::mkdtemp(name.data()));
        state = folder / "state";
    }
    ~bmc_referee() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    fs::path file(const std::string& name, const std::string& text) const
    {
        std::ofstream{folder / name, std::ios::binary} << text;
        return folder / name;
    }

    fs::path folder;
    fs::path state;
};

/// "Board Serial : X" and the like.
std::map<std::string, std::string> fields(const std::string& text)
{
    std::map<std::string, std::string> result;
    for (const auto& row : table(text, ":"))
        if (row.size() == 2)
            result[row[0]] = row[1];
    return result;
}

std::string text_of(const fs::path& file)
{
    std::ifstream stream{file, std::ios::binary};
    return {std::istreambuf_iterator<char>{stream}, {}};
}

const fs::path showcase = IVRA_RACKS "/showcase.json";

} // namespace

TEST_F(bmc_referee, the_server_says_where_it_is_and_ends_well_on_a_signal)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        bmc_server bmc{showcase, "virtual-xupp3r", state};
        EXPECT_THAT(bmc.device, MatchesRegex("/dev/pts/[0-9]+"));
        EXPECT_EQ(bmc.end(signal), 0);
    }
}

TEST_F(bmc_referee, a_server_that_waits_for_a_slow_bmc_ends_at_once)
{
    const fs::path rack =
        file("slow.json", R"({"accelerators": [{"model": "ivra_fpb2", "bmc": {"latency": "999 s"}}]})");
    bmc_server bmc{rack, "0", state};
    const int line = ::open(bmc.device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(::write(line, "[180001]\r\n", 10), 10);
    ::usleep(100'000);
    ::close(line);
    EXPECT_EQ(bmc.end(SIGTERM), 0);
}

TEST_F(bmc_referee, what_cannot_be_served_is_said)
{
    const auto error = [&](const std::string& name) {
        const run_t result = run_program(IVRA_VIRTUAL_COMMAND, {"bmc", showcase.string(), name});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        return result.err;
    };
    EXPECT_EQ(error("nobody"), "ivra-virtual: bmc: " + fs::canonical(showcase).string() +
                                   " has no accelerator of the name, uid or index \"nobody\"; there are virtual-u200, "
                                   "virtual-u250, virtual-u50, virtual-u55c, virtual-xupp3r, virtual-xupvv8, "
                                   "virtual-fpb2, virtual-switch-emulated, virtual-switch-l, virtual-switch-lb\n");
    EXPECT_EQ(error("0"), "ivra-virtual: bmc: the accelerator \"0\" has no BMC\n");
}

TEST_F(bmc_referee, the_device_speaks_terminal_mode_and_ignores_nonsense)
{
    const bmc_server bmc{showcase, "0000:65:00.0", state};
    const int line = ::open(bmc.device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(line, 0);
    const std::string text =
        "x]\n[]\r\n[18]\n[18000]\n[1800 zz]\n[" + std::string(5000, '0') + "]\n[18 5c 0[18 5C 01]\r\n";
    ASSERT_EQ(::write(line, text.data(), text.size()), static_cast<::ssize_t>(text.size()));
    std::string answer;
    for (char c = 0; answer.find('\n') == std::string::npos && ::read(line, &c, 1) == 1;)
        answer += c;
    ::close(line);
    EXPECT_EQ(answer, "[1c5c0100208101000209187b000100]\r\n");
}

TEST_F(bmc_referee, ipmitool_reads_the_FRU_of_every_board)
{
    std::size_t compared = 0;
    for (const vp::accelerator_t& accelerator : vp::load_rack(showcase).accelerators) {
        if (!accelerator.bmc)
            continue;
        const bmc_server bmc{showcase, accelerator.uid, state};
        const auto seen = fields(bmc.ipmitool({"fru", "print", "0"}));
        const std::map<std::string, std::string> expected{{"Board Mfg Date", "Unspecified"},
                                                          {"Board Mfg", *accelerator.bmc->fru.manufacturer},
                                                          {"Board Product", *accelerator.bmc->fru.product},
                                                          {"Board Serial", *accelerator.bmc->fru.serial},
                                                          {"Board Part Number", *accelerator.bmc->fru.part_number}};
        EXPECT_EQ(seen, expected);
        ++compared;
    }
    EXPECT_EQ(compared, 3U);
}

TEST_F(bmc_referee, ipmitool_reads_the_sensors_of_every_board)
{
    const std::map<int, std::string> units{{1, "degrees C"}, {4, "Volts"}, {5, "Amps"}, {6, "Watts"}};
    std::size_t compared = 0;
    for (const vp::accelerator_t& accelerator : vp::load_rack(showcase).accelerators) {
        if (!accelerator.bmc)
            continue;
        const bmc_server bmc{showcase, accelerator.uid, state};
        const auto rows = table(bmc.ipmitool({"sensor"}), "|");
        ASSERT_EQ(rows.size(), accelerator.bmc->sensors.size());
        for (std::size_t at = 0; at < rows.size(); ++at) {
            const vp::bmc_sensor_t& sensor = accelerator.bmc->sensors[at];
            const std::vector<std::string>& row = rows[at];
            ASSERT_GE(row.size(), 4U);
            EXPECT_EQ(row[0], sensor.name.substr(0, 16)); // it shows no more
            EXPECT_EQ(row[2], units.at(sensor.unit));
            const bool is_exceeded = sensor.name == "Fan inlet air temperature" && accelerator.name == "virtual-xupp3r";
            EXPECT_EQ(row[3], is_exceeded ? "nc" : sensor.available ? "ok" : "na");
            if (sensor.available) {
                EXPECT_EQ(vp::two_decimals(std::strtod(row[1].c_str(), nullptr)), vp::two_decimals(*sensor.value))
                    << sensor.name;
            } else {
                EXPECT_EQ(row[1], "na");
            }
            ++compared;
        }
        EXPECT_EQ(table(bmc.ipmitool({"sdr", "list"}), "|").size(), rows.size());
    }
    EXPECT_GE(compared, 30U);
}

TEST_F(bmc_referee, ipmitool_reads_the_limits_of_the_showcase)
{
    const bmc_server bmc{showcase, "virtual-xupp3r", state};
    EXPECT_EQ(table(bmc.ipmitool({"sensor"}), "|"),
              (std::vector<std::vector<std::string>>{
                  {"12V0", "12.033", "Volts", "ok", "na", "10.773", "11.403", "12.600", "13.230", "na"},
                  {"3V3", "3.312", "Volts", "ok", "na", "2.976", "3.136", "3.472", "3.632", "na"},
                  {"1V8", "1.808", "Volts", "ok", "na", "na", "na", "na", "na", "na"},
                  {"1V2 DDR4 A", "1.200", "Volts", "ok", "na", "na", "na", "na", "na", "na"},
                  {"1V2 DDR4 B", "1.212", "Volts", "ok", "na", "na", "na", "na", "na", "na"},
                  {"0V85", "0.848", "Volts", "ok", "0.776", "0.808", "na", "na", "0.892", "0.924"},
                  {"12V0 current", "3.400", "Amps", "ok", "na", "na", "na", "na", "na", "na"},
                  {"0V85 current", "18.250", "Amps", "ok", "na", "na", "na", "50.000", "60.000", "na"},
                  {"Board power", "41.000", "Watts", "ok", "na", "na", "na", "na", "110.000", "na"},
                  {"Board temp", "38.000", "degrees C", "ok", "na", "na", "na", "70.000", "80.000", "na"},
                  {"FPGA temp", "41.500", "degrees C", "ok", "na", "na", "na", "85.000", "95.000", "105.000"},
                  {"DIMM temp", "na", "degrees C", "na", "na", "na", "na", "na", "85.000", "na"},
                  {"Fan inlet air te", "27.500", "degrees C", "nc", "na", "na", "na", "27.000", "40.000", "na"},
              }));
}

TEST_F(bmc_referee, ipmitool_reads_sensors_of_every_format_and_function)
{
    // Functions of values with few digits; the standard's ln, e and roots are checked where they are exact enough.
    const std::vector<std::pair<std::string, std::string>> rows{
        {R"("value": -5, "format": "twos complement")", "-5.00"},
        {R"("value": -128, "format": "twos complement")", "-128.00"},
        {R"("value": -5, "format": "ones complement")", "-5.00"},
        {R"("value": 250, "format": "unsigned")", "250.00"},
        {R"("value": 10, "m": -1, "b": 30)", "10.00"},
        {R"("value": 1.5, "m": 511, "b": -512, "b_exp": 1, "r_exp": -4)", "1.48"}, // (511 x 39 - 5120) / 10^4
        {R"("value": 8, "linearisation": "exp2")", "8.00"},
        {R"("value": 2, "linearisation": "log10")", "2.00"},
        {R"("value": 6, "linearisation": "log2")", "6.00"},
        {R"("value": 0.25, "linearisation": "1/x")", "0.25"},
        {R"("value": 49, "linearisation": "sqr")", "49.00"},
        {R"("value": 27, "linearisation": "cube")", "27.00"},
        {R"("value": 12, "linearisation": "sqrt")", "12.00"},
        {R"("value": 5, "linearisation": "cube root")", "5.00"},
        {R"("value": 1000, "linearisation": "exp10")", "1000.00"},
        {R"("value": 1, "linearisation": "e")", "1.00"},
    };
    std::string sensors;
    for (const auto& [members, value] : rows)
        sensors += (sensors.empty() ? "" : ", ") + std::string{R"({"name": "x", )"} + members + "}";
    const fs::path rack =
        file("r.json", R"({"accelerators": [{"model": "x", "bmc": {"sensors": [)" + sensors + "]}}]}");
    const bmc_server bmc{rack, "0", state};
    const auto seen = table(bmc.ipmitool({"sensor"}), "|");
    ASSERT_EQ(seen.size(), rows.size());
    for (std::size_t at = 0; at < rows.size(); ++at)
        EXPECT_EQ(vp::two_decimals(std::strtod(seen[at].at(1).c_str(), nullptr)), rows[at].second) << rows[at].first;
}

/// A board with limits of every kind; its records are the same when they were captured.
const char* const limits_rack = R"({"accelerators": [{"model": "x", "bmc": {"sensors": [
    {"name": "12V0", "unit": "V", "value": 12.033, "m": 63, "r_exp": -3, "limits": {
        "lower_non_recoverable": 10.08, "lower_critical": 10.773, "lower_non_critical": 11.34, "upper_non_critical": 12.6,
        "upper_critical": 13.23, "upper_non_recoverable": 14.49, "positive_hysteresis": 0.126, "negative_hysteresis": 0.063}},
    {"name": "Inlet", "unit": "degrees C", "value": 27.5, "m": 5, "r_exp": -1,
        "limits": {"upper_non_critical": 27, "upper_critical": 35}},
    {"name": "Hot", "unit": "degrees C", "value": 90, "limits": {"upper_non_critical": 80, "upper_critical": 90}},
    {"name": "Hotter", "unit": "degrees C", "value": 101, "limits": {"upper_non_recoverable": 100}},
    {"name": "Cool", "unit": "degrees C", "value": -10, "format": "twos complement", "limits": {
        "lower_non_critical": -10, "lower_critical": -20, "lower_non_recoverable": -30, "upper_critical": 80}},
    {"name": "Low", "unit": "A", "value": 0.5, "m": 1, "r_exp": -1, "limits": {"lower_non_recoverable": 0.5}},
    {"name": "Fan", "unit": "RPM", "value": 4000, "linearisation": "1/x", "r_exp": -6, "limits": {
        "lower_critical": 4000, "lower_non_critical": 5000, "upper_non_critical": 20000}},
    {"name": "Turned", "unit": "V", "value": 11, "m": -1, "b": 30, "limits": {
        "lower_critical": 10, "upper_critical": 25}},
    {"name": "Off", "unit": "V", "available": false, "limits": {"lower_critical": 10}},
    {"name": "Plain", "unit": "V", "value": 3}]}}]})";

/// As an operator would see them. Thresholds are about raw readings: of "Fan" and "Turned", which fall when those
/// rise, the upper ones are the lower limits.
const std::vector<std::vector<std::string>> limits_screen{
    {"12V0", "12.033", "Volts", "ok", "10.080", "10.773", "11.340", "12.600", "13.230", "14.490"},
    {"Inlet", "27.500", "degrees C", "nc", "na", "na", "na", "27.000", "35.000", "na"},
    {"Hot", "90.000", "degrees C", "cr", "na", "na", "na", "80.000", "90.000", "na"},
    {"Hotter", "101.000", "degrees C", "nr", "na", "na", "na", "na", "na", "100.000"},
    {"Cool", "-10.000", "degrees C", "nc", "-30.000", "-20.000", "-10.000", "na", "80.000", "na"},
    {"Low", "0.500", "Amps", "nr", "0.500", "na", "na", "na", "na", "na"},
    {"Fan", "4000.000", "RPM", "cr", "na", "na", "20000.000", "5000.000", "4000.000", "na"},
    {"Turned", "11.000", "Volts", "ok", "na", "25.000", "na", "na", "10.000", "na"},
    {"Off", "na", "Volts", "na", "na", "10.000", "na", "na", "na", "na"},
    {"Plain", "3.000", "Volts", "ok", "na", "na", "na", "na", "na", "na"},
};

TEST_F(bmc_referee, ipmitool_reads_the_limits_of_sensors_and_whether_they_are_kept)
{
    const bmc_server bmc{file("limits.json", limits_rack), "0", state};
    EXPECT_EQ(table(bmc.ipmitool({"sensor"}), "|"), limits_screen);
    EXPECT_EQ(table(bmc.ipmitool({"sdr", "list"}), "|"), (std::vector<std::vector<std::string>>{
                                                             {"12V0", "12.03 Volts", "ok"},
                                                             {"Inlet", "27.50 degrees C", "nc"},
                                                             {"Hot", "90 degrees C", "cr"},
                                                             {"Hotter", "101 degrees C", "nr"},
                                                             {"Cool", "-10 degrees C", "nc"},
                                                             {"Low", "0.50 Amps", "nr"},
                                                             {"Fan", "4000 RPM", "cr"},
                                                             {"Turned", "11 Volts", "ok"},
                                                             {"Off", "no reading", "ns"},
                                                             {"Plain", "3 Volts", "ok"},
                                                         }));
    const std::string of_12V0 = bmc.ipmitool({"sensor", "get", "12V0"});
    EXPECT_THAT(of_12V0, HasSubstr(" Status                : ok\n"
                                   " Lower Non-Recoverable : 10.080\n"
                                   " Lower Critical        : 10.773\n"
                                   " Lower Non-Critical    : 11.340\n"
                                   " Upper Non-Critical    : 12.600\n"
                                   " Upper Critical        : 13.230\n"
                                   " Upper Non-Recoverable : 14.490\n"
                                   " Positive Hysteresis   : 0.126\n"
                                   " Negative Hysteresis   : 0.063\n"));
    EXPECT_THAT(bmc.ipmitool({"sensor", "get", "Inlet"}), HasSubstr(" Status                : Upper Non-Critical\n"));
    EXPECT_THAT(bmc.ipmitool({"sensor", "get", "Plain"}), HasSubstr("Sensor Threshold Settings not available\n"));
    EXPECT_THAT(bmc.ipmitool({"-v", "sdr", "get", "Inlet"}), HasSubstr(" Upper critical        : 35.000\n"
                                                                       " Upper non-critical    : 27.000\n"
                                                                       " Positive Hysteresis   : Unspecified\n"
                                                                       " Negative Hysteresis   : Unspecified\n"));
    EXPECT_THAT(bmc.ipmitool({"-v", "sdr", "get", "Inlet"}), HasSubstr(" Readable Thresholds   : unc ucr \n"
                                                                       " Settable Thresholds   : \n"
                                                                       " Threshold Read Mask   : unc ucr \n"));
}

TEST_F(bmc_referee, what_ipmitool_captured_of_a_board_with_limits_keeps_them)
{
    {
        const bmc_server bmc{file("limits.json", limits_rack), "0", state};
        bmc.ipmitool({"sdr", "dump", folder / "sdr.bin"});
    }
    const fs::path captured =
        file("captured.json", R"({"accelerators": [{"model": "x", "bmc": {"records": {"file": "sdr.bin"}, "sensors": [
        {"name": "12V0", "value": 12.033}, {"name": "Inlet", "value": 27.5}, {"name": "Hot", "value": 90},
        {"name": "Hotter", "value": 101}, {"name": "Cool", "value": -10}, {"name": "Low", "value": 0.5},
        {"name": "Fan", "value": 4000}, {"name": "Turned", "value": 11}, {"name": "Plain", "value": 3}]}}]})");
    const bmc_server bmc{captured, "0", state};
    EXPECT_EQ(table(bmc.ipmitool({"sensor"}), "|"), limits_screen);
}

TEST_F(bmc_referee, what_ipmitool_captured_of_one_board_makes_another_one)
{
    const fs::path real = file("real.json", R"({"accelerators": [{"model": "bittware_xupp3r", "bmc": {
        "fru": {"extra": ["more"]},
        "sensors": {"only": true, "list": [{"name": "12V0", "id": 3, "number": 48, "unit": "V", "value": 12.096, "m": 63, "r_exp": -3},
                    {"name": "Board temp", "id": "0x11", "number": 7, "unit": "degrees C", "value": -4, "format": "twos complement"},
                    {"name": "Current", "id": "0x200", "number": 9, "unit": "A", "value": 2.5, "m": 1, "r_exp": -1}]}}}]})");
    const fs::path captured = file("captured.json", R"({"accelerators": [{"model": "bittware_xupp3r", "bmc": {
        "fru": {"file": "fru.bin"}, "records": {"file": "sdr.bin"},
        "sensors": [{"name": "12V0", "value": 12.096}, {"name": "Board temp", "value": -4}, {"name": "Current", "value": 2.5}]}}]})");
    const auto dump = [&](const bmc_server& bmc, const std::string& to) {
        bmc.ipmitool({"sdr", "dump", folder / (to + "sdr.bin")});
        bmc.ipmitool({"fru", "read", "0", folder / (to + "fru.bin")});
    };
    const auto screens = [](const bmc_server& bmc) {
        return bmc.ipmitool({"sdr", "list"}) + bmc.ipmitool({"sensor"}) + bmc.ipmitool({"fru", "print", "0"});
    };
    std::string seen;
    {
        const bmc_server bmc{real, "0", state};
        dump(bmc, "");
        seen = screens(bmc);
    }
    const std::string fru = run_program("/usr/sbin/ipmi-fru", {"--fru-file=" + (folder / "fru.bin").string()}).out;
    EXPECT_THAT(fru, HasSubstr("FRU Board Product Name: XUPP3R"));
    EXPECT_THAT(fru, Not(HasSubstr("checksum")));
    EXPECT_EQ(table(seen, "|").at(0), (std::vector<std::string>{"12V0", "12.10 Volts", "ok"}));
    const bmc_server bmc{captured, "0", state};
    EXPECT_EQ(screens(bmc), seen);
    dump(bmc, "again-");
    EXPECT_EQ(text_of(folder / "again-sdr.bin"), text_of(folder / "sdr.bin"));
    EXPECT_EQ(text_of(folder / "again-fru.bin"), text_of(folder / "fru.bin"));
}

TEST_F(bmc_referee, ipmitool_reads_and_sets_the_boot_image_that_the_board_remembers)
{
    const std::vector<std::string> get{"raw", "0x2e", "0x08", "0x18", "0x7b", "0x00", "0x07"};
    {
        const bmc_server bmc{showcase, "virtual-fpb2", state};
        EXPECT_EQ(bmc.ipmitool(get), " 18 7b 00 00\n");
        EXPECT_EQ(bmc.ipmitool({"raw", "0x2e", "0x09", "0x18", "0x7b", "0x00", "0x07", "0x01"}), " 18 7b 00\n");
        EXPECT_EQ(bmc.ipmitool({"raw", "0x04", "0x21", "0", "0", "1", "0", "0", "64"}).find(" 02 00 01 00 51 01 3b"),
                  0U);
    }
    const bmc_server bmc{showcase, "virtual-fpb2", state};
    EXPECT_EQ(bmc.ipmitool(get), " 18 7b 00 01\n");
    EXPECT_EQ(bmc.ipmitool({"raw", "0x2e", "0x08", "0x18", "0x7b", "0x00", "0x01"}), " 18 7b 00 01\n");
    EXPECT_THAT(
        run_program(IVRA_VIRTUAL_COMMAND, {"show", showcase.string()}, {"IVRA_VIRTUAL_STATE=" + state.string()}).out,
        HasSubstr("BMC            boot image backup, configured from primary"));
}

TEST_F(bmc_referee, ipmi_fru_accepts_the_FRU_of_every_rack)
{
    std::size_t compared = 0;
    for (const auto& entry : fs::directory_iterator{IVRA_RACKS}) {
        if (entry.path().extension() != ".json" || entry.path().stem().extension() == ".schema" ||
            entry.path().filename() == "many.json") // no other ones than in the others
            continue;
        for (const vp::accelerator_t& accelerator : vp::load_rack(entry.path()).accelerators) {
            if (!accelerator.bmc || accelerator.bmc->fru.raw)
                continue;
            const vp::bmc_fru_t& fru = accelerator.bmc->fru;
            const fs::path image = file("fru", vp::fru_image(fru));
            const run_t result = run_program("/usr/sbin/ipmi-fru", {"--fru-file=" + image.string()});
            SCOPED_TRACE(entry.path());
            ASSERT_EQ(result.status, 0) << "ipmi-fru (package freeipmi-tools): " << result.err;
            EXPECT_EQ(result.err, "");
            EXPECT_THAT(result.out, Not(HasSubstr("checksum")));
            EXPECT_THAT(result.out, HasSubstr("FRU Board Manufacturer: " + fru.manufacturer.value_or("?")));
            EXPECT_THAT(result.out, HasSubstr("FRU Board Product Name: " + fru.product.value_or("?")));
            const bool is_plain = std::ranges::all_of(*fru.serial, [](char c) { return c >= ' ' && c <= '~'; });
            if (is_plain) {
                EXPECT_THAT(result.out, HasSubstr("FRU Board Serial Number: " + *fru.serial));
            }
            ++compared;
        }
    }
    EXPECT_GE(compared, 8U);
}

TEST_F(bmc_referee, ipmi_fru_would_have_seen_a_wrong_checksum)
{
    std::string image =
        vp::fru_image(vp::parse_rack(R"({"accelerators": [{"model": "ivra_fpb2"}]})", IVRA_RACKS "/my.json")
                          .accelerators.at(0)
                          .bmc->fru);
    image.back() = static_cast<char>(image.back() + 1);
    const run_t result = run_program("/usr/sbin/ipmi-fru", {"--fru-file=" + file("fru", image).string()});
    EXPECT_THAT(result.out + result.err, HasSubstr("checksum"));
}

} // namespace ivra::tests
