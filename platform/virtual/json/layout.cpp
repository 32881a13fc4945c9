#include "json/document.h"
#include "json/text.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstdint>
#include <type_traits>

namespace ivra::virtual_platform::json {

namespace {

using writer_t = rapidjson::Writer<rapidjson::StringBuffer>;

constexpr std::size_t widest_line = 120;

void write(const value_t& value, writer_t& writer)
{
    const auto write_text = [&](const std::string& text) {
        writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    };
    std::visit(
        [&]<class T>(const T& content) {
            if constexpr (std::is_same_v<T, std::nullptr_t>) {
                writer.Null();
            } else if constexpr (std::is_same_v<T, bool>) {
                writer.Bool(content);
            } else if constexpr (std::is_same_v<T, std::uint64_t>) {
                writer.Uint64(content);
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                writer.Int64(content);
            } else if constexpr (std::is_same_v<T, double>) {
                writer.Double(content);
            } else if constexpr (std::is_same_v<T, std::string>) {
                write_text(content);
            } else if constexpr (std::is_same_v<T, list_t>) {
                writer.StartArray();
                for (const value_t& element : content)
                    write(element, writer);
                writer.EndArray();
            } else {
                writer.StartObject();
                for (const member_t& member : content) {
                    write_text(member.name);
                    write(member.value, writer);
                }
                writer.EndObject();
            }
        },
        value.content);
}

/// JSON allows DEL and U+0080 to U+009F as they are; a screen may obey them.
std::string leaf(const value_t& value)
{
    std::string text = compact(value);
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool is_c1 = text[at] == '\xc2' && at + 1 < text.size() && static_cast<std::uint8_t>(text[at + 1]) < 0xa0;
        if (!is_c1 && text[at] != '\x7f')
            continue;
        const std::string escape = "\\u00" + hex_pair(static_cast<std::uint8_t>(text[is_c1 ? at + 1 : at]));
        text.replace(at, is_c1 ? 2 : 1, escape);
        at += escape.size() - 1;
    }
    return text;
}

/// Writes `value` to the end of `line`; false as soon as that has `room` characters or more.
bool write_on_one_line(std::string& line, const value_t& value, std::size_t room)
{
    const char* separator = "";
    if (const auto* object = value.as<object_t>(); object != nullptr && !object->empty()) {
        line += "{ ";
        for (const member_t& member : *object) {
            line += separator + leaf({member.name}) + ": ";
            separator = ", ";
            if (!write_on_one_line(line, member.value, room))
                return false;
        }
        line += " }";
    } else if (const auto* list = value.as<list_t>(); list != nullptr && !list->empty()) {
        line += '[';
        for (const value_t& element : *list) {
            line += separator;
            separator = ", ";
            if (!write_on_one_line(line, element, room))
                return false;
        }
        line += ']';
    } else {
        line += leaf(value);
    }
    return line.size() < room;
}

/// Writes `value` to the end of `text`; `indent` is that of the line it begins on, `spread` how many levels are spread
/// out.
void lay_out(std::string& text, const value_t& value, std::size_t indent, std::size_t spread)
{
    const auto* object = value.as<object_t>();
    const auto* list = value.as<list_t>();
    if ((object == nullptr || object->empty()) && (list == nullptr || list->empty())) {
        text += leaf(value);
        return;
    }
    if (spread == 0) {
        std::string line;
        const std::size_t column = text.size() - (text.rfind('\n') + 1);
        if (write_on_one_line(line, value, widest_line - std::min(widest_line, column))) {
            text += line;
            return;
        }
    }
    const std::size_t below = spread == 0 ? 0 : spread - 1;
    const std::string margin(indent + 2, ' ');
    bool is_first = true;
    text += object != nullptr ? "{" : "[";
    const auto begin_entry = [&] {
        text += is_first ? "\n" : ",\n";
        text += margin;
        is_first = false;
    };
    if (object != nullptr) {
        for (const member_t& member : *object) {
            begin_entry();
            text += leaf({member.name}) + ": ";
            lay_out(text, member.value, indent + 2, below);
        }
    } else {
        for (const value_t& element : *list) {
            begin_entry();
            lay_out(text, element, indent + 2, below);
        }
    }
    text += '\n' + std::string(indent, ' ') + (object != nullptr ? '}' : ']');
}

} // namespace

std::string compact(const value_t& value)
{
    rapidjson::StringBuffer buffer;
    writer_t writer{buffer};
    write(value, writer);
    return {buffer.GetString(), buffer.GetSize()};
}

std::string laid_out(const value_t& value, std::size_t spread_levels)
{
    std::string text;
    lay_out(text, value, 0, spread_levels);
    return text + '\n';
}

} // namespace ivra::virtual_platform::json
