#include "host/intake/intake.h"

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

void IntakeCounts::Add(const IntakeCounts& other) {
  for (std::size_t i = 0; i < kPacketKinds; ++i) packets[i] += other.packets[i];
  for (const auto& [port, datagrams] : other.unclaimed_ports) unclaimed_ports[port] += datagrams;
  if (first == 0 || (other.first != 0 && other.first < first)) first = other.first;
  last = std::max(last, other.last);
}

void Intake::Take(int link_type, const CapturedPacket& packet) {
  NoteTime(packet.time);
  UdpPacket udp;
  const PacketKind kind = Dissect(link_type, packet, &udp);
  ++counts_.packets[static_cast<std::size_t>(kind)];
  if (kind != PacketKind::kUdp) return;
  const IID* const protocol = ports_.ProtocolOf(udp.destination.port);
  if (protocol == nullptr) {
    ++counts_.unclaimed_ports[udp.destination.port];
  } else {
    lanes_.Take(*protocol, udp);
  }
}

void Intake::Take(const IID& protocol, const UdpPacket& datagram) {
  NoteTime(datagram.time);
  ++counts_.packets[static_cast<std::size_t>(PacketKind::kUdp)];
  lanes_.Take(protocol, datagram);
}

void Intake::NoteTime(Timestamp time) {
  if (counts_.first == 0 || time < counts_.first) counts_.first = time;
  counts_.last = std::max(counts_.last, time);
}

}  // namespace flow::host
