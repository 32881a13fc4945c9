#include "exporter/metrics.h"

#include "exporter/pages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <prometheus/check_names.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace ivra::bsp::exporter {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

board_t make_board(const std::string& uid, const std::string& document)
{
    board_t board;
    board.key = uid;
    board.uid = uid;
    board.document = document;
    return board;
}

/// The samples of boards with these documents.
std::string samples_of(const std::vector<board_t>& boards)
{
    snapshot_t snapshot;
    snapshot.boards = boards;
    std::string text;
    std::istringstream stream{make_metrics(snapshot)};
    for (std::string line; std::getline(stream, line);)
        if (!line.starts_with('#') &&
            (!line.starts_with("ivra_exporter_") || line.starts_with("ivra_exporter_dropped_series")))
            text += line + '\n';
    return text;
}

std::string samples_of(const std::string& members)
{
    const std::string all = samples_of({make_board("u", R"({"uid":"u","state":"ok","health":"ok",)" + members + "}")});
    std::string text;
    std::istringstream stream{all};
    for (std::string line; std::getline(stream, line);)
        if (!line.starts_with("ivra_board_") && !line.starts_with("ivra_exporter_"))
            text += line + '\n';
    return text;
}

TEST(exporter_metrics, are_described_by_a_page)
{
    std::ostringstream page;
    page << std::ifstream{IVRA_METRICS_PAGE}.rdbuf();
    EXPECT_EQ(page.str(), make_metrics_page()) << "made by: ivra-bsp exporter --metrics >docs/metrics.md";
    std::istringstream stream{page.str()};
    std::set<std::string> names;
    for (std::string line; std::getline(stream, line);) {
        if (!line.starts_with("| `"))
            continue;
        const std::string name = line.substr(3, line.find('`', 3) - 3);
        EXPECT_TRUE(prometheus::CheckMetricName(name)) << name;
        EXPECT_TRUE(names.insert(name).second) << name;
        EXPECT_THAT(line, Not(HasSubstr("\\")));
    }
    EXPECT_EQ(names.size(), 48U);
}

TEST(exporter_metrics, of_sensors_are_by_unit_with_peak_limits_and_verdict)
{
    EXPECT_EQ(samples_of(R"("power_good":false,"sensors":[
        {"name":"12V","record":1,"unit":"volts","state":"ok","value":12.25,"peak":13,"health":"warning",
         "limits":{"lower_non_recoverable":1,"lower_critical":2,"lower_non_critical":3,"upper_non_critical":4,
                   "upper_critical":5,"upper_non_recoverable":6,"set_by":"bmc"}},
        {"name":"I","unit":"amperes","state":"ok","value":0},
        {"name":"T","unit":"celsius","state":"ok","value":-5},
        {"name":"P","unit":"watts","state":"ok","value":1e-6},
        {"name":"F","unit":"rpm","state":"ok","value":1120},
        {"name":"none","unit":"volts","state":"unavailable","peak":3},
        {"name":"odd","unit":"volts","state":"failed","error":"e","health":"unknown"},
        {"name":"X","unit":"percent","state":"ok","value":50}])"),
              R"(ivra_power_good{uid="u"} 0
ivra_sensor_volts{uid="u",sensor="12V",record="1"} 12.25
ivra_sensor_amperes{uid="u",sensor="I",record=""} 0
ivra_sensor_celsius{uid="u",sensor="T",record=""} -5
ivra_sensor_watts{uid="u",sensor="P",record=""} 1e-06
ivra_sensor_rpm{uid="u",sensor="F",record=""} 1120
ivra_sensor_volts_peak{uid="u",sensor="12V",record="1"} 13
ivra_sensor_limit_volts{uid="u",sensor="12V",record="1",severity="non_recoverable",side="lower"} 1
ivra_sensor_limit_volts{uid="u",sensor="12V",record="1",severity="critical",side="lower"} 2
ivra_sensor_limit_volts{uid="u",sensor="12V",record="1",severity="warning",side="lower"} 3
ivra_sensor_limit_volts{uid="u",sensor="12V",record="1",severity="warning",side="upper"} 4
ivra_sensor_limit_volts{uid="u",sensor="12V",record="1",severity="critical",side="upper"} 5
ivra_sensor_limit_volts{uid="u",sensor="12V",record="1",severity="non_recoverable",side="upper"} 6
ivra_sensor_health{uid="u",sensor="12V",record="1",state="ok"} 0
ivra_sensor_health{uid="u",sensor="12V",record="1",state="unknown"} 0
ivra_sensor_health{uid="u",sensor="12V",record="1",state="warning"} 1
ivra_sensor_health{uid="u",sensor="12V",record="1",state="critical"} 0
ivra_sensor_health{uid="u",sensor="odd",record="",state="ok"} 0
ivra_sensor_health{uid="u",sensor="odd",record="",state="unknown"} 1
ivra_sensor_health{uid="u",sensor="odd",record="",state="warning"} 0
ivra_sensor_health{uid="u",sensor="odd",record="",state="critical"} 0
)");
}

