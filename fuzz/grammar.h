// SPDX-License-Identifier: Apache-2.0
// What a datagram target's mutator knows about its datagrams: how a valid one is made.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

#include "fuzz/datagrams.h"

namespace flow::fuzz {

class Random {
 public:
  explicit Random(unsigned int seed) : engine_(seed) {}
  // The engine's numbers have 31 bits and their lowest are poor.
  std::uint32_t operator()() {
    const auto high = static_cast<std::uint32_t>(engine_()) << 1;
    return high ^ static_cast<std::uint32_t>(engine_()) >> 15;
  }
  // Below(n) is one of 0 to n - 1.
  std::uint32_t Below(std::size_t n) { return static_cast<std::uint32_t>((*this)() % n); }
  bool OneIn(std::size_t n) { return Below(n) == 0; }

 private:
  std::minstd_rand engine_;
};

// MakeDatagram makes a valid datagram of the target's protocols, one that refers to others of the
// same input where it can.
Datagram MakeDatagram(Random& random);

}  // namespace flow::fuzz
