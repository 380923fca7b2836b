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
    {"ipv6", "IPv6"},
    {"arp", "ARP"},
    {"other_ethertype", "of other ethertypes"},
    {"cut_short", "cut short by the capture"},
    {"malformed", "malformed"},
};
static_assert(std::size(kKinds) == kPacketKinds);

constexpr std::size_t kIpHeader = 20;
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

PacketKind DissectUdp(std::span<const std::uint8_t> ip, std::size_t header, UdpPacket* out) {
  if (ip.size() - header < kUdpHeader) return PacketKind::kMalformed;
  const std::uint8_t* const udp = ip.data() + header;
  const std::size_t length = Be16(udp + 4);
  if (length < kUdpHeader || length > ip.size() - header) return PacketKind::kMalformed;
  out->ip = ip;
  out->udp_offset = header;
  out->payload_length = length - kUdpHeader;
  out->source = {IpAddress::Ipv4(Be32(ip.data() + 12)), Be16(udp)};
  out->destination = {IpAddress::Ipv4(Be32(ip.data() + 16)), Be16(udp + 2)};
  return PacketKind::kUdp;
}

PacketKind DissectIpv4(std::span<const std::uint8_t> bytes, bool was_cut, UdpPacket* out) {
  const PacketKind too_short = was_cut ? PacketKind::kCutShort : PacketKind::kMalformed;
  if (bytes.size() < kIpHeader) return too_short;
  const std::size_t header = std::size_t{bytes[0]} % 16 * 4;
  const std::size_t total = Be16(bytes.data() + 2);
  if (bytes[0] >> 4 != 4 || header < kIpHeader || total < header) return PacketKind::kMalformed;

  const std::uint16_t fragment = Be16(bytes.data() + 6);
  constexpr std::uint16_t kMoreFragmentsOrOffset = 0x3FFF;
  if ((fragment & kMoreFragmentsOrOffset) != 0) return PacketKind::kFragment;
  const PacketKind kind = KindOfProtocol(bytes[9]);
  if (kind != PacketKind::kUdp) return kind;
  if (bytes.size() < total) return too_short;
  return DissectUdp(bytes.first(total), header, out);
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
      return PacketKind::kIpv6;
    case kEthertypeArp:
      return PacketKind::kArp;
    default:
      return PacketKind::kOtherEthertype;
  }
}

}  // namespace flow::host
