#include "devices/bmc/bmc.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace ivra::virtual_platform {

namespace {

// Frames of IPMI serial basic mode, IPMI 2.0 chapter 14.4.
constexpr std::uint8_t start_byte = 0xa0;
constexpr std::uint8_t stop_byte = 0xa5;
constexpr std::uint8_t escape_byte = 0xaa;

struct escape_t
{
    std::uint8_t raw, sent;
};

constexpr escape_t escapes[] = {{0xa0, 0xb0}, {0xa5, 0xb5}, {0xaa, 0xba}, {0xa6, 0xb6}, {0x1b, 0x3b}};

constexpr device_time byte_time{1'000'000'000LL * 10 / 115'200}; // 8 bits, start and stop

// Times before and after any other, far enough from where numbers end.
constexpr std::int64_t long_ago = bmc_memory_t::earliest;
constexpr device_time far_away{bmc_memory_t::latest};

// Completion codes, IPMI 2.0 table 5-2.
constexpr std::uint8_t good = 0x00;
constexpr std::uint8_t unknown_command = 0xc1;
constexpr std::uint8_t wrong_size = 0xc7;
constexpr std::uint8_t out_of_range = 0xc9;
constexpr std::uint8_t not_there = 0xcb;
constexpr std::uint8_t wrong_field = 0xcc;

constexpr std::string_view manufacturer{"\x18\x7b\0", 3}; // of OEM commands, least significant byte first

std::string framed(std::string_view message)
{
    std::string frame{static_cast<char>(start_byte)};
    for (const char c : message) {
        const auto* const row = std::ranges::find(escapes, static_cast<std::uint8_t>(c), &escape_t::raw);
        if (row == std::end(escapes))
            frame += c;
        else
            (frame += static_cast<char>(escape_byte)) += static_cast<char>(row->sent);
    }
    return frame + static_cast<char>(stop_byte);
}

std::string_view text_of(std::span<const std::uint8_t> bytes)
{
    static_assert(sizeof(char) == 1);
    return {static_cast<const char*>(static_cast<const void*>(bytes.data())), bytes.size()};
}

std::size_t little_endian(std::uint8_t low, std::uint8_t high)
{
    return std::size_t{low} | std::size_t{high} << 8U;
}

} // namespace

/// One command: its least and most data, and what it does.
struct bmc::command_t
{
    std::uint8_t netfn, command;
    std::size_t least, most;
    result_t (bmc::*run)(bytes_t data);
};

constexpr bmc::command_t bmc::commands[] = {
    // clang-format off
    // netfn, command   data   run
    {0x04, 0x20,        0, 1,  &bmc::sdr_info},          // Get Device SDR Info
    {0x04, 0x21,        6, 6,  &bmc::sdr},               // Get Device SDR
    {0x04, 0x22,        0, 0,  &bmc::reserve_sdr},       // Reserve Device SDR Repository
    {0x04, 0x25,        2, 2,  &bmc::sensor_hysteresis}, // Get Sensor Hysteresis
    {0x04, 0x27,        1, 1,  &bmc::sensor_thresholds}, // Get Sensor Thresholds
    {0x04, 0x2d,        1, 1,  &bmc::sensor_reading},    // Get Sensor Reading
    {0x06, 0x01,        0, 0,  &bmc::device_id},         // Get Device ID
    {0x0a, 0x10,        1, 1,  &bmc::fru_area},          // Get FRU Inventory Area Info
    {0x0a, 0x11,        4, 4,  &bmc::read_fru},          // Read FRU Data
    {0x2e, 0x08,        4, 4,  &bmc::oem_get},
    {0x2e, 0x09,        5, 5,  &bmc::oem_set},
    // clang-format on
};

bmc::result_t bmc::run(std::uint8_t netfn, std::uint8_t command, bytes_t data)
{
    const auto* const row = std::ranges::find_if(
        commands, [&](const command_t& candidate) { return candidate.netfn == netfn && candidate.command == command; });
    if (row == std::end(commands))
        return {unknown_command, ""};
    if (data.size() < row->least || data.size() > row->most)
        return {wrong_size, ""};
    return (this->*row->run)(data);
}

bmc::result_t bmc::device_id(bytes_t)
{
    // Device 0x20 with SDRs of its own; firmware 1.0; IPMI 2.0; sensors and FRU; manufacturer; product 1.
    std::string data{0x20, byte(0x81), 1, 0, 2, 0x09};
    data += manufacturer;
    return {good, data + std::string{1, 0}};
}

