#include "libraries/faults.h"

#include "libraries/calls.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <string.h>

namespace ivra::virtual_platform {

namespace {

using rapidjson::Value;

/// One place of the plan: what is wrong there is said with it.
struct place_t
{
    const std::filesystem::path& file;
    std::string pointer;

    place_t operator/(std::string_view member) const { return {file, pointer + "/" + std::string{member}}; }
    [[noreturn]] void expected(const std::string& what) const
    {
        throw fault_plan_error{file.string() + ": " + (pointer.empty() ? "top level" : pointer) + ": expected " + what};
    }
};

std::string text_of(const Value& value, const place_t& place, const std::string& what)
{
    if (!value.IsString())
        place.expected(what);
    return {value.GetString(), value.GetStringLength()};
}

std::uint64_t number_of(const Value& value, std::uint64_t lowest, std::uint64_t highest, const place_t& place)
{
    if (!value.IsUint64() || value.GetUint64() < lowest || value.GetUint64() > highest)
        place.expected("a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest));
    return value.GetUint64();
}

int errno_of(const Value& value, const place_t& place)
{
    constexpr const char* what = "the name of an error number, such as \"EIO\", or \"0\"";
    constexpr std::array<std::pair<std::string_view, int>, 4> aliases{
        {{"EWOULDBLOCK", EWOULDBLOCK}, {"EDEADLOCK", EDEADLOCK}, {"ENOTSUP", ENOTSUP}, {"EOPNOTSUPP", EOPNOTSUPP}}};
    constexpr int highest = 133; // EHWPOISON
    const std::string name = text_of(value, place, what);
    if (name == "0")
        return 0;
    for (const auto& [alias, error] : aliases) {
        if (name == alias)
            return error;
    }
    for (int error = 1; error <= highest; ++error) {
        const char* symbol = ::strerrorname_np(error);
        if (symbol != nullptr && name == symbol)
            return error;
    }
    place.expected(what);
}

int signal_of(const Value& value, const place_t& place)
{
    constexpr const char* what = "the name of a signal, such as \"SIGINT\"";
    const std::string name = text_of(value, place, what);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        const char* abbreviation = ::sigabbrev_np(signal);
        if (abbreviation != nullptr && name == std::string{"SIG"} + abbreviation)
            return signal;
    }
    place.expected(what);
}

decltype(fault_t::when) when_of(const Value& value, const place_t& place)
{
    constexpr const char* what = "\"before\" or \"after\"";
    const std::string when = text_of(value, place, what);
    if (when != "before" && when != "after")
        place.expected(what);
    return when == "before" ? fault_t::before : fault_t::after;
}

std::chrono::microseconds delay_of(const Value& value, const place_t& place)
{
    constexpr const char* what = "a time of at most an hour, such as \"20 ms\" or \"1.5 s\"";
    const std::string text = text_of(value, place, what);
    char* unit = nullptr;
    const double number = std::strtod(text.c_str(), &unit);
    const std::string_view rest = unit;
    const double factor = rest == " s" ? 1e6 : rest == " ms" ? 1e3 : rest == " us" ? 1 : 0;
    const double microseconds = number * factor;
    if (unit == text.c_str() || factor == 0 || !(microseconds >= 0 && microseconds <= 3.6e9))
        place.expected(what);
    return std::chrono::microseconds{std::llround(microseconds)};
}

std::vector<std::uint8_t> bytes_of(const Value& value, const place_t& place)
{
    constexpr const char* what = "bytes as pairs of hexadecimal digits, such as \"ff00\"";
    constexpr std::string_view digits = "0123456789abcdef";
    const std::string text = text_of(value, place, what);
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const auto digit = [&](std::size_t at) {
            const char character = at < text.size() ? text[at] : ' ';
            const std::size_t found =
                digits.find(character >= 'A' && character <= 'F' ? static_cast<char>(character + 32) : character);
            if (found == std::string_view::npos)
                place.expected(what);
            return found;
        };
        bytes.push_back(static_cast<std::uint8_t>(digit(i) * 16 + digit(i + 1)));
    }
    if (bytes.empty())
        place.expected(what);
    return bytes;
}

const call_row_t& call_of(const Value& rule, const place_t& place)
{
    if (!rule.IsObject())
        place.expected("an object");
    const auto member = rule.FindMember("call");
    if (member == rule.MemberEnd())
        place.expected("a member \"call\"");
    const std::string name = text_of(member->value, place / "call", "the name of a platform call");
    const auto* row =
        std::find_if(std::begin(calls), std::end(calls), [&](const call_row_t& r) { return r.name == name; });
    if (row == std::end(calls))
        (place / "call").expected("the name of a platform call");
    return *row;
}

/// One member of a rule: the calls that may have it, and how it is read.
struct member_t
{
    std::string_view name;
    unsigned traits; ///< a call needs one of them to have the member; 0: every call can have it
    bool effect;     ///< rather than a condition
    void (*read)(fault_rule_t&, const Value&, const place_t&);
};

constexpr std::uint64_t any = std::numeric_limits<std::uint64_t>::max();

// clang-format off
constexpr member_t members[] = {
    {"call",        0,         false, [](fault_rule_t& r, const Value& v, const place_t&) { r.call = v.GetString(); }},
    {"accelerator", device,    false, [](fault_rule_t& r, const Value& v, const place_t& p) { r.accelerator = text_of(v, p, "the name or uid of an accelerator"); }},
    {"nth",         0,         false, [](fault_rule_t& r, const Value& v, const place_t& p) { r.first = r.last = number_of(v, 1, any, p); }},
    {"from",        0,         false, [](fault_rule_t& r, const Value& v, const place_t& p) { r.first = number_of(v, 1, any, p); }},
    {"errno",       fails,     true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.error = errno_of(v, p); }},
    {"short",       transfers | lists, true, [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.transferred = number_of(v, 0, any, p); }},
    {"delay",       0,         true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.delay = delay_of(v, p); }},
    {"garble",      data,      true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.garble = bytes_of(v, p); }},
    {"count",       counts,    true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.count = static_cast<int>(number_of(v, 0, 1'000'000, p)); }},
    {"text",        text,      true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.text = text_of(v, p, "a text"); }},
    {"stop",        0,         true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.stop = delay_of(v, p); }},
    {"log",         0,         true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.log = text_of(v, p, "a text"); }},
    {"signal",      0,         true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.signal = signal_of(v, p); }},
    {"when",        0,         false, [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.when = when_of(v, p); }},
    {"kill",        0,         true,  [](fault_rule_t& r, const Value& v, const place_t& p) { r.fault.signal = SIGKILL; r.fault.when = when_of(v, p); }},
};
// clang-format on