TEST(exporter_metrics, of_modules_are_by_cage_and_lane)
{
    EXPECT_EQ(samples_of(R"("boot_image":{"next":"backup"},"modules":[
        {"cage":1,"state":"empty"},
        {"cage":2,"state":"unsupported","identifier":3,"type":"SFP"},
        {"cage":3,"state":"failed","error":"e","monitors":[],"lanes":[]},
        {"cage":4,"state":"ok","identifier":17,"type":"QSFP28","vendor":"V","part":"P","revision":"R","serial":"S",
         "date":"2025-01-09","health":"ok",
         "monitors":[{"quantity":"temperature","state":"ok","value":33,"limits":{"upper_critical":75,"set_by":"module"}},
                     {"quantity":"voltage","state":"ok","value":3.25}],
         "lanes":[{"lane":1,"rx_power":{"state":"ok","value":0.5,"limits":{"lower_critical":0.25,"set_by":"module"}},
                   "tx_power":{"state":"unsupported"},"tx_bias":{"state":"ok","value":0}},
                  {"lane":2,"rx_power":{"state":"ok","value":0,"limits":{"lower_critical":0.25,"upper_critical":2,
                   "set_by":"module"}},"tx_power":{"state":"failed","error":"e"},"tx_bias":{"state":"unavailable"}}]}])"),
              R"(ivra_boot_image{uid="u",when="next",image="primary"} 0
ivra_boot_image{uid="u",when="next",image="backup"} 1
ivra_boot_image{uid="u",when="next",image="none"} 0
ivra_module_present{uid="u",cage="1"} 0
ivra_module_present{uid="u",cage="2"} 1
ivra_module_present{uid="u",cage="4"} 1
ivra_module_info{uid="u",cage="2",type="SFP",vendor="",part="",revision="",serial="",date=""} 1
ivra_module_info{uid="u",cage="4",type="QSFP28",vendor="V",part="P",revision="R",serial="S",date="2025-01-09"} 1
ivra_module_health{uid="u",cage="4",state="ok"} 1
ivra_module_health{uid="u",cage="4",state="unknown"} 0
ivra_module_health{uid="u",cage="4",state="warning"} 0
ivra_module_health{uid="u",cage="4",state="critical"} 0
ivra_module_celsius{uid="u",cage="4"} 33
ivra_module_volts{uid="u",cage="4"} 3.25
ivra_module_rx_watts{uid="u",cage="4",lane="1"} 0.5
ivra_module_rx_watts{uid="u",cage="4",lane="2"} 0
ivra_module_bias_amperes{uid="u",cage="4",lane="1"} 0
ivra_module_limit_celsius{uid="u",cage="4",severity="critical",side="upper"} 75
ivra_module_limit_rx_watts{uid="u",cage="4",severity="critical",side="lower"} 0.25
ivra_module_limit_rx_watts{uid="u",cage="4",severity="critical",side="upper"} 2
)");
}

TEST(exporter_metrics, of_a_board_that_is_not_in_say_so)
{
    board_t late = make_board("a", "");
    late.index = 0;
    late.name = "n";
    board_t held = make_board("b", "");
    held.absence = absence_t::held;
    EXPECT_EQ(
        samples_of({late, held,
                    make_board("c", R"({"index":2,"uid":"c","state":"failed","error":"gone","health":"unknown"})")}),
        R"(ivra_board_info{uid="a",index="0",name="n"} 1
ivra_board_info{uid="b",index="",name=""} 1
ivra_board_info{uid="c",index="2",name="",model="",serial="",mac="",fpga="",fpga_serial=""} 1
ivra_board_up{uid="a"} 0
ivra_board_up{uid="b"} 0
ivra_board_up{uid="c"} 0
ivra_board_down{uid="a",reason="late"} 1
ivra_board_down{uid="b",reason="held"} 1
ivra_board_down{uid="c",reason="failed"} 1
ivra_exporter_dropped_series 0
)");
}

TEST(exporter_metrics, are_each_there_once_and_escaped)
{
    EXPECT_EQ(samples_of(R"("sensors":[{"name":"a\"b\\c\nd","unit":"volts","state":"ok","value":1},
                                       {"name":"a\"b\\c\nd","unit":"volts","state":"ok","value":2},
                                       {"name":"huge","unit":"volts","state":"ok","value":1.797e308},
                                       {"name":"é\u0000","unit":"volts","state":"ok","value":3}])"),
              std::string{"ivra_sensor_volts{uid=\"u\",sensor=\"a\\\"b\\\\c\\nd\",record=\"\"} 1\n"
                          "ivra_sensor_volts{uid=\"u\",sensor=\"é"} +
                  '\0' + "\",record=\"\"} 3\n");
    EXPECT_THAT(samples_of({make_board("u", R"({"state":"ok","sensors":[{"unit":"volts","state":"ok","value":1},
                                                                        {"unit":"volts","state":"ok","value":2}]})"),
                            make_board("u", R"({"state":"failed"})")}),
                HasSubstr("ivra_exporter_dropped_series 3\n"))
        << "a sensor, the second board's information and whether it is up";
}

TEST(exporter_metrics, take_documents_that_are_not_as_they_should_be)
{
    for (
        const char* document :
        {"null", "[]", "{}", R"({"state":7})", R"({"state":"ok","sensors":{},"modules":7,"fpga":[],"errors":[1]})",
         R"({"state":"ok","sensors":[null,7,{"unit":"volts","state":"ok","value":"1"}],"modules":[[],{"lanes":[1]}]})"})
        EXPECT_THAT(samples_of({make_board("u", document)}), HasSubstr("ivra_board_up{uid=\"u\"} ")) << document;
}

TEST(exporter_pages, hold_no_markup_of_boards)
{
    snapshot_t snapshot;
    snapshot.is_listed = true;
    snapshot.host = "<h>&\"";
    snapshot.boards.push_back(make_board(
        "u",
        R"({"name":"<script>","health":"critical","state":"ok","findings":[{"health":"critical","text":"<b>\u001b[1m"}]})"));
    const std::string page = make_start_page(snapshot);
    EXPECT_THAT(page, HasSubstr("<h1>Boards of &lt;h&gt;&amp;&quot;</h1>"));
    EXPECT_THAT(page, HasSubstr("<td>&lt;script&gt;</td>"));
    EXPECT_THAT(page, HasSubstr("<div class=\"critical\">&lt;b&gt;?[1m</div>"));
}

} // namespace
} // namespace ivra::bsp::exporter
