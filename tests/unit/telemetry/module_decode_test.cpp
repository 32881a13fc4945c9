#include "module_text.h"
#include "telemetry/module.h"
#include "telemetry/module_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

/// Bytes by their place: "20" in the lower page or A0h, "11:154" on page 11h, "A2:96".
using bytes_t = std::vector<std::pair<std::string, std::string>>;

std::vector<std::uint8_t> from_hex(const std::string& digits)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoi(digits.substr(at, 2), nullptr, 16)));
    return bytes;
}

/// The memory of a module: its lower page and whatever pages it has, or A0h and A2h.
class image_t
{
public:
    image_t(const bytes_t& bytes) { set(bytes); }

    image_t& set(const bytes_t& bytes)
    {
        for (const auto& [place, digits] : bytes) {
            const std::size_t colon = place.find(':');
            const std::string page = colon == std::string::npos ? "" : place.substr(0, colon);
            std::size_t byte = std::stoul(colon == std::string::npos ? place : place.substr(colon + 1));
            for (const std::uint8_t value : from_hex(digits))
                pages_[page].at(byte++) = value;
        }
        return *this;
    }

    image_t& remove(const std::string& page)
    {
        pages_.erase(page);
        return *this;
    }

    /// All bytes of a page, or of the lower page and A0h.
    image_t& fill(const std::string& page, std::uint8_t value)
    {
        pages_[page].fill(value);
        return *this;
    }

    std::uint8_t byte(const std::string& page, std::size_t at) const { return pages_.at(page).at(at); }

    block_t read(const place_t& place, bool has_pages) const
    {
        std::string page = place.device == diagnostics_memory ? "A2" : "";
        if (place.device == main_memory && place.byte >= first_of_page) {
            const char* digits = "0123456789abcdef";
            page = has_pages ? std::string{digits[place.page / 16], digits[place.page % 16]} : "00";
        }
        const auto found = pages_.find(page);
        if (found == pages_.end())
            return {place, {}, page == "A2" ? "no answer" : ""};
        const auto* const first = found->second.begin() + place.byte;
        return {place, {first, first + place.length}, {}};
    }

    memory_t read() const
    {
        const module_map_t& map = *find_module_map(byte("", 0));
        memory_t memory;
        std::size_t known = 0;
        do {
            known = memory.size();
            for (const place_t& place : map.get_places(memory))
                if (std::none_of(memory.begin(), memory.end(), [&](const block_t& b) { return b.place == place; }))
                    memory.push_back(read(place, map.has_pages(memory)));
        } while (memory.size() != known);
        return memory;
    }

    module_t decode() const { return decode_module(byte("", 0), read()); }

    /// With these places not to be read.
    module_t decode_without(const std::vector<place_t>& lost) const
    {
        memory_t memory = read();
        for (block_t& block : memory)
            for (const place_t& place : lost)
                if (block.place.device == place.device && block.place.byte == place.byte &&
                    (place.byte < first_of_page || block.place.page == place.page)) {
                    block.bytes.clear();
                    block.error = "lost";
                }
        return decode_module(byte("", 0), memory);
    }

private:
    std::map<std::string, std::array<std::uint8_t, 256>> pages_;
};

/// What a module says when some of its bytes are others.
struct row_t
{
    const char* why;
    bytes_t bytes;
    std::string expected;
};

template <std::size_t count>
void expect(const image_t& image, const row_t (&rows)[count])
{
    for (const row_t& row : rows)
        EXPECT_EQ(measurements_of(image_t{image}.set(row.bytes).decode()), row.expected) << row.why;
}

// ---- what all have in common ----

const std::string name_field = "53414d504c4520434f20202020202020"; // "SAMPLE CO"

/// Limits of temperature (75, -5, 70, 0), voltage (3.63, 2.97, 3.465, 3.135), bias (12, 1, 11, 2 mA), transmitted power
/// (1.2589, 0.1862, 1, 0.2344 mW) and received power (1.2589, 0.0631, 0.7943, 0.1 mW).
const std::string temperature_limits = "4b00fb0046000000";
const std::string voltage_limits = "8dcc7404875a7a76";
const std::string bias_limits = "177001f4157c03e8";
const std::string tx_limits = "312d074627100928";
const std::string rx_limits = "312d02771f0703e8";

const std::string temperature_line = "temperature 25.5 [-5 0 70 75]\n";
const std::string voltage_line = "voltage 3.3 [2.97 3.135 3.465 3.63]\n";
const std::string monitor_lines = temperature_line + voltage_line;
const std::string rx_limits_text = " [6.31e-05 0.0001 0.0007943 0.0012589]\n";
const std::string tx_limits_text = " [0.0001862 0.0002344 0.001 0.0012589]\n";
const std::string bias_limits_text = " [0.001 0.002 0.011 0.012]\n";

const image_t sfp{{{"0", "03"},
                   {"20", name_field},
                   {"37", "001b2c"},
                   {"40", "532d3120202020202020202020202020"},
                   {"56", "41202020"},
                   {"68", "53313233342020202020202020202020"},
                   {"84", "3235303431382020"},
                   {"92", "68f008"},
                   {"A2:0", temperature_limits + voltage_limits + bias_limits + tx_limits + rx_limits},
                   // 25.5 degrees, 3.3 V, 6 mA, 0.5 mW, 0.4 mW
                   {"A2:96", "198080e80bb813880fa0"}}};
const std::string sfp_lane = "lane 1\nrx power 0.0004" + rx_limits_text + "tx power 0.0005" + tx_limits_text +
                             "tx bias 0.006" + bias_limits_text;

const image_t qsfp{{{"0", "110802"},
                    {"22", "1980000080e8"},
                    {"34", "0fa01388"
                           "00000001"}, // 0.4 mW, 0.5 mW, 0, 0.1 uW
                    {"42", "0bb80bb80bb80bb8"},
                    {"50", "1388138813881388"},
                    {"93", "01"},
                    {"00:128", "11"},
                    {"00:148", name_field},
                    {"00:165", "001b2c"},
                    {"00:168", "512d3120202020202020202020202020"},
                    {"00:184", "4142"},
                    {"00:196", "51313233342020202020202020202020"},
                    {"00:212", "3234303232394c37"},
                    {"00:220", "0c"},
                    {"03:128", temperature_limits},
                    {"03:144", voltage_limits},
                    {"03:176", rx_limits + bias_limits + tx_limits}}};

