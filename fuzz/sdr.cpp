// A sensor of a Bittware board: the fuzzer gives the replies with the record, the rest of its name, and the reading.

#include "bmc/bittware/sdr.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

using namespace ivra::bsp::bmc::bittware;

namespace {

using bytes_t = std::vector<std::uint8_t>;

/// Takes `size` bytes off the front; zeros stand for those that are not there.
bytes_t take(std::span<const std::uint8_t>& bytes, std::size_t size)
{
    const auto there = bytes.first(std::min(size, bytes.size()));
    bytes = bytes.subspan(there.size());
    bytes_t taken(there.begin(), there.end());
    taken.resize(size);
    return taken;
}

/// A row has the record's name and one text: a number (or inf, -nan) and its units, or that there is none.
void check(const sensor_record_t& record, std::optional<std::uint8_t> reading)
{
    const auto sensor = make_sensor(record, reading);
    if (sensor.name != record.name || sensor.values.size() != 1)
        std::abort();
    const std::string& value = sensor.values[0];
    if (!reading ? value != "Unavailable" : value.find_first_of("0123456789in") > 1)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::span<const std::uint8_t> bytes{data, size};
    try {
        // Completion code, and lengths of the three replies; mostly those that are right.
        const bytes_t how = take(bytes, 4);
        const auto mostly = [](std::uint8_t byte, std::size_t right) { return byte < 0xF0 ? right : byte - 0xC0U; };
        const std::uint8_t code = how[0] < 0xF0 ? 0 : how[0];
        const std::size_t record_size = mostly(how[1], 66);
        sensor_record_t record = decode_sensor_record(code, take(bytes, record_size));
        if (code != 0 || record_size != 66 || record.name_length > 63 ||
            record.name.size() != std::min<std::size_t>(record.name_length, 16))
            std::abort();
        const std::optional<std::uint8_t> reading = decode_sensor_reading(0, take(bytes, mostly(how[2], 3)));
        if (record.name.size() < record.name_length) {
            if (encode_get_sensor_name(0, record).back() != record.name_length)
                std::abort();
            record.name = decode_sensor_name(0, take(bytes, mostly(how[3], record.name_length + 2U)), record);
            if (record.name.size() != record.name_length)
                std::abort();
        }
        check(record, std::nullopt);
        check(record, reading);
        for (unsigned raw = 0; raw < 256; ++raw)
            convert_reading(record, static_cast<std::uint8_t>(raw));
    } catch (const std::runtime_error&) {
        // What a decoder does with bytes that make no sense.
    }
    return 0;
}
