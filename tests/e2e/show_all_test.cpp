#include "screens.h"
#include "support/rack.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace ivra::tests {
namespace {

// The texts of the five reports of a board, in their order.

const std::string boot_image = "Boot image\n"
                               "\tCurrent boot: primary\n"
                               "\tNext reload : backup\n";

const std::string flash_screen = "Flash memory\n"
                                 "\tMemory size: 134217728 bytes (128 MB)\n"
                                 "\tSector size: 65536 bytes\n"
                                 "\tSections\n"
                                 "\t\tPGM   : 0x0000000 - 0x1001fff\n"
                                 "\t\tUSR   : 0x1002000 - 0x6001fff\n"
                                 "\t\tPARAMS: 0x7fc0000 - 0x7fcffff\n"
                                 "\t\tPARAMS: 0x7fd0000 - 0x7fdffff\n"
                                 "\t\tOTP   : 0x7ff0000 - 0x7ff0fff\n";

const std::string transceivers = "Transceivers\n"
                                 "\tPort 1\n"
                                 "\t\tType: no transceiver detected\n"
                                 "\tPort 2\n"
                                 "\t\tType       : SFP/SFP+/SFP28 or later\n"
                                 "\t\tVendor name: CABLEWRIGHT\n"
                                 "\t\tVendor PN  : CW-SFP-DA3\n"
                                 "\t\tSensors    : Not available\n"
                                 "\tPort 3\n"
                                 "\t\tType : Unknown\n"
                                 "\t\tError: Unsupported transceiver found with identifier 0x7a\n"
                                 "\tPort 4\n"
                                 "\t\tType: no transceiver detected\n";

const std::string reading_sensors = "Retrieving sensor data... ";

const std::string sensors = "Sensors\n"
                            "\t┌────────┬─────────┐\n"
                            "\t│ Sensor │ Value   │\n"
                            "\t├────────┼─────────┤\n"
                            "\t│ 12V0   │ 12.00 V │\n"
                            "\t└────────┴─────────┘\n";

const std::string info_members = R"("Board serial":"VRT0001","FPGA device":"xcvu7p-flva2104-2-e",)"
                                 R"("FPGA serial":"0x4002000001285c0f1a104280",)"
                                 R"("MAC addresses":"02:00:00:00:00:00 - 02:00:00:00:00:03","Temperature":"45.5°C"})";

/// The five reports of a Bittware board as members of a document, the commas between them included.
std::vector<std::string> documents(const std::string& model)
{
    return {
        R"("Accelerator":{"Name":"card-0","ID":"0","Board model":")" + model + "\"," + info_members,
        R"(,"Boot image":{"Current boot":"primary","Next reload":"backup"})",
        R"x(,"Flash memory":{"Memory size":"134217728 bytes (128 MB)","Sector size":"65536 bytes",)x"
        R"("Sections":[{"PGM":"0x0000000 - 0x1001fff"},{"USR":"0x1002000 - 0x6001fff"},)"
        R"({"PARAMS":"0x7fc0000 - 0x7fcffff"},{"PARAMS":"0x7fd0000 - 0x7fdffff"},{"OTP":"0x7ff0000 - 0x7ff0fff"}]})",
        R"(,"Transceivers":[{"Port":"Port 1","Type":"no transceiver detected"},)"
        R"({"Port":"Port 2","Type":"SFP/SFP+/SFP28 or later","Vendor name":"CABLEWRIGHT","Vendor PN":"CW-SFP-DA3",)"
        R"("Sensors":"Not available"},{"Port":"Port 3","Type":"Unknown",)"
        R"("Error":"Unsupported transceiver found with identifier 0x7a"},)"
        R"({"Port":"Port 4","Type":"no transceiver detected"}])",
        R"(,"Sensors":{"Sensor":[{"sensors":"12V0","Value":"12.00 V"}]})",
    };
}

/// A Bittware board whose reports are the texts above; its BMC says also this.
members_t bittware_board(const std::string& bmc = "")
{
    return {{"i2c", R"({"cages": ["empty", "sfp-no-diagnostics", "prototype", "empty"]})"},
            {"bmc", R"({"configured_from": "primary", "boot_image": "backup",
                        "fru": {"manufacturer": "VM", "product": "P", "serial": "VRT0001"},
                        "sensors": {"only": true, "list": [{"name": "12V0", "unit": "V", "value": 12}]})" +
                        bmc + "}"}};
}

TEST(show_all, of_a_bittware_board_is_five_reports_with_line_breaks_between_them)
{
    for (const std::string& model : bittware_models) {
        rack_t rack;
        rack.plug(model, bittware_board()).environment("IVRA_LOG_LEVEL=0");
        EXPECT_EQ(rack.run("show all"), says(info(model, "VRT0001") + "\n" + boot_image + "\n" + flash_screen + "\n" +
                                             transceivers + "\n" + reading_sensors + "done\n" + sensors));
    }
}

TEST(show_all, of_a_bittware_board_in_json_is_five_members_back_to_back)
{
    for (const std::string& model : bittware_models) {
        rack_t rack;
        rack.plug(model, bittware_board()).environment("IVRA_LOG_LEVEL=0");
        const run_t run = rack.run("show all --json");
        std::string all;
        for (const std::string& report : documents(model))
            all += report;
        EXPECT_EQ(run.out, R"({"data":{)" + all + R"(},"status":{"success":true},)" +
                               R"("log":[{"type":"info","message":"Retrieving sensor data... done"}]})" + "\n");
        EXPECT_EQ(run.err, reading_sensors + "done\n") << "and no line breaks";
        EXPECT_EQ(run.status, 0);
    }
}

