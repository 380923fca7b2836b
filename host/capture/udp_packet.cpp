// SPDX-License-Identifier: Apache-2.0
#include "host/capture/udp_packet.h"

#include <iterator>

#include "host/base/big_endian.h"
#include "host/capture/link_layer.h"

namespace flow::host {
namespace {

struct KindName {
  std::string_view id;
  std::string_view text;
};
constexpr KindName kKinds[] = {
    {"udp", "UDP"},
    {"tcp", "TCP"},
    {"icmp", "ICMP"},
    {"other_protocol", "of other IP protocols"},
    {"fragment", "IP fragments"},
    {"arp", "ARP"},
    {"other_ethertype", "of other ethertypes"},
    {"cut_short", "cut short by the capture"},
    {"malformed", "malformed"},
    {"reserved_exporter", "of exporters that call themselves 240.x.x.x"},
    {"spare_exporter", "of more exporters over IPv6 than are told apart"},
    {"stranger", "of sources that --allow does not name"},
};
static_assert(std::size(kKinds) == kPacketKinds);

constexpr std::size_t kIpv4Header = 20;
constexpr std::size_t kIpv6Header = 40;
constexpr std::size_t kUdpHeader = 8;

PacketKind KindOfProtocol(std::uint8_t protocol) {
  switch (protocol) {
    case 1:
      return PacketKind::kIcmp;
    case 6:
      return PacketKind::kTcp;
    case 17:
      return PacketKind::kUdp;
    default:
      return PacketKind::kOtherProtocol;
  }
}

// The UDP datagram behind the headers of an IP packet; its addresses are there already.
PacketKind DissectUdp(std::span<const std::uint8_t> ip, std::size_t header, UdpPacket* out) {
  if (ip.size() - header < kUdpHeader) return PacketKind::kMalformed;
  const std::uint8_t* const udp = ip.data() + header;
  const std::size_t length = Be16(udp + 4);
  if (length < kUdpHeader || length > ip.size() - header) return PacketKind::kMalformed;
  out->ip = ip;
  out->udp_offset = header;
  out->payload_length = length - kUdpHeader;
  out->source.port = Be16(udp);
  out->destination.port = Be16(udp + 2);
  return PacketKind::kUdp;
}

PacketKind DissectIpv4(std::span<const std::uint8_t> bytes, bool was_cut, UdpPacket* out) {
  const PacketKind too_short = was_cut ? PacketKind::kCutShort : PacketKind::kMalformed;
  if (bytes.size() < kIpv4Header) return too_short;
  const std::size_t header = std::size_t{bytes[0]} % 16 * 4;
  const std::size_t total = Be16(bytes.data() + 2);
  if (bytes[0] >> 4 != 4 || header < kIpv4Header || total < header) return PacketKind::kMalformed;

  const std::uint16_t fragment = Be16(bytes.data() + 6);
  constexpr std::uint16_t kMoreFragmentsOrOffset = 0x3FFF;
  if ((fragment & kMoreFragmentsOrOffset) != 0) return PacketKind::kFragment;
  const PacketKind kind = KindOfProtocol(bytes[9]);
  if (kind != PacketKind::kUdp) return kind;
  if (bytes.size() < total) return too_short;
  out->source.address = IpAddress::Ipv4(Be32(bytes.data() + 12));
  out->destination.address = IpAddress::Ipv4(Be32(bytes.data() + 16));
  return DissectUdp(bytes.first(total), header, out);
}

// The length of an extension header (RFC 8200, 4302, 6275, 7401, 5533) that begins with these two
// bytes; 0 for what is none.
std::size_t ExtensionLength(std::uint8_t type, const std::uint8_t* header) {
  switch (type) {
    case 0:    // hop-by-hop options
    case 43:   // routing
    case 60:   // destination options
    case 135:  // mobility
    case 139:  // host identity
    case 140:  // shim6
      return (std::size_t{header[1]} + 1) * 8;
    case 44:  // fragment
      return 8;
    case 51:  // authentication
      return (std::size_t{header[1]} + 2) * 4;
    default:
      return 0;
  }
}

PacketKind DissectIpv6(std::span<const std::uint8_t> bytes, bool was_cut, UdpPacket* out) {
  const PacketKind too_short = was_cut ? PacketKind::kCutShort : PacketKind::kMalformed;
  if (bytes.size() < kIpv6Header) return too_short;
  if (bytes[0] >> 4 != 6) return PacketKind::kMalformed;
  const std::size_t total = kIpv6Header + Be16(bytes.data() + 4);
  std::uint8_t type = bytes[6];
  std::size_t at = kIpv6Header;
  constexpr std::uint8_t kNothing[2] = {};
  while (ExtensionLength(type, kNothing) != 0) {
    constexpr std::size_t kShortest = 8;
    if (total < at + kShortest) return PacketKind::kMalformed;
    if (bytes.size() < at + kShortest) return too_short;
    const std::uint8_t* const header = bytes.data() + at;
    constexpr std::uint16_t kMoreFragmentsOrOffset = 0xFFF9;
    constexpr std::uint8_t kFragment = 44;
    if (type == kFragment && (Be16(header + 2) & kMoreFragmentsOrOffset) != 0) {
      return PacketKind::kFragment;
    }
    at += ExtensionLength(type, header);
    type = header[0];
  }
  constexpr std::uint8_t kIcmpv6 = 58;
  const PacketKind kind = type == kIcmpv6 ? PacketKind::kIcmp : KindOfProtocol(type);
  if (kind != PacketKind::kUdp) return kind;
  if (total < at) return PacketKind::kMalformed;
  if (bytes.size() < total) return too_short;
  out->source.address = IpAddress::Ipv6(bytes.subspan<8, 16>());
  out->destination.address = IpAddress::Ipv6(bytes.subspan<24, 16>());
  return DissectUdp(bytes.first(total), at, out);
}

}  // namespace

std::string_view KindText(PacketKind kind) { return kKinds[static_cast<std::size_t>(kind)].text; }
std::string_view KindId(PacketKind kind) { return kKinds[static_cast<std::size_t>(kind)].id; }

PacketKind Dissect(int link_type, const CapturedPacket& packet, UdpPacket* out) {
  const bool was_cut = packet.wire_length > packet.bytes.size();
  NetworkPacket network;
  if (!ParseLinkLayer(link_type, packet.bytes, &network)) {
    return was_cut ? PacketKind::kCutShort : PacketKind::kMalformed;
  }
  out->time = packet.time;
  switch (network.ethertype) {
    case kEthertypeIpv4:
      return DissectIpv4(network.bytes, was_cut, out);
    case kEthertypeIpv6:
      return DissectIpv6(network.bytes, was_cut, out);
    case kEthertypeArp:
      return PacketKind::kArp;
    default:
      return PacketKind::kOtherEthertype;
  }
}

}  // namespace flow::host
