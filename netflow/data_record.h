// SPDX-License-Identifier: Apache-2.0
// One decoded v9 or IPFIX data record.
#pragma once

#include <cstdint>

// Host byte order; addresses of 6 and 16 bytes as on the wire. Texts are NUL-terminated. All bytes
// are zero of what was not decoded.
struct nf9_record {
  std::uint32_t exporter_addr;
  std::uint32_t src_addr;
  std::uint32_t dst_addr;
  std::uint16_t src_port;
  std::uint16_t dst_port;
  std::uint32_t in_ifindex;
  std::uint32_t out_ifindex;
  std::uint64_t packets;
  std::uint64_t rev_packets;
  std::uint64_t bytes;
  std::uint64_t rev_bytes;
  std::uint32_t first;
  std::uint32_t last;
  std::uint8_t tcp_flags;
  std::uint8_t protocol;
  std::uint16_t src_vlan;
  std::uint16_t dst_vlan;
  std::uint8_t direction;  // 0 ingress, 1 egress
  std::uint32_t src_as;
  std::uint32_t dst_as;
  std::uint8_t src_addr6[16];
  std::uint8_t dst_addr6[16];
  std::uint8_t ip_version;
  std::uint8_t src_mask;
  std::uint8_t dst_mask;
  std::uint32_t ip_nexthop;
  std::uint32_t bgp_nexthop;
  std::uint32_t enterprise_id;  // as element 346 gives it
  char vendor_text32[33];       // a text is at most two characters shorter than its member
  char vendor_text64[65];
  std::uint8_t src_mac[6];
  std::uint8_t dst_mac[6];
  char if_name[129];
  char if_desc[129];
};
