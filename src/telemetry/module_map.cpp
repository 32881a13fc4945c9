#include "telemetry/module_map.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <iterator>
#include <string_view>
#include <utility>

namespace ivra::bsp::telemetry {

namespace {

struct identifier_row_t
{
    std::uint8_t value;
    std::string_view name;
    const module_map_t* map = nullptr;
};

// clang-format off
constexpr identifier_row_t identifiers[] = { // SFF-8024, table 4-1
    {0x01, "GBIC",                              &sff_8472},
    {0x02, "soldered module",                   &sff_8472},
    {0x03, "SFP/SFP+/SFP28",                    &sff_8472},
    {0x04, "300-pin XBI"},
    {0x05, "XENPAK"},
    {0x06, "XFP"},
    {0x07, "XFF"},
    {0x08, "XFP-E"},
    {0x09, "XPAK"},
    {0x0A, "X2"},
    {0x0B, "DWDM-SFP/SFP+"},                                // a map of its own
    {0x0C, "QSFP",                              &sff_8636},
    {0x0D, "QSFP+",                             &sff_8636},
    {0x0E, "CXP"},
    {0x0F, "Shielded Mini Multilane HD 4X"},
    {0x10, "Shielded Mini Multilane HD 8X"},
    {0x11, "QSFP28",                            &sff_8636},
    {0x12, "CXP2 (CXP28)"},
    {0x13, "CDFP style 1 or 2"},
    {0x14, "Shielded Mini Multilane HD 4X fanout cable"},
    {0x15, "Shielded Mini Multilane HD 8X fanout cable"},
    {0x16, "CDFP style 3"},
    {0x17, "microQSFP"},
    {0x18, "QSFP-DD",                           &cmis},
    {0x19, "OSFP",                              &cmis},
    {0x1A, "SFP-DD"},                                       // a map of its own
    {0x1B, "DSFP"},                                         // a map of its own
    {0x1C, "MiniLink/OCuLink x4"},
    {0x1D, "MiniLink x8"},
    {0x1E, "QSFP with CMIS",                    &cmis},
    {0x1F, "SFP-DD with CMIS",                  &cmis},
    {0x20, "SFP with CMIS",                     &cmis},
    {0x21, "OSFP-XD",                           &cmis},
    {0x22, "ELSFP",                             &cmis},
    {0x23, "CDFP x4",                           &cmis},
    {0x24, "CDFP x8",                           &cmis},
    {0x25, "CDFP x16",                          &cmis},
};
// clang-format on

const identifier_row_t* find_identifier(std::uint8_t identifier)
{
    const auto* row =
        std::ranges::find_if(identifiers, [&](const identifier_row_t& r) { return r.value == identifier; });
    return row == std::end(identifiers) ? nullptr : row;
}

double raw_number(const scale_t& scale, std::uint8_t high, std::uint8_t low)
{
    const int number = high << 8 | low;
    return scale.is_signed && number > 0x7fff ? number - 0x10000 : number;
}

/// In base units; nothing for what a number of the standard cannot say.
std::optional<double> value_of(const scale_t& scale, const polynomial_t& calibration, double raw)
{
    double steps = 0;
    for (auto factor = calibration.rbegin(); factor != calibration.rend(); ++factor)
        steps = steps * raw + *factor;
    const double least = scale.is_signed ? -0x8000 : 0;
    const double most = scale.is_signed ? 0x7fff : 0xffff;
    if (!(steps >= least && steps <= most))
        return std::nullopt;
    return (steps + 0.0) / scale.steps; // never a negative zero
}

std::string text_of(std::optional<double> value)
{
    char digits[32];
    const auto end =
        std::to_chars(std::begin(digits), std::end(digits), value.value_or(0), std::chars_format::general).ptr;
    return {std::begin(digits), end};
}

/// Both limits of a kind, as a module gives them.
struct limit_pair_t
{
    const char* name;
    limit_t low, high;
    std::size_t first; ///< of its four bytes: the high one, then the low one
};
constexpr limit_pair_t alarms{"alarm", limit_t::lower_critical, limit_t::upper_critical, 0};
constexpr limit_pair_t warnings{"warning", limit_t::lower_non_critical, limit_t::upper_non_critical, 4};

class limits_decoder
{
public:
    limits_decoder(reading_t& reading, const monitor_t& monitor, const polynomial_t& calibration,
                   const std::vector<std::uint8_t>& bytes)
        : reading_{reading}, scale_{monitor.scale}, calibration_{calibration}, bytes_{bytes}
    {
    }

    void decode()
    {
        decode(alarms);
        decode(warnings);
        const auto& limits = std::as_const(reading_.limits);
        const auto is_outside = [&](limit_t warning, limit_t alarm, bool is_high) {
            return limits[warning] && limits[alarm] &&
                   (is_high ? *limits[warning] > *limits[alarm] : *limits[warning] < *limits[alarm]);
        };
        if (is_outside(warnings.low, alarms.low, false))
            drop(warnings,
                 "low " + text_of(limits[warnings.low]) + " is below that of alarms, " + text_of(limits[alarms.low]));
        else if (is_outside(warnings.high, alarms.high, true))
            drop(warnings, "high " + text_of(limits[warnings.high]) + " is above that of alarms, " +
                               text_of(limits[alarms.high]));
    }

private:
    double raw(std::size_t first) const { return raw_number(scale_, bytes_[first], bytes_[first + 1]); }

    void drop(const limit_pair_t& pair, const std::string& why)
    {
        reading_.findings.push_back(std::string{"The module's "} + pair.name + " limits are not used: " + why);
        reading_.limits[pair.low].reset();
        reading_.limits[pair.high].reset();
    }

