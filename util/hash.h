// SPDX-License-Identifier: Apache-2.0
// Hashing of numbers for the library's tables.
#pragma once

#include <cstdint>

namespace flow {

// HashNumber spreads a number over all 64 bits (the finalizer of MurmurHash3). The seed is the
// place at which the loader has put the library: whoever sends datagrams must not be able to choose
// addresses, ports and ids that share a slot.
[[nodiscard]] inline std::uint64_t HashNumber(std::uint64_t v) noexcept {
  static const char kAnchor = 0;
  v ^= reinterpret_cast<std::uintptr_t>(&kAnchor);
  v = (v ^ (v >> 33)) * 0xFF51AFD7ED558CCDU;
  v = (v ^ (v >> 33)) * 0xC4CEB9FE1A85EC53U;
  return v ^ (v >> 33);
}

}  // namespace flow
