#include "json/describe.h"

#include "json/text.h"

#include <charconv>
#include <map>
#include <system_error>

namespace ivra::virtual_platform::json {

namespace {

constexpr std::size_t long_schema = 120; // characters

/// How often each schema of a member stands somewhere below.
void count(const value_t& value, std::map<std::string, std::size_t>& counts)
{
    if (const auto* members = value.as<object_t>())
        for (const member_t& member : *members) {
            if (find(member.value, "description") != nullptr && member.name.find_first_of("/~^") == std::string::npos)
                ++counts[compact(member.value)];
            count(member.value, counts);
        }
}

/// Puts definitions, named as the members that have them first, in the place of what stands twice.
void define(value_t& value, const std::map<std::string, std::size_t>& counts, object_t& definitions,
            std::map<std::string, std::string>& names)
{
    auto* members = std::get_if<object_t>(&value.content);
    if (members == nullptr)
        return;
    for (member_t& member : *members) {
        const std::string text = compact(member.value);
        const auto found = counts.find(text);
        define(member.value, counts, definitions, names);
        if (found == counts.end() || found->second < 2 || text.size() < long_schema)
            continue;
        std::string& name = names[text];
        if (name.empty()) {
            name = member.name;
            for (unsigned number = 2; std::ranges::count(definitions, name, &member_t::name) != 0; ++number)
                name = member.name + '_' + std::to_string(number);
            definitions.push_back({name, std::move(member.value)});
        }
        member.value = {object_t{{"$ref", {"#/definitions/" + name}}}};
    }
}

} // namespace

value_t as_document(value_t schema)
{
    std::map<std::string, std::size_t> counts;
    count(schema, counts);
    object_t definitions;
    std::map<std::string, std::string> names;
    define(schema, counts, definitions, names);
    auto& members = std::get<object_t>(schema.content);
    members.insert(members.begin(), {"$schema", {std::string{"http://json-schema.org/draft-04/schema#"}}});
    members.push_back({"definitions", {std::move(definitions)}});
    return schema;
}

namespace codec {

namespace {

constexpr std::string_view decimal_digits = "0123456789";
constexpr std::string_view hexadecimal_digits = "0123456789abcdefABCDEF";
constexpr const char* hex_pairs_pattern = "^([0-9a-fA-F][0-9a-fA-F])*$";

bool consists_of(std::string_view text, std::string_view characters)
{
    return text.find_first_not_of(characters) == std::string_view::npos;
}

/// Takes the digits that `text` begins with; empty when there are none, or more than `most`.
std::string_view take_digits(std::string_view& text, std::string_view digits, std::size_t most)
{
    const std::string_view taken = text.substr(0, text.find_first_not_of(digits));
    if (taken.size() > most)
        return {};
    text.remove_prefix(taken.size());
    return taken;
}

std::optional<std::uint64_t> hex_number(std::string_view text, std::size_t most_digits)
{
    if (!text.starts_with("0x"))
        return std::nullopt;
    text.remove_prefix(2);
    const std::string_view digits = take_digits(text, hexadecimal_digits, most_digits);
    return digits.empty() || !text.empty() ? std::nullopt : std::optional{parse_digits(digits, 16)};
}

/// Whether it is a text that may be meant as decimal or as hexadecimal.
bool are_digits(const node_t& node)
{
    const auto* text = node.as<std::string>();
    return text != nullptr && !text->empty() && consists_of(*text, hexadecimal_digits);
}

value_t number(std::uint64_t value)
{
    return {value};
}

value_t pattern(const char* text)
{
    return {std::string{text}};
}

} // namespace

value_t schema_of(const std::string& sentence, std::initializer_list<const char*> types, object_t rest)
{
    value_t type;
    if (types.size() == 1) {
        type.content = std::string{*types.begin()};
    } else {
        list_t list;
        for (const char* name : types)
            list.push_back({std::string{name}});
        type.content = std::move(list);
    }
    object_t members{{"description", {sentence}}, {"type", std::move(type)}};
    std::move(rest.begin(), rest.end(), std::back_inserter(members));
    return {std::move(members)};
}

value_t widened(value_t schema, const std::string& sentence, const char* added)
{
    for (member_t& member : std::get<object_t>(schema.content)) {
        if (member.name == "description") {
            member.value.content = sentence;
        } else if (member.name == "type") {
            list_t types;
            if (const auto* several = member.value.as<list_t>())
                types = *several;
            else
                types.push_back(member.value);
            types.push_back({std::string{added}});
            member.value.content = std::move(types);
        } else if (member.name == "enum") { // only null is ever added to one
            std::get<list_t>(member.value.content).push_back({});
        }
    }
    return schema;
}

value_t or_list(value_t schema, const std::string& sentence, const value_t& list)
{
    schema = widened(std::move(schema), sentence, "array");
    for (const member_t& member : *list.as<object_t>())
        if (member.name != "description" && member.name != "type")
            std::get<object_t>(schema.content).push_back(member);
    return schema;
}

std::optional<std::string> hex_bytes(std::string_view digits)
{
    if (digits.size() % 2 != 0 || !consists_of(digits, hexadecimal_digits))
        return std::nullopt;
    std::string bytes;
    for (; !digits.empty(); digits.remove_prefix(2))
        bytes += static_cast<char>(parse_digits(digits.substr(0, 2), 16));
    return bytes;
}

std::string enumeration(const std::vector<std::string_view>& words)
{
    std::string text;
    for (std::size_t at = 0; at < words.size(); ++at)
        text += (at == 0 ? "" : at + 1 == words.size() ? " or " : ", ") + std::string{words[at]};
    return text;
}

// ---- numbers ----

void flag_t::read(const node_t& node, bool& value)
{
    if (const bool* said = node.as<bool>())
        value = *said;
    else
        node.expected(sentence());
}

std::string whole::sentence() const
{
    return std::string{what} + ", " + std::to_string(lowest) + " to " + std::to_string(highest);
}

bool whole::read_wide(const node_t& node, std::int64_t& value) const
{
    if (const auto* positive = node.as<std::uint64_t>();
        positive != nullptr && *positive <= highest && (lowest < 0 || *positive >= static_cast<std::uint64_t>(lowest)))
        value = static_cast<std::int64_t>(*positive);
    else if (const auto* negative = node.as<std::int64_t>(); negative != nullptr && *negative >= lowest)
        value = *negative;
    else
        return node.expected(sentence()), false;
    return true;
}

value_t whole::schema() const
{
    return schema_of(sentence(), {"integer"}, {{"minimum", write(lowest)}, {"maximum", number(highest)}});
}

void real::read(const node_t& node, double& value) const
{
    if (const auto* said = node.as<double>())
        value = *said;
    else if (const auto* positive = node.as<std::uint64_t>())
        value = static_cast<double>(*positive);
    else if (const auto* negative = node.as<std::int64_t>())
        value = static_cast<double>(*negative);
    else
        node.expected(sentence());
}

bool code::read_wide(const node_t& node, std::uint64_t& value) const
{
    std::optional<std::uint64_t> said;
    if (const auto* plain = node.as<std::uint64_t>())
        said = *plain;
    else if (const auto* text = node.as<std::string>())
        said = hex_number(*text, (bits + 3) / 4);
    if (!said || *said >> bits != 0)
        return node.expected(sentence() + (are_digits(node) ? "; a text of digits begins with 0x" : "")), false;
    value = *said;
    return true;
}

value_t code::write(std::uint64_t value) const
{
    if (written_digits == 0)
        return {value};
    const std::string digits = hex_text(value).substr(2);
    return {"0x" + std::string(written_digits - std::min<std::size_t>(written_digits, digits.size()), '0') + digits};
}

value_t code::schema() const
{
    // An odd number of bits leaves fewer values to the first of all digits.
    const std::string full = "0x[0-9a-fA-F]{1," + std::to_string((bits + 3) / 4) + '}';
    const std::string digits = bits == 7 ? "0x[0-7]?[0-9a-fA-F]" : full;
    return schema_of(sentence(), {"integer", "string"},
                     {{"minimum", number(0)},
                      {"maximum", number((std::uint64_t{1} << bits) - 1)},
                      {"pattern", {'^' + digits + '$'}}});
}

void size_t_::read(const node_t& node, std::uint64_t& value)
{
    struct unit_t
    {
        std::string_view name;
        unsigned shift;
    };
    static constexpr unit_t units[] = {{"bytes", 0}, {"KiB", 10}, {"MiB", 20}, {"GiB", 30}};
    constexpr std::uint64_t largest_number = std::numeric_limits<std::int64_t>::max();
    if (const auto* said = node.as<std::uint64_t>(); said != nullptr && *said <= largest_number) {
        value = *said;
        return;
    }
    if (const auto* text = node.as<std::string>()) {
        if (const auto hexadecimal = hex_number(*text, 16)) {
            value = *hexadecimal;
            return;
        }
        std::string_view rest = *text;
        const std::string_view digits = take_digits(rest, decimal_digits, 19);
        if (rest.size() > 1 && rest.starts_with(' '))
            rest.remove_prefix(1);
        const auto* const unit = std::ranges::find(units, rest, &unit_t::name);
        if (!digits.empty() && unit != std::end(units)) {
            const std::uint64_t count = parse_digits(digits, 10);
            value = count > UINT64_MAX >> unit->shift ? UINT64_MAX : count << unit->shift;
            return;
        }
    }
    node.expected(sentence() + (are_digits(node) ? "; a text of digits begins with 0x or ends with a unit" : ""));
}

value_t size_t_::write(std::uint64_t value)
{
    return {size_text(value)};
}

value_t size_t_::schema()
{
    return schema_of(sentence(), {"integer", "string"},
                     {{"minimum", number(0)},
                      {"maximum", number(std::numeric_limits<std::int64_t>::max())},
                      {"pattern", pattern("^(0x[0-9a-fA-F]{1,16}|[0-9]{1,19} ?(bytes|KiB|MiB|GiB))$")}});
}

value_t address_t::write(std::uint64_t value)
{
    return {hex_text(value)};
}

void duration_codec::read(const node_t& node, duration_t& value)
{
    struct unit_t
    {
        std::string_view name;
        std::int64_t nanoseconds;
    };
    static constexpr unit_t units[] = {{"s", 1'000'000'000}, {"ms", 1'000'000}, {"us", 1'000}};
    constexpr std::size_t most_digits = 9;
    const auto* text = node.as<std::string>();
    if (text != nullptr && *text == "never") {
        value.reset();
        return;
    }
    std::string_view rest = text == nullptr ? std::string_view{} : *text;
    const std::string_view whole = take_digits(rest, decimal_digits, most_digits);
    std::string_view fraction;
    bool is_good = !whole.empty();
    if (rest.starts_with('.')) {
        rest.remove_prefix(1);
        fraction = take_digits(rest, decimal_digits, most_digits);
        is_good = is_good && !fraction.empty();
    }
    if (rest.starts_with(' '))
        rest.remove_prefix(1);
    const auto* const unit = std::ranges::find(units, rest, &unit_t::name);
    if (!is_good || unit == std::end(units))
        return node.expected(sentence());
    std::int64_t scale = unit->nanoseconds;
    auto nanoseconds = static_cast<std::int64_t>(parse_digits(whole, 10)) * scale;
    for (const char digit : fraction)
        nanoseconds += (digit - '0') * (scale /= 10);
    value = std::chrono::nanoseconds{nanoseconds};
}

value_t duration_codec::write(const duration_t& value)
{
    return {value ? duration_text(*value) : "never"};
}

value_t duration_codec::schema()
{
    return schema_of(sentence(), {"string"}, {{"pattern", pattern("^(never|[0-9]{1,9}([.][0-9]{1,9})? ?(s|ms|us))$")}});
}

// ---- texts ----

std::string text::sentence() const
{
    return "a text of at most " + std::to_string(most) + " bytes, or { \"hex\": \"ff41\" } for any bytes";
}

void text::read(const node_t& node, std::string& value) const
{
    if (const auto* said = node.as<std::string>()) {
        if (said->size() <= most)
            value = *said;
        else
            node.expected(sentence());
        return;
    }
    const auto* object = node.as<object_t>();
    if (object == nullptr)
        return node.expected(sentence());
    const member_t* digits = find(node.value(), "hex");
    for (const member_t& member : *object)
        if (&member != digits)
            node.below(member).note(member.place, "unknown member, expected one of hex");
    if (digits == nullptr)
        node.note(node.value().end, "expected a member \"hex\"");
    else
        hex{most}.read(node.below(*digits), value);
}

value_t text::write(const std::string& value)
{
    if (is_utf8(value))
        return {value};
    return {object_t{{"hex", hex::write(value)}}};
}

value_t text::schema() const
{
    return schema_of(sentence(), {"string", "object"},
                     {{"maxLength", number(most)},
                      {"required", {list_t{{std::string{"hex"}}}}},
                      {"additionalProperties", {false}},
                      {"properties", {object_t{{"hex", hex{most}.schema()}}}}});
}

void plain_text::read(const node_t& node, std::string& value) const
{
    if (const auto* said = node.as<std::string>())
        value = *said;
    else
        node.expected(what);
}

std::string hex::sentence() const
{
    return "at most " + std::to_string(most) + " bytes as pairs of hexadecimal digits" + purpose;
}

void hex::read(const node_t& node, std::string& value) const
{
    const auto* digits = node.as<std::string>();
    auto bytes = digits == nullptr || digits->size() > 2 * most ? std::nullopt : hex_bytes(*digits);
    if (bytes)
        value = std::move(*bytes);
    else
        node.expected(sentence());
}

value_t hex::write(const std::string& value)
{
    std::string digits;
    for (const char c : value)
        digits += hex_pair(static_cast<std::uint8_t>(c));
    return {digits};
}

value_t hex::schema() const
{
    return schema_of(sentence(), {"string"},
                     {{"maxLength", number(2 * most)}, {"pattern", pattern(hex_pairs_pattern)}});
}

void serial_codec::read(const node_t& node, std::array<std::uint32_t, 3>& value)
{
    const auto* text = node.as<std::string>();
    if (text == nullptr || text->size() != 8 * value.size() || !consists_of(*text, hexadecimal_digits))
        return node.expected(sentence());
    for (std::size_t at = 0; at < value.size(); ++at) // the text begins with the last word
        value.at(value.size() - 1 - at) =
            static_cast<std::uint32_t>(parse_digits(std::string_view{*text}.substr(8 * at, 8), 16));
}

value_t serial_codec::write(const std::array<std::uint32_t, 3>& value)
{
    return {serial_text(value)};
}

value_t serial_codec::schema()
{
    return schema_of(sentence(), {"string"}, {{"pattern", pattern("^[0-9a-fA-F]{24}$")}});
}

void mac_codec::read(const node_t& node, mac_t& value)
{
    const auto* text = node.as<std::string>();
    bool is_good = text != nullptr && text->size() == 3 * value.size() - 1;
    for (std::size_t at = 0; is_good && at < text->size(); ++at)
        is_good = at % 3 == 2 ? (*text)[at] == ':' : hexadecimal_digits.find((*text)[at]) != std::string_view::npos;
    if (!is_good)
        return node.expected(sentence());
    for (std::size_t at = 0; at < value.size(); ++at)
        value.at(at) = static_cast<std::uint8_t>(parse_digits(std::string_view{*text}.substr(3 * at, 2), 16));
}

value_t mac_codec::write(const mac_t& value)
{
    return {mac_address_text(value)};
}

std::uint64_t addresses_from(const mac_t& first)
{
    std::uint64_t number = 0;
    for (const std::uint8_t part : first)
        number = number << 8U | part;
    return (std::uint64_t{1} << 48U) - number;
}

std::string too_many_addresses(std::uint64_t room)
{
    return "at most " + std::to_string(room) + ", as MAC addresses end at ff:ff:ff:ff:ff:ff";
}

value_t mac_codec::schema()
{
    return schema_of(sentence(), {"string"}, {{"pattern", pattern("^[0-9a-fA-F]{2}(:[0-9a-fA-F]{2}){5}$")}});
}

} // namespace codec

} // namespace ivra::virtual_platform::json
