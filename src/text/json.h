#ifndef IVRA_TEXT_JSON_H
#define IVRA_TEXT_JSON_H

#include <rapidjson/document.h>

#include <optional>
#include <string>

/// Looking into JSON that others made: what is missing, or is of another kind than it should be, is just not there.
namespace ivra::bsp {

using json_t = rapidjson::Value;

/// A member of an object; null where there is none.
const json_t& get_member(const json_t& object, const char* member);

/// The elements of a list; none where there is no such member.
template <class Visit>
void for_each(const json_t& object, const char* member, Visit visit)
{
    if (const json_t& list = get_member(object, member); list.IsArray())
        for (const json_t& element : list.GetArray())
            visit(element);
}

/// A text of an object; empty where there is none.
std::string get_text(const json_t& object, const char* member);
std::optional<double> get_number(const json_t& object, const char* member);
/// A number that counts something, as a text; empty where there is none.
std::string get_count(const json_t& object, const char* member);

} // namespace ivra::bsp

#endif
