// SPDX-License-Identifier: Apache-2.0
// From a captured packet to a UDP datagram, or the reason why it is none to be metered.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "host/base/endpoint.h"
#include "host/capture/capture_reader.h"

namespace flow::host {

enum class PacketKind : std::uint8_t {
  kUdp,
  kTcp,
  kIcmp,
  kOtherProtocol,
  kFragment,
  kArp,
  kOtherEthertype,
  kCutShort,
  kMalformed,
  // These are UDP; the intake refuses them.
  kReservedExporter,  // would be taken for an exporter over IPv6
  kSpareExporter,     // over IPv6, and there are too many of those
  kStranger,          // not of the sources that are allowed
};
inline constexpr std::size_t kPacketKinds = 12;

// KindText is the kind as it reads after a number, as in "12 TCP"; KindId its name in files.
std::string_view KindText(PacketKind kind);
std::string_view KindId(PacketKind kind);

// A UDP datagram.
struct UdpPacket {
  Timestamp time = 0;
  std::uint64_t number = 0;          // in order of arrival, whatever the clock says
  std::span<const std::uint8_t> ip;  // the IP packet, header first, without link-layer padding
  std::size_t udp_offset = 0;        // of the UDP header within ip
  std::size_t payload_length = 0;    // bytes behind the UDP header
  Endpoint source;
  Endpoint destination;

  [[nodiscard]] std::span<const std::uint8_t> Payload() const {
    return ip.subspan(udp_offset + 8, payload_length);
  }
};

// Dissect looks into a packet; *out is filled for kUdp alone and points into the packet.
PacketKind Dissect(int link_type, const CapturedPacket& packet, UdpPacket* out);

}  // namespace flow::host
