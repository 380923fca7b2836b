// SPDX-License-Identifier: Apache-2.0
// The link layers of captures: where the network packet begins and what it is.
#pragma once

#include <cstdint>
#include <span>

namespace flow::host {

inline constexpr std::uint16_t kEthertypeIpv4 = 0x0800;
inline constexpr std::uint16_t kEthertypeArp = 0x0806;
inline constexpr std::uint16_t kEthertypeIpv6 = 0x86DD;

// The network packet inside a captured packet.
struct NetworkPacket {
  std::uint16_t ethertype = 0;  // 0 for anything that has none
  std::span<const std::uint8_t> bytes;
};

// IsKnownLinkType tells whether ParseLinkLayer understands a link layer (DLT_...).
bool IsKnownLinkType(int link_type);

// ParseLinkLayer finds the network packet, behind any number of VLAN tags. False when the packet
// ends before it.
bool ParseLinkLayer(int link_type, std::span<const std::uint8_t> packet, NetworkPacket* out);

}  // namespace flow::host
