// SPDX-License-Identifier: Apache-2.0
#include "host/intake/time_budget.h"

#include <algorithm>

namespace flow::host {

std::optional<TimeBudget::Offence> TimeBudget::Spend(const IpAddress& exporter,
                                                     Clock::duration took, Clock::time_point now) {
  if (took < kMost) return std::nullopt;
  constexpr std::size_t kMostExporters = std::size_t{1} << 16;
  const Clock::duration penalty =
      std::clamp<Clock::duration>(took * kPenalty, kShortestPenalty, kLongestPenalty);
  if (held_until_.size() >= kMostExporters) held_until_.clear();
  held_until_[exporter] = now + penalty;
  return Offence{exporter, took, penalty};
}

bool TimeBudget::Look(const IpAddress& exporter, Clock::time_point now) {
  const auto known = held_until_.find(exporter);
  if (known == held_until_.end()) return false;
  if (now < known->second) return true;
  held_until_.erase(known);
  return false;
}

}  // namespace flow::host
