// SPDX-License-Identifier: Apache-2.0
// Cost per record through Count, for every workload, policy and engine, and its floor: the same
// host calls with ready-made keys. Both are measured in turns, so that a busy machine slows both.
//
//   BM_Count/v5/default/tally    time of a pass over all datagrams
//     cost, floor    nanoseconds a record (a datagram, where all are malformed), medians of passes
//     ratio          cost / floor
//     calls          host calls a record

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/checked_workload.h"
#include "bench/timing.h"

namespace flow::bench {
namespace {

void Measure(benchmark::State& state, std::string_view name, std::string_view policy,
             IOmbrelStatsEngine* engine) {
  const MeterKind kind = MakeWorkload(name).meter;
  CheckedWorkload workload(NewMeterOfLibrary(kind), name, policy);
  const Workload& traffic = workload.Traffic();
  workload.Count(engine);  // every key has its place now
  std::vector<double> cost;
  std::vector<double> floor;
  for (auto _ : state) {
    const double start = ProcessorTime();
    workload.Count(engine);
    const double counted = ProcessorTime();
    workload.Floor(engine);
    const double played = ProcessorTime();
    cost.push_back(counted - start);
    floor.push_back(played - counted);
    state.SetIterationTime(cost.back());
  }
  const auto iterations = static_cast<std::int64_t>(state.iterations());
  state.SetItemsProcessed(iterations * static_cast<std::int64_t>(traffic.items));
  state.SetBytesProcessed(iterations * static_cast<std::int64_t>(traffic.datagram_bytes));
  const double items = static_cast<double>(traffic.items);
  const double cost_ns = Median(&cost) * 1e9 / items;
  const double floor_ns = Median(&floor) * 1e9 / items;
  state.counters["cost"] = cost_ns;
  state.counters["floor"] = floor_ns;
  if (traffic.metered != 0) state.counters["ratio"] = cost_ns / floor_ns;
  state.counters["calls"] = workload.CallsPerItem();
}

void Register() {
  for (const std::string_view name : WorkloadNames()) {
    for (const std::string_view policy : kPolicies) {
      const auto add = [&](const char* engine_name, auto make_engine) {
        const std::string full =
            "BM_Count/" + std::string(name) + "/" + std::string(policy) + "/" + engine_name;
        benchmark::RegisterBenchmark(full.c_str(),
                                     [=](benchmark::State& state) {
                                       auto engine = make_engine();
                                       Measure(state, name, policy, &engine);
                                     })
            ->UseManualTime()
            ->Unit(benchmark::kMicrosecond);
      };
      add("null", [] { return NullEngine(); });
      add("tally", [] { return TallyEngine(); });
    }
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
