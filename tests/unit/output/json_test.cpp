#include "output/output.h"
#include "support/process.h"

#include <gtest/gtest.h>

#include <rapidjson/document.h>

#include <stdexcept>

namespace ivra::bsp {
namespace {

const std::string end_of_success = R"(},"status":{"success":true},"log":[]})"
                                   "\n";

std::string document(tests::function_ref<void(output&)> body)
{
    const tests::run_t run = tests::run_in_child([&] {
        output& out = output::get();
        out.set_format(output_format_t::json);
        body(out);
        out.exit();
    });
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_FALSE(rapidjson::Document{}.Parse<rapidjson::kParseValidateEncodingFlag>(run.out.c_str()).HasParseError());
    return run.out;
}

std::string document(const section& report)
{
    return document([&](output& out) { out.print_json_section(report); });
}

TEST(json, a_section_is_an_object_and_a_list_an_array_of_objects_that_begin_with_the_key)
{
    section report{"Board", std::nullopt, 0};
    report.add_stat({"Serial", "1234", color::red});
    section::list& list = report.add_list("Sections");
    list.add_section("first", "name", 1).add_stat({"a", "1", color::normal});
    list.add_section("second", "name", 1).add_stat({"b", "2", color::normal});
    EXPECT_EQ(document(report), R"({"data":{"Board":{"Serial":"1234","Sections":[{"name":"first","a":"1"},)"
                                R"({"name":"second","b":"2"}]})" +
                                    end_of_success);
}

TEST(json, a_table_is_an_array_of_rows_that_begin_with_the_row_key)
{
    section report{"Sensors", std::nullopt, 0};
    report.entries.emplace_back(section::array{"sensors",
                                               "Sensor",
                                               {"Current", "Average"},
                                               {{"12V", {"12 mV", "13 mV"}, color::normal}, {"GOOD", {"Bad"}, {}}},
                                               1});
    EXPECT_EQ(document(report),
              R"({"data":{"Sensors":{"Sensor":[{"sensors":"12V","Current":"12 mV","Average":"13 mV"},)"
              R"({"sensors":"GOOD","Current":"Bad"}]})" +
                  end_of_success);
}

TEST(json, a_row_with_more_values_than_headers_is_a_programming_error)
{
    const tests::run_t run = tests::run_in_child([] {
        section report{"Sensors", std::nullopt, 0};
        report.entries.emplace_back(section::array{"k", "h", {"one"}, {{"row", {"1", "2"}, {}}}, 0});
        try {
            output::get().print_json_section(report);
        } catch (const std::out_of_range&) {
            std::exit(42);
        }
    });
    EXPECT_EQ(run.status, 42);
}

TEST(json, an_empty_section_is_an_empty_object_and_an_empty_list_an_empty_array)
{
    section report{"Empty", std::nullopt, 0};
    EXPECT_EQ(document(report), R"({"data":{"Empty":{})" + end_of_success);
    report.add_list("nothing");
    report.entries.emplace_back(section::caption_list{{"caption", 1, {}}});
    report.entries.emplace_back(section{"inner", std::nullopt, 1});
    EXPECT_EQ(document(report), R"({"data":{"Empty":{"nothing":[],"caption":[],"inner":{}})" + end_of_success);
}

TEST(json, member_names_may_repeat)
{
    section report{"Flash", std::nullopt, 0};
    report.add_stat({"PARAMS", "1", color::normal}).add_stat({"PARAMS", "2", color::normal});
    EXPECT_EQ(document(report), R"({"data":{"Flash":{"PARAMS":"1","PARAMS":"2"})" + end_of_success);
}

TEST(json, special_characters_are_escaped_and_other_text_passes)
{
    section report{"R", std::nullopt, 0};
    report.add_stat({"q\"\\", "a\nb\x1b\x7f \u00b0C", color::normal});
    report.add_stat({"nul", std::string{"x\0y", 3}, color::normal});
    EXPECT_EQ(document(report),
              "{\"data\":{\"R\":{\"q\\\"\\\\\":\"a\\nb\\u001B\x7f \u00b0C\",\"nul\":\"x\\u0000y\"}" + end_of_success);
}

TEST(json, bytes_that_are_not_utf8_become_replacement_characters_everywhere)
{
    const std::string r = "\uFFFD";
    const std::string text = document([](output& out) {
        section report{"S\xff", std::nullopt, 0};
        report.add_stat({"n\xff", "v\xff", color::normal});
        report.add_list("l\xff").add_section("i\xff", "k\xff", 1);
        report.entries.emplace_back(section::array{"rk\xff", "fh\xff", {"h\xff"}, {{"rn\xff", {"rv\xff"}, {}}}, 0});
        out.print_json_section(report);
        out.error("e\xff");
        out.log_part("p\xff");
        out.exit(true, "m\xff");
    });
    EXPECT_EQ(text, "{\"data\":{\"S" + r + "\":{\"n" + r + "\":\"v" + r + "\",\"l" + r + "\":[{\"k" + r + "\":\"i" + r +
                        "\"}],\"fh" + r + "\":[{\"rk" + r + "\":\"rn" + r + "\",\"h" + r + "\":\"rv" + r +
                        "\"}]}},\"status\":{\"success\":true,\"message\":\"m" + r +
                        "\"},\"log\":[{\"type\":\"error\",\"message\":\"e" + r +
                        "\"},{\"type\":\"info\",\"message\":\"p" + r + "m" + r + "\"}]}\n");
}

TEST(json, several_reports_are_several_members_of_data)
{
    EXPECT_EQ(document([](output& out) {
                  out.print_json_section(section{"one", std::nullopt, 0});
                  out.print_json_section(section{"two", std::nullopt, 0});
              }),
              R"({"data":{"one":{},"two":{})" + end_of_success);
}

} // namespace
} // namespace ivra::bsp