fault_rule_t rule_of(const Value& value, const place_t& place)
{
    const call_row_t& call = call_of(value, place);
    fault_rule_t rule;
    std::vector<std::string_view> seen;
    bool has_effect = false;
    for (const auto& [key, content] : value.GetObject()) {
        const std::string_view name{key.GetString(), key.GetStringLength()};
        const auto* member =
            std::find_if(std::begin(members), std::end(members), [&](const member_t& m) { return m.name == name; });
        if (member == std::end(members))
            (place / name).expected("no such member");
        if (std::find(seen.begin(), seen.end(), name) != seen.end())
            (place / name).expected("the member only once");
        if (member->traits != 0 && (call.traits & member->traits) == 0)
            (place / name).expected("no such member for " + std::string{call.name});
        member->read(rule, content, place / name);
        seen.push_back(name);
        has_effect = has_effect || member->effect;
    }
    if (value.HasMember("kill") && (value.HasMember("signal") || value.HasMember("when")))
        place.expected("\"kill\", or \"signal\" and \"when\"");
    if (value.HasMember("when") && !value.HasMember("signal"))
        place.expected("\"when\" only with \"signal\"");
    if (value.HasMember("nth") && value.HasMember("from"))
        place.expected("\"nth\" or \"from\", not both");
    if (rule.fault.error && rule.fault.transferred && (call.traits & lists) != 0)
        place.expected("\"errno\" or \"short\", not both"); // the handles would be lost
    if (!has_effect)
        place.expected("an effect: \"errno\", \"short\", \"delay\", \"stop\", \"garble\", \"count\", \"text\", "
                       "\"log\", \"signal\" or \"kill\"");
    return rule;
}

bool is_called(const accelerator_t& accelerator, std::string_view name)
{
    return accelerator.uid == name || accelerator.name == name;
}

} // namespace

fault_plan::fault_plan(const std::filesystem::path& file) : file_{file}
{
    std::ifstream stream{file, std::ios::binary};
    const std::string json{std::istreambuf_iterator<char>{stream}, {}};
    if (!stream)
        throw fault_plan_error{file.string() + ": cannot be read"};
    rapidjson::Document document;
    document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(json.data(), json.size());
    if (document.HasParseError())
        throw fault_plan_error{file.string() + ": byte " + std::to_string(document.GetErrorOffset()) +
                               ": expected JSON: " + rapidjson::GetParseError_En(document.GetParseError())};
    const place_t top{file_, ""};
    if (!document.IsArray())
        top.expected("an array of rules");
    for (const Value& value : document.GetArray())
        rules_.push_back(rule_of(value, top / std::to_string(rules_.size())));
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
            (place_t{file_, ""} / std::to_string(i) / "accelerator")
                .expected("the name or uid of an accelerator of " + rack.file.string());
    }
}

const fault_t* fault_plan::next(std::string_view call, const accelerator_t* device)
{
    const fault_t* fault = nullptr;
    for (fault_rule_t& rule : rules_) {
        if (rule.call != call || (rule.accelerator && (device == nullptr || !is_called(*device, *rule.accelerator))))
            continue;
        ++rule.seen;
        if (fault == nullptr && rule.seen >= rule.first && rule.seen <= rule.last)
            fault = &rule.fault;
    }
    return fault;
}

} // namespace ivra::virtual_platform
