#include "readings/limits_file.h"

#include "text/text.h"
#include "text/text_stream.h"

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <system_error>
#include <utility>

namespace ivra::bsp::readings {

namespace {

using telemetry::limit_t;
using value_t = rapidjson::Value;

constexpr std::size_t largest_file = 1U << 20U;
constexpr std::size_t longest_quote = 40;

/// Of the quantities that have one, and the only other one in which people set limits.
constexpr std::string_view known_units[] = {"volts", "amperes", "celsius", "watts", "rpm", "percent"};
constexpr const char* expected_units = "volts, amperes, celsius, watts, rpm or percent";

constexpr const char* expected_document = R"(an object with a list "sensors")";

/// What is wrong with a file, and where in it.
class limits_reader
{
public:
    explicit limits_reader(const std::string& file) : file_{file} {}

    [[noreturn]] void fail(const std::string& place, const std::string& what) const
    {
        throw limits_error{file_ + ": " + place + (place.empty() ? "" : ": ") + what};
    }
    [[noreturn]] void fail(const std::string& place, const std::string& found, const std::string& expected) const
    {
        fail(place, "found " + found + ", expected " + expected);
    }
    [[noreturn]] void fail_to_read(int error) const
    {
        fail("", "cannot be read: " + std::generic_category().message(error));
    }

    std::vector<limits_entry_t> read(const value_t& document) const;

private:
    template <class Visit>
    void read_object(const value_t& object, const std::string& place, const std::string& expected, Visit visit) const;
    std::string read_text(const value_t& value, const std::string& place, const char* expected) const;
    telemetry::limits_t read_limits(const value_t& value, const std::string& place) const;
    limits_entry_t read_entry(const value_t& value, const std::string& place) const;

