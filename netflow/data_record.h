// One decoded v9 or IPFIX data record.
#pragma once

#include <cstdint>

// Host byte order; addresses of 6 and 16 bytes as on the wire. Texts are NUL-terminated.
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
  std::uint8_t src_addr6[16];
  std::uint8_t dst_addr6[16];
  std::uint8_t ip_version;
  std::uint8_t src_mask;
  std::uint8_t dst_mask;
  std::uint32_t ip_nexthop;  // from here to dst_as as in ext_fields
  std::uint32_t bgp_nexthop;
  std::uint32_t src_as;
  std::uint32_t dst_as;
  std::uint32_t enterprise_id;  // as element 346 gives it
  std::uint8_t src_mac[6];
  std::uint8_t dst_mac[6];
  // Texts stand behind everything else: only their first byte is cleared for a record.
  char vendor_text32[33];
  char vendor_text64[65];
  char if_name[129];
  char if_desc[129];
};
