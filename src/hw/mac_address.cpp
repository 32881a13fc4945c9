#include "hw/mac_address.h"

#include "hw/result.h"

#include <array>
#include <ostream>
#include <stdexcept>
#include <system_error>

namespace ivra::v6 {

namespace {

void throw_if_failed(int platform_result)
{
    if (platform_result < 0)
        throw std::system_error{hw::last_error(), "mac_address::mac_address()"};
}

} // namespace

mac_address::mac_address(const std::string& text)
{
    throw_if_failed(ivra_parse_mac_address(text.c_str(), &address_));
}

mac_address::mac_address(std::uint64_t value)
{
    throw_if_failed(ivra_mac_address_from_int(value, &address_));
}

std::uint64_t mac_address::to_int() const
{
    return ivra_mac_address_to_int(&address_);
}

std::ostream& operator<<(std::ostream& stream, const mac_address& address)
{
    std::array<char, 18> buffer{};
    const int length = ivra_print_mac_address(&address.get(), buffer.data(), buffer.size());
    if (length < 0)
        throw std::system_error{hw::last_error(), "ivra_print_mac_address()"};
    if (static_cast<std::size_t>(length) >= buffer.size())
        throw std::logic_error{"Buffer too small for ivra_print_mac_address()"};
    return stream.write(buffer.data(), length);
}

} // namespace ivra::v6
