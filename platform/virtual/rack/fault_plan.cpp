#include "rack/fault_plan.h"

#include "rack/calls.h"
#include "json/describe.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <utility>

#include <string.h>

namespace ivra::virtual_platform {

namespace {

namespace codec = json::codec;

// ---- names of the system's numbers ----

/// One of the words that a function lists, for what it stands for.
template <class T>
struct keyword
{
    using rows_t = std::vector<std::pair<std::string, T>>;

    const char* what;
    const rows_t& (*rows)();

    std::string sentence() const { return what; }
    void read(const json::node_t& node, T& value) const
    {
        if (const auto* text = node.as<std::string>())
            for (const auto& [word, meaning] : rows())
                if (word == *text) {
                    value = meaning;
                    return;
                }
        node.expected(what);
    }
    json::value_t schema() const
    {
        json::list_t words;
        for (const auto& [word, meaning] : rows())
            words.push_back({word});
        return {json::object_t{{"description", {sentence()}}, {"enum", {std::move(words)}}}};
    }
};

keyword<const call_row_t*>::rows_t call_rows()
{
    keyword<const call_row_t*>::rows_t rows;
    for (const call_row_t& row : calls)
        rows.emplace_back(row.name, &row);
    return rows;
}

keyword<int>::rows_t error_rows()
{
    keyword<int>::rows_t rows{{"0", 0},
                              {"EWOULDBLOCK", EWOULDBLOCK},
                              {"EDEADLOCK", EDEADLOCK},
                              {"ENOTSUP", ENOTSUP},
                              {"EOPNOTSUPP", EOPNOTSUPP}};
    constexpr int highest = 133; // EHWPOISON
    for (int error = 1; error <= highest; ++error)
        if (const char* symbol = ::strerrorname_np(error);
            symbol != nullptr &&
            std::ranges::find(rows, symbol, &keyword<int>::rows_t::value_type::first) == rows.end())
            rows.emplace_back(symbol, error);
    return rows;
}

keyword<int>::rows_t signal_rows()
{
    keyword<int>::rows_t rows;
    for (int signal = 1; signal < SIGRTMIN; ++signal)
        if (const char* abbreviation = ::sigabbrev_np(signal))
            rows.emplace_back(std::string{"SIG"} + abbreviation, signal);
    return rows;
}

keyword<fault_moment_t>::rows_t moment_rows()
{
    return {{"before", fault_moment_t::before}, {"after", fault_moment_t::after}};
}

/// What a function makes, made once.
template <auto make>
const auto& once()
{
    static const auto made = make();
    return made;
}

constexpr keyword<const call_row_t*> call_name{"the name of a platform call", &once<&call_rows>};
constexpr keyword<int> error_number{"the name of an error number, such as \"EIO\", or \"0\"", &once<&error_rows>};
constexpr keyword<int> signal_name{"the name of a signal, such as \"SIGINT\"", &once<&signal_rows>};
constexpr keyword<fault_moment_t> moment{"\"before\" or \"after\"", &once<&moment_rows>};

// ---- other values ----

constexpr struct
{
    static std::string sentence() { return "a time of at most an hour, such as \"20 ms\" or \"1.5 s\""; }
    static void read(const json::node_t& node, std::chrono::nanoseconds& value)
    {
        // Mistakes of the time itself are told in other words.
        json::reading reading{node.reading().file()};
        codec::duration_t said;
        codec::duration.read(json::node_t{node.value(), reading}, said);
        if (!said || reading.is_beyond_mistake(node.value().place) || *said > std::chrono::hours{1})
            node.expected(sentence());
        else
            value = *said;
    }
    static json::value_t schema()
    {
        return codec::schema_of(sentence(), {"string"},
                                {{"pattern", {std::string{"^[0-9]{1,9}([.][0-9]{1,9})? ?(s|ms|us)$"}}}});
    }
} short_time;

constexpr struct
{
    static std::string sentence() { return "bytes as pairs of hexadecimal digits, such as \"ff00\""; }
    static void read(const json::node_t& node, std::vector<std::uint8_t>& value)
    {
        const auto* text = node.as<std::string>();
        const auto bytes = codec::hex_bytes(text == nullptr ? "" : *text);
        if (!bytes || bytes->empty())
            node.expected(sentence());
        else
            value.assign(bytes->begin(), bytes->end());
    }
    static json::value_t schema()
    {
        return codec::schema_of(sentence(), {"string"}, {{"pattern", {std::string{"^([0-9a-fA-F][0-9a-fA-F])+$"}}}});
    }
} some_bytes;

constexpr codec::whole call_number{"a whole number", 1, UINT64_MAX};
constexpr codec::whole amount{"a whole number", 0, UINT64_MAX};
constexpr codec::whole true_count{"a whole number", 0, 1'000'000};
constexpr codec::text accelerator_text{4096};

/// Members that only some calls can have: those with one of these traits.
constexpr struct
{
    const char* name;
    unsigned traits;
} members_of_some[] = {
    {"accelerator", device}, {"errno", fails},  {"short", transfers | lists},
    {"garble", data},        {"count", counts}, {"text", text},
};

constexpr const char* effects[] = {"errno", "short", "delay", "stop",   "garble",
                                   "count", "text",  "log",   "signal", "kill"};

} // namespace

static void describe(auto& visit, fault_rule_t& rule)
{
    using codec::given;
    visit.required("call", rule.call, call_name);
    visit("accelerator", rule.accelerator, given{accelerator_text});
    visit("nth", rule.nth, given{call_number});
    visit("from", rule.from, given{call_number});
    visit("errno", rule.fault.error, given{error_number});
    visit("short", rule.fault.transferred, given{amount});
    visit("delay", rule.fault.delay, short_time);
    visit("stop", rule.fault.stop, short_time);
    visit("garble", rule.fault.garble, some_bytes);
    visit("count", rule.fault.count, given{true_count});
    visit("text", rule.fault.text, given{codec::long_text});
    visit("log", rule.fault.log, given{codec::long_text});
    visit("signal", rule.fault.signal, signal_name);
    visit("when", rule.fault.when, moment);
    if (visit("kill", rule.fault.when, moment))
        rule.fault.signal = SIGKILL;

    const auto said = [&](const char* name) { return visit.said(name); };
    for (const auto& [name, traits] : members_of_some)
        if (rule.call != nullptr)
            visit.check({name}, !said(name) || (rule.call->traits & traits) != 0,
                        [&] { return "no such member for " + std::string{rule.call->name}; });
    visit.check({}, !said("kill") || (!said("signal") && !said("when")), "\"kill\", or \"signal\" and \"when\"");
    visit.check({}, !said("when") || said("signal"), "\"when\" only with \"signal\"");
    visit.check({}, !said("nth") || !said("from"), "\"nth\" or \"from\", not both");
    visit.check({}, rule.call == nullptr || !said("errno") || !said("short") || (rule.call->traits & lists) == 0,
                "\"errno\" or \"short\", not both"); // the handles would be lost
    visit.check({}, std::ranges::any_of(effects, said), [&] {
        return "an effect: " + codec::enumeration({std::begin(effects), std::end(effects)});
    });
}

namespace {

constexpr codec::list plan_codec{
    "a list of at most 65536 rules: [{ \"call\": \"ivra_hw_read\", \"errno\": \"EIO\" }]",
    codec::record<fault_rule_t>{"a rule: { \"call\": \"ivra_hw_read\", \"errno\": \"EIO\" }"}, 65536};

bool is_called(const accelerator_t& accelerator, std::string_view name)
{
    return accelerator.uid == name || accelerator.name == name;
}

} // namespace

fault_plan::fault_plan(const std::filesystem::path& file)
    : fault_plan{json::parse(read_file(file), file, plan_codec.what), file}
{
}

fault_plan::fault_plan(const json::value_t& document, const std::filesystem::path& file) : file_{file}
{
    json::read(document, file, rules_, plan_codec);
}

bool fault_plan::names_accelerators() const
{
    return std::any_of(rules_.begin(), rules_.end(),
                       [](const fault_rule_t& rule) { return rule.accelerator.has_value(); });
}

void fault_plan::check_accelerators(const rack_t& rack) const
{
    for (std::size_t i = 0; i < rules_.size(); ++i) {
        const auto& name = rules_[i].accelerator;
        if (name && std::none_of(rack.accelerators.begin(), rack.accelerators.end(),
                                 [&](const accelerator_t& accelerator) { return is_called(accelerator, *name); }))
            mistake(file_, '/' + std::to_string(i) + "/accelerator",
                    "expected the name or uid of an accelerator of " + rack.file.string());
    }
}

const fault_t* fault_plan::next(std::string_view call, const accelerator_t* device)
{
    const fault_t* fault = nullptr;
    for (fault_rule_t& rule : rules_) {
        if (rule.call->name != call ||
            (rule.accelerator && (device == nullptr || !is_called(*device, *rule.accelerator))))
            continue;
        ++rule.seen;
        const bool is_its_turn = rule.nth ? rule.seen == *rule.nth : rule.seen >= rule.from.value_or(1);
        if (fault == nullptr && is_its_turn)
            fault = &rule.fault;
    }
    return fault;
}

json::value_t fault_plan_schema()
{
    return json::as_document(plan_codec.schema());
}

} // namespace ivra::virtual_platform
