#include "exporter/metrics.h"

#include "text/json.h"
#include "text/text.h"

#include <prometheus/client_metric.h>
#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <rapidjson/document.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <sstream>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

namespace ivra::bsp::exporter {

namespace {

using labels_t = std::vector<prometheus::ClientMetric::Label>;

/// The metrics, in the order of the table below.
enum class metric_t : std::size_t
{
    board_info,
    board_up,
    board_down,
    board_collect_seconds,
    board_health,
    board_readings,
    board_errors,
    power_good,
    boot_image,
    fpga_celsius,
    sensor_volts, // the units of sensors follow each other in each of three groups
    sensor_amperes,
    sensor_celsius,
    sensor_watts,
    sensor_rpm,
    sensor_volts_peak,
    sensor_amperes_peak,
    sensor_celsius_peak,
    sensor_watts_peak,
    sensor_rpm_peak,
    sensor_limit_volts,
    sensor_limit_amperes,
    sensor_limit_celsius,
    sensor_limit_watts,
    sensor_limit_rpm,
    sensor_health,
    module_present,
    module_info,
    module_health,
    module_celsius,
    module_volts,
    module_rx_watts,
    module_tx_watts,
    module_bias_amperes,
    module_limit_celsius,
    module_limit_volts,
    module_limit_rx_watts,
    module_limit_tx_watts,
    module_limit_bias_amperes,
    exporter_info,
    exporter_collect_success,
    exporter_collect_seconds,
    exporter_collect_timestamp_seconds,
    exporter_collections_total,
    exporter_set_aside_total,
    exporter_refused_lines_total,
    exporter_held_readers,
    exporter_dropped_series,
    count
};

struct metric_row_t
{
    std::string_view name;
    std::string_view labels; ///< beside those that a scraper adds
    std::string_view help;
};

constexpr auto sensor_labels = "uid, sensor, record";
constexpr auto sensor_limit_labels = "uid, sensor, record, severity, side";
constexpr auto module_limit_labels = "uid, cage, severity, side";
constexpr metric_row_t table[] = {
    {"ivra_board_info", "uid, index, name, model, serial, mac, fpga, fpga_serial",
     "A board, and what is long or may change of it. Always 1."},
    {"ivra_board_up", "uid", "Whether the board was read in this collection. Without it there is nothing else of it."},
    {"ivra_board_down", "uid, reason",
     "Why a board was not read: late (not in time), held (an earlier collection waits for it), failed. Always 1."},
    {"ivra_board_collect_seconds", "uid", "From the beginning of the collection until the board was read."},
    {"ivra_board_health", "uid, state", "The board's verdict: 1 for its state, 0 for the others."},
    {"ivra_board_readings", "uid, state",
     "Readings of the board, its modules' too, by state. Only those that are ok have a value."},
    {"ivra_board_errors", "uid, part", "A part of the board that it should have and that could not be read. Always 1."},
    {"ivra_power_good", "uid", "Whether the board's controller finds the power supplies good."},
    {"ivra_boot_image", "uid, when, image",
     "The flash image that runs (when=\"current\") and the one after a reload (\"next\"): 1 for it, 0 for the others."},
    {"ivra_fpga_celsius", "uid", "Temperature of the FPGA."},
    {"ivra_sensor_volts", sensor_labels, "A sensor of the board's controller: voltage."},
    {"ivra_sensor_amperes", sensor_labels, "A sensor of the board's controller: current."},
    {"ivra_sensor_celsius", sensor_labels, "A sensor of the board's controller: temperature."},
    {"ivra_sensor_watts", sensor_labels, "A sensor of the board's controller: power."},
    {"ivra_sensor_rpm", sensor_labels, "A sensor of the board's controller: revolutions per minute."},
    {"ivra_sensor_volts_peak", sensor_labels, "Highest voltage that the controller remembers."},
    {"ivra_sensor_amperes_peak", sensor_labels, "Highest current that the controller remembers."},
    {"ivra_sensor_celsius_peak", sensor_labels, "Highest temperature that the controller remembers."},
    {"ivra_sensor_watts_peak", sensor_labels, "Highest power that the controller remembers."},
    {"ivra_sensor_rpm_peak", sensor_labels, "Highest speed that the controller remembers."},
    {"ivra_sensor_limit_volts", sensor_limit_labels, "A limit of a sensor: voltage."},
    {"ivra_sensor_limit_amperes", sensor_limit_labels, "A limit of a sensor: current."},
    {"ivra_sensor_limit_celsius", sensor_limit_labels, "A limit of a sensor: temperature."},
    {"ivra_sensor_limit_watts", sensor_limit_labels, "A limit of a sensor: power."},
    {"ivra_sensor_limit_rpm", sensor_limit_labels, "A limit of a sensor: revolutions per minute."},
    {"ivra_sensor_health", "uid, sensor, record, state",
     "Verdict of a sensor that has limits, or could not be read: 1 for its state, 0 for the others."},
    {"ivra_module_present", "uid, cage", "Whether there is a module in the cage."},
    {"ivra_module_info", "uid, cage, type, vendor, part, revision, serial, date",
     "A module, and what it says of itself. Always 1."},
    {"ivra_module_health", "uid, cage, state",
     "Verdict of a module whose readings have limits, or that could not be read: 1 for its state, 0 for the others."},
    {"ivra_module_celsius", "uid, cage", "Temperature of a module."},
    {"ivra_module_volts", "uid, cage", "Supply voltage of a module."},
    {"ivra_module_rx_watts", "uid, cage, lane", "Optical power that a lane receives."},
    {"ivra_module_tx_watts", "uid, cage, lane", "Optical power that a lane sends."},
    {"ivra_module_bias_amperes", "uid, cage, lane", "Current of a lane's laser."},
    {"ivra_module_limit_celsius", module_limit_labels, "A limit of a module: temperature."},
    {"ivra_module_limit_volts", module_limit_labels, "A limit of a module: supply voltage."},
    {"ivra_module_limit_rx_watts", module_limit_labels, "A limit of a module's lanes: received power."},
    {"ivra_module_limit_tx_watts", module_limit_labels, "A limit of a module's lanes: sent power."},
    {"ivra_module_limit_bias_amperes", module_limit_labels, "A limit of a module's lanes: current of the laser."},
    {"ivra_exporter_info", "version, platform",
     "What reads the boards; platform is \"system\", or \"simulated\" where the boards are. Always 1."},
    {"ivra_exporter_collect_success", "", "Whether the boards of the host could be listed."},
    {"ivra_exporter_collect_seconds", "", "What the collection took."},
    {"ivra_exporter_collect_timestamp_seconds", "", "When the collection ended, in seconds since 1970."},
    {"ivra_exporter_collections_total", "", "Collections since the start."},
    {"ivra_exporter_set_aside_total", "", "Collections that did not end in time since the start."},
    {"ivra_exporter_refused_lines_total", "", "Lines of what reads the boards that were no documents since the start."},
    {"ivra_exporter_held_readers", "", "Processes of earlier collections that still read boards."},
    {"ivra_exporter_dropped_series", "", "Series that are missing here because another one has the same labels."},
};
static_assert(std::size(table) == static_cast<std::size_t>(metric_t::count));

constexpr std::string_view sensor_units[] = {"volts", "amperes", "celsius", "watts", "rpm"};
constexpr const char* reading_states[] = {"ok", "unavailable", "unsupported", "failed"};

struct limit_row_t
{
    const char* member;
    const char* severity;
    const char* side;
};
constexpr limit_row_t limit_rows[] = {
    {"lower_non_recoverable", "non_recoverable", "lower"},
    {"lower_critical", "critical", "lower"},
    {"lower_non_critical", "warning", "lower"},
    {"upper_non_critical", "warning", "upper"},
    {"upper_critical", "critical", "upper"},
    {"upper_non_recoverable", "non_recoverable", "upper"},
};

constexpr metric_t after(metric_t metric, std::size_t count)
{
    return static_cast<metric_t>(static_cast<std::size_t>(metric) + count);
}

bool is_counter(std::string_view name)
{
    return name.ends_with("_total");
}

/// Series by metric, each once.
class series
{
public:
    void add(metric_t metric, labels_t labels, double value)
    {
        // A number that its text of 16 digits could make too big for those who read it is none that a board has.
        if (!(std::abs(value) < 1e308) || !is_new(metric, labels)) {
            ++dropped_;
            return;
        }
        prometheus::ClientMetric sample;
        sample.label = std::move(labels);
        if (is_counter(table[static_cast<std::size_t>(metric)].name))
            sample.counter.value = value;
        else
            sample.gauge.value = value;
        samples_[static_cast<std::size_t>(metric)].push_back(std::move(sample));
    }
    void add(metric_t metric, labels_t labels, std::optional<double> value)
    {
        if (value)
            add(metric, std::move(labels), *value);
    }
    /// A series for each state, one of which is 1.
    template <class States>
    void add_states(metric_t metric, const labels_t& labels, const char* label, const States& states,
                    std::string_view actual)
    {
        for (const char* state : states)
            add(metric, with(labels, label, state), actual == state ? 1.0 : 0.0);
    }