    const std::string& file_;
};

std::string quote(std::string_view text)
{
    const bool is_long = text.size() > longest_quote;
    return '"' + valid_utf8(text.substr(0, longest_quote)) + (is_long ? "..." : "") + '"';
}

std::string to_text(double value)
{
    text_stream stream;
    stream << value;
    return stream.str();
}

std::string describe(const value_t& value)
{
    switch (value.GetType()) {
    case rapidjson::kNullType:
        return "null";
    case rapidjson::kFalseType:
        return "false";
    case rapidjson::kTrueType:
        return "true";
    case rapidjson::kObjectType:
        return "an object";
    case rapidjson::kArrayType:
        return "a list";
    case rapidjson::kStringType:
        return quote({value.GetString(), value.GetStringLength()});
    case rapidjson::kNumberType:
        break;
    }
    return to_text(value.GetDouble());
}

std::string_view get_name(const value_t::Member& member)
{
    return {member.name.GetString(), member.name.GetStringLength()};
}

/// Each member of an object once; `visit` returns false for a name that it does not know.
template <class Visit>
void limits_reader::read_object(const value_t& object, const std::string& place, const std::string& expected,
                                Visit visit) const
{
    if (!object.IsObject())
        fail(place, describe(object), expected);
    for (auto member = object.MemberBegin(); member != object.MemberEnd(); ++member) {
        const std::string_view name = get_name(*member);
        // There are few: the first one that is not known ends this.
        if (std::any_of(object.MemberBegin(), member, [name](const auto& other) { return get_name(other) == name; }))
            fail(place, "member " + quote(name) + " twice", "it once");
        if (!visit(name, member->value))
            fail(place, "member " + quote(name), expected);
    }
}

std::string limits_reader::read_text(const value_t& value, const std::string& place, const char* expected) const
{
    if (!value.IsString() || value.GetStringLength() == 0)
        fail(place, describe(value), expected);
    return {value.GetString(), value.GetStringLength()};
}

telemetry::limits_t limits_reader::read_limits(const value_t& value, const std::string& place) const
{
    telemetry::limits_t limits{.authority = telemetry::authority_t::file};
    std::string names;
    for (const limit_t limit : telemetry::all_limits)
        names += std::string{limit == telemetry::all_limits.back() ? " or "
                             : names.empty()                       ? ""
                                                                   : ", "} +
                 telemetry::get_name(limit);
    read_object(value, place, "an object with " + names, [&](std::string_view name, const value_t& number) {
        const auto* const limit = std::ranges::find(
            telemetry::all_limits, name, [](limit_t some) -> std::string_view { return telemetry::get_name(some); });
        if (limit == telemetry::all_limits.end())
            return false;
        if (!number.IsNumber())
            fail(place + '/' + std::string{name}, describe(number), "a number");
        limits[*limit] = number.GetDouble();
        return true;
    });
    std::optional<limit_t> lower;
    for (const limit_t limit : telemetry::all_limits) {
        if (!limits[limit])
            continue;
        if (lower && *limits[*lower] > *limits[limit])
            fail(place,
                 std::string{telemetry::get_name(*lower)} + " (" + to_text(*limits[*lower]) + ") above " +
                     telemetry::get_name(limit) + " (" + to_text(*limits[limit]) + ')',
                 "limits that rise from lower_non_recoverable to upper_non_recoverable");
        lower = limit;
    }
    if (!lower)
        fail(place, "no limit", "at least one");
    return limits;
}

limits_entry_t limits_reader::read_entry(const value_t& value, const std::string& place) const
{
    limits_entry_t entry;
    bool has_limits = false;
    read_object(value, place, R"(an object with "sensor", "unit", "limits", and perhaps "model" and "board")",
                [&](std::string_view name, const value_t& member) {
                    const std::string at = place + '/' + std::string{name};
                    if (name == "model")
                        entry.model = read_text(member, at, "the name of a model");
                    else if (name == "board")
                        entry.board = read_text(member, at, "the name or uid of a board");
                    else if (name == "sensor")
                        entry.sensor = read_text(member, at, "the name of a sensor");
                    else if (name == "unit")
                        entry.unit = read_text(member, at, expected_units);
                    else if (name == "limits")
                        entry.limits = read_limits(member, at);
                    else
                        return false;
                    if (name == "unit" && std::ranges::find(known_units, entry.unit) == std::end(known_units))
                        fail(at, describe(member), expected_units);
                    has_limits = has_limits || name == "limits";
                    return true;
                });
    if (entry.sensor.empty())
        fail(place, R"(no "sensor")", "the name of a sensor");
    if (entry.unit.empty())
        fail(place, R"(no "unit")", expected_units);
    if (!has_limits)
        fail(place, R"(no "limits")", "at least one limit");
    return entry;
}

std::vector<limits_entry_t> limits_reader::read(const value_t& document) const
{
    std::vector<limits_entry_t> entries;
    bool has_sensors = false;
    read_object(document, "/", expected_document, [&](std::string_view name, const value_t& member) {
        if (name == "$schema") {
            read_text(member, "/$schema", "the name of a schema");
            return true;
        }
        if (name != "sensors")
            return false;
        if (!member.IsArray())
            fail("/sensors", describe(member), "a list");
        has_sensors = true;
        for (const value_t& entry : member.GetArray())
            entries.push_back(read_entry(entry, "/sensors/" + std::to_string(entries.size())));
        return true;
    });
    if (!has_sensors)
        fail("/", R"(no "sensors")", "a list");
    return entries;
}

/// "line 3, column 7": both count from 1, columns in characters.
std::string line_and_column(std::string_view text, std::size_t offset)
{
    const std::string_view before = text.substr(0, offset);
    const auto line = std::ranges::count(before, '\n') + 1;
    const std::size_t end_of_last = before.rfind('\n');
    const auto column =
        std::ranges::count_if(before.substr(end_of_last == std::string_view::npos ? 0 : end_of_last + 1),
                              [](char letter) { return (static_cast<std::uint8_t>(letter) & 0xC0U) != 0x80U; });
    return "line " + std::to_string(line) + ", column " + std::to_string(column + 1);
}

bool is_for(const limits_entry_t& entry, const telemetry::accelerator_identity_t& identity,
            const telemetry::board_readings_t& readings)
{
    const auto is_shown_as = [](const std::optional<std::string>& text, const std::string& shown) {
        return text && valid_utf8(*text) == shown;
    };
    return (!entry.model || is_shown_as(readings.model.value, *entry.model)) &&
           (!entry.board || is_shown_as(identity.name, *entry.board) || is_shown_as(identity.uid, *entry.board));
}

std::string get_unit(const telemetry::reading_t& reading)
{
    const std::string_view unit = telemetry::get_base_unit(reading.quantity);
    return unit.empty() ? reading.unit : std::string{unit};
}

} // namespace

std::string read_limits_file(const std::string& file)
{
    const limits_reader reader{file};
    // Deliberate: never waits for the other end of a FIFO, which is refused below.
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    const auto close = [](const int* number) { ::close(*number); };
    const std::unique_ptr<const int, decltype(close)> closer{&descriptor, close};
    struct stat status = {};
    if (descriptor == -1 || ::fstat(descriptor, &status) != 0)
        reader.fail_to_read(errno);
    if (S_ISDIR(status.st_mode))
        reader.fail_to_read(EISDIR);
    if (!S_ISREG(status.st_mode))
        reader.fail("", "expected a regular file");
    std::string text;
    std::array<char, 65536> piece{};
    while (text.size() <= largest_file) {
        const ::ssize_t count = ::read(descriptor, piece.data(), piece.size());
        if (count == 0)
            return text;
        if (count < 0)
            reader.fail_to_read(errno);
        text.append(piece.data(), static_cast<std::size_t>(count));
    }
    reader.fail("", "expected a file of at most 1 MiB");
}

std::vector<limits_entry_t> parse_limits(std::string_view text, const std::string& file)
{
    const limits_reader reader{file};
    constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
    if (text.starts_with(byte_order_mark))
        text.remove_prefix(byte_order_mark.size());
    // Deliberate: to the parser a NUL byte is the end of the text, whatever follows.
    if (const std::size_t nul = text.find('\0'); nul != std::string_view::npos)
        reader.fail(line_and_column(text, nul), "a NUL byte", "JSON");
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos)
        reader.fail("", "found nothing, expected " + std::string{expected_document});
    rapidjson::Document document;
    // Without full precision, for which the library counts the leading zeros of 0 where it finds "0e75": a limit of
    // more than 17 digits may be one last digit off.
    document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(text.data(), text.size());
    if (document.HasParseError()) {
        std::string reason = rapidjson::GetParseError_En(document.GetParseError());
        reason.erase(reason.find_last_not_of('.') + 1);
        reader.fail(line_and_column(text, document.GetErrorOffset()), "not JSON: " + reason);
    }
    return reader.read(document);
}

