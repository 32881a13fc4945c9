#ifndef IVRA_VIRTUAL_RACK_BMC_H
#define IVRA_VIRTUAL_RACK_BMC_H

#include "xmc.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

/// A code of the protocol and how a rack spells it.
struct code_name_t
{
    std::string_view name;
    std::uint8_t code;
};

// Sources: IPMI 2.0 tables 43-1 (full sensor record) and 43-15 (units), and for the boot images the board's OEM
// commands.
inline constexpr code_name_t boot_images[] = {{"none", 4}, {"primary", 0}, {"backup", 1}};
inline constexpr code_name_t configurations[] = {{"none", 0}, {"primary", 1}, {"backup", 2}};
inline constexpr code_name_t sensor_units[] = {
    {"unspecified", 0}, {"degrees C", 1}, {"degrees F", 2}, {"K", 3},    {"V", 4},
    {"A", 5},           {"W", 6},         {"J", 7},         {"RPM", 18}, {"Hz", 19},
};
inline constexpr code_name_t sensor_formats[] = {
    {"unsigned", 0}, {"ones complement", 1}, {"twos complement", 2}, {"none", 3}};
inline constexpr code_name_t sensor_modifiers[] = {{"none", 0}, {"per", 1}, {"times", 2}, {"reserved", 3}};
inline constexpr code_name_t sensor_rates[] = {
    {"none", 0}, {"us", 1}, {"ms", 2}, {"s", 3}, {"min", 4}, {"h", 5}, {"day", 6}, {"reserved", 7},
};
inline constexpr code_name_t sensor_linearisations[] = {
    {"linear", 0}, {"ln", 1},  {"log10", 2}, {"log2", 3}, {"e", 4},     {"exp10", 5},
    {"exp2", 6},   {"1/x", 7}, {"sqr", 8},   {"cube", 9}, {"sqrt", 10}, {"cube root", 11},
};

/// The FRU image: a common header and a board area of these fields, in this order. The first of the five that is
/// nothing ends the list; `raw` takes the place of the whole image.
struct bmc_fru_t
{
    std::optional<std::string> manufacturer;
    std::optional<std::string> product;
    std::optional<std::string> serial;
    std::optional<std::string> part_number;
    std::optional<std::string> file_id;
    std::vector<std::string> extra; ///< fields after these
    std::optional<std::string> raw;

    bool operator==(const bmc_fru_t&) const = default;
};

/// A sensor: its full sensor record and its reading.
struct bmc_sensor_t
{
    std::string name;
    std::uint8_t number = 0;
    std::uint8_t unit = 0;
    std::uint8_t modifier = 0;
    std::uint8_t modifier_unit = 0;
    std::uint8_t rate = 0;
    bool percent = false;
    std::uint8_t format = 0;
    std::uint8_t linearisation = 0;
    int m = 1;
    int b = 0;
    int r_exp = 0;
    int b_exp = 0;
    bool available = true;
    std::optional<double> value;         ///< that the rack asks for; `raw` is the nearest to it
    std::uint8_t raw = 0;                ///< reading
    std::optional<std::uint16_t> next;   ///< record ID that is said to follow, instead of the true one
    std::optional<std::string> record;   ///< sent instead of the record that follows from the members above
    std::optional<std::string> response; ///< data of the response to Get Sensor Reading, instead of `raw`

    bool operator==(const bmc_sensor_t&) const = default;
};

/// What is different about the answers to certain requests.
struct bmc_answer_t
{
    std::string to;                                 ///< how they begin: network function, command, data
    std::optional<std::uint32_t> nth;               ///< only the nth of them, from 1, since the board's state began
    std::optional<duration_t> latency;              ///< instead of the BMC's
    std::optional<std::uint8_t> code;               ///< completion code instead of the true one
    std::optional<std::string> data;                ///< data after the completion code instead of the true ones
    std::string noise;                              ///< bytes before the frame
    std::optional<std::string> frame;               ///< sent as it is, instead of the frame
    std::vector<std::uint16_t> lose;                ///< bytes that get lost, counted from the first one sent, from 0
    std::optional<std::vector<std::size_t>> pieces; ///< instead of the BMC's

    bool operator==(const bmc_answer_t&) const = default;
};

/// The management controller of a board, behind its UART.
struct bmc_t
{
    duration_t latency = std::chrono::milliseconds{5}; ///< from the stop byte of a request to the answer
    bool silent = false;
    std::uint8_t boot_image = 0;      ///< as the OEM command says it, at the start
    std::uint8_t configured_from = 1; ///< as the OEM command says it
    std::size_t depth = 16;           ///< bytes that the host's FIFO holds
    std::vector<std::size_t> pieces;  ///< how many bytes of an answer successive reads give; then as they come
    bmc_fru_t fru;
    std::vector<bmc_sensor_t> sensors;
    std::vector<bmc_answer_t> answers;

    bool operator==(const bmc_t&) const = default;
};

inline constexpr std::size_t deepest_bmc_fifo = 64;
inline constexpr std::size_t largest_fru_field = 63;   ///< bytes: 6 bits of length
inline constexpr std::size_t largest_fru_area = 2040;  ///< bytes: 8 bits of length, in units of 8
inline constexpr std::size_t largest_sensor_name = 63; ///< bytes: 6 bits of length
inline constexpr std::size_t largest_bmc_text = 1024;  ///< bytes that a rack can put in the place of an answer
inline constexpr std::size_t most_bmc_answers = 64;

/// A board's BMC when its rack does not say; `position` is the board's in the rack.
bmc_t default_bmc(std::string_view model, std::size_t position);

/// The bytes of the FRU image, checksums included.
std::string fru_image(const bmc_fru_t& fru);

/// The bytes of a sensor's record, padded to 64; `id` is its record ID.
std::string sensor_record(const bmc_sensor_t& sensor, std::uint16_t id);

/// The data of the response to Get Sensor Reading.
std::string sensor_response(const bmc_sensor_t& sensor);

/// What a raw reading means by IPMI 2.0, chapter 36.3; may be infinite or no number.
double sensor_value(const bmc_sensor_t& sensor, std::uint8_t raw);

/// The raw reading whose meaning is nearest to `value`.
std::uint8_t nearest_raw(const bmc_sensor_t& sensor, double value);

/// "12.03", as reports have it.
std::string two_decimals(double value);

} // namespace ivra::virtual_platform

#endif