bmc::result_t bmc::fru_area(bytes_t data)
{
    if (data[0] != 0)
        return {not_there, ""};
    const std::size_t size = fru_image(config_.fru).size();
    return {good, {byte(size), byte(size >> 8U), 0}}; // counted in bytes
}

bmc::result_t bmc::read_fru(bytes_t data)
{
    if (data[0] != 0)
        return {not_there, ""};
    const std::string image = fru_image(config_.fru);
    const std::size_t offset = little_endian(data[1], data[2]);
    if (offset >= image.size())
        return {out_of_range, ""};
    const std::string bytes = image.substr(offset, data[3]);
    return {good, byte(bytes.size()) + bytes};
}

bmc::result_t bmc::sdr_info(bytes_t data)
{
    const bool counts_records = !data.empty() && (data[0] & 1U) != 0;
    const auto count = counts_records ? static_cast<std::ptrdiff_t>(config_.sensors.size())
                                      : std::ranges::count_if(config_.sensors, &is_sensor);
    return {good,
            {byte(static_cast<std::size_t>(std::min<std::ptrdiff_t>(count, 0xff))),
             1}}; // they do not change, and belong to LUN 0
}

bmc::result_t bmc::reserve_sdr(bytes_t)
{
    return {good, {1, 0}};
}

/// 0 asks for the first record.
bmc::result_t bmc::sdr(bytes_t data)
{
    constexpr std::uint8_t everything = 0xff;
    const std::size_t asked = little_endian(data[2], data[3]);
    const std::vector<std::uint16_t> ids = record_ids(config_.sensors);
    const auto found = asked == 0                ? ids.begin()
                       : asked == last_record_id ? ids.end() - (ids.empty() ? 0 : 1)
                                                 : std::ranges::find(ids, asked);
    if (found == ids.end())
        return {not_there, ""};
    const bmc_sensor_t& sensor = config_.sensors[static_cast<std::size_t>(found - ids.begin())];
    const std::string record = sensor_record(sensor, *found);
    const std::size_t offset = data[4];
    if (offset >= record.size())
        return {out_of_range, ""};
    const std::size_t next = sensor.next ? *sensor.next : found + 1 == ids.end() ? last_record_id : found[1];
    return {good, std::string{byte(next), byte(next >> 8U)} +
                      record.substr(offset, data[5] == everything ? record.size() : data[5])};
}

const bmc_sensor_t* bmc::sensor_of_number(std::uint8_t number) const
{
    const auto sensor = std::ranges::find_if(config_.sensors, [&](const bmc_sensor_t& candidate) {
        return is_sensor(candidate) && candidate.number == number;
    });
    return sensor == config_.sensors.end() ? nullptr : &*sensor;
}

/// What only some sensors have: to ask others is to ask a BMC that does not know the command.
bmc::result_t bmc::what_sensor_has(std::uint8_t number, std::optional<std::string> (*what)(const bmc_sensor_t&)) const
{
    const bmc_sensor_t* sensor = sensor_of_number(number);
    if (sensor == nullptr)
        return {not_there, ""};
    const std::optional<std::string> data = what(*sensor);
    return data ? result_t{good, *data} : result_t{unknown_command, ""};
}

bmc::result_t bmc::sensor_hysteresis(bytes_t data)
{
    return what_sensor_has(data[0], &virtual_platform::sensor_hysteresis);
}

bmc::result_t bmc::sensor_thresholds(bytes_t data)
{
    return what_sensor_has(data[0], &virtual_platform::sensor_thresholds);
}

bmc::result_t bmc::sensor_reading(bytes_t data)
{
    const bmc_sensor_t* sensor = sensor_of_number(data[0]);
    if (sensor == nullptr)
        return {not_there, ""};
    return {good, sensor_response(*sensor)};
}

bmc::result_t bmc::oem_get(bytes_t data)
{
    constexpr std::uint8_t configuration = 0x01;
    constexpr std::uint8_t next_image = 0x07;
    if (text_of(data.first(3)) != manufacturer)
        return {unknown_command, ""};
    const std::string identifier{manufacturer};
    if (data[3] == configuration)
        return {good, identifier + byte(config_.configured_from)};
    if (data[3] == next_image)
        return {good, identifier + byte(boot_image())};
    return {wrong_field, identifier};
}

