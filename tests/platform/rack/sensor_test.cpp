#include "rack/rack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// The sensors of a BMC: those of a model and what a rack says over them, and those of a captured repository.

namespace ivra::tests {

namespace {

using namespace ivra::virtual_platform;
using namespace std::string_literals;
using ::testing::ElementsAre;
namespace fs = std::filesystem;
using lines_t = std::vector<std::string>;

class sensors : public ::testing::Test
{
protected:
    sensors()
    {
        std::string name = fs::temp_directory_path() / "rack-tests-XXXXXX";
        folder = fs::canonical(::mkdtemp(name.data()));
    }
    ~sensors() override
    {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    void file(const std::string& name, const std::string& bytes) const
    {
        fs::create_directories((folder / name).parent_path());
        std::ofstream{folder / name, std::ios::binary} << bytes;
    }

    /// The BMC of a board of a model with three sensors.
    bmc_t bmc_with(const std::string& members) const
    {
        file("models/three.json", R"({"bmc": {"sensors": [
            {"name": "12V", "unit": "V", "value": 12, "m": 60, "r_exp": -3},
            {"name": "temp", "unit": "degrees C", "available": false},
            {"name": "temp", "unit": "degrees C", "response": "80c000"}]}})");
        return parse_rack(R"({"accelerators": [{"model": "three", "bmc": {)" + members + "}}]}", folder / "my.json")
            .accelerators.at(0)
            .bmc.value();
    }

    /// "12V #1 V 200", "temp #2 none" or "temp #3 as 80c000"
    lines_t sensors_with(const std::string& members) const
    {
        std::vector<std::string> lines;
        for (const bmc_sensor_t& sensor : bmc_with(members).sensors)
            lines.push_back(sensor.name + " #" + std::to_string(sensor.number) + ' ' +
                            (sensor.response     ? "as " + hex(*sensor.response)
                             : !sensor.available ? "none"
                                                 : std::to_string(raw_reading(sensor))));
        return lines;
    }

    std::string error_of(const std::string& members) const
    {
        try {
            bmc_with(members);
        } catch (const file_error& error) {
            return error.what();
        }
        return "no error";
    }

    static std::string hex(const std::string& bytes)
    {
        std::string text;
        for (const char c : bytes)
            for (const unsigned digit : {static_cast<std::uint8_t>(c) / 16U, static_cast<std::uint8_t>(c) % 16U})
                text += "0123456789abcdef"[digit];
        return text;
    }

    fs::path folder;
};

/// A record as IPMI 2.0 chapter 43 has it: header, and bytes of its body by their offsets in the record.
std::string record(unsigned id, unsigned type, std::size_t size,
                   const std::vector<std::pair<std::size_t, unsigned>>& body)
{
    std::string bytes(size, '\0');
    const auto put = [&](std::size_t at, unsigned value) { bytes.at(at) = static_cast<char>(value); };
    put(0, id % 256);
    put(1, id / 256);
    put(2, 0x51);
    put(3, type);
    put(4, static_cast<unsigned>(size - 5));
    for (const auto& [at, value] : body)
        put(at, value);
    return bytes;
}

/// A full sensor record with a name of three letters.
std::string full_record(unsigned id, unsigned number, const std::string& name,
                        std::vector<std::pair<std::size_t, unsigned>> body = {})
{
    body.insert(body.begin(), {{7, number}, {24, 1}, {47, 0xc3}});
    return record(id, 0x01, 51, body).replace(48, 3, name);
}

const std::vector<std::string> of_the_model{"12V #1 200", "temp #2 none", "temp #3 as 80c000"};

} // namespace

TEST_F(sensors, of_the_model_are_there_when_a_rack_says_nothing)
{
    EXPECT_EQ(sensors_with(""), of_the_model);
    EXPECT_EQ(sensors_with(R"("sensors": [])"), of_the_model);
}

