// The intake: captured packets go to the lane and the protocol that they belong to, everything else
// is counted under what it is.
#pragma once

#include <array>
#include <map>
#include <memory>
#include <span>

#include "host/capture/udp_packet.h"
#include "host/meter/lane.h"
#include "host/meter/port_map.h"

namespace flow::host {

struct IntakeCounts {
  std::array<std::uint64_t, kPacketKinds> packets{};       // by PacketKind
  std::map<std::uint16_t, std::uint64_t> unclaimed_ports;  // UDP, by destination port
  Timestamp first = 0;
  Timestamp last = 0;

  [[nodiscard]] std::uint64_t Packets() const;
  [[nodiscard]] std::uint64_t Unclaimed() const;
};

class Intake {
 public:
  // Both outlive the intake; lanes has at least one.
  Intake(const PortMap& ports, std::span<const std::unique_ptr<Lane>> lanes);

  void Take(int link_type, const CapturedPacket& packet);

  [[nodiscard]] const IntakeCounts& counts() const { return counts_; }

 private:
  Lane& LaneOf(const UdpPacket& packet);

  const PortMap& ports_;
  std::span<const std::unique_ptr<Lane>> lanes_;
  IntakeCounts counts_;
};

}  // namespace flow::host