    static labels_t with(labels_t labels, const char* name, std::string value)
    {
        labels.push_back({name, std::move(value)});
        return labels;
    }

    std::size_t dropped() const { return dropped_; }

    std::string text()
    {
        std::vector<prometheus::MetricFamily> families;
        for (std::size_t at = 0; at < samples_.size(); ++at)
            if (!samples_[at].empty())
                families.push_back(
                    {std::string{table[at].name}, std::string{table[at].help},
                     is_counter(table[at].name) ? prometheus::MetricType::Counter : prometheus::MetricType::Gauge,
                     std::move(samples_[at])});
        std::ostringstream stream;
        prometheus::TextSerializer{}.Serialize(stream, families);
        return stream.str();
    }

private:
    bool is_new(metric_t metric, const labels_t& labels)
    {
        std::string key;
        for (const prometheus::ClientMetric::Label& label : labels)
            (key += label.value) += '\xFF'; // is in no UTF-8
        return known_[static_cast<std::size_t>(metric)].insert(std::move(key)).second;
    }

    static constexpr auto count = static_cast<std::size_t>(metric_t::count);
    std::array<std::vector<prometheus::ClientMetric>, count> samples_;
    std::array<std::unordered_set<std::string>, count> known_;
    std::size_t dropped_ = 0;
};

/// Writes the series of a board.
class board_writer
{
public:
    board_writer(series& series, const board_t& board) : series_{series}, board_labels_{{"uid", board.key}} {}

