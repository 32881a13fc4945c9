#include "output/json.h"

#include "text/text.h"

#include <rapidjson/encodings.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

namespace ivra::bsp {

namespace {

/// Memory for RapidJSON, which does not look whether it was given any: where there is none, this throws std::bad_alloc.
/// The names are RapidJSON's.
class json_allocator
{
public:
    [[maybe_unused]] static constexpr bool kNeedFree = true; // a document would look at it

    static void* Malloc(std::size_t size) { return size == 0 ? nullptr : ::operator new(size); }
    static void* Realloc(void* old, std::size_t old_size, std::size_t size)
    {
        void* memory = Malloc(size);
        if (memory != nullptr && old != nullptr)
            std::memcpy(memory, old, std::min(old_size, size));
        Free(old);
        return memory;
    }
    static void Free(void* memory) { ::operator delete(memory); }
};

using json_buffer = rapidjson::GenericStringBuffer<rapidjson::UTF8<>, json_allocator>;
using json_writer = rapidjson::Writer<json_buffer, rapidjson::UTF8<>, rapidjson::UTF8<>, json_allocator>;

void write_key(json_writer& json, const std::string& text)
{
    const std::string valid = valid_utf8(text);
    json.Key(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
}

void write_member(json_writer& json, const std::string& key, const std::string& value)
{
    write_key(json, key);
    const std::string valid = valid_utf8(value);
    json.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
}

} // namespace

/// Writes nodes at its current position, inside an object.
class json_document::writer
{
public:
    writer()
    {
        json_.StartObject();
        write_key(json_, "data");
        json_.StartObject();
    }

    void write(const section& s)
    {
        if (s.key) { // an item of a list: its object is open already
            write_member(json_, *s.key, s.name);
        } else {
            write_key(json_, s.name);
            json_.StartObject();
        }
        for (const section::entry& e : s.entries)
            write(e);
        if (!s.key)
            json_.EndObject();
    }

    void write(const section::list& l)
    {
        write_key(json_, l.name);
        json_.StartArray();
        for (const section::entry& e : l.entries) {
            json_.StartObject();
            write(e);
            json_.EndObject();
        }
        json_.EndArray();
    }

    std::string complete(bool success, const std::optional<std::string>& final_message,
                         const std::vector<log_message>& messages)
    {
        json_.EndObject(); // "data"
        write_key(json_, "status");
        json_.StartObject();
        write_key(json_, "success");
        json_.Bool(success);
        if (final_message)
            write_member(json_, "message", *final_message);
        json_.EndObject();
        write_key(json_, "log");
        json_.StartArray();
        for (const log_message& message : messages) {
            json_.StartObject();
            write_member(json_, "type", message.kind == 1 ? "error" : "info");
            write_member(json_, "message", message.text);
            json_.EndObject();
        }
        json_.EndArray();
        json_.EndObject();
        return {buffer_.GetString(), buffer_.GetSize()};
    }

private:
    void write(const stat_t& stat) { write_member(json_, stat.name, stat.value); }

    void write(const section::array& table)
    {
        write_key(json_, table.first_header);
        json_.StartArray();
        for (const section::array_entry_t& row : table.rows) {
            json_.StartObject();
            write_member(json_, table.row_key, row.name);
            for (std::size_t j = 0; j < row.values.size(); ++j)
                write_member(json_, table.headers.at(j), row.values[j]);
            json_.EndObject();
        }
        json_.EndArray();
    }

    void write(const section::entry& e)
    {
        std::visit([this](const auto& node) { write(node); }, e);
    }

    json_buffer buffer_;
    json_writer json_{buffer_};
};

json_document::json_document() : writer_{std::make_unique<writer>()} {}

json_document::~json_document() = default;

void json_document::add(const section& report)
{
    writer_->write(report);
}

void json_document::add(const section::list& report)
{
    writer_->write(report);
}

std::string json_document::complete(bool success, const std::optional<std::string>& final_message,
                                    const std::vector<log_message>& messages)
{
    return writer_->complete(success, final_message, messages);
}

} // namespace ivra::bsp
