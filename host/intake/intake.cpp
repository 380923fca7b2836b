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
  PacketKind kind = Dissect(link_type, packet, &udp);
  if (kind == PacketKind::kUdp) {
    const IID* const protocol = ports_.ProtocolOf(udp.destination.port);
    if (protocol == nullptr) {
      ++counts_.unclaimed_ports[udp.destination.port];
    } else {
      kind = Hand(*protocol, udp);
    }
  }
  ++counts_.packets[static_cast<std::size_t>(kind)];
}

void Intake::Take(const IID& protocol, const UdpPacket& datagram) {
  NoteTime(datagram.time);
  const bool is_stranger = allowed_ != nullptr && !allowed_->Contains(datagram.source.address);
  const PacketKind kind = is_stranger ? PacketKind::kStranger : Hand(protocol, datagram);
  ++counts_.packets[static_cast<std::size_t>(kind)];
}

// Hand gives a datagram to its lane, or tells as what it is to be counted instead. The plug-in
// knows exporters by an IPv4 address, that of the packet or one that the datagram names; nobody is
// to pass for an exporter over IPv6.
PacketKind Intake::Hand(const IID& protocol, const UdpPacket& datagram) {
  const auto named = NamedExporter(datagram.Payload());
  if (StandIns::IsOne(datagram.source.address) || (named && StandIns::IsOne(*named))) {
    return PacketKind::kReservedExporter;
  }
  if (datagram.source.address.family() == Family::kIpv4) {
    lanes_.Take(protocol, datagram);
    return PacketKind::kUdp;
  }
  const auto stand_in = stand_ins_.Of(datagram.source.address, datagram.time / kMicrosPerSecond);
  if (!stand_in) return PacketKind::kSpareExporter;
  lanes_.Take(protocol, OverIpv4(datagram, *stand_in, &made_));
  return PacketKind::kUdp;
}

void Intake::NoteTime(Timestamp time) {
  if (counts_.first == 0 || time < counts_.first) counts_.first = time;
  counts_.last = std::max(counts_.last, time);
}

}  // namespace flow::host