bmc::result_t bmc::oem_set(bytes_t data)
{
    constexpr std::uint8_t next_image = 0x07;
    if (text_of(data.first(3)) != manufacturer)
        return {unknown_command, ""};
    const bool is_image = std::ranges::find(boot_images, data[4], &code_name_t::value) != std::end(boot_images);
    if (data[3] != next_image || !is_image)
        return {wrong_field, std::string{manufacturer}};
    memory_.boot_image = data[4];
    memory_.boot_image_chosen = config_.boot_image_change + 1;
    return {good, std::string{manufacturer}};
}

std::optional<bmc::answer_t> bmc::take(std::string_view request)
{
    constexpr std::size_t header = 3;
    if (request.size() < header || config_.silent)
        return std::nullopt;
    const auto netfn = static_cast<std::uint8_t>(static_cast<std::uint8_t>(request[0]) >> 2U);
    if (netfn % 2 != 0)
        return std::nullopt; // a response
    const auto command = static_cast<std::uint8_t>(request[2]);
    const std::string key = std::string{byte(netfn), byte(command)} + std::string{request.substr(header)};

    const bmc_answer_t* rule = nullptr;
    for (std::size_t at = 0; at < std::min(config_.answers.size(), memory_.seen.size()); ++at) {
        const bmc_answer_t& candidate = config_.answers[at];
        if (!key.starts_with(candidate.to))
            continue;
        const std::uint32_t count = ++memory_.seen.at(at);
        if (rule == nullptr && (!candidate.nth || *candidate.nth == count))
            rule = &candidate;
    }

    const std::vector<std::uint8_t> data{key.begin() + 2, key.end()};
    auto [code, bytes] = run(netfn, command, data);
    if (rule != nullptr && rule->code)
        std::tie(code, bytes) = result_t{*rule->code, ""};
    if (rule != nullptr && rule->data)
        bytes = *rule->data;
    const duration_t latency = rule != nullptr && rule->latency ? *rule->latency : config_.latency;
    if (!latency)
        return std::nullopt;
    const std::string message{byte(static_cast<std::uint8_t>(request[0]) + 4U), request[1], byte(command), byte(code)};
    const auto place =
        rule == nullptr ? config_.answers.size() : static_cast<std::size_t>(rule - config_.answers.data());
    return answer_t{message + bytes, *latency, place};
}

void bmc::receive(std::span<const std::uint8_t> bytes, device_time now)
{
    now = std::min(now, far_away);
    notice_time(now);
    device_time at = std::max(now, device_time{memory_.received_until});
    for (const std::uint8_t received : bytes)
        take_byte(received, at = std::min(at + byte_time, far_away));
    memory_.received_until = at.count();
}

void bmc::take_byte(std::uint8_t byte, device_time at)
{
    if (byte == start_byte) { // also within a frame: the host has begun anew
        memory_.in_frame = 1;
        memory_.after_escape = 0;
        memory_.message_size = 0;
        return;
    }
    if (memory_.in_frame == 0)
        return;
    if (byte == stop_byte) {
        memory_.in_frame = 0;
        if (memory_.after_escape == 0)
            answer_frame(at);
        return;
    }
    if (memory_.after_escape == 0 && byte == escape_byte) {
        memory_.after_escape = 1;
        return;
    }
    if (memory_.after_escape != 0) {
        const auto* const row = std::ranges::find(escapes, byte, &escape_t::sent);
        memory_.after_escape = 0;
        memory_.in_frame = row == std::end(escapes) ? 0 : 1;
        byte = row == std::end(escapes) ? 0 : row->raw;
    }
    if (memory_.message_size == memory_.message.size())
        memory_.in_frame = 0; // longer than any request
    else
        memory_.message.at(memory_.message_size++) = byte;
}

/// The frame of a request is complete: queues what the line will bring.
void bmc::answer_frame(device_time at)
{
    const auto answer = take(text_of(bytes_t{memory_.message}.first(memory_.message_size)));
    if (!answer)
        return;
    std::string bytes = framed(answer->message);
    const bool has_rule = answer->rule < config_.answers.size();
    if (has_rule) {
        const bmc_answer_t& rule = config_.answers[answer->rule];
        bytes = rule.noise + rule.frame.value_or(bytes);
        std::string left;
        for (std::size_t i = 0; i < bytes.size(); ++i)
            if (std::ranges::find(rule.lose, i) == rule.lose.end())
                left += bytes[i];
        bytes = left;
    }
    const device_time begin = std::max(at, device_time{memory_.busy_until});
    const device_time due = begin + std::min(answer->latency, far_away - begin);
    memory_.busy_until = due.count();
    const std::size_t room = memory_.queue.size() - memory_.queued;
    if (bytes.empty() || bytes.size() > room || memory_.answer_count == memory_.answers.size())
        return; // a host that never reads has filled it
    std::ranges::copy(bytes, memory_.queue.begin() + memory_.queued);
    memory_.queued += static_cast<std::uint32_t>(bytes.size());
    memory_.answers.at(memory_.answer_count++) = {due.count(), static_cast<std::uint32_t>(bytes.size()),
                                                  has_rule ? static_cast<std::uint32_t>(answer->rule + 1) : 0};
}