std::string lane(int number, const std::string& rx, const std::string& off = "", bool has_low_limits = true)
{
    return "lane " + std::to_string(number) + off + "\nrx power " + rx + rx_limits_text + "tx power 0.0005" +
           (has_low_limits ? tx_limits_text : " [- - 0.001 0.0012589]\n") + "tx bias 0.006" +
           (has_low_limits ? bias_limits_text : " [- - 0.011 0.012]\n");
}
const std::string qsfp_lanes = lane(1, "0.0004") + lane(2, "0.0005") + lane(3, "0") + lane(4, "1e-07");

const image_t qsfp_dd{{{"0", "18400007"}, // 4.0, ready
                       {"14", "198080e8"},
                       {"00:128", "18"},
                       {"00:129", name_field},
                       {"00:145", "001b2c"},
                       {"00:148", "442d3120202020202020202020202020"},
                       {"00:164", "4220"},
                       {"00:166", "44313233342020202020202020202020"},
                       {"00:182", "3235303632300000"},
                       {"00:210", "f0"}, // four lanes
                       {"01:159", "0307"},
                       {"02:128", temperature_limits + voltage_limits},
                       {"02:176", tx_limits + bias_limits + rx_limits},
                       {"10:130", "00"},
                       {"11:128", "44440000"},
                       {"11:154", "1388138813881388"},
                       {"11:170", "0bb80bb80bb80bb8"},
                       {"11:186", "0fa0138800000001"}}};
const std::string qsfp_dd_lanes = qsfp_lanes;

TEST(module_decoder, has_a_map_and_a_name_for_an_identifier)
{
    const struct
    {
        int identifier;
        const module_map_t* map;
        const char* name;
    } rows[] = {{0x00, nullptr, ""},
                {0x01, &sff_8472, "GBIC"},
                {0x02, &sff_8472, "soldered module"},
                {0x03, &sff_8472, "SFP/SFP+/SFP28"},
                {0x0b, nullptr, "DWDM-SFP/SFP+"},
                {0x0c, &sff_8636, "QSFP"},
                {0x0d, &sff_8636, "QSFP+"},
                {0x11, &sff_8636, "QSFP28"},
                {0x18, &cmis, "QSFP-DD"},
                {0x19, &cmis, "OSFP"},
                {0x1a, nullptr, "SFP-DD"},
                {0x1b, nullptr, "DSFP"},
                {0x1e, &cmis, "QSFP with CMIS"},
                {0x25, &cmis, "CDFP x16"},
                {0x26, nullptr, ""},
                {0x7a, nullptr, ""},
                {0xff, nullptr, ""}};
    for (const auto& row : rows) {
        EXPECT_EQ(find_module_map(static_cast<std::uint8_t>(row.identifier)), row.map) << row.identifier;
        EXPECT_EQ(get_identifier_name(static_cast<std::uint8_t>(row.identifier)), row.name) << row.identifier;
    }
}

TEST(module_decoder, takes_a_module_without_a_map_for_unsupported)
{
    for (const int identifier : {0x00, 0x0b, 0x1a, 0x1b, 0x7a, 0x80}) {
        const module_t module = decode_module(static_cast<std::uint8_t>(identifier), {});
        EXPECT_EQ(measurements_of(module), "unsupported\n");
        EXPECT_EQ(module.identifier, identifier);
        EXPECT_EQ(identity_of(module), "-|-|-|-|-|-|-");
    }
}

TEST(module_decoder, tells_which_module_it_is)
{
    EXPECT_EQ(identity_of(sfp.decode()), "SAMPLE CO|00-1B-2C|S-1|A|S1234|250418|2025-04-18");
    EXPECT_EQ(identity_of(qsfp.decode()), "SAMPLE CO|00-1B-2C|Q-1|AB|Q1234|240229L7|2024-02-29");
    EXPECT_EQ(identity_of(qsfp_dd.decode()), "SAMPLE CO|00-1B-2C|D-1|B|D1234|250620|2025-06-20");
}

TEST(module_decoder, gives_no_text_that_is_blank_erased_or_zeros)
{
    for (const char* byte : {"00", "20", "ff"}) {
        std::string field;
        for (int at = 0; at < 16; ++at)
            field += byte;
        const module_t module =
            image_t{sfp}
                .set({{"20", field}, {"37", std::string{byte} == "20" ? "000000" : field.substr(0, 6)}})
                .decode();
        EXPECT_EQ(identity_of(module), "-|-|S-1|A|S1234|250418|2025-04-18") << byte;
    }
}

TEST(module_decoder, keeps_a_text_up_to_its_first_nul_whatever_its_bytes)
{
    EXPECT_EQ(image_t{sfp}.set({{"20", "20c3bf1b5b00414220"}}).decode().vendor, " \xc3\xbf\x1b[");
}

TEST(module_decoder, has_a_date_only_where_the_date_code_is_one)
{
    const struct
    {
        const char* code;
        std::optional<std::string> date;
    } rows[] = {{"250418", "2025-04-18"}, {"00010100", "2000-01-01"}, {"991231AB", "2099-12-31"},
                {"240229", "2024-02-29"}, {"230229", std::nullopt},   {"251301", std::nullopt},
                {"250431", std::nullopt}, {"250400", std::nullopt},   {"25041", std::nullopt},
                {"2504 8", std::nullopt}, {"2504-1", std::nullopt},   {"", std::nullopt}};
    for (const auto& row : rows)
        EXPECT_EQ(decode_date(row.code), row.date) << row.code;
}

TEST(module_decoder, counts_temperatures_in_256ths_with_a_sign_in_one_number_of_16_bits)
{
    const struct
    {
        const char* raw;
        const char* expected;
    } rows[] = {
        {"1900", "temperature 25\n"},  {"0001", "temperature 0.00390625\n"}, {"ffff", "temperature -0.00390625\n"},
        {"d800", "temperature -40\n"}, {"8000", "temperature -128\n"},       {"7fff", "temperature 127.99609375\n"},
        {"0000", "temperature 0\n"}};
    for (const auto& row : rows)
        for (const image_t& image :
             {image_t{sfp}.set({{"A2:96", row.raw}, {"A2:0", "0000000000000000"}}),
              image_t{qsfp}.set({{"22", row.raw}, {"03:128", "0000000000000000"}, {"00:220", "3c"}}),
              image_t{qsfp_dd}.set({{"14", row.raw}, {"02:128", "0000000000000000"}})})
            EXPECT_EQ(text_of(image.decode().monitors.at(0)), row.expected) << row.raw;
}

