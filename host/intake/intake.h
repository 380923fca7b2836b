// SPDX-License-Identifier: Apache-2.0
// The intake: captured packets go to the lane and the protocol that they belong to, everything else
// is counted under what it is.
#pragma once

#include <array>
#include <map>
#include <utility>
#include <vector>

#include "host/capture/udp_packet.h"
#include "host/intake/lanes.h"
#include "host/intake/port_map.h"
#include "host/intake/stand_ins.h"
#include "host/policy/home_ranges.h"

namespace flow::host {

struct IntakeCounts {
  std::array<std::uint64_t, kPacketKinds> packets{};       // by PacketKind
  std::map<std::uint16_t, std::uint64_t> unclaimed_ports;  // UDP, by destination port
  Timestamp first = 0;
  Timestamp last = 0;

  void Add(const IntakeCounts& other);

  [[nodiscard]] std::uint64_t Packets() const;
  [[nodiscard]] std::uint64_t Unclaimed() const;
};

class Intake {
 public:
  // All outlive the intake.
  Intake(const PortMap& ports, Lanes& lanes, StandIns& stand_ins)
      : ports_(ports), lanes_(lanes), stand_ins_(stand_ins) {}

  // AllowOnly has datagrams of sockets taken from these sources alone; they outlive the intake.
  void AllowOnly(const HomeRanges& sources) { allowed_ = &sources; }

  // Take takes a packet of a capture, or a datagram of a protocol's socket.
  void Take(int link_type, const CapturedPacket& packet);
  void Take(const IID& protocol, const UdpPacket& datagram);

  [[nodiscard]] const IntakeCounts& counts() const { return counts_; }

  // Reap hands out what was counted since it was last called.
  IntakeCounts Reap() { return std::exchange(counts_, {}); }

 private:
  void NoteTime(Timestamp time);
  void Hand(const IID& protocol, UdpPacket datagram);
  void Count(PacketKind kind) { ++counts_.packets[static_cast<std::size_t>(kind)]; }

  const PortMap& ports_;
  Lanes& lanes_;
  StandIns& stand_ins_;
  const HomeRanges* allowed_ = nullptr;  // null for all
  std::vector<std::uint8_t> made_;       // a datagram over IPv6 as the plug-in is given it
  IntakeCounts counts_;
  std::uint64_t handed_ = 0;
};

}  // namespace flow::host
