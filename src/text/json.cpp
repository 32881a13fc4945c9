#include "text/json.h"

namespace ivra::bsp {

const json_t& get_member(const json_t& object, const char* member)
{
    static const json_t null;
    if (!object.IsObject())
        return null;
    const auto found = object.FindMember(member);
    return found == object.MemberEnd() ? null : found->value;
}

std::string get_text(const json_t& object, const char* member)
{
    const json_t& value = get_member(object, member);
    return value.IsString() ? std::string{value.GetString(), value.GetStringLength()} : std::string{};
}

std::optional<double> get_number(const json_t& object, const char* member)
{
    const json_t& value = get_member(object, member);
    return value.IsNumber() ? std::optional{value.GetDouble()} : std::nullopt;
}

std::string get_count(const json_t& object, const char* member)
{
    const json_t& value = get_member(object, member);
    return value.IsUint() ? std::to_string(value.GetUint()) : std::string{};
}

} // namespace ivra::bsp
