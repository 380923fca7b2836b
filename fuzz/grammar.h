// What a datagram target's mutator knows about its datagrams: how a valid one is made.
#pragma once

#include <cstdint>
#include <random>

#include "fuzz/datagrams.h"

namespace flow::fuzz {

class Random {
 public:
  explicit Random(unsigned int seed) : engine_(seed) {}
  std::uint32_t operator()() { return static_cast<std::uint32_t>(engine_()); }
  // Below(n) is one of 0 to n - 1.
  std::uint32_t Below(std::uint32_t n) { return (*this)() % n; }
  bool OneIn(std::uint32_t n) { return Below(n) == 0; }

 private:
  std::minstd_rand engine_;
};

// MakeDatagram makes a valid datagram of the target's protocols, one that refers to others of the
// same input where it can.
Datagram MakeDatagram(Random& random);

}  // namespace flow::fuzz
