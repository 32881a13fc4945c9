#include "board/board.h"

#include <string_view>

namespace ivra::bsp::board {

namespace {

template <class... Visitors>
struct overloaded : Visitors...
{
    using Visitors::operator()...;
};
template <class... Visitors>
overloaded(Visitors...) -> overloaded<Visitors...>;

// What a kind of boards may have.

template <class Kind>
concept has_sensors = requires(Kind kind)
{
    kind.get_sensors();
};

template <class Kind>
concept has_vendor_mac_addresses = requires(Kind kind)
{
    kind.get_vendor_mac_addresses();
};

template <class Kind>
concept has_cages = requires(Kind kind, transceiver::qsfp_power_mode_t mode, const cage_visitor_t& visitor)
{
    kind.get_transceivers_stats();
    kind.set_qsfp_power_mode(mode);
    kind.visit_cages(visitor);
};

template <class Kind>
concept has_transceiver_speeds = requires(Kind kind, const std::vector<transceiver_speed_t>& speeds)
{
    kind.set_transceiver_speeds(speeds);
};

template <class Kind>
concept has_boot_image = requires(Kind kind, boot_image_t image)
{
    kind.get_boot_image();
    kind.get_current_boot_image();
    kind.set_boot_image(image);
};

template <class Kind>
concept has_xmc = requires(Kind kind)
{
    kind.management.get_xmc();
    Kind::sensors;
};

template <class Kind>
concept has_bmc = requires(Kind kind)
{
    kind.get_bmc();
};

unsupported_feature only_on_bittware(const std::string& feature)
{
    return unsupported_feature{feature + " is only supported on Bittware boards"};
}

template <class Kind>
board_variant make(const hw::core& root)
{
    return Kind{root};
}

struct model_row_t
{
    std::string_view name;
    board_variant (*make)(const hw::core& root);
};

// clang-format off
constexpr model_row_t models[] = {
    {"ivra_fpb2",       &make<xupp3r>}, // Deliberate: the maker's own board is handled like an XUPP3R
    {"bittware_xupp3r", &make<xupp3r>},
    {"xilinx_u200",     &make<u200>},
    {"xilinx_u250",     &make<u200>},   // Deliberate: a U250 is handled like a U200
    {"bittware_xupvv8", &make<xupvv8>},
    {"xilinx_u50",      &make<u50>},
    {"xilinx_u55c",     &make<u55c>},
    {"m48e_emu_xcvu9p", &make<arista>},
    {"m48l_xcvu7p",     &make<arista>},
    {"m48lb_xcvu9p",    &make<arista>},
};
// clang-format on

} // namespace

board_variant get_board_variant(const hw::core& root)
{
    const std::string name = v6::hw_top::hw_top{root}.get_board_name().access_value_or_throw();
    for (const model_row_t& model : models)
        if (model.name == name)
            return model.make(root);
    throw std::runtime_error{"Unsupported board model: '" + name + "'"};
}

board::board(const hw::accelerator_descriptor& descriptor)
    : accelerator_{descriptor}, mmio_{accelerator_.enumerate_mmios().at(0)}, tree_{hw::enumerate_cores(mmio_)},
      root_{tree_.root()}, flash_{root_}, top_{root_}, variant_{get_board_variant(root_)}
{
}

std::vector<v6::mac_address> board::get_mac_addresses()
{
    auto addresses = top_.get_mac_addresses();
    if (!addresses.has_value())
        throw std::runtime_error{"Could not get available MAC addresses"};
    return addresses.value();
}

std::optional<mac_addresses_t> board::get_vendor_mac_addresses()
{
    return std::visit(overloaded{
                          [](has_vendor_mac_addresses auto& kind) { return kind.get_vendor_mac_addresses(); },
                          [](auto& kind) { return kind.get_mac_addresses(); },
                      },
                      variant_);
}

std::optional<std::string> board::get_serial()
{
    return std::visit([](auto& kind) { return kind.get_serial(); }, variant_);
}

sensors_t board::get_sensors()
{
    return std::visit(overloaded{
                          [](has_sensors auto& kind) { return kind.get_sensors(); },
                          [](auto&) { return sensors_t{}; },
                      },
                      variant_);
}

controller_access_t board::get_controller()
{
    return std::visit(overloaded{
                          []<has_xmc Kind>(Kind& kind) -> controller_access_t {
                              return xmc_access_t{.xmc = kind.management.get_xmc(), .sensors = Kind::sensors};
                          },
                          [](has_bmc auto& kind) -> controller_access_t { return bmc_access_t{.bmc = kind.get_bmc()}; },
                          [](auto&) -> controller_access_t { return std::monostate{}; },
                      },
                      variant_);
}

std::vector<std::optional<transceiver::transceiver_info_t>> board::get_transceivers()
{
    using report_t = std::vector<std::optional<transceiver::transceiver_info_t>>;
    return std::visit(overloaded{
                          [](has_cages auto& kind) { return kind.get_transceivers_stats(); },
                          [](auto& kind) -> report_t {
                              throw unsupported_feature{std::string{"Transceiver stats are unsupported for "} +
                                                        kind.family};
                          },
                      },
                      variant_);
}

void board::set_qsfp_power_mode(transceiver::qsfp_power_mode_t mode)
{
    std::visit(overloaded{
                   [mode](has_cages auto& kind) { kind.set_qsfp_power_mode(mode); },
                   [](auto& kind) {
                       throw unsupported_feature{std::string{"Setting QSFP power mode is unsupported for "} +
                                                 kind.family};
                   },
               },
               variant_);
}

void board::visit_cages(const cage_visitor_t& visitor)
{
    std::visit(overloaded{
                   [&visitor](has_cages auto& kind) { kind.visit_cages(visitor); },
                   [](auto& kind) {
                       throw unsupported_feature{std::string{"Visiting cages is unsupported for "} + kind.family};
                   },
               },
               variant_);
}

void board::set_transceiver_speeds(const std::vector<transceiver_speed_t>& speeds)
{
    std::visit(overloaded{
                   [&speeds](has_transceiver_speeds auto& kind) { kind.set_transceiver_speeds(speeds); },
                   [](auto&) {
                       throw unsupported_feature{"Setting transceiver speeds is only supported on Alveo U5x boards"};
                   },
               },
               variant_);
}

boot_image_t board::get_boot_image()
{
    return std::visit(overloaded{
                          [](has_boot_image auto& kind) { return kind.get_boot_image(); },
                          [](auto&) -> boot_image_t { throw only_on_bittware("Getting boot image"); },
                      },
                      variant_);
}

boot_image_t board::get_current_boot_image()
{
    return std::visit(overloaded{
                          [](has_boot_image auto& kind) { return kind.get_current_boot_image(); },
                          [](auto&) -> boot_image_t { throw only_on_bittware("Getting current boot image"); },
                      },
                      variant_);
}

void board::set_boot_image(boot_image_t image)
{
    std::visit(overloaded{
                   [image](has_boot_image auto& kind) { kind.set_boot_image(image); },
                   [](auto&) { throw only_on_bittware("Setting boot image"); },
               },
               variant_);
}

} // namespace ivra::bsp::board
