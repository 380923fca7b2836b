// SPDX-License-Identifier: Apache-2.0
// The generator's random numbers: fast, and the same for a seed with every standard library.
#pragma once

#include <bit>
#include <cstdint>

namespace flow::gen {

class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  // SplitMix64.
  std::uint64_t Next() {
    std::uint64_t z = state_ += 0x9E3779B97F4A7C15U;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31);
  }

  std::uint32_t Below(std::uint32_t bound) { return Scale(Next() >> 32, bound); }

  // SkewedBelow draws small numbers far more often: the first thousandth of the range takes a tenth
  // of the draws.
  std::uint32_t SkewedBelow(std::uint32_t bound) {
    const std::uint64_t u = Next() >> 32;
    return Scale((u * u >> 32) * u >> 32, bound);
  }

  // HarmonicBelow draws by a 1/x law: every octave of the range takes as many draws.
  std::uint32_t HarmonicBelow(std::uint32_t bound) {
    const auto octaves = static_cast<std::uint32_t>(std::bit_width(bound));
    while (true) {
      const std::uint32_t first = std::uint32_t{1} << Below(octaves);
      const std::uint32_t drawn = first + Below(first) - 1;
      if (drawn < bound) return drawn;
    }
  }

 private:
  static std::uint32_t Scale(std::uint64_t fraction, std::uint32_t bound) {
    return static_cast<std::uint32_t>(fraction * bound >> 32);
  }

  std::uint64_t state_;
};

}  // namespace flow::gen
