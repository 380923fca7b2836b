// SPDX-License-Identifier: Apache-2.0
// Wire formats of the NetFlow and IPFIX export packets. All numbers are big-endian; NetFlow v5's
// header and record are in metering/flow_record.h, for they are the metering's own records.
#pragma once

#include <cstddef>
#include <cstdint>

#include "util/bytes.h"

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
