// SPDX-License-Identifier: Apache-2.0
// The decoded flow record: what every decoder hands to metering, whatever the export version. The
// first three records keep the layout and byte order of the wire; ext_fields holds in host order
// what a NetFlow v5 record cannot carry.
#pragma once

#include <cstddef>
#include <cstdint>

#include "flowhandlers/host_interfaces.h"
#include "util/bytes.h"

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

// Host byte order; addresses of 6 and 16 bytes as on the wire. Its producer sets what it does not
// fill to zero.
struct ext_fields {
  std::uint32_t in_ifindex;
  std::uint32_t out_ifindex;
  std::uint32_t ip_version;  // 4 or 6; with any other value the addresses are no use for keys
  std::uint8_t src_addr6[16];
  std::uint8_t dst_addr6[16];
  std::uint8_t src_mask;  // prefix length
  std::uint8_t dst_mask;
  std::uint8_t pad[2];
  std::uint32_t ip_nexthop;
  std::uint32_t bgp_nexthop;
  std::uint32_t src_as;
  std::uint32_t dst_as;
  std::uint32_t spare;
  char vendor_text32[32];  // NUL-terminated; empty: absent
  char vendor_text64[64];
  std::uint8_t direction;  // 0 ingress, 1 egress
  std::uint8_t src_mac[6];
  std::uint8_t dst_mac[6];
};

namespace flow {

// SamplingMultiplier is the number of packets that one exported packet stands for.
[[nodiscard]] inline std::uint32_t SamplingMultiplier(const nf5_header& header) noexcept {
  const std::uint32_t interval = header.sampling_interval.ToHost() & 0x3FFFU;
  return interval == 0 ? 1 : interval;
}

// The clock of an exporter, as the header of one of its packets tells it.
class ExportClock {
 public:
  explicit ExportClock(const nf5_header& header) noexcept
      : uptime_(header.SysUptime.ToHost()),
        milliseconds_(std::int64_t{header.unix_secs.ToHost()} * 1000 +
                      header.unix_nsecs.ToHost() / 1'000'000) {}

  // SysUpTimeToTimeVal is the time at which the exporter's uptime was `uptime`, which may lie
  // before or after the packet's own. The remainder is in milliseconds, 0 to 999.
  [[nodiscard]] TimePair SysUpTimeToTimeVal(std::uint32_t uptime) const noexcept {
    const std::int64_t time = milliseconds_ + static_cast<std::int32_t>(uptime - uptime_);
    std::int64_t seconds = time / 1000;
    std::int64_t remainder = time % 1000;
    if (remainder < 0) {  // before 1970
      --seconds;
      remainder += 1000;
    }
    return {seconds, remainder};
  }

 private:
  std::uint32_t uptime_;
  std::int64_t milliseconds_;  // since 1970
};

[[nodiscard]] inline TimePair SysUpTimeToTimeVal(const nf5_header& header,
                                                 std::uint32_t uptime) noexcept {
  return ExportClock(header).SysUpTimeToTimeVal(uptime);
}

}  // namespace flow
