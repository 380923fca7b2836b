// SPDX-License-Identifier: Apache-2.0
// Hashes of what makes a flow. Nobody compares what they are of, so they have all 64 bits, and
// strangers cannot know them: they are not the same in every process.
#pragma once

#include <absl/hash/hash.h>

#include <algorithm>
#include <cstdint>
#include <span>

namespace flow::host {

inline std::uint64_t MixHash(std::uint64_t a, std::uint64_t b) {
  static const std::uint64_t seeds[] = {absl::HashOf(1) | 1, absl::HashOf(2) | 1};
  __extension__ using Product = unsigned __int128;
  const Product product = static_cast<Product>(a ^ seeds[0]) * (b ^ seeds[1]);
  return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

// Of an address of up to 16 bytes, and what belongs to it.
inline std::uint64_t HashAddress(std::span<const std::uint8_t> bytes, std::uint64_t more = 0) {
  std::uint64_t halves[2]{};
  std::copy_n(bytes.begin(), std::min(bytes.size(), sizeof(halves)),
              reinterpret_cast<std::uint8_t*>(halves));
  const std::uint64_t rest = more << 8 | bytes.size();
  return MixHash(halves[0], bytes.size() > 8 ? MixHash(halves[1], rest) : rest);
}

}  // namespace flow::host
