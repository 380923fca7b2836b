// SPDX-License-Identifier: Apache-2.0
// The network that the exporters watch: home hosts in 10.0.0.0/8 that talk to hosts outside, a few
// of them most of the time.
//
// All-new traffic is the hardest case for a flow table: nearly every record opens a flow, and every
// host has its turn. Realistic traffic draws hosts by a 1/x law, and of 100 records 27 open a flow,
// as records of a backbone do; the others tell more of a flow that is still open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bench/flowgen/random.h"

namespace flow::gen {

// Host byte order. Times are milliseconds before the export.
struct Flow {
  std::uint32_t source;
  std::uint32_t destination;
  std::uint32_t next_hop;
  std::uint32_t packets;
  std::uint32_t bytes;
  std::uint32_t first_ago;
  std::uint32_t last_ago;
  std::uint16_t source_port;
  std::uint16_t destination_port;
  std::uint16_t input;  // interfaces: 1 to 8 towards home, 9 to 12 towards the world
  std::uint16_t output;
  std::uint16_t source_as;
  std::uint16_t destination_as;
  std::uint8_t protocol;
  std::uint8_t tcp_flags;
  std::uint8_t source_mask;
  std::uint8_t destination_mask;
};

inline constexpr std::uint8_t kIcmp = 1;
inline constexpr std::uint8_t kTcp = 6;
inline constexpr std::uint8_t kUdp = 17;

inline constexpr std::uint16_t kInterfaces = 12;
inline constexpr std::uint32_t kOldestFlow = 60'000;  // no flow began earlier before its export
inline constexpr std::uint32_t kMaxHosts = 1U << 25;  // over all periods; half of them fill 10/8

class TrafficModel {
 public:
  // hosts: distinct addresses in a period, half of them at home; records: at least so many flows
  // are drawn in a period, so that every host of all-new traffic can have its turn.
  TrafficModel(std::uint64_t seed, std::uint32_t hosts, std::uint64_t records, bool realistic);

  // Period changes to the hosts of another period; no host belongs to two.
  void Period(std::uint32_t number);

  Flow Next();

 private:
  // How many flows are open at a time, where they are.
  static constexpr std::size_t kOpenFlows = std::size_t{1} << 18;

  Flow Conversation();
  Flow OpenFlow();
  void DrawHosts(Flow* flow);
  void DrawTransport(Flow* flow);
  void DrawVolume(Flow* flow);

  Random random_;
  std::uint32_t home_hosts_;
  std::uint32_t other_hosts_;
  std::uint32_t turn_every_;  // of so many flows, one is for the hosts whose turn it is
  std::uint32_t period_ = 0;
  std::uint32_t turn_ = 0;
  std::uint32_t until_turn_ = 0;
  bool realistic_;
  std::vector<Flow> open_;
  std::size_t next_open_ = 0;
};

}  // namespace flow::gen
