// SPDX-License-Identifier: Apache-2.0
// The time that an exporter's datagrams may take. Whoever sends one that keeps a meter busy for
// long is held back for longer, so that it has a small share of the meter's time.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <chrono>
#include <optional>

#include "host/base/endpoint.h"

namespace flow::host {

class TimeBudget {
 public:
  using Clock = std::chrono::steady_clock;

  // For one datagram; the dearest honest ones take a few milliseconds.
  static constexpr std::chrono::milliseconds kMost{100};
  // Times what it took, its exporter is held back.
  static constexpr int kPenalty = 20;
  static constexpr std::chrono::seconds kShortestPenalty{10};
  static constexpr std::chrono::seconds kLongestPenalty{600};

  // An exporter that is held back, and what for.
  struct Offence {
    IpAddress exporter;
    Clock::duration took;
    Clock::duration penalty;
  };

  // IsHeldBack is cheap while nobody is.
  [[nodiscard]] bool IsHeldBack(const IpAddress& exporter, Clock::time_point now) {
    return !held_until_.empty() && Look(exporter, now);
  }

  // Spend takes note of the time of a datagram; the offence if it was too long.
  std::optional<Offence> Spend(const IpAddress& exporter, Clock::duration took,
                               Clock::time_point now);

 private:
  bool Look(const IpAddress& exporter, Clock::time_point now);

  absl::flat_hash_map<IpAddress, Clock::time_point> held_until_;
};

}  // namespace flow::host
