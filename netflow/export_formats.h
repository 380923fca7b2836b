// SPDX-License-Identifier: Apache-2.0
// Wire formats of the NetFlow and IPFIX export packets, and of the IPv4 header in front of them.
// All numbers are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>

#include "util/bytes.h"

// IPv4 header without options (RFC 791).
struct ip_header {
  std::uint8_t version_ihl;  // low 4 bits: header length in words
  std::uint8_t tos;
  be16 total_length;
  be16 id;
  be16 fragment;
  std::uint8_t ttl;
  std::uint8_t protocol;
  be16 checksum;
  be32 source;
  be32 destination;

  [[nodiscard]] std::size_t HeaderLength() const noexcept {
    return std::size_t{version_ihl & 0x0FU} * 4;
  }
};
static_assert(sizeof(ip_header) == 20 && offsetof(ip_header, source) == 12);

// NetFlow v1 (Cisco NetFlow export datagram format, version 1): a header, then `count` records.
struct nf1_header {
  be16 version;
  be16 count;
  be32 SysUptime;
  be32 unix_secs;
  be32 unix_nsecs;
};
static_assert(sizeof(nf1_header) == 16);

struct nf1_record {
  be32 srcaddr;
  be32 dstaddr;
  be32 nexthop;
  be16 input;
  be16 output;
  be32 dPkts;
  be32 dOctets;
  be32 First;
  be32 Last;
  be16 srcport;
  be16 dstport;
  be16 pad1;
  std::uint8_t prot;
  std::uint8_t tos;
  std::uint8_t tcp_flags;
  std::uint8_t pad2[7];
};
static_assert(sizeof(nf1_record) == 48 && offsetof(nf1_record, prot) == 38);

// Header of a NetFlow v5 packet (Cisco NetFlow export datagram format, version 5).
struct nf5_header {
  be16 version;
  be16 count;      // records in the packet
  be32 SysUptime;  // milliseconds since the exporter booted, when it sent the packet
  be32 unix_secs;  // its wall clock
  be32 unix_nsecs;
  be32 flow_sequence;
  std::uint8_t engine_type;
  std::uint8_t engine_id;
  be16 sampling_interval;  // low 14 bits: one packet in so many; high 2 bits: mode
};
static_assert(sizeof(nf5_header) == 24 && offsetof(nf5_header, sampling_interval) == 22);

// One flow of a NetFlow v5 packet.
struct nf5_record {
  be32 srcaddr;
  be32 dstaddr;
  be32 nexthop;
  be16 input;  // ifIndex
  be16 output;
  be32 dPkts;
  be32 dOctets;  // layer-3 bytes
  be32 First;    // SysUptime at the first packet
  be32 Last;     // and at the last one
  be16 srcport;  // ICMP: type and code
  be16 dstport;
  std::uint8_t pad1;
  std::uint8_t tcp_flags;  // OR over all packets
  std::uint8_t prot;
  std::uint8_t tos;
  be16 src_as;
  be16 dst_as;
  std::uint8_t src_mask;  // prefix length
  std::uint8_t dst_mask;
  be16 pad2;
};
static_assert(sizeof(nf5_record) == 48 && offsetof(nf5_record, tcp_flags) == 37 &&
              offsetof(nf5_record, src_mask) == 44);

// NetFlow v9 (RFC 3954): a header, then flowsets.
struct nf9_header {
  be16 version;
  be16 count;  // an upper bound on the flowsets here
  be32 SysUptime;
  be32 unix_secs;
  be32 package_sequence;
  be32 source_id;
};
static_assert(sizeof(nf9_header) == 20);

// IPFIX (RFC 7011): a header, then sets.
struct ipfix_header {
  be16 version;
  be16 length;  // of the message, this header included
  be32 export_time;
  be32 sequence;
  be32 observation_domain;
};
static_assert(sizeof(ipfix_header) == 16);

// What every v9 flowset and IPFIX set begins with.
struct set_header {
  be16 id;
  be16 length;  // of the set, this header included
};
static_assert(sizeof(set_header) == 4);

// The shim that a forwarder puts in front of a datagram that it sends on, to keep the exporter's
// address.
struct forwarding_shim {
  char begin[4];  // "OMBR"
  be32 exporter;
  char end[4];  // "LNSM"
};
static_assert(sizeof(forwarding_shim) == 12);

namespace flow {

inline constexpr std::uint16_t kVersionNetflow1 = 1;
inline constexpr std::uint16_t kVersionNetflow5 = 5;
inline constexpr std::uint16_t kVersionNetflow9 = 9;
inline constexpr std::uint16_t kVersionIpfix = 10;

// Set ids; data sets have their template's id.
inline constexpr std::uint16_t kV9TemplateSet = 0;
inline constexpr std::uint16_t kV9OptionsTemplateSet = 1;
inline constexpr std::uint16_t kIpfixTemplateSet = 2;
inline constexpr std::uint16_t kIpfixOptionsTemplateSet = 3;
inline constexpr std::uint16_t kFirstDataSet = 256;

// The length of a field whose value brings its own length.
inline constexpr std::uint32_t kVariableLength = 65535;

}  // namespace flow
