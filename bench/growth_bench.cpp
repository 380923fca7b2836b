// SPDX-License-Identifier: Apache-2.0
// Growth in time, cache misses included; `instructions --growth` says how it grows without them.
//
//   BM_Growth/1000_exporters
//     cost     nanoseconds a record, library alone, median of passes
//     base     that of one exporter with one template, measured in turns
//     ratio    cost / base

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/engines.h"
#include "bench/growth.h"
#include "bench/timing.h"

namespace flow::bench {
namespace {

void Measure(benchmark::State& state, const GrowthCase& growth) {
  constexpr std::uint32_t kDatagrams = 200;
  NullEngine engine;
  GrowthMeter base(GrowthCases().front());
  GrowthMeter grown(growth);
  std::uint64_t records = 0;
  std::vector<double> base_seconds;
  std::vector<double> grown_seconds;
  for (auto _ : state) {
    const double start = ProcessorTime();
    base.Count(&engine, kDatagrams);
    const double middle = ProcessorTime();
    records += grown.Count(&engine, kDatagrams);
    const double end = ProcessorTime();
    base_seconds.push_back(middle - start);
    grown_seconds.push_back(end - middle);
    state.SetIterationTime(grown_seconds.back());
  }
  const double per_pass = static_cast<double>(records) / static_cast<double>(state.iterations());
  state.SetItemsProcessed(static_cast<std::int64_t>(records));
  const double ns_per_record = 1e9 / per_pass;
  const double cost = Median(&grown_seconds) * ns_per_record;
  const double base_cost = Median(&base_seconds) * ns_per_record;
  state.counters["cost"] = cost;
  state.counters["base"] = base_cost;
  state.counters["ratio"] = cost / base_cost;
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
