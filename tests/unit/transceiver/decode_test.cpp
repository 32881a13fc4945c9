#include "transceiver/decode.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace ivra::bsp::transceiver {
namespace {

// The single-precision factors, as doubles.
constexpr double volts_or_milliwatts = 9.999999747378752e-05;
constexpr double milliamperes = 0.0020000000949949026;

template <class Expected>
void expect_all_raw_values(const field_t& field, Expected expected)
{
    for (int raw = 0; raw <= 0xFFFF; ++raw) {
        const std::array<std::uint8_t, 2> bytes{static_cast<std::uint8_t>(raw / 256),
                                                static_cast<std::uint8_t>(raw % 256)};
        ASSERT_EQ(decode(field, bytes), expected(raw)) << raw;
    }
}

TEST(scale, of_temperatures_is_a_signed_number_of_256ths)
{
    for (const field_t& field : {sff_8472::temperature, sff_8636::temperature, cmis::temperature})
        expect_all_raw_values(field, [](int raw) { return (raw < 0x8000 ? raw : raw - 0x10000) * 0.00390625; });
}

TEST(scale, of_voltages_and_powers_is_a_factor_of_single_precision)
{
    for (const field_t& field : {sff_8472::vcc, sff_8472::rx_power, sff_8472::tx_power, sff_8636::vcc,
                                 sff_8636::rx_power, cmis::vcc, cmis::rx_power, cmis::tx_power})
        expect_all_raw_values(field, [](int raw) { return raw * volts_or_milliwatts; });
}

TEST(scale, of_laser_biases_is_a_factor_of_single_precision)
{
    for (const field_t& field : {sff_8472::tx_bias, sff_8636::tx_bias, cmis::tx_bias})
        expect_all_raw_values(field, [](int raw) { return raw * milliamperes; });
}

TEST(scale, of_a_lanes_laser_bias_is_multiplied_and_rounded_to_single_precision)
{
    for (const int multiplier : {1, 2, 4}) {
        const double factor = static_cast<float>(multiplier * 0.002);
        for (int raw = 0; raw <= 0xFFFF; ++raw) {
            bytes_of<cmis::tx_bias> bytes{};
            bytes[14] = static_cast<std::uint8_t>(raw / 256);
            bytes[15] = static_cast<std::uint8_t>(raw % 256);
            ASSERT_EQ(cmis::decode_tx_bias(bytes, 7, static_cast<float>(multiplier)), raw * factor) << raw;
        }
    }
    bytes_of<cmis::tx_bias> bytes{1000 / 256, 1000 % 256};
    EXPECT_FLOAT_EQ(static_cast<float>(cmis::decode_tx_bias(bytes, 0, 4)), 8.0F);
}

TEST(scale, of_temperatures_has_the_sign_in_its_first_byte_only)
{
    EXPECT_EQ(decode(sff_8472::temperature, bytes_of<sff_8472::temperature>{0xFF, 0x80}), -0.5);
    EXPECT_EQ(decode(sff_8472::temperature, bytes_of<sff_8472::temperature>{0x80, 0x00}), -128.0);
    EXPECT_EQ(decode(sff_8472::temperature, bytes_of<sff_8472::temperature>{0x7F, 0xFF}), 127.99609375);
}

TEST(field, is_not_decoded_beyond_what_was_read)
{
    const std::array<std::uint8_t, 16> bytes{};
    EXPECT_THROW(decode(sff_8636::vcc, std::span{bytes}.first(1)), std::out_of_range);
    EXPECT_THROW(decode(sff_8636::vcc, bytes, 1), std::out_of_range) << "it is one number";
    EXPECT_THROW(decode(sff_8636::rx_power, sff_8636::channel_monitors, bytes, 4), std::out_of_range);
    EXPECT_THROW(decode(sff_8636::tx_bias, sff_8636::channel_monitors, std::span{bytes}.first(15), 3),
                 std::out_of_range);
    EXPECT_THROW(decode(sff_8636::vcc, sff_8636::channel_monitors, bytes), std::out_of_range) << "before the block";
}

std::string decoded_text(const std::string& bytes)
{
    return decode_text(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
}

TEST(text, ends_at_a_nul_or_before_the_spaces_at_its_end)
{
    EXPECT_EQ(decoded_text("SAMPLE CO       "), "SAMPLE CO");
    EXPECT_EQ(decoded_text("ABCDEFGHIJKLMNOP"), "ABCDEFGHIJKLMNOP") << "all 16 characters";
    EXPECT_EQ(decoded_text(std::string{"ABCD\0EFG        ", 16}), "ABCD");
    EXPECT_EQ(decoded_text(std::string{"AB  \0EFG        ", 16}), "AB");
    EXPECT_EQ(decoded_text(std::string(16, ' ')), "");
    EXPECT_EQ(decoded_text(std::string(16, '\0')), "");
    EXPECT_EQ(decoded_text("  AB\t            "), "  AB\t") << "spaces before it and other white space stay";
    EXPECT_EQ(decoded_text("\xFF\xFE"), "\xFF\xFE");
}

TEST(sfp, diagnostics_are_temperature_voltage_bias_and_both_powers)
{
    // 25.5 degrees; raw 33055, 3000, 5000 and 1
    const sfp::stats_t stats =
        sff_8472::decode_diagnostics({0x19, 0x80, 0x81, 0x1F, 0x0B, 0xB8, 0x13, 0x88, 0x00, 0x01});
    EXPECT_EQ(stats.temperature, 25.5);
    EXPECT_EQ(stats.vcc, 33055 * volts_or_milliwatts);
    EXPECT_EQ(stats.tx_bias, 3000 * milliamperes);
    EXPECT_EQ(stats.tx_power, 5000 * volts_or_milliwatts);
    EXPECT_EQ(stats.rx_power, 1 * volts_or_milliwatts);
}

TEST(qsfp, monitors_are_temperature_voltage_and_four_channels)
{
    const qsfp::stats_t stats = sff_8636::decode_monitors({0xF6, 0x40, 0xEE, 0xEE, 0x80, 0xE8},
                                                          {0, 1, 0, 2, 0, 3, 1, 0, 0, 10, 0, 20, 0, 30, 2, 0});
    EXPECT_EQ(stats.temperature, -9.75);
    EXPECT_EQ(stats.vcc, 33000 * volts_or_milliwatts) << "the two bytes before it do not count";
    const int rx[] = {1, 2, 3, 256};
    const int bias[] = {10, 20, 30, 512};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(stats.channels[i].rx_power, rx[i] * volts_or_milliwatts) << i;
        EXPECT_EQ(stats.channels[i].tx_bias, bias[i] * milliamperes) << i;
    }
}

/// The monitors that two bytes advertise, one letter each, and the multiplier.
std::string supported(std::uint8_t first, std::uint8_t second)
{
    const cmis::supported_monitors_t monitors = cmis::decode_supported_monitors({first, second});
    std::string text;
    text += monitors.temperature ? "t" : "";
    text += monitors.vcc ? "v" : "";
    text += monitors.tx_bias ? "b" : "";
    text += monitors.tx_power ? "p" : "";
    text += monitors.rx_power ? "r" : "";
    return text + std::to_string(static_cast<int>(monitors.bias_multiplier));
}

TEST(qsfp_dd, advertises_each_monitor_with_a_bit_of_its_own)
{
    EXPECT_EQ(supported(0x00, 0x00), "1");
    EXPECT_EQ(supported(0x01, 0x00), "t1");
    EXPECT_EQ(supported(0x02, 0x00), "v1");
    EXPECT_EQ(supported(0x00, 0x01), "b1");
    EXPECT_EQ(supported(0x00, 0x02), "p1");
    EXPECT_EQ(supported(0x00, 0x04), "r1");
    EXPECT_EQ(supported(0x03, 0x07), "tvbpr1");
    EXPECT_EQ(supported(0xFC, 0xE0), "1") << "other bits do not count";
}

TEST(qsfp_dd, has_a_bias_multiplier_of_1_2_4_or_again_1)
{
    EXPECT_EQ(supported(0, 0x00), "1");
    EXPECT_EQ(supported(0, 0x08), "2");
    EXPECT_EQ(supported(0, 0x10), "4");
    EXPECT_EQ(supported(0, 0x18), "1");
}

TEST(power_mode, of_a_qsfp_changes_two_bits_of_power_control)
{
    for (int old = 0; old <= 0xFF; ++old) {
        const auto control = static_cast<std::uint8_t>(old);
        EXPECT_EQ(sff_8636::with_power_mode(control, qsfp_power_mode_t::low), old / 4 * 4 + 3);
        EXPECT_EQ(sff_8636::with_power_mode(control, qsfp_power_mode_t::high), old / 4 * 4 + 1);
    }
    EXPECT_EQ(sff_8636::with_power_mode(0x04, qsfp_power_mode_t::low), 0x07);
    EXPECT_EQ(sff_8636::with_power_mode(0x04, qsfp_power_mode_t::high), 0x05);
}

TEST(power_mode, of_a_qsfp_dd_changes_two_bits_of_module_control)
{
    for (int old = 0; old <= 0xFF; ++old) {
        const auto control = static_cast<std::uint8_t>(old);
        EXPECT_EQ(cmis::with_power_mode(control, qsfp_power_mode_t::low), (old & 0xAF) + 0x10);
        EXPECT_EQ(cmis::with_power_mode(control, qsfp_power_mode_t::high), old & 0xAF);
    }
    EXPECT_EQ(cmis::with_power_mode(0x40, qsfp_power_mode_t::low), 0x10);
    EXPECT_EQ(cmis::with_power_mode(0x40, qsfp_power_mode_t::high), 0x00);
}

} // namespace
} // namespace ivra::bsp::transceiver
