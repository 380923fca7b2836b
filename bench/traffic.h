// SPDX-License-Identifier: Apache-2.0
// Flows of an invented network: home hosts in 10.0.0.0/8 that talk to the world outside. The same
// seed always gives the same flows.
#pragma once

#include <array>
#include <cstdint>

namespace flow::bench {

// SplitMix64: small, and the same with every standard library.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t Next();
  std::uint32_t Below(std::uint32_t bound) { return static_cast<std::uint32_t>(Next() % bound); }

 private:
  std::uint64_t state_;
};

// Host byte order; times are an exporter's uptime in milliseconds, shortly before kExportUptime.
struct Flow {
  std::uint32_t source;
  std::uint32_t destination;
  std::array<std::uint8_t, 16> source6;
  std::array<std::uint8_t, 16> destination6;
  std::uint16_t source_port;
  std::uint16_t destination_port;
  std::uint8_t protocol;
  std::uint8_t tcp_flags;
  std::uint32_t packets;
  std::uint32_t bytes;
  std::uint32_t first;
  std::uint32_t last;
  std::uint16_t input;
  std::uint16_t output;
  std::uint16_t source_as;
  std::uint16_t destination_as;
  std::uint8_t source_mask;
  std::uint8_t destination_mask;
  std::uint32_t next_hop;
};

inline constexpr std::uint32_t kExportUptime = 5'000'000;
inline constexpr std::uint32_t kExportSeconds = 1'700'000'000;

class Traffic {
 public:
  explicit Traffic(std::uint64_t seed) : random_(seed) {}
  Flow Next();

 private:
  void SetTransport(Flow* flow);

  Random random_;
};

}  // namespace flow::bench
