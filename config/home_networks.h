// The host's IPv4 home networks, asked once from the site.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "plugin/host_interfaces.h"

namespace flow {

class HomeNetworks {
 public:
  // Fetch asks the site for its networks, which replace those known before. A site that gives none,
  // or answers with an error, leaves no address at home.
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

  [[nodiscard]] bool InRanges(std::uint32_t address) const noexcept {
    const auto next = std::upper_bound(
        ranges_.begin(), ranges_.end(), address,
        [](std::uint32_t value, const Range& range) { return value < range.first; });
    return next != ranges_.begin() && address <= (next - 1)->last;
  }
  [[nodiscard]] bool InOddNetworks(std::uint32_t address) const noexcept;

  std::vector<Range> ranges_;    // ascending, disjoint: the networks whose mask is a prefix
  std::vector<OddNetwork> odd_;  // the others
};

}  // namespace flow
