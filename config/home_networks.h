// SPDX-License-Identifier: Apache-2.0
// The host's IPv4 home networks, asked once from the site.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "flowhandlers/host_interfaces.h"

namespace flow {

class HomeNetworks {
 public:
  // Fetch asks the site for its networks, which replace those known before. A site that gives none
  // leaves no address at home; its status says nothing.
  void Fetch(IOmbrelContainer* site);

  void Set(std::span<const std::uint32_t> addresses, std::span<const std::uint32_t> masks);

  [[nodiscard]] bool Contains(std::uint32_t address) const noexcept {
    return InRanges(address) || (!odd_.empty() && InOddNetworks(address));
  }

 private:
  struct Range {
    std::uint32_t first;
    std::uint32_t last;
  };
  struct OddNetwork {
    std::uint32_t address;
    std::uint32_t mask;
  };

  // Halves the ranges until one is left: the last that begins at or before the address, if any
  // does. Random addresses would mislead a branch, so there is none.
  [[nodiscard]] bool InRanges(std::uint32_t address) const noexcept {
    const Range* range = ranges_.data();
    std::size_t count = ranges_.size();
    if (count == 0) return false;
    for (; count > 1; count -= count / 2) {
      const Range* const middle = range + count / 2;
      range = middle->first <= address ? middle : range;
    }
    return address - range->first <= range->last - range->first;
  }
  [[nodiscard]] bool InOddNetworks(std::uint32_t address) const noexcept;

  std::vector<Range> ranges_;    // ascending, disjoint: the networks whose mask is a prefix
  std::vector<OddNetwork> odd_;  // the others
};

}  // namespace flow