TEST_F(sensors, that_a_rack_names_change_and_others_stay)
{
    EXPECT_EQ(sensors_with(R"("sensors": [{"name": "12V", "value": 11.4}])"),
              (lines_t{"12V #1 190", "temp #2 none", "temp #3 as 80c000"}));
    const bmc_sensor_t sensor = bmc_with(R"("sensors": [{"name": "12V", "value": 11.4}])").sensors.at(0);
    EXPECT_EQ(sensor.unit, 4);
    EXPECT_EQ(sensor.m, 60);
}

TEST_F(sensors, of_one_name_are_named_in_their_order)
{
    EXPECT_EQ(sensors_with(R"("sensors": [{"name": "temp", "value": 40}, {"name": "temp", "value": 50}])"),
              (lines_t{"12V #1 200", "temp #2 40", "temp #3 50"}));
    EXPECT_EQ(sensors_with(
                  R"("sensors": [{"name": "temp", "raw": 1}, {"name": "temp", "raw": 2}, {"name": "temp", "raw": 3}])"),
              (lines_t{"12V #1 200", "temp #2 1", "temp #3 2", "temp #4 3"}));
}

TEST_F(sensors, of_other_names_are_new)
{
    EXPECT_EQ(sensors_with(R"("sensors": [{"name": "fan", "raw": 9}, {"name": "12V", "raw": 1}])"),
              (lines_t{"12V #1 1", "temp #2 none", "temp #3 as 80c000", "fan #4 9"}));
    EXPECT_EQ(error_of(R"("sensors": [{"name": "fan", "number": 2}])"),
              (folder / "my.json").string() + ": /accelerators/0/bmc/sensors/0/number: expected a sensor number that "
                                              "no other sensor has, which 2 is not");
    EXPECT_EQ(error_of(R"("sensors": [{"name": "12V", "number": 2}])"),
              (folder / "my.json").string() + ": /accelerators/0/bmc/sensors/0/number: expected a sensor number that "
                                              "no other sensor has, which 2 is not");
}

TEST_F(sensors, that_clash_are_a_mistake_of_the_one_that_says_so)
{
    const std::string begin = (folder / "my.json").string() + ": /accelerators/0/bmc/sensors/";
    EXPECT_EQ(error_of(R"("sensors": [{"name": "temp", "raw": 1}, {"name": "12V", "number": 2}])"),
              begin + "1/number: expected a sensor number that no other sensor has, which 2 is not");
    file("sdr.bin", full_record(1, 0x30, "V12") + full_record(7, 0x31, "TMP"));
    EXPECT_EQ(
        error_of(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "TMP", "raw": 1}, {"name": "V12", "id": 7}])"),
        begin + "1/id: expected a record ID that no other one has, which 0x7 is not");
    EXPECT_EQ(
        error_of(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "new", "raw": 1}, {"name": "V12", "id": 7}])"),
        begin + "1/id: expected a record ID that no other one has, which 0x7 is not");
}

TEST_F(sensors, of_a_rack_can_be_all)
{
    EXPECT_EQ(sensors_with(R"("sensors": {"only": true, "list": [{"name": "temp", "raw": 7}]})"),
              (lines_t{"temp #1 7"}));
    EXPECT_EQ(sensors_with(R"("sensors": {"only": true, "list": []})"), lines_t{});
    EXPECT_EQ(sensors_with(R"("sensors": {"only": false, "list": [{"name": "temp", "raw": 7}]})"),
              (lines_t{"12V #1 200", "temp #2 7", "temp #3 as 80c000"}));
}