    void write(const json_t& document, double seconds)
    {
        write_info(document);
        const bool is_up = get_text(document, "state") == "ok";
        series_.add(metric_t::board_up, board_labels_, is_up ? 1.0 : 0.0);
        if (!is_up)
            return write_absence("failed");
        series_.add(metric_t::board_collect_seconds, board_labels_, seconds);
        series_.add_states(metric_t::board_health, board_labels_, "state", healths, get_text(document, "health"));
        if (const json_t& errors = get_member(document, "errors"); errors.IsObject())
            for (const auto& error : errors.GetObject())
                series_.add(metric_t::board_errors,
                            with("part", {error.name.GetString(), error.name.GetStringLength()}), 1.0);
        if (const json_t& good = get_member(document, "power_good"); good.IsBool())
            series_.add(metric_t::power_good, board_labels_, good.GetBool() ? 1.0 : 0.0);
        for (const char* when : {"current", "next"})
            if (const std::string image = get_text(get_member(document, "boot_image"), when); !image.empty())
                series_.add_states(metric_t::boot_image, with("when", when), "image",
                                   std::array{"primary", "backup", "none"}, image);
        series_.add(metric_t::fpga_celsius, board_labels_,
                    value_of(get_member(get_member(document, "fpga"), "temperature")));
        for_each(document, "sensors", [this](const json_t& sensor) { write_sensor(sensor); });
        for_each(document, "modules", [this](const json_t& module) { write_module(module); });
        for (std::size_t at = 0; at < std::size(reading_states); ++at)
            series_.add(metric_t::board_readings, with("state", reading_states[at]),
                        static_cast<double>(readings_[at]));
    }

