// What the tool itself costs, without a platform: interpreting a command line and rendering reports.

#include "Argos/argument_parser.h"
#include "output/section.h"
#include "output/terminal.h"
#include "text/text.h"
#include "transceiver/report/report.h"

#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

namespace ivra::bsp {
namespace {

section::list listing(std::int64_t accelerators)
{
    section::list list{"accelerators", 0, {}};
    for (std::int64_t i = 0; i < accelerators; ++i)
        list.add_section("card-" + std::to_string(i), "Name", 0)
            .add_stat({"ID", std::to_string(i), color::normal})
            .add_stat({"Board model", "xilinx_u200", color::normal})
            .add_stat({"Board base MAC", "02:00:00:00:00:00", color::normal})
            .add_stat({"Board serial", "Error", color::red});
    return list;
}

void build_a_listing(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(listing(state.range(0)));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(build_a_listing)->RangeMultiplier(10)->Range(1, 1000)->Complexity(benchmark::oN);

void make_texts_fit_for_a_screen(benchmark::State& state)
{
    const std::string text(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        benchmark::DoNotOptimize(printable(text));
        benchmark::DoNotOptimize(valid_utf8(text));
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(make_texts_fit_for_a_screen)->RangeMultiplier(10)->Range(10, 10000)->Complexity(benchmark::oN);

void report_modules_of_eight_lanes(benchmark::State& state)
{
    transceiver::qsfp_dd::stats_t stats{.temperature = 47.5, .vcc = 3.3, .lanes = {}};
    stats.lanes.fill({.rx_power = 1.122, .tx_power = 1.259, .tx_bias = 78.2});
    const transceiver::transceiver_info_t info{
        "QSFP-DD Double Density 8X pluggable transceiver", "SAMPLE CO", "SAMPLE-1", stats, {}};
    std::ostringstream text;
    terminal screen{text};
    for (auto _ : state) {
        text.str({});
        section::list ports{"Transceivers", 0, {}};
        for (std::int64_t i = 0; i < state.range(0); ++i)
            add_transceiver(info, ports.add_section("Port " + std::to_string(i + 1), "Port", 1));
        screen.print_out_content(ports.entries, ports.level);
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(report_modules_of_eight_lanes)->RangeMultiplier(2)->Range(1, 8)->Complexity(benchmark::oN);

void parse_a_command_line(benchmark::State& state)
{
    for (auto _ : state) {
        argos::ArgumentParser parser{"bench"};
        parser.add(argos::Option{"-a", "--accelerator"}.argument("accelerator"));
        parser.add(argos::Option{"-j", "--json"});
        parser.add(argos::Argument{"command"}.count(1, 2));
        benchmark::DoNotOptimize(parser.parse({"--accelerator=1", "show", "-j", "info"}));
    }
}
BENCHMARK(parse_a_command_line);

} // namespace
} // namespace ivra::bsp
