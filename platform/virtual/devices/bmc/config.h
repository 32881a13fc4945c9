#ifndef IVRA_VIRTUAL_DEVICES_BMC_CONFIG_H
#define IVRA_VIRTUAL_DEVICES_BMC_CONFIG_H

#include "devices/bmc/sensor.h"
#include "json/describe.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ivra::virtual_platform {

using json::codec::duration_t;

/// A code of the protocol and how a rack spells it.
using code_name_t = json::codec::name_t<std::uint8_t>;

// As the board's OEM commands have them.
inline constexpr code_name_t boot_images[] = {{"none", 4}, {"primary", 0}, {"backup", 1}};
inline constexpr code_name_t configurations[] = {{"none", 0}, {"primary", 1}, {"backup", 2}};

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
    std::uint8_t boot_image = 0;         ///< as the OEM command says it, at the start
    std::uint64_t boot_image_change = 0; ///< tells it from what it was before: what the host chose then is gone
    std::uint8_t configured_from = 1;    ///< as the OEM command says it
    std::size_t depth = 16;              ///< bytes that the host's FIFO holds
    std::vector<std::size_t> pieces;     ///< how many bytes of an answer successive reads give; then as they come
    bmc_fru_t fru;
    std::vector<bmc_sensor_t> sensors;
    std::vector<bmc_answer_t> answers;

    bool operator==(const bmc_t&) const = default;
};

inline constexpr std::size_t most_bmc_answers = 64;

/// The bytes of the FRU image, checksums included.
std::string fru_image(const bmc_fru_t& fru);

extern template struct json::codec::record<bmc_sensor_t>;
extern template struct json::codec::record<bmc_t>;

inline constexpr json::codec::record<bmc_sensor_t> bmc_sensor_codec{
    R"(a sensor: { "name": "12V0", "unit": "V", "value": 12.03, "m": 63, "r_exp": -3 })"};

inline constexpr json::codec::record<bmc_t> bmc_codec{
    R"({ "boot_image": ..., "fru": ..., "sensors": ... } for a management controller behind a UART)"};

} // namespace ivra::virtual_platform

#endif
