#include "properties.h"

#include "text/json.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <regex>
#include <string_view>

namespace ivra::tests {

namespace {

using namespace bsp;

/// A document without what differs from run to run.
std::string without_moment(const std::string& document)
{
    static const std::regex moment{R"("time":"[0-9TZ:-]+")"};
    return std::regex_replace(document, moment, "");
}

/// What a command reports, without the log.
std::string report_of(const story_t& story, const record_t& record)
{
    if (story.is_readings())
        return without_moment(record.run.out);
    if (story.is_json())
        return record.run.out.substr(0, record.run.out.rfind(R"(,"log":[)"));
    return record.run.out;
}

/// How often a run says that something failed.
std::size_t failures_told(const story_t& story, const record_t& record)
{
    const std::string text = story.is_json() ? record.run.out : record.run.out + record.run.err;
    std::size_t count = 0;
    for (const std::string_view word : {"Error", "rror retrieving", "Could not", "UNKNOWN", R"("text":")", "note: "})
        for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; ++at)
            ++count;
    return count;
}

struct silence_t
{
    std::string_view words, call, error;
};
/// What fails without a word, as the platform's failure there means that there is no such thing.
// clang-format off
constexpr silence_t silences[] = {
    {"board ",    "ivra_hw_prop_get_name",              ""},       // the board is called "board-0"
    {"board ",    "ivra_hw_accelerator_get_properties", ""},       // or "(Unknown)"
    {"list",      "ivra_hw_count_accelerators",         ""},       // there are none
    {"list",      "ivra_hw_enumerate_all_accelerators", ""},
    {"readings ", "ivra_hw_prop_get_",                  ""},
    {"readings ", "ivra_hw_accelerator_get_properties", ""},
    {"readings ", "ivra_flash_get_section_name",        ""},
    {"readings ", "ivra_i2c_bus_read",                  "ENXIO"},  // the cage is empty
};
// clang-format on

bool is_silent(const story_t& story, const std::string& rule)
{
    return std::ranges::any_of(silences, [&](const silence_t& row) {
        return story.words.find(row.words) != std::string::npos &&
               rule.find('"' + std::string{row.call}) != std::string::npos && rule.find(row.error) != std::string::npos;
    });
}

class judge
{
public:
    judge(const story_t& story, const std::string& rule, const record_t& whole, const record_t& record)
        : story_{story}, rule_{rule}, whole_{whole}, record_{record}
    {
    }

    std::vector<std::string> complaints()
    {
        look_at_end();
        look_at_handles();
        look_at_changes();
        if (record_.is_killed())
            look_at_beginning();
        else if (story_.is_readings())
            look_at_readings();
        else
            look_at_board();
        return std::move(complaints_);
    }

private:
    bool has(std::string_view member) const { return rule_.find(member) != std::string::npos; }
    void expect(bool is_so, const std::string& text)
    {
        if (!is_so)
            complaints_.push_back(text);
    }

    void look_at_end()
    {
        const int most = story_.is_readings() ? 3 : 1;
        const int status = record_.run.status;
        expect(record_.run.err.find("Sanitizer") == std::string::npos &&
                   record_.run.err.find("runtime error:") == std::string::npos,
               "a sanitizer objects: " + record_.run.err);
        expect(status <= most || (record_.is_killed() && has("kill")), "ended with status " + std::to_string(status));
        constexpr std::chrono::minutes patience{1};
        expect(record_.time <= whole_.time + patience, "took too long");
        expect(rule_.empty() || record_.is_killed() || has("kill") ||
                   std::ranges::any_of(record_.trace, [](const auto& line) { return line.ends_with("(fault plan)"); }),
               "the fault did not come");
    }

    void look_at_handles()
    {
        const std::size_t ends = record_.count("exit: ");
        expect(ends == record_.count("exit: 0 handles not released"), "left something open");
        if (has("kill")) // which may have met what another process reads
            return;
        expect(ends != 0 || record_.trace.empty(), "did not end by itself");
        const bool failed_unlock = has("_unlock") && has("errno");
        expect(record_.count("ivra_hw_shared_mutex_lock", ") = 0") ==
                   record_.count("ivra_hw_shared_mutex_unlock", ") = 0") + (failed_unlock ? 1 : 0),
               "left a lock");
    }

