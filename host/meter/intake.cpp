#include "host/meter/intake.h"

#include <algorithm>
#include <numeric>

namespace flow::host {
std::uint64_t IntakeCounts::Packets() const {
  return std::accumulate(packets.begin(), packets.end(), std::uint64_t{0});
}

std::uint64_t IntakeCounts::Unclaimed() const {
  std::uint64_t sum = 0;
  for (const auto& [port, datagrams] : unclaimed_ports) sum += datagrams;
  return sum;
}

Intake::Intake(const PortMap& ports, std::span<const std::unique_ptr<Lane>> lanes)
    : ports_(ports), lanes_(lanes) {}

void Intake::Take(int link_type, const CapturedPacket& packet) {
  if (counts_.first == 0 || packet.time < counts_.first) counts_.first = packet.time;
  counts_.last = std::max(counts_.last, packet.time);
  UdpPacket udp;
  const PacketKind kind = Dissect(link_type, packet, &udp);
  ++counts_.packets[static_cast<std::size_t>(kind)];
  if (kind != PacketKind::kUdp) return;
  const IID* const protocol = ports_.ProtocolOf(udp.destination_port);
  if (protocol == nullptr) {
    ++counts_.unclaimed_ports[udp.destination_port];
  } else {
    LaneOf(udp).Handle(*protocol, udp);
  }
}

// All datagrams of an exporter take one lane, its templates and option data with its records.
Lane& Intake::LaneOf(const UdpPacket& packet) {
  if (lanes_.size() == 1) return *lanes_[0];
  const std::uint64_t source = std::uint64_t{packet.source} << 16 | packet.source_port;
  const std::uint64_t mixed = source * 0x9E3779B97F4A7C15U;
  return *lanes_[(mixed >> 32) % lanes_.size()];
}

}  // namespace flow::host
