// What the tool itself costs, without a platform: interpreting a command line and rendering reports.

#include "Argos/argument_parser.h"
#include "output/output.h"
#include "output/section.h"

#include <benchmark/benchmark.h>

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
