// SPDX-License-Identifier: Apache-2.0
// _SFSample: what the decoder has learnt from one sFlow datagram, and the callback that receives
// it.
#pragma once

#include <cstdint>
#include <span>

#include "util/bytes.h"

inline constexpr std::uint32_t kSFAddressUnset = 0;
inline constexpr std::uint32_t kSFAddressIPv4 = 1;
inline constexpr std::uint32_t kSFAddressIPv6 = 2;

// An address in network byte order; an IPv4 address takes the first four bytes.
struct SFAddress {
  std::uint32_t type = kSFAddressUnset;
  std::uint8_t bytes[16] = {};

  // The first four bytes as a number in host byte order.
  [[nodiscard]] std::uint32_t ToHostIPv4() const noexcept { return LoadBe32(bytes); }
};

// Bits of extendedTypes: the extended data that came with a sample.
inline constexpr std::uint32_t kSFExtendedSwitch = 1;
inline constexpr std::uint32_t kSFExtendedRouter = 4;
inline constexpr std::uint32_t kSFExtendedGateway = 8;
inline constexpr std::uint32_t kSFExtendedUser = 16;
inline constexpr std::uint32_t kSFExtendedUrl = 32;
inline constexpr std::uint32_t kSFExtendedMpls = 64;
inline constexpr std::uint32_t kSFExtendedNat = 128;
inline constexpr std::uint32_t kSFExtendedMplsTunnel = 0x100;
inline constexpr std::uint32_t kSFExtendedMplsVc = 0x200;
inline constexpr std::uint32_t kSFExtendedMplsFtn = 0x400;
inline constexpr std::uint32_t kSFExtendedMplsLdpFec = 0x800;
inline constexpr std::uint32_t kSFExtendedVlanTunnel = 0x1000;

// Type words of a sample. In version 5 the upper 20 bits name an enterprise, 0 here; versions 2 and
// 4 know the first two alone.
inline constexpr std::uint32_t kSFFlowSample = 1;
inline constexpr std::uint32_t kSFCountersSample = 2;
inline constexpr std::uint32_t kSFExpandedFlowSample = 3;
inline constexpr std::uint32_t kSFExpandedCountersSample = 4;

// Why the rest of a datagram was given up.
enum class SFExit : std::uint32_t {
  kNone = 0,
  kEndOfDatagram = 1,    // something announced does not lie inside the datagram
  kUnsupported = 2,      // unknown version, or content without a length by which to skip it
  kLengthError = 3,      // a sample or an element took more or fewer bytes than it announced
  kUndefinedHeader = 4,  // a sampled header of a protocol that does not exist
};

// One record serves all samples of a datagram. It is zero when the datagram begins; a field keeps
// its value from an earlier sample until a later one overwrites it. Numbers are in host byte order,
// addresses in network byte order; pointers point into the datagram.
struct _SFSample {  // NOLINT(bugprone-reserved-identifier)
  SFAddress agent;
  std::uint32_t agentSubId = 0;

  // Decode bounds. The cursor knows the end of the datagram.
  const std::uint8_t* datagram = nullptr;
  std::uint32_t datagramSize = 0;
  ByteCursor cursor{std::span<const std::uint8_t>()};

  std::uint32_t datagramVersion = 0;
  std::uint32_t sampleType = 0;  // type word of the current sample

  std::uint32_t sourceIdType = 0;
  std::uint32_t sourceIdIndex = 0;

  // Generic interface counters
  std::uint32_t ifIndex = 0;
  std::uint32_t networkType = 0;
  std::uint64_t ifSpeed = 0;
  std::uint32_t ifDirection = 0;
  std::uint32_t ifStatus = 0;
  std::uint64_t ifInOctets = 0;
  std::uint32_t ifInUcastPkts = 0;
  std::uint32_t ifInMulticastPkts = 0;
  std::uint32_t ifInBroadcastPkts = 0;
  std::uint32_t ifInDiscards = 0;
  std::uint32_t ifInErrors = 0;
  std::uint32_t ifInUnknownProtos = 0;
  std::uint64_t ifOutOctets = 0;
  std::uint32_t ifOutUcastPkts = 0;
  std::uint32_t ifOutMulticastPkts = 0;
  std::uint32_t ifOutBroadcastPkts = 0;
  std::uint32_t ifOutDiscards = 0;
  std::uint32_t ifOutErrors = 0;
  std::uint32_t ifPromiscuousMode = 0;