TEST_F(sensors, read_as_the_rack_says_last)
{
    const std::pair<const char*, const char*> rows[] = {
        {R"("m": 30)", "12V #1 255"}, // the value stays
        {R"("value": null)", "12V #1 200"},
        {R"("raw": null, "available": true)", "12V #1 200"},
        {R"("raw": 5)", "12V #1 5"},
        {R"("raw": 5, "m": 30)", "12V #1 5"},
        {R"("available": false)", "12V #1 none"},
        {R"("value": 6, "available": false)", "12V #1 none"},
        {R"("response": "01")", "12V #1 as 01"},
    };
    for (const auto& [members, expected] : rows)
        EXPECT_EQ(sensors_with(R"("sensors": [{"name": "12V", )"s + members + "}]").at(0), expected) << members;
    EXPECT_EQ(sensors_with(R"("sensors": [{"name": "temp"}, {"name": "temp", "value": 8}])").at(2), "temp #3 8");
    EXPECT_EQ(sensors_with(R"("sensors": [{"name": "temp"}, {"name": "temp", "available": false}])").at(2),
              "temp #3 none");
}

TEST_F(sensors, keep_the_limits_of_the_model_that_a_rack_does_not_mention)
{
    file("models/limited.json", R"({"bmc": {"sensors": [{"name": "12V", "unit": "V", "value": 12, "m": 60, "r_exp": -3,
        "limits": {"lower_critical": 10.8, "upper_critical": 13.2, "positive_hysteresis": 0.06}}]}})");
    const auto limits_with = [&](const std::string& members) {
        return parse_rack(R"({"accelerators": [{"model": "limited", "bmc": {"sensors": [{"name": "12V", )" + members +
                              "}]}}]}",
                          folder / "my.json")
            .accelerators.at(0)
            .bmc->sensors.at(0)
            .limits;
    };
    using limits_t = decltype(bmc_limits_t::values);
    constexpr auto none = std::nullopt;
    bmc_limits_t expected{limits_t{none, 10.8, none, none, 13.2, none}, 0.06, none};
    EXPECT_EQ(limits_with(R"("value": 11)"), expected);
    EXPECT_EQ(limits_with(R"("limits": {})"), expected);
    EXPECT_EQ(limits_with(R"("limits": null)"), std::nullopt);
    expected.values = limits_t{10, 10.8, none, 13, none, none};
    EXPECT_EQ(
        limits_with(R"("limits": {"lower_non_recoverable": 10, "upper_non_critical": 13, "upper_critical": null})"),
        expected);
    EXPECT_EQ(error_of(R"("sensors": [{"name": "12V", "limits": {"upper_non_recoverable": 20}}])"),
              (folder / "my.json").string() +
                  ": /accelerators/0/bmc/sensors/0/limits/upper_non_recoverable: expected a limit that the sensor can "
                  "say, from 0 to 15.3, which upper_non_recoverable 20 is not");
    const auto error_with = [&](const std::string& members) -> std::string {
        try {
            limits_with(members);
        } catch (const file_error& error) {
            return error.what();
        }
        return "no error";
    };
    const std::string place = (folder / "my.json").string() + ": /accelerators/0/bmc/sensors/0";
    EXPECT_EQ(error_with(R"("limits": {"lower_critical": 14})"),
              place + "/limits/lower_critical: expected limits that rise in their order, which lower_critical 14 and "
                      "upper_critical 13.2 do not");
    EXPECT_EQ(error_with(R"("m": 50)"), place + ": expected a limit that the sensor can say, from 0 to 12.75, which "
                                                "upper_critical 13.2 is not");
}

TEST_F(sensors, can_have_limits_that_are_equal_and_at_the_ends_of_what_they_say)
{
    for (const char* members : {
             R"("m": 63, "limits": {"lower_critical": 7.56, "lower_non_critical": 7.56, "upper_critical": 7.56})",
             R"("m": 63, "limits": {"lower_critical": 0, "upper_critical": 16.065})", // 255 x 63 / 1000
             R"("m": 20, "r_exp": -7, "limits": {"upper_critical": 0.00051})",        // which is no exact product
             R"("format": "none", "limits": {"upper_critical": null})",
         })
        EXPECT_EQ(error_of(R"("sensors": [{"name": "12V", )"s + members + "}]"), "no error") << members;
}

