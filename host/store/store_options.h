// SPDX-License-Identifier: Apache-2.0
// What is kept in a store, and for how long.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "host/policy/home_ranges.h"
#include "host/store/schema.h"

namespace flow::host {

struct StoreOptions {
  std::string directory;  // empty for no store
  std::string program;    // that writes it
  // By tier; 0 for ever.
  std::array<std::int64_t, std::size(kTiers)> keep_seconds{
      kTiers[0].keep_seconds, kTiers[1].keep_seconds, kTiers[2].keep_seconds};
  std::array<std::size_t, std::size(kTiers)> kept_keys{kTiers[0].kept_keys, kTiers[1].kept_keys,
                                                       kTiers[2].kept_keys};
  std::int64_t keep_flows_seconds = 3 * kDaySeconds;
  std::uint64_t most_flow_bytes = 20'000'000'000;

  // Captures can be read again.
  [[nodiscard]] Sync sync() const { return waits ? Sync::kNever : Sync::kAtCheckpoints; }
  void KeepAll() {
    keep_seconds = {};
    keep_flows_seconds = 0;
    most_flow_bytes = 0;
  }
  HomeRanges home = HomeRanges::OrPrivate({});  // of the meters
  bool waits = false;  // of a full queue: wait for room rather than let flows go
};

}  // namespace flow::host
