#include "readings/limits_file.h"
#include "support/outcome.h"
#include "support/process.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace ivra::bsp::readings {
namespace {

using telemetry::limit_t;

/// A file with one entry, whose members these are.
std::string entry(const std::string& members)
{
    return R"({"sensors": [{)" + members + "}]}";
}

/// The same with these limits.
std::string limits(const std::string& members)
{
    return entry(R"("sensor": "12V", "unit": "volts", "limits": {)" + members + "}");
}

std::string mistake_in(const std::string& text)
{
    return tests::said_by([&text] { parse_limits(text, "my.json"); });
}

struct mistake_row_t
{
    std::string text;
    std::string mistake;
};

const std::string of_document = R"(, expected an object with a list "sensors")";
const std::string of_entry = R"(, expected an object with "sensor", "unit", "limits", and perhaps "model" and "board")";
const std::string of_unit = ", expected volts, amperes, celsius, watts, rpm or percent";
const std::string of_limits = ", expected an object with lower_non_recoverable, lower_critical, lower_non_critical, "
                              "upper_non_critical, upper_critical or upper_non_recoverable";
const std::string of_order = ", expected limits that rise from lower_non_recoverable to upper_non_recoverable";

/// What is not even JSON, and what a schema cannot say.
const std::vector<mistake_row_t> hidden_mistakes = {
    {"", "my.json: found nothing" + of_document},
    {" \r\n\t", "my.json: found nothing" + of_document},
    {"{\n  \"sensors\": [\n    }\n", "my.json: line 3, column 5: not JSON: Invalid value"},
    {"{\"sensors\": []} {}", "my.json: line 1, column 17: not JSON: The document root must not be followed by other "
                             "values"},
    {"{\"sensors\": [\"\u00e9\", 1e999]}",
     "my.json: line 1, column 19: not JSON: Number too big to be stored in double"},
    {"{\"sensors\": [NaN]}", "my.json: line 1, column 14: not JSON: Invalid value"},
    {"{\"sensors\": [\"\xff\"]}", "my.json: line 1, column 15: not JSON: Invalid encoding in string"},
    {std::string{"{\"sensors\": []}\0{", 17}, "my.json: line 1, column 16: found a NUL byte, expected JSON"},
    {std::string(500'000, '['), "my.json: line 1, column 500001: not JSON: Invalid value"},
    {R"({"sensors": [], "sensors": []})", R"(my.json: /: found member "sensors" twice, expected it once)"},
    {entry(R"("sensor": "12V", "unit": "volts", "sensor": "3V3")"),
     R"(my.json: /sensors/0: found member "sensor" twice, expected it once)"},
    {limits(R"("upper_critical": 12, "upper_critical": 13)"),
     R"(my.json: /sensors/0/limits: found member "upper_critical" twice, expected it once)"},
    {limits(R"("lower_critical": 13, "upper_critical": 12.5)"),
     "my.json: /sensors/0/limits: found lower_critical (13) above upper_critical (12.5)" + of_order},
    {limits(R"("upper_critical": 12, "upper_non_critical": 12.5)"),
     "my.json: /sensors/0/limits: found upper_non_critical (12.5) above upper_critical (12)" + of_order},
    {limits(R"("upper_non_recoverable": -1, "lower_non_recoverable": -0.5)"),
     "my.json: /sensors/0/limits: found lower_non_recoverable (-0.5) above upper_non_recoverable (-1)" + of_order},
};

/// What a schema says as well.
const std::vector<mistake_row_t> mistakes = {
    {"null", "my.json: /: found null" + of_document},
    {"[]", "my.json: /: found a list" + of_document},
    {"{}", R"(my.json: /: found no "sensors", expected a list)"},
    {R"({"sensors": {}})", "my.json: /sensors: found an object, expected a list"},
    {R"({"sensors": [], "units": 1})", R"(my.json: /: found member "units")" + of_document},
    {R"({"$schema": 1, "sensors": []})", "my.json: /$schema: found 1, expected the name of a schema"},
    {R"({"sensors": [true]})", "my.json: /sensors/0: found true" + of_entry},
    {R"({"sensors": [{"sensor": "12V", "unit": "volts", "limits": {"upper_critical": 1}}, false]})",
     "my.json: /sensors/1: found false" + of_entry},
    {entry(R"("sensors": "12V")"), R"(my.json: /sensors/0: found member "sensors")" + of_entry},
    {entry(R"("sensor": 12)"), "my.json: /sensors/0/sensor: found 12, expected the name of a sensor"},
    {entry(R"("sensor": "")"), R"(my.json: /sensors/0/sensor: found "", expected the name of a sensor)"},
    {entry(R"("model": null)"), "my.json: /sensors/0/model: found null, expected the name of a model"},
    {entry(R"("board": 0.5)"), "my.json: /sensors/0/board: found 0.5, expected the name or uid of a board"},
    {entry(R"("unit": "mV")"), R"(my.json: /sensors/0/unit: found "mV")" + of_unit},
    {entry(R"("unit": ["volts"])"), "my.json: /sensors/0/unit: found a list" + of_unit},
    {entry(R"("unit": "a unit whose name is far too long to be shown")"),
     R"(my.json: /sensors/0/unit: found "a unit whose name is far too long to be ...")" + of_unit},
    {entry(R"("limits": [])"), "my.json: /sensors/0/limits: found a list" + of_limits},
    {limits(""), "my.json: /sensors/0/limits: found no limit, expected at least one"},
    {limits(R"("upper": 12)"), R"(my.json: /sensors/0/limits: found member "upper")" + of_limits},
    {limits(R"("upper_critical": "12")"),
     R"(my.json: /sensors/0/limits/upper_critical: found "12", expected a number)"},
    {limits(R"("upper_critical": null)"), "my.json: /sensors/0/limits/upper_critical: found null, expected a number"},
    {entry(R"("unit": "volts", "limits": {"upper_critical": 1})"),
     R"(my.json: /sensors/0: found no "sensor", expected the name of a sensor)"},
    {entry(R"("sensor": "12V", "limits": {"upper_critical": 1})"), R"(my.json: /sensors/0: found no "unit")" + of_unit},
    {entry(R"("sensor": "12V", "unit": "volts")"),
     R"(my.json: /sensors/0: found no "limits", expected at least one limit)"},
};

TEST(limits_file, with_a_mistake_is_refused_with_its_place_and_what_was_expected)
{
    for (const auto& rows : {hidden_mistakes, mistakes})
        for (const mistake_row_t& row : rows)
            EXPECT_EQ(mistake_in(row.text), row.mistake) << row.text.substr(0, 200);
}

const std::string full_file = R"({
  "$schema": "limits-1.json",
  "sensors": [
    {
      "model": "xilinx_u200", "board": "card-0", "sensor": "12V", "unit": "volts",
      "limits": {
        "upper_non_recoverable": 14, "upper_critical": 13.2, "upper_non_critical": 12.6,
        "lower_non_critical": 12.6, "lower_critical": 0e19, "lower_non_recoverable": -1e-3
      }
    },
    { "sensor": "Tempér\u0061ture", "unit": "celsius", "limits": { "upper_critical": 85 } }
  ]
})";

TEST(limits_file, names_sensors_and_any_of_six_limits)
{
    for (const char* mark : {"", "\xEF\xBB\xBF"}) {
        const std::vector<limits_entry_t> entries = parse_limits(mark + full_file, "my.json");
        ASSERT_EQ(entries.size(), 2U);
        EXPECT_EQ(entries[0].model, "xilinx_u200");
        EXPECT_EQ(entries[0].board, "card-0");
        EXPECT_EQ(entries[0].sensor, "12V");
        EXPECT_EQ(entries[0].unit, "volts");
        EXPECT_EQ(entries[0].limits.authority, telemetry::authority_t::file);
        EXPECT_EQ(entries[0].limits.values, (decltype(telemetry::limits_t::values){-0.001, 0, 12.6, 12.6, 13.2, 14}));
        EXPECT_EQ(entries[1].model, std::nullopt);
        EXPECT_EQ(entries[1].board, std::nullopt);
        EXPECT_EQ(entries[1].sensor, "Température");
        EXPECT_EQ(entries[1].limits[limit_t::upper_critical], 85);
        EXPECT_EQ(entries[1].limits[limit_t::lower_critical], std::nullopt);
    }
    EXPECT_EQ(parse_limits(R"({"sensors": []})", "my.json").size(), 0U);
}

TEST(limits_file, takes_a_zero_with_an_exponent)
{
    EXPECT_EQ(parse_limits(limits("\"upper_critical\": 0e75"), "my.json")[0].limits[limit_t::upper_critical], 0);
}

TEST(limits_file, is_what_its_schema_says)
{
    const std::string script = "import json, jsonschema, sys\n"
                               "schema = json.load(open(sys.argv[1]))\n"
                               "jsonschema.Draft202012Validator.check_schema(schema)\n"
                               "for text in sys.argv[2:]:\n"
                               "    fits = jsonschema.Draft202012Validator(schema).is_valid(json.loads(text))\n"
                               "    print('fits' if fits else 'does not fit')\n";
    std::vector<std::string> words{"-c", script, IVRA_LIMITS_SCHEMA, full_file, R"({"sensors": []})"};
    std::string verdicts = "fits\nfits\n";
    for (const mistake_row_t& row : mistakes) {
        words.push_back(row.text);
        verdicts += "does not fit\n";
    }
    EXPECT_EQ(tests::run_program("/usr/bin/python3", words), tests::says(verdicts));
}

// Boards that were read.

telemetry::reading_t volts(const std::string& name)
{
    telemetry::reading_t reading;
    reading.name = name;
    reading.quantity = board::quantity_t::voltage;
    reading.state = telemetry::state_t::ok;
    reading.value = 12;
    return reading;
}

telemetry::board_readings_t u200()
{
    telemetry::board_readings_t readings;
    readings.model.value = "xilinx_u200";
    readings.controller.sensors = {volts("12V"), volts("3V3")};
    return readings;
}

const telemetry::accelerator_identity_t card_0{.index = 0, .name = "card-0", .uid = "0000:17:00.0"};
const telemetry::parts_t sensors{telemetry::part_t::sensors};

std::string entry_for(const std::string& members, int upper)
{
    return "{" + members + R"("unit": "volts", "limits": {"upper_critical": )" + std::to_string(upper) + "}}";
}

/// Applies a file with these entries; what it says, a line each.
std::string said_of(const std::string& list, telemetry::board_readings_t& readings,
                    const telemetry::parts_t& parts = sensors)
{
    std::string told;
    for (const telemetry::finding_t& finding :
         apply_limits(parse_limits(R"({"sensors": [)" + list + "]}", "my.json"), card_0, parts, readings))
        told += (finding.health ? std::string{telemetry::get_name(*finding.health)} + ": " : "") + finding.text + '\n';
    return told;
}

std::optional<double> upper_critical(const telemetry::reading_t& reading)
{
    return reading.limits[limit_t::upper_critical];
}

TEST(limits_file, is_for_the_models_and_boards_that_it_names)
{
    const struct
    {
        const char* members;
        bool fits;
    } rows[] = {
        {R"("sensor": "12V", )", true},
        {R"("sensor": "12V", "model": "xilinx_u200", )", true},
        {R"("sensor": "12V", "model": "xilinx_u250", )", false},
        {R"("sensor": "12V", "board": "card-0", )", true},
        {R"("sensor": "12V", "board": "0000:17:00.0", )", true},
        {R"("sensor": "12V", "board": "card-1", )", false},
        {R"("sensor": "12V", "board": "card-0", "model": "xilinx_u250", )", false},
        {R"("sensor": "12v", )", false},
    };
    for (const auto& row : rows) {
        telemetry::board_readings_t readings = u200();
        EXPECT_EQ(said_of(entry_for(row.members, 13), readings), "") << row.members;
        EXPECT_EQ(upper_critical(readings.controller.sensors[0]), row.fits ? std::optional{13.0} : std::nullopt)
            << row.members;
        EXPECT_EQ(upper_critical(readings.controller.sensors[1]), std::nullopt);
    }
}

TEST(limits_file, sets_limits_by_the_first_entry_for_a_sensor)
{
    telemetry::board_readings_t readings = u200();
    EXPECT_EQ(said_of(entry_for(R"("sensor": "12V", "model": "xilinx_u250", )", 13) + "," +
                          entry_for(R"("sensor": "12V", )", 14) + "," + entry_for(R"("sensor": "12V", )", 15),
                      readings),
              "");
    EXPECT_EQ(upper_critical(readings.controller.sensors[0]), 14);
}

TEST(limits_file, leaves_limits_of_the_device_alone)
{
    telemetry::board_readings_t readings = u200();
    readings.controller.sensors[0].limits[limit_t::lower_critical] = 11;
    EXPECT_EQ(said_of(entry_for(R"("sensor": "12V", )", 13), readings),
              "12V: the device's own limits count, those of the limits file do not\n");
    EXPECT_EQ(upper_critical(readings.controller.sensors[0]), std::nullopt);
    EXPECT_EQ(readings.controller.sensors[0].limits[limit_t::lower_critical], 11);
}

TEST(limits_file, in_another_unit_than_the_sensor_leaves_it_unknown)
{
    telemetry::board_readings_t readings = u200();
    readings.controller.sensors[0].quantity = board::quantity_t::current;
    readings.controller.sensors[1].quantity = board::quantity_t::other;
    EXPECT_EQ(said_of(entry_for(R"("sensor": "12V", )", 13) + "," + entry_for(R"("sensor": "3V3", )", 4), readings),
              "unknown: 12V is not judged: the limits file gives limits in volts, it is read in amperes\n"
              "unknown: 3V3 is not judged: the limits file gives limits in volts, it is read in no unit\n");
    EXPECT_EQ(upper_critical(readings.controller.sensors[0]), std::nullopt);
    EXPECT_EQ(upper_critical(readings.controller.sensors[1]), std::nullopt);
}

TEST(limits_file, for_a_sensor_that_its_board_does_not_have_is_worth_a_remark)
{
    const std::string of_model = entry_for(R"("sensor": "5V", "model": "xilinx_u200", )", 6);
    const std::string remark = "5V: the limits file limits it, but the board has no such sensor\n";
    telemetry::board_readings_t readings = u200();
    EXPECT_EQ(said_of(of_model, readings), remark);
    EXPECT_EQ(said_of(entry_for(R"("sensor": "5V", "board": "card-0", )", 6), readings), remark);
    EXPECT_EQ(said_of(entry_for(R"("sensor": "5V", )", 6), readings), ""); // of any board that has it
    // Nobody looked.
    EXPECT_EQ(said_of(of_model, readings, {telemetry::part_t::modules}), "");
    readings.controller.error = "no answer";
    EXPECT_EQ(said_of(of_model, readings), "");
}

} // namespace
} // namespace ivra::bsp::readings
