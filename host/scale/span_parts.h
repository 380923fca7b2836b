// SPDX-License-Identifier: Apache-2.0
// How often a run has told of a span: captures may be out of order, and clocks set back.
#pragma once

#include <array>
#include <cstdint>
#include <iterator>
#include <map>

#include "host/store/schema.h"

namespace flow::host {

class SpanParts {
 public:
  // From 1; what is long past is not told apart any more.
  std::uint32_t Begin(std::size_t tier, std::int64_t bucket) {
    constexpr std::size_t kMostKnown = 10'000;
    auto& parts = parts_[tier];
    const std::uint32_t part = ++parts[bucket];
    if (parts.size() > kMostKnown) parts.erase(parts.begin());
    return part;
  }

 private:
  std::array<std::map<std::int64_t, std::uint32_t>, std::size(kTiers)> parts_;
};

}  // namespace flow::host
