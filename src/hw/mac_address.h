#ifndef IVRA_HW_MAC_ADDRESS_H
#define IVRA_HW_MAC_ADDRESS_H

#include <ivra/mac_address.h>

#include <cstdint>
#include <iosfwd>
#include <string>

namespace ivra::v6 {

class mac_address
{
public:
    explicit mac_address(const ivra_mac_address& address) : address_{address} {}
    /// From text as "00:11:22:aa:bb:cc". Throws std::system_error.
    explicit mac_address(const std::string& text);
    /// From the 48-bit integer whose most significant byte comes first. Throws std::system_error.
    explicit mac_address(std::uint64_t value);

    std::uint64_t to_int() const;
    const ivra_mac_address& get() const { return address_; }

private:
    ivra_mac_address address_{};
};

/// Prints as "00:11:22:aa:bb:cc". Throws std::system_error, or std::logic_error when that is not how the platform
/// prints.
std::ostream& operator<<(std::ostream& stream, const mac_address& address);

} // namespace ivra::v6

#endif