/// Brings into the FIFO what has come over the line by now; the line waits while the FIFO is full.
void bmc::arrive(device_time now)
{
    std::size_t answer = 0;
    std::size_t end = memory_.answers.at(0).bytes; // of the answer that the next byte belongs to
    while (memory_.waiting < std::min<std::size_t>(memory_.queued, config_.depth)) {
        while (memory_.waiting >= end)
            end += memory_.answers.at(++answer).bytes;
        const std::int64_t arrival = std::max(memory_.line_free_at, memory_.answers.at(answer).due) + byte_time.count();
        if (arrival > now.count())
            return;
        memory_.line_free_at = arrival;
        ++memory_.waiting;
    }
}

const std::vector<std::size_t>& bmc::pieces_of(const bmc_memory_t::answer_t& answer) const
{
    if (answer.rule == 0 || answer.rule > config_.answers.size())
        return config_.pieces;
    const auto& pieces = config_.answers[answer.rule - 1].pieces;
    return pieces ? *pieces : config_.pieces;
}

/// How many bytes a read gives that asks for enough: the next piece, once it is all there, or what waits of this answer
/// and of those behind it that come as they come.
std::size_t bmc::given_at_once() const
{
    const bmc_memory_t::answer_t& first = memory_.answers.at(0);
    const std::vector<std::size_t>& pieces = pieces_of(first);
    if (memory_.pieces_given < pieces.size()) {
        const std::size_t piece = std::min<std::size_t>(pieces[memory_.pieces_given], first.bytes);
        return piece <= memory_.waiting ? piece : 0;
    }
    std::size_t bytes = first.bytes;
    for (std::size_t at = 1; at < memory_.answer_count && pieces_of(memory_.answers.at(at)).empty(); ++at)
        bytes += memory_.answers.at(at).bytes;
    return std::min<std::size_t>(bytes, memory_.waiting);
}

std::string bmc::send(std::size_t most, bool exactly, device_time now)
{
    if (memory_.queued == 0)
        return "";
    now = std::min(now, far_away + byte_time);
    notice_time(now);
    arrive(now);
    std::size_t count = std::min(given_at_once(), most);
    if (count == 0)
        return "";
    const bool by_pieces = memory_.pieces_given < pieces_of(memory_.answers.at(0)).size();
    const bool can_hold_pairs = config_.depth > 1 && most > 1;
    if (!by_pieces && !exactly && can_hold_pairs && memory_.queue.at(count - 1) == escape_byte &&
        count < memory_.queued)
        --count;
    std::string bytes{text_of(bytes_t{memory_.queue}.first(count))};
    if (by_pieces)
        ++memory_.pieces_given;
    if (memory_.waiting >= config_.depth && count > 0)
        memory_.line_free_at = std::max(memory_.line_free_at, now.count()); // it has waited until now
    drop(count);
    return bytes;
}

void bmc::drop(std::size_t count)
{
    const auto size = static_cast<std::uint32_t>(count);
    std::copy(memory_.queue.begin() + size, memory_.queue.begin() + memory_.queued, memory_.queue.begin());
    memory_.queued -= size;
    memory_.waiting -= size;
    for (std::uint32_t left = size; left > 0;) {
        bmc_memory_t::answer_t& first = memory_.answers.at(0);
        const std::uint32_t taken = std::min(left, first.bytes);
        first.bytes -= taken;
        left -= taken;
        if (first.bytes != 0)
            continue;
        std::copy(memory_.answers.begin() + 1, memory_.answers.begin() + memory_.answer_count, memory_.answers.begin());
        --memory_.answer_count;
        memory_.pieces_given = 0;
    }
}

/// A clock that was set back, as by a restart of the host, says that all that is remembered was long ago.
void bmc::notice_time(device_time now)
{
    if (now.count() < memory_.changed_at) {
        memory_.received_until = memory_.busy_until = memory_.line_free_at = long_ago;
        for (bmc_memory_t::answer_t& answer : memory_.answers)
            answer.due = long_ago;
    }
    memory_.changed_at = now.count();
}

} // namespace ivra::virtual_platform
