#include "output/output.h"

#include "text/text.h"

#include <type_traits>

namespace ivra::bsp {

void output::write_json_string(const std::string& text)
{
    const std::string valid = valid_utf8(text);
    json_writer_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
}

void output::write_json_key(const std::string& text)
{
    const std::string valid = valid_utf8(text);
    json_writer_.Key(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
}

void output::print_json_content(const section::entry& e)
{
    std::visit(
        [this](const auto& node) {
            using node_t = std::decay_t<decltype(node)>;
            if constexpr (std::is_same_v<node_t, section::stat_t>) {
                write_json_key(node.name);
                write_json_string(node.value);
            } else if constexpr (std::is_same_v<node_t, section>) {
                print_json_section(node);
            } else if constexpr (std::is_same_v<node_t, section::array>) {
                write_json_key(node.first_header);
                json_writer_.StartArray();
                for (const section::array_entry_t& row : node.rows) {
                    json_writer_.StartObject();
                    write_json_key(node.row_key);
                    write_json_string(row.name);
                    for (std::size_t j = 0; j < row.values.size(); ++j) {
                        write_json_key(node.headers.at(j));
                        write_json_string(row.values[j]);
                    }
                    json_writer_.EndObject();
                }
                json_writer_.EndArray();
            } else {
                print_json_list(node);
            }
        },
        e);
}

void output::print_json_section(const section& s)
{
    if (s.key) { // an item of a list: its object is open already
        write_json_key(*s.key);
        write_json_string(s.name);
    } else {
        write_json_key(s.name);
        json_writer_.StartObject();
    }
    for (const section::entry& e : s.entries)
        print_json_content(e);
    if (!s.key)
        json_writer_.EndObject();
}

void output::print_json_list(const section::list& l)
{
    write_json_key(l.name);
    json_writer_.StartArray();
    for (const section::entry& e : l.entries) {
        json_writer_.StartObject();
        print_json_content(e);
        json_writer_.EndObject();
    }
    json_writer_.EndArray();
}

void output::write_json_message(const log_message& message)
{
    json_writer_.StartObject();
    write_json_key("type");
    write_json_string(message.kind == 1 ? "error" : "info");
    write_json_key("message");
    write_json_string(message.text);
    json_writer_.EndObject();
}

void output::complete_json_document()
{
    json_writer_.EndObject(); // "data"
    write_json_key("status");
    json_writer_.StartObject();
    write_json_key("success");
    json_writer_.Bool(success_);
    if (final_message_) {
        write_json_key("message");
        write_json_string(*final_message_);
    }
    json_writer_.EndObject();
    write_json_key("log");
    json_writer_.StartArray();
    for (const log_message& message : messages_)
        write_json_message(message);
    if (const std::string pending = pending_line_.str(); !pending.empty())
        write_json_message({0, pending});
    json_writer_.EndArray();
    json_writer_.EndObject();
}

} // namespace ivra::bsp