    void write_absence(const char* reason) { series_.add(metric_t::board_down, with("reason", reason), 1.0); }

    /// Of a board without a document that much is known.
    void write_missing(const board_t& board, const char* reason)
    {
        labels_t labels = board_labels_;
        labels.push_back({"index", board.index ? std::to_string(*board.index) : ""});
        labels.push_back({"name", board.name.value_or("")});
        series_.add(metric_t::board_info, std::move(labels), 1.0);
        series_.add(metric_t::board_up, board_labels_, 0.0);
        write_absence(reason);
    }

private:
    labels_t with(const char* name, std::string value) const
    {
        return series::with(board_labels_, name, std::move(value));
    }

    /// The value of a reading, if there is one; counts the reading.
    std::optional<double> value_of(const json_t& reading)
    {
        const std::string state = get_text(reading, "state");
        const auto* const found = std::ranges::find(reading_states, state);
        if (found != std::end(reading_states))
            ++readings_[static_cast<std::size_t>(found - reading_states)];
        return state == "ok" ? get_number(reading, "value") : std::nullopt;
    }

    void write_info(const json_t& document)
    {
        const json_t& fpga = get_member(document, "fpga");
        labels_t labels = board_labels_;
        labels.push_back({"index", get_count(document, "index")});
        for (const char* member : {"name", "model", "serial"})
            labels.push_back({member, get_text(document, member)});
        labels.push_back({"mac", get_text(get_member(document, "macs"), "first")});
        labels.push_back({"fpga", get_text(fpga, "device")});
        labels.push_back({"fpga_serial", get_text(fpga, "serial")});
        series_.add(metric_t::board_info, std::move(labels), 1.0);
    }

    void write_limits(metric_t metric, const labels_t& labels, const json_t& reading)
    {
        const json_t& limits = get_member(reading, "limits");
        for (const limit_row_t& row : limit_rows)
            series_.add(metric, series::with(series::with(labels, "severity", row.severity), "side", row.side),
                        get_number(limits, row.member));
    }

    void write_sensor(const json_t& sensor)
    {
        const labels_t labels =
            series::with(with("sensor", get_text(sensor, "name")), "record", get_count(sensor, "record"));
        const std::optional<double> value = value_of(sensor);
        if (const std::string health = get_text(sensor, "health"); !health.empty())
            series_.add_states(metric_t::sensor_health, labels, "state", healths, health);
        const std::string unit = get_text(sensor, "unit");
        const auto* const found = std::ranges::find(sensor_units, unit);
        if (found == std::end(sensor_units))
            return; // of another quantity the state is all that a unit is known for
        const auto at = static_cast<std::size_t>(found - sensor_units);
        series_.add(after(metric_t::sensor_volts, at), labels, value);
        if (value)
            series_.add(after(metric_t::sensor_volts_peak, at), labels, get_number(sensor, "peak"));
        write_limits(after(metric_t::sensor_limit_volts, at), labels, sensor);
    }

    void write_module(const json_t& module)
    {
        const labels_t labels = with("cage", get_count(module, "cage"));
        const std::string state = get_text(module, "state");
        if (state == "empty")
            return series_.add(metric_t::module_present, labels, 0.0);
        if (const std::string health = get_text(module, "health"); !health.empty())
            series_.add_states(metric_t::module_health, labels, "state", healths, health);
        if (!get_member(module, "identifier").IsUint())
            return; // whether there is a module nobody knows
        series_.add(metric_t::module_present, labels, 1.0);
        labels_t info = labels;
        for (const char* member : {"type", "vendor", "part", "revision", "serial", "date"})
            info.push_back({member, get_text(module, member)});
        series_.add(metric_t::module_info, std::move(info), 1.0);
        for_each(module, "monitors", [&](const json_t& monitor) {
            const bool is_temperature = get_text(monitor, "quantity") == "temperature";
            series_.add(is_temperature ? metric_t::module_celsius : metric_t::module_volts, labels, value_of(monitor));
            write_limits(is_temperature ? metric_t::module_limit_celsius : metric_t::module_limit_volts, labels,
                         monitor);
        });
        write_lanes(module, labels);
    }

