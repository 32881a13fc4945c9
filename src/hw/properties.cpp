#include "hw/properties.h"

#include <array>

namespace ivra::hw {
inline namespace v5 {

namespace {

using text_getter = int (*)(const ivra_hw_properties*, char*, std::size_t);

result<std::string> read_text(const ivra_hw_properties* handle, text_getter get)
{
    std::array<char, 1024> buffer{};
    if (get(handle, buffer.data(), buffer.size()) < 0)
        return last_error();
    buffer.back() = '\0';
    return std::string{buffer.data()};
}

} // namespace

result<std::uint32_t> properties::index() const
{
    std::uint32_t index = 0;
    if (ivra_hw_prop_get_index(handle_, &index) < 0)
        return last_error();
    return index;
}

result<std::string> properties::name() const
{
    return read_text(handle_, &ivra_hw_prop_get_name);
}

result<std::string> properties::uid() const
{
    return read_text(handle_, &ivra_hw_prop_get_uid);
}

} // namespace v5
} // namespace ivra::hw