    void look_at_changes()
    {
        expect(record_.flash.size() <= whole_.flash.size() &&
                   std::equal(record_.flash.begin(), record_.flash.end(), whole_.flash.begin()),
               "the flash holds no beginning of what is to be written");
    }

    void look_at_beginning()
    {
        expect(story_.is_readings() || whole_.run.out.starts_with(record_.run.out), "the output is no beginning");
        const auto [mine, wholes] = std::ranges::mismatch(record_.trace, whole_.trace);
        expect(story_.is_readings() || mine == record_.trace.end() ||
                   (mine + 1 == record_.trace.end() && mine->starts_with(*wholes)),
               "it did something else than without a fault");
    }

    void look_at_board()
    {
        const run_t& run = record_.run;
        const bool succeeded = run.status == 0;
        expect(succeeded || !run.err.empty(), "failed and does not say why");
        if (story_.is_help()) {
            expect(succeeded && run.err.empty(), "gives no help");
        } else if (story_.is_json()) {
            rapidjson::Document document;
            document.Parse(run.out.data(), run.out.size());
            const bool is_document = !document.HasParseError() && document.IsObject() && run.out.ends_with("}\n");
            expect(is_document, "is no document");
            expect(run.out.find(succeeded ? R"(,"status":{"success":true},"log":[)"
                                          : R"(,"status":{"success":false)") != std::string::npos,
                   "status and document disagree");
        } else if (story_.is_change()) {
            expect(succeeded == run.out.ends_with("success\n"), "status and screen disagree");
        }
        if (succeeded)
            look_at_success();
    }

    void look_at_success()
    {
        expect(whole_.run.status == 0, "succeeds only with a fault");
        expect(record_.board == whole_.board, "succeeds, and the board is " + record_.board);
        expect(record_.flash == whole_.flash, "succeeds, and the flash differs");
        expect(report_of(story_, record_) == report_of(story_, whole_) ||
                   failures_told(story_, record_) > failures_told(story_, whole_) || is_silent(story_, rule_),
               "succeeds with another report, and does not say why");
    }

    void look_at_readings()
    {
        const run_t& run = record_.run;
        expect(run.err == whole_.run.err, "says something on standard error");
        const bool is_equal = report_of(story_, record_) == report_of(story_, whole_);
        if (story_.words.find("--check") != std::string::npos) {
            constexpr std::array<std::string_view, 4> states{"OK", "WARNING", "CRITICAL", "UNKNOWN"};
            const auto status = static_cast<std::size_t>(run.status);
            expect(status < states.size() && run.out.starts_with(states.at(status)) &&
                       run.out.find('\n') == run.out.size() - 1,
                   "status and line disagree");
        } else if (run.status != 0) {
            expect(!is_equal, "fails with the same readings");
        }
        if (run.status == 0)
            expect(is_equal || failures_told(story_, record_) > failures_told(story_, whole_) ||
                       is_silent(story_, rule_),
                   "succeeds with other readings");
        if (story_.is_json())
            look_at_readings_document();
    }

    void look_at_readings_document()
    {
        rapidjson::Document document;
        document.Parse(record_.run.out.data(), record_.run.out.size());
        expect(!document.HasParseError() && record_.run.out.ends_with("}\n"), "is no document");
        if (document.HasParseError())
            return;
        std::size_t boards = 0, read = 0, findings = 0;
        for_each(document, "boards", [&](const json_t& board) {
            ++boards;
            read += get_text(board, "state") == "ok" ? 1 : 0;
        });
        for_each(document, "findings", [&](const json_t&) { ++findings; });
        const bool has_failed = findings != 0 || record_.run.out.find(R"("state":"failed")") != std::string::npos ||
                                record_.run.out.find(R"("errors":{)") != std::string::npos;
        const int expected = !has_failed ? 0 : read == 0 ? 1 : 2;
        expect(record_.run.status == expected, "status and document disagree");
        expect(boards == 1 || findings != 0, "has lost a board");
    }

    const story_t& story_;
    const std::string& rule_;
    const record_t& whole_;
    const record_t& record_;
    std::vector<std::string> complaints_;
};

} // namespace

std::vector<std::string> complaints_of(const story_t& story, const std::string& rule, const record_t& whole,
                                       const record_t& record)
{
    return judge{story, rule, whole, record}.complaints();
}

} // namespace ivra::tests
