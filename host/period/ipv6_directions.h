// SPDX-License-Identifier: Apache-2.0
// The directions of IPv6 traffic. A plug-in can ask whether an IPv4 address is at home, so its
// totals by direction are those of IPv4; the host adds those of IPv6.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/engine/stats_store.h"
#include "host/policy/home_ranges.h"

namespace flow::host {

class Ipv6Directions {
 public:
  // The home outlives it.
  explicit Ipv6Directions(const HomeRanges& home) : home_(home) {}

  // Add takes note of what IPv6 flows carried, of whole flows, before any were let go; AddTo adds
  // it to a store's totals by direction, once.
  void Add(const FlowTable& flows);
  void AddTo(StatsStore* store);

  static constexpr std::size_t kWays = 4;

 private:
  struct Volume {
    std::uint64_t bytes = 0;
    std::uint64_t packets = 0;
  };
  void AddFlow(std::string_view key, const FlowTotals& flow);

  const HomeRanges& home_;
  std::array<Volume, kWays> ways_;
};

}  // namespace flow::host