    void decode(const limit_pair_t& pair)
    {
        const double ones = scale_.is_signed ? -1 : 0xffff;
        const double high = raw(pair.first);
        const double low = raw(pair.first + 2);
        if (high == low && (high == 0 || high == ones))
            return;                                             // not given
        const bool has_high = scale_.is_signed || high != ones; // all ones: there is none
        if (!has_high && low == 0)
            return;
        const auto upper = value_of(scale_, calibration_, high);
        const auto lower = value_of(scale_, calibration_, low);
        if ((has_high && !upper) || !lower)
            return drop(pair, "their calibration leads out of range");
        reading_.limits[pair.low] = lower;
        if (has_high)
            reading_.limits[pair.high] = upper;
        if (has_high && *lower >= *upper)
            drop(pair, "low " + text_of(lower) + " is not below high " + text_of(upper));
    }

    reading_t& reading_;
    const scale_t& scale_;
    const polynomial_t& calibration_;
    const std::vector<std::uint8_t>& bytes_;
};

std::string trimmed(std::string text)
{
    text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

bool is_filling(const std::vector<std::uint8_t>& bytes, std::uint8_t value)
{
    return std::ranges::count(bytes, value) == std::ssize(bytes);
}

} // namespace

std::string_view get_identifier_name(std::uint8_t identifier)
{
    const identifier_row_t* row = find_identifier(identifier);
    return row == nullptr ? std::string_view{} : row->name;
}

const module_map_t* find_module_map(std::uint8_t identifier)
{
    const identifier_row_t* row = find_identifier(identifier);
    return row == nullptr ? nullptr : row->map;
}

reading_t without_value(const monitor_t& monitor, state_t state, const std::string& error)
{
    reading_t reading;
    reading.name = monitor.name;
    reading.quantity = monitor.scale.quantity;
    reading.state = state;
    reading.error = error;
    reading.limits.authority = authority_t::module;
    return reading;
}

reading_t decode_monitor(const memory_t& memory, const monitor_t& monitor, std::size_t where,
                         const polynomial_t& calibration)
{
    reading_t reading = without_value(monitor, state_t::unsupported);
    if (!std::ranges::all_of(calibration, [](double factor) { return std::isfinite(factor); }) ||
        std::all_of(calibration.begin() + 1, calibration.end(), [](double factor) { return factor == 0; })) {
        reading.findings.emplace_back("The module's constants for its calibration make no sense");
        return reading;
    }
    const found_t found = find(memory, number_of(monitor.values, where));
    if (!found)
        return without_value(monitor, found.error.empty() ? state_t::unsupported : state_t::failed, found.error);
    if (const found_t limits = find(memory, monitor.limits))
        limits_decoder{reading, monitor, calibration, limits.bytes}.decode();
    reading.value = value_of(monitor.scale, calibration, raw_number(monitor.scale, found.bytes[0], found.bytes[1]));
    reading.state = reading.value ? state_t::ok : state_t::unavailable;
    if (!reading.value)
        reading.findings.emplace_back("Its calibration leads out of range");
    return reading;
}

void make_unavailable(reading_t& reading)
{
    if (reading.state != state_t::ok)
        return;
    reading.state = state_t::unavailable;
    reading.value.reset();
}

void check_measured(const memory_t& memory, const monitor_t& temperature, const monitor_t& voltage, module_t& module)
{
    const std::vector<std::uint8_t> zero{0, 0};
    if (find(memory, temperature.values).bytes == zero && find(memory, voltage.values).bytes == zero)
        std::ranges::for_each(module.monitors, make_unavailable);
}

void drop_limits(reading_t& reading)
{
    reading.limits.values = {};
}

void drop_low_limits(reading_t& reading)
{
    reading.limits[alarms.low].reset();
    reading.limits[warnings.low].reset();
}

std::optional<std::string> decode_text(const memory_t& memory, const place_t& place)
{
    const found_t found = find(memory, place);
    const std::string text = trimmed({found.bytes.begin(), found.bytes.end()});
    return text.empty() || is_filling(found.bytes, 0xff) ? std::nullopt : std::optional{text};
}

std::optional<std::string> decode_oui(const memory_t& memory, const place_t& place)
{
    const found_t found = find(memory, place);
    if (!found || is_filling(found.bytes, 0) || is_filling(found.bytes, 0xff))
        return std::nullopt;
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (const unsigned byte : found.bytes) {
        text += text.empty() ? "" : "-";
        text += digits[byte >> 4];
        text += digits[byte & 0xf];
    }
    return text;
}

std::optional<std::string> decode_date(const std::string& date_code)
{
    constexpr std::size_t length = 6; // YYMMDD
    if (date_code.size() < length ||
        !std::all_of(date_code.begin(), date_code.begin() + length, [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    const auto part = [&](std::size_t at) { return (date_code[at] - '0') * 10 + date_code[at + 1] - '0'; };
    const std::chrono::year_month_day date{std::chrono::year{2000 + part(0)},
                                           std::chrono::month{static_cast<unsigned>(part(2))},
                                           std::chrono::day{static_cast<unsigned>(part(4))}};
    if (!date.ok())
        return std::nullopt;
    return "20" + date_code.substr(0, 2) + '-' + date_code.substr(2, 2) + '-' + date_code.substr(4, 2);
}

void decode_identity(const memory_t& memory, const identity_t& places, module_t& module)
{
    module.vendor = decode_text(memory, places.vendor);
    module.vendor_oui = decode_oui(memory, places.oui);
    module.part_number = decode_text(memory, places.part_number);
    module.revision = decode_text(memory, places.revision);
    module.serial_number = decode_text(memory, places.serial_number);
    module.date_code = decode_text(memory, places.date_code);
    if (module.date_code)
        module.date = decode_date(*module.date_code);
}

} // namespace ivra::bsp::telemetry