  // Datagram stream
  std::uint32_t sysUpTime = 0;  // milliseconds
  std::uint32_t packetSequenceNo = 0;

  // Flow sample
  std::uint32_t sampledPacketSize = 0;  // bytes of the packet on the wire
  std::uint32_t sampleSequenceNo = 0;
  std::uint32_t meanSkipCount = 0;  // one packet in so many is sampled
  std::uint32_t samplePool = 0;
  std::uint32_t dropEvents = 0;

  // Sampled header
  std::uint32_t flowSampleType = 0;  // versions 2 and 4: 1 header, 2 IPv4, 3 IPv6
  std::uint32_t headerProtocol = 0;
  const std::uint8_t* headerBytes = nullptr;
  std::int32_t headerLen = 0;
  std::uint32_t strippedBytes = 0;

  // Header decode; offsets from headerBytes
  std::int32_t hasIPv4 = 0;
  std::int32_t hasIPv4Struct = 0;
  std::int32_t ipv4Offset = 0;
  std::int32_t hasIPv6 = 0;
  std::int32_t hasIPv6Struct = 0;
  std::int32_t ipv6Offset = 0;
  std::int32_t payloadOffset = 0;

  SFAddress srcIP;
  SFAddress dstIP;
  std::uint32_t IPProtocol = 0;
  std::uint32_t IPTOS = 0;
  std::uint32_t IPTTL = 0;
  std::uint32_t srcPort = 0;  // ICMP: type
  std::uint32_t dstPort = 0;  // ICMP: code
  std::uint32_t TCPFlags = 0;
  std::uint32_t IPFragmentOffset = 0;  // units of 8 bytes
  std::uint32_t UDPBytes = 0;

  std::uint32_t inputPortFormat = 0;
  std::uint32_t outputPortFormat = 0;
  std::uint32_t inputPort = 0;
  std::uint32_t outputPort = 0;

  std::uint32_t ethernet_type = 0;
  std::uint32_t ethernet_len = 0;
  std::uint8_t ethernet_src[8] = {};  // the first six are used
  std::uint8_t ethernet_dst[8] = {};

  std::uint32_t in_vlan = 0;
  std::uint32_t in_priority = 0;
  std::uint32_t out_vlan = 0;
  std::uint32_t out_priority = 0;

  std::uint32_t num_extended = 0;  // extended elements, versions 2 and 4
  std::uint32_t extendedTypes = 0;

  // Router
  SFAddress nextHop;
  std::uint32_t srcSubnetMask = 0;
  std::uint32_t dstSubnetMask = 0;

  // Gateway; the lists stand on the wire as words
  SFAddress bgp_nexthop;
  std::uint32_t my_as = 0;
  std::uint32_t src_as = 0;
  std::uint32_t src_peer_as = 0;
  std::uint32_t dst_as_path_len = 0;
  const std::uint8_t* dst_as_path = nullptr;
  std::uint32_t dst_peer_as = 0;  // first AS of the path
  std::uint32_t dst_as = 0;       // last AS of the path
  std::uint32_t communities_len = 0;
  const std::uint8_t* communities = nullptr;
  std::uint32_t localpref = 0;

  // User; lengths are those on the wire, texts are cut to their fields
  std::uint32_t src_user_charset = 0;
  std::uint32_t src_user_len = 0;
  char src_user[200] = {};
  std::uint32_t dst_user_charset = 0;
  std::uint32_t dst_user_len = 0;
  char dst_user[200] = {};

  // URL
  std::uint32_t url_direction = 0;
  std::uint32_t url_len = 0;
  char url[200] = {};
  std::uint32_t host_len = 0;
  char host[200] = {};

  SFAddress mpls_nexthop;
  SFAddress nat_src;
  SFAddress nat_dst;

  std::uint32_t statsSamplingInterval = 0;
  std::uint32_t counterBlockVersion = 0;

  SFExit exit = SFExit::kNone;
  std::uint32_t decodeOK = 0;  // 1 from the start of a datagram, 0 after unsupported content
};

// Receives the record after every sample. The record is valid during the call; the result is
// ignored.
using SFlowCallback = int (*)(void* context, _SFSample* sample);
