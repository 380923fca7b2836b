// SPDX-License-Identifier: Apache-2.0
// Nothing is allocated for a datagram or a record once the templates are known.

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <tuple>

#include "bench/checked_workload.h"
#include "netflow/netflow_meter.h"
#include "sflow/sflow_meter.h"
#include "tests/bench/allocation_counter.h"
#include "tests/support/component.h"

namespace flow::test {
namespace {

using bench::MeterKind;

constexpr std::uint64_t kRecords = 100'000;

Component NewMeter(MeterKind kind) {
  if (kind == MeterKind::kNetflow) return ComponentOf<CPINetflowMeter>();
  return ComponentOf<CPISFlowMeter>();
}

// Where a block goes that the compiler may not leave out.
void* volatile g_block;

TEST(AllocationCounter, CountsEveryWayToTakeMemory) {
  const struct {
    const char* name;
    void* (*take)();
    void (*give)(void*);
  } ways[] = {
      {"new", [] { return ::operator new(1); }, [](void* block) { ::operator delete(block); }},
      {"malloc", [] { return std::malloc(1); }, std::free},
      {"calloc", [] { return std::calloc(1, 1); }, std::free},
      {"realloc", [] { return std::realloc(nullptr, 1); }, std::free},
  };
  for (const auto& way : ways) {
    SCOPED_TRACE(way.name);
    StartCounting();
    g_block = way.take();
    EXPECT_EQ(StopCounting(), 1U);
    way.give(g_block);
  }
  StartCounting();
  EXPECT_EQ(StopCounting(), 0U);
}

class Allocation : public testing::TestWithParam<std::tuple<std::string_view, std::string_view>> {};

TEST_P(Allocation, NoneOnceTemplatesAreKnown) {
  const auto [name, policy] = GetParam();
  bench::CheckedWorkload workload(NewMeter(bench::MakeWorkload(name).meter), name, policy);
  bench::NullEngine engine;
  StartCounting();
  for (std::uint64_t sent = 0; sent < kRecords; sent += workload.Traffic().items) {
    workload.Count(&engine);
  }
  EXPECT_EQ(StopCounting(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Workloads, Allocation,
                         testing::Combine(testing::ValuesIn(bench::WorkloadNames()),
                                          testing::ValuesIn(bench::kPolicies)),
                         [](const auto& row) {
                           return std::string(std::get<0>(row.param)) + "_" +
                                  std::string(std::get<1>(row.param));
                         });

}  // namespace
}  // namespace flow::test
