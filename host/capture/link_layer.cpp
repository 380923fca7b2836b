// SPDX-License-Identifier: Apache-2.0
#include "host/capture/link_layer.h"

#include <pcap/dlt.h>

#include <algorithm>

#include "host/base/big_endian.h"

namespace flow::host {
namespace {

using Bytes = std::span<const std::uint8_t>;

// Ethernet and the two cooked formats differ only in where their type and their payload stand.
bool TypeAt(Bytes packet, std::size_t type_at, std::size_t header, NetworkPacket* out) {
  if (packet.size() < header) return false;
  *out = {Be16(packet.data() + type_at), packet.subspan(header)};
  return true;
}

bool ParseEthernet(Bytes packet, NetworkPacket* out) { return TypeAt(packet, 12, 14, out); }
bool ParseCooked(Bytes packet, NetworkPacket* out) { return TypeAt(packet, 14, 16, out); }
bool ParseCooked2(Bytes packet, NetworkPacket* out) { return TypeAt(packet, 0, 20, out); }

bool ParseRaw(Bytes packet, NetworkPacket* out) {
  if (packet.empty()) return false;
  const int version = packet[0] >> 4;
  const std::uint16_t type = version == 4 ? kEthertypeIpv4 : version == 6 ? kEthertypeIpv6 : 0;
  *out = {type, packet};
  return true;
}

// A loopback header is the address family in 4 bytes: in network order for LOOP, in the order of
// the capturing machine for NULL. Families are small numbers, so the non-zero half tells the order.
bool ParseLoopback(Bytes packet, NetworkPacket* out) {
  if (packet.size() < 4) return false;
  constexpr std::uint32_t kInet = 2;
  constexpr std::uint32_t kInet6[] = {10, 24, 28, 30};  // Linux, NetBSD, FreeBSD, macOS
  const std::uint32_t stored = Be32(packet.data());
  const std::uint32_t family = stored > 0xFFFF ? __builtin_bswap32(stored) : stored;
  std::uint16_t type = 0;
  if (family == kInet) type = kEthertypeIpv4;
  if (std::ranges::find(kInet6, family) != std::end(kInet6)) type = kEthertypeIpv6;
  *out = {type, packet.subspan(4)};
  return true;
}

struct LinkType {
  int dlt;
  bool (*parse)(Bytes packet, NetworkPacket* out);
};

constexpr LinkType kLinkTypes[] = {
    {DLT_EN10MB, ParseEthernet}, {DLT_LINUX_SLL, ParseCooked}, {DLT_LINUX_SLL2, ParseCooked2},
    {DLT_RAW, ParseRaw},         {DLT_IPV4, ParseRaw},         {DLT_IPV6, ParseRaw},
    {DLT_NULL, ParseLoopback},   {DLT_LOOP, ParseLoopback},
};

const LinkType* FindLinkType(int dlt) {
  const auto* const found = std::ranges::find(kLinkTypes, dlt, &LinkType::dlt);
  return found == std::end(kLinkTypes) ? nullptr : found;
}

bool IsVlanTag(std::uint16_t ethertype) {
  return ethertype == 0x8100 || ethertype == 0x88A8 || ethertype == 0x9100;
}

}  // namespace

bool IsKnownLinkType(int link_type) { return FindLinkType(link_type) != nullptr; }

bool ParseLinkLayer(int link_type, Bytes packet, NetworkPacket* out) {
  const LinkType* const link = FindLinkType(link_type);
  if (link == nullptr || !link->parse(packet, out)) return false;
  while (IsVlanTag(out->ethertype)) {
    // A tag is the VLAN in two bytes and the type of what follows in two more.
    if (!TypeAt(out->bytes, 2, 4, out)) return false;
  }
  return true;
}

}  // namespace flow::host