std::vector<telemetry::finding_t> apply_limits(const std::vector<limits_entry_t>& entries,
                                               const telemetry::accelerator_identity_t& identity,
                                               const telemetry::parts_t& parts, telemetry::board_readings_t& readings)
{
    std::vector<telemetry::finding_t> findings;
    const bool knows_sensors =
        parts.contains(telemetry::part_t::sensors) && readings.error.empty() && readings.controller.error.empty();
    struct sensor_t
    {
        telemetry::reading_t& reading;
        std::string name = valid_utf8(reading.name);
        bool has_entry = false;
    };
    std::vector<sensor_t> sensors;
    for (telemetry::reading_t& sensor : readings.controller.sensors)
        sensors.push_back({sensor});
    if (readings.fpga_temperature)
        sensors.push_back({*readings.fpga_temperature});
    for (const limits_entry_t& entry : entries) {
        if (!is_for(entry, identity, readings))
            continue;
        bool has_sensor = false;
        for (sensor_t& sensor : sensors) {
            if (sensor.name != entry.sensor)
                continue;
            has_sensor = true;
            if (std::exchange(sensor.has_entry, true))
                continue;
            telemetry::reading_t& reading = sensor.reading;
            const std::string unit = get_unit(reading);
            if (unit != entry.unit)
                findings.push_back({.health = telemetry::health_t::unknown,
                                    .text = entry.sensor + " is not judged: the limits file gives limits in " +
                                            entry.unit + ", it is read in " + (unit.empty() ? "no unit" : unit)});
            else if (std::ranges::any_of(reading.limits.values, &std::optional<double>::has_value))
                findings.push_back(
                    {.health = std::nullopt,
                     .text = entry.sensor + ": the device's own limits count, those of the limits file do not"});
            else
                reading.limits = entry.limits;
        }
        const bool names_board = entry.model || entry.board;
        if (!has_sensor && names_board && knows_sensors && entry.sensor != "FPGA")
            findings.push_back(
                {.health = std::nullopt,
                 .text = entry.sensor + ": the limits file limits it, but the board has no such sensor"});
    }
    return findings;
}

} // namespace ivra::bsp::readings
