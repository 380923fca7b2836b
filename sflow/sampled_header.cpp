// SPDX-License-Identifier: Apache-2.0
// The first bytes of a sampled packet: Ethernet, IEEE 802.11, IPv4, IPv6 and what they carry.
//
// An agent cuts the header where it likes. Every decoder looks at the bytes that are there and
// leaves the fields of what was cut as they were.

#include "sflow/diagnostics.h"
#include "sflow/sflow_steps.h"

namespace {

using Bytes = std::span<const std::uint8_t>;

enum HeaderProtocol : std::uint32_t {
  kHeaderEthernet = 1,
  kHeaderIPv4 = 11,
  kHeaderIPv6 = 12,
  kHeaderWifi = 15,
  kHeaderLast = 17,
};

enum IPProtocolNumber : std::uint8_t {
  kIPHopByHop = 0,
  kIPIcmp = 1,
  kIPTcp = 6,
  kIPUdp = 17,
  kIPRouting = 43,
  kIPFragment = 44,
  kIPAuthentication = 51,
  kIPDestinationOptions = 60,
};

constexpr std::size_t kTcpDataOffset = 12;
constexpr std::size_t kTcpFlags = 13;

constexpr std::uint16_t kEtherTypeIPv4 = 0x0800;
constexpr std::uint16_t kEtherTypeIPv6 = 0x86DD;
constexpr std::uint16_t kEtherTypeVlan = 0x8100;
constexpr std::uint16_t kLargest8023Length = 1500;

void SetAddress(SFAddress* out, std::uint32_t type, const std::uint8_t* from) {
  SFWords(from).NextAddress(type, out);
}

// decodeIPLayer4 decodes the transport header at offset, where it is long enough to hold ports.
void decodeIPLayer4(_SFSample* sample, Bytes header, std::size_t offset) {
  if (offset > header.size() || header.size() - offset < 8) return;
  const Bytes transport = header.subspan(offset);
  std::size_t payload = offset;
  switch (sample->IPProtocol) {
    case kIPTcp:
      sample->srcPort = LoadBe16(&transport[0]);
      sample->dstPort = LoadBe16(&transport[2]);
      if (transport.size() <= kTcpDataOffset) return;
      payload += std::size_t{4} * (transport[kTcpDataOffset] >> 4);
      if (transport.size() > kTcpFlags) sample->TCPFlags = transport[kTcpFlags];
      break;
    case kIPUdp:
      sample->srcPort = LoadBe16(&transport[0]);
      sample->dstPort = LoadBe16(&transport[2]);
      sample->UDPBytes = LoadBe16(&transport[4]);
      payload += 8;
      break;
    case kIPIcmp:
      sample->srcPort = transport[0];
      sample->dstPort = transport[1];
      payload += 2;
      break;
    default:
      break;
  }
  sample->payloadOffset = static_cast<std::int32_t>(payload);
}

void DecodeIPv4(_SFSample* sample, Bytes header, std::size_t offset) {
  if (header.size() - offset < 20) return;
  const std::uint8_t* const ip = &header[offset];
  SetAddress(&sample->srcIP, kSFAddressIPv4, ip + 12);
  SetAddress(&sample->dstIP, kSFAddressIPv4, ip + 16);
  sample->IPProtocol = ip[9];
  sample->IPTOS = ip[1];
  sample->IPTTL = ip[8];
  sample->IPFragmentOffset = LoadBe16(ip + 6) & 0x1FFFU;
  if (sample->IPFragmentOffset == 0) {
    decodeIPLayer4(sample, header, offset + std::size_t{4} * (ip[0] & 0x0FU));
  }
}

constexpr bool IsIPv6Extension(std::uint8_t next_header) {
  return next_header == kIPHopByHop || next_header == kIPRouting || next_header == kIPFragment ||
         next_header == kIPAuthentication || next_header == kIPDestinationOptions;
}

void DecodeIPv6(_SFSample* sample, Bytes header, std::size_t offset) {
  constexpr std::size_t kFixedHeader = 40;
  if (header.size() - offset < kFixedHeader) return;
  const std::uint8_t* const ip = &header[offset];
  if (ip[0] >> 4 != 6) return;
  sample->IPTOS = ip[0] & 0x0FU;
  sample->IPTTL = ip[7];
  SetAddress(&sample->srcIP, kSFAddressIPv6, ip + 8);
  SetAddress(&sample->dstIP, kSFAddressIPv6, ip + 24);

  std::uint8_t next_header = ip[6];
  std::size_t at = offset + kFixedHeader;
  while (IsIPv6Extension(next_header)) {
    if (header.size() - at < 2) return;
    next_header = header[at];
    const std::size_t size = std::size_t{8} * (header[at + 1] + std::size_t{1});
    if (size > header.size() - at) return;
    at += size;
  }
  sample->IPProtocol = next_header;
  decodeIPLayer4(sample, header, at);
}

// SkipLlc finds out what an IEEE 802.3 frame carries: *type and *offset become those of the packet
// behind its LLC header. False when it carries something else. The caller has checked that the
// eight bytes at *offset are there.
bool SkipLlc(Bytes header, std::size_t* offset, std::uint16_t* type) {
  const std::uint8_t* const llc = &header[*offset];
  if (llc[0] == 0xAA && llc[1] == 0xAA && llc[2] == 0x03) {  // SNAP
    if (llc[3] != 0 || llc[4] != 0 || llc[5] != 0) return false;
    *type = LoadBe16(llc + 6);
    *offset += 8;
    return true;
  }
  if (llc[0] == 0x06 && llc[1] == 0x06 && (llc[2] & 0x01) != 0) {  // IP straight behind LLC
    *type = kEtherTypeIPv4;
    *offset += 3;
    return true;
  }
  return false;
}

// ReadEthernetType finds the type of the packet in an Ethernet frame and its offset, behind a VLAN
// tag and an LLC header. False when the frame is cut before the packet or carries none.
bool ReadEthernetType(_SFSample* sample, Bytes header, std::size_t* offset, std::uint16_t* type) {
  constexpr std::size_t kShortestDecoded = 34;  // an Ethernet and an IPv4 header
  *type = LoadBe16(&header[12]);
  *offset = 14;
  const bool tagged = *type == kEtherTypeVlan;
  if (tagged && header.size() >= 16) sample->in_vlan = LoadBe16(&header[14]) & 0x0FFFU;
  if (header.size() < kShortestDecoded) return false;
  if (tagged) {
    *type = LoadBe16(&header[16]);
    *offset = 18;
  }
  if (*type > kLargest8023Length) return true;
  const bool ipx = (*type == 0x0200 || *type == 0x0201) && header[*offset] == 0xFF;
  return !ipx && SkipLlc(header, offset, type);
}

void DecodeEthernet(_SFSample* sample, Bytes header) {
  sample->hasIPv4 = 0;
  sample->hasIPv6 = 0;
  if (header.size() < 14) return;
  std::memcpy(sample->ethernet_dst, &header[0], 6);
  std::memcpy(sample->ethernet_src, &header[6], 6);
  std::uint16_t type = 0;
  std::size_t offset = 0;
  if (!ReadEthernetType(sample, header, &offset, &type)) return;
  sample->ethernet_type = type;

  const std::uint8_t first = header[offset];
  if (type == kEtherTypeIPv4) {
    if (header.size() - offset < 20 || first >> 4 != 4 || (first & 0x0F) < 5) return;
    sample->hasIPv4 = 1;
    sample->ipv4Offset = static_cast<std::int32_t>(offset);
    DecodeIPv4(sample, header, offset);
  } else if (type == kEtherTypeIPv6 && first >> 4 == 6) {
    sample->hasIPv6 = 1;
    sample->ipv6Offset = static_cast<std::int32_t>(offset);
    DecodeIPv6(sample, header, offset);
  }
}

void DecodeRawIPv4(_SFSample* sample, Bytes header) {
  sample->hasIPv4 = 1;
  sample->ipv4Offset = 0;
  sample->hasIPv6 = 0;
  DecodeIPv4(sample, header, 0);
}

void DecodeRawIPv6(_SFSample* sample, Bytes header) {
  sample->hasIPv6 = 1;
  sample->ipv6Offset = 0;
  sample->hasIPv4 = 0;
  DecodeIPv6(sample, header, 0);
}

// Where an IEEE 802.11 data frame has its source and destination, by its To-DS and From-DS flags.
struct WifiAddresses {
  std::size_t source;
  std::size_t destination;
  std::size_t needed;  // bytes of header
};
constexpr WifiAddresses kWifiAddresses[] = {
    {10, 4, 24},   // neither: between stations
    {10, 16, 24},  // To-DS: to the access point
    {16, 4, 24},   // From-DS: from the access point
    {24, 16, 30},  // both: between access points
};

void DecodeWifi(_SFSample* sample, Bytes header) {
  sample->hasIPv4 = 0;
  sample->hasIPv6 = 0;
  if (header.size() < 24) return;
  constexpr unsigned kDataFrame = 2;
  if ((header[0] >> 2 & 0x3U) != kDataFrame) return;
  const WifiAddresses& addresses = kWifiAddresses[header[1] & 0x3U];
  if (header.size() < addresses.needed) return;
  std::memcpy(sample->ethernet_src, &header[addresses.source], 6);
  std::memcpy(sample->ethernet_dst, &header[addresses.destination], 6);
}

}  // namespace

