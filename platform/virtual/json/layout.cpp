#include "json/document.h"
#include "json/text.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

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
    std::string safe;
    const std::string plain = compact(value);
    for (std::string_view text{plain}; !text.empty(); text.remove_prefix(1)) {
        const bool is_c1 = text.size() > 1 && text[0] == '\xc2' && static_cast<std::uint8_t>(text[1]) < 0xa0;
        if (is_c1)
            text.remove_prefix(1);
        if (is_c1 || text[0] == '\x7f')
            safe += "\\u00" + hex_pair(static_cast<std::uint8_t>(text[0]));
        else
            safe += text[0];
    }
    return safe;
}

std::string on_one_line(const value_t& value)
{
    std::string text;
    if (const auto* object = value.as<object_t>(); object != nullptr && !object->empty()) {
        for (const member_t& member : *object)
            text += (text.empty() ? "{ " : ", ") + leaf({member.name}) + ": " + on_one_line(member.value);
        return text + " }";
    }
    if (const auto* list = value.as<list_t>(); list != nullptr && !list->empty()) {
        for (const value_t& element : *list)
            text += (text.empty() ? "[" : ", ") + on_one_line(element);
        return text + "]";
    }
    return leaf(value);
}

/// Writes `value` to the end of `text`; `indent` is that of the line it begins on, `spread` how many levels are spread
/// out.
void lay_out(std::string& text, const value_t& value, std::size_t indent, std::size_t spread)
{
    const auto* object = value.as<object_t>();
    const auto* list = value.as<list_t>();
    const bool has_entries = (object != nullptr && !object->empty()) || (list != nullptr && !list->empty());
    if (!has_entries || spread == 0) {
        const std::string line = on_one_line(value);
        const std::size_t column = text.size() - (text.rfind('\n') + 1);
        if (!has_entries || column + line.size() < widest_line) {
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
