// SPDX-License-Identifier: Apache-2.0
// How the cost of a record grows with what the meter has to know: exporters, templates, filters,
// home AS numbers, home networks. All cases meter the same v9 records of routers.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "bench/meter_host.h"
#include "bench/workload.h"

namespace flow::bench {

struct GrowthCase {
  std::string_view name;
  std::uint32_t exporters = 1;
  std::uint32_t templates = 1;  // of each exporter
  std::string (*settings)() = nullptr;
  std::uint32_t home_networks = 0;
  double limit = 1.0;  // cost, as a multiple of the first case
};
std::span<const GrowthCase> GrowthCases();  // the first one is what the others are compared with

class GrowthMeter {
 public:
  explicit GrowthMeter(const GrowthCase& growth);

  // Count sends so many datagrams, each from another exporter and of another template than the one
  // before, where there are several. Returns the number of their records.
  std::uint64_t Count(IOmbrelStatsEngine* engine, std::uint32_t datagrams);

 private:
  void Learn(std::uint32_t exporter);
  void Check();

  GrowthCase case_;
  Workload workload_;
  MeterHost host_;
  std::uint64_t next_ = 0;  // datagram
};

}  // namespace flow::bench