TEST_F(sensors, are_what_their_records_say)
{
    // Bytes 20 to 29 of a record, IPMI 2.0 table 43-1.
    const bmc_sensor_t sensor = sensor_of(full_record(
        1, 0x21, "abc",
        {{20, 0xa3}, {21, 1}, {22, 18}, {23, 7}, {24, 0x00}, {25, 0x80}, {26, 0xfe}, {27, 0xc0}, {29, 0x87}}));
    EXPECT_EQ(sensor.name, "abc");
    EXPECT_EQ(sensor.number, 0x21);
    EXPECT_EQ(sensor.format, 2);
    EXPECT_EQ(sensor.rate, 4);
    EXPECT_EQ(sensor.modifier, 1);
    EXPECT_TRUE(sensor.percent);
    EXPECT_EQ(sensor.unit, 1);
    EXPECT_EQ(sensor.modifier_unit, 18);
    EXPECT_EQ(sensor.linearisation, 7);
    EXPECT_EQ(sensor.m, -512);
    EXPECT_EQ(sensor.b, -2);
    EXPECT_EQ(sensor.r_exp, -8);
    EXPECT_EQ(sensor.b_exp, 7);
    const bmc_sensor_t other = sensor_of(full_record(1, 0x21, "abc", {{24, 0xff}, {25, 0x40}, {26, 0x01}, {29, 0x7f}}));
    EXPECT_EQ(other.m, 511);
    EXPECT_EQ(other.b, 1);
    EXPECT_EQ(other.r_exp, 7);
    EXPECT_EQ(other.b_exp, -1);
}

TEST_F(sensors, of_a_captured_repository_take_the_place_of_the_models)
{
    // A full record with a nominal reading; a compact one; the locator of a FRU; a full one in two's complement.
    file("sdr.bin", full_record(3, 0x30, "V12", {{21, 4}, {24, 0x3f}, {29, 0xd0}, {30, 1}, {31, 191}}) +
                        record(0x10, 0x02, 34, {{7, 0x31}, {31, 0xc2}, {32, 'P'}, {33, 'G'}}) +
                        record(0x11, 0x11, 20, {{7, 0x80}, {15, 0xc4}, {16, 'F'}}) +
                        full_record(0x200, 0x32, "TMP", {{20, 0x80}, {21, 1}}));
    EXPECT_EQ(sensors_with(R"("records": {"file": "sdr.bin"})"),
              (lines_t{"V12 #48 191", "PG #49 none", " #0 none", "TMP #50 none"}));
    EXPECT_EQ(
        sensors_with(
            R"("sensors": [{"name": "TMP", "value": -5}, {"name": "V12", "value": 6.3}, {"name": "PG", "response": "00c001"},
                                            {"name": "new"}], "records": {"file": "sdr.bin"})"),
        (lines_t{"V12 #48 100", "PG #49 as 00c001", " #0 none", "TMP #50 251", "new #5 0"}));
    const bmc_t bmc = bmc_with(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "new"}])");
    EXPECT_THAT(record_ids(bmc.sensors), ElementsAre(3, 0x10, 0x11, 0x200, 0x201));
}

TEST_F(sensors, beside_others_get_numbers_and_IDs_that_are_free)
{
    file("sdr.bin", full_record(3, 3, "abc") + full_record(2, 4, "def"));
    EXPECT_EQ(sensors_with(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "x"}, {"name": "y"}])"),
              (lines_t{"abc #3 none", "def #4 none", "x #5 0", "y #6 0"}));
    const auto ids_with = [&](const std::string& members) { return record_ids(bmc_with(members).sensors); };
    EXPECT_THAT(ids_with(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "x"}, {"name": "y"}])"),
                ElementsAre(3, 2, 4, 5));
    EXPECT_THAT(ids_with(R"("sensors": [{"name": "temp", "id": 1}])"), ElementsAre(2, 1, 3));
    EXPECT_THAT(ids_with(R"("sensors": [{"name": "12V", "id": 65534}])"), ElementsAre(0xfffe, 1, 3));
    EXPECT_THAT(ids_with(R"("sensors": [{"name": "temp", "id": 65534}])"), ElementsAre(1, 0xfffe, 2));
}