    /// Limits are a module's. A lane leaves out those that its state makes meaningless: together the lanes have all
    /// that count for any of them.
    void write_lanes(const json_t& module, const labels_t& labels)
    {
        struct monitor_row_t
        {
            const char* member;
            metric_t value, limit;
        };
        constexpr monitor_row_t rows[] = {
            {"rx_power", metric_t::module_rx_watts, metric_t::module_limit_rx_watts},
            {"tx_power", metric_t::module_tx_watts, metric_t::module_limit_tx_watts},
            {"tx_bias", metric_t::module_bias_amperes, metric_t::module_limit_bias_amperes},
        };
        for (const monitor_row_t& row : rows) {
            std::array<std::optional<double>, std::size(limit_rows)> limits{};
            for_each(module, "lanes", [&](const json_t& lane) {
                const json_t& reading = get_member(lane, row.member);
                series_.add(row.value, series::with(labels, "lane", get_count(lane, "lane")), value_of(reading));
                for (std::size_t at = 0; at < limits.size(); ++at)
                    if (!limits[at])
                        limits[at] = get_number(get_member(reading, "limits"), limit_rows[at].member);
            });
            for (std::size_t at = 0; at < limits.size(); ++at)
                series_.add(row.limit,
                            series::with(series::with(labels, "severity", limit_rows[at].severity), "side",
                                         limit_rows[at].side),
                            limits[at]);
        }
    }

    series& series_;
    labels_t board_labels_;
    std::array<std::size_t, std::size(reading_states)> readings_{};
};

constexpr const char* get_name(absence_t absence)
{
    switch (absence) {
    case absence_t::late:
        return "late";
    case absence_t::held:
        return "held";
    case absence_t::failed:
        break;
    }
    return "failed";
}

} // namespace

std::string make_metrics(const snapshot_t& snapshot)
{
    series series;
    for (const board_t& board : snapshot.boards) {
        board_writer writer{series, board};
        if (board.document.empty()) {
            writer.write_missing(board, get_name(board.absence));
            continue;
        }
        rapidjson::Document document;
        document.Parse(board.document.data(), board.document.size());
        writer.write(document, board.seconds);
    }
    if (!snapshot.version.empty())
        series.add(metric_t::exporter_info, {{"version", snapshot.version}, {"platform", snapshot.platform}}, 1.0);
    series.add(metric_t::exporter_collect_success, {}, snapshot.is_listed ? 1.0 : 0.0);
    series.add(metric_t::exporter_collect_seconds, {}, snapshot.seconds);
    series.add(metric_t::exporter_collect_timestamp_seconds, {},
               std::chrono::duration<double>{snapshot.time.time_since_epoch()}.count());
    series.add(metric_t::exporter_collections_total, {}, static_cast<double>(snapshot.collections));
    series.add(metric_t::exporter_set_aside_total, {}, static_cast<double>(snapshot.set_aside));
    series.add(metric_t::exporter_refused_lines_total, {}, static_cast<double>(snapshot.refused_lines));
    series.add(metric_t::exporter_held_readers, {}, static_cast<double>(snapshot.held_readers));
    series.add(metric_t::exporter_dropped_series, {}, static_cast<double>(series.dropped()));
    return series.text();
}

std::string make_metrics_page()
{
    std::string page;
    for (const metric_row_t& row : table) {
        std::string labels{row.labels};
        page += "| `" + std::string{row.name} + "` | " + (is_counter(row.name) ? "counter" : "gauge") + " | " +
                (labels.empty() ? "" : "`" + labels + "`") + " | " + std::string{row.help} + " |\n";
    }
    return "# Metrics of ivra-bsp exporter\n\n"
           "Names and labels are a contract: they are added to, never changed. `uid` tells a board from the others of "
           "its "
           "host (its name where it has no uid,\nits index where it has neither). Values are in base units. What could "
           "not be read, and what a device has not, is absent: zero is always a measured zero.\n\n"
           "| metric | type | labels | what it is |\n|---|---|---|---|\n" +
           page;
}

} // namespace ivra::bsp::exporter
