// SPDX-License-Identifier: Apache-2.0
// Headers made in front of a payload, for datagrams that come without: those of sockets, and those
// over IPv6, for which the plug-in has no layer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/capture/udp_packet.h"

namespace flow::host {

inline constexpr std::size_t kMadeUdpOffset = 20;                // behind an IPv4 header
inline constexpr std::size_t kMadeHeaders = kMadeUdpOffset + 8;  // in front of the payload

// PutMadeHeaders writes the headers of a datagram as they would have been on the wire, without
// checksums: kMadeHeaders bytes. The addresses are of IPv4.
void PutMadeHeaders(const UdpPacket& packet, std::uint8_t* out);

// OverIpv4 makes a datagram one over IPv4 from this source, without a destination. It stands in
// *space and keeps its own endpoints.
UdpPacket OverIpv4(const UdpPacket& packet, const IpAddress& source,
                   std::vector<std::uint8_t>* space);
// HeaderSource is the source by the IPv4 header, the one that meters know: of a datagram that
// OverIpv4 made, who stands in.
Endpoint HeaderSource(const UdpPacket& packet);

}  // namespace flow::host