TEST_F(sensors, of_a_captured_repository_are_named_without_what_fills_their_names_up)
{
    std::vector<std::pair<std::size_t, unsigned>> body{{7, 9}, {47, 0xe8}, {48, 'A'}, {49, ' '}, {50, 'B'}};
    for (std::size_t at = 51; at < 88; ++at)
        body.emplace_back(at, at % 2 == 0 ? ' ' : '\0');
    file("sdr.bin",
         record(1, 0x01, 88, body) + full_record(2, 8, "   ") + record(3, 0x01, 88, {{7, 10}, {47, 0xe8}, {87, 'Z'}}));
    const bmc_t bmc = bmc_with(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "A B", "raw": 4}])");
    ASSERT_EQ(bmc.sensors.size(), 3U);
    EXPECT_EQ(bmc.sensors.at(0).name, "A B");
    EXPECT_EQ(bmc.sensors.at(0).raw, 4);
    EXPECT_EQ(bmc.sensors.at(1).name, "");
    EXPECT_EQ(bmc.sensors.at(2).name, std::string(39, '\0') + "Z"); // of 40 bytes, six bits of length
}

TEST_F(sensors, of_a_captured_repository_can_all_be_changed)
{
    std::string records;
    std::string changes;
    for (unsigned id = 1; id <= 1024; ++id) {
        const std::string name = {'A', static_cast<char>('0' + id / 32), static_cast<char>('0' + id % 32)};
        records += full_record(id, id % 256, name);
        changes += (id == 1 ? R"({"name": ")" : R"(, {"name": ")") + name + R"(", "raw": 7})";
    }
    file("sdr.bin", records);
    EXPECT_EQ(bmc_with(R"("records": {"file": "sdr.bin"}, "sensors": [)" + changes + "]").sensors.back().raw, 7);
    EXPECT_EQ(error_of(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "new"}])"),
              (folder / "my.json").string() +
                  ": /accelerators/0/bmc/sensors: expected at most 1024 sensors with those that there are");
}

TEST_F(sensors, of_a_captured_repository_are_expanded_with_their_records)
{
    file("sdr.bin",
         full_record(3, 0x30, "V12", {{30, 1}, {31, 191}}) + record(0x11, 0x11, 20, {{15, 0xc4}, {16, 'F'}}));
    const rack_t rack = parse_rack(
        R"({"accelerators": [{"model": "x", "bmc": {"records": {"file": "sdr.bin"}, "sensors": [{"name": "V12", "value": 7}]}}]})",
        folder / "my.json");
    const rack_t again = parse_rack(expand(rack), "/elsewhere/my.json");
    EXPECT_EQ(again.accelerators.at(0).bmc, rack.accelerators.at(0).bmc);
    EXPECT_EQ(raw_reading(again.accelerators.at(0).bmc->sensors.at(0)), 7);
}

TEST_F(sensors, of_a_captured_repository_keep_their_records)
{
    file("sdr.bin",
         full_record(3, 0x30, "V12") + record(0x10, 0x02, 34, {{7, 0x31}, {31, 0xc2}, {32, 'P'}, {33, 'G'}}));
    const std::string begin = (folder / "my.json").string() + ": /accelerators/0/bmc/sensors/0/";
    EXPECT_EQ(error_of(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "V12", "unit": "V"}])"),
              begin + "unit: expected no such member, as the sensor's record says it");
    EXPECT_EQ(
        error_of(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "V12", "limits": {"upper_critical": 1}}])"),
        begin + "limits: expected no such member, as the sensor's record says it");
    EXPECT_EQ(error_of(R"("records": {"file": "sdr.bin"}, "sensors": [{"name": "PG", "value": 1}])"),
              begin + "value: expected no such member beside a record that is no full sensor record");
}

