// SPDX-License-Identifier: Apache-2.0
// Sends one workload to the meter, to be watched by callgrind: everything of interest happens
// inside MeasuredPass.
//
//   count_workload                      prints the workloads and growth cases, one a line
//   count_workload WORKLOAD POLICY      prints the number of items in the pass and of host calls
//   count_workload growth CASE          the same

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "bench/checked_workload.h"
#include "bench/growth.h"

// What callgrind watches, by this name.
extern "C" __attribute__((noinline)) void MeasuredPass(const std::function<void()>& pass) {
  pass();
}

namespace flow::bench {
namespace {

void Print(std::string_view text, char end) {
  std::printf("%.*s%c", static_cast<int>(text.size()), text.data(), end);
}

void List() {
  for (const std::string_view name : WorkloadNames()) {
    for (const std::string_view policy : kPolicies) {
      Print(name, ' ');
      Print(policy, '\n');
    }
  }
  for (const GrowthCase& growth : GrowthCases()) {
    Print("growth", ' ');
    Print(growth.name, ' ');
    std::printf("%g\n", growth.limit);
  }
}

void CountWorkload(std::string_view name, std::string_view policy) {
  NullEngine engine;
  CheckedWorkload workload(NewMeterOfLibrary(MakeWorkload(name).meter), name, policy);
  MeasuredPass([&] { workload.Count(&engine); });
  std::printf("%llu %.2f\n", static_cast<unsigned long long>(workload.Traffic().items),
              workload.CallsPerItem());
}

void CountGrowth(std::string_view name) {
  const auto growth = std::ranges::find(GrowthCases(), name, &GrowthCase::name);
  if (growth == GrowthCases().end()) std::exit(2);
  NullEngine engine;
  GrowthMeter meter(*growth);
  std::uint64_t records = 0;
  MeasuredPass([&] { records = meter.Count(&engine, 200); });
  std::printf("%llu 0\n", static_cast<unsigned long long>(records));
}

}  // namespace
}  // namespace flow::bench

int main(int argc, char** argv) {
  if (argc != 3) {
    flow::bench::List();
  } else if (argv[1] == std::string_view("growth")) {
    flow::bench::CountGrowth(argv[2]);
  } else {
    flow::bench::CountWorkload(argv[1], argv[2]);
  }
  return 0;
}