bool readFlowSample_header(_SFSample* sample) {
  const bool has_stripped = sample->datagramVersion == 5;
  const std::uint8_t* fixed = nullptr;
  if (!TakeWords(sample, has_stripped ? 4 : 3, &fixed)) return false;
  SFWords words(fixed);
  sample->headerProtocol = words.Next();
  sample->sampledPacketSize = words.Next();
  if (has_stripped) sample->strippedBytes = words.Next();
  const std::uint32_t length = words.Next();
  sample->headerLen = static_cast<std::int32_t>(length);
  if (!TakeBytes(sample, length, &sample->headerBytes)) return false;

  const Bytes header(sample->headerBytes, length);
  switch (sample->headerProtocol) {
    case kHeaderEthernet:
      DecodeEthernet(sample, header);
      return true;
    case kHeaderIPv4:
      DecodeRawIPv4(sample, header);
      return true;
    case kHeaderIPv6:
      DecodeRawIPv6(sample, header);
      return true;
    case kHeaderWifi:
      DecodeWifi(sample, header);
      return true;
    default:
      break;
  }
  // Token ring, FDDI, frame relay and the like go by undecoded.
  if (sample->headerProtocol != 0 && sample->headerProtocol <= kHeaderLast) return true;
  SFDiagnostic()
      .Text("undefined headerProtocol = ")
      .Number(sample->headerProtocol)
      .Text("\n")
      .Write();
  return GiveUp(sample, SFExit::kUndefinedHeader);
}
