#include "node.h"

#include "json/text.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace ivra::virtual_platform {

std::uint64_t read_number(const node_t& node)
{
    if (node.value.IsUint64())
        return node.value.GetUint64();
    const std::string_view text = node.patterned_text();
    if (text.starts_with("0x"))
        return parse_digits(text.substr(2), 16);

    struct unit_t
    {
        std::string_view name;
        unsigned shift;
    };
    static constexpr unit_t units[] = {{"KiB", 10}, {"MiB", 20}, {"GiB", 30}};
    const std::uint64_t value = parse_digits(text.substr(0, text.find_first_not_of("0123456789")), 10);
    for (const unit_t& unit : units)
        if (text.ends_with(unit.name))
            return value > (UINT64_MAX >> unit.shift) ? UINT64_MAX : value << unit.shift;
    return value;
}

std::optional<std::chrono::nanoseconds> read_duration(const node_t& node)
{
    const std::string_view text = node.patterned_text();
    if (text == "never")
        return std::nullopt;
    const std::size_t point = text.find('.');
    const std::size_t unit = text.find_first_not_of("0123456789.");
    std::int64_t scale = text.ends_with("ms") ? 1'000'000 : text.ends_with("us") ? 1'000 : 1'000'000'000;
    auto nanoseconds = static_cast<std::int64_t>(parse_digits(text.substr(0, std::min(point, unit)), 10)) * scale;
    for (std::size_t at = point; point != std::string_view::npos && ++at < unit;)
        nanoseconds += (text[at] - '0') * (scale /= 10);
    return std::chrono::nanoseconds{nanoseconds};
}

std::string read_text(const node_t& node)
{
    if (node.value.IsString())
        return std::string{node.text()};
    return read_hex(node.required("hex"));
}

std::string read_hex(const node_t& node)
{
    std::string bytes;
    for (std::string_view rest = node.patterned_text(); !rest.empty(); rest.remove_prefix(2))
        bytes += static_cast<char>(parse_digits(rest.substr(0, 2), 16));
    return bytes;
}

std::optional<std::string> read_name(const node_t& node)
{
    return node.value.IsNull() ? std::nullopt : std::optional{read_text(node)};
}

std::array<std::uint8_t, 6> read_mac_address(const node_t& node)
{
    std::array<std::uint8_t, 6> address{};
    for (std::size_t at = 0; at < address.size(); ++at)
        address.at(at) = static_cast<std::uint8_t>(parse_digits(node.patterned_text().substr(3 * at, 2), 16));
    return address;
}

mac_range_t read_mac_range(const node_t& node)
{
    const auto first = read_mac_address(node.required("first"));
    const node_t count = node.required("count");
    std::uint64_t number = 0;
    for (const std::uint8_t byte : first)
        number = number << 8U | byte;
    constexpr std::uint64_t end = std::uint64_t{1} << 48U;
    if (count.value.GetUint64() > end - number)
        count.expected("at most " + std::to_string(end - number) + ", as MAC addresses end at ff:ff:ff:ff:ff:ff");
    return {first, count.value.GetUint()};
}

} // namespace ivra::virtual_platform