TEST_F(sensors, of_a_file_that_is_no_repository_are_a_mistake)
{
    const std::string good = full_record(3, 0x30, "V12");
    std::string many;
    for (unsigned id = 1; id <= 1025; ++id)
        many += record(id, 0xc0, 8, {});
    const std::string file_expected =
        "expected a file with sensor data records, as ipmitool's \"sdr dump\" writes one, of 1 to 1048576 bytes";
    const std::pair<std::string, std::string> rows[] = {
        {"", file_expected},
        {std::string(1048577, '\0'), file_expected},
        {good + "\x04", "record 2, at byte 51: the file ends within it"},
        {good.substr(0, 50), "record 1, at byte 0: the file ends within it"},
        {good + "12V0             | 12.03 Volts | ok\n",
         "record 2, at byte 51: no sensor data record: its version is 86, not 81 (51h)"},
        {good + good, "record 2: expected a record ID that no other one has, which 0x3 is not"},
        {good + full_record(0, 1, "abc"),
         "record 2: expected a record ID from 0x1 to 0xfffe, or 0x0 of the first one, which 0x0 is not"},
        {full_record(0xffff, 1, "abc"),
         "record 1: expected a record ID from 0x1 to 0xfffe, or 0x0 of the first one, which 0xffff is not"},
        {many, "expected at most 1024 records, which 1025 are not"},
    };
    const std::string begin = (folder / "my.json").string() + ": /accelerators/0/bmc/records/file: ";
    for (const auto& [bytes, expected] : rows) {
        file("sdr.bin", bytes);
        EXPECT_EQ(error_of(R"("records": {"file": "sdr.bin"})"), begin + expected);
    }
    EXPECT_EQ(error_of(R"("records": {"file": "no.bin"})"),
              begin + (folder / "no.bin").string() + ": cannot be read: No such file or directory");
    file("sdr.bin", full_record(0, 1, "abc") + good);
    EXPECT_EQ(sensors_with(R"("records": {"file": "sdr.bin"})"), (lines_t{"abc #1 none", "V12 #48 none"}));
}

TEST_F(sensors, a_FRU_can_be_a_file_of_up_to_65535_bytes)
{
    std::string image;
    while (image.size() < 65535)
        image += static_cast<char>(image.size() * 7 % 251);
    file("fru.bin", image);
    EXPECT_EQ(fru_image(bmc_with(R"("fru": {"file": "fru.bin"})").fru), image);
    EXPECT_EQ(fru_image(bmc_with(R"("fru": {"raw": ")" + hex(image) + "\"}").fru), image);
    EXPECT_EQ(error_of(R"("fru": {"raw": "00", "file": "fru.bin"})"),
              (folder / "my.json").string() + ": /accelerators/0/bmc/fru/file: expected no such member beside \"raw\"");
    const std::string expected =
        (folder / "my.json").string() +
        ": /accelerators/0/bmc/fru/file: expected a file with the FRU's bytes, of 1 to 65535 bytes";
    file("fru.bin", image + "x");
    EXPECT_EQ(error_of(R"("fru": {"file": "fru.bin"})"), expected);
    file("fru.bin", "");
    EXPECT_EQ(error_of(R"("fru": {"file": "fru.bin"})"), expected);
}

TEST_F(sensors, that_change_in_a_file_make_the_board_another_one)
{
    const auto text_with = [&](const std::string& name) {
        file("sdr.bin", full_record(3, 0x30, name));
        return parse_rack(R"({"accelerators": [{"model": "x", "bmc": {"records": {"file": "sdr.bin"}}}]})",
                          folder / "my.json")
            .accelerators.at(0)
            .text;
    };
    const std::string text = text_with("V12");
    EXPECT_EQ(text_with("V12"), text);
    EXPECT_NE(text_with("V13"), text);
}

} // namespace ivra::tests
