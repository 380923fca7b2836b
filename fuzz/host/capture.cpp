// SPDX-License-Identifier: Apache-2.0
// Captures: the file, compressed or not, and its packets under every link layer.

#include <pcap/dlt.h>

#include <algorithm>
#include <vector>

#include "fuzz/host/promise.h"
#include "fuzz/memory_file.h"
#include "host/base/error.h"
#include "host/capture/capture_reader.h"
#include "host/capture/made_headers.h"
#include "host/capture/udp_packet.h"

namespace flow::fuzz {
namespace {

using host::CapturedPacket;
using host::Dissect;
using host::PacketKind;
using host::UdpPacket;

// A few compressed bytes can be any number of packets.
constexpr int kMostPackets = 1000;

constexpr int kLinkTypes[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2,
                              DLT_RAW,    DLT_NULL,      DLT_LOOP};

bool IsWithin(std::span<const std::uint8_t> inner, std::span<const std::uint8_t> outer) {
  return inner.data() >= outer.data() && inner.size() <= outer.size() &&
         inner.data() + inner.size() <= outer.data() + outer.size();
}

// A datagram over IPv6 goes on as one over IPv4, which must say the same.
void CheckOverIpv4(const UdpPacket& udp) {
  constexpr std::size_t kMostOverIpv4 = 65535 - host::kMadeHeaders;
  if (udp.payload_length > kMostOverIpv4) return;
  std::vector<std::uint8_t> space;
  const UdpPacket made = OverIpv4(udp, host::IpAddress::Ipv4(0xF0000001), &space);
  UdpPacket again;
  const auto length = static_cast<std::uint32_t>(made.ip.size());
  Demand(Dissect(DLT_RAW, {udp.time, made.ip, length}, &again) == PacketKind::kUdp,
         "what is made over IPv4 is a datagram");
  Demand(std::ranges::equal(again.Payload(), udp.Payload()), "the payload stays as it was");
  Demand(again.source.port == udp.source.port && again.destination.port == udp.destination.port,
         "the ports stay as they were");
}

void CheckPacket(int link_type, const CapturedPacket& packet) {
  UdpPacket udp;
  const PacketKind kind = Dissect(link_type, packet, &udp);
  Demand(!KindText(kind).empty() && !KindId(kind).empty(), "a packet is of some kind");
  if (kind != PacketKind::kUdp) return;
  Demand(IsWithin(udp.ip, packet.bytes), "the IP packet is part of what was captured");
  Demand(udp.udp_offset + 8 <= udp.ip.size() && IsWithin(udp.Payload(), udp.ip),
         "the payload is part of the IP packet");
  Demand(udp.source.address.family() == udp.destination.address.family(),
         "both ends are of one family");
  Demand(udp.time == packet.time, "the datagram came when the packet did");
  CheckOverIpv4(udp);
}

void Read(const std::string& path) {
  host::CaptureReader reader(path);
  CapturedPacket packet;
  for (int i = 0; i < kMostPackets && reader.Next(&packet); ++i) {
    constexpr host::Timestamp kYear10000 = 253'402'300'800 * host::kMicrosPerSecond;
    Demand(packet.time >= 0 && packet.time < kYear10000, "times are of years with four digits");
    Demand(reader.Position() >= 0 && reader.Position() <= 1, "the position is within the file");
    // A block of exactly that size, so that a sanitizer sees one byte too many.
    const std::vector<std::uint8_t> bytes(packet.bytes.begin(), packet.bytes.end());
    packet.bytes = bytes;
    CheckPacket(reader.LinkType(), packet);
    for (const int link_type : kLinkTypes) CheckPacket(link_type, packet);
  }
}

}  // namespace
}  // namespace flow::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const flow::fuzz::MemoryFile file;
  file.Write(data, size);
  try {
    flow::fuzz::Read(file.Path());
  } catch (const flow::host::HostError&) {
    // No capture, or damaged: the user is told so.
  }
  return 0;
}