TEST(module_decoder, counts_voltages_in_100_microvolts_powers_in_100_nanowatts_and_biases_in_2_microamperes)
{
    const module_t module = image_t{sfp}
                                .fill("A2", 0)
                                .set({{"A2:96", "0000ffff00010001fffe"}}) // 25.6 and 131.07 mA at other places
                                .decode();
    EXPECT_EQ(measurements_of(module), "temperature 0\nvoltage 6.5535\nlane 1\nrx power 0.0065534\n"
                                       "tx power 1e-07\ntx bias 2e-06\n");
}

TEST(module_decoder, gives_quantities_in_base_units)
{
    const module_t module = qsfp.decode();
    EXPECT_EQ(module.monitors.at(0).quantity, board::quantity_t::temperature);
    EXPECT_EQ(module.monitors.at(1).quantity, board::quantity_t::voltage);
    EXPECT_EQ(module.lanes.at(0).rx_power.quantity, board::quantity_t::optical_power);
    EXPECT_EQ(module.lanes.at(0).tx_power.quantity, board::quantity_t::optical_power);
    EXPECT_EQ(module.lanes.at(0).tx_bias.quantity, board::quantity_t::current);
    EXPECT_EQ(module.lanes.at(0).tx_bias.limits.authority, authority_t::module);
}

TEST(module_decoder, fails_a_module_that_is_pulled_after_its_identifier_was_read)
{
    for (const image_t& image : {sfp, qsfp, qsfp_dd}) {
        memory_t memory = image.read();
        for (block_t& block : memory)
            std::fill(block.bytes.begin(), block.bytes.end(), std::uint8_t{0xff});
        const module_t module = decode_module(image.byte("", 0), memory);
        EXPECT_EQ(identity_of(module), "-|-|-|-|-|-|-");
        EXPECT_EQ(measurements_of(module), "failed: Its memory reads as all ones\n"
                                           "temperature failed: Its memory reads as all ones\n"
                                           "voltage failed: Its memory reads as all ones\n");
    }
}

// ---- limits that make no sense ----

