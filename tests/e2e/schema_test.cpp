#include "support/rack.h"
#include "support/schema.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace ivra::tests {
namespace {

namespace fs = std::filesystem;

using changes_t = std::vector<std::pair<std::string, std::string>>;

const changes_t envelope_changes{
    {R"({"data":{)", R"({"format":1,"data":{)"},
    {R"("status":{"success":true},)", ""},
    {R"("success":true)", R"("success":"true")"},
    {R"("success":true)", R"("success":true,"message":"done")"},
    {R"("success":true)", R"("success":false)"},
    {R"("success":true)", R"("success":true,"code":0)"},
    {R"("log":[)", R"("log":{},"messages":[)"},
    {R"("type":"info")", R"("type":"warning")"},
    {R"("type":"info",)", ""},
    {R"("type":"info")", R"("type":"info","level":2)"},
    {R"("log":[)", R"("log":["said",)"},
};

const changes_t list_changes{
    {R"("accelerators":[)", R"("accelerators":[{},)"},
    {R"("accelerators":[)", R"("boards":[],"accelerators":[)"},
    {R"("accelerators":[)", R"("Boot image":{"Current boot":"none","Next reload":"none"},"accelerators":[)"},
    {R"("Name":"card-0",)", ""},
    {R"("Name":"card-0")", R"("name":"card-0")"},
    {R"("Name":"card-0")", R"("Name":null)"},
    {R"("ID":"0")", R"("ID":0)"},
    {R"("ID":"0")", R"("ID":"00")"},
    {R"("ID":"0")", R"("ID":"Error")"},
    {R"("Board model":)", R"("Temperature":"45.5°C","Board model":)"},
    {R"("Board base MAC":"02:00:00:00:00:00")", R"("Board base MAC":"02:00:00:00:00:00:00")"},
    {R"("Board base MAC":"02:00:00:00:00:00")", R"("Board base MAC":"02-00-00-00-00-00")"},
    {R"("Board base MAC":"02:00:00:00:00:00")", R"("Board base MAC":"Error")"},
    {R"("Board serial":"VRT0001")", R"("Board serial":["VRT0001"])"},
    {R"(,"Board serial":"VRT0001")", ""},
};

const changes_t info_changes{
    {R"("Accelerator":)", R"("accelerator":)"},
    {R"("Name":"card-0",)", ""},
    {R"("ID":"0")", R"("ID":"Error")"},
    {R"("ID":"0")", R"("ID":"0x0")"},
    {R"("FPGA serial":"0x400)", R"("FPGA serial":"400)"},
    {R"("FPGA serial":"0x400)", R"("FPGA serial":"0x40)"},
    {R"("FPGA serial":"0x400)", R"("FPGA serial":"0x40G)"},
    {R"("MAC addresses":)", R"("MAC address":)"},
    {R"("MAC addresses":)", R"("MAC address":"02:00:00:00:00:00","MAC addresses":)"},
    {" - 02:00:00:00:00:03", ""},
    {" - 02:00:00:00:00:03", " to 02:00:00:00:00:03"},
    {R"("45.5°C")", "45.5"},
    {R"("45.5°C")", R"("45.5 °C")"},
    {R"("45.5°C")", R"("45.5")"},
    {R"("45.5°C")", R"("-nan°C")"},
};

const changes_t boot_image_and_flash_changes{
    {R"("Boot image":{"Current boot":"primary","Next reload":"backup"},)", ""},
    {R"("Boot image":)", R"("Boot images":)"},
    {R"("Current boot":"primary")", R"("Current boot":"Primary")"},
    {R"("Current boot":"primary",)", ""},
    {R"("Next reload":"backup")", R"("Next reload":"")"},
    {R"("Next reload":"backup")", R"("Next reload":"backup","Previous":"none")"},
    {" (128 MB)", ""},
    {" (128 MB)", " (128.0 MB)"},
    {R"("Sector size":"65536 bytes")", R"("Sector size":"64 KiB")"},
    {R"("Sector size":"65536 bytes",)", ""},
    {R"({"PGM":"0x0000000 - 0x1001fff"})", R"({"name":"PGM","range":"0x0000000 - 0x1001fff"})"},
    {R"({"PGM":"0x0000000 - 0x1001fff"})", R"({"PGM":"0x0000000 - 0x1001FFF"})"},
    {R"({"PGM":"0x0000000 - 0x1001fff"})", R"({"PGM":"0 - 1001fff"})"},
    {R"({"PGM":"0x0000000 - 0x1001fff"})", R"({"PGM":"0x0000000"})"},
    {R"({"PGM":"0x0000000 - 0x1001fff"})", "{}"},
};

const changes_t transceivers_changes{
    {R"("Port":"Port 1")", R"("Port":"Port 0")"},
    {R"("Port":"Port 1")", R"("Port":1)"},
    {R"("Port":"Port 1",)", ""},
    {R"("Type":"no transceiver detected")", R"("Type":"none")"},
    {R"("Type":"no transceiver detected")", R"("Type":"no transceiver detected","Vendor name":"X")"},
    {R"("Type":"no transceiver detected")", R"("Type":"SFP/SFP+/SFP28 or later")"},
    {R"("Type":"SFP/SFP+/SFP28 or later",)", ""},
    {R"("Channel info":)", R"("Channels":)"},
    {R"("Channel info":)", R"("Sensors":"Not available","Channel info":)"},
    {R"( °C")", R"( K")"},
    {R"( V")", R"( mV")"},
    {R"("VCC":)", R"("Error":"late","VCC":)"},
    {" dBm)", " dB)"},
    {R"( mW ()", R"( µW ()"},
    {R"( mA")", R"(mA")"},
    {R"("Channel":"Channel 0",)", ""},
    {R"("Channel":"Channel 0")", R"("Channel":"Channel 8")"},
    {R"("Channels":[)", R"("Channels":[{"Channel":"Channel 7","RX power":"0.000 mW","TX bias":"0.000 mA"},)"},
    {R"("Sensors":"Not available")", R"("Sensors":"unavailable")"},
    {R"("Sensors":"Not available")", R"("Sensors":"Not available","Temperature":"30.00 °C")"},
    {R"("Type":"Unknown","Error":)", R"("Vendor PN":"X","Error":)"},
    {R"("Type":"Unknown","Error":)", R"("Type":"Unknown","Sensors":"Not available","Error":)"},
    {R"("Temperature":"unavailable")", R"("Temperature":"")"},
    {R"("TX power":"unavailable",)", ""},
};

const changes_t bittware_sensors_changes{
    {R"("Sensors":{"Sensor":[{"sensors":"12V0")", R"("Sensors":{"Sensors":[{"sensors":"12V0")"},
    {R"("Sensors":{"Sensor")", R"("Sensors":{"Info":"No sensors available","Sensor")"},
    {R"([{"sensors":"12V0","Value":"12.00 V"}])", "[]"},
    {R"({"Sensor":[{"sensors":"12V0","Value":"12.00 V"}]})", "{}"},
    {R"({"Sensor":[{"sensors":"12V0","Value":"12.00 V"}]})", R"({"Info":"none"})"},
    {R"("sensors":"12V0",)", ""},
    {R"("sensors":"12V0")", R"("name":"12V0")"},
    {R"("Value":"12.00 V")", R"("Value":12)"},
    {R"("Value":"12.00 V")", R"("Value":"12.0 V")"},
    {R"("Value":"12.00 V")", R"("Value":"12.00V")"},
    {R"("Value":"12.00 V")", R"("Value":"12.00 volts")"},
    {R"("Value":"12.00 V")", R"("Value":"unavailable")"},
    {R"("Value":"12.00 V")", R"("Current":"12.00 V")"},
    {R"("Value":"12.00 V")", R"("Value":"12.00 V","Average":"12 mV")"},
    {R"("Value":"12.00 V"})", R"("Value":"12.00 V"},{"sensors":"POWER_GOOD","Current":"Good"})"},
};

const changes_t alveo_sensors_changes{
    {R"("Current":"3300 mV")", R"("Current":"Good")"},
    {R"("Current":"3300 mV")", R"("Current":"3.300 V")"},
    {R"("Current":"3300 mV")", R"("Current":"-1 mV")"},
    {R"("Current":"3300 mV")", R"("Current":"03300 mV")"},
    {R"("Current":"3300 mV")", R"("Current":"3300 V")"},
    {R"("Current":"3300 mV",)", ""},
    {R"("Current":"3300 mV")", R"("Value":"3300 mV")"},
    {R"("Average":"3298 mV",)", ""},
    {R"("Maximum":"3306 mV")", R"("Maximum":"")"},
    {R"("Maximum":"3306 mV")", R"("Maximum":"3306 mV","Minimum":"3290 mV")"},
    {R"("Current":"Good")", R"("Current":"1")"},
    {R"("Current":"Good")", R"("Current":"Good","Average":"0 mV")"},
    {R"(,{"sensors":"POWER_GOOD","Current":"Good"})", ""},
    {R"("sensors":"POWER_GOOD")", R"("sensors":"POWER_BAD")"},
};

const changes_t failure_changes{
    {R"("data":{})", R"("data":{"accelerators":[]})"},
    {R"("data":{})", R"("data":{"Boot image":{"Current boot":"none","Next reload":"none"}})"},
    {R"("data":{})", R"("data":{"Sensors":{"Info":"No sensors available"}})"},
    {R"("data":{})", R"("data":[])"},
    {R"("data":{},)", ""},
    {R"("success":false)", R"("success":true)"},
    {R"("success":false)", R"("success":0)"},
    {R"("success":false,)", ""},
    {R"("success":false,"message":)", R"("success":false,"messages":)"},
    {R"("success":false,"message":)", R"("success":false,"errno":5,"message":)"},
    {R"("type":"error")", R"("type":"info")"},
    {R"([{"type":"error","message":"Getting current boot image is only supported on Bittware boards"}])", "[]"},
};

TEST(board_schema, refuses_what_breaks_the_contract)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", {{"i2c", R"({"cages": ["empty", "sfp-10g-sr", "qsfp28-sr4", "sfp-no-diagnostics",
                                     "prototype", "qsfpdd-dr4", "qsfpdd-copper"]})"},
                                  {"bmc", R"({"configured_from": "primary", "boot_image": "backup",
                           "fru": {"manufacturer": "VM", "product": "P", "serial": "VRT0001"},
                           "sensors": {"only": true, "list": [{"name": "12V0", "unit": "V", "value": 12}]}})"}});
    rack.plug("xilinx_u50");
    changes_t reports;
    for (const changes_t& changes :
         {envelope_changes, info_changes, boot_image_and_flash_changes, transceivers_changes, bittware_sensors_changes})
        reports.insert(reports.end(), changes.begin(), changes.end());
    EXPECT_EQ(taken_by_schema(IVRA_SCHEMAS "/board-1.json",
                              {{rack.run("show all --json").out, reports},
                               {rack.run("list --json").out, list_changes},
                               {rack.run("-a 1 show sensors --json").out, alveo_sensors_changes},
                               {rack.run("-a 1 show boot-image --json").out, failure_changes}}),
              says(""));
}

