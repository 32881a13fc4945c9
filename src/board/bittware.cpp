#include "board/bittware.h"

#include <ivra/log.h>

#include <array>
#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace ivra::bsp::board {

namespace {

struct boot_image_row_t
{
    boot_image_t image;
    bmc::bittware::boot_image_t of_bmc; ///< the same image as the BMC calls it
    std::uint8_t config_status;         ///< what the BMC says of an FPGA that was configured from it
};

constexpr boot_image_row_t boot_images[] = {
    {boot_image_t::none, bmc::bittware::boot_image_t::none, 0},
    {boot_image_t::primary, bmc::bittware::boot_image_t::primary, 1},
    {boot_image_t::backup, bmc::bittware::boot_image_t::backup, 2},
};

/// The row of the boot image table whose `member` has this value. Throws std::out_of_range when none has.
template <class Member>
const boot_image_row_t& find(Member boot_image_row_t::*member, Member value)
{
    for (const boot_image_row_t& row : boot_images)
        if (row.*member == value)
            return row;
    throw std::out_of_range{"Unknown boot image"};
}

constexpr std::uint8_t mac_eeprom_bus = 0;
constexpr std::uint8_t mac_eeprom_multiplexer = 0x72; // where there is one
constexpr std::uint8_t mac_eeprom_address = 0x50;
constexpr unsigned mac_block_size = 8; // addresses, of which the EEPROM holds the first
constexpr std::string_view mac_record_field = "MAC=";
constexpr std::size_t mac_record_size = mac_record_field.size() + std::string_view{"00:11:22:33:44:55"}.size();

} // namespace

brought_up_t<bmc::bittware::bmc> bittware::get_bmc(const hw::core& uart_core)
{
    try {
        return {.controller = bmc::bittware::bmc{uart_core}, .failure = {}};
    } catch (const std::system_error& error) {
        // Deliberate: file and line are fixed, so that this line is the same in every version's log.
        ivra_log_log(IVRA_LOG_WARNING, "src/board/bittware", 57, "get_bmc",
                     "Could not initialize Bittware BMC subsystem: %s", error.what());
        return {.controller = std::nullopt, .failure = error.what()};
    }
}

v6::mac_address decode_eeprom_mac(std::span<const std::uint8_t> record)
{
    if (record.size() != mac_record_size)
        throw std::runtime_error{"Not enough byte read from MAC EEPROM"};
    const std::string text{record.begin(), record.end()};
    if (!text.starts_with(mac_record_field))
        throw unexpected_field{"Unexpected field read from MAC EEPROM: " + text};
    return v6::mac_address{text.substr(mac_record_field.size())};
}

v6::mac_address bittware::read_eeprom_mac(v6::i2c::bus& bus)
{
    std::array<std::uint8_t, mac_record_size> record{};
    const std::size_t count = bus.read_register(mac_eeprom_address, 0, record.data(), record.size())
                                  .access_value_or_throw("Cannot read MAC EEPROM");
    // A count of more than was asked for cannot be believed, so no byte of it is.
    return decode_eeprom_mac(std::span{record}.first(count <= record.size() ? count : 0));
}

std::optional<mac_addresses_t> bittware::get_vendor_mac_addresses()
{
    if (!i2c)
        return std::nullopt;
    mutex guard = make_i2c_mutex(*i2c);
    return locked(guard, [this] {
        enable_i2c(*i2c);
        auto found = i2c->get_bus(mac_eeprom_bus);
        v6::i2c::bus& bus = found.access_value_or_throw(cannot_get_i2c_bus);
        if (eeprom_channel_)
            select_channels(bus, mac_eeprom_multiplexer, *eeprom_channel_);
        return mac_addresses_t{read_eeprom_mac(bus), mac_block_size};
    });
}

bmc::bittware::bmc& bittware::get_bmc_or_throw()
{
    // Deliberate: one sentence for everything that needs the BMC, spelt like this.
    if (!bmc_.controller)
        throw std::runtime_error{"Could not set/get boot image as Bittware BMC subsustem is not initialized."};
    return *bmc_.controller;
}

boot_image_t get_boot_image(bmc::bittware::ipmi_commands& commands)
{
    return find(&boot_image_row_t::of_bmc, commands.get_boot_image()).image;
}

boot_image_t get_current_boot_image(bmc::bittware::ipmi_commands& commands)
{
    return find(&boot_image_row_t::config_status, commands.get_fpga_config_status()).image;
}

void bittware::set_boot_image(boot_image_t image)
{
    get_bmc_or_throw().set_boot_image(find(&boot_image_row_t::image, image).of_bmc);
}

} // namespace ivra::bsp::board
