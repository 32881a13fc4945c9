// docs/differences.md is made here, from the reports of the program and the standards' decoding.

#include "support/rack.h"
#include "support/root_core.h"
#include "telemetry/module.h"
#include "telemetry/module_map.h"
#include "transceiver/identifier.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace ivra::bsp::telemetry {
namespace {

namespace fs = std::filesystem;

/// A line of a report: "Channel 2", "RX power", "0.741 mW (-1.300 dBm)". The section of a module's own lines is empty.
struct line_t
{
    std::string section, label, text;
};
using lines_t = std::vector<line_t>;

const char* const not_measured = "not measured";

// ---- the report of the program ----

/// The lines below "Port 1".
lines_t shown_lines(tests::rack_t& rack)
{
    lines_t lines;
    std::istringstream screen{rack.run("show transceivers").out};
    std::string section;
    bool is_port_1 = false;
    for (std::string line; std::getline(screen, line);) {
        const std::size_t level = line.find_first_not_of('\t');
        const std::string content = line.substr(level);
        const std::size_t colon = content.find(": ");
        if (level == 1)
            is_port_1 = content == "Port 1";
        if (level < 2 || !is_port_1)
            continue;
        if (colon == std::string::npos) {
            section = content;
            continue;
        }
        const std::string label = content.substr(0, content.find_last_not_of(' ', colon - 1) + 1);
        const std::string text = content.substr(colon + 2);
        if (label != "Type" && label != "Sensors")
            lines.push_back({level == 2 ? "" : section, label, text == "unavailable" ? not_measured : text});
    }
    return lines;
}

// ---- the same of the standards' decoding ----

std::string fixed(double value, int decimals, const char* unit)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f %s", decimals, value, unit);
    return text;
}

std::string text_of(const reading_t& reading, int decimals)
{
    if (reading.state == state_t::unavailable)
        return "not available now";
    if (reading.state == state_t::failed)
        return "failed: " + reading.error;
    if (!reading.value)
        return not_measured;
    const double value = *reading.value;
    switch (reading.quantity) {
    case board::quantity_t::temperature:
        return fixed(value, decimals, "°C");
    case board::quantity_t::voltage:
        return fixed(value, decimals, "V");
    case board::quantity_t::current:
        return fixed(value * 1e3, decimals, "mA");
    default:
        return fixed(value * 1e3, decimals, "mW") +
               (value == 0 ? "" : " (" + fixed(10 * std::log10(value * 1e3), decimals, "dBm") + ")");
    }
}

/// With the places of a report: an SFP has two decimals of its temperature, and no number of its lane.
lines_t standard_lines(const module_t& module)
{
    const bool is_sfp = find_module_map(module.identifier.value_or(0)) == &sff_8472;
    lines_t lines;
    if (module.state == module_state_t::unsupported)
        return lines;
    lines.push_back({"", "Vendor name", module.vendor.value_or("none")});
    lines.push_back({"", "Vendor PN", module.part_number.value_or("none")});
    lines.push_back({"", "Temperature", text_of(module.monitors.at(0), is_sfp ? 2 : 3)});
    lines.push_back({"", "VCC", text_of(module.monitors.at(1), 3)});
    for (const lane_t& lane : module.lanes) {
        const std::string section = is_sfp ? "Channel info" : "Channel " + std::to_string(lane.number - 1);
        lines.push_back({section, "RX power", text_of(lane.rx_power, 3)});
        lines.push_back({section, "TX power", text_of(lane.tx_power, 3)});
        lines.push_back({section, "TX bias", text_of(lane.tx_bias, 3)});
    }
    return lines;
}

// ---- the document ----

const line_t* find(const lines_t& lines, const line_t& place)
{
    const auto found = std::find_if(lines.begin(), lines.end(), [&](const line_t& line) {
        return line.section == place.section && line.label == place.label;
    });
    return found == lines.end() ? nullptr : &*found;
}

/// What differs in one place, or in the same way in several channels.
struct difference_t
{
    std::vector<std::string> sections;
    std::string label, shown, standard;
};

std::string text_of(const std::vector<std::string>& sections)
{
    if (sections.front().empty())
        return "";
    if (sections.size() == 1)
        return sections.front() + ", ";
    std::string text = "Channels ";
    for (const std::string& section : sections)
        text += (&section == &sections.front() ? "" : ", ") + section.substr(section.find(' ') + 1);
    return text + ": ";
}

std::vector<difference_t> differences_of(const lines_t& shown, const lines_t& standard, bool is_supported)
{
    lines_t places = shown;
    for (const line_t& line : standard)
        if (find(shown, line) == nullptr)
            places.push_back(line);

    std::vector<difference_t> differences;
    for (const line_t& place : places) {
        const line_t* const one = find(shown, place);
        const line_t* const other = find(standard, place);
        const std::string shown_text = one == nullptr ? "not shown" : one->text;
        const std::string standard_text = other != nullptr         ? other->text
                                          : place.label == "Error" ? "no error"
                                                                   : not_measured;
        const bool is_nothing = one == nullptr && standard_text == not_measured;
        if (shown_text == standard_text || is_nothing || (!is_supported && place.label == "Error"))
            continue;
        const auto same = std::find_if(differences.begin(), differences.end(), [&](const difference_t& difference) {
            return !place.section.empty() && difference.label == place.label && difference.shown == shown_text &&
                   difference.standard == standard_text;
        });
        if (same == differences.end())
            differences.push_back({{place.section}, place.label, shown_text, standard_text});
        else
            same->sections.push_back(place.section);
    }
    return differences;
}