TEST(show_all, on_a_terminal_has_plain_line_breaks)
{
    rack_t rack;
    rack.plug("bittware_xupvv8", bittware_board()).environment("IVRA_LOG_LEVEL=0");
    const std::string out = rack.run("show all", {stream_t::terminal, stream_t::terminal}).out;
    for (const std::string heading : {"Boot image", "Flash memory", "Transceivers"})
        EXPECT_NE(out.find("\033[0m\n\n\033[1m" + heading + "\033[0m\n"), std::string::npos) << heading;
    EXPECT_NE(out.find("\033[0m\n\n\033[0mRetrieving sensor data... "), std::string::npos);
}

TEST(show_all, of_every_other_board_ends_with_its_boot_image_behind_a_line_break)
{
    struct row_t
    {
        const char* model;
        members_t members;
        const char* serial;
    };
    const members_t card{{"xmc", R"({"card": {"serial": "VRT0001"}})"}};
    const row_t rows[] = {{"xilinx_u200", card, "VRT0001"},   {"xilinx_u250", card, "VRT0001"},
                          {"xilinx_u50", card, "VRT0001"},    {"xilinx_u55c", card, "VRT0001"},
                          {"m48e_emu_xcvu9p", {}, "VRT0001"}, {"m48l_xcvu7p", {}, "VRT0001"},
                          {"m48lb_xcvu9p", {}, "VRT0001"}};
    const std::string text = "Getting current boot image is only supported on Bittware boards";
    for (const row_t& row : rows) {
        SCOPED_TRACE(row.model);
        rack_t rack;
        rack.plug(row.model, row.members);
        if (std::string{row.model}.starts_with("m48"))
            rack.host({.serial = "VRT0001\n", .address = {}});
        const run_t run = rack.run("show all");
        EXPECT_EQ(run.out, info(row.model, row.serial) + "\n");
        EXPECT_EQ(run.err, text + "\n");
        EXPECT_EQ(run.status, 1);
        const run_t json = rack.run("show all --json");
        EXPECT_EQ(json.out, R"({"data":{)" + documents(row.model)[0] + R"(},"status":{"success":false,"message":")" +
                                text + R"("},"log":[{"type":"error","message":")" + text + R"("}]})" + "\n");
        EXPECT_EQ(json.err, text + "\n");
        EXPECT_EQ(json.status, 1);
    }
}

TEST(show_all, ends_with_the_first_report_that_fails_and_what_was_printed_stays)
{
    struct row_t
    {
        std::size_t reports; ///< before the one that fails
        std::string bmc;
        std::string faults;
        const char* error;
    };
    const row_t rows[] = {
        {0, "", R"({"call": "ivra_hw_top_get_device_id", "errno": "EIO"})",
         "Could not get device ID: Input/output error"},
        {1, R"(, "answers": [{"to": "2e08187b0001", "data": "187b0003"}])", "",
         "Unknown FPGA configuration status value received from BMC"},
        {2, "", R"({"call": "ivra_flash_get_memory_size", "errno": "EIO"})",
         "Unable to retrieve flash memory size: Input/output error"},
        {3, "", R"({"call": "ivra_i2c_get_bus", "errno": "ENODEV"})", "Cannot get I2C bus: No such device"},
        {4, R"(, "answers": [{"to": "042d", "code": "0xc0"}])", "", "IPMI transaction error. Response code: 192"},
    };
    for (const row_t& row : rows)
        for (const std::string& model : bittware_models) {
            SCOPED_TRACE(row.error);
            const std::vector<std::string> texts{info(model, "VRT0001"), boot_image, flash_screen, transceivers,
                                                 reading_sensors};
            std::string text;
            std::string document;
            for (std::size_t i = 0; i < row.reports; ++i) {
                text += texts[i] + "\n"; // of every report, also of the one that fails
                document += documents(model)[i];
            }
            const bool began = row.reports == 4;
            rack_t rack;
            rack.plug(model, bittware_board(row.bmc)).environment("IVRA_LOG_LEVEL=0").faults(row.faults);
            const run_t run = rack.run("show all");
            EXPECT_EQ(run.out, text + (began ? reading_sensors : ""));
            EXPECT_EQ(run.err, std::string{row.error} + "\n");
            EXPECT_EQ(run.status, 1);
            const run_t json = rack.run("show all --json");
            EXPECT_EQ(json.out, R"({"data":{)" + document + R"(},"status":{"success":false,"message":")" + row.error +
                                    R"("},"log":[{"type":"error","message":")" + row.error + R"("})" +
                                    (began ? R"(,{"type":"info","message":"Retrieving sensor data... "})" : "") +
                                    "]}\n");
            EXPECT_EQ(json.status, 1);
        }
}

TEST(show_all, goes_on_behind_a_bad_module_and_a_board_without_a_serial)
{
    rack_t rack;
    rack.plug("bittware_xupp3r", bittware_board(R"(, "answers": [{"to": "0a11", "code": "0xc0"}])"))
        .environment("IVRA_LOG_LEVEL=0");
    const run_t run = rack.run("show all");
    EXPECT_TRUE(run.out.starts_with(info("bittware_xupp3r", "Error") + "\n" + boot_image)) << run.out;
    EXPECT_TRUE(run.out.ends_with(transceivers + "\n" + reading_sensors + "done\n" + sensors)) << run.out;
    EXPECT_EQ(run.status, 0);
}

} // namespace
} // namespace ivra::tests
