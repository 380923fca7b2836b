// SPDX-License-Identifier: Apache-2.0
#include "host/intake/intake.h"

#include <algorithm>
#include <numeric>

#include "host/capture/made_headers.h"
#include "host/export/export_format.h"

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
  if (kind != PacketKind::kUdp) return Count(kind);
  if (const IID* const protocol = ports_.ProtocolOf(udp.destination.port)) {
    return Hand(*protocol, udp);
  }
  ++counts_.unclaimed_ports[udp.destination.port];
  Count(kind);
}

void Intake::Take(const IID& protocol, const UdpPacket& datagram) {
  NoteTime(datagram.time);
  const bool is_stranger = allowed_ != nullptr && !allowed_->Contains(datagram.source.address);
  is_stranger ? Count(PacketKind::kStranger) : Hand(protocol, datagram);
}

// Hand gives a datagram to its lane, or counts it as what it is instead. The plug-in knows
// exporters by an IPv4 address, that of the packet or one that the datagram names; nobody is to
// pass for an exporter over IPv6. It is counted first: the plug-in may end the process while a lane
// meters it.
void Intake::Hand(const IID& protocol, UdpPacket datagram) {
  datagram.number = ++handed_;
  const auto named = NamedExporter(datagram.Payload());
  if (StandIns::IsOne(datagram.source.address) || (named && StandIns::IsOne(*named))) {
    return Count(PacketKind::kReservedExporter);
  }
  if (datagram.source.address.family() == Family::kIpv4) {
    Count(PacketKind::kUdp);
    return lanes_.Take(protocol, datagram);
  }
  const auto stand_in = stand_ins_.Of(datagram.source.address, datagram.time / kMicrosPerSecond);
  if (!stand_in) return Count(PacketKind::kSpareExporter);
  Count(PacketKind::kUdp);
  lanes_.Take(protocol, OverIpv4(datagram, *stand_in, &made_));
}

void Intake::NoteTime(Timestamp time) {
  if (counts_.first == 0 || time < counts_.first) counts_.first = time;
  counts_.last = std::max(counts_.last, time);
}

}  // namespace flow::host
