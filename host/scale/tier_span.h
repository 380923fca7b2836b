// SPDX-License-Identifier: Apache-2.0
// All that was counted in a minute, hour or day but its flows, as it is added up.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "host/store/counters.h"
#include "host/store/tier_counts.h"

namespace flow::host {

struct BucketSums {
  std::uint64_t ran = 0;  // seconds
  std::uint64_t datagrams = 0;
  std::uint64_t records = 0;
  std::uint64_t bytes = 0;
  std::uint64_t packets = 0;
  std::uint64_t flows = 0;
  std::uint64_t flows_not_kept = 0;

  void Add(const BucketSums& other);
};

struct TierSpan {
  // Exporter, port, version.
  using Source = std::tuple<std::string, std::uint16_t, std::string>;
  struct Health {
    std::string lost_unit;
    std::optional<std::int64_t> clock_offset_ms;  // the last one
    std::vector<std::uint64_t> values;            // in the order of HealthColumns
  };
  struct LossKey {
    Source source;
    std::string place;
    std::string reason;
    std::string unit;

    friend auto operator<=>(const LossKey&, const LossKey&) = default;
  };

  std::int64_t bucket = 0;
  TierCounts counts;
  std::map<Source, Health> health;
  std::map<LossKey, std::uint64_t> losses;
  std::vector<StreamNumbers> numbers;  // of a minute alone
  BucketSums sums;

  // Of a minute, whose counts are taken over.
  static TierSpan OfMinute(StoredMinute minute);
  void Add(const TierSpan& part);
};

}  // namespace flow::host
