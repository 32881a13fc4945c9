// A sensor as a BMC describes it, by the standard: the fuzzer gives the record, and the answer with the reading.

#include "telemetry/ipmi_sensor.h"
#include "telemetry_reading.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>

using namespace ivra::bsp::telemetry;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Completion code, length of the record, record, answer.
    std::span<const std::uint8_t> bytes{data, size};
    if (bytes.size() < 2)
        return 0;
    const std::uint8_t code = bytes[0] < 0x80 ? 0 : bytes[0];
    const auto record = bytes.subspan(2).first(std::min<std::size_t>(bytes[1], bytes.size() - 2));
    const auto answer = bytes.subspan(2 + record.size());
    ipmi_sensor_t sensor;
    try {
        sensor = decode_full_sensor_record(record);
    } catch (const std::runtime_error&) {
        require(record.size() < 48 || !is_full_sensor_record(record));
        return 0;
    }
    check(sensor.reading);
    if (sensor.reading.state == state_t::unsupported)
        return 0;
    const reading_t reading = decode_sensor_reading(sensor, code, answer);
    check(reading);
    require(code == 0 || reading.state != state_t::ok);
    require(reading.limits.values == sensor.reading.limits.values);
    for (unsigned raw = 0; raw <= 0xFF; ++raw) {
        const std::uint8_t scanned[] = {static_cast<std::uint8_t>(raw), 0x40};
        check(decode_sensor_reading(sensor, 0, scanned));
    }
    return 0;
}
