// Growth in time, cache misses included; `instructions --growth` says how it grows without them.
//
//   BM_Growth/1000_exporters
//     cost     nanoseconds a record, library alone
//     ratio    cost / that of one exporter with one template, measured in turns

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "bench/engines.h"
#include "bench/growth.h"

namespace flow::bench {
namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

void Measure(benchmark::State& state, const GrowthCase& growth) {
  constexpr std::uint32_t kDatagrams = 1000;
  NullEngine engine;
  GrowthMeter base(GrowthCases().front());
  GrowthMeter grown(growth);
  std::uint64_t records = 0;
  double base_seconds = 0;
  double grown_seconds = 0;
  for (auto _ : state) {
    const auto start = Clock::now();
    base.Count(&engine, kDatagrams);
    const auto middle = Clock::now();
    records += grown.Count(&engine, kDatagrams);
    const auto end = Clock::now();
    base_seconds += Seconds(middle - start);
    grown_seconds += Seconds(end - middle);
    state.SetIterationTime(Seconds(end - middle));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(records));
  state.counters["cost"] = grown_seconds * 1e9 / static_cast<double>(records);
  state.counters["ratio"] = grown_seconds / base_seconds;
  state.counters["limit"] = growth.limit;
}

void Register() {
  for (const GrowthCase& growth : GrowthCases()) {
    const std::string name = "BM_Growth/" + std::string(growth.name);
    benchmark::RegisterBenchmark(name.c_str(),
                                 [&growth](benchmark::State& state) { Measure(state, growth); })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  }
}

}  // namespace
}  // namespace flow::bench

int main(int argc, char** argv) {
  flow::bench::Register();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
