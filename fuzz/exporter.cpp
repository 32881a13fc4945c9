// What reads the boards may say anything, to a reader's end: the answers are whole all the same, each series is there
// once.

#include "exporter/collector.h"
#include "exporter/metrics.h"
#include "exporter/pages.h"

#include <rapidjson/document.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

using namespace ivra::bsp;
using namespace std::chrono_literals;

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

void check_metrics(const std::string& metrics)
{
    std::set<std::string> all;
    std::istringstream stream{metrics};
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with('#'))
            continue;
        const std::size_t end = line.rfind(' ');
        require(end != std::string::npos && all.insert(line.substr(0, end)).second);
        std::size_t used = 0;
        const std::string number = line.substr(end + 1);
        require(std::stod(number, &used) < 1e308 && used == number.size() &&
                number.find_first_of("nN") == std::string::npos);
    }
    require(metrics.ends_with('\n'));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::uint8_t course = data[0];
    exporter::collector collector{5s};
    exporter::collector::time_point now{1h};
    auto order = collector.ask(now, false);
    if ((course & 1U) != 0)
        collector.take_line(order->reader,
                            R"({"format":1,"host":"h","announced":[{"uid":"a"},{"name":"b"},{"index":0}]})", now);
    std::istringstream lines{std::string{data + 1, data + size}};
    for (std::string line; std::getline(lines, line);) {
        collector.take_line(order->reader, line, now += 1ms);
        if ((course & 2U) != 0) { // each line in a collection of its own
            collector.set_aside();
            if (auto next = collector.ask(now += 11s, false)) {
                collector.take_end(order->reader, "it ended", now);
                order = next;
            }
        }
    }
    if ((course & 4U) != 0)
        collector.take_end(order->reader, "it ended", now);
    const exporter::snapshot_t snapshot = collector.make_snapshot(now);
    check_metrics(exporter::make_metrics(snapshot));
    rapidjson::Document document;
    const std::string json = exporter::make_document(snapshot);
    require(!document.Parse<rapidjson::kParseValidateEncodingFlag>(json.data(), json.size()).HasParseError());
    require(exporter::make_start_page(snapshot).ends_with("</html>\n"));
    return 0;
}