TEST(module_limits, that_make_no_sense_are_dropped)
{
    const std::string not_used = "! The module's ";
    const struct
    {
        const char* why;
        std::string bytes; ///< high alarm, low alarm, high warning, low warning
        std::string expected;
    } rows[] = {
        {"good", voltage_limits, " [2.97 3.135 3.465 3.63]\n"},
        {"all zeros are not given", "0000000000000000", "\n"},
        {"all ones are erased", "ffffffffffffffff", "\n"},
        {"no limit, said with all ones and zeros", "ffff0000ffff0000", "\n"},
        {"no high limit, and low ones", "ffff7404ffff7a76", " [2.97 3.135 - -]\n"},
        {"no warnings beside alarms", "8dcc740400000000", " [2.97 - - 3.63]\n"},
        {"no alarms beside warnings", "00000000875a7a76", " [- 3.135 3.465 -]\n"},
        {"a low limit of zero among others", "8dcc0000875a0000", " [0 0 3.465 3.63]\n"},
        {"the same alarms and warnings", "8dcc74048dcc7404", " [2.97 2.97 3.63 3.63]\n"},
        {"alarms the wrong way round", "74048dcc875a7a76",
         " [- 3.135 3.465 -]\n" + not_used + "alarm limits are not used: low 3.63 is not below high 2.97\n"},
        {"warnings the wrong way round", "8dcc74047a76875a",
         " [2.97 - - 3.63]\n" + not_used + "warning limits are not used: low 3.465 is not below high 3.135\n"},
        {"a high limit of zero", "00007404875a7a76",
         " [- 3.135 3.465 -]\n" + not_used + "alarm limits are not used: low 2.97 is not below high 0\n"},
        {"a low limit of all ones", "8dccffff875a7a76",
         " [- 3.135 3.465 -]\n" + not_used + "alarm limits are not used: low 6.5535 is not below high 3.63\n"},
        {"both alarms the same", "80e880e80000ffff",
         "\n" + not_used + "alarm limits are not used: low 3.3 is not below high 3.3\n" + not_used +
             "warning limits are not used: low 6.5535 is not below high 0\n"},
        {"a high warning above the alarm", "8dcc74048dcd7a76",
         " [2.97 - - 3.63]\n" + not_used + "warning limits are not used: high 3.6301 is above that of alarms, 3.63\n"},
        {"a low warning below the alarm", "8dcc7404875a7403",
         " [2.97 - - 3.63]\n" + not_used + "warning limits are not used: low 2.9699 is below that of alarms, 2.97\n"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(text_of(image_t{sfp}.set({{"A2:8", row.bytes}}).decode().monitors.at(1)),
                  "voltage 3.3" + row.expected)
            << row.why;
        EXPECT_EQ(text_of(image_t{qsfp}.set({{"03:144", row.bytes}}).decode().monitors.at(1)),
                  "voltage 3.3" + row.expected)
            << row.why;
        EXPECT_EQ(text_of(image_t{qsfp_dd}.set({{"02:136", row.bytes}}).decode().monitors.at(1)),
                  "voltage 3.3" + row.expected)
            << row.why;
    }
}

TEST(module_limits, of_temperature_have_a_sign_and_may_be_zero)
{
    const struct
    {
        const char* bytes;
        const char* expected;
    } rows[] = {{"4b00fb0046000000", "temperature 25.5 [-5 0 70 75]\n"},
                {"0000d800ff00ec00", "temperature 25.5 [-40 -20 -1 0]\n"},
                {"4b00ffff4600ffff", "temperature 25.5 [-0.00390625 -0.00390625 70 75]\n"},
                {"ffffffff46000000", "temperature 25.5 [- 0 70 -]\n"},
                {"ffffffffffffffff", "temperature 25.5\n"},
                {"4b00fb0000000000", "temperature 25.5 [-5 - - 75]\n"},
                {"7fff800046000000", "temperature 25.5 [-128 0 70 127.99609375]\n"}};
    for (const auto& row : rows)
        EXPECT_EQ(text_of(image_t{sfp}.set({{"A2:0", row.bytes}}).decode().monitors.at(0)), row.expected) << row.bytes;
}

TEST(module_limits, of_all_lanes_are_remarked_once)
{
    const std::string remark = "! The module's alarm limits are not used: low 0.012 is not below high 0.001\n";
    const std::string expected = measurements_of(image_t{qsfp}.set({{"03:184", "01f41770157c03e8"}}).decode());
    const std::size_t first = expected.find(remark);
    EXPECT_NE(first, std::string::npos);
    EXPECT_LT(first, expected.find("lane 2"));
    EXPECT_EQ(expected.find(remark, first + 1), std::string::npos);
}

// ---- SFF-8472 ----

TEST(sff_8472_decoder, gives_an_internally_calibrated_module)
{
    EXPECT_EQ(measurements_of(sfp.decode()), monitor_lines + sfp_lane);
}

TEST(sff_8472_decoder, treats_what_a_module_does_not_measure)
{
    const std::string nothing = "temperature unsupported\nvoltage unsupported\n";
    const std::string undefined =
        "! It does not say whether its diagnostics are calibrated internally or externally\n" + nothing;
    const row_t rows[] = {
        {"no diagnostics, whatever A2h answers", {{"92", "00"}}, nothing},
        {"no diagnostics, and a calibration", {{"92", "28"}}, nothing},
        {"neither internally nor externally calibrated", {{"92", "40"}}, undefined},
        {"both", {{"92", "70"}}, undefined},
        {"behind a change of address",
         {{"92", "64"}},
         "! Its diagnostics are only reached by a change of address, which is not done\n" + nothing},
        {"nothing measured yet",
         {{"A2:110", "01"}},
         "temperature unavailable [-5 0 70 75]\nvoltage unavailable [2.97 3.135 3.465 3.63]\n"
         "lane 1\nrx power unavailable" +
             rx_limits_text + "tx power unavailable" + tx_limits_text + "tx bias unavailable" + bias_limits_text},
        {"temperature and voltage both a zero",
         {{"A2:96", "00000000"}},
         "temperature unavailable [-5 0 70 75]\nvoltage unavailable [2.97 3.135 3.465 3.63]\n" + sfp_lane},
        {"a temperature of 0 degrees", {{"A2:96", "0000"}}, "temperature 0 [-5 0 70 75]\n" + voltage_line + sfp_lane},
        {"no light",
         {{"A2:104", "0000"}, {"A2:110", "02"}},
         monitor_lines + "lane 1\nrx power 0" + rx_limits_text + "tx power 0.0005" + tx_limits_text + "tx bias 0.006" +
             bias_limits_text},
    };
    expect(sfp, rows);
}

TEST(sff_8472_decoder, lets_a_transmitter_that_is_off_be_low)
{
    for (const char* status : {"80", "40", "c0"})
        EXPECT_EQ(measurements_of(image_t{sfp}.set({{"A2:100", "00000000"}, {"A2:110", status}}).decode()),
                  monitor_lines + "lane 1 off\nrx power 0.0004" + rx_limits_text +
                      "tx power 0\ntx bias 0 [- - 0.011 0.012]\n")
            << status;
}

TEST(sff_8472_decoder, fails_what_could_not_be_read)
{
    EXPECT_EQ(measurements_of(image_t{sfp}.remove("A2").decode()),
              "failed: no answer\ntemperature failed: no answer\nvoltage failed: no answer\nlane 1\n"
              "rx power failed: no answer\ntx power failed: no answer\ntx bias failed: no answer\n");
    EXPECT_EQ(measurements_of(image_t{sfp}.fill("A2", 0xff).decode()),
              "failed: Its memory reads as all ones\n"
              "temperature failed: Its memory reads as all ones\nvoltage failed: Its memory reads as all ones\nlane 1\n"
              "rx power failed: Its memory reads as all ones\ntx power failed: Its memory reads as all ones\n"
              "tx bias failed: Its memory reads as all ones\n");
    EXPECT_EQ(measurements_of(image_t{sfp}.fill("", 0xff).set({{"0", "03"}}).decode()),
              "failed: Its memory reads as all ones\n"
              "temperature failed: Its memory reads as all ones\nvoltage failed: Its memory reads as all ones\n");
    const module_t without_limits = sfp.decode_without({{diagnostics_memory, 0, 0, 40}});
    EXPECT_EQ(measurements_of(without_limits), "failed: lost\ntemperature 25.5\nvoltage 3.3\nlane 1\nrx power 0.0004\n"
                                               "tx power 0.0005\ntx bias 0.006\n");
    const module_t without_serial = sfp.decode_without({{main_memory, 0, 68, 27}});
    EXPECT_EQ(measurements_of(without_serial), "failed: lost\ntemperature failed: lost\nvoltage failed: lost\n");
    EXPECT_EQ(identity_of(without_serial), "SAMPLE CO|00-1B-2C|S-1|A|-|-|-");
}

/// Slopes of 1, offsets of 0, and received power as it is.
const std::string neutral_constants = "0000000000000000000000003f80000000000000"
                                      "0100000001000000"
                                      "0100000001000000";

TEST(sff_8472_decoder, calibrates_readings_and_limits)
{
    const image_t external = image_t{sfp}.set({{"92", "58"}, {"A2:56", neutral_constants}});
    const std::string as_if_internal = monitor_lines + sfp_lane;
    const row_t rows[] = {
        {"neutral constants", {}, as_if_internal},
        // (264/256 x 6400 - 2)/256; limits of 19200, -1280, 17920 and 0: 19798, -1322, 18478, -2
        {"temperature",
         {{"A2:96", "1900"}, {"A2:84", "0108fffe"}},
         "temperature 25.7734375 [-5.1640625 -0.0078125 72.1796875 77.3359375]\n" + voltage_line + sfp_lane},
        {"a negative temperature before its slope",
         {{"A2:96", "ff00"}, {"A2:84", "02000000"}, {"A2:0", "0000000000000000"}},
         "temperature -2\n" + voltage_line + sfp_lane},
        // half of 33000 and 4: 16504
        {"voltage",
         {{"A2:88", "00800004"}},
         temperature_line + "voltage 1.6504 [1.4854 1.5679 1.7329 1.8154]\n" + sfp_lane},
        {"bias",
         {{"A2:76", "0200fff6"}}, // 2 x 3000 - 10 steps of 2 uA
         monitor_lines + "lane 1\nrx power 0.0004" + rx_limits_text + "tx power 0.0005" + tx_limits_text +
             "tx bias 0.01198 [0.00198 0.00398 0.02198 0.02398]\n"},
        {"transmitted power",
         {{"A2:80", "01000064"}},
         monitor_lines + "lane 1\nrx power 0.0004" + rx_limits_text +
             "tx power 0.00051 [0.0001962 0.0002444 0.00101 0.0012689]\n" + "tx bias 0.006" + bias_limits_text},
    };
    expect(external, rows);
}

TEST(sff_8472_decoder, calibrates_received_power_by_a_polynomial)
{
    const image_t external =
        image_t{sfp}.set({{"92", "50"}, {"A2:56", neutral_constants}, {"A2:32", "0000000000000000"}});
    const struct
    {
        const char* why;
        const char* constants; ///< of x^4 first
        const char* raw;
        double expected;
    } rows[] = {
        // 1e-5 x 2000^2 + 0.9 x 2000 - 12, each in single precision
        {"the square", "00000000000000003727c5ac3f666666c1400000", "07d0", 1828e-7},
        {"the cube", "000000002f89705f000000000000000000000000", "2710", 250e-7}, // 2.5e-10 x 1e12
        {"the fourth power",
         "2a61e7e8000000000000000000000000"
         "00000000",
         "2710", 2006.6e-7}, // 2.0066e-13 x 1e16
    };
    for (const auto& row : rows) {
        const module_t module = image_t{external}.set({{"A2:56", row.constants}, {"A2:104", row.raw}}).decode();
        ASSERT_EQ(module.lanes.at(0).rx_power.state, state_t::ok) << row.why;
        EXPECT_NEAR(module.lanes.at(0).rx_power.value.value_or(0), row.expected, row.expected * 1e-4) << row.why;
    }
}

TEST(sff_8472_decoder, survives_constants_that_make_no_sense)
{
    const image_t external = image_t{sfp}.set({{"92", "58"}, {"A2:56", neutral_constants}});
    const std::string remark = "! The module's constants for its calibration make no sense\n";
    const std::string rest = "tx power 0.0005" + tx_limits_text + "tx bias 0.006" + bias_limits_text;
    const std::string no_rx_power = monitor_lines + "lane 1\nrx power unsupported\n" + remark + rest;
    const row_t rows[] = {
        {"not a number", {{"A2:56", "7fc00000"}}, no_rx_power},
        {"infinite", {{"A2:72", "ff800000"}}, no_rx_power},
        {"all zeros",
         {{"A2:68", "00000000"}, {"A2:76", "00000000"}},
         monitor_lines + "lane 1\nrx power unsupported\n" + remark + "tx power 0.0005" + tx_limits_text +
             "tx bias unsupported\n" + remark},
        {"a result below zero", // 4000 - 4001 steps; limits of 12589, 631, 7943 and 1000 less 4001
         {{"A2:72", "c57a1000"}},
         monitor_lines +
             "lane 1\nrx power unavailable\n"
             "! The module's alarm limits are not used: their calibration leads out of range\n"
             "! The module's warning limits are not used: their calibration leads out of range\n"
             "! Its calibration leads out of range\n" +
             rest},
        {"a result beyond 16 bits",
         {{"A2:68", "42800000"}}, // x 64
         monitor_lines +
             "lane 1\nrx power unavailable\n"
             "! The module's alarm limits are not used: their calibration leads out of range\n"
             "! The module's warning limits are not used: their calibration leads out of range\n"
             "! Its calibration leads out of range\n" +
             rest},
        {"limits that fall where readings rise", // 8000 - x
         {{"A2:68", "bf80000045fa0000"}, {"A2:32", "1f4000641770012c"}},
         monitor_lines +
             "lane 1\nrx power 0.0004\n"
             "! The module's alarm limits are not used: low 0.00079 is not below high 0\n"
             "! The module's warning limits are not used: low 0.00077 is not below high 0.0002\n" +
             rest},
    };
    expect(external, rows);
    EXPECT_EQ(measurements_of(external.decode_without({{diagnostics_memory, 0, 56, 36}})),
              "failed: lost\ntemperature failed: lost\nvoltage failed: lost\nlane 1\nrx power failed: lost\n"
              "tx power failed: lost\ntx bias failed: lost\n");
}

TEST(sff_8472_decoder, reads_no_flags)
{
    for (const char* type : {"68", "58"})
        for (const block_t& block : image_t{sfp}.set({{"92", type}}).read())
            EXPECT_TRUE(block.place.device == main_memory || block.place.byte + block.place.length <= 112);
}

// ---- SFF-8636 ----

TEST(sff_8636_decoder, gives_four_channels_with_transmitted_power)
{
    EXPECT_EQ(measurements_of(qsfp.decode()), monitor_lines + qsfp_lanes);
}

/// All four channels without transmitted power.
std::string lanes_without_tx_power()
{
    std::string lanes = qsfp_lanes;
    const std::string line = "tx power 0.0005" + tx_limits_text;
    for (std::size_t at = lanes.find(line); at != std::string::npos; at = lanes.find(line))
        lanes.replace(at, line.size(), "tx power unsupported\n");
    return lanes;
}

TEST(sff_8636_decoder, treats_what_a_module_does_not_measure)
{
    const std::string not_yet = "temperature unavailable [-5 0 70 75]\nvoltage unavailable [2.97 3.135 3.465 3.63]\n";
    const row_t rows[] = {
        {"no transmitted power", {{"00:220", "08"}}, monitor_lines + lanes_without_tx_power()},
        {"SFF-8436, where bit 2 is reserved", {{"0", "0d02"}}, monitor_lines + lanes_without_tx_power()},
        {"an unspecified revision", {{"0", "0c00"}}, monitor_lines + lanes_without_tx_power()},
        {"SFF-8636 from its first revision on", {{"0", "0d03"}}, monitor_lines + qsfp_lanes},
        {"a QSFP28 is never one of SFF-8436", {{"0", "1102"}}, monitor_lines + qsfp_lanes},
        {"channels that are not implemented", {{"113", "0a"}}, monitor_lines + lane(1, "0.0004") + lane(3, "0")},
        {"no channel", {{"113", "0f"}}, monitor_lines},
        {"copper", {{"00:147", "a0"}}, monitor_lines},
        {"active copper", {{"00:147", "f0"}}, monitor_lines},
        {"the last of the optical technologies", {{"00:147", "90"}}, monitor_lines + qsfp_lanes},
        {"temperature and voltage said to be measured, and zero",
         {{"00:220", "3c"}, {"22", "000000000000"}},
         not_yet + qsfp_lanes},
        {"said not to be measured, and zero",
         {{"22", "000000000000"}},
         "temperature unsupported\nvoltage unsupported\n" + qsfp_lanes},
        {"temperature said to be measured, and both zero",
         {{"00:220", "2c"}, {"22", "000000000000"}},
         "temperature unavailable [-5 0 70 75]\nvoltage unsupported\n" + qsfp_lanes},
        {"voltage said to be measured, and both zero",
         {{"00:220", "1c"}, {"22", "000000000000"}},
         "temperature unsupported\nvoltage unavailable [2.97 3.135 3.465 3.63]\n" + qsfp_lanes},
        {"said not to be measured, and yet there", {{"00:220", "0c"}}, monitor_lines + qsfp_lanes},
        {"zero in a revision that does not say", {{"1", "07"}, {"22", "000000000000"}}, not_yet + qsfp_lanes},
        {"a temperature of 0 degrees beside a voltage",
         {{"00:220", "3c"}, {"22", "0000"}},
         "temperature 0 [-5 0 70 75]\n" + voltage_line + qsfp_lanes},
    };
    expect(qsfp, rows);
}

TEST(sff_8636_decoder, has_nothing_while_its_data_are_not_ready)
{
    const module_t module = image_t{qsfp}.set({{"2", "01"}}).decode();
    for (const reading_t& reading : module.monitors)
        EXPECT_EQ(reading.state, state_t::unavailable);
    EXPECT_EQ(module.lanes.size(), 4U);
    for (const lane_t& each : module.lanes)
        for (const reading_t* reading : {&each.rx_power, &each.tx_power, &each.tx_bias}) {
            EXPECT_EQ(reading->state, state_t::unavailable);
            EXPECT_FALSE(reading->value);
        }
}

TEST(sff_8636_decoder, has_no_limits_without_page_03)
{
    std::string bare_lanes = qsfp_lanes;
    for (const std::string& limits : {rx_limits_text, tx_limits_text, bias_limits_text})
        for (std::size_t at = bare_lanes.find(limits); at != std::string::npos; at = bare_lanes.find(limits))
            bare_lanes.replace(at, limits.size(), "\n");
    const std::string bare = "temperature 25.5\nvoltage 3.3\n" + bare_lanes;

    EXPECT_EQ(measurements_of(image_t{qsfp}.set({{"2", "04"}}).decode()), bare) << "flat memory";
    EXPECT_EQ(measurements_of(image_t{qsfp}.remove("03").decode()), bare) << "a cable that claims pages";
    EXPECT_EQ(measurements_of(image_t{qsfp}.fill("03", 0xff).decode()), bare) << "an erased page";
    EXPECT_EQ(measurements_of(image_t{qsfp}.fill("03", 0).decode()), bare) << "an absent page";
    image_t again{qsfp};
    for (std::size_t at = 128; at < 256; ++at) {
        const char* digits = "0123456789abcdef";
        const std::uint8_t byte = qsfp.byte("00", at);
        again.set({{"03:" + std::to_string(at), {digits[byte / 16], digits[byte % 16]}}});
    }
    EXPECT_EQ(measurements_of(again.decode()), bare) << "page 00 again";
    EXPECT_EQ(measurements_of(qsfp.decode_without({{main_memory, 3, 128, 24}, {main_memory, 3, 176, 24}})),
              "failed: lost\n" + bare);
}

TEST(sff_8636_decoder, lets_a_transmitter_that_is_off_be_low)
{
    const std::string all_off = lane(1, "0.0004", " off", false) + lane(2, "0.0005", " off", false) +
                                lane(3, "0", " off", false) + lane(4, "1e-07", " off", false);
    const row_t rows[] = {
        {"two are disabled",
         {{"86", "0a"}},
         monitor_lines + lane(1, "0.0004") + lane(2, "0.0005", " off", false) + lane(3, "0") +
             lane(4, "1e-07", " off", false)},
        {"low power by software", {{"93", "03"}}, monitor_lines + all_off},
        {"low power that does not count", {{"93", "02"}}, monitor_lines + qsfp_lanes},
        {"high power by software", {{"93", "01"}}, monitor_lines + qsfp_lanes},
    };
    expect(qsfp, rows);
    // The pin may ask for low power where no transmitter has a bias. One that has none among others is dead.
    const auto transmitters = [](const bytes_t& bytes) {
        std::string off;
        for (const lane_t& each : image_t{qsfp}.set(bytes).decode().lanes)
            off += each.is_transmitter_off && !each.tx_bias.limits[limit_t::lower_critical] ? '-' : 'x';
        return off;
    };
    EXPECT_EQ(transmitters({{"93", "00"}, {"42", "0000000000000000"}}), "----");
    EXPECT_EQ(transmitters({{"93", "01"}, {"42", "0000000000000000"}}), "xxxx");
    EXPECT_EQ(transmitters({{"93", "00"}, {"42", "0000000000000bb8"}}), "xxxx");
}

TEST(sff_8636_decoder, fails_what_could_not_be_read_and_nothing_else)
{
    const module_t without_names = qsfp.decode_without({{main_memory, 0, 147, 39}});
    EXPECT_EQ(measurements_of(without_names), "failed: lost\n" + monitor_lines + qsfp_lanes);
    EXPECT_EQ(identity_of(without_names), "-|-|-|-|Q1234|240229L7|2024-02-29");
    EXPECT_EQ(measurements_of(qsfp.decode_without({{main_memory, 0, 22, 6}})),
              "failed: lost\ntemperature failed: lost\nvoltage failed: lost\n" + qsfp_lanes);
    EXPECT_EQ(measurements_of(qsfp.decode_without({{main_memory, 0, 113, 1}})), "failed: lost\n" + monitor_lines)
        << "nobody knows which channels there are";
    EXPECT_EQ(measurements_of(qsfp.decode_without({{main_memory, 0, 86, 8}})),
              "failed: lost\n" + monitor_lines + lane(1, "0.0004", " off", false) + lane(2, "0.0005", " off", false) +
                  lane(3, "0", " off", false) + lane(4, "1e-07", " off", false))
        << "nobody knows which transmitters are off";
    const module_t dead = image_t{qsfp}.fill("", 0xff).set({{"0", "11"}}).decode();
    EXPECT_EQ(measurements_of(dead).find("failed: Its memory reads as all ones\n"
                                         "temperature failed: Its memory reads as all ones\n"),
              0U);
    std::string no_tx_power = lanes_without_tx_power();
    for (std::size_t at = no_tx_power.find("unsupported"); at != std::string::npos;
         at = no_tx_power.find("unsupported"))
        no_tx_power.replace(at, 11, "failed: lost");
    EXPECT_EQ(measurements_of(qsfp.decode_without({{main_memory, 0, 196, 25}})),
              "failed: lost\n" + monitor_lines + no_tx_power);
}

TEST(sff_8636_decoder, reads_no_flags)
{
    for (const block_t& block : qsfp.read())
        EXPECT_TRUE(block.place.byte + block.place.length <= 3 || block.place.byte >= 22);
}

// ---- CMIS ----

TEST(cmis_decoder, takes_transmitted_power_bias_and_received_power_from_their_places)
{
    EXPECT_EQ(measurements_of(qsfp_dd.decode()), monitor_lines + qsfp_dd_lanes);
}

TEST(cmis_decoder, gives_lanes_5_to_8_from_the_second_half_of_each_block)
{
    const image_t eight = image_t{qsfp_dd}.set(
        {{"00:210", "7f"}, {"11:131", "40"}, {"11:168", "1388"}, {"11:184", "0bb8"}, {"11:200", "0fa0"}});
    EXPECT_EQ(measurements_of(eight.decode()), monitor_lines + lane(8, "0.0004"));
}

TEST(cmis_decoder, multiplies_bias_and_its_limits)
{
    const struct
    {
        const char* code;
        const char* expected;
    } rows[] = {{"0307", "tx bias 0.006 [0.001 0.002 0.011 0.012]\n"},
                {"030f", "tx bias 0.012 [0.002 0.004 0.022 0.024]\n"},
                {"0317", "tx bias 0.024 [0.004 0.008 0.044 0.048]\n"},
                {"031f", "tx bias unsupported\n! The module gives its bias a factor that has no meaning\n"},
                {"031e", "tx bias unsupported\n"}};
    for (const auto& row : rows)
        EXPECT_EQ(text_of(image_t{qsfp_dd}.set({{"01:159", row.code}}).decode().lanes.at(0).tx_bias), row.expected)
            << row.code;
}

TEST(cmis_decoder, gives_what_is_advertised_of_lanes_that_are_supported)
{
    const std::string all_unsupported = "temperature unsupported\nvoltage unsupported\n";
    const std::string off = "lane 1\nrx power 0.0004" + rx_limits_text + "tx power unsupported\ntx bias unsupported\n";
    const row_t rows[] = {
        {"nothing is advertised", {{"01:159", "0000"}}, all_unsupported},
        {"flat memory", {{"2", "80"}}, all_unsupported},
        {"flat memory, which has no faults", {{"2", "80"}, {"3", "0b"}, {"41", "06"}}, all_unsupported},
        {"one lane", {{"00:210", "fe"}}, monitor_lines + lane(1, "0.0004")},
        {"no lane", {{"00:210", "ff"}}, monitor_lines},
        {"temperature alone", {{"01:159", "0100"}}, temperature_line + "voltage unsupported\n"},
        {"received power alone", {{"01:159", "0004"}, {"00:210", "fe"}}, all_unsupported + off},
        {"temperature and voltage both a zero",
         {{"14", "00000000"}},
         "temperature unavailable [-5 0 70 75]\nvoltage unavailable [2.97 3.135 3.465 3.63]\n" + qsfp_dd_lanes},
        {"limits of a coherent module that stand for none",
         {{"00:210", "fe"}, {"02:184", "ffff0000ffff0000"}},
         monitor_lines + "lane 1\nrx power 0.0004" + rx_limits_text + "tx power 0.0005" + tx_limits_text +
             "tx bias 0.006\n"},
    };
    expect(qsfp_dd, rows);
}

TEST(cmis_decoder, survives_pages_that_are_not_there)
{
    const std::string all_unsupported = "temperature unsupported\nvoltage unsupported\n";
    EXPECT_EQ(measurements_of(image_t{qsfp_dd}.remove("01").decode()), all_unsupported);
    EXPECT_EQ(measurements_of(image_t{qsfp_dd}.fill("01", 0xff).decode()),
              "failed: Its memory reads as all ones\ntemperature failed: Its memory reads as all ones\n"
              "voltage failed: Its memory reads as all ones\n");
    EXPECT_EQ(measurements_of(image_t{qsfp_dd}.remove("02").set({{"00:210", "fe"}}).decode()),
              "temperature 25.5\nvoltage 3.3\nlane 1\nrx power 0.0004\ntx power 0.0005\ntx bias 0.006\n");
    EXPECT_EQ(measurements_of(image_t{qsfp_dd}.fill("02", 0xff).set({{"00:210", "fe"}}).decode()),
              "temperature 25.5\nvoltage 3.3\nlane 1\nrx power 0.0004\ntx power 0.0005\ntx bias 0.006\n");
    EXPECT_EQ(measurements_of(image_t{qsfp_dd}.remove("11").set({{"00:210", "fe"}}).decode()),
              "! It says that it measures its lanes, and has no page 11h\n" + monitor_lines +
                  "lane 1 off\nrx power unsupported\ntx power unsupported\ntx bias unsupported\n");
    image_t again{qsfp_dd};
    for (std::size_t at = 128; at < 256; ++at) {
        const char* digits = "0123456789abcdef";
        const std::uint8_t byte = qsfp_dd.byte("00", at);
        again.set({{"02:" + std::to_string(at), {digits[byte / 16], digits[byte % 16]}}});
    }
    EXPECT_EQ(measurements_of(again.set({{"00:210", "fe"}}).decode()),
              "temperature 25.5\nvoltage 3.3\nlane 1\nrx power 0.0004\ntx power 0.0005\ntx bias 0.006\n");
}

TEST(cmis_decoder, does_not_take_a_page_for_page_00_again_that_only_resembles_it)
{
    EXPECT_EQ(measurements_of(image_t{qsfp_dd}.set({{"00:154", "1388138813881388"}}).decode()),
              monitor_lines + qsfp_dd_lanes)
        << "a block that is the same";
    EXPECT_EQ(measurements_of(image_t{qsfp_dd}.fill("00", 0).fill("11", 0).set({{"00:210", "fe"}}).decode()),
              monitor_lines + "lane 1 off\nrx power 0\ntx power 0\ntx bias 0\n")
        << "nothing but zeros";
}

TEST(cmis_decoder, lets_lanes_that_are_asleep_be_low)
{
    const std::string no_limits = "lane 1 off\nrx power 0.0004\ntx power 0.0005\ntx bias 0.006\n";
    const std::string tx_off = monitor_lines + lane(1, "0.0004", " off", false);
    const row_t rows[] = {
        {"deactivated", {{"11:128", "41"}}, monitor_lines + no_limits},
        {"initialising", {{"11:128", "42"}}, monitor_lines + no_limits},
        {"turning off", {{"11:128", "46"}}, monitor_lines + no_limits},
        {"a state that means nothing", {{"11:128", "40"}}, monitor_lines + no_limits},
        {"initialised: ready, and not transmitting yet", {{"11:128", "47"}}, tx_off},
        {"activated", {{"11:128", "44"}}, monitor_lines + lane(1, "0.0004")},
        {"of another lane", {{"11:128", "14"}}, monitor_lines + lane(1, "0.0004")},
        {"disabled by the host", {{"10:130", "01"}}, tx_off},
        {"another lane is disabled", {{"10:130", "fe"}}, monitor_lines + lane(1, "0.0004")},
        {"no output, in a revision that says so", {{"1", "50"}, {"11:133", "fe"}}, tx_off},
        {"output, in a revision that says so", {{"1", "50"}, {"11:133", "01"}}, monitor_lines + lane(1, "0.0004")},
    };
    expect(image_t{qsfp_dd}.set({{"00:210", "fe"}}), rows);
}

TEST(cmis_decoder, judges_the_module_only_when_it_is_ready_or_has_a_fault)
{
    const image_t one = image_t{qsfp_dd}.set({{"00:210", "ff"}});
    const std::string bare = "temperature 25.5\nvoltage 3.3\n";
    const std::string fault = "! It reports a fault: ";
    const row_t rows[] = {
        {"low power", {{"3", "03"}}, bare},
        {"powering up", {{"3", "05"}}, bare},
        {"ready", {{"3", "06"}}, monitor_lines},
        {"powering down", {{"3", "09"}}, bare},
        {"fault", {{"3", "0a"}, {"41", "06"}}, fault + "its temperature\n" + monitor_lines},
        {"fault without a cause", {{"3", "0b"}}, fault + "it does not say why\n" + monitor_lines},
        {"a cause that means nothing", {{"3", "0b"}, {"41", "ff"}}, fault + "it does not say why\n" + monitor_lines},
        {"a state that means nothing", {{"3", "0f"}}, bare},
    };
    expect(one, rows);
}

TEST(cmis_decoder, does_not_take_lanes_of_another_bank_for_those_of_bank_0)
{
    const image_t other = image_t{qsfp_dd}.set({{"126", "02"}, {"00:210", "fe"}, {"01:159", "0305"}});
    const std::string error = "Bank 2 is selected; lanes 1 to 8 are in bank 0";
    EXPECT_EQ(measurements_of(other.decode()), "failed: " + error + "\n" + monitor_lines +
                                                   "lane 1 off\nrx power failed: " + error +
                                                   "\ntx power unsupported\ntx bias failed: " + error + "\n");
}

TEST(cmis_decoder, fails_what_could_not_be_read_and_nothing_else)
{
    const image_t one = image_t{qsfp_dd}.set({{"00:210", "fe"}});
    const std::string lane_1 = lane(1, "0.0004");
    const auto lost = [&](const place_t& place) { return measurements_of(one.decode_without({place})); };
    EXPECT_EQ(lost({main_memory, 0, 14, 4}), "failed: lost\ntemperature failed: lost\nvoltage failed: lost\n" + lane_1);
    EXPECT_EQ(lost({main_memory, 1, 153, 8}), "failed: lost\ntemperature failed: lost\nvoltage failed: lost\n");
    EXPECT_EQ(lost({main_memory, 0, 0, 4}), "failed: lost\ntemperature failed: lost\nvoltage failed: lost\n");
    EXPECT_EQ(lost({main_memory, 0, 210, 1}), "failed: lost\n" + monitor_lines);
    EXPECT_EQ(lost({main_memory, 2, 136, 8}), "failed: lost\n" + temperature_line + "voltage 3.3\n" + lane_1);
    EXPECT_EQ(lost({main_memory, 0x11, 186, 8}), "failed: lost\n" + monitor_lines +
                                                     "lane 1\nrx power failed: lost\ntx power 0.0005" + tx_limits_text +
                                                     "tx bias 0.006" + bias_limits_text);
    EXPECT_EQ(lost({main_memory, 0x11, 128, 6}),
              "failed: lost\n" + monitor_lines + "lane 1 off\nrx power 0.0004\ntx power 0.0005\ntx bias 0.006\n");
    EXPECT_EQ(lost({main_memory, 0x10, 130, 1}), "failed: lost\n" + monitor_lines + lane(1, "0.0004", " off", false));
    EXPECT_EQ(lost({main_memory, 0, 126, 1}), "failed: lost\n" + monitor_lines +
                                                  "lane 1\nrx power failed: lost\ntx power failed: lost\n"
                                                  "tx bias failed: lost\n");
    const module_t without_name = one.decode_without({{main_memory, 0, 137, 8}});
    EXPECT_EQ(measurements_of(without_name), "failed: lost\n" + monitor_lines + lane_1);
    EXPECT_EQ(identity_of(without_name), "-|00-1B-2C|D-1|B|D1234|250620|2025-06-20");
    EXPECT_EQ(measurements_of(image_t{one}.fill("11", 0xff).decode()),
              "failed: Its memory reads as all ones\n" + monitor_lines +
                  "lane 1 off\nrx power failed: Its memory reads as all ones\n"
                  "tx power failed: Its memory reads as all ones\ntx bias failed: Its memory reads as all ones\n");
    EXPECT_EQ(measurements_of(image_t{one}.fill("", 0xff).set({{"0", "18"}}).decode()),
              "temperature unsupported\nvoltage unsupported\n");
}

TEST(cmis_decoder, reads_no_flags_and_at_most_eight_bytes_at_once)
{
    for (const char* lanes : {"00", "f0", "0f"})
        for (const block_t& block : image_t{qsfp_dd}.set({{"00:210", lanes}, {"3", "0b"}}).read()) {
            const place_t& place = block.place;
            const int end = place.byte + place.length;
            EXPECT_LE(place.length, 8);
            EXPECT_TRUE(end <= 8 || place.byte >= 14);
            EXPECT_TRUE(place.page != 0x11 || end <= 134 || place.byte >= 154);
        }
}

} // namespace
} // namespace ivra::bsp::telemetry