std::string types()
{
    std::string text = "| Identifier | `ivra-bsp board` | By the standards |\n|---|---|---|\n";
    for (unsigned value = 0; value < 0xff; ++value) { // the last one is an empty cage
        const auto identifier = static_cast<std::uint8_t>(value);
        const auto row = [&](bool is_read, std::string_view name) {
            return std::string{name.empty() ? "no name" : name} + (is_read ? "" : "; not read");
        };
        bool is_shown = true;
        try {
            transceiver::get_module_type(identifier);
        } catch (const std::runtime_error&) {
            is_shown = false;
        }
        const std::string shown = row(is_shown, transceiver::get_identifier_name(identifier));
        const std::string standard = row(find_module_map(identifier) != nullptr, get_identifier_name(identifier));
        char digits[8];
        std::snprintf(digits, sizeof digits, "0x%02x", value);
        if (shown != standard && !(shown == "Unknown; not read" && standard == "no name; not read"))
            text += "| " + std::string{digits} + " | " + shown + " | " + standard + " |\n";
    }
    return text;
}

std::string section_of(const std::string& name)
{
    tests::rack_t rack;
    rack.plug("bittware_xupp3r", {{"i2c", R"({"cages": [")" + name + R"("]})"}, {"bmc", "null"}});
    rack.environment("IVRA_LOG_LEVEL=0");
    const lines_t shown = shown_lines(rack);
    const std::string told = tests::printed(rack, [](const hw::core& root) {
        v6::i2c::bus bus = v6::i2c::i2c{root}.get_bus(1).value();
        const module_t module = read_module(bus);
        std::cout << (module.state == module_state_t::unsupported ? "unsupported\n" : "supported\n");
        for (const line_t& line : standard_lines(module))
            std::cout << line.section << '\t' << line.label << '\t' << line.text << '\n';
    });
    std::istringstream stream{told};
    std::string state;
    std::getline(stream, state);
    lines_t standard;
    for (line_t line; std::getline(stream, line.section, '\t') && std::getline(stream, line.label, '\t') &&
                      std::getline(stream, line.text);)
        standard.push_back(line);
    EXPECT_FALSE(shown.empty()) << name;

    std::string text = "\n### " + name + "\n\n";
    const auto differences = differences_of(shown, standard, state == "supported");
    if (differences.empty())
        return text + "None.\n";
    text += "| | `ivra-bsp board` | By the standards |\n|---|---|---|\n";
    for (const difference_t& difference : differences)
        text += "| " + text_of(difference.sections) + difference.label + " | " + difference.shown + " | " +
                difference.standard + " |\n";
    return text;
}

std::string document()
{
    std::string text = R"(# Where the reports on modules differ from the standards

`ivra-bsp board show transceivers` prints texts that scripts rely on, with some peculiarities that stay. `src/telemetry/`
decodes the same modules as SFF-8472, SFF-8636 and CMIS have it. This page is made by a test from both, over the modules in
`racks/modules/`; the test fails when it is out of date, and says how to renew it.

- The standards count lanes from 1. Here they have the numbers that the reports give them, from 0.
- "Not measured" is what a module says that it does not have, and lanes that it does not have. The reports show the bytes
  that stand there, as zeros.
- Of QSFP-DD the reports take the three blocks of the lanes as received power, transmit power and bias; the standard has
  them as transmit power, bias and received power. So each value stands in another line, and in another unit.
- The reports do not show what an externally calibrated SFP measures, nor the transmit power of a QSFP.
- The reports calculate with factors of single precision, so that a last digit may differ where a value ends in a half.
- Serial number, revision, date, the number of the vendor, and limits are in no report.

## Types

)" + types() + "\n## Modules\n";
    std::vector<std::string> names;
    for (const fs::directory_entry& file : fs::directory_iterator{IVRA_RACK_MODULES})
        names.push_back(file.path().stem().string());
    std::sort(names.begin(), names.end());
    for (const std::string& name : names)
        text += section_of(name);
    return text;
}

TEST(differences, between_reports_and_standards_are_the_documented_ones)
{
    const std::string made = document();
    std::ifstream file{IVRA_DIFFERENCES};
    const std::string documented{std::istreambuf_iterator<char>{file}, {}};
    std::ofstream{IVRA_DIFFERENCES_MADE} << made;
    EXPECT_EQ(documented, made) << "If the differences are meant: cp " << IVRA_DIFFERENCES_MADE << ' '
                                << IVRA_DIFFERENCES;
}

} // namespace
} // namespace ivra::bsp::telemetry
