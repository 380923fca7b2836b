// SPDX-License-Identifier: Apache-2.0
#include "host/capture/made_headers.h"

#include <algorithm>
#include <cstring>

#include "host/base/big_endian.h"

namespace flow::host {
namespace {

// A datagram over IPv6 may be longer than one over IPv4 can say.
void PutLength(std::size_t value, std::uint8_t* out) {
  value = std::min(value, std::size_t{0xFFFF});
  out[0] = static_cast<std::uint8_t>(value >> 8);
  out[1] = static_cast<std::uint8_t>(value);
}

}  // namespace

void PutMadeHeaders(const UdpPacket& packet, std::uint8_t* out) {
  constexpr std::uint8_t kUdp = 17;
  std::memset(out, 0, kMadeHeaders);
  out[0] = 0x45;
  PutLength(packet.payload_length + kMadeHeaders, out + 2);
  out[8] = 64;
  out[9] = kUdp;
  std::ranges::copy(packet.source.address.bytes(), out + 12);
  std::ranges::copy(packet.destination.address.bytes(), out + 16);
  PutLength(packet.source.port, out + 20);
  PutLength(packet.destination.port, out + 22);
  PutLength(packet.payload_length + 8, out + 24);
}

UdpPacket OverIpv4(const UdpPacket& packet, const IpAddress& source,
                   std::vector<std::uint8_t>* space) {
  const std::span<const std::uint8_t> payload = packet.Payload();
  UdpPacket made = packet;
  made.source.address = source;
  made.destination.address = IpAddress();
  space->resize(kMadeHeaders + payload.size());
  PutMadeHeaders(made, space->data());
  std::ranges::copy(payload, space->begin() + kMadeHeaders);
  made.ip = *space;
  made.udp_offset = kMadeUdpOffset;
  made.source = packet.source;
  made.destination = packet.destination;
  return made;
}

Endpoint HeaderSource(const UdpPacket& packet) {
  return {IpAddress::Ipv4(Be32(packet.ip.data() + 12)), packet.source.port};
}

}  // namespace flow::host
