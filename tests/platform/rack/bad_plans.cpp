#include "bad_racks.h"

namespace ivra::tests {

namespace {

const std::string a_plan = R"(a list of at most 65536 rules: [{ "call": "ivra_hw_read", "errno": "EIO" }])";
const std::string a_rule = R"(a rule: { "call": "ivra_hw_read", "errno": "EIO" })";
const std::string an_effect = "an effect: errno, short, delay, stop, garble, count, text, log, signal or kill";
const std::string an_error = R"(the name of an error number, such as "EIO", or "0")";
const std::string a_signal = R"(the name of a signal, such as "SIGINT")";
const std::string a_time = R"(a time of at most an hour, such as "20 ms" or "1.5 s")";
const std::string some_bytes = R"(bytes as pairs of hexadecimal digits, such as "ff00")";

} // namespace

const std::vector<bad_plan_t>& bad_plans()
{
    using enum seen_by_t;
    // clang-format off
    static const std::vector<bad_plan_t> rows = {
        {"", "empty, expected " + a_plan, parser},
        {"[{]", "line 1, column 3: not JSON: Missing a name for object member", parser},
        {"[]\n x", "line 2, column 2: not JSON: The document root must not be followed by other values", parser},
        {"{}", "expected " + a_plan, schema},
        {"[1]", "/0: expected " + a_rule, schema},
        {R"([{"errno": "EIO"}])", R"(/0: expected a member "call")", schema},
        {R"([{"call": 1, "errno": "EIO"}])", "/0/call: expected the name of a platform call", schema},
        {R"([{"call": "ivra_hw_raed", "errno": "EIO"}])", "/0/call: expected the name of a platform call", schema},
        {R"([{"call": "ivra_log_log", "kill": "after"}])", "/0/call: expected the name of a platform call", schema},
        {R"([{"call": "ivra_hw_read"}])", "/0: expected " + an_effect, code},
        {R"([{"call": "ivra_hw_read", "nth": 1}])", "/0: expected " + an_effect, code},
        {R"([{"call": "ivra_hw_read", "errno": "EIO"}, {"call": "ivra_hw_read", "errno": "EOI"}])", "/1/errno: expected " + an_error, schema},
        {R"([{"call": "ivra_hw_read", "errno": 5}])", "/0/errno: expected " + an_error, schema},
        {R"([{"call": "ivra_hw_read", "errno": "EIO", "tnh": 1}])", "/0/tnh: unknown member, expected one of call, accelerator, nth, from, errno, short, delay, stop, garble, " "count, text, log, signal, when, kill", schema},
        {R"([{"call": "ivra_hw_read", "errno": "EIO", "errno": "EIO"}])", "/0/errno: expected this member once, but it comes again", parser},
        {R"([{"call": "ivra_hw_read", "errno": "EIO", "nth": 0}])", "/0/nth: expected a whole number, 1 to 18446744073709551615", schema},
        {R"([{"call": "ivra_hw_read", "errno": "EIO", "nth": 1.5}])", "/0/nth: expected a whole number, 1 to 18446744073709551615", schema},
        {R"([{"call": "ivra_hw_read", "errno": "EIO", "nth": 1, "from": 1}])", R"(/0: expected "nth" or "from", not both)", code},
        {R"([{"call": "ivra_hw_read", "short": 1}])", "/0/short: expected no such member for ivra_hw_read", code},
        {R"([{"call": "ivra_uart_read", "short": -1}])", "/0/short: expected a whole number, 0 to 18446744073709551615", schema},
        {R"([{"call": "ivra_hw_core_enumerate", "short": 1, "errno": "EIO"}])", R"(/0: expected "errno" or "short", not both)", code},
        {R"([{"call": "ivra_hw_read", "delay": 20}])", "/0/delay: expected " + a_time, schema},
        {R"([{"call": "ivra_hw_read", "delay": "20"}])", "/0/delay: expected " + a_time, schema},
        {R"([{"call": "ivra_hw_read", "delay": "ms"}])", "/0/delay: expected " + a_time, schema},
        {R"([{"call": "ivra_hw_read", "delay": "-1 ms"}])", "/0/delay: expected " + a_time, schema},
        {R"([{"call": "ivra_hw_read", "delay": "nan s"}])", "/0/delay: expected " + a_time, schema},
        {R"([{"call": "ivra_hw_read", "delay": "2 hours"}])", "/0/delay: expected " + a_time, schema},
        {R"([{"call": "ivra_hw_read", "delay": "3601 s"}])", "/0/delay: expected " + a_time, code},
        {R"([{"call": "ivra_hw_read", "delay": "never"}])", "/0/delay: expected " + a_time, schema},
        {R"([{"call": "ivra_hw_read", "kill": "now", "errno": "EOI"}, {"errno": 1}])", // the first in the file
         R"(/0/kill: expected "before" or "after")", schema},
        {R"([{"count": 1, "garble": "ff", "call": "ivra_hw_write"}])", "/0/count: expected no such member for ivra_hw_write", code},
        {R"([{"call": "ivra_hw_read", "garble": ""}])", "/0/garble: expected " + some_bytes, schema},
        {R"([{"call": "ivra_hw_read", "garble": "f"}])", "/0/garble: expected " + some_bytes, schema},
        {R"([{"call": "ivra_hw_read", "garble": "0x"}])", "/0/garble: expected " + some_bytes, schema},
        {R"([{"call": "ivra_hw_write", "garble": "ff"}])", "/0/garble: expected no such member for ivra_hw_write", code},
        {R"([{"call": "ivra_hw_read", "count": 1}])", "/0/count: expected no such member for ivra_hw_read", code},
        {R"([{"call": "ivra_hw_read", "text": "a"}])", "/0/text: expected no such member for ivra_hw_read", code},
        {R"([{"call": "ivra_hw_read", "stop": "20"}])", "/0/stop: expected " + a_time, schema},
        {R"([{"call": "ivra_hw_read", "log": 20}])", R"(/0/log: expected a text of at most 4096 bytes, or { "hex": "ff41" } for any bytes)", schema},
        {R"([{"call": "ivra_hw_read", "signal": "INT"}])", "/0/signal: expected " + a_signal, schema},
        {R"([{"call": "ivra_hw_read", "signal": 2}])", "/0/signal: expected " + a_signal, schema},
        {R"([{"call": "ivra_hw_read", "signal": "SIGINT", "when": "now"}])", R"(/0/when: expected "before" or "after")", schema},
        {R"([{"call": "ivra_hw_read", "errno": "EIO", "when": "after"}])", R"(/0: expected "when" only with "signal")", code},
        {R"([{"call": "ivra_hw_read", "signal": "SIGINT", "kill": "after"}])", R"(/0: expected "kill", or "signal" and "when")", code},
        {R"([{"call": "ivra_hw_read", "kill": "now"}])", R"(/0/kill: expected "before" or "after")", schema},
        {R"([{"call": "ivra_hw_filter_create", "accelerator": "board", "errno": "EIO"}])", "/0/accelerator: expected no such member for ivra_hw_filter_create", code},
    };
    // clang-format on
    return rows;
}

} // namespace ivra::tests