/// What is said of documents after tests.
run_t judge(const fs::path& documents)
{
    return run_program(IVRA_JSON_DOCUMENTS, {IVRA_SCHEMAS, documents.string()}, {"LC_ALL=C.UTF-8"});
}

TEST(json_documents, that_are_none_are_told)
{
    const rack_t rack;
    const run_t run = judge(rack.folder());
    EXPECT_EQ(run.out, "ivra-bsp-board: 0 documents\nivra-bsp-readings: 0 documents\n");
    EXPECT_EQ(run.err, "No document of ivra-bsp-board is in " + rack.folder().string() +
                           "\nNo document of ivra-bsp-readings is in " + rack.folder().string() + "\n");
    EXPECT_EQ(run.status, 1);
}

TEST(json_documents, that_are_bad_are_told_with_their_test)
{
    const rack_t rack;
    for (const auto& [program, text] : {std::pair{"ivra-bsp-board", R"({"data":{"Accelerator":1},"status":{},"log":[]}
{"data":{},"data":{}}
)"},
                                        std::pair{"ivra-bsp-readings", R"({"announced":[{"uid":1}]})"}}) {
        fs::create_directory(rack.folder() / program);
        std::ofstream{rack.folder() / program / "suite.name"} << text;
    }
    const run_t run = judge(rack.folder());
    EXPECT_EQ(run.out, "ivra-bsp-board: 1 documents\nivra-bsp-readings: 1 documents\n");
    for (const char* line : {"ivra-bsp-board: suite.name: data/Accelerator: 1 is not of type 'object'\n",
                             "ivra-bsp-board: suite.name: status: 'success' is a required property\n",
                             "/suite.name: A member is there twice: ['data', 'data']: ",
                             "board-1/$defs/accelerator/Name: no document has it\n",
                             "ivra-bsp-readings: suite.name: announced/0/uid: 1 is not of type 'string'\n",
                             "readings-1/$defs/announcement/host: no document has it\n"})
        EXPECT_NE(run.err.find(line), std::string::npos) << line << run.err;
    EXPECT_EQ(run.status, 1);
}

TEST(board_schema, says_what_everything_is)
{
    EXPECT_EQ(wording_of_schema(IVRA_SCHEMAS "/board-1.json"), says(""));
}

} // namespace
} // namespace ivra::tests
