// What was captured of a BMC: whatever the bytes, a mistake or a BMC that serves these very bytes, record by record,
// with a reading for each sensor, and the thresholds that can be read.
#include "devices/bmc/bmc.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace ivra::virtual_platform;

/// The data of the answer to a request that it has to accept.
std::string asked(bmc& controller, std::string request)
{
    const auto answer = controller.take(request.insert(1, 1, '\0'));
    constexpr std::size_t header = 4;
    if (!answer || answer->message.size() < header || answer->message[header - 1] != 0)
        std::abort();
    return answer->message.substr(header);
}

void expect(bool holds)
{
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string bytes{data, data + size};
    bmc_t config;
    config.fru.raw = bytes.substr(0, 0xffff);
    std::vector<std::string> records;
    try {
        records = split_records(bytes);
    } catch (const std::runtime_error& error) {
        expect(std::string_view{error.what()}.starts_with("record "));
    }
    for (const std::string& record : records)
        config.sensors.push_back(sensor_of(record));
    for (std::size_t at = 0; at < records.size(); ++at)
        config.sensors[at].id = static_cast<std::uint16_t>(at + 1); // whatever the record says
    bmc_memory_t memory;
    bmc controller{config, memory};

    std::string together;
    for (std::size_t id = 1; id <= std::min<std::size_t>(records.size(), 0xfffe); ++id) {
        const std::string answer = asked(controller, {0x10, 0x21, 0, 0, byte(id), byte(id >> 8U), 0, byte(0xff)});
        together += answer.substr(2);
        const bmc_sensor_t& sensor = config.sensors[id - 1];
        if (is_sensor(sensor))
            expect(asked(controller, {0x10, 0x2d, byte(sensor.number)}).size() == 3);
        const auto thresholds = sensor_thresholds(sensor);
        const auto hysteresis = sensor_hysteresis(sensor);
        expect(!thresholds || thresholds->size() == 7);
        expect(!hysteresis || hysteresis->size() == 2);
        bmc_sensor_t with_value = sensor;
        with_value.value = sensor_value(sensor, sensor.raw);
        static_cast<void>(raw_reading(with_value));
    }
    expect(records.empty() || records.size() > 0xfffe || together == bytes);

    std::string fru;
    while (fru.size() < config.fru.raw->size())
        fru += asked(controller, {0x28, 0x11, 0, byte(fru.size()), byte(fru.size() >> 8U), byte(0xff)}).substr(1);
    expect(fru == *config.fru.raw);
    return 0;
}
