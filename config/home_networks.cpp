// SPDX-License-Identifier: Apache-2.0
#include "config/home_networks.h"

#include <algorithm>
#include <memory>

namespace flow {

void HomeNetworks::Fetch(IOmbrelContainer* site) {
  int count = 0;
  std::uint32_t* addresses = nullptr;
  std::uint32_t* masks = nullptr;
  site->GetHomeNetworks(&count, &addresses, &masks);
  const std::unique_ptr<std::uint32_t[]> owned_addresses(addresses);
  const std::unique_ptr<std::uint32_t[]> owned_masks(masks);
  if (count < 1 || addresses == nullptr || masks == nullptr) count = 0;
  const auto size = static_cast<std::size_t>(count);
  Set({addresses, size}, {masks, size});
}

void HomeNetworks::Set(std::span<const std::uint32_t> addresses,
                       std::span<const std::uint32_t> masks) {
  odd_.clear();
  std::vector<Range> ranges;
  for (std::size_t i = 0; i < addresses.size(); ++i) {
    const std::uint32_t host_bits = ~masks[i];
    const bool is_prefix = (host_bits & (host_bits + 1)) == 0;
    if (is_prefix) {
      ranges.push_back({addresses[i] & masks[i], addresses[i] | host_bits});
    } else {
      odd_.push_back({addresses[i] & masks[i], masks[i]});
    }
  }
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.first < b.first; });
  ranges_.clear();
  for (const Range& range : ranges) {
    if (!ranges_.empty() && range.first <= ranges_.back().last) {
      ranges_.back().last = std::max(ranges_.back().last, range.last);
    } else {
      ranges_.push_back(range);
    }
  }
}

bool HomeNetworks::InOddNetworks(std::uint32_t address) const noexcept {
  return std::any_of(odd_.begin(), odd_.end(), [=](const OddNetwork& network) {
    return (address & network.mask) == network.address;
  });
}

}  // namespace flow
